#pragma once

#include "batch_kernels.h"

// The loop over the strips of a block of rows. Each file of batch kernels compiles it for its own processors, so it has internal
// linkage. A `Strip` keeps the sums of some rows and all queries in registers:
//
//     numRows            the number of rows in a strip
//     Strip(...)         computes the sums; the pointers refer to the strip's first row
//     within(q, limit)   bit i is set if the sum of row i and query q is at most the limit
//     put(q, place)      writes the sums of query q

namespace {

template <class Strip>
void sumsOf(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* const* queries,
            std::size_t numPairs, const std::int32_t* limits, std::uint64_t* within, std::int32_t* sums)
{
    for (std::size_t q = 0; q < kt_batchQueries; ++q) {
        within[q] = 0;
    }
    for (std::size_t first = 0; first < kt_blockRows; first += Strip::numRows) {
        const Strip strip(rows + 2 * first, squares + first, queries, numPairs);
        for (std::size_t q = 0; q < kt_batchQueries; ++q) {
            const std::uint64_t here = strip.within(q, limits[q]);
            if (here != 0) {
                within[q] |= here << first;
                strip.put(q, sums + q * kt_blockRows + first);
            }
        }
    }
}

}  // namespace
