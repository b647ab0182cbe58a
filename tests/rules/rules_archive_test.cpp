#include "scores.h"

#include "support/archivable_kit.h"

namespace {

using namespace kt_test;
using FeatureVector = ktClassifierFeatureVector;
using Ignore = ktClassifierFeatureScoreIgnore;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;

constexpr unsigned long ignoreTag = 5682;
constexpr unsigned long oneSidedTag = 33385;
constexpr unsigned long twoSidedTag = 59820;

// The layouts to the byte.

TEST(RulesArchive, OneSidedFunctionIsFiveDoublesWithoutAVersion)
{
    EXPECT_EQ(hexOf(oneSided(1.5, 2.0, 4.0, 0.25, 1.0)),
              "00 00 00 00 00 00 F8 3F "   // x0
              "00 00 00 00 00 00 00 40 "   // x1
              "00 00 00 00 00 00 10 40 "   // xc
              "00 00 00 00 00 00 D0 3F "   // y0
              "00 00 00 00 00 00 F0 3F");  // y1
}

TEST(RulesArchive, TwoSidedFunctionIsItsLowAndThenItsHighHalf)
{
    EXPECT_EQ(hexOf(storedTrapezoid()), hexOf(1.0, 2.0, 4.0, 0.25, 1.0, 8.0, 5.0, 4.0, 0.125, 0.5));
}

TEST(RulesArchive, HandleIsTheTagOfTheExactClassAndItsValues)
{
    EXPECT_EQ(hexOf(ScoreHandle(new Ignore)), "32 16 00 00");
    EXPECT_EQ(hexOf(ScoreHandle(new OneSided)), "69 82 00 00 " + hexOf(OneSided()));
    EXPECT_EQ(hexOf(ScoreHandle(new TwoSided)), "AC E9 00 00 " + hexOf(TwoSided()));
    EXPECT_EQ(toHex(littleEndian32(ignoreTag)), "32 16 00 00");
    EXPECT_EQ(toHex(littleEndian32(oneSidedTag)), "69 82 00 00");
    EXPECT_EQ(toHex(littleEndian32(twoSidedTag)), "AC E9 00 00");
}

TEST(RulesArchive, FeatureVectorIsAVectorOfDoubles)
{
    EXPECT_EQ(hexOf(FeatureVector({1.5, -2.0})),
              "00 "                        // version
              "02 00 00 00 "               // count
              "00 00 00 00 00 00 F8 3F "   // 1.5
              "00 00 00 00 00 00 00 C0");  // -2
    EXPECT_EQ(hexOf(FeatureVector(std::vector<double>{})), "00 00 00 00 00");
}

TEST(RulesArchive, RuleIsItsHandlesAndItsLabel)
{
    EXPECT_EQ(hexOf(rule({new Ignore, new OneSided}, 258)),
              "00 "             // version
              "02 00 00 00 "    // count
              "32 16 00 00 "    // the first
              "69 82 00 00 " +  // the second
                  hexOf(OneSided()) +
                  " 02 01 00 00");  // label
    EXPECT_EQ(hexOf(ktClassifierRule()), "00 00 00 00 00 00 00 00 00");
}

TEST(RulesArchive, RuleTableIsItsRules)
{
    ktClassifierRuleTable table;
    EXPECT_EQ(hexOf(table), "00 00 00 00 00");
    const ktClassifierRule first = rule({new Ignore}, 1);
    const ktClassifierRule second = rule({new OneSided}, 2);
    table.train({first, second});
    EXPECT_EQ(hexOf(table), "00 02 00 00 00 " + hexOf(first) + " " + hexOf(second));
}

// Handles.

TEST(RulesArchive, NullHandleIsRefusedAndNothingOfItIsWritten)
{
    kt_test::StoringArchive archive;
    long before = 3;
    archive || before;
    const std::string bytes = archive.bytes();
    ScoreHandle null;
    kt_test::expectBadPointer([&] { archive || null; });
    EXPECT_EQ(toHex(archive.bytes()), toHex(bytes));
    EXPECT_TRUE(null.isNull());
    ktClassifierRule holed = rule({new Ignore, nullptr}, 1);
    kt_test::expectBadPointer([&] { archive || holed; });
    EXPECT_EQ(holed.scoringMethods().size(), 2u);
}

TEST(RulesArchive, KeptOnPurposeObjectOfAnotherClassWritesNothing)
{
    const ScoreHandles others = {new kt_test::Constant(0.5), new kt_test::DerivedOneSided, new kt_test::DerivedTwoSided,
                                 new kt_test::DerivedIgnore};
    for (const ScoreHandle& other : others) {
        EXPECT_EQ(toHex(store(7L, other, 8L)), toHex(store(7L, 8L)));
    }
    EXPECT_EQ(hexOf(rule(others, 1)), "00 04 00 00 00 01 00 00 00") << "the count, and nothing for it to count";
}

TEST(RulesArchive, KeptOnPurposeUnknownTagLeavesTheHandleAsItWas)
{
    for (const unsigned long tag : {0UL, 7UL, 5681UL, 5683UL, 33384UL, 33386UL, 59819UL, 59821UL, 0xFFFFFFFFUL}) {
        SCOPED_TRACE(tag);
        ScoreHandle held(new OneSided);
        const ktClsFtSc* const before = held.get();
        loadInto(held, store(tag));
        EXPECT_EQ(held.get(), before);
        EXPECT_EQ(held->refCount(), 1);
        EXPECT_TRUE(*held == OneSided());
        ScoreHandle null;
        loadInto(null, store(tag));
        EXPECT_TRUE(null.isNull());
    }
}

TEST(RulesArchive, LoadedHandleHoldsANewObjectAndLetsTheOldOneGo)
{
    const ScoreHandles stored = {new Ignore, new OneSided(oneSided(2, 4, 7, 0.25, 0.75)),
                                 new TwoSided(storedTrapezoid())};
    for (const ScoreHandle& original : stored) {
        for (const ScoreHandle& old : stored) {
            ScoreHandle handle(old->clone());
            const ScoreHandle second = handle;
            loadInto(handle, store(original));
            EXPECT_EQ(second->refCount(), 1);
            EXPECT_TRUE(*second == *old) << "the old object itself is not loaded over";
            EXPECT_NE(handle.get(), second.get());
            EXPECT_EQ(handle->refCount(), 1);
            EXPECT_TRUE(*handle == *original);
        }
    }
}

TEST(RulesArchive, HandleWhoseLoadFailsKeepsItsObject)
{
    const std::string bytes = store(ScoreHandle(new TwoSided(storedTrapezoid())));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        ScoreHandle handle(new OneSided);
        EXPECT_THROW(loadInto(handle, bytes.substr(0, size)), ktArchive::Corrupt);
        EXPECT_TRUE(*handle == OneSided()) << size;
        EXPECT_EQ(handle->refCount(), 1);
    }
}

TEST(RulesArchive, LoadedValuesAreValidatedByScoreAlone)
{
    const std::string badOrder = store(oneSidedTag, 0.0, 5.0, 2.0, -3.0, 7.5);
    const std::string badSplit = store(twoSidedTag, 9.0, 9.0, 9.0, 0.0, 1.0, 4.0, 5.0, 6.0, 0.0, 1.0);
    ScoreHandle handle;
    loadInto(handle, badOrder);
    const auto& loaded = dynamic_cast<const OneSided&>(*handle);
    EXPECT_EQ(loaded.y0(), -3.0);
    EXPECT_EQ(loaded.y1(), 7.5);
    expectBadParams("x1 must lie between x0 and xc", [&] { handle->score(1.0); });
    loadInto(handle, badSplit);
    expectBadParams("Bad x values", [&] { handle->score(1.0); });
}

TEST(RulesArchive, EveryDoubleSurvivesBitByBit)
{
    // A NaN with a payload, a negative zero, a denormal and the infinities.
    const std::string values = fromHex(
        "01 00 00 00 00 00 F8 7F  00 00 00 00 00 00 00 80  01 00 00 00 00 00 00 00 "
        "00 00 00 00 00 00 F0 7F  00 00 00 00 00 00 F0 FF");
    const std::string one = kt_test::archiveHeader() + values;
    EXPECT_EQ(toHex(store(load<OneSided>(one))), toHex(one));
    const std::string two = one + values;
    EXPECT_EQ(toHex(store(load<TwoSided>(two))), toHex(two));
    const std::string vector = kt_test::archiveHeader() + fromHex("00 05 00 00 00") + values;
    EXPECT_EQ(toHex(store(load<StoredVector>(vector))), toHex(vector));
}

// Rules and tables.

TEST(RulesArchive, SharedFunctionIsStoredOncePerPlaceAndLoadedUnshared)
{
    const ScoreHandle shared(new OneSided);
    const ktClassifierRule original = rule({shared, shared}, 1);
    const ktClassifierRule loaded = kt_test::storedAndLoaded(original);
    EXPECT_EQ(hexOf(original), hexOf(rule({new OneSided, new OneSided}, 1)));
    EXPECT_TRUE(loaded == original);
    EXPECT_NE(loaded.scoringMethods()[0].get(), loaded.scoringMethods()[1].get());
    EXPECT_EQ(loaded.scoringMethods()[0]->refCount(), 1);
}

TEST(RulesArchive, LoadingARuleLeavesTheFunctionsOfItsCopiesAlone)
{
    ktClassifierRule changed = rule({new OneSided, new TwoSided, new Ignore}, 3);
    const ktClassifierRule copy(changed);
    loadInto(changed, store(rule({new TwoSided(storedTrapezoid()), new OneSided(oneSided(2, 4, 7, 0.25, 0.75))}, 4)));
    EXPECT_EQ(changed.scoringMethods().size(), 2u);
    EXPECT_TRUE(copy == rule({new OneSided, new TwoSided, new Ignore}, 3));
}

TEST(RulesArchive, UnknownTagInARuleKeepsTheFunctionAtItsPlaceOrLeavesItNull)
{
    const std::string bytes = kt_test::archiveHeader() + fromHex("00 02 00 00 00") + littleEndian32(7) +
                              littleEndian32(8) + littleEndian32(5);
    ktClassifierRule over = rule({new OneSided}, 3);
    loadInto(over, bytes);
    ASSERT_EQ(over.scoringMethods().size(), 2u);
    EXPECT_TRUE(*over.scoringMethods()[0] == OneSided());
    EXPECT_TRUE(over.scoringMethods()[1].isNull());
    EXPECT_EQ(over.label(), 5);
    kt_test::expectBadPointer([&] { over.score(kt_test::anyValues(2)); });
}

TEST(RulesArchive, LoadedRuleMayHaveAnyLabel)
{
    const std::string bytes = kt_test::archiveHeader() + fromHex("00 00 00 00 00") + fromHex("FB FF FF FF");
    EXPECT_EQ(load<ktClassifierRule>(bytes).label(), -5);
}

TEST(RulesArchive, LabelIsStoredIn32BitsOrRefused)
{
    EXPECT_EQ(load<ktClassifierRule>(store(rule({new Ignore}, 0x7FFFFFFF))).label(), 0x7FFFFFFF);
    if (LONG_MAX > 0x7FFFFFFF) {
        const ktClassifierRule large = rule({new Ignore}, LONG_MAX);
        kt_test::expectThrows<ktArchive::OutOfRange>(
            "Archive value out of range: " + std::to_string(LONG_MAX) + " does not fit 32 bits.",
            [&] { store(large); });
    }
}

TEST(RulesArchive, LoadedTableOfUnequalWidthsIsRefusedWhereItIsMet)
{
    const std::string bytes = kt_test::archiveHeader() + fromHex("00 02 00 00 00") +
                              kt_test::afterHeader(store(rule({new OneSided}, 1))) +
                              kt_test::afterHeader(store(rule({new Ignore, new Ignore}, 2)));
    const auto table = load<ktClassifierRuleTable>(bytes);
    EXPECT_EQ(table.classifyHardThreshold(FeatureVector(std::vector<double>{0.25}), 0.5), 1);
    expectBadParams("MismatchedFeatureVectorSize",
                    [&] { table.classifyHardThreshold(FeatureVector(std::vector<double>{0.75}), 0.5); });
}

// The three classes and the types that hold them, run through what must hold for every archivable type.

struct OneSidedCase : kt_test::ArchivableCase<OneSided> {
    static constexpr const char* name = "ktClassifierFeatureScoreOneSided";
    static std::vector<Layer> layers() { return {}; }
    static std::vector<OneSided> samples()
    {
        return {OneSided(), oneSided(8.0, 4.0, -infinity, 0.25, 0.75), oneSided(2.0, 4.0, 7.0, 0.25, 0.75)};
    }
};

struct TwoSidedCase : kt_test::ArchivableCase<TwoSided> {
    static constexpr const char* name = "ktClassifierFeatureScoreTwoSided";
    static std::vector<Layer> layers() { return {}; }
    static std::vector<TwoSided> samples() { return {TwoSided(), storedTrapezoid()}; }
};

/// A handle that is never null, because a null one cannot be stored.
struct HeldScore : ScoreHandle {
    HeldScore() : ScoreHandle(new Ignore) {}
    HeldScore(ktClsFtSc* score) : ScoreHandle(score) {}
};

struct HandleCase : kt_test::ArchivableCase<HeldScore> {
    static constexpr const char* name = "ktClsFtSc";
    static std::vector<Layer> layers() { return {}; }
    static std::vector<HeldScore> samples()
    {
        return {HeldScore(), new OneSided(oneSided(2.0, 4.0, 7.0, 0.25, 0.75)), new TwoSided(storedTrapezoid())};
    }
    static bool equal(const HeldScore& a, const HeldScore& b) { return *a == *b; }
};

struct FeatureVectorCase : kt_test::ArchivableCase<StoredVector> {
    static constexpr const char* name = "ktClassifierFeatureVector";
    static std::vector<Layer> layers() { return {{}}; }
    static std::vector<StoredVector> samples()
    {
        return {StoredVector(), StoredVector({1.5, -2.0, infinity}), StoredVector({0.25})};
    }
    static bool equal(const StoredVector& a, const StoredVector& b) { return a.featureValues() == b.featureValues(); }
};

std::vector<ktClassifierRule> sampleRules()
{
    return {rule({new OneSided, new Ignore, new TwoSided(storedTrapezoid())}, 7),
            rule({new Ignore, new OneSided(oneSided(2.0, 4.0, 7.0, 0.25, 0.75)), new Ignore}, 2147483647)};
}

struct RuleCase : kt_test::ArchivableCase<ktClassifierRule> {
    static constexpr const char* name = "ktClassifierRule";
    static std::vector<Layer> layers() { return {{}}; }
    static std::vector<ktClassifierRule> samples()
    {
        const std::vector<ktClassifierRule> rules = sampleRules();
        return {ktClassifierRule(), rules[1], rules[0]};
    }
};

struct RuleTableCase : kt_test::ArchivableCase<ktClassifierRuleTable> {
    static constexpr const char* name = "ktClassifierRuleTable";
    static std::vector<Layer> layers() { return {{}}; }
    static std::vector<ktClassifierRuleTable> samples()
    {
        std::vector<ktClassifierRuleTable> tables(3);
        tables[1].train({rule({new Ignore}, 0)});
        tables[2].train(sampleRules());
        return tables;
    }
};

using Values = ::testing::Types<OneSidedCase, TwoSidedCase, HandleCase, FeatureVectorCase, RuleCase, RuleTableCase>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Rules, Archivable, Values, kt_test::CaseNames);
