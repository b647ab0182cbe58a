#pragma once

#include "streams.h"

#include <gtest/gtest.h>
#include <kt/archive.h>

#include <sstream>
#include <string>

namespace kt_test {

/// The whole archive, header included, that storing these values one after the other gives, each in a pass of its own.
template <class... T>
std::string store(const T&... values)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    // Storing changes nothing; only the operator, which also loads, asks for an object that is not const.
    (void)(archive || ... || const_cast<T&>(values));
    return out.str();
}

/// Loads over a given value. The bytes are a whole archive, and all of them must be taken. Throws what loading throws.
template <class T>
void loadInto(T& value, const std::string& bytes)
{
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    archive || value;
    EXPECT_EQ(in.rdbuf()->in_avail(), 0) << "bytes that loading did not take";
}

/// Loads a default-constructed value.
template <class T>
T load(const std::string& bytes)
{
    T value{};
    loadInto(value, bytes);
    return value;
}

/// Loads from a stream that cannot tell how many bytes are left.
template <class T>
T loadBlind(const std::string& bytes)
{
    T value{};
    BlindSource in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    archive || value;
    EXPECT_EQ(in.taken(), bytes.size()) << "bytes that loading did not take";
    return value;
}

/// The value after being stored and loaded.
template <class T>
T storedAndLoaded(const T& value)
{
    return load<T>(store(value));
}

}  // namespace kt_test
