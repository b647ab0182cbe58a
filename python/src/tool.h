#pragma once

#include "arrays.h"
#include "watch.h"

#include <clastool/clastool.h>
#include <clastool/kit/learning.h>

#include <memory>
#include <vector>

/// A tool that nothing changes any more, and what calls on it ask again and again.
class Trained {
public:
    explicit Trained(ktClassifierTool tool);

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
    /// Changes a copy, and exchanges the tool for it unless that was exchanged meanwhile: then the change is made to the new one.
    template <class Change>
    void change(Change change)
    {
        std::shared_ptr<const Trained> old = now();
        for (;;) {
            ktClassifierTool copy = old->tool();
            change(copy);
            if (std::atomic_compare_exchange_strong(&trained_, &old,
                                                    std::make_shared<const Trained>(std::move(copy)))) {
                return;
            }
        }
    }

private:
    std::shared_ptr<const Trained> trained_;
};

/// Trains a new tool on rows, which it reads where they are.
ktClassifierTool trainedOn(const Rows& rows, const Labels& labels, const ktClassifierTrainParams& params, Watch& watch);
