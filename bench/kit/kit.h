#pragma once

#include <clastool/clastool.h>

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

// What the benchmark programs share. A program defines `addBenchmarks`; the kit has the `main`.

void addBenchmarks();

/// Names are `program/what/size/who`. Times are in microseconds.
void addBenchmark(const std::string& name, std::function<void(benchmark::State&)> run);

/// Ends the program with a message if something does not hold: times of wrong answers are worth nothing.
void require(bool holds, const std::string& what);
void requireNear(double value, double expected, double tolerance, const std::string& what);

struct LabelledPatterns {
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns;
    std::vector<long> labels;

    const std::vector<double>& values(std::size_t i) const { return patterns[i]->featureMeasurements(false); }
    std::size_t size() const { return patterns.size(); }
};

/// Patterns of overlapping categories, in turn: each measurement is normally distributed with a standard deviation of 1 around
/// its category's centre, and the centres are normally distributed with one of `spread`. One seed always gives the same
/// patterns, and all seeds have the same centres.
LabelledPatterns drawPatterns(long numPatterns, long numMeasurements, long numCategories, unsigned long seed,
                              double spread = 0.5);

/// Data of one of these kinds, with 5 categories in turn:
/// - overlapping: as above; separated: the same with centres 10 times as far apart;
/// - uniform: each measurement in [0, 1), whatever the category;
/// - digits-like: pictures of as many measurements as a square has places, see kit/digits.h.
LabelledPatterns drawKind(const std::string& kind, long numPatterns, long numMeasurements, unsigned long seed);

ktClassifierDataProviderMemory asProvider(const LabelledPatterns& data);

/// What the benchmarks of one case share, made when the first of them runs and kept until one of another case does, so that
/// only one case is in memory.
template <class Fixture, class Case>
Fixture& fixtureOf(const Case& wanted)
{
    static std::unique_ptr<Fixture> held;
    static Case heldCase;
    if (!held || !(heldCase == wanted)) {
        held.reset();
        held = std::make_unique<Fixture>(wanted);
        heldCase = wanted;
    }
    return *held;
}

/// One iteration is `run(i)` for the next of `count` queries, which come again and again in turn.
template <class Run>
void timeInTurn(benchmark::State& state, std::size_t count, const Run& run)
{
    std::size_t next = 0;
    for (auto _ : state) {
        run(next);
        benchmark::ClobberMemory();
        next = next + 1 == count ? 0 : next + 1;
    }
}
