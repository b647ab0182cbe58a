#pragma once

#include "kernels.h"

#include <cstddef>
#include <cstdint>

// The loops of a batch: sums of squared differences between 64 rows and 6 queries at once, in 16-bit whole numbers with
// exact 32-bit sums. Rows and queries are rounded to steps of 1 / scale, and how far that moves them is known. There is one
// set of loops for processors with AVX2, one for those with the multiply-and-add of AVX-512 VNNI, chosen at run time like the
// others; without either, queries are answered one by one.

/// How many queries a kernel compares with a block of rows at once.
constexpr std::size_t kt_batchQueries = 6;

/// Numbers go in pairs of measurements. A block of rows holds for each pair its two numbers in row 0, in row 1 and so on;
/// a set of queries its two numbers, each times -2, in query 0 to 5. An odd last measurement has a 0 beside it.
struct kt_BatchKernels {
    /// Rounds `scale` times each value of a block of floats (as kt_FloatKernel has them) to a whole number, after bringing it
    /// within `most` of zero, a whole number too. `squares` gets each row's sum of squared numbers, `isCut` whether a value lay
    /// beyond `most`. Returns the largest sum of squares of what a row lost in rounding, with a relative error of at most
    /// (size + 2) 2^-24.
    float (*round)(const float* block, std::size_t size, float scale, float most, std::int16_t* rows,
                   std::int32_t* squares, bool* isCut);

    /// Sums of squared differences, less the query's own sum of squares. Bit i of `within[q]` says whether the sum of row i
    /// and query q is not greater than `limits[q]`; where there is a bit, `sums[q * kt_blockRows + i]` is filled. No sum may
    /// leave the range of 32 bits.
    void (*sums)(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* queries,
                 std::size_t numPairs, const std::int32_t* limits, std::uint64_t* within, std::int32_t* sums);

    /// Lowers each of `least`, one for each query and place in a block, to the sum that `sums` would give there.
    void (*lower)(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* queries,
                  std::size_t numPairs, std::int32_t* least);
};

/// Null where the compiler does not target such processors.
extern const kt_BatchKernels* const kt_avx2BatchKernels;
extern const kt_BatchKernels* const kt_vnniBatchKernels;
