#include "damage.h"

#include "allocations.h"
#include "bytes.h"
#include "streams.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <map>
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

using Visit = std::function<void(const std::string& damaged, const std::string& what)>;

void forEachPrefix(const std::string& bytes, const Visit& visit)
{
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        visit(bytes.substr(0, size), "the first " + std::to_string(size) + " bytes");
    }
}

void forEachBit(const std::string& bytes, const Visit& visit)
{
    for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        std::string damaged = bytes;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
        visit(damaged, "bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8) + " flipped");
    }
}

void forEachByte(const std::string& bytes, const Visit& visit)
{
    for (std::size_t position = 0; position < bytes.size(); ++position) {
        for (const int value : {0x00, 0x7F, 0x80, 0xFF}) {
            visit(withBytesAt(bytes, position, std::string(1, static_cast<char>(value))),
                  "byte " + std::to_string(position) + " set to " + std::to_string(value));
        }
    }
}

unsigned long wordAt(const std::string& bytes, std::size_t position)
{
    unsigned long word = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        word |= static_cast<unsigned long>(static_cast<unsigned char>(bytes[position + i])) << (8 * i);
    }
    return word;
}

void forEachWord(const std::string& bytes, const Visit& visit)
{
    for (std::size_t position = 0; position + 4 <= bytes.size(); ++position) {
        const unsigned long here = wordAt(bytes, position);
        for (const unsigned long word : {0UL, 1UL, 0x7FFFFFFFUL, 0x80000000UL, 0xFFFFFFFFUL, (here - 1) & 0xFFFFFFFFUL,
                                         (here + 1) & 0xFFFFFFFFUL}) {
            visit(withBytesAt(bytes, position, littleEndian32(word)),
                  "word " + std::to_string(word) + " at byte " + std::to_string(position));
        }
    }
}

/// What a pointer record of an object has before the object, if its class was not named before.
std::string newClassRecord(const std::string& name)
{
    return "\3" + littleEndian32(name.size()) + name;
}

/// The records that name a class for the first time, by their place.
std::map<std::size_t, std::string> namingRecords(const std::string& bytes)
{
    std::map<std::size_t, std::string> records;
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        const std::string record = newClassRecord(entry->name());
        for (std::size_t at = bytes.find(record); at != std::string::npos; at = bytes.find(record, at + 1)) {
            records[at] = entry->name();
        }
    }
    return records;
}

void forEachClassName(const std::string& bytes, const Visit& visit)
{
    for (const auto& [position, name] : namingRecords(bytes)) {
        const std::size_t size = newClassRecord(name).size();
        for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
            if (entry->name() != name) {
                std::string damaged = bytes;
                visit(damaged.replace(position, size, newClassRecord(entry->name())),
                      name + " at byte " + std::to_string(position) + " exchanged for " + entry->name());
            }
        }
    }
}

void forEachReference(const std::string& bytes, const Visit& visit)
{
    // More objects than these cannot be in one pass: each names its class or gives the number of one that was named.
    std::size_t objects = namingRecords(bytes).size();
    for (std::size_t at = 0; at + 5 <= bytes.size(); ++at) {
        objects += bytes[at] == 2 && wordAt(bytes, at + 1) < objects ? 1 : 0;
    }
    for (std::size_t at = 0; at + 5 <= bytes.size(); ++at) {
        if (bytes[at] != 1 || wordAt(bytes, at + 1) > objects) {
            continue;
        }
        for (std::size_t other = 0; other <= objects; ++other) {
            if (other != wordAt(bytes, at + 1)) {
                visit(withBytesAt(bytes, at + 1, littleEndian32(other)),
                      "reference at byte " + std::to_string(at) + " to object " + std::to_string(other));
            }
        }
    }
}

/// Runs one archive operation on a stream that fails. Expects what that makes of it.
void expectStreamFailure(bool corruptIsRight, const std::function<void()>& operation)
{
    try {
        operation();
        ADD_FAILURE() << "no exception";
    } catch (const ktArchive::StreamFailed& error) {
        EXPECT_FALSE(corruptIsRight) << error.what();
    } catch (const ktArchive::Corrupt& error) {
        EXPECT_TRUE(corruptIsRight && error.message().find("unexpected end") != std::string::npos) << error.what();
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
}

void expectNothingLeft(const MemoryWatch& watch)
{
    if (!::testing::Test::HasFailure()) {
        // A failure that was recorded holds memory of its own.
        EXPECT_EQ(watch.liveBlocks(), 0) << "blocks leaked";
    }
}

std::string storedBy(const std::function<void(ktArchive&)>& store)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    store(archive);
    return out.str();
}

void failStoringAt(std::size_t limit, AtLimit atLimit, const std::string& bytes,
                   const std::function<void(ktArchive&)>& store)
{
    const MemoryWatch watch;
    {
        LimitedSink sink(limit, atLimit);
        expectStreamFailure(false, [&] {
            ktArchive archive(sink);
            store(archive);
        });
        EXPECT_EQ(toHex(sink.bytes()), toHex(bytes.substr(0, limit)));
        EXPECT_EQ(toHex(storedBy(store)), toHex(bytes)) << "stored right after";
    }
    expectNothingLeft(watch);
}

void failLoadingAt(std::size_t limit, AtLimit atLimit, const std::string& bytes,
                   const std::function<void(ktArchive&)>& load)
{
    // Loaded before as well as after: what an object that lives on holds is no leak.
    const auto loadGood = [&] {
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        EXPECT_NO_THROW(load(archive));
        EXPECT_EQ(in.rdbuf()->in_avail(), 0) << "bytes that loading did not take";
    };
    loadGood();
    const MemoryWatch watch;
    {
        BlindSource source(bytes, limit, atLimit);
        expectStreamFailure(atLimit == AtLimit::refuses, [&] {
            ktArchive archive(source);
            load(archive);
        });
        loadGood();
    }
    expectNothingLeft(watch);
}

/// A hash, because every tenth in order would meet only the odd bits of bytes.
std::uint32_t mixed(std::uint32_t number)
{
    number = (number ^ (number >> 16)) * 0x7FEB352Du;
    number = (number ^ (number >> 15)) * 0x846CA68Bu;
    return number ^ (number >> 16);
}

}  // namespace

void forEachDamage(const std::string& bytes, const Visit& visit)
{
    forEachPrefix(bytes, visit);
    forEachBit(bytes, visit);
    forEachByte(bytes, visit);
    forEachWord(bytes, visit);
    forEachClassName(bytes, visit);
    forEachReference(bytes, visit);
}

bool everyCaseIsAsked()
{
    return std::getenv("KT_EVERY_CASE") != nullptr;
}

void forEachChosenDamage(const std::string& bytes, const Visit& visit)
{
    const bool every = everyCaseIsAsked();
    std::uint32_t number = 0;
    forEachDamage(bytes, [&](const std::string& damaged, const std::string& what) {
        if (every || mixed(number++) % 10 == 0) {
            visit(damaged, what);
        }
    });
}

DamageReport loadDamaged(const std::string& bytes, const std::function<void(ktArchive&)>& load)
{
    DamageReport report;
    for (const Source kind : {Source::tellsItsLength, Source::blind}) {
        SCOPED_TRACE(kind == Source::blind ? "from a stream without a length" : "from a stream that tells its length");
        EXPECT_TRUE(loadOnce(kind, bytes, load)) << "the undamaged archive does not load";
        forEachChosenDamage(bytes, [&](const std::string& damaged, const std::string& what) {
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
    const std::string bytes = storedBy(store);
    EXPECT_FALSE(bytes.empty()) << "nothing was stored";
    for (std::size_t limit = 0; limit < bytes.size() && !::testing::Test::HasFailure(); ++limit) {
        for (const AtLimit atLimit : {AtLimit::refuses, AtLimit::throws}) {
            SCOPED_TRACE(::testing::Message()
                         << (atLimit == AtLimit::throws ? "throws" : "refuses") << " at byte " << limit);
            failStoringAt(limit, atLimit, bytes, store);
            failLoadingAt(limit, atLimit, bytes, load);
        }
    }
}

}  // namespace kt_test
