#pragma once

#include <cstddef>

// The least work that a scan of all patterns can do: the smallest sum of squared differences over 32-bit floats, laid out so
// that the compiler vectorises it. It keeps no list, decides nothing and is exact in no sense. One source, compiled with the
// flags of each set of the library's own loops.

constexpr std::size_t bareScanRows = 64;

/// `blocks` holds `numBlocks` blocks of 64 patterns, in each of them one measurement of all 64 behind the other.
using BareScan = float (*)(const float* blocks, std::size_t numBlocks, const float* query, std::size_t numMeasurements);

float bareScanBaseline(const float* blocks, std::size_t numBlocks, const float* query, std::size_t numMeasurements);
float bareScanAvx2(const float* blocks, std::size_t numBlocks, const float* query, std::size_t numMeasurements);
