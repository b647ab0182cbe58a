#pragma once

#include <cmath>
#include <cstddef>

template <class Term>
double kt_sumOf(const double* x, const double* q, std::size_t size, double scale, Term term)
{
    constexpr std::size_t numSums = 4;
    double sums[numSums] = {};
    std::size_t j = 0;
    for (; j + numSums <= size; j += numSums) {
        for (std::size_t k = 0; k < numSums; ++k) {
            sums[k] += term((x[j + k] - q[j + k]) * scale);
        }
    }
    for (; j < size; ++j) {
        sums[0] += term((x[j] - q[j]) * scale);
    }
    return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

/// The sum of |x - q|^p by plain arithmetic, for p = 2, 1, 3 and 0.5. Differences are multiplied by the scale. The sum is exact except
/// for rounding, and for terms that are subnormal or the root of a subnormal difference, which lose at most 2^-500 each.
inline double kt_simpleSum(const double* x, const double* q, std::size_t size, double p, double scale)
{
    if (p == 2.0) {
        return kt_sumOf(x, q, size, scale, [](double difference) { return difference * difference; });
    }
    if (p == 1.0) {
        return kt_sumOf(x, q, size, scale, [](double difference) { return std::abs(difference); });
    }
    if (p == 3.0) {
        return kt_sumOf(x, q, size, scale,
                        [](double difference) { return difference * difference * std::abs(difference); });
    }
    return kt_sumOf(x, q, size, scale, [](double difference) { return std::sqrt(std::abs(difference)); });
}
