// Lets many threads run one loaded tool at the same time; then gives them other costs while they run. Takes any file whose first
// column names the categories.

#include "common/errors.h"
#include "common/options.h"

#include <atomic>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using Results = std::vector<ktClassifierResult>;

int runInThreads(const std::string& csvPath)
{
    const ktKit::Table table = ktKit::readCsv(csvPath);
    const ktKit::Split rows = ktKit::split(table.data, ktKit::stratifiedFolds(ktKit::labels(table.data), 3, 1), 0);
    const ktKit::Scaler scaler(rows.training);
    ktClassifierTool tool;
    tool.train(scaler.transform(rows.training), ktClassifierTrainParamsKNN(7));
    ktKit::Patterns patterns;
    for (int i = 0; i < 20; ++i) {
        const ktKit::Patterns test = ktKit::patterns(scaler.transform(rows.test));
        patterns.insert(patterns.end(), test.begin(), test.end());
    }
    const Results expected = ktKit::runAll(tool, patterns);
    const bool isSame = ktKit::runAll(tool, patterns, 8) == expected;
    std::cout << "8 threads, one tool: " << patterns.size() << " runs, " << (isSame ? "the answers" : "other answers")
              << " of one thread.\n";

    // Other costs are given to a tool that only this thread knows; the others go on with the one they have.
    ktClassifierTool retrained(tool);
    const ktClassifierCosts costs = examples::costsOf(table, table.data.categoryLabel(0), 10.0);
    retrained.retrain(ktClassifierTrainParamsKNN(7, costs));
    const Results expectedLater = ktKit::runAll(retrained, patterns);
    // The tool that is in use. Who takes it keeps it until the handle is dropped, whatever is published meanwhile; nobody
    // changes a tool that was published, so it needs no lock to run.
    auto current = std::make_shared<const ktClassifierTool>(tool);
    std::mutex mutex;
    const auto get = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return current;
    };
    std::atomic<int> numStrange{0};
    std::thread worker([&] {
        for (int round = 0; round < 8; ++round) {
            const Results found = ktKit::runAll(*get(), patterns, 4);
            numStrange += found == expected || found == expectedLater ? 0 : 1;
        }
    });
    {
        const auto published = std::make_shared<const ktClassifierTool>(retrained);
        const std::lock_guard<std::mutex> lock(mutex);
        current = published;
    }
    worker.join();
    std::cout << "New costs while they run: " << numStrange << " rounds by neither the old nor the new costs.\n";
    return isSame && numStrange == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 2 ? runInThreads(argv[1]) : throw std::runtime_error("usage: run_in_threads CSV");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
