#include "scores.h"

namespace {

using namespace kt_test;
using ktClassifierDefs::NotTrained;
using FeatureVector = ktClassifierFeatureVector;
using Ignore = ktClassifierFeatureScoreIgnore;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;
using Rules = std::vector<ktClassifierRule>;

TEST(RuleTable, NewOneHasNoRules)
{
    const ktClassifierRuleTable fresh;
    EXPECT_TRUE(fresh.rules().empty());
    EXPECT_TRUE((std::is_same_v<decltype(fresh.rules()), const Rules&>));
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, ktClassifierRuleTable>));
}

TEST(RuleTable, TrainReplacesTheRulesInTheirOrder)
{
    const Rules first = {rule(constants({0.1}), 3), rule(constants({0.2}), 1), rule(constants({0.3}), 2)};
    ktClassifierRuleTable trained = table(first);
    EXPECT_EQ(trained.rules(), first);
    const Rules second = {rule(constants({0.5, 0.6}), 9)};
    trained.train(second);
    EXPECT_EQ(trained.rules(), second);
    trained.train(trained.rules());
    EXPECT_EQ(trained.rules(), second) << "its own";
}

TEST(RuleTable, LabelsNeedNotDiffer)
{
    const Rules rules = {rule(constants({0.1}), 7), rule(constants({0.9}), 7), rule(constants({0.1}), 7)};
    EXPECT_EQ(table(rules).rules(), rules);
    EXPECT_EQ(table(rules).classifyHardThreshold(anyValues(1), 0.5), 7);
}

TEST(RuleTable, TrainRefusesNoRulesAndUnequalWidthsAndChangesNothing)
{
    const ktClassifierRule one = rule(constants({0.1}), 1);
    const ktClassifierRule two = rule(constants({0.1, 0.2}), 1);
    const ktClassifierRule three = rule(constants({0.1, 0.2, 0.3}), 1);
    const char* unequalWidths = "rules[i].scoringMethods().size() != ruleSize";
    struct Row {
        const char* what;
        Rules rules;
        const char* message;
    };
    const Row rows[] = {
        {"none", {}, "rules.size() == 0"},
        {"the last differs", {three, three, two}, unequalWidths},
        {"the second differs", {one, two, one}, unequalWidths},
        {"a rule without functions", {one, ktClassifierRule()}, unequalWidths},
        {"after a rule without functions", {ktClassifierRule(), one}, unequalWidths},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        ktClassifierRuleTable unchanged = table({two, two});
        expectBadParams(row.message, [&] { unchanged.train(row.rules); });
        EXPECT_EQ(unchanged.rules(), (Rules{two, two}));
        ktClassifierRuleTable untrained;
        expectBadParams(row.message, [&] { untrained.train(row.rules); });
        EXPECT_TRUE(untrained.rules().empty());
    }
}

TEST(RuleTable, KeptOnPurposeTheIOfTheMessageIsNotReplaced)
{
    ktClassifierRuleTable untrained;
    const ktClassifierRule one = rule(constants({0.1}), 1);
    expectBadParams("rules[i].scoringMethods().size() != ruleSize", [&] {
        untrained.train({one, one, one, ktClassifierRule()});
    });
}

TEST(RuleTable, KeptOnPurposeTheMessageOfAnotherWidthEndsInAParenthesisTooMany)
{
    expectBadParams("featureVector.featureValues().size() != rules_[0].scoringMethods().size())",
                    [] { tableOfScores({0.9}).classifyHardThreshold(anyValues(2), 0.5); });
}

TEST(RuleTable, RulesWithoutFunctionsCanBeTrainedButClassifyNothing)
{
    const ktClassifierRuleTable empty = table({ktClassifierRule(), ktClassifierRule()});
    expectBadParams("featureVector.featureValues().size() == 0",
                    [&] { empty.classifyHardThreshold(anyValues(0), 0.5); });
    expectBadParams("featureVector.featureValues().size() != rules_[0].scoringMethods().size())",
                    [&] { empty.classifyHardThreshold(anyValues(1), 0.5); });
}

TEST(RuleTable, ClassifyChecksTheThresholdThenTheTableThenTheValues)
{
    const char* badThreshold = "hardThreshold < 0 || hardThreshold > 1";
    const char* notTrained = "the rule table needs to be trained before it can classify";
    const char* noValues = "featureVector.featureValues().size() == 0";
    const char* otherWidth = "featureVector.featureValues().size() != rules_[0].scoringMethods().size())";
    const ktClassifierRuleTable untrained;
    const ktClassifierRuleTable trained = table({rule(constants({0.1, 0.2, 0.3}), 1)});
    for (const double threshold : {-1.0, -tiny, std::nextafter(1.0, 2.0), 1.5, infinity, -infinity, NaN}) {
        for (const std::size_t size : {0u, 2u, 3u}) {
            expectBadParams(badThreshold, [&] { untrained.classifyHardThreshold(anyValues(size), threshold); });
            expectBadParams(badThreshold, [&] { trained.classifyHardThreshold(anyValues(size), threshold); });
        }
    }
    for (const double threshold : {0.0, -0.0, 0.5, 1.0}) {
        for (const std::size_t size : {0u, 2u}) {
            expectThrows<NotTrained>(notTrained, [&] { untrained.classifyHardThreshold(anyValues(size), threshold); });
        }
        expectBadParams(noValues, [&] { trained.classifyHardThreshold(anyValues(0), threshold); });
        for (const std::size_t size : {1u, 2u, 4u}) {
            expectBadParams(otherWidth, [&] { trained.classifyHardThreshold(anyValues(size), threshold); });
        }
    }
}

TEST(RuleTable, FirstRuleAboveTheThresholdGivesTheLabel)
{
    const double half = 0.5;
    struct Row {
        std::vector<double> scores;
        double threshold;
        long label;
    };
    const Row rows[] = {
        {{0.9, 0.9}, half, 10},
        {{0.6, 0.9}, half, 10},
        {{0.4, 0.9, 0.95}, half, 11},
        {{0.4, 0.3}, half, -1},
        {{half}, half, -1},
        {{half, std::nextafter(half, 1.0)}, half, 11},
        {{0.0}, 0.0, -1},
        {{0.0, tiny}, 0.0, 11},
        {{tiny}, -0.0, 10},
        {{1.0, 1.0}, 1.0, -1},
        {{1.0}, std::nextafter(1.0, 0.0), 10},
        {{-0.5, 0.5}, 0.0, 11},
        {{-1.0}, std::nextafter(1.0, 0.0), 10},  // all left out: scores 1
    };
    for (const Row& row : rows) {
        EXPECT_EQ(tableOfScores(row.scores).classifyHardThreshold(anyValues(1), row.threshold), row.label)
            << ::testing::PrintToString(row.scores) << " against " << row.threshold;
    }
}

TEST(RuleTable, RuleThatScoresNanDoesNotPass)
{
    const ktClassifierRuleTable trained = table({rule(constants({0.0, infinity}), 1), rule(constants({0.5, 0.5}), 2)});
    EXPECT_EQ(trained.classifyHardThreshold(anyValues(2), 0.0), 2);
}

TEST(RuleTable, NoRuleIsScoredAfterOneThatPasses)
{
    const ktPtrHandle<Constant> low(new Constant(0.2));
    const ktPtrHandle<Constant> high(new Constant(0.8));
    const ktPtrHandle<Constant> later(new Constant(0.9));
    const ktClassifierRuleTable trained =
        table({rule({low}, 1), rule({high}, 2), rule({later}, 3), rule({nullptr}, 4)});
    EXPECT_EQ(trained.classifyHardThreshold(anyValues(1), 0.5), 2);
    EXPECT_EQ(low->timesAsked(), 1);
    EXPECT_EQ(high->timesAsked(), 1);
    EXPECT_EQ(later->timesAsked(), 0);
    expectBadPointer([&] { trained.classifyHardThreshold(anyValues(1), 0.95); });
    EXPECT_EQ(later->timesAsked(), 1) << "none passed before the null one";
}

TEST(RuleTable, FailuresOfScoringFunctionsPassThrough)
{
    const ktPtrHandle<OneSided> bad(new OneSided);
    bad->x1(5.0);
    const ktPtrHandle<TwoSided> split(new TwoSided);
    split->x0(1.0);
    const auto classify = [](const kt_test::ScoreHandle& function) {
        table({rule({new Constant(0.1)}, 1), rule({function}, 2)}).classifyHardThreshold(anyValues(1), 0.5);
    };
    expectBadParams("x1 must lie between x0 and xc", [&] { classify(bad); });
    expectBadParams("Bad x values", [&] { classify(split); });
    expectBadPointer([&] { classify(nullptr); });
}

/// Scoring functions of all kinds with breakpoints on a small grid.
kt_test::ScoreHandle randomFunction(std::mt19937& random)
{
    std::uniform_int_distribution<int> anyX(-3, 3);
    std::uniform_int_distribution<int> anyY(0, 4);
    std::vector<double> x(6);
    std::generate(x.begin(), x.end(), [&] { return 1.0 * anyX(random); });
    std::sort(x.begin(), x.end());
    const double y[] = {anyY(random) / 4.0, anyY(random) / 4.0, anyY(random) / 4.0, anyY(random) / 4.0};
    switch (anyY(random)) {
    case 0:
        return new Ignore;
    case 1:
        return new OneSided(oneSided(x[0], x[2], x[5], y[0], y[1]));
    case 2:
        return new OneSided(oneSided(x[5], x[2], x[0], y[0], y[1]));
    default:
        auto* twoSided = new TwoSided;
        twoSided->init(x[0], x[1], x[2], x[5], x[4], x[3], y[0], y[1], y[2], y[3]);
        return twoSided;
    }
}

/// The label by the text of the definition: all rules scored as products of powers, then the first one above.
long bruteForce(const Rules& rules, const std::vector<double>& values, double threshold)
{
    std::vector<long> passing;
    for (const ktClassifierRule& one : rules) {
        std::vector<double> counted;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double score = one.scoringMethods()[i]->score(values[i]);
            if (score >= 0.0) {
                counted.push_back(score);
            }
        }
        double product = 1.0;
        for (const double score : counted) {
            product *= score;
        }
        // Against the power of the threshold instead of the root of the product. Breakpoints and values are such that the
        // two sides are never equal unless both are 0, or the product is 1.
        if (product > std::pow(threshold, static_cast<double>(counted.size()))) {
            passing.push_back(one.label());
        } else if (counted.empty() && threshold < 1.0) {
            passing.push_back(one.label());
        }
    }
    return passing.empty() ? -1 : passing.front();
}

TEST(RuleTable, ClassifiesLikeTheDefinitionOnRandomTables)
{
    std::mt19937 random(11);
    std::uniform_int_distribution<std::size_t> anySize(1, 4);
    std::uniform_int_distribution<int> anyValue(-16, 16);
    std::map<long, int> seen;
    for (int round = 0; round < 500; ++round) {
        const std::size_t width = anySize(random);
        Rules rules(anySize(random));
        for (std::size_t r = 0; r < rules.size(); ++r) {
            kt_test::ScoreHandles functions(width);
            std::generate(functions.begin(), functions.end(), [&] { return randomFunction(random); });
            rules[r].init(functions, static_cast<long>(r));
        }
        const ktClassifierRuleTable trained = table(rules);
        for (int i = 0; i < 20; ++i) {
            std::vector<double> values(width);
            std::generate(values.begin(), values.end(), [&] { return anyValue(random) / 4.0; });
            for (const double threshold : {0.0, 0.3141592653589793, 0.7310585786300049, 1.0}) {
                const long expected = bruteForce(rules, values, threshold);
                ASSERT_EQ(trained.classifyHardThreshold(FeatureVector(values), threshold), expected)
                    << "round " << round << ", " << ::testing::PrintToString(values) << " against " << threshold;
                ++seen[expected];
            }
        }
    }
    for (long label = -1; label < 4; ++label) {
        EXPECT_GT(seen[label], 100) << "label " << label << " is too rare to test anything";
    }
}

TEST(RuleTable, CopiesShareTheScoringFunctions)
{
    const ktPtrHandle<OneSided> function(new OneSided);
    ktClassifierRuleTable original;
    original.train({rule({function}, 3)});
    const ktClassifierRuleTable copy(original);
    ktClassifierRuleTable assigned = tableOfScores({0.1, 0.2});
    EXPECT_EQ(&(assigned = original), &assigned);
    EXPECT_EQ(function->refCount(), 4) << "this handle and three tables";
    function->init(0, 1, 1, 0, 0.25);
    for (const auto* each : std::initializer_list<const ktClassifierRuleTable*>{&original, &copy, &assigned}) {
        EXPECT_EQ(each->classifyHardThreshold(FeatureVector(std::vector<double>{1.0}), 0.2), 3);
        EXPECT_EQ(each->classifyHardThreshold(FeatureVector(std::vector<double>{1.0}), 0.3), -1);
    }
    original.train({rule(constants({1.0}), 5)});
    EXPECT_EQ(copy.rules().front().label(), 3);
    EXPECT_EQ(assigned.rules().front().label(), 3);
    EXPECT_EQ(function->refCount(), 3);
}

TEST(RuleTable, MovedAndSelfAssignedTableKeepsItsRules)
{
    ktClassifierRuleTable original = tableOfScores({0.1, 0.2});
    const ktClassifierRuleTable& same = original;
    original = same;
    EXPECT_EQ(original, tableOfScores({0.1, 0.2}));
    ktClassifierRuleTable moved;
    moved = std::move(original);
    EXPECT_EQ(moved, tableOfScores({0.1, 0.2}));
}

TEST(RuleTable, EqualityComparesTheRulesInOrder)
{
    const ktClassifierRuleTable original = tableOfScores({0.1, 0.2});
    EXPECT_TRUE(original == tableOfScores({0.1, 0.2}));
    EXPECT_FALSE(original != tableOfScores({0.1, 0.2}));
    EXPECT_TRUE(ktClassifierRuleTable() == ktClassifierRuleTable());
    const ktClassifierRuleTable different[] = {tableOfScores({0.2, 0.1}), tableOfScores({0.1}),
                                               tableOfScores({0.1, 0.2, 0.3}), tableOfScores({0.1, 0.25}),
                                               ktClassifierRuleTable()};
    for (const ktClassifierRuleTable& other : different) {
        EXPECT_FALSE(original == other);
        EXPECT_FALSE(other == original);
        EXPECT_TRUE(original != other);
    }
}

TEST(RuleTable, EqualityOfNullScoringFunctionsIsRefused)
{
    const ktClassifierRuleTable null = table({rule({nullptr}, 1)});
    expectBadPointer([&] { static_cast<void>(null == null); });
    EXPECT_FALSE(null == ktClassifierRuleTable()) << "their numbers differ";
}

TEST(RuleTable, ClassifyingAllocatesNothing)
{
    const ktClassifierRuleTable trained = tableOfScores({0.1, 0.2, 0.9});
    const FeatureVector values = anyValues(1);
    EXPECT_EQ(kt_test::allocationsDuring([&] { trained.classifyHardThreshold(values, 0.5); }), 0);
}

}  // namespace
