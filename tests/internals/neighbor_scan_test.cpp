// Rows that floats or the approximate power bring into the wrong order are told apart, with each set of kernels that the machine
// has. That answers are those of the plain scan is shown by neighbor_cases_test.cpp.

#include "clss/clastool/neighbor_scan/compact_copy.h"
#include "clss/clastool/neighbor_scan/kernels.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <vector>

namespace {

using Row = std::vector<double>;

/// Each test runs with every set of kernels that the machine has.
class NeighborScan : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        if (kt_CompactCopy::instructionSet(GetParam()) != GetParam()) {
            std::cout << "[   NOTE   ] this machine has no such instruction set; the baseline runs instead\n";
        }
    }
    void TearDown() override { kt_CompactCopy::instructionSet(1); }
};

/// The nearest of some rows by their copy, and whether the copy answered.
std::size_t nearestByCopy(const std::vector<Row>& rows, const Row& query, double order)
{
    ktClassifierDataProviderMemory store;
    for (const Row& row : rows) {
        store.addData(new ktFeaturePattern(row, {}), 0);
    }
    const ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
    copy->make(store);
    kt_RowList found(1);
    EXPECT_TRUE(copy->nearest(store, query, order, found));
    return found[0];
}

constexpr std::size_t width = 16;
// Where a float's last place is 2^-24.
constexpr double place = 0.75;

/// A row that is so many last places away from `place`, the last measurement by another number.
Row awayFromPlace(double distance, double last)
{
    Row row(width, place + distance * 0x1p-24);
    row.back() = place + last * 0x1p-24;
    return row;
}

/// Rows that bring the copy's scale to a power of two, so that its floats are those of the values.
const Row lowest(width, -1.0);
const Row highest(width, 1.0);

TEST_P(NeighborScan, RowsThatRoundingBringsIntoTheWrongOrderAreToldApart)
{
    // As floats 11 in each measurement against 10, and 12 in the last one.
    const Row nearer = awayFromPlace(10.5625, 10.5625);
    const Row farther = awayFromPlace(10.4375, 12.45);
    for (const double order : {1.0, 1.5, 2.0, 3.0}) {
        EXPECT_EQ(nearestByCopy({lowest, highest, farther, nearer}, Row(width, place), order), 3u) << "order " << order;
    }
    // As floats 1 against 0, where orders below 1 lose most by rounding.
    EXPECT_EQ(nearestByCopy({lowest, highest, awayFromPlace(0.4375, 4.46), awayFromPlace(0.5625, 0.5625)},
                            Row(width, place), 0.5),
              3u);
}

TEST_P(NeighborScan, RowsThatRoundingOfTheQueryBringsIntoTheWrongOrderAreToldApart)
{
    // The query is rounded to `place`, away from the row that is nearer.
    const Row query(width, place + 0.4375 * 0x1p-24);
    const Row nearer = awayFromPlace(10.0, 10.0);
    const Row farther = awayFromPlace(-9.0, -12.0);
    EXPECT_EQ(nearestByCopy({lowest, highest, farther, nearer}, query, 1.0), 3u);
}

// The approximate power takes the one for nearer than it is and the other for farther, by more than they differ.
TEST_P(NeighborScan, RowsThatTheApproximatePowerBringsIntoTheWrongOrderAreToldApart)
{
    const Row nearer = {0x1.927ca6p-4, 0x1.31f2ap-3};
    const Row farther = {0x1.004c3p-3, 0x1.004c3p-3};
    EXPECT_EQ(nearestByCopy({Row(2, -0.75), Row(2, 0.75), farther, nearer}, Row(2, 0.0), 1.5), 3u);
}

// Scaled so that the first row fits, the others are subnormal, and the roots of their differences round coarsely.
TEST_P(NeighborScan, RowsWhoseScaledSizeIsSubnormalAreToldApart)
{
    const double u = 0x1p-234;
    const Row nearer = {1.51 * u, 1.51 * u, 0.0, 0.0, 0.0};
    const Row farther = {1.49 * u, 1.49 * u, 0.49 * u, 0.49 * u, 0.49 * u};
    EXPECT_EQ(nearestByCopy({{0x1p+840, 0.0, 0.0, 0.0, 0.0}, nearer, farther}, Row(5, 0.0), 0.5), 1u);
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, NeighborScan, testing::Values(0, 1),
                         [](const auto& set) { return set.param == 0 ? "Baseline" : "Avx2"; });

/// The relative error of the approximate power over every mantissa, for one exponent of v.
double largestPowerError(const kt_ScanKernels& kernels, float order, int exponent)
{
    double largest = 0.0;
    float block[kt_blockRows];
    float sums[kt_blockRows];
    const float query = 0.0f;
    for (std::uint32_t mantissa = 0; mantissa < (1u << 23); mantissa += kt_blockRows) {
        for (std::uint32_t i = 0; i < kt_blockRows; ++i) {
            block[i] = std::ldexp(1.0f + std::ldexp(static_cast<float>(mantissa + i), -23), exponent);
        }
        kernels.anyOrder(block, &query, 1, order, std::numeric_limits<float>::infinity(), sums);
        // Neighbouring mantissas differ by less than the error looked for: one of a block stands for all.
        for (std::uint32_t i = 0; i < kt_blockRows; i += 16) {
            const double exact = std::pow(static_cast<double>(block[i]), static_cast<double>(order));
            largest = std::max(largest, std::abs(static_cast<double>(sums[i]) - exact) / exact);
        }
    }
    return largest;
}

TEST(NeighborScanInstructionSet, IsTheOneLastAskedForUntilTheNext)
{
    const int best = kt_CompactCopy::instructionSet(1);
    EXPECT_EQ(kt_CompactCopy::instructionSet(0), 0);
    EXPECT_EQ(kt_CompactCopy::instructionSet(), 0);
    EXPECT_EQ(kt_CompactCopy::instructionSet(1), best);
    EXPECT_EQ(kt_CompactCopy::instructionSet(), best);
}

TEST(LineAllocator, RefusesWhatNoMemoryHolds)
{
    kt_LineAllocator<float> allocator;
    EXPECT_THROW(allocator.allocate(std::numeric_limits<std::size_t>::max() / sizeof(float) + 1), std::bad_alloc);
}

TEST(ScanKernels, TheApproximatePowerKeepsItsStatedError)
{
    std::vector<const kt_ScanKernels*> sets{&kt_baselineKernels};
    if (kt_CompactCopy::instructionSet(1) == 1) {
        sets.push_back(kt_avx2Kernels);
    }
    for (const kt_ScanKernels* kernels : sets) {
        for (const float order : {0.3f, 1.5f, 7.5f}) {
            for (const int exponent : {-15, 0, 12}) {
                const double bound = kt_powerError * static_cast<double>(order) + kt_powerErrorFixed;
                EXPECT_LT(largestPowerError(*kernels, order, exponent), bound)
                    << "order " << order << ", exponent " << exponent;
            }
        }
    }
}

}  // namespace
