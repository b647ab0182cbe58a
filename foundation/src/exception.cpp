#include <kt/exception.h>

#include <kt/archive.h>

#include <ostream>
#include <sstream>

ktException::~ktException() = default;

std::string ktException::message() const
{
    std::ostringstream out;
    // Otherwise running out of memory would only end the text early.
    out.exceptions(std::ios_base::badbit);
    message_(out);
    return out.str();
}

ktExceptionWithString::ktExceptionWithString(const std::string& message) : message_text_(message) {}

const char* ktExceptionWithString::what() const noexcept
{
    return message_text_.c_str();
}

void ktExceptionWithString::message_(std::ostream& out) const
{
    out << message_text_;
}

void ktExceptionWithString::dispatchSerialize(ktArchive& archive)
{
    if (haveVisited(this, sizeof *this)) {
        return;
    }
    ktPersistent::dispatchSerialize(archive);
    archive || message_text_;
    setVisited(this, sizeof *this);
}

long ktBadPointer::errorNumber() const
{
    return 0x10004007L;
}

void ktBadPointer::suicideAndRethrow()
{
    rethrowCopyOf(this);
}

const char* ktBadPointer::what() const noexcept
{
    return "";
}

void ktBadPointer::message_(std::ostream&) const {}
