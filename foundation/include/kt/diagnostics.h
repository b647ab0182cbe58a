#pragma once

#include <kt/config.h>

/// A place where training and running may record diagnostics. Every train and run operation takes one, or null.
/// Derive from it to choose the destination of a recording.
class KT_FOUNDATION_API ktDiagObject {
public:
    ktDiagObject() = default;
    virtual ~ktDiagObject();

    /// The object to record into, or null for none; may change the flags. By default itself.
    virtual ktDiagObject* recordingDestination(unsigned long& flags);

    /// The recording destination of `object`; null stays null.
    static ktDiagObject* getRecordingDestination(ktDiagObject* object, unsigned long& flags);

protected:
    ktDiagObject(const ktDiagObject&) = default;
    ktDiagObject& operator=(const ktDiagObject&) = default;
};
