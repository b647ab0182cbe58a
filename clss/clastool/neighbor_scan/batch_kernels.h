#pragma once

#include "kernels.h"

#include <cstddef>
#include <cstdint>

// The inner loops of a batch. They sum the squared differences between 64 rows and 6 queries at once, in 16-bit integers with exact
// 32-bit sums. Rows and queries are rounded to steps of 1 / scale, with known errors. One set of loops needs AVX2, the other the
// multiply-and-add of AVX-512 VNNI. The process chooses at run time. Without either, queries run one by one.

/// How many queries a kernel compares with a block of rows in one call.
constexpr std::size_t kt_batchQueries = 6;

/// Queries are padded with zeros to a multiple of this number of measurements.
constexpr std::size_t kt_batchPadding = 16;

/// A query's sums after rounding. Their relative errors are at most (size + 4) 2^-23.
struct kt_RoundedQuery {
    /// The sum of the squares of its rounded numbers; exact.
    std::int32_t square;
    /// The sum of squared rounding errors.
    float lost;
    /// The sum of squared distances from the range of the numbers.
    float outside;
};

/// Rounded numbers lie in pairs of measurements. For each pair, a block of rows holds the two numbers of row 0, then those of row 1, and
/// so on. A query holds its numbers in order, each multiplied by -2. An odd last measurement is paired with 0.
struct kt_BatchKernels {
    /// Rounds a block of floats, laid out as for kt_FloatKernel: subtracts the centre, multiplies by `scale`, clamps to +-`most`, an
    /// integer, and rounds to an integer. `squares` receives the sum of squared numbers of each row. Returns the largest sum of squared
    /// rounding errors of any row, with a relative error of at most (size + 2) 2^-24.
    float (*round)(const float* block, const float* centre, std::size_t size, float scale, float most,
                   std::int16_t* rows, std::int32_t* squares);

    /// Rounds a query in the same way. The length of `query`, `centre` and `numbers` is `size`, rounded up to a multiple of
    /// kt_batchPadding; `query` and `centre` are padded with 0.
    kt_RoundedQuery (*roundQuery)(const float* query, const float* centre, std::size_t size, float scale, float most,
                                  std::int16_t* numbers);

    /// Sums of squared differences, less the query's own sum of squares. Bit i of `within[q]` is set if the sum of row i and query q is
    /// at most `limits[q]`. Then `sums[q * kt_blockRows + i]` holds that sum. Requires: every sum fits 32 bits.
    void (*sums)(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* const* queries,
                 std::size_t numPairs, const std::int32_t* limits, std::uint64_t* within, std::int32_t* sums);

    /// The squared distance of query q from box i: `sums[q * kt_blockRows + i]`. Boxes are laid out as for kt_BoxKernel.
    void (*boxes)(const float* boxes, std::size_t count, const float* const* queries, std::size_t size, float* sums);
};

/// Null where the compiler does not target such processors.
extern const kt_BatchKernels* const kt_avx2BatchKernels;
extern const kt_BatchKernels* const kt_vnniBatchKernels;
