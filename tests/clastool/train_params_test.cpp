#include "support/technique.h"
#include "support/test.h"

namespace {

using namespace kt_test;

TEST(TrainParams, ThrowIfNotReadyUnlessToldOtherwise)
{
    PlainParams params;
    EXPECT_TRUE(params.throwIfNotReady());
    params.throwIfNotReady(false);
    EXPECT_FALSE(params.throwIfNotReady());
    params.throwIfNotReady(true);
    EXPECT_TRUE(params.throwIfNotReady());
}

// Kept on purpose: what a copy carries is for the derived class to settle.
TEST(TrainParams, CopyOfTheBaseStartsWithTheFlagSet)
{
    PlainParams params;
    params.throwIfNotReady(false);
    EXPECT_TRUE(PlainParams(params).throwIfNotReady());
    EXPECT_TRUE(params.clone()->throwIfNotReady());
}

// Kept on purpose: see above.
TEST(TrainParams, AssignmentOfTheBaseAssignsNothing)
{
    PlainParams with;
    PlainParams without;
    without.throwIfNotReady(false);
    with = without;
    EXPECT_TRUE(with.throwIfNotReady());
    without = PlainParams();
    EXPECT_FALSE(without.throwIfNotReady());
}

TEST(TrainParams, DerivedClassThatCarriesTheFlagGivesItToItsClone)
{
    kt_test::Script script;
    kt_test::TechniqueParams params(script, 1);
    params.throwIfNotReady(false);
    EXPECT_FALSE(params.clone()->throwIfNotReady());
}

TEST(TrainParams, AreEqualToAllOthersUnlessADerivedClassSaysOtherwise)
{
    kt_test::Script script;
    EXPECT_TRUE(PlainParams().isEqual_(PlainParams()));
    EXPECT_TRUE(PlainParams().isEqual_(kt_test::TechniqueParams(script, 1)));
}

TEST(TrainParams, ComparisonAsksTheFirstOnes)
{
    kt_test::Script script;
    const kt_test::TechniqueParams one(script, 1);
    const kt_test::TechniqueParams two(script, 2);
    EXPECT_TRUE(one == kt_test::TechniqueParams(script, 1));
    EXPECT_FALSE(one != kt_test::TechniqueParams(script, 1));
    EXPECT_FALSE(one == two);
    EXPECT_TRUE(one != two);
    EXPECT_TRUE(PlainParams() == one);
    EXPECT_FALSE(PlainParams() != one);
}

TEST(TrainParams, HaveOnePersistentPartAndOneCountWhateverElseTheyDeriveFrom)
{
    struct Other : virtual ktPersistent, virtual ktRepBase {};
    struct Both : PlainParams, Other {};
    Both both;
    ktPersistent* const throughParams = static_cast<ktClassifierTrainParams*>(&both);
    ktPersistent* const throughOther = static_cast<Other*>(&both);
    EXPECT_EQ(throughParams, throughOther);
    EXPECT_EQ(static_cast<const ktRepBase&>(both).refCount(), 0);
}

TEST(TrainParams, CannotBeCopiedThroughTheirBase)
{
    EXPECT_TRUE(std::is_abstract_v<ktClassifierTrainParams>);
    EXPECT_FALSE(std::is_copy_assignable_v<ktClassifierTrainParams>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ktClassifierTrainParams>);
}

TEST(TrainParams, AreStoredAsTheirVersionAlone)
{
    PlainParams params;
    EXPECT_EQ(kt_test::toHex(kt_test::store(params)), kt_test::toHex(kt_test::archiveHeader() + std::string(1, '\0')));
    params.throwIfNotReady(false);
    EXPECT_EQ(kt_test::toHex(kt_test::store(params)), kt_test::toHex(kt_test::archiveHeader() + std::string(1, '\0')));
}

TEST(TrainParams, KeepTheirFlagWhenTheyAreLoaded)
{
    PlainParams with;
    PlainParams without;
    without.throwIfNotReady(false);
    EXPECT_TRUE(kt_test::storedAndLoaded(without).throwIfNotReady());
    kt_test::loadInto(without, kt_test::store(with));
    EXPECT_FALSE(without.throwIfNotReady());
    kt_test::loadInto(with, kt_test::store(without));
    EXPECT_TRUE(with.throwIfNotReady());
}

TEST(TrainParams, AreStoredOnceAPass)
{
    PlainParams params;
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        archive || params || params;
    }
    EXPECT_EQ(archive.bytes(), kt_test::store(params));
}

TEST(TrainParams, RefuseAnyOtherVersion)
{
    PlainParams params;
    params.throwIfNotReady(false);
    for (const char version : {'\x01', '\x7F', '\xFF'}) {
        expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive.",
                                                [&] { kt_test::loadInto(params, kt_test::archiveHeader() + version); });
        kt_test::StoringArchive archive;
        expectThrows<ktArchive::UnknownVersion>(
            "Unknown version in an archive.", [&] { params.serialize_(archive, static_cast<unsigned char>(version)); });
        EXPECT_EQ(archive.bytes(), "");
    }
    EXPECT_FALSE(params.throwIfNotReady());
}

}  // namespace
