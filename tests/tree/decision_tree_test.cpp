#include "own_trees.h"

namespace {

using namespace kt_test;
using namespace trees;

TEST(DecisionTreeLeaf, DefaultOneHoldsADefaultResult)
{
    const Leaf leaf;
    EXPECT_TRUE(leaf.classifierResult() == ktClassifierResult());
    EXPECT_EQ(leaf.categoryLabels(), Labels());
    EXPECT_EQ(leaf.numCategories(), 0);
}

TEST(DecisionTreeLeaf, KeepsACopyOfTheResult)
{
    ktClassifierResult result({{2, 0.5, 1.0, 3.0}}, -1.5);
    Leaf leaf(result);
    result = resultFor({9});
    EXPECT_TRUE(leaf.classifierResult() == ktClassifierResult({{2, 0.5, 1.0, 3.0}}, -1.5));
    leaf.classifierResult(result);
    result = ktClassifierResult();
    EXPECT_TRUE(leaf.classifierResult() == resultFor({9}));
}

TEST(DecisionTreeLeaf, TakesItsOwnResult)
{
    Leaf leaf = leafFor({4, 2});
    leaf.classifierResult(leaf.classifierResult());
    EXPECT_TRUE(leaf == leafFor({4, 2}));
}

TEST(DecisionTreeLeaf, GivesItsResultWithoutCopyingIt)
{
    const Leaf leaf = leafFor({4, 2});
    static_assert(std::is_same_v<decltype(leaf.classifierResult()), const ktClassifierResult&>);
    EXPECT_EQ(&leaf.classifierResult(), &leaf.classifierResult());
}

TEST(DecisionTreeLeaf, LabelsAreThoseOfTheResultInItsOrder)
{
    EXPECT_EQ(leafFor({3, 1, 2}).categoryLabels(), (Labels{3, 1, 2}));
    EXPECT_EQ(leafFor({3, 1, 2}).numCategories(), 3);
    const Leaf byCost(ktClassifierResult({{3, 1.0, 0.5, 2.0}, {1, 1.0, 0.5, 1.0}}, 0.0));
    EXPECT_EQ(byCost.categoryLabels(), (Labels{1, 3}));
}

TEST(DecisionTreeLeaf, LabelThatStandsTwiceIsReportedTwice)
{
    EXPECT_EQ(loadedLeaf({5, 1, 5}).categoryLabels(), (Labels{5, 1, 5}));
    EXPECT_EQ(loadedLeaf({5, 1, 5}).numCategories(), 3);
}

TEST(DecisionTreeNode, DefaultOneHoldsNothing)
{
    const Node empty;
    EXPECT_TRUE(empty.predicateFunction().isNull());
    EXPECT_TRUE(empty.trueTree().isNull());
    EXPECT_TRUE(empty.falseTree().isNull());
}

TEST(DecisionTreeNode, GivesReadOnlyHandlesOnWhatItHolds)
{
    const Node parent = node(leafFor({1}), leafFor({2}));
    static_assert(std::is_same_v<decltype(parent.predicateFunction()), ktPtrHandle_const<ktPredicateFunction>>);
    static_assert(std::is_same_v<decltype(parent.trueTree()), ktPtrHandle_const<ktDecisionTree>>);
    static_assert(std::is_same_v<decltype(parent.falseTree()), ktPtrHandle_const<ktDecisionTree>>);
    const SharedTree held = parent.trueTree();
    EXPECT_EQ(held->refCount(), 2);
    EXPECT_TRUE(held == parent.trueTree());
    EXPECT_TRUE(parent.falseTree() == parent.falseTree());
    EXPECT_TRUE(parent.predicateFunction() == parent.predicateFunction());
    EXPECT_FALSE(held == parent.falseTree());
}

TEST(DecisionTreeNode, ClonesTheTrueTreeThenTheFalseTreeThenThePredicate)
{
    std::string log;
    const OwnPredicate predicate(&log);
    const OwnTree ifTrue({1}, "true", &log);
    const OwnTree ifFalse({2}, "false", &log);
    const Node parent(predicate, ifTrue, ifFalse);
    EXPECT_EQ(log, "clone true; clone false; clone predicate; ");
    EXPECT_NE(parent.trueTree().get(), &ifTrue);
    EXPECT_NE(parent.falseTree().get(), &ifFalse);
    EXPECT_NE(parent.predicateFunction().get(), &predicate);
}

TEST(DecisionTreeNode, ChangesOfWhatItWasMadeOfDoNotReachIt)
{
    ktComparisonPredicate predicate(0, 1);
    Node below = node(leafFor({1}), leafFor({2}));
    Leaf leaf = leafFor({3});
    const Node parent(predicate, below, leaf);
    predicate = ktComparisonPredicate(1, 0);
    below.trueTree(leafFor({9}));
    below.predicateFunction(no());
    leaf.classifierResult(resultFor({9}));
    EXPECT_TRUE(parent == Node(ktComparisonPredicate(0, 1), node(leafFor({1}), leafFor({2})), leafFor({3})));
}

TEST(DecisionTreeNode, ChangesOfWhatItWasSetToDoNotReachIt)
{
    ktComparisonPredicate predicate(0, 1);
    Leaf ifTrue = leafFor({1});
    Node ifFalse = node(leafFor({2}), leafFor({3}));
    Node parent;
    parent.predicateFunction(predicate);
    parent.trueTree(ifTrue);
    parent.falseTree(ifFalse);
    predicate = ktComparisonPredicate(1, 0);
    ifTrue.classifierResult(resultFor({9}));
    ifFalse.falseTree(leafFor({9}));
    EXPECT_TRUE(parent == Node(ktComparisonPredicate(0, 1), leafFor({1}), node(leafFor({2}), leafFor({3}))));
}

TEST(DecisionTreeNode, SettersChangeOnePart)
{
    Node parent = node(leafFor({1}), leafFor({2}));
    parent.predicateFunction(no());
    EXPECT_TRUE(parent == Node(no(), leafFor({1}), leafFor({2})));
    parent.trueTree(leafFor({3}));
    EXPECT_TRUE(parent == Node(no(), leafFor({3}), leafFor({2})));
    parent.falseTree(leafFor({4}));
    EXPECT_TRUE(parent == Node(no(), leafFor({3}), leafFor({4})));
}

TEST(DecisionTreeNode, CopiesShareTheThreeHandles)
{
    const Node original = node(leafFor({1}), leafFor({2}));
    const Node copy(original);
    Node assigned;
    assigned = original;
    const Tree clone = original.clone();
    EXPECT_EQ(clone->refCount(), 1);
    for (const Node* other : {&copy, static_cast<const Node*>(&assigned), dynamic_cast<const Node*>(clone.get())}) {
        ASSERT_NE(other, nullptr);
        EXPECT_TRUE(other->predicateFunction() == original.predicateFunction());
        EXPECT_TRUE(other->trueTree() == original.trueTree());
        EXPECT_TRUE(other->falseTree() == original.falseTree());
    }
}

TEST(DecisionTreeNode, TakesItselfAndItsOwnParts)
{
    const Leaf one = leafFor({1});
    const Leaf two = leafFor({2});
    Node parent = node(node(one, two), two);
    parent.trueTree(*dynamic_cast<const Node&>(*parent.trueTree()).trueTree());
    EXPECT_TRUE(parent == node(one, two));
    parent.falseTree(parent);
    EXPECT_TRUE(parent == node(one, node(one, two)));
    parent.predicateFunction(*parent.predicateFunction());
    EXPECT_TRUE(parent == node(one, node(one, two)));
    const Node& same = parent;
    parent = same;
    EXPECT_TRUE(parent == node(one, node(one, two)));
    parent = dynamic_cast<const Node&>(*parent.falseTree());
    EXPECT_TRUE(parent == node(one, two));
}

struct LabelRow {
    const char* what;
    Tree tree;
    Labels labels;
};

TEST(DecisionTreeNode, LabelsOfTheFalseTreeComeFirstThenThoseThatOnlyTheTrueTreeAdds)
{
    const Node inner = node(leafFor({6, 1}), leafFor({4, 5}));
    const std::vector<LabelRow> rows{
        {"false 3 1, true 1 2", node(leafFor({1, 2}), leafFor({3, 1})).clone(), {3, 1, 2}},
        {"the same labels", node(leafFor({1, 2}), leafFor({2, 1})).clone(), {2, 1}},
        {"no labels", node(Leaf(), Leaf()).clone(), {}},
        {"labels on the true side alone", node(leafFor({2, 1}), Leaf()).clone(), {2, 1}},
        {"a node on the false side", node(leafFor({1, 7}), inner).clone(), {4, 5, 6, 1, 7}},
        {"a node on the true side", node(inner, leafFor({1, 7})).clone(), {1, 7, 4, 5, 6}},
        {"one node on both sides", node(inner, inner).clone(), {4, 5, 6, 1}},
        {"a label twice in the false leaf", node(leafFor({5, 2}), loadedLeaf({5, 1, 5})).clone(), {5, 1, 5, 2}},
        {"a label twice in the true leaf", node(loadedLeaf({5, 1, 5}), leafFor({2})).clone(), {2, 5, 1}},
        {"twice in the first leaf of all",
         node(leafFor({2}), node(leafFor({5}), loadedLeaf({5, 5}))).clone(),
         {5, 5, 2}},
        {"a tree of the caller's own", node(OwnTree({8, 8, 1}), OwnTree({7, 7})).clone(), {7, 7, 8, 1}},
        {"no predicate", missingPredicate(leafFor({1}), leafFor({2})).clone(), {2, 1}},
    };
    for (const LabelRow& row : rows) {
        EXPECT_EQ(row.tree->categoryLabels(), row.labels) << row.what;
        EXPECT_EQ(row.tree->numCategories(), static_cast<long>(row.labels.size())) << row.what;
    }
}

TEST(DecisionTreeNode, LabelsOfATreeWithAMissingSubtreeAreABadPointer)
{
    const Leaf leaf = leafFor({1});
    const std::vector<std::pair<const char*, Tree>> rows{
        {"nothing", Node().clone()},
        {"no true tree", missingTrue(leaf).clone()},
        {"no false tree", missingFalse(leaf).clone()},
        {"no true tree below the true tree", node(missingTrue(leaf), leaf).clone()},
        {"no false tree below the false tree", node(leaf, missingFalse(leaf)).clone()},
    };
    for (const auto& [what, tree] : rows) {
        SCOPED_TRACE(what);
        const Tree& asked = tree;
        expectBadPointer([&] { static_cast<void>(asked->categoryLabels()); });
        expectBadPointer([&] { static_cast<void>(asked->numCategories()); });
    }
}

TEST(DecisionTree, EqualTreesHaveOneShapeAndEqualParts)
{
    const Leaf one = leafFor({1});
    const Leaf two = leafFor({2});
    const std::vector<std::pair<const char*, std::function<Tree()>>> kinds{
        {"an empty leaf", [] { return Leaf().clone(); }},
        {"leaf 1", [&] { return one.clone(); }},
        {"leaf 1 with another score",
         [] {
             return Leaf(ktClassifierResult({{1, 0.5, 1.0, 0.0}}, 0.0)).clone();
         }},
        {"leaf 1 with another factor",
         [] {
             return Leaf(ktClassifierResult({{1, 1.0, 1.0, 0.0}}, 1.0)).clone();
         }},
        {"leaf 1 2",
         [] {
             return leafFor({1, 2}).clone();
         }},
        {"leaf 2 1",
         [] {
             return leafFor({2, 1}).clone();
         }},
        {"1 and 2", [&] { return node(one, two).clone(); }},
        {"2 and 1, the branches swapped", [&] { return node(two, one).clone(); }},
        {"1 and 2 by another predicate", [&] { return Node(no(), one, two).clone(); }},
        {"1 and 1", [&] { return node(one, one).clone(); }},
        {"a node on the true side", [&] { return node(node(one, two), two).clone(); }},
        {"a node on the false side", [&] { return node(one, node(one, two)).clone(); }},
        {"deeper", [&] { return node(one, node(one, node(one, two))).clone(); }},
    };
    for (const auto& [oneName, first] : kinds) {
        for (const auto& [otherName, second] : kinds) {
            SCOPED_TRACE(::testing::Message() << oneName << " and " << otherName);
            const bool same = &oneName == &otherName;
            EXPECT_EQ(first()->isEqual(*second()), same);
            EXPECT_EQ(*first() == *second(), same);
            EXPECT_EQ(*first() != *second(), !same);
        }
    }
}

TEST(DecisionTree, LeafAndNodeCompareUnequalWithoutAnException)
{
    const Leaf leaf = leafFor({1});
    const Node parent = node(leaf, leaf);
    const Node empty;
    EXPECT_FALSE(parent == leaf);
    EXPECT_FALSE(leaf == parent);
    EXPECT_TRUE(parent != leaf);
    EXPECT_TRUE(leaf != parent);
    EXPECT_FALSE(empty == leaf);
    EXPECT_FALSE(leaf == empty);
}

TEST(DecisionTree, ResultWithANaNIsUnequalEvenToItself)
{
    const Leaf leaf(ktClassifierResult({{1, 1.0, 1.0, std::numeric_limits<double>::quiet_NaN()}}, 0.0));
    const Node parent = node(leaf, leafFor({1}));
    EXPECT_FALSE(leaf == leaf);
    EXPECT_FALSE(parent == parent);
}

TEST(DecisionTreeNode, ComparesPredicatesThenTrueTreesThenFalseTreesUpToTheFirstDifference)
{
    struct Row {
        const char* what;
        bool predicate, ifTrue, ifFalse;
        const char* log;
    };
    const Node other = node(leafFor({1}), leafFor({2}));
    for (const Row& row : std::vector<Row>{
             {"all equal", true, true, true, "compare predicate; compare true; compare false; "},
             {"the predicates differ", false, false, false, "compare predicate; "},
             {"the true trees differ", true, false, false, "compare predicate; compare true; "},
             {"the false trees differ", true, true, false, "compare predicate; compare true; compare false; "},
         }) {
        SCOPED_TRACE(row.what);
        std::string log;
        const Node mine(OwnPredicate(&log, row.predicate), OwnTree({}, "true", &log, row.ifTrue),
                        OwnTree({}, "false", &log, row.ifFalse));
        log.clear();
        EXPECT_EQ(mine == other, row.predicate && row.ifTrue && row.ifFalse);
        EXPECT_EQ(log, row.log);
    }
}

TEST(DecisionTreeNode, MissingPartThatTheComparisonMeetsIsABadPointer)
{
    const Leaf one = leafFor({1});
    const Leaf two = leafFor({2});
    const std::vector<std::pair<const char*, std::pair<Node, Node>>> rows{
        {"both hold nothing", {Node(), Node()}},
        {"no predicate", {missingPredicate(one, two), node(one, two)}},
        {"no predicate, other trees", {missingPredicate(one, two), node(two, one)}},
        {"no true tree", {missingTrue(two), node(one, two)}},
        {"no true tree, another false tree", {missingTrue(one), node(one, two)}},
        {"no true tree on either side", {missingTrue(two), missingTrue(two)}},
        {"no false tree", {missingFalse(one), node(one, two)}},
        {"no false tree on either side", {missingFalse(one), missingFalse(one)}},
        {"no false tree further down", {node(missingFalse(one), two), node(node(one, two), two)}},
    };
    for (const auto& [what, pair] : rows) {
        SCOPED_TRACE(what);
        const auto& [mine, theirs] = pair;
        const Node& left = mine;
        const Node& right = theirs;
        expectBadPointer([&] { static_cast<void>(left == right); });
        expectBadPointer([&] { static_cast<void>(right == left); });
        expectBadPointer([&] { static_cast<void>(left.isEqual(right)); });
    }
}

TEST(DecisionTreeNode, MissingPartBehindTheFirstDifferenceDoesNotMatter)
{
    const Leaf one = leafFor({1});
    const Leaf two = leafFor({2});
    Node otherPredicate;
    otherPredicate.predicateFunction(no());
    EXPECT_FALSE(otherPredicate == node(one, two));
    EXPECT_FALSE(node(one, two) == otherPredicate);
    EXPECT_FALSE(missingFalse(one) == missingFalse(two));
    EXPECT_FALSE(missingFalse(one) == node(two, two));
    EXPECT_FALSE(missingTrue(one) == one);
}

TEST(DecisionTree, BaseEqualityIsTrueAndConcreteOnesLookAtTheClass)
{
    const OwnTree own({1});
    EXPECT_TRUE(own == leafFor({2}));
    EXPECT_TRUE(own == Node());
    EXPECT_FALSE(leafFor({1}) == own);
    EXPECT_FALSE(node(own, own) == own);
    EXPECT_FALSE(node(leafFor({1}), own) == node(own, own));
    EXPECT_TRUE(node(own, own) == node(leafFor({1}), leafFor({2})));
}

TEST(DecisionTree, AssignmentOfADerivedClassLeavesTheCountAlone)
{
    const ktPtrHandle<OwnTree> held(new OwnTree({1}));
    const ktPtrHandle<OwnTree> second = held;
    *held = OwnTree({2});
    EXPECT_EQ(second->categoryLabels(), Labels{2});
    EXPECT_EQ(held->refCount(), 2);
}

/// A node of the caller's own: one label beside those below it, and equality of the labels alone.
class OwnNode : public ktDecisionTreeNode {
public:
    using ktDecisionTreeNode::ktDecisionTreeNode;
    Labels categoryLabels() const override
    {
        Labels labels = ktDecisionTreeNode::categoryLabels();
        labels.push_back(77);
        return labels;
    }
    ktPtrHandle<ktDecisionTree> clone() const override { return new OwnNode(*this); }
    bool isEqual(const ktDecisionTree& other) const override { return categoryLabels() == other.categoryLabels(); }
};

TEST(DecisionTreeNode, DerivedClassesBelowItListTheirLabelsInTheirOwnWay)
{
    const OwnNode own(yes(), leafFor({1}), leafFor({2}));
    EXPECT_EQ(own.categoryLabels(), (Labels{2, 1, 77}));
    EXPECT_EQ(node(leafFor({3}), own).categoryLabels(), (Labels{2, 1, 77, 3}));
    EXPECT_EQ(node(own, leafFor({77})).categoryLabels(), (Labels{77, 2, 1}));
}

TEST(DecisionTreeNode, DerivedClassesBelowItAreComparedInTheirOwnWay)
{
    const OwnNode own(yes(), leafFor({1}), leafFor({2}));
    const OwnNode samelabels(no(), leafFor({1}), leafFor({2}));
    const OwnNode otherLabels(yes(), leafFor({1}), leafFor({3}));
    EXPECT_TRUE(node(own, own) == node(samelabels, own));
    EXPECT_FALSE(node(own, own) == node(own, otherLabels));
}

/// A predicate that equals near ones, so that equality is not transitive. It counts its comparisons.
class Near : public ktPredicateFunction {
public:
    explicit Near(long value) : value_(value) {}
    bool outcome(const ktFeaturePattern&) const override { return true; }
    ktPtrHandle<ktPredicateFunction> clone() const override { return new Near(*this); }
    bool isEqual(const ktPredicateFunction& other) const override
    {
        ++asked;
        return std::abs(value_ - dynamic_cast<const Near&>(other).value_) <= 1;
    }

    static long asked;

private:
    long value_;
};

long Near::asked = 0;

TEST(DecisionTreeNode, EqualityOfACallersOwnNeedNotBeTransitive)
{
    const auto holding = [](long value) { return node(Node(Near(value), leafFor({1}), leafFor({1})), leafFor({1})); };
    const Node a = holding(0), x = holding(1), b = holding(2), y = holding(3);
    EXPECT_TRUE(a == x && b == x && b == y);
    EXPECT_FALSE(a == y);
    EXPECT_FALSE(node(node(a, b), node(b, a)) == node(node(x, x), node(y, y)));
    EXPECT_TRUE(node(node(a, b), node(b, b)) == node(node(x, x), node(y, y)));
}

/// A leaf that equals those whose label is not far from its own.
class NearLeaf : public Leaf {
public:
    explicit NearLeaf(long label) : Leaf(resultFor({label})) {}
    ktPtrHandle<ktDecisionTree> clone() const override { return new NearLeaf(*this); }
    bool isEqual(const ktDecisionTree& other) const override
    {
        return std::abs(categoryLabels().front() - other.categoryLabels().front()) <= 1;
    }
};

TEST(DecisionTreeNode, EqualityOfACallersOwnLeafNeedNotBeTransitive)
{
    const auto holding = [](long label) { return node(NearLeaf(label), leafFor({9})); };
    const Node a = holding(0), x = holding(1), b = holding(2), y = holding(3);
    EXPECT_FALSE(node(node(a, b), node(b, a)) == node(node(x, x), node(y, y)));
    EXPECT_TRUE(node(node(a, b), node(b, b)) == node(node(x, x), node(y, y)));
}

TEST(DecisionTreeNode, SharedPredicateIsComparedOnceWithAnother)
{
    const auto shared = [] {
        Node tree(Near(0), leafFor({1}), leafFor({2}));
        for (int level = 0; level < 20; ++level) {
            Node above(tree);
            above.trueTree(tree);
            tree = above;
        }
        return tree;
    };
    const Node tree = shared();
    const Node equal = shared();
    Near::asked = 0;
    EXPECT_TRUE(tree == equal);
    EXPECT_EQ(Near::asked, 1);
}

TEST(DecisionTreeNode, PredicateSharedInOneTreeAloneIsComparedOnceWithAnother)
{
    const Node asking(Near(0), leafFor({1}), leafFor({2}));
    const Node own = node(Node(Near(0), leafFor({1}), leafFor({2})), leafFor({3}));
    const Node twoThatShare = node(node(asking, leafFor({3})), node(asking, leafFor({3})));
    const Node oneTwice = node(own, own);
    for (const auto& [mine, theirs] : {std::pair(&twoThatShare, &oneTwice), std::pair(&oneTwice, &twoThatShare)}) {
        Near::asked = 0;
        EXPECT_TRUE(*mine == *theirs);
        EXPECT_EQ(Near::asked, 1);
    }
}

TEST(DecisionTreeNode, WhatDoesNotEqualItselfIsNotEqualWhereItIsAPartOfBoth)
{
    const Node unequal = node(leafFor({1}), Leaf(ktClassifierResult({{1, NaN, 1.0, 0.0}}, 0.0)));
    EXPECT_FALSE(unequal == unequal);
    const Node parent = node(unequal, unequal);
    EXPECT_FALSE(parent == parent);
    EXPECT_FALSE(parent == Node(parent));
    const Node ranges(ktRangePredicate(ktRange(NaN, 1.0), {0}), leafFor({1}), leafFor({1}));
    EXPECT_FALSE(node(ranges, ranges) == node(ranges, ranges));
}

TEST(DecisionTreeNode, TakesOverItsOwnChild)
{
    for (const bool isTrue : {true, false}) {
        SCOPED_TRACE(isTrue);
        const Node child(ktComparisonPredicate(7, 3), leafFor({1}), node(leafFor({2}), leafFor({3})));
        Node tree = isTrue ? node(child, leafFor({9})) : node(leafFor({9}), child);
        const ktDecisionTree* const held = isTrue ? tree.trueTree().get() : tree.falseTree().get();
        ASSERT_EQ(held->refCount(), 1);
        tree = dynamic_cast<const Node&>(*held);
        EXPECT_TRUE(tree == child);
        EXPECT_EQ(tree.categoryLabels(), (Labels{3, 2, 1}));
    }
}

TEST(DecisionTreeNode, ArchiveHoldsVersionsThenTrueTreeFalseTreeAndPredicateAsPointers)
{
    Fields fields(kt_test::store(Node(ktComparisonPredicate(7, 3), leafFor({1}), node(leafFor({2}), leafFor({3})))));
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    const auto ifTrue = fields.next<Tree>();
    const auto ifFalse = fields.next<Tree>();
    const auto predicate = fields.next<ktPtrHandle<ktPredicateFunction>>();
    EXPECT_TRUE(fields.atEnd());
    EXPECT_TRUE(*ifTrue == leafFor({1}));
    EXPECT_TRUE(*ifFalse == node(leafFor({2}), leafFor({3})));
    EXPECT_TRUE(*predicate == ktComparisonPredicate(7, 3));
}

TEST(DecisionTreeLeaf, ArchiveHoldsVersionBaseVersionAndResult)
{
    const ktClassifierResult result({{3, 0.5, 0.75, 1.0}, {1, 0.25, 0.25, 0.5}}, -12.5);
    Fields fields(kt_test::store(Leaf(result)));
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_TRUE(fields.next<ktClassifierResult>() == result);
    EXPECT_TRUE(fields.atEnd());
}

TEST(DecisionTree, SharedPartsAreWrittenOnceAndRestoredShared)
{
    const Node inner = node(leafFor({1}), leafFor({2}));
    const Node parent = node(inner, inner);
    const Node loaded = kt_test::storedAndLoaded(parent);
    EXPECT_TRUE(loaded == parent);
    const auto& ifTrue = dynamic_cast<const Node&>(*loaded.trueTree());
    const auto& ifFalse = dynamic_cast<const Node&>(*loaded.falseTree());
    EXPECT_NE(&ifTrue, &ifFalse);
    EXPECT_TRUE(ifTrue.trueTree() == ifFalse.trueTree());
    EXPECT_TRUE(ifTrue.falseTree() == ifFalse.falseTree());
    EXPECT_TRUE(ifTrue.predicateFunction() == ifFalse.predicateFunction());
    EXPECT_EQ(ifTrue.trueTree()->refCount(), 3) << "two nodes and the handle that asks";

    const Node apart = node(node(leafFor({1}), leafFor({2})), node(leafFor({1}), leafFor({2})));
    EXPECT_LT(kt_test::store(parent).size(), kt_test::store(apart).size());
}

TEST(DecisionTree, OneSubtreeOnBothSidesIsRestoredAsOne)
{
    const SharedTree shared = new Leaf(resultFor({6}));
    unsigned char version = 0;
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        SharedTree twice = shared;
        ktPtrHandle_const<ktPredicateFunction> predicate = yes().clone();
        archive || version || version || twice || twice || predicate;
    }
    const Node loaded = kt_test::load<Node>(archive.bytes());
    EXPECT_TRUE(loaded == node(leafFor({6}), leafFor({6})));
    EXPECT_EQ(loaded.trueTree().get(), loaded.falseTree().get());
}

TEST(DecisionTreeNode, MissingPartsAreStoredAndLoadedAsMissing)
{
    const Node halves[] = {Node(), missingTrue(leafFor({1})), missingFalse(leafFor({1})),
                           missingPredicate(leafFor({1}), leafFor({2}))};
    for (const Node& half : halves) {
        const Node loaded = kt_test::storedAndLoaded(half);
        EXPECT_EQ(loaded.trueTree().isNull(), half.trueTree().isNull());
        EXPECT_EQ(loaded.falseTree().isNull(), half.falseTree().isNull());
        EXPECT_EQ(loaded.predicateFunction().isNull(), half.predicateFunction().isNull());
    }
}

TEST(DecisionTreeNode, ObjectOfAnotherClassLoadsAsMissing)
{
    unsigned char version = 0;
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        ktPtrHandle_const<ktPredicateFunction> predicate = yes().clone();
        SharedTree tree = leafFor({1}).clone();
        ktPtrHandle_const<ktFeaturePattern> pattern = new ktFeaturePattern({1.0}, {});
        archive || version || version || predicate || pattern || tree;
    }
    Node loaded = node(leafFor({8}), leafFor({9}));
    kt_test::loadInto(loaded, archive.bytes());
    EXPECT_TRUE(loaded.trueTree().isNull());
    EXPECT_TRUE(loaded.falseTree().isNull());
    EXPECT_TRUE(loaded.predicateFunction().isNull());
}

TEST(DecisionTreeNode, LoadingReleasesEachHandleFirst)
{
    Node over = node(leafFor({1}), leafFor({2}));
    const SharedTree ifTrue = over.trueTree();
    const SharedTree ifFalse = over.falseTree();
    // Versions and a null true tree; then the bytes end.
    const std::string bytes = kt_test::archiveHeader() + kt_test::fromHex("00 00 00");
    expectThrows<ktArchive::Corrupt>("Corrupt archive: unexpected end at byte 11.",
                                     [&] { kt_test::loadInto(over, bytes); });
    EXPECT_EQ(ifTrue->refCount(), 1);
    EXPECT_EQ(ifFalse->refCount(), 1);
    EXPECT_TRUE(over.trueTree().isNull());
    EXPECT_TRUE(over.falseTree().isNull());
    EXPECT_FALSE(over.predicateFunction().isNull());
}

TEST(DecisionTreeLeaf, LoadedResultIsTakenAsItStands)
{
    const Leaf unsorted = [] {
        std::vector<ktClassifierCategoryResult> entries{{2, 1.0, 0.25, 9.0}, {2, 1.0, 0.25, 1.0}};
        unsigned char version = 0;
        double factorLog = 0.0;
        kt_test::StoringArchive archive;
        archive || version || version || version || entries || factorLog;
        return kt_test::load<Leaf>(archive.bytes());
    }();
    ASSERT_EQ(unsorted.classifierResult().categoryResults().size(), 2u);
    EXPECT_EQ(unsorted.classifierResult().categoryResults()[0].expectedCost(), 9.0);
    EXPECT_EQ(unsorted.classifierResult().categoryResults()[1].classScore(), 0.25);
}

TEST(DecisionTree, PartsAreFreedWithTheLastTreeThatHoldsThem)
{
    const kt_test::MemoryWatch watch;
    {
        SharedTree below;
        {
            const Node parent = node(node(leafFor({1}), leafFor({2})), leafFor({3}));
            below = parent.trueTree();
            EXPECT_EQ(below->refCount(), 2);
        }
        EXPECT_EQ(below->refCount(), 1);
        EXPECT_TRUE(*below == node(leafFor({1}), leafFor({2})));
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

}  // namespace
