#include "metrics.h"

namespace {

using namespace kt_test;

TEST(Metric, HasOnePersistentPartAndOneCountWhateverElseItDerivesFrom)
{
    struct Other : virtual ktPersistent, virtual ktRepBase {};
    struct Both : kt_test::Chebyshev, Other {};
    Both both;
    ktPersistent* const throughMetric = static_cast<ktPatternDistanceMetric*>(&both);
    ktPersistent* const throughOther = static_cast<Other*>(&both);
    EXPECT_EQ(throughMetric, throughOther);
    EXPECT_EQ(static_cast<const ktRepBase&>(both).refCount(), 0);
}

TEST(Metric, CannotBeCopiedThroughItsBase)
{
    EXPECT_TRUE(std::is_abstract_v<ktPatternDistanceMetric>);
    EXPECT_FALSE(std::is_copy_assignable_v<ktPatternDistanceMetric>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ktPatternDistanceMetric>);
}

TEST(Metric, ThatDoesNotOverrideIsEquivalentIsEquivalentToEverything)
{
    const kt_test::DistanceBy metric = kt_test::distanceInPattern();
    EXPECT_TRUE(metric.isEquivalent(ktPatternDistanceMetricNorm(3.0)));
    EXPECT_TRUE(metric.isEquivalent(kt_test::Chebyshev()));
    EXPECT_TRUE(metric.isEquivalent(metric));
}

TEST(Metric, AssignmentOfADerivedClassLeavesTheCountAlone)
{
    const ktPtrHandle<kt_test::DistanceBy> held(new kt_test::DistanceBy(kt_test::distanceInPattern()));
    const ktPtrHandle<kt_test::DistanceBy> second = held;
    *held = kt_test::DistanceBy([](const ktFeaturePattern&, const ktFeaturePattern&) { return 7.0; });
    EXPECT_EQ(second->distance(ktFeaturePattern(), ktFeaturePattern()), 7.0);
    EXPECT_EQ(held->refCount(), 2);
}

TEST(MetricNorm, HasOrderTwoUnlessToldOtherwise)
{
    EXPECT_EQ(ktPatternDistanceMetricNorm().order(), 2.0);
    EXPECT_EQ(ktPatternDistanceMetricNorm(0.5).order(), 0.5);
}

TEST(MetricNorm, TakesEveryOrderAboveZero)
{
    for (const double order :
         {std::numeric_limits<double>::denorm_min(), 0.5, 1.0, 7.5, std::numeric_limits<double>::max(), infinity}) {
        SCOPED_TRACE(order);
        EXPECT_EQ(ktPatternDistanceMetricNorm(order).order(), order);
        ktPatternDistanceMetricNorm metric;
        metric.order(order);
        EXPECT_EQ(metric.order(), order);
    }
}

TEST(MetricNorm, RefusesEveryOtherOrderAndKeepsTheOldOne)
{
    for (const double order : {0.0, -0.0, -1.0, -infinity, NaN}) {
        SCOPED_TRACE(order);
        expectThrows<ktClassifierDefs::BadParams>(badOrder, [&] { const ktPatternDistanceMetricNorm metric(order); });
        ktPatternDistanceMetricNorm metric(3.5);
        expectThrows<ktClassifierDefs::BadParams>(badOrder, [&] { metric.order(order); });
        EXPECT_EQ(metric.order(), 3.5);
    }
}

// The fourth and fifth column come from 40-digit arithmetic.
TEST(MetricNorm, IsTheMinkowskiDistance)
{
    struct Row {
        const char* label;
        double order;
        std::vector<double> a;
        std::vector<double> b;
        double expected;
    };
    const std::vector<double> a = {1.5, -2.0, 0.25, 10.0};
    const std::vector<double> b = {0.5, 3.0, 0.75, -2.5};
    const Row rows[] = {
        {"sum of square roots, squared", 0.5, {0, 0}, {4, 9}, 25.0},
        {"order 0.5", 0.5, a, b, 55.931083290248425678},
        {"sum of absolute differences", 1.0, a, b, 19.0},
        {"Euclidean", 2.0, {1, 1}, {4, 5}, 5.0},
        {"order 2", 2.0, a, b, 13.509256086106296031},
        {"cube root of 27 + 64 + 125", 3.0, {0, 0, 0}, {3, 4, 5}, 6.0},
        {"order 3", 3.0, a, b, 12.763474157436043593},
        {"order 7.5", 7.5, a, b, 12.501726260190655652},
        {"one measurement", 7.5, {-1.25}, {2.5}, 3.75},
        {"the same pattern", 7.5, a, a, 0.0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const ktPatternDistanceMetricNorm metric(row.order);
        EXPECT_NEAR(distance(metric, row.a, row.b), row.expected, 4e-15 * row.expected);
        EXPECT_EQ(distance(metric, row.a, row.b), distance(metric, row.b, row.a));
    }
}

// Kept on purpose: no order has arithmetic of its own; x * x, for one, now and then differs from the power in the last bit.
TEST(MetricNorm, TakesTheGeneralPowerAtEveryOrder)
{
    std::mt19937 engine(20240612);
    const auto coordinate = [&engine] {
        return static_cast<double>(engine()) / 65536.0 + static_cast<double>(engine()) / 1e12;
    };
    for (const double order : {0.5, 1.0, 2.0, 3.0, 7.5}) {
        SCOPED_TRACE(order);
        const ktPatternDistanceMetricNorm metric(order);
        // Volatile, because for a power known at compile time compilers put other arithmetic.
        const volatile double p = order;
        for (int i = 0; i < 20000; ++i) {
            const double x = coordinate();
            const double y = coordinate();
            ASSERT_EQ(distance(metric, {x, 0.0}, {0.0, y}), std::pow(std::pow(x, p) + std::pow(y, p), 1.0 / p))
                << x << ' ' << y;
        }
    }
}

TEST(MetricNorm, AddsTheTermsInTheOrderOfTheMeasurements)
{
    // 1 is lost beside 2^53, and two of them are not: the order of the additions shows.
    const double large = 9007199254740992.0;
    const ktPatternDistanceMetricNorm metric(1.0);
    EXPECT_EQ(distance(metric, {large, 1.0, 1.0}, {0.0, 0.0, 0.0}), large);
    EXPECT_EQ(distance(metric, {1.0, 1.0, large}, {0.0, 0.0, 0.0}), large + 2.0);
}

TEST(MetricNorm, TwoEmptyPatternsHaveDistanceZeroAtEveryOrder)
{
    for (const double order : {0.5, 1.0, 2.0, 3.0, 7.5, std::numeric_limits<double>::max(), infinity}) {
        EXPECT_EQ(distance(ktPatternDistanceMetricNorm(order), {}, {}), 0.0) << order;
    }
}

TEST(MetricNorm, OverflowMakesTheDistanceInfinite)
{
    const ktPatternDistanceMetricNorm metric(2.0);
    EXPECT_EQ(distance(metric, {1e200}, {-1e200}), infinity);
    EXPECT_EQ(distance(metric, {infinity}, {0.0}), infinity);
}

TEST(MetricNorm, NotANumberMakesTheDistanceNotANumber)
{
    const ktPatternDistanceMetricNorm metric(2.0);
    EXPECT_TRUE(std::isnan(distance(metric, {1.0, NaN}, {0.0, 0.0})));
    EXPECT_TRUE(std::isnan(distance(metric, {infinity}, {infinity})));
}

// Kept on purpose: the missing blank in "measurementsin".
TEST(MetricNorm, RefusesPatternsOfDifferentSizesBeforeItLooksAtTheirValidity)
{
    const ktPatternDistanceMetricNorm metric;
    const auto three = kt_test::pattern({1, 2, 3});
    const auto four = kt_test::pattern({1, 2, 3, 4});
    const auto fourInvalid = kt_test::pattern({1, 2, 3, 4}, {0});
    for (const auto& other : {four, fourInvalid}) {
        expectThrows<ktClassifierDefs::BadFeatures>(unequalSizes, [&] { metric.distance(*three, *other); });
        expectThrows<ktClassifierDefs::BadFeatures>(unequalSizes, [&] { metric.distance(*other, *three); });
    }
}

TEST(MetricNorm, RefusesAnInvalidMeasurementInEitherPattern)
{
    const ktPatternDistanceMetricNorm metric;
    const auto valid = kt_test::pattern({1, 2, 3});
    const auto invalid = kt_test::pattern({1, 2, 3}, {2});
    expectThrows<ktClassifierDefs::BadFeatures>(notAllValid, [&] { metric.distance(*valid, *invalid); });
    expectThrows<ktClassifierDefs::BadFeatures>(notAllValid, [&] { metric.distance(*invalid, *valid); });
    expectThrows<ktClassifierDefs::BadFeatures>(notAllValid, [&] { metric.distance(*invalid, *invalid); });
}

TEST(MetricNorm, IsEquivalentToANormOfExactlyTheSameOrder)
{
    struct Row {
        double order;
        bool equivalent;
    };
    const ktPatternDistanceMetricNorm metric(2.0);
    for (const Row& row :
         {Row{2.0, true}, Row{2.0000000001, false}, Row{std::nextafter(2.0, 3.0), false}, Row{1.0, false}}) {
        SCOPED_TRACE(row.order);
        const ktPatternDistanceMetricNorm other(row.order);
        EXPECT_EQ(metric.isEquivalent(other), row.equivalent);
        EXPECT_EQ(other.isEquivalent(metric), row.equivalent);
        EXPECT_EQ(metric == other, row.equivalent);
        EXPECT_EQ(metric != other, !row.equivalent);
    }
}

TEST(MetricNorm, IsNotEquivalentToAMetricOfAnotherClass)
{
    const ktPatternDistanceMetricNorm metric;
    EXPECT_FALSE(metric.isEquivalent(kt_test::Chebyshev()));
    EXPECT_FALSE(metric.isEquivalent(kt_test::distanceInPattern()));
}

TEST(MetricNorm, ComparisonAsksTheOverridingClass)
{
    struct Unequal : ktPatternDistanceMetricNorm {
        bool isEquivalent(const ktPatternDistanceMetric&) const override { return false; }
    };
    const Unequal derived;
    const ktPatternDistanceMetricNorm& metric = derived;
    EXPECT_FALSE(metric == metric);
    EXPECT_TRUE(metric != metric);
}

TEST(Metric, ComparisonThroughTheBaseAsksTheFirstOne)
{
    const ktPatternDistanceMetricNorm two(2.0);
    const ktPatternDistanceMetricNorm three(3.0);
    const ktPatternDistanceMetric& metric = two;
    EXPECT_TRUE(metric == two);
    EXPECT_FALSE(metric != two);
    EXPECT_FALSE(metric == three);
    EXPECT_TRUE(metric != three);
    EXPECT_FALSE(metric == kt_test::Chebyshev());
}

TEST(MetricNorm, IsStoredAsItsVersionItsBaseAndItsOrder)
{
    const unsigned char version = 0;
    EXPECT_EQ(kt_test::toHex(kt_test::store(ktPatternDistanceMetricNorm(7.5))),
              kt_test::toHex(kt_test::store(version, version, 7.5)));
}

TEST(MetricNorm, LoadsAnOrderThatTheSetterWouldRefuse)
{
    const std::string stored = kt_test::store(ktPatternDistanceMetricNorm(7.5));
    for (const double order : {0.0, -3.0}) {
        kt_test::StoringArchive archive;
        double value = order;
        archive || value;
        const std::string bytes = stored.substr(0, stored.size() - 8) + kt_test::afterHeader(archive.bytes());
        EXPECT_EQ(kt_test::load<ktPatternDistanceMetricNorm>(bytes).order(), order);
    }
}

TEST(MetricNorm, SerializeArchivesWhatFollowsTheVersionOfItsLayer)
{
    OpenNorm metric(7.5);
    kt_test::StoringArchive archive;
    metric.serializeBase(archive, 0);
    EXPECT_EQ(archive.bytes(), "") << "the base has no fields";
    metric.serialize_(archive, 0);
    EXPECT_EQ(kt_test::afterHeader(archive.bytes()), kt_test::afterHeader(kt_test::store(metric)).substr(1));
}

}  // namespace
