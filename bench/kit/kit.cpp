#include "kit.h"

#include "digits.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>

void addBenchmark(const std::string& name, std::function<void(benchmark::State&)> run)
{
    benchmark::RegisterBenchmark(name.c_str(), std::move(run))->Unit(benchmark::kMicrosecond);
}

void require(bool holds, const std::string& what)
{
    if (!holds) {
        std::cerr << what << "\n";
        std::exit(EXIT_FAILURE);
    }
}

void requireNear(double value, double expected, double tolerance, const std::string& what)
{
    require(std::abs(value - expected) <= tolerance,
            what + ": " + std::to_string(value) + " instead of " + std::to_string(expected));
}

LabelledPatterns drawPatterns(long numPatterns, long numMeasurements, long numCategories, unsigned long seed,
                              double spread)
{
    ktRandomGaussian centreSource(1);
    std::vector<double> centres(static_cast<std::size_t>(numCategories * numMeasurements));
    for (double& centre : centres) {
        centre = centreSource.next(0.0, spread);
    }
    ktRandomGaussian source(seed);
    LabelledPatterns data;
    std::vector<double> values(static_cast<std::size_t>(numMeasurements));
    for (long i = 0; i < numPatterns; ++i) {
        const long label = i % numCategories;
        for (std::size_t j = 0; j < values.size(); ++j) {
            values[j] = source.next(centres[static_cast<std::size_t>(label) * values.size() + j], 1.0);
        }
        data.patterns.push_back(new ktFeaturePattern(values, {}));
        data.labels.push_back(label);
    }
    return data;
}

LabelledPatterns drawKind(const std::string& kind, long numPatterns, long numMeasurements, unsigned long seed)
{
    constexpr long numCategories = 5;
    if (kind == "overlapping" || kind == "separated") {
        const double spread = kind == "separated" ? 5.0 : 0.5;
        return drawPatterns(numPatterns, numMeasurements, numCategories, seed, spread);
    }
    if (kind == "digits-like") {
        return drawDigits(numPatterns, numMeasurements, numCategories, seed);
    }
    require(kind == "uniform", "No kind of data is called " + kind);
    ktRandomUniform source(seed);
    LabelledPatterns data;
    std::vector<double> values(static_cast<std::size_t>(numMeasurements));
    for (long i = 0; i < numPatterns; ++i) {
        std::generate(values.begin(), values.end(), [&] { return source.next(0.0, 1.0); });
        data.patterns.push_back(new ktFeaturePattern(values, {}));
        data.labels.push_back(i % numCategories);
    }
    return data;
}

ktClassifierDataProviderMemory asProvider(const LabelledPatterns& data)
{
    ktClassifierDataProviderMemory provider;
    provider.data(data.patterns, data.labels);
    return provider;
}
