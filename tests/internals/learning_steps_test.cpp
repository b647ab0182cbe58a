// The learning steps of a normal density compute the bits of their formulas, with each set of loops that the machine has.

#include "steps_kit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

namespace {

using namespace steps;
using kt_normal::Triangle;

TEST_P(LearningSteps, OfACovarianceGiveTheBitsOfTheFormulas)
{
    for (const char* kind : allKinds) {
        Source source(kind, 1);
        for (int round = 0; round < 2000; ++round) {
            const std::size_t size = 1 + source.below(round % 10 == 0 ? 40 : 9);
            const Steps steps = source.steps();
            State expected = {source.take(size), source.take(size * size)};
            State state = expected;
            const Numbers rows = source.take(steps.numRows * size);
            for (std::size_t k = 0; k < steps.numRows; ++k) {
                expected.learn(rows.data() + k * size, steps.counts[k]);
            }
            Numbers differences(rowsAtOnce * size);
            GetParam()->joint(steps, state.mean.data(), state.covariance.data(), Triangle::whole, rows.data(), size,
                              differences.data());
            ASSERT_TRUE(areSame(state.mean, expected.mean)) << kind << ", round " << round;
            ASSERT_TRUE(areSame(state.covariance, expected.covariance)) << kind << ", round " << round;
        }
    }
}

TEST_P(LearningSteps, OfTheLowerTriangleGiveTheBitsOfTheFormulasOnceMirrored)
{
    for (const char* kind : allKinds) {
        Source source(kind, 2);
        for (std::size_t size = 1; size <= 40; ++size) {
            const Steps steps = source.steps();
            State expected = {source.take(size), source.take(size * size)};
            expected.mirror();
            State state = expected;
            const Numbers rows = source.take(steps.numRows * size);
            for (std::size_t k = 0; k < steps.numRows; ++k) {
                expected.learn(rows.data() + k * size, steps.counts[k]);
            }
            Numbers differences(rowsAtOnce * size);
            GetParam()->joint(steps, state.mean.data(), state.covariance.data(), Triangle::lower, rows.data(), size,
                              differences.data());
            state.mirror();
            ASSERT_TRUE(areSame(state.mean, expected.mean)) << kind << ", size " << size;
            ASSERT_TRUE(areSame(state.covariance, expected.covariance)) << kind << ", size " << size;
        }
    }
}

TEST_P(LearningSteps, OfSingleMeasurementsGiveTheBitsOfTheFormulas)
{
    for (const char* kind : allKinds) {
        Source source(kind, 3);
        for (int round = 0; round < 2000; ++round) {
            const std::size_t size = 1 + source.below(40);
            const std::size_t stride = size + source.below(3);
            const Steps steps = source.steps();
            Numbers means = source.take(size);
            Numbers variances = source.take(size);
            const Numbers rows = source.take(steps.numRows * stride);
            Numbers expectedMeans;
            Numbers expectedVariances;
            for (std::size_t i = 0; i < size; ++i) {
                State expected = {{means[i]}, {variances[i]}};
                for (std::size_t k = 0; k < steps.numRows; ++k) {
                    expected.learn(rows.data() + k * stride + i, steps.counts[k]);
                }
                expectedMeans.push_back(expected.mean[0]);
                expectedVariances.push_back(expected.covariance[0]);
            }
            Numbers differences(rowsAtOnce * size);
            GetParam()->single(steps, means.data(), variances.data(), rows.data(), stride, size, differences.data());
            ASSERT_TRUE(areSame(means, expectedMeans)) << kind << ", round " << round;
            ASSERT_TRUE(areSame(variances, expectedVariances)) << kind << ", round " << round;
        }
    }
}

TEST_P(LearningSteps, OfTinyElementsBesideConstantMeasurementsGiveTheBitsOfTheFormulas)
{
    Source source("ordinary", 6);
    for (int round = 0; round < 5000; ++round) {
        const std::size_t size = 1 + source.below(9);
        const Steps steps = source.steps();
        State expected = {source.take(size), source.take(size * size)};
        for (double& element : expected.covariance) {
            const double scales[] = {0.0, 1e-290, 1e-300, 1e-306, 1e-312, 1e-320, 1.0};
            element *= scales[source.below(std::size(scales))];
        }
        State state = expected;
        Numbers rows;
        for (std::size_t k = 0; k < steps.numRows; ++k) {
            rows.insert(rows.end(), state.mean.begin(), state.mean.end());
            expected.learn(state.mean.data(), steps.counts[k]);
        }
        Numbers differences(rowsAtOnce * size);
        GetParam()->joint(steps, state.mean.data(), state.covariance.data(), Triangle::whole, rows.data(), size,
                          differences.data());
        ASSERT_TRUE(areSame(state.covariance, expected.covariance)) << "round " << round;
    }
}

TEST_P(LearningSteps, StayWithTheFormulasWhereTermsCancelStepAfterStep)
{
    std::mt19937_64 random(4);
    std::uniform_int_distribution<int> exponent(-230, -170);
    for (int round = 0; round < 20000; ++round) {
        const double n = static_cast<double>(2 + random() % 20);
        Steps steps = {rowsAtOnce, {}};
        State expected = {{0.0, 0.0}, {0.0, 0.0, 0.0, 0.0}};
        Numbers rows;
        State state = {{0.0, 0.0}, Numbers(4, std::ldexp(static_cast<double>(random() % 16), 2 * exponent(random)))};
        expected = state;
        for (std::size_t k = 0; k < rowsAtOnce; ++k) {
            steps.counts[k] = n + static_cast<double>(k);
            // Chosen so that the product's part takes nearly all of what is left of the element above the diagonal.
            const double left = (expected.covariance[1] * (steps.counts[k] - 2.0)) / (steps.counts[k] - 1.0);
            const double d0 = std::ldexp(1.0, exponent(random));
            rows.push_back(expected.mean[0] + d0);
            rows.push_back(expected.mean[1] - left * steps.counts[k] / d0);
            expected.learn(rows.data() + 2 * k, steps.counts[k]);
        }
        Numbers differences(rowsAtOnce * 2);
        GetParam()->joint(steps, state.mean.data(), state.covariance.data(), Triangle::whole, rows.data(), 2,
                          differences.data());
        ASSERT_TRUE(areSame(state.mean, expected.mean)) << "round " << round;
        ASSERT_TRUE(areSame(state.covariance, expected.covariance)) << "round " << round;
    }
}

/// Dividends by n of which the quotients lie at or next to a point half way between two doubles, and others.
Numbers dividends(double n, std::mt19937_64& random, std::size_t size)
{
    Numbers numbers;
    while (numbers.size() < size) {
        const int exponent = static_cast<int>(random() % 1900) - 850;
        const double quotient = std::ldexp(1.0 + std::ldexp(static_cast<double>(random() >> 12), -52), exponent);
        const double halfAPlace = std::ldexp(1.0, exponent - 53);
        const double nearHalf = std::fma(n, quotient, n * halfAPlace);
        numbers.push_back(std::nextafter(nearHalf, 0.0));
        numbers.push_back(-nearHalf);
        numbers.push_back(std::nextafter(nearHalf, std::numeric_limits<double>::infinity()));
        numbers.push_back(n * quotient);
        numbers.push_back(quotient);
    }
    numbers.resize(size);
    return numbers;
}

TEST_P(LearningSteps, DivideByCountsAsDivisionDoes)
{
    constexpr std::size_t size = 1000;
    std::mt19937_64 random(5);
    for (int round = 0; round < 2000; ++round) {
        // 2^p - 1, 2^p, 2^p + 1 and others.
        const auto power = static_cast<double>(1ul << (2 + random() % 29));
        const double any = static_cast<double>(2 + random() % 2147483646ul);
        const double counts[] = {power - 1.0, power, power + 1.0, any, static_cast<double>(2 + random() % 5000)};
        const double n = std::min(counts[random() % std::size(counts)], largestCount);
        const Numbers values = dividends(n, random, size);
        Numbers means(size);
        Numbers variances(size);
        Numbers differences(rowsAtOnce * size);
        // The mean 0 becomes the n-th part of the value.
        GetParam()->single({1, {n, 2, 2, 2, 2, 2, 2, 2}}, means.data(), variances.data(), values.data(), size, size,
                           differences.data());
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(means[i], values[i] / n) << values[i] << " by " << n;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, LearningSteps,
                         testing::Values(&kt_normal::baselineLearning, kt_normal::avx2Learning), [](const auto& set) {
                             return set.param == &kt_normal::baselineLearning ? "Baseline" : "Avx2";
                         });

}  // namespace
