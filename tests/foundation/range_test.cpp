#include "support/test.h"

namespace {

using namespace kt_test;

TEST(Range, BothEndsAndWhatLiesBetweenBelongToIt)
{
    const ktRange range(-1.0, 2.0);
    struct {
        const char* label;
        double value;
        bool within;
    } const rows[] = {{"low end", -1.0, true},
                      {"below it", std::nextafter(-1.0, -2.0), false},
                      {"between", 0.5, true},
                      {"high end", 2.0, true},
                      {"above it", std::nextafter(2.0, 3.0), false},
                      {"infinity", infinity, false},
                      {"minus infinity", -infinity, false},
                      {"NaN", NaN, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(range.isWithin(row.value), row.within) << row.label;
    }
}

TEST(Range, FullRangeHoldsEverythingButNaN)
{
    const ktRange full = ktRange::FullRange();
    EXPECT_EQ(full.low(), -infinity);
    EXPECT_EQ(full.high(), infinity);
    for (const double value :
         {-infinity, std::numeric_limits<double>::lowest(), 0.0, std::numeric_limits<double>::max(), infinity}) {
        EXPECT_TRUE(full.isWithin(value)) << value;
    }
    EXPECT_FALSE(full.isWithin(NaN));
}

TEST(Range, OneNumberIsARange)
{
    const ktRange point(3.0, 3.0);
    EXPECT_TRUE(point.isWithin(3.0));
    EXPECT_FALSE(point.isWithin(std::nextafter(3.0, 4.0)));
}

TEST(Range, EndsInTheWrongOrderOrNaNHoldNothing)
{
    for (const ktRange& range : {ktRange(2.0, 1.0), ktRange(NaN, 1.0), ktRange(1.0, NaN), ktRange(NaN, NaN)}) {
        for (const double value : {1.0, 1.5, 2.0, infinity, -infinity, NaN}) {
            EXPECT_FALSE(range.isWithin(value)) << range.low() << " " << range.high() << " " << value;
        }
    }
}

TEST(Range, DefaultIsZeroAlone)
{
    EXPECT_EQ(ktRange().low(), 0.0);
    EXPECT_EQ(ktRange().high(), 0.0);
}

TEST(Range, EqualityIsOfBothEndsWithoutTolerance)
{
    EXPECT_TRUE(ktRange(1.0, 2.0) == ktRange(1.0, 2.0));
    EXPECT_FALSE(ktRange(1.0, 2.0) != ktRange(1.0, 2.0));
    EXPECT_TRUE(ktRange(1.0, 2.0) != ktRange(std::nextafter(1.0, 2.0), 2.0));
    EXPECT_TRUE(ktRange(1.0, 2.0) != ktRange(1.0, std::nextafter(2.0, 3.0)));
    EXPECT_FALSE(ktRange(NaN, 2.0) == ktRange(NaN, 2.0));
}

TEST(Range, IsArchivedAsItsLowAndItsHighEnd)
{
    const std::string bytes = kt_test::store(ktRange(1.0, infinity));
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(bytes)), "00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 F0 7F");
    EXPECT_TRUE(kt_test::load<ktRange>(bytes) == ktRange(1.0, infinity));
    EXPECT_TRUE(std::isnan(kt_test::storedAndLoaded(ktRange(NaN, 1.0)).low()));
}

}  // namespace
