#include <clastool/classifier.h>

#include <clastool/decision_tree.h>
#include <clastool/nearest_neighbor.h>

#include <typeinfo>

ktClassifierTool::ktClassifierTool() = default;

ktClassifierTool::ktClassifierTool(const ktClassifierTool& other)
{
    *this = other;
}

ktClassifierTool::ktClassifierTool(ktClassifierTool&& other) noexcept = default;

ktClassifierTool& ktClassifierTool::operator=(ktClassifierTool&& other) noexcept = default;

ktClassifierTool& ktClassifierTool::operator=(const ktClassifierTool& other)
{
    // Kept on purpose: this tool's classifier is dropped before the source is read, so a tool assigned to itself ends up untrained.
    classifier_ = nullptr;
    if (other.isTrained()) {
        classifier_ = other.classifier_->clone();
    }
    return *this;
}

ktClassifierTool::~ktClassifierTool()
{
    try {
        untrain();
    } catch (...) {
        // A technique of the caller's own may throw; a destructor must not.
    }
}

void ktClassifierTool::train(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params,
                             ktDiagObject* diag, unsigned long flags)
{
    // The given parameters may be those of the present classifier, which this handle keeps alive.
    const ktPtrHandle_const<ktClassifierTrainParams> oldParams = classifier_ ? classifier_->trainParams_ : nullptr;
    untrain();
    try {
        classifier_ = params.newClassifier_();
    } catch (...) {
        // Kept on purpose: whatever the parameters throw, the caller gets this error.
        classifier_ = nullptr;
        throw ktClassifierDefs::NotImplemented(
            "The classification method specified by the training parameters is not implemented.");
    }
    try {
        classifier_->train(provider, params, diag, flags);
    } catch (...) {
        // A technique may leave a half-trained classifier; a tool does not keep one.
        untrain();
        throw;
    }
    untrainIfNotRunnable(params);
}

void ktClassifierTool::train(const ktDecisionTree& tree, ktDiagObject* diag, unsigned long flags)
{
    // The given tree may be that of the present classifier, which this handle keeps alive.
    const auto* oldClassifier = dynamic_cast<const kt_ClassifierDecisionTree*>(classifier_.get());
    const ktPtrHandle_const<ktDecisionTree> oldTree =
        oldClassifier != nullptr ? oldClassifier->decisionTree() : nullptr;
    untrain();
    const ktPtrHandle<kt_ClassifierDecisionTree> newClassifier = new kt_ClassifierDecisionTree;
    classifier_ = newClassifier;
    newClassifier->trainManual(tree, diag, flags);
}

void ktClassifierTool::retrain(const ktClassifierTrainParams& params, ktDiagObject* diag, unsigned long flags)
{
    if (classifier_.isNull()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before retraining.");
    }
    const ktPtrHandle_const<ktClassifierTrainParams> oldParams = classifier_->trainParams_;
    if (isShared()) {
        const ktPtrHandle<kt_Classifier> own = classifier_->clone();
        own->retrain(params, diag, flags);
        classifier_ = own;
    } else {
        classifier_->retrain(params, diag, flags);
    }
    untrainIfNotRunnable(params);
}

bool ktClassifierTool::isShared() const
{
    return classifier_->isLoaded_ && classifier_->refCount() > 1;
}

void ktClassifierTool::untrainIfNotRunnable(const ktClassifierTrainParams& params)
{
    if (!params.throwIfNotReady()) {
        return;
    }
    try {
        classifier_->checkRunnable_();
    } catch (const ktClassifierDefs::Errors&) {
        // Kept on purpose: only the library's own errors untrain; others pass through and leave the tool trained.
        untrain();
        throw;
    }
}

void ktClassifierTool::run(const ktFeaturePattern& pattern, ktClassifierResult& result, ktDiagObject* diag,
                           unsigned long flags) const
{
    if (classifier_.isNull()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before running.");
    }
    classifier_->run(pattern, result, diag, flags);
}

void ktClassifierTool::run(const std::vector<ktPtrHandle_const<ktFeaturePattern>>& patterns,
                           std::vector<ktClassifierResult>& results, ktDiagObject* diag, unsigned long flags) const
{
    if (!isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before running.");
    }
    std::vector<ktClassifierResult> found(patterns.size());
    const kt_Classifier& classifier = *classifier_;
    // A derived class may override the run.
    if (typeid(classifier) == typeid(kt_ClassifierKNN)) {
        static_cast<const kt_ClassifierKNN&>(classifier).runEach(patterns, found, diag, flags);
    } else {
        for (std::size_t i = 0; i < patterns.size(); ++i) {
            classifier.run(*patterns[i], found[i], diag, flags);
        }
    }
    results.swap(found);
}

void ktClassifierTool::untrain()
{
    if (classifier_.isNull()) {
        return;
    }
    if (isShared()) {
        // Another tool may hold this classifier, so it is released, not untrained.
        classifier_ = nullptr;
    } else {
        classifier_->untrain();
    }
}

bool ktClassifierTool::isTrained() const
{
    return classifier_ && classifier_->isTrained();
}

ktPtrHandle_const<ktClassifierTrainParams> ktClassifierTool::trainParams()
{
    if (classifier_.isNull()) {
        throw ktClassifierDefs::NotTrained(
            "Classifier tool must be trained before requesting the training parameters.");
    }
    return classifier_->trainParams();
}

ktPtrHandle_const<ktDecisionTree> ktClassifierTool::decisionTree()
{
    if (!isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before requesting the decision tree.");
    }
    const auto* classifier = dynamic_cast<const kt_ClassifierDecisionTree*>(classifier_.get());
    if (classifier == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not trained using a decision tree.");
    }
    return classifier->decisionTree();
}

bool ktClassifierTool::operator==(const ktClassifierTool& other) const
{
    if (isTrained() != other.isTrained()) {
        return false;
    }
    return !isTrained() || classifier_->isEquivalent(*other.classifier_);
}

ktArchive& operator||(ktArchive& archive, ktClassifierTool& tool)
{
    const ktArchive::Pass pass(archive);
    archive.version("clss/clastool/clastool", 896);
    // The handle archives a pointer record. An object of another class leaves the tool without a classifier.
    archive || tool.classifier_;
    if (archive.isLoading() && tool.classifier_) {
        tool.classifier_->isLoaded_ = true;
    }
    return archive;
}
