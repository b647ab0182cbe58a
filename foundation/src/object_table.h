#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>
#include <vector>

class ktPersistent;

/// A list that grows at its end and never moves its elements: growing copies nothing, and references to elements stay valid.
template <class T>
class kt_StableList {
public:
    std::size_t size() const noexcept { return size_; }
    T& operator[](std::size_t i) noexcept { return chunks_[i / chunkSize][i % chunkSize]; }
    const T& operator[](std::size_t i) const noexcept { return chunks_[i / chunkSize][i % chunkSize]; }

    /// Appends a default element. Throws: std::bad_alloc, with the list as it was.
    T& append()
    {
        if (size_ == chunks_.size() * chunkSize) {
            chunks_.push_back(std::make_unique<T[]>(chunkSize));
        }
        return (*this)[size_++];
    }

private:
    static constexpr std::size_t chunkSize = 64;

    std::vector<std::unique_ptr<T[]>> chunks_;
    std::size_t size_ = 0;
};

/// What a pass notes about objects, found by their address. An `Entry` has a member `object`; several entries may belong to one
/// object. Entries do not move. The next entry that is inserted takes the place of an erased one, so the table takes memory for the
/// most entries that it ever held at once.
///
/// Hashing with linear probing over 4-byte numbers of entries, at most half full: for a million objects the numbers fit a
/// processor's cache, where a table of nodes would cost more than archiving the objects. Erasing moves the numbers behind the gap
/// back (D. Knuth, The Art of Computer Programming 3, 1973, algorithm 6.4R): a mark in the gap would lengthen every search, and
/// objects that live at one address one after the other would leave nothing but such marks.
template <class Entry>
class kt_ObjectTable {
public:
    bool isEmpty() const noexcept { return numPlaced_ == 0; }

    /// The first entry of the object that `accept` takes, or null.
    template <class Accept>
    Entry* find(const ktPersistent* object, Accept accept) const noexcept
    {
        const std::size_t i = slotOf(object, accept);
        return i == nowhere ? nullptr : const_cast<Entry*>(&entries_[numbers_[i]]);
    }
    /// An entry of the object, or null.
    Entry* find(const ktPersistent* object) const noexcept
    {
        // Consecutive look-ups are often for one object.
        if (latest_ == nullptr || latest_->object != object) {
            Entry* found = find(object, any);
            latest_ = found == nullptr ? latest_ : found;
            return found;
        }
        return latest_;
    }

    /// Throws: std::bad_alloc, with the table as it was.
    Entry& insert(const ktPersistent* object)
    {
        if (2 * (numPlaced_ + 1) > capacity_) {
            grow();
        }
        std::size_t number = entries_.size();
        if (numFree_ != 0) {
            number = numbers_[capacity_ + --numFree_];
            entries_[number] = Entry();
        } else {
            if (number == none) {  // not covered: takes more than four thousand million objects in memory
                throw std::bad_alloc();
            }
            entries_.append();
        }
        Entry& entry = entries_[number];
        entry.object = object;
        place(number);
        latest_ = &entry;
        return entry;
    }

    /// Calls `erased` with each entry of the object before it goes.
    template <class Erased>
    void erase(const ktPersistent* object, Erased erased) noexcept
    {
        for (std::size_t i = slotOf(object, any); i != nowhere; i = slotOf(object, any)) {
            Entry& entry = entries_[numbers_[i]];
            erased(entry);
            entry.object = nullptr;
            latest_ = nullptr;
            numbers_[capacity_ + numFree_++] = numbers_[i];
            close(i);
        }
    }

private:
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
    static constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();
    static bool any(const Entry&) noexcept { return true; }

    /// The place of the number of the object's first entry that `accept` takes.
    template <class Accept>
    std::size_t slotOf(const ktPersistent* object, Accept accept) const noexcept
    {
        if (capacity_ == 0) {
            return nowhere;
        }
        for (std::size_t i = home(object); numbers_[i] != none; i = next(i)) {
            const Entry& entry = entries_[numbers_[i]];
            if (entry.object == object && accept(entry)) {
                return i;
            }
        }
        return nowhere;
    }

    /// Objects made one after the other are often neighbours in memory, and their numbers in the table too, which suits the cache. Every
    /// 2 KiB of addresses begin at a place of their own (multiplicative hashing: D. Knuth, The Art of Computer Programming 3, 1973), so
    /// that addresses at equal distances do not collide.
    std::size_t home(const ktPersistent* object) const noexcept
    {
        const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object));
        const std::uint64_t place = (address >> 4) + (((address >> 11) * 0x9E3779B97F4A7C15u) >> 32);
        return static_cast<std::size_t>(place) & (capacity_ - 1);
    }
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (capacity_ - 1); }

    void place(std::size_t number) noexcept
    {
        std::size_t i = home(entries_[number].object);
        while (numbers_[i] != none) {
            i = next(i);
        }
        numbers_[i] = static_cast<std::uint32_t>(number);
        ++numPlaced_;
    }

    /// Removes the number at the gap, and moves back those behind it that a search would no longer reach.
    void close(std::size_t gap) noexcept
    {
        for (std::size_t i = next(gap); numbers_[i] != none; i = next(i)) {
            const std::size_t fromHome = (i - home(entries_[numbers_[i]].object)) & (capacity_ - 1);
            const std::size_t fromGap = (i - gap) & (capacity_ - 1);
            if (fromHome >= fromGap) {
                numbers_[gap] = numbers_[i];
                gap = i;
            }
        }
        numbers_[gap] = none;
        --numPlaced_;
    }

    /// Requires: no entry is free.
    void grow()
    {
        const std::size_t capacity = std::max<std::size_t>(16, 2 * capacity_);
        std::unique_ptr<std::uint32_t[]> numbers(new std::uint32_t[capacity + capacity / 2]);
        std::fill_n(numbers.get(), capacity, none);
        numbers_ = std::move(numbers);
        capacity_ = capacity;
        numPlaced_ = 0;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            place(i);
        }
    }

    kt_StableList<Entry> entries_;
    // The table, and behind it the numbers of the entries that are free.
    std::unique_ptr<std::uint32_t[]> numbers_;
    mutable Entry* latest_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t numPlaced_ = 0;
    std::size_t numFree_ = 0;
};
