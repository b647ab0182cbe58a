#pragma once

#include <cstddef>

// The loop of a normal density that takes most of the time when it is evaluated; normal_density.h has the formula. There is one
// for every processor and one for processors with wider vectors, chosen once a process. Both compute the same bits.

namespace kt_normal {

/// How many rows of a whitening matrix lie in one block, side by side.
constexpr std::size_t rowsPerBlock = 8;

/// So many rows, the first half of a block, are sums of the columns before the second half.
constexpr std::size_t halfBlock = rowsPerBlock / 2;

/// A column of such a block. It fills a line of most caches, so that reading it never takes two.
struct alignas(64) Column {
    double rows[rowsPerBlock];
};

/// The number of rows of all blocks that hold `size` rows.
constexpr std::size_t inBlocks(std::size_t size)
{
    return (size + rowsPerBlock - 1) / rowsPerBlock * rowsPerBlock;
}

/// The squared length of W (values - mean), with W a whitening matrix for `size` measurements as `whitening` in correlations.h lays
/// it out. `whitened` takes the product and has room for the rows of all blocks; null if nobody asks.
/// Each row is summed on its own, by ascending columns, then the squares, by ascending rows, without fused operations. W is a lower
/// triangle: the columns from the fifth row of a block on are zeros in the rows before it, which are left out of the sums.
using Whiten = double (*)(const Column* whitening, const double* mean, const double* values, std::size_t size,
                          double* whitened);

/// For every processor.
extern const Whiten baselineWhiten;
/// For processors with AVX2; null where the compiler does not target such processors.
extern const Whiten avx2Whiten;

}  // namespace kt_normal
