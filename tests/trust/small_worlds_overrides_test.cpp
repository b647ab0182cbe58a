// Every sequence of up to four calls that set, replace, clear or are refused, against plain maps.

#include "support/test.h"

namespace {

/// Overrides in the order in which they were first set.
template <class Key>
struct Model {
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
struct Call {
    std::string label;
    std::function<void(Table&)> onTable;
    /// Null where the call is refused.
    std::function<void(Model<Key>&)> onModel;
};

/// Makes every sequence of `calls` and has `check` compare table and model after each call. Returns the number of calls.
template <class Table, class Key>
class Sequences {
public:
    Sequences(std::vector<Call<Table, Key>> calls, std::function<bool(const Table&, const Model<Key>&)> check)
        : calls_(std::move(calls)), check_(std::move(check))
    {
    }

    std::size_t numCalls() const { return calls_.size(); }

    long checkFrom(const Table& table, const Model<Key>& model, int callsLeft, const std::string& path = "") const
    {
        long made = 0;
        for (const Call<Table, Key>& call : calls_) {
            Table nextTable(table);
            Model<Key> nextModel(model);
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
    std::vector<Call<Table, Key>> calls_;
    std::function<bool(const Table&, const Model<Key>&)> check_;
};

using Costs = ktClassifierCosts;
using Pair = std::pair<long, long>;

std::vector<Pair> differentLabels()
{
    return {{0, 1}, {0, 2}, {1, 0}, {1, 2}, {2, 0}, {2, 1}};
}

std::vector<Call<Costs, Pair>> costCalls()
{
    std::vector<Call<Costs, Pair>> calls;
    for (const Pair& pair : differentLabels()) {
        for (const double cost : {0.0, 2.5}) {
            calls.push_back({"override " + ::testing::PrintToString(pair) + " " + std::to_string(cost),
                             [=](Costs& costs) { costs.misclassificationCostOverride(pair.first, pair.second, cost); },
                             [=](Model<Pair>& model) { model.set(pair, cost); }});
        }
    }
    calls.push_back({"default 4", [](Costs& costs) { costs.defaultMisclassificationCost(4.0); },
                     [](Model<Pair>& model) { model.byDefault = 4.0; }});
    calls.push_back({"clear", [](Costs& costs) { costs.clearMisclassificationOverrides(); },
                     [](Model<Pair>& model) { model.overrides.clear(); }});
    calls.push_back({"equal labels", [](Costs& costs) { costs.misclassificationCostOverride(1, 1, 2.5); }, nullptr});
    calls.push_back({"negative label", [](Costs& costs) { costs.misclassificationCostOverride(0, -1, 2.5); }, nullptr});
    calls.push_back({"negative cost", [](Costs& costs) { costs.misclassificationCostOverride(0, 1, -1.0); }, nullptr});
    calls.push_back({"negative default", [](Costs& costs) { costs.defaultMisclassificationCost(-1.0); }, nullptr});
    return calls;
}

bool isSame(const Costs& costs, const Model<Pair>& model)
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

TEST(SmallWorldOfOverrides, CostsAreAMapByOrderedPairs)
{
    const Sequences<Costs, Pair> sequences(
        costCalls(), [](const Costs& costs, const Model<Pair>& model) { return isSame(costs, model); });
    const long n = static_cast<long>(sequences.numCalls());
    EXPECT_EQ(sequences.checkFrom(Costs(), Model<Pair>(), 4), n + n * n + n * n * n + n * n * n * n);
}

using Frequencies = ktClassifierFrequencies;

std::vector<Call<Frequencies, long>> frequencyCalls()
{
    std::vector<Call<Frequencies, long>> calls;
    for (const long label : {0L, 1L, 2L, 3L}) {
        for (const double frequency : {0.5, 3.0}) {
            calls.push_back({"override " + std::to_string(label) + " " + std::to_string(frequency),
                             [=](Frequencies& table) { table.categoryFrequencyOverride(label, frequency); },
                             [=](Model<long>& model) { model.set(label, frequency); }});
        }
    }
    calls.push_back({"default 4", [](Frequencies& table) { table.defaultCategoryFrequency(4.0); },
                     [](Model<long>& model) { model.byDefault = 4.0; }});
    calls.push_back({"clear", [](Frequencies& table) { table.clearFrequencyOverrides(); },
                     [](Model<long>& model) { model.overrides.clear(); }});
    calls.push_back({"negative label", [](Frequencies& table) { table.categoryFrequencyOverride(-1, 3.0); }, nullptr});
    calls.push_back({"frequency 0", [](Frequencies& table) { table.categoryFrequencyOverride(0, 0.0); }, nullptr});
    calls.push_back({"default 0", [](Frequencies& table) { table.defaultCategoryFrequency(0.0); }, nullptr});
    return calls;
}

bool isSame(const Frequencies& table, const Model<long>& model)
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

TEST(SmallWorldOfOverrides, FrequenciesAreAMapByLabels)
{
    const Sequences<Frequencies, long> sequences(
        frequencyCalls(), [](const Frequencies& table, const Model<long>& model) { return isSame(table, model); });
    const long n = static_cast<long>(sequences.numCalls());
    EXPECT_EQ(sequences.checkFrom(Frequencies(), Model<long>(), 4), n + n * n + n * n * n + n * n * n * n);
}

}  // namespace
