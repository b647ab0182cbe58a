#pragma once

#include <clastool/clastool.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// The documented training data, parameters, trees and categories, written down as plainly as possible. They throw the library's own
// exceptions. Small values (costs, frequencies, results, single densities) are the library's own.

namespace tool_model {

using namespace ktClassifierDefs;
using Pattern = ktFeaturePattern;
using PatternHandle = ktPtrHandle_const<Pattern>;
using Types = ktClassifierDistributionTypes;
using Type = Types::DistributionType;
using KnnParams = ktClassifierTrainParamsKNN;
using BayesParams = ktClassifierTrainParamsBayesian;
using Indices = std::vector<long>;

/// What a data provider in memory holds.
struct Data {
    std::string name;
    std::string description;
    std::vector<PatternHandle> patterns;
    std::vector<long> labels;

    long numMeasurements() const { return patterns.empty() ? 0 : patterns.front()->numMeasurements(); }

    void add(const PatternHandle& pattern, long label)
    {
        if (!patterns.empty() && pattern->numMeasurements() != numMeasurements()) {
            throw BadFeatures("Feature pattern must have the same number of measurements as the rest of the data.");
        }
        if (label < -1) {
            throw BadLabel("Category labels must be >= 0 or unknown");
        }
        patterns.push_back(pattern);
        labels.push_back(label);
    }

    bool equals(const Data& other) const
    {
        if (patterns.size() != other.patterns.size()) {
            return false;
        }
        for (std::size_t i = 0; i < patterns.size(); ++i) {
            const Pattern& a = *patterns[i];
            const Pattern& b = *other.patterns[i];
            if (a.featureMeasurements(false) != b.featureMeasurements(false)) {
                return false;
            }
            for (long m = 0; m < a.numMeasurements(); ++m) {
                if (a.isValid(m) != b.isValid(m)) {
                    return false;
                }
            }
        }
        return name == other.name && description == other.description && labels == other.labels;
    }
};

enum class Technique { none, throwing, knn, bayes, tree };

/// The parameters of one training. The dependency sets stand beside the types, which do not show theirs.
struct Params {
    Technique technique = Technique::knn;
    KnnParams knn;
    double order = 2.0;
    BayesParams bayes;
    std::vector<std::pair<long, Indices>> sets;
    ktPtrHandle<ktClassifierTrainParams> actual;

    bool equals(const Params& other) const
    {
        if (technique == Technique::none || technique == Technique::throwing) {
            // They leave the comparison to the base, which is equal to everything.
            return true;
        }
        if (technique != other.technique) {
            return false;
        }
        if (technique == Technique::knn) {
            return knn.k() == other.knn.k() && order == other.order &&
                   knn.misclassificationCosts() == other.knn.misclassificationCosts();
        }
        return bayes.distributionTypes() == other.bayes.distributionTypes() &&
               bayes.misclassificationCosts() == other.bayes.misclassificationCosts() &&
               bayes.categoryFrequencies() == other.bayes.categoryFrequencies() &&
               bayes.maxMeasurementValues() == other.bayes.maxMeasurementValues();
    }
};

using ParamsHandle = std::shared_ptr<const Params>;

/// Merges the indices into the sets that they touch: the first of those stays at its place, and takes in the listed indices
/// that none of them has, then the members of the others.
inline void mergeSets(std::vector<std::pair<long, Indices>>& sets, long label, const Indices& indices)
{
    const auto has = [](const Indices& set, long index) {
        return std::find(set.begin(), set.end(), index) != set.end();
    };
    Indices listed;
    for (const long index : indices) {
        if (!has(listed, index)) {
            listed.push_back(index);
        }
    }
    std::vector<std::pair<long, Indices>> kept;
    Indices tail;
    std::size_t first = sets.size();
    for (const auto& set : sets) {
        const bool touches = set.first == label && std::any_of(listed.begin(), listed.end(),
                                                               [&](long index) { return has(set.second, index); });
        if (touches && first == sets.size()) {
            first = kept.size();
            kept.push_back(set);
        } else if (touches) {
            tail.insert(tail.end(), set.second.begin(), set.second.end());
        } else {
            kept.push_back(set);
        }
    }
    if (first == sets.size()) {
        kept.emplace_back(label, Indices());
        first = kept.size() - 1;
    }
    Indices& merged = kept[first].second;
    for (const long index : listed) {
        if (!has(merged, index) && !has(tail, index)) {
            merged.push_back(index);
        }
    }
    merged.insert(merged.end(), tail.begin(), tail.end());
    sets = kept;
}

/// The set that holds the measurement, or none.
inline const Indices* setWith(const std::vector<std::pair<long, Indices>>& sets, long label, long index)
{
    for (const auto& set : sets) {
        if (set.first == label && std::find(set.second.begin(), set.second.end(), index) != set.second.end()) {
            return &set.second;
        }
    }
    return nullptr;
}

struct Tree {
    ktPtrHandle<ktDecisionTree> actual;
    ktPtrHandle<ktPredicateFunction> predicate;
    unsigned kind = 0;
    long index = 0;
    long other = 0;
    ktRange range;
    std::shared_ptr<const Tree> ifTrue;
    std::shared_ptr<const Tree> ifFalse;
    ktClassifierResult result;

    bool isLeaf() const { return !ifTrue; }

    bool outcome(const Pattern& pattern) const
    {
        const auto valueAt = [&](long m) { return pattern.featureMeasurements(false)[static_cast<std::size_t>(m)]; };
        const auto isThere = [&](long m) { return m < pattern.numMeasurements() && pattern.isValid(m); };
        switch (kind) {
        case 0:
            return isThere(index) && isThere(other) && valueAt(index) > valueAt(other);
        case 1:
            return isThere(index) && isThere(other) && isInRange(valueAt(index)) && isInRange(valueAt(other));
        default:
            return isThere(index);
        }
    }

    bool isInRange(double value) const { return value >= range.low() && value <= range.high(); }

    const ktClassifierResult& run(const Pattern& pattern) const
    {
        return isLeaf() ? result : (outcome(pattern) ? ifTrue : ifFalse)->run(pattern);
    }

    Indices labels() const
    {
        Indices found;
        if (isLeaf()) {
            for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
                found.push_back(entry.categoryLabel());
            }
            return found;
        }
        found = ifFalse->labels();
        for (const long label : ifTrue->labels()) {
            if (std::find(found.begin(), found.end(), label) == found.end()) {
                found.push_back(label);
            }
        }
        return found;
    }

    bool equals(const Tree& o) const
    {
        if (isLeaf() || o.isLeaf()) {
            return isLeaf() && o.isLeaf() && result == o.result;
        }
        const bool isSameRange = range.low() == o.range.low() && range.high() == o.range.high();
        return kind == o.kind && index == o.index && (kind > 1 || other == o.other) && (kind != 1 || isSameRange) &&
               ifTrue->equals(*o.ifTrue) && ifFalse->equals(*o.ifFalse);
    }
};

using TreeHandle = std::shared_ptr<const Tree>;

struct Category {
    long label;
    std::vector<Indices> groups;
    std::vector<Type> types;
    std::vector<double> maxima;
    std::vector<ktPtrHandle<kt_ProbabilityDensityFunction>> densities;

    long numMeasurements() const
    {
        std::size_t total = 0;
        for (const Indices& group : groups) {
            total += group.size();
        }
        return static_cast<long>(total);
    }

    static Pattern part(const Pattern& pattern, const Indices& group)
    {
        std::vector<double> values;
        Indices invalid;
        for (const long index : group) {
            if (!pattern.isValid(index)) {
                invalid.push_back(static_cast<long>(values.size()));
            }
            values.push_back(pattern.featureMeasurement(index, false));
        }
        return {values, invalid};
    }

    /// All groups learn the pattern, or none.
    void adapt(const Pattern& pattern)
    {
        for (std::size_t i = 0; i < groups.size(); ++i) {
            if (types[i] != Types::eBinomial) {
                continue;
            }
            const Pattern group = part(pattern, groups[i]);
            if (group.numMeasurements() != 1) {
                throw NotImplemented("Multivariate Binomial Distributions are not implemented");
            }
            if (group.isValid(0) && std::isfinite(group.featureMeasurement(0, true)) &&
                group.featureMeasurement(0, true) > maxima[i]) {
                throw BadParams(
                    "Train data measurement cannot exceed its maximum value when using binomial "
                    "distribution");
            }
        }
        for (std::size_t i = 0; i < groups.size(); ++i) {
            densities[i]->updateWithData({part(pattern, groups[i])});
        }
    }

    /// Whether a measurement has no spread of its own here, so that a run judges it by what all categories have learnt.
    bool borrowsSpreads() const
    {
        return std::any_of(densities.begin(), densities.end(), [](const auto& density) {
            const auto* normal = dynamic_cast<const kt_PDFMultivariateNormal*>(density.get());
            const long size = normal != nullptr ? normal->mean().numRows() : 0;
            for (long i = 0; i < size; ++i) {
                if (!ktNormalDensity::hasSpread(normal->mean()(i, 0), normal->covariance()(i, i))) {
                    return true;
                }
            }
            return false;
        });
    }

    double matchScore(const Pattern& pattern) const
    {
        double sum = 0.0;
        for (std::size_t i = 0; i < groups.size(); ++i) {
            try {
                sum += densities[i]->logValue(part(pattern, groups[i]));
            } catch (const InsufficientTrainData& error) {
                throw InsufficientTrainData(error.message() + " for category " + std::to_string(label));
            }
        }
        return sum;
    }
};

inline Category newCategory(long label, long numMeasurements, const Params& params)
{
    Category category{label, {}, {}, {}, {}};
    std::vector<long> grouped;
    const Types& types = params.bayes.distributionTypes();
    for (long m = 0; m < numMeasurements; ++m) {
        if (std::find(grouped.begin(), grouped.end(), m) != grouped.end()) {
            continue;
        }
        const Indices* set = setWith(params.sets, label, m);
        category.groups.push_back(set != nullptr ? *set : Indices{m});
        category.types.push_back(types.distributionType(label, m));
        grouped.insert(grouped.end(), category.groups.back().begin(), category.groups.back().end());
    }
    for (std::size_t i = 0; i < category.groups.size(); ++i) {
        const Pattern maxima = Category::part(params.bayes.maxMeasurementValues(), category.groups[i]);
        category.maxima.push_back(maxima.isValid(0) ? maxima.featureMeasurement(0, true) : 1.0);
        switch (category.types[i]) {
        case Types::eNormal:
            category.densities.emplace_back(new kt_PDFMultivariateNormal);
            break;
        case Types::eBinomial:
            category.densities.emplace_back(new kt_PDFBinomial(Pattern({category.maxima[i]}, {})));
            break;
        case Types::ePoisson:
            throw NotImplemented("Poisson distribution is not implemented");
        case Types::eUniform:
            throw NotImplemented("Uniform distribution is not implemented");
        default:
            throw BadParams("Unknown distribution type");
        }
    }
    return category;
}

}  // namespace tool_model
