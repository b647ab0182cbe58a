#include "foundation/src/object_table.h"

#include <gtest/gtest.h>

#include <random>
#include <unordered_map>

namespace {

struct Entry {
    const ktPersistent* object = nullptr;
    long value = 0;
};

/// An address, for a table that looks at nothing but addresses.
const ktPersistent* at(std::uintptr_t address);

TEST(ObjectTable, FindsNothingWhileItIsEmpty)
{
    const kt_ObjectTable<Entry> table;
    EXPECT_TRUE(table.isEmpty());
    EXPECT_EQ(table.find(at(16)), nullptr);
}

TEST(ObjectTable, FindsEachObjectWhateverTheirDistance)
{
    for (const std::uintptr_t distance : {1u, 16u, 48u, 64u, 304u, 2048u, 4096u, 65536u, 1u << 20}) {
        SCOPED_TRACE(distance);
        constexpr std::uintptr_t count = 3000;
        kt_ObjectTable<Entry> table;
        for (std::uintptr_t i = 1; i <= count; ++i) {
            table.insert(at(i * distance)).value = static_cast<long>(i);
        }
        for (std::uintptr_t i = 1; i <= count; ++i) {
            const Entry* entry = table.find(at(i * distance));
            ASSERT_NE(entry, nullptr);
            ASSERT_EQ(entry->value, static_cast<long>(i));
        }
        EXPECT_EQ(table.find(at((count + 1) * distance)), nullptr);
    }
}

TEST(ObjectTable, EntriesStayWhereTheyAre)
{
    kt_ObjectTable<Entry> table;
    Entry& first = table.insert(at(16));
    for (std::uintptr_t i = 2; i < 1000; ++i) {
        table.insert(at(16 * i));
    }
    EXPECT_EQ(table.find(at(16)), &first);
}

TEST(ObjectTable, HoldsSeveralEntriesOfOneObject)
{
    kt_ObjectTable<Entry> table;
    for (long value = 0; value < 100; ++value) {
        table.insert(at(16)).value = value;
    }
    const Entry* entry = table.find(at(16), [](const Entry& known) { return known.value == 70; });
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->value, 70);
    EXPECT_EQ(table.find(at(16), [](const Entry& known) { return known.value == 100; }), nullptr);
    long numErased = 0;
    table.erase(at(16), [&numErased](const Entry&) { ++numErased; });
    EXPECT_EQ(numErased, 100);
    EXPECT_EQ(table.find(at(16)), nullptr);
}

TEST(ObjectTable, PlaceOfAnErasedEntryIsTakenByTheNext)
{
    kt_ObjectTable<Entry> table;
    table.insert(at(16));
    Entry* place = &table.insert(at(32));
    for (std::uintptr_t i = 0; i < 1000; ++i) {
        const std::uintptr_t address = 32 + 16 * (i % 7);
        table.erase(at(address), [](const Entry&) {});
        const std::uintptr_t next = 32 + 16 * ((i + 1) % 7);
        Entry& entry = table.insert(at(next));
        ASSERT_EQ(&entry, place) << i;
        ASSERT_EQ(entry.value, 0) << i;
        entry.value = 5;
    }
    EXPECT_NE(table.find(at(16)), nullptr);
    EXPECT_FALSE(table.isEmpty());
}

TEST(ObjectTable, IsEmptyAgainWhenTheLastIsErased)
{
    kt_ObjectTable<Entry> table;
    table.insert(at(16));
    table.erase(at(16), [](const Entry&) {});
    EXPECT_TRUE(table.isEmpty());
    EXPECT_EQ(table.find(at(16)), nullptr);
}

// Addresses that share a home lie in one row with those of the homes behind it, and rows go round the end of the table.
TEST(ObjectTable, ErasingLeavesTheOthersOfARowWhereASearchFindsThem)
{
    for (std::uintptr_t gap = 0; gap < 8; ++gap) {
        for (std::uintptr_t first = 1; first <= 16; ++first) {
            kt_ObjectTable<Entry> table;
            // Pairs within 16 bytes share a home.
            for (std::uintptr_t i = 0; i < 8; ++i) {
                table.insert(at(16 * (first + i / 2) + i % 2)).value = static_cast<long>(i);
            }
            table.erase(at(16 * (first + gap / 2) + gap % 2), [](const Entry&) {});
            for (std::uintptr_t i = 0; i < 8; ++i) {
                const Entry* entry = table.find(at(16 * (first + i / 2) + i % 2));
                ASSERT_EQ(entry != nullptr, i != gap) << first << ": " << i << " without " << gap;
                ASSERT_TRUE(entry == nullptr || entry->value == static_cast<long>(i));
            }
        }
    }
}

TEST(ObjectTable, AgreesWithAMapUnderRandomInsertionAndErasure)
{
    std::mt19937 random(20);
    kt_ObjectTable<Entry> table;
    std::unordered_map<std::uintptr_t, long> map;
    for (long step = 0; step < 50000; ++step) {
        const std::uintptr_t address = 16 * (1 + random() % 700);
        if (random() % 3 == 0) {
            table.erase(at(address), [&](const Entry& entry) { EXPECT_EQ(entry.value, map[address]); });
            map.erase(address);
        } else if (map.count(address) == 0) {
            table.insert(at(address)).value = step;
            map[address] = step;
        }
        const Entry* entry = table.find(at(address));
        ASSERT_EQ(entry != nullptr, map.count(address) == 1) << step;
        if (entry != nullptr) {
            ASSERT_EQ(entry->value, map[address]) << step;
        }
    }
}

const ktPersistent* at(std::uintptr_t address)
{
    return reinterpret_cast<const ktPersistent*>(address);
}

}  // namespace
