#include "scores.h"
#include "support/allocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <type_traits>
#include <typeinfo>

namespace {

using kt_test::expectBadParams;
using kt_test::infinity;
using kt_test::nan;
using kt_test::oneSided;
using kt_test::tiny;
using Ignore = ktClassifierFeatureScoreIgnore;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;

constexpr const char* badY0 = "y0 must be between 0 and 1";
constexpr const char* badY1 = "y1 must be between 0 and 1";
constexpr const char* badY0h = "y0h must be between 0 and 1";
constexpr const char* badY1h = "y1h must be between 0 and 1";
constexpr const char* badOrderInInit = "x1 must be lie between x0 and xc";
constexpr const char* badOrderInScore = "x1 must lie between x0 and xc";
constexpr const char* badSplitInInit = "x0 > lowest || x1 > lowest || xc > lowest";
constexpr const char* badSplitInScore = "Bad x values";

double below(double x)
{
    return std::nextafter(x, -infinity);
}

double above(double x)
{
    return std::nextafter(x, infinity);
}

/// Values outside [0, 1], two of them by as little as a double can be.
const std::vector<double> notUnit = {-1.0, -tiny, above(1.0), 1.5, infinity, -infinity, nan};

struct Point {
    double x;
    double score;
};

struct ScoreRow {
    const char* label;
    std::vector<double> values;
    std::vector<Point> points;
};

/// Bit by bit, but any NaN is as good as another.
void expectSameNumber(double actual, double expected)
{
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual)) << actual;
    } else {
        EXPECT_EQ(actual, expected);
    }
}

void expectScores(const ktClsFtSc& function, const ScoreRow& row)
{
    for (const Point& point : row.points) {
        SCOPED_TRACE(::testing::Message() << row.label << ", x = " << ::testing::PrintToString(point.x));
        expectSameNumber(function.score(point.x), point.score);
    }
}

std::vector<double> valuesOf(const OneSided& score)
{
    return {score.x0(), score.x1(), score.xc(), score.y0(), score.y1()};
}

std::vector<double> valuesOf(const TwoSided& score)
{
    return {score.x0(),  score.x1(), score.xc(), score.x0h(), score.x1h(),
            score.xch(), score.y0(), score.y1(), score.y0h(), score.y1h()};
}

OneSided oneSidedOf(const std::vector<double>& v)
{
    return oneSided(v.at(0), v.at(1), v.at(2), v.at(3), v.at(4));
}

/// The order of `TwoSided::init`.
void initTwoSided(TwoSided& score, const std::vector<double>& v)
{
    score.init(v.at(0), v.at(1), v.at(2), v.at(3), v.at(4), v.at(5), v.at(6), v.at(7), v.at(8), v.at(9));
}

/// A trapezoid of no symmetry at all: 0.1 up to 1, up to 0.9 at 2, which it keeps to 4; 0.8 from there to 5, down to 0.2
/// at 7.
const std::vector<double> trapezoid = {1.0, 2.0, 4.0, 7.0, 5.0, 4.0, 0.1, 0.9, 0.2, 0.8};

TwoSided twoSidedOf(const std::vector<double>& v)
{
    TwoSided score;
    initTwoSided(score, v);
    return score;
}

TEST(FeatureScore, IsACountedObjectThatArchivesDoNotKnowByPointer)
{
    EXPECT_TRUE((std::is_base_of_v<ktRepBase, ktClsFtSc>));
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, ktClsFtSc>));
    EXPECT_TRUE(std::is_abstract_v<ktClsFtSc>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ktClsFtSc>);
    EXPECT_EQ(OneSided().refCount(), 0);
    const ktPtrHandle<ktClsFtSc> held(new OneSided);
    EXPECT_EQ(OneSided(static_cast<const OneSided&>(*held)).refCount(), 0) << "a copy";
}

TEST(FeatureScore, OfAnOwnClassIsEqualToThoseOfItsExactClass)
{
    class Half : public ktClsFtSc {
    public:
        double score(double) const override { return 0.5; }
        Half* clone() const override { return new Half(*this); }
    };
    class Derived : public Half {};
    const ktClsFtSc& half = Half();
    EXPECT_TRUE(half == Half());
    EXPECT_FALSE(half != Half());
    EXPECT_FALSE(half == Derived());
    EXPECT_FALSE(Derived() == half);
    EXPECT_FALSE(half == ktClassifierFeatureScoreIgnore());
}

TEST(FeatureScoreIgnore, GivesTheMarkerForEveryValue)
{
    const Ignore ignore;
    for (const double x : {0.0, -1.0, 1e300, -1e300, infinity, -infinity, nan}) {
        EXPECT_EQ(ignore.score(x), -1.0) << x;
    }
}

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
      {nan, nan}}},
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
      {nan, nan}}},
    {"falling to the left of an upright end",
     {10, 5, 0, 0.0, 1.0},
     {{-1, 0.0}, {below(0), 0.0}, {0, 1.0}, {5, 1.0}, {7.5, 0.5}, {10, 0.0}, {20, 0.0}}},
    {"x0 = x1 < xc: x1 wins",
     {3, 3, 5, 0.25, 0.75},
     {{below(3), 0.25}, {3, 0.75}, {5, 0.75}, {above(5), 0.0}, {nan, nan}}},
    {"x0 = x1 > xc: x1 wins",
     {5, 5, 3, 0.25, 0.75},
     {{below(3), 0.0}, {3, 0.75}, {5, 0.75}, {above(5), 0.25}, {nan, nan}}},
    {"x0 < x1 = xc", {3, 5, 5, 0.25, 0.75}, {{3, 0.25}, {4, 0.5}, {5, 0.75}, {above(5), 0.0}}},
    {"x0 > x1 = xc", {5, 3, 3, 0.25, 0.75}, {{below(3), 0.0}, {3, 0.75}, {4, 0.5}, {5, 0.25}}},
    {"x0 = x1 = xc: rising", {3, 3, 3, 0.25, 0.75}, {{below(3), 0.25}, {3, 0.75}, {above(3), 0.0}}},
    {"xc without end", {2, 4, infinity, 0.25, 0.75}, {{1, 0.25}, {3, 0.5}, {4, 0.75}, {1e300, 0.75}, {infinity, 0.75}}},
    {"xc without end, falling",
     {8, 4, -infinity, 0.25, 0.75},
     {{-infinity, 0.75}, {-1e300, 0.75}, {4, 0.75}, {6, 0.5}, {8, 0.25}}},
    {"x0 without end: the line has no value",
     {-infinity, 4, 7, 0.25, 0.75},
     {{-infinity, 0.25}, {3, nan}, {4, 0.75}, {7, 0.75}, {8, 0.0}}},
    {"x1 without end: the line has no value",
     {2, infinity, infinity, 0.25, 0.75},
     {{2, 0.25}, {3, nan}, {infinity, 0.75}}},
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

struct InitRow {
    const char* label;
    std::vector<double> values;
    const char* message;
};

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
    for (const double x : {-infinity, -3.0, 0.0, 0.5, 2.0, infinity, nan}) {
        expectBadParams(badOrderInScore, [&] { score.score(x); });
    }
    score.x1(0.5);
    EXPECT_EQ(score.score(0.25), 0.5) << "right again";
}

TEST(FeatureScoreOneSided, NanStaysNanAlsoOnARampOfNoLength)
{
    for (const std::vector<double>& values :
         {std::vector<double>{0, 1, 2, 0.25, 0.75}, {1, 1, 2, 0.25, 0.75}, {1, 1, 1, 0, 1}}) {
        EXPECT_TRUE(std::isnan(oneSidedOf(values).score(nan))) << values[0];
    }
}

TEST(FeatureScoreOneSided, NanBreakpointPassesTheConditionAsItIsWritten)
{
    for (std::size_t i = 0; i < 3; ++i) {
        std::vector<double> values = {0, 1, 2, 0.25, 0.75};
        values[i] = nan;
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

TEST(FeatureScoreTwoSided, NewOneIsATriangle)
{
    EXPECT_EQ(valuesOf(TwoSided()), (std::vector<double>{0, -1, -1, 0, 1, 1, 1, 0, 1, 0}));
    expectScores(TwoSided(), {"new",
                              {},
                              {{-infinity, 0.0},
                               {-1.5, 0.0},
                               {-1.0, 0.0},
                               {-0.5, 0.5},
                               {-0.0, 1.0},
                               {0.0, 1.0},
                               {0.5, 0.5},
                               {1.0, 0.0},
                               {1.5, 0.0},
                               {infinity, 0.0},
                               {nan, nan}}});
}

const ScoreRow twoSidedRows[] = {
    {"a trapezoid",
     {0, 2, 4, 8, 6, 4, 0, 1, 0, 1},
     {{-infinity, 0.0},
      {0, 0.0},
      {1, 0.5},
      {2, 1.0},
      {below(4), 1.0},
      {4, 1.0},
      {6, 1.0},
      {7, 0.5},
      {8, 0.0},
      {infinity, 0.0},
      {nan, nan}}},
    {"halves that do not meet: the high one has the split point",
     {0, 2, 4, 8, 6, 4, 0, 0.25, 0, 0.75},
     {{3, 0.25}, {below(4), 0.25}, {4, 0.75}, {5, 0.75}}},
    {"a gap: the low half is over there",
     {0, 2, 3, 9, 8, 6, 0, 1, 0, 1},
     {{3, 1.0}, {above(3), 0.0}, {below(6), 0.0}, {6, 1.0}}},
    {"low half falling",
     {3, 2, 1, 4, 4, 5, 0.5, 1, 0.25, 0.75},
     {{below(1), 0.0}, {1, 1.0}, {2.5, 0.75}, {3.5, 0.5}, {4, 0.75}}},
    {"high half rising",
     {0, 0, 1, 2, 4, 6, 0, 1, 0, 1},
     {{0.5, 1.0}, {1.5, 0.0}, {2, 0.0}, {3, 0.5}, {6, 1.0}, {7, 0.0}}},
    {"x1h is the split point", {0, 1, 2, 6, 4, 4, 0, 1, 0, 0.5}, {{3, 0.0}, {below(4), 0.0}, {4, 0.5}, {5, 0.25}}},
    {"all at one point", {3, 3, 3, 3, 3, 3, 0.25, 0.5, 0.75, 1}, {{below(3), 0.25}, {3, 1.0}, {above(3), 0.0}}},
    {"split at minus infinity: no low half",
     {-infinity, -infinity, -infinity, 4, 2, -infinity, 0.1, 0.2, 0, 1},
     {{-infinity, 1.0}, {-1e300, 1.0}, {3, 0.5}}},
    {"split at infinity: hardly a high half",
     {0, 2, 4, infinity, infinity, infinity, 0, 1, 0.25, 0.5},
     {{1, 0.5}, {4, 1.0}, {1e300, 0.0}, {infinity, 0.5}}},
};

TEST(FeatureScoreTwoSided, ScoresAtAndAroundEveryBreakpoint)
{
    for (const ScoreRow& row : twoSidedRows) {
        expectScores(twoSidedOf(row.values), row);
    }
}

TEST(FeatureScoreTwoSided, ScoresLikeTheHalfOnWhoseSideTheValueIs)
{
    std::mt19937 random(8);
    std::uniform_int_distribution<int> anyX(-6, 6);
    std::uniform_int_distribution<int> turn(0, 1);
    for (int round = 0; round < 1000; ++round) {
        std::vector<double> x(6);
        std::generate(x.begin(), x.end(), [&] { return 1.0 * anyX(random); });
        std::sort(x.begin(), x.end());
        if (turn(random) == 1) {
            std::swap(x[0], x[2]);
        }
        if (turn(random) == 1) {
            std::swap(x[3], x[5]);
        }
        const TwoSided score = twoSidedOf({x[0], x[1], x[2], x[3], x[4], x[5], 0.25, 0.75, 0.125, 1.0});
        const OneSided low = oneSided(x[0], x[1], x[2], 0.25, 0.75);
        const OneSided high = oneSided(x[3], x[4], x[5], 0.125, 1.0);
        EXPECT_EQ(valuesOf(score.Low()), valuesOf(low));
        EXPECT_EQ(valuesOf(score.High()), valuesOf(high));
        for (double at = -7.0; at <= 7.0; at += 0.25) {
            SCOPED_TRACE(::testing::Message() << ::testing::PrintToString(x) << " at " << at);
            EXPECT_EQ(score.score(at), (at < std::min(x[3], x[5]) ? low : high).score(at));
        }
    }
}

TEST(FeatureScoreTwoSided, InitChecksTheSplitThenTheLowThenTheHighHalfAndChangesNothingWhenItRefuses)
{
    const InitRow rows[] = {
        {"x0 past the split", {5, 2, 1, 4, 6, 8, 0, 1, 0, 1}, badSplitInInit},
        {"x1 past the split", {1, 5, 6, 4, 6, 8, 0, 1, 0, 1}, badSplitInInit},
        {"xc past the split", {1, 2, 5, 4, 6, 8, 0, 1, 0, 1}, badSplitInInit},
        {"the split is x1h", {1, 2, 5, 6, 4, 4, 0, 1, 0, 1}, badSplitInInit},
        {"the split is xch", {1, 2, 5, 8, 6, 4, 0, 1, 0, 1}, badSplitInInit},
        {"the split before every y", {1, 2, 5, 8, 6, 4, 2, 2, 2, 2}, badSplitInInit},
        {"the split before the order", {1, 5, 2, 4, 9, 8, 0, 1, 0, 1}, badSplitInInit},
        {"y0", {1, 2, 4, 7, 5, 4, 1.5, 1, 0, 1}, badY0},
        {"y0 before y1", {1, 2, 4, 7, 5, 4, 1.5, 1.5, 0, 1}, badY0},
        {"y1", {1, 2, 4, 7, 5, 4, 0, 1.5, 0, 1}, badY1},
        {"y1 before the low order", {1, 0, 4, 7, 5, 4, 0, 1.5, 0, 1}, badY1},
        {"low order", {1, 0, 4, 7, 5, 4, 0, 1, 0, 1}, badOrderInInit},
        {"low order before the high y", {1, 0, 4, 7, 5, 4, 0, 1, 1.5, 1}, badOrderInInit},
        {"y0h, by the name of the half's own", {1, 2, 4, 7, 5, 4, 0, 1, 1.5, 1}, badY0},
        {"y1h, by the name of the half's own", {1, 2, 4, 7, 5, 4, 0, 1, 0, -tiny}, badY1},
        {"high y before the high order", {1, 2, 4, 7, 8, 4, 0, 1, 0, nan}, badY1},
        {"high order", {1, 2, 4, 7, 8, 4, 0, 1, 0, 1}, badOrderInInit},
    };
    for (const InitRow& row : rows) {
        SCOPED_TRACE(row.label);
        TwoSided score = twoSidedOf(trapezoid);
        expectBadParams(row.message, [&] { initTwoSided(score, row.values); });
        EXPECT_EQ(valuesOf(score), trapezoid);
    }
}

TEST(FeatureScoreTwoSided, InitTakesTheSixXFirstAndThenTheFourY)
{
    const TwoSided score = twoSidedOf(trapezoid);
    EXPECT_EQ(valuesOf(score), trapezoid);
    EXPECT_EQ(valuesOf(score.Low()), (std::vector<double>{1, 2, 4, 0.1, 0.9}));
    EXPECT_EQ(valuesOf(score.High()), (std::vector<double>{7, 5, 4, 0.2, 0.8}));
}

TEST(FeatureScoreTwoSided, ScoreChecksTheLowOrderThenTheHighOrderThenTheSplit)
{
    struct Row {
        const char* label;
        std::function<void(TwoSided&)> change;
        const char* message;
    };
    const Row rows[] = {
        {"low order", [](TwoSided& s) { s.x1(0); }, badOrderInScore},
        {"low order before the split", [](TwoSided& s) { s.x1(4.5); }, badOrderInScore},
        {"high order", [](TwoSided& s) { s.x1h(8); }, badOrderInScore},
        {"high order before the split", [](TwoSided& s) { s.x1h(3); }, badOrderInScore},
        {"x0 past the split",
         [](TwoSided& s) {
             s.x0(5);
             s.x1(4.5);
         },
         badSplitInScore},
        {"x1 past the split",
         [](TwoSided& s) {
             s.x1(4.5);
             s.xc(4.5);
         },
         badSplitInScore},
        {"xc past the split", [](TwoSided& s) { s.xc(above(4)); }, badSplitInScore},
        {"x0h becomes the split",
         [](TwoSided& s) {
             s.x0h(3);
             s.x1h(3.5);
         },
         badSplitInScore},
        {"xch moves the split", [](TwoSided& s) { s.xch(below(4)); }, badSplitInScore},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        TwoSided score = twoSidedOf(trapezoid);
        row.change(score);
        const std::vector<double> changed = valuesOf(score);
        for (const double x : {-infinity, 0.0, 4.0, 100.0, nan}) {
            expectBadParams(row.message, [&] { score.score(x); });
        }
        EXPECT_EQ(valuesOf(score), changed);
    }
}

TEST(FeatureScoreTwoSided, KeptOnPurposeBadSplitHasAnotherTextInScoreThanInInit)
{
    TwoSided score;
    expectBadParams("x0 > lowest || x1 > lowest || xc > lowest", [&] { score.init(1, -1, -1, 0, 1, 1, 1, 0, 1, 0); });
    score.x0(1);
    expectBadParams("Bad x values", [&] { score.score(0); });
}

TEST(FeatureScoreTwoSided, SettersOfXTakeAnythingAndChangeOneValue)
{
    void (TwoSided::*const setters[])(double) = {&TwoSided::x0,  &TwoSided::x1,  &TwoSided::xc,
                                                 &TwoSided::x0h, &TwoSided::x1h, &TwoSided::xch};
    for (std::size_t i = 0; i < std::size(setters); ++i) {
        for (const double x : {-100.0, 100.0, infinity, -infinity}) {
            TwoSided score = twoSidedOf(trapezoid);
            (score.*setters[i])(x);
            std::vector<double> expected = trapezoid;
            expected[i] = x;
            EXPECT_EQ(valuesOf(score), expected) << i;
        }
    }
}

TEST(FeatureScoreTwoSided, SettersOfYTakeExactlyTheScoresFromZeroToOne)
{
    struct Row {
        void (TwoSided::*set)(double);
        const char* message;
    };
    const Row rows[] = {
        {&TwoSided::y0, badY0}, {&TwoSided::y1, badY1}, {&TwoSided::y0h, badY0h}, {&TwoSided::y1h, badY1h}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].message);
        std::vector<double> expected = trapezoid;
        TwoSided score = twoSidedOf(trapezoid);
        for (const double y : {0.0, tiny, 0.5, 1.0}) {
            (score.*rows[i].set)(y);
            expected[6 + i] = y;
            EXPECT_EQ(valuesOf(score), expected);
        }
        for (const double y : notUnit) {
            expectBadParams(rows[i].message, [&] { (score.*rows[i].set)(y); });
            EXPECT_EQ(valuesOf(score), expected);
        }
    }
}

TEST(FeatureScoreTwoSided, HalvesFollowTheSetters)
{
    TwoSided score;
    const OneSided& low = score.Low();
    const OneSided& high = score.High();
    initTwoSided(score, trapezoid);
    EXPECT_EQ(low.y1(), 0.9);
    EXPECT_EQ(high.y1(), 0.8);
    score.x0(-3);
    score.y1h(0.5);
    EXPECT_EQ(low.x0(), -3);
    EXPECT_EQ(high.y1(), 0.5);
}

/// One object of each class, and one that differs from it in a value if there is any.
struct Pair {
    const char* label;
    ktPtrHandle<ktClsFtSc> object;
    std::vector<ktPtrHandle<ktClsFtSc>> others;
};

/// The object and all that differ from it in one value.
template <class Score>
Pair pairOf(const char* label, const Score& score, const std::vector<void (Score::*)(double)>& setters)
{
    Pair pair{label, new Score(score), {}};
    for (const auto setter : setters) {
        auto* other = new Score(score);
        (other->*setter)(0.625);
        pair.others.push_back(other);
    }
    return pair;
}

std::vector<Pair> pairs()
{
    return {pairOf<Ignore>("ignore", {}, {}),
            pairOf<OneSided>("one-sided", oneSided(2, 4, 7, 0.25, 0.75),
                             {&OneSided::x0, &OneSided::x1, &OneSided::xc, &OneSided::y0, &OneSided::y1}),
            pairOf<TwoSided>("two-sided", twoSidedOf(trapezoid),
                             {&TwoSided::x0, &TwoSided::x1, &TwoSided::xc, &TwoSided::y0, &TwoSided::y1, &TwoSided::x0h,
                              &TwoSided::x1h, &TwoSided::xch, &TwoSided::y0h, &TwoSided::y1h})};
}

TEST(FeatureScore, EqualityComparesTheClassAndEachValue)
{
    const std::vector<Pair> all = pairs();
    for (const Pair& a : all) {
        SCOPED_TRACE(a.label);
        for (const Pair& b : all) {
            EXPECT_EQ(*a.object == *b.object, &a == &b) << b.label;
            EXPECT_EQ(*a.object != *b.object, &a != &b) << b.label;
        }
        for (const ktPtrHandle<ktClsFtSc>& other : a.others) {
            EXPECT_FALSE(*a.object == *other);
            EXPECT_FALSE(*other == *a.object);
        }
    }
}

TEST(FeatureScore, ClassDerivedFromAConcreteOneIsAnotherClass)
{
    EXPECT_FALSE(OneSided() == kt_test::DerivedOneSided());
    EXPECT_FALSE(kt_test::DerivedOneSided() == OneSided());
    EXPECT_TRUE(kt_test::DerivedOneSided() == kt_test::DerivedOneSided());
    EXPECT_FALSE(TwoSided() == kt_test::DerivedTwoSided());
    EXPECT_FALSE(kt_test::DerivedTwoSided() == TwoSided());
    EXPECT_FALSE(Ignore() == kt_test::DerivedIgnore());
    EXPECT_FALSE(kt_test::DerivedIgnore() == Ignore());
    EXPECT_TRUE(Ignore() != kt_test::Constant(-1.0));
}

TEST(FeatureScore, NanEqualsNan)
{
    OneSided a;
    a.x0(nan);
    EXPECT_TRUE(a == OneSided(a));
    TwoSided b;
    b.xch(nan);
    EXPECT_TRUE(b == TwoSided(b));
    b.x0(1);
    EXPECT_FALSE(b == TwoSided()) << "the other values still count";
}

TEST(FeatureScore, EqualMeansNeitherLessNorGreaterSoNanEqualsEveryNumber)
{
    OneSided a;
    a.x1(nan);
    EXPECT_TRUE(a == OneSided());
    EXPECT_TRUE(OneSided() == a);
    OneSided zero;
    zero.x0(-0.0);
    EXPECT_TRUE(zero == OneSided());
}

TEST(FeatureScore, CloneIsANewObjectOfTheSameClassWithTheSameValues)
{
    for (const Pair& pair : pairs()) {
        SCOPED_TRACE(pair.label);
        const ktClsFtSc& original = *pair.object;
        ktClsFtSc* const clone = original.clone();
        EXPECT_NE(clone, pair.object.get());
        EXPECT_EQ(clone->refCount(), 0);
        const ktPtrHandle<ktClsFtSc> owner(clone);
        EXPECT_EQ(typeid(*clone), typeid(original));
        EXPECT_TRUE(*clone == original);
    }
}

TEST(FeatureScore, DerivedClassClonesAsTheBaseSays)
{
    struct Derived : OneSided {
        ktClsFtSc* clone() const override { return new Derived(*this); }
    };
    const ktPtrHandle<ktClsFtSc> clone(Derived().clone());
    const ktClsFtSc& cloned = *clone;
    EXPECT_EQ(typeid(cloned), typeid(Derived));
}

TEST(FeatureScore, CloneCopyAndAssignedObjectAreIndependent)
{
    TwoSided original = twoSidedOf(trapezoid);
    const ktPtrHandle<TwoSided> clone(static_cast<TwoSided*>(original.clone()));
    const TwoSided copy(original);
    TwoSided assigned;
    EXPECT_EQ(&(assigned = original), &assigned);
    OneSided half = original.High();
    original.init(0, -1, -1, 0, 1, 1, 1, 0, 1, 0);
    EXPECT_EQ(valuesOf(*clone), trapezoid);
    EXPECT_EQ(valuesOf(copy), trapezoid);
    EXPECT_EQ(valuesOf(assigned), trapezoid);
    EXPECT_EQ(valuesOf(half), (std::vector<double>{7, 5, 4, 0.2, 0.8}));
    half.x0(9);
    const OneSided halfCopy(half);
    half = OneSided();
    EXPECT_EQ(valuesOf(halfCopy), (std::vector<double>{9, 5, 4, 0.2, 0.8}));
    EXPECT_EQ(valuesOf(half), valuesOf(OneSided()));
}

TEST(FeatureScore, AssignmentLeavesTheCountsAlone)
{
    const ktPtrHandle<OneSided> held(new OneSided(oneSided(2, 4, 7, 0.25, 0.75)));
    const ktPtrHandle<OneSided> second = held;
    OneSided other;
    other = *held;
    EXPECT_EQ(other.refCount(), 0);
    *held = OneSided();
    EXPECT_EQ(held->refCount(), 2);
    EXPECT_TRUE(*second == OneSided()) << "shared";
    const ktPtrHandle<Ignore> ignoring(new Ignore);
    *ignoring = Ignore();
    EXPECT_EQ(ignoring->refCount(), 1);
}

TEST(FeatureScore, LastHandleFreesIt)
{
    const kt_test::MemoryWatch watch;
    {
        ktPtrHandle<ktClsFtSc> handle(new TwoSided);
        ktPtrHandle<ktClsFtSc> second = handle;
        handle = new Ignore;
        EXPECT_EQ(second->refCount(), 1);
        second = nullptr;
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

}  // namespace
