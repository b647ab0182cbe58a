#pragma once

#include <clastool/training_data.h>

#include <vector>

/// Draws the patterns of one category from independent normal distributions, one a measurement. The numbers are the same on
/// every platform and in every run.
///
/// Copy: copies the generated data too, sharing the patterns.
class KT_API kt_ClassDataGenerator {
public:
    /// No measurements, no patterns.
    kt_ClassDataGenerator();
    /// `distribution`: mean and standard deviation of each measurement. Nothing is checked; fewer than 1 pattern is none.
    kt_ClassDataGenerator(const std::vector<ktPair<double>>& distribution, long numPatterns);
    kt_ClassDataGenerator(const kt_ClassDataGenerator&) = default;
    kt_ClassDataGenerator& operator=(const kt_ClassDataGenerator& other);
    ~kt_ClassDataGenerator() = default;

    /// Draws the data once, with seed 1, all with label 0; later calls give the same data again.
    ktClassifierDataProviderMemory generateData();

private:
    std::vector<ktPair<double>> distribution_;
    long numPatterns_ = 0;
    ktClassifierDataProviderMemory data_;
};

/// Puts the data of several class generators together, labels each pattern with the position of its generator, and returns
/// them in a random order.
///
/// Kept on purpose: both the patterns taken from each class and the patterns returned are counted by the number of
/// measurements. With M measurements, the first M patterns of each class are put one behind the other, and the first M of
/// those are shuffled and returned: all of them patterns of the first class that has any. docs/synthetic-data.md shows how
/// to combine all patterns instead.
/// Copy: copies the generated data too, sharing the patterns.
class KT_API kt_TotalDataGenerator {
public:
    /// No class generators.
    kt_TotalDataGenerator();
    /// Copies the generators; their positions become the labels.
    kt_TotalDataGenerator(const std::vector<kt_ClassDataGenerator>& classGenerators);
    kt_TotalDataGenerator(const kt_TotalDataGenerator&) = default;
    kt_TotalDataGenerator& operator=(const kt_TotalDataGenerator& other);
    ~kt_TotalDataGenerator() = default;

    /// Draws and shuffles the data once, with seed 1; later calls give the same data again.
    /// Throws: ktClassifierDefs::BadIndex "Feature pattern index must be >=0 and < number of patterns." if a class has
    /// patterns, but fewer than measurements; ktClassifierDefs::BadFeatures "Feature pattern must have the same number of
    /// measurements as the rest of the data." if classes that have patterns differ in their measurements.
    ktClassifierDataProviderMemory generateData();

private:
    std::vector<kt_ClassDataGenerator> classGenerators_;
    ktClassifierDataProviderMemory data_;
};
