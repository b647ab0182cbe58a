#pragma once

#include "kernels.h"

#include <cstddef>
#include <cstdint>

// The loops of a batch: sums of squared differences between 64 rows and 6 queries at once, in 16-bit whole numbers with
// exact 32-bit sums. Rows and queries are rounded to steps of 1 / scale, with known errors. One set of loops is for processors with
// AVX2, one for those with the multiply-and-add of AVX-512 VNNI; the process chooses at run time. Without either, queries run one
// by one.

/// The number of queries that a kernel compares with a block of rows at once.
constexpr std::size_t kt_batchQueries = 6;

/// Queries are padded to a multiple of so many measurements.
constexpr std::size_t kt_batchPadding = 16;

/// What rounding made of a query. The sums have relative errors of at most (size + 4) 2^-23.
struct kt_RoundedQuery {
    /// The sum of its squared numbers.
    std::int32_t square;
    /// The sums of squared rounding errors, and of squared distances from the range of the numbers.
    float lost;
    float outside;
};

/// Numbers are stored in pairs of measurements. A block of rows holds, for each pair, its two numbers in row 0, in row 1 and so on. A
/// query holds its numbers in order, each times -2. An odd last measurement is paired with 0.
struct kt_BatchKernels {
    /// Subtracts the centre from each value of a block of floats (laid out as for kt_FloatKernel), multiplies by `scale`, cuts the product
    /// off at +-`most`, a whole number, and rounds it to a whole number. `squares` becomes each row's sum of squared numbers. Returns
    /// the largest sum of squared rounding errors of a row, with a relative error of at most (size + 2) 2^-24.
    float (*round)(const float* block, const float* centre, std::size_t size, float scale, float most,
                   std::int16_t* rows, std::int32_t* squares);

    /// The same for a query. `query`, `centre` and `numbers` have room for a multiple of kt_batchPadding; the first two are padded with 0.
    kt_RoundedQuery (*roundQuery)(const float* query, const float* centre, std::size_t size, float scale, float most,
                                  std::int16_t* numbers);

    /// Sums of squared differences, less the query's own sum of squares. Bit i of `within[q]` says whether the sum of row i
    /// and query q is at most `limits[q]`; where it is set, `sums[q * kt_blockRows + i]` is filled. Requires: every sum fits 32 bits.
    void (*sums)(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* const* queries,
                 std::size_t numPairs, const std::int32_t* limits, std::uint64_t* within, std::int32_t* sums);

    /// The squared distances of each query from so many boxes (laid out as for kt_BoxKernel): `sums[q * kt_blockRows + i]`.
    void (*boxes)(const float* boxes, std::size_t count, const float* const* queries, std::size_t size, float* sums);
};

/// Null where the compiler does not target such processors.
extern const kt_BatchKernels* const kt_avx2BatchKernels;
extern const kt_BatchKernels* const kt_vnniBatchKernels;
