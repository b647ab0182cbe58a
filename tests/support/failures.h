#pragma once

#include <gtest/gtest.h>
#include <kt/archive.h>

#include <string>

namespace kt_test {

/// Expects that `operation` throws exactly an `Exception`, with this whole message. Its number is that of its class, which a
/// test of the class alone asserts.
///
///     kt_test::expectThrows<ktArchive::Corrupt>("Corrupt archive: not an archive at byte 4.", [&] { archive || x; });
template <class Exception, class Operation>
void expectThrows(const std::string& message, Operation operation)
{
    try {
        operation();
        ADD_FAILURE() << "no exception";
    } catch (const ktException& error) {
        EXPECT_EQ(typeid(error), typeid(Exception)) << error.message();
        EXPECT_EQ(error.message(), message);
        EXPECT_EQ(std::string(error.what()), message);
    }
}

/// Expects that `operation` throws ktArchive::UnknownVersion with this text, which may be null, and this line.
template <class Operation>
void expectUnknownVersion(Operation operation, const char* where, int line)
{
    try {
        operation();
        ADD_FAILURE() << "no exception";
    } catch (const ktArchive::UnknownVersion& error) {
        EXPECT_STREQ(error.where(), where);
        EXPECT_EQ(error.line(), line);
    } catch (const ktException& error) {
        ADD_FAILURE() << error.message();
    }
}

/// Expects that `operation` throws ktBadPointer, whose message is empty.
template <class Operation>
void expectBadPointer(Operation operation)
{
    expectThrows<ktBadPointer>("", operation);
}

}  // namespace kt_test
