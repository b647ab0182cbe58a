#pragma once

// The archivable classes of nearest_neighbor.h and their samples.

#include "support/archivable_kit.h"
#include "support/test.h"

namespace cases {

struct Norm : kt_test::ArchivableCase<ktPatternDistanceMetricNorm> {
    static constexpr const char* name = "ktPatternDistanceMetricNorm";
    using Base = ktPatternDistanceMetric;

    static std::vector<ktPatternDistanceMetricNorm> samples()
    {
        return {ktPatternDistanceMetricNorm(), ktPatternDistanceMetricNorm(0.5), ktPatternDistanceMetricNorm(7.5)};
    }
};

struct TrainParamsKNN : kt_test::ArchivableCase<ktClassifierTrainParamsKNN> {
    static constexpr const char* name = "ktClassifierTrainParamsKNN";

    static std::vector<ktClassifierTrainParamsKNN> samples()
    {
        return {ktClassifierTrainParamsKNN(), ktClassifierTrainParamsKNN(7),
                ktClassifierTrainParamsKNN(7, ktPatternDistanceMetricNorm(0.5), kt_test::someCosts())};
    }
};

struct ClassifierKNN : kt_test::ArchivableCase<kt_ClassifierKNN> {
    static constexpr const char* name = "kt_ClassifierKNN";

    static std::vector<kt_ClassifierKNN> samples()
    {
        const ktClassifierTrainParamsKNN params(3, ktPatternDistanceMetricNorm(1.0), kt_test::someCosts());
        std::vector<kt_ClassifierKNN> classifiers(4);
        classifiers[1].train(kt_test::trainingData({{{0, 0}, 0}, {{4, 4}, 1}, {{1, 0}, 0}}), params);
        classifiers[2].train(kt_test::trainingData({{{0, 0}, 0}, {{4, 4}, 1}, {{1, 0}, 0}}),
                             ktClassifierTrainParamsKNN(7));
        classifiers[3].train(kt_test::trainingData({}), params);
        return classifiers;
    }
};

}  // namespace cases
