#include <kt/diagnostics.h>

ktDiagObject::~ktDiagObject() = default;

ktDiagObject* ktDiagObject::recordingDestination(unsigned long&)
{
    return this;
}

ktDiagObject* ktDiagObject::getRecordingDestination(ktDiagObject* object, unsigned long& flags)
{
    return object == nullptr ? nullptr : object->recordingDestination(flags);
}
