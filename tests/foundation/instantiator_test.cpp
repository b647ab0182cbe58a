#include "toys.h"

namespace {

using outer::inner::Guest;
using toys::Box;
using toys::registeredNames;

TEST(Instantiator, EntryIsFoundByTypeAndByPlainName)
{
    const kt_Instantiator entry(typeid(Guest), &Guest::make);
    EXPECT_EQ(entry.name(), "outer::inner::Guest");
    EXPECT_EQ(kt_Instantiator::find(typeid(Guest)), &entry);
    EXPECT_EQ(kt_Instantiator::find("outer::inner::Guest"), &entry);
    EXPECT_EQ(kt_Instantiator::find("Guest"), nullptr);
    EXPECT_EQ(kt_Instantiator::find(typeid(Guest).name()), nullptr) << "a compiler's own spelling";
    const std::unique_ptr<ktPersistent> made(entry.make());
    EXPECT_NE(dynamic_cast<Guest*>(made.get()), nullptr);
}

TEST(Instantiator, StaticEntriesOfThisProgramAreRegistered)
{
    const std::multiset<std::string> names = registeredNames();
    for (const char* name : {"toys::Node", "toys::HeavyNode", "toys::Note", "toys::Loose", "toys::Speck"}) {
        EXPECT_EQ(names.count(name), 1u) << name;
    }
    EXPECT_EQ(kt_Instantiator::find(typeid(toys::Stranger)), nullptr);
}

TEST(Instantiator, DestroyedEntryIsNoLongerRegistered)
{
    const std::multiset<std::string> before = registeredNames();
    // Destroyed from the end, the middle and the front of the registry.
    std::optional<kt_Instantiator> first;
    std::optional<kt_Instantiator> second;
    std::optional<kt_Instantiator> third;
    first.emplace(typeid(Guest), &Guest::make, "first");
    second.emplace(typeid(Guest), &Guest::make, "second");
    third.emplace(typeid(Guest), &Guest::make, "third");
    EXPECT_EQ(kt_Instantiator::first(), &*third);
    EXPECT_EQ(kt_Instantiator::first()->next(), &*second);
    second.reset();
    EXPECT_EQ(kt_Instantiator::first()->next(), &*first);
    first.reset();
    third.reset();
    EXPECT_EQ(registeredNames(), before);
    EXPECT_EQ(kt_Instantiator::find(typeid(Guest)), nullptr);
}

TEST(Instantiator, EntryUnderSeveralNewerOnesIsTheOnlyOneThatGoes)
{
    std::optional<kt_Instantiator> first;
    first.emplace(typeid(Guest), &Guest::make, "first");
    const kt_Instantiator second(typeid(Guest), &Guest::make, "second");
    const kt_Instantiator third(typeid(Guest), &Guest::make, "third");
    const kt_Instantiator* beneath = first->next();
    first.reset();
    EXPECT_EQ(kt_Instantiator::first(), &third);
    EXPECT_EQ(third.next(), &second);
    EXPECT_EQ(second.next(), beneath);
}

TEST(Instantiator, NewestOfEqualEntriesIsFound)
{
    const kt_Instantiator older(typeid(Guest), &Guest::make);
    {
        const kt_Instantiator newer(typeid(Guest), &Guest::make);
        EXPECT_EQ(kt_Instantiator::find("outer::inner::Guest"), &newer);
        EXPECT_EQ(kt_Instantiator::find(typeid(Guest)), &newer);
    }
    EXPECT_EQ(kt_Instantiator::find("outer::inner::Guest"), &older);
}

TEST(Instantiator, NameCanBeGiven)
{
    const kt_Instantiator entry(typeid(Box<long>), &Box<long>::make, "Box of long");
    EXPECT_EQ(entry.name(), "Box of long");
    const std::string bytes = kt_test::store(ktPtrHandle<Box<long>>(new Box<long>));
    EXPECT_EQ(kt_test::afterHeader(bytes), kt_test::fromHex("03 0B 00 00 00") + "Box of long");
    EXPECT_FALSE(kt_test::load<ktPtrHandle<Box<long>>>(bytes).isNull());
}

TEST(Instantiator, ClassOfAUsersOwnIsStoredAndRestored)
{
    const kt_Instantiator entry(typeid(Guest), &Guest::make);
    ktPtrHandle<Guest> guest(new Guest);
    guest->number = 8;
    EXPECT_EQ(kt_test::storedAndLoaded(guest)->number, 8);
}

TEST(Instantiator, ClassThatWasUnregisteredIsUnknown)
{
    ktPtrHandle<Guest> guest(new Guest);
    std::string bytes;
    {
        const kt_Instantiator entry(typeid(Guest), &Guest::make);
        bytes = kt_test::store(guest);
    }
    EXPECT_THROW(kt_test::store(guest), ktArchive::Corrupt);
    EXPECT_THROW(kt_test::load<ktPtrHandle<Guest>>(bytes), ktArchive::Corrupt);
}

TEST(Instantiator, FactoryThatGivesNothingEndsInBadPointer)
{
    const kt_Instantiator entry(typeid(Guest), []() -> ktPersistent* { return nullptr; });
    const std::string bytes = kt_test::store(ktPtrHandle<Guest>(new Guest));
    EXPECT_THROW(kt_test::load<ktPtrHandle<Guest>>(bytes), ktBadPointer);
}

}  // namespace
