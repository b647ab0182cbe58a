#include "evaluation_steps.h"

// The evaluation loop in vectors of 256 bits. This file is compiled for AVX2 without FMA. It uses no inline function of another
// header: the linker may keep this file's copy for the whole program.

#if defined(__AVX2__)

#include <immintrin.h>

namespace kt_normal {
namespace {

static_assert(rowsPerBlock == 8, "a block of rows is two vectors");

/// The sums of the rows of a block.
struct Sums {
    __m256d upper = _mm256_setzero_pd();
    __m256d lower = _mm256_setzero_pd();

    void add(const Column& column, __m256d difference)
    {
        upper = _mm256_add_pd(upper, _mm256_mul_pd(_mm256_load_pd(column.rows), difference));
        addLower(column, difference);
    }

    void addLower(const Column& column, __m256d difference)
    {
        lower = _mm256_add_pd(lower, _mm256_mul_pd(_mm256_load_pd(column.rows + halfBlock), difference));
    }

    void put(double* rows) const
    {
        _mm256_storeu_pd(rows, upper);
        _mm256_storeu_pd(rows + halfBlock, lower);
    }
};

/// Calls add(column, difference) for the columns [begin, end). `difference` is value - mean, in all places of a vector.
template <class Add>
inline void forEachColumn(const double* values, const double* mean, std::size_t begin, std::size_t end, const Add& add)
{
    std::size_t j = begin;
    for (; j + 4 <= end; j += 4) {
        const __m256d differences = _mm256_sub_pd(_mm256_loadu_pd(values + j), _mm256_loadu_pd(mean + j));
        add(j, _mm256_permute4x64_pd(differences, 0x00));
        add(j + 1, _mm256_permute4x64_pd(differences, 0x55));
        add(j + 2, _mm256_permute4x64_pd(differences, 0xaa));
        add(j + 3, _mm256_permute4x64_pd(differences, 0xff));
    }
    for (; j < end; ++j) {
        add(j, _mm256_set1_pd(values[j] - mean[j]));
    }
}

/// Adds the columns [begin, end) of a block to its sums. `first` is the block's first row.
inline void addColumns(const Column* block, std::size_t first, const double* values, const double* mean,
                       std::size_t begin, std::size_t end, Sums& sums)
{
    const std::size_t half = first + halfBlock < end ? first + halfBlock : end;
    forEachColumn(values, mean, begin, half,
                  [&](std::size_t j, __m256d difference) { sums.add(block[j], difference); });
    forEachColumn(values, mean, half, end,
                  [&](std::size_t j, __m256d difference) { sums.addLower(block[j], difference); });
}

/// Adds the squares of four numbers in ascending order.
__m128d addSquares(__m128d sum, __m256d numbers)
{
    const __m256d squares = _mm256_mul_pd(numbers, numbers);
    const __m128d first = _mm256_castpd256_pd128(squares);
    const __m128d second = _mm256_extractf128_pd(squares, 1);
    sum = _mm_add_sd(sum, first);
    sum = _mm_add_sd(sum, _mm_unpackhi_pd(first, first));
    sum = _mm_add_sd(sum, second);
    return _mm_add_sd(sum, _mm_unpackhi_pd(second, second));
}

__m128d addSquares(__m128d sum, const Sums& sums)
{
    return addSquares(addSquares(sum, sums.upper), sums.lower);
}

/// Takes two blocks at a time: their sums are independent, so the processor computes them in parallel.
double whiten(const Column* block, const double* mean, const double* values, std::size_t size, double* whitened)
{
    __m128d squaredLength = _mm_setzero_pd();
    std::size_t first = 0;
    for (; first + rowsPerBlock < size; first += 2 * rowsPerBlock) {
        const std::size_t middle = first + rowsPerBlock;
        const std::size_t end = middle + rowsPerBlock < size ? middle + rowsPerBlock : size;
        const Column* const next = block + middle;
        Sums sums;
        Sums nextSums;
        forEachColumn(values, mean, 0, first + halfBlock, [&](std::size_t j, __m256d difference) {
            sums.add(block[j], difference);
            nextSums.add(next[j], difference);
        });
        forEachColumn(values, mean, first + halfBlock, middle, [&](std::size_t j, __m256d difference) {
            sums.addLower(block[j], difference);
            nextSums.add(next[j], difference);
        });
        addColumns(next, middle, values, mean, middle, end, nextSums);
        squaredLength = addSquares(addSquares(squaredLength, sums), nextSums);
        if (whitened != nullptr) {
            sums.put(whitened + first);
            nextSums.put(whitened + middle);
        }
        block = next + end;
    }
    if (first < size) {
        Sums sums;
        addColumns(block, first, values, mean, 0, size, sums);
        squaredLength = addSquares(squaredLength, sums);
        if (whitened != nullptr) {
            sums.put(whitened + first);
        }
    }
    return _mm_cvtsd_f64(squaredLength);
}

}  // namespace

const Whiten avx2Whiten = whiten;

}  // namespace kt_normal

#else

const kt_normal::Whiten kt_normal::avx2Whiten = nullptr;

#endif
