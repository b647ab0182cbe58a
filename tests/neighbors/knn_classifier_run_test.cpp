#include "knn_classifier_kit.h"
#include "metrics.h"

namespace {

using namespace kt_test;
using namespace neighbors;

// Hooks without kept patterns

TEST(KnnHooks, NeedKeptPatterns)
{
    AlwaysTrained classifier;
    ktClassifierResult result = untouchedResult();
    expectThrows<ktBadPointer>("", [&] { classifier.checkRunnable_(); });
    expectThrows<ktBadPointer>("", [&] { classifier.run_(*pattern({1}), result); });
    expectThrows<ktBadPointer>("", [&] { classifier.trainIncremental_(*pattern({1}), 1); });
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
        expectRunThrows<ktClassifierDefs::BadFeatures>(classifier, *query, invalidMeasurements);
    }
}

TEST(KnnRun, ChecksTheKeptPatternsBeforeTheQuery)
{
    const OpenKNN classifier = trained({}, Params(1));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({1, 2}, {0}), noData);
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
    expectRunThrows<ktBadPointer>(classifier, *pattern({0}), "");
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

// Sorting them must not run away behind the end when most of them are the greatest.
TEST(KnnRun, ManyNeighboursOfOneCategoryBesideManyOthersAreCounted)
{
    const long numOthers = 40;
    const long numEqual = 160;
    const double total = numOthers + numEqual;
    std::vector<Labelled> rows;
    for (long i = 0; i < numOthers; ++i) {
        rows.push_back({{static_cast<double>(i)}, i});
    }
    rows.insert(rows.end(), numEqual, {{50.0}, 99});
    const ktClassifierResult result = answer(trained(rows, Params(numOthers + numEqual)), {50.0});
    ASSERT_EQ(result.categoryResults().size(), numOthers + 1u);
    EXPECT_EQ(result.categoryResults().front().categoryLabel(), 99);
    EXPECT_EQ(result.categoryResults().front().matchScore(), numEqual / total);
    EXPECT_EQ(result.categoryResults().back().matchScore(), 1 / total);
}

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
            expectRunThrows<ktFailure>(classifier, *pattern({0}), kt_test::abortMessage);
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
    expectRunThrows<ktFailure>(classifier, *pattern({0}), kt_test::abortMessage);
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
    expectRunThrows<ktFailure>(classifier, *pattern({0}), kt_test::abortMessage);
}

TEST(KnnAttention, StatusOfAKnownGroupBecomesThatGroupsError)
{
    const OpenKNN classifier = trained(line, Params(1));
    const kt_test::Attention attention(2, static_cast<long>(0x80000B61UL));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *pattern({0}),
                                                             "No valid data has been used to train the distribution");
}

TEST(KnnAttention, StatusThatIsNoFailureDoesNotAbort)
{
    const OpenKNN classifier = trained(line, Params(1));
    const kt_test::Attention attention(2, 0x0C61);
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2});
    EXPECT_EQ(attention.polls(), 6);
}

// Memory

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
                                             {"33 categories", 33, 33, 4, 3},  {"256 categories", 256, 256, 4, 3},
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
