#include <kt/foundation.h>

#include "support/allocations.h"
#include "support/archives.h"
#include "support/bytes.h"

#include "toys.h"

#include <sstream>
#include <string>
#include <vector>

namespace {

using kt_test::failEachAllocation;
using toys::Loose;
using toys::Node;
using toys::Note;

ktPtrHandle<Node> smallGraph()
{
    const ktPtrHandle<Node> root(new toys::HeavyNode(0.5));
    const ktPtrHandle<Node> shared = toys::chain(2);
    root->children = {shared, ktPtrHandle<Node>(new Node(9)), shared};
    return root;
}

/// Loading `bytes` into a T with each allocation failing. A value that is partly loaded must be loadable again.
template <class T>
long loadWithoutMemory(const std::string& bytes)
{
    const auto prepare = [] { return T(); };
    const auto operation = [&bytes](T& value) {
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        archive || value;
    };
    return failEachAllocation(prepare, operation, [](T&) {});
}

/// Storing a T with each allocation failing, which must leave it as it was.
template <class T>
long storeWithoutMemory(const T& value)
{
    const std::string before = kt_test::store(value);
    const auto prepare = [&value] { return value; };
    const auto operation = [](T& stored) { kt_test::store(stored); };
    return failEachAllocation(prepare, operation,
                              [&before](const T& stored) { EXPECT_EQ(kt_test::store(stored), before); });
}

TEST(WithoutMemory, StoringLeavesTheValueAsItWas)
{
    EXPECT_GT(storeWithoutMemory(std::string(100, 'x')), 0);
    EXPECT_GT(storeWithoutMemory(std::vector<long>{1, 2, 3}), 0);
    EXPECT_GT(storeWithoutMemory(std::vector<bool>(20, true)), 0);
    EXPECT_GT(storeWithoutMemory(std::vector<std::vector<std::string>>{{"a"}, {"b"}}), 0);
    EXPECT_GT(storeWithoutMemory(ktNMMatrix(2, 2)), 0);
    EXPECT_GT(storeWithoutMemory(ktRange(1.0, 2.0)), 0);
    EXPECT_GT(storeWithoutMemory(Note("a text that needs memory of its own")), 0);
    EXPECT_GT(storeWithoutMemory(smallGraph()), 0);
}

TEST(WithoutMemory, LoadingLeavesNothingBehindAndCanBeRepeated)
{
    EXPECT_GT(loadWithoutMemory<std::string>(kt_test::store(std::string(100, 'x'))), 0);
    EXPECT_GT(loadWithoutMemory<std::vector<long>>(kt_test::store(std::vector<long>{1, 2, 3})), 0);
    EXPECT_GT(loadWithoutMemory<std::vector<bool>>(kt_test::store(std::vector<bool>(20, true))), 0);
    EXPECT_GT(loadWithoutMemory<std::vector<std::vector<std::string>>>(
                  kt_test::store(std::vector<std::vector<std::string>>{{"a"}, {"b"}})),
              0);
    EXPECT_GT(loadWithoutMemory<ktNMMatrix>(kt_test::store(ktNMMatrix(2, 2))), 0);
    EXPECT_GT(loadWithoutMemory<ktRange>(kt_test::store(ktRange(1.0, 2.0))), 0);
    EXPECT_GT(loadWithoutMemory<Note>(kt_test::store(Note("a text that needs memory of its own"))), 0);
    EXPECT_GT(loadWithoutMemory<ktPtrHandle<Node>>(kt_test::store(smallGraph())), 0);
    EXPECT_EQ(toys::Alive<Node>::count, 0);
}

TEST(WithoutMemory, MatrixThatIsLoadedStaysAsItWas)
{
    const std::string bytes = kt_test::store(ktNMMatrix(3, 3));
    const auto operation = [&bytes](ktNMMatrix& matrix) {
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        archive || matrix;
    };
    EXPECT_GT(failEachAllocation([] { return ktNMMatrix(1, 2); }, operation,
                                 [](const ktNMMatrix& matrix) { EXPECT_TRUE(matrix == ktNMMatrix(1, 2)); }),
              0);
}

TEST(WithoutMemory, LoadingAnObjectWithoutACountLosesNothing)
{
    std::ostringstream out;
    {
        Loose loose(7);
        loose.node = toys::chain(2);
        ktArchive archive(static_cast<std::ostream&>(out));
        ktPersistent* unused = nullptr;
        ktPersistent::serializePointer(archive, &loose, unused);
    }
    const std::string bytes = out.str();
    EXPECT_GT(failEachAllocation([&bytes] {
                  std::istringstream in(bytes);
                  ktArchive archive(static_cast<std::istream&>(in));
                  ktPersistent* loaded = nullptr;
                  ktPersistent::serializePointer(archive, nullptr, loaded);
                  delete loaded;
              }),
              0);
    EXPECT_EQ(toys::Alive<Loose>::count, 0);
}

TEST(WithoutMemory, PassIsNotOpened)
{
    EXPECT_GT(failEachAllocation([] {
                  std::ostringstream out;
                  ktArchive archive(static_cast<std::ostream&>(out));
                  const ktArchive::Pass pass(archive);
              }),
              0);
}

TEST(WithoutMemory, ArchiveFailuresEndInBadAllocInstead)
{
    const std::string unknownClass = kt_test::archiveHeader() + kt_test::fromHex("03 04 00 00 00") + "none";
    EXPECT_GT(failEachAllocation([&unknownClass] {
                  try {
                      kt_test::load<ktPtrHandle<Node>>(unknownClass);
                  } catch (const ktArchive::Corrupt&) {
                  }
              }),
              0);
    EXPECT_GT(failEachAllocation([] {
                  try {
                      ktArchive::checkVersion(1, "a place with a long name, so that memory is needed", 5);
                  } catch (const ktArchive::UnknownVersion&) {
                  }
              }),
              0);
}

TEST(WithoutMemory, FailureCodesEndInBadAllocInstead)
{
    EXPECT_GT(failEachAllocation([] {
                  try {
                      kfThrowExceptionOnFailure(static_cast<long>(0x80FFFFFFUL));
                  } catch (const ktFailure&) {
                  }
              }),
              0);
}

TEST(WithoutMemory, RethrowingDestroysTheObject)
{
    EXPECT_GT(failEachAllocation([] {
                  ktException* error = new ktArchive::Corrupt("a text that needs memory of its own");
                  try {
                      error->suicideAndRethrow();
                  } catch (const ktArchive::Corrupt&) {
                  }
              }),
              0);
}

TEST(WithoutMemory, MatricesAndMessagesAreNotMade)
{
    EXPECT_GT(failEachAllocation([] { const ktNMMatrix matrix(3, 3); }), 0);
    const ktNMMatrix matrix(3, 3);
    EXPECT_GT(failEachAllocation([&matrix] { const ktNMMatrix copy(matrix); }), 0);
    const ktArchive::Corrupt error("a text that needs memory of its own");
    EXPECT_GT(failEachAllocation([&error] { EXPECT_EQ(error.message().size(), 35u); }), 0);
}

ktPersistent* makeNote()
{
    return new Note;
}

TEST(WithoutMemory, ClassIsNotRegistered)
{
    const kt_Instantiator* before = kt_Instantiator::first();
    EXPECT_GT(failEachAllocation(
                  [] { const kt_Instantiator entry(typeid(Note), &makeNote, "a name that needs memory of its own"); }),
              0);
    EXPECT_EQ(kt_Instantiator::first(), before);
}

void convertsNothing(long) {}

TEST(WithoutMemory, ConverterIsNotRegistered)
{
    EXPECT_GT(failEachAllocation([] {
                  kfRegisterExceptionConverter(1001, &convertsNothing);
                  kfUnregisterExceptionConverter(1001, &convertsNothing);
              }),
              0);
}

}  // namespace
