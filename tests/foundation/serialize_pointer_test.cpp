#include "archive_bytes.h"

namespace {

using namespace kt_test;
using namespace toys;

TEST(SerializePointer, StoringLeavesTheResultAlone)
{
    kt_test::StoringArchive archive;
    Loose loose(1);
    Note note;
    ktPersistent* result = &note;
    ktPersistent::serializePointer(archive, &loose, result);
    EXPECT_EQ(result, &note);
}

TEST(SerializePointer, HasTheFormOfAHandle)
{
    ktPtrHandle<Note> note(new Note("a"));
    EXPECT_EQ(kt_test::toHex(storePointer(note.get())), kt_test::toHex(kt_test::store(note)));
    EXPECT_EQ(kt_test::toHex(storePointer(nullptr)), kt_test::toHex(kt_test::store(ktPtrHandle<Note>())));
}

TEST(SerializePointer, NullGivesNull)
{
    kt_test::LoadingArchive archive(storePointer(nullptr));
    Note note;
    ktPersistent* result = &note;
    ktPersistent::serializePointer(archive, &note, result);
    EXPECT_EQ(result, nullptr);
}

TEST(SerializePointer, ObjectWithoutACountBelongsToTheCaller)
{
    Loose loose(7);
    kt_test::LoadingArchive archive(storePointer(&loose));
    const std::unique_ptr<ktPersistent> loaded(loadPointer(archive));
    const auto* copy = dynamic_cast<Loose*>(loaded.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->number, 7);
    EXPECT_EQ(Alive<Loose>::count, 2);
}

TEST(SerializePointer, ObjectWithoutACountBelongsToTheCallerAlsoInAnOpenPass)
{
    Loose loose(7);
    const std::string bytes = storePointer(&loose);
    std::unique_ptr<ktPersistent> loaded;
    {
        kt_test::LoadingArchive archive(bytes);
        const ktArchive::Pass pass(archive);
        loaded.reset(loadPointer(archive));
    }
    EXPECT_EQ(dynamic_cast<Loose&>(*loaded).number, 7);
}

TEST(SerializePointer, ObjectWithACountBelongsToTheCallerOutsideAPass)
{
    ktPtrHandle<Note> note(new Note("kept"));
    kt_test::LoadingArchive archive(storePointer(note.get()));
    auto* loaded = dynamic_cast<Note*>(loadPointer(archive));
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->refCount(), 0);
    const ktPtrHandle<Note> handle(loaded);
    EXPECT_EQ(handle->refCount(), 1);
    EXPECT_EQ(kt_test::store(handle), kt_test::store(note));
}

TEST(SerializePointer, ObjectWithACountIsHeldByThePassUntilAHandleIsMade)
{
    kt_test::LoadingArchive archive(storePointer(ktPtrHandle<Note>(new Note("a")).get()));
    ktPtrHandle<Note> kept;
    {
        const ktArchive::Pass pass(archive);
        auto* note = dynamic_cast<Note*>(loadPointer(archive));
        ASSERT_NE(note, nullptr);
        EXPECT_EQ(note->refCount(), 1);
        kept = note;
    }
    EXPECT_EQ(kept->text, "a");
    EXPECT_EQ(kept->refCount(), 1);
}

TEST(SerializePointer, ObjectWithACountThatNobodyKeepsDiesWithThePass)
{
    kt_test::LoadingArchive archive(storePointer(ktPtrHandle<Note>(new Note("a")).get()));
    {
        const ktArchive::Pass pass(archive);
        EXPECT_NE(loadPointer(archive), nullptr);
        EXPECT_EQ(Alive<Note>::count, 1);
    }
    EXPECT_EQ(Alive<Note>::count, 0);
}

TEST(SerializePointer, ObjectWithoutACountThatAHandleMetDiesWithThePass)
{
    Loose loose(7);
    const std::string bytes = storePointer(&loose);
    const long before = Alive<Loose>::count;
    const kt_test::MemoryWatch watch;
    EXPECT_TRUE(kt_test::load<ktPtrHandle<Note>>(bytes).isNull());
    EXPECT_EQ(Alive<Loose>::count, before);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(SerializePointer, ObjectThatAHandleMetFirstCanStillBeTaken)
{
    kt_test::StoringArchive storing;
    Loose loose(7);
    {
        const ktArchive::Pass pass(storing);
        storePointer(storing, &loose);
        storePointer(storing, &loose);
    }
    std::istringstream in(storing.bytes());
    std::unique_ptr<ktPersistent> taken;
    {
        ktArchive archive(static_cast<std::istream&>(in));
        const ktArchive::Pass pass(archive);
        ktPtrHandle<Note> wrong;
        archive || wrong;
        EXPECT_TRUE(wrong.isNull());
        taken.reset(loadPointer(archive));
    }
    EXPECT_EQ(dynamic_cast<Loose&>(*taken).number, 7);
}

/// Stores the object twice in one pass, loads it, destroys it, and loads the reference to it.
void loadReferenceToDestroyed(ktPersistent& object)
{
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        storePointer(storing, &object);
        storePointer(storing, &object);
    }
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    delete loadPointer(archive);
    EXPECT_THROW(loadPointer(archive), ktArchive::Corrupt);
}

TEST(SerializePointer, ReferenceToAnObjectThatItsOwnerDestroyedIsCorrupt)
{
    Loose loose(7);
    loadReferenceToDestroyed(loose);
    toys::Markless markless(7);
    loadReferenceToDestroyed(markless);
}

TEST(SerializePointer, ObjectTakenBeforeAFailureStaysTheCallers)
{
    Loose loose(7);
    kt_test::LoadingArchive archive(storePointer(&loose) + "\x07");
    std::unique_ptr<ktPersistent> taken;
    try {
        const ktArchive::Pass pass(archive);
        taken.reset(loadPointer(archive));
        loadPointer(archive);
        ADD_FAILURE() << "no exception";
    } catch (const ktArchive::Corrupt&) {
        EXPECT_EQ(dynamic_cast<Loose&>(*taken).number, 7);
    }
}

TEST(SerializePointer, ObjectWithoutACountThatFailsHalfWayIsDestroyed)
{
    Loose loose(7);
    loose.node = toys::chain(2);
    const std::string bytes = storePointer(&loose);
    const long before = Alive<Loose>::count;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const kt_test::MemoryWatch watch;
        kt_test::LoadingArchive archive(bytes.substr(0, size));
        ktPersistent* result = &loose;
        EXPECT_THROW(ktPersistent::serializePointer(archive, nullptr, result), ktArchive::Corrupt);
        EXPECT_EQ(result, &loose);
        EXPECT_EQ(Alive<Loose>::count, before) << size;
    }
}

}  // namespace
