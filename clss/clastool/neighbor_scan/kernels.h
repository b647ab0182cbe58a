#pragma once

#include <cstddef>
#include <cstdint>

// The loops of a scan that touch every stored measurement. There is one set of them for every processor and one for
// processors with wider vectors, chosen once a process. What they compute is approximate within bounds that hold for
// each set; what a scan answers does not depend on them.

constexpr std::size_t kt_blockRows = 64;

/// Sums of a block of rows against a query: |x - q|^p over the measurements. `block` holds the measurements one behind the
/// other, each with its value in every row. Returns how many sums are not greater than `limit`, and fills `sums` unless
/// there is none.
using kt_FloatKernel = unsigned (*)(const float* block, const float* query, std::size_t size, float order, float limit,
                                    float* sums);

/// Sums of differences of 7-bit codes, or of their squares, saturating at 65535. `block` holds pairs of measurements, each
/// pair with its two codes row by row; `query` the codes of the query, `size` of them, an even number. Returns how
/// many sums are not greater than `limit`, and fills `sums` unless there is none.
using kt_CodeKernel = unsigned (*)(const std::uint8_t* block, const std::uint8_t* query, std::size_t size,
                                   std::uint16_t limit, std::uint16_t* sums);

struct kt_ScanKernels {
    kt_FloatKernel order1;
    kt_FloatKernel order2;
    kt_FloatKernel order3;
    kt_FloatKernel orderHalf;
    kt_FloatKernel anyOrder;
    kt_CodeKernel codes1;
    kt_CodeKernel codes2;
};

/// For every processor.
extern const kt_ScanKernels kt_baselineKernels;
/// For processors with AVX2 and FMA; null where the compiler does not target such processors.
extern const kt_ScanKernels* const kt_avx2Kernels;

/// The largest relative error of a term of `anyOrder` with exponent p: kt_powerError * p + kt_powerErrorFixed, for terms
/// between 2^-120 and 2^120; smaller ones may count as 0. Measured over all mantissas by a test.
constexpr double kt_powerError = 2e-5;
constexpr double kt_powerErrorFixed = 5e-5;
