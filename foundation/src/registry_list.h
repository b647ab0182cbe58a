#pragma once

#include <atomic>
#include <thread>

/// A list that libraries add entries to and remove them from while they are loaded and unloaded, and that any thread may walk meanwhile.
/// An `Entry` has an atomic pointer `next_`; the newest is first. The list is initialised at compile time, so entries may be added before
/// any other static object is made.
///
/// Walking takes no lock: walks are counted, and a removed entry may be destroyed when no walk is under way.
template <class Entry>
class kt_RegistryList {
public:
    /// While it lives, no entry that it can meet is destroyed.
    class Walk {
    public:
        explicit Walk(const kt_RegistryList& list) noexcept : list_(list) { list_.numWalks_.fetch_add(1); }
        ~Walk() { list_.numWalks_.fetch_sub(1); }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;

    private:
        const kt_RegistryList& list_;
    };

    Entry* first() const noexcept { return newest_.load(); }

    void add(Entry* entry) noexcept
    {
        const Change change(*this);
        entry->next_.store(newest_.load());
        newest_.store(entry);
    }

    /// Removes the newest entry that `isWanted` accepts. Returns it, or null, after the last walk that may have met it.
    template <class IsWanted>
    Entry* remove(IsWanted isWanted) noexcept
    {
        const Change change(*this);
        std::atomic<Entry*>* link = &newest_;
        Entry* entry = link->load();
        while (entry != nullptr && !isWanted(*entry)) {
            link = &entry->next_;
            entry = link->load();
        }
        if (entry != nullptr) {
            link->store(entry->next_.load());
            // A walk that begins after this does not meet the entry: these operations have one order for all threads.
            while (numWalks_.load() != 0) {  // not covered: another thread walks just now
                std::this_thread::yield();
            }
        }
        return entry;
    }

private:
    /// One change at a time.
    class Change {
    public:
        explicit Change(kt_RegistryList& list) noexcept : list_(list)
        {
            while (list_.isChanging_.exchange(true)) {  // not covered: another thread changes the list just now
                std::this_thread::yield();
            }
        }
        ~Change() { list_.isChanging_.store(false); }
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

    private:
        kt_RegistryList& list_;
    };

    std::atomic<Entry*> newest_{nullptr};
    mutable std::atomic<long> numWalks_{0};
    std::atomic<bool> isChanging_{false};
};
