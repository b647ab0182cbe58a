#pragma once

#include <cstddef>
#include <cstdint>

// The loops of a scan that read every stored measurement. One set is for every processor, one for processors with wider vectors; a
// process chooses one. Their sums are approximate, within bounds that hold for both sets. So the answer of a scan does not depend on
// the set.

constexpr std::size_t kt_blockRows = 64;
constexpr std::size_t kt_numCells = 16;

/// The sums of |x - q|^p over the measurements, for a block of rows and a query. `block` holds measurement after measurement, each with
/// its value in every row. Bit i of the result says whether the sum of row i is at most `limit`. If any is, `sums` is filled.
using kt_FloatKernel = std::uint64_t (*)(const float* block, const float* query, std::size_t size, float order,
                                         float limit, float* sums);

/// The same sums for the nearest points of `count` boxes, a multiple of 8 and at most 64: lower bounds for all points in a box. For each
/// measurement `boxes` holds the low ends of all boxes, then the high ends. A box whose low end is above its high end is infinitely
/// far.
using kt_BoxKernel = void (*)(const float* boxes, std::size_t count, const float* query, std::size_t size, float order,
                              float* sums);

/// Which of `count` sums, a multiple of 8 and at most 64, are at most `limit`.
using kt_WithinKernel = std::uint64_t (*)(const float* sums, std::size_t count, float limit);

/// Which of `count` sums, as above, equal the least one.
using kt_LeastKernel = std::uint64_t (*)(const float* sums, std::size_t count);

/// An upper bound of the k-th smallest of 64 sums, mostly a close one: the sums are divided into 8 to 32 sets, and the bound is the k-th
/// smallest minimum of a set. k is at most kt_mostForKth.
using kt_KthKernel = float (*)(const float* sums, std::size_t k);
constexpr std::size_t kt_mostForKth = 16;

/// Sums of the bounds of each row's cells. `block` holds 32 bytes for each measurement: byte i has the cell of row i in its low half
/// and that of row i + 32 in its high half. `quantizedBounds` has a bound for each of the 16 cells of each measurement, at most 127;
/// no sum may exceed 65535. Bit i of the result says whether the sum of row i is at most `limit`.
using kt_CellKernel = std::uint64_t (*)(const std::uint8_t* block, const std::uint8_t* quantizedBounds,
                                        std::size_t size, std::uint16_t limit);

/// The number of bytes behind the last block of cells that must be readable; their values do not matter.
constexpr std::size_t kt_readAhead = 1024;

/// The loops whose terms are powers of one order.
struct kt_OrderKernels {
    kt_FloatKernel rows;
    kt_BoxKernel boxes;
};

struct kt_ScanKernels {
    kt_OrderKernels order1;
    kt_OrderKernels order2;
    kt_OrderKernels order3;
    kt_OrderKernels orderHalf;
    kt_OrderKernels anyOrder;
    kt_CellKernel cells;
    kt_WithinKernel within;
    kt_LeastKernel least;
    kt_KthKernel kth;
    /// Whether `cells` is faster than each of the loops above, not only than `anyOrder`.
    bool hasFastCells;
};

/// For every processor.
extern const kt_ScanKernels kt_baselineKernels;
/// For processors with AVX2 and FMA; null where the compiler does not target such processors.
extern const kt_ScanKernels* const kt_avx2Kernels;

/// The largest relative error of a term of `anyOrder` with exponent p: kt_powerError * p + kt_powerErrorFixed, for differences
/// and terms between 2^-120 and 2^120. A smaller difference or term counts as 0, so a term loses at most 2^-120, and 2^(-120 p)
/// at orders below 1. A larger term counts as a value between 2^120 and infinity. A test measures the error over all mantissas.
constexpr double kt_powerError = 2e-5;
constexpr double kt_powerErrorFixed = 5e-5;
