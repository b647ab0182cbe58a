// Eight threads run one tool of each technique 20,000 times each. The environment variable KT_THREAD_RUNS gives another
// number of runs.

#include "threads/each_thread.h"

#include "support/result_bits.h"

namespace {

long numRuns()
{
    const char* given = std::getenv("KT_THREAD_RUNS");
    return given == nullptr ? 20000 : std::atol(given);
}

/// Three categories on a grid with ties.
ktClassifierDataProviderMemory trainingSet()
{
    ktClassifierDataProviderMemory data;
    for (int i = 0; i < 60; ++i) {
        const auto x = static_cast<double>(i % 5);
        const auto y = static_cast<double>(i % 7);
        data.addData(kt_test::pattern({x, y + 0.1 * x, 2.0 * x - y, x * y}), i % 3);
    }
    return data;
}

ktClassifierTool bayes()
{
    ktClassifierDistributionTypes types;
    types.setDependent(0, {0, 1});
    types.setDependent(1, {1, 2, 3});
    types.distributionTypeOverride(2, 3, ktClassifierDistributionTypes::eBinomial);
    ktClassifierTool tool;
    tool.train(trainingSet(), ktClassifierTrainParamsBayesian(types, ktClassifierFrequencies(), ktClassifierCosts(2.0),
                                                              ktFeaturePattern({1.0, 1.0, 1.0, 100.0}, {})));
    return tool;
}

ktClassifierTool neighbors()
{
    ktClassifierTool tool;
    tool.train(trainingSet(), ktClassifierTrainParamsKNN(7, ktPatternDistanceMetricNorm(3.0), ktClassifierCosts(2.0)));
    return tool;
}

ktClassifierTool tree()
{
    const auto leaf = [](long label) {
        return ktDecisionTreeLeaf(ktClassifierResult({{label, 1.0 / 3.0, 0.1, 0.7}, {9, 0.3, 0.7, 0.9}}, 1.0 / 7.0));
    };
    const ktDecisionTreeNode left(ktRangePredicate(ktRange(0.0, 2.0), {0, 1}), leaf(1), leaf(2));
    const ktDecisionTreeNode right(ktValidityPredicate({2}), leaf(3), left);
    ktClassifierTool tool;
    tool.train(ktDecisionTreeNode(ktComparisonPredicate(0, 1), left, right));
    return tool;
}

std::vector<ktFeaturePattern> queries()
{
    std::vector<ktFeaturePattern> made;
    for (int i = 0; i < 16; ++i) {
        made.push_back(ktFeaturePattern({0.25 * i, 4.0 - 0.25 * i, 1.0 + 0.5 * i, 0.75 * i}, {}));
    }
    return made;
}

void runOnEachThread(const ktClassifierTool& tool)
{
    const std::vector<ktFeaturePattern> asked = queries();
    std::vector<std::vector<std::uint64_t>> expected;
    {
        const ktClassifierTool alone(tool);
        for (const ktFeaturePattern& pattern : asked) {
            ktClassifierResult result;
            alone.run(pattern, result);
            expected.push_back(kt_test::bitsOf(result));
        }
    }
    const long runs = numRuns();
    ASSERT_GT(runs, 0) << "KT_THREAD_RUNS";
    std::atomic<long> equal{0};
    threads::onEachThread([&](int thread) {
        long mine = 0;
        ktClassifierResult result;
        for (long i = 0; i < runs; ++i) {
            const std::size_t which = static_cast<std::size_t>(i + thread) % asked.size();
            tool.run(asked[which], result);
            mine += kt_test::bitsOf(result) == expected[which] ? 1 : 0;
        }
        equal += mine;
    });
    EXPECT_EQ(equal, threads::numThreads * runs);
}

TEST(LongRunsOnThreads, BayesianTool)
{
    // Loaded: none of its densities has been evaluated before the threads begin.
    runOnEachThread(kt_test::storedAndLoaded(bayes()));
}

TEST(LongRunsOnThreads, NeighborTool)
{
    runOnEachThread(neighbors());
}

TEST(LongRunsOnThreads, TreeTool)
{
    runOnEachThread(tree());
}

}  // namespace
