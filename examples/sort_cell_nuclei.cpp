// Sorts biopsies into malignant and benign ones by their nearest neighbours, and shows what costs and stored files do to the
// decisions. Takes any file whose first column names the categories; missing that of the first row is what costs more.

#include "common/errors.h"
#include "common/options.h"

#include <filesystem>
#include <iostream>

namespace {

void printDecisions(const std::string& title, const ktKit::Split& rows, const std::vector<ktClassifierResult>& results,
                    const ktKit::Table& table, const ktClassifierCosts& costs)
{
    const ktKit::ConfusionMatrix matrix = examples::counted(rows.test, results, table.labelNames);
    std::cout << title << ":\n"
              << matrix << "total cost: " << matrix.cost({}) << " with equal costs, " << matrix.cost(costs)
              << " with costs " << examples::nameOf(table, table.data.categoryLabel(0)) << "=10\n\n";
}

/// Says how many decisions the costs moved, and shows the first of them.
void printWhatMoved(const std::vector<ktClassifierResult>& before, const std::vector<ktClassifierResult>& after,
                    const ktKit::Table& table)
{
    int moved = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (ktKit::decision(before[i]).categoryLabel() == ktKit::decision(after[i]).categoryLabel() || ++moved > 1) {
            continue;
        }
        std::cout << "The first decision that the costs moved, test row " << i + 1 << ", before and after:\n";
        for (const ktClassifierResult& result : {before[i], after[i]}) {
            for (const ktClassifierCategoryResult& category : result.categoryResults()) {
                std::cout << "  " << examples::nameOf(table, category.categoryLabel()) << ": match score "
                          << category.matchScore() << ", expected cost " << category.expectedCost() << "\n";
            }
        }
    }
    std::cout << "They moved " << moved << " in all.\n\n";
}

int sortCellNuclei(const std::string& csvPath)
{
    const ktKit::Table table = ktKit::readCsv(csvPath);
    const ktClassifierCosts costs = examples::costsOf(table, table.data.categoryLabel(0), 10.0);
    const ktKit::Split rows = ktKit::split(table.data, ktKit::stratifiedFolds(ktKit::labels(table.data), 3, 1), 0);
    const ktKit::Scaler scaler(rows.training);
    const ktKit::Patterns test = ktKit::patterns(scaler.transform(rows.test));
    std::cout << rows.training.numPatterns() << " samples of " << table.columns.size()
              << " measurements to learn from, " << test.size() << " for the test.\n\n";

    ktClassifierTool tool;
    tool.train(scaler.transform(rows.training), ktClassifierTrainParamsKNN(7));
    const std::vector<ktClassifierResult> before = ktKit::runAll(tool, test);
    printDecisions("7 nearest neighbours, equal costs", rows, before, table, costs);
    // Other costs take effect without training again.
    tool.retrain(ktClassifierTrainParamsKNN(7, costs));
    const std::vector<ktClassifierResult> after = ktKit::runAll(tool, test);
    printDecisions("7 nearest neighbours, unequal costs", rows, after, table, costs);
    printWhatMoved(before, after, table);

    const std::string path = "sort_cell_nuclei.tool";
    ktKit::save(tool, scaler, path);
    ktKit::Scaler loadedScaler;
    const ktClassifierTool loaded = ktKit::load(path, loadedScaler);
    std::filesystem::remove(path);
    const bool isSame = ktKit::runAll(loaded, ktKit::patterns(loadedScaler.transform(rows.test))) == after;
    std::cout << "Stored and loaded: " << (isSame ? "all answers are the same.\n" : "answers differ.\n");
    return isSame ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 2 ? sortCellNuclei(argv[1]) : throw std::runtime_error("usage: sort_cell_nuclei CSV");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
