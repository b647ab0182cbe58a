#pragma once

// Values that the tests of patterns, tables, results and training data start from, and archives of such as no operation makes.

#include "refusals.h"

#include "support/messages.h"

namespace kt_test {

using CategoryResult = ktClassifierCategoryResult;
using CategoryResults = std::vector<CategoryResult>;
using Doubles = std::vector<double>;
using Labels = std::vector<long>;
using Memory = ktClassifierDataProviderMemory;
using Patterns = std::vector<PatternHandle>;

class OpenedPattern : public ktFeaturePattern {
public:
    using ktFeaturePattern::ktFeaturePattern;

    void serialize(ktArchive& archive, unsigned char version) { serialize_(archive, version); }
};

/// Three measurements, the middle one invalid.
inline ktFeaturePattern withInvalidMiddle()
{
    return ktFeaturePattern({1.5, -2.5, 3.5}, {1});
}

/// The archive of a pattern whose sequences are what they are.
inline std::string craftedPattern(const Doubles& measurements, const std::vector<bool>& validity)
{
    return store(static_cast<unsigned char>(0), measurements, validity);
}

/// Default 2.5, (0, 1) costs 10, (1, 0) costs 4.
inline ktClassifierCosts overriddenCosts()
{
    ktClassifierCosts costs(2.5);
    costs.misclassificationCostOverride(0, 1, 10.0);
    costs.misclassificationCostOverride(1, 0, 4.0);
    return costs;
}

/// What `overriddenCosts` is stored as, or any other table, of sequences that need not be equally long.
inline std::string craftedCosts(double defaultCost, const Labels& from, const Labels& to, const Doubles& costs)
{
    return store(static_cast<unsigned char>(0), defaultCost, from, to, costs);
}

/// Default 4, label 1 has 2, label 2 has 3.
inline ktClassifierFrequencies overriddenFrequencies()
{
    ktClassifierFrequencies frequencies(4.0);
    frequencies.categoryFrequencyOverride(1, 2.0);
    frequencies.categoryFrequencyOverride(2, 3.0);
    return frequencies;
}

/// The archive of a table of sequences that need not be equally long.
inline std::string craftedFrequencies(double defaultFrequency, const Labels& labels, const Doubles& frequencies)
{
    return store(static_cast<unsigned char>(0), defaultFrequency, labels, frequencies);
}

/// A match of a category, as the cost-weighted constructor takes it.
inline CategoryResult match(long label, double score)
{
    return {label, score, 0.0, 0.0};
}

/// A category result that the constructor would refuse, as only an archive brings it.
inline CategoryResult unchecked(long label, double matchScore, double classScore, double cost)
{
    return load<CategoryResult>(store(static_cast<unsigned char>(0), label, matchScore, classScore, cost));
}

inline ktClassifierResult decide(const CategoryResults& matches, const ktClassifierFrequencies& frequencies = {},
                                 const ktClassifierCosts& costs = {})
{
    return {matches, frequencies, costs, 0.0};
}

/// Two patterns of two measurements, a name and a description.
inline Memory filled()
{
    Memory provider;
    provider.setName("nuts");
    provider.setDescription("length, width");
    provider.addData(pattern({1.0, 2.0}), 3);
    provider.addData(pattern({4.0, 5.0}, {1}), -1);
    return provider;
}

/// The archive of a provider whose sequences need not fit each other.
inline std::string craftedProvider(const Patterns& patterns, const Labels& labels)
{
    StoringArchive archive;
    const ktArchive::Pass pass(archive);
    unsigned char version = 0;
    std::string name = "name";
    std::string description = "description";
    Patterns storedPatterns = patterns;
    Labels storedLabels = labels;
    archive || version || version || name || description || storedPatterns || storedLabels;
    return archive.bytes();
}

/// The protected operations of the provider, open to a test; it may claim another number of patterns.
class OpenedMemory : public Memory {
public:
    OpenedMemory() = default;
    explicit OpenedMemory(const Memory& other) : Memory(other) {}

    using Memory::isEqual_;
    void serialize(ktArchive& archive, unsigned char version) { serialize_(archive, version); }
    void serializeBase(ktArchive& archive, unsigned char version)
    {
        ktClassifierDataProvider::serialize_(archive, version);
    }

    long numPatterns() const override { return claimed < 0 ? Memory::numPatterns() : claimed; }

    long claimed = -1;
};

/// A provider of a user's own, of the same content as `filled`.
class Foreign : public ktClassifierDataProvider {
public:
    std::string name() override { return data_.name(); }
    std::string description() override { return data_.description(); }
    long numMeasurements() const override { return data_.numMeasurements(); }
    long numPatterns() const override { return data_.numPatterns(); }
    ktPtrHandle_const<ktFeaturePattern> featurePattern(long index) override { return data_.featurePattern(index); }
    long categoryLabel(long index) const override { return data_.categoryLabel(index); }

    using ktClassifierDataProvider::isEqual_;

private:
    Memory data_ = filled();
};

}  // namespace kt_test
