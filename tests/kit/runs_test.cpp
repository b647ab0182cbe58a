// What is read out of results, and many runs in one call.

#include "kit_kit.h"

#include <chrono>
#include <system_error>

#if defined(__GLIBC__)
#include <pthread.h>
#endif

namespace {

using namespace kt_test;

const std::string untrained = "Classifier tool must be trained before running.";
const std::string invalid = "K-nearest neighbor classification does not support invalid measurements";

TEST(KitResult, DecisionIsTheFirstCategory)
{
    const ktClassifierResult result(
        {ktClassifierCategoryResult(3, 0.5, 0.5, 2.0), ktClassifierCategoryResult(8, 0.5, 0.5, 1.0)}, 0.0);
    EXPECT_EQ(&ktKit::decision(result), &result.categoryResults().front());
    EXPECT_EQ(ktKit::decision(result).categoryLabel(), 8);
    EXPECT_EQ(ktKit::decision(ktClassifierResult(result)).categoryLabel(), 8);
    expectThrows<ktClassifierDefs::BadParams>("The result holds no category",
                                              [] { ktKit::decision(ktClassifierResult()); });
}

TEST(KitResult, LogLikelihoodTakesTheFactorOut)
{
    const ktClassifierResult result(
        {ktClassifierCategoryResult(3, 0.25, 1.0, 0.0), ktClassifierCategoryResult(8, 0.0, 0.0, 1.0)}, -12.5);
    EXPECT_DOUBLE_EQ(ktKit::logLikelihood(result, 3), 12.5 - 2.0 * std::log(2.0));
    EXPECT_EQ(ktKit::logLikelihood(result, 8), -std::numeric_limits<double>::infinity());
    expectThrows<ktClassifierDefs::BadLabel>("The result holds no category with the label 4",
                                             [&] { ktKit::logLikelihood(result, 4); });
}

// ln of 1 / (s sqrt(2 pi)) exp(-z^2 / 2) for z = 1, s = sqrt(2): -0.5 ln(4 pi) - 0.5.
TEST(KitResult, LogLikelihoodIsThatOfTheDensity)
{
    ktClassifierTool tool;
    tool.train(kt_test::trainingData({{{-1.0}, 0}, {{1.0}, 0}, {{9.0}, 1}, {{11.0}, 1}}), kt_test::Bayes());
    ktClassifierResult result;
    tool.run(*ktKit::pattern({std::sqrt(2.0)}), result);
    EXPECT_NEAR(ktKit::logLikelihood(result, 0), -1.7655121234846454, 1e-14);
}

TEST(KitRunAll, AnswersAsRunsOneByOneWhateverTheThreads)
{
    ktKit::Patterns queries = Sample(50, 1250).patterns;
    for (const ktClassifierTool& tool :
         {nearest(), trainedOn(Sample(0, 90), kt_test::bayesParams(true)), kt_test::treeTool()}) {
        const Results expected = oneByOne(tool, queries);
        const std::vector<double> rows = rowsOf(queries);
        for (const unsigned threads : {0U, 1U, 2U, 3U, 16U}) {
            EXPECT_TRUE(ktKit::runAll(tool, queries, threads) == expected) << threads;
            EXPECT_TRUE(ktKit::runAll(tool, rows.data(), queries.size(), 3, threads) == expected) << threads;
        }
    }
}

TEST(KitRunAll, NumbersInRowsThatAreNotFiniteAreMissing)
{
    const ktClassifierTool tool = trainedOn(Sample(0, 90), kt_test::bayesParams());
    const double rows[] = {3.0, 20.0, NaN, NaN, NaN, 5.0, 1.0, 2.0, 3.0};
    const Results expected =
        oneByOne(tool, {new ktFeaturePattern({3, 20, 0}, {2}), new ktFeaturePattern({0, 0, 5}, {0, 1}),
                        new ktFeaturePattern({1, 2, 3}, {})});
    EXPECT_TRUE(ktKit::runAll(tool, rows, 3, 3) == expected);
    EXPECT_TRUE(ktKit::runAll(tool, rows, 3, 3, 2) == expected);
}

TEST(KitRunAll, NothingGivesNothing)
{
    const ktClassifierTool tool = nearest();
    for (const unsigned threads : {1U, 2U}) {
        EXPECT_TRUE(ktKit::runAll(tool, {}, threads).empty());
        EXPECT_TRUE(ktKit::runAll(tool, nullptr, 0, 3, threads).empty());
    }
    EXPECT_EQ(ktKit::runAll(kt_test::treeTool(), nullptr, 3, 0).size(), 3U);
}

TEST(KitRunAll, AnUntrainedToolIsRefusedFirst)
{
    const ktClassifierTool tool;
    for (const unsigned threads : {1U, 2U}) {
        expectThrows<ktClassifierDefs::NotTrained>(untrained, [&] { ktKit::runAll(tool, {}, threads); });
        expectThrows<ktClassifierDefs::NotTrained>(untrained, [&] { ktKit::runAll(tool, {nullptr}, threads); });
        expectThrows<ktClassifierDefs::NotTrained>(untrained, [&] { ktKit::runAll(tool, nullptr, 0, 3, threads); });
    }
}

// Parts of 256 patterns: the failures stand in different parts, and the first one counts.
TEST(KitRunAll, ThrowsWhatComesFirst)
{
    const ktClassifierTool tool = nearest();
    ktKit::Patterns queries = Sample(0, 2000).patterns;
    queries[1999] = ktKit::pattern({1.0});
    queries[700] = nullptr;
    for (const unsigned threads : {1U, 2U, 4U}) {
        expectBadPointer([&] { ktKit::runAll(tool, queries, threads); });
    }
    queries[300] = ktKit::pattern({1.0});
    for (const unsigned threads : {1U, 2U, 4U}) {
        expectThrows<ktClassifierDefs::BadFeatures>(invalid, [&] { ktKit::runAll(tool, queries, threads); });
    }
    std::vector<double> rows = rowsOf(Sample(0, 1000).patterns);
    rows[2000] = std::numeric_limits<double>::infinity();
    for (const unsigned threads : {1U, 2U}) {
        expectThrows<ktClassifierDefs::BadFeatures>(invalid,
                                                    [&] { ktKit::runAll(tool, rows.data(), 1000, 3, threads); });
    }
}

/// Answers the 100th poll with an abort, and holds the other threads up for the next 100, so that the exception has the time that some
/// systems take to pass it on.
class Abort {
public:
    Abort() { kfSetAttentionHandler(&answer, this); }
    ~Abort() { kfSetAttentionHandler(nullptr, nullptr); }
    Abort(const Abort&) = delete;
    Abort& operator=(const Abort&) = delete;

    long polls() const { return polls_; }

private:
    static long answer(void* context)
    {
        const long poll = ++static_cast<Abort*>(context)->polls_;
        if (poll > 100 && poll <= 200) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return poll == 100 ? kt_test::abortStatus : 0;
    }

    std::atomic<long> polls_{0};
};

TEST(KitRunAll, AnAbortEndsAllThreads)
{
    const ktClassifierTool tool = nearest();
    const ktKit::Patterns queries = Sample(0, 4000).patterns;
    for (const unsigned threads : {1U, 2U, 3U}) {
        const Abort abort;
        expectThrows<ktFailure>(kt_test::abortMessage, [&] { ktKit::runAll(tool, queries, threads); });
        const long polls = abort.polls();
        // Each of the others ends with the 256 patterns that it was at, 707 polls each.
        EXPECT_LE(polls, 100 + (static_cast<long>(threads) - 1) * 2 * 256 * 707);
        std::this_thread::yield();
        EXPECT_EQ(abort.polls(), polls) << "something still runs";
    }
}

#if defined(__GLIBC__)

/// As long as it lives, no thread can be started: none finds room for its stack.
class NoThreads {
public:
    NoThreads()
    {
        pthread_getattr_default_np(&before_);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, std::numeric_limits<std::size_t>::max() / 0x100000 * 0xFFFF0);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t before_{};
};

TEST(KitRunAll, WhereTheSystemGivesNoThreadsTheCallingOneDoesIt)
{
    const ktClassifierTool tool = nearest();
    const ktKit::Patterns queries = Sample(50, 1250).patterns;
    const Results expected = oneByOne(tool, queries);
    const NoThreads none;
    ASSERT_THROW(std::thread([] {}).join(), std::system_error);
    EXPECT_TRUE(ktKit::runAll(tool, queries, 3) == expected);
}

#endif

TEST(KitRunAll, PollsAsRunsOneByOne)
{
    const ktClassifierTool tool = nearest();
    const ktKit::Patterns queries = Sample(0, 600).patterns;
    long expected = 0;
    {
        const kt_test::Attention attention;
        oneByOne(tool, queries);
        expected = attention.polls();
    }
    for (const unsigned threads : {1U, 3U}) {
        const kt_test::Attention attention;
        ktKit::runAll(tool, queries, threads);
        EXPECT_EQ(attention.polls(), expected);
    }
}

TEST(KitRunAll, MakesNoPatternForEachRow)
{
    const ktClassifierTool tool = kt_test::treeTool();
    const std::vector<double> rows = rowsOf(Sample(0, 5000).patterns);
    ktKit::runAll(tool, rows.data(), 10, 3);
    kt_test::needCounts();
    const kt_test::MemoryWatch watch;
    const Results results = ktKit::runAll(tool, rows.data(), 5000, 3);
    const long kept = watch.liveBytes();
    EXPECT_EQ(results.size(), 5000U);
    // 256 patterns and results at a time, not 5000 of them.
    EXPECT_LT(static_cast<long>(watch.peakBytes()) - kept, 256 * 400);
}

TEST(KitRunAll, RunsOutOfMemoryCleanly)
{
    const ktClassifierTool tool = trainedOn(Sample(0, 90), kt_test::bayesParams());
    const ktKit::Patterns queries = Sample(0, 4).patterns;
    const std::vector<double> rows = rowsOf(queries);
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::runAll(tool, queries); }), 0);
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::runAll(tool, rows.data(), 4, 3); }), 0);
}

// Only this thread's allocations fail: those before the others begin, and those in its own share of the work.
TEST(KitRunAll, RunsOutOfMemoryCleanlyBesideOtherThreads)
{
    kt_test::needCounts();
    const ktClassifierTool tool = trainedOn(Sample(0, 90), kt_test::bayesParams());
    const ktKit::Patterns queries = Sample(0, 600).patterns;
    const Results expected = oneByOne(tool, queries);
    for (long n = 1; n < 40; ++n) {
        try {
            const kt_test::AllocationFailure failure(n);
            EXPECT_TRUE(ktKit::runAll(tool, queries, 2) == expected);
        } catch (const std::bad_alloc&) {
        }
    }
    EXPECT_TRUE(ktKit::runAll(tool, queries, 2) == expected);
}

/// The list of the plain scan, by its own words: a new row goes before its equals, and an equal one does not displace the last.
std::vector<ktKit::Neighbor> plainScan(const Sample& kept, const ktFeaturePattern& query, std::size_t k,
                                       const ktPatternDistanceMetric& metric)
{
    std::vector<ktKit::Neighbor> list;
    for (std::size_t row = 0; row < kept.patterns.size(); ++row) {
        const double distance = metric.distance(query, *kept.patterns[row]);
        if (list.size() == k && !(distance < list.back().distance)) {
            continue;
        }
        auto place = list.begin();
        while (place != list.end() && place->distance < distance) {
            ++place;
        }
        list.insert(place, {row, kept.labels[row], distance});
        list.resize(std::min(list.size(), k), {0, 0, 0.0});
    }
    return list;
}

void expectSame(const std::vector<ktKit::Neighbor>& found, const std::vector<ktKit::Neighbor>& expected)
{
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].index, expected[i].index) << i;
        EXPECT_EQ(found[i].label, expected[i].label) << i;
        EXPECT_EQ(found[i].distance, expected[i].distance) << i;
    }
}

TEST(KitNeighbors, AreThoseOfThePlainScanInItsOrder)
{
    const Sample kept(0, 700, 7);
    for (const double order : {1.0, 2.0, 3.5}) {
        const ktPatternDistanceMetricNorm metric(order);
        for (const long k : {1L, 4L, 33L, 700L, 900L}) {
            const ktClassifierTool tool = trainedOn(kept, Knn(k, metric, ktClassifierCosts()));
            for (const auto& query : Sample(3, 13).patterns) {
                expectSame(ktKit::neighbors(tool, *query),
                           plainScan(kept, *query, static_cast<std::size_t>(std::min(k, 700L)), metric));
            }
        }
    }
}

/// A metric that the compact copy does not know, and that says NaN now and then.
class Odd : public ktPatternDistanceMetric {
public:
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        const double x = std::abs(a.featureMeasurement(0, true) - b.featureMeasurement(0, true));
        return x > 20.0 ? std::numeric_limits<double>::quiet_NaN() : std::floor(x / 4.0);
    }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new Odd; }
};

TEST(KitNeighbors, AreThoseOfAMetricOfTheCallersOwn)
{
    const Sample kept(0, 40);
    const ktClassifierTool tool = trainedOn(kept, Knn(40, Odd(), ktClassifierCosts()));
    const auto query = ktKit::pattern(measured(2));
    const std::vector<ktKit::Neighbor> found = ktKit::neighbors(tool, *query);
    ASSERT_EQ(found.size(), 40U);
    EXPECT_EQ(found.back().distance, std::numeric_limits<double>::infinity());
    EXPECT_EQ(found.front().distance, 0.0);
    EXPECT_GT(found.front().index, found[1].index) << "of equals the one stored later comes first";
}

TEST(KitNeighbors, AreCountedWithoutPatternsOfUnknownCategory)
{
    ktClassifierTool tool;
    tool.train(kt_test::trainingData({{{5}, 3}, {{1}, -1}, {{2}, 8}}), Knn(1));
    const std::vector<ktKit::Neighbor> found = ktKit::neighbors(tool, *ktKit::pattern({1.5}));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].index, 1U);
    EXPECT_EQ(found[0].label, 8);
    EXPECT_EQ(found[0].distance, 0.5);
}

TEST(KitNeighbors, SaysWhatIsWrongInOrder)
{
    const ktFeaturePattern bad({1.0, 2.0}, {0});
    expectThrows<ktClassifierDefs::NotTrained>(untrained, [&] { ktKit::neighbors(ktClassifierTool(), bad); });
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not trained for nearest neighbors",
                                              [&] { ktKit::neighbors(kt_test::treeTool(), bad); });
    Knn params(1);
    params.throwIfNotReady(false);
    ktClassifierTool empty;
    empty.train(ktClassifierDataProviderMemory(), params);
    expectThrows<ktClassifierDefs::InsufficientTrainData>("No valid data was provided for training.",
                                                          [&] { ktKit::neighbors(empty, bad); });
    const ktClassifierTool tool = nearest();
    expectThrows<ktClassifierDefs::BadFeatures>(invalid, [&] { ktKit::neighbors(tool, bad); });
    expectThrows<ktClassifierDefs::BadFeatures>(invalid, [&] {
        ktKit::neighbors(tool, ktFeaturePattern({1, 2, 3}, {1}));
    });
    expectThrows<ktClassifierDefs::BadFeatures>(invalid, [&] { ktKit::neighbors(tool, *ktKit::pattern({1.0, 2.0})); });
}

TEST(KitNeighbors, PollOncePerKeptPattern)
{
    const ktClassifierTool tool = nearest();
    const kt_test::Attention attention;
    ktKit::neighbors(tool, *ktKit::pattern(measured(5)));
    EXPECT_EQ(attention.polls(), 700);
}

TEST(KitNeighbors, RunOutOfMemoryCleanly)
{
    const ktClassifierTool tool = nearest(300);
    const auto query = ktKit::pattern(measured(5));
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::neighbors(tool, *query); }), 0);
}

}  // namespace
