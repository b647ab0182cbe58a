#include "archive_bytes.h"

namespace {

using namespace kt_test;
using toys::Reading;

TEST(ArchiveContainers, TextIsItsLengthAndItsBytes)
{
    expectBytes(std::string(), "00 00 00 00");
    expectBytes(std::string("kt"), "02 00 00 00 6B 74");
    expectBytes(std::string("\0\xFF\n", 3), "03 00 00 00 00 FF 0A");
}

TEST(ArchiveContainers, TextReplacesWhatWasThere)
{
    std::string text = "a longer text that stood here before";
    loadInto(text, store(std::string("short")));
    EXPECT_EQ(text, "short");
}

TEST(ArchiveContainers, VectorIsAVersionACountAndItsElements)
{
    expectBytes(std::vector<long>(), "00 00 00 00 00");
    expectBytes(std::vector<long>{1, -1}, "00 02 00 00 00 01 00 00 00 FF FF FF FF");
    expectBytes(std::vector<unsigned long>{0xFFFFFFFFUL}, "00 01 00 00 00 FF FF FF FF");
    expectBytes(std::vector<unsigned char>{1, 2, 3}, "00 03 00 00 00 01 02 03");
    expectBytes(std::vector<std::string>{"a", ""}, "00 02 00 00 00 01 00 00 00 61 00 00 00 00");
}

TEST(ArchiveContainers, VectorOfDoublesHasTheFormOfAnyVector)
{
    expectBytes(std::vector<double>(), "00 00 00 00 00");
    expectBytes(std::vector<double>{1.0, -2.0}, "00 02 00 00 00 00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 00 C0");
}

TEST(ArchiveContainers, VectorsOfVectorsNest)
{
    expectBytes(std::vector<std::vector<long>>{{1}, {}, {2, 3}},
                "00 03 00 00 00 "
                "00 01 00 00 00 01 00 00 00 "
                "00 00 00 00 00 "
                "00 02 00 00 00 02 00 00 00 03 00 00 00");
    expectBytes(std::vector<std::vector<double>>{{}, {1.0}},
                "00 02 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 F0 3F");
    expectBytes(std::vector<std::vector<std::vector<bool>>>{{{true}}},
                "00 01 00 00 00 00 01 00 00 00 00 01 00 00 00 01");
}

TEST(ArchiveContainers, FlagsArePackedEightToAByteLowestBitFirst)
{
    expectBytes(std::vector<bool>(), "00 00 00 00 00");
    expectBytes(std::vector<bool>{true}, "00 01 00 00 00 01");
    expectBytes(std::vector<bool>{false, true, false}, "00 03 00 00 00 02");
    expectBytes(std::vector<bool>(8, true), "00 08 00 00 00 FF");
    expectBytes(std::vector<bool>{true, false, false, false, false, false, false, true, true}, "00 09 00 00 00 81 01");
    expectBytes(std::vector<bool>(17, true), "00 11 00 00 00 FF FF 01");
}

TEST(ArchiveContainers, SpareBitsOfFlagsAreIgnored)
{
    EXPECT_EQ(load<std::vector<bool>>(archiveHeader() + fromHex("00 03 00 00 00 FD")),
              (std::vector<bool>{true, false, true}));
}

TEST(ArchiveContainers, ValuesOfUsersOwnTypesAreElements)
{
    Reading reading;
    reading.mark = 9;
    reading.range = ktRange(1.0, 2.0);
    expectBytes(std::vector<Reading>{reading}, "00 01 00 00 00 09 00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 00 40");
}

TEST(ArchiveContainers, LoadedVectorHasTheStoredSizeWhateverItHeld)
{
    const std::string stored = store(std::vector<long>{1, 2});
    for (const std::size_t before : {0u, 1u, 2u, 3u, 100u}) {
        std::vector<long> values(before, 7);
        loadInto(values, stored);
        EXPECT_EQ(values, (std::vector<long>{1, 2})) << before;
        values.assign(before, 7);
        kt_test::BlindSource blind(stored);
        ktArchive archive(blind);
        archive || values;
        EXPECT_EQ(values, (std::vector<long>{1, 2})) << before;
    }
    std::vector<double> doubles(100, 7.0);
    loadInto(doubles, store(std::vector<double>{1.0}));
    EXPECT_EQ(doubles, std::vector<double>{1.0});
    std::vector<bool> flags(100, true);
    loadInto(flags, store(std::vector<bool>{false}));
    EXPECT_EQ(flags, std::vector<bool>{false});
}

TEST(ArchiveContainers, VectorIsResizedBeforeItsElementsAreLoaded)
{
    std::vector<long> values;
    EXPECT_THROW(loadInto(values, archiveHeader() + fromHex("00 03 00 00 00 05 00 00 00 06 00 00 00 07 00 00")),
                 ktArchive::Corrupt);
    EXPECT_TRUE(values.empty()) << "a count that cannot be true";
    EXPECT_THROW(loadInto(values, archiveHeader() + fromHex("00 01 00 00 00")), ktArchive::Corrupt);
    std::vector<std::string> texts;
    EXPECT_THROW(loadInto(texts, archiveHeader() + fromHex("00 03 00 00 00 01 00 00 00 61 FF 00 00 00 00 00 00")),
                 ktArchive::Corrupt);
    EXPECT_EQ(texts, (std::vector<std::string>{"a", "", ""}));
}

// The second time its objects have been met in this pass, so there is nothing to read of them.
TEST(ArchiveContainers, VectorOfObjectsCanGoByTwiceInAPass)
{
    std::vector<toys::Note> notes{toys::Note("a"), toys::Note("b"), toys::Note("c")};
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        storing || notes || notes;
    }
    const std::string once = afterHeader(store(notes));
    EXPECT_EQ(toHex(afterHeader(storing.bytes())), toHex(once + fromHex("00 03 00 00 00")));
    kt_test::LoadingArchive archive(storing.bytes());
    const ktArchive::Pass pass(archive);
    std::vector<toys::Note> loaded;
    archive || loaded || loaded;
    ASSERT_EQ(loaded.size(), 3u);
    EXPECT_EQ(loaded[2].text, "c");
    std::vector<toys::Note> shorter(2);
    EXPECT_THROW(loadInto(shorter, archiveHeader() + fromHex("00 03 00 00 00")), ktArchive::Corrupt);
    EXPECT_EQ(shorter.size(), 2u);
}

template <class T>
void expectVersionOneIsRefused()
{
    T value;
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive.",
                                            [&] { loadInto(value, archiveHeader() + fromHex("01 00 00 00 00")); });
    try {
        loadInto(value, archiveHeader() + fromHex("01 00 00 00 00"));
    } catch (const ktArchive::UnknownVersion& error) {
        EXPECT_EQ(error.where(), nullptr);
        EXPECT_EQ(error.line(), 0);
    }
}

TEST(ArchiveContainers, VectorOfVersionOneIsRefusedWithoutAPlace)
{
    expectVersionOneIsRefused<std::vector<long>>();
    expectVersionOneIsRefused<std::vector<double>>();
    expectVersionOneIsRefused<std::vector<bool>>();
    expectVersionOneIsRefused<std::vector<std::string>>();
    expectVersionOneIsRefused<toys::Nodes>();
}

enum class Colour : unsigned long { red };

TEST(ArchiveContainers, LeastStoredSizesAreTrueOfTheSmallestValues)
{
    EXPECT_EQ(ktLeastStoredSize<unsigned char>::value, afterHeader(store(static_cast<unsigned char>(0))).size());
    EXPECT_EQ(ktLeastStoredSize<long>::value, afterHeader(store(0L)).size());
    EXPECT_EQ(ktLeastStoredSize<unsigned long>::value, afterHeader(store(0UL)).size());
    EXPECT_EQ(ktLeastStoredSize<double>::value, afterHeader(store(0.0)).size());
    EXPECT_EQ(ktLeastStoredSize<std::string>::value, afterHeader(store(std::string())).size());
    EXPECT_EQ(ktLeastStoredSize<std::vector<long>>::value, afterHeader(store(std::vector<long>())).size());
    EXPECT_EQ(ktLeastStoredSize<std::vector<double>>::value, afterHeader(store(std::vector<double>())).size());
    EXPECT_EQ(ktLeastStoredSize<std::vector<bool>>::value, afterHeader(store(std::vector<bool>())).size());
    EXPECT_EQ(ktLeastStoredSize<ktRange>::value, afterHeader(store(ktRange())).size());
    EXPECT_EQ(ktLeastStoredSize<ktNMMatrix>::value, afterHeader(store(ktNMMatrix())).size());
    EXPECT_EQ(ktLeastStoredSize<ktPtrHandle<toys::Node>>::value, afterHeader(store(ktPtrHandle<toys::Node>())).size());
    EXPECT_EQ(ktLeastStoredSize<Reading>::value, afterHeader(store(Reading())).size());
    EXPECT_EQ(ktLeastStoredSize<Colour>::value, 4u) << "an enumeration goes through a 32-bit number";
}

/// Loading `hex` into a T fails with `known` from a stream that tells its length and with `blind` from one that does not,
/// and takes no memory to speak of.
template <class T>
void expectImpossible(const std::string& hex, const std::string& known, const std::string& blind)
{
    SCOPED_TRACE(hex);
    const std::string bytes = archiveHeader() + fromHex(hex);
    const kt_test::MemoryWatch watch;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: " + known + ".", [&] { load<T>(bytes); });
    expectThrows<ktArchive::Corrupt>("Corrupt archive: " + blind + ".", [&] { kt_test::loadBlind<T>(bytes); });
    EXPECT_LT(watch.peakBytes(), 16 * 1024u);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(ArchiveContainers, CountThatCannotBeTrueIsRefused)
{
    // Each has one byte less than its elements take, so the count at the beginning is the first to be wrong.
    expectImpossible<std::string>("05 00 00 00 61 61 61 61", "impossible count 5 at byte 12",
                                  "unexpected end at byte 16");
    expectImpossible<std::vector<unsigned char>>("00 03 00 00 00 01 02", "impossible count 3 at byte 13",
                                                 "unexpected end at byte 15");
    expectImpossible<std::vector<long>>("00 01 00 00 00 01 02 03", "impossible count 1 at byte 13",
                                        "unexpected end at byte 16");
    expectImpossible<std::vector<double>>("00 01 00 00 00 01 02 03 04 05 06 07", "impossible count 1 at byte 13",
                                          "unexpected end at byte 20");
    expectImpossible<std::vector<bool>>("00 11 00 00 00 FF FF", "impossible count 3 at byte 13",
                                        "unexpected end at byte 15");
    expectImpossible<std::vector<std::string>>("00 01 00 00 00 00 00 00", "impossible count 1 at byte 13",
                                               "unexpected end at byte 16");
    expectImpossible<std::vector<std::vector<long>>>("00 01 00 00 00 00 00 00 00", "impossible count 1 at byte 13",
                                                     "unexpected end at byte 17");
    expectImpossible<std::vector<Reading>>("00 01 00 00 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10",
                                           "impossible count 1 at byte 13", "unexpected end at byte 29");
}

/// What a stream without a length ends in: where memory cannot even address so many elements, that is seen at once.
std::string blindFailure(unsigned long count, std::size_t leastStoredSize, const std::string& impossible,
                         const std::string& end)
{
    return count > std::numeric_limits<std::size_t>::max() / 2 / leastStoredSize ? impossible : end;
}

TEST(ArchiveContainers, HugeCountsTakeNoMemory)
{
    for (const unsigned long count : {0x7FFFFFFFUL, 0x80000000UL, 0xFFFFFFFFUL}) {
        const std::string tail = toHex(kt_test::littleEndian32(count)) + " 00 00";
        const std::string impossible = "impossible count " + std::to_string(count) + " at byte ";
        const std::string at13 = impossible + "13";
        const std::string end = "unexpected end at byte 15";
        expectImpossible<std::string>(tail, impossible + "12",
                                      blindFailure(count, 1, impossible + "12", "unexpected end at byte 14"));
        expectImpossible<std::vector<long>>("00 " + tail, at13, blindFailure(count, 4, at13, end));
        expectImpossible<std::vector<double>>("00 " + tail, at13, blindFailure(count, 8, at13, end));
        expectImpossible<std::vector<std::string>>("00 " + tail, at13, blindFailure(count, 4, at13, end));
        expectImpossible<toys::Nodes>("00 " + tail, at13, blindFailure(count, 1, at13, end));
    }
    expectImpossible<std::vector<bool>>("00 FF FF FF FF 00 00", "impossible count 536870912 at byte 13",
                                        "unexpected end at byte 15");
}

TEST(ArchiveContainers, HugeCountAtTheVeryEndTakesNoMemory)
{
    // A stream that reports no bytes left counts as one that cannot tell: a device may report so while bytes follow.
    const std::string impossible = "impossible count 2147483647 at byte 13";
    const std::string end = "unexpected end at byte 13";
    const std::string doubles = blindFailure(0x7FFFFFFF, 8, impossible, end);
    const std::string texts = blindFailure(0x7FFFFFFF, 4, impossible, end);
    expectImpossible<std::string>("FF FF FF 7F", "unexpected end at byte 12", "unexpected end at byte 12");
    expectImpossible<std::vector<double>>("00 FF FF FF 7F", doubles, doubles);
    expectImpossible<std::vector<std::string>>("00 FF FF FF 7F", texts, texts);
}

TEST(ArchiveContainers, CountThatIsJustTrueIsTaken)
{
    EXPECT_EQ(load<std::string>(archiveHeader() + fromHex("01 00 00 00 61")), "a");
    EXPECT_EQ(load<std::vector<double>>(archiveHeader() + fromHex("00 01 00 00 00 00 00 00 00 00 00 F0 3F")),
              std::vector<double>{1.0});
    EXPECT_EQ(load<std::vector<bool>>(archiveHeader() + fromHex("00 10 00 00 00 FF FF")), std::vector<bool>(16, true));
}

TEST(ArchiveContainers, MemoryOfALongVectorStaysInBounds)
{
    const std::string bytes = store(std::vector<std::vector<double>>(10000));
    const kt_test::MemoryWatch watch;
    EXPECT_EQ(load<std::vector<std::vector<double>>>(bytes).size(), 10000u);
    EXPECT_EQ(kt_test::loadBlind<std::vector<std::vector<double>>>(bytes).size(), 10000u);
    EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
}

/// Large against the bytes that it takes.
struct Wide {
    unsigned char version = 0;
    std::string text;
    double room[500] = {};
};
ktArchive& operator||(ktArchive& archive, Wide& wide)
{
    const ktArchive::Pass pass(archive);
    archive.version();
    return archive || wide.text;
}

TEST(ArchiveContainers, MemoryOfLargeElementsGrowsBehindThoseThatAreLoaded)
{
    const std::string count = toHex(kt_test::littleEndian32(100000));
    for (const char* element : {"01", "FF", "00 FF FF FF FF"}) {
        const std::string bytes = archiveHeader() + fromHex("00 " + count + " " + element) + std::string(100000, '\0');
        for (const bool blind : {false, true}) {
            const kt_test::MemoryWatch watch;
            EXPECT_THROW(blind ? kt_test::loadBlind<std::vector<Wide>>(bytes) : load<std::vector<Wide>>(bytes),
                         ktArchive::Errors);
            EXPECT_LE(watch.peakBytes(), 17 * bytes.size() + 64 * 1024) << element;
        }
    }
    std::vector<Wide> wide(100);
    for (Wide& one : wide) {
        one.text.assign(500, 'x');
    }
    const std::string bytes = store(wide);
    const kt_test::MemoryWatch watch;
    EXPECT_EQ(load<std::vector<Wide>>(bytes).back().text, wide.back().text);
    EXPECT_EQ(kt_test::loadBlind<std::vector<Wide>>(bytes).back().text, wide.back().text);
    EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
}

// Each count is possible where it stands, but all of them together are not.
TEST(ArchiveContainers, CountsInsideOneAnotherShareTheRoom)
{
    const std::string children = "00 00 00 00 00 00 " + toHex(kt_test::littleEndian32(100000));
    std::string bytes = store(ktPtrHandle<toys::Node>(new toys::Node));
    bytes.resize(bytes.size() - 10);
    bytes += fromHex(children);
    for (int depth = 1; depth < 900; ++depth) {
        bytes += fromHex("02 00 00 00 00 " + children);
    }
    bytes += std::string(100000, '\0');
    for (const bool blind : {false, true}) {
        const kt_test::MemoryWatch watch;
        using Handle = ktPtrHandle<toys::Node>;
        EXPECT_THROW(blind ? kt_test::loadBlind<Handle>(bytes) : load<Handle>(bytes), ktArchive::Corrupt);
        EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
    }
}

/// Counts how often one was copied. Its move might throw.
struct Counted {
    Counted() = default;
    Counted(const Counted& other) : number(other.number) { ++copies; }
    Counted(Counted&& other) noexcept(false) : number(other.number) {}
    Counted& operator=(const Counted&) = delete;

    long number = 0;
    double room[30] = {};

    static inline long copies = 0;
};
ktArchive& operator||(ktArchive& archive, Counted& counted)
{
    return archive || counted.number;
}

TEST(ArchiveContainers, ElementsAreNeverCopied)
{
    std::vector<Counted> stored(5000);
    stored.back().number = 7;
    const std::string bytes = store(stored);
    Counted::copies = 0;
    for (const std::size_t before : {0u, 3000u}) {
        std::vector<Counted> values(before);
        loadInto(values, bytes);
        EXPECT_EQ(values.back().number, 7);
        std::vector<Counted> blindly(before);
        kt_test::BlindSource blind(bytes);
        ktArchive archive(blind);
        archive || blindly;
        EXPECT_EQ(blindly.size(), 5000u);
        EXPECT_EQ(blindly.back().number, 7);
    }
    EXPECT_EQ(Counted::copies, 0);
}

/// Counts how often one was moved. It takes no more memory than the bytes that it stores pay for.
struct Moved {
    Moved() = default;
    Moved(Moved&& other) noexcept : number(other.number) { ++moves; }

    long number = 0;

    static inline long moves = 0;
};
ktArchive& operator||(ktArchive& archive, Moved& moved)
{
    return archive || moved.number;
}

TEST(ArchiveContainers, VectorWhoseBytesAreThereIsMadeAtOnceAndAnyOtherInFewSteps)
{
    std::vector<Moved> stored(20000);
    kt_test::StoringArchive storing;
    storing || stored;
    Moved::moves = 0;
    EXPECT_EQ(load<std::vector<Moved>>(storing.bytes()).size(), 20000u);
    EXPECT_EQ(Moved::moves, 0);
    const std::vector<Moved> blind = kt_test::loadBlind<std::vector<Moved>>(storing.bytes());
    EXPECT_EQ(blind.size(), 20000u);
    EXPECT_EQ(blind.capacity(), 20000u);
    EXPECT_LE(Moved::moves, 20000);
}

TEST(ArchiveContainers, ElementsThatSetNoMarksMoveWithoutThem)
{
    std::vector<toys::Markless> stored;
    for (long i = 0; i < 5000; ++i) {
        stored.emplace_back(i);
    }
    const auto loaded = kt_test::loadBlind<std::vector<toys::Markless>>(store(stored));
    ASSERT_EQ(loaded.size(), 5000u);
    for (long i = 0; i < 5000; ++i) {
        EXPECT_EQ(loaded[static_cast<std::size_t>(i)].number, i);
    }
}

TEST(ArchiveContainers, DoublesThatCannotBeThereAreRefused)
{
    kt_test::LoadingArchive archive(archiveHeader() + std::string(16, '\0'));
    unsigned char first = 0;
    archive || first;
    std::vector<double> values;
    const kt_test::MemoryWatch watch;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: impossible count 2 at byte 9.",
                                     [&] { archive.doubles(values, 2); });
    archive.doubles(values, 1);
    EXPECT_EQ(values, std::vector<double>{0.0});
    expectThrows<ktArchive::Corrupt>("Corrupt archive: impossible count 100000000 at byte 17.",
                                     [&] { archive.doubles(values, 100000000); });
    EXPECT_LE(watch.peakBytes(), 4096u);
}

TEST(ArchiveContainers, FailedLoadLeavesAValueThatCanBeLoadedAgain)
{
    std::vector<std::string> texts = {"old"};
    EXPECT_THROW(loadInto(texts, archiveHeader() + fromHex("00 02 00 00 00 01 00 00 00 61 09 00 00 00")),
                 ktArchive::Corrupt);
    loadInto(texts, store(std::vector<std::string>{"new", "newer"}));
    EXPECT_EQ(texts, (std::vector<std::string>{"new", "newer"}));
}

}  // namespace
