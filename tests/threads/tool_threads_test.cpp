// One tool, or tools that share their patterns, on several threads at once. What must not happen shows under
// ThreadSanitizer; that all answers are the same to the bit shows everywhere.

#include "threads/tools.h"

namespace {

using namespace kt_test;
using namespace threads;
using Knn = ktClassifierTrainParamsKNN;

TEST(ToolThreads, RunsOnOneToolAtOnceGiveTheAnswersOfRunsOneByOne)
{
    const ktClassifierTool tool = gridTool();
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> equal{0};
    onEachThread<fewThreads>([&](int) {
        for (int round = 0; round < 5; ++round) {
            equal += answersOf(tool, patterns) == expected ? 1 : 0;
        }
    });
    EXPECT_EQ(equal, 5 * fewThreads);
}

TEST(ToolThreads, RunsOnOneDecisionTreeAtOnceGiveTheAnswersOfRunsOneByOne)
{
    const auto leaf = [](long label) {
        return ktDecisionTreeLeaf(ktClassifierResult({ktClassifierCategoryResult(label, 1.0, 1.0, 0.0)}, 0.0));
    };
    ktClassifierTool tool;
    tool.train(ktDecisionTreeNode(ktComparisonPredicate(), leaf(1), leaf(2)));
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> equal{0};
    onEachThread<fewThreads>([&](int) { equal += answersOf(tool, patterns) == expected ? 1 : 0; });
    EXPECT_EQ(equal, fewThreads);
}

TEST(ToolThreads, RunsAndComparisonsGoTogether)
{
    const ktClassifierTool tool = gridTool();
    const ktClassifierTool copy(tool);
    const ktClassifierTool other = gridTool();
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> right{0};
    onEachThread<fewThreads>([&](int thread) {
        const bool ran = answersOf(thread % 2 == 0 ? tool : copy, patterns) == expected;
        right += ran && tool.isTrained() && tool == copy && copy == other && !(tool == ktClassifierTool()) ? 1 : 0;
    });
    EXPECT_EQ(right, fewThreads);
}

TEST(ToolThreads, CopiesThatSharePatternsAreMadeRunAndDroppedAtOnce)
{
    const ktClassifierTool tool = gridTool();
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    // Copying reads the tool, which is done here one by one; what the copies share they use at once.
    std::vector<ktClassifierTool> copies(fewThreads, tool);
    std::atomic<int> right{0};
    onEachThread<fewThreads>([&](int thread) {
        ktClassifierTool& own = copies[static_cast<std::size_t>(thread)];
        for (int round = 0; round < 5; ++round) {
            ktClassifierTool copy(own);
            copy.retrain(*own.trainParams());
            right += answersOf(copy, patterns) == expected ? 1 : 0;
            copy.untrain();
        }
    });
    EXPECT_EQ(right, 5 * fewThreads);
    EXPECT_TRUE(answersOf(tool, patterns) == expected);
}

TEST(ToolThreads, ToolsThatSharePatternsAreStoredAtOnce)
{
    const ktClassifierTool tool = gridTool();
    const std::string expected = kt_test::store(tool);
    const std::vector<ktClassifierTool> copies(fewThreads, tool);
    std::atomic<int> right{0};
    onEachThread<fewThreads>([&](int thread) {
        for (int round = 0; round < 5; ++round) {
            right += kt_test::store(copies[static_cast<std::size_t>(thread)]) == expected ? 1 : 0;
        }
    });
    EXPECT_EQ(right, 5 * fewThreads);
}

TEST(ToolThreads, ToolIsStoredWhileACopyOfItRunsAndAnotherIsLoaded)
{
    const ktClassifierTool tool = gridTool();
    const ktClassifierTool copy(tool);
    const std::string expected = kt_test::store(tool);
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    const std::vector<ktClassifierResult> answers = answersOf(tool, patterns);
    std::atomic<int> right{0};
    onEachThread<fewThreads>([&](int thread) {
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
    EXPECT_EQ(right, fewThreads);
}

TEST(ToolThreads, ToolsLoadedFromReferencesToOneRecordAreChangedAndRunAtOnce)
{
    std::ostringstream out;
    {
        ktClassifierTool stored = gridTool();
        ktArchive storing(static_cast<std::ostream&>(out));
        const ktArchive::Pass pass(storing);
        for (int i = 0; i < fewThreads; ++i) {
            storing || stored;
        }
    }
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    for (int round = 0; round < 20; ++round) {
        std::istringstream in(out.str());
        ktArchive loading(static_cast<std::istream&>(in));
        std::vector<ktClassifierTool> tools(fewThreads);
        {
            const ktArchive::Pass pass(loading);
            for (ktClassifierTool& tool : tools) {
                loading || tool;
            }
        }
        const std::vector<ktClassifierResult> expected = answersOf(tools.front(), patterns);
        std::atomic<int> equal{0};
        onEachThread<fewThreads>([&](int thread) {
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
    const ktClassifierTool tool = gridTool();
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    std::vector<long> polls(2, 0);
    {
        const kt_test::Attention attention;
        answersOf(tool, patterns);
        polls[0] = attention.polls();
    }
    {
        const kt_test::Attention attention;
        onEachThread<fewThreads>([&](int) { answersOf(tool, patterns); });
        polls[1] = attention.polls();
    }
    EXPECT_GE(polls[0], 60 * 20);
    EXPECT_EQ(polls[1], fewThreads * polls[0]);
}

TEST(ToolThreads, AbortOnOneThreadLeavesTheOthersRunning)
{
    const ktClassifierTool tool = gridTool();
    const std::vector<kt_test::PatternHandle> patterns = gridQueries();
    const std::vector<ktClassifierResult> expected = answersOf(tool, patterns);
    std::atomic<int> aborted{0};
    std::atomic<int> equal{0};
    {
        const kt_test::Attention attention(100, kt_test::abortStatus);
        onEachThread<fewThreads>([&](int) {
            try {
                equal += answersOf(tool, patterns) == expected ? 1 : 0;
            } catch (const ktFailure&) {
                ++aborted;
            }
        });
    }
    EXPECT_EQ(aborted, 1);
    EXPECT_EQ(equal, fewThreads - 1);
}

}  // namespace
