#pragma once

#include <clastool/training_data.h>

#include <stdexcept>
#include <utility>
#include <vector>

// Short ways to write training sets.

namespace kt_test {

using PatternHandle = ktPtrHandle_const<ktFeaturePattern>;

inline PatternHandle pattern(const std::vector<double>& measurements, const std::vector<long>& invalidIndices = {})
{
    return new ktFeaturePattern(measurements, invalidIndices);
}

struct Labelled {
    std::vector<double> measurements;
    long label;
};

inline ktClassifierDataProviderMemory trainingData(const std::vector<Labelled>& rows)
{
    ktClassifierDataProviderMemory data;
    for (const Labelled& row : rows) {
        data.addData(pattern(row.measurements), row.label);
    }
    return data;
}

/// The labels of a result in its order.
inline std::vector<long> labelsOf(const ktClassifierResult& result)
{
    std::vector<long> labels;
    for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
        labels.push_back(entry.categoryLabel());
    }
    return labels;
}

/// The labels of the patterns in their order.
inline std::vector<long> labelsOf(const ktClassifierDataProvider& data)
{
    std::vector<long> labels;
    for (long i = 0; i < data.numPatterns(); ++i) {
        labels.push_back(data.categoryLabel(i));
    }
    return labels;
}

/// The measurements of the patterns in their order, invalid ones too.
inline std::vector<std::vector<double>> measurementsOf(ktClassifierDataProviderMemory data)
{
    std::vector<std::vector<double>> rows;
    for (long i = 0; i < data.numPatterns(); ++i) {
        rows.push_back(data.featurePattern(i)->featureMeasurements(false));
    }
    return rows;
}

/// The category result of a label. Throws std::out_of_range if there is none.
inline const ktClassifierCategoryResult& entryFor(const ktClassifierResult& result, long label)
{
    for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
        if (entry.categoryLabel() == label) {
            return entry;
        }
    }
    throw std::out_of_range("no such label");
}

/// Three whole numbers that depend on `i`, so that some patterns are equally far from others.
inline std::vector<double> measurementsWithTies(long i)
{
    return {static_cast<double>(i % 31), static_cast<double>(i * 7 % 53), static_cast<double>(i * i % 17)};
}

/// The results of runs one by one.
template <class Trained>
std::vector<ktClassifierResult> answersOf(const Trained& trained, const std::vector<PatternHandle>& patterns)
{
    std::vector<ktClassifierResult> results(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        trained.run(*patterns[i], results[i]);
    }
    return results;
}

/// Default 2.5, (1, 0) costs 10.
inline ktClassifierCosts someCosts()
{
    ktClassifierCosts costs(2.5);
    costs.misclassificationCostOverride(1, 0, 10.0);
    return costs;
}

/// A result that no run gives, to see whether a run left it alone.
inline ktClassifierResult untouchedResult()
{
    return ktClassifierResult({ktClassifierCategoryResult(77, 0.25, 1.0, 3.5)}, -12.5);
}

}  // namespace kt_test
