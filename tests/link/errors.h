#pragma once

#include "guest.h"

#include <clastool/clastool.h>

#include <typeinfo>

// Every error of the two libraries that a program can catch: how it is thrown and how it is caught, compiled into each of
// the shared objects between which it passes.

template <class Error>
struct Thrown {
    static Error* make() { return new Error("thrown"); }
};
template <>
struct Thrown<ktBadPointer> {
    static ktBadPointer* make() { return new ktBadPointer; }
};
template <>
struct Thrown<ktFailure> {
    static ktFailure* make() { return new ktFailure(static_cast<long>(0x80000001L)); }
};
template <>
struct Thrown<ktArchive::UnknownVersion> {
    static ktArchive::UnknownVersion* make() { return new ktArchive::UnknownVersion("thrown", 1); }
};

template <class Error>
void raise()
{
    Thrown<Error>::make()->suicideAndRethrow();
}

template <class Error, class Caught>
bool isCaughtAs(void (*raise)())
{
    try {
        raise();
    } catch (const Caught& error) {
        return typeid(error) == typeid(Error);
    } catch (...) {
        return false;
    }
    return false;
}

template <class Error>
bool isCaught(void (*raise)())
{
    return isCaughtAs<Error, Error>(raise) && isCaughtAs<Error, ktException>(raise) &&
           isCaughtAs<Error, std::exception>(raise);
}

template <class Error>
constexpr ErrorCase errorCase(const char* name)
{
    return {name, &raise<Error>, &isCaught<Error>};
}

constexpr ErrorCase errorCases[numErrorCases] = {
    errorCase<ktBadPointer>("ktBadPointer"),
    errorCase<ktFailure>("ktFailure"),
    errorCase<ktArchive::UnknownVersion>("ktArchive::UnknownVersion"),
    errorCase<ktArchive::Corrupt>("ktArchive::Corrupt"),
    errorCase<ktArchive::OutOfRange>("ktArchive::OutOfRange"),
    errorCase<ktArchive::TooDeep>("ktArchive::TooDeep"),
    errorCase<ktArchive::Conflict>("ktArchive::Conflict"),
    errorCase<ktArchive::StreamFailed>("ktArchive::StreamFailed"),
    errorCase<ktClassifierDefs::BadParams>("ktClassifierDefs::BadParams"),
    errorCase<ktClassifierDefs::BadIndex>("ktClassifierDefs::BadIndex"),
    errorCase<ktClassifierDefs::BadLabel>("ktClassifierDefs::BadLabel"),
    errorCase<ktClassifierDefs::BadMethod>("ktClassifierDefs::BadMethod"),
    errorCase<ktClassifierDefs::NotTrained>("ktClassifierDefs::NotTrained"),
    errorCase<ktClassifierDefs::NotImplemented>("ktClassifierDefs::NotImplemented"),
    errorCase<ktClassifierDefs::BadFeatures>("ktClassifierDefs::BadFeatures"),
    errorCase<ktClassifierDefs::InsufficientTrainData>("ktClassifierDefs::InsufficientTrainData"),
};
