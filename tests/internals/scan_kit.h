#pragma once

// What the tests of the searches by copies share: stores, plain searches, plain rounding, and tests that run with each set of kernels.

#include "clss/clastool/neighbor_scan/batch_kernels.h"
#include "clss/clastool/neighbor_scan/batch_scan.h"
#include "clss/clastool/neighbor_scan/compact_copy.h"
#include "tests/support/neighbor_reference.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace scans {

using Row = std::vector<double>;
using Store = ktClassifierDataProviderMemory;

inline constexpr double infinity = std::numeric_limits<double>::infinity();

/// Patterns of one measurement: 0, 1, 2, ...
inline Store line(int size)
{
    Store store;
    for (int i = 0; i < size; ++i) {
        store.addData(new ktFeaturePattern({static_cast<double>(i)}, {}), i);
    }
    return store;
}

/// The nearest row; nothing where that is left to the plain scan.
inline std::optional<std::size_t> nearest(const kt_CompactCopy& copy, const Store& store, const Row& query,
                                          double order = 2.0)
{
    kt_RowList rows(1);
    return copy.nearest(store, query, order, rows) ? std::optional<std::size_t>(rows[0]) : std::nullopt;
}

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
inline std::size_t nearestByCopy(const std::vector<Row>& rows, const Row& query, double order)
{
    Store store;
    for (const Row& row : rows) {
        store.addData(new ktFeaturePattern(row, {}), 0);
    }
    const ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
    copy->make(store);
    kt_RowList found(1);
    EXPECT_TRUE(copy->nearest(store, query, order, found));
    return found[0];
}

/// The first of the nearest rows.
inline std::size_t nearestByPlainScan(const std::vector<Row>& rows, const Row& query, double order)
{
    const auto distance = [&](const Row& row) { return kt_test::plainDistance(query, row, order); };
    return static_cast<std::size_t>(
        std::min_element(rows.begin(), rows.end(),
                         [&](const Row& a, const Row& b) { return distance(a) < distance(b); }) -
        rows.begin());
}

inline constexpr std::size_t width = 16;
// Where a float's last place is 2^-24.
inline constexpr double place = 0.75;

/// A row that is so many last places away from `place`, the last measurement by another number.
inline Row awayFromPlace(double distance, double last)
{
    Row row(width, place + distance * 0x1p-24);
    row.back() = place + last * 0x1p-24;
    return row;
}

/// Rows that bring the copy's scale to a power of two, so that its floats are those of the values.
inline const Row lowest(width, -1.0);
inline const Row highest(width, 1.0);

/// The sets of kernels that this machine can run.
inline std::vector<std::pair<int, const kt_BatchKernels*>> batchKernels()
{
    std::vector<std::pair<int, const kt_BatchKernels*>> found;
    for (const int set : {1, 2}) {
        if (kt_CompactCopy::instructionSet(set) == set) {
            found.emplace_back(set, set == 1 ? kt_avx2BatchKernels : kt_vnniBatchKernels);
        }
    }
    kt_CompactCopy::instructionSet(2);
    return found;
}

/// A value in whole numbers of steps from a centre, and what rounding and the end of their range took off.
struct Rounded {
    double whole = 0.0;
    double lost = 0.0;
    double outside = 0.0;
};

inline Rounded rounded(float value, float centre, float scale, float most)
{
    const auto steps = static_cast<double>((value - centre) * scale);
    const double inside = std::clamp(steps, -static_cast<double>(most), static_cast<double>(most));
    return {std::nearbyint(inside), inside - std::nearbyint(inside), steps - inside};
}

struct RoundedBlock {
    std::vector<std::int16_t> rows;
    std::vector<std::int32_t> squares;
    double lost = 0.0;
};

inline RoundedBlock rounded(const std::vector<float>& block, const std::vector<float>& centre, std::size_t size,
                            float scale, float most)
{
    const std::size_t numPairs = (size + 1) / 2;
    RoundedBlock result{std::vector<std::int16_t>(numPairs * 2 * kt_blockRows),
                        std::vector<std::int32_t>(kt_blockRows)};
    for (std::size_t row = 0; row < kt_blockRows; ++row) {
        double lost = 0.0;
        for (std::size_t j = 0; j < size; ++j) {
            const Rounded value = rounded(block[j * kt_blockRows + row], centre[j], scale, most);
            lost += value.lost * value.lost;
            result.rows[j / 2 * 2 * kt_blockRows + 2 * row + j % 2] = static_cast<std::int16_t>(value.whole);
            result.squares[row] += static_cast<std::int32_t>(value.whole * value.whole);
        }
        result.lost = std::max(result.lost, lost);
    }
    return result;
}

inline std::vector<float> draw(ktRandomGaussian& normal, std::size_t size, std::size_t paddedSize, double deviation)
{
    std::vector<float> values(paddedSize);
    std::generate_n(values.begin(), size, [&] { return static_cast<float>(normal.next(0.0, deviation)); });
    return values;
}

inline std::size_t padded(std::size_t size)
{
    return (size + kt_batchPadding - 1) / kt_batchPadding * kt_batchPadding;
}

class BatchKernels : public testing::TestWithParam<std::size_t> {
protected:
    void TearDown() override { kt_CompactCopy::instructionSet(2); }

    const std::size_t size_ = GetParam();
    const std::size_t numPairs_ = (size_ + 1) / 2;
    ktRandomGaussian normal_{static_cast<unsigned long>(size_)};
};

}  // namespace scans
