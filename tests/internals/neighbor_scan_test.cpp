// The neighbour scan answers what the plain scan answers, bit for bit, with each set of kernels that the machine has.

#include "clss/clastool/neighbor_scan/compact_copy.h"
#include "clss/clastool/neighbor_scan/kernels.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

/// The same distance in a class of its own, which a run never hurries past.
class PlainNorm : public ktPatternDistanceMetricNorm {
public:
    using ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm;
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new PlainNorm(*this); }
};

using Row = std::vector<double>;

struct Data {
    std::vector<Row> rows;
    std::vector<long> labels;

    ktClassifierTool trained(const ktPatternDistanceMetric& metric, long k) const
    {
        ktClassifierDataProviderMemory provider;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            provider.addData(new ktFeaturePattern(rows[i], {}), labels[i]);
        }
        ktClassifierTool tool;
        tool.train(provider, ktClassifierTrainParamsKNN(k, metric, ktClassifierCosts()));
        return tool;
    }
};

/// The neighbours alone: with every pattern a category of its own the result lists exactly the neighbours.
Data withOwnLabels(Data data)
{
    for (std::size_t i = 0; i < data.rows.size(); ++i) {
        data.labels[i] = static_cast<long>(i);
    }
    return data;
}

enum class Kind { normal, offset, grid, mixedScales, bits, wide, tiny, huge, farthestFirst, numKinds };

double draw(Kind kind, std::size_t measurement, std::mt19937& random)
{
    std::normal_distribution<double> normal;
    const auto small = static_cast<int>(random() % 7) - 3;
    switch (kind) {
    case Kind::offset:
        return 1e6 + normal(random);
    case Kind::grid:
        return small;
    case Kind::mixedScales:
        return std::pow(10.0, static_cast<double>(measurement % 7) - 3.0) * normal(random);
    case Kind::bits:
        return static_cast<double>(random() % 2);
    case Kind::wide:
        return std::ldexp(normal(random), static_cast<int>(random() % 40) - 20);
    case Kind::tiny:
        return 1e-200 * normal(random);
    case Kind::huge:
        return 1e150 * normal(random);
    default:
        return normal(random);
    }
}

Data randomData(Kind kind, std::size_t numRows, std::size_t size, std::mt19937& random)
{
    Data data;
    for (std::size_t i = 0; i < numRows; ++i) {
        Row row(size);
        for (std::size_t j = 0; j < size; ++j) {
            row[j] = draw(kind, j, random);
        }
        // Duplicates tie.
        if (i > 0 && random() % 8 == 0) {
            row = data.rows[random() % i];
        }
        data.rows.push_back(row);
        data.labels.push_back(static_cast<long>(random() % 4));
    }
    if (kind == Kind::farthestFirst) {
        const auto length = [](const Row& row) {
            double sum = 0.0;
            for (const double value : row) {
                sum += value * value;
            }
            return sum;
        };
        std::sort(data.rows.begin(), data.rows.end(),
                  [&](const Row& a, const Row& b) { return length(a) > length(b); });
    }
    return data;
}

Row randomQuery(const Data& data, Kind kind, std::mt19937& random)
{
    Row query = data.rows[random() % data.rows.size()];
    if (random() % 3 != 0) {
        for (std::size_t j = 0; j < query.size(); ++j) {
            query[j] = draw(kind, j, random);
        }
    }
    switch (random() % 60) {
    case 0:
        query[random() % query.size()] = 1e300;
        break;
    case 1:
        query[random() % query.size()] = std::numeric_limits<double>::quiet_NaN();
        break;
    case 2:
        query[random() % query.size()] = std::numeric_limits<double>::infinity();
        break;
    default:
        break;
    }
    return query;
}

/// Runs `queries` random patterns against both and compares whole results.
void expectEqualAnswers(const Data& data, Kind kind, double order, long k, int queries, std::mt19937& random)
{
    const ktClassifierTool byCopy = data.trained(ktPatternDistanceMetricNorm(order), k);
    const ktClassifierTool plain = data.trained(PlainNorm(order), k);
    for (int i = 0; i < queries; ++i) {
        const ktFeaturePattern query(randomQuery(data, kind, random), {});
        ktClassifierResult answer;
        ktClassifierResult expected;
        byCopy.run(query, answer);
        plain.run(query, expected);
        ASSERT_EQ(answer, expected) << "order " << order << ", k " << k << ", kind " << static_cast<int>(kind) << ", "
                                    << data.rows.size() << " rows of " << query.numMeasurements();
    }
}

/// Each test runs with every set of kernels that the machine has.
class NeighborScan : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        if (kt_CompactCopy::instructionSet(GetParam()) != GetParam()) {
            std::cout << "[   NOTE   ] this machine has no such instruction set; the baseline runs instead\n";
        }
    }
    void TearDown() override { kt_CompactCopy::instructionSet(1); }
};

TEST_P(NeighborScan, AnswersAreThoseOfThePlainScanOnStoresOfManyPatterns)
{
    std::mt19937 random(7);
    for (int round = 0; round < 6; ++round) {
        const auto kind = static_cast<Kind>(round % static_cast<int>(Kind::numKinds));
        const std::size_t size = 8 + random() % 8;
        const Data data = randomData(kind, 160000 / size + 100, size, random);
        ASSERT_NO_FATAL_FAILURE(expectEqualAnswers(data, kind, 1.0 + round % 2, 1 + round * 3, 3, random));
    }
}

TEST_P(NeighborScan, PatternsAddedOneByOneAreFound)
{
    std::mt19937 random(3);
    const Data data = withOwnLabels(randomData(Kind::normal, 400, 5, random));
    ktClassifierDataProviderMemory first;
    first.addData(new ktFeaturePattern(data.rows[0], {}), data.labels[0]);
    kt_ClassifierKNN byCopy;
    kt_ClassifierKNN plain;
    byCopy.train(first, ktClassifierTrainParamsKNN(4, ktPatternDistanceMetricNorm(2.0), ktClassifierCosts()));
    plain.train(first, ktClassifierTrainParamsKNN(4, PlainNorm(2.0), ktClassifierCosts()));
    for (std::size_t i = 1; i < data.rows.size(); ++i) {
        // Every fiftieth is far outside what the copy was made for.
        Row row = data.rows[i];
        row[0] *= i % 50 == 0 ? 1e9 : 1.0;
        byCopy.trainIncremental(ktFeaturePattern(row, {}), data.labels[i]);
        plain.trainIncremental(ktFeaturePattern(row, {}), data.labels[i]);
        ktClassifierResult answer;
        ktClassifierResult expected;
        const ktFeaturePattern query(randomQuery(data, Kind::normal, random), {});
        byCopy.run(query, answer);
        plain.run(query, expected);
        ASSERT_EQ(answer, expected) << "after " << i + 1 << " patterns";
    }
}

TEST_P(NeighborScan, AnInvalidMeasurementAddedLaterIsRefusedByTheRun)
{
    std::mt19937 random(4);
    const Data data = randomData(Kind::normal, 300, 3, random);
    kt_ClassifierKNN classifier;
    ktClassifierDataProviderMemory provider;
    for (std::size_t i = 0; i < data.rows.size(); ++i) {
        provider.addData(new ktFeaturePattern(data.rows[i], {}), data.labels[i]);
    }
    classifier.train(provider, ktClassifierTrainParamsKNN(3));
    classifier.trainIncremental(ktFeaturePattern({1.0, 2.0, 3.0}, {1}), 0);
    ktClassifierResult result;
    EXPECT_THROW(classifier.run(ktFeaturePattern({0.0, 0.0, 0.0}, {}), result), ktClassifierDefs::BadFeatures);
}

TEST_P(NeighborScan, AKeptPatternThatIsAssignedOverIsSeenByTheNextRun)
{
    const ktPtrHandle<ktFeaturePattern> kept = new ktFeaturePattern({0.0}, {});
    ktClassifierDataProviderMemory provider;
    provider.addData(kept, 1);
    provider.addData(new ktFeaturePattern({10.0}, {}), 2);
    kt_ClassifierKNN classifier;
    classifier.train(provider, ktClassifierTrainParamsKNN(1));
    ktClassifierResult result;
    classifier.run(ktFeaturePattern({1.0}, {}), result);
    EXPECT_EQ(result.categoryResults().front().categoryLabel(), 1);
    *kept = ktFeaturePattern({100.0}, {});
    classifier.run(ktFeaturePattern({1.0}, {}), result);
    EXPECT_EQ(result.categoryResults().front().categoryLabel(), 2);
}

TEST_P(NeighborScan, ACloneProfitsFromPatternsAddedToTheOther)
{
    std::mt19937 random(5);
    Data data = withOwnLabels(randomData(Kind::normal, 200, 4, random));
    data.rows[150] = {3.0, 3.0, 3.0, 3.0};
    ktClassifierDataProviderMemory provider;
    for (std::size_t i = 0; i < 100; ++i) {
        provider.addData(new ktFeaturePattern(data.rows[i], {}), data.labels[i]);
    }
    kt_ClassifierKNN classifier;
    classifier.train(provider, ktClassifierTrainParamsKNN(1));
    const kt_ClassifierKNN sharer(classifier);
    for (std::size_t i = 100; i < 200; ++i) {
        classifier.trainIncremental(ktFeaturePattern(data.rows[i], {}), data.labels[i]);
    }
    ktClassifierResult result;
    sharer.run(ktFeaturePattern(data.rows[150], {}), result);
    EXPECT_EQ(result.categoryResults().front().categoryLabel(), 150);
}

/// The nearest of some rows by their copy, and whether the copy answered.
std::size_t nearestByCopy(const std::vector<Row>& rows, const Row& query, double order)
{
    ktClassifierDataProviderMemory store;
    for (const Row& row : rows) {
        store.addData(new ktFeaturePattern(row, {}), 0);
    }
    const ktPtrHandle<kt_CompactCopy> copy = new kt_CompactCopy;
    copy->make(store);
    kt_RowList found(1);
    EXPECT_TRUE(copy->nearest(store, query, order, found));
    return found[0];
}

constexpr std::size_t width = 16;
// Where a float's last place is 2^-24.
constexpr double place = 0.75;

/// A row that is so many last places away from `place`, the last measurement by another number.
Row awayFromPlace(double distance, double last)
{
    Row row(width, place + distance * 0x1p-24);
    row.back() = place + last * 0x1p-24;
    return row;
}

/// Rows that bring the copy's scale to a power of two, so that its floats are those of the values.
const Row lowest(width, -1.0);
const Row highest(width, 1.0);

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
    const double u = 0x1p-234;
    const Row nearer = {1.51 * u, 1.51 * u, 0.0, 0.0, 0.0};
    const Row farther = {1.49 * u, 1.49 * u, 0.49 * u, 0.49 * u, 0.49 * u};
    EXPECT_EQ(nearestByCopy({{0x1p+840, 0.0, 0.0, 0.0, 0.0}, nearer, farther}, Row(5, 0.0), 0.5), 1u);
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
        kernels.anyOrder(block, &query, 1, order, std::numeric_limits<float>::infinity(), sums);
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

TEST(LineAllocator, RefusesWhatNoMemoryHolds)
{
    kt_LineAllocator<float> allocator;
    EXPECT_THROW(allocator.allocate(std::numeric_limits<std::size_t>::max() / sizeof(float) + 1), std::bad_alloc);
}

TEST(ScanKernels, TheApproximatePowerKeepsItsStatedError)
{
    std::vector<const kt_ScanKernels*> sets{&kt_baselineKernels};
    if (kt_CompactCopy::instructionSet(1) == 1) {
        sets.push_back(kt_avx2Kernels);
    }
    for (const kt_ScanKernels* kernels : sets) {
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
