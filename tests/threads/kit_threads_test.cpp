// The kit starts threads where it is asked to, and const operations of it run on several threads at once.

#include "threads/tools.h"

#include <clastool/kit.h>

namespace {

using namespace threads;

TEST(KitThreads, ManyRunsOnSeveralThreads)
{
    const ktKit::Patterns queries = patternsWithTies(3000);
    std::vector<double> rows;
    for (const auto& query : queries) {
        rows.insert(rows.end(), query->featureMeasurements(true).begin(), query->featureMeasurements(true).end());
    }
    for (const ktClassifierTool& tool :
         {toolWithTies(ktClassifierTrainParamsKNN(3)), toolWithTies(ktClassifierTrainParamsBayesian())}) {
        const auto fresh = ktKit::runAll(tool, queries, 4);
        EXPECT_TRUE(fresh == ktKit::runAll(tool, queries));
        EXPECT_TRUE(fresh == ktKit::runAll(tool, rows.data(), queries.size(), 3, 4));
    }
}

TEST(KitThreads, AnAbortOnOneThreadEndsAll)
{
    const ktClassifierTool tool = toolWithTies(ktClassifierTrainParamsBayesian());
    const ktKit::Patterns queries = patternsWithTies(3000);
    const kt_test::Attention attention(5000, kt_test::abortStatus);
    kt_test::expectThrows<ktFailure>(kt_test::abortMessage, [&] { ktKit::runAll(tool, queries, 4); });
}

TEST(KitThreads, ConstOperationsRunOnSeveralThreadsAtOnce)
{
    const ktClassifierTool knn = toolWithTies(ktClassifierTrainParamsKNN(3));
    const ktClassifierTool bayes = toolWithTies(ktClassifierTrainParamsBayesian());
    const auto query = ktKit::pattern({1.0, 2.0, 3.0});
    const std::size_t nearest = ktKit::neighbors(knn, *query)[0].index;
    onEachThread([&](int) {
        EXPECT_EQ(ktKit::neighbors(knn, *query)[0].index, nearest);
        EXPECT_EQ(ktKit::densities(bayes).size(), 9U);
        EXPECT_EQ(ktKit::runAll(bayes, {query})[0].categoryResults().size(), 3U);
    });
}

}  // namespace
