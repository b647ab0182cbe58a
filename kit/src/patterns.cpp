#include <clastool/kit/patterns.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

template <class Iterator>
ktPtrHandle_const<ktFeaturePattern> patternOf(const std::vector<double>& measurements, Iterator first, Iterator last)
{
    std::vector<long> invalid;
    for (Iterator value = first; value != last; ++value) {
        if (!std::isfinite(*value)) {
            invalid.push_back(static_cast<long>(value - first));
        }
    }
    return new ktFeaturePattern(measurements, invalid);
}

/// The given labels; without any, `size` labels 0, 1, 2, ...
std::vector<long> labelsOr(const std::vector<long>& given, std::size_t size)
{
    if (!given.empty()) {
        return given;
    }
    std::vector<long> labels(size);
    std::iota(labels.begin(), labels.end(), 0L);
    return labels;
}

void requireLabels(const std::vector<long>& labels)
{
    std::vector<long> sorted = labels;
    std::sort(sorted.begin(), sorted.end());
    if (!sorted.empty() && sorted.front() < 0) {
        throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
    }
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
        throw ktClassifierDefs::BadLabel("Category labels must be unique");
    }
}

}  // namespace

ktPtrHandle_const<ktFeaturePattern> ktKit::pattern(const std::vector<double>& values)
{
    return patternOf(values, values.begin(), values.end());
}

ktPtrHandle_const<ktFeaturePattern> ktKit::pattern(std::initializer_list<double> values)
{
    return patternOf(values, values.begin(), values.end());
}

ktPtrHandle_const<ktFeaturePattern> ktKit::pattern(const double* values, std::size_t size)
{
    return patternOf(std::vector<double>(values, values + size), values, values + size);
}

ktPtrHandle_const<ktFeaturePattern> ktKit::pattern(const float* values, std::size_t size)
{
    return patternOf(std::vector<double>(values, values + size), values, values + size);
}

ktKit::Patterns ktKit::patterns(const ktClassifierDataProvider& data)
{
    // A provider's readers are declared without const.
    auto& readable = const_cast<ktClassifierDataProvider&>(data);
    Patterns patterns;
    for (long i = 0; i < readable.numPatterns(); ++i) {
        patterns.push_back(readable.featurePattern(i));
    }
    return patterns;
}

std::vector<long> ktKit::labels(const ktClassifierDataProvider& data)
{
    std::vector<long> labels;
    for (long i = 0; i < data.numPatterns(); ++i) {
        labels.push_back(data.categoryLabel(i));
    }
    return labels;
}

ktClassifierCosts ktKit::costs(const std::vector<std::vector<double>>& matrix, const std::vector<long>& labels)
{
    const std::size_t size = matrix.size();
    if (std::any_of(matrix.begin(), matrix.end(), [size](const auto& row) { return row.size() != size; })) {
        throw ktClassifierDefs::BadParams("The matrix of costs must be square");
    }
    const std::vector<long> known = labelsOr(labels, size);
    if (known.size() != size) {
        throw ktClassifierDefs::BadParams("There must be as many category labels as rows of the matrix of costs");
    }
    requireLabels(known);
    for (std::size_t i = 0; i < size; ++i) {
        if (!(matrix[i][i] == 0.0)) {
            throw ktClassifierDefs::BadParams("The diagonal of the matrix of costs must be 0");
        }
    }
    ktClassifierCosts costs;
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < size; ++j) {
            // The library below lets NaN pass.
            if (!(matrix[i][j] >= 0.0)) {
                throw ktClassifierDefs::BadParams("Costs must be >= 0.0");
            }
            if (i != j) {
                costs.misclassificationCostOverride(known[i], known[j], matrix[i][j]);
            }
        }
    }
    return costs;
}

ktClassifierFrequencies ktKit::frequencies(const std::vector<double>& values, const std::vector<long>& labels)
{
    const std::vector<long> known = labelsOr(labels, values.size());
    if (known.size() != values.size()) {
        throw ktClassifierDefs::BadParams("There must be as many category labels as frequencies");
    }
    requireLabels(known);
    ktClassifierFrequencies frequencies;
    for (std::size_t i = 0; i < values.size(); ++i) {
        // The library below lets NaN pass.
        if (!(values[i] > 0.0)) {
            throw ktClassifierDefs::BadParams("Category frequencies must be > 0.0");
        }
        frequencies.categoryFrequencyOverride(known[i], values[i]);
    }
    return frequencies;
}
