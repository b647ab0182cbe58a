#include "support/allocations.h"
#include "support/archives.h"
#include "support/normal_reference.h"

#include <kt/normal_density.h>
#include <kt/random.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <list>
#include <utility>

namespace {

using kt_test::Moments;
using kt_test::Rows;
using kt_test::TrainingSet;

using Indices = std::vector<long>;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr long mostCounted = 2147483647L;

/// Failure codes are 32 bits wide, whatever a long is.
constexpr std::uint32_t noValidData = 0x80000B61u;
constexpr std::uint32_t sizesDisagree = 0x80000B62u;

/// A row with flags of its own.
class FlaggedRow {
public:
    explicit FlaggedRow(std::vector<double> values, const Indices& invalid = {}) : values_(std::move(values))
    {
        valid_.fill(true);
        for (const long index : invalid) {
            valid_.at(static_cast<std::size_t>(index)) = false;
        }
    }

    ktNormalDensity::Row row() const { return {values_.data(), valid_.data(), values_.size()}; }

private:
    std::vector<double> values_;
    std::array<bool, 200> valid_;
};

std::uint32_t learn(ktNormalDensity& density, const std::list<FlaggedRow>& list, double normalizer = 1.0)
{
    std::vector<ktNormalDensity::Row> rows;
    for (const FlaggedRow& flagged : list) {
        rows.push_back(flagged.row());
    }
    return static_cast<std::uint32_t>(density.accumulate(rows.data(), rows.size(), normalizer));
}

std::uint32_t learn(ktNormalDensity& density, const Rows& rows, double normalizer = 1.0)
{
    std::list<FlaggedRow> list;
    for (const std::vector<double>& row : rows) {
        list.emplace_back(row);
    }
    return learn(density, list, normalizer);
}

ktNormalDensity learnt(const Rows& rows)
{
    ktNormalDensity density;
    EXPECT_EQ(learn(density, rows), 0u);
    return density;
}

std::uint32_t codeOf(const ktNormalDensity& density, const FlaggedRow& flagged)
{
    double value = 77.0;
    const auto code = static_cast<std::uint32_t>(density.logDensity(flagged.row(), value));
    EXPECT_TRUE(code == 0 || value == 77.0) << "a failing call gives no value";
    return code;
}

double logOf(const ktNormalDensity& density, const std::vector<double>& values, const Indices& invalid = {})
{
    double value = 77.0;
    EXPECT_EQ(density.logDensity(FlaggedRow(values, invalid).row(), value), 0);
    return value;
}

ktNMMatrix matrix(const Rows& rows)
{
    ktNMMatrix made(static_cast<long>(rows.size()), static_cast<long>(rows.front().size()));
    for (long i = 0; i < made.numRows(); ++i) {
        for (long j = 0; j < made.numColumns(); ++j) {
            made(i, j) = rows[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)];
        }
    }
    return made;
}

ktNormalDensity restored(const Rows& mean, const Rows& covariance, long count = 10)
{
    ktNormalDensity density;
    density.restore(matrix(mean), matrix(covariance), count);
    return density;
}

/// Bit for bit, so that NaN equals itself and 0.0 does not equal -0.0.
bool sameBits(const ktNMMatrix& a, const ktNMMatrix& b)
{
    if (a.numRows() != b.numRows() || a.numColumns() != b.numColumns()) {
        return false;
    }
    const auto bytes = static_cast<std::size_t>(a.numRows() * a.numColumns()) * sizeof(double);
    return bytes == 0 || std::memcmp(a.data(), b.data(), bytes) == 0;
}

bool sameBits(const ktNormalDensity& a, const ktNormalDensity& b)
{
    return sameBits(a.mean(), b.mean()) && sameBits(a.covariance(), b.covariance()) && a.count() == b.count();
}

TEST(NormalDensity, NewOneHasLearntNothing)
{
    const ktNormalDensity density;
    EXPECT_EQ(density.count(), 0);
    EXPECT_EQ(density.mean().numRows(), 0);
    EXPECT_EQ(density.covariance().numRows(), 0);
    EXPECT_TRUE(density.isUnused());
    EXPECT_EQ(codeOf(density, FlaggedRow({})), noValidData);
    EXPECT_EQ(codeOf(density, FlaggedRow({1.0, 2.0})), noValidData);
}

TEST(NormalDensity, FirstRowIsTheMeanAndHasNoSpread)
{
    const ktNormalDensity density = learnt({{3.5, -2.0}});
    EXPECT_TRUE(density.mean() == matrix({{3.5}, {-2.0}}));
    EXPECT_TRUE(density.covariance() == ktNMMatrix(2, 2));
    EXPECT_EQ(density.count(), 1);
    EXPECT_FALSE(density.isUnused());
}

TEST(NormalDensity, CovarianceIsTheUnbiasedOne)
{
    const ktNormalDensity density = learnt({{1.0, 10.0}, {2.0, 8.0}, {3.0, 6.0}, {4.0, 4.0}});
    EXPECT_TRUE(density.mean() == matrix({{2.5}, {7.0}}));
    EXPECT_NEAR(density.covariance()(0, 0), 5.0 / 3.0, 1e-15);
    EXPECT_NEAR(density.covariance()(0, 1), -10.0 / 3.0, 1e-15);
    EXPECT_NEAR(density.covariance()(1, 0), -10.0 / 3.0, 1e-15);
    EXPECT_NEAR(density.covariance()(1, 1), 20.0 / 3.0, 2e-15);
    EXPECT_EQ(density.count(), 4);
}

TEST(NormalDensity, LearnsByTheRecurrenceCovarianceFirstAndThenTheMean)
{
    for (const std::size_t size : {1u, 2u, 3u, 4u, 7u, 16u}) {
        const Rows rows = TrainingSet{50, size, 7.0, 10.0, 99}.rows();
        std::vector<double> mean = rows[0];
        Rows covariance(size, std::vector<double>(size));
        for (std::size_t row = 1; row < rows.size(); ++row) {
            const auto n = static_cast<double>(row + 1);
            std::vector<double> d(size);
            for (std::size_t i = 0; i < size; ++i) {
                d[i] = rows[row][i] - mean[i];
            }
            for (std::size_t i = 0; i < size; ++i) {
                for (std::size_t j = 0; j < size; ++j) {
                    covariance[i][j] = (covariance[i][j] * (n - 2.0)) / (n - 1.0) + d[i] * d[j] / n;
                }
                mean[i] = mean[i] + d[i] / n;
            }
        }
        const ktNormalDensity density = learnt(rows);
        EXPECT_TRUE(sameBits(density.covariance(), matrix(covariance))) << size;
        for (std::size_t i = 0; i < size; ++i) {
            EXPECT_EQ(density.mean()(static_cast<long>(i), 0), mean[i]) << size;
        }
    }
}

/// Some of the rows, one after the other.
std::vector<double> laidOut(const Rows& rows, std::size_t begin, std::size_t end)
{
    std::vector<double> values;
    for (std::size_t row = begin; row < std::min(end, rows.size()); ++row) {
        values.insert(values.end(), rows[row].begin(), rows[row].end());
    }
    return values;
}

TEST(NormalDensity, RowsLearntTogetherGiveTheBitsOfLearningThemOneByOne)
{
    for (const std::size_t size : {1u, 2u, 3u, 8u, 17u}) {
        const Rows rows = TrainingSet{60, size, 1e3, 1e2, 5}.rows();
        for (const std::size_t together : {1u, 2u, 3u, 7u, 8u, 9u, 17u, 60u}) {
            SCOPED_TRACE(::testing::Message() << size << " measurements, " << together << " rows together");
            ktNormalDensity density;
            ASSERT_EQ(density.prepare(size), 0);
            for (std::size_t row = 0; row < rows.size(); row += together) {
                const std::vector<double> values = laidOut(rows, row, row + together);
                density.learnRows(values.data(), values.size() / size);
            }
            EXPECT_TRUE(sameBits(density, learnt(rows)));
        }
    }
}

TEST(NormalDensity, DensitiesSideBySideLearnTheBitsThatEachLearnsAlone)
{
    constexpr std::size_t size = 70;
    const Rows rows = TrainingSet{25, size, 1e3, 1.0, 6}.rows();
    std::vector<ktNormalDensity> densities(size);
    std::vector<ktNormalDensity> expected(size);
    std::vector<ktNormalDensity*> pointers;
    for (std::size_t i = 0; i < size; ++i) {
        // Some have learnt before, not all of them equally much.
        for (ktNormalDensity* density : {&densities[i], &expected[i]}) {
            ASSERT_EQ(density->prepare(1), 0);
            learn(*density, Rows(i % 11 == 3 ? 2 : i % 7 == 5 ? 1 : 0, {3.5}));
        }
        pointers.push_back(&densities[i]);
    }
    std::size_t row = 0;
    for (const std::size_t together : {0u, 1u, 2u, 7u, 15u}) {
        const std::vector<double> values = laidOut(rows, row, row + together);
        ktNormalDensity::learnColumns(pointers.data(), size, values.data(), together);
        row += together;
    }
    for (std::size_t i = 0; i < size; ++i) {
        for (const std::vector<double>& each : rows) {
            learn(expected[i], Rows{{each[i]}});
        }
        EXPECT_TRUE(sameBits(densities[i], expected[i])) << i;
    }
}

TEST(NormalDensity, NoRowsLearntTogetherChangeNothing)
{
    const ktNormalDensity before = learnt({{1.0}, {4.0}});
    ktNormalDensity density = before;
    ASSERT_EQ(density.prepare(1), 0);
    density.learnRows(nullptr, 0);
    EXPECT_TRUE(density == before);
}

TEST(NormalDensity, MoreDensitiesThanGoSideBySideAllLearn)
{
    constexpr std::size_t size = 100;
    const Rows rows = TrainingSet{5, size, 0.0, 10.0, 3}.rows();
    std::vector<ktNormalDensity> densities(size);
    std::vector<ktNormalDensity*> pointers;
    for (ktNormalDensity& density : densities) {
        ASSERT_EQ(density.prepare(1), 0);
        pointers.push_back(&density);
    }
    ktNormalDensity::learnColumns(pointers.data(), size, laidOut(rows, 0, rows.size()).data(), rows.size());
    for (std::size_t i = 0; i < size; ++i) {
        ktNormalDensity expected;
        for (const std::vector<double>& each : rows) {
            learn(expected, Rows{{each[i]}});
        }
        EXPECT_TRUE(sameBits(densities[i], expected)) << i;
    }
}

TEST(NormalDensity, EachElementOfACovarianceThatIsNotSymmetricLearnsByItself)
{
    const std::pair<const char*, Rows> cases[] = {{"in values", {{4.0, 77.0}, {3.0, 9.0}}},
                                                  {"in the sign of zero", {{4.0, -0.0}, {0.0, 9.0}}}};
    for (const auto& [label, covariance] : cases) {
        ktNormalDensity together = restored({{1.0}, {2.0}}, covariance);
        ktNormalDensity oneByOne = together;
        ktNormalDensity lower = restored({{1.0}, {2.0}}, {{4.0, covariance[1][0]}, {covariance[1][0], 9.0}});
        ktNormalDensity upper = restored({{1.0}, {2.0}}, {{4.0, covariance[0][1]}, {covariance[0][1], 9.0}});
        const Rows rows = {{1.0, -5.0}, {1.0, 7.0}};
        ASSERT_EQ(together.prepare(2), 0);
        together.learnRows(laidOut(rows, 0, 2).data(), 2);
        for (ktNormalDensity* density : {&oneByOne, &lower, &upper}) {
            learn(*density, rows);
        }
        EXPECT_TRUE(sameBits(together, oneByOne)) << label;
        EXPECT_TRUE(sameBits(together.covariance(), matrix({{lower.covariance()(0, 0), upper.covariance()(0, 1)},
                                                            {lower.covariance()(1, 0), lower.covariance()(1, 1)}})))
            << label;
    }
}

TEST(NormalDensity, ListAndSingleRowsGiveTheSameBits)
{
    const Rows rows = TrainingSet{200, 4, 1e3, 1e2, 5}.rows();
    const ktNormalDensity whole = learnt(rows);
    ktNormalDensity single;
    ktNormalDensity inParts;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        learn(single, Rows{rows[i]});
    }
    for (std::size_t i = 0; i < rows.size(); i += 50) {
        learn(inParts, Rows(rows.begin() + static_cast<long>(i), rows.begin() + static_cast<long>(i) + 50));
    }
    EXPECT_TRUE(sameBits(single, whole));
    EXPECT_TRUE(sameBits(inParts, whole));
}

TEST(NormalDensity, RestoredStateGoesOnBitForBit)
{
    const Rows rows = TrainingSet{100, 3, 1e6, 1e4, 6}.rows();
    ktNormalDensity never;
    ktNormalDensity now;
    for (const std::vector<double>& row : rows) {
        learn(never, Rows{row});
        learn(now, Rows{row});
        ktNormalDensity next;
        next.restore(kt_test::storedAndLoaded(now.mean()), kt_test::storedAndLoaded(now.covariance()), now.count());
        now = next;
        ASSERT_TRUE(sameBits(now, never));
    }
}

TEST(NormalDensity, MomentsAgreeWithTwoPassesInMoreDigits)
{
    for (const TrainingSet& set : kt_test::trainingSets()) {
        SCOPED_TRACE(::testing::Message() << set);
        const Rows rows = set.rows();
        const Moments expected = kt_test::twoPassMoments(rows);
        const ktNormalDensity density = learnt(rows);
        const double tolerance = set.tolerance(expected);
        for (long i = 0; i < density.mean().numRows(); ++i) {
            const long double spread = std::sqrt(expected.covariance(i, i));
            // A mean at zero has no relative error: there it is told in spreads.
            EXPECT_LE(std::abs(density.mean()(i, 0) - expected.mean(i)),
                      1e-12L * std::max(std::abs(expected.mean(i)), spread));
            for (long j = 0; j < density.mean().numRows(); ++j) {
                const long double scale = spread * std::sqrt(expected.covariance(j, j));
                EXPECT_LE(std::abs(density.covariance()(i, j) - expected.covariance(i, j)), tolerance * scale);
            }
        }
    }
}

TEST(NormalDensity, ValuesAreDividedByTheNormalizer)
{
    ktNormalDensity density;
    EXPECT_EQ(learn(density, Rows{{2.0, 30.0}, {6.0, 10.0}}, 10.0), 0u);
    EXPECT_TRUE(sameBits(density, learnt({{2.0 / 10.0, 30.0 / 10.0}, {6.0 / 10.0, 10.0 / 10.0}})));
}

TEST(NormalDensity, RowWithAnInvalidValueIsLeftOutAndNotCounted)
{
    ktNormalDensity density;
    const std::list<FlaggedRow> rows = {FlaggedRow({1.0, 2.0}), FlaggedRow({5.0, 9.0}, {0}), FlaggedRow({3.0, 7.0}),
                                        FlaggedRow({5.0, 9.0}, {1}), FlaggedRow({5.0, 9.0}, {0, 1})};
    EXPECT_EQ(learn(density, rows), 0u);
    EXPECT_TRUE(sameBits(density, learnt({{1.0, 2.0}, {3.0, 7.0}})));
}

TEST(NormalDensity, ValueThatIsNotFiniteAfterTheDivisionCountsAsInvalid)
{
    struct Row {
        const char* label;
        double value;
        double normalizer;
    };
    const Row rows[] = {{"NaN", nan, 1.0},         {"infinity", infinity, 1.0}, {"-infinity", -infinity, 1.0},
                        {"overflow", 1e308, 1e-9}, {"1/0", 1.0, 0.0},           {"0/0", 0.0, 0.0},
                        {"1/NaN", 1.0, nan}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        ktNormalDensity density = learnt({{1.0, 2.0}, {3.0, 7.0}});
        EXPECT_EQ(learn(density, Rows{{0.0, row.value}}, row.normalizer), 0u);
        EXPECT_TRUE(sameBits(density, learnt({{1.0, 2.0}, {3.0, 7.0}})));
    }
    ktNormalDensity finite;
    learn(finite, Rows{{infinity}, {2.0}}, infinity);
    EXPECT_TRUE(sameBits(finite, learnt({{0.0}}))) << "2/infinity is 0, infinity/infinity is left out";
}

TEST(NormalDensity, FirstListThatIsNotEmptyFixesTheNumberOfMeasurements)
{
    ktNormalDensity density;
    EXPECT_EQ(learn(density, Rows()), 0u);
    EXPECT_TRUE(density.isUnused());
    EXPECT_EQ(learn(density, {FlaggedRow({1.0, 2.0}, {1})}), 0u);
    EXPECT_FALSE(density.isUnused());
    EXPECT_EQ(density.count(), 0);
    EXPECT_EQ(codeOf(density, FlaggedRow({1.0, 2.0})), noValidData);
    EXPECT_EQ(learn(density, Rows{{1.0, 2.0, 3.0}}), sizesDisagree);
    EXPECT_EQ(learn(density, Rows{{1.0}}), sizesDisagree);
    EXPECT_EQ(learn(density, Rows()), 0u);
    EXPECT_EQ(learn(density, Rows{{1.0, 2.0}}), 0u);
    EXPECT_EQ(density.count(), 1);
}

TEST(NormalDensity, ListIsCheckedWholeBeforeTheStateChanges)
{
    const Rows lists[] = {
        {{1.0, 2.0}, {3.0, 4.0}, {5.0}}, {{1.0, 2.0}, {3.0, 4.0, 5.0}}, {{1.0}, {1.0, 2.0}}, {{1.0, 2.0}, {}}};
    for (const Rows& list : lists) {
        ktNormalDensity fresh;
        EXPECT_EQ(learn(fresh, list), sizesDisagree);
        EXPECT_TRUE(fresh.isUnused());
        ktNormalDensity used = learnt({{1.0, 2.0}, {3.0, 7.0}});
        EXPECT_EQ(learn(used, list), sizesDisagree);
        EXPECT_TRUE(sameBits(used, learnt({{1.0, 2.0}, {3.0, 7.0}})));
    }
}

TEST(NormalDensity, ClearForgetsTheNumberOfMeasurementsToo)
{
    ktNormalDensity density = learnt({{1.0, 2.0}, {3.0, 7.0}});
    density.clear();
    EXPECT_TRUE(sameBits(density, ktNormalDensity()));
    EXPECT_TRUE(density.isUnused());
    EXPECT_EQ(learn(density, Rows{{1.0, 2.0, 3.0}}), 0u);
}

TEST(NormalDensity, PreparingFixesTheNumberOfMeasurements)
{
    ktNormalDensity density;
    EXPECT_EQ(density.prepare(2), 0);
    EXPECT_FALSE(density.isUnused());
    EXPECT_EQ(density.count(), 0);
    EXPECT_EQ(density.prepare(2), 0);
    EXPECT_EQ(static_cast<std::uint32_t>(density.prepare(3)), sizesDisagree);
    EXPECT_EQ(learn(density, Rows{{1.0}}), sizesDisagree);
    EXPECT_EQ(learn(density, Rows{{1.0, 2.0}, {3.0, 7.0}}), 0u);
    EXPECT_TRUE(sameBits(density, learnt({{1.0, 2.0}, {3.0, 7.0}})));
}

TEST(NormalDensity, LearningWhatWasPreparedAllocatesNothing)
{
    ktNormalDensity density;
    ASSERT_EQ(density.prepare(3), 0);
    const FlaggedRow row({1.0, 2.0, 3.0});
    const ktNormalDensity::Row seen = row.row();
    EXPECT_EQ(kt_test::allocationsDuring([&] { density.accumulate(&seen, 1, 1.0); }), 0);
    EXPECT_EQ(density.count(), 1);
}

TEST(NormalDensity, CountSaturatesAt32Bits)
{
    for (const long count : {mostCounted - 1, mostCounted}) {
        ktNormalDensity density = restored({{1.0}}, {{4.0}}, count);
        learn(density, Rows{{3.0}});
        EXPECT_EQ(density.count(), mostCounted);
        const auto n = static_cast<double>(mostCounted);
        EXPECT_EQ(density.mean()(0, 0), 1.0 + 2.0 / n);
        EXPECT_EQ(density.covariance()(0, 0), (4.0 * (n - 2.0)) / (n - 1.0) + 4.0 / n);
    }
}

TEST(NormalDensity, StateWithACountBelowOneLearnsAfresh)
{
    for (const long count : {0L, -1L, -mostCounted - 1}) {
        ktNormalDensity density = restored({{1.0}, {nan}}, {{4.0, 1.0}, {1.0, infinity}}, count);
        EXPECT_EQ(codeOf(density, FlaggedRow({1.0, 2.0})), noValidData);
        EXPECT_EQ(learn(density, Rows{{3.0, 5.0}}), 0u);
        EXPECT_TRUE(sameBits(density, learnt({{3.0, 5.0}})));
    }
}

TEST(NormalDensity, CountIsCheckedBeforeSizesAndSizesBeforeValidity)
{
    struct Case {
        const char* label;
        ktNormalDensity density;
        FlaggedRow row;
        std::uint32_t code;
    };
    const Case cases[] = {
        {"no count, another size", restored({{1.0}}, {{1.0}}, 0), FlaggedRow({1.0, 2.0}), noValidData},
        {"negative count", restored({{1.0}}, {{1.0}}, -5), FlaggedRow({1.0}), noValidData},
        {"row too long", restored({{1.0}}, {{1.0}}), FlaggedRow({1.0, 2.0}), sizesDisagree},
        {"row too short", restored({{1.0}, {2.0}}, {{1.0, 0.0}, {0.0, 1.0}}), FlaggedRow({1.0}), sizesDisagree},
        {"row without values", restored({{1.0}}, {{1.0}}), FlaggedRow({}), sizesDisagree},
        {"mean of two columns", restored({{1.0, 2.0}}, {{1.0}}), FlaggedRow({1.0}), sizesDisagree},
        {"covariance too large", restored({{1.0}}, {{1.0, 0.0}, {0.0, 1.0}}), FlaggedRow({1.0}), sizesDisagree},
        {"covariance not square", restored({{1.0}}, {{1.0, 0.0}}), FlaggedRow({1.0}), sizesDisagree},
        {"another size, nothing valid", restored({{1.0}}, {{1.0}}), FlaggedRow({1.0, 2.0}, {0, 1}), sizesDisagree},
        {"nothing valid", restored({{1.0}, {2.0}}, {{1.0, 0.0}, {0.0, 1.0}}), FlaggedRow({1.0, 2.0}, {0, 1}), 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(codeOf(c.density, c.row), c.code) << c.label;
    }
}

TEST(NormalDensity, StateWhoseShapesDisagreeLearnsNothing)
{
    const ktNormalDensity states[] = {restored({{1.0}, {2.0}}, {{1.0}}), restored({{1.0, 2.0}}, {{1.0}}),
                                      restored({{1.0}}, {{1.0, 0.0}, {0.0, 1.0}}),
                                      restored({{1.0}}, {{1.0}, {2.0}}, 0)};
    for (const ktNormalDensity& state : states) {
        for (const Rows& rows : {Rows{{1.0}}, Rows{{1.0, 2.0}}}) {
            ktNormalDensity density = state;
            EXPECT_EQ(learn(density, rows), sizesDisagree);
            EXPECT_TRUE(sameBits(density, state));
        }
    }
}

TEST(NormalDensity, NoMeasurementGivesZero)
{
    ktNormalDensity density;
    density.restore(ktNMMatrix(), ktNMMatrix(), 3);
    EXPECT_EQ(logOf(density, {}), 0.0);
    EXPECT_EQ(codeOf(density, FlaggedRow({1.0})), sizesDisagree);
}

TEST(NormalDensity, NothingValidGivesZero)
{
    EXPECT_EQ(logOf(learnt({{1.0, 2.0}, {3.0, 7.0}}), {5.0, 6.0}, {0, 1}), 0.0);
}

// The constants below were computed with 50 digits.

TEST(NormalDensity, StandardNormalHasItsKnownValues)
{
    const ktNormalDensity density = restored({{0.0}}, {{1.0}});
    EXPECT_DOUBLE_EQ(logOf(density, {0.0}), -0.91893853320467274178);
    EXPECT_DOUBLE_EQ(logOf(density, {1.0}), -1.41893853320467274178);
    EXPECT_DOUBLE_EQ(logOf(density, {-3.0}), -5.41893853320467274178);
}

TEST(NormalDensity, TwoCorrelatedMeasurementsHaveTheirKnownValues)
{
    // covariance determinant 4 * 9 - 3 * 3 = 27; inverse (9, -3; -3, 4) / 27
    const ktNormalDensity density = restored({{1.0}, {-2.0}}, {{4.0, 3.0}, {3.0, 9.0}});
    EXPECT_DOUBLE_EQ(logOf(density, {1.0, -2.0}), -3.48579549941151002065);
    EXPECT_DOUBLE_EQ(logOf(density, {3.0, 1.0}), -3.48579549941151002065 - 0.5 * (36.0 - 36.0 + 36.0) / 27.0);
}

TEST(NormalDensity, LogDensitiesAgreeWithEigen)
{
    for (const TrainingSet& set : kt_test::trainingSets()) {
        SCOPED_TRACE(::testing::Message() << set);
        const Rows rows = set.rows();
        const Moments moments = kt_test::twoPassMoments(rows);
        const ktNormalDensity density = learnt(rows);
        for (std::size_t i = 0; i < 20; ++i) {
            const double expected = kt_test::logNormalReference(moments, kt_test::asVector(rows[i]));
            // Close to 0 a logarithm has no relative error.
            EXPECT_LE(std::abs(logOf(density, rows[i]) - expected),
                      set.tolerance(moments) * std::max(1.0, std::abs(expected)));
        }
    }
}

TEST(NormalDensity, MarginalIsTheJointDensityOfTheValidMeasurements)
{
    const Rows rows = TrainingSet{500, 5, 3.0, 1e2, 8}.rows();
    const Moments moments = kt_test::twoPassMoments(rows);
    const ktNormalDensity density = learnt(rows);
    for (unsigned mask = 1; mask < 31; ++mask) {
        SCOPED_TRACE(mask);
        Indices kept;
        Indices invalid;
        for (long i = 0; i < 5; ++i) {
            ((mask >> i) % 2 == 1 ? kept : invalid).push_back(i);
        }
        std::vector<double> values = rows[mask];
        std::vector<double> keptValues;
        for (const long i : kept) {
            keptValues.push_back(values[static_cast<std::size_t>(i)]);
        }
        for (const long i : invalid) {
            values[static_cast<std::size_t>(i)] = nan;
        }
        const double expected =
            kt_test::logNormalReference(kt_test::marginalReference(moments, kept), kt_test::asVector(keptValues));
        EXPECT_NEAR(logOf(density, values, invalid), expected, 1e-12 * std::max(1.0, std::abs(expected)));
    }
}

/// The integral of the density over measurement `missing`, by the trapezoidal rule, which for such a function converges
/// faster than any power of the step.
double integratedOver(const ktNormalDensity& density, std::vector<double> values, std::size_t missing)
{
    const double mean = density.mean()(static_cast<long>(missing), 0);
    const double spread = std::sqrt(density.covariance()(static_cast<long>(missing), static_cast<long>(missing)));
    constexpr int steps = 4000;
    const double step = 40.0 * spread / steps;
    double sum = 0.0;
    for (int i = 0; i <= steps; ++i) {
        values[missing] = mean - 20.0 * spread + i * step;
        sum += std::exp(logOf(density, values));
    }
    return sum * step;
}

TEST(NormalDensity, MarginalsAgreeWithNumericalIntegration)
{
    const Rows rows = TrainingSet{100, 3, 2.0, 30.0, 9}.rows();
    const ktNormalDensity density = learnt(rows);
    for (std::size_t missing = 0; missing < 3; ++missing) {
        for (std::size_t row = 0; row < 5; ++row) {
            SCOPED_TRACE(::testing::Message() << "without " << missing << ", row " << row);
            const double marginal = std::exp(logOf(density, rows[row], {static_cast<long>(missing)}));
            EXPECT_NEAR(marginal, integratedOver(density, rows[row], missing), 1e-11 * marginal);
        }
    }
}

TEST(NormalDensity, MarginalOfAFlooredDensityIsThatOfTheFlooredOne)
{
    // The third measurement is the sum of the others: only the floor of the eigenvalues makes this a density.
    Rows rows;
    for (const std::vector<double>& row : TrainingSet{40, 2, 1.0, 1.0, 10}.rows()) {
        rows.push_back({row[0], row[1], row[0] + row[1]});
    }
    const Moments floored = kt_test::flooredReference(kt_test::twoPassMoments(rows));
    const ktNormalDensity density = learnt(rows);
    for (const Indices& kept : {Indices{0, 1}, Indices{0, 2}, Indices{1, 2}, Indices{2}}) {
        Indices invalid;
        std::vector<double> keptValues;
        for (long i = 0; i < 3; ++i) {
            if (std::find(kept.begin(), kept.end(), i) == kept.end()) {
                invalid.push_back(i);
            } else {
                keptValues.push_back(rows[7][static_cast<std::size_t>(i)]);
            }
        }
        const double expected =
            kt_test::logNormalReference(kt_test::marginalReference(floored, kept), kt_test::asVector(keptValues));
        EXPECT_NEAR(logOf(density, rows[7], invalid), expected, 1e-9) << kept.size() << " kept, last " << kept.back();
    }
}

TEST(NormalDensity, StandardDeviationHasAFloor)
{
    struct Row {
        const char* label;
        double mean;
        double variance;
        double deviation;
    };
    const double relative = 0x1p-23 * 48.0;
    const Row rows[] = {
        {"constant", 48.0, 0.0, relative},
        {"constant, negative", -48.0, 0.0, relative},
        {"constant zero", 0.0, 0.0, 1e-9},
        {"a mean too small for the relative floor", 1e-4, 0.0, 1e-9},
        {"just below the relative floor", 48.0, 0.99 * relative * relative, relative},
        {"just above the relative floor", 48.0, 1.01 * relative * relative, std::sqrt(1.01) * relative},
        {"just below the last resort", 0.0, 0.99e-18, 1e-9},
        {"just above the last resort", 0.0, 1.01e-18, std::sqrt(1.01e-18)},
        {"denormal", 0.0, 5e-324, 1e-9},
        {"negative variance", 48.0, -4.0, relative},
        {"variance NaN", 48.0, nan, relative},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const ktNormalDensity density = restored({{row.mean}}, {{row.variance}});
        const double atMean = -0.91893853320467274178 - std::log(row.deviation);
        EXPECT_DOUBLE_EQ(logOf(density, {row.mean}), atMean);
        // The deviation goes into the sum of mean and deviation only as far as the mean leaves room for its digits.
        const double z = (row.mean + row.deviation - row.mean) / row.deviation;
        EXPECT_DOUBLE_EQ(logOf(density, {row.mean + row.deviation}), atMean - 0.5 * z * z);
    }
}

TEST(NormalDensity, EigenvaluesOfTheCorrelationsHaveAFloor)
{
    // Correlation 1: eigenvalues 2 along (1, 1) and 0 along (1, -1), the latter raised to 1e-8.
    const double atMean = -1.83787706640934548356 - 0.5 * std::log(2e-8) - std::log(3.0) - std::log(5.0);
    for (const double covariance : {15.0, 15.0000001, 1e9, -15.0, -1e9}) {
        SCOPED_TRACE(covariance);
        const double sign = covariance < 0.0 ? -1.0 : 1.0;
        const ktNormalDensity density = restored({{0.0}, {0.0}}, {{9.0, covariance}, {covariance, 25.0}});
        EXPECT_NEAR(logOf(density, {0.0, 0.0}), atMean, 1e-7);
        EXPECT_NEAR(logOf(density, {3.0, sign * 5.0}), atMean - 0.5 * 2.0 / 2.0, 1e-7);
        EXPECT_NEAR(logOf(density, {3.0, -sign * 5.0}) / (atMean - 0.5 * 2.0 / 1e-8), 1.0, 1e-6);
    }
}

TEST(NormalDensity, EigenvaluesAboveTheFloorStayAsTheyAre)
{
    // Correlation 1 - 1e-7: the smaller eigenvalue is 1e-7.
    const double correlation = 1.0 - 1e-7;
    const ktNormalDensity density = restored({{0.0}, {0.0}}, {{1.0, correlation}, {correlation, 1.0}});
    const double atMean = -1.83787706640934548356 - 0.5 * std::log(1e-7 * (2.0 - 1e-7));
    EXPECT_NEAR(logOf(density, {0.0, 0.0}), atMean, 1e-8);
}

TEST(NormalDensity, CorrelationThatIsNotFiniteCountsAsZero)
{
    const ktNormalDensity independent = restored({{0.0}, {0.0}}, {{9.0, 0.0}, {0.0, 25.0}});
    for (const double covariance : {nan, infinity, -infinity}) {
        const ktNormalDensity density = restored({{0.0}, {0.0}}, {{9.0, covariance}, {covariance, 25.0}});
        EXPECT_EQ(logOf(density, {1.0, 2.0}), logOf(independent, {1.0, 2.0}));
    }
}

TEST(NormalDensity, FlooredDensityAgreesWithEigen)
{
    struct Row {
        const char* label;
        Rows rows;
    };
    const Row sets[] = {
        {"one sample", {{1.0, 2.0, 3.0}}},
        {"two equal", {{1.0, 2.0, 3.0}, {1.0, 2.0, 3.0}}},
        {"two different", {{1.0, 2.0, 3.0}, {2.0, 2.5, -1.0}}},
        {"a constant", {{1.0, 2.0, 7.0}, {2.0, 1.0, 7.0}, {4.0, 0.5, 7.0}, {3.0, 0.0, 7.0}}},
        {"constant zero", {{1.0, 2.0, 0.0}, {2.0, 1.0, 0.0}, {4.0, 0.5, 0.0}, {3.0, 0.0, 0.0}}},
        {"collinear", {{1.0, 2.0, 3.0}, {2.0, 4.0, 6.0}, {4.0, 8.0, 12.0}, {3.0, 6.0, 9.0}}},
    };
    for (const Row& set : sets) {
        SCOPED_TRACE(set.label);
        const Moments floored = kt_test::flooredReference(kt_test::twoPassMoments(set.rows));
        const ktNormalDensity density = learnt(set.rows);
        for (const std::vector<double>& x : Rows{set.rows[0], {1.0, 2.0, 3.0}, {1.5, 2.5, 3.5}, {-7.0, 0.0, 100.0}}) {
            const double expected = kt_test::logNormalReference(floored, kt_test::asVector(x));
            EXPECT_NEAR(logOf(density, x) / expected, 1.0, 1e-6);
        }
    }
}

TEST(NormalDensity, EvaluationNeverAltersTheState)
{
    const ktNormalDensity density = learnt({{1.0, 2.0}, {1.0, 2.0}, {1.0, 2.0}});
    const ktNormalDensity before = density;
    logOf(density, {1.0, 5.0});
    logOf(density, {1.0, 5.0}, {1});
    EXPECT_TRUE(sameBits(density, before));
    EXPECT_TRUE(density.covariance() == ktNMMatrix(2, 2));
}

TEST(NormalDensity, WhatIsLearntAfterAnEvaluationCounts)
{
    const Rows rows = TrainingSet{20, 2, 0.0, 1.0, 11}.rows();
    ktNormalDensity density;
    ktNormalDensity other = learnt({{5.0, 5.0}, {6.0, 7.0}, {7.0, 4.0}});
    for (const std::vector<double>& row : rows) {
        learn(density, Rows{row});
        const ktNormalDensity fresh = density;
        EXPECT_EQ(logOf(density, {0.5, 0.25}), logOf(fresh, {0.5, 0.25}));
        logOf(other, {0.5, 0.25});
        other = density;
        EXPECT_EQ(logOf(other, {0.5, 0.25}), logOf(fresh, {0.5, 0.25}));
        other.restore(matrix({{1.0}, {2.0}}), matrix({{1.0, 0.0}, {0.0, 1.0}}), 3);
        EXPECT_DOUBLE_EQ(logOf(other, {1.0, 2.0}), -1.83787706640934548356);
    }
    density.clear();
    learn(density, Rows{{1.0}});
    EXPECT_DOUBLE_EQ(logOf(density, {1.0}), -0.91893853320467274178 + 23.0 * std::log(2.0));
}

TEST(NormalDensity, LogDensityIsHeldWithinItsLimits)
{
    struct Row {
        const char* label;
        ktNormalDensity density;
        double x;
    };
    const double most = std::numeric_limits<double>::max();
    const Row rows[] = {
        {"far away", restored({{0.0}}, {{1.0}}), 1e200},
        {"farther than a double reaches", restored({{-most}}, {{1.0}}), most},
        {"at infinity", restored({{0.0}}, {{1.0}}), infinity},
        {"at -infinity", restored({{0.0}}, {{1.0}}), -infinity},
        {"at NaN", restored({{0.0}}, {{1.0}}), nan},
        {"infinite mean", restored({{infinity}}, {{1.0}}), 0.0},
        {"mean NaN", restored({{nan}}, {{1.0}}), 0.0},
        {"infinite variance", restored({{0.0}}, {{infinity}}), 0.0},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(logOf(row.density, {row.x}), -1e300) << row.label;
    }
    EXPECT_EQ(logOf(restored({{0.0}}, {{1.0}}), {1e149}), -0.5 * 1e149 * 1e149) << "within the limits";
    EXPECT_EQ(ktNormalDensity::held(1e300), 1e300);
    EXPECT_EQ(ktNormalDensity::held(1.0000001e300), 1e300);
    EXPECT_EQ(ktNormalDensity::held(infinity), 1e300);
}

TEST(NormalDensity, OnlyALearntSingleMeasurementHasConstants)
{
    ktNormalDensity::Single constants = {7.0, 7.0, 7.0};
    EXPECT_FALSE(ktNormalDensity().single(constants));
    EXPECT_FALSE(restored({{0.0}}, {{1.0}}, 0).single(constants));
    EXPECT_FALSE(restored({{0.0}, {0.0}}, {{1.0, 0.0}, {0.0, 1.0}}).single(constants));
    EXPECT_EQ(constants.mean, 7.0) << "a failing call gives no constants";
    EXPECT_TRUE(restored({{3.0}}, {{0.25}}).single(constants));
    EXPECT_EQ(constants.mean, 3.0);
    EXPECT_EQ(constants.inverseDeviation, 2.0);
    EXPECT_DOUBLE_EQ(constants.logScale, -0.5 * std::log(2.0 * 3.14159265358979323846) - std::log(0.5));
}

/// A double of any bits.
double anyDouble(ktRandomUniform& random)
{
    std::uint64_t bits = 0;
    for (int i = 0; i < 4; ++i) {
        bits = bits << 16 | static_cast<std::uint64_t>(random.next(0.0, 65536.0));
    }
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

TEST(NormalDensity, AnyStateWhateverAnswersWithinTheLimits)
{
    constexpr unsigned long seed = 12;
    ktRandomUniform random(seed);
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed << ", round " << round);
        const auto size = static_cast<std::size_t>(random.next(1.0, 5.0));
        const auto value = [&] { return random.next(0.0, 1.0) < 0.5 ? anyDouble(random) : random.next(-2.0, 2.0); };
        Rows mean;
        Rows covariance;
        std::vector<double> x;
        for (std::size_t i = 0; i < size; ++i) {
            mean.push_back({value()});
            x.push_back(value());
            covariance.emplace_back();
            for (std::size_t j = 0; j < size; ++j) {
                covariance.back().push_back(value());
            }
        }
        ktNormalDensity density = restored(mean, covariance);
        for (const Indices& invalid : {Indices{}, Indices{0}}) {
            const double log = logOf(density, x, invalid);
            ASSERT_TRUE(log >= -1e300 && log <= 1e300) << log;
        }
        learn(density, Rows{x});
        const double log = logOf(density, x);
        ASSERT_TRUE(log >= -1e300 && log <= 1e300) << log;
    }
}

TEST(NormalDensity, CopyIsEqualAndIndependent)
{
    ktNormalDensity original = learnt({{1.0, 2.0}, {3.0, 7.0}});
    logOf(original, {1.0, 2.0});
    const ktNormalDensity copy(original);
    ktNormalDensity assigned = learnt({{9.0}});
    EXPECT_EQ(&(assigned = original), &assigned);
    learn(original, Rows{{5.0, 5.0}});
    EXPECT_TRUE(sameBits(copy, learnt({{1.0, 2.0}, {3.0, 7.0}})));
    EXPECT_TRUE(sameBits(assigned, copy));
    const ktNormalDensity& same = assigned;
    assigned = same;
    EXPECT_TRUE(sameBits(assigned, copy));
}

TEST(NormalDensity, EqualityIsExactInMeanCovarianceAndCount)
{
    const ktNormalDensity density = restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 7);
    EXPECT_TRUE(density == restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 7));
    EXPECT_TRUE(density != restored({{1.0}, {2.0 + 0x1p-51}}, {{1.0, 0.5}, {0.5, 1.0}}, 7));
    EXPECT_TRUE(density != restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0 + 0x1p-52}}, 7));
    EXPECT_TRUE(density != restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 8));
    EXPECT_TRUE(density != restored({{1.0, 2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 7));
    EXPECT_FALSE(density == ktNormalDensity());
}

/// Tells the values of a row, of which some are invalid.
class ToldRow : public ktNormalDensity::Source {
public:
    explicit ToldRow(const FlaggedRow& flagged) : row_(flagged.row()) {}

    bool measurement(std::size_t index, double& value) const override
    {
        value = row_.values[index];
        return row_.valid[index];
    }

private:
    ktNormalDensity::Row row_;
};

TEST(NormalDensity, EvaluationAllocatesOnlyTheFirstTime)
{
    for (const std::size_t size : {1u, 2u, 16u, 32u, 33u, 34u, 100u}) {
        SCOPED_TRACE(size);
        const Rows rows = TrainingSet{50, size, 0.0, 1.0, 13}.rows();
        const ktNormalDensity density = learnt(rows);
        const FlaggedRow whole(rows[0]);
        const FlaggedRow part(rows[0], {0});
        const Indices indices(size, 0);
        double value = 0.0;
        EXPECT_GT(kt_test::allocationsDuring([&] { density.logDensity(whole.row(), value); }), 0);
        for (const FlaggedRow& row : {whole, part}) {
            EXPECT_EQ(kt_test::allocationsDuring([&] { density.logDensity(row.row(), value); }), 0);
            EXPECT_EQ(kt_test::allocationsDuring([&] { density.logDensity(ToldRow(row), size, value); }), 0);
        }
        EXPECT_EQ(kt_test::allocationsDuring([&] { density.logDensity(rows[0].data(), indices.data(), size, value); }),
                  0);
    }
}

TEST(NormalDensity, EveryWayToTellAPatternGivesTheSameBits)
{
    for (const std::size_t size : {1u, 2u, 7u, 8u, 9u, 40u, 64u, 65u, 130u}) {
        SCOPED_TRACE(size);
        const Rows rows = TrainingSet{150, size, 5.0, 10.0, 16}.rows();
        const ktNormalDensity density = learnt(rows);
        std::vector<double> reversed(rows[1].rbegin(), rows[1].rend());
        Indices indices;
        for (std::size_t i = 0; i < size; ++i) {
            indices.push_back(static_cast<long>(size - 1 - i));
        }
        double value = 0.0;
        EXPECT_EQ(density.logDensity(reversed.data(), indices.data(), size, value), 0);
        EXPECT_EQ(value, logOf(density, rows[1]));
        for (const Indices& invalid : {Indices(), Indices({0}), Indices({indices[0], 0}), indices}) {
            EXPECT_EQ(density.logDensity(ToldRow(FlaggedRow(rows[1], invalid)), size, value), 0);
            EXPECT_EQ(value, logOf(density, rows[1], invalid)) << invalid.size() << " invalid";
        }
    }
}

TEST(NormalDensity, EveryWayToTellAPatternIsRefusedAlike)
{
    const FlaggedRow row({1.0, 2.0}, {1});
    const Indices indices = {0, 1};
    const std::pair<ktNormalDensity, std::uint32_t> cases[] = {
        {ktNormalDensity(), noValidData}, {learnt({{1.0}}), sizesDisagree}, {learnt({{1.0, 2.0, 3.0}}), sizesDisagree}};
    for (const auto& [density, code] : cases) {
        double value = 77.0;
        EXPECT_EQ(static_cast<std::uint32_t>(density.logDensity(row.row(), value)), code);
        EXPECT_EQ(static_cast<std::uint32_t>(density.logDensity(ToldRow(row), 2, value)), code);
        EXPECT_EQ(static_cast<std::uint32_t>(density.logDensity(row.row().values, indices.data(), 2, value)), code);
        EXPECT_EQ(value, 77.0);
    }
}

/// Evaluates the same density once more while it is asked for a measurement.
class NestedSource : public ktNormalDensity::Source {
public:
    NestedSource(const ktNormalDensity& density, const FlaggedRow& row) : density_(density), row_(row) {}

    bool measurement(std::size_t index, double& value) const override
    {
        EXPECT_EQ(density_.logDensity(row_.row(), inner_), 0);
        value = row_.row().values[index];
        return row_.row().valid[index];
    }
    double inner() const { return inner_; }

private:
    const ktNormalDensity& density_;
    const FlaggedRow& row_;
    mutable double inner_ = 77.0;
};

TEST(NormalDensity, EvaluationInsideAnotherHasWorkingStorageOfItsOwn)
{
    constexpr std::size_t size = 36;
    const ktNormalDensity density = learnt(TrainingSet{100, size, 0.0, 10.0, 14}.rows());
    const FlaggedRow row(std::vector<double>(size, 0.5), {3});
    const NestedSource source(density, row);
    double outer = 0.0;
    EXPECT_EQ(density.logDensity(source, size, outer), 0);
    EXPECT_EQ(outer, source.inner());
}

TEST(NormalDensity, MoreMeasurementsThanTheStackHoldsAreTheSameDensity)
{
    for (const std::size_t size : {40u, 64u, 65u, 130u}) {
        SCOPED_TRACE(size);
        const Rows rows = TrainingSet{300, size, 0.0, 10.0, 14}.rows();
        const Moments moments = kt_test::twoPassMoments(rows);
        const ktNormalDensity density = learnt(rows);
        EXPECT_NEAR(logOf(density, rows[0]), kt_test::logNormalReference(moments, kt_test::asVector(rows[0])), 1e-10);
        Indices kept;
        for (std::size_t i = 1; i < size; ++i) {
            kept.push_back(static_cast<long>(i));
        }
        const std::vector<double> keptValues(rows[0].begin() + 1, rows[0].end());
        EXPECT_NEAR(
            logOf(density, rows[0], {0}),
            kt_test::logNormalReference(kt_test::marginalReference(moments, kept), kt_test::asVector(keptValues)),
            1e-10);
    }
}

TEST(NormalDensity, OperationsThatRunOutOfMemoryChangeNothing)
{
    const auto prepare = [] { return learnt({{1.0, 2.0}, {3.0, 7.0}}); };
    const auto unchanged = [&](const ktNormalDensity& density) { EXPECT_TRUE(sameBits(density, prepare())); };
    const ktNormalDensity other = learnt(TrainingSet{10, 3, 0.0, 1.0, 15}.rows());
    const ktNMMatrix mean = other.mean();
    const ktNMMatrix covariance = other.covariance();
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [&](ktNormalDensity& d) { d = other; }, unchanged),
              0);
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [&](ktNormalDensity& d) { d.restore(mean, covariance, 3); }, unchanged),
              0);
    const double expected = logOf(prepare(), {1.5, 2.5});
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare,
                  [&](ktNormalDensity& d) {
                      EXPECT_EQ(logOf(d, {1.5, 2.5}), expected);
                  },
                  unchanged),
              0);
}

TEST(NormalDensity, FirstListThatRunsOutOfMemoryLeavesTheStateUnused)
{
    const FlaggedRow row({1.0, 2.0, 3.0});
    const ktNormalDensity::Row seen = row.row();
    const auto prepare = [] { return ktNormalDensity(); };
    const auto unused = [](const ktNormalDensity& density) { EXPECT_TRUE(density.isUnused()); };
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [&](ktNormalDensity& d) { EXPECT_EQ(d.accumulate(&seen, 1, 1.0), 0); }, unused),
              0);
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [](ktNormalDensity& d) { EXPECT_EQ(d.prepare(2), 0); }, unused),
              0);
}

}  // namespace
