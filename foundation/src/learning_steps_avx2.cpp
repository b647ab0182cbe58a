#include "learning_steps.h"

// The learning loops in vectors of 256 bits. This file is compiled for AVX2 and FMA. It uses no inline function of another header: the
// linker may keep this file's copy for the whole program.

#if defined(__AVX2__) && defined(__FMA__)

#include <immintrin.h>

// The loops use intrinsics. Plain loops with std::fma took a tenth to a quarter longer for the covariance of 16 measurements alone
// than these loops take for the covariance, the mean and the search for tiny numbers.
//
// A vector division takes several times as long as the rest of a step. So a / b is computed as RN(a h + c): one multiplication and
// one fused multiply-add. RN rounds to nearest, h + l is nearly 1/b, and c is a l up to a few roundings. The result is the correctly
// rounded quotient for every integer b from 1 to 2^31 - 1 and every double a that is 0, infinite, NaN, or at least 2^-900 in size:
//
// - Let u = 2^-53 and y = RN(1/b). Then h = RN(y (1 - 4u)) lies below 1/b, by 2u/b to 6u/b or hardly more. 1 - b h is a multiple of
//   the last place of h, less than 2^34 of them. So one fused operation computes it exactly. l = RN((1 - b h) y) is positive and has a
//   relative error of hardly more than 2u. The relative error of c is below 2^-50.
// - Nothing underflows, so the last operation rounds (a/b)(1 + e) with |e| < 2^-99. Let w be the last place of the quotient. The
//   number that is rounded differs from a/b by less than 2^-46 w.
// - It rounds as a/b does, unless a point half way between two doubles is as near. Such a point m is an odd multiple of w/2. a is a
//   multiple of w, because |a| >= |a/b|. So a - b m is a multiple of w/2: either a/b is m, or they differ by at least w/(2b) > 2^-32 w,
//   half of that around a power of two. But a/b cannot be m: m has 54 significant bits, and its product with an integer has no fewer,
//   while a has at most 53.
// - l is positive, so zeros and infinities keep their signs. With a negative l, -0 would give +0, and infinity would give NaN.
//
// See: N. Brisebarre, J.-M. Muller, "Correctly rounded multiplication by arbitrary precision constants", 2008; J.-M. Muller
// et al., "Handbook of Floating-Point Arithmetic", 2018.
//
// One check before all steps excludes smaller a. The differences are 0 or at least 2^-200 in size. So their products are 0 or at least
// 2^-400, and the products divided by n are multiples of 2^-483. An element is 0 or at least 2^-400 in size before the first step. A
// step makes it 0 or at least half as large, and rounds it to 53 bits: an element of at least 2^-k becomes a multiple of 2^-(k + 53).
// Then the step adds a multiple of 2^-483. So before the eighth step an element is 0 or at least 2^-(483 + 6 * 53) in size. Numbers
// that fail the check are divided by a division.

namespace kt_normal {
namespace {

using Vector = __m256d;

constexpr std::size_t lanes = 4;
constexpr double leastDifference = 0x1p-200;
constexpr double leastElement = 0x1p-400;
static_assert(rowsAtOnce == 8, "the least element is for so many steps, the divisors are two vectors");

/// The divisors of the steps, with h and l of each.
struct Divisors {
    Divisors(const double* counts, double less)
    {
        const Vector one = _mm256_set1_pd(1.0);
        for (std::size_t k = 0; k < rowsAtOnce; k += lanes) {
            const Vector b = _mm256_sub_pd(_mm256_loadu_pd(counts + k), _mm256_set1_pd(less));
            const Vector y = _mm256_div_pd(one, b);
            const Vector h = _mm256_mul_pd(y, _mm256_set1_pd(1.0 - 0x1p-51));
            _mm256_storeu_pd(divisor + k, b);
            _mm256_storeu_pd(high + k, h);
            _mm256_storeu_pd(low + k, _mm256_mul_pd(_mm256_fnmadd_pd(b, h, one), y));
        }
    }

    double divisor[rowsAtOnce];
    double high[rowsAtOnce];
    double low[rowsAtOnce];
};

/// The factors and divisors of the steps.
struct StepFactors {
    explicit StepFactors(const Steps& steps)
        : numRows(steps.numRows), byCount(steps.counts, 0.0), byOneLess(steps.counts, 1.0)
    {
        for (std::size_t k = 0; k < rowsAtOnce; k += lanes) {
            const Vector n = _mm256_sub_pd(_mm256_loadu_pd(steps.counts + k), _mm256_set1_pd(2.0));
            _mm256_storeu_pd(twoLess + k, n);
            _mm256_storeu_pd(twoLessLow + k, _mm256_mul_pd(n, _mm256_loadu_pd(byOneLess.low + k)));
        }
    }

    std::size_t numRows;
    Divisors byCount;
    Divisors byOneLess;
    double twoLess[rowsAtOnce];
    double twoLessLow[rowsAtOnce];
};

/// A step that replaces divisions by multiplications.
class Multiplying {
public:
    Multiplying(const StepFactors& factors, std::size_t step)
        : countHigh_(_mm256_set1_pd(factors.byCount.high[step])),
          countLow_(_mm256_set1_pd(factors.byCount.low[step])),
          oneLessHigh_(_mm256_set1_pd(factors.byOneLess.high[step])),
          twoLess_(_mm256_set1_pd(factors.twoLess[step])),
          twoLessLow_(_mm256_set1_pd(factors.twoLessLow[step]))
    {
    }

    Vector byCount(Vector a) const { return _mm256_fmadd_pd(a, countHigh_, _mm256_mul_pd(a, countLow_)); }

    /// (element * (n-2)) / (n-1)
    Vector kept(Vector element) const
    {
        const Vector a = _mm256_mul_pd(element, twoLess_);
        return _mm256_fmadd_pd(a, oneLessHigh_, _mm256_mul_pd(element, twoLessLow_));
    }

private:
    Vector countHigh_;
    Vector countLow_;
    Vector oneLessHigh_;
    Vector twoLess_;
    Vector twoLessLow_;
};

/// A step with plain divisions.
class Dividing {
public:
    Dividing(const StepFactors& factors, std::size_t step)
        : count_(_mm256_set1_pd(factors.byCount.divisor[step])),
          oneLess_(_mm256_set1_pd(factors.byOneLess.divisor[step])),
          twoLess_(_mm256_set1_pd(factors.twoLess[step]))
    {
    }

    Vector byCount(Vector a) const { return _mm256_div_pd(a, count_); }
    Vector kept(Vector element) const { return _mm256_div_pd(_mm256_mul_pd(element, twoLess_), oneLess_); }

private:
    Vector count_;
    Vector oneLess_;
    Vector twoLess_;
};

/// Loads and stores whole vectors.
struct WholeVector {
    Vector load(const double* values) const { return _mm256_loadu_pd(values); }
    void store(double* values, Vector vector) const { _mm256_storeu_pd(values, vector); }
};

/// Loads and stores the first 1 to 3 numbers of a vector.
struct PartOfVector {
    explicit PartOfVector(std::size_t size)
        : mask_(_mm256_cmpgt_epi64(_mm256_set1_epi64x(static_cast<long long>(size)), _mm256_setr_epi64x(0, 1, 2, 3)))
    {
    }
    Vector load(const double* values) const { return _mm256_maskload_pd(values, mask_); }
    void store(double* values, Vector vector) const { _mm256_maskstore_pd(values, mask_, vector); }

private:
    __m256i mask_;
};

/// The smallest size of all numbers other than 0, for each place of a vector.
class SmallestSize {
public:
    void add(Vector numbers)
    {
        // Subtracting 1 from the bits turns 0 into a NaN. With a NaN as its first operand, the instruction returns the second one.
        const __m256i size = _mm256_castpd_si256(_mm256_andnot_pd(_mm256_set1_pd(-0.0), numbers));
        value_ = _mm256_min_pd(_mm256_castsi256_pd(_mm256_sub_epi64(size, _mm256_set1_epi64x(1))), value_);
    }
    bool isBelow(double least) const
    {
        return _mm256_movemask_pd(_mm256_cmp_pd(value_, _mm256_set1_pd(least), _CMP_LT_OQ)) != 0;
    }

private:
    Vector value_ = _mm256_set1_pd(1.0);
};

/// A vector of means after the steps. Stores the differences, and adds them to `smallest`.
template <class Step, class Memory>
Vector learntMean(const StepFactors& factors, Memory memory, Vector mean, const double* rows, std::size_t stride,
                  double* differences, std::size_t size, SmallestSize& smallest)
{
    for (std::size_t k = 0; k < factors.numRows; ++k) {
        const Vector d = _mm256_sub_pd(memory.load(rows + k * stride), mean);
        smallest.add(d);
        mean = _mm256_add_pd(mean, Step(factors, k).byCount(d));
        memory.store(differences + k * size, d);
    }
    return mean;
}

/// Returns whether a difference was tiny.
template <class Memory>
bool learnMean(const StepFactors& factors, Memory memory, double* means, const double* rows, std::size_t stride,
               double* differences, std::size_t size)
{
    const Vector before = memory.load(means);
    SmallestSize smallest;
    Vector after = learntMean<Multiplying>(factors, memory, before, rows, stride, differences, size, smallest);
    const bool wasTiny = smallest.isBelow(leastDifference);
    if (wasTiny) {
        after = learntMean<Dividing>(factors, memory, before, rows, stride, differences, size, smallest);
    }
    memory.store(means, after);
    return wasTiny;
}

/// Returns whether a difference was tiny.
bool learnMeans(const StepFactors& factors, double* means, const double* rows, std::size_t stride, std::size_t size,
                double* differences)
{
    bool wasTiny = false;
    std::size_t i = 0;
    for (; i + lanes <= size; i += lanes) {
        wasTiny |= learnMean(factors, WholeVector(), means + i, rows + i, stride, differences + i, size);
    }
    if (i < size) {
        wasTiny |= learnMean(factors, PartOfVector(size - i), means + i, rows + i, stride, differences + i, size);
    }
    return wasTiny;
}

/// Vectors of elements in consecutive rows of a covariance, one below the other, and their differences.
struct BelowEachOther {
    double* elements;
    const double* ofRows;
    const double* ofColumns;
    std::size_t size;

    double* place(std::size_t vector) const { return elements + vector * size; }
    template <class Memory>
    Vector product(Memory memory, std::size_t step, std::size_t vector) const
    {
        return _mm256_mul_pd(_mm256_set1_pd(ofRows[step * size + vector]), memory.load(ofColumns + step * size));
    }
};

/// Consecutive vectors of variances, and their differences.
struct SideBySide {
    double* elements;
    const double* differences;
    std::size_t size;

    double* place(std::size_t vector) const { return elements + vector * lanes; }
    template <class Memory>
    Vector product(Memory memory, std::size_t step, std::size_t vector) const
    {
        const Vector d = memory.load(differences + step * size + vector * lanes);
        return _mm256_mul_pd(d, d);
    }
};

template <class Step, std::size_t NumVectors, class Memory, class Elements>
void learnVectors(const StepFactors& factors, Memory memory, const Elements& elements, Vector* sums)
{
    for (std::size_t k = 0; k < factors.numRows; ++k) {
        const Step step(factors, k);
        for (std::size_t v = 0; v < NumVectors; ++v) {
            sums[v] = _mm256_add_pd(step.kept(sums[v]), step.byCount(elements.product(memory, k, v)));
        }
    }
}

/// Applies the steps to vectors of elements.
template <std::size_t NumVectors, class Memory, class Elements>
void learnVectors(const StepFactors& factors, Memory memory, bool areDifferencesTiny, const Elements& elements)
{
    Vector sums[NumVectors];
    SmallestSize smallest;
    for (std::size_t v = 0; v < NumVectors; ++v) {
        sums[v] = memory.load(elements.place(v));
        smallest.add(sums[v]);
    }
    if (areDifferencesTiny || smallest.isBelow(leastElement)) {
        learnVectors<Dividing, NumVectors>(factors, memory, elements, sums);
    } else {
        learnVectors<Multiplying, NumVectors>(factors, memory, elements, sums);
    }
    for (std::size_t v = 0; v < NumVectors; ++v) {
        memory.store(elements.place(v), sums[v]);
    }
}

/// Applies the steps to the first elements of consecutive rows.
template <std::size_t NumRows>
void learnCovarianceRows(const StepFactors& factors, bool areTiny, BelowEachOther elements, std::size_t numColumns)
{
    std::size_t j = 0;
    for (; j + lanes <= numColumns; j += lanes) {
        learnVectors<NumRows>(factors, WholeVector(), areTiny, elements);
        elements.elements += lanes;
        elements.ofColumns += lanes;
    }
    if (j < numColumns) {
        learnVectors<NumRows>(factors, PartOfVector(numColumns - j), areTiny, elements);
    }
}

void joint(const Steps& steps, double* mean, double* covariance, Triangle triangle, const double* rows,
           std::size_t size, double* differences)
{
    const StepFactors factors(steps);
    const bool areTiny = learnMeans(factors, mean, rows, size, size, differences);
    std::size_t i = 0;
    for (; i + lanes <= size; i += lanes) {
        const std::size_t columns = triangle == Triangle::lower ? i + lanes : size;
        learnCovarianceRows<lanes>(factors, areTiny, {covariance + i * size, differences + i, differences, size},
                                   columns);
    }
    for (; i < size; ++i) {
        learnCovarianceRows<1>(factors, areTiny, {covariance + i * size, differences + i, differences, size}, size);
    }
}

void single(const Steps& steps, double* means, double* variances, const double* rows, std::size_t stride,
            std::size_t size, double* differences)
{
    const StepFactors factors(steps);
    const bool areTiny = learnMeans(factors, means, rows, stride, size, differences);
    std::size_t i = 0;
    for (; i + 4 * lanes <= size; i += 4 * lanes) {
        learnVectors<4>(factors, WholeVector(), areTiny, SideBySide{variances + i, differences + i, size});
    }
    for (; i + lanes <= size; i += lanes) {
        learnVectors<1>(factors, WholeVector(), areTiny, SideBySide{variances + i, differences + i, size});
    }
    if (i < size) {
        learnVectors<1>(factors, PartOfVector(size - i), areTiny, SideBySide{variances + i, differences + i, size});
    }
}

const LearningKernels kernels = {joint, single};

}  // namespace

const LearningKernels* const avx2Learning = &kernels;

}  // namespace kt_normal

#else

const kt_normal::LearningKernels* const kt_normal::avx2Learning = nullptr;

#endif
