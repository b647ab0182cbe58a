#include <clastool/bayes.h>

#include "../clastool/decision_rule.h"
#include "../clastool/grow.h"
#include "borrowed_spreads.h"
#include "equal_pairs.h"
#include "pattern_batch.h"
#include "sub_pattern.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <typeinfo>

namespace {

/// Only a density that has reached its lower limit gives such a log-likelihood.
constexpr double hopeless = -1e299;

const ktClassifierTrainParamsBayesian& asBayesian(const ktClassifierTrainParams& params)
{
    const auto* bayesian = dynamic_cast<const ktClassifierTrainParamsBayesian*>(&params);
    if (bayesian == nullptr) {
        throw ktClassifierDefs::BadParams("The training parameters are for a different classification technique.");
    }
    return *bayesian;
}

/// The stored parameters. Throws ktBadPointer if a damaged archive left none, or parameters of another technique.
const ktClassifierTrainParamsBayesian& heldBayesian(const ktPtrHandle_const<ktClassifierTrainParams>& params)
{
    const auto* bayesian = dynamic_cast<const ktClassifierTrainParamsBayesian*>(params.get());
    if (bayesian == nullptr) {
        throw ktBadPointer();
    }
    return *bayesian;
}

const kt_CategoryModelBayesian& asBayesian(const kt_CategoryModel& model)
{
    const auto* bayesian = dynamic_cast<const kt_CategoryModelBayesian*>(&model);
    if (bayesian == nullptr) {
        throw ktBadPointer();
    }
    return *bayesian;
}

}  // namespace

const kt_Instantiator kt_ClassifierBayesian::sExemplar(typeid(kt_ClassifierBayesian), &kt_ClassifierBayesian::make);

ktPersistent* kt_ClassifierBayesian::make()
{
    return new kt_ClassifierBayesian;
}

kt_ClassifierBayesian::kt_ClassifierBayesian() = default;

kt_ClassifierBayesian& kt_ClassifierBayesian::operator=(const kt_ClassifierBayesian& other)
{
    kt_ClassifierBayesian copy(other);
    kt_Classifier::operator=(other);
    labels_.swap(copy.labels_);
    models_.swap(copy.models_);
    evaluated_.swap(copy.evaluated_);
    return *this;
}

ktPtrHandle<kt_Classifier> kt_ClassifierBayesian::clone() const
{
    return new kt_ClassifierBayesian(*this);
}

bool kt_ClassifierBayesian::isEquivalent(const kt_Classifier& other) const
{
    const auto* bayesian = dynamic_cast<const kt_ClassifierBayesian*>(&other);
    return bayesian != nullptr && *this == *bayesian;
}

bool kt_ClassifierBayesian::operator==(const kt_ClassifierBayesian& other) const
{
    if (!kt_Classifier::isEquivalent(other) || models_.size() != other.models_.size()) {
        return false;
    }
    kt_EqualPairs known;
    for (std::size_t i = 0; i < models_.size(); ++i) {
        const kt_CategoryModelBayesian& mine = asBayesian(*models_[i]);
        const kt_CategoryModelBayesian& others = asBayesian(*other.models_[i]);
        if (known.add(&mine, &others) && !mine.isEqual(others, known)) {
            return false;
        }
    }
    return true;
}

void kt_ClassifierBayesian::train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params)
{
    const ktClassifierTrainParamsBayesian& bayesian = asBayesian(params);
    untrain_();
    try {
        learn(provider, bayesian);
    } catch (...) {
        evaluated_ = kt_BorrowedSpreads::completed(models_);
        throw;
    }
    evaluated_ = kt_BorrowedSpreads::completed(models_);
}

void kt_ClassifierBayesian::learn(const ktClassifierDataProvider& provider,
                                  const ktClassifierTrainParamsBayesian& params)
{
    // Training only reads the provider, but three of the functions that read are not const.
    auto& data = const_cast<ktClassifierDataProvider&>(provider);
    const long numPatterns = data.numPatterns();
    if (numPatterns < 1) {
        return;
    }
    const long numMeasurements = data.numMeasurements();
    // The patterns that wait for each model. A model learns its first pattern at once, because it fixes the densities' sizes.
    std::vector<std::unique_ptr<kt_PatternBatch>> batches;
    for (long i = 0; i < numPatterns; ++i) {
        const ktPtrHandle_const<ktFeaturePattern> pattern = data.featurePattern(i);
        const long label = data.categoryLabel(i);
        if (label == -1) {
            continue;
        }
        const auto known = static_cast<std::size_t>(std::find(labels_.begin(), labels_.end(), label) - labels_.begin());
        if (known == labels_.size()) {
            const ktPtrHandle<kt_CategoryModelBayesian> model = newModel(label, numMeasurements, params);
            model->adapt(*pattern, nullptr, 0);
            kt_makeRoomForOne(labels_, models_, batches);
            labels_.push_back(label);
            models_.push_back(model);
            batches.emplace_back();
            continue;
        }
        if (!batches[known]) {
            batches[known] = std::make_unique<kt_PatternBatch>(static_cast<kt_CategoryModelBayesian&>(*models_[known]));
        }
        batches[known]->add(*pattern);
    }
}

/// A measurement that is in no group yet begins one. The group is its dependency set, or the measurement alone if it has none.
kt_CategoryModelBayesian* kt_ClassifierBayesian::newModel(long label, long numMeasurements,
                                                          const ktClassifierTrainParamsBayesian& params)
{
    const ktClassifierDistributionTypes& types = params.distributionTypes();
    std::vector<std::vector<long>> groups;
    std::vector<ktClassifierDistributionTypes::DistributionType> groupTypes;
    const auto claimed = static_cast<std::size_t>(std::max(numMeasurements, 0L));
    if (claimed > groups.max_size()) {
        // No vector can be that long, so the provider's number is wrong.
        throw ktClassifierDefs::InsufficientTrainData("No valid data was provided for training.");
    }
    std::vector<bool> isGrouped(claimed);
    for (long m = 0; m < numMeasurements; ++m) {
        if (isGrouped[static_cast<std::size_t>(m)]) {
            continue;
        }
        const std::vector<long>* set = types.setWith(label, m);
        groups.push_back(set != nullptr ? *set : std::vector<long>{m});
        groupTypes.push_back(types.distributionType(label, m));
        for (const long member : groups.back()) {
            if (member >= 0 && member < numMeasurements) {
                isGrouped[static_cast<std::size_t>(member)] = true;
            }
        }
    }
    return new kt_CategoryModelBayesian(label, groups, groupTypes, params.maxMeasurementValues());
}

void kt_ClassifierBayesian::retrain_(const ktClassifierTrainParams& params)
{
    const ktClassifierTrainParamsBayesian& held = heldBayesian(storedParams());
    const ktClassifierTrainParamsBayesian& given = asBayesian(params);
    if (held.distributionTypes() != given.distributionTypes()) {
        throw ktClassifierDefs::BadParams("Cannot retrain a Bayesian classifier with different distribution types.");
    }
    if (held.maxMeasurementValues() != given.maxMeasurementValues()) {
        throw ktClassifierDefs::BadParams(
            "Cannot retrain a Bayesian classifier with different maximum measurements values.");
    }
}

void kt_ClassifierBayesian::trainStart_(const ktClassifierTrainParams&) {}

void kt_ClassifierBayesian::trainIncremental_(const ktFeaturePattern&, long) {}

void kt_ClassifierBayesian::untrain_()
{
    labels_.clear();
    models_.clear();
    evaluated_.clear();
}

bool kt_ClassifierBayesian::isTrained_() const
{
    return !models_.empty();
}

void kt_ClassifierBayesian::checkRunnable_() const
{
    if (models_.empty()) {
        throw ktClassifierDefs::InsufficientTrainData("No valid data was provided for training.");
    }
    const kt_CategoryModel& first = *models_.front();
    // A loaded model may claim any number of measurements. Its groups cannot read more than their sizes.
    std::size_t most = 0;
    if (const auto* bayesian = dynamic_cast<const kt_CategoryModelBayesian*>(&first)) {
        most = bayesian->groupSizes();
    }
    const auto claimed = static_cast<std::size_t>(std::max(first.numMeasurements(), 0L));
    ktClassifierResult scratch;
    run_(ktFeaturePattern(std::vector<double>(std::min(claimed, most), 0.0), {}), scratch);
}

void kt_ClassifierBayesian::run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const
{
    kt_Scratch<kt_Verdict> verdicts(models_.size());
    const double best = score(pattern, verdicts);
    const ktClassifierTrainParamsBayesian& params = heldBayesian(storedParams());
    double reference = best;
    if (best <= hopeless) {
        const ktFeaturePattern reached = withoutUnreached(pattern);
        if (reached.numInvalid() > pattern.numInvalid()) {
            reference = score(reached, verdicts);
        }
    }
    for (std::size_t i = 0; i < models_.size(); ++i) {
        const double matchScore = std::exp((0.0 - reference) + verdicts[i].logLikelihood);
        // In place: copying an object right after writing its members stalls the processor.
        new (&verdicts[i].category) ktClassifierCategoryResult(models_[i]->categoryLabel(), matchScore, 0.0, 0.0);
    }
    kt_DecisionRule::decide(result, verdicts, params.categoryFrequencies(), params.misclassificationCosts(),
                            0.0 - best);
}

/// The log-likelihoods of the categories, and the largest of them.
double kt_ClassifierBayesian::score(const ktFeaturePattern& pattern, kt_Scratch<kt_Verdict>& verdicts) const
{
    // If training ran out of memory, the models with borrowed spreads are missing.
    const std::vector<ktPtrHandle<kt_CategoryModel>>& models =
        evaluated_.size() == models_.size() ? evaluated_ : models_;
    const kt_MeasuredValues values(pattern);
    double best = -std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < models.size(); ++i) {
        kt_pollAttention();
        const kt_CategoryModel& model = *models[i];
        verdicts[i].logLikelihood = typeid(model) == typeid(kt_CategoryModelBayesian)
                                        ? static_cast<const kt_CategoryModelBayesian&>(model).scoreOf(pattern, values)
                                        : model.matchScore(pattern, nullptr, 0);
        // This form lets a NaN score replace the best, and an equal one not.
        if (!(best >= verdicts[i].logLikelihood)) {
            best = verdicts[i].logLikelihood;
        }
    }
    return best;
}

/// The pattern without the measurements that no category reaches: all their densities are at the lower limit.
ktFeaturePattern kt_ClassifierBayesian::withoutUnreached(const ktFeaturePattern& pattern) const
{
    const auto size = static_cast<std::size_t>(pattern.numMeasurements());
    std::vector<bool> isJudged(size);
    std::vector<bool> isReached(size);
    for (const ktPtrHandle<kt_CategoryModel>& model : evaluated_) {
        if (const auto* bayesian = dynamic_cast<const kt_CategoryModelBayesian*>(model.get())) {
            bayesian->noteReach(pattern, isJudged, isReached);
        }
    }
    std::vector<long> missing;
    for (std::size_t i = 0; i < size; ++i) {
        const auto index = static_cast<long>(i);
        if (!pattern.isValid(index) || (isJudged[i] && !isReached[i])) {
            missing.push_back(index);
        }
    }
    return {pattern.featureMeasurements(false), missing};
}

void kt_ClassifierBayesian::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_ClassifierBayesian::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    kt_Classifier::dispatchSerialize(archive);
    if (!archive.isLoading()) {
        archive || labels_ || models_;
        return;
    }
    evaluated_.clear();
    archive || labels_ || models_;
    evaluated_ = kt_BorrowedSpreads::completed(models_);
}
