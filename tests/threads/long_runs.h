#pragma once

// A tool of each technique, and many runs of it on eight threads that are compared with runs on one.

#include "threads/tools.h"

namespace long_runs {

inline long numRuns()
{
    const char* given = std::getenv("KT_THREAD_RUNS");
    return given == nullptr ? 20000 : std::atol(given);
}

/// Three categories on a grid with ties.
inline ktClassifierDataProviderMemory trainingSet()
{
    ktClassifierDataProviderMemory data;
    for (int i = 0; i < 60; ++i) {
        const auto x = static_cast<double>(i % 5);
        const auto y = static_cast<double>(i % 7);
        data.addData(kt_test::pattern({x, y + 0.1 * x, 2.0 * x - y, x * y}), i % 3);
    }
    return data;
}

inline ktClassifierTool bayes()
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

inline ktClassifierTool neighbors()
{
    ktClassifierTool tool;
    tool.train(trainingSet(), ktClassifierTrainParamsKNN(7, ktPatternDistanceMetricNorm(3.0), ktClassifierCosts(2.0)));
    return tool;
}

inline ktClassifierTool tree()
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

inline std::vector<ktFeaturePattern> queries()
{
    std::vector<ktFeaturePattern> made;
    for (int i = 0; i < 16; ++i) {
        made.push_back(ktFeaturePattern({0.25 * i, 4.0 - 0.25 * i, 1.0 + 0.5 * i, 0.75 * i}, {}));
    }
    return made;
}

inline void runOnEachThread(const ktClassifierTool& tool)
{
    const std::vector<ktFeaturePattern> asked = queries();
    const auto expected = threads::bitsOfAnswers(ktClassifierTool(tool), asked);
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

}  // namespace long_runs
