// The neighbour search against one that sorts all distances, on every small set of distances and on what the random cases of
// internals/neighbor_cases_test.cpp leave out. A pattern with a label of its own shows in the result whether it is a neighbour;
// a few labels shared by many patterns show the votes.

#include "knn_oracle.h"

namespace {

using namespace kt_test;
using namespace oracle;

TEST_F(KnnOracle, EverySequenceOfAFewDistances)
{
    forEachSequence({0.0, 1.0, 2.0, infinity, NaN}, 5, expectNeighboursOf);
}

TEST_F(KnnOracle, EverySequenceOfDistancesThatNoNormGives)
{
    forEachSequence({-infinity, -1.0, -0.0, 0.0}, 5, expectNeighboursOf);
}

TEST_F(KnnOracle, EachNumberOfMeasurements)
{
    const auto coordinate = [this] { return below(3) + (engine_() % 2 == 0 ? 0.0 : uniform()); };
    for (std::size_t dimensions = 1; dimensions <= 19; ++dimensions) {
        SCOPED_TRACE(dimensions);
        const Points stored = points(70, dimensions, coordinate);
        expectOracleAtEachOrder(stored, points(1, dimensions, coordinate), {1, 7});
    }
}

TEST_F(KnnOracle, ManyPatternsOfManyMeasurements)
{
    const auto random = [this] { return 20.0 * uniform() - 10.0; };
    const Points stored = points(4200, 40, random);
    expectOracleAtEachOrder(stored, {stored[17], points(1, 40, random)[0]}, {1, 7, 100});
    const auto grid = [this] { return below(2); };
    expectOracleAtEachOrder(points(4200, 40, grid), points(1, 40, grid), {1, 7, 100});
}

// Rounded to whole numbers, the distances come in another order: 40 times 0.51 becomes 40 and is 20.4, 15 times 1.49 becomes
// 15 and is 22.35.
TEST_F(KnnOracle, ManyPatternsWhoseRoundedDistancesComeInAnotherOrder)
{
    Points stored(4200, Point(40, 127.0));
    for (std::size_t i = 0; i < stored.size(); i += 20) {
        std::generate(stored[i].begin(), stored[i].end(), [this] { return 0.51 + 0.01 * uniform(); });
        std::fill(stored[i + 1].begin(), stored[i + 1].end(), 0.0);
        std::generate_n(stored[i + 1].begin(), 15, [this] { return 1.49 - 0.01 * uniform(); });
    }
    stored.push_back(Point(40, 0.0));
    expectOracleAtEachOrder(stored, {Point(40, 0.0), Point(40, 0.25)}, {1, 7, 100, 300});
}

TEST_F(KnnOracle, MetricsOfTheUsersOwn)
{
    const auto coordinate = [this] { return below(4); };
    const Points stored = points(120, 3, coordinate);
    const Points queries = points(5, 3, coordinate);
    expectOracle(stored, queries, kt_test::Chebyshev(), [](const Point& a, const Point& b) {
        return std::max({std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2])});
    });
    // Neither symmetric nor positive.
    const auto lopsided = [](double a, double b) { return a == b ? NaN : b - 2.0 * a; };
    const kt_test::DistanceBy metric([&](const ktFeaturePattern& a, const ktFeaturePattern& b) {
        return lopsided(a.featureMeasurement(0, true), b.featureMeasurement(0, true));
    });
    expectOracle(stored, queries, metric, [&](const Point& a, const Point& b) { return lopsided(a[0], b[0]); });
}

TEST_F(KnnOracle, NormDerivedByTheUserIsAskedToo)
{
    struct Negated : ktPatternDistanceMetricNorm {
        double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
        {
            return -ktPatternDistanceMetricNorm::distance(a, b);
        }
        ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new Negated(*this); }
    };
    const auto coordinate = [this] { return below(3); };
    const Points stored = points(60, 3, coordinate);
    expectOracle(stored, points(4, 3, coordinate), Negated(),
                 [](const Point& a, const Point& b) { return -plainDistance(a, b, 2.0); });
}

TEST_F(KnnOracle, PatternThatARunRefusesIsReachedHoweverFarAwayItIs)
{
    for (const double order : {0.5, 1.0, 2.0, 3.0, 7.5}) {
        SCOPED_TRACE(order);
        kt_ClassifierKNN classifier = trained(Points(50, Point{0.0, 0.0}), ownLabels(50),
                                              Params(1, ktPatternDistanceMetricNorm(order), ktClassifierCosts()));
        classifier.trainIncremental(*kt_test::pattern({1e6, 1e6}, {1}), 3);
        classifier.trainIncremental(*kt_test::pattern({0.0, 0.0}), 4);
        ktClassifierResult result = kt_test::untouchedResult();
        kt_test::expectThrows<ktClassifierDefs::BadFeatures>(
            "Access to full feature vector requires that all features are valid.", [&] {
                classifier.run(*kt_test::pattern({0.0, 0.0}), result);
            });
        EXPECT_TRUE(result == kt_test::untouchedResult());
    }
}

TEST_F(KnnOracle, PatternThatARunRefusesIsMetAfterThePollThatComesBeforeIt)
{
    kt_ClassifierKNN classifier = trained(Points(100, Point{0.0}), ownLabels(100), Params(1));
    classifier.trainIncremental(*kt_test::pattern({5.0}, {0}), 3);
    for (int i = 0; i < 100; ++i) {
        classifier.trainIncremental(*kt_test::pattern({1.0}), 3);
    }
    ktClassifierResult result;
    for (const long n : {100L, 101L}) {
        const kt_test::Attention attention(n, kt_test::abortStatus);
        kt_test::expectThrows<ktFailure>(kt_test::abortMessage,
                                         [&] { classifier.run(*kt_test::pattern({0.0}), result); });
    }
    const kt_test::Attention attention(102, kt_test::abortStatus);
    kt_test::expectThrows<ktClassifierDefs::BadFeatures>(
        "Access to full feature vector requires that all features are valid.",
        [&] { classifier.run(*kt_test::pattern({0.0}), result); });
    EXPECT_EQ(attention.polls(), 101);
}

/// Whether a run finds the only pattern near 1000.
bool finds(const kt_ClassifierKNN& classifier)
{
    ktClassifierResult result;
    classifier.run(*kt_test::pattern({1000.0, 1000.0}), result);
    return kt_test::labelsOf(result) == std::vector<long>{999};
}

TEST_F(KnnOracle, RunSeesWhatWasAddedSinceTheLastRun)
{
    const auto coordinate = [this] { return uniform(); };
    kt_ClassifierKNN classifier = trained(points(150, 2, coordinate), ownLabels(150), Params(1));
    const kt_ClassifierKNN sharer(classifier);
    EXPECT_FALSE(finds(classifier));
    EXPECT_FALSE(finds(sharer));
    classifier.trainIncremental(*kt_test::pattern({1000.0, 1000.0}), 999);
    EXPECT_TRUE(finds(sharer));
    EXPECT_TRUE(finds(classifier));
    classifier.train(kt_test::trainingData({{{0.0, 0.0}, 1}}), Params(1));
    EXPECT_FALSE(finds(classifier));
    EXPECT_TRUE(finds(sharer));
}

TEST_F(KnnOracle, RunSeesAPatternThatItsOwnerAssignedOrLoadedAnew)
{
    ktClassifierDataProviderMemory data;
    const ktPtrHandle<ktFeaturePattern> owned = new ktFeaturePattern({0.0, 0.0}, {});
    for (int i = 0; i < 150; ++i) {
        data.addData(kt_test::pattern({uniform(), uniform()}), 1);
    }
    data.addData(owned, 999);
    kt_ClassifierKNN classifier;
    classifier.train(data, Params(1));
    EXPECT_FALSE(finds(classifier));
    *owned = ktFeaturePattern({1000.0, 1000.0}, {});
    EXPECT_TRUE(finds(classifier));
    kt_test::loadInto(*owned, kt_test::store(ktFeaturePattern({0.0, 0.0}, {})));
    EXPECT_FALSE(finds(classifier));
    kt_test::loadInto(*owned, kt_test::store(ktFeaturePattern({999.0, 1000.0}, {})));
    EXPECT_TRUE(finds(classifier));
}

}  // namespace
