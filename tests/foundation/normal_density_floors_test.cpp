#include "normal_density_kit.h"

#include "support/normal_reference.h"

namespace {

using namespace kt_test;

// The constants below were computed with 50 digits.

TEST(NormalDensity, MarginalOfADegenerateDensityIsThatOfWhatIsEvaluated)
{
    // The third measurement is the sum of the others: only shrunk correlations make this a density.
    Rows rows;
    for (const std::vector<double>& row : TrainingSet{40, 2, 1.0, 1.0, 10}.rows()) {
        rows.push_back({row[0], row[1], row[0] + row[1]});
    }
    const Moments evaluated = kt_test::evaluatedReference(kt_test::twoPassMoments(rows));
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
            kt_test::logNormalReference(kt_test::marginalReference(evaluated, kept), kt_test::asVector(keptValues));
        EXPECT_NEAR(logOf(density, rows[7], invalid), expected, 1e-12) << kept.size() << " kept, last " << kept.back();
    }
}

TEST(NormalDensity, SpreadNoLargerThanRoundingIsTakenForIt)
{
    struct Row {
        const char* label;
        double mean;
        double variance;
        double deviation;
        bool isOwn;
    };
    const double rounding = 0x1p-50 * 48.0;
    const Row rows[] = {
        {"constant", 48.0, 0.0, rounding, false},
        {"constant, negative", -48.0, 0.0, rounding, false},
        {"constant, small", 1e-100, 0.0, 0x1p-50 * 1e-100, false},
        {"constant zero", 0.0, 0.0, 1e-9, false},
        {"a mean that leaves no normal number", 1e-300, 0.0, 1e-9, false},
        {"just below rounding", 48.0, 0.99 * rounding * rounding, rounding, false},
        {"just above rounding", 48.0, 1.01 * rounding * rounding, std::sqrt(1.01) * rounding, true},
        {"as large as rounding", 48.0, rounding * rounding, rounding, false},
        {"a spread of 1, far away", 1e9, 1.0, 1.0, true},
        {"a small spread around zero", 0.0, 1e-30, 1e-15, true},
        {"the smallest variance", 0.0, 5e-324, std::sqrt(5e-324), true},
        {"negative variance", 48.0, -4.0, rounding, false},
        {"variance NaN", 48.0, NaN, rounding, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const ktNormalDensity density = restored({{row.mean}}, {{row.variance}});
        const double atMean = -0.91893853320467274178 - std::log(row.deviation);
        EXPECT_DOUBLE_EQ(logOf(density, {row.mean}), atMean);
        // The deviation goes into the sum of mean and deviation only as far as the mean leaves room for its digits.
        const double z = (row.mean + row.deviation - row.mean) / row.deviation;
        EXPECT_DOUBLE_EQ(logOf(density, {row.mean + row.deviation}), atMean - 0.5 * z * z);
        EXPECT_EQ(ktNormalDensity::hasSpread(row.mean, row.variance), row.isOwn);
    }
}

/// The log density of two measurements of variance 1 at (x, y) from their mean.
double logOfPair(double correlation, double x, double y)
{
    const double left = 1.0 - correlation * correlation;
    return -1.83787706640934548356 - 0.5 * std::log(left) - 0.5 * (x * x - 2.0 * correlation * x * y + y * y) / left;
}

TEST(NormalDensity, SingularCorrelationsAreShrunk)
{
    for (const double covariance : {15.0, 15.0000001, 1e9, -15.0, -1e9}) {
        SCOPED_TRACE(covariance);
        const double sign = covariance < 0.0 ? -1.0 : 1.0;
        const ktNormalDensity density = restored({{0.0}, {0.0}}, {{9.0, covariance}, {covariance, 25.0}});
        for (const std::vector<double>& z : Rows{{0.0, 0.0}, {1.0, 1.0}, {1.0, -1.0}, {0.5, 2.0}}) {
            EXPECT_NEAR(logOf(density, {3.0 * z[0], 5.0 * z[1]}), logOfPair(sign * 0.99, z[0], z[1]) - std::log(15.0),
                        1e-12);
        }
    }
}

TEST(NormalDensity, CorrelationsOfAGroupWithAConstantAreShrunk)
{
    const ktNormalDensity density =
        restored({{0.0}, {0.0}, {48.0}}, {{1.0, 0.5, 0.0}, {0.5, 1.0, 0.0}, {0.0, 0.0, 0.0}});
    const double ofConstant = -0.91893853320467274178 - std::log(0x1p-50 * 48.0);
    EXPECT_NEAR(logOf(density, {0.75, -0.5, 48.0}), logOfPair(0.495, 0.75, -0.5) + ofConstant, 1e-12);
    EXPECT_NEAR(logOf(density, {0.75, -0.5, 77.0}, {2}), logOfPair(0.495, 0.75, -0.5), 1e-12) << "its marginal";
}

TEST(NormalDensity, CorrelationsThatAreNotSingularStayAsTheyAre)
{
    // Correlation 1 - 1e-7: the smaller eigenvalue is 1e-7.
    const double correlation = 1.0 - 1e-7;
    const ktNormalDensity density = restored({{0.0}, {0.0}}, {{1.0, correlation}, {correlation, 1.0}});
    const double atMean = -1.83787706640934548356 - 0.5 * std::log(1e-7 * (2.0 - 1e-7));
    EXPECT_NEAR(logOf(density, {0.0, 0.0}), atMean, 1e-8);
}

TEST(NormalDensity, ValuesThatAreNotFiniteAreMissing)
{
    const ktNormalDensity density = learnt(TrainingSet{50, 3, 2.0, 10.0, 15}.rows());
    const ktNormalDensity single = learnt({{1.0}, {2.0}});
    for (const double value : {NaN, infinity, -infinity}) {
        EXPECT_EQ(logOf(density, {1.0, value, 2.0}), logOf(density, {1.0, 0.0, 2.0}, {1}));
        EXPECT_EQ(logOf(density, {value, value, value}), 0.0);
        EXPECT_EQ(logOf(single, {value}), 0.0);
        const std::vector<double> values = {2.0, value, 1.0};
        const Indices indices = {2, 1, 0};
        double log = 77.0;
        EXPECT_EQ(density.logDensity(values.data(), indices.data(), 3, log), 0);
        EXPECT_EQ(log, logOf(density, {1.0, 0.0, 2.0}, {1}));
    }
}

TEST(NormalDensity, TellsHowFarItsSquaresReach)
{
    const ktNormalDensity density = restored({{1.0}, {-2.0}}, {{4.0, 0.0}, {0.0, 0.0}});
    EXPECT_TRUE(density.reaches(0, 1.9e147));
    EXPECT_TRUE(density.reaches(0, -1.9e147));
    EXPECT_FALSE(density.reaches(0, 2.1e147));
    EXPECT_FALSE(density.reaches(0, infinity));
    EXPECT_FALSE(density.reaches(0, NaN));
    EXPECT_TRUE(density.reaches(1, -2.0));
    EXPECT_FALSE(density.reaches(1, 1e133)) << "in units of its own rounding";
    EXPECT_GT(logOf(density, {1.9e147, 0.0}), -1e299);
}

TEST(NormalDensity, StandInHasThePartsAndTheSpreadsThatItIsGiven)
{
    const Rows rows = {{1.0, 5.0, 2.0, 7.0}, {2.0, 5.0, 1.0, 6.0}, {4.0, 5.0, 0.5, 9.0}, {3.0, 5.0, 2.5, 1.0}};
    const ktNormalDensity whole = learnt(rows);
    ktNormalDensity part;
    part.standIn(whole, {3, 0}, {0.0, 0.0});
    EXPECT_EQ(part.count(), 4);
    EXPECT_TRUE(part.mean() == matrix({{whole.mean()(3, 0)}, {whole.mean()(0, 0)}}));
    EXPECT_TRUE(part.covariance() == matrix({{whole.covariance()(3, 3), whole.covariance()(3, 0)},
                                             {whole.covariance()(0, 3), whole.covariance()(0, 0)}}));
    ktNormalDensity lent;
    lent.standIn(whole, {0, 1, 2}, {0.0, 0.25, 0.0});
    const double shrunk = (1.0 - 1e-2) * whole.covariance()(0, 2);
    EXPECT_TRUE(
        lent.covariance() ==
        matrix({{whole.covariance()(0, 0), 0.0, shrunk}, {0.0, 0.25, 0.0}, {shrunk, 0.0, whole.covariance()(2, 2)}}));
    EXPECT_TRUE(lent.canEvaluate(3));
    EXPECT_FALSE(lent.canEvaluate(2));
    EXPECT_FALSE(ktNormalDensity().canEvaluate(0));
    logOf(lent, {1.0, 2.0, 3.0});
    lent.standIn(whole, {}, {});
    EXPECT_EQ(logOf(lent, {}), 0.0);
}

TEST(NormalDensity, CorrelationThatIsNotFiniteCountsAsZero)
{
    const ktNormalDensity independent = restored({{0.0}, {0.0}}, {{9.0, 0.0}, {0.0, 25.0}});
    for (const double covariance : {NaN, infinity, -infinity}) {
        const ktNormalDensity density = restored({{0.0}, {0.0}}, {{9.0, covariance}, {covariance, 25.0}});
        EXPECT_EQ(logOf(density, {1.0, 2.0}), logOf(independent, {1.0, 2.0}));
    }
}

TEST(NormalDensity, DegenerateDensityAgreesWithEigen)
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
        const Moments evaluated = kt_test::evaluatedReference(kt_test::twoPassMoments(set.rows));
        const ktNormalDensity density = learnt(set.rows);
        for (const std::vector<double>& x : Rows{set.rows[0], {1.0, 2.0, 3.0}, {1.5, 2.5, 3.5}, {-7.0, 0.0, 100.0}}) {
            const double expected = kt_test::logNormalReference(evaluated, kt_test::asVector(x));
            EXPECT_NEAR(logOf(density, x) / expected, 1.0, 1e-6);
        }
    }
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
        {"infinite mean", restored({{infinity}}, {{1.0}}), 0.0},
        {"mean NaN", restored({{NaN}}, {{1.0}}), 0.0},
        {"infinite variance", restored({{0.0}}, {{infinity}}), 0.0},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(logOf(row.density, {row.x}), -1e300) << row.label;
    }
    EXPECT_EQ(logOf(restored({{0.0}}, {{1.0}}), {1e149}), -0.5 * 1e149 * 1e149) << "within the limits";
    EXPECT_EQ(ktNormalDensity::clampLog(1e300), 1e300);
    EXPECT_EQ(ktNormalDensity::clampLog(1.0000001e300), 1e300);
    EXPECT_EQ(ktNormalDensity::clampLog(infinity), 1e300);
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

}  // namespace
