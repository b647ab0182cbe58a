// Moving and stretching measurements.

#include "kit_kit.h"

namespace {

using namespace kt_test;
using ktKit::Scaler;

// Mean 5 and deviation 2 by the definition with n; NaN takes no part.
TEST(KitScaler, MeanAndDeviation)
{
    const Scaler scaler(dataOfRows(
        {{2, 7, NaN}, {4, 7, 1}, {4, 7, NaN}, {4, 7, 3}, {5, 7, NaN}, {5, 7, NaN}, {7, 7, NaN}, {9, 7, NaN}}));
    EXPECT_EQ(scaler.centers(), (std::vector<double>{5, 7, 2}));
    EXPECT_EQ(scaler.spreads(), (std::vector<double>{2, 1, 1}));
    const auto moved = scaler.transform(*ktKit::pattern({9.0, 8.0, NaN}));
    EXPECT_EQ(moved->featureMeasurement(0, true), 2.0);
    EXPECT_EQ(moved->featureMeasurement(1, true), 1.0);
    EXPECT_FALSE(moved->isValid(2));
}

// Sorted 1 2 3 4 100: median 3, quartiles 2 and 4. Sorted 1 2 3 4: median 2.5, quartiles 1.75 and 3.25.
TEST(KitScaler, MedianAndQuartiles)
{
    const Scaler scaler(dataOfRows({{100, 4, 1}, {1, 2, NaN}, {3, 1, NaN}, {2, 3, NaN}, {4, NaN, NaN}}),
                        Scaler::eMedianAndQuartiles);
    EXPECT_EQ(scaler.centers(), (std::vector<double>{3, 2.5, 1}));
    EXPECT_EQ(scaler.spreads(), (std::vector<double>{2, 1.5, 1}));
}

TEST(KitScaler, AMeasurementThatNobodyMeasuredStays)
{
    const Scaler scaler(dataOfRows({{NaN}, {NaN}}));
    EXPECT_EQ(scaler.centers(), std::vector<double>{0});
    EXPECT_EQ(scaler.spreads(), std::vector<double>{1});
    EXPECT_EQ(scaler.transform(*ktKit::pattern({6.5}))->featureMeasurement(0, true), 6.5);
}

// Mean 5 and deviation 2 as above, in other units: no square overflows, or becomes 0.
TEST(KitScaler, AnyUnitWillDo)
{
    const double least = std::numeric_limits<double>::denorm_min();
    for (const double unit : {least, 0x1p-1000, 0x1p-600, 0x1p600, 0x1p1020}) {
        ktClassifierDataProviderMemory given;
        for (const double value : {2.0, 4.0, 4.0, 4.0, 5.0, 5.0, 7.0, 9.0}) {
            given.addData(ktKit::pattern({value * unit}), 0);
        }
        const Scaler scaler(given);
        EXPECT_EQ(scaler.centers(), std::vector<double>{5 * unit});
        EXPECT_EQ(scaler.spreads(), std::vector<double>{2 * unit});
        EXPECT_EQ(scaler.transform(*given.featurePattern(7))->featureMeasurement(0, true), 2.0);
    }
}

TEST(KitScaler, LargeNumbersOverflowNothing)
{
    const double most = std::numeric_limits<double>::max();
    EXPECT_EQ(Scaler(dataOfRows({{1e308}, {1e308}, {1e308}})).centers(), std::vector<double>{1e308});
    for (const Scaler::Method method : {Scaler::eMeanAndDeviation, Scaler::eMedianAndQuartiles}) {
        const Scaler scaler(dataOfRows({{-most}, {most}}), method);
        EXPECT_EQ(scaler.centers(), std::vector<double>{0});
        EXPECT_DOUBLE_EQ(scaler.spreads()[0], most);
    }
    // A difference of the quartiles that is no double is the largest one.
    const Scaler wide(dataOfRows({{-most}, {-most}, {0}, {most}, {most}}), Scaler::eMedianAndQuartiles);
    EXPECT_EQ(wide.centers(), std::vector<double>{0});
    EXPECT_EQ(wide.spreads(), std::vector<double>{most});
    // A value that is not finite afterwards is missing.
    const Scaler tiny(dataOfRows({{-1e-300}, {1e-300}}), Scaler::eMedianAndQuartiles);
    EXPECT_FALSE(tiny.transform(*ktKit::pattern({1e200}))->isValid(0));
    // So is one that was not finite before.
    ktClassifierDataProviderMemory valid = dataOfRows({{1.0}, {3.0}});
    valid.addData(new ktFeaturePattern({std::numeric_limits<double>::infinity()}, {}), 0);
    EXPECT_EQ(Scaler(valid).centers(), std::vector<double>{2});
}

TEST(KitScaler, TransformsAProvider)
{
    ktClassifierDataProviderMemory given = dataOfRows({{2.0}, {4.0}, {6.0}});
    ktClassifierDataProviderMemory moved = Scaler(given).transform(given);
    ASSERT_EQ(moved.numPatterns(), 3);
    EXPECT_EQ(moved.name(), "some");
    EXPECT_EQ(moved.description(), "numbers");
    EXPECT_EQ(moved.categoryLabel(0), -1);
    EXPECT_EQ(moved.categoryLabel(2), 1);
    EXPECT_NEAR(moved.featurePattern(2)->featureMeasurement(0, true), std::sqrt(1.5), 1e-15);
}

TEST(KitScaler, SaysWhatIsWrongInOrder)
{
    ktClassifierDataProviderMemory none;
    expectThrows<ktClassifierDefs::InsufficientTrainData>("No valid data was provided for training.",
                                                          [&] { Scaler scaler(none); });
    ktClassifierDataProviderMemory null;
    null.addData(nullptr, 0);
    expectBadPointer([&] { Scaler scaler(null); });
    expectBadPointer([&] { Scaler().transform(null); });
    /// Patterns of different sizes, as no store of the library's own gives them.
    class Ragged : public ktClassifierDataProviderMemory {
    public:
        long numPatterns() const override { return 2; }
        ktPtrHandle_const<ktFeaturePattern> featurePattern(long index) override
        {
            return index == 0 ? ktKit::pattern({1.0}) : ktKit::pattern({1.0, 2.0});
        }
    };
    expectThrows<ktClassifierDefs::BadFeatures>("All patterns must have the same number of measurements",
                                                [] { Scaler scaler{Ragged()}; });
    const Scaler scaler(dataOfRows({{1.0, 2.0}}));
    expectThrows<ktClassifierDefs::BadFeatures>("The pattern has 3 measurements, but the scaler was made for 2", [&] {
        scaler.transform(*ktKit::pattern({1.0, 2.0, 3.0}));
    });
    EXPECT_EQ(Scaler().transform(ktFeaturePattern())->numMeasurements(), 0);
}

TEST(KitScaler, GoesThroughAnArchive)
{
    const Scaler scaler(dataOfRows({{1.0, 2.0}, {3.0, 8.0}}));
    std::stringstream stream;
    ktArchive store(static_cast<std::ostream&>(stream));
    ktPtrHandle<Scaler> stored = new Scaler(scaler);
    Scaler inPlace = scaler;
    store || stored || inPlace;
    ktArchive load(static_cast<std::istream&>(stream));
    ktPtrHandle<Scaler> loaded;
    Scaler loadedInPlace;
    load || loaded || loadedInPlace;
    EXPECT_TRUE(*loaded == scaler);
    EXPECT_TRUE(loadedInPlace == scaler);
    EXPECT_FALSE(loadedInPlace == Scaler());
    EXPECT_TRUE(scaler != Scaler(dataOfRows({{1.0, 2.0}, {3.0, 9.0}})));
    EXPECT_TRUE(scaler != Scaler(dataOfRows({{0.0, 2.0}, {4.0, 8.0}}))) << "the spread alone differs";
}

TEST(KitScaler, HoldsInAnArchiveWhatTheHeaderSays)
{
    std::stringstream stream;
    ktArchive store(static_cast<std::ostream&>(stream));
    Scaler scaler(dataOfRows({{1.0}, {5.0}}));
    store || scaler;
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(stream.str())),
              "00 00 01 00 00 00 00 00 00 00 00 00 08 40 00 01 00 00 00 00 00 00 00 00 00 00 40");
}

TEST(KitScaler, RunsOutOfMemoryCleanly)
{
    ktClassifierDataProviderMemory given = dataOfRows({{1.0, 2.0}, {3.0, NaN}});
    EXPECT_GT(kt_test::failEachAllocation([&] { Scaler(given, Scaler::eMedianAndQuartiles).transform(given); }), 0);
    const Scaler scaler(given);
    EXPECT_GT(kt_test::failEachAllocation([] { return Scaler(); }, [&](Scaler& copy) { copy = scaler; },
                                          [](const Scaler& copy) { EXPECT_TRUE(copy == Scaler()); },
                                          [&](const Scaler& copy) { EXPECT_TRUE(copy == scaler); }),
              0);
}

}  // namespace
