#pragma once

#include "scores.h"

#include "support/test.h"

// What the tests of one-sided and two-sided scoring functions share.

namespace kt_test {

inline constexpr const char* badY0 = "y0 must be between 0 and 1";
inline constexpr const char* badY1 = "y1 must be between 0 and 1";
inline constexpr const char* badY0h = "y0h must be between 0 and 1";
inline constexpr const char* badY1h = "y1h must be between 0 and 1";
inline constexpr const char* badOrderInInit = "x1 must be lie between x0 and xc";
inline constexpr const char* badOrderInScore = "x1 must lie between x0 and xc";
inline constexpr const char* badSplitInInit = "x0 > lowest || x1 > lowest || xc > lowest";
inline constexpr const char* badSplitInScore = "Bad x values";

inline double below(double x)
{
    return std::nextafter(x, -infinity);
}

inline double above(double x)
{
    return std::nextafter(x, infinity);
}

/// Values outside [0, 1], two of them by as little as a double can be.
inline const std::vector<double> notUnit = {-1.0, -tiny, above(1.0), 1.5, infinity, -infinity, NaN};

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
inline void expectSameNumber(double actual, double expected)
{
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual)) << actual;
    } else {
        EXPECT_EQ(actual, expected);
    }
}

inline void expectScores(const ktClsFtSc& function, const ScoreRow& row)
{
    for (const Point& point : row.points) {
        SCOPED_TRACE(::testing::Message() << row.label << ", x = " << ::testing::PrintToString(point.x));
        expectSameNumber(function.score(point.x), point.score);
    }
}

inline std::vector<double> valuesOf(const ktClassifierFeatureScoreOneSided& score)
{
    return {score.x0(), score.x1(), score.xc(), score.y0(), score.y1()};
}

inline std::vector<double> valuesOf(const ktClassifierFeatureScoreTwoSided& score)
{
    return {score.x0(),  score.x1(), score.xc(), score.x0h(), score.x1h(),
            score.xch(), score.y0(), score.y1(), score.y0h(), score.y1h()};
}

inline ktClassifierFeatureScoreOneSided oneSidedOf(const std::vector<double>& v)
{
    return oneSided(v.at(0), v.at(1), v.at(2), v.at(3), v.at(4));
}

/// The order of `TwoSided::init`.
inline void initTwoSided(ktClassifierFeatureScoreTwoSided& score, const std::vector<double>& v)
{
    score.init(v.at(0), v.at(1), v.at(2), v.at(3), v.at(4), v.at(5), v.at(6), v.at(7), v.at(8), v.at(9));
}

/// A trapezoid of no symmetry at all: 0.1 up to 1, up to 0.9 at 2, which it keeps to 4; 0.8 from there to 5, down to 0.2
/// at 7.
inline const std::vector<double> trapezoid = {1.0, 2.0, 4.0, 7.0, 5.0, 4.0, 0.1, 0.9, 0.2, 0.8};

inline ktClassifierFeatureScoreTwoSided twoSidedOf(const std::vector<double>& v)
{
    ktClassifierFeatureScoreTwoSided score;
    initTwoSided(score, v);
    return score;
}

struct InitRow {
    const char* label;
    std::vector<double> values;
    const char* message;
};

}  // namespace kt_test
