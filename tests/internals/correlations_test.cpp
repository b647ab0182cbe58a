#include "foundation/src/correlations.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using kt_normal::factoriseFloored;

/// A matrix of ones on its diagonal and of `beside` everywhere else, and by how much its diagonal must be raised.
struct Short {
    const char* label;
    double beside;
    double raise;
};

TEST(Correlations, DiagonalIsRaisedUntilTheMatrixIsPositiveDefinite)
{
    const Short rows[] = {{"positive definite", 0.5, 0.0},
                          {"singular", 1.0, 0x1p-40},
                          {"short by as much as the first step", 1.0 + 0x1p-40, 0x1p-38},
                          {"short by more than the second step", 1.0 + 0x1p-37, 0x1p-36}};
    for (const Short& row : rows) {
        SCOPED_TRACE(row.label);
        double factor[4] = {};
        factoriseFloored(factor, 2, [&](std::size_t i, std::size_t j) { return i == j ? 1.0 : row.beside; });
        EXPECT_EQ(factor[0], std::sqrt(1.0 + row.raise));
        EXPECT_EQ(factor[1], row.beside / factor[0]);
        EXPECT_GT(factor[3], 0.0);
    }
}

}  // namespace
