#pragma once

#include "arrays.h"
#include "watch.h"

#include <clastool/clastool.h>
#include <clastool/kit/learning.h>

#include <memory>
#include <utility>
#include <vector>

/// A tool that does not change, with values that many calls need.
class Trained {
public:
    explicit Trained(ktClassifierTool tool);
    /// Requires: the tool answers with the same labels as `other`, whose list of labels is copied.
    Trained(ktClassifierTool tool, const Trained& other) : tool_(std::move(tool)), categories_(other.categories_) {}

    const ktClassifierTool& tool() const { return tool_; }
    /// The labels that a run can answer with, ascending.
    const std::vector<long>& categories() const { return categories_; }

private:
    ktClassifierTool tool_;
    std::vector<long> categories_;
};

/// The tool that Python holds. A change exchanges the whole Trained, so a call that runs meanwhile keeps the old one to its end.
class SharedTool {
public:
    SharedTool();
    explicit SharedTool(ktClassifierTool tool);
    /// Shares the present Trained.
    SharedTool(const SharedTool& other);

    std::shared_ptr<const Trained> now() const { return std::atomic_load(&trained_); }
    void take(ktClassifierTool tool);
    /// Exchanges the tool for what `changed` returns for it. If another thread exchanged it meanwhile, calls `changed` again with the
    /// new one.
    template <class Changed>
    void change(Changed changed)
    {
        std::shared_ptr<const Trained> old = now();
        while (!std::atomic_compare_exchange_strong(&trained_, &old, changed(*old))) {
        }
    }

private:
    std::shared_ptr<const Trained> trained_;
};

/// Trains a new tool on rows. Bayes makes no copy of them.
ktClassifierTool trainedOn(const Rows& rows, const Labels& labels, const ktClassifierTrainParams& params, Watch& watch);
