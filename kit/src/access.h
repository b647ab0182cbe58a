#pragma once

#include <clastool/clastool.h>

#include <kt/scratch.h>

#include <cstddef>
#include <vector>

/// What the kit needs of a tool beyond the public operations. The library below declares this class a friend, so that it need not
/// publish more operations.
class kt_KitAccess {
public:
    /// The classifier as the given class, null if it is of another class.
    template <class Classifier>
    static Classifier* classifierAs(const ktClassifierTool& tool)
    {
        return dynamic_cast<Classifier*>(tool.classifier_.get());
    }
    static void replaceClassifier(ktClassifierTool& tool, const ktPtrHandle<kt_Classifier>& classifier) noexcept
    {
        tool.classifier_ = classifier;
    }
    /// Whether an archive loaded the classifier.
    static bool isLoaded(const kt_Classifier& classifier) { return classifier.isLoaded_; }
    /// The stored parameters; null for a decision tree.
    static const ktClassifierTrainParams* params(const kt_Classifier& classifier)
    {
        return classifier.trainParams_.get();
    }

    static void checkRunnable(const kt_Classifier& classifier) { classifier.checkRunnable_(); }

    // Nearest neighbours: the parameters that a run uses, which may differ from the stored ones, and the kept patterns.
    static ktClassifierTrainParamsKNN paramsInUse(const kt_ClassifierKNN& classifier)
    {
        return classifier.params_ ? *classifier.params_ : ktClassifierTrainParamsKNN();
    }
    static void paramsInUse(kt_ClassifierKNN& classifier,
                            const ktPtrHandle<ktClassifierTrainParamsKNN>& params) noexcept
    {
        classifier.params_ = params;
    }
    static ktPtrHandle<ktClassifierDataProviderMemory>& kept(kt_ClassifierKNN& classifier)
    {
        return classifier.trainingData_;
    }
    static void remakeCopy(kt_ClassifierKNN& classifier) noexcept { classifier.makeCopy(); }
    static bool findByCopy(const kt_ClassifierKNN& classifier, const ktFeaturePattern& pattern,
                           kt_Scratch<std::size_t, 256>& rows)
    {
        return classifier.findByCopy(pattern, rows);
    }
    static void findByScan(const kt_ClassifierKNN& classifier, const ktFeaturePattern& pattern, kt_NearestList& list)
    {
        classifier.findNearestNeighbors_(pattern, list);
    }

    // Bayes: the models, the models that are evaluated in their place, and their densities.
    using Models = std::vector<ktPtrHandle<kt_CategoryModel>>;
    using Groups = std::vector<std::vector<long>>;
    using Densities = std::vector<ktPtrHandle<kt_ProbabilityDensityFunction>>;
    static std::vector<long>& labels(kt_ClassifierBayesian& classifier) { return classifier.labels_; }
    static Models& models(kt_ClassifierBayesian& classifier) { return classifier.models_; }
    static Models& evaluated(kt_ClassifierBayesian& classifier) { return classifier.evaluated_; }
    static ktPtrHandle<kt_CategoryModelBayesian> newModel(long label, long numMeasurements,
                                                          const ktClassifierTrainParamsBayesian& params)
    {
        return kt_ClassifierBayesian::newModel(label, numMeasurements, params);
    }
    static const Groups& groups(const kt_CategoryModelBayesian& model) { return model.groups_; }
    static const Densities& densities(const kt_CategoryModelBayesian& model) { return model.densities_; }
    static Densities& densities(kt_CategoryModelBayesian& model) { return model.densities_; }
    static ktNormalDensity& state(kt_PDFMultivariateNormal& density) { return density.state_; }
    static kt_PDFMultivariateNormal& accumulator(kt_PDFBinomial& density) { return density.accumulator_; }
    static void estimate(kt_PDFBinomial& density) { density.estimate(); }
};
