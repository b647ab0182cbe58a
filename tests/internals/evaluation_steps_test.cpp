// The products with whitening matrices have the bits of their formula, with each set of loops that the machine has.

#include "foundation/src/evaluation_steps.h"

#include <kt/compiler.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using kt_normal::rowsPerBlock;
using kt_normal::Whiten;
using Numbers = std::vector<double>;

std::vector<Whiten> kernels()
{
    std::vector<Whiten> all = {kt_normal::baselineWhiten};
    if (kt_normal::avx2Whiten != nullptr && KT_PROCESSOR_HAS_AVX2_AND_FMA) {
        all.push_back(kt_normal::avx2Whiten);
    }
    return all;
}

using Columns = std::vector<kt_normal::Column>;

/// A number for each place of the blocks of a matrix, also above the diagonal, where a whitening matrix has zeros that nobody needs.
Columns drawBlocks(std::size_t size, std::mt19937& random)
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
Numbers productOf(const Columns& blocks, const Numbers& numbers)
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

/// Equal to the bit, but for NaN, whose bits nobody promises.
bool isSame(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

TEST(EvaluationSteps, WhitenByAscendingColumnsThenRowsWithoutFusing)
{
    std::mt19937 random(31);
    std::normal_distribution<double> normal;
    const double odd[] = {0.0,
                          -0.0,
                          5e-324,
                          1e300,
                          -1e300,
                          std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::quiet_NaN()};
    for (std::size_t size = 1; size <= 40; ++size) {
        const Columns blocks = drawBlocks(size, random);
        for (int round = 0; round < 20; ++round) {
            SCOPED_TRACE(::testing::Message() << size << " measurements, round " << round);
            Numbers numbers(size);
            for (double& number : numbers) {
                number = round < 10 || random() % 3 != 0 ? normal(random) : odd[random() % std::size(odd)];
            }
            Numbers mean(size);
            Numbers expectedDifferences;
            for (std::size_t i = 0; i < size; ++i) {
                mean[i] = normal(random);
                expectedDifferences.push_back(numbers[i] - mean[i]);
            }
            const Numbers expected = productOf(blocks, expectedDifferences);
            double expectedLength = 0.0;
            for (const double row : expected) {
                expectedLength += row * row;
            }
            ASSERT_EQ(expected.size(), kt_normal::inBlocks(size));
            for (const Whiten whiten : kernels()) {
                Numbers whitened(kt_normal::inBlocks(size) + 1, 77.0);
                const double length = whiten(blocks.data(), mean.data(), numbers.data(), size, whitened.data());
                const double lengthAlone = whiten(blocks.data(), mean.data(), numbers.data(), size, nullptr);
                EXPECT_TRUE(isSame(length, expectedLength)) << length << " instead of " << expectedLength;
                EXPECT_TRUE(isSame(lengthAlone, expectedLength)) << lengthAlone << " instead of " << expectedLength;
                EXPECT_TRUE(std::equal(expected.begin(), expected.end(), whitened.begin(), isSame));
                EXPECT_EQ(whitened.back(), 77.0);
            }
        }
    }
}

}  // namespace
