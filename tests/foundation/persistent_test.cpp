#include "toys.h"

namespace {

using namespace kt_test;
using namespace toys;

TEST(Persistent, BaseHasNothingToArchive)
{
    Probe probe;
    kt_test::StoringArchive archive;
    archive || probe;
    EXPECT_EQ(archive.bytes(), "");
    probe.reInit();
    EXPECT_FALSE(probe.loadSimple(archive));
}

TEST(Persistent, NothingIsVisitedOutsideAPass)
{
    const Probe probe;
    Probe::setVisited(&probe, sizeof probe);
    EXPECT_FALSE(Probe::haveVisited(&probe, sizeof probe));
}

TEST(Persistent, MarksAreOfAnObjectAndAnExtentAndEndWithThePass)
{
    kt_test::StoringArchive archive;
    const Probe probes[2];
    {
        const ktArchive::Pass pass(archive);
        Probe::setVisited(&probes[0], 16);
        Probe::setVisited(&probes[0], 16);
        EXPECT_TRUE(Probe::haveVisited(&probes[0], 16));
        EXPECT_FALSE(Probe::haveVisited(&probes[0], 24));
        EXPECT_FALSE(Probe::haveVisited(&probes[1], 16));
    }
    EXPECT_FALSE(Probe::haveVisited(&probes[0], 16));
    const ktArchive::Pass pass(archive);
    EXPECT_FALSE(Probe::haveVisited(&probes[0], 16));
}

TEST(Persistent, LayerOfAnyExtentIsMarkedOnce)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    for (const std::size_t extent : {0ul, 1ul, 0x1FFFul, 0x2000ul, 10000ul, 0x4000ul, 1ul << 29}) {
        SCOPED_TRACE(extent);
        const Probe probe;
        Probe::setVisited(&probe, extent);
        Probe::setVisited(&probe, extent);
        EXPECT_TRUE(Probe::haveVisited(&probe, extent));
        EXPECT_FALSE(Probe::haveVisited(&probe, extent + 1));
    }
}

/// Its own address is not that of its virtual base.
class Floating : public virtual ktPersistent {
public:
    using ktPersistent::haveVisited;
    using ktPersistent::setVisited;
};

TEST(Persistent, MarksAreOfAnAddressToo)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    const Floating floating;
    const ktPersistent* base = &floating;
    Floating::setVisited(base, 16);
    EXPECT_TRUE(Floating::haveVisited(base, 16));
    EXPECT_FALSE(Floating::haveVisited(&floating, 16));
}

TEST(Persistent, PassesOfTwoArchivesMayEndInAnyOrder)
{
    std::ostringstream out;
    ktArchive first(static_cast<std::ostream&>(out));
    ktArchive second(static_cast<std::ostream&>(out));
    auto firstPass = std::make_unique<ktArchive::Pass>(first);
    auto secondPass = std::make_unique<ktArchive::Pass>(second);
    firstPass.reset();
    secondPass.reset();
    const Probe probe;
    Probe::setVisited(&probe, sizeof probe);
    EXPECT_FALSE(Probe::haveVisited(&probe, sizeof probe)) << "no pass is open";
}

TEST(Persistent, InnerPassOfAnArchiveMayOutliveTheOuterOne)
{
    kt_test::StoringArchive archive;
    auto outer = std::make_unique<ktArchive::Pass>(archive);
    auto inner = std::make_unique<ktArchive::Pass>(archive);
    outer.reset();
    inner.reset();
    const Probe probe;
    Probe::setVisited(&probe, sizeof probe);
    EXPECT_FALSE(Probe::haveVisited(&probe, sizeof probe)) << "no pass is open";
}

TEST(Persistent, CopyIsAnObjectThatNoPassHasVisited)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    const Probe probe;
    Probe::setVisited(&probe, sizeof probe);
    const Probe copy(probe);
    Probe assigned;
    assigned = probe;
    EXPECT_FALSE(Probe::haveVisited(&copy, sizeof copy));
    EXPECT_FALSE(Probe::haveVisited(&assigned, sizeof assigned));
}

TEST(Persistent, VisitedObjectThatDiesIsForgotten)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    alignas(Probe) unsigned char place[sizeof(Probe)];
    const auto* probe = new (place) Probe;
    Probe::setVisited(probe, sizeof *probe);
    probe->~Probe();
    const auto* next = new (place) Probe;
    EXPECT_FALSE(Probe::haveVisited(next, sizeof *next));
    next->~Probe();
}

TEST(Persistent, ObjectInPlaceThatDiesWhileItsPassLoadsIsForgotten)
{
    std::istringstream in(archiveHeader() + fromHex("00 00 00 00"));
    ktArchive archive(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(archive);
    alignas(Derived) unsigned char place[sizeof(Derived)];
    for (int i = 0; i < 2; ++i) {
        auto* derived = new (place) Derived;
        archive || *derived;
        EXPECT_EQ(in.tellg(), i == 0 ? 10 : 12) << "the second one is loaded too";
        derived->~Derived();
    }
}

TEST(Persistent, ObjectMarkedByHandIsStoredByPointer)
{
    const kt_Instantiator entry(
        typeid(Probe), [] { return static_cast<ktPersistent*>(new Probe); }, "Probe");
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    Probe probe;
    Probe::setVisited(&probe, sizeof probe);
    ktPersistent* result = nullptr;
    ktPersistent::serializePointer(archive, &probe, result);
    EXPECT_EQ(toHex(afterHeader(archive.bytes())), "03 05 00 00 00 50 72 6F 62 65");
}

TEST(Persistent, LayersOfOneExtentAreEachArchived)
{
    Derived derived;
    EXPECT_EQ(hexOf(derived), "00 00");
    kt_test::expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive: Derived.", [&] {
        kt_test::loadInto(derived, archiveHeader() + fromHex("01 00"));
    });
    kt_test::expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive: Base.", [&] {
        kt_test::loadInto(derived, archiveHeader() + fromHex("00 01"));
    });
}

TEST(Persistent, ClassWithVirtualBasesIsArchivedInPlaceWithoutItsName)
{
    toys::HeavyNode heavy(1.0);
    heavy.number = 4;
    heavy.children = {toys::chain(1)};
    const std::string bytes = store(heavy);
    EXPECT_EQ(toHex(afterHeader(bytes)),
              "00 00 04 00 00 00 00 01 00 00 00 03 0A 00 00 00 74 6F 79 73 3A 3A 4E 6F 64 65 "
              "00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 F0 3F");
    const auto loaded = kt_test::load<toys::HeavyNode>(bytes);
    EXPECT_EQ(loaded.number, 4);
    EXPECT_EQ(loaded.weight, 1.0);
    EXPECT_EQ(loaded.children.at(0)->number, 1);
}

#if defined(__GNUG__) && (defined(__x86_64__) || defined(__i386__))
/// The place of a virtual operation in its class's table; the two destructors take places 0 and 1.
template <class Operation>
long slotOf(Operation operation)
{
    std::ptrdiff_t offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    return static_cast<long>((offset - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

class ErrorProbe : public ktExceptionWithString {
public:
    using ktExceptionWithString::message_;
};

TEST(Persistent, VirtualOperationsKeepTheirPlaces)
{
    EXPECT_EQ(slotOf(static_cast<void (ktPersistent::*)(ktArchive&)>(&Probe::dispatchSerialize)), 2);
    EXPECT_EQ(slotOf(static_cast<void (ktPersistent::*)()>(&Probe::reInit)), 3);
    EXPECT_EQ(slotOf(static_cast<bool (ktPersistent::*)(ktArchive&)>(&Probe::loadSimple)), 4);
    EXPECT_EQ(slotOf(&ktException::errorNumber), 5);
    EXPECT_EQ(slotOf(&ktException::suicideAndRethrow), 6);
    EXPECT_EQ(slotOf(&ErrorProbe::message_), 7);
}
#endif

/// One of several bases of the same extent on one virtual base.
template <int Number>
class Side : public virtual ktPersistent {
public:
    long value = 0;

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        if (haveVisited(this, sizeof *this)) {
            return;
        }
        archive || value;
        setVisited(this, sizeof *this);
    }
};

class BothSides : public Side<1>, public Side<2> {
protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        Side<1>::dispatchSerialize(archive);
        Side<2>::dispatchSerialize(archive);
    }
};

TEST(Persistent, LayersOfEqualExtentSideBySideAreBothArchived)
{
    BothSides stored;
    stored.Side<1>::value = 11;
    stored.Side<2>::value = 22;
    BothSides loaded;
    kt_test::LoadingArchive archive(store(stored));
    archive || loaded;
    EXPECT_EQ(loaded.Side<1>::value, 11);
    EXPECT_EQ(loaded.Side<2>::value, 22);
}

}  // namespace
