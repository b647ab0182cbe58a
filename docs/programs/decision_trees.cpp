#include <clastool/clastool.h>

#include <iostream>

void print(const ktClassifierTool& tool, const ktFeaturePattern& pattern)
{
    ktClassifierResult result;
    tool.run(pattern, result);
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  category " << category.categoryLabel() << ", expected cost " << category.expectedCost() << "\n";
    }
}

int main()
{
    // [tree]
    // Of each category its label, match score, class score and expected cost; last the logarithm of a factor that all match
    // scores share, 0 if there is none.
    const ktDecisionTreeLeaf large(ktClassifierResult({{1, 1.0, 0.9, 0.1}, {2, 1.0, 0.1, 0.9}}, 0.0));
    const ktDecisionTreeLeaf small(ktClassifierResult({{2, 1.0, 1.0, 0.0}}, 0.0));
    const ktDecisionTreeNode tree(ktRangePredicate(ktRange(10.0, 20.0), {0}), large, small);

    ktClassifierTool tool;
    tool.train(tree);
    // [tree]
    std::cout << "15 mm:\n";
    print(tool, ktFeaturePattern({15.0}, {}));
    std::cout << "not measured:\n";
    print(tool, ktFeaturePattern({15.0}, {0}));

    // [leaf]
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(1, 2, 10.0);
    // Of 30 training patterns that came here 27 were of category 2 and 3 of category 1.
    const ktDecisionTreeLeaf mixed(ktClassifierResult({{1, 3.0 / 30.0, 0.0, 0.0}, {2, 27.0 / 30.0, 0.0, 0.0}},
                                                      ktClassifierFrequencies(), costs, 0.0));
    // [leaf]

    // [validity]
    const ktDecisionTreeNode careful(ktValidityPredicate({0}), tree, mixed);
    // [validity]
    tool.train(careful);
    std::cout << "not measured, and the tree asks for it:\n";
    print(tool, ktFeaturePattern({15.0}, {0}));
}
