// Loads a tool once and lets many threads run it at the same time; then gives them other costs while they run.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/scaling.h"
#include "common/stored_tool.h"

#include <atomic>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace examples;

namespace {

constexpr unsigned numThreads = 8;

/// Calls work(i) for every i below `count`, each on the next thread that is free. The first exception ends the work and is
/// thrown again here: one that left a thread would end the program.
void inParallel(std::size_t count, const std::function<void(std::size_t)>& work)
{
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::exception_ptr failure;
    const auto takeTurns = [&] {
        try {
            for (std::size_t i = next++; i < count; i = next++) {
                work(i);
            }
        } catch (...) {
            next = count;
            const std::lock_guard<std::mutex> lock(mutex);
            failure = failure ? failure : std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < numThreads; ++i) {
        threads.emplace_back(takeTurns);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/// The tool that is in use. Who takes it keeps it until the handle is dropped, whatever is published meanwhile; nobody
/// changes a tool that was published, so it needs no lock to run.
class CurrentTool {
public:
    explicit CurrentTool(const ktClassifierTool& tool) { publish(tool); }

    void publish(const ktClassifierTool& tool)
    {
        auto copy = std::make_shared<const ktClassifierTool>(tool);
        const std::lock_guard<std::mutex> lock(mutex_);
        tool_ = std::move(copy);
    }
    std::shared_ptr<const ktClassifierTool> get() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return tool_;
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const ktClassifierTool> tool_;
};

using Results = std::vector<ktClassifierResult>;

Results runOnOneThread(const ktClassifierTool& tool, const std::vector<ktFeaturePattern>& patterns)
{
    Results results(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        tool.run(patterns[i], results[i]);
    }
    return results;
}

int runInThreads(const std::string& csvPath)
{
    const Split rows = splitSamples(readCellNuclei(csvPath).samples);
    const Scaling scaling(rows.training);
    const ktClassifierTrainParamsKNN equalCosts(7);
    ktClassifierTool trained;
    trained.train(trainingSet(scaling(rows.training)), equalCosts);

    // Loading and retraining need the tool alone, so they come first.
    ktClassifierTool tool = toolFrom(bytesOf(trained));
    tool.retrain(*tool.trainParams());

    std::vector<ktFeaturePattern> patterns;
    for (const Sample& sample : scaling(rows.test)) {
        patterns.emplace_back(sample.measurements, std::vector<long>());
    }
    const Results expected = runOnOneThread(tool, patterns);

    // `run` is const and keeps nothing, so all threads share one tool without a lock; each has a result of its own.
    const std::size_t count = 20 * patterns.size();
    std::atomic<long> numDifferent{0};
    inParallel(count, [&](std::size_t i) {
        ktClassifierResult result;
        tool.run(patterns[i % patterns.size()], result);
        numDifferent += result != expected[i % patterns.size()] ? 1 : 0;
    });
    std::cout << numThreads << " threads, one tool: " << count << " runs, " << numDifferent
              << " answers differ from those of one thread.\n";

    // Other costs are given to a tool that only this thread knows; the others go on with the one they have.
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(malignant, benign, 10.0);
    const ktClassifierTrainParamsKNN unequalCosts(7, ktPatternDistanceMetricNorm(2.0), costs);
    ktClassifierTool retrained(tool);
    retrained.retrain(unequalCosts);
    const Results expectedLater = runOnOneThread(retrained, patterns);

    CurrentTool current(tool);
    std::atomic<long> numStrange{0};
    inParallel(count, [&](std::size_t i) {
        if (i == count / 2) {
            current.publish(retrained);
        }
        ktClassifierResult result;
        current.get()->run(patterns[i % patterns.size()], result);
        const bool isKnown = result == expected[i % patterns.size()] || result == expectedLater[i % patterns.size()];
        numStrange += isKnown ? 0 : 1;
    });
    std::cout << numThreads << " threads, new costs half way: " << count << " runs, " << numStrange
              << " answers by neither the old nor the new costs.\n";
    return numDifferent == 0 && numStrange == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: run_in_threads CELL_NUCLEI_CSV\n";
        return 1;
    }
    try {
        return runInThreads(argv[1]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
