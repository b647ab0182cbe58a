#pragma once

#include <kt/config.h>
#include <kt/exception.h>

#include <string>

// Failure codes: bit 31 says failure, bits 5 to 30 the group, the low 5 bits the code in the group, so 0x80000B61 is code 1
// of group 91. Codes are compared as 32-bit values, because `long` is 64 bits on some platforms and 32 on others.

/// A failure code that no converter turned into an exception of its own.
class KT_FOUNDATION_API ktFailure : public ktExceptionWithString {
public:
    /// The message names the low 32 bits of the code.
    explicit ktFailure(long code);

    /// The code as it was given.
    long code() const noexcept { return code_; }

    long errorNumber() const override;
    void suicideAndRethrow() override;

private:
    long code_;
};

/// Turns a failing code of one group into an exception: throws it, or returns for a code that it does not know.
using kfExceptionConverter = void (*)(long code);

/// Registers a converter for a group of codes. Several may serve one group; the newest is asked first. One that is registered
/// while a code is being converted is asked from the next code on.
/// Threads: may run while other threads convert codes.
KT_FOUNDATION_API void kfRegisterExceptionConverter(long group, kfExceptionConverter converter);

/// Takes a converter away again, so that a library can be unloaded. Unknown converters are ignored. A converter may take itself
/// away, or another, while it is asked.
/// Threads: may run while other threads convert codes; one of them may still be inside the converter when this returns.
KT_FOUNDATION_API void kfUnregisterExceptionConverter(long group, kfExceptionConverter converter) noexcept;

/// Returns for a code that is no failure. Throws: what a converter of the code's group throws, else ktFailure.
KT_FOUNDATION_API void kfThrowExceptionOnFailure(long code);
