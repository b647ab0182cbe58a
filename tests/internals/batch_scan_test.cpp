// Searches for many queries at once against runs one by one, to the bit, and the kernels of such searches against plain loops.

#include "scan_kit.h"

#include "tests/support/allocations.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace scans;

TEST_P(BatchKernels, RoundBlocksAsPlainLoopsDo)
{
    std::vector<float> block = draw(normal_, size_ * kt_blockRows, size_ * kt_blockRows, 1.0);
    const std::vector<float> centre = draw(normal_, size_, size_, 0.5);
    if (size_ % 4 != 0) {
        block.back() = size_ % 4 == 1 ? 1e6f : -3.0f;
    }
    const RoundedBlock expected = rounded(block, centre, size_, 100.0f, 383.0f);
    for (const auto& [set, kernels] : batchKernels()) {
        SCOPED_TRACE(testing::Message() << "set " << set);
        std::vector<std::int16_t> rows(numPairs_ * 2 * kt_blockRows, 99);
        std::vector<std::int32_t> squares(kt_blockRows);
        const float lost =
            kernels->round(block.data(), centre.data(), size_, 100.0f, 383.0f, rows.data(), squares.data());
        EXPECT_EQ(rows, expected.rows);
        EXPECT_EQ(squares, expected.squares);
        EXPECT_NEAR(static_cast<double>(lost), expected.lost, expected.lost * 0x1p-24 * static_cast<double>(size_ + 2));
    }
}

TEST_P(BatchKernels, RoundQueriesAsPlainLoopsDo)
{
    const std::vector<float> query = draw(normal_, size_, padded(size_), 3.0);
    const std::vector<float> centre = draw(normal_, size_, padded(size_), 0.5);
    std::vector<std::int16_t> expected(padded(size_));
    std::int32_t square = 0;
    double lost = 0.0;
    double outside = 0.0;
    for (std::size_t j = 0; j < size_; ++j) {
        const Rounded value = rounded(query[j], centre[j], 100.0f, 383.0f);
        expected[j] = static_cast<std::int16_t>(-2.0 * value.whole);
        square += static_cast<std::int32_t>(value.whole * value.whole);
        lost += value.lost * value.lost;
        outside += value.outside * value.outside;
    }
    for (const auto& [set, kernels] : batchKernels()) {
        SCOPED_TRACE(testing::Message() << "set " << set);
        std::vector<std::int16_t> numbers(padded(size_), 99);
        const kt_RoundedQuery result =
            kernels->roundQuery(query.data(), centre.data(), size_, 100.0f, 383.0f, numbers.data());
        EXPECT_EQ(numbers, expected);
        EXPECT_EQ(result.square, square);
        const double error = 0x1p-23 * static_cast<double>(size_ + 4);
        EXPECT_NEAR(static_cast<double>(result.lost), lost, lost * error);
        EXPECT_NEAR(static_cast<double>(result.outside), outside, outside * error);
    }
}

TEST_P(BatchKernels, SumDifferencesAsPlainLoopsDo)
{
    std::vector<std::int16_t> rows(numPairs_ * 2 * kt_blockRows);
    std::vector<std::int32_t> squares(kt_blockRows);
    std::vector<std::int16_t> numbers(kt_batchQueries * padded(size_));
    const auto number = [this] { return static_cast<std::int16_t>(normal_.next(0.0, 400.0)); };
    std::generate(rows.begin(), rows.end(), number);
    std::generate(squares.begin(), squares.end(), number);
    std::generate(numbers.begin(), numbers.end(), number);
    std::vector<const std::int16_t*> queries(kt_batchQueries);
    std::vector<std::int32_t> plain(kt_batchQueries * kt_blockRows);
    for (std::size_t q = 0; q < kt_batchQueries; ++q) {
        // Queries lie in any order.
        queries[q] = numbers.data() + q * 5 % kt_batchQueries * padded(size_);
        for (std::size_t row = 0; row < kt_blockRows; ++row) {
            std::int32_t sum = squares[row];
            for (std::size_t j = 0; j < 2 * numPairs_; ++j) {
                sum += rows[j / 2 * 2 * kt_blockRows + 2 * row + j % 2] * queries[q][j];
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
    for (const auto& [set, kernels] : batchKernels()) {
        SCOPED_TRACE(testing::Message() << "set " << set);
        std::vector<std::uint64_t> within(kt_batchQueries, 7);
        std::vector<std::int32_t> sums(plain.size(), -1);
        kernels->sums(rows.data(), squares.data(), queries.data(), numPairs_, limits.data(), within.data(),
                      sums.data());
        for (std::size_t i = 0; i < plain.size(); ++i) {
            const bool isWithin = (within[i / kt_blockRows] >> i % kt_blockRows & 1) != 0;
            ASSERT_EQ(isWithin, plain[i] <= limits[i / kt_blockRows]) << i;
            ASSERT_TRUE(!isWithin || sums[i] == plain[i]) << i;
        }
    }
}

TEST_P(BatchKernels, BoundBoxesAsPlainLoopsDo)
{
    constexpr std::size_t count = 24;
    constexpr std::size_t existing = 19;
    const float far = std::numeric_limits<float>::infinity();
    std::vector<float> boxes(2 * count * size_);
    for (std::size_t j = 0; j < size_; ++j) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto low = static_cast<float>(normal_.next(0.0, 1.0));
            boxes[2 * j * count + i] = i < existing ? low : far;
            boxes[(2 * j + 1) * count + i] =
                i < existing ? low + static_cast<float>(std::abs(normal_.next(0.0, 1.0))) : -far;
        }
    }
    const std::vector<float> values = draw(normal_, kt_batchQueries * size_, kt_batchQueries * size_, 2.0);
    std::vector<const float*> queries(kt_batchQueries);
    for (std::size_t q = 0; q < kt_batchQueries; ++q) {
        queries[q] = values.data() + q * 5 % kt_batchQueries * size_;
    }
    for (const auto& [set, kernels] : batchKernels()) {
        std::vector<float> sums(kt_batchQueries * kt_blockRows, -1.0f);
        kernels->boxes(boxes.data(), count, queries.data(), size_, sums.data());
        for (std::size_t i = 0; i < kt_batchQueries * kt_blockRows; ++i) {
            const std::size_t box = i % kt_blockRows;
            double sum = 0.0;
            for (std::size_t j = 0; j < size_; ++j) {
                const auto value = static_cast<double>(queries[i / kt_blockRows][j]);
                const auto low = static_cast<double>(box < count ? boxes[2 * j * count + box] : 0.0f);
                const auto high = static_cast<double>(box < count ? boxes[(2 * j + 1) * count + box] : 0.0f);
                const double gap = std::max({low - value, value - high, 0.0});
                sum += gap * gap;
            }
            if (box < existing) {
                EXPECT_NEAR(static_cast<double>(sums[i]), sum, sum * 0x1p-23 * static_cast<double>(size_ + 12))
                    << "set " << set << ", " << i;
            } else {
                EXPECT_EQ(sums[i], box < count ? far : -1.0f) << "set " << set << ", " << i;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, BatchKernels, testing::Values(1, 2, 3, 4, 7, 16, 65));

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
        // Farther away than steps can be counted where they are finest.
        queries_[10][0] += 1e9;
        queries_[12][0] = 1e300;
        queries_[13][0] = infinity;
        queries_[14][0] = std::nan("");
        std::fill(queries_[15].begin(), queries_[15].end(), 0.0);
    }

    /// Compares with searches one by one. Returns how many queries were answered.
    long check(std::size_t k, bool useBoxes) const
    {
        if (!copy_->isCurrent(store_) || !kt_BatchScan(*copy_, store_, k).isWorthwhile(queries_.size())) {
            EXPECT_FALSE(GetParam().isServed);
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
        scan.findTogether(asked, useBoxes, isFound, rows);
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
                    for (const bool useBoxes : {false, true}) {
                        found += check(k, useBoxes);
                        asked += static_cast<long>(queries_.size());
                    }
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

TEST(BatchScanMemory, IsNotNeededForTheAnswers)
{
    if (batchKernels().empty()) {
        GTEST_SKIP() << "the machine has no kernels for batches";
    }
    kt_test::needCounts();
    // So many measurements that boxes exclude no block, and a search together is faster.
    ktRandomUniform uniform(7);
    const auto drawRow = [&](std::size_t) {
        Row row(40);
        std::generate(row.begin(), row.end(), [&] { return uniform.next(0.0, 1.0); });
        return row;
    };
    const Copied copied(1500, drawRow);
    ktClassifierTool tool;
    tool.train(copied.store, ktClassifierTrainParamsKNN(5));
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns(200);
    std::generate(patterns.begin(), patterns.end(), [&] { return new ktFeaturePattern(drawRow(0), {}); });
    std::vector<ktClassifierResult> expected;
    const long all = kt_test::allocationsDuring([&] { tool.run(patterns, expected); });
    const auto ofResults = static_cast<long>(patterns.size());
    EXPECT_GT(all, ofResults + 10) << "they are searched one by one";
    std::vector<ktClassifierResult> results;
    // The first allocation is that of the list of results, and the last ones are those of each result.
    for (long n = 2; n <= all - ofResults; ++n) {
        SCOPED_TRACE(n);
        const kt_test::AllocationFailure failure(n);
        tool.run(patterns, results);
        EXPECT_TRUE(failure.happened());
        EXPECT_EQ(results, expected);
    }
}

// Whether blocks are passed over or not, also those that were added and have no boxes yet, of which the last is not full.
TEST(BatchScanOfAddedRows, FindsTheRowsOfSearchesOneByOne)
{
    ktRandomGaussian normal(4);
    const auto draw = [&](std::size_t i) {
        Row row(5, i % 3 == 1 ? 40.0 : -7.0);
        std::for_each(row.begin(), row.end(), [&](double& value) { value += normal.next(0.0, 1.0); });
        return row;
    };
    Copied copied(700, draw);
    copied.store.addData(new ktFeaturePattern(Row(5, 500.0), {}), 0);
    copied.copy->append(copied.store);
    for (std::size_t i = 0; i < 140; ++i) {
        copied.store.addData(new ktFeaturePattern(draw(i), {}), 0);
        copied.copy->append(copied.store);
    }
    std::vector<Row> drawn;
    for (std::size_t i = 0; i < 40; ++i) {
        drawn.push_back(i % 9 == 0 ? Row(5, 42.0 + static_cast<double>(i)) : draw(i));
    }
    kt_BatchScan::Queries queries;
    std::transform(drawn.begin(), drawn.end(), std::back_inserter(queries), [](const Row& each) { return &each; });
    for (const auto& kernels : batchKernels()) {
        kt_CompactCopy::instructionSet(kernels.first);
        for (const std::size_t k : {1u, 5u, 16u, 17u, 64u}) {
            for (const bool useBoxes : {false, true}) {
                SCOPED_TRACE(testing::Message() << "k " << k << ", boxes " << useBoxes);
                kt_BatchScan scan(*copied.copy, copied.store, k);
                ASSERT_TRUE(scan.isWorthwhile(queries.size()));
                std::vector<std::size_t> rows(queries.size() * k);
                std::vector<char> isFound(queries.size(), 0);
                scan.findTogether(queries, useBoxes, isFound, rows);
                EXPECT_GT(std::count(isFound.begin(), isFound.end(), 1), 20);
                for (std::size_t i = 0; i < queries.size(); ++i) {
                    if (isFound[i] == 0) {
                        continue;
                    }
                    kt_RowList expected(k);
                    ASSERT_TRUE(copied.copy->nearest(copied.store, drawn[i], 2.0, expected));
                    std::sort(expected.begin(), expected.end());
                    std::sort(rows.data() + i * k, rows.data() + (i + 1) * k);
                    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), rows.data() + i * k)) << "query " << i;
                }
            }
        }
    }
    kt_CompactCopy::instructionSet(2);
}

// Boxes spare four blocks of five, and the steps are fine enough to tell the rows of a cluster apart.
TEST(BatchScanOfClusters, AnswersAllQueriesItself)
{
    if (batchKernels().empty()) {
        GTEST_SKIP() << "the machine has no kernels for batches";
    }
    ktRandomGaussian normal(6);
    constexpr std::size_t k = 5;
    const auto draw = [&](std::size_t i) {
        Row row(100);
        for (std::size_t j = 0; j < row.size(); ++j) {
            row[j] = normal.next(static_cast<double>((i * 7 + j * 3) % 5) * 100.0, 0.05);
        }
        return row;
    };
    const Copied copied(3000, draw);
    std::vector<Row> drawn;
    for (std::size_t i = 0; i < 300; ++i) {
        drawn.push_back(draw(i));
    }
    kt_BatchScan::Queries queries;
    std::transform(drawn.begin(), drawn.end(), std::back_inserter(queries), [](const Row& each) { return &each; });
    kt_BatchScan scan(*copied.copy, copied.store, k);
    ASSERT_TRUE(scan.isWorthwhile(queries.size()));
    std::vector<std::size_t> rows(queries.size() * k);
    EXPECT_EQ(scan.run(queries, rows), std::vector<char>(queries.size(), 1));
    for (std::size_t i = 0; i < queries.size(); ++i) {
        kt_RowList expected(k);
        ASSERT_TRUE(copied.copy->nearest(copied.store, drawn[i], 2.0, expected));
        std::sort(expected.begin(), expected.end());
        std::sort(rows.data() + i * k, rows.data() + (i + 1) * k);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), rows.data() + i * k)) << "query " << i;
    }
}

// The numbers of one part are steps so fine that such a query's distance from it would be more than they can count.
TEST(BatchScanOfWildQueries, GivesUpThoseThatAreTooFarAwayForTheSteps)
{
    if (batchKernels().empty()) {
        GTEST_SKIP() << "the machine has no kernels for batches";
    }
    // The first 512 lie where the offsets are, but for what the steps do not count.
    ktRandomGaussian normal(5);
    const Copied copied(600, [&](std::size_t i) {
        return Row{i % 2 == 0 ? normal.next(0.0, 1.0) : normal.next(0.0, 1e-30), i < 512 ? 0.0 : normal.next(0.0, 1.0)};
    });
    const Row far{0x1p+38, 0.0};
    const Row near{0.25, 0.25};
    kt_BatchScan::Queries queries(40, &far);
    queries[7] = &near;
    for (const bool useBoxes : {false, true}) {
        kt_BatchScan scan(*copied.copy, copied.store, 3);
        ASSERT_TRUE(scan.isWorthwhile(queries.size()));
        std::vector<std::size_t> rows(queries.size() * 3);
        std::vector<char> isFound(queries.size(), 0);
        scan.findTogether(queries, useBoxes, isFound, rows);
        EXPECT_EQ(isFound[7], 1);
        EXPECT_EQ(std::count(isFound.begin(), isFound.end(), 1), 1) << "boxes " << useBoxes;
    }
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
    scan.findTogether(queries, true, isFound, rows);
    EXPECT_EQ(isFound, std::vector<char>(queries.size(), 0)) << "they are left to runs one by one";
    isFound = scan.run(queries, rows);
    EXPECT_EQ(isFound[0], 1);
    EXPECT_EQ(rows[0], nearest);
}

}  // namespace
