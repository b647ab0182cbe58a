#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>

#include <memory>
#include <vector>

namespace ktKit {

/// Tells patterns that belong to no category of a Bayesian tool. The class scores of a result cannot: they are shares, and add
/// up to 1 for a pattern that fits nowhere too.
///
/// A category's limit is the log-likelihood below which a given share of its own training patterns lie. A pattern is rejected if it
/// is below the limits of all categories.
///
/// Each measurement brings a factor of its own into a likelihood, so a pattern is compared with its like: with the training
/// patterns as if they lacked what it lacks. Those that lack something else beside that are left out. A category all of whose
/// patterns are left out has no limit, and rejects nothing; so gaps that training has never seen are compared right, and no
/// number of gaps is refused.
///
/// Ownership: holds a copy of the tool, and shares the patterns that it learns from. Copy: shares all that.
/// Threads: const operations may run on several threads at once; they wait for each other while limits for new gaps are computed.
class KT_KIT_API Rejection {
public:
    /// Learns limits from labelled patterns, mostly those that the tool was trained on. `share` of n sorted log-likelihoods is
    /// the place floor(share n), counted from 0: with 0.0 the least is the limit. Patterns whose category the tool does not know
    /// take no part.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before learning what to reject";
    /// ktClassifierDefs::BadMethod "Classifier tool was not trained by Bayes"; ktClassifierDefs::BadParams "The share must be >= 0.0
    /// and < 1.0"; ktBadPointer for a null pattern; what a run throws.
    /// Cost: a run for each pattern, if none of its measurements is missing.
    Rejection(const ktClassifierTool& tool, const ktClassifierDataProvider& data, double share);
    Rejection(const Rejection&);
    Rejection& operator=(const Rejection&);
    ~Rejection();

    /// The log-likelihood of the pattern in the category: ln of the unscaled likelihood, also where the match score of a run is 0.
    /// Throws: ktClassifierDefs::BadLabel "The tool knows no category with the label <label>"; what a run throws.
    double logLikelihood(const ktFeaturePattern& pattern, long label) const;
    /// The limit of a category for patterns with the gaps of this one; minus infinity if it has none.
    /// Throws: as `logLikelihood`.
    double limit(const ktFeaturePattern& pattern, long label) const;
    /// Whether the pattern is below the limit of each category.
    /// Throws: what a run throws. Polls: once per category, and for new gaps once per pattern learnt from. Cost: as a run; for gaps
    /// that no call met before, as a run for each pattern learnt from. The limits of up to 1000 sets of gaps are kept.
    bool rejects(const ktFeaturePattern& pattern) const;

private:
    struct Learnt;

    std::shared_ptr<const Learnt> learnt_;
};

}  // namespace ktKit
