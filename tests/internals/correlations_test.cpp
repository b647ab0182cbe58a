#include "foundation/src/correlations.h"

#include <kt/attention.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using kt_normal::factorise;
using kt_normal::isRegular;
using kt_normal::keptShare;
using kt_normal::makeRegular;
using kt_normal::Square;

/// Ones on the diagonal and `beside` everywhere else: eigenvalues 1 - beside, and 1 + (size - 1) beside.
Square alike(std::size_t size, double beside);

TEST(Correlations, AreRegularAboveTheLeastEigenvalue)
{
    EXPECT_TRUE(isRegular(alike(3, 0.0), 3));
    EXPECT_TRUE(isRegular(alike(2, 1.0 - 1.1e-8), 2));
    EXPECT_FALSE(isRegular(alike(2, 1.0 - 0.9e-8), 2));
    EXPECT_FALSE(isRegular(alike(2, 1.0), 2));
    EXPECT_FALSE(isRegular(alike(4, -0.5), 4)) << "a negative eigenvalue";
}

TEST(Correlations, AreShrunkUntilTheyAreRegular)
{
    struct Row {
        const char* label;
        std::size_t size;
        double beside;
        bool isDegenerate;
        double left;
    };
    const double once = keptShare;
    const double twice = once * once * once;
    const Row rows[] = {{"regular", 3, 0.5, false, 0.5},
                        {"of a degenerate group", 3, 0.5, true, 0.5 * once},
                        {"singular", 3, 1.0, false, once},
                        {"a little negative", 3, -0.505, false, -0.505 * once},
                        {"more", 3, -0.51, false, -0.51 * twice}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Square matrix = alike(row.size, row.beside);
        makeRegular(matrix, row.size, row.isDegenerate);
        for (std::size_t i = 0; i < row.size * row.size; ++i) {
            EXPECT_NEAR(matrix[i], i % (row.size + 1) == 0 ? 1.0 : row.left, 1e-15);
        }
    }
}

TEST(Correlations, OfAnyNumbersBecomeRegular)
{
    // Far from what data can give: all correlations -1.
    constexpr std::size_t size = 40;
    Square matrix = alike(size, -1.0);
    makeRegular(matrix, size, false);
    EXPECT_TRUE(isRegular(matrix, size));
    EXPECT_EQ(matrix[0], 1.0);
    EXPECT_LT(matrix[1], 0.0);
}

TEST(Correlations, InverseOfTheFactorIsOne)
{
    constexpr std::size_t size = 11;
    Square factor = alike(size, 0.25);
    ASSERT_TRUE(factorise(factor.data(), size));
    const Square inverse = kt_normal::inverseOfTranspose(factor, size);
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < size; ++j) {
            double product = 0.0;
            for (std::size_t k = 0; k <= i; ++k) {
                product += factor[k * size + i] * (j <= k ? inverse[k * size + j] : 0.0);
            }
            EXPECT_NEAR(product, i == j ? 1.0 : 0.0, 1e-15);
        }
    }
}

TEST(Correlations, LargeMatricesPoll)
{
    long polls = 0;
    kfSetAttentionHandler([](void* context) { return ++*static_cast<long*>(context) < 5 ? 0L : -1L; }, &polls);
    Square small = alike(200, 0.5);
    EXPECT_TRUE(factorise(small.data(), 200));
    EXPECT_EQ(polls, 0);
    Square large = alike(600, 0.5);
    EXPECT_TRUE(factorise(large.data(), 600));
    EXPECT_EQ(polls, 2) << "36 million multiplications";
    kt_normal::inverseOfTranspose(large, 600);
    EXPECT_EQ(polls, 4);
    EXPECT_ANY_THROW(isRegular(alike(600, 0.5), 600));
    EXPECT_EQ(polls, 5);
    kfSetAttentionHandler(nullptr, nullptr);
}

Square alike(std::size_t size, double beside)
{
    Square matrix(size * size, beside);
    for (std::size_t i = 0; i < size; ++i) {
        matrix[i * size + i] = 1.0;
    }
    return matrix;
}

}  // namespace
