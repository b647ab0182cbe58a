#pragma once

#include <set>
#include <utility>

/// The pairs of objects that a comparison has found equal. An archive of a few bytes a reference can hold one object under many
/// handles; each pair is compared once.
class kt_EqualPairs {
public:
    /// False if the pair is known.
    bool add(const void* one, const void* other) { return pairs_.emplace(one, other).second; }

private:
    std::set<std::pair<const void*, const void*>> pairs_;
};
