#include "values_kit.h"

namespace {

using namespace kt_test;
using ktClassifierDefs::BadLabel;
using ktClassifierDefs::BadParams;

TEST(Costs, NewTableGivesOneForEveryPairOfDifferentLabels)
{
    const ktClassifierCosts costs;
    EXPECT_EQ(costs.defaultMisclassificationCost(), 1.0);
    EXPECT_EQ(costs.misclassificationCost(0, 1), 1.0);
    EXPECT_EQ(costs.misclassificationCost(7, 3), 1.0);
    EXPECT_EQ(costs.misclassificationCost(0, LONG_MAX), 1.0);
    EXPECT_TRUE(costs == ktClassifierCosts(1.0));
}

TEST(Costs, AnyDefaultThatIsNotNegativeIsTaken)
{
    for (const double cost : {0.0, -0.0, 2.5, std::numeric_limits<double>::denorm_min(), infinity}) {
        EXPECT_EQ(ktClassifierCosts(cost).misclassificationCost(0, 1), cost);
        ktClassifierCosts costs;
        costs.defaultMisclassificationCost(cost);
        EXPECT_EQ(costs.defaultMisclassificationCost(), cost);
    }
}

TEST(Costs, NanPassesTheComparisonWithZero)
{
    ktClassifierCosts costs(NaN);
    EXPECT_TRUE(std::isnan(costs.misclassificationCost(0, 1)));
    costs.defaultMisclassificationCost(NaN);
    costs.misclassificationCostOverride(0, 1, NaN);
    EXPECT_TRUE(std::isnan(costs.misclassificationCost(0, 1)));
    EXPECT_FALSE(costs == ktClassifierCosts(costs));
}

TEST(Costs, NegativeDefaultIsRefused)
{
    for (const double cost : {-1.0, -infinity, -std::numeric_limits<double>::denorm_min()}) {
        expectRefused<BadParams>([cost] { ktClassifierCosts refused(cost); }, negativeCost);
        ktClassifierCosts costs = overriddenCosts();
        expectRefused<BadParams>([&] { costs.defaultMisclassificationCost(cost); }, negativeCost);
        EXPECT_TRUE(costs == overriddenCosts());
    }
}

TEST(Costs, DefaultIsChangedWithoutTouchingTheOverrides)
{
    ktClassifierCosts costs = overriddenCosts();
    costs.defaultMisclassificationCost(6.0);
    EXPECT_EQ(costs.misclassificationCost(0, 2), 6.0);
    EXPECT_EQ(costs.misclassificationCost(0, 1), 10.0);
    EXPECT_EQ(costs.misclassificationCost(1, 0), 4.0);
}

TEST(Costs, EachDirectionIsAnEntryOfItsOwn)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, 5.0);
    EXPECT_EQ(costs.misclassificationCost(0, 1), 5.0);
    EXPECT_EQ(costs.misclassificationCost(1, 0), 1.0);
    EXPECT_EQ(costs.misclassificationCost(0, 2), 1.0);
    EXPECT_EQ(costs.misclassificationCost(2, 1), 1.0);
}

TEST(Costs, SecondOverrideOfAPairReplacesTheFirst)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, 5.0);
    costs.misclassificationCostOverride(0, 1, 7.0);
    EXPECT_EQ(costs.misclassificationCost(0, 1), 7.0);
    EXPECT_EQ(costs.misclassificationCost(1, 0), 1.0);
    EXPECT_EQ(kt_test::toHex(kt_test::store(costs)), kt_test::toHex(craftedCosts(1.0, {0}, {1}, {7.0}))) << "one entry";
}

TEST(Costs, OverrideKeepsItsPlaceWhenReplaced)
{
    ktClassifierCosts costs = overriddenCosts();
    costs.misclassificationCostOverride(0, 1, 11.0);
    EXPECT_EQ(kt_test::toHex(kt_test::store(costs)), kt_test::toHex(craftedCosts(2.5, {0, 1}, {1, 0}, {11.0, 4.0})));
}

TEST(Costs, OverrideOfZeroIsTaken)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, 0.0);
    EXPECT_EQ(costs.misclassificationCost(0, 1), 0.0);
}

TEST(Costs, OverrideChecksTheCostThenTheDifferenceThenTheLabels)
{
    struct Row {
        const char* label;
        long trueLabel;
        long assignedLabel;
        double cost;
        bool badParams;
        const char* message;
    };
    const Row rows[] = {
        {"negative cost", 0, 1, -1.0, true, negativeCost},
        {"negative cost of an entry", 0, 1, -infinity, true, negativeCost},
        {"negative cost, equal labels", 2, 2, -1.0, true, negativeCost},
        {"negative cost, negative labels", -1, -2, -1.0, true, negativeCost},
        {"equal labels", 2, 2, 1.0, false, equalLabels},
        {"equal negative labels", -1, -1, 1.0, false, equalLabels},
        {"negative true label", -1, 2, 1.0, false, negativeLabel},
        {"negative assigned label", 2, -1, 1.0, false, negativeLabel},
        {"two negative labels", LONG_MIN, -1, 1.0, false, negativeLabel},
        {"negative label, NaN", 0, -1, NaN, false, negativeLabel},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        ktClassifierCosts costs = overriddenCosts();
        const auto set = [&] { costs.misclassificationCostOverride(row.trueLabel, row.assignedLabel, row.cost); };
        row.badParams ? expectRefused<BadParams>(set, row.message) : expectRefused<BadLabel>(set, row.message);
        EXPECT_TRUE(costs == overriddenCosts());
    }
}

TEST(Costs, LookUpChecksTheDifferenceThenTheLabels)
{
    struct Row {
        const char* label;
        long trueLabel;
        long assignedLabel;
        const char* message;
    };
    const Row rows[] = {
        {"equal", 3, 3, equalLabels},
        {"equal and negative", -1, -1, equalLabels},
        {"true label negative", -1, 0, negativeLabel},
        {"assigned label negative", 0, -1, negativeLabel},
        {"both negative", -1, LONG_MIN, negativeLabel},
    };
    const ktClassifierCosts costs = overriddenCosts();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        expectRefused<BadLabel>(
            [&] { static_cast<void>(costs.misclassificationCost(row.trueLabel, row.assignedLabel)); }, row.message);
    }
    EXPECT_TRUE(costs == overriddenCosts());
}

TEST(Costs, ClearingTheOverridesKeepsTheDefault)
{
    ktClassifierCosts costs = overriddenCosts();
    costs.clearMisclassificationOverrides();
    EXPECT_EQ(costs.defaultMisclassificationCost(), 2.5);
    EXPECT_EQ(costs.misclassificationCost(0, 1), 2.5);
    EXPECT_TRUE(costs == ktClassifierCosts(2.5));
}

TEST(Costs, OverridesAreComparedInTheOrderOfTheirEntry)
{
    // Kept on purpose: the two tables answer alike.
    ktClassifierCosts reversed(2.5);
    reversed.misclassificationCostOverride(1, 0, 4.0);
    reversed.misclassificationCostOverride(0, 1, 10.0);
    EXPECT_FALSE(reversed == overriddenCosts());
    EXPECT_TRUE(reversed != overriddenCosts());
}

TEST(Costs, EqualityLooksAtEveryField)
{
    const std::vector<std::function<void(ktClassifierCosts&)>> changes = {
        [](ktClassifierCosts& costs) { costs.defaultMisclassificationCost(std::nextafter(2.5, 3.0)); },
        [](ktClassifierCosts& costs) { costs.misclassificationCostOverride(0, 1, std::nextafter(10.0, 11.0)); },
        [](ktClassifierCosts& costs) { costs.misclassificationCostOverride(2, 1, 10.0); },
        [](ktClassifierCosts& costs) { costs.clearMisclassificationOverrides(); },
        [](ktClassifierCosts& costs) {
            kt_test::loadInto(costs, craftedCosts(2.5, {5, 1}, {1, 0}, {10.0, 4.0}));
        },
        [](ktClassifierCosts& costs) {
            kt_test::loadInto(costs, craftedCosts(2.5, {0, 1}, {5, 0}, {10.0, 4.0}));
        },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        ktClassifierCosts costs = overriddenCosts();
        EXPECT_TRUE(costs == overriddenCosts());
        EXPECT_FALSE(costs != overriddenCosts());
        changes[i](costs);
        EXPECT_FALSE(costs == overriddenCosts()) << i;
        EXPECT_FALSE(overriddenCosts() == costs) << i;
        EXPECT_TRUE(costs != overriddenCosts()) << i;
    }
}

TEST(Costs, AreArchivedAsVersionDefaultFromLabelsToLabelsCosts)
{
    EXPECT_EQ(kt_test::toHex(kt_test::store(overriddenCosts())),
              kt_test::toHex(craftedCosts(2.5, {0, 1}, {1, 0}, {10.0, 4.0})));
}

TEST(Costs, LoadingReplacesTheWholeTableAndDoesNotValidateIt)
{
    ktClassifierCosts costs = overriddenCosts();
    kt_test::loadInto(costs, craftedCosts(-3.0, {4, -1}, {4, 2}, {-9.0, NaN}));
    EXPECT_EQ(costs.defaultMisclassificationCost(), -3.0);
    EXPECT_EQ(costs.misclassificationCost(0, 1), -3.0);
    expectRefused<BadLabel>([&] { static_cast<void>(costs.misclassificationCost(4, 4)); }, equalLabels);
    expectRefused<BadLabel>([&] { static_cast<void>(costs.misclassificationCost(-1, 2)); }, negativeLabel);
}

TEST(Costs, LoadedSequencesOfDifferentLengthsStaySafe)
{
    struct Row {
        const char* label;
        Labels from;
        Labels to;
        Doubles costs;
        double expected;
    };
    // The pair (0, 1) is entry 1 where all three sequences reach that far.
    const Row rows[] = {
        {"costs too short", {2, 0}, {3, 1}, {5.0}, 2.0},        {"from labels too short", {2}, {3, 1}, {5.0, 6.0}, 2.0},
        {"to labels too short", {2, 0}, {3}, {5.0, 6.0}, 2.0},  {"no costs", {2, 0}, {3, 1}, {}, 2.0},
        {"costs longer", {2, 0}, {3, 1}, {5.0, 6.0, 7.0}, 6.0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        auto costs = kt_test::load<ktClassifierCosts>(craftedCosts(2.0, row.from, row.to, row.costs));
        EXPECT_EQ(costs.misclassificationCost(0, 1), row.expected);
        EXPECT_TRUE(costs == kt_test::storedAndLoaded(costs));
        costs.misclassificationCostOverride(0, 1, 8.0);
        costs.misclassificationCostOverride(4, 5, 9.0);
        EXPECT_NO_THROW(static_cast<void>(costs.misclassificationCost(4, 5)));
        costs.clearMisclassificationOverrides();
        EXPECT_TRUE(costs == ktClassifierCosts(2.0));
    }
}

#if LONG_MAX > 2147483647L
TEST(Costs, LabelThatDoesNotFit32BitsIsNotStored)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(2147483648L, 1, 1.0);
    kt_test::expectThrows<ktArchive::OutOfRange>("Archive value out of range: 2147483648 does not fit 32 bits.",
                                                 [&] { kt_test::store(costs); });
    EXPECT_EQ(costs.misclassificationCost(2147483648L, 1), 1.0);
}
#endif

TEST(Costs, WhatNeedsNoMemoryTakesNone)
{
    ktClassifierCosts costs = overriddenCosts();
    EXPECT_EQ(kt_test::allocationsDuring([&] {
                  costs.misclassificationCostOverride(0, 1, 3.0);
                  costs.defaultMisclassificationCost(3.0);
                  static_cast<void>(costs.misclassificationCost(0, 1));
                  static_cast<void>(costs == costs);
                  costs.clearMisclassificationOverrides();
              }),
              0);
}

}  // namespace
