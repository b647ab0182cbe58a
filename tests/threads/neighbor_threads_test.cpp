// Nearest-neighbour runs on several threads at once, on one tool that works from a compact copy of its patterns.

#include "threads/each_thread.h"

namespace {

constexpr int numThreads = 4;
// Enough for boxes around groups of blocks.
constexpr int numPatterns = 4200;

enum class Copy { fresh, grown, stale };

struct Case {
    const char* name;
    Copy copy;
    double order;
};

/// Integers, so that there are ties.
std::vector<double> measurements(int i)
{
    return {static_cast<double>(i % 31), static_cast<double>(i * 7 % 53), static_cast<double>(i * i % 17)};
}

class NeighborThreads : public testing::TestWithParam<Case> {
protected:
    void SetUp() override
    {
        const ktPtrHandle<ktFeaturePattern> owned = new ktFeaturePattern({1.0, 2.0, 3.0}, {});
        ktClassifierDataProviderMemory data;
        data.addData(owned, 0);
        for (int i = 0; i < numPatterns; ++i) {
            data.addData(kt_test::pattern(measurements(i)), i % 5);
        }
        const ktPatternDistanceMetricNorm norm(GetParam().order);
        classifier_.train(data, ktClassifierTrainParamsKNN(5, norm, ktClassifierCosts(1.0)));
        if (GetParam().copy == Copy::grown) {
            for (int i = 0; i < 100; ++i) {
                classifier_.trainIncremental(*kt_test::pattern(measurements(i * 3)), 1);
            }
        }
        if (GetParam().copy == Copy::stale) {
            *owned = ktFeaturePattern({4.0, 5.0, 6.0}, {});
        }
    }

    std::vector<ktClassifierResult> answers() const
    {
        std::vector<ktClassifierResult> results(8);
        for (std::size_t i = 0; i < results.size(); ++i) {
            const auto place = static_cast<double>(i);
            classifier_.run(*kt_test::pattern({3.0 * place, 5.0 * place, 2.0}), results[i]);
        }
        return results;
    }

    /// How many of the threads, which begin together, get the answers of runs one by one.
    int threadsThatAgree() const
    {
        const std::vector<ktClassifierResult> expected = answers();
        std::atomic<int> waiting{numThreads};
        std::atomic<int> agreeing{0};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < numThreads; ++thread) {
            threads.emplace_back([&] {
                --waiting;
                while (waiting > 0) {
                    std::this_thread::yield();
                }
                agreeing += answers() == expected ? 1 : 0;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return agreeing;
    }

    kt_ClassifierKNN classifier_;
};

TEST_P(NeighborThreads, RunsAtOnceGiveTheAnswersOfRunsOneByOne)
{
    EXPECT_EQ(threadsThatAgree(), numThreads);
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
        EXPECT_EQ(threadsThatAgree(), numThreads);
        polls[1] = attention.polls();
    }
    EXPECT_GE(polls[0], 8 * numPatterns);
    EXPECT_EQ(polls[1], (numThreads + 1) * polls[0]);
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
    std::vector<ktClassifierResult> expected(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        tool.run(*patterns[i], expected[i]);
    }
    std::atomic<int> agreeing{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < numThreads; ++thread) {
        threads.emplace_back([&] {
            std::vector<ktClassifierResult> results;
            static_cast<const ktClassifierTool&>(tool).run(patterns, results);
            agreeing += results == expected ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(agreeing, numThreads);
}

/// Each copy tells the patterns that it holds them, and sees it when one of them changes.
TEST(NeighborTraining, GoesOnOnSeveralThreadsFromTheSamePatterns)
{
    const ktPtrHandle<ktFeaturePattern> owned = new ktFeaturePattern(measurements(1), {});
    ktClassifierDataProviderMemory data;
    data.addData(owned, 9);
    for (int i = 2; i < numPatterns; ++i) {
        data.addData(kt_test::pattern(measurements(i)), i % 5);
    }
    std::vector<kt_ClassifierKNN> classifiers(threads::numThreads);
    threads::onEachThread(
        [&](int i) { classifiers[static_cast<std::size_t>(i)].train(data, ktClassifierTrainParamsKNN(1)); });
    *owned = ktFeaturePattern({900.0, 900.0, 900.0}, {});
    for (const kt_ClassifierKNN& classifier : classifiers) {
        ktClassifierResult result;
        classifier.run(*kt_test::pattern({890.0, 910.0, 905.0}), result);
        EXPECT_EQ(result.categoryResults().front().categoryLabel(), 9);
    }
}

}  // namespace
