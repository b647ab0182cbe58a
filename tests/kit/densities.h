#pragma once

#include "kit_kit.h"

// The densities of a Bayesian tool by their definition, and comparison with these.

namespace kt_test {

/// Mean and covariance by their definition, in two passes over the numbers of one category.
inline ktKit::Density byDefinition(const Sample& sample, long label, const std::vector<long>& measurements)
{
    ktKit::Density density;
    const auto size = static_cast<long>(measurements.size());
    std::vector<long double> mean(measurements.size());
    std::vector<std::vector<long double>> rows;
    for (std::size_t i = 0; i < sample.labels.size(); ++i) {
        if (sample.labels[i] == label) {
            rows.emplace_back();
            for (const long measurement : measurements) {
                rows.back().push_back(sample.patterns[i]->featureMeasurement(measurement, true));
            }
        }
    }
    const auto n = static_cast<long double>(rows.size());
    for (std::size_t j = 0; j < mean.size(); ++j) {
        for (const auto& row : rows) {
            mean[j] += row[j] / n;
        }
        density.mean.push_back(static_cast<double>(mean[j]));
    }
    density.covariance = ktNMMatrix(size, size);
    for (long i = 0; i < size; ++i) {
        for (long j = 0; j < size; ++j) {
            long double sum = 0.0L;
            for (const auto& row : rows) {
                const auto a = static_cast<std::size_t>(i);
                const auto b = static_cast<std::size_t>(j);
                sum += (row[a] - mean[a]) * (row[b] - mean[b]);
            }
            density.covariance(i, j) = static_cast<double>(sum / (n - 1));
        }
    }
    density.count = static_cast<long>(rows.size());
    return density;
}

inline void expectNear(double value, double expected)
{
    EXPECT_LE(std::abs(value - expected), 1e-12 * std::abs(expected)) << value << " " << expected;
}

inline void expectNear(const ktKit::Density& found, const ktKit::Density& expected)
{
    ASSERT_EQ(found.mean.size(), expected.mean.size());
    EXPECT_EQ(found.count, expected.count);
    for (std::size_t i = 0; i < found.mean.size(); ++i) {
        expectNear(found.mean[i], expected.mean[i]);
        for (std::size_t j = 0; j < found.mean.size(); ++j) {
            const auto row = static_cast<long>(i);
            const auto column = static_cast<long>(j);
            expectNear(found.covariance(row, column), expected.covariance(row, column));
        }
    }
}

inline void expectSameDensities(const ktClassifierTool& tool, const ktClassifierTool& other)
{
    const std::vector<ktKit::Density> found = ktKit::densities(tool);
    const std::vector<ktKit::Density> expected = ktKit::densities(other);
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(found[i].label, expected[i].label);
        EXPECT_EQ(found[i].measurements, expected[i].measurements);
        EXPECT_EQ(found[i].type, expected[i].type);
        EXPECT_EQ(found[i].numTrials, expected[i].numTrials);
        expectNear(found[i].theta, expected[i].theta);
        expectNear(found[i], expected[i]);
    }
}

}  // namespace kt_test
