#pragma once

#include <kt/handle.h>

#include <atomic>
#include <vector>

/// Whether a copy of patterns' measurements is still current.
class kt_Currency : public ktRepBase {
public:
    bool isCurrent() const noexcept { return isCurrent_.load(std::memory_order_relaxed); }
    void end() const noexcept { isCurrent_.store(false, std::memory_order_relaxed); }

private:
    mutable std::atomic<bool> isCurrent_{true};
};

/// The list of the copies that hold one pattern's measurements. Patterns with the same copies share one list. A list that patterns hold
/// does not change: a further copy makes one successor for each list.
class kt_PatternHolders : public ktRepBase {
public:
    /// The current holders of `before`, which may be null, and one more.
    kt_PatternHolders(const kt_PatternHolders* before, const ktPtrHandle<const kt_Currency>& added)
    {
        if (before != nullptr) {
            for (const auto& holder : before->holders_) {
                if (holder->isCurrent()) {
                    holders_.push_back(holder);
                }
            }
        }
        holders_.push_back(added);
    }

    const kt_Currency* last() const noexcept { return holders_.back().get(); }

    /// Marks all copies as out of date, because the pattern is about to change.
    void end() const noexcept
    {
        for (const auto& handle : holders_) {
            const kt_Currency* holder = handle.get();
            holder->end();
        }
    }

private:
    std::vector<ktPtrHandle<const kt_Currency>> holders_;
};
