#pragma once

#include <cstddef>

// The loop that takes most of the time in an evaluation of a normal density. normal_density.h has the formula. One version runs on
// every processor, the other needs AVX2. The process chooses once. Both compute the same bits.

namespace kt_normal {

/// The number of rows of a whitening matrix in one block.
constexpr std::size_t rowsPerBlock = 8;

/// The number of rows in the first half of a block. Their elements are zero in the columns of the second half.
constexpr std::size_t halfBlock = rowsPerBlock / 2;

/// A column of a block. Its alignment keeps it within one cache line on most processors.
struct alignas(64) Column {
    double rows[rowsPerBlock];
};

/// `size` rounded up to whole blocks.
constexpr std::size_t inBlocks(std::size_t size)
{
    return (size + rowsPerBlock - 1) / rowsPerBlock * rowsPerBlock;
}

/// Returns the squared length of W (values - mean). W is a whitening matrix for `size` measurements, in the layout of `whitening` in
/// correlations.h. `whitened` receives the product and has room for inBlocks(size) numbers; null if the caller does not need it.
/// Each row is summed separately, by ascending columns; then the squares are added, by ascending rows. There are no fused operations.
/// W is a lower triangle: the first half of a block is zero in the columns of its second half. The sums leave these zeros out.
using Whiten = double (*)(const Column* whitening, const double* mean, const double* values, std::size_t size,
                          double* whitened);

/// For every processor.
extern const Whiten baselineWhiten;
/// For processors with AVX2; null where the compiler does not target such processors.
extern const Whiten avx2Whiten;

}  // namespace kt_normal
