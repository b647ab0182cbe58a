#include "normal_density_kit.h"

#include "support/normal_reference.h"

namespace {

using namespace kt_test;

constexpr long mostCounted = 2147483647L;

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
        // The products of their differences are -0, which leaves a zero its sign.
        const Rows rows = {{1.0, -5.0}, {1.0, -7.0}};
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
    const Row rows[] = {{"NaN", NaN, 1.0},         {"infinity", infinity, 1.0}, {"-infinity", -infinity, 1.0},
                        {"overflow", 1e308, 1e-9}, {"1/0", 1.0, 0.0},           {"0/0", 0.0, 0.0},
                        {"1/NaN", 1.0, NaN}};
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
        ktNormalDensity density = restored({{1.0}, {NaN}}, {{4.0, 1.0}, {1.0, infinity}}, count);
        EXPECT_EQ(codeOf(density, FlaggedRow({1.0, 2.0})), noValidData);
        EXPECT_EQ(learn(density, Rows{{3.0, 5.0}}), 0u);
        EXPECT_TRUE(sameBits(density, learnt({{3.0, 5.0}})));
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

}  // namespace
