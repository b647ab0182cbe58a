// Writes down an expert's rules as a decision tree, hands it to the same tool as every other technique, and compares its
// decisions with those of nearest neighbours. The tree also decides where a measurement is missing.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/scaling.h"
#include "common/stored_tool.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace examples;

namespace {

using Names = std::vector<std::string>;

long indexOf(const Names& names, const std::string& name)
{
    const auto place = std::find(names.begin(), names.end(), name);
    if (place == names.end()) {
        throw std::runtime_error("there is no measurement " + name);
    }
    return static_cast<long>(place - names.begin());
}

ktRangePredicate atMost(double limit, long index)
{
    return {ktRange(-std::numeric_limits<double>::infinity(), limit), {index}};
}

constexpr std::size_t numLeaves = 7;

/// The rules. A predicate that meets a missing measurement says no, so the root asks first whether everything is there that
/// the rules below its true side need; its false side does with other measurements.
ktDecisionTreeNode rules(const Names& names, const std::vector<ktDecisionTreeLeaf>& leaves)
{
    const long radius = indexOf(names, "worst_radius");
    const long texture = indexOf(names, "worst_texture");
    const long dents = indexOf(names, "worst_concave_points");
    const long meanDents = indexOf(names, "mean_concave_points");
    const long fractal = indexOf(names, "mean_fractal_dimension");

    const ktDecisionTreeNode dented(atMost(25.7, texture), leaves[1], leaves[2]);
    const ktDecisionTreeNode small(atMost(0.136, dents), leaves[0], dented);
    const ktDecisionTreeNode large(atMost(20.0, texture), leaves[3], leaves[4]);
    const ktDecisionTreeNode complete(atMost(16.8, radius), small, large);
    const ktDecisionTreeNode incomplete(ktComparisonPredicate(meanDents, fractal), leaves[5], leaves[6]);
    return {ktValidityPredicate({radius, texture, dents}), complete, incomplete};
}

/// A leaf that tells which one was reached: its result decides for its number.
ktDecisionTreeLeaf leafNumbered(long number)
{
    return ktDecisionTreeLeaf(ktClassifierResult({{number, 1.0, 1.0, 0.0}}, 0.0));
}

/// Every tenth sample loses its worst radius, as if that image had been cut off.
std::vector<ktFeaturePattern> patternsWithGaps(const std::vector<Sample>& samples, const Names& names)
{
    std::vector<ktFeaturePattern> patterns;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const std::vector<long> missing =
            i % 10 == 4 ? std::vector<long>{indexOf(names, "worst_radius")} : std::vector<long>();
        patterns.emplace_back(samples[i].measurements, missing);
    }
    return patterns;
}

/// Leaves that know what the training samples that reach them are. One sample of each category is added, because a leaf that
/// three malignant samples reached is not certain.
std::vector<ktDecisionTreeLeaf> countedLeaves(const Names& names, const std::vector<Sample>& training,
                                              const ktClassifierCosts& costs)
{
    std::vector<ktDecisionTreeLeaf> numbered;
    for (std::size_t i = 0; i < numLeaves; ++i) {
        numbered.push_back(leafNumbered(static_cast<long>(i)));
    }
    ktClassifierTool tool;
    tool.train(rules(names, numbered));

    std::vector<std::vector<double>> counts(numLeaves, {1.0, 1.0});
    const std::vector<ktFeaturePattern> patterns = patternsWithGaps(training, names);
    for (std::size_t i = 0; i < training.size(); ++i) {
        ktClassifierResult reached;
        tool.run(patterns[i], reached);
        ++counts[static_cast<std::size_t>(decision(reached))][static_cast<std::size_t>(training[i].label)];
    }

    std::vector<ktDecisionTreeLeaf> leaves;
    for (const std::vector<double>& count : counts) {
        const double share = count[malignant] / (count[malignant] + count[benign]);
        leaves.emplace_back(ktClassifierResult({{malignant, share, 0.0, 0.0}, {benign, 1.0 - share, 0.0, 0.0}},
                                               ktClassifierFrequencies(), costs, 0.0));
    }
    return leaves;
}

std::string question(const ktPredicateFunction& predicate, const Names& names)
{
    const auto name = [&names](long index) { return names.at(static_cast<std::size_t>(index)); };
    std::ostringstream text;
    if (const auto* comparison = dynamic_cast<const ktComparisonPredicate*>(&predicate)) {
        text << name(comparison->measurementIndex1()) << " > " << name(comparison->measurementIndex2());
    } else if (const auto* range = dynamic_cast<const ktRangePredicate*>(&predicate)) {
        text << name(range->measurementIndices().at(0)) << " <= " << range->measurementRange().high();
    } else if (const auto* validity = dynamic_cast<const ktValidityPredicate*>(&predicate)) {
        text << "not missing:";
        for (const long index : validity->measurementIndices()) {
            text << " " << name(index);
        }
    }
    return text.str() + "?";
}

/// Recursion is fine for a tree of known depth, such as this one.
void printTree(const ktDecisionTree& tree, const Names& names, const std::string& indent)
{
    if (const auto* node = dynamic_cast<const ktDecisionTreeNode*>(&tree)) {
        std::cout << question(*node->predicateFunction(), names) << "\n" << indent << "  yes: ";
        printTree(*node->trueTree(), names, indent + "  ");
        std::cout << indent << "  no:  ";
        printTree(*node->falseTree(), names, indent + "  ");
    } else if (const auto* leaf = dynamic_cast<const ktDecisionTreeLeaf*>(&tree)) {
        const ktClassifierCategoryResult& best = leaf->classifierResult().categoryResults().at(0);
        std::cout << (best.categoryLabel() == malignant ? "malignant" : "benign") << std::fixed << std::setprecision(3)
                  << " (class score " << best.classScore() << ", expected cost " << best.expectedCost() << ")\n"
                  << std::defaultfloat;
    }
}

void printDecisions(const ktClassifierTool& tool, const std::vector<Sample>& samples,
                    const std::vector<ktFeaturePattern>& patterns, const ktClassifierCosts& costs)
{
    ConfusionMatrix matrix;
    ktClassifierResult result;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        tool.run(patterns[i], result);
        matrix.add(samples[i].label, decision(result));
    }
    print(matrix);
    std::cout << "  total cost: " << std::fixed << std::setprecision(0) << matrix.totalCost(costs) << std::defaultfloat
              << "\n\n";
}

/// Nearest neighbours need every measurement, so they see the samples before anything was lost.
void printNeighbours(const Split& rows, const Names& names, const ktClassifierCosts& costs)
{
    const Scaling scaling(rows.training);
    const std::vector<Sample> test = scaling(rows.test);
    std::vector<ktFeaturePattern> patterns;
    for (const Sample& sample : test) {
        patterns.emplace_back(sample.measurements, std::vector<long>());
    }
    ktClassifierTool tool;
    tool.train(trainingSet(scaling(rows.training)),
               ktClassifierTrainParamsKNN(7, ktPatternDistanceMetricNorm(2.0), costs));
    printDecisions(tool, test, patterns, costs);

    try {
        ktClassifierResult result;
        tool.run(patternsWithGaps(test, names).at(4), result);
    } catch (const ktClassifierDefs::BadFeatures& error) {
        std::cout << "A pattern with a gap they refuse: " << error.message() << "\n\n";
    }
}

int inspectByRules(const std::string& csvPath)
{
    const CellNuclei data = readCellNuclei(csvPath);
    const Split rows = splitSamples(data.samples);
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(malignant, benign, 10.0);

    ktClassifierTool tool;
    tool.train(rules(data.names, countedLeaves(data.names, rows.training, costs)));
    std::cout << "The rules, with what they are worth on the " << rows.training.size()
              << " training samples. A malignant sample called\nbenign costs 10, the reverse 1:\n\n";
    printTree(*tool.decisionTree(), data.names, "");

    std::cout << "\nThe rules on the " << rows.test.size()
              << " test samples, every tenth of them without its worst radius:\n";
    printDecisions(tool, rows.test, patternsWithGaps(rows.test, data.names), costs);
    std::cout << "7 nearest neighbours with the same costs on the same samples, none with a gap:\n";
    printNeighbours(rows, data.names, costs);

    const std::string stored = bytesOf(tool);
    const bool isEqual = toolFrom(stored) == tool;
    std::cout << "Stored in " << stored.size() << " bytes and loaded: " << (isEqual ? "an equal tool" : "another tool")
              << ".\n";
    return isEqual ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: inspect_by_rules CELL_NUCLEI_CSV\n";
        return 1;
    }
    try {
        return inspectByRules(argv[1]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
