#include "ramps.h"

namespace kt_test {

namespace {

using namespace kt_test;

using OneSided = ktClassifierFeatureScoreOneSided;

TEST(FeatureScoreOneSided, NewOneFallsFromOneAtZeroToZeroAtOne)
{
    EXPECT_EQ(valuesOf(OneSided()), (std::vector<double>{0.0, 1.0, 1.0, 1.0, 0.0}));
    expectScores(OneSided(), {"new",
                              {},
                              {{-infinity, 1.0},
                               {-5.0, 1.0},
                               {-0.0, 1.0},
                               {0.0, 1.0},
                               {0.25, 0.75},
                               {1.0, 0.0},
                               {2.0, 0.0},
                               {infinity, 0.0}}});
}

// Breakpoints and scores are such that every value here is exact.
const ScoreRow oneSidedRows[] = {
    {"rising",
     {2, 4, 7, 0.25, 0.75},
     {{-infinity, 0.25},
      {-1e300, 0.25},
      {below(2), 0.25},
      {2, 0.25},
      {above(2), 0x1.0000000000002p-2},
      {3, 0.5},
      {below(4), 0x1.7ffffffffffffp-1},
      {4, 0.75},
      {above(4), 0.75},
      {below(7), 0.75},
      {7, 0.75},
      {above(7), 0.0},
      {infinity, 0.0},
      {NaN, NaN}}},
    {"rising, score falls",
     {2, 4, 7, 0.75, 0.25},
     {{below(2), 0.75}, {2, 0.75}, {2.5, 0.625}, {4, 0.25}, {7, 0.25}, {above(7), 0.0}}},
    {"falling",
     {8, 4, 2, 0.25, 0.75},
     {{-infinity, 0.0},
      {below(2), 0.0},
      {2, 0.75},
      {above(2), 0.75},
      {below(4), 0.75},
      {4, 0.75},
      {above(4), 0x1.7ffffffffffffp-1},
      {6, 0.5},
      {below(8), 0x1.0000000000002p-2},
      {8, 0.25},
      {above(8), 0.25},
      {1e300, 0.25},
      {infinity, 0.25},
      {NaN, NaN}}},
    {"falling to the left of an upright end",
     {10, 5, 0, 0.0, 1.0},
     {{-1, 0.0}, {below(0), 0.0}, {0, 1.0}, {5, 1.0}, {7.5, 0.5}, {10, 0.0}, {20, 0.0}}},
    {"x0 = x1 < xc: x1 wins",
     {3, 3, 5, 0.25, 0.75},
     {{below(3), 0.25}, {3, 0.75}, {5, 0.75}, {above(5), 0.0}, {NaN, NaN}}},
    {"x0 = x1 > xc: x1 wins",
     {5, 5, 3, 0.25, 0.75},
     {{below(3), 0.0}, {3, 0.75}, {5, 0.75}, {above(5), 0.25}, {NaN, NaN}}},
    {"x0 < x1 = xc", {3, 5, 5, 0.25, 0.75}, {{3, 0.25}, {4, 0.5}, {5, 0.75}, {above(5), 0.0}}},
    {"x0 > x1 = xc", {5, 3, 3, 0.25, 0.75}, {{below(3), 0.0}, {3, 0.75}, {4, 0.5}, {5, 0.25}}},
    {"x0 = x1 = xc: rising", {3, 3, 3, 0.25, 0.75}, {{below(3), 0.25}, {3, 0.75}, {above(3), 0.0}}},
    {"xc without end", {2, 4, infinity, 0.25, 0.75}, {{1, 0.25}, {3, 0.5}, {4, 0.75}, {1e300, 0.75}, {infinity, 0.75}}},
    {"xc without end, falling",
     {8, 4, -infinity, 0.25, 0.75},
     {{-infinity, 0.75}, {-1e300, 0.75}, {4, 0.75}, {6, 0.5}, {8, 0.25}}},
    {"x0 without end: the line has no value",
     {-infinity, 4, 7, 0.25, 0.75},
     {{-infinity, 0.25}, {3, NaN}, {4, 0.75}, {7, 0.75}, {8, 0.0}}},
    {"x1 without end: the line has no value",
     {2, infinity, infinity, 0.25, 0.75},
     {{2, 0.25}, {3, NaN}, {infinity, 0.75}}},
    {"a flat one", {2, 4, 7, 0.5, 0.5}, {{1, 0.5}, {3, 0.5}, {7, 0.5}, {8, 0.0}}},
};

TEST(FeatureScoreOneSided, ScoresAtAndAroundEveryBreakpoint)
{
    for (const ScoreRow& row : oneSidedRows) {
        expectScores(oneSidedOf(row.values), row);
    }
}

/// The function for x0 <= x1 <= xc, put together in another way.
double risingScore(double x0, double x1, double xc, double y0, double y1, double x)
{
    if (x > xc) {
        return 0.0;
    }
    const double way = x < x1 ? std::clamp((x - x0) / (x1 - x0), 0.0, 1.0) : 1.0;
    return y0 + way * (y1 - y0);
}

TEST(FeatureScoreOneSided, ScoresLikeAPlainRampAndItsMirrorImage)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<int> anyX(-6, 6);
    std::uniform_int_distribution<int> anyY(0, 4);
    for (int round = 0; round < 2000; ++round) {
        std::vector<double> x = {1.0 * anyX(random), 1.0 * anyX(random), 1.0 * anyX(random)};
        std::sort(x.begin(), x.end());
        const double y0 = anyY(random) / 4.0;
        const double y1 = anyY(random) / 4.0;
        const OneSided rising = oneSided(x[0], x[1], x[2], y0, y1);
        const OneSided falling = oneSided(-x[0], -x[1], -x[2], y0, y1);
        const bool oneBreakpoint = x[0] == x[2];
        for (double at = -7.0; at <= 7.0; at += 0.25) {
            SCOPED_TRACE(::testing::Message() << ::testing::PrintToString(valuesOf(rising)) << " at " << at);
            const double expected = risingScore(x[0], x[1], x[2], y0, y1, at);
            EXPECT_NEAR(rising.score(at), expected, 1e-15);
            // With a single breakpoint there is no way to tell, and it counts as rising.
            EXPECT_NEAR((oneBreakpoint ? rising : falling).score(oneBreakpoint ? at : -at), expected, 1e-15);
        }
    }
}

TEST(FeatureScoreOneSided, InitChecksY0ThenY1ThenTheOrderAndChangesNothingWhenItRefuses)
{
    const InitRow rows[] = {
        {"y0", {0, 1, 2, 1.5, 0.5}, badY0},
        {"y0 before y1", {0, 1, 2, -0.5, 1.5}, badY0},
        {"y0 before the order", {0, 5, 2, 1.5, 0.5}, badY0},
        {"y1", {0, 1, 2, 0.5, -0.5}, badY1},
        {"y1 before the order", {0, 5, 2, 0.5, 1.5}, badY1},
        {"x1 past both", {0, 5, 2, 0.5, 0.5}, badOrderInInit},
        {"x1 before both", {0, -5, 2, 0.5, 0.5}, badOrderInInit},
    };
    for (const InitRow& row : rows) {
        SCOPED_TRACE(row.label);
        OneSided score = oneSided(2, 4, 7, 0.25, 0.75);
        expectBadParams(row.message,
                        [&] { score.init(row.values[0], row.values[1], row.values[2], row.values[3], row.values[4]); });
        EXPECT_EQ(valuesOf(score), (std::vector<double>{2, 4, 7, 0.25, 0.75}));
    }
}

TEST(FeatureScoreOneSided, InitTakesExactlyTheScoresFromZeroToOne)
{
    for (const double y : notUnit) {
        OneSided score;
        expectBadParams(badY0, [&] { score.init(0, 1, 2, y, 0.5); });
        expectBadParams(badY1, [&] { score.init(0, 1, 2, 0.5, y); });
        EXPECT_EQ(valuesOf(score), valuesOf(OneSided()));
    }
    for (const double y : {0.0, -0.0, tiny, 0.5, below(1.0), 1.0}) {
        EXPECT_EQ(valuesOf(oneSided(0, 1, 2, y, y)), (std::vector<double>{0, 1, 2, y, y}));
    }
}

TEST(FeatureScoreOneSided, KeptOnPurposeInitSaysBeLieAndScoreSaysLie)
{
    OneSided score;
    expectBadParams("x1 must be lie between x0 and xc", [&] { score.init(0, 3, 2, 0, 1); });
    score.x1(3);
    expectBadParams("x1 must lie between x0 and xc", [&] { score.score(0); });
}

TEST(FeatureScoreOneSided, X1LiesBetweenX0AndXcOnEitherSide)
{
    const double values[] = {-infinity, -1, 0, 1, infinity};
    for (const double x0 : values) {
        for (const double x1 : values) {
            for (const double xc : values) {
                SCOPED_TRACE(::testing::Message() << x0 << ", " << x1 << ", " << xc);
                OneSided made;
                OneSided set;
                set.x0(x0);
                set.x1(x1);
                set.xc(xc);
                if (std::min(x0, xc) <= x1 && x1 <= std::max(x0, xc)) {
                    made.init(x0, x1, xc, 1.0, 0.0);
                    EXPECT_EQ(valuesOf(made), valuesOf(set));
                    EXPECT_NO_THROW(set.score(0.5));
                } else {
                    expectBadParams(badOrderInInit, [&] { made.init(x0, x1, xc, 1.0, 0.0); });
                    expectBadParams(badOrderInScore, [&] { set.score(0.5); });
                    EXPECT_EQ(valuesOf(made), valuesOf(OneSided()));
                }
            }
        }
    }
}

TEST(FeatureScoreOneSided, BadOrderIsRefusedWhateverIsScored)
{
    OneSided score;
    score.x1(-3);
    for (const double x : {-infinity, -3.0, 0.0, 0.5, 2.0, infinity, NaN}) {
        expectBadParams(badOrderInScore, [&] { score.score(x); });
    }
    score.x1(0.5);
    EXPECT_EQ(score.score(0.25), 0.5) << "right again";
}

TEST(FeatureScoreOneSided, NanStaysNanAlsoOnARampOfNoLength)
{
    for (const std::vector<double>& values :
         {std::vector<double>{0, 1, 2, 0.25, 0.75}, {1, 1, 2, 0.25, 0.75}, {1, 1, 1, 0, 1}}) {
        EXPECT_TRUE(std::isnan(oneSidedOf(values).score(NaN))) << values[0];
    }
}

TEST(FeatureScoreOneSided, NanBreakpointPassesTheConditionAsItIsWritten)
{
    for (std::size_t i = 0; i < 3; ++i) {
        std::vector<double> values = {0, 1, 2, 0.25, 0.75};
        values[i] = NaN;
        const OneSided score = oneSidedOf(values);
        EXPECT_TRUE(std::isnan(valuesOf(score)[i]));
        EXPECT_NO_THROW(score.score(0.5));
    }
}

TEST(FeatureScoreOneSided, SettersOfXTakeAnything)
{
    for (const double x : {-1e300, 0.0, 5.0, infinity, -infinity}) {
        OneSided score;
        score.x0(x);
        EXPECT_EQ(valuesOf(score), (std::vector<double>{x, 1, 1, 1, 0}));
        score.x1(x);
        EXPECT_EQ(valuesOf(score), (std::vector<double>{x, x, 1, 1, 0}));
        score.xc(x);
        EXPECT_EQ(valuesOf(score), (std::vector<double>{x, x, x, 1, 0}));
    }
}

TEST(FeatureScoreOneSided, SettersOfYTakeExactlyTheScoresFromZeroToOne)
{
    OneSided score;
    for (const double y : {0.0, tiny, 0.5, 1.0}) {
        score.y0(y);
        score.y1(1.0 - y);
        EXPECT_EQ(valuesOf(score), (std::vector<double>{0, 1, 1, y, 1.0 - y}));
    }
    for (const double y : notUnit) {
        expectBadParams(badY0, [&] { score.y0(y); });
        expectBadParams(badY1, [&] { score.y1(y); });
        EXPECT_EQ(valuesOf(score), (std::vector<double>{0, 1, 1, 1, 0}));
    }
}

}  // namespace

}  // namespace kt_test
