// The neighbour search against one that sorts all distances, on every small set of distances and on what the random cases of
// internals/neighbor_cases_test.cpp leave out. A pattern with a label of its own shows in the result whether it is a neighbour;
// a few labels shared by many patterns show the votes.

#include "metrics.h"

#include "support/neighbor_reference.h"

namespace {

using namespace kt_test;
using Point = std::vector<double>;
using Points = std::vector<Point>;
using Params = ktClassifierTrainParamsKNN;

double farIfNotANumber(double distance)
{
    return std::isnan(distance) ? infinity : distance;
}

/// The neighbours by the tie rules, in ascending order of their indices. Of the patterns exactly as far as the k-th, one
/// enters the list only while fewer than k patterns at most that far went by; among those that entered, a nearer pattern
/// that comes later pushes out the one that entered first, because new entries go before their equals.
std::vector<std::size_t> neighboursByRule(const std::vector<double>& distances, std::size_t k)
{
    std::vector<std::size_t> all(distances.size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    if (k >= all.size()) {
        return all;
    }
    std::vector<double> sorted = distances;
    std::sort(sorted.begin(), sorted.end());
    const double limit = sorted[k - 1];
    std::vector<std::size_t> nearer;
    std::vector<std::size_t> entered;
    for (const std::size_t i : all) {
        if (distances[i] < limit) {
            nearer.push_back(i);
        } else if (distances[i] == limit && nearer.size() + entered.size() < k) {
            entered.push_back(i);
        }
    }
    const std::size_t places = k - nearer.size();
    nearer.insert(nearer.end(), entered.end() - static_cast<std::ptrdiff_t>(places), entered.end());
    std::sort(nearer.begin(), nearer.end());
    return nearer;
}

std::vector<long> ownLabels(std::size_t size)
{
    std::vector<long> labels(size);
    std::iota(labels.begin(), labels.end(), 0L);
    return labels;
}

std::vector<long> fewLabels(std::size_t size)
{
    std::vector<long> labels;
    for (std::size_t i = 0; i < size; ++i) {
        labels.push_back(static_cast<long>(i * i % 7));
    }
    return labels;
}

kt_ClassifierKNN trained(const Points& points, const std::vector<long>& labels, const Params& params)
{
    ktClassifierDataProviderMemory data;
    for (std::size_t i = 0; i < points.size(); ++i) {
        data.addData(kt_test::pattern(points[i]), labels[i]);
    }
    kt_ClassifierKNN classifier;
    classifier.train(data, params);
    return classifier;
}

/// Numbers of neighbours to test with this number of patterns: few, about half, all and more than all.
std::vector<std::size_t> usualKs(std::size_t size)
{
    return {1, 2, 3, 7, size / 2, size - 1, size, size + 1, 2147483647};
}

/// Expects the oracle's result, bit for bit, for each k.
template <class DistanceOf>
void expectOracle(const Points& points, const Points& queries, const ktPatternDistanceMetric& metric,
                  DistanceOf distanceOf, const std::vector<std::size_t>& ks)
{
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(1, 2, 7.5);
    kt_ClassifierKNN byOwnLabel = trained(points, ownLabels(points.size()), Params());
    kt_ClassifierKNN byFewLabels = trained(points, fewLabels(points.size()), Params());
    for (std::size_t q = 0; q < queries.size(); ++q) {
        std::vector<double> distances;
        for (const Point& point : points) {
            distances.push_back(farIfNotANumber(distanceOf(queries[q], point)));
        }
        for (const std::size_t k : ks) {
            const Params params(static_cast<long>(k), metric, costs);
            const std::vector<std::size_t> neighbours = neighboursByRule(distances, k);
            byOwnLabel.retrain(params);
            byFewLabels.retrain(params);
            ktClassifierResult result;
            byOwnLabel.run(*kt_test::pattern(queries[q]), result);
            ASSERT_TRUE(result == resultOfVotes(neighbours, ownLabels(points.size()), costs))
                << "k " << k << ", query " << q;
            byFewLabels.run(*kt_test::pattern(queries[q]), result);
            ASSERT_TRUE(result == resultOfVotes(neighbours, fewLabels(points.size()), costs))
                << "k " << k << ", query " << q;
        }
    }
}

template <class DistanceOf>
void expectOracle(const Points& points, const Points& queries, const ktPatternDistanceMetric& metric,
                  DistanceOf distanceOf)
{
    expectOracle(points, queries, metric, distanceOf, usualKs(points.size()));
}

void expectOracleAtEachOrder(const Points& points, const Points& queries, const std::vector<std::size_t>& ks)
{
    for (const double order : {0.5, 1.0, 2.0, 3.0, 7.5}) {
        SCOPED_TRACE(::testing::Message() << "order " << order);
        expectOracle(
            points, queries, ktPatternDistanceMetricNorm(order),
            [order](const Point& a, const Point& b) { return plainDistance(a, b, order); }, ks);
    }
}

/// Fixed seeds; the engine's numbers are the same everywhere.
class KnnOracle : public ::testing::Test {
protected:
    static constexpr unsigned seed = 20240611;

    KnnOracle() : engine_(seed) {}

    double uniform() { return static_cast<double>(engine_()) / 4294967296.0; }
    double below(unsigned bound) { return static_cast<double>(engine_() % bound); }

    template <class Coordinate>
    static Points points(std::size_t count, std::size_t dimensions, Coordinate coordinate)
    {
        Points made(count, Point(dimensions));
        for (Point& point : made) {
            std::generate(point.begin(), point.end(), coordinate);
        }
        return made;
    }

    ::testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed)};
    std::mt19937 engine_;
};

/// Calls `visit` with every sequence of 1 to `longest` of these distances.
template <class Visit>
void forEachSequence(const std::vector<double>& alphabet, std::size_t longest, Visit visit)
{
    for (std::size_t length = 1; length <= longest; ++length) {
        std::vector<std::size_t> digits(length, 0);
        for (std::size_t at = 0; at < length;) {
            std::vector<double> distances;
            for (const std::size_t digit : digits) {
                distances.push_back(alphabet[digit]);
            }
            visit(distances);
            for (at = 0; at < length && ++digits[at] == alphabet.size(); ++at) {
                digits[at] = 0;
            }
        }
    }
}

/// Expects the neighbours and the votes for every k that makes a difference, from patterns that hold their distances.
void expectNeighboursOf(const std::vector<double>& distances)
{
    const std::size_t n = distances.size();
    Points points;
    std::vector<double> compared;
    for (const double distance : distances) {
        points.push_back({distance});
        compared.push_back(farIfNotANumber(distance));
    }
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, 3.0);
    const kt_test::DistanceBy metric = kt_test::distanceInPattern();
    std::vector<long> twoLabels;
    for (std::size_t i = 0; i < n; ++i) {
        twoLabels.push_back(static_cast<long>(i % 2));
    }
    for (const std::vector<long>& labels : {ownLabels(n), twoLabels}) {
        kt_ClassifierKNN classifier = trained(points, labels, Params());
        for (std::size_t k = 1; k <= n + 1; ++k) {
            kt_test::PlainNeighbors listed{k, {}, {}};
            for (std::size_t i = 0; i < n; ++i) {
                listed.take(i, distances[i]);
            }
            std::sort(listed.rows.begin(), listed.rows.end());
            const std::vector<std::size_t> expected = neighboursByRule(compared, k);
            ASSERT_EQ(listed.rows, expected) << "the two references disagree";
            classifier.retrain(Params(static_cast<long>(k), metric, costs));
            ktClassifierResult result;
            classifier.run(*kt_test::pattern({0.0}), result);
            ASSERT_TRUE(result == resultOfVotes(expected, labels, costs))
                << "k " << k << " of " << ::testing::PrintToString(distances);
        }
    }
}

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
