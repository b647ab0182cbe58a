#include "normal_density_kit.h"

#include "support/normal_reference.h"

namespace {

using namespace kt_test;

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
            values[static_cast<std::size_t>(i)] = NaN;
        }
        const double expected =
            kt_test::logNormalReference(kt_test::marginalReference(moments, kept), kt_test::asVector(keptValues));
        EXPECT_NEAR(logOf(density, values, invalid), expected, 1e-12 * std::max(1.0, std::abs(expected)));
    }
}

/// `number` of the measurements, anywhere.
Indices drawMissing(std::size_t size, std::size_t number, std::mt19937& random)
{
    Indices all(size);
    std::iota(all.begin(), all.end(), 0);
    std::shuffle(all.begin(), all.end(), random);
    all.resize(number);
    return all;
}

/// The log density of the others, with more digits.
double marginalOf(const Moments& moments, const std::vector<double>& values, const Indices& missing)
{
    Indices kept;
    std::vector<double> keptValues;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (std::find(missing.begin(), missing.end(), static_cast<long>(i)) == missing.end()) {
            kept.push_back(static_cast<long>(i));
            keptValues.push_back(values[i]);
        }
    }
    return kt_test::logNormalReference(kt_test::marginalReference(moments, kept), kt_test::asVector(keptValues));
}

TEST(NormalDensity, MarginalsOfAnySizeHaveTheLogDensitiesOfTheirMeasurements)
{
    std::mt19937 random(17);
    for (const std::size_t size : {2u, 3u, 4u, 5u, 7u, 8u, 9u, 12u, 16u, 17u, 24u, 40u}) {
        for (const double condition : {1.0, 1e2, 1e4}) {
            const TrainingSet set{200, size, 1.0, condition, 21};
            const Rows rows = set.rows();
            const Moments moments = kt_test::twoPassMoments(rows);
            const ktNormalDensity density = learnt(rows);
            for (std::size_t number = 1; number < size; ++number) {
                SCOPED_TRACE(::testing::Message() << set << ", " << number << " missing");
                const std::vector<double>& values = rows[number];
                const Indices missing = drawMissing(size, number, random);
                const double expected = marginalOf(moments, values, missing);
                EXPECT_LE(std::abs(logOf(density, values, missing) - expected),
                          set.tolerance(moments) * std::max(1.0, std::abs(expected)));
            }
        }
    }
}

TEST(NormalDensity, MissingMeasurementLeavesATwinWithoutErrorOfItsOwn)
{
    // Measurements 0 and 3 say nearly the same, so each is far more certain with the other than without.
    const double correlation = 1.0 - 1e-7;
    const Rows covariance = {{4.0, 0.0, 0.0, 2.0 * correlation},
                             {0.0, 1.0, 0.5, 0.0},
                             {0.0, 0.5, 1.0, 0.0},
                             {2.0 * correlation, 0.0, 0.0, 1.0}};
    const ktNormalDensity density = restored({{1.0}, {0.0}, {0.0}, {2.0}}, covariance);
    const double ofPair = -1.83787706640934548356 - 0.5 * std::log(0.75) - 0.5 * (0.25 - 0.5 + 1.0) / 0.75;
    for (const double z : {0.0, 1.0, -3.0, 20.0}) {
        const double ofTwin = -0.91893853320467274178 - 0.5 * z * z;
        EXPECT_NEAR(logOf(density, {1.0 + 2.0 * z, 0.5, 1.0, NaN}, {3}), ofPair + ofTwin - std::log(2.0), 1e-11);
        EXPECT_NEAR(logOf(density, {NaN, 0.5, 1.0, 2.0 + z}, {0}), ofPair + ofTwin, 1e-11);
    }
}

TEST(NormalDensity, InfiniteVarianceOfAMissingMeasurementSaysNothingAboutTheOthers)
{
    const ktNormalDensity density =
        restored({{0.0}, {0.0}, {0.0}, {0.0}},
                 {{1.0, 0.0, 0.0, 0.0}, {0.0, infinity, 0.0, 0.0}, {0.0, 0.0, 4.0, 0.0}, {0.0, 0.0, 0.0, 1.0}});
    EXPECT_DOUBLE_EQ(logOf(density, {0.0, 5.0, 2.0, 0.0}, {1}), 3.0 * -0.91893853320467274178 - std::log(2.0) - 0.5);
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
    EXPECT_DOUBLE_EQ(logOf(density, {1.0}), -0.91893853320467274178 + 50.0 * std::log(2.0));
}

TEST(NormalDensity, EvaluationTellsStatesApart)
{
    const auto evaluated = [](const ktNormalDensity& density) {
        logOf(density, {1.5});
        return density.evaluation();
    };
    ktNormalDensity density = learnt({{1.0}, {2.0}});
    EXPECT_EQ(density.evaluation(), 0u) << "not evaluated yet";
    const std::uint64_t first = evaluated(density);
    EXPECT_NE(first, 0u);
    ktNormalDensity other = density;
    EXPECT_EQ(other.evaluation(), 0u) << "a copy is evaluated anew";
    EXPECT_NE(evaluated(other), first);
    learn(other, Rows{{3.0}});
    evaluated(other);
    EXPECT_EQ(evaluated(density), first) << "what another one learns is nothing to it";
    learn(density, Rows{{3.0}});
    EXPECT_EQ(density.evaluation(), 0u);
    EXPECT_NE(evaluated(density), first);
    density = learnt({{1.0}, {2.0}});
    EXPECT_EQ(density.evaluation(), 0u);
    const std::uint64_t last = evaluated(density);
    EXPECT_NE(last, first) << "an equal state is another one";
    density.clear();
    EXPECT_EQ(density.evaluation(), 0u);
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
        Indices upperHalf(size - size / 2);
        std::iota(upperHalf.begin(), upperHalf.end(), static_cast<long>(size / 2));
        const FlaggedRow half(rows[0], upperHalf);
        const Indices indices(size, 0);
        double value = 0.0;
        EXPECT_GT(kt_test::allocationsDuring([&] { density.logDensity(whole.row(), value); }), 0);
        // Working storage where many are left beside many that are missing.
        for (const auto& asked : {std::pair(whole, 0L), std::pair(part, 0L), std::pair(half, size > 64 ? 1L : 0L)}) {
            const FlaggedRow& row = asked.first;
            const long expected = asked.second;
            EXPECT_EQ(kt_test::allocationsDuring([&] { density.logDensity(row.row(), value); }), expected);
            EXPECT_EQ(kt_test::allocationsDuring([&] { density.logDensity(ToldRow(row), size, value); }), expected);
        }
        EXPECT_EQ(kt_test::allocationsDuring([&] { density.logDensity(rows[0].data(), indices.data(), size, value); }),
                  0);
    }
}

TEST(NormalDensity, AfterAnEvaluationOtherSizesAndAClearedStateAreRefusedAsBefore)
{
    ktNormalDensity density = learnt(TrainingSet{50, 3, 0.0, 1.0, 13}.rows());
    const std::vector<double> values(5, 0.5);
    double value = 0.0;
    EXPECT_EQ(density.logDensity(values.data(), 3, value), 0);
    const double whole = value;
    for (const std::size_t size : {0u, 1u, 2u, 4u, 5u}) {
        EXPECT_EQ(density.logDensity(values.data(), size, value), static_cast<long>(0x80000B62u)) << size;
    }
    EXPECT_EQ(value, whole) << "untouched";
    EXPECT_EQ(density.logDensity(values.data(), 3, value), 0);
    EXPECT_EQ(value, whole);
    density.clear();
    EXPECT_EQ(density.logDensity(values.data(), 3, value), static_cast<long>(0x80000B61u));
}

TEST(NormalDensity, ManyMeasurementsTakeWorkingStorage)
{
    const auto allocationsOf = [](std::size_t size) {
        const std::vector<double> values(size, 0.5);
        const ktNormalDensity density = learnt(Rows{values});
        const Indices indices(size, 0);
        double value = 0.0;
        const auto evaluate = [&] { density.logDensity(values.data(), indices.data(), size, value); };
        evaluate();
        return kt_test::allocationsDuring(evaluate);
    };
    EXPECT_EQ(allocationsOf(512), 0);
    EXPECT_GT(allocationsOf(513), 0);
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
        value = 0.0;
        EXPECT_EQ(density.logDensity(rows[1].data(), size, value), 0);
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
        EXPECT_EQ(static_cast<std::uint32_t>(density.logDensity(row.row().values, 2, value)), code);
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

}  // namespace
