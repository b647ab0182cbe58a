#pragma once

#include <kt/archive.h>

#include <sstream>

/// Reads the fields that an archive of `value` holds after its version byte, in this order. This gives access to private members.
template <class T, class... Fields>
void readFields(const T& value, Fields&... fields)
{
    std::stringstream stream(std::ios::in | std::ios::out | std::ios::binary);
    T copy = value;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        archive || copy;
    }
    ktArchive archive(static_cast<std::istream&>(stream));
    const ktArchive::Pass pass(archive);
    archive.version();
    (archive || ... || fields);
}
