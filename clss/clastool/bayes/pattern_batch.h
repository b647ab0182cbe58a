#pragma once

#include "group_density.h"

#include <clastool/bayes.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

/// Collects the patterns that a category model learns in a training. The model learns many of them in one call, so that a density's
/// fixed work per call counts once, and groups of a single measurement learn side by side. The state is the same to the bit as after
/// learning the patterns one by one.
///
/// A pattern waits here only if the model certainly learns it: all densities are normal, and all measurements are valid and finite. For any
/// other pattern the model first learns the waiting patterns, then adapts to this one at once.
class kt_PatternBatch {
public:
    /// Requires: the model has adapted to a pattern. So no index is negative, and its densities know their sizes; the exception are
    /// groups with measurements that the pattern lacks.
    explicit kt_PatternBatch(kt_CategoryModelBayesian& model) : model_(model)
    {
        Block singles;
        std::size_t total = 0;
        for (std::size_t i = 0; i < model.numGroups(); ++i) {
            const kt_GroupDensity density = model.group(i);
            const std::vector<long>& group = density.indices();
            ktNormalDensity* state = density.normal();
            areNormal_ = areNormal_ && state != nullptr && !state->isUnused();
            if (group.size() == 1) {
                singles.states.push_back(state);
                singles.indices.push_back(group.front());
            } else {
                blocks_.push_back({{state}, group, {}});
            }
            for (const long index : group) {
                reach_ = std::max(reach_, static_cast<std::size_t>(index) + 1);
            }
            total += group.size();
        }
        blocks_.push_back(std::move(singles));
        if (areNormal_ && total > 0) {
            // A small batch stays in the first-level cache. With many categories it also saves memory.
            most_ = std::clamp<std::size_t>(1024 / total, 1, 32);
            for (Block& block : blocks_) {
                block.rows.resize(most_ * block.indices.size());
            }
        }
    }

    /// The model learns the waiting patterns, also if an exception ended the training.
    ~kt_PatternBatch() { finish(); }
    kt_PatternBatch(const kt_PatternBatch&) = delete;
    kt_PatternBatch& operator=(const kt_PatternBatch&) = delete;

    /// Throws: what kt_CategoryModelBayesian::adapt throws.
    void add(const ktFeaturePattern& pattern)
    {
        if (!takes(pattern)) {
            finish();
            model_.adapt(pattern, nullptr, 0);
        } else if (++numRows_ == most_) {
            finish();
        }
    }

private:
    /// One density and its group, or all groups of a single measurement. `rows` holds the values of the waiting patterns.
    struct Block {
        std::vector<ktNormalDensity*> states;
        std::vector<long> indices;
        std::vector<double> rows;
    };

    /// Appends the pattern's values to the rows. Returns false if the pattern cannot wait.
    bool takes(const ktFeaturePattern& pattern)
    {
        if (most_ == 0 || pattern.numInvalid() != 0) {
            return false;
        }
        const std::vector<double>& values = pattern.featureMeasurements(false);
        if (values.size() < reach_) {
            return false;
        }
        // Becomes NaN if a value is not finite.
        double zero = 0.0;
        for (Block& block : blocks_) {
            double* row = block.rows.data() + numRows_ * block.indices.size();
            for (const long index : block.indices) {
                const double value = values[static_cast<std::size_t>(index)];
                zero += value - value;
                *row++ = value;
            }
        }
        return zero == 0.0;
    }

    void finish() noexcept
    {
        if (numRows_ == 0) {
            return;
        }
        for (const Block& block : blocks_) {
            if (block.states.size() == block.indices.size()) {
                ktNormalDensity::learnColumns(block.states.data(), block.states.size(), block.rows.data(), numRows_);
            } else {
                block.states.front()->learnRows(block.rows.data(), numRows_);
            }
        }
        numRows_ = 0;
    }

    kt_CategoryModelBayesian& model_;
    bool areNormal_ = true;
    std::vector<Block> blocks_;
    // The least number of measurements with which a pattern has all indices.
    std::size_t reach_ = 0;
    std::size_t most_ = 0;
    std::size_t numRows_ = 0;
};
