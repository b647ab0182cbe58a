// Reads a decision tree that another program learnt and wrote down as text, and hands it to the tool. The text says, with four
// blanks for each level,
//
//     if worst_radius <= 16.305:
//         leaf benign=224 malignant=13
//     else:
//         leaf benign=8 malignant=130
//
// where a leaf counts the training samples that reached it. Empty lines and lines that begin with # are passed over.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/stored_tool.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace examples;

namespace {

using Tree = ktPtrHandle_const<ktDecisionTree>;

class TreeReader {
public:
    TreeReader(std::vector<std::string> names, const ktClassifierCosts& costs) : names_(std::move(names)), costs_(costs)
    {
    }

    /// Throws: std::runtime_error with one line that names the file and its line.
    Tree read(const std::string& path)
    {
        std::ifstream file(path);
        if (!file) {
            throw std::runtime_error(path + ": cannot be read");
        }
        try {
            std::string text;
            for (line_ = 1; std::getline(file, text); ++line_) {
                readLine(text);
            }
            check(!tree_.isNull(), open_.empty() ? "a tree is expected" : "the tree is not complete");
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(path + ": line " + std::to_string(line_) + ": " + error.what());
        }
        return tree_;
    }

private:
    /// An if whose branches are not both there yet.
    struct Open {
        ktRangePredicate question;
        Tree yes;
        bool hasElse = false;
    };

    static void check(bool isRight, const std::string& complaint)
    {
        if (!isRight) {
            throw std::runtime_error(complaint);
        }
    }

    static void checkEnd(std::istream& words)
    {
        std::string more;
        words >> more;
        check(more.empty(), "\"" + more + "\" is too much");
    }

    void readLine(std::string text)
    {
        if (!text.empty() && text.back() == '\r') {
            text.pop_back();  // a file with the line ends of Windows
        }
        const std::size_t indent = std::min(text.find_first_not_of(' '), text.size());
        if (indent == text.size() || text[indent] == '#') {
            return;
        }
        std::istringstream words(text);
        std::string word;
        words >> word;
        const bool isElse = word == "else:";
        const bool elseIsNext = !open_.empty() && !open_.back().yes.isNull() && !open_.back().hasElse;
        const std::size_t level = open_.size() - (elseIsNext ? 1 : 0);
        check(tree_.isNull(), "the tree is complete, nothing more is expected");
        check(isElse == elseIsNext,
              (elseIsNext ? "\"else:\" is expected, not \"" : "there is no \"if\" for this \"") + word + "\"");
        check(indent == 4 * level, std::to_string(4 * level) + " blanks are expected before \"" + word + "\"");
        if (isElse) {
            open_.back().hasElse = true;
        } else if (word == "if") {
            open_.push_back({readQuestion(words), {}});
        } else {
            check(word == "leaf", "\"if\", \"else:\" or \"leaf\" is expected, not \"" + word + "\"");
            close(new ktDecisionTreeLeaf(readLeaf(words)));
            return;
        }
        checkEnd(words);
    }

    /// "NAME <= NUMBER:", the rest of an if. A measurement that is missing is answered with no.
    ktRangePredicate readQuestion(std::istream& words) const
    {
        std::string name;
        std::string comparison;
        std::string limit;
        words >> name >> comparison >> limit;
        const auto place = std::find(names_.begin(), names_.end(), name);
        check(place != names_.end(), "\"" + name + "\" is no measurement");
        check(comparison == "<=", "\"<=\" is expected, not \"" + comparison + "\"");
        double number = 0.0;
        check(!limit.empty() && limit.back() == ':' && readNumber(limit.substr(0, limit.size() - 1), number),
              "a number and a colon are expected, not \"" + limit + "\"");
        return {ktRange(-std::numeric_limits<double>::infinity(), number), {static_cast<long>(place - names_.begin())}};
    }

    /// "benign=COUNT malignant=COUNT", the rest of a leaf. Their shares and the costs make the result.
    ktClassifierResult readLeaf(std::istream& words) const
    {
        const double ofBenign = readCount(words, "benign=");
        const double ofMalignant = readCount(words, "malignant=");
        const double all = ofBenign + ofMalignant;
        check(all > 0.0, "a leaf that no sample reached knows no answer");
        checkEnd(words);
        return {{{benign, ofBenign / all, 0.0, 0.0}, {malignant, ofMalignant / all, 0.0, 0.0}},
                ktClassifierFrequencies(),
                costs_,
                0.0};
    }

    static double readCount(std::istream& words, const std::string& label)
    {
        std::string word;
        words >> word;
        const std::string digits = word.rfind(label, 0) == 0 ? word.substr(label.size()) : "";
        check(!digits.empty() && digits.size() < 10 && digits.find_first_not_of("0123456789") == std::string::npos,
              "\"" + label + "\" and a count are expected, not \"" + word + "\"");
        return std::stod(digits);
    }

    /// Puts a tree that is complete into its place, which may complete the one around it. A loop, because it is the file that
    /// says how deep the tree is.
    void close(Tree tree)
    {
        while (!open_.empty() && open_.back().hasElse) {
            tree = new ktDecisionTreeNode(open_.back().question, *open_.back().yes, *tree);
            open_.pop_back();
        }
        (open_.empty() ? tree_ : open_.back().yes) = tree;
    }

    const std::vector<std::string> names_;
    const ktClassifierCosts costs_;
    std::vector<Open> open_;
    std::size_t line_ = 0;
    Tree tree_;
};

int importTree(const std::string& treePath, const std::string& csvPath)
{
    const CellNuclei data = readCellNuclei(csvPath);
    const std::vector<Sample> test = splitSamples(data.samples).test;
    for (const double costOfMissed : {1.0, 10.0}) {
        ktClassifierCosts costs(1.0);
        costs.misclassificationCostOverride(malignant, benign, costOfMissed);
        ktClassifierTool imported;
        imported.train(*TreeReader(data.names, costs).read(treePath));

        // Once stored, the text is needed no more.
        const std::string stored = bytesOf(imported);
        const ktClassifierTool tool = toolFrom(stored);
        ConfusionMatrix matrix;
        for (const Sample& sample : test) {
            ktClassifierResult result;
            tool.run(ktFeaturePattern(sample.measurements, {}), result);
            matrix.add(sample.label, decision(result));
        }
        std::cout << "A malignant sample called benign costs " << std::fixed << std::setprecision(0) << costOfMissed
                  << ", the reverse 1. The tree, stored in " << stored.size() << " bytes and loaded:\n";
        print(matrix);
        std::cout << "  total cost: " << std::setprecision(0) << matrix.totalCost(costs) << "\n\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: import_tree TREE_TXT CELL_NUCLEI_CSV\n";
        return 1;
    }
    try {
        return importTree(argv[1], argv[2]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
