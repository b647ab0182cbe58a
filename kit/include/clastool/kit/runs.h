#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>
#include <clastool/kit/patterns.h>

#include <cstddef>
#include <vector>

namespace ktKit {

/// The decision of a result: its first category result, which has the least expected cost. It lives as long as the result.
/// Throws: ktClassifierDefs::BadParams "The result holds no category" for a result that no run has filled.
KT_KIT_API const ktClassifierCategoryResult& decision(const ktClassifierResult& result);
/// A copy, for a temporary result.
inline ktClassifierCategoryResult decision(ktClassifierResult&& result)
{
    return decision(static_cast<const ktClassifierResult&>(result));
}

/// ln of the unscaled likelihood of a category: ln(match score) - matchScoreFactorLog(). It shows whether a pattern fits any category.
/// Minus infinity where the match score is 0: that is so for a category more than about 745 below the best one. For techniques that
/// do not scale, ln of the match score.
/// Throws: ktClassifierDefs::BadLabel "The result holds no category with the label <label>".
KT_KIT_API double logLikelihood(const ktClassifierResult& result, long label);

/// Classifies many patterns. The results come in the order of the patterns and equal those of single runs to the bit.
///
/// `threads` threads work, including the calling one. 0 counts as 1, so std::thread::hardware_concurrency() can be passed directly. If
/// the system provides fewer threads, fewer work. All threads have ended when the function returns or throws. An attention handler
/// is called on each of them.
/// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running.", without patterns too; then, with any
/// number of threads, what single runs in order would throw first: ktBadPointer for a null handle, what a run throws. What the
/// attention check raises on one thread ends the others within a few hundred patterns.
/// Polls: as single runs. Cost: as ktClassifierTool::run of many patterns.
KT_KIT_API std::vector<ktClassifierResult> runAll(const ktClassifierTool& tool, const Patterns& patterns,
                                                  unsigned threads = 1);

/// The same for rows of numbers: measurement j of pattern i is `rows[i * numMeasurements + j]`. A number that is not finite is an
/// invalid measurement, as in `pattern`. Patterns are made for a few hundred rows at a time and reused.
/// Requires: `numRows * numMeasurements` numbers that can be read.
KT_KIT_API std::vector<ktClassifierResult> runAll(const ktClassifierTool& tool, const double* rows, std::size_t numRows,
                                                  std::size_t numMeasurements, unsigned threads = 1);

/// One of the k nearest kept patterns.
struct Neighbor {
    /// The number of the kept pattern: its index in the training data, less the patterns of unknown category before it.
    std::size_t index;
    /// Its category.
    long label;
    /// The metric's distance, in its unit; infinite for NaN.
    double distance;
};

/// The neighbours by which a nearest-neighbour tool decides on the pattern: k of them, or all kept patterns if they are fewer, with
/// the k in use. They come in ascending order of distance; of patterns at one distance, the one stored later comes first. Which
/// patterns at the k-th distance are among them is as in a run.
/// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running."; ktClassifierDefs::BadMethod
/// "Classifier tool was not trained for nearest neighbors"; what a run throws: ktClassifierDefs::InsufficientTrainData "No
/// valid data was provided for training.", ktClassifierDefs::BadFeatures "K-nearest neighbor classification does not support
/// invalid measurements" (for another number of measurements too), what the attention check and the metric throw.
/// Polls: once per kept pattern. Cost: that of a run, plus k distances.
/// See: T. M. Cover, P. E. Hart, "Nearest neighbor pattern classification", 1967.
KT_KIT_API std::vector<Neighbor> neighbors(const ktClassifierTool& tool, const ktFeaturePattern& pattern);

}  // namespace ktKit
