#pragma once

#include <cstddef>

// The loops over all elements of a normal density's state when it learns. normal_density.h has the formulas. One set of loops runs on
// every processor, the other needs AVX2 and FMA. The process chooses once. Both compute the same bits.

namespace kt_normal {

/// The largest number of rows that one pass over the covariance learns.
constexpr std::size_t rowsAtOnce = 8;

/// The number of rows, 1 to rowsAtOnce, and the count after each row: integers from 2 to 2^31 - 1.
struct Steps {
    std::size_t numRows;
    double counts[rowsAtOnce];
};

/// The elements of a covariance that learn: all, or those up to the diagonal. The lower triangle is enough for a symmetric covariance;
/// the other elements are then undefined.
enum class Triangle { whole, lower };

struct LearningKernels {
    /// Applies the steps to the mean and the covariance of `size` measurements. The rows are contiguous.
    /// `differences` is working storage for rowsAtOnce rows.
    void (*joint)(const Steps& steps, double* mean, double* covariance, Triangle triangle, const double* rows,
                  std::size_t size, double* differences);
    /// The same for `size` densities of one measurement each. A row begins `stride` values after the previous one.
    void (*single)(const Steps& steps, double* means, double* variances, const double* rows, std::size_t stride,
                   std::size_t size, double* differences);
};

/// For every processor.
extern const LearningKernels baselineLearning;
/// For processors with AVX2 and FMA; null where the compiler does not target such processors.
extern const LearningKernels* const avx2Learning;

}  // namespace kt_normal
