#pragma once

#include <kt/config.h>
#include <kt/exception.h>
#include <kt/handle.h>
#include <kt/persistent.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

class kt_ArchivePass;

/// A two-way stream of values. One operation, `archive || value`, stores or loads by the archive's direction, so one
/// routine describes both. The bytes are the same from every platform (docs/archive-format.md) and survive every double,
/// NaN and infinities included.
///
/// A pass is one outermost operation. Inside a pass an object derived from ktPersistent is written once. An object that several
/// pointers reach is restored shared. An object that is archived in place a second time takes no bytes, in storing and in loading.
/// Between passes nothing is remembered. `ktArchive::Pass` opens a pass by hand around several operations.
///
/// When an outermost operation returns, every byte is in the stream's buffer; before that the archive may keep the last 16 KiB.
/// Whether a file takes the bytes shows when the stream is flushed or closed. Loading takes not one byte more than it needs, so an
/// archive may lie inside a larger file. What one archive object stored, one archive object loads.
///
/// Streams are opened binary. A std::stringstream is both an output and an input stream, so it needs a cast:
/// `ktArchive archive(static_cast<std::ostream&>(stream));`. A const object needs a copy, because the one operation also loads:
/// `ktClassifierTool copy(tool); archive || copy;`.
///
/// Loading trusts nobody: any bytes end in a value that is safe to use or in a ktException, in memory within 64 times the
/// input and 64 KiB. A class of your own whose objects take more for each byte that they store takes it here too, when they
/// are there. After a failed load the object is partly loaded; it can be assigned, loaded again and destroyed. The first
/// load also reads the archive's header, and throws UnknownVersion for another encoding, whatever is being loaded.
///
/// Ownership: the stream belongs to the caller and outlives the archive. Copy: none.
/// Threads: one archive is used by one thread at a time.
class KT_FOUNDATION_API ktArchive {
public:
    /// Base of all archive failures.
    class Errors;
    /// A version that this library does not know: in an object, or the encoding of the archive itself.
    class UnknownVersion;
    class Corrupt;
    class OutOfRange;
    class TooDeep;
    class Conflict;
    class StreamFailed;

    class Pass;

    /// An archive that stores into `stream`.
    explicit ktArchive(std::ostream& stream);
    /// An archive that loads from `stream`.
    explicit ktArchive(std::istream& stream);
    ktArchive(const ktArchive&) = delete;
    ktArchive& operator=(const ktArchive&) = delete;
    ~ktArchive();

    /// Which way the one operation goes: fixed by the stream it was made from.
    bool isStoring() const noexcept { return isStoring_; }
    /// Not `isStoring()`.
    bool isLoading() const noexcept { return !isStoring_; }

    /// How many pointer records may be open at once, 1000 unless changed. It bounds the stack that nested objects take.
    long maxDepth() const noexcept { return maxDepth_; }
    /// An archive that was stored with a larger depth takes as large a one to load.
    void maxDepth(long depth) noexcept { maxDepth_ = depth; }

    /// A signed 32-bit integer. Throws: OutOfRange, StreamFailed, Corrupt; UnknownVersion, as above, here and below.
    ktArchive& operator||(long& value);
    /// An unsigned 32-bit integer. Throws: OutOfRange, StreamFailed, Corrupt.
    ktArchive& operator||(unsigned long& value);
    /// A 64-bit floating value, bit by bit. Throws: StreamFailed, Corrupt.
    ktArchive& operator||(double& value);
    /// A text of any bytes. Throws: OutOfRange, StreamFailed, Corrupt.
    ktArchive& operator||(std::string& text);
    /// One byte. The operator for users is the free `operator||(ktArchive&, unsigned char&)`.
    void byte(unsigned char& value);

    /// A version byte: stores 0, or loads one and checks it.
    /// Throws: UnknownVersion(where, line) for another version than 0.
    void version(const char* where = nullptr, int line = 0);
    /// Throws: UnknownVersion(where, line) for another version than 0.
    static void checkVersion(unsigned char version, const char* where = nullptr, int line = 0);

    /// The count of a sequence whose elements store at least `leastStoredSize` bytes each: stores `count`, or loads one and
    /// checks it against the bytes that are left, where the stream can tell. A loaded count up to `notChecked` is taken as it
    /// is. Returns the count.
    std::size_t count(std::size_t count, std::size_t leastStoredSize, std::size_t notChecked = 0);
    /// Loading: throws Corrupt if so many elements of so many bytes each cannot be left.
    void requireBytesLeft(std::uint64_t elements, std::size_t leastStoredSize);
    /// Whether the stream could tell how many bytes are left; if not, a loaded count is only a claim.
    bool bytesLeftKnown();

    /// `count` doubles one behind the other, without the count. Loading resizes the vector to it.
    void doubles(std::vector<double>& values, std::size_t count);

    /// A vector of flags whose owner keeps no vector while all `size` flags are true. Storing: with `allTrue` the vector is not
    /// read. Loading: sets `allTrue`, and leaves the vector empty, if all flags are true.
    void flags(std::vector<bool>& flags, bool& allTrue, std::size_t size);

    /// Throws Corrupt, with the byte at which the archive stands.
    [[noreturn]] void throwCorrupt(const std::string& what) const;

private:
    friend class kt_ArchivePass;
    friend class kt_ElementRoom;
    friend KT_FOUNDATION_API ktPersistent* kt_archivePointer(ktArchive& archive, ktPersistent* object);
    friend KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktPersistent& object);
    friend KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, std::vector<double>& values);

    void start();
    void put(const void* bytes, std::size_t size);
    void get(void* bytes, std::size_t size);
    void flush();
    void write(const void* bytes, std::size_t size);
    void read(void* bytes, std::size_t size);
    void storeDoubles(const double* values, std::size_t size);
    void loadDoubles(double* values, std::size_t size);
    void loadDoubles(std::vector<double>& values, std::size_t count);
    bool canHold(std::uint64_t elements, std::size_t leastStoredSize);
    [[noreturn]] void throwImpossibleCount(std::uint64_t count) const;
    void storeFlags(const std::vector<bool>& flags, bool allTrue, std::size_t count);
    void loadFlags(std::vector<bool>& flags, std::size_t count, bool mayOmit);
    void store32(std::uint32_t value);
    std::uint32_t load32();

    std::ios& stream_;
    const bool isStoring_;
    bool started_ = false;
    long maxDepth_ = 1000;
    std::uint64_t position_ = 0;
    kt_ArchivePass* pass_ = nullptr;
    // Whether the pass is the current one of its thread: false while a pass of another archive is open inside it.
    bool passIsCurrent_ = false;
    // How many ktArchive::Pass objects are alive. Below 2 an operation's bytes go to the stream at once.
    long depth_ = 0;
    // The bytes that the stream did not get yet.
    std::unique_ptr<unsigned char[]> buffer_;
    std::size_t buffered_ = 0;
};

/// Base of all archive failures. After one in loading the object is partly loaded; it can be assigned, loaded again and
/// destroyed.
class KT_FOUNDATION_API ktArchive::Errors : public ktExceptionWithString {
public:
    ~Errors() override;

protected:
    /// With the whole text of the message.
    explicit Errors(const std::string& message);
};

/// A version that this library does not know. With "ktArchive" in `where()` the archive's header has it: a newer program
/// stored it. Elsewhere it is the byte where a version should stand, so the archive may also be damaged, or hold something
/// else than what is being loaded. Number 0x10004001. Message: "Unknown version in an archive: ktArchive." with what
/// `where()` says, and ", line 7" if there is one; without `where()` "Unknown version in an archive.".
class KT_FOUNDATION_API ktArchive::UnknownVersion : public ktArchive::Errors {
public:
    /// `where` names a class or a place, lives as long as the program, and may be null.
    UnknownVersion(const char* where, int line);

    /// The class, or the source file, that found the version; "ktArchive" for the encoding of the whole archive; may be null.
    const char* where() const noexcept { return where_; }
    /// The line in that file, 0 where `where()` is no file.
    int line() const noexcept { return line_; }

    long errorNumber() const override;
    void suicideAndRethrow() override;

private:
    const char* where_;
    int line_;
};

// What each of the other failures declares. They differ in name and number alone.
// NOLINTBEGIN(bugprone-macro-parentheses): a class's name stands in no parentheses.
#define KT_ARCHIVE_FAILURE(Class)               \
public:                                         \
    explicit Class(const std::string& message); \
    long errorNumber() const override;          \
    void suicideAndRethrow() override
// NOLINTEND(bugprone-macro-parentheses)

/// Loading: the bytes cannot be what an archive stored. Storing: an object by pointer is of a class that is not registered; no byte of
/// its record was written. The message says what was found, and at which byte of the archive. Number 0x10004002.
class KT_FOUNDATION_API ktArchive::Corrupt : public ktArchive::Errors {
    KT_ARCHIVE_FAILURE(Corrupt);
};

/// Storing: a value does not fit its 32 bits. No byte of it was written. Number 0x10004003.
class KT_FOUNDATION_API ktArchive::OutOfRange : public ktArchive::Errors {
    KT_ARCHIVE_FAILURE(OutOfRange);
};

/// More pointer records are open at once than `maxDepth()`. Number 0x10004004.
class KT_FOUNDATION_API ktArchive::TooDeep : public ktArchive::Errors {
    KT_ARCHIVE_FAILURE(TooDeep);
};

/// Storing: one object was archived in place and by pointer in one pass, or leads back to itself. Number 0x10004005.
class KT_FOUNDATION_API ktArchive::Conflict : public ktArchive::Errors {
    KT_ARCHIVE_FAILURE(Conflict);
};

/// The stream did not take, or did not give, a byte. Number 0x10004006.
class KT_FOUNDATION_API ktArchive::StreamFailed : public ktArchive::Errors {
    KT_ARCHIVE_FAILURE(StreamFailed);
};

#undef KT_ARCHIVE_FAILURE

/// Opens a pass, or stays in the one that is open on this archive. Operators that archive several values in a row open
/// one, so that a caller's single operation is a single pass.
///
/// A pass opened by hand takes time in proportion to what goes through it, and memory for the objects that live. An archived object
/// may be destroyed while the pass is open, on any thread if the pass stores; a later object at its address is a new one. An object
/// that is loaded by pointer lives as long as the pass, because references to it may follow.
///
/// An archived object that is then assigned counts as a new one: the next operation stores, or loads, its new value. A pass notices
/// no other change: an object that a setter or training changes stays in the archive as it was first met. Give each state a pass, or
/// an object, of its own.
///
/// The end of an outermost operation can throw StreamFailed, because the stream gets the last bytes only then. While another
/// exception is on its way, a failure to write them is not reported. Operations inside a pass opened by hand count as outermost
/// here.
class KT_FOUNDATION_API ktArchive::Pass {
public:
    /// Opens the pass; the archive outlives it.
    explicit Pass(ktArchive& archive) : archive_(archive)
    {
        // Most passes are deep inside another one, where there is nothing to do.
        if (archive.depth_ < 2 || !archive.passIsCurrent_) {
            open();
        }
        ++archive.depth_;
    }
    // NOLINTNEXTLINE(bugprone-exception-escape): a stream that fails last fails the operation; see above.
    ~Pass() noexcept(false)
    {
        --archive_.depth_;
        if (opened_) {
            close();
        }
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

private:
    void open();
    void close();

    ktArchive& archive_;
    kt_ArchivePass* previous_ = nullptr;
    int numExceptions_ = 0;
    bool opened_ = false;
    bool outermost_ = false;
};

/// One byte. Throws: StreamFailed, Corrupt.
KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, unsigned char& value);
/// A vector of flags.
KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, std::vector<bool>& flags);
/// A vector of doubles, in the form of any other vector.
KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, std::vector<double>& values);

/// The fewest bytes that a value of type T takes in an archive: how a count that cannot be true is recognised. A class
/// whose values take more than one byte at the least may specialise it. A vector of elements that take none loads only if as many bytes
/// follow it as it has elements, but for objects that go by a second time in a pass (see ktArchive).
template <class T>
struct ktLeastStoredSize {
    /// The number of bytes, at least 1.
    static constexpr std::size_t value = std::is_enum_v<T> ? 4 : 1;
};
template <>
struct ktLeastStoredSize<long> {
    static constexpr std::size_t value = 4;
};
template <>
struct ktLeastStoredSize<unsigned long> {
    static constexpr std::size_t value = 4;
};
template <>
struct ktLeastStoredSize<double> {
    static constexpr std::size_t value = 8;
};
template <>
struct ktLeastStoredSize<std::string> {
    static constexpr std::size_t value = 4;
};
template <class T>
struct ktLeastStoredSize<std::vector<T>> {
    static constexpr std::size_t value = 5;
};

/// A handle, as a pointer record: null, an object, or a reference to an object met before in this pass. Loading first lets
/// the held object go; an object of another class than T leaves the handle null.
template <class T>
std::enable_if_t<std::is_base_of_v<ktPersistent, T>, ktArchive&> operator||(ktArchive& archive, ktPtrHandle<T>& handle);

/// A vector: a version byte, the count, the elements, each by its own operator. Loading resizes it to the count first and then loads
/// the elements in order. If the archive has too few bytes for so many elements of their size, the vector grows step by step, which
/// moves the elements, or copies those of a class without a move. Objects inside the elements, not elements themselves, are then
/// new to the pass.
template <class T>
ktArchive& operator||(ktArchive& archive, std::vector<T>& values);

// The implementation side: what the two templates above are made of.

/// What ktPersistent::serializePointer does, except that an object without a count stays with the pass. For handles.
KT_FOUNDATION_API ktPersistent* kt_archivePointer(ktArchive& archive, ktPersistent* object);

template <class T, class = void>
struct kt_IsPlainBase : std::false_type {
};
template <class T>
struct kt_IsPlainBase<T, std::void_t<decltype(static_cast<T*>(std::declval<ktPersistent*>()))>> : std::true_type {
};
/// The object as a `T`, or null. A comparison of classes is enough for an object of the very class, the usual case.
template <class T>
T* kt_asLoaded(ktPersistent* object)
{
    if constexpr (kt_IsPlainBase<T>::value) {
        if (object != nullptr && typeid(*object) == typeid(T)) {
            return static_cast<T*>(object);
        }
    }
    return dynamic_cast<T*>(object);
}

template <class T>
std::enable_if_t<std::is_base_of_v<ktPersistent, T>, ktArchive&> operator||(ktArchive& archive, ktPtrHandle<T>& handle)
{
    ktArchive::Pass pass(archive);
    if (archive.isLoading()) {
        handle = nullptr;
    }
    // An object that is stored is not changed, but for its mark.
    ktPersistent* object = kt_archivePointer(archive, const_cast<std::remove_const_t<T>*>(handle.get()));
    if (archive.isLoading()) {
        handle = kt_asLoaded<T>(object);
    }
    return archive;
}

/// Limits how far a vector grows ahead of the elements that are loaded, because a count is only a claim: all vectors that are being
/// loaded at once may together be ahead by 16 times the bytes of the archive and 8 KiB.
/// Requires: the archive is in a pass as long as this lives.
class KT_FOUNDATION_API kt_ElementRoom {
public:
    /// For a vector whose elements have this size in memory.
    kt_ElementRoom(ktArchive& archive, std::size_t elementSize) noexcept : archive_(archive), elementSize_(elementSize)
    {
    }
    ~kt_ElementRoom()
    {
        if (claimed_ != 0) {
            giveBack();
        }
    }
    kt_ElementRoom(const kt_ElementRoom&) = delete;
    kt_ElementRoom& operator=(const kt_ElementRoom&) = delete;

    /// The size to give the vector when `numLoaded` of its `count` elements are loaded: at least half as many more, so that growing
    /// takes linear time, and at least one.
    std::size_t sizeAfter(std::size_t numLoaded, std::size_t count)
    {
        // Most vectors are small, and a record cannot nest deep enough for these to count.
        return count - numLoaded <= small / elementSize_ ? count : claimAfter(numLoaded, count);
    }

    /// What the pass has visited of an element at its old place counts as visited at the new one. Only the whole object is asked
    /// for, which its class asks for first.
    template <class T>
    static void carryMark(T& from, const T& to)
    {
        if (ktPersistent::isLayerVisited(&from, &from, sizeof from)) {
            // Forgotten first, which makes room for it at its new place.
            static_cast<ktPersistent&>(from).mutating_();
            ktPersistent::markLayer(&to, &to, sizeof to);
        }
    }

private:
    static constexpr std::size_t small = 256;

    std::size_t claimAfter(std::size_t numLoaded, std::size_t count);
    void giveBack() noexcept;

    ktArchive& archive_;
    std::size_t elementSize_;
    std::uint64_t claimed_ = 0;
};

/// Makes the vector larger. Its elements are moved, also where a move might throw, and copied only if their class has no move.
/// What the pass has visited at its old place counts as visited at the new one.
template <class T>
void kt_growVector(std::vector<T>& values, std::size_t size)
{
    constexpr bool isMarked = std::is_convertible_v<T*, ktPersistent*>;
    if constexpr (std::is_nothrow_move_constructible_v<T> && !isMarked) {
        values.reserve(size);
    } else {
        std::vector<T> larger;
        larger.reserve(size);
        for (T& value : values) {
            larger.push_back(std::move(value));
            if constexpr (isMarked) {
                kt_ElementRoom::carryMark(value, larger.back());
            }
        }
        values.swap(larger);
    }
    values.resize(size);
}

template <class T>
ktArchive& operator||(ktArchive& archive, std::vector<T>& values)
{
    ktArchive::Pass pass(archive);
    archive.version();
    // Of objects that are there already nothing is stored if this pass has met them before.
    const std::size_t notChecked = std::is_base_of_v<ktPersistent, T> ? values.size() : 0;
    const std::size_t count = archive.count(values.size(), ktLeastStoredSize<T>::value, notChecked);
    kt_ElementRoom room(archive, sizeof(T));
    if (count < values.size()) {
        values.resize(count);
    } else if (count > values.size() && !values.empty() && archive.bytesLeftKnown()) {
        kt_growVector(values, room.sizeAfter(values.size(), count));
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (i == values.size()) {
            kt_growVector(values, room.sizeAfter(i, count));
        }
        archive || values[i];
    }
    return archive;
}
