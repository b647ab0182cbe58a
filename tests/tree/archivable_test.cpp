// The classes of decision_tree.h, run through what must hold for every archivable class.

#include "support/archivable_kit.h"

#include "trees.h"

#include <limits>

namespace {

using namespace kt_test;

using namespace trees;

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
                ktRangePredicate(ktRange(0.25, infinity), {4, 1, 4})};
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
        return {ktDecisionTreeLeaf(), leafFor({7}),
                ktDecisionTreeLeaf(ktClassifierResult({{3, 0.5, 0.75, 1.0}, {1, 0.25, 0.25, 0.5}}, -12.5))};
    }
};

/// Every class of predicate, a subtree met twice, and a branch with nothing but a leaf.
ktDecisionTreeNode smallTree()
{
    const ktDecisionTreeNode shared(ktRangePredicate(ktRange(0.0, 1.5), {0, 1}), leafFor({1, 2}), leafFor({3}));
    const ktDecisionTreeNode twice(ktComparisonPredicate(1, 0), shared, shared);
    return {ktValidityPredicate(std::vector<long>{0, 1}), twice, leafFor({4})};
}

struct Node : kt_test::ArchivableCase<ktDecisionTreeNode> {
    static constexpr const char* name = "ktDecisionTreeNode";

    static std::vector<ktDecisionTreeNode> samples()
    {
        return {ktDecisionTreeNode(trees::yes(), leafFor({1}), leafFor({2})),
                ktDecisionTreeNode(trees::yes(), leafFor({2}), leafFor({1})), smallTree()};
    }
};

struct Classifier : kt_test::ArchivableCase<kt_ClassifierDecisionTree> {
    static constexpr const char* name = "kt_ClassifierDecisionTree";

    static std::vector<kt_ClassifierDecisionTree> samples()
    {
        std::vector<kt_ClassifierDecisionTree> classifiers(3);
        classifiers[1].trainManual(leafFor({5}));
        classifiers[2].trainManual(smallTree());
        return classifiers;
    }

    /// Untrained classifiers, which `==` refuses, count as equal.
    static bool equal(const kt_ClassifierDecisionTree& a, const kt_ClassifierDecisionTree& b)
    {
        return (!a.isTrained() && !b.isTrained()) || a == b;
    }
};

using Classes = ::testing::Types<Comparison, Range, Validity, Leaf, Node, Classifier>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Tree, Archivable, Classes, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Tree, ArchivableByPointer, Classes, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Tree, Cloneable, Classes, kt_test::CaseNames);
