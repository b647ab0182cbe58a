#include "evaluation_steps.h"
#include "pairs.h"

#include <cstring>

// The evaluation loop in pairs of doubles. Compilers vectorise the plain loops along the columns, which shuffles more than it adds.

namespace kt_normal {
namespace {

static_assert(rowsPerBlock == 8, "a block of rows is four pairs");

double whiten(const Column* whitening, const double* mean, const double* values, std::size_t size, double* whitened)
{
    double squaredLength = 0.0;
    for (std::size_t first = 0; first < size; first += rowsPerBlock) {
        const std::size_t half = first + halfBlock < size ? first + halfBlock : size;
        const std::size_t end = first + rowsPerBlock < size ? first + rowsPerBlock : size;
        kt_DoublePair sum0 = {};
        kt_DoublePair sum1 = {};
        kt_DoublePair sum2 = {};
        kt_DoublePair sum3 = {};
        for (std::size_t j = 0; j < half; ++j) {
            const double* const column = whitening[j].rows;
            const kt_DoublePair difference = all<kt_DoublePair>(values[j] - mean[j]);
            sum0 += at<kt_DoublePair>(column) * difference;
            sum1 += at<kt_DoublePair>(column + 2) * difference;
            sum2 += at<kt_DoublePair>(column + 4) * difference;
            sum3 += at<kt_DoublePair>(column + 6) * difference;
        }
        for (std::size_t j = half; j < end; ++j) {
            const double* const column = whitening[j].rows;
            const kt_DoublePair difference = all<kt_DoublePair>(values[j] - mean[j]);
            sum2 += at<kt_DoublePair>(column + 4) * difference;
            sum3 += at<kt_DoublePair>(column + 6) * difference;
        }
        whitening += end;
        double rows[rowsPerBlock];
        put(rows, sum0);
        put(rows + 2, sum1);
        put(rows + 4, sum2);
        put(rows + 6, sum3);
        for (const double row : rows) {
            squaredLength += row * row;
        }
        if (whitened != nullptr) {
            std::memcpy(whitened + first, rows, sizeof rows);
        }
    }
    return squaredLength;
}

}  // namespace

const Whiten baselineWhiten = whiten;

}  // namespace kt_normal
