#pragma once

// The neighbour search by the tie rules, without the list that kt_test::PlainNeighbors goes by, and comparisons of classifiers with it.

#include "metrics.h"

#include "support/neighbor_reference.h"

namespace oracle {

using Point = std::vector<double>;
using Points = std::vector<Point>;
using Params = ktClassifierTrainParamsKNN;

inline double farIfNotANumber(double distance)
{
    return std::isnan(distance) ? kt_test::infinity : distance;
}

/// The neighbours by the tie rules, in ascending order of their indices. Of the patterns exactly as far as the k-th, one
/// enters the list only while fewer than k patterns at most that far went by; among those that entered, a nearer pattern
/// that comes later pushes out the one that entered first, because new entries go before their equals.
inline std::vector<std::size_t> neighboursByRule(const std::vector<double>& distances, std::size_t k)
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

inline std::vector<long> ownLabels(std::size_t size)
{
    std::vector<long> labels(size);
    std::iota(labels.begin(), labels.end(), 0L);
    return labels;
}

inline std::vector<long> fewLabels(std::size_t size)
{
    std::vector<long> labels;
    for (std::size_t i = 0; i < size; ++i) {
        labels.push_back(static_cast<long>(i * i % 7));
    }
    return labels;
}

inline kt_ClassifierKNN trained(const Points& points, const std::vector<long>& labels, const Params& params)
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
inline std::vector<std::size_t> usualKs(std::size_t size)
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
            ASSERT_TRUE(result == kt_test::resultOfVotes(neighbours, ownLabels(points.size()), costs))
                << "k " << k << ", query " << q;
            byFewLabels.run(*kt_test::pattern(queries[q]), result);
            ASSERT_TRUE(result == kt_test::resultOfVotes(neighbours, fewLabels(points.size()), costs))
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

inline void expectOracleAtEachOrder(const Points& points, const Points& queries, const std::vector<std::size_t>& ks)
{
    for (const double order : {0.5, 1.0, 2.0, 3.0, 7.5}) {
        SCOPED_TRACE(::testing::Message() << "order " << order);
        expectOracle(
            points, queries, ktPatternDistanceMetricNorm(order),
            [order](const Point& a, const Point& b) { return kt_test::plainDistance(a, b, order); }, ks);
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
inline void expectNeighboursOf(const std::vector<double>& distances)
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
            ASSERT_TRUE(result == kt_test::resultOfVotes(expected, labels, costs))
                << "k " << k << " of " << ::testing::PrintToString(distances);
        }
    }
}

}  // namespace oracle
