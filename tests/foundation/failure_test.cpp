#include "handlers.h"

namespace {

using namespace handlers;
using kt_test::expectThrows;

TEST(Failure, CodesWithoutBit31AreNoFailures)
{
    const Registration registration(group, &throwsAlways);
    for (const long code : {0L, 1L, 0x7D00L, 0x7FFFFFFFL}) {
        EXPECT_NO_THROW(kfThrowExceptionOnFailure(code)) << code;
    }
}

TEST(Failure, CodeThatNoConverterTakesIsAFailure)
{
    expectThrows<ktFailure>("The operation failed with status 0x80007D01.",
                            [] { kfThrowExceptionOnFailure(firstCode + 1); });
    try {
        kfThrowExceptionOnFailure(firstCode + 1);
    } catch (const ktFailure& failure) {
        EXPECT_EQ(failure.code(), firstCode + 1);
        EXPECT_EQ(failure.errorNumber(), 0x10004008);
    }
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), ktExceptionWithString);
    static_assert(std::is_base_of_v<ktException, ktFailure>);
}

TEST(Failure, ConverterIsAskedForItsGroupAlone)
{
    const Registration registration(group, &recordsAndReturns);
    for (const long other : {firstCode - 1, firstCode + 32, firstCode + 32 * 64, firstCode + 32 * (1 << 20),
                             static_cast<long>(0x80000000UL), static_cast<long>(0xFFFFFFFFUL)}) {
        EXPECT_THROW(kfThrowExceptionOnFailure(other), ktFailure);
    }
    EXPECT_TRUE(seen.empty());
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), ktFailure) << "the converter returned";
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 31), ktFailure) << "the converter returned";
    EXPECT_EQ(seen, (std::vector<long>{firstCode, firstCode + 31}));
}

TEST(Failure, WhatAConverterThrowsPasses)
{
    const Registration registration(group, &throwsForCodeOne);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 1), std::domain_error);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 2), ktFailure);
}

TEST(Failure, NewestConverterOfAGroupIsAskedFirstThenTheOlder)
{
    const Registration older(group, &throwsAlways);
    const Registration newer(group, &throwsForCodeOne);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 1), std::domain_error);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 2), std::range_error);
}

TEST(Failure, CodesAreComparedAs32BitValues)
{
    const Registration registration(group, &recordsAndReturns);
    const auto signExtended = static_cast<long>(static_cast<int>(0x80007D00U));
    EXPECT_THROW(kfThrowExceptionOnFailure(signExtended), ktFailure);
    EXPECT_EQ(seen, std::vector<long>{signExtended}) << "the code is handed on as it came";
    expectThrows<ktFailure>("The operation failed with status 0x80007D00.",
                            [&] { kfThrowExceptionOnFailure(signExtended); });
}

TEST(Failure, ConverterThatWasTakenAwayIsNotAsked)
{
    {
        const Registration first(group, &throwsAlways);
        const Registration second(group, &recordsAndReturns);
        const Registration third(group + 1, &throwsAlways);
        kfUnregisterExceptionConverter(group + 1, &recordsAndReturns);
        kfUnregisterExceptionConverter(group, &recordsAndReturns);
        EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), std::range_error);
        EXPECT_TRUE(seen.empty());
    }
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), ktFailure);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 32), ktFailure);
}

void takesItselfAway(long code)
{
    seen.push_back(code);
    kfUnregisterExceptionConverter(group, &takesItselfAway);
}

void exchangesTheOthers(long code)
{
    seen.push_back(code);
    kfUnregisterExceptionConverter(group, &throwsAlways);
    kfRegisterExceptionConverter(group, &throwsAlways);
}

TEST(Failure, ConverterMayTakeItselfAwayWhileItIsAsked)
{
    const Registration older(group, &throwsForCodeOne);
    kfRegisterExceptionConverter(group, &takesItselfAway);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 1), std::domain_error);
    EXPECT_EQ(seen, (std::vector<long>{firstCode + 1, firstCode + 1})) << "itself and the older one";
    seen.clear();
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode + 2), ktFailure);
    EXPECT_EQ(seen, std::vector<long>{firstCode + 2});
}

TEST(Failure, ConverterMayTakeAnotherAwayAndWhatItRegistersIsAskedFromTheNextCodeOn)
{
    const Registration older(group, &throwsAlways);
    const Registration newer(group, &exchangesTheOthers);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), ktFailure)
        << "the older one has gone, and its successor is newer";
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), std::range_error);
}

TEST(Failure, NullConverterTakesNoCode)
{
    const Registration registration(group, nullptr);
    EXPECT_THROW(kfThrowExceptionOnFailure(firstCode), ktFailure);
}

TEST(Failure, CopiesKeepCodeAndText)
{
    const ktFailure failure(firstCode);
    const ktFailure copy(failure);
    ktFailure assigned(1);
    assigned = failure;
    EXPECT_EQ(copy.code(), firstCode);
    EXPECT_EQ(copy.message(), "The operation failed with status 0x80007D00.");
    EXPECT_EQ(assigned.code(), firstCode);
    EXPECT_EQ(assigned.message(), copy.message());
    ktFailure* onTheFreeStore = new ktFailure(firstCode);
    expectThrows<ktFailure>("The operation failed with status 0x80007D00.",
                            [&] { onTheFreeStore->suicideAndRethrow(); });
}

}  // namespace
