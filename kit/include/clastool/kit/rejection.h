#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>

#include <memory>
#include <vector>

namespace ktKit {

/// Detects patterns that belong to no category of a Bayesian tool. The class scores of a result cannot: they are shares, and their
/// sum is 1 even for a pattern that fits no category.
///
/// A category's limit is the log-likelihood below which a given share of its own training patterns lie. A pattern is rejected if it
/// is below the limits of all categories.
///
/// Each measurement contributes a factor to a likelihood. So a pattern with missing measurements, its gaps, is compared with training
/// patterns from which the same measurements are removed. A training pattern that lacks another measurement is left out. A category
/// without remaining training patterns has no limit and rejects nothing. So gaps that never occurred in training are compared
/// correctly, and a pattern may have any number of gaps.
///
/// Ownership: holds a copy of the tool, and shares the patterns that it learns from. Copy: shares both.
/// Threads: const operations may run on several threads at once; they wait for each other while limits for new gaps are computed.
class KT_KIT_API Rejection {
public:
    /// Learns limits from labelled patterns, usually those that the tool was trained on. Of n sorted log-likelihoods, counted from 0,
    /// the limit is the one at place floor(share n): with 0.0 the least. Patterns whose category the tool does not know are ignored.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before learning what to reject";
    /// ktClassifierDefs::BadMethod "Classifier tool was not trained by Bayes"; ktClassifierDefs::BadParams "The share must be >= 0.0
    /// and < 1.0"; ktBadPointer for a null pattern; what a run throws.
    /// Cost: a run for each pattern without missing measurements.
    Rejection(const ktClassifierTool& tool, const ktClassifierDataProvider& data, double share);
    Rejection(const Rejection&);
    Rejection& operator=(const Rejection&);
    ~Rejection();

    /// ln of the unscaled likelihood of the category, even where the match score of a run is 0.
    /// Throws: ktClassifierDefs::BadLabel "The tool knows no category with the label <label>"; what a run throws.
    double logLikelihood(const ktFeaturePattern& pattern, long label) const;
    /// The limit of a category for patterns with the gaps of this one; minus infinity if it has none.
    /// Throws: as `logLikelihood`.
    double limit(const ktFeaturePattern& pattern, long label) const;
    /// Whether the pattern is below the limit of each category.
    /// Throws: what a run throws. Polls: once per category; for new gaps also once per pattern learnt from. Cost: that of a run; for
    /// gaps that no earlier call had, that of a run for each pattern learnt from. The limits of up to 1000 sets of gaps are kept.
    bool rejects(const ktFeaturePattern& pattern) const;

private:
    struct Learnt;

    std::shared_ptr<const Learnt> learnt_;
};

}  // namespace ktKit
