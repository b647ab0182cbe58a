#pragma once

#include <clastool/foundation.h>

#include <kt/normal_density.h>
#include <kt/scratch.h>

#include <cstddef>
#include <limits>
#include <vector>

/// Raises a failing code of a density.
inline void kt_throwOnFailure(long code)
{
    if (code != 0) {
        kfThrowExceptionOnFailure(code);
    }
}

/// A pattern's values, for densities that treat values that are not finite as missing. If all measurements are valid, these are the
/// pattern's own values. Otherwise they are a copy on the stack, with NaN for each invalid measurement. Empty if the pattern has
/// invalid measurements and is too long for the copy.
class kt_MeasuredValues {
public:
    explicit kt_MeasuredValues(const ktFeaturePattern& pattern)
    {
        const std::vector<double>& values = pattern.featureMeasurements(false);
        const bool isWhole = pattern.numInvalid() == 0;
        size_ = isWhole || values.size() <= most ? values.size() : 0;
        values_ = isWhole ? values.data() : copy_;
        for (std::size_t i = 0; !isWhole && i < size_; ++i) {
            copy_[i] = pattern.isValid(static_cast<long>(i)) ? values[i] : std::numeric_limits<double>::quiet_NaN();
        }
    }
    kt_MeasuredValues(const kt_MeasuredValues&) = delete;
    kt_MeasuredValues& operator=(const kt_MeasuredValues&) = delete;

    const double* data() const { return values_; }
    std::size_t size() const { return size_; }

private:
    static constexpr std::size_t most = 512;

    const double* values_;
    std::size_t size_;
    double copy_[most];
};

/// The measurements of a pattern that one density sees, in the order of its group.
class kt_SubPattern {
public:
    /// Allocates for groups of at most `largest` measurements.
    explicit kt_SubPattern(std::size_t largest) : values_(largest), valid_(largest) {}

    /// All measurements of the pattern.
    explicit kt_SubPattern(const ktFeaturePattern& pattern)
        : kt_SubPattern(static_cast<std::size_t>(pattern.numMeasurements()))
    {
        for (std::size_t i = 0; i < values_.size(); ++i) {
            place(i, pattern, static_cast<long>(i));
        }
    }

    /// The measurements of a group; see `take`.
    kt_SubPattern(const ktFeaturePattern& pattern, const std::vector<long>& group) : kt_SubPattern(group.size())
    {
        take(pattern, group);
    }

    /// Replaces the measurements by those of a group, in its order. An index past the pattern's end counts as an invalid measurement.
    /// Requires: the group has at most `largest` measurements.
    /// Throws: ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0".
    ktNormalDensity::Row take(const ktFeaturePattern& pattern, const std::vector<long>& group)
    {
        for (std::size_t i = 0; i < group.size(); ++i) {
            place(i, pattern, group[i]);
        }
        return {values_.data(), valid_.data(), group.size()};
    }

    ktNormalDensity::Row row() { return {values_.data(), valid_.data(), values_.size()}; }

    /// The row as a pattern, for densities that take patterns only.
    static ktFeaturePattern pattern(const ktNormalDensity::Row& row)
    {
        std::vector<long> invalid;
        for (std::size_t i = 0; i < row.size; ++i) {
            if (!row.valid[i]) {
                invalid.push_back(static_cast<long>(i));
            }
        }
        return {std::vector<double>(row.values, row.values + row.size), invalid};
    }

private:
    void place(std::size_t at, const ktFeaturePattern& pattern, long index)
    {
        valid_[at] = pattern.isValid(index);
        values_[at] = pattern.featureMeasurement(index, false);
    }

    kt_Scratch<double> values_;
    kt_Scratch<bool> valid_;
};
