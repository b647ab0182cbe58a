#include "trees.h"

namespace {

using namespace kt_test;
using namespace trees;

constexpr double largest = std::numeric_limits<double>::max();
constexpr double tiniest = std::numeric_limits<double>::denorm_min();
constexpr long lastLong = std::numeric_limits<long>::max();

TEST(ComparisonPredicate, IsTrueExactlyWhenBothAreValidAndTheFirstIsGreater)
{
    const auto first = [](double left, double right) { return ktFeaturePattern({left, right, 0.0}, {}); };
    expectOutcomes({
        {"greater", comparison(0, 1), first(2.0, 1.0), true},
        {"equal", comparison(0, 1), first(3.0, 3.0), false},
        {"less", comparison(0, 1), first(1.0, 2.0), false},
        {"the other way round", comparison(1, 0), first(1.0, 2.0), true},
        {"greater by one step", comparison(0, 1), first(std::nextafter(1.0, 2.0), 1.0), true},
        {"the smallest number and 0", comparison(0, 1), first(tiniest, 0.0), true},
        {"0 and -0", comparison(0, 1), first(0.0, -0.0), false},
        {"-0 and 0", comparison(0, 1), first(-0.0, 0.0), false},
        {"NaN on the left", comparison(0, 1), first(NaN, -infinity), false},
        {"NaN on the right", comparison(0, 1), first(infinity, NaN), false},
        {"NaN on both sides", comparison(0, 1), first(NaN, NaN), false},
        {"infinity and the largest number", comparison(0, 1), first(infinity, largest), true},
        {"two infinities", comparison(0, 1), first(infinity, infinity), false},
        {"a number and -infinity", comparison(0, 1), first(-largest, -infinity), true},
        {"-infinity and infinity", comparison(0, 1), first(-infinity, infinity), false},
        {"left invalid", comparison(0, 1), ktFeaturePattern({2.0, 1.0}, {0}), false},
        {"right invalid", comparison(0, 1), ktFeaturePattern({2.0, 1.0}, {1}), false},
        {"both invalid", comparison(0, 1), ktFeaturePattern({2.0, 1.0}, {0, 1}), false},
        {"another one invalid", comparison(0, 1), ktFeaturePattern({2.0, 1.0, 0.0}, {2}), true},
        {"right past the end", comparison(0, 9), first(2.0, 1.0), false},
        {"left past the end", comparison(9, 0), first(-1.0, 1.0), false},
        {"just past the end", comparison(0, 3), first(2.0, 1.0), false},
        {"the largest index", comparison(0, lastLong), first(2.0, 1.0), false},
        {"a pattern without measurements", comparison(0, 1), ktFeaturePattern(), false},
    });
}

TEST(RangePredicate, IsTrueExactlyWhenEveryListedMeasurementIsValidAndWithinTheRange)
{
    const auto one = [](double value) { return ktFeaturePattern({value}, {}); };
    expectOutcomes({
        {"inside", range(1.0, 2.0, {0}), one(1.5), true},
        {"the low end", range(1.0, 2.0, {0}), one(1.0), true},
        {"the high end", range(1.0, 2.0, {0}), one(2.0), true},
        {"just below", range(1.0, 2.0, {0}), one(std::nextafter(1.0, 0.0)), false},
        {"just above", range(1.0, 2.0, {0}), one(std::nextafter(2.0, 3.0)), false},
        {"NaN", range(-infinity, infinity, {0}), one(NaN), false},
        {"infinity in the full range", range(-infinity, infinity, {0}), one(infinity), true},
        {"-infinity in the full range", range(-infinity, infinity, {0}), one(-infinity), true},
        {"infinity above a number", range(0.0, largest, {0}), one(infinity), false},
        {"a range of one value", range(2.0, 2.0, {0}), one(2.0), true},
        {"a range with its ends swapped", range(2.0, 1.0, {0}), one(1.5), false},
        {"a range that begins at NaN", range(NaN, 2.0, {0}), one(1.5), false},
        {"a range that ends at NaN", range(1.0, NaN, {0}), one(1.5), false},
        {"invalid", range(1.0, 2.0, {0}), ktFeaturePattern({1.5}, {0}), false},
        {"past the end", range(1.0, 2.0, {1}), one(1.5), false},
        {"the largest index", range(1.0, 2.0, {lastLong}), one(1.5), false},
        {"no index", range(1.0, 2.0, {}), one(9.0), true},
        {"no index, an empty range, no measurements", range(2.0, 1.0, {}), ktFeaturePattern(), true},
        {"no index, all invalid", range(1.0, 2.0, {}), ktFeaturePattern({NaN}, {0}), true},
        {"the same index twice", range(1.0, 2.0, {0, 0}), one(1.5), true},
    });
}

TEST(RangePredicate, FailsWithTheFirstMeasurementOutsideWhateverTheOthersAre)
{
    const auto second = [](double value, double last) { return ktFeaturePattern({0, value, 0, 0, last}, {}); };
    expectOutcomes({
        {"both inside", range(1.0, 2.0, {1, 4}), second(1.5, 1.5), true},
        {"first outside, last inside", range(1.0, 2.0, {1, 4}), second(3.0, 1.5), false},
        {"first outside, last outside", range(1.0, 2.0, {1, 4}), second(3.0, 3.0), false},
        {"first outside, last invalid", range(1.0, 2.0, {1, 4}), ktFeaturePattern({0, 3, 0, 0, 1}, {4}), false},
        {"first outside, last past the end", range(1.0, 2.0, {1, 4}), ktFeaturePattern({0, 3}, {}), false},
        {"first inside, last outside", range(1.0, 2.0, {1, 4}), second(1.5, 3.0), false},
        {"first inside, last invalid", range(1.0, 2.0, {1, 4}), ktFeaturePattern({0, 1, 0, 0, 1}, {4}), false},
        {"first inside, last past the end", range(1.0, 2.0, {1, 4}), ktFeaturePattern({0, 1}, {}), false},
        {"first invalid, last inside", range(1.0, 2.0, {1, 4}), ktFeaturePattern({0, 1, 0, 0, 1}, {1}), false},
    });
}

TEST(ValidityPredicate, IsTrueExactlyWhenEveryListedMeasurementIsValid)
{
    expectOutcomes({
        {"valid", validity({0}), ktFeaturePattern({1.0}, {}), true},
        {"a valid NaN", validity({0}), ktFeaturePattern({NaN}, {}), true},
        {"a valid infinity", validity({0}), ktFeaturePattern({infinity}, {}), true},
        {"invalid", validity({0}), ktFeaturePattern({1.0}, {0}), false},
        {"past the end", validity({1}), ktFeaturePattern({1.0}, {}), false},
        {"the largest index", validity({lastLong}), ktFeaturePattern({1.0}, {}), false},
        {"first invalid", validity({1, 0}), ktFeaturePattern({1.0, 2.0}, {1}), false},
        {"last invalid", validity({1, 0}), ktFeaturePattern({1.0, 2.0}, {0}), false},
        {"only one that is not listed invalid", validity({2, 0}), ktFeaturePattern({1.0, 2.0, 3.0}, {1}), true},
        {"the same index twice", validity({0, 0}), ktFeaturePattern({1.0}, {}), true},
        {"no index", validity({}), ktFeaturePattern({1.0}, {0}), true},
        {"no index, no measurements", validity({}), ktFeaturePattern(), true},
    });
}

TEST(Predicates, DefaultOnesLookAtTheFirstMeasurements)
{
    EXPECT_EQ(ktComparisonPredicate().measurementIndex1(), 0);
    EXPECT_EQ(ktComparisonPredicate().measurementIndex2(), 1);
    EXPECT_TRUE(ktRangePredicate().measurementRange() == ktRange::FullRange());
    EXPECT_EQ(ktRangePredicate().measurementIndices(), std::vector<long>{0});
    EXPECT_EQ(ktValidityPredicate().measurementIndices(), std::vector<long>{0});
    expectOutcomes({
        {"comparison", new ktComparisonPredicate, ktFeaturePattern({2.0, 1.0}, {}), true},
        {"range, valid", new ktRangePredicate, ktFeaturePattern({-infinity, 0.0}, {1}), true},
        {"range, invalid", new ktRangePredicate, ktFeaturePattern({1.0, 0.0}, {0}), false},
        {"validity", new ktValidityPredicate, ktFeaturePattern({NaN, 0.0}, {1}), true},
    });
}

TEST(Predicates, GiveBackWhatTheyWereMadeOf)
{
    EXPECT_EQ(ktComparisonPredicate(7, 3).measurementIndex1(), 7);
    EXPECT_EQ(ktComparisonPredicate(7, 3).measurementIndex2(), 3);
    const std::vector<long> indices{4, 0, 4};
    EXPECT_TRUE(ktRangePredicate(ktRange(-1.0, 0.5), indices).measurementRange() == ktRange(-1.0, 0.5));
    EXPECT_EQ(ktRangePredicate(ktRange(-1.0, 0.5), indices).measurementIndices(), indices);
    EXPECT_EQ(ktValidityPredicate(indices).measurementIndices(), indices);
}

TEST(Predicates, ListsAreGivenOutAsCopies)
{
    const ktRangePredicate inRange;
    const ktValidityPredicate valid;
    static_assert(std::is_same_v<decltype(inRange.measurementRange()), ktRange>);
    static_assert(std::is_same_v<decltype(inRange.measurementIndices()), std::vector<long>>);
    static_assert(std::is_same_v<decltype(valid.measurementIndices()), std::vector<long>>);
    inRange.measurementIndices().push_back(5);
    valid.measurementIndices().push_back(5);
    EXPECT_EQ(inRange.measurementIndices(), std::vector<long>{0});
    EXPECT_EQ(valid.measurementIndices(), std::vector<long>{0});
}

TEST(Predicates, KeepTheirOwnCopyOfTheIndices)
{
    std::vector<long> indices{1};
    const ktRangePredicate inRange(ktRange(), indices);
    const ktValidityPredicate valid(indices);
    indices[0] = 2;
    EXPECT_EQ(inRange.measurementIndices(), std::vector<long>{1});
    EXPECT_EQ(valid.measurementIndices(), std::vector<long>{1});
}

TEST(ComparisonPredicate, EqualIndicesAreRefusedBeforeNegativeOnes)
{
    for (const long index : {0L, 2L, -1L, lastLong}) {
        SCOPED_TRACE(index);
        expectThrows<ktClassifierDefs::BadParams>("Measurement indices must be different.",
                                                  [&] { ktComparisonPredicate(index, index); });
    }
}

TEST(Predicates, NegativeIndicesAreRefused)
{
    const long lowest = std::numeric_limits<long>::min();
    const std::vector<std::pair<const char*, std::function<void()>>> rows{
        {"comparison, first", [] { ktComparisonPredicate(-1, 3); }},
        {"comparison, second", [] { ktComparisonPredicate(3, -1); }},
        {"comparison, both", [] { ktComparisonPredicate(-2, -1); }},
        {"comparison, lowest", [&] { ktComparisonPredicate(0, lowest); }},
        {"range, only", [] { ktRangePredicate(ktRange(), {-1}); }},
        {"range, last",
         [] {
             ktRangePredicate(ktRange(), {0, 3, -1});
         }},
        {"range, lowest", [&] { ktRangePredicate(ktRange(), {lowest}); }},
        {"validity, only", [] { ktValidityPredicate(std::vector<long>{-1}); }},
        {"validity, last",
         [] {
             ktValidityPredicate(std::vector<long>{0, 3, -1});
         }},
        {"validity, lowest", [&] { ktValidityPredicate(std::vector<long>{lowest}); }},
    };
    for (const auto& [what, make] : rows) {
        SCOPED_TRACE(what);
        expectThrows<ktClassifierDefs::BadIndex>("Measurement index must be >= 0 and < number of measurements.", make);
    }
}

// Kept on purpose: the upper bound that the message names is not checked, because a predicate does not know the patterns.
TEST(Predicates, IndicesHaveNoUpperBound)
{
    EXPECT_EQ(ktComparisonPredicate(0, lastLong).measurementIndex2(), lastLong);
    EXPECT_EQ(ktRangePredicate(ktRange(), {lastLong}).measurementIndices(), std::vector<long>{lastLong});
    EXPECT_EQ(ktValidityPredicate(std::vector<long>{lastLong}).measurementIndices(), std::vector<long>{lastLong});
}

TEST(Predicates, AreEqualToTheirLikeAlone)
{
    const std::vector<std::pair<const char*, std::function<Predicate()>>> kinds{
        {"comparison 0 > 1", [] { return comparison(0, 1); }},
        {"comparison 1 > 0", [] { return comparison(1, 0); }},
        {"comparison 0 > 2", [] { return comparison(0, 2); }},
        {"range, full, measurement 0", [] { return range(-infinity, infinity, {0}); }},
        {"range, other low end", [] { return range(0.0, infinity, {0}); }},
        {"range, other high end", [] { return range(-infinity, 0.0, {0}); }},
        {"range, no index", [] { return range(-infinity, infinity, {}); }},
        {"range, index twice",
         [] {
             return range(-infinity, infinity, {0, 0});
         }},
        {"range, two indices",
         [] {
             return range(-infinity, infinity, {0, 1});
         }},
        {"range, in another order",
         [] {
             return range(-infinity, infinity, {1, 0});
         }},
        {"validity, measurement 0", [] { return validity({0}); }},
        {"validity, no index", [] { return validity({}); }},
        {"validity, index twice",
         [] {
             return validity({0, 0});
         }},
        {"validity, two indices",
         [] {
             return validity({0, 1});
         }},
        {"validity, in another order",
         [] {
             return validity({1, 0});
         }},
    };
    for (const auto& [oneName, one] : kinds) {
        for (const auto& [otherName, other] : kinds) {
            SCOPED_TRACE(::testing::Message() << oneName << " and " << otherName);
            const bool same = &oneName == &otherName;
            EXPECT_EQ(one()->isEqual(*other()), same);
            EXPECT_EQ(*one() == *other(), same);
            EXPECT_EQ(*one() != *other(), !same);
        }
    }
}

TEST(RangePredicate, RangesAreComparedAsNumbers)
{
    EXPECT_TRUE(*range(0.0, 1.0, {0}) == *range(-0.0, 1.0, {0}));
    const Predicate withNaN = range(NaN, 1.0, {0});
    EXPECT_FALSE(*withNaN == *withNaN);
    EXPECT_TRUE(*withNaN != *withNaN->clone());
}

/// Says yes when the first measurement is odd; takes its equality from the base.
class OddPredicate : public ktPredicateFunction {
public:
    bool outcome(const ktFeaturePattern& pattern) const override
    {
        return std::fmod(pattern.featureMeasurement(0, true), 2.0) == 1.0;
    }
    ktPtrHandle<ktPredicateFunction> clone() const override { return new OddPredicate(*this); }
};

/// A comparison that says the contrary.
class Contrary : public ktComparisonPredicate {
public:
    using ktComparisonPredicate::ktComparisonPredicate;
    bool outcome(const ktFeaturePattern& pattern) const override { return !ktComparisonPredicate::outcome(pattern); }
    ktPtrHandle<ktPredicateFunction> clone() const override { return new Contrary(*this); }
};

TEST(Predicates, BaseEqualityIsTrueAndConcreteOnesLookAtTheClass)
{
    const OddPredicate odd;
    EXPECT_TRUE(odd == OddPredicate());
    EXPECT_TRUE(odd == ktComparisonPredicate());
    EXPECT_FALSE(odd != ktRangePredicate());
    EXPECT_FALSE(ktComparisonPredicate() == odd);
    EXPECT_FALSE(ktRangePredicate() == odd);
    EXPECT_FALSE(ktValidityPredicate() == odd);
}

TEST(Predicates, OneDerivedFromAConcreteClassIsOfAnotherClass)
{
    EXPECT_TRUE(Contrary(0, 1) == Contrary(0, 1));
    EXPECT_FALSE(Contrary(0, 1) == ktComparisonPredicate(0, 1));
    EXPECT_FALSE(ktComparisonPredicate(0, 1) == Contrary(0, 1));
}

TEST(Predicates, OnesOfTheCallersOwnAreAskedThroughTheBase)
{
    expectOutcomes({
        {"own, yes", new OddPredicate, ktFeaturePattern({3.0}, {}), true},
        {"own, no", new OddPredicate, ktFeaturePattern({4.0}, {}), false},
        {"derived", new Contrary(0, 1), ktFeaturePattern({1.0, 2.0}, {}), true},
        {"clone of a derived one", Predicate(new Contrary(0, 1))->clone(), ktFeaturePattern({2.0, 1.0}, {}), false},
    });
}

TEST(Predicates, RefusedOnesLeaveNothingBehind)
{
    const std::vector<long> indices{0, 1, 2, -1};
    const kt_test::MemoryWatch watch;
    EXPECT_THROW(ktRangePredicate(ktRange(), indices), ktClassifierDefs::BadIndex);
    EXPECT_THROW(ktValidityPredicate{indices}, ktClassifierDefs::BadIndex);
    EXPECT_THROW(ktComparisonPredicate(0, -1), ktClassifierDefs::BadIndex);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(Predicates, OutcomeAllocatesNothing)
{
    const ktFeaturePattern pattern({1.0, 2.0, 3.0}, {2});
    for (const Predicate& predicate : {comparison(0, 1), range(0.0, 1.0, {0, 1, 2}), validity({0, 1, 2, 3})}) {
        EXPECT_EQ(kt_test::allocationsDuring([&] { predicate->outcome(pattern); }), 0);
    }
}

TEST(ComparisonPredicate, ArchiveHoldsVersionBaseVersionAndBothIndices)
{
    Fields fields(kt_test::store(ktComparisonPredicate(7, 3)));
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<long>(), 7);
    EXPECT_EQ(fields.next<long>(), 3);
    EXPECT_TRUE(fields.atEnd());
}

TEST(RangePredicate, ArchiveHoldsVersionBaseVersionRangeAndIndices)
{
    Fields fields(kt_test::store(ktRangePredicate(ktRange(-1.0, 0.5), {4, 0})));
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_TRUE(fields.next<ktRange>() == ktRange(-1.0, 0.5));
    EXPECT_EQ(fields.next<std::vector<long>>(), (std::vector<long>{4, 0}));
    EXPECT_TRUE(fields.atEnd());
}

TEST(ValidityPredicate, ArchiveHoldsVersionBaseVersionAndIndices)
{
    Fields fields(kt_test::store(ktValidityPredicate(std::vector<long>{4, 0})));
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<unsigned char>(), 0);
    EXPECT_EQ(fields.next<std::vector<long>>(), (std::vector<long>{4, 0}));
    EXPECT_TRUE(fields.atEnd());
}

TEST(Predicates, LoadingDoesNotCheckTheIndices)
{
    const std::string equal = kt_test::fromHex("00 00  05 00 00 00  05 00 00 00");
    const std::string negative = kt_test::fromHex("00 00  FF FF FF FF  00 00 00 80");
    const auto same = kt_test::load<ktComparisonPredicate>(kt_test::archiveHeader() + equal);
    EXPECT_EQ(same.measurementIndex1(), 5);
    EXPECT_EQ(same.measurementIndex2(), 5);
    const auto below = kt_test::load<ktComparisonPredicate>(kt_test::archiveHeader() + negative);
    EXPECT_EQ(below.measurementIndex1(), -1);
    EXPECT_EQ(below.measurementIndex2(), -2147483647 - 1);
    const std::string list = kt_test::fromHex("00 00  00 02 00 00 00  00 00 00 00  FF FF FF FF");
    const auto valid = kt_test::load<ktValidityPredicate>(kt_test::archiveHeader() + list);
    EXPECT_EQ(valid.measurementIndices(), (std::vector<long>{0, -1}));
}

TEST(Predicates, LoadedNegativeIndexCountsAsAMeasurementThatIsMissing)
{
    const std::string word = kt_test::fromHex("FF FF FF FF");
    // The word is the last index of each.
    const auto damaged = [&](const std::string& bytes) { return kt_test::withBytesAt(bytes, bytes.size() - 4, word); };
    const ktFeaturePattern pattern({2.0, 1.0}, {});
    EXPECT_FALSE(
        kt_test::load<ktComparisonPredicate>(damaged(kt_test::store(ktComparisonPredicate()))).outcome(pattern));
    EXPECT_FALSE(kt_test::load<ktRangePredicate>(damaged(kt_test::store(ktRangePredicate()))).outcome(pattern));
    EXPECT_FALSE(kt_test::load<ktValidityPredicate>(damaged(kt_test::store(ktValidityPredicate()))).outcome(pattern));
}

TEST(Predicates, IndexThatDoesNotFit32BitsIsNotStored)
{
    const ktComparisonPredicate predicate(0, lastLong);
    if constexpr (sizeof(long) > 4) {
        expectThrows<ktArchive::OutOfRange>("Archive value out of range: 9223372036854775807 does not fit 32 bits.",
                                            [&] { kt_test::store(predicate); });
        EXPECT_TRUE(predicate == ktComparisonPredicate(0, lastLong));
    } else {
        EXPECT_TRUE(kt_test::storedAndLoaded(predicate) == predicate);
    }
}

}  // namespace
