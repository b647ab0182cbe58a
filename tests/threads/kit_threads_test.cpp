// The kit starts threads where it is asked to, and const operations of it run on several threads at once.

#include "each_thread.h"

#include <clastool/kit.h>

namespace {

ktKit::Patterns patterns(long count)
{
    ktKit::Patterns made;
    for (long i = 0; i < count; ++i) {
        made.push_back(ktKit::pattern(
            {static_cast<double>(i % 31), static_cast<double>(i * 7 % 53), static_cast<double>(i * i % 17)}));
    }
    return made;
}

ktClassifierTool trained(const ktClassifierTrainParams& params)
{
    ktClassifierDataProviderMemory data;
    for (const auto& pattern : patterns(600)) {
        data.addData(pattern, data.numPatterns() % 3);
    }
    ktClassifierTool tool;
    tool.train(data, params);
    return tool;
}

TEST(KitThreads, ManyRunsOnSeveralThreads)
{
    const ktKit::Patterns queries = patterns(3000);
    std::vector<double> rows;
    for (const auto& query : queries) {
        rows.insert(rows.end(), query->featureMeasurements(true).begin(), query->featureMeasurements(true).end());
    }
    for (const ktClassifierTool& tool :
         {trained(ktClassifierTrainParamsKNN(3)), trained(ktClassifierTrainParamsBayesian())}) {
        const auto fresh = ktKit::runAll(tool, queries, 4);
        EXPECT_TRUE(fresh == ktKit::runAll(tool, queries));
        EXPECT_TRUE(fresh == ktKit::runAll(tool, rows.data(), queries.size(), 3, 4));
    }
}

TEST(KitThreads, AnAbortOnOneThreadEndsAll)
{
    const ktClassifierTool tool = trained(ktClassifierTrainParamsBayesian());
    const ktKit::Patterns queries = patterns(3000);
    const kt_test::Attention attention(5000, kt_test::abortStatus);
    kt_test::expectThrows<ktFailure>(kt_test::abortMessage, [&] { ktKit::runAll(tool, queries, 4); });
}

TEST(KitThreads, ConstOperationsRunOnSeveralThreadsAtOnce)
{
    const ktClassifierTool knn = trained(ktClassifierTrainParamsKNN(3));
    const ktClassifierTool bayes = trained(ktClassifierTrainParamsBayesian());
    const auto query = ktKit::pattern({1.0, 2.0, 3.0});
    const std::size_t nearest = ktKit::neighbors(knn, *query)[0].index;
    threads::onEachThread([&](int) {
        EXPECT_EQ(ktKit::neighbors(knn, *query)[0].index, nearest);
        EXPECT_EQ(ktKit::densities(bayes).size(), 9U);
        EXPECT_EQ(ktKit::runAll(bayes, {query})[0].categoryResults().size(), 3U);
    });
}

}  // namespace
