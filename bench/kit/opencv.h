#pragma once

#include "kit.h"

#include <opencv2/core.hpp>

#include <vector>

// The same data in OpenCV's form, which is 32-bit floats, one pattern a row.

inline cv::Mat asMatrix(const LabelledPatterns& data)
{
    const auto columns = static_cast<int>(data.values(0).size());
    cv::Mat matrix(static_cast<int>(data.size()), columns, CV_32F);
    for (std::size_t i = 0; i < data.size(); ++i) {
        float* row = matrix.ptr<float>(static_cast<int>(i));
        for (const double value : data.values(i)) {
            *row++ = static_cast<float>(value);
        }
    }
    return matrix;
}

inline cv::Mat asLabelColumn(const LabelledPatterns& data)
{
    cv::Mat column(static_cast<int>(data.size()), 1, CV_32S);
    for (std::size_t i = 0; i < data.size(); ++i) {
        column.at<int>(static_cast<int>(i)) = static_cast<int>(data.labels[i]);
    }
    return column;
}

/// Each row as a matrix header of its own, made before the clock runs.
inline std::vector<cv::Mat> asRows(const cv::Mat& matrix)
{
    std::vector<cv::Mat> rows;
    for (int i = 0; i < matrix.rows; ++i) {
        rows.push_back(matrix.row(i));
    }
    return rows;
}
