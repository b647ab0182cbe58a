#pragma once

// Rows whose cells hold one value each, so that what the cell filter knows of a row is the row's true sum.

#include "clss/clastool/neighbor_scan/cell_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace cells {

inline constexpr std::size_t numRows = 256;
// The power of two that brings half the spread of the values below 1.
inline constexpr double scale = 1.0 / 8.0;
// More than the approximate powers err.
inline constexpr double powerError = 1e-3;

/// Each measurement takes each of 16 values equally often, in an order of its own.
inline double valueOf(std::size_t row, std::size_t measurement)
{
    const std::size_t turned = row % 16 * (2 * measurement + 1) + row / 16 * (measurement + 1);
    return static_cast<double>(turned % 16);
}

/// What the measurements of a row add to its sum, in the units of the copy.
inline std::vector<double> termsOf(std::size_t row, const std::vector<double>& query, double order)
{
    std::vector<double> terms;
    for (std::size_t j = 0; j < query.size(); ++j) {
        terms.push_back(std::pow(std::abs(valueOf(row, j) - query[j]) * scale, order));
    }
    return terms;
}

inline kt_FloatKernel powersOf(const kt_ScanKernels& kernels, double order)
{
    return order == 1.0   ? kernels.order1.rows
           : order == 2.0 ? kernels.order2.rows
           : order == 3.0 ? kernels.order3.rows
           : order == 0.5 ? kernels.orderHalf.rows
                          : kernels.anyOrder.rows;
}

struct Case {
    std::size_t size;
    double order;
};

inline std::ostream& operator<<(std::ostream& out, const Case& shape)
{
    return out << shape.size << " measurements, order " << shape.order;
}

class CellFilter : public testing::TestWithParam<Case> {
protected:
    void SetUp() override
    {
        kt_CompactCopy::cellsFrom(0);
        for (std::size_t row = 0; row < numRows; ++row) {
            std::vector<double> measurements(query_.size());
            for (std::size_t j = 0; j < query_.size(); ++j) {
                measurements[j] = valueOf(row, j);
            }
            store_.addData(new ktFeaturePattern(measurements, {}), 0);
        }
        copy_->make(store_);
        kt_CompactCopy::cellsFrom(usualCells_);
        for (std::size_t j = 0; j < query_.size(); ++j) {
            // Between values, on them and beyond them.
            query_[j] = std::vector<double>{7.25, 3.0, -1.5, 15.75}[j % 4];
        }
    }

    /// Asks about every row with limits that fall from one that many rows keep to one that few do.
    void check(const kt_ScanKernels& kernels)
    {
        const double order = GetParam().order;
        kt_CellFilter filter(*copy_, query_, order, powersOf(kernels, order), powerError, kernels.cells);
        renewedAt_ = std::numeric_limits<double>::infinity();
        std::vector<double> sums(numRows);
        for (std::size_t row = 0; row < numRows; ++row) {
            const std::vector<double> terms = termsOf(row, query_, order);
            sums[row] = std::accumulate(terms.begin(), terms.end(), 0.0);
        }
        std::sort(sums.begin(), sums.end());
        for (const std::size_t within : {200u, 100u, 30u, 5u}) {
            for (std::size_t block = 0; block < numRows / kt_blockRows; ++block) {
                checkBlock(filter.pass(block, sums[within]), block, sums[within], order);
            }
        }
    }

    /// No term is worth more than 127 units, no sum more than 65535, and each term is rounded down to whole ones. The units are
    /// renewed when the limit has fallen by a quarter.
    void checkBlock(std::uint64_t passed, std::size_t block, double limit, double order)
    {
        renewedAt_ = limit < 0.75 * renewedAt_ ? limit : renewedAt_;
        const auto size = static_cast<double>(query_.size());
        const double most = std::min(127.0, std::floor(65535.0 / size));
        const double perOne = std::floor(most * std::max(1.0, size / (4.0 * std::max(order, 1.0)))) / renewedAt_;
        for (std::size_t i = 0; i < kt_blockRows; ++i) {
            const std::vector<double> terms = termsOf(copy_->rowsOf(block)[i], query_, order);
            const double sum = std::accumulate(terms.begin(), terms.end(), 0.0);
            const double worth = std::accumulate(terms.begin(), terms.end(), 0.0, [&](double before, double term) {
                return before + std::min((1.0 - powerError) * term * perOne, most);
            });
            const bool hasPassed = (passed >> i & 1u) != 0;
            if (sum <= limit) {
                EXPECT_TRUE(hasPassed) << "row " << i << " of block " << block << " is within " << limit;
                ++numWithin_;
            } else if (worth - size > limit * perOne + 1.0) {
                EXPECT_FALSE(hasPassed) << "row " << i << " of block " << block << " is beyond " << limit;
                ++numBeyond_;
            }
        }
    }

    const std::size_t usualCells_ = kt_CompactCopy::cellsFrom();
    std::vector<double> query_ = std::vector<double>(GetParam().size, 0.0);
    ktClassifierDataProviderMemory store_;
    ktPtrHandle<kt_CompactCopy> copy_ = new kt_CompactCopy;
    double renewedAt_ = 0.0;
    int numWithin_ = 0;
    int numBeyond_ = 0;
};

}  // namespace cells
