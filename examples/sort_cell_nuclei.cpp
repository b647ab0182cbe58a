// Sorts biopsies into malignant and benign ones by their nearest neighbours, and shows what costs, stored files and loaded
// tools do to the decisions.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/scaling.h"
#include "common/stored_tool.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace examples;

namespace {

std::vector<ktClassifierResult> runAll(const ktClassifierTool& tool, const std::vector<Sample>& samples)
{
    std::vector<ktClassifierResult> results(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        tool.run(ktFeaturePattern(samples[i].measurements, {}), results[i]);
    }
    return results;
}

void printDecisions(const std::vector<Sample>& samples, const std::vector<ktClassifierResult>& results,
                    const ktClassifierCosts& equalCosts, const ktClassifierCosts& unequalCosts)
{
    ConfusionMatrix matrix;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        matrix.add(samples[i].label, decision(results[i]));
    }
    print(matrix);
    std::cout << "  total cost: " << std::fixed << std::setprecision(0) << matrix.totalCost(equalCosts)
              << " with equal costs, " << matrix.totalCost(unequalCosts)
              << " if a missed malignant sample costs 10\n\n";
}

void printResult(const ktClassifierResult& result)
{
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  " << (category.categoryLabel() == malignant ? "malignant" : "benign   ") << std::fixed
                  << std::setprecision(3) << "  match score " << category.matchScore() << "  expected cost "
                  << category.expectedCost() << "\n";
    }
}

/// Says how many decisions the costs moved, and shows the first of them.
void printWhatMoved(const std::vector<ktClassifierResult>& before, const std::vector<ktClassifierResult>& after)
{
    std::size_t first = before.size();
    int moved = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (decision(before[i]) != decision(after[i])) {
            first = std::min(first, i);
            ++moved;
        }
    }
    std::cout << "The costs moved " << moved << " decisions.";
    if (moved > 0) {
        std::cout << " The first of them, test row " << first + 1 << ", with equal costs:\n";
        printResult(before[first]);
        std::cout << "and if a missed malignant sample costs 10:\n";
        printResult(after[first]);
    }
    std::cout << "\n";
}

std::size_t numDifferent(const std::vector<ktClassifierResult>& a, const std::vector<ktClassifierResult>& b)
{
    std::size_t different = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        different += a[i] != b[i] ? 1 : 0;
    }
    return different;
}

struct RemovedAtTheEnd {
    std::string path;
    ~RemovedAtTheEnd() { std::remove(path.c_str()); }
};

void storeInFile(ktClassifierTool& tool, const std::string& path)
{
    std::ofstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": cannot be written");
    }
    store(tool, file);
    file.close();  // only now does it show whether the disk took everything
    if (!file) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

ktClassifierTool loadFromFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return load(file, path);
}

int sortCellNuclei(const std::string& csvPath, const std::string& toolPath)
{
    const CellNuclei data = readCellNuclei(csvPath);
    const Split rows = splitSamples(data.samples);
    const Scaling scaling(rows.training);
    const std::vector<Sample> test = scaling(rows.test);
    std::cout << data.samples.size() << " samples of " << data.names.size() << " measurements each. Every third one, "
              << test.size() << " in all, is for the test; the tool learns from the other " << rows.training.size()
              << ".\n\n";

    const ktClassifierCosts equalCosts(1.0);
    ktClassifierCosts unequalCosts(1.0);
    unequalCosts.misclassificationCostOverride(malignant, benign, 10.0);

    const long k = 7;
    ktClassifierTool tool;
    tool.train(trainingSet(scaling(rows.training)),
               ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(2.0), equalCosts));
    const std::vector<ktClassifierResult> equalResults = runAll(tool, test);
    std::cout << k << " nearest neighbours, each mistake costs 1:\n";
    printDecisions(test, equalResults, equalCosts, unequalCosts);

    // Other costs take effect without training again.
    tool.retrain(ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(2.0), unequalCosts));
    const std::vector<ktClassifierResult> results = runAll(tool, test);
    std::cout << k << " nearest neighbours, a malignant sample called benign costs 10, the reverse 1:\n";
    printDecisions(test, results, equalCosts, unequalCosts);
    printWhatMoved(equalResults, results);

    if (std::filesystem::exists(toolPath)) {
        throw std::runtime_error(toolPath + ": is already there and would be overwritten");
    }
    const RemovedAtTheEnd remover{toolPath};
    storeInFile(tool, toolPath);
    ktClassifierTool loaded = loadFromFile(toolPath);

    // A loaded nearest-neighbour tool holds its parameters but runs with k = 1 and unit costs until they are applied.
    std::cout << "Stored and loaded: " << numDifferent(results, runAll(loaded, test)) << " of " << test.size()
              << " answers differ before the stored parameters are applied, ";
    loaded.retrain(*loaded.trainParams(), nullptr, 0);
    const std::size_t different = numDifferent(results, runAll(loaded, test));
    std::cout << different << " afterwards.\n";
    return different == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: sort_cell_nuclei CELL_NUCLEI_CSV [FILE_FOR_THE_TRAINED_TOOL]\n";
        return 1;
    }
    try {
        return sortCellNuclei(argv[1], argc == 3 ? argv[2] : "sort_cell_nuclei.tool");
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
