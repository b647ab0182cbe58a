#include <clastool/clastool.h>

#include <iostream>
#include <sstream>
#include <string>

void print(const ktClassifierTool& tool, const ktFeaturePattern& pattern)
{
    ktClassifierResult result;
    tool.run(pattern, result);
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  category " << category.categoryLabel() << ", expected cost " << category.expectedCost() << "\n";
    }
}

// [print]
std::string question(const ktPredicateFunction& predicate)
{
    if (dynamic_cast<const ktValidityPredicate*>(&predicate) != nullptr) {
        return "measured?";
    }
    if (const auto* range = dynamic_cast<const ktRangePredicate*>(&predicate)) {
        std::ostringstream text;
        text << "from " << range->measurementRange().low() << " to " << range->measurementRange().high() << "?";
        return text.str();
    }
    return "something else?";
}

void printTree(const ktDecisionTree& tree, const std::string& indent = "")
{
    if (const auto* node = dynamic_cast<const ktDecisionTreeNode*>(&tree)) {
        std::cout << question(*node->predicateFunction()) << "\n" << indent << "  yes: ";
        printTree(*node->trueTree(), indent + "  ");
        std::cout << indent << "  no:  ";
        printTree(*node->falseTree(), indent + "  ");
    } else if (const auto* leaf = dynamic_cast<const ktDecisionTreeLeaf*>(&tree)) {
        std::cout << "category " << leaf->classifierResult().categoryResults().front().categoryLabel() << "\n";
    }
}
// [print]

int main()
{
    // [tree]
    const ktClassifierFrequencies frequencies;  // all equal
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(1, 2, 10.0);

    // Of each category its label and its match score, here its share of the training patterns that came to the leaf. The two
    // zeros are what the decision rule fills in. Last the logarithm of a factor that all match scores share, 0 if there is none.
    const ktDecisionTreeLeaf large(
        ktClassifierResult({{1, 0.9, 0.0, 0.0}, {2, 0.1, 0.0, 0.0}}, frequencies, costs, 0.0));
    const ktDecisionTreeLeaf small(ktClassifierResult({{2, 1.0, 0.0, 0.0}}, frequencies, costs, 0.0));
    const ktDecisionTreeNode tree(ktRangePredicate(ktRange(10.0, 20.0), {0}), large, small);

    ktClassifierTool tool;
    tool.train(tree);
    // [tree]
    std::cout << "15 mm:\n";
    print(tool, ktFeaturePattern({15.0}, {}));
    std::cout << "not measured:\n";
    print(tool, ktFeaturePattern({15.0}, {0}));

    // [leaf]
    // Of each category its label, match score, class score and expected cost.
    const ktDecisionTreeLeaf unmeasured(ktClassifierResult({{1, 0.5, 0.5, 0.5}, {2, 0.5, 0.5, 5.0}}, 0.0));
    // [leaf]

    // [validity]
    const ktDecisionTreeNode careful(ktValidityPredicate({0}), tree, unmeasured);
    // [validity]
    tool.train(careful);
    std::cout << "not measured, and the tree asks for it:\n";
    print(tool, ktFeaturePattern({15.0}, {0}));

    std::cout << "that tree:\n";
    printTree(*tool.decisionTree());
}
