#include <clastool/clastool.h>

namespace {

using Destroy = void (*)(void*);

/// Refers to the object file that defines the class. Type information would not: compilers for Windows emit it in every object file that
/// uses it.
template <class T>
void destroy(void* object)
{  // not covered: referred to, but never called
    static_cast<T*>(object)->T::~T();
}

}  // namespace

/// All classes that archives can re-create. A statically linked program keeps only the object files that it refers to. It is linked with
/// a reference to this table, and so keeps every class with its registry entry, even if it names none.
extern "C" KT_API const Destroy ktClastoolClasses[];

const Destroy ktClastoolClasses[] = {
    &destroy<ktClassifierDefs::BadParams>,
    &destroy<ktClassifierDefs::BadIndex>,
    &destroy<ktClassifierDefs::BadLabel>,
    &destroy<ktClassifierDefs::BadMethod>,
    &destroy<ktClassifierDefs::NotTrained>,
    &destroy<ktClassifierDefs::NotImplemented>,
    &destroy<ktClassifierDefs::BadFeatures>,
    &destroy<ktClassifierDefs::InsufficientTrainData>,
    &destroy<ktFeaturePattern>,
    &destroy<ktClassifierDataProviderMemory>,
    &destroy<ktClassifierTrainParamsBayesian>,
    &destroy<ktClassifierTrainParamsKNN>,
    &destroy<kt_CategoryModelBayesian>,
    &destroy<kt_PDFMultivariateNormal>,
    &destroy<kt_PDFBinomial>,
    &destroy<kt_ClassifierBayesian>,
    &destroy<kt_ClassifierKNN>,
    &destroy<kt_ClassifierDecisionTree>,
    &destroy<ktPatternDistanceMetricNorm>,
    &destroy<ktComparisonPredicate>,
    &destroy<ktRangePredicate>,
    &destroy<ktValidityPredicate>,
    &destroy<ktDecisionTreeNode>,
    &destroy<ktDecisionTreeLeaf>,
};
