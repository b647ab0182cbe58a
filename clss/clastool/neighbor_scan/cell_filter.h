#pragma once

#include "compact_copy.h"
#include "kernels.h"

#include <kt/scratch.h>

#include <cstddef>
#include <cstdint>
#include <limits>

/// Excludes rows whose sum of powers is certainly beyond a limit. Each measurement of a row lies in a cell. The power of the query's
/// distance to the nearest value in the cell is a lower bound of the term.
class kt_CellFilter {
public:
    /// `powers` computes terms of the given order with a relative error of at most `error`.
    kt_CellFilter(const kt_CompactCopy& copy, const std::vector<double>& query, double order, kt_FloatKernel powers,
                  double error, kt_CellKernel sums);

    /// Bit i is set unless row i of the block is certainly beyond `limit`, a finite bound on a row's true sum in scaled units.
    std::uint64_t pass(std::size_t block, double limit);

private:
    void bound(const std::vector<double>& query, float order, kt_FloatKernel powers, float belowOne);
    void quantizeBounds(double limit);

    const kt_CompactCopy& copy_;
    const kt_CellKernel sums_;
    const std::size_t size_;
    // In whole units: the largest bound that a cell may have, and the limit.
    double largestUnits_;
    double limitUnits_;
    // The lower bound of each cell of each measurement, and the same in whole units of 1 / unitsPerOne_.
    kt_Scratch<float, 256 * kt_numCells> bounds_;
    kt_Scratch<std::uint8_t, 256 * kt_numCells> quantizedBounds_;
    double unitsPerOne_ = 0.0;
    double renewBelow_ = std::numeric_limits<double>::infinity();
};
