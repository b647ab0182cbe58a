#include <clastool/data_generators.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace {

constexpr unsigned long seed = 1;

/// The numbers 0 to size - 1 in a random order, by exchanging each with one drawn from all of them.
std::vector<long> shuffledIndices(long size)
{
    std::vector<long> indices(static_cast<std::size_t>(size));
    std::iota(indices.begin(), indices.end(), 0L);
    ktRandomUniform random(seed);
    for (std::size_t i = 0; i < indices.size(); ++i) {
        const auto drawn = static_cast<long>(random.next(0.0, static_cast<double>(size)));
        std::swap(indices[static_cast<std::size_t>(std::min(drawn, size - 1))], indices[i]);
    }
    return indices;
}

}  // namespace

kt_ClassDataGenerator::kt_ClassDataGenerator() = default;

kt_ClassDataGenerator::kt_ClassDataGenerator(const std::vector<ktPair<double>>& distribution, long numPatterns)
    : distribution_(distribution), numPatterns_(numPatterns)
{
}

kt_ClassDataGenerator& kt_ClassDataGenerator::operator=(const kt_ClassDataGenerator& other)
{
    auto distribution = other.distribution_;
    data_ = other.data_;  // as a whole or not at all
    distribution_.swap(distribution);
    numPatterns_ = other.numPatterns_;
    return *this;
}

ktClassifierDataProviderMemory kt_ClassDataGenerator::generateData()
{
    if (data_.numMeasurements() == 0 && numPatterns_ > 0) {
        // Drawn aside, so that running out of memory half way leaves nothing behind.
        ktClassifierDataProviderMemory drawn;
        ktRandomGaussian random(seed);
        std::vector<double> values(distribution_.size());
        for (long i = 0; i < numPatterns_; ++i) {
            for (std::size_t j = 0; j < values.size(); ++j) {
                values[j] = random.next(distribution_[j].first, distribution_[j].second);
            }
            drawn.addData(new ktFeaturePattern(values, {}), 0);
        }
        data_ = drawn;
    }
    return data_;
}

kt_TotalDataGenerator::kt_TotalDataGenerator() = default;

kt_TotalDataGenerator::kt_TotalDataGenerator(const std::vector<kt_ClassDataGenerator>& classGenerators)
    : classGenerators_(classGenerators)
{
}

kt_TotalDataGenerator& kt_TotalDataGenerator::operator=(const kt_TotalDataGenerator& other)
{
    auto classGenerators = other.classGenerators_;
    data_ = other.data_;  // as a whole or not at all
    classGenerators_.swap(classGenerators);
    return *this;
}

ktClassifierDataProviderMemory kt_TotalDataGenerator::generateData()
{
    if (data_.numMeasurements() != 0 || classGenerators_.empty()) {
        return data_;
    }
    ktClassifierDataProviderMemory collected;
    for (std::size_t c = 0; c < classGenerators_.size(); ++c) {
        ktClassifierDataProviderMemory classData = classGenerators_[c].generateData();
        // Kept on purpose: bounded by the number of measurements, not of patterns, here and below.
        for (long i = 0; i < classData.numMeasurements(); ++i) {
            collected.addData(classData.featurePattern(i), static_cast<long>(c));
        }
    }
    ktClassifierDataProviderMemory shuffled;
    for (const long index : shuffledIndices(collected.numMeasurements())) {
        shuffled.addData(collected.featurePattern(index), collected.categoryLabel(index));
    }
    data_ = shuffled;
    return data_;
}
