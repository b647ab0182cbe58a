// Chooses the number of neighbours by what it costs in a cross-validation, and checks the choice on samples that took no
// part in it. Takes any file whose first column names the categories.

#include "common/errors.h"
#include "common/options.h"

#include <iomanip>
#include <iostream>

namespace {

/// Nearest neighbours on scaled measurements. The scaling is a part of the training: learnt from all of the data, it would
/// know something of the samples left out.
ktKit::Factory scaled(const ktClassifierTrainParams& params)
{
    return [&params](const ktClassifierDataProvider& training) {
        const ktKit::Scaler scaler(training);
        ktClassifierTool tool;
        tool.train(scaler.transform(training), params);
        return [scaler, tool](const ktFeaturePattern& pattern) {
            ktClassifierResult result;
            tool.run(*scaler.transform(pattern), result);
            return ktKit::decision(result).categoryLabel();
        };
    };
}

int crossValidate(const std::string& path, long numFolds, const std::string& cost, char** ks, int numKs)
{
    const ktKit::Table table = ktKit::readCsv(path);
    const ktClassifierCosts costs = examples::costsOf(table, cost);
    const std::vector<long> thirds = ktKit::stratifiedFolds(ktKit::labels(table.data), 3, 1);
    const ktKit::Split rows = ktKit::split(table.data, thirds, 0);
    const std::vector<long> folds = ktKit::stratifiedFolds(ktKit::labels(rows.training), numFolds, 1);
    std::cout << rows.training.numPatterns() << " samples in " << numFolds << " folds, costs " << cost
              << ".\n\n    k   mistakes   total cost\n";
    double least = -1.0;
    ktClassifierTrainParamsKNN best;
    for (int i = 0; i < numKs; ++i) {
        const ktClassifierTrainParamsKNN params(std::strtol(ks[i], nullptr, 10), ktPatternDistanceMetricNorm(), costs);
        const ktKit::ConfusionMatrix total = ktKit::crossValidate(rows.training, scaled(params), folds).total;
        std::cout << std::setw(5) << params.k() << std::setw(11) << total.mistakes() << std::setw(13)
                  << total.cost(costs) << "\n";
        if (least < 0.0 || total.cost(costs) < least) {
            least = total.cost(costs);
            best = params;
        }
    }
    // The least of several costs flatters the k that was chosen by it, so other samples judge it.
    ktKit::ConfusionMatrix counts(table.labelNames);
    counts += ktKit::crossValidate(table.data, scaled(best), thirds).folds[0];
    std::cout << "\nCheapest is k = " << best.k() << ". Trained on all of them, on " << counts.total() << " others:\n"
              << counts << "total cost: " << counts.cost(costs) << "\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc > 4 ? crossValidate(argv[1], std::strtol(argv[2], nullptr, 10), argv[3], argv + 4, argc - 4)
                        : throw std::runtime_error("usage: cross_validate CSV FOLDS CATEGORY=COST K...");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
