#pragma once

#include <cstddef>

/// The Minkowski distance as it is defined: terms in ascending order, a general power for every order. It is compiled with flags that
/// forbid the compiler to replace the power, because pow(x, 2) is not x * x for every x.
double kt_exactDistance(const double* a, const double* b, std::size_t size, double order);
