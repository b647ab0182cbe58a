#include <kt/archive.h>

#include "support/archives.h"
#include "support/bytes.h"
#include "support/damage.h"
#include "support/failures.h"
#include "support/streams.h"

#include "toys.h"

#include <fstream>
#include <new>
#include <sstream>

namespace {

using kt_test::AtLimit;
using kt_test::BlindSource;
using kt_test::expectThrows;
using kt_test::LimitedSink;
using kt_test::store;

/// Throws what it was given, at the first byte in either direction.
template <class Thrown>
class ThrowingBuffer : public std::streambuf {
public:
    explicit ThrowingBuffer(Thrown thrown) : thrown_(thrown) {}

protected:
    int_type underflow() override { throw thrown_; }
    int_type overflow(int_type) override { throw thrown_; }

private:
    Thrown thrown_;
};

/// Says that it can seek, but does not come back.
class LostBuffer : public std::stringbuf {
public:
    explicit LostBuffer(const std::string& bytes) : std::stringbuf(bytes) {}

protected:
    pos_type seekpos(pos_type, std::ios_base::openmode) override { return pos_type(off_type(-1)); }
};

/// Claims a length of 2^40 bytes.
class BoastingBuffer : public std::stringbuf {
public:
    explicit BoastingBuffer(const std::string& bytes) : std::stringbuf(bytes) {}

protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override
    {
        return from == std::ios_base::end ? pos_type(off_type{1} << 40) : std::stringbuf::seekoff(offset, from, which);
    }
};

TEST(ArchiveStream, SinkThatRefusesEndsInStreamFailed)
{
    LimitedSink sink(0, AtLimit::refuses);
    ktArchive archive(sink);
    long value = 1;
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", 0x10004006, [&] { archive || value; });
    EXPECT_EQ(value, 1);
}

TEST(ArchiveStream, SinkThatThrowsEndsInStreamFailedWithItsText)
{
    LimitedSink sink(0, AtLimit::throws);
    ktArchive archive(sink);
    long value = 1;
    expectThrows<ktArchive::StreamFailed>("The stream failed: the disk is full", 0x10004006, [&] { archive || value; });
}

TEST(ArchiveStream, SourceThatThrowsEndsInStreamFailedWithItsText)
{
    BlindSource source(store(1L), 0, AtLimit::throws);
    ktArchive archive(source);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream failed: the line is dead", 0x10004006, [&] { archive || value; });
    EXPECT_EQ(value, 5);
}

TEST(ArchiveStream, StreamThatThrowsAnythingEndsInStreamFailed)
{
    ThrowingBuffer<int> buffer(42);
    std::iostream stream(&buffer);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream failed.", 0x10004006,
                                          [&] { ktArchive(static_cast<std::ostream&>(stream)) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream failed.", 0x10004006,
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
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", 0x10004006,
                                          [&] { ktArchive(out) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.", 0x10004006, [&] { ktArchive(in) || value; });
    EXPECT_EQ(value, 5);
}

TEST(ArchiveStream, StreamWithoutABufferIsRefused)
{
    std::iostream stream(nullptr);
    stream.clear();
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", 0x10004006,
                                          [&] { ktArchive(static_cast<std::ostream&>(stream)) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.", 0x10004006,
                                          [&] { ktArchive(static_cast<std::istream&>(stream)) || value; });
}

TEST(ArchiveStream, StreamThatFailedBeforeIsRefused)
{
    std::stringstream stream(store(1L));
    stream.setstate(std::ios::failbit);
    long value = 5;
    expectThrows<ktArchive::StreamFailed>("The stream cannot be read.", 0x10004006,
                                          [&] { ktArchive(static_cast<std::istream&>(stream)) || value; });
    expectThrows<ktArchive::StreamFailed>("The stream did not take all bytes.", 0x10004006,
                                          [&] { ktArchive(static_cast<std::ostream&>(stream)) || value; });
}

TEST(ArchiveStream, StreamThatLosesItsPlaceIsRefused)
{
    LostBuffer buffer(store(std::string("text")));
    std::istream in(&buffer);
    ktArchive archive(in);
    std::string text;
    expectThrows<ktArchive::StreamFailed>("The stream failed: The stream did not return to where it stood.", 0x10004006,
                                          [&] { archive || text; });
}

TEST(ArchiveStream, LengthThatIsALieEndsInAnException)
{
    BoastingBuffer buffer(kt_test::archiveHeader() + kt_test::fromHex("00 05 00 00 00  01 00 00 00"));
    std::istream in(&buffer);
    ktArchive archive(in);
    std::vector<long> values;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: unexpected end at byte 17.", 0x10004002,
                                     [&] { archive || values; });
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

}  // namespace
