#include "values_kit.h"

namespace {

using namespace kt_test;
using ktClassifierDefs::BadFeatures;
using ktClassifierDefs::BadIndex;
using ktClassifierDefs::BadLabel;

TEST(DataProvider, IsAbstractAndCopiedOnlyByItsOwn)
{
    EXPECT_TRUE(std::is_abstract_v<ktClassifierDataProvider>);
    EXPECT_FALSE(std::is_copy_assignable_v<ktClassifierDataProvider>);
    EXPECT_TRUE((std::is_base_of_v<ktPersistent, ktClassifierDataProvider>));
    EXPECT_TRUE((std::is_base_of_v<ktRepBase, ktClassifierDataProvider>));
    EXPECT_EQ(kt_Instantiator::find(typeid(ktClassifierDataProvider)), nullptr);
}

TEST(DataProvider, EqualsEverythingUnlessADerivedClassSaysOtherwise)
{
    EXPECT_TRUE(Foreign().isEqual_(Foreign()));
    EXPECT_TRUE(Foreign().isEqual_(Memory()));
}

TEST(DataProvider, AssignmentOfADerivedClassLeavesTheCountAlone)
{
    const ktPtrHandle<Foreign> held(new Foreign);
    const ktPtrHandle<Foreign> second = held;
    *held = Foreign();
    EXPECT_EQ(held->refCount(), 2);
}

TEST(DataProviderMemory, NewOneIsEmpty)
{
    Memory provider;
    EXPECT_EQ(provider.name(), "");
    EXPECT_EQ(provider.description(), "");
    EXPECT_EQ(provider.numPatterns(), 0);
    EXPECT_EQ(provider.numMeasurements(), 0);
    EXPECT_TRUE(provider == Memory());
}

TEST(DataProviderMemory, HoldsWhatItIsGiven)
{
    Memory provider = filled();
    EXPECT_EQ(provider.name(), "nuts");
    EXPECT_EQ(provider.description(), "length, width");
    EXPECT_EQ(provider.numPatterns(), 2);
    EXPECT_EQ(provider.numMeasurements(), 2);
    EXPECT_TRUE(*provider.featurePattern(0) == *pattern({1.0, 2.0}));
    EXPECT_TRUE(*provider.featurePattern(1) == *pattern({4.0, 5.0}, {1}));
    EXPECT_EQ(provider.categoryLabel(0), 3);
    EXPECT_EQ(provider.categoryLabel(1), -1);
}

TEST(DataProviderMemory, NameAndDescriptionAreChangedAloneAndGivenAsCopies)
{
    Memory provider = filled();
    std::string name = provider.name();
    name = "something else";
    provider.setDescription("");
    EXPECT_EQ(provider.name(), "nuts");
    EXPECT_EQ(provider.description(), "");
    EXPECT_EQ(provider.numPatterns(), 2);
}

TEST(DataProviderMemory, SharesItsPatternsWithWhoeverSuppliedThem)
{
    const PatternHandle shared = pattern({1.0});
    Memory provider;
    provider.addData(shared, 0);
    EXPECT_EQ(shared->refCount(), 2);
    const PatternHandle given = provider.featurePattern(0);
    EXPECT_EQ(given, shared);
    EXPECT_EQ(shared->refCount(), 3);
    provider.data({shared, shared}, {0, 1});
    EXPECT_EQ(shared->refCount(), 4);
    provider.data({}, {});
    EXPECT_EQ(shared->refCount(), 2);
}

TEST(DataProviderMemory, CopyAndAssignmentShareThePatterns)
{
    Memory original = filled();
    Memory copy(original);
    EXPECT_EQ(copy.featurePattern(0), original.featurePattern(0));
    EXPECT_EQ(original.featurePattern(1)->refCount(), 3) << "two providers and this handle";
    Memory assigned;
    assigned = original;
    EXPECT_EQ(assigned.featurePattern(1), original.featurePattern(1));
    EXPECT_EQ(original.featurePattern(1)->refCount(), 4);
    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);
    copy.addData(pattern({7.0, 8.0}), 0);
    EXPECT_EQ(original.numPatterns(), 2);
}

TEST(DataProviderMemory, IndexOutOfRangeIsRefused)
{
    struct Row {
        const char* label;
        Memory provider;
        long index;
    };
    const Row rows[] = {
        {"empty", Memory(), 0},        {"empty, negative", Memory(), -1}, {"negative", filled(), -1},
        {"least", filled(), LONG_MIN}, {"one past the end", filled(), 2}, {"greatest", filled(), LONG_MAX},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Memory provider = row.provider;
        expectRefused<BadIndex>([&] { provider.featurePattern(row.index); }, badPatternIndex);
        expectRefused<BadIndex>([&] { static_cast<void>(provider.categoryLabel(row.index)); }, badLabelIndex);
        EXPECT_TRUE(provider == row.provider);
    }
}

TEST(DataProviderMemory, EqualsADerivedClassThatHoldsTheSame)
{
    const OpenedMemory derived(filled());
    EXPECT_TRUE(filled() == derived);
    EXPECT_TRUE(derived == filled());
    EXPECT_FALSE(Memory() == derived);
}

TEST(DataProviderMemory, RangeOfAnIndexIsWhatADerivedClassSays)
{
    OpenedMemory provider(filled());
    provider.claimed = 1;
    EXPECT_EQ(provider.categoryLabel(0), 3);
    expectRefused<BadIndex>([&] { provider.featurePattern(1); }, badPatternIndex);
    expectRefused<BadIndex>([&] { static_cast<void>(provider.categoryLabel(1)); }, badLabelIndex);
    provider.claimed = 100;
    EXPECT_EQ(provider.categoryLabel(1), -1);
    expectRefused<BadIndex>([&] { provider.featurePattern(2); }, badPatternIndex);
    expectRefused<BadIndex>([&] { static_cast<void>(provider.categoryLabel(2)); }, badLabelIndex);
}

TEST(DataProviderMemory, PatternOfAnotherSizeIsRefused)
{
    Memory provider;
    provider.addData(pattern({1.0, 2.0, 3.0}), 5);
    const Memory before(provider);
    expectRefused<BadFeatures>([&] { provider.addData(pattern({1.0, 2.0, 3.0, 4.0}), 5); }, otherSize);
    EXPECT_EQ(provider.numPatterns(), 1);
    EXPECT_TRUE(provider == before);
}

TEST(DataProviderMemory, FirstPatternIsNotCheckedAndSetsTheSize)
{
    Memory provider;
    provider.addData(pattern({}), 1);
    EXPECT_EQ(provider.numMeasurements(), 0);
    expectRefused<BadFeatures>([&] { provider.addData(pattern({1.0}), 1); }, otherSize);
    provider.addData(pattern({}), 2);
    EXPECT_EQ(provider.numPatterns(), 2);

    Memory withNull;
    withNull.addData(nullptr, 4);
    EXPECT_EQ(withNull.numPatterns(), 1);
    EXPECT_TRUE(withNull.featurePattern(0).isNull());
    EXPECT_EQ(withNull.categoryLabel(0), 4);
}

TEST(DataProviderMemory, LabelIsUnknownOrNotNegative)
{
    Memory provider;
    for (const long label : {-1L, 0L, 7L, LONG_MAX}) {
        provider.addData(pattern({1.0}), label);
        EXPECT_EQ(provider.categoryLabel(provider.numPatterns() - 1), label);
    }
    const Memory before(provider);
    for (const long label : {-2L, LONG_MIN}) {
        expectRefused<BadLabel>([&] { provider.addData(pattern({1.0}), label); }, badDataLabel);
        expectRefused<BadLabel>([&] { Memory().addData(pattern({1.0}), label); }, badDataLabel);
    }
    EXPECT_TRUE(provider == before);
}

TEST(DataProviderMemory, AddingChecksThePatternThenItsSizeThenTheLabel)
{
    Memory provider = filled();
    expectBadPointer([&] { provider.addData(nullptr, -2); });
    expectRefused<BadFeatures>([&] { provider.addData(pattern({1.0}), -2); }, otherSize);
    expectRefused<BadLabel>([&] { provider.addData(pattern({1.0, 2.0}), -2); }, badDataLabel);
    EXPECT_TRUE(provider == filled());
    Memory empty;
    expectRefused<BadLabel>([&] { empty.addData(nullptr, -2); }, badDataLabel);
    EXPECT_TRUE(empty == Memory());
}

TEST(DataProviderMemory, MissingPatternIsABadPointer)
{
    Memory provider = filled();
    expectBadPointer([&] { provider.addData(nullptr, 0); });
    EXPECT_TRUE(provider == filled());

    Memory withNull;
    withNull.addData(nullptr, 0);
    expectBadPointer([&] { static_cast<void>(withNull.numMeasurements()); });
    expectBadPointer([&] { withNull.addData(pattern({1.0}), 0); });
    EXPECT_EQ(withNull.numPatterns(), 1);
}

TEST(DataProviderMemory, PatternOfItsOwnCanBeAddedAgain)
{
    Memory provider = filled();
    for (int i = 0; i < 20; ++i) {
        provider.addData(provider.featurePattern(0), i);
    }
    EXPECT_EQ(provider.numPatterns(), 22);
    EXPECT_EQ(provider.featurePattern(21), provider.featurePattern(0));
}

TEST(DataProviderMemory, DataReplacesPatternsAndLabelsAlone)
{
    Memory provider = filled();
    provider.data({pattern({1.0}), pattern({2.0}), pattern({3.0})}, {7, -1, 0});
    EXPECT_EQ(provider.numPatterns(), 3);
    EXPECT_EQ(provider.numMeasurements(), 1);
    EXPECT_EQ(provider.categoryLabel(0), 7);
    EXPECT_EQ(provider.featurePattern(2)->featureMeasurement(0, true), 3.0);
    EXPECT_EQ(provider.name(), "nuts");
    EXPECT_EQ(provider.description(), "length, width");
    provider.data({}, {});
    EXPECT_EQ(provider.numPatterns(), 0);
    EXPECT_EQ(provider.numMeasurements(), 0);
    EXPECT_EQ(provider.name(), "nuts");
}

TEST(DataProviderMemory, DataOfOnePatternIsNotCheckedForNull)
{
    Memory provider = filled();
    provider.data({nullptr}, {4});
    EXPECT_EQ(provider.numPatterns(), 1);
    EXPECT_TRUE(provider.featurePattern(0).isNull());
    EXPECT_EQ(provider.categoryLabel(0), 4);
}

TEST(DataProviderMemory, DataChecksTheCountsThenThePatternsThenTheLabels)
{
    const PatternHandle one = pattern({1.0});
    const PatternHandle two = pattern({1.0, 2.0});
    struct Row {
        const char* label;
        Patterns patterns;
        Labels labels;
        const char* message;
    };
    const Row rows[] = {
        {"a pattern without a label", {one}, {}, otherCount},
        {"a label without a pattern", {}, {1}, otherCount},
        {"counts and all else", {one, nullptr, two}, {-2, -2}, otherCount},
        {"sizes", {one, two}, {1, 2}, differentPatternSizes},
        {"sizes, the last", {one, one, one, two}, {1, 2, 3, 4}, differentPatternSizes},
        {"sizes before null", {one, two, nullptr}, {1, 2, 3}, differentPatternSizes},
        {"sizes before labels", {one, two}, {-2, -2}, differentPatternSizes},
        {"label", {one, one}, {1, -2}, badDataLabel},
        {"label of one pattern", {one}, {-2}, badDataLabel},
        {"label of one null", {nullptr}, {LONG_MIN}, badDataLabel},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Memory provider = filled();
        const auto set = [&] { provider.data(row.patterns, row.labels); };
        row.message == badDataLabel ? expectRefused<BadLabel>(set, row.message)
                                    : expectRefused<BadFeatures>(set, row.message);
        EXPECT_TRUE(provider == filled());
    }
}

TEST(DataProviderMemory, DataWithAMissingPatternIsABadPointer)
{
    const PatternHandle one = pattern({1.0});
    const PatternHandle two = pattern({1.0, 2.0});
    const Patterns rows[] = {{nullptr, one}, {one, nullptr}, {one, nullptr, two}, {nullptr, nullptr}};
    for (const Patterns& patterns : rows) {
        Memory provider = filled();
        expectBadPointer([&] { provider.data(patterns, Labels(patterns.size(), -2)); });
        EXPECT_TRUE(provider == filled());
    }
}

TEST(DataProviderMemory, EqualityLooksAtPatternsNamesAndLabels)
{
    const std::vector<std::function<void(Memory&)>> changes = {
        [](Memory& provider) { provider.setName("other"); },
        [](Memory& provider) { provider.setDescription("other"); },
        [](Memory& provider) {
            provider.addData(pattern({1.0, 2.0}), 3);
        },
        [](Memory& provider) {
            provider.data({pattern({1.0, 2.0}), pattern({4.0, 5.0}, {1})}, {3, 0});
        },
        [](Memory& provider) {
            provider.data({pattern({1.0, 2.5}), pattern({4.0, 5.0}, {1})}, {3, -1});
        },
        [](Memory& provider) {
            provider.data({pattern({1.0, 2.0}), pattern({4.0, 5.0})}, {3, -1});
        },
        [](Memory& provider) {
            provider.data({pattern({1.0, 2.0})}, {3});
        },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        Memory provider = filled();
        EXPECT_TRUE(provider == filled()) << "patterns are compared by value";
        EXPECT_FALSE(provider != filled());
        changes[i](provider);
        EXPECT_FALSE(provider == filled()) << i;
        EXPECT_FALSE(filled() == provider) << i;
        EXPECT_TRUE(provider != filled()) << i;
    }
}

TEST(DataProviderMemory, NeverEqualsAProviderOfAnotherClass)
{
    const OpenedMemory provider(filled());
    EXPECT_TRUE(provider.isEqual_(filled()));
    EXPECT_FALSE(provider.isEqual_(Foreign()));
    EXPECT_FALSE(OpenedMemory().isEqual_(Foreign()));
}

TEST(DataProviderMemory, EqualityMeetsAMissingPatternInTheOrderOfItsSteps)
{
    const auto withNull = [](const Patterns& patterns) {
        return kt_test::load<Memory>(craftedProvider(patterns, Labels(patterns.size(), 1)));
    };
    const PatternHandle one = pattern({1.0});
    const PatternHandle two = pattern({2.0});
    expectBadPointer([&] { static_cast<void>(withNull({nullptr}) == withNull({nullptr})); });
    expectBadPointer([&] { static_cast<void>(withNull({one, nullptr}) == withNull({one, two})); });
    expectBadPointer([&] { static_cast<void>(withNull({one, two}) == withNull({one, nullptr})); });
    EXPECT_FALSE(withNull({nullptr}) == withNull({one, two})) << "the counts come first";
    EXPECT_FALSE(withNull({one, nullptr}) == withNull({two, nullptr})) << "the first difference decides";
}

TEST(DataProviderMemory, IsArchivedAsVersionsNameDescriptionPatternsLabels)
{
    const unsigned char version = 0;
    EXPECT_EQ(
        kt_test::toHex(kt_test::store(filled())),
        kt_test::toHex(kt_test::store(version, version, std::string("nuts"), std::string("length, width"),
                                      Patterns({pattern({1.0, 2.0}), pattern({4.0, 5.0}, {1})}), Labels({3, -1}))));
}

TEST(DataProviderMemory, SerializeArchivesWhatFollowsTheVersionOfItsLayer)
{
    OpenedMemory provider(filled());
    kt_test::StoringArchive archive;
    provider.serialize(archive, 0);
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(archive.bytes())),
              kt_test::toHex(kt_test::store(filled()).substr(8 + 1)));
    const std::size_t size = archive.bytes().size();
    provider.serializeBase(archive, 0);
    EXPECT_EQ(archive.bytes().size(), size) << "the base has no fields";
}

TEST(DataProviderMemory, PatternHeldTwiceIsStoredOnceAndRestoredShared)
{
    const PatternHandle shared = pattern({1.0, 2.0});
    Memory provider;
    provider.data({shared, pattern({3.0, 4.0}), shared}, {0, 1, 2});
    Memory loaded = kt_test::storedAndLoaded(provider);
    EXPECT_EQ(loaded.featurePattern(0), loaded.featurePattern(2));
    EXPECT_NE(loaded.featurePattern(0), loaded.featurePattern(1));
    EXPECT_EQ(loaded.featurePattern(0)->refCount(), 3) << "two places and this handle";
    EXPECT_TRUE(loaded == provider);
}

TEST(DataProviderMemory, PatternsOfTwoProvidersAreRestoredSharedInOnePass)
{
    Memory first = filled();
    Memory second(first);
    std::ostringstream out;
    {
        ktArchive archive(static_cast<std::ostream&>(out));
        const ktArchive::Pass pass(archive);
        archive || first || second;
    }
    std::istringstream in(out.str());
    Memory loadedFirst;
    Memory loadedSecond;
    {
        ktArchive archive(static_cast<std::istream&>(in));
        const ktArchive::Pass pass(archive);
        archive || loadedFirst || loadedSecond;
    }
    EXPECT_TRUE(loadedFirst == first);
    EXPECT_TRUE(loadedSecond == second);
    EXPECT_EQ(loadedFirst.featurePattern(0), loadedSecond.featurePattern(0));
    EXPECT_EQ(loadedFirst.featurePattern(0)->refCount(), 3);
}

TEST(DataProviderMemory, LoadingReplacesTheWholeContentAndFreesTheOldPatterns)
{
    const PatternHandle old = pattern({9.0});
    Memory provider;
    provider.addData(old, 1);
    kt_test::loadInto(provider, kt_test::store(filled()));
    EXPECT_TRUE(provider == filled());
    EXPECT_EQ(old->refCount(), 1);
}

TEST(DataProviderMemory, LoadingDoesNotValidate)
{
    auto provider =
        kt_test::load<Memory>(craftedProvider({pattern({1.0}), nullptr, pattern({1.0, 2.0})}, {-7, -2147483647L, 3}));
    EXPECT_EQ(provider.numPatterns(), 3);
    EXPECT_EQ(provider.numMeasurements(), 1);
    EXPECT_TRUE(provider.featurePattern(1).isNull());
    EXPECT_EQ(provider.featurePattern(2)->numMeasurements(), 2);
    EXPECT_EQ(provider.categoryLabel(0), -7);
}

TEST(DataProviderMemory, LoadedWithTooFewLabelsRefusesTheMissingOnes)
{
    auto provider = kt_test::load<Memory>(craftedProvider({pattern({1.0}), pattern({2.0})}, {5}));
    EXPECT_EQ(provider.numPatterns(), 2);
    EXPECT_EQ(provider.categoryLabel(0), 5);
    EXPECT_EQ(provider.featurePattern(1)->featureMeasurement(0, true), 2.0);
    expectRefused<BadIndex>([&] { static_cast<void>(provider.categoryLabel(1)); }, badLabelIndex);
    EXPECT_TRUE(provider == kt_test::storedAndLoaded(provider));
    provider.addData(pattern({3.0}), 6);
    EXPECT_EQ(provider.numPatterns(), 3);
    expectRefused<BadIndex>([&] { static_cast<void>(provider.categoryLabel(2)); }, badLabelIndex);
    provider.data({pattern({1.0})}, {1});
    EXPECT_EQ(provider.categoryLabel(0), 1);
}

TEST(DataProviderMemory, LoadedWithTooManyLabelsCountsThePatterns)
{
    auto provider = kt_test::load<Memory>(craftedProvider({pattern({1.0})}, {5, 6, 7}));
    EXPECT_EQ(provider.numPatterns(), 1);
    expectRefused<BadIndex>([&] { static_cast<void>(provider.categoryLabel(1)); }, badLabelIndex);
    EXPECT_TRUE(provider == kt_test::storedAndLoaded(provider));
    EXPECT_FALSE(provider == kt_test::load<Memory>(craftedProvider({pattern({1.0})}, {5})))
        << "the labels are compared as stored";
    provider.addData(pattern({3.0}), 8);
    EXPECT_EQ(provider.numPatterns(), 2);
}

TEST(DataProviderMemory, PointerRecordOfAnotherClassLeavesAMissingPattern)
{
    std::ostringstream out;
    {
        ktArchive archive(static_cast<std::ostream&>(out));
        const ktArchive::Pass pass(archive);
        unsigned char version = 0;
        std::string text;
        unsigned long count = 2;
        archive || version || version || text || text || version || count;
        ktPersistent* unused = nullptr;
        const ktPtrHandle<Memory> other(new Memory);
        ktClassifierDefs::BadParams error("text");
        ktPersistent::serializePointer(archive, other.get(), unused);
        ktPersistent::serializePointer(archive, &error, unused);
        Labels labels = {1, 2};
        archive || labels;
    }
    const std::string bytes = out.str();
    const kt_test::MemoryWatch watch;
    {
        auto provider = kt_test::load<Memory>(bytes);
        EXPECT_EQ(provider.numPatterns(), 2);
        EXPECT_TRUE(provider.featurePattern(0).isNull());
        EXPECT_TRUE(provider.featurePattern(1).isNull());
        EXPECT_EQ(provider.categoryLabel(1), 2);
    }
    EXPECT_EQ(watch.liveBlocks(), 0) << "the records of other classes are freed";
}

}  // namespace
