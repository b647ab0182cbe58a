// How long the kit's operations take, each the best of several rounds in one run:
//
//     kit_times [ROUNDS]
//
// Runs of 10,000 patterns of 16 measurements one by one and by ktKit::runAll; a cross-validation of as many, on one and on
// two threads; and reading a table of 100,000 by 16 numbers, by OpenCV too if it was compiled with it. The table is left in the
// folder as kit_times.csv for bench/csv_peers.py.

#include <clastool/kit.h>

#if defined(KT_BENCHMARK_PEERS)
#include <opencv2/ml.hpp>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

namespace {

constexpr std::size_t numMeasurements = 16;
constexpr long numLabels = 10;

/// Patterns around a center for each category.
std::vector<double> drawn(std::size_t numRows, unsigned long seed)
{
    ktRandomGaussian random(seed);
    std::vector<double> rows;
    for (std::size_t i = 0; i < numRows * numMeasurements; ++i) {
        const auto label = static_cast<double>(i / numMeasurements % numLabels);
        const auto measurement = static_cast<double>(i % numMeasurements);
        rows.push_back(random.next(label * (measurement - 7.5) / 4.0, 2.0));
    }
    return rows;
}

void report(const std::string& what, int rounds, const std::function<void()>& work)
{
    double best = std::numeric_limits<double>::infinity();
    for (int round = 0; round < rounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
        best = std::min(best, took.count());
    }
    std::printf("%-60s %10.1f ms\n", what.c_str(), best);
    std::fflush(stdout);
}

ktKit::Patterns patternsOf(const std::vector<double>& rows)
{
    ktKit::Patterns patterns;
    for (std::size_t i = 0; i < rows.size(); i += numMeasurements) {
        patterns.push_back(ktKit::pattern(rows.data() + i, numMeasurements));
    }
    return patterns;
}

ktClassifierDataProviderMemory dataOf(const ktKit::Patterns& patterns)
{
    ktClassifierDataProviderMemory data;
    for (const auto& pattern : patterns) {
        data.addData(pattern, data.numPatterns() % numLabels);
    }
    return data;
}

void timeRuns(const std::string& name, const ktClassifierTool& tool, int rounds)
{
    const std::vector<double> rows = drawn(10000, 2);
    const ktKit::Patterns queries = patternsOf(rows);
    report(name + ": 10,000 runs one by one", rounds, [&] {
        std::vector<ktClassifierResult> results(queries.size());
        for (std::size_t i = 0; i < queries.size(); ++i) {
            tool.run(*queries[i], results[i]);
        }
    });
    report(name + ": runAll of patterns", rounds, [&] { ktKit::runAll(tool, queries); });
    report(name + ": runAll of patterns, 2 threads", rounds, [&] { ktKit::runAll(tool, queries, 2); });
    report(name + ": runAll of rows", rounds, [&] { ktKit::runAll(tool, rows.data(), 10000, numMeasurements); });
}

void timeTables(int rounds)
{
    constexpr std::size_t numRows = 100000;
    const std::vector<double> rows = drawn(numRows, 3);
    const std::string path = "kit_times.csv";
    {
        std::ofstream file(path);
        file.precision(10);
        file << "label";
        for (std::size_t j = 0; j < numMeasurements; ++j) {
            file << ",m" << j;
        }
        for (std::size_t i = 0; i < numRows; ++i) {
            file << "\n" << i % numLabels;
            for (std::size_t j = 0; j < numMeasurements; ++j) {
                file << "," << rows[i * numMeasurements + j];
            }
        }
        file << "\n";
    }
    report("readCsv of 100,000 x 16", rounds, [&] { ktKit::readCsv(path); });
#if defined(KT_BENCHMARK_PEERS)
    report("OpenCV, TrainData::loadFromCSV", rounds, [&] { cv::ml::TrainData::loadFromCSV(path, 1, 0, 1); });
#endif
}

}  // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 3;
    const ktKit::Patterns patterns = patternsOf(drawn(10000, 1));
    const ktClassifierDataProviderMemory data = dataOf(patterns);
    const ktClassifierTrainParamsKNN knn(5);
    const ktClassifierTrainParamsBayesian bayes;
    ktClassifierTool tool;
    tool.train(data, knn);
    timeRuns("nearest neighbours", tool, rounds);
    tool.train(data, bayes);
    timeRuns("Bayes", tool, rounds);
    const std::vector<long> folds = ktKit::stratifiedFolds(ktKit::labels(data), 10, 1);
    for (const unsigned threads : {1U, 2U}) {
        const std::string number = ", " + std::to_string(threads) + (threads == 1 ? " thread" : " threads");
        report("nearest neighbours: cross-validation of 10,000 x 16" + number, rounds,
               [&] { ktKit::crossValidate(data, knn, folds, threads); });
        report("Bayes: cross-validation of 10,000 x 16" + number, rounds,
               [&] { ktKit::crossValidate(data, bayes, folds, threads); });
    }
    timeTables(rounds);
    return 0;
}
