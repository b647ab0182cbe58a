#include "values_kit.h"

namespace {

using namespace kt_test;

constexpr double tiny = std::numeric_limits<double>::denorm_min();

TEST(CategoryResult, NewOneIsAllZero)
{
    const CategoryResult result;
    EXPECT_EQ(result.categoryLabel(), 0);
    EXPECT_EQ(result.matchScore(), 0.0);
    EXPECT_EQ(result.classScore(), 0.0);
    EXPECT_EQ(result.expectedCost(), 0.0);
    EXPECT_TRUE(result == CategoryResult(0, 0.0, 0.0, 0.0));
}

TEST(CategoryResult, HoldsWhatItIsGiven)
{
    const CategoryResult result(7, 0.5, 0.25, 12.5);
    EXPECT_EQ(result.categoryLabel(), 7);
    EXPECT_EQ(result.matchScore(), 0.5);
    EXPECT_EQ(result.classScore(), 0.25);
    EXPECT_EQ(result.expectedCost(), 12.5);
}

TEST(CategoryResult, EndsOfTheRangesAreTaken)
{
    for (const double score : {0.0, -0.0, 1.0, tiny}) {
        EXPECT_EQ(CategoryResult(0, score, 0.5, 1.0).matchScore(), score);
        EXPECT_EQ(CategoryResult(0, 0.5, score, 1.0).classScore(), score);
    }
    for (const double cost : {0.0, -0.0, 1e300, infinity}) {
        EXPECT_EQ(CategoryResult(0, 0.5, 0.5, cost).expectedCost(), cost);
    }
    EXPECT_EQ(CategoryResult(LONG_MAX, 0.5, 0.5, 1.0).categoryLabel(), LONG_MAX);
}

TEST(CategoryResult, NanPassesTheComparisons)
{
    const CategoryResult result(0, NaN, NaN, NaN);
    EXPECT_TRUE(std::isnan(result.matchScore()));
    EXPECT_TRUE(std::isnan(result.classScore()));
    EXPECT_TRUE(std::isnan(result.expectedCost()));
}

TEST(CategoryResult, ChecksLabelThenMatchScoreThenClassScoreThenCost)
{
    struct Row {
        const char* label;
        long category;
        double matchScore;
        double classScore;
        double cost;
        const char* message;
    };
    const Row rows[] = {
        {"label", -1, 0.5, 0.5, 1.0, negativeLabel},
        {"least label", LONG_MIN, 0.5, 0.5, 1.0, negativeLabel},
        {"label and all else", -1, -0.5, 1.5, -1.0, negativeLabel},
        {"match score below", 0, -tiny, 0.5, 1.0, badScore},
        {"match score above", 0, std::nextafter(1.0, 2.0), 0.5, 1.0, badScore},
        {"match score infinite", 0, infinity, 0.5, 1.0, badScore},
        {"match score and cost", 0, -0.5, 0.5, -1.0, badScore},
        {"class score below", 0, 0.5, -tiny, 1.0, badScore},
        {"class score above", 0, 0.5, std::nextafter(1.0, 2.0), 1.0, badScore},
        {"class score negative infinite", 0, 0.5, -infinity, 1.0, badScore},
        {"class score and cost", 0, 0.5, 1.5, -1.0, badScore},
        {"class score and cost, NaN before", 0, NaN, 1.5, -1.0, badScore},
        {"cost", 0, 0.5, 0.5, -tiny, negativeCost},
        {"cost, NaN before", 0, NaN, NaN, -1.0, negativeCost},
        {"cost negative infinite", 0, 0.5, 0.5, -infinity, negativeCost},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const auto make = [&] { CategoryResult refused(row.category, row.matchScore, row.classScore, row.cost); };
        row.category < 0 ? expectRefused<ktClassifierDefs::BadLabel>(make, row.message)
                         : expectRefused<ktClassifierDefs::BadParams>(make, row.message);
    }
}

TEST(CategoryResult, EqualityLooksAtEveryField)
{
    const CategoryResult result(7, 0.5, 0.25, 12.5);
    EXPECT_TRUE(result == CategoryResult(7, 0.5, 0.25, 12.5));
    EXPECT_FALSE(result != CategoryResult(7, 0.5, 0.25, 12.5));
    const CategoryResult others[] = {
        {8, 0.5, 0.25, 12.5},
        {7, std::nextafter(0.5, 1.0), 0.25, 12.5},
        {7, 0.5, std::nextafter(0.25, 1.0), 12.5},
        {7, 0.5, 0.25, std::nextafter(12.5, 13.0)},
        {7, NaN, 0.25, 12.5},
    };
    for (const CategoryResult& other : others) {
        EXPECT_FALSE(result == other);
        EXPECT_FALSE(other == result);
        EXPECT_TRUE(result != other);
    }
    EXPECT_FALSE(others[4] == CategoryResult(others[4])) << "NaN equals nothing";
}

TEST(CategoryResult, TakesNoMemory)
{
    EXPECT_EQ(kt_test::allocationsDuring([] {
                  const CategoryResult result(7, 0.5, 0.25, 12.5);
                  CategoryResult copy(result);
                  copy = CategoryResult();
              }),
              0);
}

TEST(CategoryResult, IsArchivedAsVersionLabelMatchScoreClassScoreCost)
{
    EXPECT_EQ(kt_test::toHex(kt_test::store(CategoryResult(7, 0.5, 0.25, 12.5))),
              kt_test::toHex(kt_test::store(static_cast<unsigned char>(0), 7L, 0.5, 0.25, 12.5)));
}

TEST(CategoryResult, LoadingDoesNotValidate)
{
    const auto result =
        kt_test::load<CategoryResult>(kt_test::store(static_cast<unsigned char>(0), -5L, 2.0, -infinity, -1.0));
    EXPECT_EQ(result.categoryLabel(), -5);
    EXPECT_EQ(result.matchScore(), 2.0);
    EXPECT_EQ(result.classScore(), -infinity);
    EXPECT_EQ(result.expectedCost(), -1.0);
}

TEST(CategoryResult, NanSurvivesTheArchive)
{
    const CategoryResult result = kt_test::storedAndLoaded(CategoryResult(0, NaN, NaN, NaN));
    EXPECT_TRUE(std::isnan(result.matchScore()));
    EXPECT_TRUE(std::isnan(result.classScore()));
    EXPECT_TRUE(std::isnan(result.expectedCost()));
}

}  // namespace
