#pragma once

#include "support/technique.h"
#include "support/test.h"

// What the tests of the tool share.

namespace kt_test {

inline constexpr const char* notTrainedToRun = "Classifier tool must be trained before running.";
inline constexpr const char* notTrainedToRetrain = "Classifier tool must be trained before retraining.";
inline constexpr const char* notTrainedForParams =
    "Classifier tool must be trained before requesting the training parameters.";
inline constexpr const char* notTrainedForTree = "Classifier tool must be trained before requesting the decision tree.";
inline constexpr const char* noData = "No valid data was provided for training.";

inline const std::vector<Labelled> line = {{{0}, 2}, {{1}, 2}, {{3}, 5}, {{10}, 7}, {{20}, 7}};

inline ktClassifierTool trainedKnn(const ktClassifierTrainParamsKNN& params = ktClassifierTrainParamsKNN(3),
                                   const std::vector<Labelled>& rows = line)
{
    ktClassifierTool tool;
    tool.train(trainingData(rows), params);
    return tool;
}

inline ktDecisionTreeLeaf leaf(long label)
{
    return ktDecisionTreeLeaf(ktClassifierResult({ktClassifierCategoryResult(label, 1.0, 1.0, 0.0)}, 0.0));
}

/// Measurement 0 > measurement 1: label 4, else label 6.
inline ktDecisionTreeNode someTree()
{
    return ktDecisionTreeNode(ktComparisonPredicate(), leaf(4), leaf(6));
}

inline ktClassifierTool trainedTree(const ktDecisionTree& tree = someTree())
{
    ktClassifierTool tool;
    tool.train(tree);
    return tool;
}

inline ktClassifierResult answer(const ktClassifierTool& tool, const std::vector<double>& measurements)
{
    ktClassifierResult result = untouchedResult();
    tool.run(ktFeaturePattern(measurements, {}), result);
    return result;
}

/// Expects a tool that is not trained: nothing is answered, and nothing it is given changes.
inline void expectUntrained(ktClassifierTool& tool)
{
    EXPECT_FALSE(tool.isTrained());
    ktClassifierResult result = untouchedResult();
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedToRun, [&] { tool.run(*pattern({0}), result); });
    EXPECT_TRUE(result == untouchedResult());
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedToRetrain,
                                               [&] { tool.retrain(ktClassifierTrainParamsKNN()); });
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedForParams, [&] { tool.trainParams(); });
    expectThrows<ktClassifierDefs::NotTrained>(notTrainedForTree, [&] { tool.decisionTree(); });
    EXPECT_TRUE(tool == ktClassifierTool());
    EXPECT_NO_THROW(tool.untrain());
    EXPECT_FALSE(tool.isTrained());
}

/// A tool, a technique of the user's own, and a diagnostics object that sends recordings elsewhere and sets a flag.
class Tool : public ::testing::Test {
protected:
    Tool() { caller_.sendTo(&destination_); }
    ~Tool() override { script_.during = nullptr; }

    /// Trains with parameters of value 1 and forgets what that noted.
    void trainWithTechnique()
    {
        tool_.train(data_, params_);
        script_.takeCalls();
    }

    Script script_;
    TechniqueParams params_{script_, 1};
    TechniqueParams otherParams_{script_, 2};
    const ktClassifierDataProviderMemory data_ = trainingData({{{3}, 1}});
    Recorder destination_{"destination"};
    Recorder caller_{"caller", 8};
    ktClassifierTool tool_;
};

}  // namespace kt_test
