#include "evaluation_steps.h"

// Only this file is compiled for AVX2 alone. It uses no inline function of another header, because the linker may keep this
// file's copy of one for the whole program.

#if defined(__AVX2__)

#include <immintrin.h>

namespace kt_normal {
namespace {

static_assert(rowsPerBlock == 8, "a block of rows is two vectors");

/// The sums of a block of rows.
struct Block {
    __m256d upper = _mm256_setzero_pd();
    __m256d lower = _mm256_setzero_pd();

    void add(const double* whitening, const double* difference)
    {
        const __m256d factor = _mm256_broadcast_sd(difference);
        upper = _mm256_add_pd(upper, _mm256_mul_pd(_mm256_loadu_pd(whitening), factor));
        lower = _mm256_add_pd(lower, _mm256_mul_pd(_mm256_loadu_pd(whitening + 4), factor));
    }
};

void subtract(const double* values, const double* mean, std::size_t size, double* differences)
{
    std::size_t i = 0;
    for (; i + 4 <= size; i += 4) {
        _mm256_storeu_pd(differences + i, _mm256_sub_pd(_mm256_loadu_pd(values + i), _mm256_loadu_pd(mean + i)));
    }
    for (; i < size; ++i) {
        differences[i] = values[i] - mean[i];
    }
}

/// Adds the squares of four numbers, one after the other.
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

double whiten(const double* whitening, const double* mean, const double* values, std::size_t size, double* differences,
              double* whitened)
{
    subtract(values, mean, size, differences);
    __m128d squaredLength = _mm_setzero_pd();
    for (std::size_t first = 0; first < size; first += rowsPerBlock) {
        const std::size_t columns = first + rowsPerBlock < size ? first + rowsPerBlock : size;
        Block block;
        std::size_t j = 0;
        for (; j + 4 <= columns; j += 4, whitening += 4 * rowsPerBlock) {
            block.add(whitening, differences + j);
            block.add(whitening + rowsPerBlock, differences + j + 1);
            block.add(whitening + 2 * rowsPerBlock, differences + j + 2);
            block.add(whitening + 3 * rowsPerBlock, differences + j + 3);
        }
        for (; j < columns; ++j, whitening += rowsPerBlock) {
            block.add(whitening, differences + j);
        }
        _mm256_storeu_pd(whitened + first, block.upper);
        _mm256_storeu_pd(whitened + first + 4, block.lower);
        squaredLength = addSquares(addSquares(squaredLength, block.upper), block.lower);
    }
    return _mm_cvtsd_f64(squaredLength);
}

}  // namespace

const Whiten avx2Whiten = whiten;

}  // namespace kt_normal

#else

const kt_normal::Whiten kt_normal::avx2Whiten = nullptr;

#endif
