#include "own_trees.h"
#include "tree_classifier_kit.h"

namespace {

using namespace kt_test;
using namespace trees;

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
    expectThrows<ktClassifierDefs::NotTrained>(notTrained, [&] { tool.decisionTree(); });
    tool.train(smallTree());
    tool.untrain();
    expectThrows<ktClassifierDefs::NotTrained>(notTrained, [&] { tool.decisionTree(); });
    tool.train(someData(), ktClassifierTrainParamsKNN(1));
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not trained using a decision tree.",
                                              [&] { tool.decisionTree(); });
    EXPECT_TRUE(tool.isTrained());
    tool.untrain();
    expectThrows<ktClassifierDefs::NotTrained>(notTrained, [&] { tool.decisionTree(); });
}

TEST(ToolWithTree, HasNoParametersAndCannotBeRetrained)
{
    ktClassifierTool tool = trainedTool(smallTree());
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not automatically trained.",
                                              [&] { tool.trainParams(); });
    for (const bool throwIfNotReady : {true, false}) {
        ktClassifierTrainParamsKNN params;
        params.throwIfNotReady(throwIfNotReady);
        expectThrows<ktClassifierDefs::BadMethod>("Cannot retrain with a different classification technique.",
                                                  [&] { tool.retrain(params); });
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
    EXPECT_THROW(tool.train(UnclonableTree()), std::runtime_error);
    EXPECT_FALSE(tool.isTrained());
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before running.",
                                               [&] { run(tool, ktFeaturePattern()); });
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
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not automatically trained.",
                                              [&] { loaded.trainParams(); });
    expectThrows<ktClassifierDefs::BadMethod>("Cannot retrain with a different classification technique.",
                                              [&] { loaded.retrain(ktClassifierTrainParamsKNN()); });
}

}  // namespace
