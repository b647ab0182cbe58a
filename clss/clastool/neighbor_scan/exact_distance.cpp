// The definition of the distance, in its own file because of its compiler flags. docs/neighbor-scan.md, "The way of a run", says when
// it is used.

#include "exact_distance.h"

#include <cmath>

double kt_exactDistance(const double* a, const double* b, std::size_t size, double order)
{
    if (size == 0) {
        return 0.0;  // also for an infinite order, at which the formula would raise 0 to the power of 0
    }
    double sum = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        sum += std::pow(std::abs(a[i] - b[i]), order);
    }
    return std::pow(sum, 1.0 / order);
}
