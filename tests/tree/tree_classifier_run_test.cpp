#include "own_trees.h"
#include "tree_classifier_kit.h"

namespace {

using namespace kt_test;
using namespace trees;

TEST(TreeClassifierRun, SingleLeafAnswersEveryPattern)
{
    const ktClassifierResult stored({{3, 0.5, 0.75, 1.0}, {1, 0.25, 0.25, 0.5}}, -12.5);
    const Classifier classifier = trained(Leaf(stored));
    EXPECT_TRUE(run(classifier, ktFeaturePattern()) == stored);
    EXPECT_TRUE(run(classifier, ktFeaturePattern({1.0, 2.0}, {0})) == stored);
    EXPECT_TRUE(run(trained(Leaf()), ktFeaturePattern()) == ktClassifierResult());
}

TEST(TreeClassifierRun, PredicateChoosesTheBranch)
{
    struct Row {
        const char* what;
        ktFeaturePattern pattern;
        long label;
    };
    const Classifier classifier = trained(smallTree());
    for (const Row& row : std::vector<Row>{
             {"greater", ktFeaturePattern({2.0, 1.0}, {}), 1},
             {"equal", ktFeaturePattern({1.0, 1.0}, {}), 2},
             {"less", ktFeaturePattern({1.0, 2.0}, {}), 2},
             {"NaN", ktFeaturePattern({NaN, 1.0}, {}), 2},
             {"invalid", ktFeaturePattern({2.0, 1.0}, {0}), 2},
             {"one measurement missing", ktFeaturePattern({2.0}, {}), 2},
             {"no measurements", ktFeaturePattern(), 2},
             {"more measurements than asked for", ktFeaturePattern({2.0, 1.0, 9.0}, {2}), 1},
         }) {
        EXPECT_TRUE(run(classifier, row.pattern) == resultFor({row.label})) << row.what;
    }
}

/// Whether measurement `index` lies in [low, high]: label 1; else label 2.
Node rangeNode(double low, double high, const std::vector<long>& indices)
{
    return {ktRangePredicate(ktRange(low, high), indices), leafFor({1}), leafFor({2})};
}

TEST(TreeClassifierRun, RangeChoosesTheBranch)
{
    struct Row {
        const char* what;
        ktFeaturePattern pattern;
        long ofOne;
        long ofTwo;
    };
    const Classifier ofOne = trained(rangeNode(-1.0, 3.0, {1}));
    const Classifier ofTwo = trained(rangeNode(-1.0, 3.0, {1, 0}));
    for (const Row& row : std::vector<Row>{
             {"within", ktFeaturePattern({0.5, 2.0}, {}), 1, 1},
             {"at the low end", ktFeaturePattern({0.5, -1.0}, {}), 1, 1},
             {"at the high end", ktFeaturePattern({0.5, 3.0}, {}), 1, 1},
             {"below", ktFeaturePattern({0.5, -1.5}, {}), 2, 2},
             {"above", ktFeaturePattern({0.5, 3.5}, {}), 2, 2},
             {"another one above", ktFeaturePattern({9.0, 2.0}, {}), 1, 2},
             {"NaN", ktFeaturePattern({0.5, NaN}, {}), 2, 2},
             {"invalid", ktFeaturePattern({0.5, 2.0}, {1}), 2, 2},
             {"another one invalid", ktFeaturePattern({0.5, 2.0}, {0}), 1, 2},
             {"one measurement missing", ktFeaturePattern({0.5}, {}), 2, 2},
         }) {
        EXPECT_TRUE(run(ofOne, row.pattern) == resultFor({row.ofOne})) << row.what;
        EXPECT_TRUE(run(ofTwo, row.pattern) == resultFor({row.ofTwo})) << row.what;
    }
}

TEST(TreeClassifierRun, NodeAsksThePredicateThatItWasGivenLast)
{
    const auto labelOf = [](const Node& node, double first, double second) {
        return run(trained(node), ktFeaturePattern({first, second}, {})).categoryResults().front().categoryLabel();
    };
    Node node = rangeNode(0.0, 1.0, {0});
    EXPECT_EQ(labelOf(node, 0.5, 9.0), 1);
    node.predicateFunction(ktRangePredicate(ktRange(0.0, 1.0), {1}));
    EXPECT_EQ(labelOf(node, 0.5, 9.0), 2);
    EXPECT_EQ(labelOf(node, 9.0, 0.5), 1);
    EXPECT_EQ(labelOf(kt_test::storedAndLoaded(node), 9.0, 0.5), 1);
    node.predicateFunction(ktComparisonPredicate(1, 0));
    EXPECT_EQ(labelOf(node, 9.0, 0.5), 2);
    EXPECT_EQ(labelOf(node, 0.5, 9.0), 1);
    node = rangeNode(5.0, 6.0, {1});
    EXPECT_EQ(labelOf(node, 0.5, 9.0), 2);
    EXPECT_EQ(labelOf(node, 0.5, 5.5), 1);
    kt_test::loadInto(node, kt_test::store(smallTree()));
    EXPECT_EQ(labelOf(node, 0.5, 5.5), 2);
    EXPECT_EQ(labelOf(node, 5.5, 0.5), 1);
}

TEST(TreeClassifierRun, NodeThatWasNotLoadedToTheEndAsksNothing)
{
    Node node = rangeNode(0.0, 1.0, {0});
    std::string bytes = kt_test::store(node);
    bytes.resize(bytes.size() - 1);
    EXPECT_THROW(kt_test::loadInto(node, bytes), ktArchive::Corrupt);
    const Classifier classifier = trained(node);
    ktClassifierResult result;
    expectBadPointer([&] { classifier.run(ktFeaturePattern({0.5}, {}), result); });
}

TEST(TreeClassifierRun, ReplacesTheWholeResult)
{
    const ktClassifierResult stored({{3, 0.5, 1.0, 2.0}}, -0.5);
    const Classifier classifier = trained(Leaf(stored));
    ktClassifierResult result({{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}, {7, 0.5, 0.5, 1.0}}, 4.0);
    classifier.run(ktFeaturePattern(), result);
    EXPECT_TRUE(result == stored);
}

TEST(TreeClassifierRun, AllocatesNothingOnceTheResultHasRoom)
{
    const Classifier classifier = trained(deepTree());
    const ktClassifierTool tool = trainedTool(deepTree());
    const ktFeaturePattern pattern({2.0, 1.0}, {});
    ktClassifierResult result = run(classifier, pattern);
    EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(pattern, result); }), 0);
    EXPECT_EQ(kt_test::allocationsDuring([&] { tool.run(pattern, result); }), 0);
    EXPECT_TRUE(result == resultFor({1}));
}

TEST(TreeClassifierRun, MissingPartThatTheWalkMeetsIsABadPointer)
{
    Node missingPredicate;
    missingPredicate.trueTree(leafFor({1}));
    missingPredicate.falseTree(leafFor({2}));
    Node missingTrue;
    missingTrue.predicateFunction(ktComparisonPredicate(0, 1));
    missingTrue.falseTree(leafFor({2}));
    Node missingFalse;
    missingFalse.predicateFunction(ktComparisonPredicate(1, 0));
    missingFalse.trueTree(leafFor({2}));
    const ktFeaturePattern met({2.0, 1.0}, {});
    for (const Node& tree : {missingPredicate, missingTrue, missingFalse, Node(yes(), missingTrue, leafFor({1}))}) {
        const Classifier classifier = trained(tree);
        ktClassifierResult result = resultFor({9});
        expectBadPointer([&] { classifier.run(met, result); });
        EXPECT_TRUE(result == resultFor({9}));
        EXPECT_TRUE(classifier.isTrained());
    }
    const ktFeaturePattern passedBy({1.0, 2.0}, {});
    EXPECT_TRUE(run(trained(missingTrue), passedBy) == resultFor({2}));
    EXPECT_TRUE(run(trained(missingFalse), passedBy) == resultFor({2}));
}

TEST(TreeClassifierRun, WithoutATreeIsABadPointer)
{
    const Opened classifier;
    ktClassifierResult result = resultFor({9});
    const Attention attention;
    expectBadPointer([&] { classifier.run_(ktFeaturePattern(), result); });
    EXPECT_TRUE(result == resultFor({9}));
    EXPECT_EQ(attention.polls(), 0);
}

TEST(TreeClassifierRun, TreeOfTheCallersOwnIsABadPointer)
{
    const Classifier classifier = trained(Node(yes(), OwnTree(), leafFor({1})));
    ktClassifierResult result = resultFor({9});
    const Attention attention;
    expectBadPointer([&] { classifier.run(ktFeaturePattern(), result); });
    EXPECT_TRUE(result == resultFor({9}));
    EXPECT_EQ(attention.polls(), 2) << "polled on entering, before its class is looked at";
}

TEST(TreeClassifierRun, NodesLeavesAndPredicatesDerivedByTheCallerAreWalked)
{
    const OwnLeaf ifTrue(resultFor({1}));
    const OwnNode inner(Contrary(0, 1), ifTrue, OwnLeaf(resultFor({2})));
    const Classifier classifier = trained(Node(yes(), inner, leafFor({3})));
    EXPECT_TRUE(run(classifier, ktFeaturePattern({2.0, 1.0}, {})) == resultFor({2}));
    EXPECT_TRUE(run(classifier, ktFeaturePattern({1.0, 2.0}, {})) == resultFor({1}));
}

TEST(TreeClassifierRun, WhatAPredicateThrowsPassesThrough)
{
    const Classifier classifier = trained(Node(Contrary(0, 1), leafFor({1}), leafFor({2})));
    ktClassifierResult result = resultFor({9});
    EXPECT_THROW(classifier.run(ktFeaturePattern(), result), std::runtime_error);
    EXPECT_TRUE(result == resultFor({9}));
    EXPECT_TRUE(classifier.isTrained());
}

TEST(TreeClassifierRun, PollsOncePerTreeVisited)
{
    struct Row {
        const char* what;
        Tree tree;
        long polls;
    };
    for (const Row& row : std::vector<Row>{
             {"a leaf", leafFor({1}).clone(), 1},
             {"a node and its leaf", smallTree().clone(), 2},
             {"three nodes and a leaf", deepTree().clone(), 4},
             {"only what is visited", Node(no(), deepTree(), leafFor({1})).clone(), 2},
         }) {
        const Attention attention;
        run(trained(*row.tree), ktFeaturePattern());
        EXPECT_EQ(attention.polls(), row.polls) << row.what;
    }
}

TEST(TreeClassifierRun, IsAbortedAtEachPoll)
{
    const Classifier classifier = trained(deepTree());
    for (long failAt = 1; failAt <= 4; ++failAt) {
        SCOPED_TRACE(failAt);
        ktClassifierResult result = resultFor({9});
        {
            const Attention attention(failAt, kt_test::abortStatus);
            expectThrows<ktFailure>(kt_test::abortMessage, [&] { classifier.run(ktFeaturePattern(), result); });
            EXPECT_EQ(attention.polls(), failAt);
        }
        EXPECT_TRUE(result == resultFor({9}));
        classifier.run(ktFeaturePattern(), result);
        EXPECT_TRUE(result == resultFor({1}));
    }
}

TEST(TreeClassifierRun, StatusIsRaisedByItsConverter)
{
    const Classifier classifier = trained(smallTree());
    ktClassifierResult result = resultFor({9});
    const Attention attention(2, static_cast<long>(0x80000B61UL));
    expectThrows<ktClassifierDefs::InsufficientTrainData>("No valid data has been used to train the distribution",
                                                          [&] { classifier.run(ktFeaturePattern(), result); });
    EXPECT_TRUE(result == resultFor({9}));
}

TEST(TreeClassifierRun, StatusThatIsNoFailureGoesOn)
{
    const Attention attention(1, 5);
    EXPECT_TRUE(run(trained(smallTree()), ktFeaturePattern()) == resultFor({2}));
    EXPECT_EQ(attention.polls(), 2);
}

}  // namespace
