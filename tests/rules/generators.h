#pragma once

#include "support/test.h"

// Classes that the tests of the data generators draw from.

namespace kt_test {

using Distribution = std::vector<ktPair<double>>;

/// Two measurements, around 10 and around -3.
inline const Distribution twoMeasurements = {{10.0, 2.0}, {-3.0, 0.5}};

/// A class of `patterns` patterns whose every measurement is `value`: nothing spreads.
inline kt_ClassDataGenerator constantClass(double value, std::size_t measurements, long patterns)
{
    return kt_ClassDataGenerator(Distribution(measurements, {value, 0.0}), patterns);
}

/// Patterns 0, 1, 2, ... of a class with this number of measurements.
inline kt_ClassDataGenerator normalClass(std::size_t measurements, long patterns)
{
    return kt_ClassDataGenerator(Distribution(measurements, {0.0, 1.0}), patterns);
}

inline void expectEmpty(ktClassifierDataProviderMemory data)
{
    EXPECT_TRUE(data == ktClassifierDataProviderMemory());
    EXPECT_EQ(data.numPatterns(), 0);
    EXPECT_EQ(data.numMeasurements(), 0);
}

}  // namespace kt_test
