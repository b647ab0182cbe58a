#include "densities_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;

TEST(MultivariateNormal, NewOneHasLearntNothing)
{
    const Normal density;
    EXPECT_FALSE(Normal().isValid());
    EXPECT_EQ(density.mean().numRows(), 0);
    EXPECT_EQ(density.covariance().numRows(), 0);
    expectNoValidData([&] { static_cast<void>(density.logValue(pattern(1.0))); });
    expectNoValidData([&] { static_cast<void>(density.logValue(ktFeaturePattern())); });
    EXPECT_TRUE(density == Normal());
}

TEST(MultivariateNormal, MeanIsAColumnAndCovarianceASquare)
{
    const Normal density = learnt(Rows{{1.0, 10.0}, {3.0, 20.0}, {5.0, 0.0}});
    EXPECT_TRUE(density.isValid());
    ASSERT_EQ(density.mean().numRows(), 2);
    ASSERT_EQ(density.mean().numColumns(), 1);
    ASSERT_EQ(density.covariance().numRows(), 2);
    ASSERT_EQ(density.covariance().numColumns(), 2);
    EXPECT_DOUBLE_EQ(density.mean()(0, 0), 3.0);
    EXPECT_DOUBLE_EQ(density.mean()(1, 0), 10.0);
    EXPECT_DOUBLE_EQ(density.covariance()(0, 0), 4.0);
    EXPECT_DOUBLE_EQ(density.covariance()(0, 1), -10.0);
    EXPECT_DOUBLE_EQ(density.covariance()(1, 1), 100.0);
}

TEST(MultivariateNormal, MeanAndCovarianceAreCopies)
{
    const Normal density = learnt(Rows{{1.0}, {3.0}});
    density.mean()(0, 0) = 77.0;
    density.covariance()(0, 0) = 77.0;
    EXPECT_EQ(density.mean()(0, 0), 2.0);
    EXPECT_EQ(density.covariance()(0, 0), 2.0);
}

TEST(MultivariateNormal, UpdatingIsNormalisingByOne)
{
    const std::vector<ktFeaturePattern> list = patterns(TrainingSet{20, 3, 5.0, 10.0, 1}.rows());
    Normal normalised;
    normalised.updateWithDataNormalize(list, 1.0);
    EXPECT_TRUE(normalised == learnt(list));
}

TEST(MultivariateNormal, MeasurementsAreDividedByTheNormalizer)
{
    Normal density;
    density.updateWithDataNormalize(patterns({{2.0}, {4.0}, {6.0}}), 10.0);
    EXPECT_TRUE(density == learnt(Rows{{2.0 / 10.0}, {4.0 / 10.0}, {6.0 / 10.0}}));
    EXPECT_NEAR(density.mean()(0, 0), 0.4, 1e-16);
    EXPECT_NEAR(density.covariance()(0, 0), 0.04, 1e-16);
}

TEST(MultivariateNormal, EmptyListChangesNothing)
{
    Normal density;
    density.updateWithData({});
    EXPECT_TRUE(density == Normal());
    density.updateWithData(patterns({{1.0, 2.0}}));
    const Normal before(density);
    density.updateWithData({});
    EXPECT_TRUE(density == before);
}

TEST(MultivariateNormal, PatternsWithAnInvalidMeasurementAreLeftOut)
{
    const Normal density = learnt({pattern({1.0, 2.0}), pattern({9.0, 9.0}, {0}), pattern({3.0, 7.0}),
                                   pattern({9.0, 9.0}, {1}), pattern({9.0, infinity})});
    EXPECT_TRUE(density == learnt(Rows{{1.0, 2.0}, {3.0, 7.0}}));
    EXPECT_EQ(fieldsOf(density).count, 2);
}

TEST(MultivariateNormal, OnlyInvalidPatternsLeaveItWithoutData)
{
    Normal density = learnt({pattern({1.0, 2.0}, {0}), pattern({1.0, 2.0}, {0, 1})});
    EXPECT_FALSE(density.isValid());
    expectNoValidData([&] { static_cast<void>(density.logValue(pattern({1.0, 2.0}))); });
    expectDifferentSizes([&] { density.updateWithData(patterns({{1.0}})); });
    density.updateWithData(patterns({{1.0, 2.0}}));
    EXPECT_TRUE(density == learnt(Rows{{1.0, 2.0}}));
}

TEST(MultivariateNormal, PatternsOfAnotherSizeAreRefusedUntilItIsCleared)
{
    Normal density = learnt(Rows{{1.0, 2.0}, {3.0, 7.0}});
    const Normal before(density);
    expectDifferentSizes([&] { density.updateWithData(patterns({{1.0, 2.0, 3.0}})); });
    expectDifferentSizes([&] { density.updateWithData(patterns({{1.0}})); });
    expectDifferentSizes([&] { density.updateWithDataNormalize(patterns({{}}), 2.0); });
    EXPECT_TRUE(density == before);
    density.clear();
    density.updateWithData(patterns({{1.0, 2.0, 3.0}}));
    EXPECT_TRUE(density == learnt(Rows{{1.0, 2.0, 3.0}}));
}

TEST(MultivariateNormal, ListIsCheckedWholeBeforeAnyOfItIsLearnt)
{
    Normal fresh;
    expectDifferentSizes([&] { fresh.updateWithData(patterns({{1.0, 2.0}, {3.0, 7.0}, {1.0}})); });
    EXPECT_TRUE(fresh == Normal());
    fresh.updateWithData(patterns({{1.0}}));
    Normal used = learnt(Rows{{1.0, 2.0}, {3.0, 7.0}});
    expectDifferentSizes([&] { used.updateWithData(patterns({{1.0, 2.0}, {3.0, 7.0, 5.0}})); });
    EXPECT_TRUE(used == learnt(Rows{{1.0, 2.0}, {3.0, 7.0}}));
}

TEST(MultivariateNormal, ClearedOneIsAsNew)
{
    Normal density = learnt(Rows{{1.0, 2.0}, {3.0, 7.0}});
    density.clear();
    EXPECT_TRUE(density == Normal());
    EXPECT_FALSE(density.isValid());
    EXPECT_EQ(density.mean().numRows(), 0);
}

TEST(MultivariateNormal, LogValueIsTheLogarithmOfTheDensity)
{
    const Rows rows = TrainingSet{100, 4, 10.0, 50.0, 2}.rows();
    const kt_test::Moments moments = kt_test::twoPassMoments(rows);
    const Normal density = learnt(rows);
    for (const std::vector<double>& row : rows) {
        const double expected = kt_test::logNormalReference(moments, kt_test::asVector(row));
        EXPECT_NEAR(density.logValue(pattern(row)), expected, 1e-11);
    }
}

TEST(MultivariateNormal, InvalidMeasurementsAreMarginalised)
{
    const Rows rows = TrainingSet{100, 3, 10.0, 50.0, 3}.rows();
    const kt_test::Moments marginal = kt_test::marginalReference(kt_test::twoPassMoments(rows), {0, 2});
    const double expected = kt_test::logNormalReference(marginal, kt_test::asVector({rows[5][0], rows[5][2]}));
    EXPECT_NEAR(learnt(rows).logValue(pattern({rows[5][0], 1e9, rows[5][2]}, {1})), expected, 1e-11);
}

TEST(MultivariateNormal, PatternWithoutAValidMeasurementGivesZero)
{
    EXPECT_EQ(learnt(Rows{{1.0, 2.0}, {3.0, 7.0}}).logValue(pattern({1.0, 2.0}, {0, 1})), 0.0);
}

TEST(MultivariateNormal, PatternOfAnotherSizeHasNoLogValue)
{
    const Normal density = learnt(Rows{{1.0, 2.0}, {3.0, 7.0}});
    for (const std::vector<double>& values : Rows{{}, {1.0}, {1.0, 2.0, 3.0}}) {
        expectDifferentSizes([&] { static_cast<void>(density.logValue(pattern(values))); });
    }
    expectDifferentSizes([&] { static_cast<void>(density.logValue(pattern({1.0}, {0}))); });
}

TEST(MultivariateNormal, IsEqualInMeanCovarianceAndCount)
{
    const Normal density = learnt(Rows{{1.0}, {3.0}});
    struct Row {
        const char* label;
        Normal other;
        bool equal;
    };
    NormalFields moreCounted = fieldsOf(density);
    ++moreCounted.count;
    const Row rows[] = {
        {"the same data", learnt(Rows{{1.0}, {3.0}}), true},
        {"another mean", learnt(Rows{{2.0}, {4.0}}), false},
        {"another covariance", learnt(Rows{{0.0}, {4.0}}), false},
        {"another count", normalWith(moreCounted), false},
        {"nothing learnt", Normal(), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(density == row.other, row.equal);
        EXPECT_EQ(density != row.other, !row.equal);
        EXPECT_EQ(density.isEquivalent(row.other), row.equal);
        EXPECT_EQ(row.other.isEquivalent(density), row.equal);
    }
}

TEST(MultivariateNormal, IsNotEquivalentToAnotherKindOfDensity)
{
    EXPECT_FALSE(Normal().isEquivalent(kt_PDFBinomial()));
    EXPECT_FALSE(Normal().isEquivalent(bayes::FixedDensity()));
}

TEST(MultivariateNormal, IsStoredAsItsVersionMeanCovarianceAndCount)
{
    const NormalFields fields = fieldsOf(learnt(Rows{{1.0, 10.0}, {3.0, 20.0}, {5.0, 0.0}}));
    EXPECT_EQ(fields.version, 0);
    EXPECT_EQ(fields.mean.numRows(), 2);
    EXPECT_EQ(fields.mean.numColumns(), 1);
    EXPECT_EQ(fields.mean(1, 0), 10.0);
    EXPECT_EQ(fields.covariance.numRows(), 2);
    EXPECT_EQ(fields.covariance(1, 1), 100.0);
    EXPECT_EQ(fields.count, 3);
}

TEST(MultivariateNormal, LoadedOneTakesTheShapesOfTheArchive)
{
    Normal density = learnt(Rows{{1.0}, {3.0}});
    static_cast<void>(density.logValue(pattern(1.0)));
    const Normal other = learnt(Rows{{1.0, 2.0}, {3.0, 7.0}, {4.0, 1.0}});
    kt_test::loadInto(density, kt_test::store(other));
    EXPECT_TRUE(density == other);
    EXPECT_EQ(density.logValue(pattern({1.0, 2.0})), other.logValue(pattern({1.0, 2.0})));
}

TEST(MultivariateNormal, LoadedOneGoesOnToTheBitsOfNeverHavingBeenStored)
{
    const Rows rows = TrainingSet{60, 3, 1e6, 1e4, 4}.rows();
    Normal never;
    Normal now;
    for (const std::vector<double>& row : rows) {
        never.updateWithData(patterns({row}));
        now.updateWithData(patterns({row}));
        now = kt_test::storedAndLoaded(now);
        ASSERT_EQ(kt_test::store(now), kt_test::store(never));
        ASSERT_EQ(now.logValue(pattern(rows[0])), never.logValue(pattern(rows[0])));
    }
}

TEST(MultivariateNormal, LoadedShapesAndCountsThatDisagreeAreSafe)
{
    struct Row {
        const char* label;
        ktNMMatrix mean;
        ktNMMatrix covariance;
        long count;
    };
    const Row rows[] = {
        {"covariance too small", ktNMMatrix(2, 1), ktNMMatrix(1, 1), 5},
        {"covariance not square", ktNMMatrix(2, 1), ktNMMatrix(2, 1), 5},
        {"no covariance", ktNMMatrix(2, 1), ktNMMatrix(), 5},
        {"no mean", ktNMMatrix(), ktNMMatrix(2, 2), 5},
        {"mean a row", ktNMMatrix(1, 2), ktNMMatrix(2, 2), 5},
        {"a count alone", ktNMMatrix(), ktNMMatrix(), 5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        NormalFields fields;
        fields.mean = row.mean;
        fields.covariance = row.covariance;
        fields.count = row.count;
        Normal density = normalWith(fields);
        const Normal before(density);
        EXPECT_TRUE(density.isValid());
        expectDifferentSizes([&] { static_cast<void>(density.logValue(pattern({1.0, 2.0}))); });
        expectDifferentSizes([&] { density.updateWithData(patterns({{1.0, 2.0}})); });
        EXPECT_TRUE(density == before);
        density.clear();
        density.updateWithData(patterns({{1.0, 2.0}}));
        EXPECT_TRUE(density == learnt(Rows{{1.0, 2.0}}));
    }
}

TEST(MultivariateNormal, LoadedCountBelowOneIsNoData)
{
    for (const long count : {0L, -1L, -2147483647L - 1}) {
        NormalFields fields = fieldsOf(learnt(Rows{{1.0}, {3.0}}));
        fields.count = count;
        Normal density = normalWith(fields);
        EXPECT_FALSE(density.isValid());
        expectNoValidData([&] { static_cast<void>(density.logValue(pattern(1.0))); });
        density.updateWithData(patterns({{5.0}}));
        EXPECT_TRUE(density == learnt(Rows{{5.0}}));
    }
}

TEST(MultivariateNormal, FailureCodesOfItsGroupBecomeTheLibrarysErrors)
{
    expectNoValidData([] { kfThrowExceptionOnFailure(static_cast<long>(0x80000B61UL)); });
    expectDifferentSizes([] { kfThrowExceptionOnFailure(static_cast<long>(0x80000B62UL)); });
    expectThrows<ktFailure>("The operation failed with status 0x80000B63.",
                            [] { kfThrowExceptionOnFailure(static_cast<long>(0x80000B63UL)); });
}

}  // namespace
