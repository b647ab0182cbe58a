// What a C++ program does with tools that Python stored, and stores for it: tests/test_cpp.py compiles this.
//
//     deployed run kit|plain TOOL ROWS WIDTH    prints label and scores of each row in hexadecimal
//     deployed train bayes|neighbors TOOL ROWS WIDTH    trains on the rows, whose first number is the label, and saves
//     deployed tree TOOL    saves a tree

#include <clastool/clastool.h>
#include <clastool/kit.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

namespace {

std::vector<std::vector<double>> rowsOf(const std::string& path, std::size_t width)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<std::vector<double>> rows;
    std::vector<double> row(width);
    while (file.read(reinterpret_cast<char*>(row.data()), static_cast<std::streamsize>(width * sizeof(double)))) {
        rows.push_back(row);
    }
    return rows;
}

ktClassifierTool loaded(const std::string& kind, const std::string& path)
{
    if (kind == "kit") {
        return ktKit::load(path);
    }
    std::ifstream file(path, std::ios::binary);
    ktArchive archive(file);
    ktClassifierTool tool;
    archive || tool;
    if (kind == "retrained") {
        tool.retrain(*tool.trainParams());
    }
    return tool;
}

void run(const ktClassifierTool& tool, const std::vector<std::vector<double>>& rows)
{
    for (const std::vector<double>& row : rows) {
        ktClassifierResult result;
        tool.run(*ktKit::pattern(row), result);
        std::printf("%a", result.matchScoreFactorLog());
        for (const ktClassifierCategoryResult& category : result.categoryResults()) {
            std::printf(" %ld %a %a %a", category.categoryLabel(), category.matchScore(), category.classScore(),
                        category.expectedCost());
        }
        std::printf("\n");
    }
}

ktClassifierTool trained(const std::string& technique, const std::vector<std::vector<double>>& rows)
{
    ktClassifierDataProviderMemory data;
    for (const std::vector<double>& row : rows) {
        data.addData(ktKit::pattern(std::vector<double>(row.begin() + 1, row.end())), static_cast<long>(row.front()));
    }
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, 7.0);
    ktClassifierTool tool;
    if (technique == "bayes") {
        tool.train(data, ktClassifierTrainParamsBayesian(costs));
    } else {
        tool.train(data, ktClassifierTrainParamsKNN(5, ktPatternDistanceMetricNorm(1.0), costs));
    }
    return tool;
}

ktClassifierTool tree()
{
    const ktClassifierResult yes({ktClassifierCategoryResult(4, 1.0, 0.75, 0.25)}, 0.0);
    const ktClassifierResult no({ktClassifierCategoryResult(5, 1.0, 0.75, 0.25)}, 0.0);
    const ktRange positive(0.0, std::numeric_limits<double>::infinity());
    ktClassifierTool tool;
    tool.train(ktDecisionTreeNode(ktRangePredicate(positive, {0}), ktDecisionTreeLeaf(yes), ktDecisionTreeLeaf(no)));
    return tool;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.at(0) == "tree") {
        ktKit::save(tree(), words.at(1));
        return 0;
    }
    const auto rows = rowsOf(words.at(3), std::stoul(words.at(4)));
    if (words.at(0) == "run") {
        run(loaded(words.at(1), words.at(2)), rows);
    } else {
        ktKit::save(trained(words.at(1), rows), words.at(2));
    }
    return 0;
}
