#pragma once

#include <kt/handle.h>

#include <atomic>
#include <vector>

/// Whether what somebody copied from patterns is still what they hold.
class kt_Currency : public ktRepBase {
public:
    bool isCurrent() const noexcept { return isCurrent_.load(std::memory_order_relaxed); }
    void end() const noexcept { isCurrent_.store(false, std::memory_order_relaxed); }

private:
    mutable std::atomic<bool> isCurrent_{true};
};

/// Those who hold copies of one pattern's measurements. Patterns that the same copies hold share one list, which nobody changes
/// once patterns have it: to a further copy each list has one successor.
class kt_PatternHolders : public ktRepBase {
public:
    /// The holders of `before`, which may be null, that are still current, and one more.
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

    /// The pattern is about to change.
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
