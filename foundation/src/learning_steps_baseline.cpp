#include "learning_steps.h"
#include "pairs.h"

// The learning loops in pairs of doubles. Compilers do not vectorise the plain loops, because of their divisions.

namespace kt_normal {
namespace {

/// Applies the steps to element `index` of the means. `Number` is a double or a pair.
template <class Number>
void learnMean(const Steps& steps, double* means, const double* rows, std::size_t stride, std::size_t index,
               std::size_t size, double* differences)
{
    Number mean = at<Number>(means + index);
    for (std::size_t k = 0; k < steps.numRows; ++k) {
        const Number d = at<Number>(rows + k * stride + index) - mean;
        mean = mean + d / all<Number>(steps.counts[k]);
        put(differences + k * size + index, d);
    }
    put(means + index, mean);
}

void learnMeans(const Steps& steps, double* means, const double* rows, std::size_t stride, std::size_t size,
                double* differences)
{
    std::size_t i = 0;
    for (; i + 1 < size; i += 2) {
        learnMean<kt_DoublePair>(steps, means, rows, stride, i, size, differences);
    }
    if (i < size) {
        learnMean<double>(steps, means, rows, stride, i, size, differences);
    }
}

/// Applies the steps to elements of the covariance. Step k multiplies the differences `left(k)` and `right + k * size`.
template <class Number, class Left>
void learnElements(const Steps& steps, double* elements, Left left, const double* right, std::size_t size)
{
    Number sum = at<Number>(elements);
    for (std::size_t k = 0; k < steps.numRows; ++k) {
        const double n = steps.counts[k];
        const Number product = left(k) * at<Number>(right + k * size);
        sum = (sum * all<Number>(n - 2.0)) / all<Number>(n - 1.0) + product / all<Number>(n);
    }
    put(elements, sum);
}

template <class Number>
void learnCovariances(const Steps& steps, double* row, std::size_t i, std::size_t j, std::size_t size,
                      const double* differences)
{
    const auto left = [&](std::size_t k) { return all<Number>(differences[k * size + i]); };
    learnElements<Number>(steps, row + j, left, differences + j, size);
}

void joint(const Steps& steps, double* mean, double* covariance, Triangle triangle, const double* rows,
           std::size_t size, double* differences)
{
    learnMeans(steps, mean, rows, size, size, differences);
    for (std::size_t i = 0; i < size; ++i) {
        double* row = covariance + i * size;
        const std::size_t columns = triangle == Triangle::lower ? i + 1 : size;
        std::size_t j = 0;
        for (; j + 1 < columns; j += 2) {
            learnCovariances<kt_DoublePair>(steps, row, i, j, size, differences);
        }
        if (j < columns) {
            learnCovariances<double>(steps, row, i, j, size, differences);
        }
    }
}

template <class Number>
void learnVariances(const Steps& steps, double* variances, std::size_t i, std::size_t size, const double* differences)
{
    const auto left = [&](std::size_t k) { return at<Number>(differences + k * size + i); };
    learnElements<Number>(steps, variances + i, left, differences + i, size);
}

void single(const Steps& steps, double* means, double* variances, const double* rows, std::size_t stride,
            std::size_t size, double* differences)
{
    learnMeans(steps, means, rows, stride, size, differences);
    std::size_t i = 0;
    for (; i + 1 < size; i += 2) {
        learnVariances<kt_DoublePair>(steps, variances, i, size, differences);
    }
    if (i < size) {
        learnVariances<double>(steps, variances, i, size, differences);
    }
}

}  // namespace

const LearningKernels baselineLearning = {joint, single};

}  // namespace kt_normal
