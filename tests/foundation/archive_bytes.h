#pragma once

#include "toys.h"

// The bytes of values and of pointer records.

namespace kt_test {

/// The value's bytes behind the header are these, and they load into an equal value from either kind of stream.
template <class T>
void expectBytes(const T& value, const std::string& hex)
{
    EXPECT_EQ(hexOf(value), hex);
    EXPECT_EQ(load<T>(archiveHeader() + fromHex(hex)), value) << hex;
    EXPECT_EQ(loadBlind<T>(archiveHeader() + fromHex(hex)), value) << hex;
}

template <class T>
struct ByteRow {
    const char* label;
    T value;
    const char* bytes;
};

template <class T>
void expectRows(const std::vector<ByteRow<T>>& rows)
{
    for (const ByteRow<T>& row : rows) {
        SCOPED_TRACE(row.label);
        expectBytes(row.value, row.bytes);
    }
}

/// Loading a T from these bytes is refused, and leaves nothing behind.
template <class T>
void expectCorrupt(const std::string& hex, const std::string& what)
{
    SCOPED_TRACE(hex);
    const MemoryWatch watch;
    expectThrows<ktArchive::Corrupt>("Corrupt archive: " + what + ".", [&] { load<T>(toys::archiveOf(hex)); });
    EXPECT_EQ(watch.liveBlocks(), 0);
}

inline void storePointer(ktArchive& archive, ktPersistent* object)
{
    ktPersistent* unused = nullptr;
    ktPersistent::serializePointer(archive, object, unused);
}

/// The whole archive of an object that is stored so.
inline std::string storePointer(ktPersistent* object)
{
    StoringArchive archive;
    storePointer(archive, object);
    return archive.bytes();
}

inline ktPersistent* loadPointer(ktArchive& archive)
{
    ktPersistent* result = nullptr;
    ktPersistent::serializePointer(archive, nullptr, result);
    return result;
}

}  // namespace kt_test
