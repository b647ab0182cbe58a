// One call for many patterns, which answers as runs one by one do.

#include "tool_kit.h"

namespace {

using namespace kt_test;

TEST(ToolBatch, AnswersAsRunsOneByOneForEachTechnique)
{
    ktClassifierTool bayes;
    bayes.train(kt_test::trainingData({{{0, 1}, 2}, {{1, 3}, 2}, {{0, 2}, 2}, {{7, 8}, 4}, {{9, 8}, 4}, {{8, 7}, 4}}),
                ktClassifierTrainParamsBayesian());
    const Patterns few = {pattern({3, 4}), pattern({0, 1}), pattern({5, 5})};
    Results results;
    bayes.run(few, results);
    EXPECT_EQ(results, answersOf(bayes, few));
    const ktClassifierTool tree = trainedTree();
    tree.run(few, results);
    EXPECT_EQ(results, answersOf(tree, few));
    for (const double order : {2.0, 1.0, 1.5}) {
        for (const long count : {1L, 5L, 31L, 32L, 100L, 1100L}) {
            SCOPED_TRACE(testing::Message() << "order " << order << ", " << count << " patterns");
            const ktClassifierTool tool = neighborsTool(5, order);
            tool.run(queries(count), results);
            EXPECT_EQ(results, answersOf(tool, queries(count)));
        }
    }
}

TEST(ToolBatch, OfNoPatternGivesNoResult)
{
    Results results = untouched();
    trainedKnn().run(Patterns(), results);
    EXPECT_TRUE(results.empty());
}

TEST_F(Tool, BatchOfAnUntrainedToolIsRefusedWithoutPatternsToo)
{
    const auto expectRefused = [](const ktClassifierTool& tool) {
        for (const Patterns& patterns : {Patterns(), queries(2), Patterns(1)}) {
            Results results = untouched();
            expectThrows<ktClassifierDefs::NotTrained>(kt_test::notTrainedToRun, [&] { tool.run(patterns, results); });
            EXPECT_EQ(results, untouched());
        }
    };
    expectRefused(tool_);
    tool_ = trainedKnn();
    tool_.untrain();
    expectRefused(tool_);
}

TEST_F(Tool, BatchHandsOnEachPatternResultDiagnosticsAndFlags)
{
    trainWithTechnique();
    Results results;
    tool_.run({pattern({5}), pattern({6})}, results, &caller_, 4);
    const Calls expected = {"recordRunInputs_(destination, 12, 5)", "run_(5)",
                            "recordRunDetails_(destination, 12)",   "recordRunResults_(destination, 12, 5, label 5)",
                            "recordRunInputs_(destination, 12, 6)", "run_(6)",
                            "recordRunDetails_(destination, 12)",   "recordRunResults_(destination, 12, 6, label 6)"};
    EXPECT_EQ(script_.calls, expected);
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(kt_test::labelsOf(results[1]), std::vector<long>{6});
}

TEST_F(Tool, BatchOfNeighborsAsksTheDiagnosticsObjectOnceForEachPattern)
{
    const ktClassifierTool tool = neighborsTool();
    Results results;
    tool.run(queries(100), results, &caller_, 4);
    EXPECT_EQ(caller_.timesAsked(), 100);
    EXPECT_EQ(results, answersOf(tool, queries(100)));
}

TEST_F(Tool, BatchEndsWithTheErrorOfTheFirstPatternThatIsRefused)
{
    trainWithTechnique();
    script_.failAt("run_(6)", ktClassifierDefs::BadFeatures("refused"));
    Results results = untouched();
    expectThrows<ktClassifierDefs::BadFeatures>("refused", [&] {
        tool_.run({pattern({5}), pattern({6}), PatternHandle()}, results);
    });
    EXPECT_EQ(results, untouched());
    expectThrows<ktBadPointer>("", [&] { tool_.run({pattern({5}), PatternHandle(), pattern({6})}, results); });
    EXPECT_EQ(results, untouched());
}

TEST(ToolBatch, OfNeighborsEndsWithTheErrorOfTheFirstPatternThatIsRefused)
{
    const char* const invalid = "K-nearest neighbor classification does not support invalid measurements";
    const ktClassifierTool tool = neighborsTool();
    for (const std::size_t place : {0u, 1u, 40u, 99u}) {
        for (const PatternHandle& refused : {pattern({1, 2, 3}, {1}), pattern({1, 2}), pattern({})}) {
            Patterns patterns = queries(100);
            patterns[place] = refused;
            patterns.emplace_back();
            Results results = untouched();
            expectThrows<ktClassifierDefs::BadFeatures>(invalid, [&] { tool.run(patterns, results); });
            EXPECT_EQ(results, untouched());
        }
        Patterns patterns = queries(100);
        patterns[place] = PatternHandle();
        patterns.push_back(pattern({1, 2}));
        Results results = untouched();
        expectThrows<ktBadPointer>("", [&] { tool.run(patterns, results); });
        EXPECT_EQ(results, untouched());
    }
}

TEST(ToolBatch, OfNeighborsWithoutAKeptPatternSaysWhatARunSays)
{
    Knn params;
    params.throwIfNotReady(false);
    const ktClassifierTool tool = trainedKnn(params, {});
    Results results = untouched();
    expectThrows<ktClassifierDefs::InsufficientTrainData>(kt_test::noData, [&] { tool.run(queries(40), results); });
    EXPECT_EQ(results, untouched());
}

/// How often runs one by one poll before and with each pattern.
std::vector<long> pollsOneByOne(const ktClassifierTool& tool, const Patterns& patterns)
{
    std::vector<long> polls;
    for (const PatternHandle& each : patterns) {
        const kt_test::Attention attention;
        ktClassifierResult result;
        tool.run(*each, result);
        polls.push_back(attention.polls() + (polls.empty() ? 0 : polls.back()));
    }
    return polls;
}

TEST(ToolBatch, PollsAsRunsOneByOneDoAndIsAbortedAtEachPoll)
{
    const ktClassifierTool tool = neighborsTool();
    const Patterns patterns = queries(70);
    const std::vector<long> expected = pollsOneByOne(tool, patterns);
    const long all = expected.back();
    for (const long n : {1L, 2L, numKept, expected[0], expected[0] + 1, expected[40] - 1, expected[40], all - 1, all}) {
        SCOPED_TRACE(n);
        const kt_test::Attention attention(n, kt_test::abortStatus);
        Results results = untouched();
        expectThrows<ktFailure>(kt_test::abortMessage, [&] { tool.run(patterns, results); });
        EXPECT_EQ(attention.polls(), n);
        EXPECT_EQ(results, untouched());
    }
    const Results answers = answersOf(tool, patterns);
    const kt_test::Attention attention;
    Results results;
    tool.run(patterns, results);
    EXPECT_EQ(attention.polls(), all);
    EXPECT_EQ(results, answers);
}

TEST(ToolBatch, PollsForThePatternsBeforeARefusedOne)
{
    const ktClassifierTool tool = neighborsTool();
    const std::vector<long> expected = pollsOneByOne(tool, queries(40));
    Patterns patterns = queries(50);
    patterns[40] = pattern({1, 2});
    const kt_test::Attention attention;
    Results results;
    EXPECT_THROW(tool.run(patterns, results), ktClassifierDefs::BadFeatures);
    EXPECT_EQ(attention.polls(), expected.back());
}

/// Answers with the label 1, whatever it holds.
struct OwnNeighbors : kt_ClassifierKNN {
    OwnNeighbors() = default;
    ktPtrHandle<kt_Classifier> clone() const override { return new OwnNeighbors(*this); }
    void run_(const ktFeaturePattern&, ktClassifierResult& result) const override
    {
        result = ktClassifierResult({ktClassifierCategoryResult(1, 1.0, 1.0, 0.0)}, 0.0);
    }
};

struct OwnParams : Knn {
    ktPtrHandle<ktClassifierTrainParams> clone() const override { return new OwnParams(*this); }
    kt_Classifier* newClassifier_() const override { return new OwnNeighbors; }
};

TEST(ToolBatch, AsksAClassifierDerivedFromTheLibrarysForEachPattern)
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < numKept; ++i) {
        data.addData(pattern(measurementsWithTies(i)), 3);
    }
    ktClassifierTool tool;
    tool.train(data, OwnParams());
    Results results;
    tool.run(queries(64), results);
    ASSERT_EQ(results.size(), 64u);
    EXPECT_TRUE(std::all_of(results.begin(), results.end(), [](const ktClassifierResult& result) {
        return kt_test::labelsOf(result) == std::vector<long>{1};
    }));
}

TEST(ToolBatch, SeesPatternsThatWereAddedOrAssigned)
{
    const ktPtrHandle<ktFeaturePattern> owned = new ktFeaturePattern({1000.0, 1000.0, 1000.0}, {});
    ktClassifierDataProviderMemory data;
    data.addData(owned, 50);
    for (long i = 0; i < numKept; ++i) {
        data.addData(pattern(measurementsWithTies(i)), i % 7);
    }
    kt_ClassifierKNN classifier;
    classifier.train(data, Knn(1));
    ktClassifierTool tool;
    tool.train(data, Knn(1));
    const Patterns patterns = queries(40);
    Results before;
    tool.run(patterns, before);
    *owned = ktFeaturePattern(measurementsWithTies(3), {});
    Results after;
    tool.run(patterns, after);
    EXPECT_EQ(after, answersOf(tool, patterns));
    EXPECT_EQ(kt_test::labelsOf(after[0]), std::vector<long>{50});
    EXPECT_NE(after, before);
}

TEST(ToolMemory, BatchThatIsSearchedOneByOneTakesNoMoreThanAPointerAndAFlagForAPattern)
{
    kt_test::needCounts();
    const ktClassifierTool tool = neighborsTool();
    const Patterns patterns = queries(1000);
    Results results;
    const kt_test::MemoryWatch watch;
    tool.run(patterns, results);
    // One for the list of results and one for each result; then pointers, flags, and the rows of the patterns that were tried.
    EXPECT_LE(watch.allocations(), static_cast<long>(patterns.size()) + 4);
    // The pointers are gone before the results are filled.
    EXPECT_LE(watch.peakBytes(), static_cast<std::size_t>(watch.liveBytes()) + 2 * patterns.size());
}

}  // namespace
