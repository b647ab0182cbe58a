// Writes down an expert's rules as a decision tree, hands it to the same tool as every other technique, and compares its
// decisions with those of nearest neighbours. The tree also decides where a measurement is missing.

#include "common/errors.h"
#include "common/options.h"

#include <cmath>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <limits>
#include <numeric>

namespace {

using Names = std::vector<std::string>;

ktRangePredicate atMost(double limit, long index)
{
    return {ktRange(-std::numeric_limits<double>::infinity(), limit), {index}};
}

constexpr std::size_t numLeaves = 7;

/// The rules. A predicate that meets a missing measurement says no, so the root asks first whether everything is there that
/// the rules below its true side need; its false side does with other measurements.
ktDecisionTreeNode rules(const Names& names, const std::vector<ktDecisionTreeLeaf>& leaves)
{
    const long radius = examples::indexOf(names, "worst_radius");
    const long texture = examples::indexOf(names, "worst_texture");
    const long dents = examples::indexOf(names, "worst_concave_points");
    const long meanDents = examples::indexOf(names, "mean_concave_points");
    const long fractal = examples::indexOf(names, "mean_fractal_dimension");

    const ktDecisionTreeNode dented(atMost(25.7, texture), leaves[1], leaves[2]);
    const ktDecisionTreeNode small(atMost(0.136, dents), leaves[0], dented);
    const ktDecisionTreeNode large(atMost(20.0, texture), leaves[3], leaves[4]);
    const ktDecisionTreeNode complete(atMost(16.8, radius), small, large);
    const ktDecisionTreeNode incomplete(ktComparisonPredicate(meanDents, fractal), leaves[5], leaves[6]);
    return {ktValidityPredicate({radius, texture, dents}), complete, incomplete};
}

/// Every tenth sample loses its worst radius, as if that image had been cut off.
ktKit::Patterns withGaps(const ktClassifierDataProvider& data, const Names& names)
{
    ktKit::Patterns patterns = ktKit::patterns(data);
    for (std::size_t i = 4; i < patterns.size(); i += 10) {
        std::vector<double> values = patterns[i]->featureMeasurements(false);
        values[static_cast<std::size_t>(examples::indexOf(names, "worst_radius"))] = std::nan("");
        patterns[i] = ktKit::pattern(values);
    }
    return patterns;
}

/// Leaves that know what the training samples that reach them are. One sample of each category is added, because a leaf that
/// three malignant samples reached is not certain.
std::vector<ktDecisionTreeLeaf> countedLeaves(const ktKit::Table& table, const ktClassifierDataProvider& training,
                                              const ktClassifierCosts& costs)
{
    // Which leaf is reached, numbered leaves tell first: their results decide for their numbers.
    std::vector<ktDecisionTreeLeaf> leaves;
    for (std::size_t i = 0; i < numLeaves; ++i) {
        leaves.emplace_back(ktClassifierResult({{static_cast<long>(i), 1.0, 1.0, 0.0}}, 0.0));
    }
    ktClassifierTool tool;
    tool.train(rules(table.columns, leaves));
    std::vector<std::vector<double>> counts(numLeaves, std::vector<double>(table.labelNames.size(), 1.0));
    const std::vector<ktClassifierResult> reached = ktKit::runAll(tool, withGaps(training, table.columns));
    for (std::size_t i = 0; i < reached.size(); ++i) {
        const auto leaf = static_cast<std::size_t>(ktKit::decision(reached[i]).categoryLabel());
        ++counts[leaf][static_cast<std::size_t>(training.categoryLabel(static_cast<long>(i)))];
    }
    leaves.clear();
    for (const std::vector<double>& count : counts) {
        const double all = std::accumulate(count.begin(), count.end(), 0.0);
        std::vector<ktClassifierCategoryResult> categories;
        for (std::size_t label = 0; label < count.size(); ++label) {
            categories.emplace_back(static_cast<long>(label), count[label] / all, 0.0, 0.0);
        }
        leaves.emplace_back(ktClassifierResult(categories, ktClassifierFrequencies(), costs, 0.0));
    }
    return leaves;
}

void printQuestion(const ktPredicateFunction& predicate, const Names& names)
{
    const auto name = [&names](long index) { return names.at(static_cast<std::size_t>(index)); };
    if (const auto* comparison = dynamic_cast<const ktComparisonPredicate*>(&predicate)) {
        std::cout << name(comparison->measurementIndex1()) << " > " << name(comparison->measurementIndex2()) << "?\n";
    } else if (const auto* range = dynamic_cast<const ktRangePredicate*>(&predicate)) {
        std::cout << name(range->measurementIndices().at(0)) << " <= " << range->measurementRange().high() << "?\n";
    } else if (const auto* validity = dynamic_cast<const ktValidityPredicate*>(&predicate)) {
        std::cout << "not missing:";
        for (const long index : validity->measurementIndices()) {
            std::cout << " " << name(index);
        }
        std::cout << "?\n";
    }
}

/// Recursion is fine for a tree of known depth, such as this one.
void printTree(const ktDecisionTree& tree, const ktKit::Table& table, const std::string& indent)
{
    if (const auto* node = dynamic_cast<const ktDecisionTreeNode*>(&tree)) {
        printQuestion(*node->predicateFunction(), table.columns);
        std::cout << indent << "  yes: ";
        printTree(*node->trueTree(), table, indent + "  ");
        std::cout << indent << "  no:  ";
        printTree(*node->falseTree(), table, indent + "  ");
    } else if (const auto* leaf = dynamic_cast<const ktDecisionTreeLeaf*>(&tree)) {
        const ktClassifierCategoryResult& best = ktKit::decision(leaf->classifierResult());
        std::cout << table.labelNames.at(static_cast<std::size_t>(best.categoryLabel())) << " (class score "
                  << best.classScore() << ", expected cost " << best.expectedCost() << ")\n";
    }
}

int inspectByRules(const std::string& path)
{
    const ktKit::Table table = ktKit::readCsv(path);
    const ktKit::Split rows = examples::thirds(table.data);
    const ktClassifierCosts costs = examples::costsOf("malignant=10", table.labelNames);
    ktClassifierTool tool;
    tool.train(rules(table.columns, countedLeaves(table, rows.training, costs)));
    std::cout << std::setprecision(3) << "The rules, with what they are worth on " << rows.training.numPatterns()
              << " training samples, costs malignant=10:\n\n";
    printTree(*tool.decisionTree(), table, "");

    const ktKit::Patterns gaps = withGaps(rows.test, table.columns);
    const ktKit::ConfusionMatrix byRules = examples::counted(rows.test, ktKit::runAll(tool, gaps), table.labelNames);
    std::cout << "\nThe rules on " << byRules.total()
              << " test samples, every tenth of them without its worst radius:\n"
              << byRules << "total cost: " << byRules.cost(costs) << "\n\n";

    // Nearest neighbours need every measurement, so they see the samples before anything was lost.
    const ktKit::Scaler scaler(rows.training);
    ktClassifierTool neighbors;
    neighbors.train(scaler.transform(rows.training), ktClassifierTrainParamsKNN(7, costs));
    const ktKit::ConfusionMatrix byNeighbors = examples::counted(
        rows.test, ktKit::runAll(neighbors, ktKit::patterns(scaler.transform(rows.test))), table.labelNames);
    std::cout << "7 nearest neighbours with the same costs on the same samples, none with a gap:\n"
              << byNeighbors << "total cost: " << byNeighbors.cost(costs) << "\n";
    try {
        ktKit::runAll(neighbors, gaps);
    } catch (const ktClassifierDefs::BadFeatures& error) {
        std::cout << "A pattern with a gap they refuse: " << error.message() << "\n\n";
    }

    ktKit::save(tool, "inspect_by_rules.tool");
    const bool isEqual = ktKit::load("inspect_by_rules.tool") == tool;
    std::filesystem::remove("inspect_by_rules.tool");
    std::cout << "Saved and loaded: " << (isEqual ? "an equal tool" : "another tool") << ".\n";
    return isEqual ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 2 ? inspectByRules(argv[1])
                         : throw std::runtime_error("usage: inspect_by_rules CELL_NUCLEI_CSV");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
