#include "own_trees.h"
#include "tree_classifier_kit.h"

namespace {

using kt_test::expectThrows;
using namespace trees;

constexpr const char* automaticText = "Automatic decision tree training is not implemented.";
constexpr const char* incrementalText = "Incremental decision tree training is not implemented.";

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
        classifier.trainManual(UnclonableTree());
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
        expectThrows<ktClassifierDefs::NotImplemented>(text, operation);
        EXPECT_TRUE(*classifier.decisionTree() == smallTree());
    }
}

TEST(TreeClassifier, AutomaticTrainingThatIsRefusedLeavesItUntrained)
{
    Classifier classifier = trained(smallTree());
    expectThrows<ktClassifierDefs::NotImplemented>(automaticText,
                                                   [&] { classifier.train(someData(), ktClassifierTrainParamsKNN()); });
    EXPECT_FALSE(classifier.isTrained());
    classifier.trainManual(smallTree());
    expectThrows<ktClassifierDefs::NotImplemented>(incrementalText,
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
        expectThrows<ktClassifierDefs::NotTrained>(text, operation);
    }
    EXPECT_TRUE(result == resultFor({3}));
}

TEST(TreeClassifier, HasNoParametersAfterManualTraining)
{
    Classifier classifier = trained(smallTree());
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not automatically trained.",
                                              [&] { classifier.trainParams(); });
    expectThrows<ktClassifierDefs::BadMethod>("Cannot retrain with a different classification technique.",
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

}  // namespace
