#pragma once

#include "support/failures.h"

#include <clastool/foundation.h>

#include <string>

// Short ways to say which error an operation ends in.

namespace kt_test {

/// The published number of an exception class.
template <class Error>
constexpr long errorNumber = 0;
template <>
inline constexpr long errorNumber<ktClassifierDefs::BadParams> = 0x10004200;
template <>
inline constexpr long errorNumber<ktClassifierDefs::BadIndex> = 0x10004202;
template <>
inline constexpr long errorNumber<ktClassifierDefs::BadLabel> = 0x10004203;
template <>
inline constexpr long errorNumber<ktClassifierDefs::BadFeatures> = 0x10004206;
template <>
inline constexpr long errorNumber<ktClassifierDefs::InsufficientTrainData> = 0x10004207;
template <>
inline constexpr long errorNumber<ktBadPointer> = 0x10004007;
template <>
inline constexpr long errorNumber<ktFailure> = 0x10004008;

/// Expects that `operation` throws exactly an Error with its number and this whole message:
///
///     kt_test::expectRefused<ktClassifierDefs::BadParams>([&] { costs.defaultMisclassificationCost(-1.0); }, "Costs must be >= 0.0");
template <class Error, class Operation>
void expectRefused(Operation operation, const std::string& message)
{
    static_assert(errorNumber<Error> != 0, "the number of this class is not in the table");
    expectThrows<Error>(message, errorNumber<Error>, operation);
}

/// Expects that `operation` throws ktBadPointer, whose message is empty.
template <class Operation>
void expectBadPointer(Operation operation)
{
    expectRefused<ktBadPointer>(operation, "");
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

}  // namespace kt_test
