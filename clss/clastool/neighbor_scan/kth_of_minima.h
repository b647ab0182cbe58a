#pragma once

#include "kernels.h"

#include <kt/compiler.h>

// Plain loops that each file of kernels compiles for its own processors. So everything here is local to the file.

namespace {

/// Counts for each minimum how many others are less. So no branch depends on the values. Loops over few lanes are kept as loops: g++ makes
/// vectors of a loop, but not of the same steps unrolled.
template <std::size_t numLanes>
float kthOfLanes(const float* sums, std::size_t k)
{
    float minima[numLanes];
    for (std::size_t lane = 0; lane < numLanes; ++lane) {
        minima[lane] = sums[lane];
    }
    for (std::size_t first = numLanes; first < kt_blockRows; first += numLanes) {
        KT_NOT_UNROLLED
        for (std::size_t lane = 0; lane < numLanes; ++lane) {
            const float sum = sums[first + lane];
            minima[lane] = sum < minima[lane] ? sum : minima[lane];
        }
    }
    std::uint32_t numLess[numLanes] = {};
    for (std::size_t other = 0; other < numLanes; ++other) {
        KT_NOT_UNROLLED
        for (std::size_t lane = 0; lane < numLanes; ++lane) {
            numLess[lane] += minima[other] < minima[lane] ? 1 : 0;
        }
    }
    // The largest minimum with fewer than k others below it. It is found by halving, which compilers vectorise.
    const auto wanted = static_cast<std::uint32_t>(k);
    for (std::size_t lane = 0; lane < numLanes; ++lane) {
        minima[lane] = numLess[lane] < wanted ? minima[lane] : 0.0f;
    }
    for (std::size_t half = numLanes / 2; half > 0; half /= 2) {
        for (std::size_t lane = 0; lane < half; ++lane) {
            minima[lane] = minima[lane] < minima[lane + half] ? minima[lane + half] : minima[lane];
        }
    }
    return minima[0];
}

inline float kthOfMinima(const float* sums, std::size_t k)
{
    return k <= 5 ? kthOfLanes<8>(sums, k) : k <= 10 ? kthOfLanes<16>(sums, k) : kthOfLanes<32>(sums, k);
}

}  // namespace
