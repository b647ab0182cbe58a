#pragma once

#include <atomic>
#include <thread>

/// A list that libraries add to and take from while they are loaded and unloaded, and that any thread may walk meanwhile. An
/// `Entry` has an atomic pointer `next_`; the newest stands first. Initialised at compile time: entries may come before any other static
/// object is made.
///
/// Walking takes no lock: it counts itself, and what was taken out may go as soon as nobody walks.
template <class Entry>
class kt_RegistryList {
public:
    /// As long as it lives, no entry that it can meet goes.
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

    /// Takes out the newest entry that `isWanted` accepts, and returns it, or null, when no walk can be at it any more.
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
            // A walk that begins from here on does not meet the entry: all these are in one order for all threads.
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
