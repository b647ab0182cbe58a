// Sorts patterns some of whose measurements are missing, by probability densities: with independent measurements, with a
// group of dependent ones, and with other priors. Then rejects a pattern that belongs to no category. Takes any file whose
// first column names the categories; measurements whose names begin with PREFIX are the group.

#include "common/errors.h"
#include "common/options.h"

#include <iomanip>
#include <iostream>
#include <limits>

namespace {

/// One measurement in ten is missing, NaN in the numbers: of every second sample every fifth, of the others none. A density of
/// several measurements learns from samples that have all of them, so a rule that took some from every sample would leave it
/// nothing to learn.
ktClassifierDataProviderMemory withMissing(const ktClassifierDataProviderMemory& data)
{
    ktClassifierDataProviderMemory incomplete;
    const ktKit::Patterns patterns = ktKit::patterns(data);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        std::vector<double> values = patterns[i]->featureMeasurements(false);
        for (std::size_t j = i % 2 == 0 ? (10 - i % 10) / 2 % 5 : values.size(); j < values.size(); j += 5) {
            values[j] = std::numeric_limits<double>::quiet_NaN();
        }
        incomplete.addData(ktKit::pattern(values), data.categoryLabel(static_cast<long>(i)));
    }
    return incomplete;
}

/// What the tool makes of the test, and what it rejects: the stranger, and of the test samples.
void print(const std::string& title, const ktClassifierTool& tool, const ktKit::Split& rows, const ktKit::Table& table,
           const ktClassifierCosts& costs, const ktFeaturePattern& stranger)
{
    const ktKit::Rejection rejection(tool, rows.training, 0.0);
    const ktKit::Patterns patterns = ktKit::patterns(rows.test);
    const ktKit::ConfusionMatrix matrix = examples::counted(rows.test, ktKit::runAll(tool, patterns), table.labelNames);
    long rejected = 0;
    for (const auto& pattern : patterns) {
        rejected += rejection.rejects(*pattern) ? 1 : 0;
    }
    std::cout << title << ":\n"
              << matrix << "total cost: " << matrix.cost(costs) << "\nrejected: " << rejected << " of "
              << patterns.size() << "; the stranger: " << (rejection.rejects(stranger) ? "yes" : "no") << "\n\n";
}

int sortWithMissing(const std::string& path, const std::string& prefix, const std::string& cost)
{
    const ktKit::Table table = ktKit::readCsv(path);
    const ktClassifierCosts costs = examples::costsOf(table, cost);
    const ktKit::Split whole = ktKit::split(table.data, ktKit::stratifiedFolds(ktKit::labels(table.data), 3, 1), 0);
    const ktKit::Split rows = {withMissing(whole.training), withMissing(whole.test)};
    std::vector<long> group;
    for (std::size_t j = 0; j < table.columns.size(); ++j) {
        if (table.columns[j].rfind(prefix, 0) == 0) {
            group.push_back(static_cast<long>(j));
        }
    }
    // Each of its measurements is an ordinary one, but they do not go together: the first is that of another sample.
    std::vector<double> strange = ktKit::patterns(whole.test).front()->featureMeasurements(false);
    strange[0] = ktKit::patterns(whole.test).back()->featureMeasurements(false)[0];
    const auto stranger = ktKit::pattern(strange);
    std::cout << rows.training.numPatterns() << " samples to learn from, " << rows.test.numPatterns()
              << " for the test. One measurement in ten is missing. Costs " << cost << ".\n\n";

    ktClassifierTool tool;
    tool.train(rows.training, ktClassifierTrainParamsBayesian({}, {}, costs));
    print("Independent measurements, equal priors", tool, rows, table, costs, *stranger);

    ktClassifierDistributionTypes joint;
    for (const long label : examples::categoriesOf(table)) {
        joint.setDependent(label, group);
    }
    tool.train(rows.training, ktClassifierTrainParamsBayesian(joint, {}, costs));
    print("One dependent group, equal priors", tool, rows, table, costs, *stranger);

    // Priors take effect without training again: here, a screening, in which the category of the first row is rare.
    tool.retrain(
        ktClassifierTrainParamsBayesian(joint, ktKit::frequencies({0.05}, {table.data.categoryLabel(0)}), costs));
    print("The same group, the first category rare", tool, rows, table, costs, *stranger);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 4 ? sortWithMissing(argv[1], argv[2], argv[3])
                         : throw std::runtime_error("usage: sort_with_missing_measurements CSV PREFIX CATEGORY=COST");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
