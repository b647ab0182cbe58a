#include "types_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;

constexpr long leastLong = std::numeric_limits<long>::min();

TEST(DistributionTypes, NewOnesAreNormalWithoutOverridesAndSets)
{
    const TypeFields fields = fieldsOf(Types());
    EXPECT_EQ(Types().defaultDistributionType(), Types::eNormal);
    EXPECT_EQ(fields.defaultType, 0u);
    EXPECT_TRUE(fields.overrideLabels.empty() && fields.overrideIndices.empty() && fields.overrideTypes.empty());
    EXPECT_TRUE(fields.dependentLabels.empty() && fields.dependentSets.empty());
}

TEST(DistributionTypes, TypesHaveTheirNumbers)
{
    EXPECT_EQ(static_cast<unsigned long>(Types::eNormal), 0u);
    EXPECT_EQ(static_cast<unsigned long>(Types::eBinomial), 1u);
    EXPECT_EQ(static_cast<unsigned long>(Types::ePoisson), 2u);
    EXPECT_EQ(static_cast<unsigned long>(Types::eUniform), 3u);
    EXPECT_EQ(sizeof(Types::DistributionType), 4u);
}

TEST(DistributionTypes, TakeAnyTypeAsTheDefault)
{
    for (const auto type : {Types::eNormal, Types::eBinomial, Types::ePoisson, Types::eUniform}) {
        Types constructed(type);
        EXPECT_EQ(constructed.defaultDistributionType(), type);
        EXPECT_EQ(constructed.distributionType(0, 0), type);
        Types set;
        set.defaultDistributionType(type);
        EXPECT_TRUE(set == constructed);
    }
}

TEST(DistributionTypes, AnotherDefaultLeavesOverridesAndSetsAlone)
{
    Types types = typesWithSets();
    types.defaultDistributionType(Types::eUniform);
    EXPECT_EQ(types.distributionType(3, 0), Types::eBinomial);
    EXPECT_EQ(types.distributionType(9, 9), Types::eUniform);
    EXPECT_TRUE(types.isDependent(3, {1, 2}));
    types.defaultDistributionType(Types::eNormal);
    EXPECT_TRUE(types == typesWithSets());
}

TEST(DistributionTypes, OverrideHoldsForItsPairAlone)
{
    Types types;
    types.distributionTypeOverride(3, 5, Types::eBinomial);
    EXPECT_EQ(types.distributionType(3, 5), Types::eBinomial);
    EXPECT_EQ(types.distributionType(3, 4), Types::eNormal);
    EXPECT_EQ(types.distributionType(5, 3), Types::eNormal);
    EXPECT_EQ(types.distributionType(4, 5), Types::eNormal);
}

TEST(DistributionTypes, SecondOverrideOfAPairReplacesTheFirst)
{
    Types types = typesWithSets();
    types.distributionTypeOverride(3, 0, Types::eUniform);
    const TypeFields fields = fieldsOf(types);
    EXPECT_EQ(fields.overrideLabels, Indices({3, 4}));
    EXPECT_EQ(fields.overrideIndices, Indices({0, 1}));
    EXPECT_EQ(fields.overrideTypes, std::vector<unsigned long>({3, 2}));
}

TEST(DistributionTypes, OverrideToTheDefaultReturnsBeforeAnyCheck)
{
    struct Row {
        const char* label;
        long category;
        long index;
    };
    const Row rows[] = {{"negative label", -5, 0}, {"negative index", 0, -1}, {"both", leastLong, leastLong},
                        {"member of a set", 3, 1}, {"overridden", 3, 0},      {"neither", 8, 8}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Types types = typesWithSets();
        EXPECT_NO_THROW(types.distributionTypeOverride(row.category, row.index, types.defaultDistributionType()));
        EXPECT_TRUE(types == typesWithSets());
    }
}

TEST(DistributionTypes, OverrideToTheDefaultLeavesAnEarlierOverrideInForce)
{
    Types types;
    types.distributionTypeOverride(0, 0, Types::eBinomial);
    types.distributionTypeOverride(0, 0, Types::eNormal);
    EXPECT_EQ(types.distributionType(0, 0), Types::eBinomial);
}

TEST(DistributionTypes, TheDefaultOfTheMomentDecidesWhetherAnOverrideIsNoted)
{
    Types types(Types::eBinomial);
    types.distributionTypeOverride(0, 0, Types::eBinomial);
    types.defaultDistributionType(Types::eNormal);
    EXPECT_EQ(types.distributionType(0, 0), Types::eNormal);
}

TEST(DistributionTypes, MemberOfASetCannotBeOverridden)
{
    for (const long index : {1L, 2L, 6L, 7L}) {
        SCOPED_TRACE(index);
        expectRefused<ktClassifierDefs::BadParams>(
            inASet, typesWithSets(), [&](Types& types) { types.distributionTypeOverride(3, index, Types::eBinomial); });
    }
}

TEST(DistributionTypes, SetsOfAnotherLabelDoNotHinderAnOverride)
{
    Types types = typesWithSets();
    types.distributionTypeOverride(4, 1, Types::eBinomial);
    types.distributionTypeOverride(3, 5, Types::eBinomial);
    EXPECT_EQ(types.distributionType(4, 1), Types::eBinomial);
    EXPECT_EQ(types.distributionType(3, 5), Types::eBinomial);
}

TEST(DistributionTypes, SetsAreLookedThroughBeforeLabelAndIndexAreChecked)
{
    TypeFields fields;
    fields.dependentLabels = {-1, 2};
    fields.dependentSets = {{-3}, {-4}};
    const Types types = typesWith(fields);
    const auto overrideOf = [](long label, long index) {
        return [=](Types& t) { t.distributionTypeOverride(label, index, Types::eBinomial); };
    };
    expectRefused<ktClassifierDefs::BadParams>(inASet, types, overrideOf(-1, -3));
    expectRefused<ktClassifierDefs::BadParams>(inASet, types, overrideOf(2, -4));
    expectRefused<ktClassifierDefs::BadLabel>(misspeltNegativeLabel, types, overrideOf(-1, -4));
    expectRefused<ktClassifierDefs::BadIndex>(negativeIndex, types, overrideOf(2, -3));
}

TEST(DistributionTypes, EveryOperationRefusesANegativeLabelBeforeANegativeIndex)
{
    struct Row {
        const char* label;
        void (*operation)(Types&, long label, long index);
    };
    const Row rows[] = {
        {"distributionType",
         [](Types& t, long label, long index) { static_cast<void>(t.distributionType(label, index)); }},
        {"distributionTypeOverride",
         [](Types& t, long label, long index) { t.distributionTypeOverride(label, index, Types::eBinomial); }},
        {"setDependent",
         [](Types& t, long label, long index) {
             t.setDependent(label, {1, index});
         }},
        {"isDependent",
         [](Types& t, long label, long index) {
             static_cast<void>(t.isDependent(label, {1, index}));
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        for (const long negative : {-1L, -7L, leastLong}) {
            const auto with = [&](long label, long index) {
                return [=](Types& types) { row.operation(types, label, index); };
            };
            expectRefused<ktClassifierDefs::BadLabel>(misspeltNegativeLabel, typesWithSets(), with(negative, 0));
            expectRefused<ktClassifierDefs::BadLabel>(misspeltNegativeLabel, typesWithSets(), with(negative, negative));
            expectRefused<ktClassifierDefs::BadIndex>(negativeIndex, typesWithSets(), with(0, negative));
        }
    }
}

TEST(DistributionTypes, NegativeLabelIsRefusedForAnEmptyListToo)
{
    expectRefused<ktClassifierDefs::BadLabel>(misspeltNegativeLabel, typesWithSets(),
                                              [](Types& t) { t.setDependent(-1, {}); });
    expectRefused<ktClassifierDefs::BadLabel>(misspeltNegativeLabel, typesWithSets(),
                                              [](Types& t) { static_cast<void>(t.isDependent(-1, {})); });
}

TEST(DistributionTypes, EmptyListJoinsNothing)
{
    Types types = typesWithSets();
    types.setDependent(3, {});
    EXPECT_TRUE(types == typesWithSets());
}

TEST(DistributionTypes, IsDependentSaysWhetherAllAreInOneSet)
{
    Types types = typesWithSets();
    types.setDependent(2, {4, 4, 7});
    struct Row {
        const char* label;
        long category;
        Indices indices;
        bool dependent;
    };
    const Row rows[] = {
        {"a whole set, another order", 2, {7, 4}, true},
        {"a part of a set", 3, {2}, true},
        {"one index twice", 3, {2, 2}, true},
        {"another label", 3, {4}, false},
        {"no index", 2, {}, false},
        {"members of two sets", 3, {1, 6}, false},
        {"a member and a stranger", 3, {1, 0}, false},
        {"a stranger and a member", 3, {0, 1}, false},
        {"a stranger alone", 3, {0}, false},
        {"a label without sets", 0, {1}, false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(types.isDependent(row.category, row.indices), row.dependent) << row.label;
    }
}

TEST(DistributionTypes, IsDependentAsksTheFirstSetWithTheFirstIndex)
{
    TypeFields fields;
    fields.dependentLabels = {0, 0};
    fields.dependentSets = {{1, 2}, {1, 3}};
    const Types types = typesWith(fields);
    EXPECT_TRUE(types.isDependent(0, {1, 2}));
    EXPECT_FALSE(types.isDependent(0, {1, 3}));
    EXPECT_TRUE(types.isDependent(0, {3, 1}));
}

TEST(DistributionTypes, NewSetKeepsTheFirstOccurrenceOfEachIndex)
{
    Types types;
    types.setDependent(2, {7, 4, 7, 4, 9});
    EXPECT_EQ(fieldsOf(types).dependentSets, Sets({{7, 4, 9}}));
    EXPECT_EQ(fieldsOf(types).dependentLabels, Indices({2}));
}

TEST(DistributionTypes, SingleMeasurementMayBeASet)
{
    Types types;
    types.setDependent(2, {7});
    EXPECT_TRUE(types.isDependent(2, {7}));
    EXPECT_EQ(fieldsOf(types).dependentSets, Sets({{7}}));
}

TEST(DistributionTypes, SetsThatAreTouchedMergeAtThePlaceOfTheFirst)
{
    struct Row {
        const char* label;
        Sets before;
        Indices listed;
        Sets after;
    };
    const Row rows[] = {
        {"two of three", {{1, 2}, {9}, {5, 6}}, {2, 7, 5}, {{1, 2, 7, 5, 6}, {9}}},
        {"none", {{1, 2}, {9}}, {4, 3}, {{1, 2}, {9}, {4, 3}}},
        {"one, nothing new", {{1, 2}, {9}}, {2}, {{1, 2}, {9}}},
        {"one, which grows", {{1, 2}, {9}}, {8, 2, 7}, {{1, 2, 8, 7}, {9}}},
        {"all of them, the listed order reversed", {{1, 2}, {9}, {5, 6}}, {6, 9, 1}, {{1, 2, 9, 5, 6}}},
        {"the last two", {{1, 2}, {9, 8}, {5, 6}}, {5, 0, 8}, {{1, 2}, {9, 8, 0, 5, 6}}},
        {"a repeated index", {{1, 2}, {3}}, {3, 3, 4, 4, 1, 1}, {{1, 2, 4, 3}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Types types;
        for (const Indices& set : row.before) {
            types.setDependent(0, set);
        }
        types.setDependent(0, row.listed);
        EXPECT_EQ(fieldsOf(types).dependentSets, row.after);
        EXPECT_EQ(fieldsOf(types).dependentLabels, Indices(row.after.size(), 0));
    }
}

TEST(DistributionTypes, SetsOfOtherLabelsAreNeverTouched)
{
    Types types;
    types.setDependent(1, {5, 6});
    types.setDependent(0, {1, 2});
    types.setDependent(1, {1, 2});
    types.setDependent(0, {5});
    types.setDependent(0, {2, 5});
    EXPECT_EQ(fieldsOf(types).dependentLabels, Indices({1, 0, 1}));
    EXPECT_EQ(fieldsOf(types).dependentSets, Sets({{5, 6}, {1, 2, 5}, {1, 2}}));
}

TEST(DistributionTypes, ListedMeasurementsMustBeOfOneType)
{
    struct Row {
        const char* label;
        Indices listed;
    };
    const Row rows[] = {{"override, then default", {0, 1}},
                        {"default, then override", {1, 0}},
                        {"the last differs", {5, 8, 9, 0}},
                        {"a member of a set and an overridden one", {2, 0}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        expectRefused<ktClassifierDefs::BadParams>(
            "The distribution types of dependent feature measurements must be the same.", typesWithSets(),
            [&](Types& types) { types.setDependent(3, row.listed); });
    }
}

TEST(DistributionTypes, IndicesAreCheckedBeforeTheirTypes)
{
    expectRefused<ktClassifierDefs::BadIndex>(negativeIndex, typesWithSets(), [](Types& types) {
        types.setDependent(3, {0, 1, -1});
    });
}

TEST(DistributionTypes, OverriddenMeasurementsOfOneTypeCanBeJoined)
{
    Types types;
    types.distributionTypeOverride(0, 3, Types::eBinomial);
    types.distributionTypeOverride(0, 4, Types::eBinomial);
    types.setDependent(0, {3, 4});
    EXPECT_TRUE(types.isDependent(0, {3, 4}));
    types.setDependent(1, {3, 5});
    EXPECT_TRUE(types.isDependent(1, {3, 5})) << "the override is of another label";
}

TEST(DistributionTypes, MergeOnRandomInputAsAPlainModelOfSets)
{
    using Partition = std::set<std::set<long>>;
    constexpr unsigned long seed = 20011;
    ktRandomUniform random(seed);
    const auto below = [&](double limit) { return static_cast<long>(random.next(0.0, limit)); };
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed << ", round " << round);
        Types types;
        std::vector<Partition> model(3);
        for (int step = 0; step < 12; ++step) {
            Indices listed;
            for (long n = 1 + below(4.0); n > 0; --n) {
                listed.push_back(below(14.0));
            }
            const long label = below(3.0);
            types.setDependent(label, listed);
            std::set<long> merged(listed.begin(), listed.end());
            Partition& sets = model[static_cast<std::size_t>(label)];
            for (auto set = sets.begin(); set != sets.end();) {
                const bool touched =
                    std::any_of(listed.begin(), listed.end(), [&](long i) { return set->count(i) != 0; });
                merged.insert(touched ? set->begin() : set->end(), set->end());
                set = touched ? sets.erase(set) : std::next(set);
            }
            sets.insert(merged);
        }
        std::vector<Partition> found(3);
        const TypeFields fields = fieldsOf(types);
        ASSERT_EQ(fields.dependentLabels.size(), fields.dependentSets.size());
        for (std::size_t i = 0; i < fields.dependentSets.size(); ++i) {
            const std::set<long> members(fields.dependentSets[i].begin(), fields.dependentSets[i].end());
            EXPECT_EQ(members.size(), fields.dependentSets[i].size()) << "an index twice in a set";
            found.at(static_cast<std::size_t>(fields.dependentLabels[i])).insert(members);
        }
        EXPECT_EQ(found, model);
    }
}

TEST(DistributionTypes, ClearingEmptiesOverridesAndSetsAndKeepsTheDefault)
{
    Types types = typesWithSets();
    types.defaultDistributionType(Types::eUniform);
    types.clearDistributionOverrides();
    EXPECT_TRUE(types == Types(Types::eUniform));
    EXPECT_FALSE(types.isDependent(3, {1}));
    EXPECT_EQ(types.distributionType(3, 0), Types::eUniform);
}

TEST(DistributionTypes, AreEqualFieldByFieldInOrder)
{
    struct Row {
        const char* label;
        void (*change)(TypeFields&);
    };
    const Row rows[] = {
        {"default", [](TypeFields& f) { f.defaultType = 1; }},
        {"override label", [](TypeFields& f) { f.overrideLabels[0] = 8; }},
        {"override index", [](TypeFields& f) { f.overrideIndices[0] = 8; }},
        {"override type", [](TypeFields& f) { f.overrideTypes[0] = 3; }},
        {"dependent label", [](TypeFields& f) { f.dependentLabels[0] = 8; }},
        {"member of a set", [](TypeFields& f) { f.dependentSets[0][0] = 8; }},
        {"order in a set", [](TypeFields& f) { std::swap(f.dependentSets[0][0], f.dependentSets[0][1]); }},
        {"one set less", [](TypeFields& f) { f.dependentSets.pop_back(), f.dependentLabels.pop_back(); }},
    };
    EXPECT_TRUE(typesWithSets() == typesWithSets());
    EXPECT_FALSE(typesWithSets() != typesWithSets());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        TypeFields fields = fieldsOf(typesWithSets());
        row.change(fields);
        const Types other = typesWith(fields);
        EXPECT_FALSE(other == typesWithSets());
        EXPECT_FALSE(typesWithSets() == other);
        EXPECT_TRUE(typesWithSets() != other);
    }
}

TEST(DistributionTypes, SameSetsInAnotherOrderAreUnequal)
{
    Types one;
    one.setDependent(0, {1, 2});
    one.setDependent(0, {3, 4});
    Types other;
    other.setDependent(0, {3, 4});
    other.setDependent(0, {1, 2});
    EXPECT_TRUE(one != other);
}

TEST(DistributionTypes, AreStoredAsTheirVersionDefaultOverridesAndSets)
{
    Types types = typesWithSets();
    types.defaultDistributionType(Types::eUniform);
    const TypeFields fields = fieldsOf(types);
    EXPECT_EQ(fields.version, 0);
    EXPECT_EQ(fields.defaultType, 3u);
    EXPECT_EQ(fields.overrideLabels, Indices({3, 4}));
    EXPECT_EQ(fields.overrideIndices, Indices({0, 1}));
    EXPECT_EQ(fields.overrideTypes, std::vector<unsigned long>({1, 2}));
    EXPECT_EQ(fields.dependentLabels, Indices({3, 4, 3}));
    EXPECT_EQ(fields.dependentSets, Sets({{1, 2}, {2, 5}, {6, 7}}));
}

TEST(DistributionTypes, TypeIsStoredAs32BitsAndLoadedWhateverItIs)
{
    for (const unsigned long number : {0uL, 1uL, 4uL, 0x80000000uL, 0xFFFFFFFFuL}) {
        const auto type = static_cast<Types::DistributionType>(number);
        const std::string bytes = kt_test::store(type);
        EXPECT_EQ(kt_test::afterHeader(bytes), kt_test::littleEndian32(number));
        EXPECT_EQ(kt_test::load<Types::DistributionType>(bytes), type);
        EXPECT_EQ(kt_test::storedAndLoaded(Types(type)).defaultDistributionType(), type);
    }
}

TEST(DistributionTypes, SequencesOfDifferentLengthsAreSafe)
{
    TypeFields fields;
    fields.overrideLabels = {0, 0, 0};
    fields.overrideIndices = {4, 5};
    fields.overrideTypes = {1};
    fields.dependentLabels = {0, 0};
    fields.dependentSets = {{1, 2}};
    Types types = typesWith(fields);
    EXPECT_EQ(types.distributionType(0, 4), Types::eBinomial);
    EXPECT_EQ(types.distributionType(0, 5), Types::eNormal);
    EXPECT_TRUE(types.isDependent(0, {2}));
    types.setDependent(0, {2, 3});
    EXPECT_TRUE(types.isDependent(0, {1, 2, 3}));
    types.distributionTypeOverride(0, 4, Types::ePoisson);
    EXPECT_EQ(types.distributionType(0, 4), Types::ePoisson);
    types.distributionTypeOverride(0, 9, Types::ePoisson);
    EXPECT_TRUE(kt_test::storedAndLoaded(types) == types);
    types.clearDistributionOverrides();
    EXPECT_TRUE(types == Types());
}

}  // namespace
