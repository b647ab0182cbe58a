#include "toys.h"

#include "support/damage.h"

#include <gtest/gtest-spi.h>

// The kits that other tests rest on: what they are to find, they find.

namespace {

using namespace kt_test;

/// A block that a compiler cannot do without.
std::unique_ptr<char[]> block(std::size_t size);

/// What the first failure in `body` says; empty without a failure.
std::string firstFailureOf(const std::function<void()>& body);

TEST(TestSupport, MemoryWatchCountsWhatIsLeftAndThePeak)
{
    kt_test::needCounts();
    const MemoryWatch watch;
    auto kept = block(1000);
    block(5000);
    EXPECT_EQ(watch.allocations(), 2);
    EXPECT_EQ(watch.liveBlocks(), 1);
    EXPECT_GE(watch.liveBytes(), 1000);
    EXPECT_LT(watch.liveBytes(), 1100);
    EXPECT_GE(watch.peakBytes(), 6000u);
    EXPECT_LT(watch.peakBytes(), 6200u);
    kept.reset();
    EXPECT_EQ(watch.liveBytes(), 0);
}

TEST(TestSupport, PeakOfAnInnerWatchReachesTheOuterOne)
{
    kt_test::needCounts();
    const MemoryWatch outer;
    {
        const MemoryWatch inner;
        block(5000);
    }
    const MemoryWatch later;
    EXPECT_EQ(later.peakBytes(), 0u);
    EXPECT_EQ(kt_test::allocationsDuring([] { block(1); }), 1);
}

TEST(TestSupport, TheChosenAllocationFails)
{
    const auto twoBlocks = [] {
        const auto first = block(1);
        const auto second = block(1);
    };
    {
        const AllocationFailure failure(2);
        EXPECT_THROW(twoBlocks(), std::bad_alloc);
        EXPECT_TRUE(failure.happened());
        EXPECT_NO_THROW(twoBlocks());
    }
    {
        const AllocationFailure failure(2, Fails::fromThenOn);
        EXPECT_THROW(twoBlocks(), std::bad_alloc);
        EXPECT_THROW(twoBlocks(), std::bad_alloc);
    }
    const AllocationFailure failure(3);
    twoBlocks();
    EXPECT_FALSE(failure.happened());
}

/// failEachAllocation on a vector of three sevens, which a failing operation must not change.
template <class Operation>
long failAll(Operation operation)
{
    return kt_test::failEachAllocation(
        [] { return std::vector<long>(3, 7); }, operation,
        [](const std::vector<long>& state) { EXPECT_EQ(state, std::vector<long>(3, 7)); });
}

TEST(TestSupport, FailEachAllocationCountsThem)
{
    EXPECT_EQ(failAll([](std::vector<long>& state) {
                  std::vector<long> next(10, 1);
                  next.resize(100);
                  state.swap(next);
              }),
              2);
}

TEST(TestSupport, FailEachAllocationFindsAChangedState)
{
    const std::string failure = firstFailureOf([] {
        failAll([](std::vector<long>& state) {
            state[0] = 1;
            state.resize(100);
        });
    });
    EXPECT_NE(failure.find("{ 1, 7, 7 }"), std::string::npos) << failure;
}

TEST(TestSupport, FailEachAllocationFindsALeak)
{
    std::vector<std::unique_ptr<char[]>> leaked;
    leaked.reserve(100);
    const std::string failure = firstFailureOf([&leaked] {
        failAll([&leaked](std::vector<long>& state) {
            leaked.push_back(block(1));
            state.resize(100);
        });
    });
    EXPECT_NE(failure.find("blocks leaked"), std::string::npos) << failure;
}

TEST(TestSupport, FailEachAllocationFindsAnotherException)
{
    const std::string failure = firstFailureOf([] {
        failAll([](std::vector<long>& state) {
            try {
                state.resize(100);
            } catch (const std::bad_alloc&) {
                throw std::runtime_error("lost");
            }
        });
    });
    EXPECT_NE(failure.find("not std::bad_alloc but: lost"), std::string::npos) << failure;
}

TEST(TestSupport, HexGoesBothWays)
{
    EXPECT_EQ(kt_test::fromHex("00 ff7F\n 80"), std::string("\0\xFF\x7F\x80", 4));
    EXPECT_EQ(kt_test::toHex(std::string("\0\xFF\x7F", 3)), "00 FF 7F");
    EXPECT_THROW(kt_test::fromHex("0"), std::invalid_argument);
    EXPECT_THROW(kt_test::fromHex("0g"), std::invalid_argument);
    EXPECT_EQ(kt_test::littleEndian32(0x01020304), "\4\3\2\1");
}

TEST(TestSupport, EveryKindOfDamageIsDone)
{
    std::multiset<std::string> damaged;
    kt_test::forEachDamage("abcde", [&](const std::string& bytes, const std::string&) { damaged.insert(bytes); });
    EXPECT_EQ(damaged.size(), 5u + 40u + 4u * 5u + 7u * 2u);
    for (const std::string& form :
         {std::string(""), std::string("abcd"), std::string("cbcde"), std::string("abcd\xE5"),
          std::string("a\x7F"
                      "cde"),
          std::string("abcd\0", 5), std::string("\1\0\0\0e", 5), std::string("a\xFF\xFF\xFF\x7F"),
          std::string("a\0\0\0\x80", 5), std::string("\xFF\xFF\xFF\xFF") + "e"}) {
        EXPECT_EQ(damaged.count(form), 1u) << kt_test::toHex(form);
    }
}

/// How many damaged forms of the bytes `what` says something of.
long countDamage(const std::string& bytes, const std::string& what)
{
    long count = 0;
    kt_test::forEachDamage(bytes, [&](const std::string&, const std::string& each) {
        count += each.find(what) != std::string::npos ? 1 : 0;
    });
    return count;
}

TEST(TestSupport, EveryClassNameAndEveryReferenceIsExchangedForEachOther)
{
    long classes = 0;
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        ++classes;
    }
    const ktPtrHandle<toys::Note> first(new toys::Note("first"));
    const ktPtrHandle<toys::Note> second(new toys::Note("second"));
    const std::vector<ktPtrHandle<toys::Note>> notes{first, second, second};
    const std::string bytes = kt_test::store(notes);
    EXPECT_EQ(countDamage(bytes, "toys::Note at byte 13 exchanged for"), classes - 1);
    EXPECT_EQ(countDamage(bytes, "exchanged for"), classes - 1);
    EXPECT_EQ(countDamage(bytes, "reference at byte " + std::to_string(bytes.size() - 5)), 2)
        << "to the first one and to one that there is not";
}

TEST(TestSupport, TenthOfTheDamageIsChosenAndSomeOfEachKind)
{
    std::vector<std::string> all;
    std::vector<std::string> chosen;
    const std::string bytes(100, 'x');
    kt_test::forEachDamage(bytes, [&](const std::string&, const std::string& what) { all.push_back(what); });
    kt_test::forEachChosenDamage(bytes, [&](const std::string&, const std::string& what) { chosen.push_back(what); });
    if (kt_test::everyCaseIsAsked()) {
        EXPECT_EQ(chosen, all);
        return;
    }
    EXPECT_NEAR(static_cast<double>(chosen.size()), static_cast<double>(all.size()) / 10, 40);
    for (const std::string kind :
         {"the first", "bit 0", "bit 1", "bit 2", "bit 3", "bit 4", "bit 5", "bit 6", "bit 7", "set to 0", "set to 127",
          "set to 128", "set to 255", "word 0 ", "word 4294967295"}) {
        const auto isOfKind = [&kind](const std::string& what) { return what.find(kind) != std::string::npos; };
        EXPECT_TRUE(std::any_of(chosen.begin(), chosen.end(), isOfKind)) << kind;
    }
}

std::string failureOfDamage(const std::function<void(ktArchive&)>& load)
{
    return firstFailureOf([&load] { kt_test::loadDamaged(kt_test::archiveHeader() + "abcd", load); });
}

void expectFound(const std::string& failure, const std::string& text)
{
    EXPECT_NE(failure.find(text), std::string::npos) << failure;
}

TEST(TestSupport, LoadDamagedFindsWhatMustNotBe)
{
    kt_test::needCounts();
    std::vector<std::unique_ptr<char[]>> leaked;
    EXPECT_EQ(failureOfDamage([](ktArchive& archive) {
                  long value = 0;
                  archive || value;
              }),
              "");
    expectFound(failureOfDamage([](ktArchive&) { throw std::logic_error("no"); }), "not a ktException but: no");
    expectFound(failureOfDamage([&leaked](ktArchive&) { leaked.push_back(block(1)); }), "blocks leaked");
    expectFound(failureOfDamage([](ktArchive&) { block(100000); }), "peakBytes");
    expectFound(failureOfDamage([](ktArchive& archive) { archive.throwCorrupt("all"); }), "does not load");
}

std::unique_ptr<char[]> block(std::size_t size)
{
    char* volatile bytes = new char[size];
    return std::unique_ptr<char[]>(bytes);
}

std::string firstFailureOf(const std::function<void()>& body)
{
    testing::TestPartResultArray failures;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        body();
    }
    return failures.size() == 0 ? "" : failures.GetTestPartResult(0).message();
}

}  // namespace
