#include "archive_bytes.h"

#include "support/stacks.h"

namespace {

using namespace kt_test;
using namespace toys;

TEST(PointerRecord, NullIsOneByte)
{
    EXPECT_EQ(hexOf(ktPtrHandle<Node>()), "00");
    EXPECT_TRUE(load<ktPtrHandle<Node>>(archiveOf("00")).isNull());
}

TEST(PointerRecord, FirstOfAClassNamesItLaterOnesGiveItsIndexAndARepeatedObjectGivesItsOwn)
{
    const ktPtrHandle<Node> a(new Node(1));
    const ktPtrHandle<Node> b(new Node(2));
    const ktPtrHandle<Node> c(new HeavyNode(0.5));
    EXPECT_EQ(hexOf(Nodes{a, b, c, b, a}),
              "00 05 00 00 00 " + newNode + "00 01 00 00 00 " + noChildren + " " + "02 00 00 00 00 00 02 00 00 00 " +
                  noChildren + " " + "03 0F 00 00 00 74 6F 79 73 3A 3A 48 65 61 76 79 4E 6F 64 65 00 00 00 00 00 00 " +
                  noChildren + " 00 00 00 00 00 00 E0 3F " + "01 01 00 00 00 " + "01 00 00 00 00");
}

TEST(PointerRecord, ObjectIsRestoredWithItsClass)
{
    const ktPtrHandle<Node> heavy(new HeavyNode(0.5));
    heavy->number = 3;
    const auto loaded = load<ktPtrHandle<Node>>(store(heavy));
    const auto* node = dynamic_cast<const HeavyNode*>(loaded.get());
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->weight, 0.5);
    EXPECT_EQ(node->number, 3);
    EXPECT_EQ(loaded->refCount(), 1);
}

TEST(PointerRecord, SharedObjectIsRestoredShared)
{
    const ktPtrHandle<Node> shared(new Node(5));
    const ktPtrHandle<Node> left(new Node(1));
    const ktPtrHandle<Node> right(new Node(2));
    left->children = {shared};
    right->children = {shared, shared};
    const auto loaded = load<Nodes>(store(Nodes{left, right}));
    ASSERT_EQ(loaded.size(), 2u);
    ASSERT_EQ(loaded[1]->children.size(), 2u);
    const ktPtrHandle<Node> copy = loaded[0]->children.at(0);
    EXPECT_EQ(copy->number, 5);
    EXPECT_EQ(copy, loaded[1]->children[0]);
    EXPECT_EQ(copy, loaded[1]->children[1]);
    EXPECT_NE(copy, shared);
    EXPECT_EQ(copy->refCount(), 4);
}

TEST(PointerRecord, ConstHandlesShareWithTheOthers)
{
    kt_test::StoringArchive storing;
    ktPtrHandle<Node> node(new Node(5));
    ktPtrHandle_const<Node> same(node);
    {
        const ktArchive::Pass pass(storing);
        storing || node || same;
    }
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    archive || same || node;
    EXPECT_EQ(ktPtrHandle_const<Node>(node), same);
    EXPECT_EQ(node->number, 5);
}

TEST(PointerRecord, HandleLetsItsObjectGoBeforeItLoads)
{
    ktPtrHandle<Node> handle(new Node(1));
    const ktPtrHandle<Node> old = handle;
    EXPECT_THROW(loadInto(handle, archiveOf("07")), ktArchive::Corrupt);
    EXPECT_TRUE(handle.isNull());
    EXPECT_EQ(old->refCount(), 1);
}

TEST(PointerRecord, NothingIsRememberedBetweenPasses)
{
    const ktPtrHandle<Node> node(new Node(5));
    const std::string once = afterHeader(store(node));
    const std::string bytes = store(node, node);
    EXPECT_EQ(toHex(afterHeader(bytes)), toHex(once + once));
    kt_test::LoadingArchive archive(bytes);
    ktPtrHandle<Node> first;
    ktPtrHandle<Node> second;
    archive || first || second;
    EXPECT_NE(first, second);
    EXPECT_EQ(second->number, 5);
}

TEST(PointerRecord, PassOpenedByHandJoinsOperations)
{
    ktPtrHandle<Node> node(new Node(5));
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        storing || node || node;
    }
    EXPECT_EQ(toHex(afterHeader(storing.bytes())), newNode + "00 05 00 00 00 " + noChildren + " 01 00 00 00 00");
    std::istringstream in(storing.bytes());
    ktPtrHandle<Node> first;
    ktPtrHandle<Node> second;
    ktArchive archive(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(archive);
    archive || first || second;
    EXPECT_EQ(first, second);
}

TEST(PointerRecord, ReferenceFromAnotherPassIsRefused)
{
    kt_test::LoadingArchive archive(archiveOf(newNode + "00 05 00 00 00 " + noChildren + " 01 00 00 00 00"));
    ktPtrHandle<Node> first;
    archive || first;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: a reference to an object that was not loaded before at byte 38.",
                                     [&] { archive || first; });
}

/// Stores itself into an archive of its own while it is being stored.
class Diary : public ktPersistent {
public:
    std::string copy;

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char) {
            if (copy.empty()) {
                copy = "open";
                copy = store(*this);
            }
        });
    }
};

TEST(PointerRecord, ObjectMayBeStoredElsewhereWhileItIsBeingStored)
{
    Diary diary;
    EXPECT_EQ(hexOf(diary), "00");
    EXPECT_EQ(toHex(afterHeader(diary.copy)), "00");
}

TEST(PointerRecord, ObjectInPlaceIsStoredOnceAPass)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    Note note("a");
    archive || note || note;
    EXPECT_EQ(toHex(afterHeader(archive.bytes())), "00 01 00 00 00 61");
}

TEST(PointerRecord, ObjectByPointerAfterInPlaceIsAConflict)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    ktPtrHandle<Note> note(new Note("a"));
    archive || *note;
    const std::string before = archive.bytes();
    expectThrows<ktArchive::Conflict>(
        "Archive conflict: an object stored in place is stored by pointer in the same pass.", [&] { archive || note; });
    EXPECT_EQ(archive.bytes(), before);
}

TEST(PointerRecord, ObjectInPlaceAfterByPointerIsAConflict)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    ktPtrHandle<Note> note(new Note("a"));
    archive || note;
    const std::string before = archive.bytes();
    expectThrows<ktArchive::Conflict>(
        "Archive conflict: an object stored by pointer is stored in place in the same pass.",
        [&] { archive || *note; });
    EXPECT_EQ(archive.bytes(), before);
}

TEST(PointerRecord, ObjectInPlaceThatLeadsBackToItselfIsAConflict)
{
    ktPtrHandle<Node> node(new Node(1));
    node->children = {ktPtrHandle<Node>(new Node(2))};
    node->children[0]->children = {node};
    expectThrows<ktArchive::Conflict>(
        "Archive conflict: an object stored in place is stored by pointer in the same pass.", [&] { store(*node); });
    node->children.clear();
}

TEST(PointerRecord, StoringACycleIsAConflict)
{
    const ktPtrHandle<Node> node(new Node(1));
    node->children = {ktPtrHandle<Node>(new Node(2))};
    node->children[0]->children = {node};
    expectThrows<ktArchive::Conflict>("Archive conflict: an object leads back to itself.", [&] { store(node); });
    node->children.clear();
}

TEST(PointerRecord, ThousandOpenRecordsAreStoredAndLoaded)
{
    const std::string bytes = store(toys::chain(1000));
    long length = 0;
    for (auto node = load<ktPtrHandle<Node>>(bytes); !node.isNull(); ++length) {
        EXPECT_EQ(node->number, length + 1);
        node = node->children.empty() ? ktPtrHandle<Node>() : node->children[0];
    }
    EXPECT_EQ(length, 1000);
}

TEST(PointerRecord, ThousandOpenRecordsNeedASmallStack)
{
    const std::size_t used = kt_test::runOnStack(kt_test::stackForThousandRecordsOfTests, [] {
        const ktPtrHandle<Node> nodes = toys::chain(1000);
        EXPECT_EQ(store(load<ktPtrHandle<Node>>(store(nodes))), store(nodes));
        const ktPtrHandle<Node> tooDeep = toys::chain(1001);
        EXPECT_THROW(store(tooDeep), ktArchive::TooDeep);
    });
    EXPECT_GT(used, 0u);
    RecordProperty("stack", std::to_string(used));
}

TEST(PointerRecord, ThousandAndOneOpenRecordsAreTooDeepToStore)
{
    const ktPtrHandle<Node> tooDeep = toys::chain(1001);
    expectThrows<ktArchive::TooDeep>("Archive too deep: more than 1000 pointer records are open at once.",
                                     [&] { store(tooDeep); });
}

std::string storeWithDepth(long depth, ktPtrHandle<Node> tree)
{
    kt_test::StoringArchive archive;
    archive.maxDepth(depth);
    archive || tree;
    return archive.bytes();
}

TEST(PointerRecord, ThousandAndOneOpenRecordsAreTooDeepToLoad)
{
    const std::string bytes = storeWithDepth(1001, toys::chain(1001));
    ktPtrHandle<Node> tree;
    expectThrows<ktArchive::TooDeep>("Archive too deep: more than 1000 pointer records are open at once.",
                                     [&] { loadInto(tree, bytes); });
    EXPECT_TRUE(tree.isNull());
    EXPECT_EQ(Alive<Node>::count, 0);
}

TEST(PointerRecord, DepthCanBeSet)
{
    const std::string bytes = storeWithDepth(1001, toys::chain(1001));
    kt_test::LoadingArchive archive(bytes);
    EXPECT_EQ(archive.maxDepth(), 1000);
    archive.maxDepth(1001);
    EXPECT_EQ(archive.maxDepth(), 1001);
    ktPtrHandle<Node> tree;
    archive || tree;
    EXPECT_EQ(tree->number, 1);
    EXPECT_THROW(storeWithDepth(2, toys::chain(3)), ktArchive::TooDeep);
    EXPECT_THROW(storeWithDepth(0, toys::chain(1)), ktArchive::TooDeep);
    EXPECT_NO_THROW(storeWithDepth(0, ktPtrHandle<Node>())) << "null opens no record";
}

TEST(PointerRecord, RecordsOneAfterTheOtherAreNotDeep)
{
    Nodes nodes;
    for (long i = 0; i < 2000; ++i) {
        nodes.push_back(ktPtrHandle<Node>(new Node(i)));
    }
    EXPECT_EQ(load<Nodes>(store(nodes)).back()->number, 1999);
}

TEST(PointerRecord, ReferencesAreNotDeep)
{
    ktPtrHandle<Node> leaf(new Node(7));
    ktPtrHandle<Node> end(new Node(3));
    ktPtrHandle<Node> start(new Node(1));
    end->children = {leaf};
    start->children = {leaf, end};
    EXPECT_NO_THROW(storeWithDepth(2, start));
}

TEST(PointerRecord, BadRecordsAreCorrupt)
{
    expectCorrupt<ktPtrHandle<Node>>("04", "bad tag of a pointer record at byte 9");
    expectCorrupt<ktPtrHandle<Node>>("FF", "bad tag of a pointer record at byte 9");
    expectCorrupt<ktPtrHandle<Node>>("01 00 00 00 00",
                                     "a reference to an object that was not loaded before at byte 13");
    expectCorrupt<ktPtrHandle<Node>>("02 00 00 00 00", "a class that was not named before at byte 13");
    expectCorrupt<ktPtrHandle<Node>>("02 FF FF FF FF", "a class that was not named before at byte 13");
    expectCorrupt<ktPtrHandle<Node>>("03 00 00 00 00", "unknown class \"\" at byte 13");
    expectCorrupt<ktPtrHandle<Node>>("03 02 00 00 00 6B 74", "unknown class \"kt\" at byte 15");
    expectCorrupt<ktPtrHandle<Node>>("03 FF FF FF FF 6B 74", "impossible count 4294967295 at byte 13");
    expectCorrupt<Nodes>("00 02 00 00 00 " + newNode + "00 05 00 00 00 " + noChildren + " 01 01 00 00 00",
                         "a reference to an object that was not loaded before at byte 43");
    EXPECT_EQ(Alive<Node>::count, 0);
}

TEST(PointerRecord, LongNameOfAnUnknownClassIsCutInTheMessage)
{
    const std::string bytes = archiveOf("03 2C 01 00 00") + std::string(300, 'n');
    expectThrows<ktArchive::Corrupt>("Corrupt archive: unknown class \"" + std::string(100, 'n') + "\" at byte 313.",
                                     [&] { load<ktPtrHandle<Node>>(bytes); });
}

TEST(PointerRecord, ReferenceToAnObjectStillBeingLoadedIsCorrupt)
{
    expectCorrupt<ktPtrHandle<Node>>(newNode + "00 05 00 00 00 00 01 00 00 00 01 00 00 00 00",
                                     "a reference to an object that was not loaded before at byte 38");
}

TEST(PointerRecord, ClassThatIsNotRegisteredIsNotStored)
{
    kt_test::StoringArchive archive;
    ktPtrHandle<Stranger> stranger(new Stranger);
    expectThrows<ktArchive::Corrupt>("Corrupt archive: unknown class \"toys::Stranger\" at byte 0.",
                                     [&] { archive || stranger; });
    EXPECT_EQ(archive.bytes(), "");
    EXPECT_FALSE(stranger.isNull());
}

TEST(PointerRecord, ObjectOfAnotherClassLeavesTheHandleNull)
{
    const std::string note = store(ktPtrHandle<Note>(new Note("a")));
    EXPECT_TRUE(load<ktPtrHandle<Node>>(note).isNull());
    EXPECT_TRUE(load<ktPtrHandle<HeavyNode>>(store(toys::chain(1))).isNull());
    EXPECT_TRUE(load<ktPtrHandle<Node>>(archiveOf(newLoose + "00 07 00 00 00 00")).isNull());
    EXPECT_EQ(Alive<Note>::count + Alive<Node>::count + Alive<Loose>::count, 0) << "and is destroyed";
}

TEST(PointerRecord, ReferenceToAnObjectOfAnotherClassLeavesTheHandleNull)
{
    const auto nodes = load<Nodes>(archiveOf("00 03 00 00 00 " + newNote + "00 00 00 00 00 01 00 00 00 00 " + newNode +
                                             "00 05 00 00 00 " + noChildren));
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_TRUE(nodes[0].isNull());
    EXPECT_TRUE(nodes[1].isNull());
    EXPECT_EQ(nodes[2]->number, 5);
}

TEST(PointerRecord, VersionIsCheckedInEachLayer)
{
    ktPtrHandle<Node> heavy(new HeavyNode(0.5));
    const std::string bytes = store(heavy);
    const std::size_t layer = 8 + 1 + 4 + std::string("toys::HeavyNode").size();
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive: toys::HeavyNode.",
                                            [&] { loadInto(heavy, kt_test::withBytesAt(bytes, layer, "\1")); });
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive: toys::Node.",
                                            [&] { loadInto(heavy, kt_test::withBytesAt(bytes, layer + 1, "\1")); });
    EXPECT_TRUE(heavy.isNull());
    EXPECT_EQ(Alive<Node>::count, 0);
}

TEST(PointerRecord, LoadingThatFailsHalfWayLeaksNothing)
{
    const ktPtrHandle<Node> shared = toys::chain(3);
    const ktPtrHandle<Node> root(new HeavyNode(1.0));
    root->children = {shared, toys::chain(2), shared};
    const std::string bytes = store(root);
    const long before = Alive<Node>::count;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const kt_test::MemoryWatch watch;
        EXPECT_THROW(load<ktPtrHandle<Node>>(bytes.substr(0, size)), ktArchive::Corrupt) << size;
        EXPECT_EQ(watch.liveBlocks(), 0) << size;
    }
    EXPECT_EQ(Alive<Node>::count, before);
}

}  // namespace
