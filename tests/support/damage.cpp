#include "damage.h"

#include "allocations.h"
#include "bytes.h"
#include "streams.h"

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <sstream>
#include <vector>

namespace kt_test {

namespace {

enum class Source { tellsItsLength, blind };

std::unique_ptr<std::istream> makeSource(Source kind, const std::string& bytes)
{
    if (kind == Source::blind) {
        return std::make_unique<BlindSource>(bytes);
    }
    return std::make_unique<std::istringstream>(bytes);
}

/// Whether the bytes were loaded; false if they were refused.
bool loadOnce(Source kind, const std::string& bytes, const std::function<void(ktArchive&)>& load)
{
    const std::unique_ptr<std::istream> in = makeSource(kind, bytes);
    bool loaded = false;
    const MemoryWatch watch;
    try {
        ktArchive archive(*in);
        load(archive);
        loaded = true;
    } catch (const ktException&) {
        loaded = false;
    } catch (const std::exception& error) {
        ADD_FAILURE() << "not a ktException but: " << error.what();
    } catch (...) {
        ADD_FAILURE() << "not a ktException";
    }
    if (!::testing::Test::HasFailure()) {
        // A failure that was recorded holds memory of its own.
        EXPECT_EQ(watch.liveBlocks(), 0) << "blocks leaked";
    }
    EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
    return loaded;
}

/// Runs one archive operation. Expects what a stream that fails at that place makes of it, and that nothing leaks.
void expectStreamFailure(bool corruptIsRight, const std::function<void()>& operation)
{
    const MemoryWatch watch;
    try {
        operation();
        ADD_FAILURE() << "no exception";
    } catch (const ktArchive::StreamFailed&) {
        EXPECT_FALSE(corruptIsRight) << "StreamFailed";
    } catch (const ktArchive::Corrupt& error) {
        EXPECT_TRUE(corruptIsRight) << error.what();
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
    if (!::testing::Test::HasFailure()) {
        EXPECT_EQ(watch.liveBlocks(), 0) << "blocks leaked";
    }
}

}  // namespace

void forEachDamage(const std::string& bytes,
                   const std::function<void(const std::string& damaged, const std::string& what)>& visit)
{
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        visit(bytes.substr(0, size), "the first " + std::to_string(size) + " bytes");
    }
    for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        std::string damaged = bytes;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
        visit(damaged, "bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8) + " flipped");
    }
    for (std::size_t position = 0; position + 4 <= bytes.size(); ++position) {
        for (const unsigned long word : {0UL, 1UL, 0x7FFFFFFFUL, 0x80000000UL, 0xFFFFFFFFUL}) {
            visit(withBytesAt(bytes, position, littleEndian32(word)),
                  "word " + std::to_string(word) + " at byte " + std::to_string(position));
        }
    }
}

DamageReport loadDamaged(const std::string& bytes, const std::function<void(ktArchive&)>& load)
{
    DamageReport report;
    for (const Source kind : {Source::tellsItsLength, Source::blind}) {
        SCOPED_TRACE(kind == Source::blind ? "from a stream without a length" : "from a stream that tells its length");
        EXPECT_TRUE(loadOnce(kind, bytes, load)) << "the undamaged archive does not load";
        forEachDamage(bytes, [&](const std::string& damaged, const std::string& what) {
            if (::testing::Test::HasFailure()) {
                return;
            }
            SCOPED_TRACE(what);
            ++(loadOnce(kind, damaged, load) ? report.loaded : report.refused);
        });
    }
    return report;
}

void failEachByte(const std::function<void(ktArchive&)>& store, const std::function<void(ktArchive&)>& load)
{
    std::ostringstream out;
    ktArchive whole(static_cast<std::ostream&>(out));
    store(whole);
    const std::string bytes = out.str();
    EXPECT_FALSE(bytes.empty()) << "nothing was stored";
    for (std::size_t limit = 0; limit < bytes.size(); ++limit) {
        for (const AtLimit atLimit : {AtLimit::refuses, AtLimit::throws}) {
            SCOPED_TRACE(::testing::Message()
                         << (atLimit == AtLimit::throws ? "throws" : "refuses") << " at byte " << limit);
            LimitedSink sink(limit, atLimit);
            expectStreamFailure(false, [&] {
                ktArchive archive(sink);
                store(archive);
            });
            EXPECT_EQ(toHex(sink.bytes()), toHex(bytes.substr(0, limit)));
            BlindSource source(bytes, limit, atLimit);
            expectStreamFailure(atLimit == AtLimit::refuses, [&] {
                ktArchive archive(source);
                load(archive);
            });
        }
    }
}

}  // namespace kt_test
