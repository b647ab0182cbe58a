#pragma once

#include <gtest/gtest.h>
#include <kt/exception.h>

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

/// The same.
template <class Exception, class Operation>
void expectThrows(const std::string& message, long, Operation operation)
{
    expectThrows<Exception>(message, operation);
}

}  // namespace kt_test
