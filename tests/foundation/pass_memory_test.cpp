// What an open pass knows of objects that die, are assigned, or take the place of others.

#include "archive_bytes.h"

namespace {

using namespace kt_test;
using namespace toys;

TEST(PointerRecord, TwoTemporariesAtOneAddressAreBothStored)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    std::optional<Node> place;
    const Node* address = nullptr;
    for (long i = 1; i <= 3; ++i) {
        place.emplace(i);
        EXPECT_TRUE(address == nullptr || address == &*place);
        address = &*place;
        archive || *place;
    }
    EXPECT_EQ(toHex(afterHeader(archive.bytes())),
              "00 01 00 00 00 " + noChildren + " 00 02 00 00 00 " + noChildren + " 00 03 00 00 00 " + noChildren);
}

/// Runs `work` on a thread of its own.
template <class Work>
void elsewhere(Work work)
{
    std::thread(work).join();
}

// The pass cannot know that another thread destroyed what it has stored.
TEST(PointerRecord, ObjectAtTheAddressOfOneThatDiedOnAnotherThreadIsAnother)
{
    for (const bool isStoredElsewhereFirst : {false, true}) {
        SCOPED_TRACE(isStoredElsewhereFirst);
        kt_test::StoringArchive archive;
        const ktArchive::Pass pass(archive);
        alignas(Note) unsigned char place[sizeof(Note)];
        for (const char* text : {"a", "b"}) {
            Note* note = new (place) Note(text);
            if (isStoredElsewhereFirst) {
                elsewhere([note] { store(*note); });
            }
            storePointer(archive, note);
            storePointer(archive, note);
            elsewhere([note] { note->~Note(); });
        }
        EXPECT_EQ(toHex(afterHeader(archive.bytes())), newNote +
                                                           "00 01 00 00 00 61 01 00 00 00 00 "
                                                           "02 00 00 00 00 00 01 00 00 00 62 01 01 00 00 00");
    }
}

TEST(PointerRecord, ObjectInPlaceAtTheAddressOfOneThatDiedOnAnotherThreadIsAnother)
{
    kt_test::StoringArchive storing;
    std::vector<std::string> loaded;
    alignas(Note) unsigned char place[sizeof(Note)];
    {
        const ktArchive::Pass pass(storing);
        for (const char* text : {"a", "b", "c"}) {
            Note* note = new (place) Note(text);
            storing || *note;
            elsewhere([note] { note->~Note(); });
        }
    }
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    for (int i = 0; i < 3; ++i) {
        Note* note = new (place) Note;
        archive || *note || *note;
        loaded.push_back(note->text);
        elsewhere([note] { note->~Note(); });
    }
    EXPECT_EQ(loaded, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(PointerRecord, PassHasRoomForTheLivingOnly)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    std::vector<ktPtrHandle<Note>> some(100);
    for (ktPtrHandle<Note>& note : some) {
        note = new Note;
    }
    const ktArchive::Pass pass(archive);
    archive || some;
    std::string text(1 << 20, ' ');
    out.str(text);
    const kt_test::MemoryWatch watch;
    for (int i = 0; i < 10000; ++i) {
        ktPtrHandle<Note> fresh(new Note);
        Note copy;
        archive || fresh || copy;
    }
    EXPECT_LE(watch.peakBytes(), 8192u);
}

TEST(PointerRecord, ObjectThatWasAssignedIsStoredAsAnother)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    ktPtrHandle<Note> note(new Note("a"));
    archive || note;
    *note = Note("b");
    archive || note || note;
    EXPECT_EQ(toHex(afterHeader(archive.bytes())),
              newNote + "00 01 00 00 00 61 02 00 00 00 00 00 01 00 00 00 62 01 01 00 00 00");
}

/// Takes its value by an assignment, when all of it is loaded.
class Careful : public ktPersistent, public ktRepBase {
public:
    explicit Careful(long value = 0) : number(value) {}

    long number;

    static ktPersistent* make() { return new Careful; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char) {
            Careful read(number);
            archive || read.number;
            *this = read;
        });
    }
};

TEST(PointerRecord, ObjectMayAssignItselfWhileItsRecordIsOpen)
{
    const kt_Instantiator entry(typeid(Careful), &Careful::make, "Careful");
    const ktPtrHandle<Careful> careful(new Careful(3));
    std::vector<ktPtrHandle<Careful>> handles{careful, careful};
    const std::string bytes = store(handles);
    EXPECT_EQ(toHex(afterHeader(bytes).substr(5)), "03 07 00 00 00 43 61 72 65 66 75 6C 00 03 00 00 00 01 00 00 00 00");
    const auto loaded = load<std::vector<ktPtrHandle<Careful>>>(bytes);
    EXPECT_EQ(loaded.at(0), loaded.at(1));
    EXPECT_EQ(loaded[0]->number, 3);
}

TEST(PointerRecord, ReferencesFindALoadedObjectThatWasAssigned)
{
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        ktPtrHandle<Note> note(new Note("a"));
        storing || note || note;
    }
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    ktPtrHandle<Note> first;
    ktPtrHandle<Note> second;
    archive || first;
    *first = Note("b");
    archive || second;
    EXPECT_EQ(first, second);
    EXPECT_EQ(second->text, "b");
}

TEST(PointerRecord, AssignmentInsideAPassThatDoesNotKnowTheObjectChangesNothingThere)
{
    Note note("a");
    store(note);
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    note = Note("b");
    archive || note;
    note = Note("c");
    archive || note;
    EXPECT_EQ(toHex(afterHeader(archive.bytes())), "00 01 00 00 00 62 00 01 00 00 00 63");
}

TEST(PointerRecord, LoadedObjectThatWasAssignedIsKnownThoughAnOlderPassIsOpenThatIsNot)
{
    kt_test::StoringArchive outer;
    const ktArchive::Pass outerPass(outer);
    kt_test::LoadingArchive inner(archiveOf(newNote + "00 01 00 00 00 61 01 00 00 00 00"));
    const ktArchive::Pass innerPass(inner);
    ktPtrHandle<Note> first;
    ktPtrHandle<Note> second;
    inner || first;
    *first = Note("b");
    inner || second;
    EXPECT_EQ(first, second);
    outer || first;
    EXPECT_EQ(toHex(afterHeader(outer.bytes())), newNote + "00 01 00 00 00 62");
}

/// Has two layers, and is made at one place only.
class Placed : public Loose {
public:
    static Placed* here()
    {
        alignas(Placed) static unsigned char place[sizeof(Placed)];
        return reinterpret_cast<Placed*>(place);
    }
    static ktPersistent* make() { return new (here()) Placed; }
    static void operator delete(void*) {}
    static void* operator new(std::size_t, void* place) { return place; }

    std::string text;

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char) {
            Loose::dispatchSerialize(archive);
            archive || text;
        });
    }
};

Placed* placed(const char* text, long number)
{
    auto* object = new (Placed::here()) Placed;
    object->text = text;
    object->number = number;
    return object;
}

// What died on another thread stays noted for its address, behind it what came next.
TEST(PointerRecord, ReferencesFindTheObjectThatIsAtItsAddressLast)
{
    const kt_Instantiator entry(typeid(Placed), &Placed::make, "Placed");
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        storing || *placed("in place", 1);
        elsewhere([] { Placed::here()->~Placed(); });
        for (const char* text : {"a", "b"}) {
            Placed* object = placed(text, 2);
            storePointer(storing, object);
            storePointer(storing, object);
            elsewhere([object] { object->~Placed(); });
        }
    }
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    archive || *placed("", 0);
    elsewhere([] { Placed::here()->~Placed(); });
    for (const char* text : {"a", "b"}) {
        ktPersistent* object = loadPointer(archive);
        EXPECT_EQ(object, loadPointer(archive));
        EXPECT_EQ(static_cast<Placed*>(object)->text, text);
        elsewhere([] { Placed::here()->~Placed(); });
    }
}

TEST(PointerRecord, LayersOfWhatDiedElsewhereAreNotThoseOfTheNextAtItsAddress)
{
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        for (const char* text : {"a", "b"}) {
            storing || *placed(text, 7);
            elsewhere([] { Placed::here()->~Placed(); });
        }
    }
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    for (const char* text : {"a", "b"}) {
        Placed* object = placed("", 0);
        archive || *object || *object;
        EXPECT_EQ(object->text, text);
        EXPECT_EQ(object->number, 7);
        elsewhere([] { Placed::here()->~Placed(); });
    }
}

TEST(PointerRecord, ObjectDestroyedInsideAPassIsForgottenThere)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    alignas(Note) unsigned char place[sizeof(Note)];
    for (const char* text : {"a", "b"}) {
        Note* note = new (place) Note(text);
        storePointer(archive, note);
        note->~Note();
    }
    EXPECT_EQ(toHex(afterHeader(archive.bytes())), newNote + "00 01 00 00 00 61 02 00 00 00 00 00 01 00 00 00 62");
}

TEST(PointerRecord, DestroyedObjectIsForgottenThoughItsClassSetsNoMarks)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    std::optional<toys::Markless> place;
    place.emplace(1);
    storePointer(archive, &*place);
    place.emplace(2);
    archive || *place;
    place.emplace(3);
    storePointer(archive, &*place);
    EXPECT_EQ(toHex(afterHeader(archive.bytes()).substr(5)),
              "74 6F 79 73 3A 3A 4D 61 72 6B 6C 65 73 73 01 00 00 00 "
              "02 00 00 00 "
              "02 00 00 00 00 03 00 00 00");
}

TEST(PointerRecord, ObjectDestroyedInsideNestedPassesIsForgottenInEach)
{
    std::ostringstream outerBytes;
    std::ostringstream innerBytes;
    ktArchive outer(static_cast<std::ostream&>(outerBytes));
    ktArchive inner(static_cast<std::ostream&>(innerBytes));
    const ktArchive::Pass outerPass(outer);
    const ktArchive::Pass innerPass(inner);
    std::optional<Note> place;
    for (const char* text : {"a", "b"}) {
        place.emplace(text);
        outer || *place;
        inner || *place;
    }
    EXPECT_EQ(toHex(afterHeader(outerBytes.str())), "00 01 00 00 00 61 00 01 00 00 00 62");
    EXPECT_EQ(outerBytes.str(), innerBytes.str());
}

TEST(PointerRecord, PassInsideTwoOfAnotherArchiveDoesNotKnowWhatTheyVisit)
{
    Note note("a");
    std::ostringstream outerBytes;
    std::ostringstream innerBytes;
    ktArchive outer(static_cast<std::ostream&>(outerBytes));
    ktArchive inner(static_cast<std::ostream&>(innerBytes));
    {
        const ktArchive::Pass outermostPass(outer);
        const ktArchive::Pass outerPass(outer);
        const ktArchive::Pass innerPass(inner);
        inner || note;
        outer || note;
    }
    EXPECT_EQ(toHex(afterHeader(outerBytes.str())), "00 01 00 00 00 61");
    EXPECT_EQ(outerBytes.str(), innerBytes.str());
}

TEST(PointerRecord, PassesOfTwoArchivesDoNotKnowEachOther)
{
    ktPtrHandle<Node> node(new Node(5));
    std::ostringstream outerBytes;
    std::ostringstream innerBytes;
    ktArchive outer(static_cast<std::ostream&>(outerBytes));
    ktArchive inner(static_cast<std::ostream&>(innerBytes));
    {
        const ktArchive::Pass outerPass(outer);
        outer || node;
        {
            const ktArchive::Pass innerPass(inner);
            inner || node;
            outer || node;
            inner || node;
        }
        outer || node;
    }
    const std::string record = newNode + "00 05 00 00 00 " + noChildren;
    EXPECT_EQ(toHex(afterHeader(outerBytes.str())), record + " 01 00 00 00 00 01 00 00 00 00");
    EXPECT_EQ(toHex(afterHeader(innerBytes.str())), record + " 01 00 00 00 00");
}

}  // namespace
