#include "support/allocations.h"
#include "support/archivable_kit.h"
#include "support/archives.h"
#include "support/attention.h"
#include "support/bytes.h"
#include "support/failures.h"
#include "support/technique.h"
#include "support/training.h"

#include <clastool/classifier.h>
#include <clastool/decision_tree.h>
#include <clastool/nearest_neighbor.h>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>

namespace {

using kt_test::expectThrows;
using kt_test::Labelled;
using kt_test::labelsOf;
using kt_test::pattern;
using kt_test::Recorder;
using kt_test::Script;
using kt_test::Technique;
using kt_test::TechniqueParams;
using kt_test::trainingData;
using kt_test::untouchedResult;
using kt_test::valueOf;

using Calls = std::vector<std::string>;
using Knn = ktClassifierTrainParamsKNN;
using Stop = std::runtime_error;

constexpr const char* notTrainedToRun = "Classifier tool must be trained before running.";
constexpr const char* notTrainedToRetrain = "Classifier tool must be trained before retraining.";
constexpr const char* notTrainedForParams =
    "Classifier tool must be trained before requesting the training parameters.";
constexpr const char* notTrainedForTree = "Classifier tool must be trained before requesting the decision tree.";
constexpr const char* notAutomatic = "Classifier tool was not automatically trained.";
constexpr const char* notByTree = "Classifier tool was not trained using a decision tree.";
constexpr const char* otherTechnique = "Cannot retrain with a different classification technique.";
constexpr const char* notImplemented =
    "The classification method specified by the training parameters is not implemented.";
constexpr const char* noData = "No valid data was provided for training.";

const std::vector<Labelled> line = {{{0}, 2}, {{1}, 2}, {{3}, 5}, {{10}, 7}, {{20}, 7}};

ktClassifierTool trainedKnn(const Knn& params = Knn(3), const std::vector<Labelled>& rows = line)
{
    ktClassifierTool tool;
    tool.train(trainingData(rows), params);
    return tool;
}

ktDecisionTreeLeaf leaf(long label)
{
    return ktDecisionTreeLeaf(ktClassifierResult({ktClassifierCategoryResult(label, 1.0, 1.0, 0.0)}, 0.0));
}

/// Measurement 0 > measurement 1: label 4, else label 6.
ktDecisionTreeNode someTree()
{
    return ktDecisionTreeNode(ktComparisonPredicate(), leaf(4), leaf(6));
}

ktClassifierTool trainedTree(const ktDecisionTree& tree = someTree())
{
    ktClassifierTool tool;
    tool.train(tree);
    return tool;
}

ktClassifierResult answer(const ktClassifierTool& tool, const std::vector<double>& measurements)
{
    ktClassifierResult result = untouchedResult();
    tool.run(ktFeaturePattern(measurements, {}), result);
    return result;
}

/// Expects a tool that is not trained: nothing is answered, and nothing it is given changes.
void expectUntrained(ktClassifierTool& tool)
{
    EXPECT_FALSE(tool.isTrained());
    ktClassifierResult result = untouchedResult();
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedToRun, 0x10004201, [&] { tool.run(*pattern({0}), result); });
    EXPECT_TRUE(result == untouchedResult());
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedToRetrain, 0x10004201, [&] { tool.retrain(Knn()); });
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedForParams, 0x10004201, [&] { tool.trainParams(); });
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedForTree, 0x10004201, [&] { tool.decisionTree(); });
    EXPECT_TRUE(tool == ktClassifierTool());
    EXPECT_NO_THROW(tool.untrain());
    EXPECT_FALSE(tool.isTrained());
}

/// A tool, a technique of the user's own, and a diagnostics object that sends recordings elsewhere and sets a flag.
class Tool : public ::testing::Test {
protected:
    Tool() { caller_.sendTo(&destination_); }
    ~Tool() override { script_.during = nullptr; }

    /// Trains with parameters of value 1 and forgets what that noted.
    void trainWithTechnique()
    {
        tool_.train(data_, params_);
        script_.takeCalls();
    }

    Script script_;
    TechniqueParams params_{script_, 1};
    TechniqueParams otherParams_{script_, 2};
    const ktClassifierDataProviderMemory data_ = trainingData({{{3}, 1}});
    Recorder destination_{"destination"};
    Recorder caller_{"caller", 8};
    ktClassifierTool tool_;
};

// New and untrained tools

TEST_F(Tool, NewOneIsUntrained)
{
    expectUntrained(tool_);
    EXPECT_TRUE(tool_ == ktClassifierTool());
    EXPECT_FALSE(tool_ != ktClassifierTool());
}

TEST_F(Tool, UntrainedOneSaysTheSameAsANewOne)
{
    trainWithTechnique();
    tool_.untrain();
    EXPECT_EQ(script_.calls, Calls{"untrain_"});
    EXPECT_EQ(script_.techniques, 1) << "the classifier stays";
    expectUntrained(tool_);
}

// Automatic training

using ToolTrain = Tool;

TEST_F(ToolTrain, MakesAClassifierTrainsItAndChecksThatItCanRun)
{
    tool_.train(data_, params_, &caller_, 4);
    const Calls expected = {"newClassifier_",
                            "clone of params 1",
                            "recordTrainInputs_(destination, 12)",
                            "train_",
                            "train_, half way",
                            "recordTrainDetails_(caller, 12)",
                            "recordTrainResults_(destination, 12)",
                            "checkRunnable_"};
    EXPECT_EQ(script_.calls, expected);
    EXPECT_TRUE(tool_.isTrained());
    EXPECT_EQ(valueOf(tool_.trainParams()), 1);
}

TEST_F(ToolTrain, DoesNotCheckIfTheParametersDoNotAskForIt)
{
    params_.throwIfNotReady(false);
    script_.failAt("checkRunnable_", Stop("stop"));
    tool_.train(data_, params_);
    EXPECT_EQ(script_.calls.back(), "recordTrainResults_(null, 0)");
    EXPECT_TRUE(tool_.isTrained());
}

TEST_F(ToolTrain, AgainUntrainsTheOldClassifierAndLetsItGo)
{
    trainWithTechnique();
    std::vector<long> techniques;
    script_.during = [&](const std::string&) { techniques.push_back(script_.techniques); };
    tool_.train(data_, otherParams_);
    EXPECT_EQ(script_.calls[0], "untrain_");
    EXPECT_EQ(script_.calls[1], "newClassifier_");
    EXPECT_EQ(script_.calls[2], "clone of params 2");
    EXPECT_EQ(techniques, (std::vector<long>{1, 1, 1, 1, 1, 1, 1, 1, 1}))
        << "the new one takes the place of the old one";
    EXPECT_EQ(valueOf(tool_.trainParams()), 2);
}

TEST_F(ToolTrain, WhateverNewClassifierThrowsBecomesNotImplemented)
{
    const std::vector<std::function<void()>> failures = {
        [] { throw Stop("stop"); },
        [] { throw ktClassifierDefs::BadParams("K must be >= 1"); },
        [] { throw ktBadPointer(); },
        [] { throw std::bad_alloc(); },
        [] { throw 7; },
    };
    for (std::size_t i = 0; i < failures.size(); ++i) {
        SCOPED_TRACE(i);
        script_.during = nullptr;
        tool_.train(data_, params_);
        script_.takeCalls();
        script_.during = [&](const std::string& call) {
            if (call == "newClassifier_") {
                failures[i]();
            }
        };
        expectThrows<ktClassifierDefs::NotImplemented>(notImplemented, 0x10004205,
                                                       [&] { tool_.train(data_, otherParams_); });
        EXPECT_EQ(script_.calls, (Calls{"untrain_", "newClassifier_"}));
        EXPECT_EQ(script_.techniques, 0) << "the old classifier was let go";
        expectUntrained(tool_);
    }
}

TEST_F(ToolTrain, ParametersThatGiveNoClassifierEndInABadPointer)
{
    struct Empty : TechniqueParams {
        using TechniqueParams::TechniqueParams;
        kt_Classifier* newClassifier_() const override { return nullptr; }
    };
    trainWithTechnique();
    expectThrows<ktBadPointer>("", 0x10004007, [&] { tool_.train(data_, Empty(script_, 2)); });
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
}

TEST_F(ToolTrain, WhatTrainingThrowsPassesThroughAndLeavesTheToolUntrained)
{
    for (const char* hook : {"clone of params", "recordTrainInputs_", "train_", "train_, half way",
                             "recordTrainDetails_", "recordTrainResults_"}) {
        SCOPED_TRACE(hook);
        script_.during = nullptr;
        tool_.train(data_, params_);
        script_.failAt(hook, ktClassifierDefs::BadIndex("half way"));
        expectThrows<ktClassifierDefs::BadIndex>("half way", 0x10004202, [&] { tool_.train(data_, otherParams_); });
        EXPECT_EQ(script_.techniques, 1) << "the new, untrained classifier";
        expectUntrained(tool_);
    }
}

TEST_F(ToolTrain, NearestNeighbourTrainingThatFailsHalfWayLeavesTheToolUntrained)
{
    ktClassifierDataProviderMemory data = trainingData({{{1, 2}, 3}});
    data.addData(pattern({1, 2}, {0}), 4);
    tool_ = trainedKnn();
    expectThrows<ktClassifierDefs::BadFeatures>(
        "K-nearest neighbor classification does not support invalid measurements", 0x10004206,
        [&] { tool_.train(data, Knn()); });
    expectUntrained(tool_);
}

TEST_F(ToolTrain, CanBeRepeatedAfterAFailure)
{
    script_.failAt("train_", Stop("stop"));
    EXPECT_THROW(tool_.train(data_, params_), Stop);
    script_.during = nullptr;
    tool_.train(data_, params_);
    EXPECT_EQ(labelsOf(answer(tool_, {5})), std::vector<long>{5});
}

TEST_F(ToolTrain, WithItsOwnParameters)
{
    const Knn params(4, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(2.0));
    tool_.train(trainingData(line), params);
    const ktClassifierTool before = trainedKnn(params);
    const ktClassifierTrainParams& own = *tool_.trainParams();
    tool_.train(trainingData(line), own);
    EXPECT_TRUE(tool_ == before);
    EXPECT_TRUE(answer(tool_, {0}) == answer(before, {0}));
}

// The readiness check

/// How the readiness check fails, what the caller is told, and whether the tool stays trained.
struct Unready {
    const char* label;
    std::function<void()> fail;
    std::function<void(const std::function<void()>&)> expect;
    bool staysTrained;
};

template <class Error>
Unready libraryError(const char* label, long number)
{
    return {label, [label] { throw Error(label); },
            [=](const std::function<void()>& operation) { expectThrows<Error>(label, number, operation); }, false};
}

/// An error of the user's own.
struct DerivedError : ktClassifierDefs::BadMethod {
    using ktClassifierDefs::BadMethod::BadMethod;
};

const std::vector<Unready>& unreadyRows()
{
    static const std::vector<Unready> rows = {
        libraryError<ktClassifierDefs::BadParams>("BadParams", 0x10004200),
        libraryError<ktClassifierDefs::NotTrained>("NotTrained", 0x10004201),
        libraryError<ktClassifierDefs::BadIndex>("BadIndex", 0x10004202),
        libraryError<ktClassifierDefs::BadLabel>("BadLabel", 0x10004203),
        libraryError<ktClassifierDefs::BadMethod>("BadMethod", 0x10004204),
        libraryError<ktClassifierDefs::NotImplemented>("NotImplemented", 0x10004205),
        libraryError<ktClassifierDefs::BadFeatures>("BadFeatures", 0x10004206),
        libraryError<ktClassifierDefs::InsufficientTrainData>("InsufficientTrainData", 0x10004207),
        libraryError<DerivedError>("derived from BadMethod", 0x10004204),
        {"abort by the attention check", [] { kfThrowExceptionOnFailure(kt_test::abortStatus); },
         [](const std::function<void()>& operation) {
             expectThrows<ktFailure>(kt_test::abortMessage, 0x10004008, operation);
         },
         true},
        {"null handle", [] { throw ktBadPointer(); },
         [](const std::function<void()>& operation) { expectThrows<ktBadPointer>("", 0x10004007, operation); }, true},
        {"standard exception", [] { throw Stop("stop"); },
         [](const std::function<void()>& operation) { EXPECT_THROW(operation(), Stop); }, true},
        {"out of memory", [] { throw std::bad_alloc(); },
         [](const std::function<void()>& operation) { EXPECT_THROW(operation(), std::bad_alloc); }, true},
        {"no exception class", [] { throw 7; },
         [](const std::function<void()>& operation) { EXPECT_THROW(operation(), int); }, true},
    };
    return rows;
}

// Kept on purpose: only the library's own errors untrain.
TEST_F(Tool, ReadinessCheckAfterTrainingUntrainsForTheLibrarysErrorsAlone)
{
    for (const Unready& row : unreadyRows()) {
        SCOPED_TRACE(row.label);
        script_.during = [&](const std::string& call) { call == "checkRunnable_" ? row.fail() : void(); };
        row.expect([&] { tool_.train(data_, params_); });
        EXPECT_EQ(tool_.isTrained(), row.staysTrained);
        EXPECT_EQ(script_.takeCalls().back(), row.staysTrained ? "checkRunnable_" : "untrain_");
    }
}

// Kept on purpose: see above.
TEST_F(Tool, ReadinessCheckAfterRetrainingUntrainsForTheLibrarysErrorsAlone)
{
    for (const Unready& row : unreadyRows()) {
        SCOPED_TRACE(row.label);
        script_.during = nullptr;
        tool_.train(data_, params_);
        script_.during = [&](const std::string& call) { call == "checkRunnable_" ? row.fail() : void(); };
        row.expect([&] { tool_.retrain(otherParams_); });
        EXPECT_EQ(tool_.isTrained(), row.staysTrained);
        if (row.staysTrained) {
            EXPECT_EQ(valueOf(tool_.trainParams()), 2) << "the retraining itself was done";
        }
    }
}

TEST_F(Tool, NearestNeighbourToolWithoutAPatternIsRefusedOnlyIfTheParametersAskForIt)
{
    const ktClassifierDataProviderMemory unlabelled = trainingData({{{1, 2}, -1}});
    Knn params;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207, [&] { tool_.train(unlabelled, params); });
    expectUntrained(tool_);
    params.throwIfNotReady(false);
    tool_.train(unlabelled, params);
    EXPECT_TRUE(tool_.isTrained());
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207, [&] { answer(tool_, {1, 2}); });
    tool_.retrain(params);
    EXPECT_TRUE(tool_.isTrained());
    params.throwIfNotReady(true);
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207, [&] { tool_.retrain(params); });
    expectUntrained(tool_);
}

TEST_F(Tool, TrainingAndItsCheckPollNoAttention)
{
    const kt_test::Attention attention(1, kt_test::abortStatus);
    tool_ = trainedKnn();
    tool_.retrain(Knn(5));
    tool_.train(someTree());
    EXPECT_EQ(attention.polls(), 0);
}

// Retraining

using ToolRetrain = Tool;

TEST_F(ToolRetrain, HandsOnTheParametersAndChecksThatTheClassifierCanRun)
{
    trainWithTechnique();
    tool_.retrain(otherParams_, &caller_, 4);
    EXPECT_EQ(script_.calls, (Calls{"isSameTechnique_: 2 about 1", "clone of params 2", "retrain_", "checkRunnable_"}));
    EXPECT_EQ(caller_.timesAsked(), 0);
    EXPECT_EQ(valueOf(tool_.trainParams()), 2);
    otherParams_.throwIfNotReady(false);
    script_.takeCalls();
    tool_.retrain(otherParams_);
    EXPECT_EQ(script_.calls.back(), "retrain_");
}

TEST_F(ToolRetrain, WithAnotherTechniqueChangesNothing)
{
    tool_ = trainedKnn();
    const ktClassifierTool before(tool_);
    expectThrows<ktClassifierDefs::BadMethod>(otherTechnique, 0x10004204, [&] { tool_.retrain(params_); });
    EXPECT_TRUE(tool_ == before);
    EXPECT_TRUE(answer(tool_, {0}) == answer(before, {0}));
}

TEST_F(ToolRetrain, ThatTheTechniqueRefusesKeepsTheOldParametersAndChecksNothing)
{
    trainWithTechnique();
    script_.failAt("retrain_", ktClassifierDefs::BadIndex("refused"));
    expectThrows<ktClassifierDefs::BadIndex>("refused", 0x10004202, [&] { tool_.retrain(otherParams_); });
    EXPECT_EQ(script_.calls.back(), "retrain_");
    EXPECT_EQ(valueOf(tool_.trainParams()), 1);
}

TEST_F(ToolRetrain, WithItsOwnParameters)
{
    tool_.train(trainingData(line), Knn(3));
    const ktClassifierTool before = trainedKnn(Knn(3));
    const ktClassifierTrainParams& own = *tool_.trainParams();
    tool_.retrain(own);
    EXPECT_TRUE(tool_ == before);
    tool_.retrain(*tool_.trainParams(), nullptr, 0);
    EXPECT_TRUE(answer(tool_, {0}) == answer(before, {0}));
}

// Running

TEST_F(Tool, RunHandsOnPatternResultDiagnosticsAndFlags)
{
    trainWithTechnique();
    ktClassifierResult result;
    tool_.run(*pattern({5}), result, &caller_, 4);
    const Calls expected = {"recordRunInputs_(destination, 12, 5)", "run_(5)", "recordRunDetails_(destination, 12)",
                            "recordRunResults_(destination, 12, 5, label 5)"};
    EXPECT_EQ(script_.calls, expected);
    EXPECT_EQ(labelsOf(result), std::vector<long>{5});
}

TEST_F(Tool, RunIsAbortedByTheAttentionCheckAndLeavesTheResult)
{
    tool_ = trainedKnn(Knn(4));
    for (long n = 1; n <= 5 + 3; ++n) {
        SCOPED_TRACE(n);
        const kt_test::Attention attention(n, kt_test::abortStatus);
        ktClassifierResult result = untouchedResult();
        expectThrows<ktFailure>(kt_test::abortMessage, 0x10004008, [&] { tool_.run(*pattern({0}), result); });
        EXPECT_TRUE(result == untouchedResult());
        EXPECT_EQ(attention.polls(), n);
    }
    const kt_test::Attention attention;
    EXPECT_EQ(answer(tool_, {0}).categoryResults().size(), 3u);
    EXPECT_EQ(attention.polls(), 5 + 3);
}

// Manual training

using ToolTree = Tool;

TEST_F(ToolTree, IsAnsweredFrom)
{
    tool_.train(someTree());
    EXPECT_EQ(labelsOf(answer(tool_, {2, 1})), std::vector<long>{4});
    EXPECT_EQ(labelsOf(answer(tool_, {1, 1})), std::vector<long>{6});
    EXPECT_EQ(labelsOf(answer(tool_, {})), std::vector<long>{6});
}

TEST_F(ToolTree, IsHeldAsACloneAndGivenOutShared)
{
    ktDecisionTreeNode tree = someTree();
    tool_.train(tree);
    tree.trueTree(leaf(99));
    const ktPtrHandle_const<ktDecisionTree> held = tool_.decisionTree();
    EXPECT_TRUE(*held == someTree());
    EXPECT_EQ(held->refCount(), 2) << "the tool and this handle";
    EXPECT_TRUE(tool_.decisionTree() == held);
}

TEST_F(ToolTree, LeavesNoParametersAndCannotBeRetrained)
{
    tool_ = trainedTree();
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, 0x10004204, [&] { tool_.trainParams(); });
    expectThrows<ktClassifierDefs::BadMethod>(otherTechnique, 0x10004204, [&] { tool_.retrain(Knn()); });
    expectThrows<ktClassifierDefs::BadMethod>(otherTechnique, 0x10004204, [&] { tool_.retrain(params_); });
    EXPECT_EQ(script_.calls, Calls());
    EXPECT_TRUE(*tool_.decisionTree() == someTree()) << "it stays trained";
}

TEST_F(ToolTree, IsNotThereAfterAutomaticTraining)
{
    tool_ = trainedKnn();
    expectThrows<ktClassifierDefs::BadMethod>(notByTree, 0x10004204, [&] { tool_.decisionTree(); });
    EXPECT_EQ(dynamic_cast<const Knn&>(*tool_.trainParams()).k(), 3);
}

TEST_F(ToolTree, TakesThePlaceOfATrainedClassifier)
{
    trainWithTechnique();
    tool_.train(someTree());
    EXPECT_EQ(script_.calls, Calls{"untrain_"});
    EXPECT_EQ(script_.techniques, 0);
    tool_.train(leaf(8));
    EXPECT_EQ(labelsOf(answer(tool_, {2, 1})), std::vector<long>{8});
    tool_.train(data_, params_);
    EXPECT_EQ(valueOf(tool_.trainParams()), 1);
}

TEST_F(ToolTree, AsksTheDiagnosticsObjectForItsDestinationOnceATraining)
{
    tool_.train(someTree(), &caller_, 4);
    EXPECT_EQ(caller_.timesAsked(), 1);
    ktClassifierResult result;
    tool_.run(*pattern({2, 1}), result, &caller_, 4);
    EXPECT_EQ(caller_.timesAsked(), 2);
}

TEST_F(ToolTree, OfItsOwnCanBeTakenAgain)
{
    tool_ = trainedTree();
    const ktDecisionTree& own = *tool_.decisionTree();
    tool_.train(own);
    EXPECT_TRUE(*tool_.decisionTree() == someTree());
    const ktDecisionTreeNode& root = dynamic_cast<const ktDecisionTreeNode&>(*tool_.decisionTree());
    const ktDecisionTree& part = *root.trueTree();
    tool_.train(part);
    EXPECT_TRUE(*tool_.decisionTree() == leaf(4));
}

TEST_F(ToolTree, ThatCannotBeClonedLeavesTheToolUntrained)
{
    struct Uncloneable : ktDecisionTree {
        std::vector<long> categoryLabels() const override { return {}; }
        ktPtrHandle<ktDecisionTree> clone() const override { throw Stop("stop"); }
    };
    trainWithTechnique();
    EXPECT_THROW(tool_.train(Uncloneable()), Stop);
    expectUntrained(tool_);
}

// Copies

using ToolCopy = Tool;

TEST_F(ToolCopy, ClonesATrainedClassifier)
{
    trainWithTechnique();
    ktClassifierTool copy(tool_);
    EXPECT_EQ(script_.takeCalls(), Calls{"clone of the technique"});
    EXPECT_EQ(script_.techniques, 2);
    copy.untrain();
    EXPECT_TRUE(tool_.isTrained());
    EXPECT_EQ(labelsOf(answer(tool_, {5})), std::vector<long>{5});
}

TEST_F(ToolCopy, AssignmentLetsTheOldClassifierGoWithoutUntrainingIt)
{
    trainWithTechnique();
    EXPECT_EQ(&(tool_ = trainedTree()), &tool_);
    EXPECT_EQ(script_.calls, Calls());
    EXPECT_EQ(script_.techniques, 0);
    EXPECT_TRUE(*tool_.decisionTree() == someTree());
}

TEST_F(ToolCopy, OfAnUntrainedToolIsEmpty)
{
    trainWithTechnique();
    tool_.untrain();
    ASSERT_EQ(script_.techniques, 1);
    ktClassifierTool copy(tool_);
    ktClassifierTool assigned = trainedKnn();
    assigned = tool_;
    EXPECT_EQ(script_.techniques, 1);
    expectUntrained(copy);
    expectUntrained(assigned);
}

// Kept on purpose: what a tool holds is dropped before the source is looked at.
TEST_F(ToolCopy, AssignedToItselfIsEmpty)
{
    trainWithTechnique();
    const ktClassifierTool& same = tool_;
    tool_ = same;
    EXPECT_EQ(script_.techniques, 0);
    EXPECT_EQ(script_.calls, Calls());
    expectUntrained(tool_);
}

TEST_F(ToolCopy, ThatFailsLeavesTheTargetEmptyAndTheSourceTrained)
{
    trainWithTechnique();
    script_.failAt("clone of the technique", Stop("stop"));
    ktClassifierTool target = trainedKnn();
    EXPECT_THROW(target = tool_, Stop);
    expectUntrained(target);
    EXPECT_TRUE(tool_.isTrained());
    EXPECT_THROW(ktClassifierTool{tool_}, Stop);
    EXPECT_EQ(script_.techniques, 1);
}

TEST_F(ToolCopy, HasParametersOfItsOwn)
{
    tool_ = trainedKnn(Knn(3));
    ktClassifierTool copy(tool_);
    copy.retrain(Knn(1));
    EXPECT_EQ(dynamic_cast<const Knn&>(*tool_.trainParams()).k(), 3);
    EXPECT_EQ(answer(tool_, {0}).categoryResults().size(), 2u);
    EXPECT_EQ(answer(copy, {0}).categoryResults().size(), 1u);
}

/// Nearest-neighbour parameters that show the classifier which they make.
struct ShowingParams : Knn {
    explicit ShowingParams(ktPtrHandle<kt_ClassifierKNN>& made) : Knn(1), made_(made) {}
    kt_Classifier* newClassifier_() const override
    {
        made_ = new kt_ClassifierKNN;
        return made_.get();
    }
    ktPtrHandle<kt_ClassifierKNN>& made_;
};

TEST_F(ToolCopy, SharesTheKeptPatternsAndSeesWhatIsAddedToThem)
{
    ktPtrHandle<kt_ClassifierKNN> classifier;
    tool_.train(trainingData(line), ShowingParams(classifier));
    ktClassifierTool copy(tool_);
    const ktClassifierTool loaded = kt_test::storedAndLoaded(tool_);
    classifier->trainIncremental(*pattern({5}), 9);
    EXPECT_EQ(labelsOf(answer(tool_, {5})), std::vector<long>{9});
    EXPECT_EQ(labelsOf(answer(copy, {5})), std::vector<long>{9});
    EXPECT_EQ(labelsOf(answer(loaded, {5})), std::vector<long>{5}) << "an archive holds a copy";
    classifier->untrain();
    EXPECT_FALSE(tool_.isTrained());
    EXPECT_EQ(labelsOf(answer(copy, {5})), std::vector<long>{9});
}

// Destruction

TEST_F(Tool, DestructorUntrainsATrainedClassifierAndLetsItGo)
{
    {
        ktClassifierTool tool;
        tool.train(data_, params_);
        script_.takeCalls();
    }
    EXPECT_EQ(script_.calls, Calls{"untrain_"});
    EXPECT_EQ(script_.techniques, 0);
    {
        ktClassifierTool tool;
        tool.train(data_, params_);
        tool.untrain();
        script_.takeCalls();
    }
    EXPECT_EQ(script_.calls, Calls()) << "there was nothing left to untrain";
}

TEST_F(Tool, DestructorKeepsWhatATechniqueThrowsToItself)
{
    {
        ktClassifierTool tool;
        tool.train(data_, params_);
        script_.failAt("untrain_", Stop("stop"));
    }
    EXPECT_EQ(script_.techniques, 0);
}

// Comparison

TEST_F(Tool, ComparisonLooksAtTrainingTechniqueParametersAndModel)
{
    ktClassifierTool untrained = trainedKnn();
    untrained.untrain();
    struct Row {
        const char* label;
        const ktClassifierTool& a;
        const ktClassifierTool& b;
        bool equal;
    };
    const ktClassifierTool knn = trainedKnn();
    const ktClassifierTool tree = trainedTree();
    const ktClassifierTool fresh;
    const Row rows[] = {
        {"both new", fresh, ktClassifierTool(), true},
        {"untrained, whatever they hold", untrained, fresh, true},
        {"one trained", knn, fresh, false},
        {"one untrained", tree, untrained, false},
        {"a tool and itself", knn, knn, true},
        {"trained alike", knn, trainedKnn(), true},
        {"other parameters", knn, trainedKnn(Knn(4)), false},
        {"other patterns", knn, trainedKnn(Knn(3), {{{1}, 1}}), false},
        {"another technique", knn, tree, false},
        {"equal trees", tree, trainedTree(), true},
        {"other trees", tree, trainedTree(leaf(4)), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.b == row.a, row.equal);
        EXPECT_EQ(row.a != row.b, !row.equal);
        EXPECT_EQ(row.b != row.a, !row.equal);
    }
}

// Archives

using ToolArchive = Tool;

TEST_F(ToolArchive, IsItsVersionAndTheClassifierByPointer)
{
    std::istringstream in(kt_test::store(trainedKnn()));
    ktArchive archive(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(archive);
    unsigned char version = 1;
    ktPtrHandle<kt_ClassifierKNN> classifier;
    archive || version || classifier;
    EXPECT_EQ(version, 0);
    ASSERT_FALSE(classifier.isNull());
    EXPECT_EQ(dynamic_cast<const Knn&>(*classifier->trainParams()).k(), 3);
    EXPECT_EQ(in.rdbuf()->in_avail(), 0);
}

TEST_F(ToolArchive, OfANewToolHoldsANullPointer)
{
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(kt_test::store(ktClassifierTool()))), "00 00");
    trainWithTechnique();
    kt_test::loadInto(tool_, kt_test::store(ktClassifierTool()));
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
}

TEST_F(ToolArchive, OfAnUntrainedClassifierLoadsUntrained)
{
    ktClassifierTool tool = trainedKnn();
    tool.untrain();
    ktClassifierTool loaded = kt_test::storedAndLoaded(tool);
    expectUntrained(loaded);
}

TEST_F(ToolArchive, TellsTheSourcePositionOfAnUnknownVersionAndKeepsTheClassifier)
{
    const std::string bytes =
        kt_test::withBytesAt(kt_test::store(ktClassifierTool()), kt_test::archiveHeader().size(), "\x01");
    tool_ = trainedKnn();
    try {
        kt_test::loadInto(tool_, bytes);
        FAIL() << "no exception";
    } catch (const ktArchive::UnknownVersion& error) {
        EXPECT_STREQ(error.where(), "clss/clastool/clastool");
        EXPECT_EQ(error.line(), 896);
        EXPECT_EQ(error.message(), "Unknown version in an archive: clss/clastool/clastool, line 896.");
        EXPECT_EQ(error.errorNumber(), 0x10004001);
    }
    EXPECT_TRUE(tool_ == trainedKnn());
}

TEST_F(ToolArchive, ObjectOfAnotherClassLeavesTheToolWithoutAClassifier)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(archive);
        unsigned char version = 0;
        ktPtrHandle<ktFeaturePattern> foreign = new ktFeaturePattern({1.0}, {});
        archive || version || foreign;
    }
    trainWithTechnique();
    kt_test::loadInto(tool_, out.str());
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
}

TEST_F(ToolArchive, LoadingThatFailsHasLetTheOldClassifierGo)
{
    const std::string bytes = kt_test::store(trainedKnn());
    trainWithTechnique();
    EXPECT_THROW(kt_test::loadInto(tool_, bytes.substr(0, bytes.size() - 1)), ktArchive::Corrupt);
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
    kt_test::loadInto(tool_, bytes);
    EXPECT_TRUE(tool_ == trainedKnn());
}

TEST_F(ToolArchive, ClassifierThatIsNotRegisteredCannotBeStored)
{
    trainWithTechnique();
    EXPECT_THROW(kt_test::store(tool_), ktArchive::Corrupt);
    EXPECT_EQ(valueOf(tool_.trainParams()), 1);
}

TEST_F(ToolArchive, ToolsLoadedInOnePassShareTheClassifierThatWasStoredOnce)
{
    std::ostringstream out;
    ktClassifierTool stored = trainedKnn();
    ktArchive storing(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(storing);
        storing || stored || stored;
    }
    EXPECT_EQ(out.str().size(), kt_test::store(stored).size() + 6) << "a version byte and a reference";
    std::istringstream in(out.str());
    ktArchive loading(static_cast<std::istream&>(in));
    ktClassifierTool first;
    ktClassifierTool second;
    {
        const ktArchive::Pass pass(loading);
        loading || first || second;
    }
    EXPECT_TRUE(second == stored);
    first.untrain();
    EXPECT_FALSE(second.isTrained());
}

// Kept on purpose: a loaded nearest-neighbour tool runs with k = 1, the Euclidean norm and unit costs until it is retrained.
TEST_F(ToolArchive, LoadedNearestNeighbourToolRunsWithItsParametersOnceTheyAreReapplied)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(5, 2, 10.0);
    const ktClassifierTool stored = trainedKnn(Knn(3, ktPatternDistanceMetricNorm(1.0), costs));
    ktClassifierTool loaded = kt_test::storedAndLoaded(stored);
    EXPECT_TRUE(loaded == stored);
    EXPECT_TRUE(answer(loaded, {0}) == answer(trainedKnn(Knn()), {0}));
    EXPECT_TRUE(dynamic_cast<const Knn&>(*loaded.trainParams()) == Knn(3, ktPatternDistanceMetricNorm(1.0), costs));

    loaded.retrain(*loaded.trainParams(), nullptr, 0);
    EXPECT_TRUE(answer(loaded, {0}) == answer(stored, {0}));
    EXPECT_TRUE(loaded == stored);
}

TEST_F(ToolArchive, LoadedParametersAskForTheReadinessCheckAgain)
{
    Knn lenient(3);
    lenient.throwIfNotReady(false);
    ktClassifierTool loaded = kt_test::storedAndLoaded(trainedKnn(lenient, {}));
    EXPECT_TRUE(loaded.trainParams()->throwIfNotReady());
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207,
                                                          [&] { loaded.retrain(*loaded.trainParams()); });
    expectUntrained(loaded);
}

TEST_F(ToolArchive, LoadedKBelowOneIsRefusedByTheRunAndHugeKTakesAllPatterns)
{
    const std::string stored = kt_test::store(trainedKnn(Knn(0x11223344)));
    const std::size_t position = stored.find(kt_test::littleEndian32(0x11223344));
    ASSERT_NE(position, std::string::npos);
    const auto loadedWithK = [&](unsigned long k) {
        auto tool = kt_test::load<ktClassifierTool>(kt_test::withBytesAt(stored, position, kt_test::littleEndian32(k)));
        tool.retrain(*tool.trainParams());
        return tool;
    };
    for (const unsigned long k : {0UL, 0xFFFFFFFFUL, 0x80000000UL}) {
        SCOPED_TRACE(k);
        const ktClassifierTool tool = loadedWithK(k);
        ktClassifierResult result = untouchedResult();
        expectThrows<ktClassifierDefs::BadParams>("At least one of the category frequencies must be > 0.", 0x10004200,
                                                  [&] { tool.run(*pattern({0}), result); });
        EXPECT_TRUE(result == untouchedResult());
    }
    EXPECT_TRUE(answer(loadedWithK(0x7FFFFFFFUL), {0}) == answer(trainedKnn(Knn(5)), {0}));
}

// Memory that runs out

/// Trains; where the parameters could not make a classifier, says so as memory that ran out.
void trainOrRunOut(ktClassifierTool& tool, const ktClassifierDataProvider& data, const ktClassifierTrainParams& params)
{
    try {
        tool.train(data, params);
    } catch (const ktClassifierDefs::NotImplemented& error) {
        EXPECT_EQ(error.message(), notImplemented);
        EXPECT_FALSE(tool.isTrained());
        throw std::bad_alloc();
    }
}

TEST(ToolMemory, TrainingThatRunsOutOfItLeavesTheToolUntrained)
{
    const ktClassifierDataProviderMemory data = trainingData(line);
    const Knn params(3, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(2.0));
    const ktDecisionTreeNode tree = someTree();
    const auto untrained = [](const ktClassifierTool& tool) { EXPECT_FALSE(tool.isTrained()); };
    EXPECT_GT(
        kt_test::failEachAllocation([] { return trainedKnn(); },
                                    [&](ktClassifierTool& tool) { trainOrRunOut(tool, data, params); }, untrained),
        5);
    EXPECT_GE(kt_test::failEachAllocation([] { return trainedKnn(); },
                                          [&](ktClassifierTool& tool) { tool.train(tree); }, untrained),
              2);
}

TEST(ToolMemory, ClassifierThatCannotBeMadeForLackOfItIsNotImplemented)
{
    const ktClassifierDataProviderMemory data = trainingData(line);
    const Knn params(3);
    ktClassifierTool tool;
    bool happened = false;
    const auto train = [&] {
        const kt_test::AllocationFailure failure(1);
        try {
            tool.train(data, params);
        } catch (...) {
            happened = failure.happened();
            throw;
        }
    };
    expectThrows<ktClassifierDefs::NotImplemented>(notImplemented, 0x10004205, train);
    EXPECT_TRUE(happened);
    expectUntrained(tool);
}

TEST(ToolMemory, RetrainingThatRunsOutOfItChangesNothing)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(2, 5, 9.0);
    const Knn params(5, ktPatternDistanceMetricNorm(1.0), costs);
    const long allocations =
        kt_test::failEachAllocation([] { return trainedKnn(); }, [&](ktClassifierTool& tool) { tool.retrain(params); },
                                    [](const ktClassifierTool& tool) {
                                        EXPECT_TRUE(tool == trainedKnn());
                                        EXPECT_TRUE(answer(tool, {0}) == answer(trainedKnn(), {0}));
                                    });
    EXPECT_GT(allocations, 3);
}

TEST(ToolMemory, RunThatRunsOutOfItLeavesTheResult)
{
    const ktClassifierTool tool = trainedKnn(Knn(4));
    const auto query = pattern({0});
    const long allocations = kt_test::failEachAllocation(
        [] { return untouchedResult(); }, [&](ktClassifierResult& result) { tool.run(*query, result); },
        [](const ktClassifierResult& result) { EXPECT_TRUE(result == untouchedResult()); });
    EXPECT_GT(allocations, 0);
}

TEST(ToolMemory, AssignmentThatRunsOutOfItLeavesTheTargetEmpty)
{
    const ktClassifierTool source = trainedKnn(Knn(4));
    const long allocations =
        kt_test::failEachAllocation([] { return trainedTree(); }, [&](ktClassifierTool& tool) { tool = source; },
                                    [](ktClassifierTool& tool) { expectUntrained(tool); });
    EXPECT_GT(allocations, 0);
    EXPECT_TRUE(source == trainedKnn(Knn(4)));
}

TEST(ToolMemory, LoadingThatRunsOutOfItLeavesTheOldClassifierOrNone)
{
    const std::string bytes = kt_test::store(trainedKnn());
    const long allocations = kt_test::failEachAllocation(
        [] { return trainedTree(); }, [&](ktClassifierTool& tool) { kt_test::loadInto(tool, bytes); },
        [](ktClassifierTool& tool) {
            if (tool.isTrained()) {
                EXPECT_TRUE(tool == trainedTree());
            } else {
                expectUntrained(tool);
            }
        });
    EXPECT_GT(allocations, 10);
}

// What must hold for every archivable class. Only an empty tool is unchanged by an assignment that fails, so each case pairs
// one with a trained tool.

struct ToolCase : kt_test::ArchivableCase<ktClassifierTool> {
    static constexpr const char* name = "ktClassifierTool";
    static constexpr bool keepsValueWhenAssignedToItself = false;
    static std::vector<ktClassifierTool> samples() { return {ktClassifierTool(), trainedKnn()}; }
};

struct ToolTreeCase : ToolCase {
    static constexpr const char* name = "ktClassifierToolWithTree";
    static std::vector<ktClassifierTool> samples() { return {ktClassifierTool(), trainedTree()}; }
};

using ToolCases = ::testing::Types<ToolCase, ToolTreeCase>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Tool, Archivable, ToolCases, kt_test::CaseNames);
