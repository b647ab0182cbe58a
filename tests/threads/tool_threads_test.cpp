// One tool, or tools that share their patterns, on several threads at once. What must not happen shows under
// ThreadSanitizer; that all answers are the same to the bit shows everywhere.

#include "support/test.h"

namespace {

using Knn = ktClassifierTrainParamsKNN;

constexpr int numThreads = 4;

/// Runs `work(thread)` on several threads that begin together.
void onThreads(const std::function<void(int thread)>& work)
{
    std::atomic<int> waiting{numThreads};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < numThreads; ++thread) {
        threads.emplace_back([&, thread] {
            --waiting;
            while (waiting > 0) {
                std::this_thread::yield();
            }
            work(thread);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Points on a grid, so that there are ties.
ktClassifierTool trainedTool()
{
    std::vector<kt_test::Labelled> rows;
    for (int i = 0; i < 60; ++i) {
        rows.push_back({{static_cast<double>(i % 5), static_cast<double>(i % 7)}, i % 3});
    }
    ktClassifierTool tool;
    tool.train(kt_test::trainingData(rows), Knn(7, ktPatternDistanceMetricNorm(3.0), ktClassifierCosts(2.0)));
    return tool;
}

std::vector<kt_test::PatternHandle> queries()
{
    std::vector<kt_test::PatternHandle> made;
    for (int i = 0; i < 20; ++i) {
        made.push_back(kt_test::pattern({0.25 * i, 5.0 - 0.25 * i}));
    }
    return made;
}

std::vector<ktClassifierResult> answersOf(const ktClassifierTool& tool,
                                          const std::vector<kt_test::PatternHandle>& patterns)
{
    std::vector<ktClassifierResult> results;
    for (const kt_test::PatternHandle& pattern : patterns) {
        ktClassifierResult result;
        tool.run(*pattern, result);
        results.push_back(result);
    }
    return results;
}

TEST(ToolThreads, RunsOnOneToolAtOnceGiveTheAnswersOfRunsOneByOne)
{
    const ktClassifierTool tool = trainedTool();
    const std::vector<kt_test::PatternHandle> patterns = queries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> equal{0};
    onThreads([&](int) {
        for (int round = 0; round < 5; ++round) {
            equal += answersOf(tool, patterns) == expected ? 1 : 0;
        }
    });
    EXPECT_EQ(equal, 5 * numThreads);
}

TEST(ToolThreads, RunsOnOneDecisionTreeAtOnceGiveTheAnswersOfRunsOneByOne)
{
    const auto leaf = [](long label) {
        return ktDecisionTreeLeaf(ktClassifierResult({ktClassifierCategoryResult(label, 1.0, 1.0, 0.0)}, 0.0));
    };
    ktClassifierTool tool;
    tool.train(ktDecisionTreeNode(ktComparisonPredicate(), leaf(1), leaf(2)));
    const std::vector<kt_test::PatternHandle> patterns = queries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> equal{0};
    onThreads([&](int) { equal += answersOf(tool, patterns) == expected ? 1 : 0; });
    EXPECT_EQ(equal, numThreads);
}

TEST(ToolThreads, RunsAndComparisonsGoTogether)
{
    const ktClassifierTool tool = trainedTool();
    const ktClassifierTool copy(tool);
    const ktClassifierTool other = trainedTool();
    const std::vector<kt_test::PatternHandle> patterns = queries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> right{0};
    onThreads([&](int thread) {
        const bool ran = answersOf(thread % 2 == 0 ? tool : copy, patterns) == expected;
        right += ran && tool.isTrained() && tool == copy && copy == other && !(tool == ktClassifierTool()) ? 1 : 0;
    });
    EXPECT_EQ(right, numThreads);
}

TEST(ToolThreads, CopiesThatSharePatternsAreMadeRunAndDroppedAtOnce)
{
    const ktClassifierTool tool = trainedTool();
    const std::vector<kt_test::PatternHandle> patterns = queries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    // Copying reads the tool, which is done here one by one; what the copies share they use at once.
    std::vector<ktClassifierTool> copies(numThreads, tool);
    std::atomic<int> right{0};
    onThreads([&](int thread) {
        ktClassifierTool& own = copies[static_cast<std::size_t>(thread)];
        for (int round = 0; round < 5; ++round) {
            ktClassifierTool copy(own);
            copy.retrain(*own.trainParams());
            right += answersOf(copy, patterns) == expected ? 1 : 0;
            copy.untrain();
        }
    });
    EXPECT_EQ(right, 5 * numThreads);
    EXPECT_TRUE(answersOf(tool, patterns) == expected);
}

TEST(ToolThreads, ToolsThatSharePatternsAreStoredAtOnce)
{
    const ktClassifierTool tool = trainedTool();
    const std::string expected = kt_test::store(tool);
    const std::vector<ktClassifierTool> copies(numThreads, tool);
    std::atomic<int> right{0};
    onThreads([&](int thread) {
        for (int round = 0; round < 5; ++round) {
            right += kt_test::store(copies[static_cast<std::size_t>(thread)]) == expected ? 1 : 0;
        }
    });
    EXPECT_EQ(right, 5 * numThreads);
}

TEST(ToolThreads, ToolIsStoredWhileACopyOfItRunsAndAnotherIsLoaded)
{
    const ktClassifierTool tool = trainedTool();
    const ktClassifierTool copy(tool);
    const std::string expected = kt_test::store(tool);
    const std::vector<kt_test::PatternHandle> patterns = queries();
    const std::vector<ktClassifierResult> answers = answersOf(tool, patterns);
    std::atomic<int> right{0};
    onThreads([&](int thread) {
        switch (thread % 4) {
        case 0:
            right += kt_test::store(tool) == expected ? 1 : 0;
            break;
        case 1:
            right += answersOf(copy, patterns) == answers ? 1 : 0;
            break;
        default:
            right += kt_test::load<ktClassifierTool>(expected) == copy ? 1 : 0;
            break;
        }
    });
    EXPECT_EQ(right, numThreads);
}

TEST(ToolThreads, ToolsLoadedFromReferencesToOneRecordAreChangedAndRunAtOnce)
{
    std::ostringstream out;
    {
        ktClassifierTool stored = trainedTool();
        ktArchive storing(static_cast<std::ostream&>(out));
        const ktArchive::Pass pass(storing);
        for (int i = 0; i < numThreads; ++i) {
            storing || stored;
        }
    }
    const std::vector<kt_test::PatternHandle> patterns = queries();
    for (int round = 0; round < 20; ++round) {
        std::istringstream in(out.str());
        ktArchive loading(static_cast<std::istream&>(in));
        std::vector<ktClassifierTool> tools(numThreads);
        {
            const ktArchive::Pass pass(loading);
            for (ktClassifierTool& tool : tools) {
                loading || tool;
            }
        }
        const std::vector<ktClassifierResult> expected = answersOf(tools.front(), patterns);
        std::atomic<int> equal{0};
        onThreads([&](int thread) {
            ktClassifierTool& tool = tools[static_cast<std::size_t>(thread)];
            switch (thread) {
            case 0:
                tool.retrain(Knn(2));
                break;
            case 1:
                tool.untrain();
                break;
            case 2:
                tool.train(kt_test::trainingData({{{1.0, 2.0}, 3}}), Knn(1));
                break;
            default:
                equal += answersOf(tool, patterns) == expected ? 1 : 0;
            }
        });
        EXPECT_EQ(equal, 1);
    }
}

TEST(ToolThreads, AttentionIsAskedOnEveryComputingThread)
{
    const ktClassifierTool tool = trainedTool();
    const std::vector<kt_test::PatternHandle> patterns = queries();
    std::vector<long> polls(2, 0);
    {
        const kt_test::Attention attention;
        answersOf(tool, patterns);
        polls[0] = attention.polls();
    }
    {
        const kt_test::Attention attention;
        onThreads([&](int) { answersOf(tool, patterns); });
        polls[1] = attention.polls();
    }
    EXPECT_GE(polls[0], 60 * 20);
    EXPECT_EQ(polls[1], numThreads * polls[0]);
}

TEST(ToolThreads, AbortOnOneThreadLeavesTheOthersRunning)
{
    const ktClassifierTool tool = trainedTool();
    const std::vector<kt_test::PatternHandle> patterns = queries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> aborted{0};
    std::atomic<int> equal{0};
    {
        const kt_test::Attention attention(100, kt_test::abortStatus);
        onThreads([&](int) {
            try {
                equal += answersOf(tool, patterns) == expected ? 1 : 0;
            } catch (const ktFailure&) {
                ++aborted;
            }
        });
    }
    EXPECT_EQ(aborted, 1);
    EXPECT_EQ(equal, numThreads - 1);
}

}  // namespace
