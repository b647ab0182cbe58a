#pragma once

#include <cstddef>
#include <cstdint>

// The loops of a scan that touch every stored measurement. There is one set of them for every processor and one for
// processors with wider vectors, chosen once a process. What they compute is approximate within bounds that hold for
// each set; what a scan answers does not depend on them.

constexpr std::size_t kt_blockRows = 64;
constexpr std::size_t kt_numCells = 16;

/// Sums of a block of rows against a query: |x - q|^p over the measurements. `block` holds the measurements one behind the
/// other, each with its value in every row. Bit i of what is returned says whether the sum of row i is not greater than
/// `limit`; unless there is no such row, `sums` is filled.
using kt_FloatKernel = std::uint64_t (*)(const float* block, const float* query, std::size_t size, float order,
                                         float limit, float* sums);

/// The same sums for the nearest points of `count` boxes, a multiple of 8 and at most 64: what no point in a box stays below.
/// `boxes` holds for each measurement the low ends of all boxes and behind them the high ends. A box with its ends the wrong
/// way round is infinitely far.
using kt_BoxKernel = void (*)(const float* boxes, std::size_t count, const float* query, std::size_t size, float order,
                              float* sums);

/// Which of `count` sums, a multiple of 8 and at most 64, are not greater than the limit.
using kt_WithinKernel = std::uint64_t (*)(const float* sums, std::size_t count, float limit);

/// Which of `count` sums, as above, are the least one.
using kt_LeastKernel = std::uint64_t (*)(const float* sums, std::size_t count);

/// Not less than the k-th smallest of 64 sums, and mostly not much more: the k-th smallest of the minima of sets of them, 8 to 32
/// sets that have no sum in common. k is at most kt_mostForKth.
using kt_KthKernel = float (*)(const float* sums, std::size_t k);
constexpr std::size_t kt_mostForKth = 16;

/// Sums of what the cells of each row are worth. `block` holds 32 bytes for each measurement, byte i with the cell of row i
/// in its low and of row i + 32 in its high half; `worths` what each of the 16 cells is worth, for each measurement: at
/// most 127, and no sum may exceed 65535. Bit i of what is returned says whether the sum of row i is not greater than `limit`.
using kt_CellKernel = std::uint64_t (*)(const std::uint8_t* block, const std::uint8_t* worths, std::size_t size,
                                        std::uint16_t limit);

/// How many bytes of memory there have to be behind the last block of cells; nothing depends on what they hold.
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
    /// Whether `cells` takes less time than any of the loops above, not only than `anyOrder`.
    bool hasFastCells;
};

/// For every processor.
extern const kt_ScanKernels kt_baselineKernels;
/// For processors with AVX2 and FMA; null where the compiler does not target such processors.
extern const kt_ScanKernels* const kt_avx2Kernels;

/// The largest relative error of a term of `anyOrder` with exponent p: kt_powerError * p + kt_powerErrorFixed, for differences
/// and terms between 2^-120 and 2^120. A difference or a term below counts as 0, so a term loses at most 2^-120, and 2^(-120 p)
/// at orders below 1; larger terms count as something between 2^120 and infinity. Measured over all mantissas by a test.
constexpr double kt_powerError = 2e-5;
constexpr double kt_powerErrorFixed = 5e-5;
