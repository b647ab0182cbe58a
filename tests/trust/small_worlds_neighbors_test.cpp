// Every set of up to five labelled patterns on a small grid, at every k that makes a difference, against the rule as it is
// told: a list kept in order, a new neighbour before its equals, and the last one falls off.

#include "support/training.h"

#include <clastool/nearest_neighbor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

namespace {

using Params = ktClassifierTrainParamsKNN;
using Place = std::vector<long>;

struct Labelled {
    Place place;
    long label;
    kt_test::PatternHandle pattern;
};

/// What is wrongly decided as the other category costs, by the true label.
constexpr double costOfMissing[] = {3.0, 1.0};

Params params(long k)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, costOfMissing[0]);
    costs.misclassificationCostOverride(1, 0, costOfMissing[1]);
    return Params(k, ktPatternDistanceMetricNorm(), costs);
}

/// The distance without its root, which does not change the order on a grid.
long squaredDistance(const Place& a, const Place& b)
{
    long sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    }
    return sum;
}

std::vector<long> votes(const std::vector<Labelled>& known, const Place& asked, std::size_t k)
{
    std::vector<std::pair<long, long>> nearest;
    for (const Labelled& one : known) {
        const long distance = squaredDistance(one.place, asked);
        if (nearest.size() == k && distance >= nearest.back().first) {
            continue;
        }
        const auto behind = std::find_if(nearest.begin(), nearest.end(),
                                         [distance](const auto& entry) { return distance <= entry.first; });
        nearest.insert(behind, {distance, one.label});
        nearest.resize(std::min(nearest.size(), k));
    }
    std::vector<long> labels;
    for (const auto& entry : nearest) {
        labels.push_back(entry.second);
    }
    return labels;
}

/// The decision rule for two categories of equal frequency.
std::vector<ktClassifierCategoryResult> decided(const std::vector<long>& labels)
{
    std::map<long, double> posteriors;
    for (const long label : labels) {
        posteriors[label] += 1.0;
    }
    const std::map<long, double> counts = posteriors;
    double sum = 0.0;
    for (auto& [label, posterior] : posteriors) {
        posterior = posterior / static_cast<double>(labels.size()) / static_cast<double>(counts.size());
        sum += posterior;
    }
    std::vector<ktClassifierCategoryResult> entries;
    for (const auto& [label, posterior] : posteriors) {
        double cost = 0.0;
        for (const auto& [other, otherPosterior] : posteriors) {
            cost += other == label ? 0.0 : costOfMissing[other] * otherPosterior;
        }
        entries.emplace_back(label, counts.at(label) / static_cast<double>(labels.size()), posterior / sum, cost / sum);
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& a, const auto& b) { return a.expectedCost() < b.expectedCost(); });
    return entries;
}

class World {
public:
    World(std::size_t dimensions, std::size_t mostPatterns) : mostPatterns_(mostPatterns)
    {
        std::vector<Place> places{{}};
        for (std::size_t i = 0; i < dimensions; ++i) {
            std::vector<Place> longer;
            for (const Place& place : places) {
                for (const long coordinate : {0L, 1L, 2L}) {
                    longer.push_back(place);
                    longer.back().push_back(coordinate);
                }
            }
            places = longer;
        }
        for (const Place& place : places) {
            const auto pattern = kt_test::pattern(std::vector<double>(place.begin(), place.end()));
            for (const long label : {0L, 1L}) {
                all_.push_back({place, label, pattern});
            }
        }
    }

    /// Every sequence of patterns, longer than `known`, that begins with it. Returns the number of runs.
    long checkFrom(const std::vector<Labelled>& known)
    {
        long runs = 0;
        for (const Labelled& next : all_) {
            std::vector<Labelled> longer = known;
            longer.push_back(next);
            runs += check(longer);
            if (longer.size() < mostPatterns_ && !::testing::Test::HasFatalFailure()) {
                runs += checkFrom(longer);
            }
        }
        return runs;
    }

private:
    long check(const std::vector<Labelled>& known)
    {
        ktClassifierDataProviderMemory data;
        for (const Labelled& one : known) {
            data.addData(one.pattern, one.label);
        }
        ktClassifierTool tool;
        tool.train(data, params(1));
        long runs = 0;
        for (long k = 1; k <= 6; ++k) {
            tool.retrain(params_[static_cast<std::size_t>(k)]);
            // Each place is there twice, once for each label.
            for (std::size_t i = 0; i < all_.size(); i += 2) {
                tool.run(*all_[i].pattern, result_);
                expectSame(known, all_[i].place, k);
                ++runs;
            }
        }
        return runs;
    }

    void expectSame(const std::vector<Labelled>& known, const Place& asked, long k)
    {
        if (result_.categoryResults() == decided(votes(known, asked, static_cast<std::size_t>(k)))) {
            return;
        }
        ::testing::Message about;
        for (const Labelled& one : known) {
            about << ::testing::PrintToString(one.place) << " is " << one.label << ", ";
        }
        FAIL() << about << "asked at " << ::testing::PrintToString(asked) << " with k = " << k;
    }

    std::size_t mostPatterns_;
    std::vector<Labelled> all_;
    std::vector<Params> params_{params(1), params(1), params(2), params(3), params(4), params(5), params(6)};
    ktClassifierResult result_;
};

TEST(SmallWorldOfNeighbors, OneMeasurementUpToFivePatterns)
{
    EXPECT_EQ(World(1, 5).checkFrom({}), (6 + 36 + 216 + 1296 + 7776) * 6 * 3);
}

TEST(SmallWorldOfNeighbors, TwoMeasurementsUpToThreePatterns)
{
    EXPECT_EQ(World(2, 3).checkFrom({}), (18 + 324 + 5832) * 6 * 9);
}

TEST(SmallWorldOfNeighbors, NoPatternsAreRefusedAtEveryK)
{
    for (long k = 1; k <= 6; ++k) {
        ktClassifierTool tool;
        EXPECT_THROW(tool.train(ktClassifierDataProviderMemory(), params(k)), ktClassifierDefs::InsufficientTrainData);
        EXPECT_FALSE(tool.isTrained());
    }
}

}  // namespace
