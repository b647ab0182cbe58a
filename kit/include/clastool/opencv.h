#pragma once

#include <clastool/kit.h>

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

// Converts matrices of OpenCV into patterns and training data, and results into matrices. This header is complete: a program that
// includes it links OpenCV's core itself, and no library here does.
//
// Samples are a matrix of one channel, CV_32F or CV_64F, with one sample a row and any step between rows. A value that is not
// finite is a missing measurement, and a missing measurement is NaN in a matrix.

namespace ktKit {

/// Throws: ktClassifierDefs::BadFeatures "Samples must be a matrix of two dimensions and one channel, CV_32F or CV_64F".
inline void requireSamples(const cv::Mat& samples)
{
    if (samples.dims > 2 || (samples.type() != CV_32FC1 && samples.type() != CV_64FC1)) {
        throw ktClassifierDefs::BadFeatures(
            "Samples must be a matrix of two dimensions and one channel, CV_32F or CV_64F");
    }
}

/// A pattern for each row. Throws: what `requireSamples` throws.
inline Patterns patterns(const cv::Mat& samples)
{
    requireSamples(samples);
    const auto size = static_cast<std::size_t>(samples.cols);
    Patterns made;
    made.reserve(static_cast<std::size_t>(samples.rows));
    for (int i = 0; i < samples.rows; ++i) {
        made.push_back(samples.type() == CV_32FC1 ? pattern(samples.ptr<float>(i), size)
                                                  : pattern(samples.ptr<double>(i), size));
    }
    return made;
}

/// The labels in a row or a column of numbers. Whole numbers in CV_32F and CV_64F are labels too, because OpenCV returns such.
/// Throws: ktClassifierDefs::BadLabel "Labels must be a row or a column of one channel, CV_32S, CV_32F or CV_64F";
/// ktClassifierDefs::BadLabel "Labels must be whole numbers".
inline std::vector<long> labels(const cv::Mat& column)
{
    const int type = column.type();
    const bool isLine = column.dims <= 2 && (column.rows == 1 || column.cols == 1 || column.empty());
    if (!isLine || (type != CV_32SC1 && type != CV_32FC1 && type != CV_64FC1)) {
        throw ktClassifierDefs::BadLabel("Labels must be a row or a column of one channel, CV_32S, CV_32F or CV_64F");
    }
    std::vector<long> found;
    for (int i = 0; i < static_cast<int>(column.total()); ++i) {
        const int row = column.rows == 1 ? 0 : i;
        const int place = column.rows == 1 ? i : 0;
        const double value = type == CV_32SC1   ? column.at<int>(row, place)
                             : type == CV_32FC1 ? static_cast<double>(column.at<float>(row, place))
                                                : column.at<double>(row, place);
        constexpr double most = std::numeric_limits<std::int32_t>::max();
        if (!(value >= -most && value <= most) || value != static_cast<double>(static_cast<long>(value))) {
            throw ktClassifierDefs::BadLabel("Labels must be whole numbers");
        }
        found.push_back(static_cast<long>(value));
    }
    return found;
}

/// Training data from samples and a label for each.
/// Throws: what `requireSamples` and `labels` throw; what ktClassifierDataProviderMemory::data refuses.
inline ktClassifierDataProviderMemory trainingData(const cv::Mat& samples, const cv::Mat& labelColumn)
{
    ktClassifierDataProviderMemory data;
    data.data(patterns(samples), labels(labelColumn));
    return data;
}

/// The result for each row of the samples, as `runAll` of rows returns it. A continuous CV_64F matrix is not copied.
/// Throws: what `requireSamples` throws; what `runAll` throws.
inline std::vector<ktClassifierResult> runAll(const ktClassifierTool& tool, const cv::Mat& samples,
                                              unsigned threads = 1)
{
    requireSamples(samples);
    cv::Mat rows = samples;
    if (samples.type() != CV_64FC1 || !samples.isContinuous()) {
        rows = cv::Mat();
        samples.convertTo(rows, CV_64F);
    }
    return runAll(tool, reinterpret_cast<const double*>(rows.data), static_cast<std::size_t>(rows.rows),
                  static_cast<std::size_t>(rows.cols), threads);
}

/// The decision of each result, in a column of CV_32S, as OpenCV's `predict` returns it.
/// Throws: what `decision` throws.
inline cv::Mat decisions(const std::vector<ktClassifierResult>& results)
{
    cv::Mat column(static_cast<int>(results.size()), 1, CV_32S);
    for (int i = 0; i < column.rows; ++i) {
        column.at<int>(i) = static_cast<int>(decision(results[static_cast<std::size_t>(i)]).categoryLabel());
    }
    return column;
}

/// The class scores, which are posterior probabilities: CV_64F, a row for each result and a column for each of these labels. A
/// category that a result does not hold has score 0.
inline cv::Mat probabilities(const std::vector<ktClassifierResult>& results, const std::vector<long>& columnLabels)
{
    cv::Mat scores = cv::Mat::zeros(static_cast<int>(results.size()), static_cast<int>(columnLabels.size()), CV_64F);
    for (int i = 0; i < scores.rows; ++i) {
        for (const ktClassifierCategoryResult& category : results[static_cast<std::size_t>(i)].categoryResults()) {
            for (int j = 0; j < scores.cols; ++j) {
                if (columnLabels[static_cast<std::size_t>(j)] == category.categoryLabel()) {
                    scores.at<double>(i, j) = category.classScore();
                }
            }
        }
    }
    return scores;
}

/// The measurements of patterns, one pattern a row, as CV_32F or CV_64F. Missing measurements are NaN.
/// Throws: ktBadPointer for a null handle; ktClassifierDefs::BadFeatures "All patterns must have the same number of
/// measurements"; what `requireSamples` throws for another type.
inline cv::Mat samples(const Patterns& given, int type = CV_64F)
{
    const long size = given.empty() ? 0 : given.front()->numMeasurements();
    cv::Mat made(static_cast<int>(given.size()), static_cast<int>(size), CV_64F);
    for (int i = 0; i < made.rows; ++i) {
        const ktFeaturePattern& pattern = *given[static_cast<std::size_t>(i)];
        if (pattern.numMeasurements() != size) {
            throw ktClassifierDefs::BadFeatures("All patterns must have the same number of measurements");
        }
        for (int j = 0; j < made.cols; ++j) {
            made.at<double>(i, j) =
                pattern.isValid(j) ? pattern.featureMeasurement(j, true) : std::numeric_limits<double>::quiet_NaN();
        }
    }
    if (type != CV_64F) {
        requireSamples(cv::Mat(0, 0, type));
        cv::Mat converted;
        made.convertTo(converted, type);
        return converted;
    }
    return made;
}

}  // namespace ktKit
