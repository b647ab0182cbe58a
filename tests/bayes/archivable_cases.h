#pragma once

// The archivable classes of bayes.h and their samples.

#include "support/archivable_kit.h"

#include "bayes_kit.h"

namespace cases {

using bayes::Types;

/// Makes the table of logarithms that the process keeps, so that no test takes it for its own memory.
inline void makeLogarithms()
{
    static_cast<void>(bayes::binomialWith(4, 0.5, 1.0).logValue(ktFeaturePattern({0.5}, {})));
}

inline Types someTypes()
{
    Types types(Types::eNormal);
    types.distributionTypeOverride(2, 0, Types::eBinomial);
    types.setDependent(2, {1, 2});
    types.setDependent(7, {0, 2});
    return types;
}

struct DistributionTypes : kt_test::ArchivableCase<Types> {
    static constexpr const char* name = "ktClassifierDistributionTypes";
    static std::vector<Layer> layers() { return {{"clss/clastool/bayes", 262}}; }

    static std::vector<Types> samples() { return {Types(), Types(Types::eUniform), someTypes()}; }
};

struct MultivariateNormal : kt_test::ArchivableCase<kt_PDFMultivariateNormal> {
    static constexpr const char* name = "kt_PDFMultivariateNormal";
    static std::vector<Layer> layers() { return {{}}; }

    static std::vector<kt_PDFMultivariateNormal> samples()
    {
        std::vector<kt_PDFMultivariateNormal> densities(3);
        densities[1].updateWithData(bayes::patterns({{1.5}, {2.5}, {7.0}}));
        densities[2].updateWithData(bayes::patterns({{1.0, -2.0}, {2.0, -3.5}, {4.0, -4.0}}));
        return densities;
    }
};

struct Binomial : kt_test::ArchivableCase<kt_PDFBinomial> {
    static constexpr const char* name = "kt_PDFBinomial";
    static std::vector<Layer> layers() { return {{}}; }

    static std::vector<kt_PDFBinomial> samples()
    {
        makeLogarithms();
        std::vector<kt_PDFBinomial> densities = {kt_PDFBinomial(), kt_PDFBinomial(ktFeaturePattern({10.0}, {})),
                                                 kt_PDFBinomial(ktFeaturePattern({10.0}, {}))};
        densities[2].updateWithData(bayes::patterns({{2.0}, {4.0}, {6.0}}));
        return densities;
    }
};

/// A normal group of two and a binomial one.
inline kt_CategoryModelBayesian someModel(long label, double shift)
{
    kt_CategoryModelBayesian model(label, {{0, 2}, {1}}, {Types::eNormal, Types::eBinomial},
                                   ktFeaturePattern({1.0, 8.0}, {}));
    for (const double step : {0.0, 1.0, 3.0}) {
        model.adapt(ktFeaturePattern({shift + step, step * 2.0, shift - step * step}, {}), nullptr, 0);
    }
    return model;
}

struct CategoryModel : kt_test::ArchivableCase<kt_CategoryModelBayesian> {
    static constexpr const char* name = "kt_CategoryModelBayesian";
    using Base = kt_CategoryModel;

    static std::vector<kt_CategoryModelBayesian> samples()
    {
        makeLogarithms();
        return {kt_CategoryModelBayesian(),
                kt_CategoryModelBayesian(3, {{0}, {4, 1}}, {Types::eNormal, Types::eNormal}, {}), someModel(3, 0.5)};
    }
};

inline bayes::Params someParams()
{
    ktClassifierFrequencies frequencies(2.0);
    frequencies.categoryFrequencyOverride(7, 0.5);
    ktClassifierCosts costs(1.5);
    costs.misclassificationCostOverride(7, 2, 10.0);
    return {someTypes(), frequencies, costs, ktFeaturePattern({4.0, 1.0}, {1})};
}

struct TrainParams : kt_test::ArchivableCase<ktClassifierTrainParamsBayesian> {
    static constexpr const char* name = "ktClassifierTrainParamsBayesian";

    static std::vector<ktClassifierTrainParamsBayesian> samples()
    {
        return {bayes::Params(), bayes::Params(Types(Types::eBinomial)), someParams()};
    }
};

struct Classifier : kt_test::ArchivableCase<kt_ClassifierBayesian> {
    static constexpr const char* name = "kt_ClassifierBayesian";

    static std::vector<kt_ClassifierBayesian> samples()
    {
        makeLogarithms();
        std::vector<kt_ClassifierBayesian> classifiers(3);
        classifiers[1].train(kt_test::trainingData({{{1.0}, 4}, {{2.0}, 4}, {{1.5}, -1}}), bayes::Params());
        classifiers[2].train(
            kt_test::trainingData(
                {{{1.0, 2.0, 3.0}, 2}, {{8.0, 9.0, 7.0}, 7}, {{3.0, 2.5, 5.0}, 2}, {{9.0, 9.5, 7.0}, 7}}),
            someParams());
        return classifiers;
    }
};

}  // namespace cases
