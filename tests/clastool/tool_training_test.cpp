#include "tool_kit.h"

namespace {

using namespace kt_test;

constexpr const char* notImplemented =
    "The classification method specified by the training parameters is not implemented.";

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
                            "recordTrainInputs_(destination, 12)",
                            "train_",
                            "train_, half way",
                            "clone of params 1",
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
        expectThrows<ktClassifierDefs::NotImplemented>(notImplemented, [&] { tool_.train(data_, otherParams_); });
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
    expectThrows<ktBadPointer>("", [&] { tool_.train(data_, Empty(script_, 2)); });
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
        expectThrows<ktClassifierDefs::BadIndex>("half way", [&] { tool_.train(data_, otherParams_); });
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
        "K-nearest neighbor classification does not support invalid measurements", [&] { tool_.train(data, Knn()); });
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
Unready libraryError(const char* label)
{
    return {label, [label] { throw Error(label); },
            [=](const std::function<void()>& operation) { expectThrows<Error>(label, operation); }, false};
}

/// An error of the user's own.
struct DerivedError : ktClassifierDefs::BadMethod {
    using ktClassifierDefs::BadMethod::BadMethod;
};

const std::vector<Unready>& unreadyRows()
{
    static const std::vector<Unready> rows = {
        libraryError<ktClassifierDefs::BadParams>("BadParams"),
        libraryError<ktClassifierDefs::NotTrained>("NotTrained"),
        libraryError<ktClassifierDefs::BadIndex>("BadIndex"),
        libraryError<ktClassifierDefs::BadLabel>("BadLabel"),
        libraryError<ktClassifierDefs::BadMethod>("BadMethod"),
        libraryError<ktClassifierDefs::NotImplemented>("NotImplemented"),
        libraryError<ktClassifierDefs::BadFeatures>("BadFeatures"),
        libraryError<ktClassifierDefs::InsufficientTrainData>("InsufficientTrainData"),
        libraryError<DerivedError>("derived from BadMethod"),
        {"abort by the attention check", [] { kfThrowExceptionOnFailure(kt_test::abortStatus); },
         [](const std::function<void()>& operation) { expectThrows<ktFailure>(kt_test::abortMessage, operation); },
         true},
        {"null handle", [] { throw ktBadPointer(); },
         [](const std::function<void()>& operation) { expectThrows<ktBadPointer>("", operation); }, true},
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
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { tool_.train(unlabelled, params); });
    expectUntrained(tool_);
    params.throwIfNotReady(false);
    tool_.train(unlabelled, params);
    EXPECT_TRUE(tool_.isTrained());
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { answer(tool_, {1, 2}); });
    tool_.retrain(params);
    EXPECT_TRUE(tool_.isTrained());
    params.throwIfNotReady(true);
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { tool_.retrain(params); });
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
    expectThrows<ktClassifierDefs::BadMethod>(toolOfOtherTechnique, [&] { tool_.retrain(params_); });
    EXPECT_TRUE(tool_ == before);
    EXPECT_TRUE(answer(tool_, {0}) == answer(before, {0}));
}

TEST_F(ToolRetrain, ThatTheTechniqueRefusesKeepsTheOldParametersAndChecksNothing)
{
    trainWithTechnique();
    script_.failAt("retrain_", ktClassifierDefs::BadIndex("refused"));
    expectThrows<ktClassifierDefs::BadIndex>("refused", [&] { tool_.retrain(otherParams_); });
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

/// Parameters that say when they go.
class MortalParams : public kt_test::TechniqueParams {
public:
    explicit MortalParams(kt_test::Script& script) : TechniqueParams(script, 1), script_(&script) {}
    MortalParams(const MortalParams&) = default;
    ~MortalParams() override { script_->note("the parameters go"); }
    ktPtrHandle<ktClassifierTrainParams> clone() const override { return new MortalParams(*this); }

private:
    kt_test::Script* script_;
};

TEST_F(ToolRetrain, HoldsItsOwnParametersUntilTheReadinessCheckIsDone)
{
    tool_.train(data_, MortalParams(script_));
    const ktClassifierTrainParams& own = *tool_.trainParams();
    script_.takeCalls();
    tool_.retrain(own);
    const std::vector<std::string> calls = script_.takeCalls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[calls.size() - 2], "checkRunnable_");
    EXPECT_EQ(calls.back(), "the parameters go");
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
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, [&] { tool_.trainParams(); });
    expectThrows<ktClassifierDefs::BadMethod>(toolOfOtherTechnique, [&] { tool_.retrain(Knn()); });
    expectThrows<ktClassifierDefs::BadMethod>(toolOfOtherTechnique, [&] { tool_.retrain(params_); });
    EXPECT_EQ(script_.calls, Calls());
    EXPECT_TRUE(*tool_.decisionTree() == someTree()) << "it stays trained";
}

TEST_F(ToolTree, IsNotThereAfterAutomaticTraining)
{
    tool_ = trainedKnn();
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not trained using a decision tree.",
                                              [&] { tool_.decisionTree(); });
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

// Memory that runs out

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
    expectThrows<ktClassifierDefs::NotImplemented>(notImplemented, train);
    EXPECT_TRUE(happened);
    expectUntrained(tool);
}

}  // namespace
