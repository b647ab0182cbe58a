// Patterns that belong to no category.

#include "kit_kit.h"

namespace {

using namespace kt_test;
using ktKit::Rejection;

TEST(KitRejection, LimitsAreQuantilesOfTheTrainingData)
{
    const Sample sample(0, 90);
    const ktClassifierTool tool = trainedOn(sample, kt_test::bayesParams());
    const ktFeaturePattern whole({1, 2, 3}, {});
    for (const double share : {0.0, 0.1, 0.5, 0.99}) {
        const Rejection rejection(tool, dataOf(sample), share);
        for (const long label : {0L, 1L, 2L}) {
            std::vector<double> sorted;
            for (std::size_t i = 0; i < sample.labels.size(); ++i) {
                if (sample.labels[i] == label) {
                    sorted.push_back(logLikelihood(tool, *sample.patterns[i], label));
                }
            }
            std::sort(sorted.begin(), sorted.end());
            const double expected = sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size()))];
            EXPECT_NEAR(rejection.limit(whole, label), expected, 1e-9);
            EXPECT_NEAR(rejection.logLikelihood(whole, label), logLikelihood(tool, whole, label), 1e-9);
        }
    }
}

TEST(KitRejection, RejectsWhatFitsNowhere)
{
    const Sample sample = twoClouds();
    const Rejection rejection(trainedOn(sample, Bayes()), dataOf(sample), 0.0);
    for (const auto& pattern : sample.patterns) {
        EXPECT_FALSE(rejection.rejects(*pattern));
    }
    for (const std::vector<double>& stranger : {std::vector<double>{0, 100}, {50, 50}, {-60, -60}, {1e300, 0}}) {
        EXPECT_TRUE(rejection.rejects(*ktKit::pattern(stranger)));
    }
}

// A likelihood of one measurement is far larger than that of two: compared with whole patterns, no stranger would be found.
TEST(KitRejection, ComparesLikeWithLike)
{
    const Sample sample = twoClouds();
    const Rejection rejection(trainedOn(sample, Bayes()), dataOf(sample), 0.0);
    EXPECT_FALSE(rejection.rejects(*ktKit::pattern({3.0, NaN})));
    EXPECT_FALSE(rejection.rejects(*ktKit::pattern({NaN, 98.0})));
    EXPECT_TRUE(rejection.rejects(*ktKit::pattern({30.0, NaN})));
    EXPECT_TRUE(rejection.rejects(*ktKit::pattern({NaN, -30.0})));
    EXPECT_FALSE(rejection.rejects(*ktKit::pattern({NaN, NaN}))) << "nothing was measured, so nothing is strange";
    EXPECT_FALSE(rejection.rejects(*ktKit::pattern({infinity, 2.0})));
    // A value that is not finite is missing, whoever calls it valid.
    EXPECT_EQ(rejection.limit(ktFeaturePattern({NaN, 98.0}, {}), 9), rejection.limit(*ktKit::pattern({NaN, 98.0}), 9));
    // The same limits as from data of that measurement alone.
    Sample first(0, 0);
    for (std::size_t i = 0; i < sample.labels.size(); ++i) {
        first.patterns.push_back(ktKit::pattern({sample.patterns[i]->featureMeasurement(0, true)}));
        first.labels.push_back(sample.labels[i]);
    }
    const Rejection ofFirst(trainedOn(first, Bayes()), dataOf(first), 0.0);
    EXPECT_EQ(rejection.limit(*ktKit::pattern({3.0, NaN}), 4), ofFirst.limit(*ktKit::pattern({3.0}), 4));
}

TEST(KitRejection, LeavesOutTrainingPatternsThatLackWhatIsThere)
{
    Sample sample = twoClouds();
    const ktClassifierTool tool = trainedOn(sample, Bayes());
    // All patterns of label 4 lack the second measurement.
    for (std::size_t i = 0; i < sample.labels.size(); i += 2) {
        sample.patterns[i] = ktKit::pattern({sample.patterns[i]->featureMeasurement(0, true), NaN});
    }
    const Rejection rejection(tool, dataOf(sample), 0.0);
    EXPECT_EQ(rejection.limit(*ktKit::pattern({1.0, 1.0}), 4), -infinity);
    EXPECT_FALSE(rejection.rejects(*ktKit::pattern({50.0, 50.0})));
    EXPECT_GT(rejection.limit(*ktKit::pattern({1.0, NaN}), 4), -infinity);
    EXPECT_TRUE(rejection.rejects(*ktKit::pattern({50.0, NaN})));
}

TEST(KitRejection, AnyNumberOfSetsOfGapsIsServed)
{
    Sample sample(0, 0);
    for (long i = 0; i < 24; ++i) {
        std::vector<double> values;
        for (long j = 0; j < 11; ++j) {
            values.push_back(static_cast<double>((i * (j + 3) + j) % 17));
        }
        sample.patterns.push_back(ktKit::pattern(values));
        sample.labels.push_back(0);
    }
    const Rejection rejection(trainedOn(sample, Bayes()), dataOf(sample), 0.0);
    // 2048 sets, more than are kept.
    for (unsigned gaps = 0; gaps < 2048; ++gaps) {
        std::vector<double> values = sample.patterns[gaps % 24]->featureMeasurements(true);
        for (unsigned j = 0; j < 11; ++j) {
            values[j] = (gaps >> j & 1) != 0 ? NaN : values[j];
        }
        ASSERT_FALSE(rejection.rejects(*ktKit::pattern(values))) << gaps;
    }
}

// Once per category; for limits that are computed also once per training pattern of each.
TEST(KitRejection, PollsForNewGapsAloneMore)
{
    const Rejection rejection(trainedOn(twoClouds(), Bayes()), dataOf(twoClouds()), 0.0);
    const auto polls = [&](const std::vector<double>& values) {
        const kt_test::Attention attention;
        rejection.rejects(*ktKit::pattern(values));
        return attention.polls();
    };
    EXPECT_EQ(polls({50.0, NaN}), 42);
    EXPECT_EQ(polls({NaN, 50.0}), 42);
    EXPECT_EQ(polls({51.0, NaN}), 2);
    EXPECT_EQ(polls({NaN, 51.0}), 2);
}

TEST(KitRejection, CategoriesThatTheToolDoesNotKnowTakeNoPart)
{
    const Sample sample = twoClouds();
    Sample more = sample;
    more.patterns.push_back(ktKit::pattern({50.0, 50.0}));
    more.labels.push_back(1);
    more.patterns.push_back(ktKit::pattern({50.0, 50.0}));
    more.labels.push_back(-1);
    const Rejection rejection(trainedOn(sample, Bayes()), dataOf(more), 0.0);
    const Rejection copy = rejection;
    Rejection assigned(trainedOn(sample, Bayes()), dataOf(sample), 0.9);
    ASSERT_NE(assigned.limit(*ktKit::pattern({1.0, 1.0}), 9), rejection.limit(*ktKit::pattern({1.0, 1.0}), 9));
    assigned = rejection;
    EXPECT_EQ(assigned.limit(*ktKit::pattern({1.0, 1.0}), 9), rejection.limit(*ktKit::pattern({1.0, 1.0}), 9));
    EXPECT_TRUE(copy.rejects(*ktKit::pattern({50.0, 50.0})));
    EXPECT_EQ(copy.limit(*ktKit::pattern({1.0, 1.0}), 9), rejection.limit(*ktKit::pattern({1.0, 1.0}), 9));
}

TEST(KitRejection, SaysWhatIsWrongInOrder)
{
    ktClassifierDataProviderMemory null;
    null.addData(nullptr, 0);
    const std::string share = "The share must be >= 0.0 and < 1.0";
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before learning what to reject",
                                               [&] { Rejection rejection(ktClassifierTool(), null, -1.0); });
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not trained by Bayes",
                                              [&] { Rejection rejection(kt_test::treeTool(), null, -1.0); });
    const ktClassifierTool tool = trainedOn(twoClouds(), Bayes());
    for (const double bad : {-0.01, 1.0, NaN}) {
        expectThrows<ktClassifierDefs::BadParams>(share, [&] { Rejection rejection(tool, null, bad); });
    }
    expectBadPointer([&] { Rejection rejection(tool, null, 0.0); });
    const Rejection rejection(tool, dataOf(twoClouds()), 0.0);
    const std::string unknown = "The tool knows no category with the label 5";
    expectThrows<ktClassifierDefs::BadLabel>(unknown, [&] { rejection.limit(*ktKit::pattern({1.0, 1.0}), 5); });
    expectThrows<ktClassifierDefs::BadLabel>(unknown, [&] { rejection.logLikelihood(*ktKit::pattern({1.0, 1.0}), 5); });
}

TEST(KitRejection, CanBeAborted)
{
    const Rejection rejection(trainedOn(twoClouds(), Bayes()), dataOf(twoClouds()), 0.0);
    const kt_test::Attention attention(30, kt_test::abortStatus);
    expectThrows<ktFailure>(kt_test::abortMessage, [&] { rejection.rejects(*ktKit::pattern({1.0, NaN})); });
    EXPECT_FALSE(rejection.rejects(*ktKit::pattern({1.0, NaN})));
}

TEST(KitRejection, RunsOutOfMemoryCleanly)
{
    const ktClassifierTool tool = trainedOn(twoClouds(), Bayes());
    const ktClassifierDataProviderMemory data = dataOf(twoClouds());
    EXPECT_GT(kt_test::failEachAllocation([&] {
                  const Rejection rejection(tool, data, 0.0);
                  rejection.rejects(*ktKit::pattern({1.0, NaN}));
              }),
              0);
}

}  // namespace
