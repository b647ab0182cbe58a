#pragma once

#include "bytes.h"
#include "streams.h"

#include <gtest/gtest.h>
#include <kt/foundation.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

namespace kt_test {

/// Holds the stream of an archive in memory: a base, so that it is there before the archive.
template <class Stream>
struct HeldStream {
    Stream stream;
};

/// Stores into memory.
class StoringArchive : HeldStream<std::ostringstream>, public ktArchive {
public:
    StoringArchive() : ktArchive(static_cast<std::ostream&>(stream)) {}
    std::string bytes() const { return stream.str(); }
};

/// Loads from memory.
class LoadingArchive : HeldStream<std::istringstream>, public ktArchive {
public:
    explicit LoadingArchive(const std::string& bytes)
        : HeldStream<std::istringstream>{std::istringstream(bytes)}, ktArchive(static_cast<std::istream&>(stream))
    {
    }
    /// How many bytes loading has not taken.
    std::streamsize left() { return stream.rdbuf()->in_avail(); }
};

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

/// The bytes of the values behind the header, in hexadecimal digits.
template <class... T>
std::string hexOf(const T&... values)
{
    return toHex(afterHeader(store(values...)));
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

/// Who owns an object that was loaded by pointer: a handle if the object has a count.
template <class T>
using Owner = std::conditional_t<std::is_base_of_v<ktRepBase, T>, ktPtrHandle<T>, std::unique_ptr<T>>;

/// Archives by pointer. Loading leaves the owner empty for a null record or one of another class.
template <class T>
void archiveByPointer(ktArchive& archive, ktPtrHandle<T>& owner)
{
    archive || owner;
}

template <class T>
void archiveByPointer(ktArchive& archive, std::unique_ptr<T>& owner)
{
    // Keeps a counted object of another class alive for as long as it is looked at.
    const ktArchive::Pass pass(archive);
    ktPersistent* loaded = nullptr;
    ktPersistent::serializePointer(archive, owner.get(), loaded);
    if (archive.isLoading()) {
        owner.reset(dynamic_cast<T*>(loaded));
        if (owner == nullptr && dynamic_cast<ktRepBase*>(loaded) == nullptr) {
            delete loaded;
        }
    }
}

/// The whole archive of one object, by pointer.
template <class T>
std::string storeByPointer(const T& value)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    Owner<T> owner(new T(value));
    archiveByPointer(archive, owner);
    return out.str();
}

/// Loads one object by pointer. All bytes must be taken.
template <class T>
Owner<T> loadByPointer(const std::string& bytes)
{
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    Owner<T> owner;
    archiveByPointer(archive, owner);
    EXPECT_EQ(in.rdbuf()->in_avail(), 0) << "bytes that loading did not take";
    return owner;
}

}  // namespace kt_test
