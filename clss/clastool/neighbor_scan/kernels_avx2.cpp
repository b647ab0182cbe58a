#include "kernels.h"

// The loops of kernels.h in vectors of 8 floats. docs/neighbor-scan.md, "The bounds", derives the error of each sum.
// Only this file is compiled for AVX2 and FMA. It uses no inline function of another header unless that is local to the file: the linker
// may use this file's copy of a function in the whole program.

#if defined(__AVX2__) && defined(__FMA__)

#include "kth_of_minima.h"

#include <immintrin.h>

namespace {

constexpr int lanes = 8;
constexpr int vectors = static_cast<int>(kt_blockRows) / lanes;

inline __m256 absolute(__m256 d)
{
    return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), d);
}

struct Order1 {
    explicit Order1(float) {}
    __m256 add(__m256 sum, __m256 d) const { return _mm256_add_ps(sum, absolute(d)); }
};

struct Order2 {
    explicit Order2(float) {}
    __m256 add(__m256 sum, __m256 d) const { return _mm256_fmadd_ps(d, d, sum); }
};

struct Order3 {
    explicit Order3(float) {}
    __m256 add(__m256 sum, __m256 d) const { return _mm256_fmadd_ps(_mm256_mul_ps(d, d), absolute(d), sum); }
};

struct OrderHalf {
    explicit OrderHalf(float) {}
    __m256 add(__m256 sum, __m256 d) const { return _mm256_add_ps(sum, _mm256_sqrt_ps(absolute(d))); }
};

/// The same steps as the baseline's power.
struct AnyOrder {
    explicit AnyOrder(float order) : p(_mm256_set1_ps(order)) {}

    __m256 add(__m256 sum, __m256 d) const
    {
        const __m256 v = absolute(d);
        const __m256i bits = _mm256_castps_si256(v);
        const __m256i shifted = _mm256_and_si256(_mm256_sub_epi32(bits, _mm256_set1_epi32(0x3F3504F3)),
                                                 _mm256_set1_epi32(static_cast<int>(0xFF800000u)));
        const __m256 m = _mm256_castsi256_ps(_mm256_sub_epi32(bits, shifted));
        const __m256 exponent = _mm256_cvtepi32_ps(_mm256_srai_epi32(shifted, 23));
        const __m256 one = _mm256_set1_ps(1.0f);
        const __m256 s = _mm256_div_ps(_mm256_sub_ps(m, one), _mm256_add_ps(m, one));
        const __m256 s2 = _mm256_mul_ps(s, s);
        __m256 series = _mm256_fmadd_ps(s2, _mm256_set1_ps(0.4121985831f), _mm256_set1_ps(0.5770780164f));
        series = _mm256_fmadd_ps(s2, series, _mm256_set1_ps(0.9617966939f));
        series = _mm256_fmadd_ps(s2, series, _mm256_set1_ps(2.8853900818f));
        // Terms are cut off at 2^126, so that the exponent does not overflow.
        const __m256 y = _mm256_min_ps(_mm256_mul_ps(p, _mm256_fmadd_ps(s, series, exponent)), _mm256_set1_ps(126.0f));
        const __m256 whole = _mm256_round_ps(y, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        const __m256 x = _mm256_mul_ps(_mm256_sub_ps(y, whole), _mm256_set1_ps(0.6931471806f));
        __m256 rest = _mm256_fmadd_ps(x, _mm256_set1_ps(0.0083333333f), _mm256_set1_ps(0.0416666667f));
        rest = _mm256_fmadd_ps(x, rest, _mm256_set1_ps(0.1666666667f));
        rest = _mm256_fmadd_ps(x, rest, _mm256_set1_ps(0.5f));
        rest = _mm256_fmadd_ps(x, rest, one);
        rest = _mm256_fmadd_ps(x, rest, one);
        const __m256i scale =
            _mm256_slli_epi32(_mm256_add_epi32(_mm256_cvtps_epi32(whole), _mm256_set1_epi32(127)), 23);
        const __m256 counts = _mm256_and_ps(_mm256_cmp_ps(v, _mm256_set1_ps(0x1p-120f), _CMP_GE_OQ),
                                            _mm256_cmp_ps(y, _mm256_set1_ps(-120.0f), _CMP_GE_OQ));
        const __m256 term = _mm256_and_ps(counts, _mm256_mul_ps(rest, _mm256_castsi256_ps(scale)));
        return _mm256_add_ps(sum, term);
    }

    __m256 p;
};

template <class Term>
std::uint64_t floatSums(const float* block, const float* query, std::size_t size, float order, float limit, float* sums)
{
    // Eight variables: compilers keep an array in memory and write it in each iteration.
    const Term term(order);
    __m256 sum0 = _mm256_setzero_ps();
    __m256 sum1 = sum0;
    __m256 sum2 = sum0;
    __m256 sum3 = sum0;
    __m256 sum4 = sum0;
    __m256 sum5 = sum0;
    __m256 sum6 = sum0;
    __m256 sum7 = sum0;
    for (const float* const end = query + size; query != end; ++query, block += kt_blockRows) {
        const __m256 q = _mm256_broadcast_ss(query);
        // In this order one instruction reads the values and subtracts them.
        const auto added = [&](__m256 sum, int v) {
            return term.add(sum, _mm256_sub_ps(q, _mm256_loadu_ps(block + v * lanes)));
        };
        sum0 = added(sum0, 0);
        sum1 = added(sum1, 1);
        sum2 = added(sum2, 2);
        sum3 = added(sum3, 3);
        sum4 = added(sum4, 4);
        sum5 = added(sum5, 5);
        sum6 = added(sum6, 6);
        sum7 = added(sum7, 7);
    }
    const __m256 sum[vectors] = {sum0, sum1, sum2, sum3, sum4, sum5, sum6, sum7};
    const __m256 highest = _mm256_set1_ps(limit);
    std::uint64_t within = 0;
    for (int v = 0; v < vectors; ++v) {
        _mm256_storeu_ps(sums + v * lanes, sum[v]);
        const int mask = _mm256_movemask_ps(_mm256_cmp_ps(sum[v], highest, _CMP_LE_OQ));
        within |= std::uint64_t{static_cast<unsigned>(mask)} << (v * lanes);
    }
    return within;
}

template <class Term>
void boxSums(const float* boxes, std::size_t count, const float* query, std::size_t size, float order, float* sums)
{
    const Term term(order);
    for (std::size_t first = 0; first < count; first += lanes) {
        __m256 sum = _mm256_setzero_ps();
        const float* low = boxes + first;
        for (std::size_t j = 0; j < size; ++j, low += 2 * count) {
            const __m256 q = _mm256_broadcast_ss(query + j);
            const __m256 below = _mm256_sub_ps(_mm256_loadu_ps(low), q);
            const __m256 above = _mm256_sub_ps(q, _mm256_loadu_ps(low + count));
            sum = term.add(sum, _mm256_max_ps(_mm256_max_ps(below, above), _mm256_setzero_ps()));
        }
        _mm256_storeu_ps(sums + first, sum);
    }
}

/// Bit i: the number i of 32 16-bit numbers, which lie alternately in `even` and `odd`, is not greater than `limit`.
inline std::uint64_t rowsWithin(__m256i even, __m256i odd, __m256i limit)
{
    const __m256i isEvenWithin = _mm256_cmpeq_epi16(_mm256_min_epu16(even, limit), even);
    const __m256i isOddWithin = _mm256_cmpeq_epi16(_mm256_min_epu16(odd, limit), odd);
    const __m256i bytes = _mm256_or_si256(_mm256_srli_epi16(isEvenWithin, 8), _mm256_slli_epi16(isOddWithin, 8));
    return static_cast<unsigned>(_mm256_movemask_epi8(bytes));
}

/// The bounds of the cells of 32 rows.
inline __m256i boundsOf(__m256i rows, const std::uint8_t* quantizedBounds)
{
    const __m128i table = _mm_loadu_si128(reinterpret_cast<const __m128i*>(quantizedBounds));
    return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(table), _mm256_and_si256(rows, _mm256_set1_epi8(0x0F)));
}

/// 32 sums of 16 bits. `odd` sums the bytes at odd places; `both` sums those at even places plus 256 times the odd ones, modulo 2^16.
struct Sums {
    void add(__m256i bytes)
    {
        both = _mm256_add_epi16(both, bytes);
        odd = _mm256_add_epi16(odd, _mm256_srli_epi16(bytes, 8));
    }
    std::uint64_t within(__m256i limit) const
    {
        return rowsWithin(_mm256_sub_epi16(both, _mm256_slli_epi16(odd, 8)), odd, limit);
    }

    __m256i both = _mm256_setzero_si256();
    __m256i odd = _mm256_setzero_si256();
};

std::uint64_t cells(const std::uint8_t* block, const std::uint8_t* quantizedBounds, std::size_t size,
                    std::uint16_t limit)
{
    constexpr std::size_t half = kt_blockRows / 2;
    const auto rowsOf = [](const std::uint8_t* cells) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cells));
    };
    const std::uint8_t* const end = block + size / 2 * 2 * half;
    Sums low;
    Sums high;
    for (; block != end; block += 2 * half, quantizedBounds += 2 * kt_numCells) {
        // Blocks of many measurements are not in the caches, and the processor's own prefetching stops at each page.
        _mm_prefetch(reinterpret_cast<const char*>(block + kt_readAhead), _MM_HINT_T0);
        const __m256i first = rowsOf(block);
        const __m256i second = rowsOf(block + half);
        low.add(_mm256_add_epi8(boundsOf(first, quantizedBounds), boundsOf(second, quantizedBounds + kt_numCells)));
        high.add(_mm256_add_epi8(boundsOf(_mm256_srli_epi16(first, 4), quantizedBounds),
                                 boundsOf(_mm256_srli_epi16(second, 4), quantizedBounds + kt_numCells)));
    }
    if (size % 2 != 0) {
        const __m256i last = rowsOf(block);
        low.add(boundsOf(last, quantizedBounds));
        high.add(boundsOf(_mm256_srli_epi16(last, 4), quantizedBounds));
    }
    const __m256i highest = _mm256_set1_epi16(static_cast<short>(limit));
    return low.within(highest) | high.within(highest) << half;
}

std::uint64_t within(const float* sums, std::size_t count, float limit)
{
    const __m256 highest = _mm256_set1_ps(limit);
    std::uint64_t rows = 0;
    for (std::size_t first = 0; first < count; first += lanes) {
        const int mask = _mm256_movemask_ps(_mm256_cmp_ps(_mm256_loadu_ps(sums + first), highest, _CMP_LE_OQ));
        rows |= std::uint64_t{static_cast<unsigned>(mask)} << first;
    }
    return rows;
}

std::uint64_t least(const float* sums, std::size_t count)
{
    __m256 smallest = _mm256_loadu_ps(sums);
    for (std::size_t first = lanes; first < count; first += lanes) {
        smallest = _mm256_min_ps(smallest, _mm256_loadu_ps(sums + first));
    }
    __m128 four = _mm_min_ps(_mm256_castps256_ps128(smallest), _mm256_extractf128_ps(smallest, 1));
    four = _mm_min_ps(four, _mm_movehl_ps(four, four));
    return within(sums, count, _mm_cvtss_f32(_mm_min_ss(four, _mm_shuffle_ps(four, four, 1))));
}

float kth(const float* sums, std::size_t k)
{
    return kthOfMinima(sums, k);
}

template <class Term>
constexpr kt_OrderKernels kernelsOf = {floatSums<Term>, boxSums<Term>};

const kt_ScanKernels kernels = {kernelsOf<Order1>,
                                kernelsOf<Order2>,
                                kernelsOf<Order3>,
                                kernelsOf<OrderHalf>,
                                kernelsOf<AnyOrder>,
                                cells,
                                within,
                                least,
                                kth,
                                true};

}  // namespace

const kt_ScanKernels* const kt_avx2Kernels = &kernels;

#else

const kt_ScanKernels* const kt_avx2Kernels = nullptr;

#endif
