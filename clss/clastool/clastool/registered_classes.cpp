#include <clastool/clastool.h>

namespace {

using Destroy = void (*)(void*);

/// Refers to the object file that defines the class. Its type information would not do: compilers for Windows put that into
/// every object file that asks for it.
template <class T>
void destroy(void* object)
{  // not covered: referred to, but never called
    static_cast<T*>(object)->T::~T();
}

}  // namespace

/// All classes that archives can re-create. A program linked statically keeps only the object files that it refers to; it
/// is linked with a reference to this table, and so with every class and its registry entry, also when it names none.
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
