#include "batch_kernels.h"

// The sums of batch_kernels.h in vectors of 512 bits. One instruction multiplies pairs of 16-bit numbers and adds them to the sums;
// AVX2 needs two. Rounding and boxes stay with batch_kernels_avx2.cpp. See docs/neighbor-scan.md, "Many queries at once".
//
// Only this file is compiled for AVX-512 VNNI. It uses no inline function that is not local to the file.

#if defined(__AVX512VNNI__) && defined(__AVX512F__) && defined(__AVX512BW__)

#include "batch_loops.h"

#include <immintrin.h>

namespace {

constexpr std::size_t lanes = 16;
// The sums of a strip of rows and all queries fit the registers.
constexpr std::size_t stripVectors = 2;

struct Strip {
    static constexpr std::size_t numRows = stripVectors * lanes;

    Strip(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* const* queries,
          std::size_t numPairs)
    {
        for (std::size_t q = 0; q < kt_batchQueries; ++q) {
            sum[q][0] = _mm512_loadu_si512(squares);
            sum[q][1] = _mm512_loadu_si512(squares + lanes);
        }
        for (std::size_t pair = 0; pair < numPairs; ++pair) {
            const std::int16_t* const numbers = rows + pair * 2 * kt_blockRows;
            const __m512i first = _mm512_loadu_si512(numbers);
            const __m512i second = _mm512_loadu_si512(numbers + 2 * lanes);
            for (std::size_t q = 0; q < kt_batchQueries; ++q) {
                const __m512i query =
                    _mm512_castps_si512(_mm512_set1_ps(*reinterpret_cast<const float*>(queries[q] + 2 * pair)));
                sum[q][0] = _mm512_dpwssd_epi32(sum[q][0], first, query);
                sum[q][1] = _mm512_dpwssd_epi32(sum[q][1], second, query);
            }
        }
    }

    std::uint64_t within(std::size_t q, std::int32_t limit) const
    {
        const __m512i highest = _mm512_set1_epi32(limit);
        const std::uint64_t low = _mm512_cmple_epi32_mask(sum[q][0], highest);
        const std::uint64_t high = _mm512_cmple_epi32_mask(sum[q][1], highest);
        return low | high << lanes;
    }

    void put(std::size_t q, std::int32_t* place) const
    {
        _mm512_storeu_si512(place, sum[q][0]);
        _mm512_storeu_si512(place + lanes, sum[q][1]);
    }

    __m512i sum[kt_batchQueries][stripVectors];
};

float round(const float* block, const float* centre, std::size_t size, float scale, float most, std::int16_t* rows,
            std::int32_t* squares)
{
    return kt_avx2BatchKernels->round(block, centre, size, scale, most, rows, squares);
}

kt_RoundedQuery roundQuery(const float* query, const float* centre, std::size_t size, float scale, float most,
                           std::int16_t* numbers)
{
    return kt_avx2BatchKernels->roundQuery(query, centre, size, scale, most, numbers);
}

void boxes(const float* ends, std::size_t count, const float* const* queries, std::size_t size, float* sums)
{
    kt_avx2BatchKernels->boxes(ends, count, queries, size, sums);
}

const kt_BatchKernels kernels = {round, roundQuery, sumsOf<Strip>, boxes};

}  // namespace

const kt_BatchKernels* const kt_vnniBatchKernels = &kernels;

#else

const kt_BatchKernels* const kt_vnniBatchKernels = nullptr;

#endif
