#include "tool_kit.h"

namespace {

using namespace kt_test;

// Training

using FrameTrain = Frame;

// Kept on purpose: the details of training go to the caller's object, everything else to the destination.
TEST_F(FrameTrain, CallsTheHooksInOrderWithTheFlagsAsTheDestinationLeftThem)
{
    technique_.train(data_, params_, &caller_, 4);
    const Calls expected = {"recordTrainInputs_(destination, 12)",
                            "train_",
                            "train_, half way",
                            "clone of params 1",
                            "recordTrainDetails_(caller, 12)",
                            "recordTrainResults_(destination, 12)"};
    EXPECT_EQ(script_.calls, expected);
    EXPECT_EQ(caller_.timesAsked(), 1);
    EXPECT_EQ(destination_.timesAsked(), 0);
}

TEST_F(FrameTrain, UntrainsFirst)
{
    trainWithFirst();
    technique_.train(data_, otherParams_, &caller_, 4);
    const Calls expected = {"untrain_",
                            "recordTrainInputs_(destination, 12)",
                            "train_",
                            "train_, half way",
                            "clone of params 2",
                            "recordTrainDetails_(caller, 12)",
                            "recordTrainResults_(destination, 12)"};
    EXPECT_EQ(script_.calls, expected);
    EXPECT_EQ(valueOf(technique_.heldParams()), 2);
}

TEST_F(FrameTrain, RecordsToNullWithoutADiagnosticsObject)
{
    technique_.train(data_, params_);
    const Calls expected = {"recordTrainInputs_(null, 0)",
                            "train_",
                            "train_, half way",
                            "clone of params 1",
                            "recordTrainDetails_(null, 0)",
                            "recordTrainResults_(null, 0)"};
    EXPECT_EQ(script_.calls, expected);
}

TEST_F(FrameTrain, GivesTheDetailsToTheCallersObjectEvenIfThereIsNoDestination)
{
    caller_.sendTo(nullptr);
    technique_.train(data_, params_, &caller_, 1);
    const Calls expected = {"recordTrainInputs_(null, 9)",
                            "train_",
                            "train_, half way",
                            "clone of params 1",
                            "recordTrainDetails_(caller, 9)",
                            "recordTrainResults_(null, 9)"};
    EXPECT_EQ(script_.calls, expected);
}

TEST_F(FrameTrain, HandsProviderAndParametersThemselvesToTheTechnique)
{
    technique_.train(data_, params_);
    EXPECT_EQ(technique_.provider(), &data_);
    EXPECT_EQ(technique_.params(), &params_);
    EXPECT_TRUE(technique_.wantsCheck());
}

TEST_F(FrameTrain, StoresACloneOfTheParameters)
{
    technique_.train(data_, params_);
    params_.value(99);
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
    EXPECT_EQ(technique_.heldParams()->refCount(), 1);
    EXPECT_EQ(params_.refCount(), 0);
}

TEST_F(FrameTrain, ParametersAreStoredBetweenTheTrainingAndItsDetails)
{
    Calls held;
    script_.during = [&](const std::string&) { held.push_back(std::to_string(valueOf(technique_.heldParams()))); };
    technique_.train(data_, params_);
    EXPECT_EQ(held, (Calls{"-1", "-1", "-1", "-1", "1", "1"}));
}

TEST_F(FrameTrain, WhatAHookThrowsPassesThrough)
{
    struct Row {
        const char* hook;
        bool trained;
        long params;
    };
    const Row rows[] = {
        {"recordTrainInputs_", false, -1}, {"train_", false, -1},
        {"train_, half way", true, -1},    {"recordTrainDetails_", true, 2},
        {"recordTrainResults_", true, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.hook);
        Technique technique(script_);
        technique.train(data_, params_);
        script_.failAt(row.hook, Stop("stop"));
        EXPECT_THROW(technique.train(data_, otherParams_), Stop);
        script_.during = nullptr;
        EXPECT_EQ(technique.isTrained(), row.trained);
        EXPECT_EQ(valueOf(technique.heldParams()), row.params) << "the old parameters were let go";
    }
}

TEST_F(FrameTrain, IsUndoneIfTheParametersCannotBeCloned)
{
    trainWithFirst();
    script_.failAt("clone", Stop("stop"));
    EXPECT_THROW(technique_.train(data_, otherParams_), Stop);
    EXPECT_EQ(script_.calls, (Calls{"untrain_", "recordTrainInputs_(null, 0)", "train_", "train_, half way",
                                    "clone of params 2", "untrain_"}));
    EXPECT_FALSE(technique_.isTrained());
    EXPECT_TRUE(technique_.heldParams().isNull());
}

TEST_F(FrameTrain, StoresTheParametersAsTheTrainingLeftThem)
{
    script_.during = [&](const std::string& call) {
        if (call == "train_") {
            params_.value(7);
        }
    };
    technique_.train(data_, params_);
    EXPECT_EQ(valueOf(technique_.trainParams()), 7);
}

TEST_F(FrameTrain, WhatTheDiagnosticsObjectThrowsPassesThrough)
{
    struct Broken : ktDiagObject {
        ktDiagObject* recordingDestination(unsigned long&) override { throw Stop("stop"); }
    };
    trainWithFirst();
    Broken broken;
    EXPECT_THROW(technique_.train(data_, otherParams_, &broken), Stop);
    EXPECT_EQ(script_.calls, Calls{"untrain_"});
    EXPECT_TRUE(technique_.heldParams().isNull());
}

TEST_F(FrameTrain, WithTheStoredParametersThemselves)
{
    trainWithFirst();
    const ktClassifierTrainParams& own = *technique_.heldParams();
    technique_.train(data_, own);
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
    EXPECT_NE(technique_.heldParams().get(), technique_.params()) << "a clone of them";
}

// Starting incremental training

using FrameTrainStart = Frame;

TEST_F(FrameTrainStart, UntrainsHandsOnTheParametersAndRecordsNothing)
{
    trainWithFirst();
    technique_.trainStart(otherParams_);
    EXPECT_EQ(script_.calls, (Calls{"untrain_", "trainStart_", "clone of params 2"}));
    EXPECT_EQ(technique_.params(), &otherParams_);
    EXPECT_EQ(valueOf(technique_.heldParams()), 2);
}

TEST_F(FrameTrainStart, DoesNotUntrainAnUntrainedClassifier)
{
    technique_.trainStart(params_);
    EXPECT_EQ(script_.calls, (Calls{"trainStart_", "clone of params 1"}));
}

TEST_F(FrameTrainStart, StoresNoParametersIfTheTechniqueThrows)
{
    trainWithFirst();
    script_.failAt("trainStart_", Stop("stop"));
    EXPECT_THROW(technique_.trainStart(otherParams_), Stop);
    EXPECT_FALSE(technique_.isTrained());
    EXPECT_TRUE(technique_.heldParams().isNull());
}

TEST_F(FrameTrainStart, LeavesTheClassifierUntrainedIfTheParametersCannotBeCloned)
{
    trainWithFirst();
    script_.failAt("clone", Stop("stop"));
    EXPECT_THROW(technique_.trainStart(otherParams_), Stop);
    EXPECT_FALSE(technique_.isTrained());
    EXPECT_TRUE(technique_.heldParams().isNull());
}

TEST_F(FrameTrainStart, WithTheStoredParametersThemselves)
{
    trainWithFirst();
    technique_.trainStart(*technique_.heldParams());
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
}

// Incremental training

using FrameTrainIncremental = Frame;

TEST_F(FrameTrainIncremental, NeedsATrainedClassifier)
{
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before incremental training.",
                                               [&] { technique_.trainIncremental(*pattern({5}), 7); });
    EXPECT_EQ(script_.calls, Calls());
}

TEST_F(FrameTrainIncremental, HandsOnPatternAndLabelAndLeavesDiagnosticsAlone)
{
    trainWithFirst();
    technique_.trainIncremental(*pattern({5}), 7, &caller_, 4);
    technique_.trainIncremental(*pattern({6}), -1);
    EXPECT_EQ(script_.calls, (Calls{"trainIncremental_(5, 7)", "trainIncremental_(6, -1)"}));
    EXPECT_EQ(caller_.timesAsked(), 0);
    EXPECT_EQ(valueOf(technique_.heldParams()), 1);
}

TEST_F(FrameTrainIncremental, WhatTheTechniqueThrowsPassesThrough)
{
    trainWithFirst();
    script_.failAt("trainIncremental_", Stop("stop"));
    EXPECT_THROW(technique_.trainIncremental(*pattern({5}), 7), Stop);
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
}

// Retraining

using FrameRetrain = Frame;

TEST_F(FrameRetrain, NeedsATrainedClassifierFirstOfAll)
{
    OtherParams other(script_, 3);
    for (const ktClassifierTrainParams* params :
         {static_cast<ktClassifierTrainParams*>(&params_), static_cast<ktClassifierTrainParams*>(&other)}) {
        expectThrows<ktClassifierDefs::NotTrained>(notTrainedToRetrain, [&] { technique_.retrain(*params); });
    }
    EXPECT_EQ(script_.calls, Calls());
}

TEST_F(FrameRetrain, NeedsStoredParameters)
{
    technique_.trainManual();
    expectThrows<ktClassifierDefs::BadMethod>(toolOfOtherTechnique, [&] { technique_.retrain(params_); });
    EXPECT_EQ(script_.calls, Calls()) << "there is nothing to ask about";
    EXPECT_TRUE(technique_.isTrained());
}

TEST_F(FrameRetrain, AsksTheGivenParametersAboutTheStoredOnes)
{
    trainWithFirst();
    technique_.retrain(otherParams_, &caller_, 4);
    EXPECT_EQ(script_.calls, (Calls{"isSameTechnique_: 2 about 1", "clone of params 2", "retrain_"}));
    EXPECT_EQ(technique_.params(), &otherParams_);
    EXPECT_EQ(valueOf(technique_.trainParams()), 2);
    EXPECT_EQ(caller_.timesAsked(), 0) << "nothing is recorded";
}

TEST_F(FrameRetrain, WithAnotherTechniqueLeavesTheClassifierTrainedWithItsOldParameters)
{
    trainWithFirst();
    expectThrows<ktClassifierDefs::BadMethod>(toolOfOtherTechnique,
                                              [&] { technique_.retrain(OtherParams(script_, 3)); });
    EXPECT_EQ(script_.calls, Calls{"isSameTechnique_: 3 about 1"});
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
}

TEST_F(FrameRetrain, StoresACloneOfTheParameters)
{
    trainWithFirst();
    technique_.retrain(otherParams_);
    otherParams_.value(99);
    EXPECT_EQ(valueOf(technique_.trainParams()), 2);
}

TEST_F(FrameRetrain, KeepsTheOldParametersIfTheTechniqueThrows)
{
    trainWithFirst();
    script_.failAt("retrain_", Stop("stop"));
    EXPECT_THROW(technique_.retrain(otherParams_), Stop);
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
}

TEST_F(FrameRetrain, NothingChangesIfTheParametersCannotBeCloned)
{
    trainWithFirst();
    script_.failAt("clone", Stop("stop"));
    EXPECT_THROW(technique_.retrain(otherParams_), Stop);
    EXPECT_EQ(script_.calls, (Calls{"isSameTechnique_: 2 about 1", "clone of params 2"}));
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
}

TEST_F(FrameRetrain, WithTheStoredParametersThemselves)
{
    trainWithFirst();
    technique_.retrain(*technique_.heldParams());
    EXPECT_EQ(valueOf(technique_.trainParams()), 1);
}

// Running

using FrameRun = Frame;

TEST_F(FrameRun, NeedsATrainedClassifier)
{
    ktClassifierResult result = untouchedResult();
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedToRun,
                                               [&] { technique_.run(*pattern({5}), result, &caller_, 4); });
    EXPECT_EQ(script_.calls, Calls());
    EXPECT_EQ(caller_.timesAsked(), 0);
    EXPECT_TRUE(result == untouchedResult());
}

TEST_F(FrameRun, CallsTheHooksInOrderWithTheFlagsAsTheDestinationLeftThem)
{
    trainWithFirst();
    ktClassifierResult result;
    technique_.run(*pattern({5}), result, &caller_, 4);
    const Calls expected = {"recordRunInputs_(destination, 12, 5)", "run_(5)", "recordRunDetails_(destination, 12)",
                            "recordRunResults_(destination, 12, 5, label 5)"};
    EXPECT_EQ(script_.calls, expected) << "and the readiness is not checked";
    EXPECT_EQ(kt_test::labelsOf(result), std::vector<long>{5});
}

TEST_F(FrameRun, RecordsToNullWithoutADiagnosticsObject)
{
    technique_.trainManual();
    ktClassifierResult result;
    technique_.run(*pattern({5}), result);
    const Calls expected = {"recordRunInputs_(null, 0, 5)", "run_(5)", "recordRunDetails_(null, 0)",
                            "recordRunResults_(null, 0, 5, label 5)"};
    EXPECT_EQ(script_.calls, expected);
}

TEST_F(FrameRun, WhatAHookThrowsPassesThroughAndNoLaterHookIsCalled)
{
    trainWithFirst();
    const char* const hooks[] = {"recordRunInputs_", "run_", "recordRunDetails_", "recordRunResults_"};
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(hooks[i]);
        script_.failAt(hooks[i], Stop("stop"));
        ktClassifierResult result;
        EXPECT_THROW(technique_.run(*pattern({5}), result), Stop);
        EXPECT_EQ(script_.takeCalls().size(), i + 1);
        EXPECT_EQ(valueOf(technique_.trainParams()), 1);
    }
}

// Untraining and the stored parameters

using FrameState = Frame;

TEST_F(FrameState, UntrainOnAnUntrainedClassifierDoesNothing)
{
    EXPECT_NO_THROW(technique_.untrain());
    EXPECT_EQ(script_.calls, Calls());
}

TEST_F(FrameState, UntrainUntrainsAndLetsTheParametersGo)
{
    trainWithFirst();
    const ktPtrHandle_const<ktClassifierTrainParams> params = technique_.trainParams();
    technique_.untrain();
    EXPECT_EQ(script_.calls, Calls{"untrain_"});
    EXPECT_FALSE(technique_.isTrained());
    EXPECT_TRUE(technique_.heldParams().isNull());
    EXPECT_EQ(params->refCount(), 1);
}

TEST_F(FrameState, TrainParamsGivesAFurtherHandle)
{
    trainWithFirst();
    const ktPtrHandle_const<ktClassifierTrainParams> params = technique_.trainParams();
    EXPECT_EQ(params->refCount(), 2);
    EXPECT_TRUE(params == technique_.heldParams());
}

TEST_F(FrameState, TrainParamsNeedsATrainedClassifierAndThenStoredParameters)
{
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedForParams, [&] { technique_.trainParams(); });
    technique_.trainManual();
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, [&] { technique_.trainParams(); });
    EXPECT_TRUE(technique_.isTrained());
}

TEST_F(FrameState, CopyAndAssignmentShareTheParameters)
{
    trainWithFirst();
    const Technique copy(technique_);
    EXPECT_TRUE(copy.heldParams() == technique_.heldParams());
    EXPECT_EQ(technique_.heldParams()->refCount(), 2);
    Technique assigned(script_);
    assigned = technique_;
    EXPECT_EQ(technique_.heldParams()->refCount(), 3);
    const Technique& same = assigned;
    assigned = same;
    EXPECT_EQ(technique_.heldParams()->refCount(), 3);
    EXPECT_EQ(script_.calls, Calls()) << "nothing is cloned";
}

// Comparison

using FrameComparison = Frame;

TEST_F(FrameComparison, LooksAtTrainingAndParameters)
{
    Technique untrained(script_);
    Technique byHand(script_);
    byHand.trainManual();
    Technique withFirst(script_);
    withFirst.train(data_, params_);
    Technique withFirstAgain(script_);
    withFirstAgain.train(data_, params_);
    Technique withSecond(script_);
    withSecond.train(data_, otherParams_);
    struct Row {
        const char* label;
        const Technique& a;
        const Technique& b;
        bool equivalent;
    };
    const Row rows[] = {
        {"both untrained", untrained, Technique(script_), true},
        {"one trained", withFirst, untrained, false},
        {"both without parameters", byHand, byHand, true},
        {"parameters on one side only", withFirst, byHand, false},
        {"equal parameters", withFirst, withFirstAgain, true},
        {"other parameters", withFirst, withSecond, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.a.isEquivalent(row.b), row.equivalent);
        EXPECT_EQ(row.b.isEquivalent(row.a), row.equivalent);
        EXPECT_EQ(row.a == row.b, row.equivalent);
        EXPECT_EQ(row.a != row.b, !row.equivalent);
    }
}

TEST_F(FrameComparison, AsksThisClassifiersParametersAboutTheOthers)
{
    trainWithFirst();
    Technique other(script_);
    other.train(data_, otherParams_);
    script_.takeCalls();
    technique_.isEquivalent(other);
    EXPECT_EQ(script_.takeCalls(), Calls{"isEqual_: 1 with 2"});
    technique_.isEquivalent(Technique(technique_));
    EXPECT_EQ(script_.takeCalls(), Calls{"isEqual_: 1 with 1"}) << "shared parameters are compared too";
}

// Archives

/// The technique with the layer of its base open. Its own layer has no fields.
struct OpenTechnique : Technique {
    using kt_Classifier::serialize_;
    using Technique::Technique;
};

TEST_F(Frame, IsStoredAsItsVersionAndItsParametersByPointer)
{
    OpenTechnique classifier(script_);
    EXPECT_EQ(kt_test::toHex(kt_test::store(classifier)),
              kt_test::toHex(kt_test::archiveHeader() + std::string(2, '\0')));
    classifier.train(data_, ktClassifierTrainParamsKNN(9));
    const ktPtrHandle<ktClassifierTrainParamsKNN> params(new ktClassifierTrainParamsKNN(9));
    EXPECT_EQ(kt_test::toHex(kt_test::store(classifier)),
              kt_test::toHex(kt_test::store(static_cast<unsigned char>(0), params)));
}

TEST_F(Frame, LoadingReplacesTheParametersAndTakesObjectsOfAnotherClassForNull)
{
    OpenTechnique stored(script_);
    stored.train(data_, ktClassifierTrainParamsKNN(9));
    trainWithFirst();
    kt_test::loadInto(technique_, kt_test::store(stored));
    EXPECT_EQ(dynamic_cast<const ktClassifierTrainParamsKNN&>(*technique_.trainParams()).k(), 9);

    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        unsigned char version = 0;
        ktPtrHandle<ktFeaturePattern> foreign = new ktFeaturePattern({1.0}, {});
        archive || version || foreign;
    }
    kt_test::loadInto(technique_, archive.bytes());
    EXPECT_TRUE(technique_.heldParams().isNull());
}

TEST_F(Frame, IsStoredOnceAPass)
{
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        archive || technique_ || technique_;
    }
    EXPECT_EQ(archive.bytes(), kt_test::store(technique_));
}

TEST_F(Frame, RefusesAnyOtherVersion)
{
    OpenTechnique classifier(script_);
    classifier.train(data_, params_);
    const std::string bytes = kt_test::withBytesAt(kt_test::store(technique_), kt_test::archiveHeader().size(), "\x02");
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive.",
                                            [&] { kt_test::loadInto(classifier, bytes); });
    kt_test::StoringArchive archive;
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive.",
                                            [&] { classifier.serialize_(archive, 1); });
    EXPECT_EQ(archive.bytes(), "");
    EXPECT_EQ(valueOf(classifier.trainParams()), 1);
}

}  // namespace
