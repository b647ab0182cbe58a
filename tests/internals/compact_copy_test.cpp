#include "scan_kit.h"

#include "clss/clastool/neighbor_scan/leaf_order.h"
#include "tests/support/allocations.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

namespace {

using namespace scans;

TEST(CompactCopy, OfAStoreIsCurrentUntilTheStoreChanges)
{
    Store store = line(10);
    kt_CompactCopy copy;
    EXPECT_FALSE(copy.isCurrent(store));
    copy.make(store);
    EXPECT_TRUE(copy.isCurrent(store));
    EXPECT_EQ(nearest(copy, store, {6.2}), 6u);
    store.addData(new ktFeaturePattern({6.25}, {}), 1);
    EXPECT_FALSE(copy.isCurrent(store));
}

/// The same patterns as one list.
void replace(Store& store)
{
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns;
    for (long i = 0; i < store.numPatterns(); ++i) {
        patterns.push_back(store.featurePattern(i));
    }
    store.data(patterns, std::vector<long>(patterns.size(), 1));
}

/// Counts and gives out its patterns in its own way, perhaps.
class OwnStore : public Store {
    using Store::Store;
};

TEST(CompactCopy, IsMadeOfTheLibrarysOwnStoresAlone)
{
    OwnStore store;
    store.addData(new ktFeaturePattern({1.0}, {}), 1);
    kt_CompactCopy copy;
    copy.make(store);
    EXPECT_FALSE(copy.isCurrent(store));
}

TEST(CompactCopy, TakesOverAPatternWhateverHappenedBefore)
{
    struct Case {
        const char* label;
        void (*change)(Store& store);
    };
    const Case cases[] = {
        {"nothing", [](Store&) {}},
        {"a pattern was added", [](Store& store) { store.addData(new ktFeaturePattern({50.0}, {}), 1); }},
        {"the patterns were replaced", replace},
        {"a kept pattern was assigned over",
         [](Store& store) { const_cast<ktFeaturePattern&>(*store.featurePattern(3)) = ktFeaturePattern({6.5}, {}); }},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.label);
        Store store = line(10);
        kt_CompactCopy copy;
        copy.make(store);
        each.change(store);
        store.addData(new ktFeaturePattern({6.25}, {}), 1);
        copy.append(store);
        EXPECT_TRUE(copy.isCurrent(store));
        EXPECT_EQ(nearest(copy, store, {6.2}), static_cast<std::size_t>(store.numPatterns() - 1));
    }
}

TEST(CompactCopy, TakesOverNoPatternThatItCannotSearch)
{
    Store store = line(10);
    kt_CompactCopy copy;
    copy.make(store);
    store.addData(new ktFeaturePattern({3.0}, {0}), 1);
    copy.append(store);
    EXPECT_FALSE(copy.isCurrent(store));
}

/// A pattern that the test can change.
using Owned = ktPtrHandle<ktFeaturePattern>;

Owned owned(double value)
{
    return new ktFeaturePattern({value}, {});
}

TEST(CompactCopy, ThatWasNeverMadeIsOutOfDateAndIsMadeWithTheFirstPattern)
{
    Store store;
    kt_CompactCopy copy;
    EXPECT_TRUE(copy.isOutOfDate(store));
    EXPECT_FALSE(copy.isCurrent(store));
    store.addData(new ktFeaturePattern({3.0}, {}), 1);
    copy.append(store);
    EXPECT_TRUE(copy.isCurrent(store));
    EXPECT_EQ(nearest(copy, store, {6.2}), 0u);
}

/// A store of some patterns and a copy of it.
struct Copied {
    explicit Copied(const std::vector<Owned>& patterns)
    {
        for (const Owned& pattern : patterns) {
            store.addData(pattern, 1);
        }
        copy->make(store);
    }
    bool isCurrent() const { return copy->isCurrent(store); }

    Store store;
    ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
};

TEST(CompactCopy, IsOutOfDateWhenAPatternOfItsOwnChangesAndStaysCurrentWhenOthersDo)
{
    const Owned a = owned(1.0);
    const Owned both = owned(2.0);
    const Owned b = owned(3.0);
    const Copied first({a, both});
    const Copied second({both, b});
    EXPECT_TRUE(first.isCurrent() && second.isCurrent());
    *b = *owned(4.0);
    EXPECT_TRUE(first.isCurrent());
    EXPECT_FALSE(second.isCurrent());
    second.copy->make(second.store);
    EXPECT_TRUE(first.isCurrent() && second.isCurrent());
    *a = *owned(5.0);
    EXPECT_FALSE(first.isCurrent());
    EXPECT_TRUE(second.isCurrent());
    first.copy->make(first.store);
    *both = *owned(6.0);
    EXPECT_FALSE(first.isCurrent());
    EXPECT_FALSE(second.isCurrent());
}

TEST(CompactCopy, IsNotMadeWherePatternsWereAssignedOthersOfAnotherSize)
{
    const Owned pattern = owned(2.0);
    const Copied copied({owned(1.0), pattern, owned(3.0)});
    *pattern = ktFeaturePattern({2.0, 2.0}, {});
    copied.copy->make(copied.store);
    EXPECT_FALSE(copied.isCurrent());
    *pattern = *owned(2.0);
    copied.copy->make(copied.store);
    EXPECT_TRUE(copied.isCurrent());
}

TEST(CompactCopy, TakesOverNoPatternThatWasAssignedOneOfAnotherSize)
{
    Copied copied({owned(1.0), owned(2.0), owned(3.0), owned(4.0)});
    const Owned last = owned(5.0);
    copied.store.addData(last, 1);
    *last = ktFeaturePattern({2.0, 2.0}, {});
    copied.copy->append(copied.store);
    EXPECT_FALSE(copied.isCurrent());
    *last = *owned(5.0);
    copied.copy->make(copied.store);
    EXPECT_EQ(nearest(*copied.copy, copied.store, {4.7}), 4u);
}

TEST(CompactCopy, SeesAChangeOfAPatternWhateverOtherCopiesOfItAreGone)
{
    const Owned pattern = owned(1.0);
    const Copied first({pattern});
    for (int i = 0; i < 3; ++i) {
        const Copied passing({pattern, pattern});
        EXPECT_TRUE(passing.isCurrent());
    }
    const Copied last({pattern});
    EXPECT_TRUE(first.isCurrent());
    *pattern = *owned(2.0);
    EXPECT_FALSE(first.isCurrent());
    EXPECT_FALSE(last.isCurrent());
}

TEST(CompactCopy, ThatIsMadeAgainAndAgainTakesNoMoreMemory)
{
    kt_test::needCounts();
    const std::vector<Owned> patterns(3, owned(1.0));
    const Copied lasting(patterns);
    const auto remake = [&] { const Copied passing(patterns); };
    remake();
    const kt_test::MemoryWatch watch;
    for (int i = 0; i < 20; ++i) {
        remake();
    }
    EXPECT_EQ(watch.liveBytes(), 0);
    EXPECT_TRUE(lasting.isCurrent());
}

TEST(CompactCopy, ThatIsMadeAnewForItsOwnStoreTakesNoMoreMemory)
{
    kt_test::needCounts();
    const Copied copied({owned(1.0), owned(2.0), owned(3.0)});
    copied.copy->make(copied.store);
    const kt_test::MemoryWatch watch;
    for (int i = 0; i < 20; ++i) {
        copied.copy->make(copied.store);
    }
    EXPECT_EQ(watch.liveBytes(), 0);
    EXPECT_TRUE(copied.isCurrent());
}

TEST(CompactCopy, IsNotMadeOfAPatternThatIsThereManyTimes)
{
    const Owned a = owned(1.0);
    const Copied often(std::vector<Owned>(17, a));
    EXPECT_FALSE(often.isCurrent());
    EXPECT_FALSE(often.copy->isOutOfDate(often.store)) << "trying again would give the same";
    std::vector<Owned> lessOften(16, a);
    EXPECT_TRUE(Copied(lessOften).isCurrent());
    lessOften.insert(lessOften.end(), 16, owned(2.0));
    EXPECT_TRUE(Copied(lessOften).isCurrent());
}

/// Patterns of random measurements, with labels 0, 1 and 2.
void fillAtRandom(Store& store, std::size_t rows, std::size_t measurements)
{
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns;
    std::vector<long> labels;
    for (std::size_t i = 0; i < rows; ++i) {
        Row row(measurements);
        std::generate(row.begin(), row.end(), [&] { return normal(random); });
        patterns.push_back(new ktFeaturePattern(row, {}));
        labels.push_back(static_cast<long>(i % 3));
    }
    store.data(patterns, labels);
}

TEST(CompactCopy, IsMadeInLittleMemoryBesideWhatItKeeps)
{
    kt_test::needCounts();
    constexpr std::size_t rows = 20000;
    Store store;
    fillAtRandom(store, rows, 16);
    kt_CompactCopy copy;
    const kt_test::MemoryWatch watch;
    copy.make(store);
    const auto kept = static_cast<std::size_t>(watch.liveBytes());
    // Floats, numbers, cells and boxes; boxes and what an added row finds may have a sixteenth to spare.
    EXPECT_LT(kept, rows * (64 + 4 + 8 + 2) * 17 / 16 + 8192);
    EXPECT_LT(watch.peakBytes(), kept + 20 * rows);
}

/// Goes on so many times.
class Watch : public kt_TrainingWatch {
public:
    explicit Watch(long times) : times_(times) {}

    bool goesOn() noexcept override { return asked_++ < times_; }
    long asked() const { return asked_; }

private:
    long times_;
    long asked_ = 0;
};

TEST(CompactCopy, AsksItsWatchBetweenAnyFourThousandSteps)
{
    // Each row is looked at, copied, split from others ten times, moved, and given its cells: a step each.
    constexpr long rows = 65536;
    Store store;
    fillAtRandom(store, rows, 9);
    kt_CompactCopy copy;
    Watch watch(rows);
    copy.make(store, &watch);
    EXPECT_TRUE(copy.isCurrent(store));
    EXPECT_GE(watch.asked(), (1 + 1 + 10 + 1 + 1) * rows / 4096 - 1);
    EXPECT_LE(watch.asked(), (1 + 1 + 10 + 1 + 1) * rows / 4096);
}

TEST(CompactCopy, IsGivenUpWhenItsWatchDoesNotGoOn)
{
    Store store;
    fillAtRandom(store, 16384, 9);
    // It is asked 48 times, or 47: twelve for each four thousand rows.
    for (const long times : {0L, 1L, 3L, 4L, 7L, 8L, 20L, 39L, 40L, 42L, 45L, 46L}) {
        SCOPED_TRACE(times);
        kt_CompactCopy copy;
        Watch watch(times);
        copy.make(store, &watch);
        EXPECT_FALSE(copy.isCurrent(store));
        EXPECT_EQ(watch.asked(), times + 1) << "asked no more once it did not go on";
        copy.make(store);
        EXPECT_TRUE(copy.isCurrent(store));
    }
}

/// Training data with a watch.
class WatchedData : public Store, public Watch {
public:
    explicit WatchedData(long times) : Watch(times) {}
};

TEST(CompactCopy, ThatIsGivenUpInTrainingChangesNoAnswer)
{
    WatchedData data(0);
    fillAtRandom(data, 5000, 9);
    ktClassifierTool without;
    without.train(data, ktClassifierTrainParamsKNN(5));
    EXPECT_EQ(data.asked(), 1);
    ktClassifierTool with;
    with.train(static_cast<const Store&>(Store(data)), ktClassifierTrainParamsKNN(5));
    EXPECT_EQ(with, without);
    Store queries;
    fillAtRandom(queries, 100, 9);
    for (long i = 0; i < queries.numPatterns(); ++i) {
        ktClassifierResult expected;
        ktClassifierResult result;
        with.run(*queries.featurePattern(i), expected);
        without.run(*queries.featurePattern(i), result);
        EXPECT_EQ(result, expected) << i;
    }
}

TEST(CompactCopy, OfDistantClustersHoldsEachRowOnceAndFindsIt)
{
    // Every part leaves places of its last block unused.
    struct Part {
        std::size_t rows;
        double centre;
    };
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns;
    for (const Part& part : {Part{1000, 0.0}, Part{70, 1e6}, Part{5000, -1e7}, Part{3, 1e9}, Part{100, 1e12}}) {
        for (std::size_t i = 0; i < part.rows; ++i) {
            const double place = static_cast<double>(i) / 100.0;
            patterns.push_back(new ktFeaturePattern({part.centre + place, 1.0 - place * place}, {}));
        }
    }
    std::shuffle(patterns.begin(), patterns.end(), std::mt19937(3));
    Store store;
    store.data(patterns, std::vector<long>(patterns.size(), 1));
    kt_CompactCopy copy;
    copy.make(store);
    ASSERT_TRUE(copy.isCurrent(store));
    for (std::size_t row = 0; row < patterns.size(); ++row) {
        ASSERT_EQ(nearest(copy, store, patterns[row]->featureMeasurements(false)), row);
    }
}

TEST(CompactCopy, MovesRowsWhereTheyAre)
{
    std::mt19937 random(2);
    for (const std::size_t count : {1u, 2u, 3u, 4u, 5u, 64u, 1000u}) {
        for (int repeat = 0; repeat < 100; ++repeat) {
            std::vector<std::uint32_t> order(count);
            std::iota(order.begin(), order.end(), 0u);
            std::shuffle(order.begin(), order.end(), random);
            std::vector<float> values(3 * count);
            std::iota(values.begin(), values.end(), 0.0f);
            std::vector<float> expected;
            for (const std::uint32_t row : order) {
                expected.insert(expected.end(), values.begin() + 3 * row, values.begin() + 3 * row + 3);
            }
            kt_WatchedSteps steps(nullptr);
            kt_moveRows(values.data(), 3, order.data(), count, steps);
            ASSERT_EQ(values, expected) << count;
        }
    }
}

TEST(CompactCopy, OfAStoreThatCannotServeIsTriedAgainAfterAQuarterWasAdded)
{
    kt_test::needCounts();
    const Owned infinite = owned(infinity);
    std::vector<Owned> patterns(15, owned(1.0));
    patterns.push_back(infinite);
    Copied copied(patterns);
    EXPECT_FALSE(copied.isCurrent());
    const auto added = [&] {
        copied.store.addData(owned(7.0), 1);
        const kt_test::MemoryWatch watch;
        copied.copy->append(copied.store);
        return watch.allocations();
    };
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(added(), 0) << i;
    }
    EXPECT_GT(added(), 0);
    EXPECT_FALSE(copied.isCurrent());
    EXPECT_EQ(added(), 0);
    *infinite = *owned(2.0);
    EXPECT_TRUE(copied.copy->isOutOfDate(copied.store));
    added();
    EXPECT_TRUE(copied.isCurrent());
}

TEST(CompactCopy, OfMoreMeasurementsThanCellsResolveHasNone)
{
    const std::size_t usual = kt_CompactCopy::cellsFrom();
    kt_CompactCopy::cellsFrom(0);
    Store store;
    for (const double value : {0.0, 1.0, 2.0}) {
        store.addData(new ktFeaturePattern(Row(8193, value), {}), 1);
    }
    kt_CompactCopy copy;
    copy.make(store);
    kt_CompactCopy::cellsFrom(usual);
    EXPECT_TRUE(copy.isCurrent(store));
    EXPECT_EQ(nearest(copy, store, Row(8193, 1.75)), 2u);
}

TEST(CompactCopy, LeavesToThePlainScanWhatItCannotCertify)
{
    struct Case {
        const char* label;
        double query;
        double order;
    };
    const Case cases[] = {
        {"order 0", 1.0, 0.0},
        {"negative order", 1.0, -1.0},
        {"order NaN", 1.0, std::nan("")},
        {"order whose sums lose their precision in float", 1.0, 1e7},
        {"order whose sums lose their precision in double", 1.0, 1e16},
        {"query NaN", std::nan(""), 2.0},
        {"infinite query", infinity, 2.0},
        {"order too near to 0", 1.0, 0.03},
    };
    const Store store = line(10);
    kt_CompactCopy copy;
    copy.make(store);
    for (const Case& each : cases) {
        EXPECT_EQ(nearest(copy, store, {each.query}, each.order), std::nullopt) << each.label;
    }
    EXPECT_EQ(nearest(copy, store, {1.25}, 30.0), 1u) << "this it can";
    EXPECT_EQ(nearest(copy, store, {8.25}, 0.04), 8u);
    EXPECT_EQ(nearest(copy, store, {1e20}, 2.0), 0u) << "too far for floats, all equally far in double";
    EXPECT_EQ(nearest(copy, store, {-1000.0}, 30.0), 0u) << "powers too large for floats";
    EXPECT_EQ(nearest(copy, store, {1000.0}, 30.0), 9u);
}

}  // namespace
