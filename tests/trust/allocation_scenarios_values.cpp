#include "allocation_scenarios.h"

#include "support/training.h"

namespace trust {

namespace {

using Entry = ktClassifierCategoryResult;

void listPatterns(ScenarioList& list)
{
    const std::vector<double> values{1.0, 2.0, 3.0};
    const ktFeaturePattern whole(values, {});
    const ktFeaturePattern holed(values, {0, 2});
    list.makes("pattern: made", [values] { return ktFeaturePattern(values, {}); });
    list.makes("pattern: made with invalid measurements", [values] { return ktFeaturePattern(values, {2}); });
    list.makes(
        "pattern: made empty", [] { return ktFeaturePattern(); }, Allocates::nothing);
    list.makes("pattern: refused for an index past its end", [values] {
        try {
            const ktFeaturePattern pattern(values, {3});
        } catch (const ktClassifierDefs::BadIndex& error) {
            return error.message();
        }
        return std::string("not refused");
    });
    list.values("pattern", whole, holed);
    list.keeps(
        "pattern with invalid measurements: assigned", [holed] { return ktFeaturePattern(holed); },
        [](ktFeaturePattern& pattern) { pattern = ktFeaturePattern(std::vector<double>(20, 1.0), {}); });
    list.asks("pattern: asked for its invalid indices", holed,
              [](const ktFeaturePattern& pattern) { return ktFeaturePattern(pattern).invalidFeatureIndices(); });
    list.asks(
        "pattern: asked for a measurement", holed,
        [](const ktFeaturePattern& pattern) { return pattern.featureMeasurement(1, true); }, Allocates::nothing);
    list.keeps(
        "pattern: refuses an invalid measurement", [holed] { return holed; },
        refused([](const ktFeaturePattern& pattern) { pattern.featureMeasurement(0, true); }));
    list.keeps(
        "pattern: refuses to give all measurements", [holed] { return holed; },
        refused([](const ktFeaturePattern& pattern) { pattern.featureMeasurements(true); }));
}

/// As many overrides as fit, so that the next one allocates.
template <class T>
T grown(T table, long count)
{
    for (long i = 0; i < count; ++i) {
        if constexpr (std::is_same_v<T, ktClassifierCosts>) {
            table.misclassificationCostOverride(i, i + 1, 0.5 * static_cast<double>(i));
        } else {
            table.categoryFrequencyOverride(i, 0.5 + static_cast<double>(i));
        }
    }
    return table;
}

void listCosts(ScenarioList& list)
{
    const ktClassifierCosts many = grown(ktClassifierCosts(2.0), 4);
    list.makes(
        "costs: made", [] { return ktClassifierCosts(2.0); }, Allocates::nothing);
    list.values("costs", ktClassifierCosts(3.0), many);
    // The message has twenty letters, for which some standard libraries need no memory.
    list.keeps(
        "costs: refuse a negative default", [many] { return many; },
        refused([](ktClassifierCosts& costs) { costs.defaultMisclassificationCost(-1.0); }),
        std::string().capacity() < 20 ? Allocates::something : Allocates::nothing);
    list.keeps(
        "costs: first override", [] { return ktClassifierCosts(2.0); },
        [](ktClassifierCosts& costs) { costs.misclassificationCostOverride(8, 9, 1.0); });
    list.keeps(
        "costs: override that needs room", [many] { return many; },
        [](ktClassifierCosts& costs) { costs.misclassificationCostOverride(8, 9, 1.0); });
    list.keeps(
        "costs: override replaced", [many] { return many; },
        [](ktClassifierCosts& costs) { costs.misclassificationCostOverride(1, 2, 9.0); }, Allocates::nothing);
    list.keeps(
        "costs: refuse an override of equal labels", [many] { return many; },
        refused([](ktClassifierCosts& costs) { costs.misclassificationCostOverride(1, 1, 9.0); }));
    list.asks(
        "costs: looked up", many, [](const ktClassifierCosts& costs) { return costs.misclassificationCost(1, 2); },
        Allocates::nothing);
    list.keeps(
        "costs: default set and overrides cleared", [many] { return many; },
        [](ktClassifierCosts& costs) {
            costs.defaultMisclassificationCost(5.0);
            costs.clearMisclassificationOverrides();
        },
        Allocates::nothing);
}

void listFrequencies(ScenarioList& list)
{
    const ktClassifierFrequencies many = grown(ktClassifierFrequencies(2.0), 4);
    list.makes(
        "frequencies: made", [] { return ktClassifierFrequencies(2.0); }, Allocates::nothing);
    list.values("frequencies", ktClassifierFrequencies(3.0), many);
    list.keeps(
        "frequencies: refuse a default of zero", [many] { return many; },
        refused([](ktClassifierFrequencies& frequencies) { frequencies.defaultCategoryFrequency(0.0); }));
    list.keeps(
        "frequencies: first override", [] { return ktClassifierFrequencies(2.0); },
        [](ktClassifierFrequencies& frequencies) { frequencies.categoryFrequencyOverride(8, 1.0); });
    list.keeps(
        "frequencies: override that needs room", [many] { return many; },
        [](ktClassifierFrequencies& frequencies) { frequencies.categoryFrequencyOverride(8, 1.0); });
    list.keeps(
        "frequencies: override replaced", [many] { return many; },
        [](ktClassifierFrequencies& frequencies) { frequencies.categoryFrequencyOverride(1, 9.0); },
        Allocates::nothing);
    list.keeps(
        "frequencies: refuse an override of a negative label", [many] { return many; },
        refused([](ktClassifierFrequencies& frequencies) { frequencies.categoryFrequencyOverride(-1, 1.0); }));
    list.asks(
        "frequencies: looked up", many,
        [](const ktClassifierFrequencies& frequencies) { return frequencies.categoryFrequency(1); },
        Allocates::nothing);
    list.keeps(
        "frequencies: default set and overrides cleared", [many] { return many; },
        [](ktClassifierFrequencies& frequencies) {
            frequencies.defaultCategoryFrequency(5.0);
            frequencies.clearFrequencyOverrides();
        },
        Allocates::nothing);
}

std::vector<Entry> entries(long count)
{
    std::vector<Entry> made;
    for (long i = 0; i < count; ++i) {
        made.emplace_back(i, 0.5, 0.25, static_cast<double>(count - i));
    }
    return made;
}

void listResults(ScenarioList& list)
{
    list.makes(
        "category result: made", [] { return Entry(1, 0.5, 0.25, 2.0); }, Allocates::nothing);
    list.values("category result", Entry(), Entry(1, 0.5, 0.25, 2.0), Allocates::nothing);
    list.values("result", ktClassifierResult(), ktClassifierResult(entries(3), -1.0));
    list.makes(
        "result: made empty", [] { return ktClassifierResult(); }, Allocates::nothing);
    for (const long count : {1L, 3L, 32L, 33L, 100L}) {
        const std::string of = " of " + std::to_string(count) + " categories";
        list.makes("result: made as given" + of, [given = entries(count)] { return ktClassifierResult(given, -1.0); });
        list.makes("result: made by the decision rule" + of, [given = entries(count)] {
            return ktClassifierResult(given, ktClassifierFrequencies(2.0), ktClassifierCosts(3.0), -1.0);
        });
        list.makes(
            "result: made by the decision rule with overrides" + of,
            [given = entries(count), frequencies = grown(ktClassifierFrequencies(1.0), 2),
             costs = grown(ktClassifierCosts(1.0), 2)] { return ktClassifierResult(given, frequencies, costs, -1.0); });
    }
    list.makes("result: refused for two entries of one label", [] {
        try {
            const ktClassifierResult result({Entry(1, 0.5, 0.5, 0.0), Entry(1, 0.5, 0.5, 0.0)}, 0.0);
        } catch (const ktClassifierDefs::BadParams& error) {
            return error.message();
        }
        return std::string("not refused");
    });
}

void listProviders(ScenarioList& list)
{
    using Provider = ktClassifierDataProviderMemory;
    const std::string text(100, 'x');
    Provider few = kt_test::trainingData({{{1.0, 2.0}, 1}});
    Provider many = kt_test::trainingData({{{1.0, 2.0}, 1}, {{3.0, 4.0}, 2}, {{5.0, 6.0}, -1}, {{7.0, 8.0}, 1}});
    many.setName(text);
    many.setDescription(text);
    const kt_test::PatternHandle added = kt_test::pattern({9.0, 10.0});
    list.makes(
        "provider: made", [] { return Provider(); }, Allocates::nothing);
    list.values("provider", few, many);
    list.keeps(
        "provider: named", [few] { return few; }, [text](Provider& provider) { provider.setName(text); });
    list.keeps(
        "provider: described", [few] { return few; }, [text](Provider& provider) { provider.setDescription(text); });
    list.asks("provider: asked for its name", many, [](const Provider& provider) { return Provider(provider).name(); });
    list.asks("provider: asked for its description", many,
              [](const Provider& provider) { return Provider(provider).description(); });
    // The pattern is part of what is looked at, so that a count of its handles that stayed too high is a leak.
    using Addition = std::pair<Provider, ktPtrHandle<ktFeaturePattern>>;
    const auto adding = [](const Provider& to) {
        return [to] { return Addition(to, new ktFeaturePattern({9.0, 10.0}, {})); };
    };
    const auto add = [](Addition& state) { state.first.addData(state.second, 3); };
    list.keeps("provider: first pattern added", adding(Provider()), add);
    list.keeps("provider: pattern added that needs room", adding(many), add);
    list.keeps(
        "provider: refuses a pattern of another size", [many] { return many; },
        refused([small = kt_test::pattern({1.0})](Provider& provider) { provider.addData(small, 3); }));
    list.keeps(
        "provider: refuses a label", [many] { return many; },
        refused([added](Provider& provider) { provider.addData(added, -2); }));
    list.keeps("provider: all data replaced", adding(few), [](Addition& state) {
        state.first.data(std::vector<kt_test::PatternHandle>(9, state.second), std::vector<long>(9, 4));
    });
    list.keeps(
        "provider: asked for a pattern and its label", [many] { return many; },
        [](Provider& provider) {
            EXPECT_EQ(provider.featurePattern(1)->numMeasurements(), 2);
            EXPECT_EQ(provider.categoryLabel(1), 2);
        },
        Allocates::nothing);
    list.keeps(
        "provider: refuses an index", [many] { return many; },
        refused([](Provider& provider) { provider.featurePattern(4); }));
}

}  // namespace

void listValues(ScenarioList& list)
{
    listPatterns(list);
    listCosts(list);
    listFrequencies(list);
    listResults(list);
    listProviders(list);
}

}  // namespace trust
