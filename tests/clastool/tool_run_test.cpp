#include "tool_kit.h"

namespace {

using namespace kt_test;

// Running

TEST_F(Tool, RunHandsOnPatternResultDiagnosticsAndFlags)
{
    trainWithTechnique();
    ktClassifierResult result;
    tool_.run(*pattern({5}), result, &caller_, 4);
    const Calls expected = {"recordRunInputs_(destination, 12, 5)", "run_(5)", "recordRunDetails_(destination, 12)",
                            "recordRunResults_(destination, 12, 5, label 5)"};
    EXPECT_EQ(script_.calls, expected);
    EXPECT_EQ(labelsOf(result), std::vector<long>{5});
}

TEST_F(Tool, RunIsAbortedByTheAttentionCheckAndLeavesTheResult)
{
    tool_ = trainedKnn(Knn(4));
    for (long n = 1; n <= 5 + 3; ++n) {
        SCOPED_TRACE(n);
        const kt_test::Attention attention(n, kt_test::abortStatus);
        ktClassifierResult result = untouchedResult();
        expectThrows<ktFailure>(kt_test::abortMessage, [&] { tool_.run(*pattern({0}), result); });
        EXPECT_TRUE(result == untouchedResult());
        EXPECT_EQ(attention.polls(), n);
    }
    const kt_test::Attention attention;
    EXPECT_EQ(answer(tool_, {0}).categoryResults().size(), 3u);
    EXPECT_EQ(attention.polls(), 5 + 3);
}

}  // namespace
