#include <clastool/kit/runs.h>

#include "access.h"
#include "parts.h"

#include <neighbor_scan/nearest_list.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace {

/// The number of patterns in a part: enough for a search of many queries at once, and few enough to end soon.
constexpr std::size_t patternsEach = 256;

std::size_t numParts(std::size_t size)
{
    return (size + patternsEach - 1) / patternsEach;
}

void requireTrained(const ktClassifierTool& tool)
{
    if (!tool.isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before running.");
    }
}

/// Patterns that are reused for row after row.
class Reused {
public:
    /// The patterns of rows [0, count); they change with the next call.
    const ktKit::Patterns& of(const double* rows, std::size_t count, std::size_t numMeasurements)
    {
        handles_.resize(count);
        while (patterns_.size() < count) {
            const ktPtrHandle<ktFeaturePattern> made = new ktFeaturePattern;
            patterns_.push_back(made);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const double* const row = rows + i * numMeasurements;
            values_.assign(row, row + numMeasurements);
            invalid_.clear();
            for (std::size_t j = 0; j < numMeasurements; ++j) {
                if (!std::isfinite(row[j])) {
                    invalid_.push_back(static_cast<long>(j));
                }
            }
            *patterns_[i] = ktFeaturePattern(values_, invalid_);
            handles_[i] = patterns_[i];
        }
        return handles_;
    }

private:
    std::vector<double> values_;
    std::vector<long> invalid_;
    std::vector<ktPtrHandle<ktFeaturePattern>> patterns_;
    ktKit::Patterns handles_;
};

}  // namespace

const ktClassifierCategoryResult& ktKit::decision(const ktClassifierResult& result)
{
    if (result.categoryResults().empty()) {
        throw ktClassifierDefs::BadParams("The result holds no category");
    }
    return result.categoryResults().front();
}

double ktKit::logLikelihood(const ktClassifierResult& result, long label)
{
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        if (category.categoryLabel() == label) {
            return std::log(category.matchScore()) - result.matchScoreFactorLog();
        }
    }
    throw ktClassifierDefs::BadLabel("The result holds no category with the label " + std::to_string(label));
}

std::vector<ktClassifierResult> ktKit::runAll(const ktClassifierTool& tool, const Patterns& patterns, unsigned threads)
{
    std::vector<ktClassifierResult> results;
    if (threads <= 1) {
        tool.run(patterns, results);
        return results;
    }
    requireTrained(tool);
    results.resize(patterns.size());
    kt_doInParts(numParts(patterns.size()), threads, [&](std::size_t part, std::size_t) {
        const std::size_t first = part * patternsEach;
        const std::size_t last = std::min(first + patternsEach, patterns.size());
        const Patterns some(patterns.begin() + static_cast<std::ptrdiff_t>(first),
                            patterns.begin() + static_cast<std::ptrdiff_t>(last));
        std::vector<ktClassifierResult> found;
        tool.run(some, found);
        std::move(found.begin(), found.end(), results.begin() + static_cast<std::ptrdiff_t>(first));
    });
    return results;
}

std::vector<ktClassifierResult> ktKit::runAll(const ktClassifierTool& tool, const double* rows, std::size_t numRows,
                                              std::size_t numMeasurements, unsigned threads)
{
    requireTrained(tool);
    std::vector<ktClassifierResult> results(numRows);
    const std::size_t parts = numParts(numRows);
    std::vector<Reused> patterns(std::clamp<std::size_t>(threads, 1, std::max<std::size_t>(parts, 1)));
    kt_doInParts(parts, threads, [&](std::size_t part, std::size_t worker) {
        const std::size_t first = part * patternsEach;
        const std::size_t count = std::min(patternsEach, numRows - first);
        std::vector<ktClassifierResult> found;
        tool.run(patterns[worker].of(rows + first * numMeasurements, count, numMeasurements), found);
        std::move(found.begin(), found.end(), results.begin() + static_cast<std::ptrdiff_t>(first));
    });
    return results;
}

std::vector<ktKit::Neighbor> ktKit::neighbors(const ktClassifierTool& tool, const ktFeaturePattern& pattern)
{
    requireTrained(tool);
    auto* classifier = kt_KitAccess::classifierAs<kt_ClassifierKNN>(tool);
    if (classifier == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not trained for nearest neighbors");
    }
    kt_KitAccess::checkRunnable(*classifier);
    ktClassifierDataProviderMemory& kept = *kt_KitAccess::kept(*classifier);
    if (pattern.numInvalid() > 0 || pattern.numMeasurements() != kept.numMeasurements()) {
        throw ktClassifierDefs::BadFeatures("K-nearest neighbor classification does not support invalid measurements");
    }
    const ktClassifierTrainParamsKNN params = kt_KitAccess::paramsInUse(*classifier);
    kt_Scratch<std::size_t, 256> rows(static_cast<std::size_t>(std::clamp(params.k(), 0L, kept.numPatterns())));
    if (!kt_KitAccess::findByCopy(*classifier, pattern, rows)) {
        kt_NearestList list(rows.size());
        kt_KitAccess::findByScan(*classifier, pattern, list);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            rows[i] = list.row(i);
        }
    }
    const ktPtrHandle_const<ktPatternDistanceMetric> metric = params.distanceMetric();
    std::vector<Neighbor> found;
    found.reserve(rows.size());
    for (const std::size_t row : rows) {
        const auto index = static_cast<long>(row);
        const double distance = metric->distance(pattern, *kept.featurePattern(index));
        const double counted = std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
        found.push_back({row, kept.categoryLabel(index), counted});
    }
    // The order of kt_NearestList: a pattern stored later goes before its equals.
    std::sort(found.begin(), found.end(), [](const Neighbor& a, const Neighbor& b) {
        return a.distance != b.distance ? a.distance < b.distance : a.index > b.index;
    });
    return found;
}
