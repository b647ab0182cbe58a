#include <clastool/bayes.h>

#include <utility>

const kt_Instantiator ktClassifierTrainParamsBayesian::sExemplar(typeid(ktClassifierTrainParamsBayesian),
                                                                 &ktClassifierTrainParamsBayesian::make);

ktPersistent* ktClassifierTrainParamsBayesian::make()
{
    return new ktClassifierTrainParamsBayesian;
}

ktClassifierTrainParamsBayesian::ktClassifierTrainParamsBayesian(const ktClassifierDistributionTypes& distributionTypes,
                                                                 const ktClassifierFrequencies& categoryFrequencies,
                                                                 const ktClassifierCosts& misclassificationCosts,
                                                                 const ktFeaturePattern& maxMeasurementValues)
    : types_(distributionTypes),
      frequencies_(categoryFrequencies),
      costs_(misclassificationCosts),
      maxValues_(maxMeasurementValues)
{
}

ktClassifierTrainParamsBayesian::ktClassifierTrainParamsBayesian(const ktClassifierTrainParamsBayesian& other)
    : ktPersistent(),
      ktRepBase(),
      ktClassifierTrainParams(other),
      types_(other.types_),
      frequencies_(other.frequencies_),
      costs_(other.costs_),
      maxValues_(other.maxValues_)
{
    throwIfNotReady(other.throwIfNotReady());
}

ktClassifierTrainParamsBayesian& ktClassifierTrainParamsBayesian::operator=(
    const ktClassifierTrainParamsBayesian& other)
{
    ktClassifierDistributionTypes types = other.types_;
    ktClassifierFrequencies frequencies = other.frequencies_;
    ktClassifierCosts costs = other.costs_;
    // This is the last copy that can fail. The moves below cannot fail.
    maxValues_ = other.maxValues_;
    ktClassifierTrainParams::operator=(other);
    types_ = std::move(types);
    frequencies_ = std::move(frequencies);
    costs_ = std::move(costs);
    throwIfNotReady(other.throwIfNotReady());
    return *this;
}

void ktClassifierTrainParamsBayesian::distributionTypes(const ktClassifierDistributionTypes& distributionTypes)
{
    types_ = distributionTypes;
}

void ktClassifierTrainParamsBayesian::categoryFrequencies(const ktClassifierFrequencies& categoryFrequencies)
{
    frequencies_ = categoryFrequencies;
}

void ktClassifierTrainParamsBayesian::misclassificationCosts(const ktClassifierCosts& misclassificationCosts)
{
    costs_ = misclassificationCosts;
}

void ktClassifierTrainParamsBayesian::maxMeasurementValues(const ktFeaturePattern& maxMeasurementValues)
{
    maxValues_ = maxMeasurementValues;
}

ktPtrHandle<ktClassifierTrainParams> ktClassifierTrainParamsBayesian::clone() const
{
    return new ktClassifierTrainParamsBayesian(*this);
}

bool ktClassifierTrainParamsBayesian::isEqual_(const ktClassifierTrainParams& other) const
{
    const auto* bayesian = dynamic_cast<const ktClassifierTrainParamsBayesian*>(&other);
    return bayesian != nullptr && types_ == bayesian->types_ && costs_ == bayesian->costs_ &&
           frequencies_ == bayesian->frequencies_ && maxValues_ == bayesian->maxValues_;
}

bool ktClassifierTrainParamsBayesian::isSameTechnique_(const ktClassifierTrainParams& other) const
{
    return dynamic_cast<const ktClassifierTrainParamsBayesian*>(&other) != nullptr;
}

kt_Classifier* ktClassifierTrainParamsBayesian::newClassifier_() const
{
    return new kt_ClassifierBayesian;
}

void ktClassifierTrainParamsBayesian::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktClassifierTrainParamsBayesian::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktClassifierTrainParams::dispatchSerialize(archive);
    // Kept on purpose: the costs come before the frequencies.
    archive || types_ || costs_ || frequencies_ || maxValues_;
}
