#pragma once

#include "arrays.h"
#include "watch.h"

#include <clastool/clastool.h>
#include <clastool/kit/learning.h>

#include <memory>
#include <utility>
#include <vector>

/// A tool that nothing changes any more, and what calls on it ask again and again.
class Trained {
public:
    explicit Trained(ktClassifierTool tool);
    /// Of a tool that answers with the same labels as the other.
    Trained(ktClassifierTool tool, const Trained& other) : tool_(std::move(tool)), categories_(other.categories_) {}

    const ktClassifierTool& tool() const { return tool_; }
    /// The labels that a run can answer with, ascending.
    const std::vector<long>& categories() const { return categories_; }

private:
    ktClassifierTool tool_;
    std::vector<long> categories_;
};

/// The tool that Python holds: another one takes the place of what is in it, so whoever runs it meanwhile has the old one to the end.
class SharedTool {
public:
    SharedTool();
    explicit SharedTool(ktClassifierTool tool);
    /// Shares what is in it now.
    SharedTool(const SharedTool& other);

    std::shared_ptr<const Trained> now() const { return std::atomic_load(&trained_); }
    void take(ktClassifierTool tool);
    /// Exchanges the tool for what `changed` makes of it, unless it was exchanged meanwhile: then for what that makes of the new one.
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

/// Trains a new tool on rows, which it reads where they are.
ktClassifierTool trainedOn(const Rows& rows, const Labels& labels, const ktClassifierTrainParams& params, Watch& watch);
