#pragma once

#include <cstddef>

// The loops of a normal density that touch every element of its state when it learns; normal_density.h has the formulas.
// There is one set of them for every processor and one for processors with wider vectors, chosen once a process. Both
// compute the same bits.

namespace kt_normal {

/// How many rows are learnt in one pass over the covariance.
constexpr std::size_t rowsAtOnce = 8;

/// The number of rows, 1 to rowsAtOnce, and the count after each row: integers from 2 to 2^31 - 1.
struct Steps {
    std::size_t numRows;
    double counts[rowsAtOnce];
};

/// Which elements of a covariance learn: all, or, if it is symmetric, those up to the diagonal. The others then end with any value.
enum class Triangle { whole, lower };

struct LearningKernels {
    /// Takes the mean and the covariance of `size` measurements through the steps. The rows lie one behind the other.
    /// `differences` is working storage for rowsAtOnce rows.
    void (*joint)(const Steps& steps, double* mean, double* covariance, Triangle triangle, const double* rows,
                  std::size_t size, double* differences);
    /// The same for `size` densities of one measurement each. A row begins `stride` values behind the one before.
    void (*single)(const Steps& steps, double* means, double* variances, const double* rows, std::size_t stride,
                   std::size_t size, double* differences);
};

/// For every processor.
extern const LearningKernels baselineLearning;
/// For processors with AVX2 and FMA; null where the compiler does not target such processors.
extern const LearningKernels* const avx2Learning;

}  // namespace kt_normal
