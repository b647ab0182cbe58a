#include <clastool/clastool.h>

#include <typeinfo>

/// All classes that archives can re-create. A program linked statically keeps only the object files that it refers to; it
/// is linked with a reference to this table, and so with every class and its registry entry, also when it names none.
extern "C" KT_API const std::type_info* const ktClastoolClasses[];

const std::type_info* const ktClastoolClasses[] = {
    &typeid(ktClassifierDefs::BadParams),
    &typeid(ktClassifierDefs::BadIndex),
    &typeid(ktClassifierDefs::BadLabel),
    &typeid(ktClassifierDefs::BadMethod),
    &typeid(ktClassifierDefs::NotTrained),
    &typeid(ktClassifierDefs::NotImplemented),
    &typeid(ktClassifierDefs::BadFeatures),
    &typeid(ktClassifierDefs::InsufficientTrainData),
    &typeid(ktFeaturePattern),
    &typeid(ktClassifierDataProviderMemory),
    &typeid(ktClassifierTrainParamsBayesian),
    &typeid(ktClassifierTrainParamsKNN),
    &typeid(kt_CategoryModelBayesian),
    &typeid(kt_PDFMultivariateNormal),
    &typeid(kt_PDFBinomial),
    &typeid(kt_ClassifierBayesian),
    &typeid(kt_ClassifierKNN),
    &typeid(kt_ClassifierDecisionTree),
    &typeid(ktPatternDistanceMetricNorm),
    &typeid(ktComparisonPredicate),
    &typeid(ktRangePredicate),
    &typeid(ktValidityPredicate),
    &typeid(ktDecisionTreeNode),
    &typeid(ktDecisionTreeLeaf),
};
