// Rows that floats or the approximate power bring into the wrong order are told apart, with each set of kernels that the machine
// has. That answers are those of the plain scan is shown by neighbor_cases_test.cpp.

#include "scan_kit.h"

#include "clss/clastool/neighbor_scan/kernels.h"
#include "clss/clastool/neighbor_scan/leaf_order.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace {

using namespace scans;

TEST_P(NeighborScan, RowsThatRoundingBringsIntoTheWrongOrderAreToldApart)
{
    // As floats 11 in each measurement against 10, and 12 in the last one.
    const Row nearer = awayFromPlace(10.5625, 10.5625);
    const Row farther = awayFromPlace(10.4375, 12.45);
    for (const double order : {1.0, 1.5, 2.0, 3.0}) {
        EXPECT_EQ(nearestByCopy({lowest, highest, farther, nearer}, Row(width, place), order), 3u) << "order " << order;
    }
    // As floats 1 against 0, where orders below 1 lose most by rounding.
    EXPECT_EQ(nearestByCopy({lowest, highest, awayFromPlace(0.4375, 4.46), awayFromPlace(0.5625, 0.5625)},
                            Row(width, place), 0.5),
              3u);
}

TEST_P(NeighborScan, RowsThatRoundingOfTheQueryBringsIntoTheWrongOrderAreToldApart)
{
    // The query is rounded to `place`, away from the row that is nearer.
    const Row query(width, place + 0.4375 * 0x1p-24);
    const Row nearer = awayFromPlace(10.0, 10.0);
    const Row farther = awayFromPlace(-9.0, -12.0);
    EXPECT_EQ(nearestByCopy({lowest, highest, farther, nearer}, query, 1.0), 3u);
}

// The approximate power takes the one for nearer than it is and the other for farther, by more than they differ.
TEST_P(NeighborScan, RowsThatTheApproximatePowerBringsIntoTheWrongOrderAreToldApart)
{
    const Row nearer = {0x1.927ca6p-4, 0x1.31f2ap-3};
    const Row farther = {0x1.004c3p-3, 0x1.004c3p-3};
    EXPECT_EQ(nearestByCopy({Row(2, -0.75), Row(2, 0.75), farther, nearer}, Row(2, 0.0), 1.5), 3u);
}

// Scaled so that the first row fits, the others are subnormal, and the roots of their differences round coarsely.
TEST_P(NeighborScan, RowsWhoseScaledSizeIsSubnormalAreToldApart)
{
    for (const int exponent : {-236, -235, -234, -233, -232, -231}) {
        const double u = std::ldexp(1.0, exponent);
        const Row nearer = {1.51 * u, 1.51 * u, 0.0, 0.0, 0.0};
        const Row farther = {1.49 * u, 1.49 * u, 0.49 * u, 0.49 * u, 0.49 * u};
        EXPECT_EQ(nearestByCopy({{0x1p+840, 0.0, 0.0, 0.0, 0.0}, nearer, farther}, Row(5, 0.0), 0.5), 1u) << exponent;
    }
}

/// A store of random rows, some of which are drawn by `change`, and the copy of it.
struct RandomStore {
    RandomStore(std::size_t numRows, std::size_t size, void (*change)(std::mt19937&, std::size_t, Row&))
        : change_(change), size_(size)
    {
        for (std::size_t i = 0; i < numRows; ++i) {
            add();
        }
        copy->make(store);
    }

    void add() { store.addData(new ktFeaturePattern(draw(rows.size()), {}), 0); }

    Row draw(std::size_t number)
    {
        Row row(size_);
        std::generate(row.begin(), row.end(), [this] { return normal_(random_); });
        change_(random_, number, row);
        rows.push_back(row);
        return row;
    }

    /// What the copy finds are the rows of the plain list.
    void expectPlainAnswer(const Row& query, double order, std::size_t k)
    {
        std::vector<std::pair<double, std::size_t>> list;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            double sum = 0.0;
            for (std::size_t j = 0; j < size_; ++j) {
                sum += std::pow(std::abs(query[j] - rows[i][j]), order);
            }
            const double distance = std::pow(sum, 1.0 / order);
            if (list.size() == k && !(distance < list.back().first)) {
                continue;
            }
            const auto isNearer = [](const auto& entry, double value) { return entry.first < value; };
            list.insert(std::lower_bound(list.begin(), list.end(), distance, isNearer), {distance, i});
            list.resize(std::min(list.size(), k));
        }
        std::vector<std::size_t> expected(list.size());
        std::transform(list.begin(), list.end(), expected.begin(), [](const auto& entry) { return entry.second; });
        kt_RowList found(k);
        ASSERT_TRUE(copy->nearest(store, query, order, found));
        std::sort(expected.begin(), expected.end());
        std::sort(found.begin(), found.end());
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), found.begin()))
            << "order " << order << ", k " << k << ", " << rows.size() << " rows of " << size_;
    }

    std::vector<Row> rows;
    ktClassifierDataProviderMemory store;
    ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;

private:
    void (*change_)(std::mt19937&, std::size_t, Row&);
    std::size_t size_;
    std::mt19937 random_{11};
    std::normal_distribution<double> normal_;
};

struct Wilderness {
    const char* name;
    void (*change)(std::mt19937& random, std::size_t number, Row& row);
};

const Wilderness wildernesses[] = {
    {"none", [](std::mt19937&, std::size_t, Row&) {}},
    {"one row", [](std::mt19937&, std::size_t i, Row& row) { row[0] = i == 700 ? 1e7 : row[0]; }},
    {"one row out of the range of floats",
     [](std::mt19937&, std::size_t i, Row& row) { row[0] = i == 700 ? 1e100 : row[0]; }},
    {"one row in a hundred",
     [](std::mt19937&, std::size_t i, Row& row) { row[i % row.size()] *= i % 100 == 0 ? 1e9 : 1.0; }},
    {"a measurement", [](std::mt19937&, std::size_t, Row& row) { row.back() *= 1e8; }},
    {"sentinels", [](std::mt19937&, std::size_t i, Row& row) { row[0] = i % 3 == 0 ? 9999999.0 : row[0]; }},
    {"a far cluster",
     [](std::mt19937&, std::size_t i, Row& row) {
         for (double& value : row) {
             value += i % 10 == 3 ? 1e7 : 0.0;
         }
     }},
    {"many far clusters, and rows alone",
     [](std::mt19937& random, std::size_t i, Row& row) {
         const double away = i % 500 == 1 ? std::ldexp(1.0, static_cast<int>(random() % 300)) : std::pow(1e5, i % 4);
         for (double& value : row) {
             value += away;
         }
     }},
    {"half of it", [](std::mt19937&, std::size_t i, Row& row) { row[0] += i % 2 == 0 ? 1e40 : -1e40; }},
};

TEST_P(NeighborScan, WildValuesChangeNoAnswer)
{
    for (const Wilderness& each : wildernesses) {
        SCOPED_TRACE(each.name);
        RandomStore store(2500, 5, each.change);
        for (std::size_t i = 0; i < 40; ++i) {
            Row query = store.rows[i * 61 + 3];
            query[i % 5] += 0.1;
            const double orders[] = {0.5, 1.0, 1.5, 2.0, 3.0, 0.7};
            const std::size_t numbers[] = {1, 4, 7, 12, 20, 300, 2};
            ASSERT_NO_FATAL_FAILURE(store.expectPlainAnswer(query, orders[i % 6], numbers[i % 7]));
        }
    }
}

/// One row in ten lies in a cluster so far away, another one in a cluster twice as far.
template <int Decimals>
void twoFarClusters(std::mt19937&, std::size_t number, Row& row)
{
    row[0] += number % 10 < 2 ? std::pow(10.0, Decimals) * static_cast<double>(1 + number % 10) : 0.0;
}

// Clusters far away have offsets of their own; k takes rows of several, whose float sums are not to be compared.
TEST_P(NeighborScan, NeighboursInSeveralClustersAreThoseOfThePlainScan)
{
    for (const auto change : {twoFarClusters<7>, twoFarClusters<20>}) {
        RandomStore store(850, 3, change);
        for (std::size_t i = 0; i < 30; ++i) {
            store.add();
            store.copy->append(store.store);
        }
        for (const std::size_t k : {1u, 70u, 90u, 150u, 170u, 750u}) {
            for (const double order : {0.5, 1.0, 1.5, 2.0}) {
                for (const std::size_t row : {400u, 401u, 402u}) {
                    ASSERT_NO_FATAL_FAILURE(store.expectPlainAnswer(store.rows[row], order, k));
                }
            }
        }
    }
}

// Two clusters meet where the query lies, far from the offsets of the first and near those of the second: rounding moves the
// distances of the first cluster's rows by more than they differ from those of the second.
TEST_P(NeighborScan, DistancesRelativeToOtherOffsetsKeepTheirOwnErrors)
{
    std::mt19937 random(9);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    for (int round = 0; round < 200; ++round) {
        const double query = 1e5 + 1023.9 + uniform(random) * 1e-3;
        std::vector<Row> rows;
        for (int i = 0; i < 1000; ++i) {
            rows.push_back({uniform(random)});
        }
        rows.push_back({query + 0.2 + uniform(random) * 4e-5});
        for (int i = 0; i < 99; ++i) {
            rows.push_back({query + 0.5});
        }
        for (int i = 0; i < 100; ++i) {
            rows.push_back({1e5 + 0.01 * i});
        }
        rows[1100] = {1e5};
        rows.push_back({query - 0.2});
        ASSERT_EQ(nearestByCopy(rows, {query}, 1.0), nearestByPlainScan(rows, {query}, 1.0)) << "round " << round;
    }
}

TEST_P(NeighborScan, RowsAddedToALargeStoreAreFoundBeforeAndAfterTheyAreSorted)
{
    for (const std::size_t usual : {kt_CompactCopy::cellsFrom(), std::size_t{0}}) {
        const std::size_t before = kt_CompactCopy::cellsFrom();
        kt_CompactCopy::cellsFrom(usual);
        RandomStore store(9000, 3, wildernesses[1].change);
        kt_CompactCopy::cellsFrom(before);
        for (std::size_t i = 0; i < 2250; ++i) {
            store.add();
            store.copy->append(store.store);
            ASSERT_TRUE(store.copy->isCurrent(store.store));
            if (i % 100 == 99) {
                Row query = store.rows[store.rows.size() - 1 - i / 2];
                query[1] += 0.01;
                ASSERT_NO_FATAL_FAILURE(store.expectPlainAnswer(query, 1.0 + static_cast<double>(i % 3) * 0.5, 3));
            }
        }
    }
}

// More than 64 groups of 64 blocks.
TEST_P(NeighborScan, VeryManyRowsAreFoundWhereverTheyAre)
{
    RandomStore store(270000, 1, wildernesses[0].change);
    for (std::size_t i = 0; i < 6; ++i) {
        ASSERT_NO_FATAL_FAILURE(store.expectPlainAnswer({static_cast<double>(i) - 2.5}, 2.0, 3));
    }
}

// Boxes spare most blocks of every group that is near; nothing but the number of blocks tells whether they were asked.
TEST_P(NeighborScan, BoxesSpareMostBlocksOfManyGroups)
{
    const RandomStore store(60000, 4, wildernesses[0].change);
    for (std::size_t i = 0; i < 5; ++i) {
        kt_RowList found(5);
        std::size_t numCompared = 0;
        const Row query(4, 0.3 * static_cast<double>(i) - 0.6);
        ASSERT_TRUE(store.copy->nearest(store.store, query, 2.0, found, numCompared));
        EXPECT_LT(numCompared, 50u) << "of 938";
    }
}

// Their floats' powers are infinite, and so are those of the boxes around them, while there is no limit yet.
TEST_P(NeighborScan, RowsAndBoxesInfinitelyFarAreFoundWhereTheNearOnesAreTooFew)
{
    RandomStore all(1000, 3, [](std::mt19937& random, std::size_t number, Row& row) {
        for (double& value : row) {
            value *= number % 4 == 0 ? 1e30 * static_cast<double>(random() % 1000 + 1) : 1.0;
        }
    });
    for (const double order : {2.0, 3.0, 7.5}) {
        all.expectPlainAnswer(Row(3, 0.25), order, 900);
    }
}

// More candidates than a list holds, which float sums cannot tell apart, then such that sums in double cannot either.
TEST_P(NeighborScan, TooManyRowsToListAreToldApart)
{
    for (const double unit : {0x1p-40, 0x1p-52}) {
        for (const double order : {1.0, 1.5, 2.0}) {
            std::vector<Row> rows;
            for (std::size_t i = 0; i < 3000; ++i) {
                rows.push_back({1.0 + unit * static_cast<double>((i * 1237) % 3000), 1.0});
            }
            EXPECT_EQ(nearestByCopy(rows, {0.0, 0.0}, order), 0u) << "order " << order << ", unit " << unit;
            rows[0][0] = 2.0;
            rows[2999][0] = 1.0 - 0x1p-53;
            EXPECT_EQ(nearestByCopy(rows, {1.0, 0.5}, order), nearestByPlainScan(rows, {1.0, 0.5}, order));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, NeighborScan, testing::Values(0, 1),
                         [](const auto& set) { return set.param == 0 ? "Baseline" : "Avx2"; });

/// The relative error of the approximate power over every mantissa, for one exponent of v.
double largestPowerError(const kt_ScanKernels& kernels, float order, int exponent)
{
    double largest = 0.0;
    float block[kt_blockRows];
    float sums[kt_blockRows];
    const float query = 0.0f;
    for (std::uint32_t mantissa = 0; mantissa < (1u << 23); mantissa += kt_blockRows) {
        for (std::uint32_t i = 0; i < kt_blockRows; ++i) {
            block[i] = std::ldexp(1.0f + std::ldexp(static_cast<float>(mantissa + i), -23), exponent);
        }
        kernels.anyOrder.rows(block, &query, 1, order, std::numeric_limits<float>::infinity(), sums);
        // Neighbouring mantissas differ by less than the error looked for: one of a block stands for all.
        for (std::uint32_t i = 0; i < kt_blockRows; i += 16) {
            const double exact = std::pow(static_cast<double>(block[i]), static_cast<double>(order));
            largest = std::max(largest, std::abs(static_cast<double>(sums[i]) - exact) / exact);
        }
    }
    return largest;
}

TEST(NeighborScanInstructionSet, IsTheOneLastAskedForUntilTheNext)
{
    const int best = kt_CompactCopy::instructionSet(1);
    EXPECT_EQ(kt_CompactCopy::instructionSet(0), 0);
    EXPECT_EQ(kt_CompactCopy::instructionSet(), 0);
    EXPECT_EQ(kt_CompactCopy::instructionSet(1), best);
    EXPECT_EQ(kt_CompactCopy::instructionSet(), best);
}

TEST(LineAllocator, FreesWhatAnotherOneAllocated)
{
    const kt_LineAllocator<float> one;
    kt_LineAllocator<float> other{kt_LineAllocator<double>(one)};
    EXPECT_TRUE(one == other);
    EXPECT_FALSE(one != other);
    other.deallocate(kt_LineAllocator<float>(one).allocate(3), 3);
}

TEST(LineAllocator, RefusesWhatNoMemoryHolds)
{
    kt_LineAllocator<float> allocator;
    EXPECT_THROW(allocator.allocate(std::numeric_limits<std::size_t>::max() / sizeof(float) + 1), std::bad_alloc);
}

std::vector<const kt_ScanKernels*> kernelSets()
{
    std::vector<const kt_ScanKernels*> sets{&kt_baselineKernels};
    if (kt_CompactCopy::instructionSet(1) == 1) {
        sets.push_back(kt_avx2Kernels);
    }
    return sets;
}

/// Boxes of one measurement, 24 of them: from 0 to 8, 1 to 9 and so on, the last one the wrong way round.
TEST(ScanKernels, ABoxIsAsFarAsItsNearestPoint)
{
    constexpr std::size_t count = 24;
    float boxes[2 * count];
    for (std::size_t i = 0; i < count; ++i) {
        boxes[i] = static_cast<float>(i);
        boxes[count + i] = static_cast<float>(i + 8);
    }
    boxes[count - 1] = std::numeric_limits<float>::infinity();
    boxes[2 * count - 1] = -std::numeric_limits<float>::infinity();
    const float query = 12.0f;
    for (const kt_ScanKernels* kernels : kernelSets()) {
        const std::pair<const kt_OrderKernels&, float> orders[] = {
            {kernels->order1, 1.0f},    {kernels->order2, 2.0f},   {kernels->order3, 3.0f},
            {kernels->orderHalf, 0.5f}, {kernels->anyOrder, 1.5f},
        };
        for (const auto& [order, p] : orders) {
            float sums[count];
            order.boxes(boxes, count, &query, 1, p, sums);
            EXPECT_EQ(kernels->within(sums, count, std::pow(2.5f, p)), 0x7FFCu)
                << "the boxes from 2 to 14 are within 2.5, order " << p;
            EXPECT_EQ(kernels->least(sums, count), 0x1FF0u) << "the boxes from 4 to 12 hold the query, order " << p;
            for (std::size_t i = 0; i + 1 < count; ++i) {
                const double gap = i < 4 ? 4.0 - static_cast<double>(i) : i > 12 ? static_cast<double>(i) - 12.0 : 0.0;
                EXPECT_NEAR(sums[i], std::pow(gap, p), 1e-3 * std::pow(gap, p)) << "box " << i << ", order " << p;
            }
            EXPECT_GT(sums[count - 1], 0x1p+120f);
        }
    }
}

/// Sums in which each value is there twice, in any order, and some of them infinite.
TEST(ScanKernels, TheKthOfTheMinimaIsOneOfTheSumsAndBoundsTheKthOfAll)
{
    std::mt19937 random(17);
    for (int round = 0; round < 200; ++round) {
        float sums[kt_blockRows];
        for (std::size_t i = 0; i < kt_blockRows; ++i) {
            const bool isFar = i >= 40 && round % 2 == 1;
            sums[i] = isFar ? std::numeric_limits<float>::infinity() : static_cast<float>(i / 2 * 3);
        }
        std::shuffle(sums, sums + kt_blockRows, random);
        for (const kt_ScanKernels* kernels : kernelSets()) {
            for (std::size_t k = 1; k <= kt_mostForKth; ++k) {
                const std::size_t lanes = k <= 5 ? 8 : k <= 10 ? 16 : 32;
                std::vector<float> minima(sums, sums + lanes);
                for (std::size_t i = lanes; i < kt_blockRows; ++i) {
                    minima[i % lanes] = std::min(minima[i % lanes], sums[i]);
                }
                std::sort(minima.begin(), minima.end());
                EXPECT_EQ(kernels->kth(sums, k), minima[k - 1]) << "k " << k;
            }
        }
    }
}

TEST(LeafOrder, KeepsEachRowOnceAndBringsNeighboursTogether)
{
    constexpr std::size_t numRows = 10000;
    std::mt19937 random(5);
    std::vector<float> values(2 * numRows);
    std::generate(values.begin(), values.end(), [&] { return static_cast<float>(random() % 10000); });
    std::vector<std::uint32_t> rows(numRows);
    std::iota(rows.begin(), rows.end(), 0u);
    kt_WatchedSteps steps(nullptr);
    kt_sortByLeaves(values.data(), 2, rows.data(), rows.data() + numRows, steps);
    double extents = 0.0;
    for (std::size_t first = 0; first < numRows; first += kt_blockRows) {
        for (std::size_t j = 0; j < 2; ++j) {
            const auto byValue = [&](std::uint32_t a, std::uint32_t b) {
                return values[2 * a + j] < values[2 * b + j];
            };
            const auto end = rows.begin() + static_cast<std::ptrdiff_t>(std::min(first + kt_blockRows, numRows));
            const auto [low, high] =
                std::minmax_element(rows.begin() + static_cast<std::ptrdiff_t>(first), end, byValue);
            extents += static_cast<double>(values[2 * *high + j] - values[2 * *low + j]);
        }
    }
    EXPECT_LT(extents / (2.0 * 157.0), 1500.0) << "157 squares of 800 cover the plane";
    std::sort(rows.begin(), rows.end());
    for (std::size_t i = 0; i < numRows; ++i) {
        ASSERT_EQ(rows[i], i);
    }
}

/// Of one measurement, blocks in the order of the leaves are in the order of their values.
TEST(LeafOrder, OfOneMeasurementIsTheOrderOfItsValues)
{
    constexpr std::size_t numRows = 64 * 64;
    std::mt19937 random(6);
    const std::pair<const char*, std::function<float(std::size_t)>> kinds[] = {
        {"random", [&](std::size_t) { return static_cast<float>(random() % 100000); }},
        {"ascending", [](std::size_t i) { return static_cast<float>(i); }},
        {"few different", [&](std::size_t) { return static_cast<float>(random() % 3); }},
        {"all equal", [](std::size_t) { return 1.0f; }},
        {"mostly equal", [&](std::size_t i) { return i % 10 == 0 ? static_cast<float>(random() % 100) : 0.0f; }},
        // The rows that a pivot is chosen from are the least of all, equal or not.
        {"a misleading sample",
         [&](std::size_t i) { return i % 132 < 4 ? -1.0f : static_cast<float>(random() % 1000); }},
        {"another one", [&](std::size_t i) { return static_cast<float>(i % 132 < 4 ? i : random() % 1000 + numRows); }},
    };
    for (const auto& [what, draw] : kinds) {
        std::vector<float> values(numRows);
        for (std::size_t i = 0; i < numRows; ++i) {
            values[i] = draw(i);
        }
        std::vector<std::uint32_t> rows(numRows);
        std::iota(rows.begin(), rows.end(), 0u);
        kt_WatchedSteps steps(nullptr);
        kt_sortByLeaves(values.data(), 1, rows.data(), rows.data() + numRows, steps);
        std::vector<float> inOrder(values);
        std::sort(inOrder.begin(), inOrder.end());
        for (std::size_t first = 0; first < numRows; first += kt_blockRows) {
            std::vector<float> block(kt_blockRows);
            std::transform(rows.begin() + static_cast<std::ptrdiff_t>(first),
                           rows.begin() + static_cast<std::ptrdiff_t>(first + kt_blockRows), block.begin(),
                           [&](std::uint32_t row) { return values[row]; });
            std::sort(block.begin(), block.end());
            const auto expected = inOrder.begin() + static_cast<std::ptrdiff_t>(first);
            EXPECT_TRUE(std::equal(block.begin(), block.end(), expected)) << what << ", from place " << first;
        }
        std::sort(rows.begin(), rows.end());
        for (std::size_t i = 0; i < numRows; ++i) {
            ASSERT_EQ(rows[i], i) << what;
        }
    }
}

TEST(ScanKernels, TheApproximatePowerKeepsItsStatedError)
{
    for (const kt_ScanKernels* kernels : kernelSets()) {
        for (const float order : {0.3f, 1.5f, 7.5f}) {
            for (const int exponent : {-15, 0, 12}) {
                const double bound = kt_powerError * static_cast<double>(order) + kt_powerErrorFixed;
                EXPECT_LT(largestPowerError(*kernels, order, exponent), bound)
                    << "order " << order << ", exponent " << exponent;
            }
        }
    }
}

}  // namespace
