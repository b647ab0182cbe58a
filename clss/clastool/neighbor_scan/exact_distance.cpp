#include "exact_distance.h"

#include <cmath>

double kt_exactDistance(const double* a, const double* b, std::size_t size, double order)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        sum += std::pow(std::abs(a[i] - b[i]), order);
    }
    return std::pow(sum, 1.0 / order);
}
