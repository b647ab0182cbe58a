// Writes down an expert's rules as a decision tree, which also decides where a measurement is missing. The training samples
// that reach a rule tell what it is worth. Takes any file that has the measurements of the rules, and whose first column names
// the categories.

#include "common/errors.h"
#include "common/options.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <map>

namespace {

const std::vector<std::string> ruleNames = {"small, few dents",     "small, dented, fine", "small, dented, coarse",
                                            "large, fine",          "large, coarse",       "incomplete, dented",
                                            "incomplete, few dents"};

/// The rules, with a leaf for each name. A predicate that meets a missing measurement says no, so the root asks first whether
/// everything is there that the rules below its true side need; its false side does with other measurements.
ktDecisionTreeNode rules(const ktKit::Table& table, const std::vector<ktDecisionTreeLeaf>& leaves)
{
    const long radius = examples::columnOf(table, "worst_radius");
    const long texture = examples::columnOf(table, "worst_texture");
    const long dents = examples::columnOf(table, "worst_concave_points");
    const auto atMost = [](double limit, long index) {
        return ktRangePredicate(ktRange(-std::numeric_limits<double>::infinity(), limit), {index});
    };
    const ktDecisionTreeNode dented(atMost(25.7, texture), leaves[1], leaves[2]);
    const ktDecisionTreeNode small(atMost(0.136, dents), leaves[0], dented);
    const ktDecisionTreeNode large(atMost(20.0, texture), leaves[3], leaves[4]);
    const ktDecisionTreeNode complete(atMost(16.8, radius), small, large);
    const ktDecisionTreeNode incomplete(ktComparisonPredicate(examples::columnOf(table, "mean_concave_points"),
                                                              examples::columnOf(table, "mean_fractal_dimension")),
                                        leaves[5], leaves[6]);
    return {ktValidityPredicate({radius, texture, dents}), complete, incomplete};
}

/// Every tenth sample loses its worst radius, as if that image had been cut off.
ktKit::Patterns withGaps(const ktClassifierDataProvider& data, const ktKit::Table& table)
{
    const auto radius = static_cast<std::size_t>(examples::columnOf(table, "worst_radius"));
    ktKit::Patterns patterns = ktKit::patterns(data);
    for (std::size_t i = 4; i < patterns.size(); i += 10) {
        std::vector<double> values = patterns[i]->featureMeasurements(false);
        values[radius] = std::nan("");
        patterns[i] = ktKit::pattern(values);
    }
    return patterns;
}

/// The leaves: the shares of the categories among the samples that reach each, and the costs, make its answer.
std::vector<ktDecisionTreeLeaf> leavesOf(const ktKit::Table& table, const ktClassifierDataProvider& training,
                                         const ktClassifierCosts& costs)
{
    // Leaves that answer with their numbers tell which one is reached.
    std::vector<ktDecisionTreeLeaf> leaves;
    for (std::size_t i = 0; i < ruleNames.size(); ++i) {
        leaves.emplace_back(ktClassifierResult({{static_cast<long>(i), 1.0, 1.0, 0.0}}, 0.0));
    }
    ktClassifierTool tool;
    tool.train(rules(table, leaves));
    const ktKit::ConfusionMatrix reached =
        examples::counted(training, ktKit::runAll(tool, withGaps(training, table)), {});
    for (std::size_t i = 0; i < leaves.size(); ++i) {
        // One sample more of each category, because a rule that three samples reach is not certain.
        std::map<long, double> counts;
        for (const long label : examples::categoriesOf(table)) {
            counts[label] = 1.0 + static_cast<double>(reached.count(label, static_cast<long>(i)));
        }
        leaves[i] = examples::leafOf(counts, costs);
    }
    return leaves;
}

void inspectByRules(const std::string& path, const std::string& cost)
{
    const ktKit::Table table = ktKit::readCsv(path);
    const ktKit::Split rows = examples::thirds(table.data);
    const ktClassifierCosts costs = examples::costsOf(table, cost);
    const std::vector<ktDecisionTreeLeaf> leaves = leavesOf(table, rows.training, costs);
    for (std::size_t i = 0; i < leaves.size(); ++i) {
        const auto best = ktKit::decision(leaves[i].classifierResult());
        std::cout << ruleNames[i] << ": " << examples::nameOf(table, best.categoryLabel()) << ", expected cost "
                  << best.expectedCost() << "\n";
    }
    ktClassifierTool tool;
    tool.train(rules(table, leaves));
    const std::vector<ktClassifierResult> results = ktKit::runAll(tool, withGaps(rows.test, table));
    const ktKit::ConfusionMatrix matrix = examples::counted(rows.test, results, table.labelNames);
    std::cout << "\n" << matrix << "total cost, " << cost << ": " << matrix.cost(costs) << "\n";
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        argc == 3 ? inspectByRules(argv[1], argv[2])
                  : throw std::runtime_error("usage: inspect_by_rules CSV CATEGORY=COST");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
