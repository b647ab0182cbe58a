#pragma once

#include <kt/config.h>

#include <random>

// Both generators give the same bits on every platform and with every compiler, so they are built from integers, the
// four operations and comparisons alone: the standard library's distributions differ between its makers, and so do the
// logarithms and cosines of the usual transforms. Copy: a copy goes on with the same numbers.

/// Uniformly distributed numbers.
class KT_FOUNDATION_API ktRandomUniform {
public:
    /// Every seed is good, 0 included; equal seeds give equal numbers.
    explicit ktRandomUniform(unsigned long seed);

    /// low + (high - low) u with u a multiple of 2^-53 in [0, 1). For low < high the result is in [low, high); otherwise it is
    /// low.
    double next(double low, double high);

private:
    std::mt19937_64 engine_;
};

/// Normally distributed numbers.
class KT_FOUNDATION_API ktRandomGaussian {
public:
    /// Every seed is good, 0 included; equal seeds give equal numbers.
    explicit ktRandomGaussian(unsigned long seed);

    /// mean + standardDeviation z with z from the standard normal distribution. A negative standard deviation mirrors it.
    /// See: C. F. F. Karney, "Sampling exactly from the normal distribution", ACM Transactions on Mathematical Software,
    /// 2016: exact but for the 53 bits of its uniform numbers, and free of transcendental functions.
    double next(double mean, double standardDeviation);

private:
    double standardNormal();
    bool halfExponential();

    std::mt19937_64 engine_;
};
