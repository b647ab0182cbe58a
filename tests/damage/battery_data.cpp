// Errors, patterns, training data, costs, frequencies and results.

#include "battery_kit.h"

#include <cmath>
#include <string>

namespace kt_test::battery {

const std::vector<ktFeaturePattern>& patterns()
{
    static const std::vector<ktFeaturePattern> all = {{{}, {}},
                                                      {{0.5}, {}},
                                                      {{0.5, 0.25}, {}},
                                                      {{0.5, 0.25, 2.0}, {}},
                                                      {{0.5, 0.25, 2.0}, {1}},
                                                      {{1.0, -2.0, 0.0, 7.0}, {}},
                                                      {{nan, nan, nan}, {}},
                                                      {{nan, 1.0}, {}},
                                                      {{infinity, -infinity}, {}},
                                                      {{1e308, -1e308, 5e-324}, {}},
                                                      {{1.0, 1.0}, {0, 1}},
                                                      {std::vector<double>(9, 3.0), {8}},
                                                      {std::vector<double>(33, -1.0), {}}};
    return all;
}

namespace {

Provider makeProvider(const std::vector<std::pair<std::vector<double>, long>>& rows)
{
    Provider provider;
    for (const auto& [measurements, label] : rows) {
        provider.addData(new ktFeaturePattern(measurements, {}), label);
    }
    return provider;
}

}  // namespace

const std::vector<Provider>& providers()
{
    static const std::vector<Provider> all = {
        Provider(), makeProvider({{{1.0}, 4}, {{2.0}, 4}, {{1.5}, -1}}),
        makeProvider({{{0.0, 0.0}, 0}, {{4.0, 4.0}, 1}, {{1.0, 0.0}, 0}, {{3.0, 5.0}, 1}}),
        makeProvider({{{1.0, 2.0, 3.0}, 2}, {{8.0, 9.0, 7.0}, 7}, {{3.0, 2.5, 5.0}, 2}, {{nan, 9.5, infinity}, 7}})};
    return all;
}

void useResult(const ktClassifierResult& result)
{
    for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
        attempt([&] {
            ktClassifierCategoryResult(entry.categoryLabel(), entry.matchScore(), entry.classScore(),
                                       entry.expectedCost());
        });
    }
}

void useAs(ktClassifierDefs::Errors& error)
{
    // A message may hold a null character, at which a C string ends.
    promise(std::string(error.what()) == error.message().c_str(), "what() is the message");
    static_cast<void>(error.errorNumber());
    try {
        // Throws a copy and destroys the object, so it gets one of its own.
        std::istringstream in(recordOf(error));
        ktArchive archive(static_cast<std::istream&>(in));
        ktPersistent* loaded = nullptr;
        ktPersistent::serializePointer(archive, nullptr, loaded);
        dynamic_cast<ktException&>(*loaded).suicideAndRethrow();
    } catch (const ktException& thrown) {
        promise(typeid(thrown) == typeid(error) && thrown.message() == error.message(), "an error rethrown is a copy");
    }
}

void useAs(ktFeaturePattern& pattern)
{
    const long end = pattern.numMeasurements() + 2;
    long invalid = 0;
    for (long i = 0; i < end; ++i) {
        invalid += pattern.isValid(i) ? 0 : 1;
        static_cast<void>(pattern.featureMeasurement(i, false));
        attempt([&] { static_cast<void>(pattern.featureMeasurement(i, true)); });
    }
    promise(invalid == pattern.numInvalid() + 2, "as many measurements are invalid as the pattern says");
    promise(static_cast<long>(pattern.invalidFeatureIndices().size()) == pattern.numInvalid(), "and it names them");
    attempt([&] { static_cast<void>(pattern.featureMeasurements(true)); });
    for (const ktClassifierDataProvider& each : providers()) {
        Provider provider(dynamic_cast<const Provider&>(each));
        attempt([&] { provider.addData(new ktFeaturePattern(pattern), 1); });
    }
    for (const ktFeaturePattern& other : patterns()) {
        compare(pattern, other);
        attempt([&] { static_cast<void>(ktPatternDistanceMetricNorm(3.0).distance(pattern, other)); });
    }
}

void useAs(Provider& provider)
{
    static_cast<void>(provider.name() + provider.description());
    attempt([&] { static_cast<void>(provider.numMeasurements()); });
    attempt([&] { static_cast<void>(provider.featurePattern(-1)); });
    std::vector<ktPtrHandle_const<ktFeaturePattern>> all;
    Labels labels;
    for (long i = 0; i <= provider.numPatterns(); ++i) {
        attempt([&] { all.push_back(provider.featurePattern(i)); });
        attempt([&] { labels.push_back(provider.categoryLabel(i)); });
    }
    trainTools(provider, ktClassifierTrainParamsKNN(3));
    trainTools(provider, ktClassifierTrainParamsBayesian());
    Provider other;
    attempt([&] { other.data(all, labels); });
    for (const ktFeaturePattern& pattern : patterns()) {
        attempt([&] { provider.addData(new ktFeaturePattern(pattern), 1); });
    }
    attempt([&] { provider.addData(provider.featurePattern(0), 1); });
    provider.setName("other");
    provider.setDescription("other");
}

void useAs(ktClassifierCosts& costs)
{
    for (const long a : someLabels) {
        for (const long b : someLabels) {
            attempt([&] { static_cast<void>(costs.misclassificationCost(a, b)); });
        }
    }
    trainTools(providers()[2], ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(), costs));
    const Entries entries = {{0, 0.5, 0.5, 0.0}, {7, 0.25, 0.5, 0.0}};
    attempt([&] { useResult(ktClassifierResult(entries, ktClassifierFrequencies(), costs, 0.0)); });
    attempt([&] { costs.defaultMisclassificationCost(costs.defaultMisclassificationCost()); });
    attempt([&] { costs.misclassificationCostOverride(1, 0, 1.0); });
    attempt([&] { costs.misclassificationCostOverride(7, 8, 1.0); });
    storeValueAgain(costs);
    costs.clearMisclassificationOverrides();
    promise(costs.misclassificationCost(1, 0) == costs.misclassificationCost(7, 8) ||
                std::isnan(costs.defaultMisclassificationCost()),
            "without overrides all costs are the default");
}

void useAs(ktClassifierFrequencies& frequencies)
{
    for (const long label : someLabels) {
        attempt([&] { static_cast<void>(frequencies.categoryFrequency(label)); });
    }
    const Entries entries = {{0, 0.5, 0.5, 0.0}, {7, 0.25, 0.5, 0.0}};
    attempt([&] { useResult(ktClassifierResult(entries, frequencies, ktClassifierCosts(), 0.0)); });
    trainTools(providers()[2], ktClassifierTrainParamsBayesian(ktClassifierDistributionTypes(), frequencies));
    attempt([&] { frequencies.categoryFrequencyOverride(1, 1.0); });
    attempt([&] { frequencies.categoryFrequencyOverride(7, 1.0); });
    storeValueAgain(frequencies);
    frequencies.clearFrequencyOverrides();
    attempt([&] { frequencies.defaultCategoryFrequency(frequencies.defaultCategoryFrequency()); });
}

void useAs(ktClassifierCategoryResult& entry)
{
    attempt([&] { useResult(ktClassifierResult({entry, ktClassifierCategoryResult(3, 0.5, 0.5, 0.0)}, 0.0)); });
}

void useAs(ktClassifierResult& result)
{
    useResult(result);
    const Entries entries = result.categoryResults();
    attempt([&] { useResult(ktClassifierResult(entries, result.matchScoreFactorLog())); });
    attempt([&] { useResult(ktClassifierResult(entries, ktClassifierFrequencies(), ktClassifierCosts(), 0.0)); });
    useTree(ktDecisionTreeLeaf(result));
}

}  // namespace kt_test::battery
