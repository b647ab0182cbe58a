#pragma once

#include "sub_pattern.h"

#include <clastool/bayes.h>

#include <algorithm>
#include <cstddef>
#include <typeinfo>
#include <vector>

/// A group of a category model and its density, whose class is asked once, here. The library's own densities learn and are
/// evaluated by their state, from rows. A density of any other class, also one derived from these, may do everything in its own
/// way: it gets patterns. A missing density, which only a damaged archive leaves, is met by the first operation that needs it.
///
/// Ownership: none; the model outlives it, and keeps its groups and densities meanwhile.
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
    /// The state of a normal density, null for any other.
    ktNormalDensity* normal() const { return normal_; }

    /// Whether nothing was learnt that fixes the number of measurements. False for a class of the caller's own.
    /// Throws: ktBadPointer for a missing density.
    bool isUnused() const
    {
        require();
        return learnt_ != nullptr && learnt_->isUnused();
    }
    /// Takes back what `prepare` did to a density that was unused.
    void clear() const { learnt_->clear(); }

    /// A normal density learns nothing from a pattern that lacks one of its measurements, and makes no room for them either: the
    /// group may name more of them than there are.
    bool isTaughtBy(const ktFeaturePattern& pattern) const
    {
        const auto isThere = [&](long index) { return index < pattern.numMeasurements(); };
        return normal_ == nullptr || std::all_of(indices_->begin(), indices_->end(), isThere);
    }

    /// Checks that the density can learn its part of a pattern, and makes room for it.
    void prepare(const ktNormalDensity::Row& row) const
    {
        if (normal_ != nullptr) {
            kt_throwOnFailure(normal_->prepare(row.size));
        } else if (binomial_ != nullptr) {
            binomial_->prepareFor(row);
        }
    }

    /// Learns its part of a pattern. Cannot fail after `prepare`, but for a class of the caller's own.
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
    /// The measurements of a group, as a normal density asks for them.
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
    // What the density learns with; null for a class of the caller's own.
    ktNormalDensity* learnt_ = nullptr;
};
