// Makes a decision tree of a table that another program wrote, with a row for each part of the tree:
//
//     question,limit,benign,malignant
//     worst_radius,16.305,,
//     ,,224,13
//     ,,8,130
//
// A question is whether a measurement is at most the limit. The rows of its yes side stand below it, then those of its no side.
// A row without a question is a leaf; it counts the samples that reached it. The names are those of any file whose first column
// names the categories.

#include "common/errors.h"
#include "common/options.h"

#include <iostream>
#include <limits>
#include <map>

namespace {

using Tree = ktPtrHandle_const<ktDecisionTree>;

void check(bool isRight, const std::string& complaint)
{
    if (!isRight) {
        throw std::runtime_error(complaint);
    }
}

/// The counts of a leaf, which stand behind the limit.
std::map<long, double> countsOf(const ktFeaturePattern& row, const std::vector<long>& labels)
{
    std::map<long, double> counts;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const double count = row.featureMeasurements(false)[i + 1];
        check(row.isValid(static_cast<long>(i + 1)) && count >= 0.0, "a leaf needs the count of each category");
        counts[labels[i]] += count;
    }
    return counts;
}

/// Throws: std::runtime_error that says what is wrong, and in which row.
Tree readTree(const std::string& path, const ktKit::Table& samples, const ktClassifierCosts& costs)
{
    ktKit::Table rows = ktKit::readCsv(path);
    std::vector<long> labels;
    for (std::size_t i = 1; i < rows.columns.size(); ++i) {
        labels.push_back(examples::labelOf(samples, rows.columns[i]));
    }
    // From the last row to the first: both sides of a question have been read then, however deep the tree is.
    std::vector<Tree> below;
    for (long i = rows.data.numPatterns(); i-- > 0;) {
        const ktFeaturePattern& row = *rows.data.featurePattern(i);
        const long question = rows.data.categoryLabel(i);
        try {
            if (question < 0) {
                below.push_back(new ktDecisionTreeLeaf(examples::leafOf(countsOf(row, labels), costs)));
                continue;
            }
            const long measurement = examples::columnOf(samples, examples::nameOf(rows, question));
            check(row.isValid(0), "a question needs a limit");
            check(below.size() > 1, "a question needs a yes side and a no side");
            const ktRange atMost(-std::numeric_limits<double>::infinity(), row.featureMeasurement(0, true));
            const Tree yes = below.back();
            below.pop_back();
            below.back() = new ktDecisionTreeNode(ktRangePredicate(atMost, {measurement}), *yes, *below.back());
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(path + ": row " + std::to_string(i + 1) + ": " + error.what());
        }
    }
    check(below.size() == 1, path + ": one tree is expected");
    return below[0];
}

void importTree(const std::string& treePath, const std::string& csvPath, const std::string& cost)
{
    const ktKit::Table samples = ktKit::readCsv(csvPath);
    const ktClassifierCosts costs = examples::costsOf(samples, cost);
    ktClassifierTool tool;
    tool.train(*readTree(treePath, samples, costs));
    const ktClassifierDataProviderMemory test = examples::thirds(samples.data).test;
    const ktKit::ConfusionMatrix matrix =
        examples::counted(test, ktKit::runAll(tool, ktKit::patterns(test)), samples.labelNames);
    std::cout << matrix << "total cost, " << cost << ": " << matrix.cost(costs) << "\n";
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        argc == 4 ? importTree(argv[1], argv[2], argv[3])
                  : throw std::runtime_error("usage: import_tree TREE_CSV SAMPLES_CSV CATEGORY=COST");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
