#include "archive_bytes.h"

namespace {

using namespace kt_test;

TEST(Archive, IsMadeExplicitlyAndNotCopied)
{
    static_assert(std::is_constructible_v<ktArchive, std::ostream&> &&
                  !std::is_convertible_v<std::ostream&, ktArchive>);
    static_assert(std::is_constructible_v<ktArchive, std::istream&> &&
                  !std::is_convertible_v<std::istream&, ktArchive>);
    static_assert(!std::is_constructible_v<ktArchive, std::stringstream&>, "a direction must be chosen by a cast");
    static_assert(!std::is_copy_constructible_v<ktArchive> && !std::is_copy_assignable_v<ktArchive>);
    std::stringstream stream;
    EXPECT_TRUE(ktArchive(static_cast<std::ostream&>(stream)).isStoring());
    EXPECT_FALSE(ktArchive(static_cast<std::ostream&>(stream)).isLoading());
    EXPECT_TRUE(ktArchive(static_cast<std::istream&>(stream)).isLoading());
    EXPECT_FALSE(ktArchive(static_cast<std::istream&>(stream)).isStoring());
}

TEST(Archive, HeaderComesBeforeTheFirstValue)
{
    EXPECT_EQ(toHex(store(static_cast<unsigned char>(7))), "4B 54 41 52 01 00 00 00 07");
}

TEST(Archive, HeaderIsWrittenOnceForAllOperations)
{
    const auto byte = static_cast<unsigned char>(7);
    EXPECT_EQ(toHex(store(byte, byte, byte)), "4B 54 41 52 01 00 00 00 07 07 07");
}

TEST(Archive, NothingStoredWritesNothing)
{
    std::ostringstream out;
    {
        ktArchive archive(static_cast<std::ostream&>(out));
    }
    EXPECT_EQ(out.str(), "");
}

TEST(Archive, NothingLoadedTakesNothing)
{
    std::istringstream in("text");
    {
        ktArchive archive(static_cast<std::istream&>(in));
    }
    EXPECT_EQ(in.tellg(), std::istringstream::pos_type(0));
}

TEST(Archive, ByteIsOneByte)
{
    expectRows<unsigned char>(
        {{"least", 0, "00"}, {"seven bits", 0x7F, "7F"}, {"eight bits", 0x80, "80"}, {"most", 0xFF, "FF"}});
}

TEST(Archive, LongIs32BitsInTwosComplementLowestByteFirst)
{
    expectRows<long>({{"zero", 0, "00 00 00 00"},
                      {"each byte has its place", 0x01020304, "04 03 02 01"},
                      {"minus one", -1, "FF FF FF FF"},
                      {"minus two", -2, "FE FF FF FF"},
                      {"most", 2147483647L, "FF FF FF 7F"},
                      {"least", -2147483647L - 1, "00 00 00 80"}});
}

TEST(Archive, UnsignedLongIs32BitsLowestByteFirst)
{
    expectRows<unsigned long>({{"zero", 0UL, "00 00 00 00"},
                               {"each byte has its place", 0x01020304UL, "04 03 02 01"},
                               {"high bit", 0x80000000UL, "00 00 00 80"},
                               {"most", 0xFFFFFFFFUL, "FF FF FF FF"}});
}

TEST(Archive, DoubleIs64BitsLowestByteFirst)
{
    expectRows<double>({{"zero", 0.0, "00 00 00 00 00 00 00 00"},
                        {"one", 1.0, "00 00 00 00 00 00 F0 3F"},
                        {"minus two", -2.0, "00 00 00 00 00 00 00 C0"},
                        {"a third", 1.0 / 3.0, "55 55 55 55 55 55 D5 3F"},
                        {"largest", std::numeric_limits<double>::max(), "FF FF FF FF FF FF EF 7F"}});
}

TEST(Archive, EveryDoubleSurvivesBitByBit)
{
    const std::vector<ByteRow<std::uint64_t>> rows = {
        {"minus zero", 0x8000000000000000, "00 00 00 00 00 00 00 80"},
        {"least above zero", 0x0000000000000001, "01 00 00 00 00 00 00 00"},
        {"infinity", 0x7FF0000000000000, "00 00 00 00 00 00 F0 7F"},
        {"minus infinity", 0xFFF0000000000000, "00 00 00 00 00 00 F0 FF"},
        {"quiet NaN", 0x7FF8000000000000, "00 00 00 00 00 00 F8 7F"},
        {"negative NaN with a load", 0xFFF8000000C0FFEE, "EE FF C0 00 00 00 F8 FF"},
        {"signalling NaN", 0x7FF0000000000001, "01 00 00 00 00 00 F0 7F"},
    };
    for (const ByteRow<std::uint64_t>& row : rows) {
        SCOPED_TRACE(row.label);
        std::vector<double> value(1);
        // In place: returned by value, a signalling NaN can pass through a register that makes it a quiet one.
        std::memcpy(value.data(), &row.value, sizeof row.value);
        const std::string bytes = store(value[0]);
        EXPECT_EQ(toHex(kt_test::afterHeader(bytes)), row.bytes);
        std::vector<double> loaded(1);
        loadInto(loaded[0], bytes);
        std::uint64_t bits = 0;
        std::memcpy(&bits, loaded.data(), sizeof bits);
        EXPECT_EQ(bits, row.value);
    }
}

TEST(Archive, OperatorsChain)
{
    EXPECT_EQ(hexOf(std::string("a"), 1L, 2UL, 0.0, static_cast<unsigned char>(3)),
              "01 00 00 00 61 01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00 03");
}

#if LONG_MAX > 0x7FFFFFFF
TEST(Archive, LongBeyond32BitsIsRefusedBeforeAByteIsWritten)
{
    const std::vector<std::pair<long, std::string>> rows = {{0x80000000L, "2147483648"},
                                                            {-0x80000001L, "-2147483649"},
                                                            {LONG_MAX, "9223372036854775807"},
                                                            {LONG_MIN, "-9223372036854775808"}};
    for (const auto& [number, digits] : rows) {
        std::ostringstream out;
        ktArchive archive(static_cast<std::ostream&>(out));
        long value = number;
        expectThrows<ktArchive::OutOfRange>("Archive value out of range: " + digits + " does not fit 32 bits.",
                                            [&] { archive || value; });
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(value, number);
    }
}

TEST(Archive, UnsignedLongBeyond32BitsIsRefusedBeforeAByteIsWritten)
{
    for (const auto& [number, digits] : std::vector<std::pair<unsigned long, std::string>>{
             {0x100000000UL, "4294967296"}, {ULONG_MAX, "18446744073709551615"}}) {
        std::ostringstream out;
        ktArchive archive(static_cast<std::ostream&>(out));
        unsigned long value = number;
        expectThrows<ktArchive::OutOfRange>("Archive value out of range: " + digits + " does not fit 32 bits.",
                                            [&] { archive || value; });
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(value, number);
    }
}

TEST(Archive, ArchiveGoesOnAfterAValueOutOfRange)
{
    kt_test::StoringArchive archive;
    long tooLarge = LONG_MAX;
    long one = 1;
    archive || one;
    EXPECT_THROW(archive || tooLarge, ktArchive::OutOfRange);
    archive || one;
    EXPECT_EQ(toHex(archive.bytes()), "4B 54 41 52 01 00 00 00 01 00 00 00 01 00 00 00");
}

TEST(Archive, CountBeyond32BitsIsRefusedBeforeAByteIsWritten)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    expectThrows<ktArchive::OutOfRange>("Archive value out of range: a count of 4294967296 does not fit 32 bits.",
                                        [&] { archive.count(std::size_t{1} << 32, 1); });
    EXPECT_EQ(out.str(), "");
}
#endif

TEST(Archive, EveryByteIsInTheStreamWhenTheOperationReturns)
{
    kt_test::StoringArchive archive;
    std::string text = "abc";
    archive || text;
    EXPECT_EQ(archive.bytes().size(), 15u);
    archive || text;
    EXPECT_EQ(archive.bytes().size(), 22u);
}

TEST(Archive, LiesInsideALargerStream)
{
    std::stringstream stream;
    stream << "before";
    std::vector<double> values = {1.5, 2.5};
    std::string text = "text";
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        archive || values || text;
    }
    stream << "after";
    std::string word(6, ' ');
    stream.read(&word[0], 6);
    std::vector<double> loadedValues;
    std::string loadedText;
    {
        ktArchive archive(static_cast<std::istream&>(stream));
        archive || loadedValues || loadedText;
    }
    EXPECT_EQ(loadedValues, values);
    EXPECT_EQ(loadedText, text);
    stream >> word;
    EXPECT_EQ(word, "after");
}

TEST(Archive, SeveralArchivesFollowOneAnotherInOneStream)
{
    const std::string bytes = store(1L) + store(std::string("two")) + store(3.0);
    std::istringstream in(bytes);
    long one = 0;
    std::string two;
    double three = 0.0;
    ktArchive(static_cast<std::istream&>(in)) || one;
    ktArchive(static_cast<std::istream&>(in)) || two;
    ktArchive(static_cast<std::istream&>(in)) || three;
    EXPECT_EQ(one, 1);
    EXPECT_EQ(two, "two");
    EXPECT_EQ(three, 3.0);
    EXPECT_EQ(static_cast<std::size_t>(in.tellg()), bytes.size());
}

TEST(Archive, OtherBytesAreNotAnArchive)
{
    for (const char* bytes :
         {"4B 54 41 53 01 00 00 00 07", "6B 74 61 72 01 00 00 00 07", "00 00 00 00 01 00 00 00 07"}) {
        unsigned char value = 1;
        expectThrows<ktArchive::Corrupt>("Corrupt archive: not an archive at byte 4.",
                                         [&] { loadInto(value, fromHex(bytes)); });
        EXPECT_EQ(value, 1);
    }
}

TEST(Archive, OtherEncodingIsAnUnknownVersion)
{
    for (const char* bytes :
         {"4B 54 41 52 00 00 00 00 07", "4B 54 41 52 02 00 00 00 07", "4B 54 41 52 01 00 00 01 07"}) {
        unsigned char value = 1;
        expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive: ktArchive.",
                                                [&] { loadInto(value, fromHex(bytes)); });
        EXPECT_EQ(value, 1);
    }
}

TEST(Archive, EarlyEndIsCorruptAndNamesTheByte)
{
    const std::string bytes = store(0x01020304L);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        long value = 5;
        expectThrows<ktArchive::Corrupt>("Corrupt archive: unexpected end at byte " + std::to_string(size) + ".",
                                         [&] { loadInto(value, bytes.substr(0, size)); });
        EXPECT_EQ(value, 5);
    }
}

TEST(Archive, ByteInAMessageCountsFromTheBeginningOfTheArchive)
{
    std::istringstream in("before" + store(1L));
    in.ignore(6);
    ktArchive archive(static_cast<std::istream&>(in));
    long value = 0;
    archive || value;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: unexpected end at byte 12.", [&] { archive || value; });
}

TEST(Archive, VersionByteIsStoredAsZero)
{
    kt_test::StoringArchive archive;
    archive.version("somewhere", 7);
    EXPECT_EQ(toHex(archive.bytes()), "4B 54 41 52 01 00 00 00 00");
}

TEST(Archive, UnknownVersionSaysWhereItWasMet)
{
    struct {
        const char* where;
        int line;
        const char* message;
    } const rows[] = {
        {"toys::Node", 0, "Unknown version in an archive: toys::Node."},
        {"clss/clastool/clastool", 896, "Unknown version in an archive: clss/clastool/clastool, line 896."},
        {nullptr, 0, "Unknown version in an archive."},
        {nullptr, 5, "Unknown version in an archive."}};
    for (const auto& row : rows) {
        kt_test::LoadingArchive archive(archiveHeader() + "\1");
        expectThrows<ktArchive::UnknownVersion>(row.message, [&] { archive.version(row.where, row.line); });
        const ktArchive::UnknownVersion error(row.where, row.line);
        EXPECT_EQ(error.where(), row.where);
        EXPECT_EQ(error.line(), row.line);
    }
}

TEST(Archive, EveryVersionButZeroIsUnknown)
{
    EXPECT_NO_THROW(ktArchive::checkVersion(0, "a", 1));
    for (int version = 1; version < 256; ++version) {
        EXPECT_THROW(ktArchive::checkVersion(static_cast<unsigned char>(version), "a", 1), ktArchive::UnknownVersion)
            << version;
    }
}

template <class Failure>
void expectCatchableAsEachBase(const Failure& failure)
{
    EXPECT_THROW(throw failure, ktArchive::Errors);
    EXPECT_THROW(throw failure, ktExceptionWithString);
    EXPECT_THROW(throw failure, ktException);
    EXPECT_THROW(throw failure, ktPersistent);
    EXPECT_THROW(throw failure, std::exception);
}

TEST(Archive, FailuresAreCaughtByEachOfTheirBases)
{
    expectCatchableAsEachBase(ktArchive::UnknownVersion("a", 1));
    expectCatchableAsEachBase(ktArchive::Corrupt("a"));
    expectCatchableAsEachBase(ktArchive::OutOfRange("a"));
    expectCatchableAsEachBase(ktArchive::TooDeep("a"));
    expectCatchableAsEachBase(ktArchive::Conflict("a"));
    expectCatchableAsEachBase(ktArchive::StreamFailed("a"));
}

TEST(Archive, FailuresHaveNumbersOfTheirOwn)
{
    EXPECT_EQ(ktArchive::UnknownVersion("a", 1).errorNumber(), 0x10004001);
    EXPECT_EQ(ktArchive::Corrupt("a").errorNumber(), 0x10004002);
    EXPECT_EQ(ktArchive::OutOfRange("a").errorNumber(), 0x10004003);
    EXPECT_EQ(ktArchive::TooDeep("a").errorNumber(), 0x10004004);
    EXPECT_EQ(ktArchive::Conflict("a").errorNumber(), 0x10004005);
    EXPECT_EQ(ktArchive::StreamFailed("a").errorNumber(), 0x10004006);
}

TEST(Archive, AssignedFailureSaysWhatTheOtherSays)
{
    ktArchive::UnknownVersion unknown("here", 3);
    unknown = ktArchive::UnknownVersion("there", 0);
    EXPECT_EQ(unknown.message(), "Unknown version in an archive: there.");
    EXPECT_STREQ(unknown.where(), "there");
    EXPECT_EQ(unknown.line(), 0);
    ktArchive::Corrupt corrupt("text");
    corrupt = ktArchive::Corrupt("another text");
    EXPECT_EQ(corrupt.message(), "another text");
}

TEST(Archive, FailureThrownFromTheFreeStoreKeepsItsClass)
{
    ktArchive::Errors* unknown = new ktArchive::UnknownVersion("here", 3);
    expectThrows<ktArchive::UnknownVersion>("Unknown version in an archive: here, line 3.",
                                            [&] { unknown->suicideAndRethrow(); });
    ktArchive::Errors* conflict = new ktArchive::Conflict("text");
    expectThrows<ktArchive::Conflict>("text", [&] { conflict->suicideAndRethrow(); });
}

}  // namespace
