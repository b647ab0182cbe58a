#include "ramps.h"

namespace kt_test {

namespace {

using namespace kt_test;

using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;

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
                               {NaN, NaN}}});
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
      {NaN, NaN}}},
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
        {"high y before the high order", {1, 2, 4, 7, 8, 4, 0, 1, 0, NaN}, badY1},
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
        for (const double x : {-infinity, 0.0, 4.0, 100.0, NaN}) {
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

}  // namespace

}  // namespace kt_test
