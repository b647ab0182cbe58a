#include "knn_classifier_kit.h"

namespace {

using namespace kt_test;
using namespace neighbors;

// Training

TEST(KnnTraining, NewClassifierIsUntrained)
{
    OpenKNN classifier;
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_TRUE(classifier.storedParams().isNull());
    expectRunThrows<ktClassifierDefs::NotTrained>(classifier, *pattern({0}), notTrainedToRun);
}

TEST(KnnTraining, KeepsNameDescriptionAndTheLabelledPatternsInOrder)
{
    kt_test::Script script;
    const NotingProvider provider(script, {{pattern({1, 2}), 3},
                                           {pattern({5, 5}), -1},
                                           {pattern({0, 4}), 0},
                                           {pattern({1, 2}), 3},
                                           {pattern({7, 7}), -1}});
    kt_ClassifierKNN classifier;
    classifier.train(provider, Params());
    Data expected = trainingData({{{1, 2}, 3}, {{0, 4}, 0}, {{1, 2}, 3}});
    expected.setName("the name");
    expected.setDescription("the description");
    EXPECT_TRUE(keptBy(classifier) == expected);
}

TEST(KnnTraining, AsksForEachPatternAndThenItsLabelInOrder)
{
    kt_test::Script script;
    const NotingProvider provider(script, {{pattern({1}), 3}, {pattern({2}), -1}});
    kt_ClassifierKNN().train(provider, Params());
    const std::vector<std::string> expected = {"name",    "description", "numPatterns", "pattern 0",
                                               "label 0", "pattern 1",   "label 1"};
    EXPECT_EQ(script.calls, expected);
}

TEST(KnnTraining, SharesThePatternsThatItKeeps)
{
    const PatternHandle labelled = pattern({1, 2});
    const PatternHandle unlabelled = pattern({3, 4});
    Data data;
    data.addData(labelled, 3);
    data.addData(unlabelled, -1);
    ASSERT_EQ(labelled->refCount(), 2);
    kt_ClassifierKNN classifier;
    classifier.train(data, Params());
    EXPECT_EQ(labelled->refCount(), 3);
    EXPECT_EQ(unlabelled->refCount(), 2);
    classifier.untrain();
    EXPECT_EQ(labelled->refCount(), 2);
}

TEST(KnnTraining, OneByOneKeepsAnUnlabelledPatternWhoseVoteNoResultTakes)
{
    OpenKNN classifier = trained(line, Params(1));
    classifier.trainIncremental(*pattern({100.0}), -1);
    EXPECT_EQ(labelsOf(answer(classifier, {0.5})), std::vector<long>{2}) << "too far away to vote";
    expectRunThrows<ktClassifierDefs::BadLabel>(classifier, *pattern({100.0}), "Category labels must be >= 0");
}

TEST(KnnTraining, KeepsNothingThatIsAddedToTheProviderAfterwards)
{
    Data data = trainingData(line);
    kt_ClassifierKNN classifier;
    classifier.train(data, Params());
    data.addData(pattern({0.5}), 9);
    EXPECT_EQ(labelsOf(answer(classifier, {0.5})), std::vector<long>{2});
}

TEST(KnnTraining, RefusesAnInvalidMeasurementAndReadsNoFurther)
{
    for (const long label : {4L, -1L}) {
        SCOPED_TRACE(label);
        kt_test::Script script;
        const NotingProvider provider(script, {{pattern({1}), 3}, {pattern({2}, {0}), label}, {pattern({3}), 5}});
        OpenKNN classifier;
        expectThrows<ktClassifierDefs::BadFeatures>(invalidMeasurements, [&] { classifier.train(provider, Params()); });
        EXPECT_EQ(script.calls.back(), "pattern 1") << "its label is not asked for";
    }
}

TEST(KnnTraining, BareClassifierThatRefusedTrainingHoldsAnEmptyStore)
{
    kt_test::Script script;
    const NotingProvider provider(script, {{pattern({1}), 3}, {pattern({2}, {0}), 4}});
    OpenKNN classifier = trained(line, Params(3));
    expectThrows<ktClassifierDefs::BadFeatures>(invalidMeasurements, [&] { classifier.train(provider, Params()); });
    EXPECT_TRUE(classifier.isTrained());
    EXPECT_TRUE(classifier.storedParams().isNull());
    Data expected;
    expected.setName("the name");
    expected.setDescription("the description");
    EXPECT_TRUE(keptBy(classifier) == expected);
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({0}), noData);
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, [&] { classifier.trainParams(); });
}

TEST(KnnTraining, RefusesWhatAStoreRefuses)
{
    kt_test::Script script;
    const NotingProvider sizes(script, {{pattern({1}), 3}, {pattern({1, 2}), 3}});
    const NotingProvider labels(script, {{pattern({1}), -2}});
    const NotingProvider null(script, {{nullptr, 3}});
    kt_ClassifierKNN classifier;
    expectThrows<ktClassifierDefs::BadFeatures>("Feature patterns must all have the same number of measurements",
                                                [&] { classifier.train(sizes, Params()); });
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be >= 0 or unknown",
                                             [&] { classifier.train(labels, Params()); });
    expectThrows<ktBadPointer>("", [&] { classifier.train(null, Params()); });
}

/// Claims to hold as many patterns as a `long` can count.
class BoastingProvider : public Data {
public:
    long numPatterns() const override { return std::numeric_limits<long>::max(); }
};

TEST(KnnTraining, RefusesAProviderThatClaimsMoreThanMemoryCanHold)
{
    const BoastingProvider provider;
    if (static_cast<std::size_t>(provider.numPatterns()) <= std::vector<PatternHandle>().max_size()) {
        GTEST_SKIP() << "a long counts no more than memory might hold";
    }
    OpenKNN classifier;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { classifier.train(provider, Params()); });
    ktClassifierTool tool;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { tool.train(provider, Params()); });
    EXPECT_FALSE(tool.isTrained());
}

TEST(KnnTraining, WithoutOneLabelledPatternSucceedsAndEachRunThrows)
{
    for (const std::vector<Labelled>& rows : {std::vector<Labelled>(), {{{1, 2}, -1}, {{3, 4}, -1}}}) {
        const OpenKNN classifier = trained(rows, Params());
        EXPECT_TRUE(classifier.isTrained());
        expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { classifier.checkRunnable_(); });
        expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({1, 2}), noData);
    }
}

TEST(KnnTraining, AgainReplacesPatternsAndParameters)
{
    OpenKNN classifier = trained(line, Params(3));
    classifier.train(trainingData({{{1, 1}, 8}}), Params(1));
    EXPECT_TRUE(keptBy(classifier) == trainingData({{{1, 1}, 8}}));
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.trainParams()).k(), 1);
}

TEST(KnnTraining, RefusesParametersOfAnotherTechnique)
{
    kt_test::Script script;
    const kt_test::TechniqueParams foreign(script, 1);
    OpenKNN classifier = trained(line, Params(3));
    expectThrows<ktClassifierDefs::BadParams>(paramsOfOtherTechnique,
                                              [&] { classifier.train_(trainingData({}), foreign); });
    EXPECT_TRUE(keptBy(classifier) == trainingData(line)) << "the hook changed nothing";
    expectThrows<ktClassifierDefs::BadParams>(paramsOfOtherTechnique,
                                              [&] { classifier.train(trainingData({}), foreign); });
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_TRUE(classifier.storedParams().isNull());
}

TEST(KnnTraining, WithItsOwnParametersAgain)
{
    OpenKNN classifier = trained(line, Params(3, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(2.0)));
    const Params expected = dynamic_cast<const Params&>(*classifier.trainParams());
    const ktClassifierTrainParams& own = *classifier.trainParams();
    classifier.train(trainingData(line), own);
    EXPECT_TRUE(dynamic_cast<const Params&>(*classifier.trainParams()) == expected);
    const ktClassifierTrainParams& ownAgain = *classifier.trainParams();
    classifier.retrain(ownAgain);
    EXPECT_TRUE(dynamic_cast<const Params&>(*classifier.trainParams()) == expected);
    EXPECT_EQ(answer(classifier, {0}).categoryResults().size(), 2u);
}

TEST(KnnTraining, UntrainLetsGoOfEverything)
{
    OpenKNN classifier = trained(line, Params(3));
    classifier.untrain();
    EXPECT_FALSE(classifier.isTrained_());
    EXPECT_TRUE(classifier.storedParams().isNull());
    classifier.untrain_();
    EXPECT_FALSE(classifier.isTrained());
}

TEST(KnnTraining, StartOfIncrementalTrainingDoesNotTrain)
{
    OpenKNN classifier;
    classifier.trainStart_(Params(3));
    EXPECT_TRUE(classifier == kt_ClassifierKNN());
    classifier.trainStart(Params(3));
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.storedParams()).k(), 3);
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before incremental training.",
                                               [&] { classifier.trainIncremental(*pattern({1}), 1); });
}

// Retraining

TEST(KnnRetraining, TakesEffectAtTheNextRunWithoutTouchingThePatterns)
{
    const PatternHandle kept = pattern({0});
    Data data;
    data.addData(kept, 1);
    for (long i = 1; i < 7; ++i) {
        data.addData(pattern({static_cast<double>(i)}), i == 1 ? 1 : 2);
    }
    kt_ClassifierKNN classifier;
    classifier.train(data, Params(1));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{1});
    const long counted = kept->refCount();
    classifier.retrain(Params(7));
    EXPECT_EQ(kept->refCount(), counted);
    EXPECT_EQ(labelsOf(answer(classifier, {0})), (std::vector<long>{2, 1}));
    EXPECT_EQ(answer(classifier, {0}).categoryResults()[0].matchScore(), 5.0 / 7.0);
}

TEST(KnnRetraining, TakesMetricAndCostsToo)
{
    // By order 1 the first pattern is nearer to the origin, by order 2 the second.
    OpenKNN classifier =
        trained({{{3, 0}, 1}, {{2, 2}, 2}}, Params(1, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts()));
    EXPECT_EQ(labelsOf(answer(classifier, {0, 0})), std::vector<long>{1});
    classifier.retrain(Params(1, ktPatternDistanceMetricNorm(2.0), ktClassifierCosts()));
    EXPECT_EQ(labelsOf(answer(classifier, {0, 0})), std::vector<long>{2});
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(1, 2, 4.0);
    classifier.retrain(Params(2, ktPatternDistanceMetricNorm(2.0), costs));
    EXPECT_EQ(answer(classifier, {0, 0}).categoryResults()[1].expectedCost(), 2.0);
}

TEST(KnnRetraining, RefusesForeignParametersThatClaimTheTechnique)
{
    struct Claiming : kt_test::TechniqueParams {
        using TechniqueParams::TechniqueParams;
        bool isSameTechnique_(const ktClassifierTrainParams&) const override { return true; }
    };
    kt_test::Script script;
    OpenKNN classifier = trained(line, Params(3));
    const ktClassifierResult before = answer(classifier, {0});
    expectThrows<ktClassifierDefs::BadParams>(paramsOfOtherTechnique, [&] { classifier.retrain(Claiming(script, 1)); });
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.trainParams()).k(), 3);
    EXPECT_TRUE(answer(classifier, {0}) == before);
}

TEST(KnnRetraining, HookNeedsTheStoredParametersBeforeItLooksAtTheNewOnes)
{
    kt_test::Script script;
    OpenKNN classifier;
    classifier.train_(trainingData(line), Params(1));
    ASSERT_TRUE(classifier.storedParams().isNull());
    expectThrows<ktBadPointer>("", [&] { classifier.retrain_(Params(3)); });
    expectThrows<ktBadPointer>("", [&] { classifier.retrain_(kt_test::TechniqueParams(script, 1)); });
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2}) << "k is still 1";
}

// Incremental training

TEST(KnnIncremental, AddsACopyOfThePattern)
{
    OpenKNN classifier = trained(line, Params(1));
    ktFeaturePattern added({5.0}, {});
    classifier.trainIncremental(added, 9);
    added = ktFeaturePattern({100.0}, {});
    EXPECT_EQ(labelsOf(answer(classifier, {5})), std::vector<long>{9});
    EXPECT_EQ(added.refCount(), 0);
    Data expected = trainingData(line);
    expected.addData(pattern({5}), 9);
    EXPECT_TRUE(keptBy(classifier) == expected);
}

TEST(KnnIncremental, FirstPatternAfterTrainingWithNoneSetsTheSize)
{
    OpenKNN classifier = trained({}, Params(1));
    classifier.trainIncremental(*pattern({1, 2, 3}), 4);
    EXPECT_EQ(labelsOf(answer(classifier, {0, 0, 0})), std::vector<long>{4});
}

TEST(KnnIncremental, RefusesWhatAStoreRefusesAndChangesNothing)
{
    OpenKNN classifier = trained(line, Params(1));
    expectThrows<ktClassifierDefs::BadFeatures>(
        "Feature pattern must have the same number of measurements as the rest of the data.", [&] {
            classifier.trainIncremental(*pattern({1, 2}), 9);
        });
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be >= 0 or unknown",
                                             [&] { classifier.trainIncremental(*pattern({1}), -2); });
    EXPECT_TRUE(keptBy(classifier) == trainingData(line));
}

// Kept on purpose: invalid measurements are refused by training, and by a run that reaches the pattern, but not here.
TEST(KnnIncremental, TakesAnInvalidMeasurementThatARunRefusesWhenItReachesThePattern)
{
    OpenKNN classifier = trained(line, Params(1));
    classifier.trainIncremental(*pattern({5}, {0}), 9);
    Data expected = trainingData(line);
    expected.addData(pattern({5}, {0}), 9);
    EXPECT_TRUE(keptBy(classifier) == expected);
    expectRunThrows<ktClassifierDefs::BadFeatures>(classifier, *pattern({0}), notAllValid);
}

TEST(KnnIncremental, PatternOfUnknownCategoryIsKeptAndRefusedWhenItVotes)
{
    OpenKNN classifier = trained(line, Params(1));
    classifier.trainIncremental(*pattern({5}), -1);
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2});
    expectRunThrows<ktClassifierDefs::BadLabel>(classifier, *pattern({5}), "Category labels must be >= 0");
}

TEST(KnnIncremental, PatternIsSeenByAllThatShareThePatterns)
{
    OpenKNN classifier = trained(line, Params(1));
    const kt_ClassifierKNN copy(classifier);
    kt_ClassifierKNN assigned;
    assigned = classifier;
    const ktPtrHandle<kt_Classifier> clone = classifier.clone();
    classifier.trainIncremental(*pattern({5}), 9);
    EXPECT_EQ(labelsOf(answer(copy, {5})), std::vector<long>{9});
    EXPECT_EQ(labelsOf(answer(assigned, {5})), std::vector<long>{9});
    EXPECT_EQ(labelsOf(answer(*clone, {5})), std::vector<long>{9});
}

// Memory

TEST(KnnMemory, IncrementalTrainingWithTooLittleOfItForACopyGivesTheSameAnswers)
{
    // As many as fill a block: one more needs another.
    std::vector<Labelled> rows;
    for (long i = 0; i < 64; ++i) {
        rows.push_back({{static_cast<double>(i)}, i % 3});
    }
    const auto prepare = [&rows] { return trained(rows, Params(3)); };
    const PatternHandle added = pattern({20.25});
    OpenKNN expected = prepare();
    expected.trainIncremental(*added, 9);
    const long allocations = kt_test::failEachAllocation(
        prepare, [&](OpenKNN& classifier) { classifier.trainIncremental(*added, 9); },
        [&](const OpenKNN& classifier) { EXPECT_TRUE(classifier == prepare()); },
        [&](const OpenKNN& classifier) { EXPECT_TRUE(answer(classifier, {20.5}) == answer(expected, {20.5})); });
    EXPECT_GT(allocations, 2);
}

TEST(KnnMemory, OfTheCopyGrowsByASixteenthAtMostBesideWhatAnAddedPatternNeeds)
{
    kt_test::needCounts();
    constexpr long numPatterns = 1024;
    const ktFeaturePattern added(std::vector<double>(64, 1.0), {});
    Data provider;
    for (long i = 0; i < numPatterns; ++i) {
        provider.addData(new ktFeaturePattern(added), 1);
    }
    kt_ClassifierKNN knn;
    knn.train(provider, Params(1));
    const kt_test::MemoryWatch watch;
    knn.trainIncremental(added, 1);
    // One more block of 64 patterns, a sixteenth of all, and the pattern; the lists of patterns and labels may double.
    constexpr long floats = numPatterns * 64 * 4;
    constexpr long lists = 2 * numPatterns * 8;
    EXPECT_LE(watch.liveBytes(), floats / 16 + floats / 16 + lists + 8192);
}

}  // namespace
