#include <clastool/decision_tree.h>
#include <clastool/nearest_neighbor.h>

#include "support/allocations.h"
#include "support/archives.h"
#include "support/attention.h"
#include "support/bytes.h"
#include "support/failures.h"

#include "trees.h"

#include <functional>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace {

using kt_test::Attention;
using kt_test::expectThrows;
using trees::Fields;
using trees::leafFor;
using trees::no;
using trees::resultFor;
using trees::SharedTree;
using trees::Tree;
using trees::yes;
using Classifier = kt_ClassifierDecisionTree;
using Node = ktDecisionTreeNode;
using Leaf = ktDecisionTreeLeaf;

constexpr const char* automaticText = "Automatic decision tree training is not implemented.";
constexpr const char* incrementalText = "Incremental decision tree training is not implemented.";

template <class Operation>
void expectBadPointer(Operation operation)
{
    expectThrows<ktBadPointer>("", 0x10004007, operation);
}

Classifier trained(const ktDecisionTree& tree)
{
    Classifier classifier;
    classifier.trainManual(tree);
    return classifier;
}

ktClassifierTool trainedTool(const ktDecisionTree& tree)
{
    ktClassifierTool tool;
    tool.train(tree);
    return tool;
}

/// Measurement 0 above measurement 1: label 1; else label 2.
Node smallTree()
{
    return {ktComparisonPredicate(0, 1), leafFor({1}), leafFor({2})};
}

/// Three nodes deep on the true side.
Node deepTree()
{
    return {yes(), Node(no(), leafFor({7}), Node(yes(), leafFor({1}), leafFor({8}))), leafFor({9})};
}

template <class Trained>
ktClassifierResult run(const Trained& classifier, const ktFeaturePattern& pattern)
{
    ktClassifierResult result;
    classifier.run(pattern, result);
    return result;
}

ktClassifierDataProviderMemory someData()
{
    ktClassifierDataProviderMemory data;
    data.addData(new ktFeaturePattern({1.0}, {}), 1);
    return data;
}

/// Opens the protected operations, and writes down the recordings.
class Opened : public kt_ClassifierDecisionTree {
public:
    explicit Opened(std::string* log = nullptr) : log_(log) {}

    using kt_ClassifierDecisionTree::checkRunnable_;
    using kt_ClassifierDecisionTree::isTrained_;
    using kt_ClassifierDecisionTree::retrain_;
    using kt_ClassifierDecisionTree::run_;
    using kt_ClassifierDecisionTree::serialize_;
    using kt_ClassifierDecisionTree::train_;
    using kt_ClassifierDecisionTree::trainIncremental_;
    using kt_ClassifierDecisionTree::trainStart_;
    using kt_ClassifierDecisionTree::untrain_;

    std::vector<ktDiagObject*> destinations;

private:
    void recordTrainInputs_(ktDiagObject* diag, unsigned long flags) const override { note("inputs", diag, flags); }
    void recordTrainDetails_(ktDiagObject* diag, unsigned long flags) const override { note("details", diag, flags); }
    void recordTrainResults_(ktDiagObject* diag, unsigned long flags) const override { note("results", diag, flags); }

    void note(const char* what, ktDiagObject* diag, unsigned long flags) const
    {
        if (log_ != nullptr) {
            *log_ += std::string(what) + " " + std::to_string(flags) + (isTrained() ? " trained; " : " untrained; ");
            const_cast<Opened*>(this)->destinations.push_back(diag);
        }
    }

    std::string* log_;
};

/// Sends recordings to another object and adds 100 to the flags.
class Redirected : public ktDiagObject {
public:
    explicit Redirected(ktDiagObject* destination) : destination_(destination) {}
    ktDiagObject* recordingDestination(unsigned long& flags) override
    {
        ++asked;
        flags += 100;
        return destination_;
    }

    long asked = 0;

private:
    ktDiagObject* destination_;
};

/// A tree of the caller's own, whose clone can be made to fail.
class OwnTree : public ktDecisionTree {
public:
    explicit OwnTree(bool canClone = true) : canClone_(canClone) {}
    std::vector<long> categoryLabels() const override { return {}; }
    ktPtrHandle<ktDecisionTree> clone() const override
    {
        if (!canClone_) {
            throw std::runtime_error("no clone");
        }
        return new OwnTree(*this);
    }

private:
    bool canClone_;
};

class OwnLeaf : public ktDecisionTreeLeaf {
public:
    using ktDecisionTreeLeaf::ktDecisionTreeLeaf;
    ktPtrHandle<ktDecisionTree> clone() const override { return new OwnLeaf(*this); }
};

class OwnNode : public ktDecisionTreeNode {
public:
    using ktDecisionTreeNode::ktDecisionTreeNode;
    ktPtrHandle<ktDecisionTree> clone() const override { return new OwnNode(*this); }
};

/// Says the contrary of what its base says; throws for a pattern without measurements.
class Contrary : public ktComparisonPredicate {
public:
    using ktComparisonPredicate::ktComparisonPredicate;
    bool outcome(const ktFeaturePattern& pattern) const override
    {
        if (pattern.numMeasurements() == 0) {
            throw std::runtime_error("nothing to compare");
        }
        return !ktComparisonPredicate::outcome(pattern);
    }
    ktPtrHandle<ktPredicateFunction> clone() const override { return new Contrary(*this); }
};

TEST(TreeClassifier, NewOneIsUntrainedAndHoldsNoTree)
{
    const Classifier classifier;
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_TRUE(classifier.decisionTree().isNull());
    static_assert(std::is_same_v<decltype(classifier.decisionTree()), const ktPtrHandle_const<ktDecisionTree>&>);
}

TEST(TreeClassifier, ManualTrainingHoldsACloneOfTheTree)
{
    Node tree = smallTree();
    const Classifier classifier = trained(tree);
    EXPECT_TRUE(classifier.isTrained());
    EXPECT_NE(classifier.decisionTree().get(), &tree);
    tree.trueTree(leafFor({9}));
    tree.predicateFunction(no());
    EXPECT_TRUE(*classifier.decisionTree() == smallTree());
}

TEST(TreeClassifier, SecondManualTrainingReplacesTheTree)
{
    Classifier classifier = trained(smallTree());
    const SharedTree first = classifier.decisionTree();
    classifier.trainManual(leafFor({5}));
    EXPECT_TRUE(*classifier.decisionTree() == leafFor({5}));
    EXPECT_TRUE(*first == smallTree());
    EXPECT_EQ(first->refCount(), 1);
}

TEST(TreeClassifier, TakesItsOwnTreeAndPartsOfIt)
{
    Classifier classifier = trained(deepTree());
    classifier.trainManual(*classifier.decisionTree());
    EXPECT_TRUE(*classifier.decisionTree() == deepTree());
    const auto& root = dynamic_cast<const Node&>(*classifier.decisionTree());
    const ktDecisionTree& part = *root.falseTree();
    classifier.trainManual(part);
    EXPECT_TRUE(*classifier.decisionTree() == leafFor({9}));
}

TEST(TreeClassifier, ManualTrainingChecksNothingInTheTree)
{
    EXPECT_TRUE(trained(Node()).isTrained());
    EXPECT_TRUE(trained(Leaf()).isTrained());
    EXPECT_TRUE(trained(OwnTree()).isTrained());
}

TEST(TreeClassifier, UntrainReleasesTheTree)
{
    Classifier classifier = trained(smallTree());
    const SharedTree tree = classifier.decisionTree();
    classifier.untrain();
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_TRUE(classifier.decisionTree().isNull());
    EXPECT_EQ(tree->refCount(), 1);
    classifier.untrain();
    EXPECT_FALSE(classifier.isTrained());
    Opened opened;
    opened.trainManual(smallTree());
    opened.untrain_();
    EXPECT_TRUE(opened.decisionTree().isNull());
    EXPECT_FALSE(opened.isTrained_());
}

TEST(TreeClassifier, RecordsInputsDetailsAndResultsInThisOrderAfterTheTreeIsHeld)
{
    std::string log;
    Opened classifier(&log);
    ktDiagObject destination;
    Redirected diag(&destination);
    classifier.trainManual(smallTree(), &diag, 5);
    EXPECT_EQ(log, "inputs 105 trained; details 105 trained; results 105 trained; ");
    EXPECT_EQ(diag.asked, 1);
}

// Kept on purpose: the details of training go to the caller's own object, all others to the recording destination.
TEST(TreeClassifier, DetailsGoToTheCallersOwnObject)
{
    std::string log;
    ktDiagObject destination;
    Redirected diag(&destination);
    Redirected nowhere(nullptr);
    Opened classifier(&log);
    classifier.trainManual(smallTree(), &diag, 0);
    EXPECT_EQ(classifier.destinations, (std::vector<ktDiagObject*>{&destination, &diag, &destination}));
    classifier.destinations.clear();
    classifier.trainManual(smallTree(), &nowhere, 0);
    EXPECT_EQ(classifier.destinations, (std::vector<ktDiagObject*>{nullptr, &nowhere, nullptr}));
    classifier.destinations.clear();
    classifier.trainManual(smallTree(), nullptr, 7);
    EXPECT_EQ(classifier.destinations, (std::vector<ktDiagObject*>{nullptr, nullptr, nullptr}));
    EXPECT_EQ(log.substr(log.rfind("results")), "results 7 trained; ");
}

TEST(TreeClassifier, CloneThatFailsLeavesItUntrained)
{
    std::string log;
    Opened classifier(&log);
    classifier.trainManual(smallTree());
    log.clear();
    try {
        classifier.trainManual(OwnTree(false));
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "no clone");
    }
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_EQ(log, "") << "nothing is recorded";
}

TEST(TreeClassifier, AutomaticAndIncrementalTrainingAreRefused)
{
    ktClassifierDataProviderMemory data = someData();
    const ktClassifierTrainParamsKNN params;
    Opened classifier;
    classifier.trainManual(smallTree());
    const ktFeaturePattern pattern({1.0}, {});
    const std::vector<std::pair<const char*, std::function<void()>>> rows{
        {automaticText, [&] { classifier.train_(data, params); }},
        {automaticText, [&] { classifier.retrain_(params); }},
        {incrementalText, [&] { classifier.trainStart_(params); }},
        {incrementalText, [&] { classifier.trainIncremental_(pattern, 1); }},
        {incrementalText, [&] { classifier.trainIncremental(pattern, 1); }},
    };
    for (const auto& [text, operation] : rows) {
        expectThrows<ktClassifierDefs::NotImplemented>(text, 0x10004205, operation);
        EXPECT_TRUE(*classifier.decisionTree() == smallTree());
    }
}

TEST(TreeClassifier, AutomaticTrainingThatIsRefusedLeavesItUntrained)
{
    Classifier classifier = trained(smallTree());
    expectThrows<ktClassifierDefs::NotImplemented>(automaticText, 0x10004205,
                                                   [&] { classifier.train(someData(), ktClassifierTrainParamsKNN()); });
    EXPECT_FALSE(classifier.isTrained());
    classifier.trainManual(smallTree());
    expectThrows<ktClassifierDefs::NotImplemented>(incrementalText, 0x10004205,
                                                   [&] { classifier.trainStart(ktClassifierTrainParamsKNN()); });
    EXPECT_FALSE(classifier.isTrained());
}

TEST(TreeClassifier, UntrainedOneAnswersNothing)
{
    Classifier classifier;
    ktClassifierResult result = resultFor({3});
    const ktFeaturePattern pattern;
    const std::vector<std::pair<const char*, std::function<void()>>> rows{
        {"Classifier tool must be trained before running.", [&] { classifier.run(pattern, result); }},
        {"Classifier tool must be trained before retraining.",
         [&] { classifier.retrain(ktClassifierTrainParamsKNN()); }},
        {"Classifier tool must be trained before incremental training.",
         [&] { classifier.trainIncremental(pattern, 1); }},
        {"Classifier tool must be trained before requesting the training parameters.",
         [&] { classifier.trainParams(); }},
    };
    for (const auto& [text, operation] : rows) {
        expectThrows<ktClassifierDefs::NotTrained>(text, 0x10004201, operation);
    }
    EXPECT_TRUE(result == resultFor({3}));
}

TEST(TreeClassifier, HasNoParametersAfterManualTraining)
{
    Classifier classifier = trained(smallTree());
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not automatically trained.", 0x10004204,
                                              [&] { classifier.trainParams(); });
    expectThrows<ktClassifierDefs::BadMethod>("Cannot retrain with a different classification technique.", 0x10004204,
                                              [&] { classifier.retrain(ktClassifierTrainParamsKNN()); });
    EXPECT_TRUE(*classifier.decisionTree() == smallTree());
}

TEST(TreeClassifier, ReadinessCheckHasNoObjection)
{
    Opened classifier;
    EXPECT_NO_THROW(classifier.checkRunnable_());
    classifier.trainManual(Node());
    EXPECT_NO_THROW(classifier.checkRunnable_());
}

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
    const double nan = std::numeric_limits<double>::quiet_NaN();
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
             {"NaN", ktFeaturePattern({nan, 1.0}, {}), 2},
             {"invalid", ktFeaturePattern({2.0, 1.0}, {0}), 2},
             {"one measurement missing", ktFeaturePattern({2.0}, {}), 2},
             {"no measurements", ktFeaturePattern(), 2},
             {"more measurements than asked for", ktFeaturePattern({2.0, 1.0, 9.0}, {2}), 1},
         }) {
        EXPECT_TRUE(run(classifier, row.pattern) == resultFor({row.label})) << row.what;
    }
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

TEST(TreeClassifierRun, EachAllocationFailureLeavesTheResultAsItWas)
{
    const Classifier classifier = trained(leafFor({1, 2, 3}));
    const ktFeaturePattern pattern;
    const long allocations = kt_test::failEachAllocation(
        [] { return resultFor({9}); }, [&](ktClassifierResult& result) { classifier.run(pattern, result); },
        [](const ktClassifierResult& result) { EXPECT_TRUE(result == resultFor({9})); });
    EXPECT_GT(allocations, 0);
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
            expectThrows<ktFailure>(kt_test::abortMessage, 0x10004008,
                                    [&] { classifier.run(ktFeaturePattern(), result); });
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
                                                          0x10004207,
                                                          [&] { classifier.run(ktFeaturePattern(), result); });
    EXPECT_TRUE(result == resultFor({9}));
}

TEST(TreeClassifierRun, StatusThatIsNoFailureGoesOn)
{
    const Attention attention(1, 5);
    EXPECT_TRUE(run(trained(smallTree()), ktFeaturePattern()) == resultFor({2}));
    EXPECT_EQ(attention.polls(), 2);
}

TEST(TreeClassifier, CopiesShareTheTree)
{
    Classifier original = trained(smallTree());
    Classifier copy(original);
    Classifier assigned = trained(leafFor({9}));
    assigned = original;
    const ktPtrHandle<kt_Classifier> clone = original.clone();
    EXPECT_EQ(clone->refCount(), 1);
    EXPECT_TRUE(copy.decisionTree() == original.decisionTree());
    EXPECT_TRUE(assigned.decisionTree() == original.decisionTree());
    EXPECT_TRUE(dynamic_cast<const Classifier&>(*clone).decisionTree() == original.decisionTree());
    original.untrain();
    EXPECT_TRUE(*copy.decisionTree() == smallTree());
    EXPECT_TRUE(*assigned.decisionTree() == smallTree());
    EXPECT_TRUE(clone->isTrained());
}

TEST(TreeClassifier, IsEquivalentByItsTree)
{
    const Classifier classifier = trained(smallTree());
    const Classifier other = trained(leafFor({1}));
    EXPECT_TRUE(classifier.isEquivalent(trained(smallTree())));
    EXPECT_TRUE(classifier == trained(smallTree()));
    EXPECT_FALSE(classifier != trained(smallTree()));
    EXPECT_FALSE(classifier.isEquivalent(other));
    EXPECT_FALSE(classifier == other);
    EXPECT_TRUE(classifier != other);
}

TEST(TreeClassifier, IsNotEquivalentToAnotherTechniqueOrState)
{
    const Classifier classifier = trained(smallTree());
    const Classifier untrained;
    kt_ClassifierKNN neighbours;
    EXPECT_FALSE(classifier.isEquivalent(neighbours));
    EXPECT_FALSE(untrained.isEquivalent(neighbours));
    EXPECT_FALSE(neighbours.isEquivalent(untrained));
    EXPECT_FALSE(classifier.isEquivalent(untrained));
    EXPECT_FALSE(untrained.isEquivalent(classifier));
    EXPECT_FALSE(untrained == classifier);
}

// Kept on purpose: unlike two untrained nearest-neighbour classifiers, which are equivalent.
TEST(TreeClassifier, ComparingTwoUntrainedOnesIsABadPointer)
{
    const Classifier one;
    const Classifier two;
    expectBadPointer([&] { static_cast<void>(one.isEquivalent(two)); });
    expectBadPointer([&] { static_cast<void>(one == two); });
    expectBadPointer([&] { static_cast<void>(one != one); });
}

TEST(TreeClassifier, ComparisonMeetsWhatIsMissingInTheTrees)
{
    const Classifier one = trained(Node());
    expectBadPointer([&] { static_cast<void>(one == trained(Node())); });
    EXPECT_FALSE(one == trained(leafFor({1})));
}

TEST(TreeClassifier, ArchiveHoldsVersionBaseParametersAndTree)
{
    Fields fields(kt_test::store(trained(smallTree())));
    EXPECT_EQ(fields.next<unsigned char>(), 0) << "the classifier's version";
    EXPECT_EQ(fields.next<unsigned char>(), 0) << "the base's version";
    EXPECT_TRUE(fields.next<ktPtrHandle<ktClassifierTrainParams>>().isNull());
    EXPECT_TRUE(*fields.next<Tree>() == smallTree());
    EXPECT_TRUE(fields.atEnd());
}

TEST(TreeClassifier, UntrainedOneIsStoredWithANullTree)
{
    const std::string bytes = kt_test::store(Classifier());
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(bytes)), "00 00 00 00");
    Classifier over = trained(smallTree());
    kt_test::loadInto(over, bytes);
    EXPECT_FALSE(over.isTrained());
}

TEST(TreeClassifier, UnknownVersionOfEitherLayerIsRefused)
{
    const std::string bytes = kt_test::store(trained(smallTree()));
    for (const std::size_t layer : {0u, 1u}) {
        SCOPED_TRACE(layer);
        expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive.", 0x10004001, [&] {
            kt_test::load<Classifier>(kt_test::withBytesAt(bytes, 8 + layer, "\x01"));
        });
    }
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    Opened classifier;
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive.", 0x10004001,
                                            [&] { classifier.serialize_(archive, 1); });
    EXPECT_EQ(out.str(), "");
}

TEST(TreeClassifier, ObjectThatIsNoTreeLoadsAsUntrained)
{
    unsigned char zero = 0;
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(archive);
        ktPtrHandle_const<ktPredicateFunction> predicate = yes().clone();
        archive || zero || zero || zero || predicate;
    }
    Classifier over = trained(smallTree());
    const SharedTree before = over.decisionTree();
    kt_test::loadInto(over, out.str());
    EXPECT_FALSE(over.isTrained());
    EXPECT_EQ(before->refCount(), 1);
}

TEST(TreeClassifier, EachAllocationFailureOfManualTrainingLeavesItUntrained)
{
    const Leaf tree = leafFor({1, 2});
    const long allocations = kt_test::failEachAllocation(
        [] { return trained(smallTree()); }, [&](Classifier& classifier) { classifier.trainManual(tree); },
        [](const Classifier& classifier) { EXPECT_FALSE(classifier.isTrained()); });
    EXPECT_GT(allocations, 0);
}

TEST(ToolWithTree, TrainsManuallyAndAnswersWithTheLeaf)
{
    Node tree = smallTree();
    ktClassifierTool tool = trainedTool(tree);
    tree.trueTree(leafFor({9}));
    EXPECT_TRUE(tool.isTrained());
    EXPECT_TRUE(*tool.decisionTree() == smallTree());
    EXPECT_TRUE(run(tool, ktFeaturePattern({2.0, 1.0}, {})) == resultFor({1}));
    EXPECT_TRUE(run(tool, ktFeaturePattern({1.0, 1.0}, {})) == resultFor({2}));
}

TEST(ToolWithTree, GivesOutTheTreeShared)
{
    ktClassifierTool tool = trainedTool(smallTree());
    static_assert(std::is_same_v<decltype(tool.decisionTree()), ktPtrHandle_const<ktDecisionTree>>);
    const SharedTree tree = tool.decisionTree();
    EXPECT_TRUE(tree == tool.decisionTree());
    EXPECT_EQ(tree->refCount(), 2);
    tool.untrain();
    EXPECT_EQ(tree->refCount(), 1);
    EXPECT_TRUE(*tree == smallTree());
}

TEST(ToolWithTree, HasNoTreeBeforeTrainingAfterUntrainingAndAfterAutomaticTraining)
{
    const char* notTrained = "Classifier tool must be trained before requesting the decision tree.";
    ktClassifierTool tool;
    expectThrows<ktClassifierDefs::NotTrained>(notTrained, 0x10004201, [&] { tool.decisionTree(); });
    tool.train(smallTree());
    tool.untrain();
    expectThrows<ktClassifierDefs::NotTrained>(notTrained, 0x10004201, [&] { tool.decisionTree(); });
    tool.train(someData(), ktClassifierTrainParamsKNN(1));
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not trained using a decision tree.", 0x10004204,
                                              [&] { tool.decisionTree(); });
    EXPECT_TRUE(tool.isTrained());
    tool.untrain();
    expectThrows<ktClassifierDefs::NotTrained>(notTrained, 0x10004201, [&] { tool.decisionTree(); });
}

TEST(ToolWithTree, HasNoParametersAndCannotBeRetrained)
{
    ktClassifierTool tool = trainedTool(smallTree());
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not automatically trained.", 0x10004204,
                                              [&] { tool.trainParams(); });
    for (const bool throwIfNotReady : {true, false}) {
        ktClassifierTrainParamsKNN params;
        params.throwIfNotReady(throwIfNotReady);
        expectThrows<ktClassifierDefs::BadMethod>("Cannot retrain with a different classification technique.",
                                                  0x10004204, [&] { tool.retrain(params); });
    }
    EXPECT_TRUE(tool == trainedTool(smallTree()));
}

TEST(ToolWithTree, ReplacesAndIsReplacedByTheOtherTechniques)
{
    ktClassifierTool tool;
    tool.train(someData(), ktClassifierTrainParamsKNN(1));
    tool.train(leafFor({4}));
    EXPECT_TRUE(run(tool, ktFeaturePattern()) == resultFor({4}));
    tool.train(leafFor({5}));
    EXPECT_TRUE(run(tool, ktFeaturePattern()) == resultFor({5}));
    tool.train(someData(), ktClassifierTrainParamsKNN(1));
    EXPECT_EQ(run(tool, ktFeaturePattern({1.0}, {})).categoryResults().at(0).categoryLabel(), 1);
    EXPECT_FALSE(tool.trainParams().isNull());
}

TEST(ToolWithTree, TakesItsOwnTreeAndPartsOfIt)
{
    ktClassifierTool tool = trainedTool(deepTree());
    const ktDecisionTree& whole = *tool.decisionTree();
    tool.train(whole);
    EXPECT_TRUE(*tool.decisionTree() == deepTree());
    const ktDecisionTree& part = *dynamic_cast<const Node&>(*tool.decisionTree()).falseTree();
    tool.train(part);
    EXPECT_TRUE(*tool.decisionTree() == leafFor({9}));
}

TEST(ToolWithTree, IsNotCheckedForReadiness)
{
    const ktClassifierTool tool = trainedTool(Node());
    EXPECT_TRUE(tool.isTrained());
    ktClassifierResult result = resultFor({9});
    expectBadPointer([&] { tool.run(ktFeaturePattern(), result); });
    EXPECT_TRUE(result == resultFor({9}));
    EXPECT_TRUE(tool.isTrained());
}

TEST(ToolWithTree, HandsTheDiagnosticsOn)
{
    Redirected diag(nullptr);
    ktClassifierTool tool;
    tool.train(smallTree(), &diag, 5);
    EXPECT_EQ(diag.asked, 1);
    ktClassifierResult result;
    tool.run(ktFeaturePattern(), result, &diag, 5);
    EXPECT_EQ(diag.asked, 2);
}

TEST(ToolWithTree, TreeWhoseCloneFailsLeavesItUntrained)
{
    ktClassifierTool tool = trainedTool(smallTree());
    EXPECT_THROW(tool.train(OwnTree(false)), std::runtime_error);
    EXPECT_FALSE(tool.isTrained());
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before running.", 0x10004201,
                                               [&] { run(tool, ktFeaturePattern()); });
}

TEST(ToolWithTree, EachAllocationFailureOfTrainingLeavesItUntrained)
{
    const Leaf tree = leafFor({1, 2});
    const long allocations = kt_test::failEachAllocation(
        [] { return trainedTool(smallTree()); }, [&](ktClassifierTool& tool) { tool.train(tree); },
        [](const ktClassifierTool& tool) { EXPECT_FALSE(tool.isTrained()); });
    EXPECT_GT(allocations, 0);
}

TEST(ToolWithTree, CopyIsIndependent)
{
    ktClassifierTool tool = trainedTool(smallTree());
    ktClassifierTool copy(tool);
    EXPECT_TRUE(copy == tool);
    copy.untrain();
    EXPECT_TRUE(tool.isTrained());
    copy = tool;
    tool.train(leafFor({9}));
    EXPECT_TRUE(*copy.decisionTree() == smallTree());
}

TEST(ToolWithTree, ToolsAreEqualByTheirTrees)
{
    const ktClassifierTool tool = trainedTool(smallTree());
    ktClassifierTool untrained = trainedTool(leafFor({1}));
    untrained.untrain();
    ktClassifierTool neighbours;
    neighbours.train(someData(), ktClassifierTrainParamsKNN(1));
    EXPECT_TRUE(tool == trainedTool(smallTree()));
    EXPECT_FALSE(tool == trainedTool(leafFor({1})));
    EXPECT_FALSE(tool == neighbours);
    EXPECT_FALSE(neighbours == tool);
    EXPECT_FALSE(tool == untrained);
    EXPECT_TRUE(untrained == ktClassifierTool()) << "two untrained tools, whatever they hold";
}

TEST(ToolWithTree, ArchiveHoldsVersionAndClassifierAsAPointer)
{
    Fields fields(kt_test::store(trainedTool(smallTree())));
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    const auto classifier = fields.next<ktPtrHandle<kt_Classifier>>();
    EXPECT_TRUE(fields.atEnd());
    EXPECT_TRUE(classifier->isEquivalent(trained(smallTree())));
}

TEST(ToolWithTree, IsStoredAndLoadedEqual)
{
    const ktClassifierTool tool = trainedTool(deepTree());
    ktClassifierTool loaded;
    loaded.train(someData(), ktClassifierTrainParamsKNN(1));
    kt_test::loadInto(loaded, kt_test::store(tool));
    EXPECT_TRUE(loaded == tool);
    EXPECT_TRUE(run(loaded, ktFeaturePattern()) == resultFor({1}));
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not automatically trained.", 0x10004204,
                                              [&] { loaded.trainParams(); });
    expectThrows<ktClassifierDefs::BadMethod>("Cannot retrain with a different classification technique.", 0x10004204,
                                              [&] { loaded.retrain(ktClassifierTrainParamsKNN()); });
}

}  // namespace
