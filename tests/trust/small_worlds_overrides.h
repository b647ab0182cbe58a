#pragma once

#include "support/test.h"

// Costs and frequencies as plain maps, and calls made on these and on the library's objects.

namespace trust {

/// Overrides in the order in which they were first set.
template <class Key>
struct OverrideModel {
    double byDefault = 1.0;
    std::vector<std::pair<Key, double>> overrides;

    void set(const Key& key, double value)
    {
        const auto known =
            std::find_if(overrides.begin(), overrides.end(), [&](const auto& entry) { return entry.first == key; });
        if (known != overrides.end()) {
            known->second = value;
        } else {
            overrides.emplace_back(key, value);
        }
    }
    double at(const Key& key) const
    {
        for (const auto& entry : overrides) {
            if (entry.first == key) {
                return entry.second;
            }
        }
        return byDefault;
    }
};

template <class Table, class Key>
struct OverrideCall {
    std::string label;
    std::function<void(Table&)> onTable;
    /// Null where the call is refused.
    std::function<void(OverrideModel<Key>&)> onModel;
};

/// Makes every sequence of `calls` and has `check` compare table and model after each call. Returns the number of calls.
template <class Table, class Key>
class OverrideSequences {
public:
    OverrideSequences(std::vector<OverrideCall<Table, Key>> calls,
                      std::function<bool(const Table&, const OverrideModel<Key>&)> check)
        : calls_(std::move(calls)), check_(std::move(check))
    {
    }

    std::size_t numCalls() const { return calls_.size(); }

    long checkFrom(const Table& table, const OverrideModel<Key>& model, int callsLeft,
                   const std::string& path = "") const
    {
        long made = 0;
        for (const OverrideCall<Table, Key>& call : calls_) {
            Table nextTable(table);
            OverrideModel<Key> nextModel(model);
            const std::string nextPath = path + call.label + "; ";
            ++made;
            bool refused = false;
            try {
                call.onTable(nextTable);
            } catch (const ktClassifierDefs::Errors&) {
                refused = true;
            }
            if (call.onModel) {
                call.onModel(nextModel);
            }
            if (refused == static_cast<bool>(call.onModel) || !check_(nextTable, nextModel)) {
                ADD_FAILURE() << nextPath;
                return made;
            }
            if (callsLeft > 1 && !::testing::Test::HasFailure()) {
                made += checkFrom(nextTable, nextModel, callsLeft - 1, nextPath);
            }
        }
        return made;
    }

private:
    std::vector<OverrideCall<Table, Key>> calls_;
    std::function<bool(const Table&, const OverrideModel<Key>&)> check_;
};

using Costs = ktClassifierCosts;
using Pair = std::pair<long, long>;

inline std::vector<Pair> differentLabels()
{
    return {{0, 1}, {0, 2}, {1, 0}, {1, 2}, {2, 0}, {2, 1}};
}

inline std::vector<OverrideCall<Costs, Pair>> costCalls()
{
    std::vector<OverrideCall<Costs, Pair>> calls;
    for (const Pair& pair : differentLabels()) {
        for (const double cost : {0.0, 2.5}) {
            calls.push_back({"override " + ::testing::PrintToString(pair) + " " + std::to_string(cost),
                             [=](Costs& costs) { costs.misclassificationCostOverride(pair.first, pair.second, cost); },
                             [=](OverrideModel<Pair>& model) { model.set(pair, cost); }});
        }
    }
    calls.push_back({"default 4", [](Costs& costs) { costs.defaultMisclassificationCost(4.0); },
                     [](OverrideModel<Pair>& model) { model.byDefault = 4.0; }});
    calls.push_back({"clear", [](Costs& costs) { costs.clearMisclassificationOverrides(); },
                     [](OverrideModel<Pair>& model) { model.overrides.clear(); }});
    calls.push_back({"equal labels", [](Costs& costs) { costs.misclassificationCostOverride(1, 1, 2.5); }, nullptr});
    calls.push_back({"negative label", [](Costs& costs) { costs.misclassificationCostOverride(0, -1, 2.5); }, nullptr});
    calls.push_back({"negative cost", [](Costs& costs) { costs.misclassificationCostOverride(0, 1, -1.0); }, nullptr});
    calls.push_back({"negative default", [](Costs& costs) { costs.defaultMisclassificationCost(-1.0); }, nullptr});
    return calls;
}

inline bool isSame(const Costs& costs, const OverrideModel<Pair>& model)
{
    Costs rebuilt(model.byDefault);
    for (const auto& [pair, cost] : model.overrides) {
        rebuilt.misclassificationCostOverride(pair.first, pair.second, cost);
    }
    bool same = costs == rebuilt && costs.defaultMisclassificationCost() == model.byDefault;
    for (const Pair& pair : differentLabels()) {
        same = same && costs.misclassificationCost(pair.first, pair.second) == model.at(pair);
    }
    return same;
}

using Frequencies = ktClassifierFrequencies;

inline std::vector<OverrideCall<Frequencies, long>> frequencyCalls()
{
    std::vector<OverrideCall<Frequencies, long>> calls;
    for (const long label : {0L, 1L, 2L, 3L}) {
        for (const double frequency : {0.5, 3.0}) {
            calls.push_back({"override " + std::to_string(label) + " " + std::to_string(frequency),
                             [=](Frequencies& table) { table.categoryFrequencyOverride(label, frequency); },
                             [=](OverrideModel<long>& model) { model.set(label, frequency); }});
        }
    }
    calls.push_back({"default 4", [](Frequencies& table) { table.defaultCategoryFrequency(4.0); },
                     [](OverrideModel<long>& model) { model.byDefault = 4.0; }});
    calls.push_back({"clear", [](Frequencies& table) { table.clearFrequencyOverrides(); },
                     [](OverrideModel<long>& model) { model.overrides.clear(); }});
    calls.push_back({"negative label", [](Frequencies& table) { table.categoryFrequencyOverride(-1, 3.0); }, nullptr});
    calls.push_back({"frequency 0", [](Frequencies& table) { table.categoryFrequencyOverride(0, 0.0); }, nullptr});
    calls.push_back({"default 0", [](Frequencies& table) { table.defaultCategoryFrequency(0.0); }, nullptr});
    return calls;
}

inline bool isSame(const Frequencies& table, const OverrideModel<long>& model)
{
    Frequencies rebuilt(model.byDefault);
    for (const auto& [label, frequency] : model.overrides) {
        rebuilt.categoryFrequencyOverride(label, frequency);
    }
    bool same = table == rebuilt && table.defaultCategoryFrequency() == model.byDefault;
    for (const long label : {0L, 1L, 2L, 3L}) {
        same = same && table.categoryFrequency(label) == model.at(label);
    }
    return same;
}

}  // namespace trust
