// The bytes of an archive: header, numbers, texts, flags and counts, through one buffer. docs/archive-format.md has the layout.
//
// Storing fills the buffer, and the outermost operation flushes it. Loading reads no byte ahead: small values come straight from what
// the stream's own buffer holds. A count is checked against the bytes left before memory is taken; if the stream cannot tell them,
// values grow in steps as their bytes arrive. Pointers and visited objects are in archive_pass.cpp.

#include <kt/archive.h>

#include "archive_pass.h"

#include <cstring>
#include <exception>
#include <istream>
#include <limits>
#include <new>
#include <ostream>
#include <utility>

static_assert(sizeof(double) == 8 && std::numeric_limits<double>::is_iec559,
              "doubles are stored as 64-bit IEEE values");

namespace {

// Stored in archives: never change.
constexpr unsigned char magic[4] = {'K', 'T', 'A', 'R'};
constexpr std::uint32_t encoding = 1;

/// How far a vector or text grows ahead of its bytes, if the stream cannot tell how many there are.
constexpr std::size_t blindStep = 4096;

constexpr std::size_t bufferSize = 16384;
/// Doubles that are turned into bytes at a time.
constexpr std::size_t blockSize = 128;

template <class Unsigned, std::size_t Size>
void toLittleEndian(Unsigned value, unsigned char (&bytes)[Size])
{
    for (std::size_t i = 0; i < Size; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

template <class Unsigned, std::size_t Size>
Unsigned fromLittleEndian(const unsigned char (&bytes)[Size])
{
    Unsigned value = 0;
    for (std::size_t i = 0; i < Size; ++i) {
        value |= static_cast<Unsigned>(bytes[i]) << (8 * i);
    }
    return value;
}

void doublesToLittleEndian(const double* values, std::size_t size, unsigned char* bytes)
{
    for (std::size_t i = 0; i < size; ++i) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &values[i], sizeof bits);
        unsigned char one[8];
        toLittleEndian(bits, one);
        std::memcpy(bytes + 8 * i, one, sizeof one);
    }
}

[[noreturn]] void throwOutOfRange(const std::string& what)
{
    throw ktArchive::OutOfRange("Archive value out of range: " + what + " does not fit 32 bits.");
}

/// Reads a few bytes directly from a stream's buffer, which saves a virtual call for each small value. The operations for that are
/// protected, so this class derives from it.
class StreamBuffer : public std::streambuf {
public:
    /// Takes `size` bytes if the buffer holds them. Returns whether it did.
    static bool takeHeld(std::streambuf& buffer, void* bytes, std::size_t size)
    {
        const char* held = (buffer.*(&StreamBuffer::gptr))();
        const char* end = (buffer.*(&StreamBuffer::egptr))();
        if (size > largest || static_cast<std::size_t>(end - held) < size) {
            return false;
        }
        std::memcpy(bytes, held, size);
        (buffer.*(&StreamBuffer::gbump))(static_cast<int>(size));
        return true;
    }

private:
    // Larger values are read by a virtual call, which may bypass the buffer.
    static constexpr std::size_t largest = 1024;
};

/// Runs a stream buffer's operation. An exception of a caller's buffer becomes StreamFailed.
template <class Operation>
auto guarded(Operation operation)
{
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw ktArchive::StreamFailed(std::string("The stream failed: ") + error.what());
    } catch (...) {
        throw ktArchive::StreamFailed("The stream failed.");
    }
}

}  // namespace

ktArchive::ktArchive(std::ostream& stream) : stream_(stream), isStoring_(true) {}

ktArchive::ktArchive(std::istream& stream) : stream_(stream), isStoring_(false) {}

ktArchive::~ktArchive() = default;

void ktArchive::write(const void* bytes, std::size_t size)
{
    const auto count = static_cast<std::streamsize>(size);
    const auto take = [&] { return stream_.rdbuf()->sputn(static_cast<const char*>(bytes), count); };
    if (!stream_.good() || stream_.rdbuf() == nullptr || guarded(take) != count) {
        throw StreamFailed("The stream did not take all bytes.");
    }
}

void ktArchive::read(void* bytes, std::size_t size)
{
    std::streambuf* source = stream_.rdbuf();
    if (stream_.fail() || source == nullptr) {
        throw StreamFailed("The stream cannot be read.");
    }
    const auto count = static_cast<std::streamsize>(size);
    const auto give = [&] { return source->sgetn(static_cast<char*>(bytes), count); };
    const std::streamsize got = guarded(give);
    position_ += static_cast<std::uint64_t>(got);
    if (got != count) {
        throwCorrupt("unexpected end");
    }
}

inline void ktArchive::get(void* bytes, std::size_t size)
{
    if (!started_) {
        start();
    }
    std::streambuf* source = stream_.rdbuf();
    if (source != nullptr && !stream_.fail() && StreamBuffer::takeHeld(*source, bytes, size)) {
        position_ += size;
    } else {
        read(bytes, size);
    }
}

void ktArchive::flush()
{
    // The buffer is emptied even if the stream fails, so that no byte is written twice.
    const std::size_t size = std::exchange(buffered_, 0);
    if (size != 0) {
        write(buffer_.get(), size);
    }
}

void ktArchive::start()
{
    started_ = true;
    try {
        unsigned char number[4];
        if (isStoring()) {
            toLittleEndian(encoding, number);
            put(magic, sizeof magic);
            put(number, sizeof number);
            return;
        }
        unsigned char seen[4];
        get(seen, sizeof seen);
        if (std::memcmp(seen, magic, sizeof magic) != 0) {
            throwCorrupt("not an archive");
        }
        get(number, sizeof number);
        if (fromLittleEndian<std::uint32_t>(number) != encoding) {
            throw UnknownVersion("ktArchive", 0);
        }
    } catch (...) {
        started_ = false;
        throw;
    }
}

void ktArchive::put(const void* bytes, std::size_t size)
{
    if (!started_) {
        start();
    }
    if (size > bufferSize - buffered_ || depth_ < 2) {
        flush();
        if (size > bufferSize || depth_ < 2) {
            write(bytes, size);
            position_ += size;
            return;
        }
    }
    if (size != 0) {
        std::memcpy(&buffer_[buffered_], bytes, size);
    }
    buffered_ += size;
    position_ += size;
}

void ktArchive::store32(std::uint32_t value)
{
    unsigned char bytes[4];
    toLittleEndian(value, bytes);
    put(bytes, sizeof bytes);
}

std::uint32_t ktArchive::load32()
{
    unsigned char bytes[4];
    get(bytes, sizeof bytes);
    return fromLittleEndian<std::uint32_t>(bytes);
}

ktArchive& ktArchive::operator||(long& value)
{
    if (isStoring()) {
        if (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max()) {
            throwOutOfRange(std::to_string(value));
        }
        store32(static_cast<std::uint32_t>(static_cast<std::int32_t>(value)));
    } else {
        // Two's complement, without an implementation-defined conversion.
        const std::uint32_t bits = load32();
        value = bits <= 0x7FFFFFFFu ? static_cast<long>(bits) : -static_cast<long>(0xFFFFFFFFu - bits) - 1;
    }
    return *this;
}

ktArchive& ktArchive::operator||(unsigned long& value)
{
    if (isStoring()) {
        if (value > std::numeric_limits<std::uint32_t>::max()) {
            throwOutOfRange(std::to_string(value));
        }
        store32(static_cast<std::uint32_t>(value));
    } else {
        value = load32();
    }
    return *this;
}

ktArchive& ktArchive::operator||(double& value)
{
    if (isStoring()) {
        storeDoubles(&value, 1);
    } else {
        loadDoubles(&value, 1);
    }
    return *this;
}

void ktArchive::doubles(std::vector<double>& values, std::size_t count)
{
    const Pass pass(*this);
    if (isStoring()) {
        storeDoubles(values.data(), count);
        return;
    }
    requireBytesLeft(count, 8);
    loadDoubles(values, count);
}

void ktArchive::loadDoubles(std::vector<double>& values, std::size_t count)
{
    values.resize(bytesLeftKnown() ? count : std::min(count, blindStep / 8));
    for (std::size_t done = 0; done < count; done = values.size()) {
        if (done == values.size()) {
            values.resize(std::min(count, 2 * done));
        }
        loadDoubles(&values[done], values.size() - done);
    }
}

void ktArchive::storeDoubles(const double* values, std::size_t size)
{
    if (depth_ >= 2 && started_ && 8 * size <= bufferSize - buffered_) {
        doublesToLittleEndian(values, size, &buffer_[buffered_]);
        buffered_ += 8 * size;
        position_ += 8 * size;
        return;
    }
    unsigned char block[8 * blockSize];
    for (std::size_t done = 0; done < size;) {
        const std::size_t now = std::min(blockSize, size - done);
        doublesToLittleEndian(values + done, now, block);
        put(block, 8 * now);
        done += now;
    }
}

void ktArchive::loadDoubles(double* values, std::size_t size)
{
    get(values, 8 * size);
    for (std::size_t i = 0; i < size; ++i) {
        unsigned char bytes[8];
        std::memcpy(bytes, &values[i], sizeof bytes);
        const auto bits = fromLittleEndian<std::uint64_t>(bytes);
        std::memcpy(&values[i], &bits, sizeof bits);
    }
}

// Flags stand eight to a byte, the first in the lowest bit.
void ktArchive::flags(std::vector<bool>& flags, bool& allTrue, std::size_t size)
{
    const Pass pass(*this);
    version();
    if (isStoring()) {
        storeFlags(flags, allTrue, count(allTrue ? size : flags.size(), 0));
        return;
    }
    const std::size_t numFlags = count(0, 0);
    requireBytesLeft((std::uint64_t{numFlags} + 7) / 8, 1);
    loadFlags(flags, numFlags, numFlags == size);
    allTrue = flags.empty() && numFlags == size;
}

void ktArchive::storeFlags(const std::vector<bool>& flags, bool allTrue, std::size_t count)
{
    auto flag = flags.begin();
    for (std::size_t left = count; left != 0;) {
        const std::size_t now = std::min<std::size_t>(8, left);
        unsigned bits = allTrue ? (1u << now) - 1 : 0;
        for (std::size_t i = 0; i < now && !allTrue; ++i, ++flag) {
            bits |= static_cast<unsigned>(*flag) << i;
        }
        auto byte = static_cast<unsigned char>(bits);
        put(&byte, 1);
        left -= now;
    }
}

void ktArchive::loadFlags(std::vector<bool>& flags, std::size_t count, bool mayOmit)
{
    flags.clear();
    if (!mayOmit && bytesLeftKnown()) {
        flags.reserve(count);
    }
    for (std::size_t i = 0; i < count; i += 8) {
        unsigned char byte = 0;
        get(&byte, 1);
        const std::size_t now = std::min<std::size_t>(8, count - i);
        const unsigned all = (1u << now) - 1;
        const unsigned bits = byte & all;
        if (mayOmit && bits == all) {
            continue;
        }
        // The first false flag: the flags before it, omitted so far, are written now.
        mayOmit = false;
        flags.resize(i, true);
        for (std::size_t j = 0; j < now; ++j) {
            flags.push_back((bits >> j & 1u) != 0);
        }
    }
}

ktArchive& ktArchive::operator||(std::string& text)
{
    const Pass pass(*this);
    const std::size_t size = count(text.size(), 1);
    if (isStoring()) {
        put(text.data(), size);
        return *this;
    }
    text.clear();
    for (std::size_t done = 0; done < size;) {
        const std::size_t now = bytesLeftKnown() ? size : std::min(size - done, std::max(done, blindStep));
        text.resize(done + now);
        get(&text[done], now);
        done += now;
    }
    return *this;
}

void ktArchive::byte(unsigned char& value)
{
    if (isStoring()) {
        put(&value, 1);
    } else {
        get(&value, 1);
    }
}

void ktArchive::version(const char* where, int line)
{
    unsigned char version = 0;
    byte(version);
    checkVersion(version, where, line);
}

void ktArchive::checkVersion(unsigned char version, const char* where, int line)
{
    if (version != 0) {
        throw UnknownVersion(where, line);
    }
}

bool ktArchive::bytesLeftKnown()
{
    const Pass pass(*this);
    return isLoading() && stream_.rdbuf() != nullptr && guarded([this] { return pass_->endKnown(); });
}

inline bool ktArchive::canHold(std::uint64_t elements, std::size_t leastStoredSize)
{
    const Pass pass(*this);
    const std::uint64_t most = bytesLeftKnown() ? pass_->bytesLeft() : std::numeric_limits<std::size_t>::max() / 2;
    // A division for every count would take longer than the rest of this check.
    const bool isSmall = elements <= std::numeric_limits<std::uint32_t>::max() && leastStoredSize <= 4096;
    return isSmall ? elements * leastStoredSize <= most : elements <= most / leastStoredSize;
}

void ktArchive::requireBytesLeft(std::uint64_t elements, std::size_t leastStoredSize)
{
    if (!canHold(elements, leastStoredSize)) {
        throwImpossibleCount(elements);
    }
}

void ktArchive::throwImpossibleCount(std::uint64_t count) const
{
    throwCorrupt("impossible count " + std::to_string(count));
}

std::size_t ktArchive::count(std::size_t count, std::size_t leastStoredSize, std::size_t notChecked)
{
    if (isStoring()) {
        if (count > std::numeric_limits<std::uint32_t>::max()) {
            throwOutOfRange("a count of " + std::to_string(count));
        }
        store32(static_cast<std::uint32_t>(count));
        return count;
    }
    const std::uint32_t loaded = load32();
    if (loaded > notChecked && !canHold(loaded, leastStoredSize)) {
        throwImpossibleCount(loaded);
    }
    return loaded;
}

void ktArchive::throwCorrupt(const std::string& what) const
{
    throw Corrupt("Corrupt archive: " + what + " at byte " + std::to_string(position_) + ".");
}

void ktArchive::Pass::open()
{
    outermost_ = archive_.pass_ == nullptr;
    if (outermost_) {
        if (archive_.isStoring() && archive_.buffer_ == nullptr) {
            archive_.buffer_.reset(new unsigned char[bufferSize]);
        }
        archive_.pass_ = new kt_ArchivePass(archive_);
    }
    previous_ = kt_ArchivePass::makeCurrent(archive_.pass_);
    numExceptions_ = std::uncaught_exceptions();
    opened_ = true;
}

void ktArchive::Pass::close()
{
    if (previous_ != archive_.pass_) {
        kt_ArchivePass::backTo(previous_);
    }
    const std::unique_ptr<kt_ArchivePass> ended(outermost_ ? std::exchange(archive_.pass_, nullptr) : nullptr);
    if (archive_.depth_ >= 2) {
        return;
    }
    if (std::uncaught_exceptions() == numExceptions_) {
        archive_.flush();
        return;
    }
    try {
        archive_.flush();
    } catch (...) {
        // The present exception already says why the archive is not complete.
    }
}

std::size_t kt_ElementRoom::claimAfter(std::size_t numLoaded, std::size_t count)
{
    giveBack();
    const std::size_t left = count - numLoaded;
    const std::uint64_t least = std::uint64_t{elementSize_} * std::min(left, numLoaded / 2 + 1);
    claimed_ = archive_.pass_->claim(std::uint64_t{elementSize_} * left, least);
    return numLoaded + static_cast<std::size_t>(claimed_ / elementSize_);
}

void kt_ElementRoom::giveBack() noexcept
{
    archive_.pass_->giveBack(std::exchange(claimed_, 0));
}

ktPersistent* kt_archivePointer(ktArchive& archive, ktPersistent* object)
{
    const ktArchive::Pass pass(archive);
    if (archive.isStoring()) {
        archive.pass_->storePointer(object);
        return object;
    }
    return archive.pass_->loadPointer();
}

ktArchive& operator||(ktArchive& archive, ktPersistent& object)
{
    const ktArchive::Pass pass(archive);
    if (archive.isStoring()) {
        archive.pass_->storingInPlace(object);
    }
    object.dispatchSerialize(archive);
    return archive;
}

ktArchive& operator||(ktArchive& archive, unsigned char& value)
{
    archive.byte(value);
    return archive;
}

ktArchive& operator||(ktArchive& archive, std::vector<double>& values)
{
    const ktArchive::Pass pass(archive);
    archive.version();
    const std::size_t count = archive.count(values.size(), 8);
    if (archive.isStoring()) {
        archive.storeDoubles(values.data(), count);
    } else {
        archive.loadDoubles(values, count);
    }
    return archive;
}

ktArchive& operator||(ktArchive& archive, std::vector<bool>& flags)
{
    bool allTrue = false;
    archive.flags(flags, allTrue, 0);
    return archive;
}

ktArchive::Errors::Errors(const std::string& message) : ktExceptionWithString(message) {}
ktArchive::Errors::~Errors() = default;

ktArchive::UnknownVersion::UnknownVersion(const char* where, int line)
    : Errors(where == nullptr ? std::string("Unknown version in an archive.")
                              : "Unknown version in an archive: " + std::string(where) +
                                    (line == 0 ? "." : ", line " + std::to_string(line) + ".")),
      where_(where),
      line_(line)
{
}

long ktArchive::UnknownVersion::errorNumber() const
{
    return 0x10004001L;
}

void ktArchive::UnknownVersion::suicideAndRethrow()
{
    ktException::rethrowCopyOf(this);
}

// NOLINTBEGIN(bugprone-macro-parentheses): a class's name stands in no parentheses.
#define KT_DEFINE_FAILURE(Class, number)                                     \
    ktArchive::Class::Class(const std::string& message) : Errors(message) {} \
    long ktArchive::Class::errorNumber() const                               \
    {                                                                        \
        return number;                                                       \
    }                                                                        \
    void ktArchive::Class::suicideAndRethrow()                               \
    {                                                                        \
        rethrowCopyOf(this);                                                 \
    }
// NOLINTEND(bugprone-macro-parentheses)

KT_DEFINE_FAILURE(Corrupt, 0x10004002)
KT_DEFINE_FAILURE(OutOfRange, 0x10004003)
KT_DEFINE_FAILURE(TooDeep, 0x10004004)
KT_DEFINE_FAILURE(Conflict, 0x10004005)
KT_DEFINE_FAILURE(StreamFailed, 0x10004006)

#undef KT_DEFINE_FAILURE
