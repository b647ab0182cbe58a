// Chooses the number of neighbours by what it costs in a cross-validation, and checks the choice on samples that took no
// part in it.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/scaling.h"

#include <array>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

using namespace examples;

namespace {

struct Fold {
    std::vector<Sample> training;
    std::vector<Sample> test;
};

/// Leaves one fold of the data out for the test. The samples of each category are dealt out like cards, so that every fold
/// has its share of both.
Fold foldOf(ktClassifierDataProvider& data, long numFolds, long leftOut)
{
    Fold fold;
    std::array<long, 2> numSeen = {0, 0};
    for (long i = 0; i < data.numPatterns(); ++i) {
        const long label = data.categoryLabel(i);
        const bool isLeftOut = numSeen.at(static_cast<std::size_t>(label))++ % numFolds == leftOut;
        (isLeftOut ? fold.test : fold.training).push_back({data.featurePattern(i)->featureMeasurements(true), label});
    }
    return fold;
}

/// Trains on all folds but one and runs on that one, for each of them in turn. Takes the parameters of any technique. The
/// scaling is a part of the training: learnt from all of the data, it would know something of the samples left out.
ConfusionMatrix crossValidate(ktClassifierDataProvider& data, long numFolds, const ktClassifierTrainParams& params)
{
    ConfusionMatrix matrix;
    for (long leftOut = 0; leftOut < numFolds; ++leftOut) {
        const Fold fold = foldOf(data, numFolds, leftOut);
        const Scaling scaling(fold.training);
        ktClassifierTool tool;
        tool.train(trainingSet(scaling(fold.training)), params);
        for (const Sample& sample : scaling(fold.test)) {
            ktClassifierResult result;
            tool.run(ktFeaturePattern(sample.measurements, {}), result);
            matrix.add(sample.label, decision(result));
        }
    }
    return matrix;
}

/// Prints a row for each k, and returns the k of least cost, of several the first.
long cheapest(ktClassifierDataProvider& data, long numFolds, const std::vector<long>& ks,
              const ktClassifierCosts& costs)
{
    std::cout << "    k   mistakes   error rate   total cost\n" << std::fixed;
    double leastCost = std::numeric_limits<double>::infinity();
    long best = 0;
    for (const long k : ks) {
        const ConfusionMatrix matrix =
            crossValidate(data, numFolds, ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(2.0), costs));
        const double errorRate = 100.0 * static_cast<double>(matrix.mistakes()) / static_cast<double>(matrix.total());
        const double cost = matrix.totalCost(costs);
        std::cout << std::setw(5) << k << std::setw(11) << matrix.mistakes() << std::setprecision(1) << std::setw(11)
                  << errorRate << " %" << std::setprecision(0) << std::setw(13) << cost << "\n";
        if (cost < leastCost) {
            leastCost = cost;
            best = k;
        }
    }
    return best;
}

void printMatrix(const ConfusionMatrix& matrix, const ktClassifierCosts& costs)
{
    print(matrix);
    std::cout << "  total cost: " << std::setprecision(0) << matrix.totalCost(costs) << "\n\n";
}

int crossValidateCellNuclei(const std::string& csvPath, long numFolds, const std::vector<long>& ks)
{
    const Split rows = splitSamples(readCellNuclei(csvPath).samples);
    ktClassifierDataProviderMemory data = trainingSet(rows.training);
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(malignant, benign, 10.0);

    std::cout << data.numPatterns() << " samples in " << numFolds
              << " folds. A malignant sample called benign costs 10, the reverse 1.\n\n";
    const long k = cheapest(data, numFolds, ks, costs);
    const ktClassifierTrainParamsKNN params(k, ktPatternDistanceMetricNorm(2.0), costs);
    std::cout << "\nCheapest is k = " << k << ". All folds together:\n";
    printMatrix(crossValidate(data, numFolds, params), costs);

    const ktClassifierTrainParamsBayesian bayes({}, ktClassifierFrequencies(), costs);
    std::cout << "The same folds by independent normal densities:\n";
    printMatrix(crossValidate(data, numFolds, bayes), costs);

    // The least of several costs flatters the k that was chosen by it, so other samples judge it.
    const Scaling scaling(rows.training);
    ktClassifierTool tool;
    tool.train(trainingSet(scaling(rows.training)), params);
    ConfusionMatrix matrix;
    for (const Sample& sample : scaling(rows.test)) {
        ktClassifierResult result;
        tool.run(ktFeaturePattern(sample.measurements, {}), result);
        matrix.add(sample.label, decision(result));
    }
    std::cout << "k = " << k << " trained on all " << data.numPatterns() << " samples, on " << rows.test.size()
              << " others:\n";
    printMatrix(matrix, costs);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const long numFolds = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 0;
    if (argc < 4 || numFolds < 2) {
        std::cerr << "usage: cross_validate CELL_NUCLEI_CSV FOLDS K...\n";
        return 1;
    }
    try {
        std::vector<long> ks;
        for (int i = 3; i < argc; ++i) {
            ks.push_back(std::strtol(argv[i], nullptr, 10));
        }
        return crossValidateCellNuclei(argv[1], numFolds, ks);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
