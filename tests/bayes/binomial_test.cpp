#include "densities_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;

constexpr long most = 2147483647L;
constexpr long least = -most - 1;

TEST(Binomial, NewOneIsUntrainedWithMaximumOne)
{
    const Binomial density;
    EXPECT_EQ(density.numTrials(), 0);
    EXPECT_EQ(density.theta(), 0.0);
    EXPECT_EQ(maximumOf(density), 1.0);
    EXPECT_TRUE(density == Binomial(pattern(1.0)));
}

TEST(Binomial, MaximumIsTheFirstMeasurement)
{
    EXPECT_EQ(maximumOf(Binomial(pattern(10.0))), 10.0);
    EXPECT_EQ(maximumOf(Binomial(ktFeaturePattern({10.0, 20.0}, {}))), 10.0);
    EXPECT_EQ(maximumOf(Binomial(ktFeaturePattern({10.0, 20.0}, {0}))), 10.0) << "valid or not";
    EXPECT_EQ(maximumOf(Binomial(ktFeaturePattern())), 0.0) << "without any";
}

TEST(Binomial, EstimatesItsParametersFromMeanAndVarianceOfTheProportions)
{
    struct Row {
        const char* label;
        double maximum;
        Values values;
        double theta;
        long numTrials;
    };
    const Row rows[] = {
        {"2, 4, 6 of 10", 10.0, {2.0, 4.0, 6.0}, 0.4, 6},
        {"theta 1/2, variance 1/16", 1.0, {0.25, 0.5, 0.75}, 0.5, 4},
        {"theta 1/2, variance 1/8", 2.0, {0.5, 1.5}, 0.5, 2},
        {"exactly 1/2, rounded up to 1", 1.0, {0.0, 1.0}, 0.5, 1},
        {"3/4, rounded to 1", 1.0, {0.0, 1.0, 1.0, 0.0}, 0.5, 1},
        {"0.24, rounded to 0", 1.0, {0.0, 0.0, 0.0, 0.0, 2.0 / 3.0, 1.0, -0.75}, 0.131, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const Binomial density = learnt(row.maximum, row.values);
        EXPECT_NEAR(density.theta(), row.theta, 1e-3);
        EXPECT_EQ(density.numTrials(), row.numTrials);
    }
}

TEST(Binomial, EstimateIsTheDocumentedExpression)
{
    const Values values = {3.0, 11.0, 7.0, 5.0, 8.0, 2.5};
    kt_PDFMultivariateNormal moments;
    moments.updateWithDataNormalize(single(values), 17.0);
    const double theta = moments.mean()(0, 0);
    const double variance = moments.covariance()(0, 0);
    const Binomial density = learnt(17.0, values);
    EXPECT_EQ(density.theta(), theta);
    EXPECT_EQ(density.numTrials(), static_cast<long>((1.0 - theta) / variance * theta + 0.5));
}

TEST(Binomial, LearnsMoreInSeveralSteps)
{
    Binomial density(pattern(10.0));
    for (const double value : {2.0, 4.0, 6.0}) {
        density.updateWithData(single({value}));
    }
    EXPECT_TRUE(density == learnt(10.0, {2.0, 4.0, 6.0}));
}

TEST(Binomial, EmptyListChangesNothing)
{
    Binomial density = learnt(10.0, {2.0, 4.0, 6.0});
    density.updateWithData({});
    EXPECT_TRUE(density == learnt(10.0, {2.0, 4.0, 6.0}));
    Binomial fresh;
    fresh.updateWithData({});
    EXPECT_TRUE(fresh == Binomial());
}

TEST(Binomial, ConstantTrainingSetSetsThetaAndLeavesNumTrials)
{
    const Binomial fresh = learnt(10.0, {4.0, 4.0, 4.0});
    EXPECT_EQ(fresh.theta(), 0.4);
    EXPECT_EQ(fresh.numTrials(), 0);
    expectInsufficient([&] { static_cast<void>(fresh.logValue(pattern(4.0))); });
    // A loaded density starts to accumulate from nothing, so here the numbers of before meet a constant set.
    Binomial loaded = kt_test::storedAndLoaded(learnt(10.0, {2.0, 4.0, 6.0}));
    loaded.updateWithData(single({7.0, 7.0}));
    EXPECT_EQ(loaded.theta(), 0.7);
    EXPECT_EQ(loaded.numTrials(), 6);
}

TEST(Binomial, VarianceUpToTheLimitIsConstant)
{
    struct Row {
        double distance;
        long numTrials;
    };
    // Two values at this distance from 1/2 have the variance 2 distance^2: 0.98e-15 and 1.125e-15. The latter gives an n of
    // 2e14, which ends at 32 bits.
    const Row rows[] = {{2.2136e-8, 0}, {2.3717e-8, most}};
    for (const Row& row : rows) {
        const Binomial density = learnt(1.0, {0.5 - row.distance, 0.5 + row.distance});
        EXPECT_EQ(density.numTrials(), row.numTrials) << row.distance;
        EXPECT_NEAR(density.theta(), 0.5, 1e-15);
    }
}

TEST(Binomial, InvalidMeasurementsAndThoseNotFiniteAreLeftOut)
{
    Binomial density(pattern(10.0));
    density.updateWithData({pattern(2.0), ktFeaturePattern({99.0}, {0}), pattern(4.0), pattern(NaN), pattern(-infinity),
                            pattern(infinity), pattern(6.0)});
    EXPECT_TRUE(density == learnt(10.0, {2.0, 4.0, 6.0}));
}

TEST(Binomial, OnlyInvalidMeasurementsTeachNothing)
{
    Binomial density = binomialWith(5, 0.25, 10.0);
    density.updateWithData({ktFeaturePattern({2.0}, {0}), ktFeaturePattern({4.0}, {0})});
    EXPECT_TRUE(density == binomialWith(5, 0.25, 10.0));
}

TEST(Binomial, RefusesPatternsInItsOrderAndStaysAsItWas)
{
    struct Row {
        const char* label;
        std::vector<ktFeaturePattern> list;
        void (*expect)(Binomial&, const std::vector<ktFeaturePattern>&);
    };
    const auto notImplemented = [](Binomial& d, const std::vector<ktFeaturePattern>& l) {
        expectNotImplemented([&] { d.updateWithData(l); });
    };
    const auto tooLarge = [](Binomial& d, const std::vector<ktFeaturePattern>& l) {
        expectBadParams("Train data measurement cannot exceed its maximum value when using binomial distribution",
                        [&] { d.updateWithData(l); });
    };
    const auto sizes = [](Binomial& d, const std::vector<ktFeaturePattern>& l) {
        expectDifferentSizes([&] { d.updateWithData(l); });
    };
    const Row rows[] = {
        {"two measurements", patterns({{1.0, 2.0}}), notImplemented},
        {"no measurement", patterns({{}}), notImplemented},
        {"two, above the maximum", patterns({{11.0, 12.0}}), notImplemented},
        {"above the maximum", patterns({{10.5}}), tooLarge},
        {"the last above the maximum", patterns({{1.0}, {2.0}, {11.0}}), tooLarge},
        {"a later one of two measurements", patterns({{1.0}, {2.0, 3.0}}), sizes},
        {"a later one without measurements", patterns({{1.0}, {}}), sizes},
        {"a later one of two, above the maximum", patterns({{1.0}, {2.0, 11.0}}), tooLarge},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Binomial density = learnt(10.0, {2.0, 4.0});
        row.expect(density, row.list);
        EXPECT_TRUE(density == learnt(10.0, {2.0, 4.0}));
        density.updateWithData(single({6.0}));
        EXPECT_TRUE(density == learnt(10.0, {2.0, 4.0, 6.0})) << "nor was anything accumulated";
    }
}

TEST(Binomial, InvalidMeasurementAboveTheMaximumIsNotRefused)
{
    Binomial density = learnt(10.0, {2.0, 4.0});
    density.updateWithData({ktFeaturePattern({11.0}, {0}), pattern(6.0)});
    EXPECT_TRUE(density == learnt(10.0, {2.0, 4.0, 6.0}));
}

TEST(Binomial, NegativeValuesAreNotRefused)
{
    const Binomial density = learnt(1.0, {-1.0, -3.0});
    EXPECT_EQ(density.theta(), -2.0);
    EXPECT_EQ(density.numTrials(), -2) << "-3 + 1/2 truncated";
    EXPECT_TRUE(std::isnan(density.logValue(pattern(0.5)))) << "the logarithm of a negative theta";
}

TEST(Binomial, ClearForgetsWhatWasLearntButThetaAndTheMaximum)
{
    Binomial density = learnt(10.0, {2.0, 4.0, 6.0});
    const double theta = density.theta();
    density.clear();
    EXPECT_EQ(density.numTrials(), 0);
    EXPECT_EQ(density.theta(), theta);
    EXPECT_EQ(maximumOf(density), 10.0);
    density.updateWithData(single({1.0, 3.0}));
    EXPECT_TRUE(density == learnt(10.0, {1.0, 3.0}));
}

TEST(Binomial, LogValueIsTheClosedForm)
{
    struct Row {
        long numTrials;
        double theta;
        double maximum;
        double x;
        long k;
    };
    const Row rows[] = {
        {6, 0.4, 10.0, 4.0, 2},    {6, 0.4, 10.0, 0.0, 0},     {6, 0.4, 10.0, 10.0, 6}, {6, 0.4, 10.0, 9.0, 5},
        {4, 0.5, 1.0, 0.125, 1},   {4, 0.5, 1.0, 0.12, 0},     {1, 0.25, 1.0, 1.0, 1},  {1, 0.25, 1.0, 0.0, 0},
        {60, 0.125, 60.0, 7.0, 7}, {60, 0.875, 30.0, 7.0, 14}, {1, 0.25, 1.0, 0.5, 1},  {1, 0.25, 1.0, 0.49, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "n " << row.numTrials << ", theta " << row.theta << ", x " << row.x);
        const auto k = static_cast<double>(row.k);
        const auto n = static_cast<double>(row.numTrials);
        const double expected =
            logChoose(row.numTrials, row.k) + k * std::log(row.theta) + (n - k) * std::log(1.0 - row.theta);
        EXPECT_NEAR(binomialWith(row.numTrials, row.theta, row.maximum).logValue(pattern(row.x)), expected,
                    1e-13 * std::max(1.0, std::abs(expected)));
    }
}

TEST(Binomial, ProbabilitiesOfAllCountsSumToOne)
{
    const Binomial density = binomialWith(40, 0.3, 40.0);
    double sum = 0.0;
    for (int k = 0; k <= 40; ++k) {
        sum += std::exp(density.logValue(pattern(k)));
    }
    EXPECT_NEAR(sum, 1.0, 1e-13);
}

TEST(Binomial, TrainedExampleHasItsKnownValue)
{
    // 15 * 0.4^2 * 0.6^4 = 0.31104
    EXPECT_NEAR(learnt(10.0, {2.0, 4.0, 6.0}).logValue(pattern(4.0)), std::log(0.31104), 1e-14);
}

TEST(Binomial, LogValueChecksInItsOrder)
{
    const Binomial untrained(pattern(10.0));
    const Binomial trained = binomialWith(6, 0.4, 10.0);
    const ktFeaturePattern two({11.0, 12.0}, {0});
    expectInsufficient([&] { static_cast<void>(untrained.logValue(two)); });
    expectInsufficient([&] { static_cast<void>(untrained.logValue(ktFeaturePattern({1.0}, {0}))); });
    expectNotImplemented([&] { static_cast<void>(trained.logValue(two)); });
    expectNotImplemented([&] { static_cast<void>(trained.logValue(ktFeaturePattern())); });
    EXPECT_EQ(trained.logValue(ktFeaturePattern({11.0}, {0})), 0.0) << "an invalid measurement has no range";
    expectBadParams(aboveMaximum, [&] { static_cast<void>(trained.logValue(pattern(10.0 + 1e-14))); });
    EXPECT_TRUE(trained == binomialWith(6, 0.4, 10.0));
}

TEST(Binomial, NegativeMeasurementIsNotRejected)
{
    const Binomial density = binomialWith(6, 0.5, 10.0);
    // k = trunc(-20 * 0.6 + 0.5) = -11: ln k! counts as 0, n - k is 17.
    const double expected = std::lgamma(7.0) - std::lgamma(18.0) + 6.0 * std::log(0.5);
    EXPECT_NEAR(density.logValue(pattern(-20.0)), expected, 1e-12);
    EXPECT_NEAR(density.logValue(pattern(-1.0)), 6.0 * std::log(0.5), 1e-14) << "k = trunc(-0.1) = 0";
}

TEST(Binomial, ThetaOfZeroAndOneFollowTheRulesOfFloatingPoint)
{
    struct Row {
        const char* label;
        double theta;
        double x;
        double expected;
    };
    const Row rows[] = {
        {"0, some successes", 0.0, 3.0, -infinity}, {"0, no success: 0 times -infinity", 0.0, 0.0, NaN},
        {"1, some failures", 1.0, 3.0, -infinity},  {"1, no failure: 0 times -infinity", 1.0, 6.0, NaN},
        {"0, negative count", 0.0, -3.0, infinity}, {"theta NaN", NaN, 3.0, NaN},
        {"theta above 1", 1.5, 3.0, NaN},           {"theta below 0", -0.5, 3.0, NaN},
    };
    for (const Row& row : rows) {
        const double value = binomialWith(6, row.theta, 6.0).logValue(pattern(row.x));
        EXPECT_TRUE(value == row.expected || (std::isnan(value) && std::isnan(row.expected)))
            << row.label << ": " << value;
    }
}

TEST(Binomial, ProportionsOfOneAfterLoadingGiveNaN)
{
    Binomial density = kt_test::storedAndLoaded(learnt(10.0, {2.0, 4.0, 6.0}));
    density.updateWithData(single({10.0, 10.0}));
    EXPECT_EQ(density.theta(), 1.0);
    EXPECT_EQ(density.numTrials(), 6);
    EXPECT_TRUE(std::isnan(density.logValue(pattern(10.0))));
    EXPECT_EQ(density.logValue(pattern(1.0)), -infinity);
}

TEST(Binomial, NothingOfAMaximumOfZeroGivesNaN)
{
    EXPECT_TRUE(std::isnan(binomialWith(6, 0.4, 0.0).logValue(pattern(0.0))));
}

TEST(Binomial, MeasurementThatIsNotFiniteAddsNothing)
{
    for (const double x : {NaN, infinity, -infinity}) {
        EXPECT_EQ(binomialWith(6, 0.4, 10.0).logValue(pattern(x)), 0.0) << x;
    }
    expectInsufficient([&] { static_cast<void>(Binomial(pattern(10.0)).logValue(pattern(NaN))); });
}

/// ln m! as a density shows it: with one trial and k = 1 - m its value is -ln m! + ln 1/2.
double logFactorialShown(long m)
{
    const double x = static_cast<double>(1 - m) - 0.5;
    return -(binomialWith(1, 0.5, 1.0).logValue(pattern(x)) - std::log(0.5));
}

TEST(Binomial, LogFactorialsAgreeWithThePlainSum)
{
    long double sum = 0.0L;
    for (long m = 2; m <= 1000000; ++m) {
        sum += std::log(static_cast<long double>(m));
        if (m < 20 || (m > 99990 && m < 100010) || m % 50000 == 0) {
            EXPECT_NEAR(logFactorialShown(m) / static_cast<double>(sum), 1.0, 1e-12) << m;
        }
    }
}

TEST(Binomial, LogFactorialsBeyondTheTableAgreeWithTheGammaFunction)
{
    for (const long m : {100001L, 100002L, 150000L, 1000000L, 30000000L, most}) {
        EXPECT_NEAR(logFactorialShown(m) / std::lgamma(static_cast<double>(m) + 1.0), 1.0, 5e-15) << m;
    }
}

TEST(Binomial, LargestNumTrialsIsAnswered)
{
    const auto n = static_cast<double>(most);
    const Binomial density = binomialWith(most, 0.5, 1.0);
    EXPECT_NEAR(density.logValue(pattern(1.0)) / (n * std::log(0.5)), 1.0, 1e-12) << "k = n";
    EXPECT_NEAR(density.logValue(pattern(0.0)) / (n * std::log(0.5)), 1.0, 1e-12) << "k = 0";
    // At the mode the probability is 1/sqrt(pi n/2), and the value the difference of numbers near 4e10.
    EXPECT_NEAR(density.logValue(pattern(0.5)), -0.5 * std::log(0.5 * 3.14159265358979 * n), 1e-4);
    const double negative = density.logValue(pattern(-1.0));
    const double expected = std::lgamma(n + 1.0) - std::lgamma(2.0 * n + 2.0) + n * std::log(0.5);
    EXPECT_NEAR(negative / expected, 1.0, 1e-9) << "k = -n";
}

TEST(Binomial, ExtremeTrialsAndMeasurementsAreAnswered)
{
    const double lowest = std::numeric_limits<double>::lowest();
    for (const long n : {least, least + 1, -1L, 1L, most}) {
        for (const double maximum : {1.0, 1e-300, 0.0, -1.0, infinity, NaN}) {
            for (const double x : {lowest, -infinity, -1.0, -0.0, 0.0, 1e-300}) {
                const Binomial density = binomialWith(n, 0.5, maximum);
                if (x > maximum) {
                    expectBadParams(aboveMaximum, [&] { static_cast<void>(density.logValue(pattern(x))); });
                } else {
                    const double value = density.logValue(pattern(x));
                    EXPECT_FALSE(value > 1e300 && std::isinf(value)) << n << ", " << maximum << ", " << x;
                }
            }
        }
    }
}

TEST(Binomial, MaximumThatDividesNothingTeachesNothing)
{
    for (const double maximum : {0.0, NaN}) {
        Binomial density(pattern(maximum));
        density.updateWithData(single({-1.0, 0.0, -2.0}));
        EXPECT_EQ(density.numTrials(), 0) << maximum;
        EXPECT_EQ(density.theta(), 0.0) << maximum;
    }
}

TEST(Binomial, IsEqualInNumTrialsThetaAndMaximum)
{
    const Binomial density = binomialWith(6, 0.4, 10.0);
    struct Row {
        const char* label;
        Binomial other;
        bool equal;
    };
    const Row rows[] = {
        {"all the same", binomialWith(6, 0.4, 10.0), true},
        {"another n", binomialWith(7, 0.4, 10.0), false},
        {"another theta", binomialWith(6, 0.5, 10.0), false},
        {"another maximum", binomialWith(6, 0.4, 11.0), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(density == row.other, row.equal);
        EXPECT_EQ(density != row.other, !row.equal);
        EXPECT_EQ(density.isEquivalent(row.other), row.equal);
    }
    EXPECT_FALSE(density.isEquivalent(kt_PDFMultivariateNormal()));
}

TEST(Binomial, WhatWasAccumulatedIsNotCompared)
{
    const Binomial trained = learnt(10.0, {2.0, 4.0, 6.0});
    EXPECT_TRUE(kt_test::storedAndLoaded(trained) == trained);
}

TEST(Binomial, CopiesCarryWhatWasAccumulated)
{
    const Binomial two = learnt(10.0, {2.0, 4.0});
    Binomial copy(two);
    Binomial assigned;
    assigned = two;
    copy.updateWithData(single({6.0}));
    assigned.updateWithData(single({6.0}));
    EXPECT_TRUE(copy == learnt(10.0, {2.0, 4.0, 6.0}));
    EXPECT_TRUE(assigned == copy);
    EXPECT_TRUE(two == learnt(10.0, {2.0, 4.0}));
}

TEST(Binomial, IsStoredAsItsVersionTrialsThetaAndMaximum)
{
    const BinomialFields fields = fieldsOf(learnt(10.0, {2.0, 4.0, 6.0}));
    EXPECT_EQ(fields.version, 0);
    EXPECT_EQ(fields.numTrials, 6);
    EXPECT_EQ(fields.theta, learnt(10.0, {2.0, 4.0, 6.0}).theta());
    EXPECT_EQ(fields.maximum, 10.0);
}

TEST(Binomial, LoadedOneAnswersAndLearnsFromNothing)
{
    const Binomial trained = learnt(10.0, {2.0, 4.0, 6.0});
    Binomial loaded = learnt(7.0, {1.0, 2.0});
    kt_test::loadInto(loaded, kt_test::store(trained));
    EXPECT_EQ(loaded.logValue(pattern(3.0)), trained.logValue(pattern(3.0)));
    loaded.updateWithData(single({1.0, 3.0}));
    EXPECT_TRUE(loaded == learnt(10.0, {1.0, 3.0}));
}

#if defined(__GLIBC__) && GTEST_HAS_DEATH_TEST

/// What a density that is evaluated after every static object has gone must answer; null unless a test asks for it.
const Binomial* evaluatedLast = nullptr;
double answeredBefore = 0.0;

void evaluateLast(int, void*)
{
    if (evaluatedLast != nullptr) {
        // Lies where the table of factorials lay, if that was given back.
        const std::vector<double> other(100001, 1e9);
        std::_Exit(other[0] == 1e9 && evaluatedLast->logValue(pattern(3.0)) == answeredBefore ? 7 : 1);
    }
}

void askLast()
{
    // What std::atexit registers in a program goes before the libraries do.
    on_exit(&evaluateLast, nullptr);
}

// Runs before the constructors of every library, so what it registers runs behind all their destructors.
__attribute__((section(".preinit_array"), used)) void (*const asksLast)() = &askLast;

TEST(Binomial, AnswersAfterTheStaticObjectsOfTheLibraryHaveGone)
{
    const Binomial density = learnt(10.0, {2.0, 4.0, 6.0});
    answeredBefore = density.logValue(pattern(3.0));
    EXPECT_EXIT(
        {
            evaluatedLast = &density;
            std::exit(0);
        },
        ::testing::ExitedWithCode(7), "");
}

#endif

}  // namespace
