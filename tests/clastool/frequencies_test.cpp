#include "values_kit.h"

namespace {

using namespace kt_test;
using ktClassifierDefs::BadLabel;
using ktClassifierDefs::BadParams;

TEST(Frequencies, NewTableGivesOneForEveryLabel)
{
    const ktClassifierFrequencies frequencies;
    EXPECT_EQ(frequencies.defaultCategoryFrequency(), 1.0);
    EXPECT_EQ(frequencies.categoryFrequency(0), 1.0);
    EXPECT_EQ(frequencies.categoryFrequency(LONG_MAX), 1.0);
    EXPECT_TRUE(frequencies == ktClassifierFrequencies(1.0));
}

TEST(Frequencies, AnyPositiveDefaultIsTaken)
{
    for (const double frequency : {2.5, std::numeric_limits<double>::denorm_min(), infinity}) {
        EXPECT_EQ(ktClassifierFrequencies(frequency).categoryFrequency(7), frequency);
        ktClassifierFrequencies frequencies;
        frequencies.defaultCategoryFrequency(frequency);
        EXPECT_EQ(frequencies.defaultCategoryFrequency(), frequency);
    }
}

TEST(Frequencies, NanPassesTheComparisonWithZero)
{
    ktClassifierFrequencies frequencies(NaN);
    EXPECT_TRUE(std::isnan(frequencies.categoryFrequency(0)));
    frequencies.defaultCategoryFrequency(NaN);
    frequencies.categoryFrequencyOverride(0, NaN);
    EXPECT_TRUE(std::isnan(frequencies.categoryFrequency(0)));
    EXPECT_FALSE(frequencies == ktClassifierFrequencies(frequencies));
}

TEST(Frequencies, DefaultThatIsNotPositiveIsRefused)
{
    for (const double frequency : {0.0, -0.0, -1.0, -infinity}) {
        SCOPED_TRACE(frequency);
        expectRefused<BadParams>([frequency] { ktClassifierFrequencies refused(frequency); }, notPositive);
        ktClassifierFrequencies frequencies = overriddenFrequencies();
        expectRefused<BadParams>([&] { frequencies.defaultCategoryFrequency(frequency); }, notPositive);
        EXPECT_TRUE(frequencies == overriddenFrequencies());
    }
}

TEST(Frequencies, DefaultIsChangedWithoutTouchingTheOverrides)
{
    ktClassifierFrequencies frequencies = overriddenFrequencies();
    frequencies.defaultCategoryFrequency(6.0);
    EXPECT_EQ(frequencies.categoryFrequency(0), 6.0);
    EXPECT_EQ(frequencies.categoryFrequency(1), 2.0);
    EXPECT_EQ(frequencies.categoryFrequency(2), 3.0);
}

TEST(Frequencies, SecondOverrideOfALabelReplacesTheFirstInItsPlace)
{
    ktClassifierFrequencies frequencies = overriddenFrequencies();
    frequencies.categoryFrequencyOverride(1, 7.0);
    EXPECT_EQ(frequencies.categoryFrequency(1), 7.0);
    EXPECT_EQ(kt_test::toHex(kt_test::store(frequencies)), kt_test::toHex(craftedFrequencies(4.0, {1, 2}, {7.0, 3.0})));
}

TEST(Frequencies, OverrideChecksTheFrequencyThenTheLabel)
{
    struct Row {
        const char* label;
        long category;
        double frequency;
        bool badParams;
        const char* message;
    };
    const Row rows[] = {
        {"zero", 5, 0.0, true, notPositive},
        {"zero for an entry", 1, 0.0, true, notPositive},
        {"negative", 5, -1.0, true, notPositive},
        {"negative, negative label", -1, -1.0, true, notPositive},
        {"negative label", -1, 1.0, false, negativeLabel},
        {"least label", LONG_MIN, 1.0, false, negativeLabel},
        {"negative label, NaN", -1, NaN, false, negativeLabel},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        ktClassifierFrequencies frequencies = overriddenFrequencies();
        const auto set = [&] { frequencies.categoryFrequencyOverride(row.category, row.frequency); };
        row.badParams ? expectRefused<BadParams>(set, row.message) : expectRefused<BadLabel>(set, row.message);
        EXPECT_TRUE(frequencies == overriddenFrequencies());
    }
}

TEST(Frequencies, LookUpOfANegativeLabelIsRefused)
{
    const ktClassifierFrequencies frequencies = overriddenFrequencies();
    for (const long label : {-1L, LONG_MIN}) {
        expectRefused<BadLabel>([&] { static_cast<void>(frequencies.categoryFrequency(label)); }, negativeLabel);
    }
    EXPECT_TRUE(frequencies == overriddenFrequencies());
}

TEST(Frequencies, ClearingTheOverridesKeepsTheDefault)
{
    ktClassifierFrequencies frequencies = overriddenFrequencies();
    frequencies.clearFrequencyOverrides();
    EXPECT_EQ(frequencies.defaultCategoryFrequency(), 4.0);
    EXPECT_EQ(frequencies.categoryFrequency(1), 4.0);
    EXPECT_TRUE(frequencies == ktClassifierFrequencies(4.0));
}

TEST(Frequencies, OverridesAreComparedInTheOrderOfTheirEntry)
{
    // Kept on purpose: the two tables answer alike.
    ktClassifierFrequencies reversed(4.0);
    reversed.categoryFrequencyOverride(2, 3.0);
    reversed.categoryFrequencyOverride(1, 2.0);
    EXPECT_FALSE(reversed == overriddenFrequencies());
    EXPECT_TRUE(reversed != overriddenFrequencies());
}

TEST(Frequencies, EqualityLooksAtEveryField)
{
    const std::vector<std::function<void(ktClassifierFrequencies&)>> changes = {
        [](ktClassifierFrequencies& table) { table.defaultCategoryFrequency(std::nextafter(4.0, 5.0)); },
        [](ktClassifierFrequencies& table) { table.categoryFrequencyOverride(2, std::nextafter(3.0, 4.0)); },
        [](ktClassifierFrequencies& table) { table.categoryFrequencyOverride(3, 3.0); },
        [](ktClassifierFrequencies& table) { table.clearFrequencyOverrides(); },
        [](ktClassifierFrequencies& table) {
            kt_test::loadInto(table, craftedFrequencies(4.0, {1, 5}, {2.0, 3.0}));
        },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        ktClassifierFrequencies frequencies = overriddenFrequencies();
        EXPECT_TRUE(frequencies == overriddenFrequencies());
        EXPECT_FALSE(frequencies != overriddenFrequencies());
        changes[i](frequencies);
        EXPECT_FALSE(frequencies == overriddenFrequencies()) << i;
        EXPECT_FALSE(overriddenFrequencies() == frequencies) << i;
        EXPECT_TRUE(frequencies != overriddenFrequencies()) << i;
    }
}

TEST(Frequencies, AreArchivedAsVersionDefaultLabelsFrequencies)
{
    EXPECT_EQ(kt_test::toHex(kt_test::store(overriddenFrequencies())),
              kt_test::toHex(craftedFrequencies(4.0, {1, 2}, {2.0, 3.0})));
}

TEST(Frequencies, LoadingReplacesTheWholeTableAndDoesNotValidateIt)
{
    ktClassifierFrequencies frequencies = overriddenFrequencies();
    kt_test::loadInto(frequencies, craftedFrequencies(-3.0, {7, -1, 7}, {0.0, 5.0, 6.0}));
    EXPECT_EQ(frequencies.defaultCategoryFrequency(), -3.0);
    EXPECT_EQ(frequencies.categoryFrequency(1), -3.0);
    EXPECT_EQ(frequencies.categoryFrequency(7), 0.0) << "the first of two entries";
    expectRefused<BadLabel>([&] { static_cast<void>(frequencies.categoryFrequency(-1)); }, negativeLabel);
}

TEST(Frequencies, LoadedSequencesOfDifferentLengthsStaySafe)
{
    struct Row {
        const char* label;
        Labels labels;
        Doubles frequencies;
        double expected;
    };
    // Label 1 is entry 1 where both sequences reach that far.
    const Row rows[] = {
        {"frequencies too short", {0, 1}, {5.0}, 2.0},
        {"labels too short", {0}, {5.0, 6.0}, 2.0},
        {"no frequencies", {0, 1}, {}, 2.0},
        {"frequencies longer", {0, 1}, {5.0, 6.0, 7.0}, 6.0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        auto frequencies = kt_test::load<ktClassifierFrequencies>(craftedFrequencies(2.0, row.labels, row.frequencies));
        EXPECT_EQ(frequencies.categoryFrequency(1), row.expected);
        EXPECT_TRUE(frequencies == kt_test::storedAndLoaded(frequencies));
        frequencies.categoryFrequencyOverride(1, 8.0);
        frequencies.categoryFrequencyOverride(9, 9.0);
        EXPECT_NO_THROW(static_cast<void>(frequencies.categoryFrequency(9)));
        frequencies.clearFrequencyOverrides();
        EXPECT_TRUE(frequencies == ktClassifierFrequencies(2.0));
    }
}

TEST(Frequencies, WhatNeedsNoMemoryTakesNone)
{
    ktClassifierFrequencies frequencies = overriddenFrequencies();
    EXPECT_EQ(kt_test::allocationsDuring([&] {
                  frequencies.categoryFrequencyOverride(1, 3.0);
                  frequencies.defaultCategoryFrequency(3.0);
                  static_cast<void>(frequencies.categoryFrequency(1));
                  static_cast<void>(frequencies == frequencies);
                  frequencies.clearFrequencyOverrides();
              }),
              0);
}

}  // namespace
