#pragma once

#include <set>
#include <utility>

/// The pairs of objects that a comparison has found equal. An archive can hold one object under many handles, so each pair is compared
/// only once. The first 256 pairs are counted but not stored, which saves allocations.
class kt_EqualPairs {
public:
    /// Adds a pair. Returns false if it is stored already.
    bool add(const void* one, const void* other)
    {
        if (numFirst_ < 256) {
            ++numFirst_;
            return true;
        }
        return pairs_.emplace(one, other).second;
    }

private:
    int numFirst_ = 0;
    std::set<std::pair<const void*, const void*>> pairs_;
};
