// Searches for many queries at once against runs one by one, to the bit, and the kernels of such searches against plain loops.

#include "clss/clastool/neighbor_scan/batch_scan.h"
#include "clss/clastool/neighbor_scan/batch_kernels.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using Row = std::vector<double>;

constexpr double infinity = std::numeric_limits<double>::infinity();

/// The sets of kernels that this machine can run.
std::vector<std::pair<int, const kt_BatchKernels*>> batchKernels()
{
    std::vector<std::pair<int, const kt_BatchKernels*>> found;
    for (const int set : {1, 2}) {
        if (kt_CompactCopy::instructionSet(set) == set) {
            found.emplace_back(set, set == 1 ? kt_avx2BatchKernels : kt_vnniBatchKernels);
        }
    }
    kt_CompactCopy::instructionSet(2);
    return found;
}

struct RoundedBlock {
    std::vector<std::int16_t> rows;
    std::vector<std::int32_t> squares;
    double lost = 0.0;
    bool isCut = false;
};

RoundedBlock rounded(const std::vector<float>& block, std::size_t size, float scale, float most)
{
    const std::size_t numPairs = (size + 1) / 2;
    RoundedBlock result{std::vector<std::int16_t>(numPairs * 2 * kt_blockRows),
                        std::vector<std::int32_t>(kt_blockRows)};
    for (std::size_t row = 0; row < kt_blockRows; ++row) {
        double lost = 0.0;
        for (std::size_t j = 0; j < size; ++j) {
            const double value = static_cast<double>(block[j * kt_blockRows + row]) * static_cast<double>(scale);
            const double inside = std::clamp(value, -static_cast<double>(most), static_cast<double>(most));
            const double whole = std::nearbyint(inside);
            lost += (inside - whole) * (inside - whole);
            result.isCut = result.isCut || inside != value;
            result.rows[j / 2 * 2 * kt_blockRows + 2 * row + j % 2] = static_cast<std::int16_t>(whole);
            result.squares[row] += static_cast<std::int32_t>(whole * whole);
        }
        result.lost = std::max(result.lost, lost);
    }
    return result;
}

TEST(BatchKernels, RoundBlocksAndSumAsPlainLoopsDo)
{
    ktRandomGaussian normal(1);
    for (const auto& [set, kernels] : batchKernels()) {
        for (const std::size_t size : {1u, 2u, 3u, 4u, 7u, 16u, 65u}) {
            SCOPED_TRACE(testing::Message() << "set " << set << ", " << size << " measurements");
            std::vector<float> block(size * kt_blockRows);
            std::generate(block.begin(), block.end(), [&] { return static_cast<float>(normal.next(0.0, 1.0)); });
            if (size % 4 != 0) {
                block.back() = size % 4 == 1 ? 1e6f : -3.0f;
            }
            const RoundedBlock expected = rounded(block, size, 128.0f, 383.0f);
            const std::size_t numPairs = (size + 1) / 2;
            std::vector<std::int16_t> rows(numPairs * 2 * kt_blockRows, 99);
            std::vector<std::int32_t> squares(kt_blockRows);
            bool isCut = false;
            const float lost = kernels->round(block.data(), size, 128.0f, 383.0f, rows.data(), squares.data(), &isCut);
            EXPECT_EQ(isCut, expected.isCut);
            EXPECT_EQ(rows, expected.rows);
            EXPECT_EQ(squares, expected.squares);
            EXPECT_NEAR(static_cast<double>(lost), expected.lost,
                        expected.lost * 0x1p-24 * static_cast<double>(size + 2));

            std::vector<std::int16_t> queries(numPairs * 2 * kt_batchQueries);
            std::generate(queries.begin(), queries.end(),
                          [&] { return static_cast<std::int16_t>(normal.next(0.0, 400.0)); });
            std::vector<std::int32_t> plain(kt_batchQueries * kt_blockRows);
            for (std::size_t q = 0; q < kt_batchQueries; ++q) {
                for (std::size_t row = 0; row < kt_blockRows; ++row) {
                    std::int32_t sum = squares[row];
                    for (std::size_t j = 0; j < 2 * numPairs; ++j) {
                        sum += rows[j / 2 * 2 * kt_blockRows + 2 * row + j % 2] *
                               queries[j / 2 * 2 * kt_batchQueries + 2 * q + j % 2];
                    }
                    plain[q * kt_blockRows + row] = sum;
                }
            }
            // Limits that are met exactly, that all rows pass and that none does.
            std::vector<std::int32_t> limits(kt_batchQueries);
            for (std::size_t q = 0; q < kt_batchQueries; ++q) {
                limits[q] = plain[q * kt_blockRows + 11 * q];
            }
            limits[1] = std::numeric_limits<std::int32_t>::max();
            limits[2] = std::numeric_limits<std::int32_t>::min();
            std::vector<std::uint64_t> within(kt_batchQueries, 7);
            std::vector<std::int32_t> sums(plain.size(), -1);
            kernels->sums(rows.data(), squares.data(), queries.data(), numPairs, limits.data(), within.data(),
                          sums.data());
            for (std::size_t i = 0; i < plain.size(); ++i) {
                const bool isWithin = (within[i / kt_blockRows] >> i % kt_blockRows & 1) != 0;
                ASSERT_EQ(isWithin, plain[i] <= limits[i / kt_blockRows]) << i;
                ASSERT_TRUE(!isWithin || sums[i] == plain[i]) << i;
            }
            std::vector<std::int32_t> least = plain;
            std::for_each(least.begin(), least.end(), [](std::int32_t& each) { each += each % 2 == 0 ? 5 : -5; });
            std::vector<std::int32_t> lowered = least;
            kernels->lower(rows.data(), squares.data(), queries.data(), numPairs, lowered.data());
            for (std::size_t i = 0; i < plain.size(); ++i) {
                ASSERT_EQ(lowered[i], std::min(least[i], plain[i])) << i;
            }
        }
    }
}

struct Kind {
    const char* name;
    double (*value)(ktRandomUniform& uniform, ktRandomGaussian& normal, std::size_t row, std::size_t j);
    /// Whether most queries are answered by the search itself.
    bool isServed = true;
    bool isFarthestFirst = false;
};

double gaussian(ktRandomUniform&, ktRandomGaussian& normal, std::size_t, std::size_t)
{
    return normal.next(0.0, 1.0);
}

const Kind kinds[] = {
    {"Normal", gaussian},
    {"Uniform", [](ktRandomUniform& u, ktRandomGaussian&, std::size_t, std::size_t) { return u.next(0.0, 1.0); }},
    {"FarthestFirst", gaussian, true, true},
    {"Separated", [](ktRandomUniform&, ktRandomGaussian& n, std::size_t row,
                     std::size_t j) { return static_cast<double>((row * 5 + j * 3) % 7) * 10.0 + n.next(0.0, 1.0); }},
    {"Clusters",
     [](ktRandomUniform&, ktRandomGaussian& n, std::size_t row, std::size_t) {
         return static_cast<double>(row % 4) + n.next(0.0, 1e-7);
     },
     false},
    {"DistantClusters",
     [](ktRandomUniform&, ktRandomGaussian& n, std::size_t row, std::size_t) {
         return n.next(0.0, 1.0) + (row % 4 == 1 ? 1e8 : 0.0);
     },
     false},
    {"Grid",
     [](ktRandomUniform& u, ktRandomGaussian&, std::size_t, std::size_t) { return std::floor(u.next(-3.0, 4.0)); },
     false},
    {"AllOne", [](ktRandomUniform&, ktRandomGaussian&, std::size_t, std::size_t j) { return static_cast<double>(j); },
     false},
    {"MixedScales",
     [](ktRandomUniform&, ktRandomGaussian& n, std::size_t, std::size_t j) {
         return std::pow(10.0, static_cast<double>(j % 7) - 3.0) * n.next(0.0, 1.0);
     },
     false},
    {"WildRows",
     [](ktRandomUniform&, ktRandomGaussian& n, std::size_t row, std::size_t) {
         return n.next(0.0, 1.0) * (row % 100 == 17 ? 1e8 : 1.0);
     },
     false},
    // Rows that the sample of the scale misses are cut off, in blocks all over the store.
    {"HeavyTails",
     [](ktRandomUniform& u, ktRandomGaussian&, std::size_t, std::size_t) { return std::tan(u.next(-1.57, 1.57)); },
     false},
    {"Offset", [](ktRandomUniform&, ktRandomGaussian& n, std::size_t, std::size_t) { return 1e6 + n.next(0.0, 1.0); }},
    {"Tiny", [](ktRandomUniform&, ktRandomGaussian& n, std::size_t, std::size_t) { return n.next(0.0, 1e-200); },
     false},
    {"Subnormal", [](ktRandomUniform&, ktRandomGaussian& n, std::size_t, std::size_t) { return n.next(0.0, 1e-315); },
     false},
    {"Huge", [](ktRandomUniform&, ktRandomGaussian& n, std::size_t, std::size_t) { return n.next(0.0, 1e150); }, false},
};

class BatchScan : public testing::TestWithParam<Kind> {
protected:
    void TearDown() override { kt_CompactCopy::instructionSet(2); }

    void draw(std::size_t numRows, std::size_t size, unsigned long seed)
    {
        ktRandomUniform uniform(seed);
        ktRandomGaussian normal(seed + 1);
        std::vector<Row> rows(numRows, Row(size));
        for (std::size_t row = 0; row < numRows; ++row) {
            for (std::size_t j = 0; j < size; ++j) {
                rows[row][j] = GetParam().value(uniform, normal, row, j);
            }
        }
        const auto isFarther = [](const Row& a, const Row& b) { return std::abs(a[0]) > std::abs(b[0]); };
        if (GetParam().isFarthestFirst) {
            std::sort(rows.begin(), rows.end(), isFarther);
        }
        store_ = ktClassifierDataProviderMemory();
        for (std::size_t row = 0; row < numRows; ++row) {
            // Every 16th row is there twice.
            store_.addData(new ktFeaturePattern(rows[row % 16 == 15 ? row - 7 : row], {}), static_cast<long>(row % 4));
        }
        copy_->make(store_);
        queries_.clear();
        for (std::size_t i = 0; i < 50; ++i) {
            Row query(size);
            for (std::size_t j = 0; j < size; ++j) {
                query[j] = GetParam().value(uniform, normal, i, j);
            }
            queries_.push_back(i % 5 == 0 ? rows[i * 7 % numRows] : query);
        }
        // Among the first, which are tried one by one, and among the others.
        queries_[1][0] = 1e300;
        queries_[2][0] = std::nan("");
        queries_[11][0] *= 1e3;
        queries_[12][0] = 1e300;
        queries_[13][0] = infinity;
        queries_[14][0] = std::nan("");
        std::fill(queries_[15].begin(), queries_[15].end(), 0.0);
    }

    /// Compares with searches one by one. Returns how many queries were answered.
    long check(std::size_t k) const
    {
        if (!copy_->isCurrent(store_) || !kt_BatchScan(*copy_, store_, k).isWorthwhile(queries_.size())) {
            EXPECT_FALSE(GetParam().isServed);
            return 0;
        }
        if (!copy_->isCurrent(store_)) {
            return 0;
        }
        std::vector<const Row*> asked;
        std::transform(queries_.begin(), queries_.end(), std::back_inserter(asked),
                       [](const Row& each) { return &each; });
        asked[20] = nullptr;
        kt_BatchScan scan(*copy_, store_, k);
        std::vector<std::size_t> rows(asked.size() * k);
        // By itself it may leave most of them to runs one by one.
        std::vector<char> isFound(asked.size(), 0);
        if (k % 2 == 0) {
            isFound = scan.run(asked, rows);
        }
        scan.findTogether(asked, isFound, rows);
        EXPECT_EQ(isFound[20], 0);
        long found = 0;
        for (std::size_t i = 0; i < asked.size(); ++i) {
            if (isFound[i] == 0) {
                continue;
            }
            ++found;
            kt_RowList expected(k);
            EXPECT_TRUE(copy_->nearest(store_, queries_[i], 2.0, expected));
            std::sort(expected.begin(), expected.end());
            const auto first = rows.begin() + static_cast<std::ptrdiff_t>(i * k);
            std::sort(first, first + static_cast<std::ptrdiff_t>(k));
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), first)) << "query " << i;
        }
        return found;
    }

    ktClassifierDataProviderMemory store_;
    ktPtrHandle<kt_CompactCopy> copy_ = new kt_CompactCopy;
    std::vector<Row> queries_;
};

TEST_P(BatchScan, FindsTheRowsOfSearchesOneByOne)
{
    long asked = 0;
    long found = 0;
    unsigned long seed = 100;
    for (const std::size_t numRows : {512u, 700u, 1500u, 5000u}) {
        for (const std::size_t size : {1u, 2u, 3u, 8u, 17u, 64u, 300u}) {
            if (numRows * size > 200000) {
                continue;
            }
            draw(numRows, size, seed += 2);
            for (const auto& kernels : batchKernels()) {
                kt_CompactCopy::instructionSet(kernels.first);
                for (const std::size_t k : {1u, 2u, 5u, 20u, 64u}) {
                    SCOPED_TRACE(testing::Message()
                                 << numRows << " x " << size << ", k " << k << ", set " << kernels.first);
                    found += check(k);
                    asked += static_cast<long>(queries_.size());
                }
            }
        }
    }
    if (GetParam().isServed && !batchKernels().empty()) {
        EXPECT_GT(2 * found, asked);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, BatchScan, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST(BatchScanChoice, NeedsQueriesRowsAndKernels)
{
    ktClassifierDataProviderMemory store;
    for (long i = 0; i < 512; ++i) {
        store.addData(new ktFeaturePattern({static_cast<double>(i)}, {}), 0);
    }
    ktClassifierDataProviderMemory few;
    few.addData(new ktFeaturePattern({1.0}, {}), 0);
    const ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
    copy->make(store);
    const ktPtrHandle<kt_CompactCopy> copyOfFew = new kt_CompactCopy;
    copyOfFew->make(few);
    kt_CompactCopy::instructionSet(0);
    EXPECT_FALSE(kt_BatchScan(*copy, store, 5).isWorthwhile(100));
    const bool hasKernels = kt_CompactCopy::instructionSet(2) > 0;
    EXPECT_EQ(kt_BatchScan(*copy, store, 5).isWorthwhile(32), hasKernels);
    EXPECT_FALSE(kt_BatchScan(*copy, store, 5).isWorthwhile(31));
    EXPECT_FALSE(kt_BatchScan(*copy, store, 0).isWorthwhile(100));
    EXPECT_FALSE(kt_BatchScan(*copy, store, 65).isWorthwhile(100));
    EXPECT_FALSE(kt_BatchScan(*copyOfFew, few, 1).isWorthwhile(100));
}

TEST(BatchScanChoice, NeedsMeasurementsFewEnoughForSumsIn32Bits)
{
    for (const std::size_t size : {32768u, 32769u}) {
        ktClassifierDataProviderMemory store;
        // Each pattern is there as often as a copy takes it.
        for (int i = 0; i < 32; ++i) {
            const ktPtrHandle<ktFeaturePattern> pattern = new ktFeaturePattern(Row(size, static_cast<double>(i)), {});
            for (int j = 0; j < 16; ++j) {
                store.addData(pattern, 0);
            }
        }
        const ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
        copy->make(store);
        ASSERT_TRUE(copy->isCurrent(store));
        const bool hasKernels = kt_CompactCopy::instructionSet(2) > 0;
        EXPECT_EQ(kt_BatchScan(*copy, store, 5).isWorthwhile(100), hasKernels && size == 32768);
    }
}

/// A store of so many rows, their numbers of which are as `value` says, and the copy of it.
struct Copied {
    template <class Draw>
    Copied(std::size_t numRows, Draw draw)
    {
        for (std::size_t i = 0; i < numRows; ++i) {
            rows.push_back(draw(i));
            store.addData(new ktFeaturePattern(rows.back(), {}), 0);
        }
        copy->make(store);
    }

    std::vector<Row> rows;
    ktClassifierDataProviderMemory store;
    ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
};

TEST(BatchScanOfFewQueries, PassesOverThoseThatAreNull)
{
    if (batchKernels().empty()) {
        GTEST_SKIP() << "the machine has no kernels for batches";
    }
    const Copied line(1000, [](std::size_t i) { return Row{static_cast<double>(i)}; });
    const Row query{700.25};
    for (const std::size_t numThere : {0u, 1u, 3u}) {
        kt_BatchScan::Queries queries(40, nullptr);
        for (std::size_t i = 0; i < numThere; ++i) {
            queries[5 + 9 * i] = &query;
        }
        std::vector<std::size_t> rows(queries.size() * 2, 7);
        kt_BatchScan scan(*line.copy, line.store, 2);
        ASSERT_TRUE(scan.isWorthwhile(queries.size()));
        const std::vector<char> isFound = scan.run(queries, rows);
        for (std::size_t i = 0; i < queries.size(); ++i) {
            ASSERT_EQ(isFound[i] != 0, queries[i] != nullptr) << "query " << i << ", there are " << numThere;
            std::sort(rows.data() + 2 * i, rows.data() + 2 * i + 2);
            EXPECT_EQ(rows[2 * i], queries[i] != nullptr ? 700u : 7u);
            EXPECT_EQ(rows[2 * i + 1], queries[i] != nullptr ? 701u : 7u);
        }
    }
}

// A row that lies beyond the numbers counts as one at their end, and looks nearer to the query than the nearest.
TEST(BatchScanOfWildRows, TakesNoBoundFromARowThatIsCutOff)
{
    if (batchKernels().empty()) {
        GTEST_SKIP() << "the machine has no kernels for batches";
    }
    ktRandomUniform uniform(4);
    constexpr std::size_t beyond = 500;
    Copied copied(540, [&](std::size_t i) { return Row{i == beyond ? 500.0 : uniform.next(-1.0, 1.0)}; });
    // Added rows are compared after those that were there.
    for (int i = 0; i < 10; ++i) {
        copied.store.addData(new ktFeaturePattern({0.0}, {}), 0);
        copied.copy->append(copied.store);
    }
    const Row query{1.2};
    copied.rows[beyond] = {-1.0};
    const auto nearest = std::max_element(copied.rows.begin(), copied.rows.end()) - copied.rows.begin();
    const kt_BatchScan::Queries queries(40, &query);
    kt_BatchScan scan(*copied.copy, copied.store, 1);
    ASSERT_TRUE(scan.isWorthwhile(queries.size()));
    std::vector<std::size_t> rows(queries.size());
    std::vector<char> isFound(queries.size(), 0);
    scan.findTogether(queries, isFound, rows);
    EXPECT_EQ(isFound, std::vector<char>(queries.size(), 1));
    EXPECT_EQ(rows, std::vector<std::size_t>(queries.size(), static_cast<std::size_t>(nearest)));
}

// Values that no float can hold are brought nearer to zero, and the row farthest away looks nearest.
TEST(BatchScanOfWildRows, TakesNoBoundFromValuesThatNoFloatHolds)
{
    if (batchKernels().empty()) {
        GTEST_SKIP() << "the machine has no kernels for batches";
    }
    ktRandomGaussian normal(3);
    constexpr std::size_t size = 16;
    constexpr std::size_t nearest = 200;
    const Copied wild(600, [&](std::size_t i) {
        Row row(size);
        std::generate(row.begin(), row.end(), [&] { return normal.next(0.0, 1.0); });
        const double away = i == nearest ? 0x1p+140 : 0x1p+300 * static_cast<double>(i + 1);
        row[i % size] = away;
        if (i != 3 && i != 300) {
            row[(i + 5) % size] = away;
        }
        return row;
    });
    const Row query(size, 0.5);
    const kt_BatchScan::Queries queries(40, &query);
    kt_BatchScan scan(*wild.copy, wild.store, 1);
    ASSERT_TRUE(scan.isWorthwhile(queries.size()));
    std::vector<std::size_t> rows(queries.size());
    std::vector<char> isFound(queries.size(), 0);
    scan.findTogether(queries, isFound, rows);
    EXPECT_EQ(isFound, std::vector<char>(queries.size(), 0)) << "they are left to runs one by one";
    isFound = scan.run(queries, rows);
    EXPECT_EQ(isFound[0], 1);
    EXPECT_EQ(rows[0], nearest);
}

}  // namespace
