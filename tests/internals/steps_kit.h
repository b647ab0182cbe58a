#pragma once

// The steps of a normal density by their formulas, and numbers to compare them with the library's to the bit.

#include "foundation/src/evaluation_steps.h"
#include "foundation/src/learning_steps.h"

#include <kt/compiler.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace steps {

using kt_normal::LearningKernels;
using kt_normal::rowsAtOnce;
using kt_normal::rowsPerBlock;
using kt_normal::Steps;
using kt_normal::Whiten;
using Columns = std::vector<kt_normal::Column>;
using Numbers = std::vector<double>;

inline constexpr double largestCount = 2147483647.0;

/// Equal to the bit, except NaN, whose bits are not specified.
inline bool isSame(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

inline bool areSame(const Numbers& a, const Numbers& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), isSame);
}

inline std::vector<Whiten> whitenKernels()
{
    std::vector<Whiten> all = {kt_normal::baselineWhiten};
    if (kt_normal::avx2Whiten != nullptr && KT_PROCESSOR_HAS_AVX2_AND_FMA) {
        all.push_back(kt_normal::avx2Whiten);
    }
    return all;
}

/// A number for each place of the blocks of a matrix, also above the diagonal, where a whitening matrix has zeros that nobody needs.
inline Columns drawBlocks(std::size_t size, std::mt19937& random)
{
    std::normal_distribution<double> normal;
    Columns blocks;
    for (std::size_t first = 0; first < size; first += rowsPerBlock) {
        for (std::size_t j = 0; j < std::min(first + rowsPerBlock, size); ++j) {
            for (double& row : blocks.emplace_back().rows) {
                row = normal(random);
            }
        }
    }
    return blocks;
}

/// The product with a matrix of which block lies behind block, and column behind column of `rowsPerBlock` rows in each.
inline Numbers productOf(const Columns& blocks, const Numbers& numbers)
{
    Numbers rows;
    std::size_t begin = 0;
    for (std::size_t first = 0; first < numbers.size(); first += rowsPerBlock) {
        const std::size_t columns = std::min(first + rowsPerBlock, numbers.size());
        for (std::size_t i = 0; i < rowsPerBlock; ++i) {
            const std::size_t reach = i < rowsPerBlock / 2 ? std::min(first + rowsPerBlock / 2, columns) : columns;
            double sum = 0.0;
            for (std::size_t j = 0; j < reach; ++j) {
                sum += blocks[begin + j].rows[i] * numbers[j];
            }
            rows.push_back(sum);
        }
        begin += columns;
    }
    return rows;
}

/// Mean and covariance, and how they learn by the formulas.
struct State {
    Numbers mean;
    Numbers covariance;

    void learn(const double* row, double n)
    {
        const std::size_t size = mean.size();
        Numbers d(size);
        for (std::size_t i = 0; i < size; ++i) {
            d[i] = row[i] - mean[i];
        }
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j < size; ++j) {
                double& element = covariance[i * size + j];
                element = (element * (n - 2.0)) / (n - 1.0) + d[i] * d[j] / n;
            }
            mean[i] = mean[i] + d[i] / n;
        }
    }

    void mirror()
    {
        const std::size_t size = mean.size();
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = i + 1; j < size; ++j) {
                covariance[i * size + j] = covariance[j * size + i];
            }
        }
    }
};

/// Numbers of one kind, and what they are to be near.
class Source {
public:
    Source(std::string kind, unsigned seed) : kind_(std::move(kind)), random_(seed) {}

    std::size_t below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_); }

    double next()
    {
        static const std::string kinds[] = {"ordinary", "zeros", "constant", "huge", "tiny", "subnormal", "any bits"};
        const std::string& kind = kind_ == "mixed" ? kinds[below(std::size(kinds))] : kind_;
        const double x = normal_(random_);
        if (kind == "any bits") {
            const std::uint64_t bits = random_();
            double value = 0.0;
            std::memcpy(&value, &bits, sizeof value);
            return value;
        }
        return kind == "zeros"       ? (below(3) == 0 ? x : std::copysign(0.0, x))
               : kind == "constant"  ? 7.25
               : kind == "huge"      ? x * 1e300
               : kind == "tiny"      ? x * 1e-300
               : kind == "subnormal" ? x * 1e-315
                                     : 5.0 + x;
    }

    Numbers take(std::size_t size)
    {
        Numbers numbers(size);
        std::generate(numbers.begin(), numbers.end(), [this] { return next(); });
        return numbers;
    }

    Steps steps()
    {
        Steps steps = {below(rowsAtOnce) + 1, {}};
        std::fill(steps.counts, steps.counts + rowsAtOnce, 2.0);
        double n = below(3) == 0 ? largestCount - static_cast<double>(below(12)) : static_cast<double>(2 + below(1000));
        for (std::size_t k = 0; k < steps.numRows; ++k) {
            steps.counts[k] = n;
            n = std::min(n + 1.0, largestCount);
        }
        return steps;
    }

private:
    std::string kind_;
    std::mt19937_64 random_;
    std::normal_distribution<double> normal_;
};

inline const char* const allKinds[] = {"ordinary", "zeros",     "constant", "huge",
                                       "tiny",     "subnormal", "any bits", "mixed"};

/// For each set of loops.
class LearningSteps : public testing::TestWithParam<const LearningKernels*> {
protected:
    void SetUp() override
    {
        if (GetParam() != &kt_normal::baselineLearning && (GetParam() == nullptr || !KT_PROCESSOR_HAS_AVX2_AND_FMA)) {
            GTEST_SKIP() << "not for this processor";
        }
    }
};

}  // namespace steps
