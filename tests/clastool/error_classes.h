#pragma once

// The eight classes of errors, their numbers and their names in archives.

#include "support/test.h"

namespace errors {

using ktClassifierDefs::Errors;

template <class Error, long Number>
struct Named {
    using Class = Error;
    static constexpr long number = Number;
};

struct BadParams : Named<ktClassifierDefs::BadParams, 0x10004200> {
    static constexpr const char* name = "ktClassifierDefs::BadParams";
};
struct NotTrained : Named<ktClassifierDefs::NotTrained, 0x10004201> {
    static constexpr const char* name = "ktClassifierDefs::NotTrained";
};
struct BadIndex : Named<ktClassifierDefs::BadIndex, 0x10004202> {
    static constexpr const char* name = "ktClassifierDefs::BadIndex";
};
struct BadLabel : Named<ktClassifierDefs::BadLabel, 0x10004203> {
    static constexpr const char* name = "ktClassifierDefs::BadLabel";
};
struct BadMethod : Named<ktClassifierDefs::BadMethod, 0x10004204> {
    static constexpr const char* name = "ktClassifierDefs::BadMethod";
};
struct NotImplemented : Named<ktClassifierDefs::NotImplemented, 0x10004205> {
    static constexpr const char* name = "ktClassifierDefs::NotImplemented";
};
struct BadFeatures : Named<ktClassifierDefs::BadFeatures, 0x10004206> {
    static constexpr const char* name = "ktClassifierDefs::BadFeatures";
};
struct InsufficientTrainData : Named<ktClassifierDefs::InsufficientTrainData, 0x10004207> {
    static constexpr const char* name = "ktClassifierDefs::InsufficientTrainData";
};

struct ShortNames {
    template <class Named>
    static std::string GetName(int)
    {
        return std::string(Named::name).substr(sizeof "ktClassifierDefs::" - 1);
    }
};

using AllErrors = testing::Types<BadParams, NotTrained, BadIndex, BadLabel, BadMethod, NotImplemented, BadFeatures,
                                 InsufficientTrainData>;

/// One of the eight classes, as a derived class of the user's sees it.
template <class Error>
class Opened : public Error {
public:
    using Error::Error;
    ~Opened() override { ++destroyed; }

    void serialize(ktArchive& archive, unsigned char version) { Error::serialize_(archive, version); }
    void serializeErrors(ktArchive& archive, unsigned char version) { Errors::serialize_(archive, version); }

    static inline int destroyed = 0;
};

template <class Error>
class EachError : public testing::Test {
};

/// Whether what `raise` throws is caught by a handler for a Base.
template <class Base>
bool caughtAs(const std::function<void()>& raise)
{
    try {
        raise();
    } catch (const Base&) {
        return true;
    } catch (...) {
        return false;
    }
    return false;
}

}  // namespace errors
