// A program that names every class that archives can re-create: the registry makes objects of the classes that it names, and
// holds nothing twice.

#include "check_registry.h"

#include <clastool/clastool.h>

namespace {

template <class Named>
bool isMade()
{
    const kt_Instantiator* entry = kt_Instantiator::find(typeid(Named));
    const std::unique_ptr<ktPersistent> made(entry == nullptr ? nullptr : entry->make());
    return dynamic_cast<Named*>(made.get()) != nullptr;
}

template <class... Named>
std::size_t countMade()
{
    return (std::size_t{0} + ... + std::size_t{isMade<Named>()});
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: named LIST_OF_CLASSES FOLDER_OF_GOLDEN_ARCHIVES\n";
        return 1;
    }
    const std::size_t made =
        countMade<ktClassifierDefs::BadParams, ktClassifierDefs::BadIndex, ktClassifierDefs::BadLabel,
                  ktClassifierDefs::BadMethod, ktClassifierDefs::NotTrained, ktClassifierDefs::NotImplemented,
                  ktClassifierDefs::BadFeatures, ktClassifierDefs::InsufficientTrainData, ktFeaturePattern,
                  ktClassifierDataProviderMemory, ktClassifierTrainParamsKNN, kt_ClassifierKNN,
                  kt_ClassifierDecisionTree, ktPatternDistanceMetricNorm, ktComparisonPredicate, ktRangePredicate,
                  ktValidityPredicate, ktDecisionTreeNode, ktDecisionTreeLeaf, ktClassifierTrainParamsBayesian,
                  kt_CategoryModelBayesian, kt_PDFMultivariateNormal, kt_PDFBinomial, kt_ClassifierBayesian>();
    const std::size_t known = registered().size();
    std::cout << made << " classes named and made, " << known << " registered\n";
    return made == known && registryHolds(argv[1], argv[2]) ? 0 : 1;
}
