// The cell filter on rows whose cells hold one value each, so that what it knows of a row is the row's true sum.

#include "cell_filter_kit.h"

#include <gtest/gtest.h>

namespace {

using namespace cells;

TEST_P(CellFilter, LetsTheRowsWithinTheLimitPassAndHoldsThoseFarBeyondIt)
{
    check(kt_baselineKernels);
    if (kt_CompactCopy::instructionSet(1) == 1) {
        check(*kt_avx2Kernels);
    }
    EXPECT_GT(numWithin_, 300);
    EXPECT_GT(numBeyond_, 100);
}

INSTANTIATE_TEST_SUITE_P(Shapes, CellFilter,
                         testing::Values(Case{2, 1.0}, Case{3, 2.0}, Case{4, 0.5}, Case{5, 3.0}, Case{7, 1.5},
                                         Case{32, 1.0}, Case{33, 2.0}, Case{64, 0.7}, Case{2100, 1.0}));

}  // namespace
