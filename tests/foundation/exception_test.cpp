#include "toys.h"

namespace {

using kt_test::expectThrows;
using toys::Mishap;
using toys::Sum;

TEST(Exception, MessageAndWhatAreTheText)
{
    const Mishap mishap("spilt milk");
    EXPECT_EQ(mishap.message(), "spilt milk");
    EXPECT_STREQ(mishap.what(), "spilt milk");
    EXPECT_EQ(Mishap().message(), "");
    EXPECT_STREQ(Mishap().what(), "");
}

TEST(Exception, CopiesKeepTheMessage)
{
    const Mishap mishap("spilt milk");
    const Mishap copy(mishap);
    Mishap assigned;
    assigned = mishap;
    EXPECT_EQ(copy.message(), "spilt milk");
    EXPECT_EQ(assigned.message(), "spilt milk");
}

TEST(Exception, IsCaughtByEachOfItsBases)
{
    EXPECT_THROW(throw Mishap(), ktExceptionWithString);
    EXPECT_THROW(throw Mishap(), ktException);
    EXPECT_THROW(throw Mishap(), ktPersistent);
    EXPECT_THROW(throw Mishap(), std::exception);
    EXPECT_THROW(throw ktBadPointer(), ktException);
    EXPECT_THROW(throw ktBadPointer(), ktPersistent);
    EXPECT_THROW(throw ktBadPointer(), std::exception);
    static_assert(std::is_abstract_v<ktException> && std::is_abstract_v<ktExceptionWithString>);
}

TEST(Exception, BadPointerHasAnEmptyMessage)
{
    EXPECT_EQ(ktBadPointer().message(), "");
    EXPECT_STREQ(ktBadPointer().what(), "");
    EXPECT_EQ(ktBadPointer().errorNumber(), 0x10004007);
}

TEST(Exception, RethrowingDestroysTheObjectAndThrowsACopyOfItsClass)
{
    ktException* error = new Mishap("spilt milk");
    expectThrows<Mishap>("spilt milk", [&] { error->suicideAndRethrow(); });
    EXPECT_EQ(toys::Alive<Mishap>::count, 0);
    ktException* null = new ktBadPointer;
    expectThrows<ktBadPointer>("", [&] { null->suicideAndRethrow(); });
    ktException* sum = new Sum;
    expectThrows<Sum>("1 + 1 = 2", [&] { sum->suicideAndRethrow(); });
}

TEST(Exception, TextIsArchivedWithoutAVersion)
{
    const Mishap mishap("milk");
    const std::string bytes = kt_test::store(mishap);
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(bytes)), "04 00 00 00 6D 69 6C 6B");
    EXPECT_EQ(kt_test::load<Mishap>(bytes).message(), "milk");
}

TEST(Exception, TextIsArchivedOnceAPass)
{
    Mishap mishap("milk");
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    archive || mishap || mishap;
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(archive.bytes())), "04 00 00 00 6D 69 6C 6B");
}

}  // namespace
