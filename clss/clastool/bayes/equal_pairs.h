#pragma once

#include <set>
#include <utility>

/// The pairs of objects that a comparison has found equal. A small archive can hold one object under many handles, so each pair is
/// compared once. The first pairs are not noted, which saves an allocation.
class kt_EqualPairs {
public:
    /// False if the pair is known.
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
