#pragma once

#include "sub_pattern.h"

#include <clastool/bayes.h>

#include <algorithm>
#include <cstddef>
#include <typeinfo>
#include <vector>

/// A group of a category model with its density. The constructor asks the class of the density once. The library's own classes learn and
/// are evaluated from rows, without a pattern. A density of any other class, also a derived one, may override everything, so it gets
/// patterns. Only a damaged archive leaves a density missing; the first operation that needs it throws.
///
/// Ownership: none. The model outlives this object, and does not change its groups and densities meanwhile.
class kt_GroupDensity {
public:
    kt_GroupDensity() = default;
    kt_GroupDensity(const std::vector<long>& indices, const ktPtrHandle<kt_ProbabilityDensityFunction>& density)
        : indices_(&indices), density_(density.get())
    {
        if (density_ == nullptr) {
            return;
        }
        if (typeid(*density_) == typeid(kt_PDFMultivariateNormal)) {
            normal_ = &static_cast<kt_PDFMultivariateNormal*>(density_)->state_;
            learnt_ = normal_;
        } else if (typeid(*density_) == typeid(kt_PDFBinomial)) {
            binomial_ = static_cast<kt_PDFBinomial*>(density_);
            learnt_ = &binomial_->accumulator_.state_;
        }
    }

    /// The group's measurements.
    const std::vector<long>& indices() const { return *indices_; }
    /// The state of a normal density; null for other densities.
    ktNormalDensity* normal() const { return normal_; }

    /// Whether the density has learnt nothing, so that its number of measurements is open. False for a class of the caller's own.
    /// Throws: ktBadPointer for a missing density.
    bool isUnused() const
    {
        require();
        return learnt_ != nullptr && learnt_->isUnused();
    }
    /// Undoes `prepare`. Requires: the density was unused before it.
    void clear() const { learnt_->clear(); }

    /// Whether the density learns from the pattern. A normal density learns nothing if the pattern is too short for the group. It does not
    /// allocate for such a group either, which may name any number of measurements.
    bool isTaughtBy(const ktFeaturePattern& pattern) const
    {
        const auto isThere = [&](long index) { return index < pattern.numMeasurements(); };
        return normal_ == nullptr || std::all_of(indices_->begin(), indices_->end(), isThere);
    }

    /// Checks that the density can learn the row, and allocates what that needs.
    void prepare(const ktNormalDensity::Row& row) const
    {
        if (normal_ != nullptr) {
            kt_throwOnFailure(normal_->prepare(row.size));
        } else if (binomial_ != nullptr) {
            binomial_->prepareFor(row);
        }
    }

    /// Learns the row. After `prepare` only a class of the caller's own can fail.
    void learn(const ktNormalDensity::Row& row) const
    {
        if (normal_ != nullptr) {
            kt_throwOnFailure(normal_->accumulate(&row, 1, 1.0));
        } else if (binomial_ != nullptr) {
            binomial_->learn(row);
        } else {
            density_->updateWithData({kt_SubPattern::pattern(row)});
        }
    }

    /// The log density of the pattern's measurements. An index past its end counts as an invalid measurement.
    /// Throws: ktBadPointer for a missing density; ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0"; what the
    /// density throws.
    double logValue(const ktFeaturePattern& pattern) const
    {
        require();
        if (normal_ != nullptr) {
            double value = 0.0;
            kt_throwOnFailure(normal_->logDensity(Source(pattern, *indices_), indices_->size(), value));
            return value;
        }
        kt_SubPattern part(pattern, *indices_);
        return binomial_ != nullptr ? binomial_->logValueAt(part.row())
                                    : density_->logValue(kt_SubPattern::pattern(part.row()));
    }

private:
    /// Reads the measurements of a group for a normal density.
    class Source : public ktNormalDensity::Source {
    public:
        Source(const ktFeaturePattern& pattern, const std::vector<long>& group) : pattern_(pattern), group_(group) {}

        bool measurement(std::size_t index, double& value) const override
        {
            value = pattern_.featureMeasurement(group_[index], false);
            return pattern_.isValid(group_[index]);
        }

    private:
        const ktFeaturePattern& pattern_;
        const std::vector<long>& group_;
    };

    void require() const
    {
        if (density_ == nullptr) {
            throw ktBadPointer();
        }
    }

    const std::vector<long>* indices_ = nullptr;
    kt_ProbabilityDensityFunction* density_ = nullptr;
    ktNormalDensity* normal_ = nullptr;
    kt_PDFBinomial* binomial_ = nullptr;
    // The state that learns; null for a class of the caller's own.
    ktNormalDensity* learnt_ = nullptr;
};
