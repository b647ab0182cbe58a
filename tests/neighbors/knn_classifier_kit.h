#pragma once

#include "support/test.h"

// What the tests of the nearest-neighbour classifier share.

namespace neighbors {

inline constexpr const char* invalidMeasurements =
    "K-nearest neighbor classification does not support invalid measurements";
inline constexpr const char* noData = "No valid data was provided for training.";
inline constexpr const char* notAutomatic = "Classifier tool was not automatically trained.";

/// The hooks of the classifier, open to a test.
struct OpenKNN : kt_ClassifierKNN {
    OpenKNN() = default;
    explicit OpenKNN(const kt_ClassifierKNN& other) : kt_ClassifierKNN(other) {}
    using kt_Classifier::storedParams;
    using kt_ClassifierKNN::checkRunnable_;
    using kt_ClassifierKNN::isTrained_;
    using kt_ClassifierKNN::retrain_;
    using kt_ClassifierKNN::run_;
    using kt_ClassifierKNN::serialize_;
    using kt_ClassifierKNN::train_;
    using kt_ClassifierKNN::trainIncremental_;
    using kt_ClassifierKNN::trainStart_;
    using kt_ClassifierKNN::untrain_;
};

/// Takes itself for trained whatever it holds.
struct AlwaysTrained : OpenKNN {
    bool isTrained_() const override { return true; }
};

/// On a line, so that distances are easy to see.
inline const std::vector<kt_test::Labelled> line = {{{0}, 2}, {{1}, 2}, {{3}, 5}, {{10}, 7}, {{20}, 7}};

inline OpenKNN trained(const std::vector<kt_test::Labelled>& rows, const ktClassifierTrainParamsKNN& params)
{
    OpenKNN classifier;
    classifier.train(kt_test::trainingData(rows), params);
    return classifier;
}

inline ktClassifierResult answer(const kt_Classifier& classifier, const std::vector<double>& measurements)
{
    ktClassifierResult result = kt_test::untouchedResult();
    classifier.run(ktFeaturePattern(measurements, {}), result);
    return result;
}

/// Expects the error from a run, and the caller's result untouched.
template <class Error>
void expectRunThrows(const kt_Classifier& classifier, const ktFeaturePattern& query, const std::string& message)
{
    ktClassifierResult result = kt_test::untouchedResult();
    kt_test::expectThrows<Error>(message, [&] { classifier.run(query, result); });
    EXPECT_TRUE(result == kt_test::untouchedResult());
}

}  // namespace neighbors
