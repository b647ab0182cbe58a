#include "error_classes.h"
#include "refusals.h"

namespace {

using kt_test::expectRefused;
using namespace errors;

TYPED_TEST_SUITE(EachError, AllErrors, ShortNames);

TYPED_TEST(EachError, HasItsNumber)
{
    const typename TypeParam::Class error("text");
    EXPECT_EQ(error.errorNumber(), TypeParam::number);
    EXPECT_EQ(static_cast<const Errors&>(error).errorNumber(), TypeParam::number);
}

TYPED_TEST(EachError, DefinesItsOperationsItself)
{
    using Error = typename TypeParam::Class;
    EXPECT_TRUE((std::is_same_v<decltype(&Error::errorNumber), long (Error::*)() const>));
    EXPECT_TRUE((std::is_same_v<decltype(&Error::suicideAndRethrow), void (Error::*)()>));
}

TYPED_TEST(EachError, IsCaughtByItselfAndEveryBase)
{
    using Error = typename TypeParam::Class;
    const auto raise = [] { throw Error("text"); };
    EXPECT_TRUE(caughtAs<Error>(raise));
    EXPECT_TRUE(caughtAs<Errors>(raise));
    EXPECT_TRUE(caughtAs<ktExceptionWithString>(raise));
    EXPECT_TRUE(caughtAs<ktException>(raise));
    EXPECT_TRUE(caughtAs<ktPersistent>(raise));
    EXPECT_TRUE(caughtAs<std::exception>(raise));
}

TYPED_TEST(EachError, IsNotCaughtByAnotherOfTheEight)
{
    const std::function<void()> raise = [] { throw typename TypeParam::Class("text"); };
    const std::vector<bool> caught = {
        caughtAs<ktClassifierDefs::BadParams>(raise),   caughtAs<ktClassifierDefs::NotTrained>(raise),
        caughtAs<ktClassifierDefs::BadIndex>(raise),    caughtAs<ktClassifierDefs::BadLabel>(raise),
        caughtAs<ktClassifierDefs::BadMethod>(raise),   caughtAs<ktClassifierDefs::NotImplemented>(raise),
        caughtAs<ktClassifierDefs::BadFeatures>(raise), caughtAs<ktClassifierDefs::InsufficientTrainData>(raise)};
    for (std::size_t i = 0; i < caught.size(); ++i) {
        EXPECT_EQ(caught[i], static_cast<long>(i) == TypeParam::number - 0x10004200) << i;
    }
    EXPECT_FALSE(caughtAs<ktArchive::Errors>(raise));
}

TYPED_TEST(EachError, HoldsItsMessage)
{
    using Error = typename TypeParam::Class;
    EXPECT_EQ(Error().message(), "");
    EXPECT_STREQ(Error().what(), "");
    EXPECT_EQ(Error("Costs must be >= 0.0").message(), "Costs must be >= 0.0");
    EXPECT_STREQ(Error("Costs must be >= 0.0").what(), "Costs must be >= 0.0");
}

TYPED_TEST(EachError, SuicideThrowsACopyAndDestroysTheObject)
{
    using Error = typename TypeParam::Class;
    Opened<Error>::destroyed = 0;
    ktException* error = new Opened<Error>("the last words");
    kt_test::expectThrows<Error>("the last words", [error] { error->suicideAndRethrow(); });
    EXPECT_EQ(Opened<Error>::destroyed, 1);
}

TYPED_TEST(EachError, IsArchivedLayerByLayerThenTheMessage)
{
    const std::string bytes = kt_test::store(typename TypeParam::Class("text"));
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(bytes)), "00 00 04 00 00 00 74 65 78 74");
}

TYPED_TEST(EachError, SerializeArchivesWhatFollowsTheVersionOfItsLayer)
{
    const auto stored = [](auto serialize) {
        Opened<typename TypeParam::Class> error("text");
        kt_test::StoringArchive archive;
        serialize(error, archive);
        return kt_test::toHex(kt_test::afterHeader(archive.bytes()));
    };
    EXPECT_EQ(stored([](auto& error, ktArchive& archive) { error.serialize(archive, 0); }),
              "00 04 00 00 00 74 65 78 74");
    EXPECT_EQ(stored([](auto& error, ktArchive& archive) { error.serializeErrors(archive, 0); }),
              "04 00 00 00 74 65 78 74");
}

TEST(Errors, IsAbstractAndNotInTheRegistry)
{
    EXPECT_TRUE(std::is_abstract_v<Errors>);
    EXPECT_FALSE((std::is_constructible_v<Errors, const std::string&>));
    EXPECT_TRUE((std::is_base_of_v<ktExceptionWithString, Errors>));
    EXPECT_EQ(kt_Instantiator::find(typeid(Errors)), nullptr);
    EXPECT_EQ(kt_Instantiator::find(std::string("ktClassifierDefs::Errors")), nullptr);
}

TEST(Errors, AssignmentThroughTheBaseCopiesTheMessageAlone)
{
    ktClassifierDefs::BadParams error("old");
    Errors& base = error;
    base = ktClassifierDefs::BadIndex("new");
    EXPECT_EQ(error.message(), "new");
    EXPECT_EQ(base.errorNumber(), 0x10004200);
}

TEST(Errors, NumbersAreNotInTheOrderOfDeclaration)
{
    // Kept on purpose: BadIndex is declared before NotTrained.
    EXPECT_EQ(ktClassifierDefs::NotTrained().errorNumber(), 0x10004201);
    EXPECT_EQ(ktClassifierDefs::BadIndex().errorNumber(), 0x10004202);
}

/// A failure code as a `long` of 64 bits may hold it: as it is written, or with the sign carried on.
std::vector<long> spellings(unsigned long code)
{
    return {static_cast<long>(code), static_cast<long>(static_cast<std::int32_t>(static_cast<std::uint32_t>(code)))};
}

TEST(FailureConverter, TurnsTheTwoCodesOfTheNormalDensityIntoErrors)
{
    for (const long code : spellings(0x80000B61UL)) {
        expectRefused<ktClassifierDefs::InsufficientTrainData>([code] { kfThrowExceptionOnFailure(code); },
                                                               "No valid data has been used to train the distribution");
    }
    for (const long code : spellings(0x80000B62UL)) {
        expectRefused<ktClassifierDefs::BadParams>(
            [code] { kfThrowExceptionOnFailure(code); },
            "Must call clear before updating with feature vectors of different sizes");
    }
}

TEST(FailureConverter, LeavesEveryOtherCodeAlone)
{
    struct Row {
        unsigned long code;
        const char* message;
    };
    const Row rows[] = {
        {0x80000B60UL, "The operation failed with status 0x80000B60."},
        {0x80000B63UL, "The operation failed with status 0x80000B63."},
        {0x80000B7FUL, "The operation failed with status 0x80000B7F."},
        {0x80000B41UL, "The operation failed with status 0x80000B41."},
        {0x80000B81UL, "The operation failed with status 0x80000B81."},
        {0x80000001UL, "The operation failed with status 0x80000001."},
    };
    for (const Row& row : rows) {
        for (const long code : spellings(row.code)) {
            SCOPED_TRACE(row.message);
            expectRefused<ktFailure>([code] { kfThrowExceptionOnFailure(code); }, row.message);
        }
    }
}

TEST(FailureConverter, CodesWithoutTheFailureBitAreNoFailures)
{
    for (const long code : {0L, 1L, 0x00000B61L, 0x00000B62L, 0x7FFFFFFFL}) {
        EXPECT_NO_THROW(kfThrowExceptionOnFailure(code)) << code;
    }
}

TEST(Status, IsArchivedAsItsUnsigned32Bits)
{
    struct Row {
        ktClassifierDefs::Status status;
        const char* bytes;
    };
    const Row rows[] = {
        {ktClassifierDefs::eStatusOk, "00 00 00 00"},
        {static_cast<ktClassifierDefs::Status>(0x12345678u), "78 56 34 12"},
        {static_cast<ktClassifierDefs::Status>(0xFFFFFFFFu), "FF FF FF FF"},
    };
    for (const Row& row : rows) {
        const std::string bytes = kt_test::store(row.status);
        EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(bytes)), row.bytes);
        ktClassifierDefs::Status loaded = static_cast<ktClassifierDefs::Status>(7u);
        kt_test::loadInto(loaded, bytes);
        EXPECT_EQ(loaded, row.status);
    }
}

TEST(Status, OperatorReturnsTheArchive)
{
    kt_test::StoringArchive archive;
    ktClassifierDefs::Status status = ktClassifierDefs::eStatusOk;
    EXPECT_EQ(&(archive || status), &archive);
}

/// A class of the caller's own names its base as it names any other.
class Narrower : public ktClassifierDefs::BadParams {
public:
    Narrower() : BadParams("narrower") {}
    void serializeAs(ktArchive& archive, unsigned char version) { BadParams::serialize_(archive, version); }
};

TEST(Errors, CanBeDerivedFrom)
{
    try {
        throw Narrower();
    } catch (const ktClassifierDefs::BadParams& error) {
        EXPECT_EQ(error.message(), "narrower");
        EXPECT_EQ(error.errorNumber(), 0x10004200L);
    }
}

}  // namespace
