#include <clastool/kit/rejection.h>

#include <clastool/kit/patterns.h>

#include "access.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace {

using Access = kt_KitAccess;

constexpr std::size_t mostKept = 1000;

void poll()
{
    kfThrowExceptionOnFailure(kfCheckAttention());
}

bool isMeasured(const ktFeaturePattern& pattern, long index)
{
    return pattern.isValid(index) && std::isfinite(pattern.featureMeasurement(index, false));
}

/// Which measurements of the pattern are valid and finite.
std::vector<bool> measuredOf(const ktFeaturePattern& pattern)
{
    std::vector<bool> measured;
    for (long j = 0; j < pattern.numMeasurements(); ++j) {
        measured.push_back(isMeasured(pattern, j));
    }
    return measured;
}

/// Whether the pattern has all of these measurements. `to` becomes the pattern without the others.
bool reduce(const ktFeaturePattern& pattern, const std::vector<bool>& measured, ktPtrHandle_const<ktFeaturePattern>& to)
{
    std::vector<long> missing;
    for (std::size_t j = 0; j < measured.size(); ++j) {
        const auto index = static_cast<long>(j);
        if (!measured[j]) {
            missing.push_back(index);
        } else if (!isMeasured(pattern, index)) {
            return false;
        }
    }
    std::vector<double> values = pattern.featureMeasurements(false);
    values.resize(measured.size());
    to = new ktFeaturePattern(values, missing);
    return true;
}

}  // namespace

struct ktKit::Rejection::Learnt {
    using Limits = std::map<long, double>;

    ktClassifierTool tool;
    double share = 0.0;
    std::map<long, Patterns> patterns;
    mutable std::mutex isChanging;
    mutable std::map<std::vector<bool>, Limits> limits;

    /// The models that runs evaluate.
    const Access::Models& models() const
    {
        return Access::evaluated(*Access::classifierAs<kt_ClassifierBayesian>(tool));
    }

    const kt_CategoryModel* find(long label) const
    {
        for (const auto& model : models()) {
            if (model->categoryLabel() == label) {
                return model.get();
            }
        }
        return nullptr;
    }

    const kt_CategoryModel& model(long label) const
    {
        const kt_CategoryModel* const found = find(label);
        if (found == nullptr) {
            throw ktClassifierDefs::BadLabel("The tool knows no category with the label " + std::to_string(label));
        }
        return *found;
    }

    /// The limit of the category for patterns that have these measurements.
    double compute(const kt_CategoryModel& model, const std::vector<bool>& measured) const
    {
        std::vector<double> found;
        for (const auto& pattern : patterns.at(model.categoryLabel())) {
            poll();
            ktPtrHandle_const<ktFeaturePattern> reduced;
            if (reduce(*pattern, measured, reduced)) {
                found.push_back(model.matchScore(*reduced, nullptr, 0));
            }
        }
        found.erase(std::remove_if(found.begin(), found.end(), [](double value) { return std::isnan(value); }),
                    found.end());
        if (found.empty()) {
            return -std::numeric_limits<double>::infinity();
        }
        const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(found.size()));
        std::nth_element(found.begin(), found.begin() + place, found.end());
        return found[static_cast<std::size_t>(place)];
    }

    Limits limitsFor(const ktFeaturePattern& pattern) const
    {
        const std::vector<bool> measured = measuredOf(pattern);
        const std::lock_guard<std::mutex> lock(isChanging);
        const auto known = limits.find(measured);
        if (known != limits.end()) {
            return known->second;
        }
        Limits computed;
        for (const auto& model : models()) {
            computed[model->categoryLabel()] = compute(*model, measured);
        }
        if (limits.size() >= mostKept) {
            limits.clear();
        }
        limits.emplace(measured, computed);
        return computed;
    }
};

ktKit::Rejection::Rejection(const ktClassifierTool& tool, const ktClassifierDataProvider& data, double share)
{
    if (!tool.isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before learning what to reject");
    }
    if (Access::classifierAs<kt_ClassifierBayesian>(tool) == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not trained by Bayes");
    }
    if (!(share >= 0.0 && share < 1.0)) {
        throw ktClassifierDefs::BadParams("The share must be >= 0.0 and < 1.0");
    }
    const auto learnt = std::make_shared<Learnt>();
    learnt->tool = tool;
    learnt->share = share;
    for (const auto& model : learnt->models()) {
        learnt->patterns[model->categoryLabel()];
    }
    const Patterns patterns = ktKit::patterns(data);
    long size = 0;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        size = std::max(size, patterns[i]->numMeasurements());
        const auto place = learnt->patterns.find(data.categoryLabel(static_cast<long>(i)));
        if (place != learnt->patterns.end()) {
            place->second.push_back(patterns[i]);
        }
    }
    learnt->limitsFor(ktFeaturePattern(std::vector<double>(static_cast<std::size_t>(size)), {}));
    learnt_ = learnt;
}

ktKit::Rejection::Rejection(const Rejection&) = default;
ktKit::Rejection& ktKit::Rejection::operator=(const Rejection&) = default;
ktKit::Rejection::~Rejection() = default;

double ktKit::Rejection::logLikelihood(const ktFeaturePattern& pattern, long label) const
{
    return learnt_->model(label).matchScore(pattern, nullptr, 0);
}

double ktKit::Rejection::limit(const ktFeaturePattern& pattern, long label) const
{
    learnt_->model(label);
    return learnt_->limitsFor(pattern).at(label);
}

bool ktKit::Rejection::rejects(const ktFeaturePattern& pattern) const
{
    const Learnt::Limits limits = learnt_->limitsFor(pattern);
    for (const auto& model : learnt_->models()) {
        poll();
        // NaN is below every limit.
        if (model->matchScore(pattern, nullptr, 0) >= limits.at(model->categoryLabel())) {
            return false;
        }
    }
    return true;
}
