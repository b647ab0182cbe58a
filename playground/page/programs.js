// The C++ and the Python program that do what the page does: train on the same points, or load the archive, and classify the pattern on
// the command line.

import { numCategoriesOf, trainingPoints, measurements, rangeOf } from "./state.js";
import { planeSize } from "./plane_size.js";
import { answeringCounts, sideOf } from "./tree.js";

export const archiveName = "classifier.ktar";

const costsOf = (state) => {
    const count = numCategoriesOf(state);
    const out = [];
    for (let truth = 0; truth < count; ++truth) {
        for (let called = 0; called < count; ++called) {
            if (truth !== called && state.costs[truth][called] !== 1) {
                out.push([truth, called, state.costs[truth][called]]);
            }
        }
    }
    return out;
};

const frequenciesOf = (state) => state.frequencies.slice(0, numCategoriesOf(state))
    .map((frequency, label) => [label, frequency]).filter(([, frequency]) => frequency !== 1);

function lines(items, perLine, indent) {
    const out = [];
    for (let i = 0; i < items.length; i += perLine) {
        out.push(indent + items.slice(i, i + perLine).join(", "));
    }
    return out.join(",\n");
}

function scaleComment(state, mark) {
    return state.data === "own" ? "" : state.axes.map((index, axis) => {
        const { low, high } = rangeOf(index);
        return `${mark} ${"xy"[axis]} is ${planeSize} * (${measurements[index]} - ${low}) / ${high - low}\n`;
    }).join("");
}

/** Walks the tree as encoding.js does: `leaf(counts)` and `cut(axis, limit, low, high)` make what is shown. */
function writtenTree(tree, points, numCategories, otherwise, leaf, cut, depth = 1) {
    const counts = answeringCounts(points, numCategories, otherwise);
    if (tree === null) {
        return leaf(counts, depth);
    }
    const side = (name) => writtenTree(tree[name], points.filter((point) => sideOf(tree, point) === name), numCategories, counts,
        leaf, cut, depth + 1);
    return cut(tree.axis === "x" ? 0 : 1, tree.limit, side("low"), side("high"), depth);
}

// --- C++

const cppHead = `#include <clastool/clastool.h>

#include <exception>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>
#include <vector>
`;

function cppPoints(state) {
    const word = (value) => (value === null ? "missing" : String(value));
    return `const double missing = std::numeric_limits<double>::quiet_NaN();

struct Point {
    double x;
    double y;
    long label;
};

const std::vector<Point> points = {
${lines(trainingPoints(state).map(({ x, y, label }) => `{${word(x)}, ${word(y)}, ${label}}`), 5, "    ")}};

ktClassifierDataProviderMemory trainingData()
{
    ktClassifierDataProviderMemory data;
    for (const Point& point : points) {
        data.addData(patternOf(point.x, point.y), point.label);
    }
    return data;
}
`;
}

const cppPattern = `/// A measurement that is not a number is missing.
ktPtrHandle_const<ktFeaturePattern> patternOf(double x, double y)
{
    std::vector<long> invalid;
    if (x != x) {
        invalid.push_back(0);
    }
    if (y != y) {
        invalid.push_back(1);
    }
    return new ktFeaturePattern({x != x ? 0.0 : x, y != y ? 0.0 : y}, invalid);
}
`;

function cppCosts(state) {
    return `ktClassifierCosts costs()
{
    ktClassifierCosts costs;  // 1 for each mistake
${costsOf(state).map(([truth, called, cost]) => `    costs.misclassificationCostOverride(${truth}, ${called}, ${cost});\n`).join("")}    return costs;
}
`;
}

function cppTool(state) {
    if (state.technique === "neighbors") {
        return `ktClassifierTool made()
{
    ktClassifierTool tool;
    tool.train(trainingData(), ktClassifierTrainParamsKNN(${state.k}, ktPatternDistanceMetricNorm(${state.order}), costs()));
    return tool;
}
`;
    }
    const joint = state.technique === "joint" ? `    for (long label = 0; label < ${numCategoriesOf(state)}; ++label) {
        types.setDependent(label, {0, 1});
    }
` : "";
    return `ktClassifierTool made()
{
    ktClassifierDistributionTypes types;
${joint}    ktClassifierFrequencies frequencies;  // 1 for each category
${frequenciesOf(state).map(([label, frequency]) => `    frequencies.categoryFrequencyOverride(${label}, ${frequency});\n`).join("")}    ktClassifierTool tool;
    tool.train(trainingData(), ktClassifierTrainParamsBayesian(types, frequencies, costs()));
    return tool;
}
`;
}

function cppTree(state) {
    const numCategories = numCategoriesOf(state);
    const indent = (depth) => "    ".repeat(depth);
    const text = writtenTree(state.tree, trainingPoints(state), numCategories, new Array(numCategories).fill(1),
        (counts, depth) => `${indent(depth)}leaf({${counts.join(", ")}})`,
        (axis, limit, low, high, depth) => `${indent(depth)}cut(${axis}, ${limit},\n${low},\n${high})`);
    return `using Tree = ktPtrHandle<ktDecisionTree>;

/// Answers with the shares of the categories among the training points that reached the leaf.
Tree leaf(const std::vector<double>& counts)
{
    double all = 0.0;
    for (const double count : counts) {
        all += count;
    }
    std::vector<ktClassifierCategoryResult> shares;
    for (std::size_t label = 0; label < counts.size(); ++label) {
        shares.emplace_back(static_cast<long>(label), counts[label] / all, 0.0, 0.0);
    }
    return new ktDecisionTreeLeaf(ktClassifierResult(shares, ktClassifierFrequencies(), costs(), 0.0));
}

/// Asks whether a measurement is at most the limit. Of one that is missing it is not.
Tree cut(long measurement, double limit, const Tree& atMost, const Tree& above)
{
    const ktRange range(-std::numeric_limits<double>::infinity(), limit);
    return new ktDecisionTreeNode(ktRangePredicate(range, {measurement}), *atMost, *above);
}

ktClassifierTool made()
{
    const Tree tree =
${text.replace(/^/gm, "    ")};
    ktClassifierTool tool;
    tool.train(*tree);
    return tool;
}
`;
}

const cppPrintResult = `void print(const ktClassifierTool& tool, double x, double y)
{
    ktClassifierResult result;
    tool.run(*patternOf(x, y), result);
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << category.categoryLabel() << " " << category.matchScore() << " " << category.classScore() << " "
                  << category.expectedCost() << "\\n";
    }
}
`;

function cppRules(state) {
    const score = ({ on, a, b, c, d }) => (on ? `between(${a}, ${b}, ${c}, ${d})` : "new ktClassifierFeatureScoreIgnore");
    return `/// 0 up to a, 1 from b to c, 0 from d on.
ktPtrHandle<ktClsFtSc> between(double a, double b, double c, double d)
{
    const double middle = (b + c) / 2.0;
    ktPtrHandle<ktClassifierFeatureScoreTwoSided> score(new ktClassifierFeatureScoreTwoSided);
    score->init(a, b, middle, d, c, middle, 0.0, 1.0, 0.0, 1.0);
    return score;
}

ktClassifierRule rule(long label, const ktPtrHandle<ktClsFtSc>& ofX, const ktPtrHandle<ktClsFtSc>& ofY)
{
    ktClassifierRule rule;
    rule.init({ofX, ofY}, label);
    return rule;
}

ktClassifierRuleTable made()
{
    ktClassifierRuleTable table;
    table.train({
${state.rules.map((rule) => `        rule(${rule.label}, ${score(rule.x)}, ${score(rule.y)}),\n`).join("")}    });
    return table;
}
`;
}

const cppPrintLabel = (threshold) => `void print(const ktClassifierRuleTable& table, double x, double y)
{
    // The first rule that scores more than the threshold; -1 for none.
    std::cout << table.classifyHardThreshold(ktClassifierFeatureVector({x, y}), ${threshold}) << "\\n";
}
`;

const cppMain = `double numberOf(const std::string& word)
{
    return word == "-" ? std::numeric_limits<double>::quiet_NaN() : std::stod(word);
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " X Y, - for one that is missing; or " << argv[0] << " --store FILE\\n";
        return 1;
    }
    try {
        std::cout.precision(17);
        auto classifier = made();
        if (std::string(argv[1]) == "--store") {
            std::ofstream file(argv[2], std::ios::binary);
            ktArchive archive(file);
            archive || classifier;
        } else {
            print(classifier, numberOf(argv[1]), numberOf(argv[2]));
        }
    } catch (const std::exception& error) {
        std::cerr << "error: " << error.what() << "\\n";
        return 1;
    }
    return 0;
}
`;

function cppLoaded(state) {
    const type = state.technique === "rules" ? "ktClassifierRuleTable" : "ktClassifierTool";
    const costs = costsOf(state).map(([truth, called, cost]) => `    costs.misclassificationCostOverride(${truth}, ${called}, ${cost});\n`);
    const frequencies = frequenciesOf(state)
        .map(([label, frequency]) => `    frequencies.categoryFrequencyOverride(${label}, ${frequency});\n`);
    const ofNeighbors = `    // A loaded tool of nearest neighbours runs with its parameters once it has been given them again.
    const auto params = classifier.trainParams()->clone();
    auto& own = dynamic_cast<ktClassifierTrainParamsKNN&>(*params);
    ktClassifierCosts costs = own.misclassificationCosts();
${costs.join("")}    own.misclassificationCosts(costs);
    own.k(${state.k});
    own.distanceMetric(ktPatternDistanceMetricNorm(${state.order}));
    classifier.retrain(*params);
`;
    const ofBayes = `    const auto params = classifier.trainParams()->clone();
    auto& own = dynamic_cast<ktClassifierTrainParamsBayesian&>(*params);
    ktClassifierCosts costs = own.misclassificationCosts();
${costs.join("")}    own.misclassificationCosts(costs);
    ktClassifierFrequencies frequencies = own.categoryFrequencies();
${frequencies.join("")}    own.categoryFrequencies(frequencies);
    classifier.retrain(*params);
`;
    const retrain = { neighbors: ofNeighbors, independent: ofBayes, joint: ofBayes }[state.technique] ?? "";
    return `${type} made()
{
    std::ifstream file("${archiveName}", std::ios::binary);
    if (!file) {
        throw std::runtime_error("there is no file ${archiveName}");
    }
    ktArchive archive(file);
    ${type} classifier;
    archive || classifier;
${retrain}    return classifier;
}
`;
}

export function cppProgram(state) {
    const isTable = state.technique === "rules";
    const parts = [`// Does what the playground does: trains the classifier, and prints the answer for the pattern on the command line${
        isTable ? "." : ":\n// label, match score, class score and expected cost of each category, the decided one first."}
${scaleComment(state, "//")}
${cppHead}
namespace {
`];
    if (!isTable) {
        parts.push(cppPattern);
    }
    if (state.archive !== null) {
        parts[0] = parts[0].replace("trains the classifier", `loads the classifier from ${archiveName}`);
        parts.push(cppLoaded(state));
    } else if (isTable) {
        parts.push(cppRules(state));
    } else if (state.technique === "tree") {
        parts.push(cppCosts(state), cppTree(state));
    } else {
        parts.push(cppPoints(state), cppCosts(state), cppTool(state));
    }
    parts.push(isTable ? cppPrintLabel(state.threshold) : cppPrintResult, cppMain.replace("int main", "}  // namespace\n\nint main"));
    return parts.join("\n");
}

// --- Python

const pythonPairs = (pairs) => `{${pairs.map(([truth, called, cost]) => `(${truth}, ${called}): ${cost}`).join(", ")}}`;
const pythonCosts = (state) => `costs = clastool.Costs(1.0, ${pythonPairs(costsOf(state))})\n`;
const pythonFrequencies = (state) => `frequencies = clastool.Frequencies(1.0, {${
    frequenciesOf(state).map(([label, frequency]) => `${label}: ${frequency}`).join(", ")}})\n`;

function pythonPoints(state) {
    const word = (value) => (value === null ? "nan" : String(value));
    const points = trainingPoints(state);
    return `X = np.array([
${lines(points.map(({ x, y }) => `[${word(x)}, ${word(y)}]`), 6, "    ")}])
y = np.array([
${lines(points.map(({ label }) => label), 30, "    ")}])
`;
}

function pythonTree(state) {
    const numCategories = numCategoriesOf(state);
    const indent = (depth) => "    ".repeat(depth);
    const text = writtenTree(state.tree, trainingPoints(state), numCategories, new Array(numCategories).fill(1),
        (counts, depth) => `${indent(depth)}leaf([${counts.join(", ")}])`,
        (axis, limit, low, high, depth) => `${indent(depth)}cut(${axis}, ${limit},\n${low},\n${high})`);
    return `${pythonCosts(state)}

def leaf(counts):
    """Answers with the shares of the categories among the training points that reached the leaf."""
    shares = [clastool.CategoryResult(label, count / sum(counts), 0.0, 0.0) for label, count in enumerate(counts)]
    return clastool.Leaf(clastool.Result.from_match_scores(shares, clastool.Frequencies(), costs))


def cut(measurement, limit, at_most, above):
    """Asks whether a measurement is at most the limit. Of one that is missing it is not."""
    return clastool.Node(clastool.RangePredicate(-inf, limit, [measurement]), at_most, above)


classifier = clastool.ClassifierTool()
classifier.train(
${text})
`;
}

function pythonRules(state) {
    const score = ({ on, a, b, c, d }) => (on ? `between(${a}, ${b}, ${c}, ${d})` : "clastool.FeatureScoreIgnore()");
    return `
def between(a, b, c, d):
    """0 up to a, 1 from b to c, 0 from d on."""
    middle = (b + c) / 2
    return clastool.FeatureScoreTwoSided(a, b, middle, d, c, middle, 0.0, 1.0, 0.0, 1.0)


classifier = clastool.RuleTable([
${state.rules.map((rule) => `    clastool.Rule([${score(rule.x)}, ${score(rule.y)}], ${rule.label}),\n`).join("")}])
`;
}

function pythonParams(state) {
    if (state.technique === "neighbors") {
        return `params = clastool.KNNParams(${state.k}, clastool.Norm(${state.order}), costs)\n`;
    }
    const joint = state.technique === "joint" ? `for label in range(${numCategoriesOf(state)}):\n    types.set_dependent(label, [0, 1])\n` : "";
    return `${pythonFrequencies(state)}types = clastool.DistributionTypes()\n${joint}params = clastool.BayesParams(types, frequencies, costs)\n`;
}

function pythonLoaded(state) {
    const load = `classifier = clastool.ClassifierTool.load("${archiveName}")\n`;
    if (state.technique === "tree") {
        return load;
    }
    const costs = costsOf(state).map(([truth, called, cost]) => `costs[${truth}, ${called}] = ${cost}\n`).join("");
    const frequencies = frequenciesOf(state).map(([label, frequency]) => `frequencies[${label}] = ${frequency}\n`).join("");
    const specifics = state.technique === "neighbors" ? `params.k = ${state.k}\nparams.metric = clastool.Norm(${state.order})\n`
        : `frequencies = params.frequencies\n${frequencies}params.frequencies = frequencies\n`;
    return `${load}params = classifier.params\ncosts = params.costs\n${costs}params.costs = costs\n${specifics}classifier.retrain(params)\n`;
}

function pythonMade(state) {
    if (state.archive !== null) {
        return pythonLoaded(state);
    }
    if (state.technique === "rules") {
        return pythonRules(state);
    }
    if (state.technique === "tree") {
        return pythonTree(state);
    }
    return `${pythonPoints(state)}
${pythonCosts(state)}${pythonParams(state)}
classifier = clastool.ClassifierTool()
classifier.train(X, y, params)
`;
}

/** Why there is no Python program for a state; empty where there is one. */
export function noPythonBecause(state) {
    return state.archive !== null && state.technique === "rules" ? "The Python package loads tools, not tables of rules." : "";
}

export function pythonProgram(state) {
    const isTable = state.technique === "rules";
    const isArray = state.archive === null && ["neighbors", "independent", "joint"].includes(state.technique);
    const numbers = state.technique === "tree" && state.archive === null ? "inf, nan" : "nan";
    return `# Does what the playground does: ${state.archive === null ? "trains the classifier" : `loads the classifier from ${archiveName}`
    }, and prints the answer for the pattern on the command line${
        isTable ? "." : ":\n# label, match score, class score and expected cost of each category, the decided one first."}
${scaleComment(state, "#")}
import sys
from math import ${numbers}

${isArray ? "import numpy as np\n" : ""}import clastool

${pythonMade(state)}
if len(sys.argv) != 3:
    sys.exit(f"usage: {sys.argv[0]} X Y, - for one that is missing")
pattern = [nan if word == "-" else float(word) for word in sys.argv[1:]]
${isTable ? `# The first rule that scores more than the threshold; -1 for none.
print(classifier.classify(pattern, ${state.threshold}))
` : `for category in classifier.run(pattern).category_results:
    print(category.label, category.match_score, category.class_score, category.expected_cost)
`}`;
}
