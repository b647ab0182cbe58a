#include "values_kit.h"

namespace {

using namespace kt_test;

using Indices = std::vector<long>;

constexpr long leastIndex = std::numeric_limits<long>::min();
constexpr long greatestIndex = std::numeric_limits<long>::max();

TEST(FeaturePattern, NewOneHasNoMeasurements)
{
    ktFeaturePattern pattern;
    EXPECT_EQ(pattern.numMeasurements(), 0);
    EXPECT_EQ(pattern.numInvalid(), 0);
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices());
    EXPECT_EQ(pattern.featureMeasurements(true), Doubles());
    EXPECT_TRUE(pattern == ktFeaturePattern({}, {}));
}

TEST(FeaturePattern, KeepsItsMeasurementsAndWhichOfThemAreInvalid)
{
    ktFeaturePattern pattern = withInvalidMiddle();
    EXPECT_EQ(pattern.numMeasurements(), 3);
    EXPECT_EQ(pattern.numInvalid(), 1);
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices({1}));
    EXPECT_TRUE(pattern.isValid(0));
    EXPECT_FALSE(pattern.isValid(1));
    EXPECT_TRUE(pattern.isValid(2));
    EXPECT_EQ(pattern.featureMeasurements(false), Doubles({1.5, -2.5, 3.5}));
}

TEST(FeaturePattern, AssignedPatternHasTheInvalidMeasurementsOfTheOther)
{
    ktFeaturePattern pattern({1.0, 2.0}, {});
    pattern = withInvalidMiddle();
    EXPECT_EQ(pattern.numInvalid(), 1);
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices({1}));
    EXPECT_FALSE(pattern.isValid(1));
    pattern = ktFeaturePattern({1.0, 2.0, 3.0}, {});
    EXPECT_EQ(pattern.numInvalid(), 0);
    EXPECT_TRUE(pattern.isValid(1));
}

TEST(FeaturePattern, IndexNamedTwiceIsClearedTwice)
{
    ktFeaturePattern pattern({1.0, 2.0, 3.0}, {1, 1});
    EXPECT_EQ(pattern.numInvalid(), 1);
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices({1}));
}

TEST(FeaturePattern, InvalidIndicesComeInAnyOrderAndAreListedAscending)
{
    ktFeaturePattern pattern({1.0, 2.0, 3.0, 4.0}, {3, 0, 2, 0});
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices({0, 2, 3}));
    EXPECT_EQ(pattern.numInvalid(), 3);
}

TEST(FeaturePattern, ConstructorRefusesTheFirstIndexAtFault)
{
    struct Row {
        const char* label;
        Doubles measurements;
        Indices invalid;
        const char* message;
    };
    const Row rows[] = {
        {"negative", {1.0, 2.0, 3.0}, {-1}, negativeIndex},
        {"least", {1.0, 2.0, 3.0}, {leastIndex}, negativeIndex},
        {"one past the end", {1.0, 2.0, 3.0}, {3}, indexTooLarge},
        {"greatest", {1.0, 2.0, 3.0}, {greatestIndex}, indexTooLarge},
        {"no measurements", {}, {0}, indexTooLarge},
        {"no measurements, negative", {}, {-1}, negativeIndex},
        {"negative, then too large", {1.0}, {-1, 1}, negativeIndex},
        {"too large, then negative", {1.0}, {1, -1}, indexTooLarge},
        {"after good ones", {1.0, 2.0}, {0, 1, 0, -7, 2}, negativeIndex},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        expectRefused<ktClassifierDefs::BadIndex>([&] { ktFeaturePattern(row.measurements, row.invalid); },
                                                  row.message);
    }
}

TEST(FeaturePattern, RefusedConstructionLeavesNothingBehind)
{
    const Doubles measurements(1000, 1.0);
    const Indices invalid = {0, -1};
    const kt_test::MemoryWatch watch;
    EXPECT_THROW(ktFeaturePattern(measurements, invalid), ktClassifierDefs::BadIndex);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(FeaturePattern, NothingPastTheEndIsValid)
{
    const ktFeaturePattern pattern({1.0, 2.0, 3.0}, {});
    EXPECT_TRUE(pattern.isValid(2));
    EXPECT_FALSE(pattern.isValid(3));
    EXPECT_FALSE(pattern.isValid(5));
    EXPECT_FALSE(pattern.isValid(greatestIndex));
    EXPECT_FALSE(ktFeaturePattern().isValid(0));
}

TEST(FeaturePattern, NegativeIndexIsRefusedEverywhere)
{
    const ktFeaturePattern pattern = withInvalidMiddle();
    for (const long index : {-1L, -7L, leastIndex}) {
        expectRefused<ktClassifierDefs::BadIndex>([&] { static_cast<void>(pattern.isValid(index)); }, negativeIndex);
        for (const bool throwIfNotAvailable : {false, true}) {
            expectRefused<ktClassifierDefs::BadIndex>(
                [&] { static_cast<void>(pattern.featureMeasurement(index, throwIfNotAvailable)); }, negativeIndex);
        }
    }
    EXPECT_TRUE(pattern == withInvalidMiddle());
}

TEST(FeaturePattern, MeasurementThatIsNotAvailableIsRefusedOnRequest)
{
    const ktFeaturePattern pattern = withInvalidMiddle();
    EXPECT_EQ(pattern.featureMeasurement(0, true), 1.5);
    EXPECT_EQ(pattern.featureMeasurement(2, true), 3.5);
    for (const long index : {1L, 3L, 5L, greatestIndex}) {
        SCOPED_TRACE(index);
        expectRefused<ktClassifierDefs::BadFeatures>(
            [&] { static_cast<void>(pattern.featureMeasurement(index, true)); }, notAvailable);
    }
    EXPECT_TRUE(pattern == withInvalidMiddle());
}

TEST(FeaturePattern, OtherwiseAnInvalidMeasurementKeepsItsValueAndPastTheEndIsZero)
{
    const ktFeaturePattern pattern = withInvalidMiddle();
    EXPECT_EQ(pattern.featureMeasurement(0, false), 1.5);
    EXPECT_EQ(pattern.featureMeasurement(1, false), -2.5);
    EXPECT_EQ(pattern.featureMeasurement(3, false), 0.0);
    EXPECT_EQ(pattern.featureMeasurement(5, false), 0.0);
    EXPECT_EQ(pattern.featureMeasurement(greatestIndex, false), 0.0);
    EXPECT_EQ(ktFeaturePattern().featureMeasurement(0, false), 0.0);
}

TEST(FeaturePattern, AllMeasurementsAreRefusedOnRequestIfAnyIsInvalid)
{
    const ktFeaturePattern pattern = withInvalidMiddle();
    expectRefused<ktClassifierDefs::BadFeatures>([&] { pattern.featureMeasurements(true); }, notAllValid);
    EXPECT_EQ(pattern.featureMeasurements(false), Doubles({1.5, -2.5, 3.5}));
    const ktFeaturePattern valid({1.0, 2.0}, {});
    EXPECT_EQ(valid.featureMeasurements(true), Doubles({1.0, 2.0}));
    EXPECT_EQ(ktFeaturePattern().featureMeasurements(true), Doubles());
}

TEST(FeaturePattern, AllMeasurementsAreThoseStoredNotACopy)
{
    const ktFeaturePattern pattern({1.0, 2.0}, {});
    EXPECT_EQ(&pattern.featureMeasurements(true), &pattern.featureMeasurements(false));
}

TEST(FeaturePattern, EqualityLooksAtEveryMeasurementAndEveryFlag)
{
    struct Row {
        const char* label;
        ktFeaturePattern other;
        bool equal;
    };
    const Row rows[] = {
        {"the same", ktFeaturePattern({1.0, 2.0, 3.0}, {1}), true},
        {"the same, named twice", ktFeaturePattern({1.0, 2.0, 3.0}, {1, 1}), true},
        {"value of the invalid one", ktFeaturePattern({1.0, 2.5, 3.0}, {1}), false},
        {"value of a valid one", ktFeaturePattern({1.0, 2.0, 3.5}, {1}), false},
        {"one bit of a value", ktFeaturePattern({std::nextafter(1.0, 2.0), 2.0, 3.0}, {1}), false},
        {"another invalid one", ktFeaturePattern({1.0, 2.0, 3.0}, {2}), false},
        {"all valid", ktFeaturePattern({1.0, 2.0, 3.0}, {}), false},
        {"shorter", ktFeaturePattern({1.0, 2.0}, {1}), false},
        {"longer", ktFeaturePattern({1.0, 2.0, 3.0, 4.0}, {1}), false},
        {"empty", ktFeaturePattern(), false},
    };
    const ktFeaturePattern pattern({1.0, 2.0, 3.0}, {1});
    for (const Row& row : rows) {
        EXPECT_EQ(pattern == row.other, row.equal) << row.label;
        EXPECT_EQ(row.other == pattern, row.equal) << row.label;
        EXPECT_EQ(pattern != row.other, !row.equal) << row.label;
    }
}

TEST(FeaturePattern, NanIsKeptAndEqualsNothing)
{
    const ktFeaturePattern pattern({NaN, 1.0}, {});
    EXPECT_TRUE(pattern.isValid(0));
    EXPECT_TRUE(std::isnan(pattern.featureMeasurement(0, true)));
    EXPECT_FALSE(pattern == ktFeaturePattern(pattern));
    EXPECT_TRUE(std::isnan(kt_test::storedAndLoaded(pattern).featureMeasurement(0, true)));
    EXPECT_TRUE(ktFeaturePattern({0.0}, {}) == ktFeaturePattern({-0.0}, {})) << "compared as doubles";
}

TEST(FeaturePattern, IsArchivedAsVersionMeasurementsValidity)
{
    EXPECT_EQ(kt_test::toHex(kt_test::store(withInvalidMiddle())),
              kt_test::toHex(craftedPattern({1.5, -2.5, 3.5}, {true, false, true})));
}

TEST(FeaturePattern, SerializeArchivesMeasurementsAndValidity)
{
    OpenedPattern pattern({1.0, 2.0}, {1});
    kt_test::StoringArchive archive;
    pattern.serialize(archive, 0);
    const std::string whole = kt_test::store(ktFeaturePattern(pattern));
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(archive.bytes())), kt_test::toHex(whole.substr(8 + 1)));
}

TEST(FeaturePattern, LoadedWithoutAFlagForAMeasurementHoldsItInvalid)
{
    auto pattern = kt_test::load<ktFeaturePattern>(craftedPattern({1.0, 2.0, 3.0}, {true}));
    EXPECT_EQ(pattern.numMeasurements(), 3);
    EXPECT_EQ(pattern.numInvalid(), 2);
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices({1, 2}));
    EXPECT_TRUE(pattern.isValid(0));
    EXPECT_FALSE(pattern.isValid(1));
    EXPECT_FALSE(pattern.isValid(2));
    EXPECT_EQ(pattern.featureMeasurement(2, false), 3.0);
    expectRefused<ktClassifierDefs::BadFeatures>([&] { static_cast<void>(pattern.featureMeasurement(2, true)); },
                                                 notAvailable);
    expectRefused<ktClassifierDefs::BadFeatures>([&] { pattern.featureMeasurements(true); }, notAllValid);
    EXPECT_TRUE(pattern == kt_test::storedAndLoaded(pattern));
}

TEST(FeaturePattern, LoadedFlagsPastTheMeasurementsCountForNothing)
{
    auto pattern = kt_test::load<ktFeaturePattern>(craftedPattern({1.0}, {true, true, false}));
    EXPECT_EQ(pattern.numMeasurements(), 1);
    EXPECT_EQ(pattern.numInvalid(), 0);
    EXPECT_EQ(pattern.invalidFeatureIndices(), Indices());
    EXPECT_FALSE(pattern.isValid(1));
    EXPECT_EQ(pattern.featureMeasurement(1, false), 0.0);
    EXPECT_EQ(pattern.featureMeasurements(true), Doubles({1.0}));
}

TEST(FeaturePattern, CountOfInvalidOnesIsThatOfTheListAlsoAfterAFailedLoad)
{
    const std::string bytes = kt_test::store(ktFeaturePattern(Doubles(20, 1.0), {0, 3, 17}));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE(size);
        ktFeaturePattern pattern({1.0, 2.0, 3.0}, {1});
        EXPECT_THROW(kt_test::loadInto(pattern, bytes.substr(0, size)), ktArchive::Corrupt);
        EXPECT_EQ(pattern.numInvalid(), static_cast<long>(pattern.invalidFeatureIndices().size()));
        EXPECT_EQ(ktFeaturePattern(pattern).numInvalid(), pattern.numInvalid());
    }
}

TEST(FeaturePattern, StoredAgainIsWhatItWasLoadedFrom)
{
    struct Row {
        const char* label;
        Doubles measurements;
        std::vector<bool> flags;
    };
    const Row rows[] = {
        {"nothing", {}, {}},
        {"flags alone", {}, {true, false}},
        {"no flags", {1.0, 2.0}, {}},
        {"too few flags", {1.0, 2.0}, {true}},
        {"all valid", {1.0, 2.0}, {true, true}},
        {"none valid", {1.0, 2.0}, {false, false}},
        {"more flags", {1.0}, {true, true}},
        {"all valid in nine bytes of flags", Doubles(65, 1.0), std::vector<bool>(65, true)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const std::string bytes = craftedPattern(row.measurements, row.flags);
        const auto pattern = kt_test::load<ktFeaturePattern>(bytes);
        EXPECT_EQ(kt_test::toHex(kt_test::store(ktFeaturePattern(pattern))), kt_test::toHex(bytes));
        for (const Row& other : rows) {
            const auto same = &row == &other;
            EXPECT_EQ(pattern == kt_test::load<ktFeaturePattern>(craftedPattern(other.measurements, other.flags)), same)
                << other.label;
        }
    }
}

TEST(FeaturePattern, LoadedWithAllValidIsThatWhichWasMadeSo)
{
    const auto loaded = kt_test::load<ktFeaturePattern>(craftedPattern({1.0, 2.0}, {true, true}));
    EXPECT_TRUE(loaded == ktFeaturePattern({1.0, 2.0}, {}));
    EXPECT_FALSE(loaded == ktFeaturePattern({1.0, 2.0}, {0}));
    EXPECT_FALSE(ktFeaturePattern({1.0, 2.0}, {0}) == loaded);
}

TEST(FeaturePattern, AllValidOnesTakeMemoryForTheMeasurementsAlone)
{
    const Doubles measurements(100, 1.0);
    EXPECT_EQ(kt_test::allocationsDuring([&] { const ktFeaturePattern pattern(measurements, {}); }), 1);
    const Indices invalid = {1};
    EXPECT_EQ(kt_test::allocationsDuring([&] { const ktFeaturePattern pattern(measurements, invalid); }), 3);
}

TEST(FeaturePattern, IsSharedByHandles)
{
    const kt_test::MemoryWatch watch;
    {
        const ktPtrHandle_const<ktFeaturePattern> first(new ktFeaturePattern({1.0}, {}));
        const ktPtrHandle_const<ktFeaturePattern> second = first;
        EXPECT_EQ(first->refCount(), 2);
        EXPECT_EQ(&*first, &*second);
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

}  // namespace
