#include "kit.h"

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

LabelledPatterns drawPatterns(long numPatterns, long numMeasurements, long numCategories, unsigned long seed)
{
    ktRandomGaussian centreSource(1);
    std::vector<double> centres(static_cast<std::size_t>(numCategories * numMeasurements));
    for (double& centre : centres) {
        centre = centreSource.next(0.0, 0.5);
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

ktClassifierDataProviderMemory asProvider(const LabelledPatterns& data)
{
    ktClassifierDataProviderMemory provider;
    provider.data(data.patterns, data.labels);
    return provider;
}

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    addBenchmarks();
    require(benchmark::RunSpecifiedBenchmarks() > 0, "No benchmark has such a name");
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
