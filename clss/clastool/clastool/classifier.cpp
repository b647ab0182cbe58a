#include <clastool/classifier.h>

ktClassifierTrainParams::ktClassifierTrainParams() = default;

// Kept on purpose: a copy of the base starts with throwIfNotReady true, and assignment leaves it as it is.
ktClassifierTrainParams::ktClassifierTrainParams(const ktClassifierTrainParams&) : ktPersistent(), ktRepBase() {}

ktClassifierTrainParams& ktClassifierTrainParams::operator=(const ktClassifierTrainParams& other)
{
    ktPersistent::operator=(other);
    return *this;
}

ktClassifierTrainParams::~ktClassifierTrainParams() = default;

bool ktClassifierTrainParams::isEqual_(const ktClassifierTrainParams&) const
{
    return true;
}

void ktClassifierTrainParams::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktClassifierTrainParams::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
}

kt_Classifier::kt_Classifier() = default;

bool kt_Classifier::isEquivalent(const kt_Classifier& other) const
{
    if (isTrained_() != other.isTrained_()) {
        return false;
    }
    if (trainParams_ && other.trainParams_) {
        return trainParams_->isEqual_(*other.trainParams_);
    }
    return trainParams_.isNull() && other.trainParams_.isNull();
}

void kt_Classifier::train(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params,
                          ktDiagObject* diag, unsigned long flags)
{
    // The given parameters may be the stored ones, which this handle keeps alive.
    const ktPtrHandle_const<ktClassifierTrainParams> oldParams = trainParams_;
    untrain();
    ktDiagObject* destination = ktDiagObject::getRecordingDestination(diag, flags);
    recordTrainInputs_(destination, flags);
    train_(provider, params);
    storeCloneOf(params);
    // Kept on purpose: this hook is given the caller's own object, not the destination.
    recordTrainDetails_(diag, flags);
    recordTrainResults_(destination, flags);
}

void kt_Classifier::trainStart(const ktClassifierTrainParams& params)
{
    const ktPtrHandle_const<ktClassifierTrainParams> oldParams = trainParams_;
    untrain();
    trainStart_(params);
    storeCloneOf(params);
}

/// Ends a training. Without its parameters a classifier would seem to be trained by hand, so it is untrained if they cannot be cloned.
void kt_Classifier::storeCloneOf(const ktClassifierTrainParams& params)
{
    try {
        trainParams_ = params.clone();
    } catch (...) {
        untrain();
        throw;
    }
}

void kt_Classifier::trainIncremental(const ktFeaturePattern& pattern, long label, ktDiagObject*, unsigned long)
{
    if (!isTrained_()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before incremental training.");
    }
    trainIncremental_(pattern, label);
}

void kt_Classifier::retrain(const ktClassifierTrainParams& params, ktDiagObject*, unsigned long)
{
    if (!isTrained_()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before retraining.");
    }
    if (trainParams_.isNull() || !params.isSameTechnique_(*trainParams_)) {
        throw ktClassifierDefs::BadMethod("Cannot retrain with a different classification technique.");
    }
    // Cloned first: if that fails, the classifier stays as it was.
    const ktPtrHandle_const<ktClassifierTrainParams> newParams = params.clone();
    retrain_(params);
    trainParams_ = newParams;
}

void kt_Classifier::run(const ktFeaturePattern& pattern, ktClassifierResult& result, ktDiagObject* diag,
                        unsigned long flags) const
{
    if (!isTrained_()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before running.");
    }
    ktDiagObject* destination = ktDiagObject::getRecordingDestination(diag, flags);
    recordRunInputs_(destination, flags, pattern);
    run_(pattern, result);
    recordRunDetails_(destination, flags);
    recordRunResults_(destination, flags, pattern, result);
}

void kt_Classifier::untrain()
{
    if (isTrained_()) {
        untrain_();
        trainParams_ = nullptr;
    }
}

ktPtrHandle_const<ktClassifierTrainParams> kt_Classifier::trainParams()
{
    if (!isTrained_()) {
        throw ktClassifierDefs::NotTrained(
            "Classifier tool must be trained before requesting the training parameters.");
    }
    if (trainParams_.isNull()) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not automatically trained.");
    }
    return trainParams_;
}

void kt_Classifier::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_Classifier::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
    archive || trainParams_;
}
