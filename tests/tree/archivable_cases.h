#pragma once

// The archivable classes of decision_tree.h and their samples.

#include "support/archivable_kit.h"

#include "trees.h"

namespace cases {

struct Comparison : kt_test::ArchivableCase<ktComparisonPredicate> {
    static constexpr const char* name = "ktComparisonPredicate";

    static std::vector<ktComparisonPredicate> samples()
    {
        return {ktComparisonPredicate(), ktComparisonPredicate(1, 0), ktComparisonPredicate(2147483647, 5)};
    }
};

struct Range : kt_test::ArchivableCase<ktRangePredicate> {
    static constexpr const char* name = "ktRangePredicate";

    static std::vector<ktRangePredicate> samples()
    {
        return {ktRangePredicate(), ktRangePredicate(ktRange(-1.5, 2.0), {}),
                ktRangePredicate(ktRange(0.25, kt_test::infinity), {4, 1, 4})};
    }
};

struct Validity : kt_test::ArchivableCase<ktValidityPredicate> {
    static constexpr const char* name = "ktValidityPredicate";

    static std::vector<ktValidityPredicate> samples()
    {
        return {ktValidityPredicate(), ktValidityPredicate(std::vector<long>()),
                ktValidityPredicate(std::vector<long>{2147483647, 0, 0})};
    }
};

struct Leaf : kt_test::ArchivableCase<ktDecisionTreeLeaf> {
    static constexpr const char* name = "ktDecisionTreeLeaf";

    static std::vector<ktDecisionTreeLeaf> samples()
    {
        return {ktDecisionTreeLeaf(), trees::leafFor({7}),
                ktDecisionTreeLeaf(ktClassifierResult({{3, 0.5, 0.75, 1.0}, {1, 0.25, 0.25, 0.5}}, -12.5))};
    }
};

/// Every class of predicate, a subtree met twice, and a branch with nothing but a leaf.
inline ktDecisionTreeNode treeOfEveryPredicate()
{
    const ktDecisionTreeNode shared(ktRangePredicate(ktRange(0.0, 1.5), {0, 1}), trees::leafFor({1, 2}),
                                    trees::leafFor({3}));
    const ktDecisionTreeNode twice(ktComparisonPredicate(1, 0), shared, shared);
    return {ktValidityPredicate(std::vector<long>{0, 1}), twice, trees::leafFor({4})};
}

struct Node : kt_test::ArchivableCase<ktDecisionTreeNode> {
    static constexpr const char* name = "ktDecisionTreeNode";

    static std::vector<ktDecisionTreeNode> samples()
    {
        return {ktDecisionTreeNode(trees::yes(), trees::leafFor({1}), trees::leafFor({2})),
                ktDecisionTreeNode(trees::yes(), trees::leafFor({2}), trees::leafFor({1})), treeOfEveryPredicate()};
    }
};

struct Classifier : kt_test::ArchivableCase<kt_ClassifierDecisionTree> {
    static constexpr const char* name = "kt_ClassifierDecisionTree";

    static std::vector<kt_ClassifierDecisionTree> samples()
    {
        std::vector<kt_ClassifierDecisionTree> classifiers(3);
        classifiers[1].trainManual(trees::leafFor({5}));
        classifiers[2].trainManual(treeOfEveryPredicate());
        return classifiers;
    }

    /// Untrained classifiers, which `==` refuses, count as equal.
    static bool equal(const kt_ClassifierDecisionTree& a, const kt_ClassifierDecisionTree& b)
    {
        return (!a.isTrained() && !b.isTrained()) || a == b;
    }
};

}  // namespace cases
