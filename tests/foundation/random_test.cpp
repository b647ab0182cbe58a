#include "support/test.h"

namespace {

/// So many numbers between 0 and 1, or of the standard normal.
template <class Generator>
std::vector<double> draw(unsigned long seed, int count);

/// By their seeds.
using Sequences = std::map<unsigned long, std::vector<double>>;

// A multiple of 2^-53 each: the upper 53 bits of the numbers that the 64-bit Mersenne Twister gives.
TEST(RandomUniform, GivesTheSameBitsEverywhere)
{
    const Sequences sequences = {
        {0,
         {0x1.4741be2e5a0ecp-3, 0x1.fbfa74f87c81fp-1, 0x1.442642fe065dp-5, 0x1.31ead2079dc7fp-1, 0x1.15a66026760e4p-1}},
        {1,
         {0x1.122deafddb434p-3, 0x1.175c928118c7cp-3, 0x1.ce0b479deb99p-2, 0x1.5876015e4d7p-6, 0x1.6751d5cbb3f18p-2}},
        {42,
         {0x1.82a3befaddcbcp-1, 0x1.472f1f73724ap-1, 0x1.81192cfe1cbcfp-1, 0x1.171621fc50d68p-3, 0x1.ce79451c9a6c3p-1}},
        {0xFFFFFFFF,
         {0x1.a7759e8bbab5cp-3, 0x1.a9b006768695cp-1, 0x1.aa5712f6fb4dcp-1, 0x1.028d7bb0bedbep-1,
          0x1.22c253e9512c8p-2}},
    };
    for (const auto& [seed, values] : sequences) {
        EXPECT_EQ(draw<ktRandomUniform>(seed, 5), values) << "seed " << seed;
    }
}

TEST(RandomGaussian, GivesTheSameBitsEverywhere)
{
    const Sequences sequences = {
        {0,
         {-0x1.442642fe065dp-5, -0x1.b1bc79151609p-2, 0x1.2e06f8c09cdc2p+0, -0x1.8fc935910dbdp-3,
          -0x1.54c04912782c2p+1}},
        {1,
         {-0x1.ce0b479deb99p-2, -0x1.11b1c7962db13p+0, -0x1.97ee7085c36a8p-2, 0x1.c5465293053f9p+1,
          -0x1.a4168a51b3cc4p-2}},
        {42,
         {-0x1.af6df0655c689p+0, 0x1.c8e7d9eeb494p-2, 0x1.cde8baa8d4b7ap+0, 0x1.bce45e9dbe2b3p+1,
          0x1.e0c2d8c93b7ecp-3}},
        {0xFFFFFFFF,
         {0x1.14b6a47e5da24p-2, 0x1.2beb4e0dd0c76p+0, -0x1.4428e7847aed7p-1, 0x1.23a88c4ca8995p+0,
          -0x1.6bd9c16d43bafp-1}},
    };
    for (const auto& [seed, values] : sequences) {
        EXPECT_EQ(draw<ktRandomGaussian>(seed, 5), values) << "seed " << seed;
    }
}

TEST(RandomUniform, ReachesTheLowEndButNeverTheHighOne)
{
    ktRandomUniform generator(3);
    const double next = std::nextafter(1.0, 2.0);
    for (int i = 0; i < 1000; ++i) {
        // Rounding takes half of the draws to the high end.
        EXPECT_EQ(generator.next(1.0, next), 1.0);
    }
    for (int i = 0; i < 1000; ++i) {
        const double value = generator.next(-2.0, 3.0);
        EXPECT_GE(value, -2.0);
        EXPECT_LT(value, 3.0);
    }
}

TEST(RandomUniform, RangeWithoutAnInsideGivesItsLowEnd)
{
    ktRandomUniform generator(3);
    EXPECT_EQ(generator.next(2.0, 2.0), 2.0);
    EXPECT_EQ(generator.next(2.0, 1.0), 2.0);
    EXPECT_EQ(generator.next(2.0, std::numeric_limits<double>::quiet_NaN()), 2.0);
}

TEST(RandomUniform, ScalesItsNumbersToTheRange)
{
    ktRandomUniform unit(9);
    ktRandomUniform scaled(9);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(scaled.next(10.0, 14.0), 10.0 + 4.0 * unit.next(0.0, 1.0));
    }
}

TEST(RandomGaussian, ScalesItsNumbersByMeanAndStandardDeviation)
{
    ktRandomGaussian standard(9);
    ktRandomGaussian scaled(9);
    ktRandomGaussian mirrored(9);
    ktRandomGaussian constant(9);
    for (int i = 0; i < 100; ++i) {
        const double z = standard.next(0.0, 1.0);
        EXPECT_EQ(scaled.next(10.0, 4.0), 10.0 + 4.0 * z);
        EXPECT_EQ(mirrored.next(0.0, -1.0), -z);
        EXPECT_EQ(constant.next(5.0, 0.0), 5.0);
    }
}

TEST(Random, CopyGoesOnWithTheSameNumbers)
{
    ktRandomGaussian generator(5);
    generator.next(0.0, 1.0);
    ktRandomGaussian copy(generator);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(copy.next(0.0, 1.0), generator.next(0.0, 1.0));
    }
}

template <class Generator>
std::vector<double> draw(unsigned long seed, int count)
{
    Generator generator(seed);
    std::vector<double> values;
    for (int i = 0; i < count; ++i) {
        values.push_back(generator.next(0.0, 1.0));
    }
    return values;
}

// The statistics of n independent draws lie within five of their standard deviations: for a right generator that fails once
// in 1.7 million, and the seeds are fixed.
constexpr int n = 1000000;
constexpr double sigmas = 5.0;

struct Moments {
    double mean = 0.0;
    double variance = 0.0;
    double third = 0.0;
    double fourth = 0.0;
    double lagOne = 0.0;
};

Moments momentsOf(const std::vector<double>& values)
{
    const double count = static_cast<double>(values.size());
    Moments moments;
    for (const double value : values) {
        moments.mean += value / count;
    }
    double before = 0.0;
    for (const double value : values) {
        const double d = value - moments.mean;
        moments.variance += d * d / count;
        moments.third += d * d * d / count;
        moments.fourth += d * d * d * d / count;
        moments.lagOne += d * before / count;
        before = d;
    }
    return moments;
}

/// Expects the share of draws below `limit` to be `probability`, within five standard deviations of a binomial count.
void expectShareBelow(double limit, double probability, const std::vector<double>& values)
{
    double below = 0.0;
    for (const double value : values) {
        below += value < limit ? 1.0 : 0.0;
    }
    EXPECT_NEAR(below, n * probability, sigmas * std::sqrt(n * probability * (1.0 - probability))) << "below " << limit;
}

TEST(RandomUniform, IsUniform)
{
    for (const unsigned long seed : {1UL, 2UL, 3UL}) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        const std::vector<double> values = draw<ktRandomUniform>(seed, n);
        const Moments moments = momentsOf(values);
        EXPECT_NEAR(moments.mean, 0.5, sigmas * std::sqrt(1.0 / 12.0 / n));
        // Var((x - 1/2)^2) = 1/80 - 1/144.
        EXPECT_NEAR(moments.variance, 1.0 / 12.0, sigmas * std::sqrt((1.0 / 80.0 - 1.0 / 144.0) / n));
        EXPECT_NEAR(moments.lagOne, 0.0, sigmas / 12.0 / std::sqrt(n));
        for (const double limit : {0.001, 0.01, 0.1, 0.25, 0.5, 0.75, 0.9, 0.99, 0.999}) {
            expectShareBelow(limit, limit, values);
        }
    }
}

TEST(RandomGaussian, IsNormal)
{
    // The distribution function of the standard normal, to 10 digits.
    const std::vector<std::pair<double, double>> distribution = {
        {-4.0, 3.167124183e-5}, {-3.0, 1.349898032e-3}, {-2.0, 0.02275013195},
        {-1.0, 0.1586552539},   {-0.5, 0.3085375387},   {0.0, 0.5},
        {0.5, 0.6914624613},    {1.0, 0.8413447461},    {2.0, 0.9772498681},
        {3.0, 0.9986501020},    {4.0, 0.9999683288}};
    for (const unsigned long seed : {1UL, 2UL, 3UL}) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        const std::vector<double> values = draw<ktRandomGaussian>(seed, n);
        const Moments moments = momentsOf(values);
        EXPECT_NEAR(moments.mean, 0.0, sigmas / std::sqrt(n));
        EXPECT_NEAR(moments.variance, 1.0, sigmas * std::sqrt(2.0 / n));
        EXPECT_NEAR(moments.third, 0.0, sigmas * std::sqrt(15.0 / n));
        EXPECT_NEAR(moments.fourth, 3.0, sigmas * std::sqrt(96.0 / n));
        EXPECT_NEAR(moments.lagOne, 0.0, sigmas / std::sqrt(n));
        for (const auto& [limit, probability] : distribution) {
            expectShareBelow(limit, probability, values);
        }
    }
}

}  // namespace
