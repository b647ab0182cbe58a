// Every comparison that the headers document compiles in either language standard without a warning: C++20 also tries
// each operator with its operands the other way round, and a base class's operator must not become a rival of it.

#include <clastool/clastool.h>

template <class A, class B>
bool compares(const A& a, const B& b)
{
    return (a == b) != (a != b) && (b == a) != (b != a);
}

template <class T>
bool comparesWithItself()
{
    return compares(T(), T());
}

/// Two classes derived from one base that compares what it holds by class.
template <class Base, class A, class B>
bool comparesAsFamily()
{
    const A a;
    const B b;
    const Base& base = a;
    return compares(a, a) && compares(b, b) && compares(a, b) && compares(base, a) && compares(base, b) &&
           compares(base, base);
}

/// The same, but the derived classes have an operator of their own for two of their kind.
template <class Base, class A, class B>
bool comparesThroughBase()
{
    const A a;
    const B b;
    const Base& base = a;
    return compares(a, a) && compares(b, b) && compares(base, base) && (base == a) != (base != a) &&
           (base == b) != (base != b);
}

bool values()
{
    return comparesWithItself<ktRange>() && comparesWithItself<ktPair<long>>() &&
           comparesWithItself<ktFeaturePattern>() && comparesWithItself<ktClassifierCosts>() &&
           comparesWithItself<ktClassifierFrequencies>() && comparesWithItself<ktClassifierCategoryResult>() &&
           comparesWithItself<ktClassifierResult>() && comparesWithItself<ktClassifierDataProviderMemory>() &&
           compares(ktNMMatrix(1, 1), ktNMMatrix(1, 1));
}

bool handles()
{
    const ktPtrHandle<ktFeaturePattern> handle;
    const ktPtrHandle_const<ktFeaturePattern> constHandle;
    return compares(handle, handle) && compares(constHandle, constHandle) && compares(handle, constHandle);
}

bool techniques()
{
    return comparesWithItself<ktClassifierTool>() && comparesWithItself<ktPatternDistanceMetricNorm>() &&
           comparesWithItself<ktClassifierTrainParamsKNN>() && comparesWithItself<kt_ClassifierKNN>() &&
           comparesWithItself<ktClassifierDistributionTypes>() && comparesWithItself<kt_PDFMultivariateNormal>() &&
           comparesWithItself<kt_PDFBinomial>() && comparesWithItself<ktClassifierTrainParamsBayesian>() &&
           comparesWithItself<kt_CategoryModelBayesian>() && comparesWithItself<kt_ClassifierBayesian>() &&
           comparesWithItself<kt_ClassifierDecisionTree>() && comparesWithItself<ktClassifierRule>() &&
           comparesWithItself<ktClassifierRuleTable>();
}

bool families()
{
    return comparesAsFamily<ktPredicateFunction, ktComparisonPredicate, ktRangePredicate>() &&
           comparesAsFamily<ktPredicateFunction, ktRangePredicate, ktValidityPredicate>() &&
           comparesAsFamily<ktDecisionTree, ktDecisionTreeNode, ktDecisionTreeLeaf>() &&
           comparesThroughBase<ktPatternDistanceMetric, ktPatternDistanceMetricNorm, ktPatternDistanceMetricNorm>() &&
           comparesThroughBase<ktClassifierTrainParams, ktClassifierTrainParamsKNN,
                               ktClassifierTrainParamsBayesian>() &&
           comparesThroughBase<kt_Classifier, kt_ClassifierKNN, kt_ClassifierBayesian>() &&
           comparesThroughBase<kt_Classifier, kt_ClassifierKNN, kt_ClassifierDecisionTree>() &&
           comparesAsFamily<ktClsFtSc, ktClassifierFeatureScoreIgnore, ktClassifierFeatureScoreOneSided>() &&
           comparesAsFamily<ktClsFtSc, ktClassifierFeatureScoreOneSided, ktClassifierFeatureScoreTwoSided>();
}
