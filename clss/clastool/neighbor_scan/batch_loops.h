#pragma once

#include "batch_kernels.h"

// The loops over strips of rows, which each file of batch kernels compiles for its own processors. So everything here is local to the
// file. A `Strip` keeps the sums of some rows and all queries in registers:
//
//     numRows            how many rows
//     Strip(...)         computes the sums, from where the strip's rows begin
//     within(q, limit)   bit i: the sum of row i and query q is not greater than the limit
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
