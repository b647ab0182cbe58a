#include <clastool/nearest_neighbor.h>

#include "clastool/decision_rule.h"
#include "neighbor_scan/batch_scan.h"
#include "neighbor_scan/compact_copy.h"
#include "neighbor_scan/exact_distance.h"
#include "neighbor_scan/nearest_list.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <typeinfo>

namespace {

/// A loaded classifier with fewer patterns has no compact copy. The copy would be out of proportion to the bytes of the archive, and the
/// plain scan takes microseconds.
constexpr long leastLoadedForCopy = 16;

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

/// The k of the parameters in use.
long numNeighbors(const ktPtrHandle_const<ktClassifierTrainParamsKNN>& params)
{
    return params ? params->k() : 1;
}

/// Sorts labels. Few labels are sorted by counting for each how many are less, without a branch that depends on them, because the
/// processor would often predict it wrong.
void sortLabels(long* labels, std::size_t count)
{
    constexpr std::size_t few = 16;
    if (count > few) {
        std::sort(labels, labels + count);
        return;
    }
    std::array<long, few> sorted;
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t place = 0;
        for (std::size_t before = 0; before < i; ++before) {
            place += labels[before] <= labels[i] ? 1 : 0;
        }
        for (std::size_t behind = i + 1; behind < count; ++behind) {
            place += labels[behind] < labels[i] ? 1 : 0;
        }
        sorted[place] = labels[i];
    }
    std::copy_n(sorted.begin(), count, labels);
}

/// Whether only this classifier and the pass that loaded the store hold it, and only the store holds its patterns.
bool isHeldOnce(ktClassifierDataProviderMemory& store)
{
    const long numPatterns = store.numPatterns();
    bool heldOnce = store.refCount() <= 2;
    for (long i = 0; i < numPatterns && heldOnce; ++i) {
        const ktPtrHandle_const<ktFeaturePattern> pattern = store.featurePattern(i);
        heldOnce = pattern.isNull() || pattern->refCount() <= 3;
    }
    return heldOnce;
}

/// Fills the store with the labelled patterns.
void take(ktClassifierDataProvider& data, ktClassifierDataProviderMemory& store)
{
    const long numPatterns = data.numPatterns();
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns;
    std::vector<long> labels;
    const auto claimed = static_cast<std::size_t>(std::max(numPatterns, 0L));
    if (claimed > patterns.max_size()) {
        // More than any memory holds: the claim cannot be true.
        throw ktClassifierDefs::InsufficientTrainData("No valid data was provided for training.");
    }
    patterns.reserve(claimed);
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
    store.data(patterns, labels);
}

/// A compact copy of the store; null without memory for it.
ktPtrHandle<kt_CompactCopy> copyOf(const ktClassifierDataProviderMemory& store, kt_TrainingWatch* watch) noexcept
{
    ktPtrHandle<kt_CompactCopy> copy = new (std::nothrow) kt_CompactCopy;
    if (copy) {
        copy->make(store, watch);
    }
    return copy;
}

}  // namespace

ktPatternDistanceMetric::ktPatternDistanceMetric() = default;
ktPatternDistanceMetric::ktPatternDistanceMetric(const ktPatternDistanceMetric&) : ktPersistent(), ktRepBase() {}
ktPatternDistanceMetric& ktPatternDistanceMetric::operator=(const ktPatternDistanceMetric& other)
{
    ktPersistent::operator=(other);
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
    ktPatternDistanceMetric::operator=(other);
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
    return kt_exactDistance(x.data(), y.data(), x.size(), order_);
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
    ktClassifierTrainParams::operator=(other);
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
    kt_Classifier::operator=(other);
    params_ = other.params_;
    trainingData_ = other.trainingData_;
    compactCopy_ = other.compactCopy_;
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
    params_ = new ktClassifierTrainParamsKNN(asKNN(params));
    compactCopy_ = nullptr;
    trainingData_ = new ktClassifierDataProviderMemory;
    // Training only reads the provider; its interface declares three of the readers without const.
    auto& data = const_cast<ktClassifierDataProvider&>(provider);
    trainingData_->setName(data.name());
    trainingData_->setDescription(data.description());
    take(data, *trainingData_);
    compactCopy_ = copyOf(*trainingData_, dynamic_cast<kt_TrainingWatch*>(&data));
}

void kt_ClassifierKNN::retrain_(const ktClassifierTrainParams& params)
{
    if (storedParams().isNull()) {
        throw ktBadPointer();
    }
    params_ = new ktClassifierTrainParamsKNN(asKNN(params));
    // Loading makes no copy of patterns that others share, and a shared pattern may have changed.
    if (compactCopy_.isNull() || compactCopy_->isOutOfDate(*trainingData_)) {
        makeCopy();
    }
}

void kt_ClassifierKNN::trainStart_(const ktClassifierTrainParams&) {}

void kt_ClassifierKNN::trainIncremental_(const ktFeaturePattern& pattern, long label)
{
    const ktPtrHandle_const<ktFeaturePattern> kept = new ktFeaturePattern(pattern);
    trainingData_->addData(kept, label);
    if (compactCopy_) {
        compactCopy_->append(*trainingData_);
    } else if (trainingData_->numPatterns() == leastLoadedForCopy) {
        makeCopy();
    }
}

void kt_ClassifierKNN::untrain_()
{
    trainingData_ = nullptr;
    compactCopy_ = nullptr;
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
    // A loaded k may be anything; the list never grows past the stored patterns.
    const long numPatterns = trainingData_->numPatterns();
    kt_RowList neighbors(static_cast<std::size_t>(std::clamp(numNeighbors(params_), 0L, numPatterns)));
    if (!findByCopy(pattern, neighbors)) {
        kt_NearestList list(neighbors.size());
        findNearestNeighbors_(pattern, list);
        for (std::size_t i = 0; i < neighbors.size(); ++i) {
            neighbors[i] = list.row(i);
        }
    }
    fillMatchResults_(neighbors, result);
}

/// The order of the norm, if the compact copy may answer; 0 if only the plain scan may.
double kt_ClassifierKNN::orderByCopy() const
{
    if (compactCopy_.isNull() || !compactCopy_->isCurrent(*trainingData_)) {
        return 0.0;
    }
    if (params_.isNull()) {
        return 2.0;
    }
    // Not by a handle: all threads that run would write to the metric's count.
    const ktPatternDistanceMetric* const metric = params_->metric_.get();
    // A metric derived from the norm may override the distance, so only the norm itself is replaced by the copy.
    if (metric == nullptr || typeid(*metric) != typeid(ktPatternDistanceMetricNorm)) {
        return 0.0;
    }
    return static_cast<const ktPatternDistanceMetricNorm&>(*metric).order();
}

/// Finds the same neighbours in the compact copy, in any order; false if they cannot be certified.
bool kt_ClassifierKNN::findByCopy(const ktFeaturePattern& pattern, kt_Scratch<std::size_t, 256>& neighbors) const
{
    const double order = orderByCopy();
    return order > 0.0 && compactCopy_->nearest(*trainingData_, pattern.featureMeasurements(false), order, neighbors);
}

/// Runs pattern by pattern. Only the neighbours are searched for many patterns at once, where that saves time.
void kt_ClassifierKNN::runEach(const std::vector<ktPtrHandle_const<ktFeaturePattern>>& patterns,
                               std::vector<ktClassifierResult>& results, ktDiagObject* diag, unsigned long flags) const
{
    // With a handler the searches are smaller, so that it can stop the runs soon.
    const bool isAsked = kt_attentionHandler.load(std::memory_order_relaxed) != nullptr;
    const std::size_t together = isAsked ? 64 : kt_BatchScan::mostQueries;
    const auto numRows = static_cast<std::size_t>(trainingData_->numPatterns());
    const auto k = static_cast<std::size_t>(std::clamp(numNeighbors(params_), 0L, trainingData_->numPatterns()));
    for (std::size_t first = 0; first < patterns.size(); first += together) {
        const std::size_t count = std::min(together, patterns.size() - first);
        std::vector<std::size_t> rows;
        const std::vector<char> isFound = findTogether(patterns.data() + first, count, k, rows);
        for (std::size_t i = 0; i < count; ++i) {
            // The steps of run() without recording, because this technique records nothing.
            const ktFeaturePattern& pattern = *patterns[first + i];
            unsigned long ownFlags = flags;
            ktDiagObject::getRecordingDestination(diag, ownFlags);
            if (isFound.empty() || isFound[i] == 0) {
                run_(pattern, results[first + i]);
                continue;
            }
            for (std::size_t row = 0; isAsked && row < numRows; ++row) {
                kt_pollAttention();
            }
            kt_RowList neighbors(k);
            std::copy_n(rows.data() + i * k, k, neighbors.begin());
            fillMatchResults_(neighbors, results[first + i]);
        }
    }
}

/// Finds the rows of the k neighbours of each pattern, and returns for each whether they were found; empty if they are not searched
/// together. Where that saves no time, only a few are found, and `rows` ends with theirs.
std::vector<char> kt_ClassifierKNN::findTogether(const ktPtrHandle_const<ktFeaturePattern>* patterns, std::size_t count,
                                                 std::size_t k, std::vector<std::size_t>& rows) const
{
    try {
        if (orderByCopy() != 2.0) {
            return {};
        }
        kt_BatchScan scan(*compactCopy_, *trainingData_, k);
        if (!scan.isWorthwhile(count)) {
            return {};
        }
        const long size = trainingData_->numMeasurements();
        const auto valuesOf = [size](const ktPtrHandle_const<ktFeaturePattern>& handle) {
            const ktFeaturePattern* const pattern = handle.get();
            const bool isRefused =
                pattern == nullptr || pattern->numInvalid() > 0 || pattern->numMeasurements() != size;
            return isRefused ? nullptr : &pattern->featureMeasurements(false);
        };
        std::vector<const std::vector<double>*> queries(count);
        std::transform(patterns, patterns + count, queries.begin(), valuesOf);
        return scan.run(queries, rows);
    } catch (const std::bad_alloc&) {
        // Without memory for a joint search, runs take longer and give the same answers.
        return {};
    }
}

/// The definition of the answer: an exhaustive scan with a sorted list of at most k entries.
void kt_ClassifierKNN::findNearestNeighbors_(const ktFeaturePattern& pattern, kt_NearestList& neighbors) const
{
    const long numPatterns = trainingData_->numPatterns();
    const ktPatternDistanceMetricNorm euclidean(2.0);
    const ktPtrHandle_const<ktPatternDistanceMetric> held = params_ ? params_->distanceMetric() : nullptr;
    for (long i = 0; i < numPatterns; ++i) {
        kt_pollAttention();
        const ktPtrHandle_const<ktFeaturePattern> stored = trainingData_->featurePattern(i);
        neighbors.insert(static_cast<std::size_t>(i), (params_ ? *held : euclidean).distance(pattern, *stored));
    }
}

/// Counts the neighbours' votes, by ascending label, and decides.
void kt_ClassifierKNN::fillMatchResults_(kt_Scratch<std::size_t, 256>& neighbors, ktClassifierResult& result) const
{
    kt_Scratch<long, 256> labels(neighbors.size());
    std::transform(neighbors.begin(), neighbors.end(), labels.begin(),
                   [this](std::size_t row) { return trainingData_->categoryLabel(static_cast<long>(row)); });
    sortLabels(labels.data(), labels.size());
    std::size_t numLabels = labels.size() > 0 ? 1 : 0;
    for (std::size_t i = 1; i < labels.size(); ++i) {
        numLabels += labels[i] != labels[i - 1] ? 1 : 0;
    }
    kt_Scratch<kt_Verdict> verdicts(numLabels);
    const auto total = static_cast<double>(labels.size());
    const long* first = labels.begin();
    for (kt_Verdict& verdict : verdicts) {
        const long label = *first;
        const long* next = first + 1;
        while (next != labels.end() && *next == label) {
            ++next;
        }
        // In place: copying what was just written in smaller parts makes a processor wait.
        new (&verdict.category) ktClassifierCategoryResult(label, static_cast<double>(next - first) / total, 0.0, 0.0);
        first = next;
    }
    const ktClassifierCosts unitCosts(1.0);
    kt_DecisionRule::decide(result, verdicts, ktClassifierFrequencies(1.0),
                            params_ ? params_->misclassificationCosts() : unitCosts, 0.0);
}

void kt_ClassifierKNN::makeCopy() noexcept
{
    compactCopy_ = nullptr;
    if (trainingData_) {
        compactCopy_ = copyOf(*trainingData_, nullptr);
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
    if (archive.isLoading()) {
        compactCopy_ = nullptr;
        // An archive can refer to a loaded store or pattern again in a few bytes, so copies of these could take unlimited memory. A copy of
        // few patterns is large in proportion to their bytes.
        if (trainingData_ && trainingData_->numPatterns() >= leastLoadedForCopy && isHeldOnce(*trainingData_)) {
            makeCopy();
        }
    }
}
