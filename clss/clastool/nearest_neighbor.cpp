#include <clastool/nearest_neighbor.h>

#include "clastool/decision_rule.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

namespace {

const ktClassifierTrainParamsKNN& asKNN(const ktClassifierTrainParams& params)
{
    const auto* knn = dynamic_cast<const ktClassifierTrainParamsKNN*>(&params);
    if (knn == nullptr) {
        throw ktClassifierDefs::BadParams("The training parameters are for a different classification technique.");
    }
    return *knn;
}

[[noreturn]] void throwInvalidMeasurements()
{
    throw ktClassifierDefs::BadFeatures("K-nearest neighbor classification does not support invalid measurements");
}

}  // namespace

ktPatternDistanceMetric::ktPatternDistanceMetric() = default;
ktPatternDistanceMetric::ktPatternDistanceMetric(const ktPatternDistanceMetric&) : ktPersistent(), ktRepBase() {}
ktPatternDistanceMetric& ktPatternDistanceMetric::operator=(const ktPatternDistanceMetric&)
{
    return *this;
}
ktPatternDistanceMetric::~ktPatternDistanceMetric() = default;

bool ktPatternDistanceMetric::isEquivalent(const ktPatternDistanceMetric&) const
{
    return true;
}

void ktPatternDistanceMetric::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktPatternDistanceMetric::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
}

const kt_Instantiator ktPatternDistanceMetricNorm::sExemplar(typeid(ktPatternDistanceMetricNorm),
                                                             &ktPatternDistanceMetricNorm::make);

ktPersistent* ktPatternDistanceMetricNorm::make()
{
    return new ktPatternDistanceMetricNorm;
}

ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm(double order) : order_(2.0)
{
    this->order(order);
}

ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm(const ktPatternDistanceMetricNorm& other)
    : ktPersistent(), ktRepBase(), ktPatternDistanceMetric(other), order_(other.order_)
{
}
ktPatternDistanceMetricNorm& ktPatternDistanceMetricNorm::operator=(const ktPatternDistanceMetricNorm& other)
{
    order_ = other.order_;
    return *this;
}
ktPatternDistanceMetricNorm::~ktPatternDistanceMetricNorm() = default;

void ktPatternDistanceMetricNorm::order(double order)
{
    if (!(order > 0.0)) {
        throw ktClassifierDefs::BadParams("Order of norm distance must be > 0");
    }
    order_ = order;
}

double ktPatternDistanceMetricNorm::distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const
{
    if (a.numMeasurements() != b.numMeasurements()) {
        // Kept on purpose: "measurementsin".
        throw ktClassifierDefs::BadFeatures(
            "Pattern distance function requires the number of measurementsin the two patterns to be equal");
    }
    const std::vector<double>& x = a.featureMeasurements(true);
    const std::vector<double>& y = b.featureMeasurements(true);
    double sum = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        sum += std::pow(std::abs(x[i] - y[i]), order_);
    }
    return std::pow(sum, 1.0 / order_);
}

ktPtrHandle<ktPatternDistanceMetric> ktPatternDistanceMetricNorm::clone() const
{
    return new ktPatternDistanceMetricNorm(*this);
}

bool ktPatternDistanceMetricNorm::isEquivalent(const ktPatternDistanceMetric& other) const
{
    const auto* norm = dynamic_cast<const ktPatternDistanceMetricNorm*>(&other);
    return norm != nullptr && order_ == norm->order_;
}

void ktPatternDistanceMetricNorm::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktPatternDistanceMetricNorm::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPatternDistanceMetric::dispatchSerialize(archive);
    archive || order_;
}

const kt_Instantiator ktClassifierTrainParamsKNN::sExemplar(typeid(ktClassifierTrainParamsKNN),
                                                            &ktClassifierTrainParamsKNN::make);

ktPersistent* ktClassifierTrainParamsKNN::make()
{
    return new ktClassifierTrainParamsKNN;
}

ktClassifierTrainParamsKNN::ktClassifierTrainParamsKNN(long k) : k_(1), costs_(1.0)
{
    this->k(k);
    metric_ = new ktPatternDistanceMetricNorm(2.0);
}

ktClassifierTrainParamsKNN::ktClassifierTrainParamsKNN(long k, const ktPatternDistanceMetric& metric,
                                                       const ktClassifierCosts& costs)
    : k_(1), costs_(costs)
{
    this->k(k);
    distanceMetric(metric);
}

ktClassifierTrainParamsKNN::ktClassifierTrainParamsKNN(const ktClassifierTrainParamsKNN& other)
    : ktPersistent(),
      ktRepBase(),
      ktClassifierTrainParams(other),
      k_(other.k_),
      metric_(other.metric_),
      costs_(other.costs_)
{
    throwIfNotReady(other.throwIfNotReady());
}

ktClassifierTrainParamsKNN& ktClassifierTrainParamsKNN::operator=(const ktClassifierTrainParamsKNN& other)
{
    // The costs first: they are the only part whose copy can fail.
    costs_ = other.costs_;
    k_ = other.k_;
    metric_ = other.metric_;
    throwIfNotReady(other.throwIfNotReady());
    return *this;
}

ktClassifierTrainParamsKNN::~ktClassifierTrainParamsKNN() = default;

void ktClassifierTrainParamsKNN::k(long k)
{
    if (k < 1) {
        throw ktClassifierDefs::BadParams("K must be >= 1");
    }
    k_ = k;
}

void ktClassifierTrainParamsKNN::distanceMetric(const ktPatternDistanceMetric& metric)
{
    metric_ = metric.clone();
}

void ktClassifierTrainParamsKNN::misclassificationCosts(const ktClassifierCosts& costs)
{
    costs_ = costs;
}

ktPtrHandle<ktClassifierTrainParams> ktClassifierTrainParamsKNN::clone() const
{
    return new ktClassifierTrainParamsKNN(*this);
}

bool ktClassifierTrainParamsKNN::isEqual_(const ktClassifierTrainParams& other) const
{
    const auto* knn = dynamic_cast<const ktClassifierTrainParamsKNN*>(&other);
    if (knn == nullptr || k_ != knn->k_) {
        return false;
    }
    return metric_->isEquivalent(*knn->metric_) && costs_ == knn->costs_;
}

bool ktClassifierTrainParamsKNN::isSameTechnique_(const ktClassifierTrainParams& other) const
{
    return dynamic_cast<const ktClassifierTrainParamsKNN*>(&other) != nullptr;
}

kt_Classifier* ktClassifierTrainParamsKNN::newClassifier_() const
{
    return new kt_ClassifierKNN;
}

void ktClassifierTrainParamsKNN::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktClassifierTrainParamsKNN::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktClassifierTrainParams::dispatchSerialize(archive);
    archive || k_ || metric_ || costs_;
}

const kt_Instantiator kt_ClassifierKNN::sExemplar(typeid(kt_ClassifierKNN), &kt_ClassifierKNN::make);

ktPersistent* kt_ClassifierKNN::make()
{
    return new kt_ClassifierKNN;
}

kt_ClassifierKNN::kt_ClassifierKNN() = default;
kt_ClassifierKNN::kt_ClassifierKNN(const kt_ClassifierKNN&) = default;

kt_ClassifierKNN& kt_ClassifierKNN::operator=(const kt_ClassifierKNN& other)
{
    // The parameters first: they are the only part whose copy can fail.
    params_ = other.params_;
    kt_Classifier::operator=(other);
    trainingData_ = other.trainingData_;
    return *this;
}

kt_ClassifierKNN::~kt_ClassifierKNN() = default;

ktPtrHandle<kt_Classifier> kt_ClassifierKNN::clone() const
{
    return new kt_ClassifierKNN(*this);
}

bool kt_ClassifierKNN::isEquivalent(const kt_Classifier& other) const
{
    const auto* knn = dynamic_cast<const kt_ClassifierKNN*>(&other);
    return knn != nullptr && *this == *knn;
}

bool kt_ClassifierKNN::operator==(const kt_ClassifierKNN& other) const
{
    if (!kt_Classifier::isEquivalent(other)) {
        return false;
    }
    return !isTrained_() || *trainingData_ == *other.trainingData_;
}

void kt_ClassifierKNN::train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params)
{
    params_ = asKNN(params);
    trainingData_ = new ktClassifierDataProviderMemory;
    // Training only reads the provider; its interface declares three of the readers without const.
    auto& data = const_cast<ktClassifierDataProvider&>(provider);
    trainingData_->setName(data.name());
    trainingData_->setDescription(data.description());
    const long numPatterns = data.numPatterns();
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns;
    std::vector<long> labels;
    patterns.reserve(static_cast<std::size_t>(std::max(numPatterns, 0L)));
    labels.reserve(patterns.capacity());
    for (long i = 0; i < numPatterns; ++i) {
        const ktPtrHandle_const<ktFeaturePattern> pattern = data.featurePattern(i);
        if (pattern->numInvalid() > 0) {
            throwInvalidMeasurements();
        }
        const long label = data.categoryLabel(i);
        if (label != -1) {
            patterns.push_back(pattern);
            labels.push_back(label);
        }
    }
    patterns.shrink_to_fit();
    labels.shrink_to_fit();
    trainingData_->data(patterns, labels);
}

void kt_ClassifierKNN::retrain_(const ktClassifierTrainParams& params)
{
    if (storedParams().isNull()) {
        throw ktBadPointer();
    }
    params_ = asKNN(params);
}

void kt_ClassifierKNN::trainStart_(const ktClassifierTrainParams&) {}

void kt_ClassifierKNN::trainIncremental_(const ktFeaturePattern& pattern, long label)
{
    const ktPtrHandle_const<ktFeaturePattern> copy = new ktFeaturePattern(pattern);
    trainingData_->addData(copy, label);
}

void kt_ClassifierKNN::untrain_()
{
    trainingData_ = nullptr;
}

bool kt_ClassifierKNN::isTrained_() const
{
    return !trainingData_.isNull();
}

void kt_ClassifierKNN::checkRunnable_() const
{
    if (trainingData_->numPatterns() == 0) {
        throw ktClassifierDefs::InsufficientTrainData("No valid data was provided for training.");
    }
}

void kt_ClassifierKNN::run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const
{
    checkRunnable_();
    if (pattern.numInvalid() > 0 || pattern.numMeasurements() != trainingData_->numMeasurements()) {
        throwInvalidMeasurements();
    }
    std::vector<long> indices;
    std::vector<double> distances;
    findNearestNeighbors_(pattern, params_.k(), indices, distances);
    std::vector<ktClassifierCategoryResult> matches;
    fillMatchResults_(indices, matches);
    kt_DecisionRule::decide(result, matches, ktClassifierFrequencies(1.0), params_.misclassificationCosts(), 0.0);
}

/// An exhaustive scan with a sorted list of at most k entries.
void kt_ClassifierKNN::findNearestNeighbors_(const ktFeaturePattern& pattern, long k, std::vector<long>& indices,
                                             std::vector<double>& distances) const
{
    const long numPatterns = trainingData_->numPatterns();
    // A loaded k may be anything; the lists never grow past the stored patterns.
    const auto room = static_cast<std::size_t>(std::clamp(k, 0L, numPatterns));
    indices.assign(room, 0);
    distances.assign(room, std::numeric_limits<double>::infinity());
    std::size_t found = 0;
    for (long i = 0; i < numPatterns; ++i) {
        kt_pollAttention();
        const ktPtrHandle_const<ktFeaturePattern> stored = trainingData_->featurePattern(i);
        double distance = params_.distanceMetric()->distance(pattern, *stored);
        if (std::isnan(distance)) {
            distance = std::numeric_limits<double>::infinity();
        }
        // Kept on purpose: at the last place an equal distance does not displace the pattern stored earlier, but inside the
        // list the new entry goes before its equals.
        if (room == 0 || (found == room && !(distance < distances.back()))) {
            continue;
        }
        const auto place = std::lower_bound(distances.begin(), distances.end(), distance) - distances.begin();
        std::move_backward(distances.begin() + place, distances.end() - 1, distances.end());
        std::move_backward(indices.begin() + place, indices.end() - 1, indices.end());
        distances[static_cast<std::size_t>(place)] = distance;
        indices[static_cast<std::size_t>(place)] = i;
        found = std::min(found + 1, room);
    }
    indices.resize(found);
    distances.resize(found);
}

void kt_ClassifierKNN::fillMatchResults_(const std::vector<long>& indices,
                                         std::vector<ktClassifierCategoryResult>& results) const
{
    std::map<long, long> votes;
    for (const long index : indices) {
        ++votes[trainingData_->categoryLabel(index)];
    }
    results.reserve(votes.size());
    for (const auto& [label, count] : votes) {
        results.emplace_back(label, static_cast<double>(count) / static_cast<double>(indices.size()), 0.0, 0.0);
    }
}

void kt_ClassifierKNN::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_ClassifierKNN::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    kt_Classifier::dispatchSerialize(archive);
    // Kept on purpose: the parameters in use are not stored, and loading leaves them as they are.
    archive || trainingData_;
}
