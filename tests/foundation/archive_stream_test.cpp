#include "toys.h"

#include "support/damage.h"
#include "support/streams.h"

namespace {

using namespace kt_test;

TEST(ArchiveStream, SinkThatRefusesEndsInStreamFailed)
{
    LimitedSink sink(0, AtLimit::refuses);
    ktArchive archive(sink);
    long value = 1;
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", [&] { archive || value; });
    EXPECT_EQ(value, 1);
}

TEST(ArchiveStream, SinkThatThrowsEndsInStreamFailedWithItsText)
{
    LimitedSink sink(0, AtLimit::throws);
    ktArchive archive(sink);
    long value = 1;
    expectThrows<ktArchive::StreamFailed>("The stream failed: the disk is full", [&] { archive || value; });
}

TEST(ArchiveStream, SourceThatThrowsEndsInStreamFailedWithItsText)
{
    BlindSource source(store(1L), 0, AtLimit::throws);
    ktArchive archive(source);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream failed: the line is dead", [&] { archive || value; });
    EXPECT_EQ(value, 5);
}

TEST(ArchiveStream, StreamThatThrowsAnythingEndsInStreamFailed)
{
    ThrowingBuffer<int> buffer(42);
    std::iostream stream(&buffer);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream failed.",
                                          [&] { ktArchive(static_cast<std::ostream&>(stream)) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream failed.",
                                          [&] { ktArchive(static_cast<std::istream&>(stream)) || value; });
}

TEST(ArchiveStream, StreamThatRunsOutOfMemoryEndsInBadAlloc)
{
    ThrowingBuffer<std::bad_alloc> buffer{std::bad_alloc()};
    std::iostream stream(&buffer);
    long value = 5;
    EXPECT_THROW(ktArchive(static_cast<std::ostream&>(stream)) || value, std::bad_alloc);
    EXPECT_THROW(ktArchive(static_cast<std::istream&>(stream)) || value, std::bad_alloc);
}

TEST(ArchiveStream, FileThatIsNotOpenIsRefused)
{
    std::ofstream out("no such folder/file", std::ios::binary);
    std::ifstream in("no such folder/file", std::ios::binary);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", [&] { ktArchive(out) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.", [&] { ktArchive(in) || value; });
    EXPECT_EQ(value, 5);
}

TEST(ArchiveStream, StreamWithoutABufferIsRefused)
{
    std::iostream stream(nullptr);
    stream.clear();
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.",
                                          [&] { ktArchive(static_cast<std::ostream&>(stream)) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.",
                                          [&] { ktArchive(static_cast<std::istream&>(stream)) || value; });
}

TEST(ArchiveStream, StreamWhoseBufferWasTakenAwayIsRefused)
{
    std::stringbuf buffer(store(1L));
    RobbedStream stream(&buffer);
    ASSERT_TRUE(stream.good());
    ktArchive storing(static_cast<std::ostream&>(stream));
    ktArchive loading(static_cast<std::istream&>(stream));
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", [&] { storing || value; });
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.", [&] { loading || value; });
    EXPECT_FALSE(loading.bytesLeftKnown());
    EXPECT_EQ(value, 5);
    EXPECT_EQ(buffer.str(), store(1L));
}

TEST(ArchiveStream, OnlyLoadingKnowsHowManyBytesAreLeft)
{
    std::stringstream stream(store(1L));
    EXPECT_TRUE(ktArchive(static_cast<std::istream&>(stream)).bytesLeftKnown());
    EXPECT_FALSE(ktArchive(static_cast<std::ostream&>(stream)).bytesLeftKnown());
}

TEST(ArchiveStream, CountOfLargeElementsIsCheckedAgainstTheBytesLeft)
{
    constexpr std::size_t large = 5000;
    const std::string bytes = store(2L) + std::string(2 * large, 'x');
    std::istringstream enough(bytes);
    EXPECT_EQ(ktArchive(static_cast<std::istream&>(enough)).count(0, large), 2u);
    kt_test::LoadingArchive archive(bytes.substr(0, bytes.size() - 1));
    expectThrows<ktArchive::Corrupt>("Corrupt archive: impossible count 2 at byte 12.",
                                     [&] { archive.count(0, large); });
}

TEST(ArchiveStream, StreamThatFailedBeforeIsRefused)
{
    std::stringstream stream(store(1L));
    stream.setstate(std::ios::failbit);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.",
                                          [&] { ktArchive(static_cast<std::istream&>(stream)) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.",
                                          [&] { ktArchive(static_cast<std::ostream&>(stream)) || value; });
}

TEST(ArchiveStream, StreamThatLosesItsPlaceIsRefused)
{
    LostBuffer buffer(store(std::string("text")));
    std::istream in(&buffer);
    ktArchive archive(in);
    std::string text;
    expectThrows<ktArchive::StreamFailed>("The stream failed: The stream did not return to where it stood.",
                                          [&] { archive || text; });
}

TEST(ArchiveStream, LengthThatIsALieEndsInAnException)
{
    BoastingBuffer buffer(kt_test::archiveHeader() + kt_test::fromHex("00 05 00 00 00  01 00 00 00"));
    std::istream in(&buffer);
    ktArchive archive(in);
    std::vector<long> values;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: unexpected end at byte 17.", [&] { archive || values; });
}

TEST(ArchiveStream, LoadingFromAStreamWithoutALengthGivesTheSame)
{
    const std::string text(10000, 'x');
    EXPECT_EQ(kt_test::loadBlind<std::string>(store(text)), text);
    const std::vector<double> values(5000, 0.25);
    EXPECT_EQ(kt_test::loadBlind<std::vector<double>>(store(values)), values);
    const std::vector<long> numbers(1000, -3);
    EXPECT_EQ(kt_test::loadBlind<std::vector<long>>(store(numbers)), numbers);
    const std::vector<bool> flags(1001, true);
    EXPECT_EQ(kt_test::loadBlind<std::vector<bool>>(store(flags)), flags);
}

TEST(ArchiveStream, LoadingFromAStreamWithoutALengthTakesNotOneByteMore)
{
    BlindSource in(store(std::vector<double>(5000, 0.25)) + "after");
    std::vector<double> values;
    ktArchive archive(in);
    archive || values;
    EXPECT_EQ(in.taken(), 8u + 1 + 4 + 8 * 5000);
}

TEST(ArchiveStream, FailureAtEachByteIsReportedAndLeaksNothing)
{
    kt_test::failEachByte(
        [](ktArchive& archive) {
            ktPtrHandle<toys::Node> tree = toys::chain(3);
            std::vector<bool> flags(9, true);
            std::string text = "text";
            archive || tree || flags || text;
        },
        [](ktArchive& archive) {
            ktPtrHandle<toys::Node> tree;
            std::vector<bool> flags;
            std::string text;
            archive || tree || flags || text;
        });
    EXPECT_EQ(toys::Alive<toys::Node>::count, 0);
}

/// A sink that counts how often it is called for a row of bytes.
class CountingSink : public std::stringbuf {
public:
    long numCalls() const { return numCalls_; }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize size) override
    {
        ++numCalls_;
        EXPECT_LE(size, 16384);
        return std::stringbuf::xsputn(bytes, size);
    }

private:
    long numCalls_ = 0;
};

TEST(ArchiveStream, OperationsInsideAnotherReachTheSinkInBlocks)
{
    std::vector<std::vector<std::vector<double>>> nested(2, {{1.0}, {2.0, 3.0}});
    nested[1].resize(5000, {4.0});
    CountingSink sink;
    std::ostream out(&sink);
    ktArchive archive(out);
    archive || nested;
    EXPECT_LT(sink.numCalls(), 20);
    EXPECT_EQ(sink.str(), store(nested));
    EXPECT_EQ(kt_test::storedAndLoaded(nested), nested);
}

/// Counts how often its position is asked.
class AskedSource : public std::stringbuf {
public:
    explicit AskedSource(const std::string& bytes) : std::stringbuf(bytes) {}
    long numAsked() const { return numAsked_; }

protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override
    {
        ++numAsked_;
        return std::stringbuf::seekoff(offset, from, which);
    }

private:
    long numAsked_ = 0;
};

TEST(ArchiveStream, IsAskedOnceAPassHowManyBytesThereAre)
{
    const std::vector<std::vector<long>> nested = {{1, 2}, {3}, {}};
    AskedSource source(store(nested));
    std::istream in(&source);
    ktArchive archive(in);
    std::vector<std::vector<long>> loaded;
    archive || loaded;
    EXPECT_EQ(loaded, nested);
    // Where it stands, and where it ends.
    EXPECT_EQ(source.numAsked(), 2);
}

TEST(ArchiveStream, EveryLengthAroundTheBufferIsStoredWhole)
{
    for (const std::size_t length : {16370u, 16375u, 16376u, 16377u, 16384u, 16385u, 32768u, 40000u}) {
        SCOPED_TRACE(length);
        std::vector<std::vector<std::string>> texts = {{"before", std::string(length, 'x'), "behind"}};
        EXPECT_EQ(kt_test::storedAndLoaded(texts), texts);
        std::vector<std::vector<std::vector<double>>> numbers = {{{1.0}, std::vector<double>(length / 8, 2.5), {3.0}}};
        EXPECT_EQ(kt_test::storedAndLoaded(numbers), numbers);
    }
}

TEST(ArchiveStream, OperationInsideAPassOpenedByHandIsInTheStreamWhenItReturns)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    std::vector<std::vector<double>> nested = {{1.0}, {2.0}};
    long number = 7;
    archive || nested;
    EXPECT_EQ(kt_test::toHex(archive.bytes()), kt_test::toHex(store(nested)));
    archive || number;
    EXPECT_EQ(archive.bytes().size(), store(nested).size() + 4);
}

TEST(ArchiveStream, DoubleThatComesFirstInsidePassesStandsBehindTheHeader)
{
    kt_test::StoringArchive storing;
    double value = 2.5;
    {
        const ktArchive::Pass outer(storing);
        const ktArchive::Pass inner(storing);
        storing || value;
    }
    EXPECT_EQ(storing.bytes(), store(value));
}

TEST(ArchiveStream, PassOfAnotherArchiveBetweenTwoChangesNoByte)
{
    std::ostringstream out;
    std::ostringstream otherOut;
    ktArchive archive(static_cast<std::ostream&>(out));
    ktArchive other(static_cast<std::ostream&>(otherOut));
    std::string text = "text";
    {
        const ktArchive::Pass outer(archive);
        const ktArchive::Pass inner(archive);
        archive || text;
        const ktArchive::Pass between(other);
        other || text;
        archive || text;
        EXPECT_EQ(out.str(), "") << "two passes are open: the bytes wait for their end";
    }
    EXPECT_EQ(otherOut.str(), store(text));
    EXPECT_EQ(out.str(), store(text) + kt_test::afterHeader(store(text)));
}

TEST(ArchiveStream, SinkThatRefusesTheLastBytesFailsTheOperation)
{
    std::vector<std::vector<double>> nested = {{1.0}, {2.0}};
    const std::size_t whole = store(nested).size();
    for (const AtLimit atLimit : {AtLimit::refuses, AtLimit::throws}) {
        LimitedSink sink(whole - 1, atLimit);
        ktArchive archive(sink);
        EXPECT_THROW(archive || nested, ktArchive::StreamFailed);
    }
}

TEST(ArchiveStream, WhatASinkRefusedIsNotOfferedAgain)
{
    std::vector<std::vector<std::vector<double>>> nested = {{{1.0}, {2.0}}};
    const std::string whole = store(nested);
    LimitedSink sink(whole.size() - 1, AtLimit::refuses);
    ktArchive archive(sink);
    EXPECT_THROW(archive || nested, ktArchive::StreamFailed);
    const std::string taken = sink.bytes();
    EXPECT_EQ(taken, whole.substr(0, taken.size()));
    long number = 7;
    EXPECT_THROW(archive || number, ktArchive::StreamFailed);
    EXPECT_EQ(sink.bytes().substr(0, taken.size()), taken);
}

/// Refuses bytes while a flag is set.
class MoodyBuffer : public std::stringbuf {
public:
    bool refuses = false;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize size) override
    {
        return refuses ? 0 : std::stringbuf::xsputn(bytes, size);
    }
};

TEST(ArchiveStream, WhatASinkRefusedIsNotOfferedAgainWhenItTakesBytesAgain)
{
    MoodyBuffer buffer;
    std::ostream sink(&buffer);
    ktArchive archive(sink);
    long number = 7;
    archive || number;
    const std::string before = buffer.str();
    buffer.refuses = true;
    std::vector<std::vector<std::vector<double>>> nested = {{{1.0}, {2.0}}};
    EXPECT_THROW(archive || nested, ktArchive::StreamFailed);
    buffer.refuses = false;
    archive || number;
    EXPECT_EQ(kt_test::toHex(buffer.str()), kt_test::toHex(before + kt_test::littleEndian32(7)));
}

TEST(ArchiveStream, FailureOnItsWayIsNotReplacedByThatOfTheStream)
{
    struct Thrown {};
    LimitedSink sink(8, AtLimit::refuses);
    ktArchive archive(sink);
    std::string text;
    EXPECT_THROW(
        {
            const ktArchive::Pass outer(archive);
            const ktArchive::Pass inner(archive);
            archive || text;
            throw Thrown();
        },
        Thrown);
}

TEST(ArchiveStream, WhatWasStoredBeforeAFailureIsInTheStream)
{
    if (sizeof(long) <= 4) {
        GTEST_SKIP() << "every long fits 32 bits here";
    }
    kt_test::StoringArchive archive;
    std::vector<std::vector<long>> nested = {{1, std::numeric_limits<long>::max()}};
    EXPECT_THROW(archive || nested, ktArchive::OutOfRange);
    std::vector<std::vector<long>> sameBeginning = {{1, 0}};
    EXPECT_EQ(archive.bytes(), store(sameBeginning).substr(0, store(sameBeginning).size() - 4));
}

}  // namespace
