#include <kt/archive.h>

#include "archive_pass.h"

#include <cstring>
#include <istream>
#include <limits>
#include <new>
#include <ostream>

static_assert(sizeof(double) == 8 && std::numeric_limits<double>::is_iec559,
              "doubles are stored as 64-bit IEEE values");

namespace {

// Stored in archives: never change.
constexpr unsigned char magic[4] = {'K', 'T', 'A', 'R'};
constexpr std::uint32_t encoding = 1;

/// How much a vector or text grows by before its bytes were seen, where the stream cannot tell how many there are.
constexpr std::size_t blindStep = 4096;

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

/// Runs a stream buffer's operation. What a buffer of the caller's own throws ends as StreamFailed.
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

ktArchive::ktArchive(std::ostream& stream) : output_(&stream) {}

ktArchive::ktArchive(std::istream& stream) : input_(&stream) {}

ktArchive::~ktArchive() = default;

void ktArchive::putRaw(const void* bytes, std::size_t size)
{
    const auto count = static_cast<std::streamsize>(size);
    const auto write = [&] { return output_->rdbuf()->sputn(static_cast<const char*>(bytes), count); };
    if (!output_->good() || output_->rdbuf() == nullptr || guarded(write) != count) {
        throw StreamFailed("The stream did not take all bytes.");
    }
    position_ += size;
}

void ktArchive::getRaw(void* bytes, std::size_t size)
{
    if (input_->fail() || input_->rdbuf() == nullptr) {
        throw StreamFailed("The stream cannot be read.");
    }
    const auto count = static_cast<std::streamsize>(size);
    const auto read = [&] { return input_->rdbuf()->sgetn(static_cast<char*>(bytes), count); };
    const std::streamsize got = guarded(read);
    position_ += static_cast<std::uint64_t>(got);
    if (got != count) {
        throwCorrupt("unexpected end");
    }
}

void ktArchive::start()
{
    if (started_) {
        return;
    }
    if (isStoring()) {
        unsigned char number[4];
        toLittleEndian(encoding, number);
        putRaw(magic, sizeof magic);
        putRaw(number, sizeof number);
    } else {
        unsigned char seen[4];
        unsigned char number[4];
        getRaw(seen, sizeof seen);
        if (std::memcmp(seen, magic, sizeof magic) != 0) {
            throwCorrupt("not an archive");
        }
        getRaw(number, sizeof number);
        if (fromLittleEndian<std::uint32_t>(number) != encoding) {
            throw UnknownVersion("ktArchive", 0);
        }
    }
    started_ = true;
}

void ktArchive::put(const void* bytes, std::size_t size)
{
    start();
    putRaw(bytes, size);
}

void ktArchive::get(void* bytes, std::size_t size)
{
    start();
    getRaw(bytes, size);
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
            throw OutOfRange("Archive value out of range: " + std::to_string(value) + " does not fit 32 bits.");
        }
        store32(static_cast<std::uint32_t>(static_cast<std::int32_t>(value)));
    } else {
        // The detour is how two's complement is read without relying on an implementation-defined conversion.
        const std::uint32_t bits = load32();
        value = bits <= 0x7FFFFFFFu ? static_cast<long>(bits) : -static_cast<long>(0xFFFFFFFFu - bits) - 1;
    }
    return *this;
}

ktArchive& ktArchive::operator||(unsigned long& value)
{
    if (isStoring()) {
        if (value > std::numeric_limits<std::uint32_t>::max()) {
            throw OutOfRange("Archive value out of range: " + std::to_string(value) + " does not fit 32 bits.");
        }
        store32(static_cast<std::uint32_t>(value));
    } else {
        value = load32();
    }
    return *this;
}

ktArchive& ktArchive::operator||(double& value)
{
    block(&value, 1);
    return *this;
}

void ktArchive::doubles(std::vector<double>& values, std::size_t count)
{
    if (isStoring()) {
        block(values.data(), count);
        return;
    }
    requireBytesLeft(count, 8);
    values.resize(bytesLeftKnown() ? count : std::min(count, blindStep / 8));
    for (std::size_t done = 0; done < count; done = values.size()) {
        if (done == values.size()) {
            values.resize(std::min(count, 2 * done));
        }
        block(&values[done], values.size() - done);
    }
}

void ktArchive::block(double* values, std::size_t size)
{
    constexpr std::size_t blockSize = 128;
    unsigned char block[8 * blockSize];
    for (std::size_t done = 0; done < size;) {
        const std::size_t now = std::min(blockSize, size - done);
        if (isLoading()) {
            get(block, 8 * now);
        }
        for (std::size_t i = 0; i < now; ++i) {
            unsigned char bytes[8];
            std::uint64_t bits = 0;
            if (isStoring()) {
                std::memcpy(&bits, &values[done + i], sizeof bits);
                toLittleEndian(bits, bytes);
                std::memcpy(block + 8 * i, bytes, sizeof bytes);
            } else {
                std::memcpy(bytes, block + 8 * i, sizeof bytes);
                bits = fromLittleEndian<std::uint64_t>(bytes);
                std::memcpy(&values[done + i], &bits, sizeof bits);
            }
        }
        if (isStoring()) {
            put(block, 8 * now);
        }
        done += now;
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

std::size_t ktArchive::count(std::size_t count, std::size_t leastStoredSize)
{
    if (isStoring()) {
        if (count > std::numeric_limits<std::uint32_t>::max()) {
            throw OutOfRange("Archive value out of range: a count of " + std::to_string(count) +
                             " does not fit 32 bits.");
        }
        store32(static_cast<std::uint32_t>(count));
        return count;
    }
    const std::uint32_t loaded = load32();
    requireBytesLeft(loaded, leastStoredSize);
    return loaded;
}

void ktArchive::requireBytesLeft(std::uint64_t elements, std::size_t leastStoredSize)
{
    const Pass pass(*this);
    const std::uint64_t most = bytesLeftKnown() ? pass_->bytesLeft() : std::numeric_limits<std::size_t>::max() / 2;
    if (leastStoredSize != 0 && elements > most / leastStoredSize) {
        throwCorrupt("impossible count " + std::to_string(elements));
    }
}

bool ktArchive::bytesLeftKnown()
{
    const Pass pass(*this);
    return isLoading() && input_->rdbuf() != nullptr && guarded([this] { return pass_->endKnown(); });
}

void ktArchive::throwCorrupt(const std::string& what) const
{
    throw Corrupt("Corrupt archive: " + what + " at byte " + std::to_string(position_) + ".");
}

ktArchive::Pass::Pass(ktArchive& archive)
    : archive_(archive), previous_(kt_ArchivePass::current()), outermost_(archive.pass_ == nullptr)
{
    if (outermost_) {
        archive.pass_ = new kt_ArchivePass(archive);
    }
    kt_ArchivePass::current() = archive.pass_;
}

ktArchive::Pass::~Pass()
{
    kt_ArchivePass::backTo(previous_);
    if (outermost_) {
        std::unique_ptr<kt_ArchivePass> ended(std::exchange(archive_.pass_, nullptr));
    }
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
    archive.doubles(values, archive.count(values.size(), 8));
    return archive;
}

namespace {

/// A vector of flags: eight to a byte, the first in the lowest bit.
void storeFlags(ktArchive& archive, const std::vector<bool>& flags)
{
    for (std::size_t i = 0; i < flags.size(); i += 8) {
        unsigned char bits = 0;
        for (std::size_t j = i; j < std::min(i + 8, flags.size()); ++j) {
            bits = static_cast<unsigned char>(bits | (flags[j] ? 1u << (j - i) : 0u));
        }
        archive.byte(bits);
    }
}

void loadFlags(ktArchive& archive, std::vector<bool>& flags, std::size_t count)
{
    flags.clear();
    if (archive.bytesLeftKnown()) {
        flags.reserve(count);
    }
    for (std::size_t i = 0; i < count; i += 8) {
        unsigned char bits = 0;
        archive.byte(bits);
        for (std::size_t j = i; j < std::min(i + 8, count); ++j) {
            flags.push_back((bits >> (j - i) & 1u) != 0);
        }
    }
}

}  // namespace

ktArchive& operator||(ktArchive& archive, std::vector<bool>& flags)
{
    const ktArchive::Pass pass(archive);
    archive.version();
    const std::size_t count = archive.count(flags.size(), 0);
    if (archive.isStoring()) {
        storeFlags(archive, flags);
    } else {
        archive.requireBytesLeft((std::uint64_t{count} + 7) / 8, 1);
        loadFlags(archive, flags, count);
    }
    return archive;
}

ktArchive::Errors::Errors(const std::string& message) : ktExceptionWithString(message) {}
ktArchive::Errors::Errors(const Errors&) = default;
ktArchive::Errors& ktArchive::Errors::operator=(const Errors&) = default;
ktArchive::Errors::~Errors() = default;

ktArchive::UnknownVersion::UnknownVersion(const char* where, int line)
    : Errors(where == nullptr ? std::string("Unknown version in an archive.")
                              : "Unknown version in an archive: " + std::string(where) +
                                    (line == 0 ? "." : ", line " + std::to_string(line) + ".")),
      where_(where),
      line_(line)
{
}
ktArchive::UnknownVersion::UnknownVersion(const UnknownVersion&) = default;
ktArchive::UnknownVersion& ktArchive::UnknownVersion::operator=(const UnknownVersion&) = default;
ktArchive::UnknownVersion::~UnknownVersion() = default;

long ktArchive::UnknownVersion::errorNumber() const
{
    return 0x10004001L;
}

void ktArchive::UnknownVersion::suicideAndRethrow()
{
    ktException::rethrowCopyOf(this);
}

template class kt_ArchiveFailure<2>;
template class kt_ArchiveFailure<3>;
template class kt_ArchiveFailure<4>;
template class kt_ArchiveFailure<5>;
template class kt_ArchiveFailure<6>;
