#pragma once

#include <clastool/foundation.h>

#include <kt/normal_density.h>
#include <kt/scratch.h>

#include <cstddef>
#include <vector>

/// The measurements of a pattern that one density sees, laid out for it without a pattern of their own on the heap.
class kt_SubPattern {
public:
    /// All measurements.
    explicit kt_SubPattern(const ktFeaturePattern& pattern)
        : values_(static_cast<std::size_t>(pattern.numMeasurements())), valid_(values_.size())
    {
        for (std::size_t i = 0; i < values_.size(); ++i) {
            take(i, pattern, static_cast<long>(i));
        }
    }

    /// Those of a group, in its order. An index past the pattern's end counts as an invalid measurement.
    /// Throws: ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0".
    kt_SubPattern(const ktFeaturePattern& pattern, const std::vector<long>& group)
        : values_(group.size()), valid_(group.size())
    {
        for (std::size_t i = 0; i < group.size(); ++i) {
            take(i, pattern, group[i]);
        }
    }

    ktNormalDensity::Row row() { return {values_.data(), valid_.data(), values_.size()}; }

    /// The same as a pattern, for densities that only know patterns.
    ktFeaturePattern pattern()
    {
        std::vector<long> invalid;
        for (std::size_t i = 0; i < valid_.size(); ++i) {
            if (!valid_[i]) {
                invalid.push_back(static_cast<long>(i));
            }
        }
        return {std::vector<double>(values_.begin(), values_.end()), invalid};
    }

private:
    void take(std::size_t place, const ktFeaturePattern& pattern, long index)
    {
        valid_[place] = pattern.isValid(index);
        values_[place] = pattern.featureMeasurement(index, false);
    }

    kt_Scratch<double> values_;
    kt_Scratch<bool> valid_;
};
