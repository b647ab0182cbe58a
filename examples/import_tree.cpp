// Reads a decision tree that another program learnt and wrote down as text, and hands it to the tool. The text says, with four
// blanks for each level,
//
//     if worst_radius <= 16.305:
//         leaf benign=224 malignant=13
//     else:
//         leaf benign=8 malignant=130
//
// where a leaf counts the training samples that reached it. Empty lines and lines that begin with # are passed over. The names
// are those of any file whose first column names the categories.

#include "common/errors.h"
#include "common/options.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

namespace {

/// A part of the tree, and where it stands.
struct Branch {
    ktPtrHandle_const<ktDecisionTree> tree;
    std::size_t indent;
    bool isElse;
};

void check(bool isRight, const std::string& complaint)
{
    if (!isRight) {
        throw std::runtime_error(complaint);
    }
}

/// "NAME <= NUMBER:", the rest of an if. A measurement that is missing is answered with no.
ktRangePredicate readQuestion(std::istream& words, const std::vector<std::string>& columns)
{
    std::string name, comparison, more;
    double limit = 0.0;
    char colon = '\0';
    words >> name >> comparison >> limit >> colon;
    check(words && comparison == "<=" && colon == ':' && !(words >> more), "\"if NAME <= NUMBER:\" is expected");
    return {ktRange(-std::numeric_limits<double>::infinity(), limit), {examples::indexOf(columns, name)}};
}

/// "NAME=COUNT NAME=COUNT ...", the rest of a leaf. Their shares and the costs make the result.
ktClassifierResult readLeaf(std::istream& words, const std::vector<std::string>& names, const ktClassifierCosts& costs)
{
    std::vector<std::pair<long, double>> counts;
    double all = 0.0;
    for (std::string name; std::getline(words >> std::ws, name, '=');) {
        double count = 0.0;
        check(!words.eof(), "\"" + name + "\" is not followed by \"=\" and a count");
        check((words >> count) && count >= 0.0, "\"NAME=COUNT\" is expected");
        counts.emplace_back(examples::indexOf(names, name), count);
        all += count;
    }
    check(all > 0.0, "a leaf that no sample reached knows no answer");
    std::vector<ktClassifierCategoryResult> shares;
    for (const auto& [label, count] : counts) {
        shares.emplace_back(label, count / all, 0.0, 0.0);
    }
    return {shares, ktClassifierFrequencies(), costs, 0.0};
}

/// Takes a line into account, given all that stand below it: an if joins the two branches that begin there.
void takeLine(const std::string& line, const ktKit::Table& names, const ktClassifierCosts& costs,
              std::vector<Branch>& below)
{
    const std::size_t indent = line.find_first_not_of(" \r");
    if (indent == std::string::npos || line[indent] == '#') {
        return;
    }
    std::istringstream words(line);
    std::string word;
    words >> word;
    const std::size_t inner = indent + 4;
    if (word == "else:") {
        check(!below.empty() && below.back().indent == inner && !below.back().isElse, "nothing stands below \"else:\"");
        below.back() = {below.back().tree, indent, true};
    } else if (word == "if") {
        const ktRangePredicate question = readQuestion(words, names.columns);
        check(below.size() > 1 && below.back().indent == inner && !below.back().isElse, "nothing stands below \"if\"");
        const Branch yes = below.back();
        below.pop_back();
        check(below.back().indent == indent && below.back().isElse, "\"if\" has no \"else:\"");
        below.back() = {new ktDecisionTreeNode(question, *yes.tree, *below.back().tree), indent, false};
    } else {
        check(word == "leaf", "\"if\", \"else:\" or \"leaf\" is expected, not \"" + word + "\"");
        below.push_back({new ktDecisionTreeLeaf(readLeaf(words, names.labelNames, costs)), indent, false});
    }
}

/// Throws: std::runtime_error that names the file, the line, if it is the fault of one, and what is wrong.
ktPtrHandle_const<ktDecisionTree> readTree(const std::string& path, const ktKit::Table& names,
                                           const ktClassifierCosts& costs)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    // From the last line to the first: what an if joins has been read then, however deep the tree is.
    std::vector<Branch> found;
    for (std::size_t number = lines.size(); number > 0; --number) {
        try {
            takeLine(lines[number - 1], names, costs, found);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(path + ": line " + std::to_string(number) + ": " + error.what());
        }
    }
    check(found.size() == 1 && found[0].indent == 0 && !found[0].isElse, path + ": one tree is expected");
    return found[0].tree;
}

int importTree(const std::string& treePath, const std::string& csvPath, char** options, int numOptions)
{
    const ktKit::Table table = ktKit::readCsv(csvPath);
    const ktClassifierDataProviderMemory test = examples::thirds(table.data).test;
    for (int i = 0; i < numOptions; ++i) {
        const ktClassifierCosts costs = examples::costsOf(options[i], table.labelNames);
        ktClassifierTool imported;
        imported.train(*readTree(treePath, table, costs));
        // Once saved, the text is needed no more.
        ktKit::save(imported, "import_tree.tool");
        const ktClassifierTool tool = ktKit::load("import_tree.tool");
        std::filesystem::remove("import_tree.tool");
        const ktKit::ConfusionMatrix matrix =
            examples::counted(test, ktKit::runAll(tool, ktKit::patterns(test)), table.labelNames);
        std::cout << "The tree, saved and loaded, with costs " << options[i] << ":\n"
                  << matrix << "total cost: " << matrix.cost(costs) << "\n\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc > 3 ? importTree(argv[1], argv[2], argv + 3, argc - 3)
                        : throw std::runtime_error("usage: import_tree TREE_TXT CSV CATEGORY=COST...");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
