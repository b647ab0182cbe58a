// The products with whitening matrices have the bits of their formula, with each set of loops that the machine has.

#include "steps_kit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

namespace {

using namespace steps;

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
            for (const Whiten whiten : whitenKernels()) {
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
