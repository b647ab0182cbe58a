#include "evaluation_steps.h"
#include "pairs.h"

// In pairs, because compilers vectorise the plain loops along the columns, which shuffles more than it adds.

namespace kt_normal {
namespace {

static_assert(rowsPerBlock == 8, "a block of rows is four pairs");

double whiten(const double* whitening, const double* mean, const double* values, std::size_t size, double* differences,
              double* whitened)
{
    for (std::size_t i = 0; i < size; ++i) {
        differences[i] = values[i] - mean[i];
    }
    double squaredLength = 0.0;
    for (std::size_t first = 0; first < size; first += rowsPerBlock) {
        const std::size_t columns = first + rowsPerBlock < size ? first + rowsPerBlock : size;
        kt_DoublePair sum0 = {};
        kt_DoublePair sum1 = {};
        kt_DoublePair sum2 = {};
        kt_DoublePair sum3 = {};
        for (std::size_t j = 0; j < columns; ++j, whitening += rowsPerBlock) {
            const kt_DoublePair difference = all<kt_DoublePair>(differences[j]);
            sum0 += at<kt_DoublePair>(whitening) * difference;
            sum1 += at<kt_DoublePair>(whitening + 2) * difference;
            sum2 += at<kt_DoublePair>(whitening + 4) * difference;
            sum3 += at<kt_DoublePair>(whitening + 6) * difference;
        }
        put(whitened + first, sum0);
        put(whitened + first + 2, sum1);
        put(whitened + first + 4, sum2);
        put(whitened + first + 6, sum3);
        for (std::size_t i = first; i < first + rowsPerBlock; ++i) {
            squaredLength += whitened[i] * whitened[i];
        }
    }
    return squaredLength;
}

}  // namespace

const Whiten baselineWhiten = whiten;

}  // namespace kt_normal
