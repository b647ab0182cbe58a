// Patterns, costs and frequencies from plain numbers.

#include "kit_kit.h"

namespace {

using namespace kt_test;

TEST(KitPattern, ValuesThatAreNotFiniteBecomeInvalid)
{
    const std::vector<double> values = {1.5, NaN, -2.0, infinity, -infinity, -0.0};
    const ktPtrHandle_const<ktFeaturePattern> made = ktKit::pattern(values);
    ASSERT_EQ(made->numMeasurements(), 6);
    EXPECT_EQ(made->numInvalid(), 3);
    for (const long index : {0L, 2L, 5L}) {
        EXPECT_TRUE(made->isValid(index)) << index;
        EXPECT_EQ(made->featureMeasurement(index, true), values[static_cast<std::size_t>(index)]);
    }
    for (const long index : {1L, 3L, 4L}) {
        EXPECT_FALSE(made->isValid(index)) << index;
    }
    EXPECT_EQ(made->featureMeasurement(3, false), infinity);
    EXPECT_EQ(made->refCount(), 1);
}

TEST(KitPattern, AllFormsGiveTheSamePattern)
{
    const float floats[] = {1.5F, 2.25F, std::numeric_limits<float>::infinity()};
    const double doubles[] = {1.5, 2.25, infinity};
    const ktFeaturePattern expected({1.5, 2.25, infinity}, {2});
    EXPECT_TRUE(*ktKit::pattern(std::vector<double>{1.5, 2.25, infinity}) == expected);
    EXPECT_TRUE(*ktKit::pattern({1.5, 2.25, infinity}) == expected);
    EXPECT_TRUE(*ktKit::pattern(doubles, 3) == expected);
    EXPECT_TRUE(*ktKit::pattern(floats, 3) == expected);
    EXPECT_TRUE(*ktKit::pattern({}) == ktFeaturePattern());
    EXPECT_TRUE(*ktKit::pattern(static_cast<const double*>(nullptr), 0) == ktFeaturePattern());
    EXPECT_TRUE(*ktKit::pattern(static_cast<const float*>(nullptr), 0) == ktFeaturePattern());
    EXPECT_TRUE(*ktKit::pattern({3.0, 3.0}) == ktFeaturePattern({3.0, 3.0}, {}));
}

TEST(KitPattern, RunsOutOfMemoryCleanly)
{
    EXPECT_GT(kt_test::failEachAllocation([] { ktKit::pattern({1.0, infinity}); }), 0);
}

TEST(KitCosts, EachPairGetsItsEntry)
{
    const ktClassifierCosts made = ktKit::costs({{0, 1, 2}, {3, 0, 4}, {5, 6, 0}});
    EXPECT_EQ(made.misclassificationCost(0, 1), 1.0);
    EXPECT_EQ(made.misclassificationCost(0, 2), 2.0);
    EXPECT_EQ(made.misclassificationCost(1, 0), 3.0);
    EXPECT_EQ(made.misclassificationCost(1, 2), 4.0);
    EXPECT_EQ(made.misclassificationCost(2, 0), 5.0);
    EXPECT_EQ(made.misclassificationCost(2, 1), 6.0);
    EXPECT_EQ(made.misclassificationCost(0, 3), 1.0);
    EXPECT_EQ(made.defaultMisclassificationCost(), 1.0);

    const ktClassifierCosts labelled = ktKit::costs({{0, 7}, {8, 0}}, {40, 2});
    EXPECT_EQ(labelled.misclassificationCost(40, 2), 7.0);
    EXPECT_EQ(labelled.misclassificationCost(2, 40), 8.0);
    EXPECT_EQ(labelled.misclassificationCost(0, 1), 1.0);
    EXPECT_TRUE(ktKit::costs({}) == ktClassifierCosts());
    EXPECT_TRUE(ktKit::costs({{-0.0}}) == ktClassifierCosts());
}

TEST(KitCosts, SaysWhatIsWrongInOrder)
{
    const std::string square = "The matrix of costs must be square";
    const std::string number = "There must be as many category labels as rows of the matrix of costs";
    const std::string negative = "Category labels must be >= 0";
    const std::string unique = "Category labels must be unique";
    const std::string diagonal = "The diagonal of the matrix of costs must be 0";
    const std::string cost = "Costs must be >= 0.0";
    // Each row has what the rows below it complain of too.
    expectThrows<ktClassifierDefs::BadParams>(square, [] { ktKit::costs({{1, -1}, {1}}, {-1}); });
    expectThrows<ktClassifierDefs::BadParams>(square, [] { ktKit::costs({{0, 1, 1}, {1, 0, 1}}); });
    expectThrows<ktClassifierDefs::BadParams>(number, [] { ktKit::costs({{1, -1}, {1, 0}}, {-1}); });
    expectThrows<ktClassifierDefs::BadParams>(number, [] { ktKit::costs({}, {1}); });
    expectThrows<ktClassifierDefs::BadLabel>(negative, [] {
        ktKit::costs({{1, -1, 1}, {1, 0, 1}, {1, 1, 0}}, {2, 2, -1});
    });
    expectThrows<ktClassifierDefs::BadLabel>(unique, [] { ktKit::costs({{1, -1}, {1, 0}}, {2, 2}); });
    expectThrows<ktClassifierDefs::BadParams>(diagonal, [] { ktKit::costs({{0, -1}, {1, 1}}); });
    expectThrows<ktClassifierDefs::BadParams>(diagonal, [] { ktKit::costs({{NaN}}); });
    expectThrows<ktClassifierDefs::BadParams>(cost, [] { ktKit::costs({{0, -1}, {1, 0}}); });
    expectThrows<ktClassifierDefs::BadParams>(cost, [] { ktKit::costs({{0, 1}, {NaN, 0}}); });
}

TEST(KitFrequencies, EachLabelGetsItsEntry)
{
    const ktClassifierFrequencies made = ktKit::frequencies({0.25, 4.0});
    EXPECT_EQ(made.categoryFrequency(0), 0.25);
    EXPECT_EQ(made.categoryFrequency(1), 4.0);
    EXPECT_EQ(made.categoryFrequency(2), 1.0);
    const ktClassifierFrequencies labelled = ktKit::frequencies({0.25, 4.0}, {9, 3});
    EXPECT_EQ(labelled.categoryFrequency(9), 0.25);
    EXPECT_EQ(labelled.categoryFrequency(3), 4.0);
    EXPECT_EQ(labelled.categoryFrequency(0), 1.0);
    EXPECT_TRUE(ktKit::frequencies({}) == ktClassifierFrequencies());
}

TEST(KitFrequencies, SaysWhatIsWrongInOrder)
{
    const std::string number = "There must be as many category labels as frequencies";
    const std::string frequency = "Category frequencies must be > 0.0";
    expectThrows<ktClassifierDefs::BadParams>(number, [] { ktKit::frequencies({0.0, 1.0}, {-1}); });
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be >= 0", [] {
        ktKit::frequencies({0.0, 1.0, 1.0}, {2, 2, -1});
    });
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be unique", [] {
        ktKit::frequencies({0.0, 1.0}, {2, 2});
    });
    expectThrows<ktClassifierDefs::BadParams>(frequency, [] { ktKit::frequencies({1.0, 0.0}); });
    expectThrows<ktClassifierDefs::BadParams>(frequency, [] { ktKit::frequencies({NaN}); });
}

TEST(KitCosts, RunOutOfMemoryCleanly)
{
    EXPECT_GT(kt_test::failEachAllocation([] { ktKit::costs({{0, 1}, {1, 0}}, {3, 4}); }), 0);
    EXPECT_GT(kt_test::failEachAllocation([] { ktKit::frequencies({1, 2}, {3, 4}); }), 0);
}

}  // namespace
