#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>
#include <clastool/kit/patterns.h>

#include <cstddef>
#include <vector>

namespace ktKit {

/// The decision of a result: its first category result, that of least expected cost. It lives as long as the result.
/// Throws: ktClassifierDefs::BadParams "The result holds no category" for a result that no run has filled.
KT_KIT_API const ktClassifierCategoryResult& decision(const ktClassifierResult& result);
/// Of a result that ends with the expression, a copy.
inline ktClassifierCategoryResult decision(ktClassifierResult&& result)
{
    return decision(static_cast<const ktClassifierResult&>(result));
}

/// ln of the unscaled likelihood of a category: ln(match score) - matchScoreFactorLog(). By it a pattern that fits no category
/// can be told. Minus infinity where the match score is 0, as that of a category more than about 745 below the best one.
/// For techniques that do not scale, ln of the match score.
/// Throws: ktClassifierDefs::BadLabel "The result holds no category with the label <label>".
KT_KIT_API double logLikelihood(const ktClassifierResult& result, long label);

/// Classifies many patterns: a result for each, in order, equal to the bit to those of runs one by one.
///
/// `threads` threads work, the calling one among them; 0 counts as 1, so std::thread::hardware_concurrency() can be given as
/// it is. Where the system gives fewer threads, fewer work. No thread is left when the function returns or throws. An attention
/// handler is called on each of them.
/// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running.", without patterns too; then, whatever
/// the number of threads, what runs one by one would throw first: ktBadPointer for a null handle, what a run throws. What the
/// attention check raises on one thread ends the others within some hundred patterns.
/// Polls: as runs one by one. Cost: as ktClassifierTool::run of many patterns.
KT_KIT_API std::vector<ktClassifierResult> runAll(const ktClassifierTool& tool, const Patterns& patterns,
                                                  unsigned threads = 1);

/// The same for rows of numbers: measurement j of pattern i is `rows[i * numMeasurements + j]`, and one that is not finite is
/// invalid, as in `pattern`. Patterns are made for some hundred rows at a time and used again.
/// Requires: `numRows * numMeasurements` numbers that can be read.
KT_KIT_API std::vector<ktClassifierResult> runAll(const ktClassifierTool& tool, const double* rows, std::size_t numRows,
                                                  std::size_t numMeasurements, unsigned threads = 1);

/// A kept pattern of a nearest-neighbour classifier, as near to a pattern as few others are.
struct Neighbor {
    /// Which of the kept patterns it is: that of the training data, less the patterns of unknown category before it.
    std::size_t index;
    /// Its category.
    long label;
    /// What the metric says, in its unit; infinite for NaN.
    double distance;
};

/// The neighbours by which a nearest-neighbour tool decides on the pattern: as many as the k in use, or all kept patterns if
/// they are fewer; in ascending order of their distance. Of kept patterns at one distance, the one stored later comes first,
/// and which of them are among the k is as in a run.
/// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running."; ktClassifierDefs::BadMethod
/// "Classifier tool was not trained for nearest neighbors"; what a run throws: ktClassifierDefs::InsufficientTrainData "No
/// valid data was provided for training.", ktClassifierDefs::BadFeatures "K-nearest neighbor classification does not support
/// invalid measurements" (for another number of measurements too), what the attention check and the metric throw.
/// Polls: once per kept pattern. Cost: as a run, and k distances.
/// See: T. M. Cover, P. E. Hart, "Nearest neighbor pattern classification", 1967.
KT_KIT_API std::vector<Neighbor> neighbors(const ktClassifierTool& tool, const ktFeaturePattern& pattern);

}  // namespace ktKit
