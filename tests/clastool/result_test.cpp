#include "values_kit.h"

namespace {

using namespace kt_test;
using ktClassifierDefs::BadLabel;
using ktClassifierDefs::BadParams;

TEST(ClassifierResult, NewOneIsEmpty)
{
    const ktClassifierResult result;
    EXPECT_TRUE(result.categoryResults().empty());
    EXPECT_EQ(result.matchScoreFactorLog(), 0.0);
    EXPECT_TRUE(result == ktClassifierResult());
}

TEST(ClassifierResult, EqualityLooksAtTheEntriesInOrderAndTheFactor)
{
    const ktClassifierResult result({{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}}, -3.0);
    EXPECT_TRUE(result == ktClassifierResult({{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}}, -3.0));
    const ktClassifierResult others[] = {
        ktClassifierResult(),
        ktClassifierResult({{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}}, std::nextafter(-3.0, 0.0)),
        ktClassifierResult({{2, 0.5, 0.5, 1.0}, {1, 0.5, 0.5, 1.0}}, -3.0),
        ktClassifierResult({{1, 0.5, 0.5, 1.0}, {3, 0.5, 0.5, 1.0}}, -3.0),
        ktClassifierResult({{1, 0.5, 1.0, 1.0}}, -3.0),
        ktClassifierResult({{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}}, NaN),
    };
    for (const ktClassifierResult& other : others) {
        EXPECT_FALSE(result == other);
        EXPECT_FALSE(other == result);
        EXPECT_TRUE(result != other);
    }
}

TEST(PlainResult, DividesTheClassScoresByTheirSum)
{
    const ktClassifierResult result({{1, 0.25, 0.3, 0.0}, {2, 0.75, 0.3, 1.0}}, -12.5);
    ASSERT_EQ(result.categoryResults().size(), 2u);
    EXPECT_TRUE(result.categoryResults()[0] == CategoryResult(1, 0.25, 0.5, 0.0));
    EXPECT_TRUE(result.categoryResults()[1] == CategoryResult(2, 0.75, 0.5, 1.0));
    EXPECT_EQ(result.matchScoreFactorLog(), -12.5);
}

TEST(PlainResult, TakesTheExpectedCostsAsTheyAreAndSortsByThem)
{
    const ktClassifierResult result(
        {{4, 0.0, 0.1, 3.0}, {2, 0.0, 0.2, infinity}, {9, 0.0, 0.3, 0.5}, {1, 0.0, 0.4, 0.0}}, 0.0);
    EXPECT_EQ(labelsOf(result), Labels({1, 9, 4, 2}));
    EXPECT_EQ(result.categoryResults()[2].expectedCost(), 3.0);
    EXPECT_EQ(result.categoryResults()[3].expectedCost(), infinity);
}

TEST(PlainResult, KeepsTheFactorWhateverItIs)
{
    for (const double factor : {0.0, -0.0, 1e308, -infinity}) {
        EXPECT_EQ(ktClassifierResult({{1, 0.0, 1.0, 0.0}}, factor).matchScoreFactorLog(), factor);
    }
    EXPECT_TRUE(std::isnan(ktClassifierResult({{1, 0.0, 1.0, 0.0}}, NaN).matchScoreFactorLog()));
}

TEST(PlainResult, RefusesInTheOrderOfItsSteps)
{
    struct Row {
        const char* label;
        CategoryResults results;
        const char* message;
    };
    const Row rows[] = {
        {"two of one label", {{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}, {1, 0.5, 0.5, 1.0}}, notUnique},
        {"last two of one label", {{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}}, notUnique},
        {"two of one label, class scores 0", {{1, 0.5, 0.0, 1.0}, {1, 0.5, 0.0, 1.0}}, notUnique},
        {"two of one negative label", {unchecked(-1, 0.5, 0.5, 1.0), unchecked(-1, 0.5, 0.5, 1.0)}, notUnique},
        {"none", {}, noClassScore},
        {"class scores 0", {{1, 0.5, 0.0, 1.0}, {2, 0.5, 0.0, 1.0}}, noClassScore},
        {"class scores of sum 0", {unchecked(1, 0.5, -0.5, 1.0), {2, 0.5, 0.5, 1.0}}, noClassScore},
        {"class scores 0, match score", {unchecked(1, 2.0, 0.0, 1.0)}, noClassScore},
        {"match score", {unchecked(1, 2.0, 0.5, 1.0)}, badScore},
        {"match score before cost", {unchecked(1, -1.0, 0.5, -1.0)}, badScore},
        {"class score", {unchecked(1, 0.5, -0.5, 1.0), unchecked(2, 0.5, 1.5, 1.0)}, badScore},
        {"cost", {unchecked(1, 0.5, 0.5, -1.0)}, negativeCost},
        {"sorted first", {unchecked(1, 0.5, 0.5, -1.0), unchecked(2, 2.0, 0.5, -2.0)}, badScore},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        ktClassifierResult result = untouchedResult();
        expectRefused<BadParams>([&] { result = ktClassifierResult(row.results, 0.0); }, row.message);
        EXPECT_TRUE(result == untouchedResult());
    }
    expectRefused<BadLabel>([] { ktClassifierResult({unchecked(-1, 2.0, 0.5, -1.0)}, 0.0); }, negativeLabel);
}

TEST(PlainResult, ClassScoresOutsideTheirRangeCountAsTheyAre)
{
    // 3 and 1 are no class scores, but 3 / 4 and 1 / 4 are.
    const ktClassifierResult result({unchecked(1, 0.5, 3.0, 0.0), unchecked(2, 0.5, 1.0, 1.0)}, 0.0);
    EXPECT_EQ(result.categoryResults()[0].classScore(), 0.75);
    EXPECT_EQ(result.categoryResults()[1].classScore(), 0.25);
}

TEST(PlainResult, NanClassScoreMakesAllOfThemNan)
{
    const ktClassifierResult result({{1, 0.5, NaN, 1.0}, {2, 0.5, 0.5, 0.0}}, 0.0);
    EXPECT_EQ(labelsOf(result), Labels({2, 1}));
    EXPECT_TRUE(std::isnan(result.categoryResults()[0].classScore()));
    EXPECT_TRUE(std::isnan(result.categoryResults()[1].classScore()));
}

/// The labels in the order that is promised: ascending cost, NaN last, equal ones as given. Plain selection.
Labels expectedOrder(CategoryResults results)
{
    const auto before = [](const CategoryResult& a, const CategoryResult& b) {
        const bool nanA = std::isnan(a.expectedCost());
        const bool nanB = std::isnan(b.expectedCost());
        return nanA != nanB ? nanB : !nanA && a.expectedCost() < b.expectedCost();
    };
    Labels order;
    while (!results.empty()) {
        std::size_t first = 0;
        for (std::size_t i = 1; i < results.size(); ++i) {
            first = before(results[i], results[first]) ? i : first;
        }
        order.push_back(results[first].categoryLabel());
        results.erase(results.begin() + static_cast<std::ptrdiff_t>(first));
    }
    return order;
}

TEST(ResultOrder, IsAscendingStableAndNanComesLast)
{
    const double costs[] = {0.0, -0.0, 1.0, 2.0, 1e300, infinity, NaN};
    for (const unsigned long seed : {1UL, 2UL, 3UL}) {
        std::mt19937_64 random(seed);
        for (const long size : {1L, 2L, 3L, 7L, 31L, 32L, 33L, 34L, 64L, 200L}) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << size << " entries");
            CategoryResults results;
            for (long i = 0; i < size; ++i) {
                results.emplace_back(1000 - i, 0.5, 0.5, costs[random() % 7]);
            }
            EXPECT_EQ(labelsOf(ktClassifierResult(results, 0.0)), expectedOrder(results));
        }
    }
}

TEST(ResultOrder, EqualCostsKeepTheOrderGivenAtAnySize)
{
    for (const long size : {2L, 32L, 33L, 100L}) {
        CategoryResults results;
        Labels given;
        for (long i = 0; i < size; ++i) {
            given.push_back((i * 37 + 11) % 101);
            results.emplace_back(given.back(), 0.5, 0.5, 4.0);
        }
        EXPECT_EQ(labelsOf(ktClassifierResult(results, 0.0)), given) << size;
    }
}

TEST(ResultOrder, DescendingCostsAreReversedAtAnySize)
{
    for (const long size : {2L, 32L, 33L, 100L}) {
        CategoryResults results;
        Labels reversed;
        for (long i = 0; i < size; ++i) {
            results.emplace_back(i, 0.5, 0.5, static_cast<double>(size - i));
            reversed.insert(reversed.begin(), i);
        }
        EXPECT_EQ(labelsOf(ktClassifierResult(results, 0.0)), reversed) << size;
    }
}

TEST(DecisionRule, DecidesForTheBestMatchByDefault)
{
    const ktClassifierResult result = decide({match(1, 0.8), match(2, 0.2)});
    EXPECT_EQ(labelsOf(result), Labels({1, 2}));
    EXPECT_DOUBLE_EQ(entryFor(result, 1).classScore(), 0.8);
    EXPECT_DOUBLE_EQ(entryFor(result, 2).classScore(), 0.2);
    EXPECT_DOUBLE_EQ(entryFor(result, 1).expectedCost(), 0.2);
    EXPECT_DOUBLE_EQ(entryFor(result, 2).expectedCost(), 0.8);
    EXPECT_EQ(entryFor(result, 1).matchScore(), 0.8);
    EXPECT_EQ(entryFor(result, 2).matchScore(), 0.2);
}

TEST(DecisionRule, OutweighsAMatchByItsFrequency)
{
    ktClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(2, 4.0);
    const ktClassifierResult result = decide({match(1, 0.8), match(2, 0.2)}, frequencies);
    EXPECT_EQ(labelsOf(result), Labels({1, 2})) << "the order given";
    for (const CategoryResult& entry : result.categoryResults()) {
        EXPECT_DOUBLE_EQ(entry.classScore(), 0.5);
        EXPECT_DOUBLE_EQ(entry.expectedCost(), 0.5);
    }
    EXPECT_EQ(labelsOf(decide({match(2, 0.2), match(1, 0.8)}, frequencies)), Labels({2, 1})) << "the order given";
}

TEST(DecisionRule, WeighsADecisionByItsCosts)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(2, 1, 10.0);
    const ktClassifierResult result = decide({match(1, 0.8), match(2, 0.2)}, {}, costs);
    EXPECT_EQ(labelsOf(result), Labels({2, 1})) << "although its class score is lower";
    EXPECT_DOUBLE_EQ(entryFor(result, 1).expectedCost(), 2.0);
    EXPECT_DOUBLE_EQ(entryFor(result, 2).expectedCost(), 0.8);
    EXPECT_DOUBLE_EQ(entryFor(result, 1).classScore(), 0.8);
}

TEST(DecisionRule, CostsAreLookedUpByTrueThenAssignedLabel)
{
    ktClassifierCosts costs(0.0);
    costs.misclassificationCostOverride(1, 2, 10.0);
    const ktClassifierResult result = decide({match(1, 0.5), match(2, 0.25), match(3, 0.25)}, {}, costs);
    EXPECT_EQ(entryFor(result, 1).expectedCost(), 0.0);
    EXPECT_DOUBLE_EQ(entryFor(result, 2).expectedCost(), 5.0);
    EXPECT_EQ(entryFor(result, 3).expectedCost(), 0.0);
    EXPECT_EQ(labelsOf(result), Labels({1, 3, 2}));
}

TEST(DecisionRule, DecidingForTheOnlyCategoryCostsNothing)
{
    ktClassifierCosts costs(7.0);
    costs.misclassificationCostOverride(5, 6, 9.0);
    const ktClassifierResult result = decide({match(5, 0.125)}, ktClassifierFrequencies(3.0), costs);
    ASSERT_EQ(result.categoryResults().size(), 1u);
    EXPECT_TRUE(result.categoryResults()[0] == CategoryResult(5, 0.125, 1.0, 0.0));
}

TEST(DecisionRule, IgnoresTheGivenClassScoresAndCosts)
{
    EXPECT_TRUE(decide({{1, 0.8, 0.1, 100.0}, {2, 0.2, 0.9, 0.0}}) == decide({match(1, 0.8), match(2, 0.2)}));
    EXPECT_TRUE(decide({unchecked(1, 0.8, NaN, -1.0), unchecked(2, 0.2, -4.0, NaN)}) ==
                decide({match(1, 0.8), match(2, 0.2)}));
}

TEST(DecisionRule, KeepsTheFactorWhateverItIs)
{
    for (const double factor : {-12.5, -0.0, -infinity}) {
        const ktClassifierResult result({match(1, 0.5)}, ktClassifierFrequencies(), ktClassifierCosts(), factor);
        EXPECT_EQ(result.matchScoreFactorLog(), factor);
    }
}

TEST(DecisionRule, CategoryWithoutAMatchIsAnEntryToo)
{
    const ktClassifierResult result = decide({match(1, 0.0), match(2, 0.5), match(3, 0.0)});
    EXPECT_EQ(labelsOf(result), Labels({2, 1, 3}));
    EXPECT_TRUE(entryFor(result, 1) == CategoryResult(1, 0.0, 0.0, 1.0));
    EXPECT_TRUE(entryFor(result, 2) == CategoryResult(2, 0.5, 1.0, 0.0));
}

TEST(DecisionRule, RefusesInTheOrderOfItsSteps)
{
    const auto noFrequencies = kt_test::load<ktClassifierFrequencies>(
        kt_test::store(static_cast<unsigned char>(0), 0.0, Labels(), std::vector<double>()));
    const auto negativeCosts = kt_test::load<ktClassifierCosts>(
        kt_test::store(static_cast<unsigned char>(0), -1.0, Labels(), Labels(), std::vector<double>()));
    const ktClassifierFrequencies equal;
    const ktClassifierCosts unit;
    struct Row {
        const char* label;
        CategoryResults matches;
        const ktClassifierFrequencies& frequencies;
        const ktClassifierCosts& costs;
        bool badLabel;
        const char* message;
    };
    const Row rows[] = {
        {"two of one label", {match(1, 0.5), match(2, 0.5), match(1, 0.5)}, equal, unit, false, notUnique},
        {"two of one label, no match", {match(1, 0.0), match(1, 0.0)}, equal, unit, false, notUnique},
        {"two of one negative label",
         {unchecked(-1, 0.5, 0.0, 0.0), unchecked(-1, 0.5, 0.0, 0.0)},
         equal,
         unit,
         false,
         notUnique},
        {"negative label", {match(1, 0.5), unchecked(-1, 0.5, 0.0, 0.0)}, equal, unit, true, negativeLabel},
        {"negative label, no frequency", {unchecked(-1, 0.5, 0.0, 0.0)}, noFrequencies, unit, true, negativeLabel},
        {"negative label, no match", {unchecked(-1, 0.0, 0.0, 0.0)}, equal, unit, true, negativeLabel},
        {"no results", {}, equal, unit, false, noFrequency},
        {"no frequency", {match(1, 0.5), match(2, 0.5)}, noFrequencies, unit, false, noFrequency},
        {"no frequency, no match", {match(1, 0.0)}, noFrequencies, unit, false, noFrequency},
        {"no match", {match(1, 0.0), match(2, 0.0)}, equal, unit, false, noMatch},
        {"no match, negative cost", {match(1, 0.0), match(2, 0.0)}, equal, negativeCosts, false, noMatch},
        {"match score above", {unchecked(1, 2.0, 0.0, 0.0)}, equal, unit, false, badScore},
        {"match score below", {match(1, 0.75), unchecked(2, -0.25, 0.0, 0.0)}, equal, unit, false, badScore},
        {"match score before cost",
         {unchecked(1, 2.0, 0.0, 0.0), match(2, 0.5)},
         equal,
         negativeCosts,
         false,
         badScore},
        {"cost", {match(1, 0.5), match(2, 0.5)}, equal, negativeCosts, false, negativeCost},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        ktClassifierResult result = untouchedResult();
        const auto make = [&] { result = ktClassifierResult(row.matches, row.frequencies, row.costs, 1.0); };
        row.badLabel ? expectRefused<BadLabel>(make, row.message) : expectRefused<BadParams>(make, row.message);
        EXPECT_TRUE(result == untouchedResult());
    }
}

TEST(DecisionRule, NanIsAnAnswerAndComesAfterEveryNumber)
{
    ktClassifierCosts infinite;
    infinite.misclassificationCostOverride(2, 1, infinity);
    // Label 2 has no posterior, so what deciding for 1 costs is infinity times 0.
    const ktClassifierResult result = decide({match(1, 1.0), match(2, 0.0), match(3, 0.0)}, {}, infinite);
    EXPECT_EQ(labelsOf(result), Labels({2, 3, 1}));
    EXPECT_TRUE(std::isnan(entryFor(result, 1).expectedCost()));
    EXPECT_EQ(entryFor(result, 2).expectedCost(), 1.0);

    const ktClassifierResult unknown = decide({match(4, NaN), match(2, 0.5), match(3, 0.5)});
    EXPECT_EQ(labelsOf(unknown), Labels({4, 2, 3})) << "all NaN, so the order given";
    for (const CategoryResult& entry : unknown.categoryResults()) {
        EXPECT_TRUE(std::isnan(entry.classScore()));
        EXPECT_TRUE(std::isnan(entry.expectedCost()));
    }
}

TEST(DecisionRule, InfiniteCostIsTheLastNumber)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(2, 1, infinity);
    const ktClassifierResult result = decide({match(1, 0.9), match(2, 0.1)}, {}, costs);
    EXPECT_EQ(labelsOf(result), Labels({2, 1}));
    EXPECT_EQ(entryFor(result, 1).expectedCost(), infinity);
}

TEST(DecisionRule, WhatACategoryAddsToTheCostsOfOthersIsNotInItsOwn)
{
    const ktClassifierCosts infinite(infinity);
    for (const std::size_t size : {2u, 3u, 15u, 16u, 17u, 32u, 33u, 50u}) {
        for (std::size_t unlikely = 0; unlikely < size; ++unlikely) {
            SCOPED_TRACE(testing::Message() << "category " << unlikely << " of " << size);
            CategoryResults matches;
            for (std::size_t i = 0; i < size; ++i) {
                matches.push_back(match(static_cast<long>(i), i == unlikely ? 0.0 : 1.0));
            }
            // Infinity times 0 is NaN.
            const ktClassifierResult result = decide(matches, {}, infinite);
            ASSERT_EQ(result.categoryResults().size(), size);
            for (const CategoryResult& entry : result.categoryResults()) {
                const bool isOwn = entry.categoryLabel() == static_cast<long>(unlikely);
                EXPECT_EQ(std::isnan(entry.expectedCost()), !isOwn) << entry.categoryLabel();
            }
        }
    }
}

/// One random decision: what the constructor is given, in its own terms and in plain ones.
struct RandomDecision {
    explicit RandomDecision(unsigned long seed) : random(seed)
    {
        const auto size = static_cast<std::size_t>(1 + random() % 40);
        while (labels.size() < size) {
            const long label = static_cast<long>(random() % 60);
            if (std::find(labels.begin(), labels.end(), label) == labels.end()) {
                labels.push_back(label);
                matches.push_back(match(label, random() % 4 == 0 ? 0.0 : uniform()));
            }
        }
        matches.front() = match(labels.front(), 0.25 + uniform() / 2);
        // Every third table is without overrides.
        const int overrides = seed % 3 == 0 ? 0 : 30;
        for (int i = 0; i < overrides; ++i) {
            const long from = static_cast<long>(random() % 60);
            const long to = static_cast<long>(random() % 60);
            frequency[from] = 0.001 + 10.0 * uniform();
            frequencies.categoryFrequencyOverride(from, frequency[from]);
            if (from != to) {
                cost[{from, to}] = random() % 5 == 0 ? 0.0 : 100.0 * uniform();
                costs.misclassificationCostOverride(from, to, cost[{from, to}]);
            }
        }
    }

    double frequencyOf(long label) const
    {
        const auto found = frequency.find(label);
        return found == frequency.end() ? defaultFrequency : found->second;
    }
    double costOf(long from, long to) const
    {
        const auto found = cost.find({from, to});
        return found == cost.end() ? defaultCost : found->second;
    }
    double uniform() { return static_cast<double>(random() >> 11) * 0x1p-53; }

    std::mt19937_64 random;
    Labels labels;
    CategoryResults matches;
    double defaultFrequency = 0.01 + uniform();
    double defaultCost = 5.0 * uniform();
    std::map<long, double> frequency;
    std::map<std::pair<long, long>, double> cost;
    ktClassifierFrequencies frequencies{defaultFrequency};
    ktClassifierCosts costs{defaultCost};
};

struct Decided {
    double classScore;
    double expectedCost;
};

/// The rule as it is written down, in numbers of type Real, in the order of the matches.
template <class Real, class Given>
std::vector<Decided> decideByHand(const Given& given)
{
    const std::size_t size = given.labels.size();
    Real frequencySum = 0;
    for (const long label : given.labels) {
        frequencySum += static_cast<Real>(given.frequencyOf(label));
    }
    std::vector<Real> posteriors;
    Real sum = 0;
    for (const CategoryResult& entry : given.matches) {
        const Real weighted =
            static_cast<Real>(entry.matchScore()) * static_cast<Real>(given.frequencyOf(entry.categoryLabel()));
        posteriors.push_back(weighted / frequencySum);
        sum += posteriors.back();
    }
    std::vector<Decided> decided;
    for (std::size_t j = 0; j < size; ++j) {
        Real cost = 0;
        for (std::size_t i = 0; i < size; ++i) {
            if (i != j) {
                cost += static_cast<Real>(given.costOf(given.labels[i], given.labels[j])) * posteriors[i];
            }
        }
        decided.push_back({static_cast<double>(posteriors[j] / sum), static_cast<double>(cost / sum)});
    }
    return decided;
}

TEST(DecisionRule, AgreesWithASecondImplementationOfHigherPrecision)
{
    for (unsigned long seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const RandomDecision given(seed);
        const std::vector<Decided> expected = decideByHand<long double>(given);
        const ktClassifierResult result = decide(given.matches, given.frequencies, given.costs);
        ASSERT_EQ(result.categoryResults().size(), expected.size());
        double classScoreSum = 0.0;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const CategoryResult& entry = entryFor(result, given.labels[i]);
            EXPECT_EQ(entry.matchScore(), given.matches[i].matchScore());
            EXPECT_NEAR(entry.classScore(), expected[i].classScore, 1e-13 * expected[i].classScore);
            EXPECT_NEAR(entry.expectedCost(), expected[i].expectedCost, 1e-13 * expected[i].expectedCost);
            classScoreSum += entry.classScore();
        }
        EXPECT_NEAR(classScoreSum, 1.0, 1e-14 * static_cast<double>(expected.size()));
    }
}

TEST(DecisionRule, KeepsTheOrderOfOperationsToTheLastBit)
{
    for (unsigned long seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const RandomDecision given(seed);
        const std::vector<Decided> expected = decideByHand<double>(given);
        CategoryResults decided;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            decided.emplace_back(given.labels[i], given.matches[i].matchScore(), expected[i].classScore,
                                 expected[i].expectedCost);
        }
        const ktClassifierResult result = decide(given.matches, given.frequencies, given.costs);
        for (const CategoryResult& entry : decided) {
            EXPECT_TRUE(entryFor(result, entry.categoryLabel()) == entry) << entry.categoryLabel();
        }
        EXPECT_EQ(labelsOf(result), expectedOrder(decided));
    }
}

/// Tables as only an archive brings them: pairs and labels named several times, by themselves or below 0, and sequences of
/// different lengths. Both tables' own look-ups are the plain ones.
struct DamagedTables {
    explicit DamagedTables(unsigned long seed, std::size_t numLabels) : random(seed)
    {
        while (labels.size() < numLabels) {
            const long label = static_cast<long>(random() % (2 * numLabels));
            if (std::find(labels.begin(), labels.end(), label) == labels.end()) {
                labels.push_back(label);
                matches.push_back(match(label, uniform()));
            }
        }
        const auto any = [&] { return static_cast<long>(random() % (2 * numLabels + 1)) - 1; };
        const std::size_t numOverrides = 8 + numLabels * numLabels;
        std::vector<long> from, to, frequent;
        std::vector<double> mistakes, shares;
        for (std::size_t i = 0; i < numOverrides; ++i) {
            from.push_back(any());
            to.push_back(any());
            mistakes.push_back(10.0 * uniform());
            frequent.push_back(any());
            shares.push_back(0.01 + uniform());
        }
        (seed % 3 == 0 ? from : seed % 3 == 1 ? to : frequent).resize(numOverrides - 3);
        (seed % 2 == 0 ? mistakes : shares).resize(numOverrides - 5);
        const auto version = static_cast<unsigned char>(0);
        costs = kt_test::load<ktClassifierCosts>(kt_test::store(version, 0.5, from, to, mistakes));
        frequencies = kt_test::load<ktClassifierFrequencies>(kt_test::store(version, 0.25, frequent, shares));
    }

    double frequencyOf(long label) const { return frequencies.categoryFrequency(label); }
    double costOf(long from, long to) const { return costs.misclassificationCost(from, to); }
    double uniform() { return static_cast<double>(random() >> 11) * 0x1p-53; }

    std::mt19937_64 random;
    Labels labels;
    CategoryResults matches;
    ktClassifierFrequencies frequencies;
    ktClassifierCosts costs;
};

TEST(DecisionRule, TakesTheFirstOverrideOfAPairFromAnyTable)
{
    for (const std::size_t numLabels : {1u, 2u, 7u, 31u, 32u, 33u, 50u}) {
        for (unsigned long seed = 1; seed <= 12; ++seed) {
            SCOPED_TRACE(testing::Message() << numLabels << " labels, seed " << seed);
            const DamagedTables given(seed, numLabels);
            const std::vector<Decided> expected = decideByHand<double>(given);
            const ktClassifierResult result = decide(given.matches, given.frequencies, given.costs);
            for (std::size_t i = 0; i < expected.size(); ++i) {
                EXPECT_TRUE(entryFor(result, given.labels[i]) ==
                            CategoryResult(given.labels[i], given.matches[i].matchScore(), expected[i].classScore,
                                           expected[i].expectedCost));
            }
        }
    }
}

TEST(DecisionRule, FindsARepeatedLabelAnywhereAmongMany)
{
    for (const std::size_t size : {2u, 32u, 33u, 200u}) {
        CategoryResults results;
        for (std::size_t i = 0; i < size; ++i) {
            results.emplace_back(static_cast<long>(i * 73 % 211), 0.5, 0.5, 1.0);
        }
        EXPECT_NO_THROW(decide(results));
        EXPECT_NO_THROW(ktClassifierResult(results, 0.0));
        for (const std::size_t i : {std::size_t{1}, size / 2, size - 1}) {
            SCOPED_TRACE(testing::Message() << size << " entries, the first label again at " << i);
            CategoryResults repeated = results;
            repeated[i] = unchecked(results[0].categoryLabel(), 2.0, -1.0, -1.0);
            expectRefused<BadParams>([&] { decide(repeated); }, notUnique);
            expectRefused<BadParams>([&] { ktClassifierResult(repeated, 0.0); }, notUnique);
        }
    }
}

CategoryResults manyMatches(long size)
{
    CategoryResults matches;
    for (long i = 0; i < size; ++i) {
        matches.push_back(match(i, 1.0 / static_cast<double>(i + 1)));
    }
    return matches;
}

TEST(DecisionRule, PollsTheAttentionCheckOncePerCategory)
{
    for (const long size : {1L, 2L, 5L, 32L, 40L}) {
        const CategoryResults matches = manyMatches(size);
        const Attention attention;
        decide(matches);
        EXPECT_EQ(attention.polls(), size);
    }
}

TEST(DecisionRule, EachPollCanAbortIt)
{
    for (const long size : {1L, 5L, 40L}) {
        const CategoryResults matches = manyMatches(size);
        for (long n = 1; n <= size; ++n) {
            SCOPED_TRACE(testing::Message() << "poll " << n << " of " << size);
            ktClassifierResult result = untouchedResult();
            const Attention attention(n, kt_test::abortStatus);
            expectRefused<ktFailure>([&] { result = decide(matches); }, kt_test::abortMessage);
            EXPECT_EQ(attention.polls(), n);
            EXPECT_TRUE(result == untouchedResult());
        }
    }
}

TEST(DecisionRule, StatusOfAKnownGroupIsRaisedAsItsOwnError)
{
    const Attention attention(2, static_cast<long>(0x80000B61UL));
    expectRefused<ktClassifierDefs::InsufficientTrainData>([] { decide(manyMatches(3)); },
                                                           "No valid data has been used to train the distribution");
}

TEST(DecisionRule, StatusThatIsNoFailureGoesOn)
{
    const Attention attention(2, 1);
    EXPECT_EQ(decide(manyMatches(3)).categoryResults().size(), 3u);
    EXPECT_EQ(attention.polls(), 3);
}

TEST(DecisionRule, PollsBetweenTheFrequenciesAndTheMatches)
{
    const Attention attention(1, kt_test::abortStatus);
    expectRefused<BadParams>([] { decide({match(1, 0.5), match(1, 0.5)}); }, notUnique);
    expectRefused<BadLabel>([] { decide({unchecked(-1, 0.5, 0.0, 0.0)}); }, negativeLabel);
    expectRefused<BadParams>([] { decide({}); }, noFrequency);
    EXPECT_EQ(attention.polls(), 0);
    expectRefused<ktFailure>([] { decide({match(1, 0.0)}); }, kt_test::abortMessage);
    expectRefused<BadParams>([] { decide({match(1, 0.0), match(2, 0.0)}); }, noMatch);
    EXPECT_EQ(attention.polls(), 3);
}

TEST(PlainResult, DoesNotPoll)
{
    const Attention attention(1, kt_test::abortStatus);
    EXPECT_NO_THROW(ktClassifierResult({{1, 0.5, 0.5, 0.0}, {2, 0.5, 0.5, 0.0}}, 0.0));
    EXPECT_EQ(attention.polls(), 0);
}

TEST(ClassifierResult, IsArchivedAsVersionEntriesFactor)
{
    const ktClassifierResult result({{3, 0.5, 0.75, 1.0}, {1, 0.25, 0.25, 0.5}}, -12.5);
    const CategoryResults sorted = {{1, 0.25, 0.25, 0.5}, {3, 0.5, 0.75, 1.0}};
    EXPECT_EQ(kt_test::toHex(kt_test::store(result)),
              kt_test::toHex(kt_test::store(static_cast<unsigned char>(0), sorted, -12.5)));
}

TEST(ClassifierResult, LoadingKeepsTheStoredOrderAndValidatesNothing)
{
    const CategoryResults entries = {{5, 0.5, 0.75, 9.0}, {4, 0.5, 0.75, 3.0}, {5, 0.5, 0.0, 6.0}};
    const auto result = kt_test::load<ktClassifierResult>(kt_test::store(static_cast<unsigned char>(0), entries, 2.0));
    EXPECT_EQ(result.categoryResults(), entries) << "neither sorted nor unique nor divided by the sum";
    EXPECT_EQ(result.matchScoreFactorLog(), 2.0);
    const auto empty =
        kt_test::load<ktClassifierResult>(kt_test::store(static_cast<unsigned char>(0), CategoryResults(), NaN));
    EXPECT_TRUE(empty.categoryResults().empty());
    EXPECT_TRUE(std::isnan(empty.matchScoreFactorLog()));
}

}  // namespace
