#pragma once

#include "bayes/bayes_kit.h"

// Dependencies and distribution types by the rules of merging written down one by one, and calls made on these and on the
// library's object.

namespace trust {

using bayes::Indices;
using bayes::Sets;
using bayes::Types;

inline constexpr long label = 0;
/// Has a set of its own, which nothing here may touch.
inline constexpr long otherLabel = 1;

inline bool has(const Indices& indices, long index)
{
    return std::find(indices.begin(), indices.end(), index) != indices.end();
}

struct DependencyModel {
    Sets sets;
    /// Overrides in the order in which they were first set.
    std::vector<std::pair<long, Types::DistributionType>> overrides;

    Types::DistributionType typeOf(long index) const
    {
        for (const auto& entry : overrides) {
            if (entry.first == index) {
                return entry.second;
            }
        }
        return Types::eNormal;
    }

    /// Whether the call is allowed.
    bool setDependent(const Indices& indices)
    {
        for (const long index : indices) {
            if (typeOf(index) != typeOf(indices[0])) {
                return false;
            }
        }
        Sets touched;
        Sets others;
        std::size_t place = 0;
        for (const Indices& set : sets) {
            const bool touches =
                std::any_of(indices.begin(), indices.end(), [&set](long index) { return has(set, index); });
            place = touched.empty() && !touches ? place + 1 : place;
            (touches ? touched : others).push_back(set);
        }
        // The first set touched, then the given ones that no touched set has, then the other sets touched.
        Indices merged = touched.empty() ? Indices() : touched[0];
        for (const long index : indices) {
            const bool held =
                std::any_of(touched.begin(), touched.end(), [index](const Indices& set) { return has(set, index); });
            if (!held && !has(merged, index)) {
                merged.push_back(index);
            }
        }
        for (std::size_t i = 1; i < touched.size(); ++i) {
            merged.insert(merged.end(), touched[i].begin(), touched[i].end());
        }
        if (!merged.empty() && !indices.empty()) {
            others.insert(others.begin() + static_cast<std::ptrdiff_t>(place), merged);
            sets = others;
        }
        return true;
    }

    bool overrideType(long index, Types::DistributionType type)
    {
        if (type == Types::eNormal) {
            return true;
        }
        if (std::any_of(sets.begin(), sets.end(), [index](const Indices& set) { return has(set, index); })) {
            return false;
        }
        const auto known = std::find_if(overrides.begin(), overrides.end(),
                                        [index](const auto& entry) { return entry.first == index; });
        if (known != overrides.end()) {
            known->second = type;
        } else {
            overrides.emplace_back(index, type);
        }
        return true;
    }

    bool isDependent(const Indices& indices) const
    {
        for (const Indices& set : sets) {
            if (!indices.empty() && has(set, indices[0])) {
                return std::all_of(indices.begin(), indices.end(), [&set](long index) { return has(set, index); });
            }
        }
        return false;
    }
};

struct DependencyWorld {
    Types types;
    DependencyModel model;
};

inline DependencyWorld newWorld()
{
    DependencyWorld world;
    world.types.setDependent(otherLabel, {0, 1});
    return world;
}

/// A call: these indices made dependent, or, where there is a type, the one index overridden.
struct DependencyCall {
    Indices indices;
    bool overrides = false;
    Types::DistributionType type = Types::eNormal;
};

/// Makes the call on both, and says whether they agree whether it is allowed.
inline bool make(DependencyWorld& world, const DependencyCall& call)
{
    bool allowed = true;
    try {
        if (call.overrides) {
            world.types.distributionTypeOverride(label, call.indices[0], call.type);
        } else {
            world.types.setDependent(label, call.indices);
        }
    } catch (const ktClassifierDefs::BadParams&) {
        allowed = false;
    }
    return allowed == (call.overrides ? world.model.overrideType(call.indices[0], call.type)
                                      : world.model.setDependent(call.indices));
}

/// All that the object holds, as its archive has it.
inline bool isSame(const DependencyWorld& world)
{
    bayes::TypeFields expected;
    for (const auto& [index, type] : world.model.overrides) {
        expected.overrideLabels.push_back(label);
        expected.overrideIndices.push_back(index);
        expected.overrideTypes.push_back(type);
    }
    expected.dependentLabels.push_back(otherLabel);
    expected.dependentSets.push_back({0, 1});
    for (const Indices& set : world.model.sets) {
        expected.dependentLabels.push_back(label);
        expected.dependentSets.push_back(set);
    }
    return world.types == bayes::typesWith(expected);
}

inline std::string nameOf(const DependencyCall& call)
{
    return ::testing::PrintToString(call.indices) + (call.overrides ? " of type " + std::to_string(call.type) : "");
}

/// Every list of different indices, the empty one included: 1 + 4 + 12 + 24 + 24.
inline std::vector<Indices> orderedLists()
{
    std::vector<Indices> lists{{}};
    for (std::size_t i = 0; i < lists.size(); ++i) {
        const Indices list = lists[i];
        for (long index = 0; index < 4; ++index) {
            if (!has(list, index)) {
                lists.push_back(list);
                lists.back().push_back(index);
            }
        }
    }
    return lists;
}

/// Makes every sequence of so many calls with these subsets, compared after each call. Returns the number of calls.
inline long checkSubsetsFrom(const DependencyWorld& world, const std::vector<Indices>& subsets, int callsLeft,
                             const std::string& path)
{
    long made = 0;
    for (const Indices& subset : subsets) {
        DependencyWorld next = world;
        const std::string nextPath = path + ::testing::PrintToString(subset) + " ";
        const bool agreed = make(next, {subset});
        ++made;
        if (!agreed || !isSame(next)) {
            ADD_FAILURE() << nextPath;
            return made;
        }
        if (callsLeft > 1 && !::testing::Test::HasFailure()) {
            made += checkSubsetsFrom(next, subsets, callsLeft - 1, nextPath);
        }
    }
    return made;
}

}  // namespace trust
