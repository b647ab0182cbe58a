#include "batch_kernels.h"

// The loops of batch_kernels.h in vectors of 256 bits. One instruction multiplies and adds pairs of 16-bit numbers.
// docs/neighbor-scan.md, "Many queries at once", explains what the sums are for.
//
// This file is compiled for AVX2 and FMA. Like kernels_avx2.cpp, it uses no inline function that is not local to the file.

#if defined(__AVX2__) && defined(__FMA__)

#include "batch_loops.h"

#include <immintrin.h>

namespace {

constexpr std::size_t lanes = 8;
// The sums of a strip of rows and all queries fit the registers.
constexpr std::size_t stripVectors = 2;

inline __m256i vectorAt(const std::int32_t* numbers)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(numbers));
}

inline void store(std::int32_t* numbers, __m256i vector)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(numbers), vector);
}

inline float largestOf(__m256 values)
{
    const __m128 four = _mm_max_ps(_mm256_castps256_ps128(values), _mm256_extractf128_ps(values, 1));
    const __m128 two = _mm_max_ps(four, _mm_movehl_ps(four, four));
    return _mm_cvtss_f32(_mm_max_ss(two, _mm_shuffle_ps(two, two, 1)));
}

inline __m256 sumOfSquares(__m256 sum, __m256 values)
{
    return _mm256_fmadd_ps(values, values, sum);
}

float round(const float* block, const float* centre, std::size_t size, float scale, float most, std::int16_t* rows,
            std::int32_t* squares)
{
    const __m256 factor = _mm256_set1_ps(scale);
    const __m256 highest = _mm256_set1_ps(most);
    const __m256 lowest = _mm256_set1_ps(-most);
    __m256 largest = _mm256_setzero_ps();
    for (std::size_t first = 0; first < kt_blockRows; first += lanes) {
        __m256 lost = _mm256_setzero_ps();
        __m256i square = _mm256_setzero_si256();
        const auto rounded = [&](std::size_t j) {
            const __m256 off =
                _mm256_sub_ps(_mm256_loadu_ps(block + j * kt_blockRows + first), _mm256_broadcast_ss(centre + j));
            const __m256 inside = _mm256_max_ps(_mm256_min_ps(_mm256_mul_ps(off, factor), highest), lowest);
            const __m256i number = _mm256_cvtps_epi32(inside);
            lost = sumOfSquares(lost, _mm256_sub_ps(inside, _mm256_cvtepi32_ps(number)));
            return number;
        };
        for (std::size_t j = 0; j < size; j += 2) {
            const __m256i even = rounded(j);
            const __m256i odd = j + 1 < size ? rounded(j + 1) : _mm256_setzero_si256();
            const __m256i pairs = _mm256_blend_epi16(even, _mm256_slli_epi32(odd, 16), 0xAA);
            square = _mm256_add_epi32(square, _mm256_madd_epi16(pairs, pairs));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(rows + (j * kt_blockRows + 2 * first)), pairs);
        }
        store(squares + first, square);
        largest = _mm256_max_ps(largest, lost);
    }
    return largestOf(largest);
}

inline float sumOf(__m256 values)
{
    const __m128 four = _mm_add_ps(_mm256_castps256_ps128(values), _mm256_extractf128_ps(values, 1));
    const __m128 two = _mm_add_ps(four, _mm_movehl_ps(four, four));
    return _mm_cvtss_f32(_mm_add_ss(two, _mm_shuffle_ps(two, two, 1)));
}

inline std::int32_t sumOf(__m256i numbers)
{
    const __m128i four = _mm_add_epi32(_mm256_castsi256_si128(numbers), _mm256_extracti128_si256(numbers, 1));
    const __m128i two = _mm_add_epi32(four, _mm_shuffle_epi32(four, 0x4E));
    return _mm_cvtsi128_si32(_mm_add_epi32(two, _mm_shuffle_epi32(two, 0xB1)));
}

kt_RoundedQuery roundQuery(const float* query, const float* centre, std::size_t size, float scale, float most,
                           std::int16_t* numbers)
{
    const __m256 factor = _mm256_set1_ps(scale);
    const __m256 highest = _mm256_set1_ps(most);
    const __m256 lowest = _mm256_set1_ps(-most);
    __m256 lost = _mm256_setzero_ps();
    __m256 outside = _mm256_setzero_ps();
    __m256i square = _mm256_setzero_si256();
    const auto rounded = [&](std::size_t j) {
        const __m256 off = _mm256_sub_ps(_mm256_loadu_ps(query + j), _mm256_loadu_ps(centre + j));
        const __m256 value = _mm256_mul_ps(off, factor);
        const __m256 inside = _mm256_max_ps(_mm256_min_ps(value, highest), lowest);
        const __m256i number = _mm256_cvtps_epi32(inside);
        lost = sumOfSquares(lost, _mm256_sub_ps(inside, _mm256_cvtepi32_ps(number)));
        outside = sumOfSquares(outside, _mm256_sub_ps(value, inside));
        return number;
    };
    for (std::size_t j = 0; j < size; j += kt_batchPadding) {
        const __m256i low = rounded(j);
        const __m256i high = rounded(j + lanes);
        const __m256i all = _mm256_permute4x64_epi64(_mm256_packs_epi32(low, high), 0xD8);
        square = _mm256_add_epi32(square, _mm256_madd_epi16(all, all));
        const __m256i doubled = _mm256_add_epi16(all, all);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(numbers + j), _mm256_sub_epi16(_mm256_setzero_si256(), doubled));
    }
    return {sumOf(square), sumOf(lost), sumOf(outside)};
}

void boxes(const float* ends, std::size_t count, const float* const* queries, std::size_t size, float* sums)
{
    for (std::size_t first = 0; first < count; first += lanes) {
        __m256 sum[kt_batchQueries];
        for (__m256& each : sum) {
            each = _mm256_setzero_ps();
        }
        const float* low = ends + first;
        for (std::size_t j = 0; j < size; ++j, low += 2 * count) {
            const __m256 lows = _mm256_loadu_ps(low);
            const __m256 highs = _mm256_loadu_ps(low + count);
            for (std::size_t q = 0; q < kt_batchQueries; ++q) {
                const __m256 value = _mm256_broadcast_ss(queries[q] + j);
                const __m256 nearest = _mm256_min_ps(_mm256_max_ps(value, lows), highs);
                sum[q] = sumOfSquares(sum[q], _mm256_sub_ps(value, nearest));
            }
        }
        for (std::size_t q = 0; q < kt_batchQueries; ++q) {
            _mm256_storeu_ps(sums + q * kt_blockRows + first, sum[q]);
        }
    }
}

inline unsigned rowsBeyond(__m256i sums, __m256i limit)
{
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpgt_epi32(sums, limit))));
}

struct Strip {
    static constexpr std::size_t numRows = stripVectors * lanes;

    Strip(const std::int16_t* rows, const std::int32_t* squares, const std::int16_t* const* queries,
          std::size_t numPairs)
    {
        for (std::size_t q = 0; q < kt_batchQueries; ++q) {
            sum[q][0] = vectorAt(squares);
            sum[q][1] = vectorAt(squares + lanes);
        }
        for (std::size_t pair = 0; pair < numPairs; ++pair) {
            const __m256i* const numbers = reinterpret_cast<const __m256i*>(rows + pair * 2 * kt_blockRows);
            const __m256i first = _mm256_loadu_si256(numbers);
            const __m256i second = _mm256_loadu_si256(numbers + 1);
            for (std::size_t q = 0; q < kt_batchQueries; ++q) {
                const __m256i query =
                    _mm256_castps_si256(_mm256_broadcast_ss(reinterpret_cast<const float*>(queries[q] + 2 * pair)));
                sum[q][0] = _mm256_add_epi32(sum[q][0], _mm256_madd_epi16(first, query));
                sum[q][1] = _mm256_add_epi32(sum[q][1], _mm256_madd_epi16(second, query));
            }
        }
    }

    std::uint64_t within(std::size_t q, std::int32_t limit) const
    {
        const __m256i highest = _mm256_set1_epi32(limit);
        const unsigned beyond = rowsBeyond(sum[q][0], highest) | rowsBeyond(sum[q][1], highest) << lanes;
        return beyond ^ 0xFFFF;
    }

    void put(std::size_t q, std::int32_t* place) const
    {
        store(place, sum[q][0]);
        store(place + lanes, sum[q][1]);
    }

    __m256i sum[kt_batchQueries][stripVectors];
};

const kt_BatchKernels kernels = {round, roundQuery, sumsOf<Strip>, boxes};

}  // namespace

const kt_BatchKernels* const kt_avx2BatchKernels = &kernels;

#else

const kt_BatchKernels* const kt_avx2BatchKernels = nullptr;

#endif
