#include "metrics.h"
#include "support/allocations.h"
#include "support/archives.h"
#include "support/attention.h"
#include "support/bytes.h"
#include "support/failures.h"
#include "support/technique.h"
#include "support/training.h"

#include <clastool/nearest_neighbor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace {

using kt_test::expectThrows;
using kt_test::Labelled;
using kt_test::labelsOf;
using kt_test::pattern;
using kt_test::PatternHandle;
using kt_test::trainingData;
using kt_test::untouchedResult;

using Data = ktClassifierDataProviderMemory;
using Params = ktClassifierTrainParamsKNN;

constexpr const char* invalidMeasurements = "K-nearest neighbor classification does not support invalid measurements";
constexpr const char* noData = "No valid data was provided for training.";
constexpr const char* notAllValid = "Access to full feature vector requires that all features are valid.";
constexpr const char* otherTechnique = "The training parameters are for a different classification technique.";
constexpr const char* notTrainedToRun = "Classifier tool must be trained before running.";
constexpr const char* notAutomatic = "Classifier tool was not automatically trained.";
constexpr const char* unknownVersion = "Unknown version in an archive.";

/// The hooks of the classifier, open to a test.
struct OpenKNN : kt_ClassifierKNN {
    OpenKNN() = default;
    explicit OpenKNN(const kt_ClassifierKNN& other) : kt_ClassifierKNN(other) {}
    using kt_Classifier::storedParams;
    using kt_ClassifierKNN::checkRunnable_;
    using kt_ClassifierKNN::isTrained_;
    using kt_ClassifierKNN::retrain_;
    using kt_ClassifierKNN::run_;
    using kt_ClassifierKNN::serialize_;
    using kt_ClassifierKNN::train_;
    using kt_ClassifierKNN::trainIncremental_;
    using kt_ClassifierKNN::trainStart_;
    using kt_ClassifierKNN::untrain_;
};

/// Takes itself for trained whatever it holds.
struct AlwaysTrained : OpenKNN {
    bool isTrained_() const override { return true; }
};

/// A provider of the user's own, which notes what it is asked for.
class NotingProvider : public ktClassifierDataProvider {
public:
    struct Row {
        PatternHandle pattern;
        long label;
    };

    NotingProvider(kt_test::Script& script, std::vector<Row> rows) : script_(&script), rows_(std::move(rows)) {}

    std::string name() override { return noted("name"); }
    std::string description() override { return noted("description"); }
    long numMeasurements() const override { return 0; }
    long numPatterns() const override
    {
        script_->note("numPatterns");
        return static_cast<long>(rows_.size());
    }
    PatternHandle featurePattern(long index) override
    {
        script_->note("pattern " + std::to_string(index));
        return rows_[static_cast<std::size_t>(index)].pattern;
    }
    long categoryLabel(long index) const override
    {
        script_->note("label " + std::to_string(index));
        return rows_[static_cast<std::size_t>(index)].label;
    }

private:
    std::string noted(const std::string& call)
    {
        script_->note(call);
        return "the " + call;
    }

    kt_test::Script* script_;
    std::vector<Row> rows_;
};

/// On a line, so that distances are easy to see.
const std::vector<Labelled> line = {{{0}, 2}, {{1}, 2}, {{3}, 5}, {{10}, 7}, {{20}, 7}};

OpenKNN trained(const std::vector<Labelled>& rows, const Params& params)
{
    OpenKNN classifier;
    classifier.train(trainingData(rows), params);
    return classifier;
}

ktClassifierResult answer(const kt_Classifier& classifier, const std::vector<double>& measurements)
{
    ktClassifierResult result = untouchedResult();
    classifier.run(ktFeaturePattern(measurements, {}), result);
    return result;
}

/// Expects the error from a run, and the caller's result untouched.
template <class Error>
void expectRunThrows(const kt_Classifier& classifier, const ktFeaturePattern& query, const std::string& message,
                     long number)
{
    ktClassifierResult result = untouchedResult();
    expectThrows<Error>(message, number, [&] { classifier.run(query, result); });
    EXPECT_TRUE(result == untouchedResult());
}

/// The patterns that a classifier keeps, as its archive tells.
Data keptBy(const kt_ClassifierKNN& classifier)
{
    std::istringstream in(kt_test::store(classifier));
    ktArchive archive(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(archive);
    unsigned char version = 0;
    ktPtrHandle<Params> params;
    ktPtrHandle<Data> data;
    archive || version || version || params || data;
    return *data;
}

std::string withoutHeader(const std::string& bytes)
{
    return bytes.substr(kt_test::archiveHeader().size());
}

// Training

TEST(KnnTraining, NewClassifierIsUntrained)
{
    OpenKNN classifier;
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_TRUE(classifier.storedParams().isNull());
    expectRunThrows<ktClassifierDefs::NotTrained>(classifier, *pattern({0}), notTrainedToRun, 0x10004201);
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
        expectThrows<ktClassifierDefs::BadFeatures>(invalidMeasurements, 0x10004206,
                                                    [&] { classifier.train(provider, Params()); });
        EXPECT_EQ(script.calls.back(), "pattern 1") << "its label is not asked for";
    }
}

TEST(KnnTraining, BareClassifierThatRefusedTrainingHoldsAnEmptyStore)
{
    kt_test::Script script;
    const NotingProvider provider(script, {{pattern({1}), 3}, {pattern({2}, {0}), 4}});
    OpenKNN classifier = trained(line, Params(3));
    expectThrows<ktClassifierDefs::BadFeatures>(invalidMeasurements, 0x10004206,
                                                [&] { classifier.train(provider, Params()); });
    EXPECT_TRUE(classifier.isTrained());
    EXPECT_TRUE(classifier.storedParams().isNull());
    Data expected;
    expected.setName("the name");
    expected.setDescription("the description");
    EXPECT_TRUE(keptBy(classifier) == expected);
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({0}), noData, 0x10004207);
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, 0x10004204, [&] { classifier.trainParams(); });
}

TEST(KnnTraining, RefusesWhatAStoreRefuses)
{
    kt_test::Script script;
    const NotingProvider sizes(script, {{pattern({1}), 3}, {pattern({1, 2}), 3}});
    const NotingProvider labels(script, {{pattern({1}), -2}});
    const NotingProvider null(script, {{nullptr, 3}});
    kt_ClassifierKNN classifier;
    expectThrows<ktClassifierDefs::BadFeatures>("Feature patterns must all have the same number of measurements",
                                                0x10004206, [&] { classifier.train(sizes, Params()); });
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be >= 0 or unknown", 0x10004203,
                                             [&] { classifier.train(labels, Params()); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifier.train(null, Params()); });
}

TEST(KnnTraining, WithoutOneLabelledPatternSucceedsAndEachRunThrows)
{
    for (const std::vector<Labelled>& rows : {std::vector<Labelled>(), {{{1, 2}, -1}, {{3, 4}, -1}}}) {
        const OpenKNN classifier = trained(rows, Params());
        EXPECT_TRUE(classifier.isTrained());
        expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207, [&] { classifier.checkRunnable_(); });
        expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({1, 2}), noData, 0x10004207);
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
    expectThrows<ktClassifierDefs::BadParams>(otherTechnique, 0x10004200,
                                              [&] { classifier.train_(trainingData({}), foreign); });
    EXPECT_TRUE(keptBy(classifier) == trainingData(line)) << "the hook changed nothing";
    expectThrows<ktClassifierDefs::BadParams>(otherTechnique, 0x10004200,
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
                                               0x10004201, [&] { classifier.trainIncremental(*pattern({1}), 1); });
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
    expectThrows<ktClassifierDefs::BadParams>(otherTechnique, 0x10004200,
                                              [&] { classifier.retrain(Claiming(script, 1)); });
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.trainParams()).k(), 3);
    EXPECT_TRUE(answer(classifier, {0}) == before);
}

TEST(KnnRetraining, HookNeedsTheStoredParametersBeforeItLooksAtTheNewOnes)
{
    kt_test::Script script;
    OpenKNN classifier;
    classifier.train_(trainingData(line), Params(1));
    ASSERT_TRUE(classifier.storedParams().isNull());
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifier.retrain_(Params(3)); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifier.retrain_(kt_test::TechniqueParams(script, 1)); });
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
        "Feature pattern must have the same number of measurements as the rest of the data.", 0x10004206, [&] {
            classifier.trainIncremental(*pattern({1, 2}), 9);
        });
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be >= 0 or unknown", 0x10004203,
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
    expectRunThrows<ktClassifierDefs::BadFeatures>(classifier, *pattern({0}), notAllValid, 0x10004206);
}

TEST(KnnIncremental, PatternOfUnknownCategoryIsKeptAndRefusedWhenItVotes)
{
    OpenKNN classifier = trained(line, Params(1));
    classifier.trainIncremental(*pattern({5}), -1);
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2});
    expectRunThrows<ktClassifierDefs::BadLabel>(classifier, *pattern({5}), "Category labels must be >= 0", 0x10004203);
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

// Hooks without kept patterns

TEST(KnnHooks, NeedKeptPatterns)
{
    AlwaysTrained classifier;
    ktClassifierResult result = untouchedResult();
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifier.checkRunnable_(); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifier.run_(*pattern({1}), result); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifier.trainIncremental_(*pattern({1}), 1); });
    EXPECT_TRUE(result == untouchedResult());
}

// Runs

TEST(KnnRun, CountsTheVotesOfTheNearest)
{
    struct Row {
        const char* label;
        long k;
        std::vector<Labelled> rows;
        std::vector<ktClassifierCategoryResult> expected;
    };
    const double third = 1.0 / 3.0;
    const double twoThirds = 2.0 / 3.0;
    const Row rows[] = {
        {"labels 2, 2, 5", 3, line, {{2, twoThirds, twoThirds, third}, {5, third, third, twoThirds}}},
        {"k above the number of patterns",
         5,
         {{{0}, 4}, {{9}, 3}, {{1}, 4}},
         {{4, twoThirds, twoThirds, third}, {3, third, third, twoThirds}}},
        {"one neighbour", 1, line, {{2, 1.0, 1.0, 0.0}}},
        {"equal distances, k = 1: the first stored", 1, {{{1}, 8}, {{-1}, 3}, {{1}, 4}}, {{8, 1.0, 1.0, 0.0}}},
        {"equal votes: ascending labels", 2, {{{0}, 6}, {{1}, 5}}, {{5, 0.5, 0.5, 0.5}, {6, 0.5, 0.5, 0.5}}},
        {"labels that no neighbour has are left out",
         4,
         line,
         {{2, 0.5, 0.5, 0.5}, {5, 0.25, 0.25, 0.75}, {7, 0.25, 0.25, 0.75}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const ktClassifierResult result = answer(trained(row.rows, Params(row.k)), {0});
        ASSERT_EQ(result.categoryResults().size(), row.expected.size());
        for (std::size_t i = 0; i < row.expected.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(result.categoryResults()[i].categoryLabel(), row.expected[i].categoryLabel());
            EXPECT_EQ(result.categoryResults()[i].matchScore(), row.expected[i].matchScore());
            EXPECT_DOUBLE_EQ(result.categoryResults()[i].classScore(), row.expected[i].classScore());
            EXPECT_DOUBLE_EQ(result.categoryResults()[i].expectedCost(), row.expected[i].expectedCost());
        }
        EXPECT_EQ(result.matchScoreFactorLog(), 0.0);
    }
}

TEST(KnnRun, CostsMoveTheDecision)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(5, 2, 10.0);
    const ktClassifierResult result = answer(trained(line, Params(3, ktPatternDistanceMetricNorm(), costs)), {0});
    EXPECT_EQ(labelsOf(result), (std::vector<long>{5, 2}));
    EXPECT_DOUBLE_EQ(result.categoryResults()[0].expectedCost(), 2.0 / 3.0);
    EXPECT_DOUBLE_EQ(result.categoryResults()[1].expectedCost(), 10.0 / 3.0);
    EXPECT_EQ(result.categoryResults()[1].matchScore(), 2.0 / 3.0) << "costs leave the votes alone";
}

TEST(KnnRun, ReplacesTheWholeResultOfTheCaller)
{
    const OpenKNN classifier = trained(line, Params(3));
    ktClassifierResult fresh;
    classifier.run(*pattern({0}), fresh);
    EXPECT_TRUE(answer(classifier, {0}) == fresh);
    EXPECT_EQ(labelsOf(fresh), (std::vector<long>{2, 5}));
}

TEST(KnnRun, RefusesAnInvalidMeasurementAndAnotherSizeWithOneText)
{
    const OpenKNN classifier = trained({{{1, 2, 3, 4, 5}, 1}}, Params(1));
    for (const PatternHandle& query :
         {pattern({1, 2, 3, 4, 5}, {4}), pattern({1, 2, 3, 4}), pattern({1, 2, 3, 4, 5, 6}), pattern({})}) {
        SCOPED_TRACE(query->numMeasurements());
        expectRunThrows<ktClassifierDefs::BadFeatures>(classifier, *query, invalidMeasurements, 0x10004206);
    }
}

TEST(KnnRun, ChecksTheKeptPatternsBeforeTheQuery)
{
    const OpenKNN classifier = trained({}, Params(1));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({1, 2}, {0}), noData, 0x10004207);
}

TEST(KnnRun, PatternsWithoutMeasurementsAreAllAtDistanceZero)
{
    const OpenKNN classifier = trained({{{}, 3}, {{}, 4}}, Params(1));
    EXPECT_EQ(labelsOf(answer(classifier, {})), std::vector<long>{3});
}

TEST(KnnRun, AsksTheMetricOncePerKeptPatternInOrderWithTheQueryFirst)
{
    std::vector<std::pair<double, double>> asked;
    const kt_test::DistanceBy metric([&asked](const ktFeaturePattern& a, const ktFeaturePattern& b) {
        asked.emplace_back(a.featureMeasurement(0, true), b.featureMeasurement(0, true));
        return 1.0;
    });
    answer(trained(line, Params(2, metric, ktClassifierCosts())), {-8});
    const std::vector<std::pair<double, double>> expected = {{-8, 0}, {-8, 1}, {-8, 3}, {-8, 10}, {-8, 20}};
    EXPECT_EQ(asked, expected);
}

TEST(KnnRun, WhatTheMetricThrowsPassesThrough)
{
    long asked = 0;
    const kt_test::DistanceBy metric([&asked](const ktFeaturePattern&, const ktFeaturePattern&) {
        if (++asked == 3) {
            throw std::runtime_error("too far");
        }
        return 1.0;
    });
    const OpenKNN classifier = trained(line, Params(1, metric, ktClassifierCosts()));
    ktClassifierResult result = untouchedResult();
    EXPECT_THROW(classifier.run(*pattern({0}), result), std::runtime_error);
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(result == untouchedResult());
}

TEST(KnnRun, NeedsAMetric)
{
    const OpenKNN classifier = trained(line, Params(1, kt_test::withoutClone(), ktClassifierCosts()));
    expectRunThrows<ktBadPointer>(classifier, *pattern({0}), "", 0x10004007);
}

TEST(KnnRun, MoreCategoriesThanFitOnTheStackAreAnsweredToo)
{
    std::vector<Labelled> rows;
    for (long label = 99; label >= 0; --label) {
        rows.push_back({{static_cast<double>(label)}, label});
    }
    const ktClassifierResult result = answer(trained(rows, Params(100)), {0});
    ASSERT_EQ(result.categoryResults().size(), 100u);
    for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
        EXPECT_EQ(entry.matchScore(), 0.01);
        EXPECT_NEAR(entry.expectedCost(), 0.99, 1e-12);
    }
}

// The attention check

TEST(KnnAttention, IsPolledOncePerKeptPatternAndOncePerCategoryInTheResult)
{
    const OpenKNN classifier = trained(line, Params(4));
    const kt_test::Attention attention;
    EXPECT_EQ(answer(classifier, {0}).categoryResults().size(), 3u);
    EXPECT_EQ(attention.polls(), 5 + 3);
}

TEST(KnnAttention, IsNotPolledByTraining)
{
    const kt_test::Attention attention(1, kt_test::abortStatus);
    OpenKNN classifier = trained(line, Params(4));
    classifier.retrain(Params(3));
    classifier.trainIncremental(*pattern({1}), 1);
    classifier.checkRunnable_();
    EXPECT_EQ(attention.polls(), 0);
}

TEST(KnnAttention, AbortsARunAtEachPoll)
{
    const OpenKNN classifier = trained(line, Params(4));
    const ktClassifierResult expected = answer(classifier, {0});
    for (long n = 1; n <= 8; ++n) {
        SCOPED_TRACE(n);
        {
            const kt_test::Attention attention(n, kt_test::abortStatus);
            expectRunThrows<ktFailure>(classifier, *pattern({0}), kt_test::abortMessage, 0x10004008);
            EXPECT_EQ(attention.polls(), n);
        }
        EXPECT_TRUE(answer(classifier, {0}) == expected);
    }
    const kt_test::Attention attention(9, kt_test::abortStatus);
    EXPECT_TRUE(answer(classifier, {0}) == expected) << "there is no ninth poll";
}

TEST(KnnAttention, IsPolledBeforeEachDistance)
{
    long asked = 0;
    const kt_test::DistanceBy metric([&asked](const ktFeaturePattern&, const ktFeaturePattern&) {
        ++asked;
        return 1.0;
    });
    const OpenKNN classifier = trained(line, Params(1, metric, ktClassifierCosts()));
    const kt_test::Attention attention(3, kt_test::abortStatus);
    expectRunThrows<ktFailure>(classifier, *pattern({0}), kt_test::abortMessage, 0x10004008);
    EXPECT_EQ(asked, 2);
}

TEST(KnnAttention, IsPolledEvenIfNoNeighbourIsWanted)
{
    // Another way to a k below 1 than a damaged archive does not exist; see KnnLoaded.
    OpenKNN classifier = trained(line, Params(1));
    std::string bytes = kt_test::store(Params(0x11223344));
    bytes.replace(bytes.find(kt_test::littleEndian32(0x11223344)), 4, kt_test::littleEndian32(0));
    classifier.retrain(kt_test::load<Params>(bytes));
    const kt_test::Attention attention(5, kt_test::abortStatus);
    expectRunThrows<ktFailure>(classifier, *pattern({0}), kt_test::abortMessage, 0x10004008);
}

TEST(KnnAttention, StatusOfAKnownGroupBecomesThatGroupsError)
{
    const OpenKNN classifier = trained(line, Params(1));
    const kt_test::Attention attention(2, static_cast<long>(0x80000B61UL));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(
        classifier, *pattern({0}), "No valid data has been used to train the distribution", 0x10004207);
}

TEST(KnnAttention, StatusThatIsNoFailureDoesNotAbort)
{
    const OpenKNN classifier = trained(line, Params(1));
    const kt_test::Attention attention(2, 0x0C61);
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2});
    EXPECT_EQ(attention.polls(), 6);
}

// Copies and comparison

TEST(KnnCopy, SharesThePatternsAndHasParametersOfItsOwn)
{
    OpenKNN classifier = trained(line, Params(1));
    OpenKNN copy(classifier);
    EXPECT_TRUE(copy.storedParams() == classifier.storedParams());
    copy.retrain(Params(5));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2}) << "k is still 1 here";
    EXPECT_EQ(answer(copy, {0}).categoryResults().size(), 3u);
    copy.untrain();
    EXPECT_TRUE(classifier.isTrained());
}

TEST(KnnCopy, AssignedToItselfStaysAsItIs)
{
    OpenKNN classifier = trained(line, Params(3));
    const kt_ClassifierKNN& same = classifier;
    const ktClassifierResult before = answer(classifier, {0});
    static_cast<kt_ClassifierKNN&>(classifier) = same;
    EXPECT_TRUE(answer(classifier, {0}) == before);
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.trainParams()).k(), 3);
}

TEST(KnnCopy, CloneIsOfTheSameClassAndHeldByItsHandleAlone)
{
    const ktPtrHandle<kt_Classifier> clone = trained(line, Params(3)).clone();
    EXPECT_EQ(clone->refCount(), 1);
    const kt_Classifier& classifier = *clone;
    EXPECT_TRUE(typeid(classifier) == typeid(kt_ClassifierKNN));
    EXPECT_TRUE(clone->isEquivalent(trained(line, Params(3))));
}

TEST(KnnComparison, LooksAtTrainingParametersAndPatterns)
{
    struct Row {
        const char* label;
        OpenKNN a;
        OpenKNN b;
        bool equal;
    };
    Data named = trainingData(line);
    named.setName("named");
    OpenKNN trainedNamed;
    trainedNamed.train(named, Params(3));
    OpenKNN loaded;
    kt_test::loadInto(loaded, kt_test::store(trained(line, Params(3))));
    OpenKNN started;
    started.trainStart(Params(3));
    const Row rows[] = {
        {"both new", OpenKNN(), OpenKNN(), true},
        {"one trained", trained(line, Params(3)), OpenKNN(), false},
        {"trained alike", trained(line, Params(3)), trained(line, Params(3)), true},
        {"another k", trained(line, Params(3)), trained(line, Params(4)), false},
        {"other patterns", trained(line, Params(3)), trained({{{0}, 2}}, Params(3)), false},
        {"another name of the training set", trained(line, Params(3)), trainedNamed, false},
        {"the parameters in use are not compared", trained(line, Params(3)), loaded, true},
        {"untrained, one with parameters", started, OpenKNN(), false},
        {"untrained with equal parameters", started, started, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.b == row.a, row.equal);
        EXPECT_EQ(row.a != row.b, !row.equal);
        EXPECT_EQ(row.a.isEquivalent(row.b), row.equal);
    }
}

TEST(KnnComparison, ClassifierOfAnotherClassIsNotEquivalent)
{
    kt_test::Script script;
    EXPECT_FALSE(kt_ClassifierKNN().isEquivalent(kt_test::Technique(script)));
}

TEST(KnnComparison, NeedsThePatternsOfBothOnceTrained)
{
    const AlwaysTrained without;
    OpenKNN with;
    with.train_(trainingData(line), Params(1));
    expectThrows<ktBadPointer>("", 0x10004007, [&] { static_cast<void>(with == without); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { static_cast<void>(without == with); });
}

// Archives

TEST(KnnArchive, IsItsVersionItsBaseAndThePatterns)
{
    const OpenKNN classifier = trained(line, Params(3));
    std::istringstream in(kt_test::store(classifier));
    ktArchive archive(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(archive);
    unsigned char version = 1;
    unsigned char baseVersion = 1;
    ktPtrHandle<Params> params;
    ktPtrHandle<Data> data;
    archive || version || baseVersion || params || data;
    EXPECT_EQ(version, 0);
    EXPECT_EQ(baseVersion, 0);
    ASSERT_FALSE(params.isNull());
    EXPECT_TRUE(*params == Params(3));
    ASSERT_FALSE(data.isNull());
    EXPECT_TRUE(*data == trainingData(line));
    EXPECT_EQ(in.rdbuf()->in_avail(), 0);
}

TEST(KnnArchive, OfAnUntrainedClassifierHoldsTwoNullPointers)
{
    EXPECT_EQ(kt_test::toHex(withoutHeader(kt_test::store(kt_ClassifierKNN()))), "00 00 00 00");
}

TEST(KnnArchive, SharedPatternsAreRestoredShared)
{
    ktPtrHandle<kt_ClassifierKNN> first = new kt_ClassifierKNN(trained(line, Params(1)));
    ktPtrHandle<kt_ClassifierKNN> second = new kt_ClassifierKNN(*first);
    std::stringstream stream;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        archive || first || second;
    }
    ktArchive archive(static_cast<std::istream&>(stream));
    {
        const ktArchive::Pass pass(archive);
        archive || first || second;
    }
    first->trainIncremental(*pattern({5}), 9);
    EXPECT_EQ(labelsOf(answer(*second, {5})), std::vector<long>{9});
}

TEST(KnnArchive, IsWrittenOnceAPass)
{
    OpenKNN classifier = trained(line, Params(3));
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(archive);
        archive || classifier || classifier;
    }
    EXPECT_EQ(out.str(), kt_test::store(classifier));
}

TEST(KnnArchive, RefusesAnyOtherVersionOfEitherLayerBeforeAnythingChanges)
{
    const std::string stored = kt_test::store(kt_ClassifierKNN());
    for (const std::size_t layer : {0u, 1u}) {
        SCOPED_TRACE(layer);
        OpenKNN classifier = trained(line, Params(3));
        const std::string bytes = kt_test::withBytesAt(stored, kt_test::archiveHeader().size() + layer, "\x01");
        expectThrows<ktArchive::UnknownVersion>(unknownVersion, 0x10004001,
                                                [&] { kt_test::loadInto(classifier, bytes); });
        EXPECT_TRUE(classifier == trained(line, Params(3)));
    }
}

TEST(KnnArchive, RefusesAnotherVersionHandedToSerializeAndLeavesTheStreamAlone)
{
    OpenKNN classifier = trained(line, Params(3));
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    expectThrows<ktArchive::UnknownVersion>(unknownVersion, 0x10004001, [&] { classifier.serialize_(archive, 1); });
    EXPECT_EQ(out.str(), "");
}

// Loaded classifiers

/// The archive of a classifier put together from its two parts.
template <class StoredParams, class StoredData>
std::string crafted(ktPtrHandle<StoredParams> params, ktPtrHandle<StoredData> data)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    const ktArchive::Pass pass(archive);
    unsigned char version = 0;
    archive || version || version || params || data;
    return out.str();
}

ktPtrHandle<Data> newData(const std::vector<Labelled>& rows)
{
    return new Data(trainingData(rows));
}

/// A store as only a damaged archive makes it: patterns and labels that need not go together.
ktPtrHandle<Data> damagedData(std::vector<PatternHandle> patterns, std::vector<long> labels)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(archive);
        unsigned char version = 0;
        std::string text;
        archive || version || version || text || text || patterns || labels;
    }
    ktPtrHandle<Data> data = new Data;
    kt_test::loadInto(*data, out.str());
    return data;
}

ktPtrHandle<Params> paramsWithK(unsigned long k)
{
    std::string bytes = kt_test::store(Params(0x11223344));
    bytes.replace(bytes.find(kt_test::littleEndian32(0x11223344)), 4, kt_test::littleEndian32(k));
    return new Params(kt_test::load<Params>(bytes));
}

// Kept on purpose: loading gives the stored parameters back but does not put them to use.
TEST(KnnLoaded, RunsWithTheParametersOfTheObjectLoadedIntoUntilItIsRetrained)
{
    const OpenKNN stored = trained(line, Params(3, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(5.0)));
    const std::string bytes = kt_test::store(stored);
    kt_ClassifierKNN fresh;
    kt_test::loadInto(fresh, bytes);
    EXPECT_TRUE(fresh == stored);
    EXPECT_TRUE(answer(fresh, {0}) == answer(trained(line, Params()), {0})) << "k = 1, unit costs";

    OpenKNN used = trained({{{1, 2}, 3}}, Params(4));
    kt_test::loadInto(used, bytes);
    EXPECT_TRUE(answer(used, {0}) == answer(trained(line, Params(4)), {0})) << "k = 4 as before";

    fresh.retrain(*fresh.trainParams());
    used.retrain(*used.trainParams());
    EXPECT_TRUE(answer(fresh, {0}) == answer(stored, {0}));
    EXPECT_TRUE(answer(used, {0}) == answer(stored, {0}));
}

TEST(KnnLoaded, WithoutPatternsIsUntrained)
{
    OpenKNN classifier = trained(line, Params(3));
    kt_test::loadInto(classifier, crafted(ktPtrHandle<Params>(new Params(7)), ktPtrHandle<Data>()));
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.storedParams()).k(), 7);
}

TEST(KnnLoaded, ObjectsOfAnotherClassBecomeNull)
{
    const ktPtrHandle<ktFeaturePattern> foreign = new ktFeaturePattern({1.0}, {});
    OpenKNN classifier = trained(line, Params(3));
    kt_test::loadInto(classifier, crafted(foreign, newData({{{1}, 6}})));
    EXPECT_TRUE(classifier.storedParams().isNull());
    EXPECT_TRUE(classifier.isTrained());
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, 0x10004204, [&] { classifier.trainParams(); });
    kt_test::loadInto(classifier, crafted(ktPtrHandle<Params>(new Params(7)), foreign));
    EXPECT_FALSE(classifier.isTrained());
}

TEST(KnnLoaded, KBelowOneFindsNoNeighbour)
{
    for (const unsigned long k : {0UL, 0xFFFFFFFFUL, 0x80000000UL}) {
        SCOPED_TRACE(k);
        kt_ClassifierKNN classifier;
        kt_test::loadInto(classifier, crafted(paramsWithK(k), newData(line)));
        EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2}) << "k = 1 until retrained";
        classifier.retrain(*classifier.trainParams());
        expectRunThrows<ktClassifierDefs::BadParams>(
            classifier, *pattern({0}), "At least one of the category frequencies must be > 0.", 0x10004200);
    }
}

TEST(KnnLoaded, HugeKTakesAllPatternsAndNoMoreMemoryThanTheyNeed)
{
    kt_ClassifierKNN classifier;
    kt_test::loadInto(classifier, crafted(paramsWithK(0x7FFFFFFFUL), newData(line)));
    classifier.retrain(*classifier.trainParams());
    const kt_test::MemoryWatch watch;
    EXPECT_TRUE(answer(classifier, {0}) == answer(trained(line, Params(5)), {0}));
    EXPECT_LT(watch.peakBytes(), 100000u);
}

/// Loads them and expects the memory that any input is allowed.
std::vector<ktPtrHandle<kt_ClassifierKNN>> loadWithinBound(const std::string& bytes)
{
    std::vector<ktPtrHandle<kt_ClassifierKNN>> loaded;
    const kt_test::MemoryWatch watch;
    kt_test::loadInto(loaded, bytes);
    EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
    return loaded;
}

TEST(KnnLoaded, RetrainingHookTakesParametersWithoutPatterns)
{
    OpenKNN classifier;
    kt_test::loadInto(static_cast<kt_ClassifierKNN&>(classifier),
                      crafted(ktPtrHandle<Params>(new Params(1)), ktPtrHandle<Data>()));
    ASSERT_FALSE(classifier.isTrained());
    classifier.retrain_(Params(3));
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.storedParams()).k(), 1) << "the caller stores the new ones";
}

TEST(KnnLoaded, PatternsReferredToManyTimesTakeTheMemoryOfOne)
{
    const PatternHandle wide = pattern(std::vector<double>(1000, 0.5));
    Data often;
    for (int i = 0; i < 2000; ++i) {
        often.addData(wide, i % 2);
    }
    const ktPtrHandle<kt_ClassifierKNN> trained(new kt_ClassifierKNN);
    trained->train(often, Params(3));
    const auto loaded = loadWithinBound(kt_test::store(std::vector<ktPtrHandle<kt_ClassifierKNN>>{trained}));
    ktClassifierResult expected;
    trained->run(*wide, expected);
    for (const bool retrained : {false, true}) {
        if (retrained) {
            loaded[0]->retrain(Params(3));
        }
        ktClassifierResult result;
        loaded[0]->run(*wide, result);
        EXPECT_EQ(labelsOf(result).front(), labelsOf(expected).front());
    }
    EXPECT_TRUE(*loaded[0] == *trained);
}

TEST(KnnLoaded, StoreOfManyClassifiersTakesTheMemoryOfOne)
{
    const ktPtrHandle<kt_ClassifierKNN> trained(new kt_ClassifierKNN);
    trained->train(trainingData({{std::vector<double>(1000, 0.5), 1}, {std::vector<double>(1000, 1.5), 2}}), Params());
    const auto loaded = loadWithinBound(kt_test::store(std::vector<ktPtrHandle<kt_Classifier>>{
        trained, trained->clone(), trained->clone(), trained->clone(), trained->clone(), trained->clone()}));
    for (const auto& each : loaded) {
        ktClassifierResult result;
        each->run(*pattern(std::vector<double>(1000, 1.25)), result);
        EXPECT_EQ(labelsOf(result).front(), 2);
    }
}

TEST(KnnLoaded, DamagedPatternsAreRefusedWhereARunMeetsThem)
{
    const PatternHandle zero = pattern({0});
    kt_ClassifierKNN classifier;
    const auto load = [&classifier](const ktPtrHandle<Data>& data) {
        kt_test::loadInto(classifier, crafted(ktPtrHandle<Params>(new Params(1)), data));
    };
    load(damagedData({zero, zero}, {3}));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{3}) << "the pattern without a label does not vote";
    load(damagedData({pattern({5}), zero}, {3}));
    expectRunThrows<ktClassifierDefs::BadIndex>(
        classifier, *zero, "Category label index must be >=0 and < number of patterns.", 0x10004202);
    load(damagedData({zero, nullptr}, {3, 4}));
    expectRunThrows<ktBadPointer>(classifier, *zero, "", 0x10004007);
    load(damagedData({nullptr, zero}, {3, 4}));
    expectRunThrows<ktBadPointer>(classifier, *zero, "", 0x10004007);
    load(damagedData({zero, pattern({0, 0})}, {3, 4}));
    expectRunThrows<ktClassifierDefs::BadFeatures>(
        classifier, *zero,
        "Pattern distance function requires the number of measurementsin the two patterns to be equal", 0x10004206);
    load(damagedData({zero}, {-7}));
    expectRunThrows<ktClassifierDefs::BadLabel>(classifier, *zero, "Category labels must be >= 0", 0x10004203);
    load(damagedData({}, {3}));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *zero, noData, 0x10004207);
}

TEST(KnnLoaded, MetricOfAnotherClassIsMissedByTheRun)
{
    ktPtrHandle<Params> params = new Params(1, kt_test::withoutClone(), ktClassifierCosts());
    kt_ClassifierKNN classifier;
    kt_test::loadInto(classifier, crafted(params, newData(line)));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2});
    classifier.retrain(*classifier.trainParams());
    expectRunThrows<ktBadPointer>(classifier, *pattern({0}), "", 0x10004007);
}

// Memory that runs out

TEST(KnnMemory, TrainingThatRunsOutOfItLeavesNoParameters)
{
    const Data data = trainingData(line);
    const Params params(3, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(2.0));
    const long allocations = kt_test::failEachAllocation(
        [] { return OpenKNN(); }, [&](OpenKNN& classifier) { classifier.train(data, params); },
        [](const OpenKNN& classifier) { EXPECT_TRUE(classifier.storedParams().isNull()); });
    EXPECT_GT(allocations, 5);
}

TEST(KnnMemory, RetrainingAndIncrementalTrainingThatRunOutOfItChangeNothing)
{
    ktClassifierCosts costs(2.0);
    costs.misclassificationCostOverride(2, 5, 9.0);
    const Params params(5, ktPatternDistanceMetricNorm(1.0), costs);
    const auto prepare = [] { return trained(line, Params(3)); };
    const auto unchanged = [&](const OpenKNN& classifier) {
        EXPECT_TRUE(classifier == prepare());
        EXPECT_TRUE(answer(classifier, {0}) == answer(prepare(), {0}));
    };
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [&](OpenKNN& classifier) { classifier.retrain(params); }, unchanged),
              3);
    const PatternHandle added = pattern({0});
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [&](OpenKNN& classifier) { classifier.trainIncremental(*added, 9); }, unchanged),
              2);
}

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

TEST(KnnMemory, RunThatRunsOutOfItLeavesTheResult)
{
    const OpenKNN classifier = trained(line, Params(4));
    const PatternHandle query = pattern({0});
    const long allocations = kt_test::failEachAllocation(
        [] { return untouchedResult(); }, [&](ktClassifierResult& result) { classifier.run(*query, result); },
        [](const ktClassifierResult& result) { EXPECT_TRUE(result == untouchedResult()); });
    EXPECT_GT(allocations, 0);
}

struct AllocationRow {
    const char* what;
    long labels;
    long k;
    long measurements;
    long allocations;
};

TEST(KnnMemory, RunTakesNoneUpToDocumentedSizesOnceTheResultHasRoom)
{
    const std::vector<AllocationRow> rows = {{"one neighbour", 3, 1, 4, 0},    {"32 categories", 32, 32, 4, 0},
                                             {"33 categories", 33, 33, 4, 1},  {"256 categories", 256, 256, 4, 1},
                                             {"256 neighbours", 5, 256, 4, 0}, {"256 measurements", 5, 9, 256, 0}};
    for (const AllocationRow& row : rows) {
        Data data;
        for (long i = 0; i < 1000; ++i) {
            std::vector<double> measurements(static_cast<std::size_t>(row.measurements), 0.0);
            measurements[0] = static_cast<double>(i);
            data.addData(pattern(measurements), i % row.labels);
        }
        OpenKNN classifier;
        classifier.train(data, Params(row.k));
        const PatternHandle query = pattern(std::vector<double>(static_cast<std::size_t>(row.measurements), 500.0));
        ktClassifierResult result;
        classifier.run(*query, result);
        ASSERT_EQ(static_cast<long>(result.categoryResults().size()), std::min(row.labels, row.k)) << row.what;
        EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(*query, result); }), row.allocations) << row.what;
    }
}

}  // namespace
