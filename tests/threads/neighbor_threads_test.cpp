// Nearest-neighbour runs on several threads at once, on one tool that works from a compact copy of its patterns.

#include "threads/tools.h"

namespace {

using namespace threads;

TEST_P(NeighborThreads, RunsAtOnceGiveTheAnswersOfRunsOneByOne)
{
    EXPECT_EQ(threadsThatAgree(), fewThreads);
}

TEST_P(NeighborThreads, RunsAtOncePollOnceForEachPatternOfEachRun)
{
    std::vector<long> polls(2, 0);
    {
        const kt_test::Attention attention;
        answers();
        polls[0] = attention.polls();
    }
    {
        const kt_test::Attention attention;
        EXPECT_EQ(threadsThatAgree(), fewThreads);
        polls[1] = attention.polls();
    }
    EXPECT_GE(polls[0], 8 * numPatterns);
    EXPECT_EQ(polls[1], (fewThreads + 1) * polls[0]);
}

const Case cases[] = {{"FreshCopyOrderTwo", Copy::fresh, 2.0}, {"FreshCopyOrderThreeAndAHalf", Copy::fresh, 3.5},
                      {"GrownCopyOrderTwo", Copy::grown, 2.0}, {"GrownCopyOrderThreeAndAHalf", Copy::grown, 3.5},
                      {"StaleCopyOrderTwo", Copy::stale, 2.0}, {"StaleCopyOrderThreeAndAHalf", Copy::stale, 3.5}};

INSTANTIATE_TEST_SUITE_P(Copies, NeighborThreads, testing::ValuesIn(cases),
                         [](const auto& copy) { return std::string(copy.param.name); });

TEST(NeighborBatches, RunAtOnceGiveTheAnswersOfRunsOneByOne)
{
    ktRandomUniform uniform(1);
    const auto drawn = [&uniform] {
        std::vector<double> values(12);
        std::generate(values.begin(), values.end(), [&uniform] { return uniform.next(0.0, 1.0); });
        return kt_test::pattern(values);
    };
    ktClassifierDataProviderMemory data;
    for (int i = 0; i < 1000; ++i) {
        data.addData(drawn(), i % 5);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsKNN(5));
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns(100);
    std::generate(patterns.begin(), patterns.end(), drawn);
    const std::vector<ktClassifierResult> expected = kt_test::answersOf(tool, patterns);
    std::atomic<int> agreeing{0};
    onEachThread<fewThreads>([&](int) {
        std::vector<ktClassifierResult> results;
        static_cast<const ktClassifierTool&>(tool).run(patterns, results);
        agreeing += results == expected ? 1 : 0;
    });
    EXPECT_EQ(agreeing, fewThreads);
}

/// Each copy tells the patterns that it holds them, and sees it when one of them changes.
TEST(NeighborTraining, GoesOnOnSeveralThreadsFromTheSamePatterns)
{
    const ktPtrHandle<ktFeaturePattern> owned = new ktFeaturePattern(kt_test::measurementsWithTies(1), {});
    ktClassifierDataProviderMemory data;
    data.addData(owned, 9);
    for (int i = 2; i < numPatterns; ++i) {
        data.addData(kt_test::pattern(kt_test::measurementsWithTies(i)), i % 5);
    }
    std::vector<kt_ClassifierKNN> classifiers(numThreads);
    onEachThread([&](int i) { classifiers[static_cast<std::size_t>(i)].train(data, ktClassifierTrainParamsKNN(1)); });
    *owned = ktFeaturePattern({900.0, 900.0, 900.0}, {});
    for (const kt_ClassifierKNN& classifier : classifiers) {
        ktClassifierResult result;
        classifier.run(*kt_test::pattern({890.0, 910.0, 905.0}), result);
        EXPECT_EQ(result.categoryResults().front().categoryLabel(), 9);
    }
}

}  // namespace
