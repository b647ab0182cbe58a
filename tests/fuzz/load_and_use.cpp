// Any bytes, loaded as a value of any type, and the battery of use on what loads.
//
// The first byte chooses: its low 6 bits the type, 40 that the archive's header is part of the input instead of understood,
// 80 a stream that cannot tell its length.

#include "damage/battery.h"
#include "support/allocations.h"
#include "support/bytes.h"
#include "support/streams.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

/// A failure may be kept beyond its handler.
void requireCopyIsTheSame(const ktArchive::UnknownVersion& error)
{
    ktArchive::Errors* thrown = new ktArchive::UnknownVersion(error);
    try {
        thrown->suicideAndRethrow();
    } catch (const ktArchive::UnknownVersion& copy) {
        ktArchive::UnknownVersion kept("elsewhere", 1);
        kept = copy;
        if (kept.message() != error.message() || kept.where() != error.where() || kept.line() != error.line() ||
            kept.errorNumber() != error.errorNumber()) {
            throw kt_test::BrokenPromise("a failure's copy says what the failure says");
        }
    }
}

/// Loads a value and uses it. Returns whether it was loaded.
bool loadAndUse(const kt_test::ArchivedType& type, ktArchive& archive, std::size_t size)
{
    const std::unique_ptr<kt_test::Subject> subject = type.make();
    try {
        const kt_test::MemoryWatch watch;
        subject->load(archive);
        if (watch.peakBytes() > 64 * size + 64 * 1024) {
            throw kt_test::BrokenPromise("loading stays within 64 times the input and 64 KiB");
        }
    } catch (const ktArchive::UnknownVersion& error) {
        requireCopyIsTheSame(error);
        return false;
    } catch (const ktArchive::Errors&) {
        return false;
    }
    subject->use();
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const auto& types = kt_test::archivedTypes();
    const kt_test::ArchivedType& type = types[(data[0] & 0x3Fu) % types.size()];
    std::string bytes = (data[0] & 0x40u) != 0 ? std::string() : kt_test::archiveHeader();
    bytes.append(reinterpret_cast<const char*>(data + 1), size - 1);
    std::istringstream telling(bytes);
    kt_test::BlindSource blind(bytes);
    ktArchive archive((data[0] & 0x80u) != 0 ? static_cast<std::istream&>(blind) : telling);
    // Golden archives hold up to four values.
    for (int i = 0; i < 4 && loadAndUse(type, archive, bytes.size()); ++i) {
    }
    return 0;
}
