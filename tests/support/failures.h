#pragma once

#include <gtest/gtest.h>
#include <kt/exception.h>

#include <string>

namespace kt_test {

/// Expects that `operation` throws exactly an `Exception`, with this whole message and this error number:
///
///     kt_test::expectThrows<ktArchive::Corrupt>("Corrupt archive: not an archive at byte 4.", 0x10004002, [&] { archive || x; });
template <class Exception, class Operation>
void expectThrows(const std::string& message, long errorNumber, Operation operation)
{
    try {
        operation();
        ADD_FAILURE() << "no exception";
    } catch (const ktException& error) {
        EXPECT_EQ(typeid(error), typeid(Exception)) << error.message();
        EXPECT_EQ(error.message(), message);
        EXPECT_EQ(std::string(error.what()), message);
        EXPECT_EQ(error.errorNumber(), errorNumber);
    }
}

}  // namespace kt_test
