#pragma once

#include "support/messages.h"
#include "support/technique.h"
#include "support/test.h"

// What the tests of the tool share.

namespace kt_test {

using Calls = std::vector<std::string>;
using Knn = ktClassifierTrainParamsKNN;
using Patterns = std::vector<PatternHandle>;
using Results = std::vector<ktClassifierResult>;
using Stop = std::runtime_error;

/// On a line, so that distances are easy to see.
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

/// Enough for a search of several queries at once.
inline constexpr long numKept = 700;

/// A tool of `numKept` patterns.
inline ktClassifierTool neighborsTool(long k = 5, double order = 2.0)
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < numKept; ++i) {
        data.addData(pattern(measurementsWithTies(i)), i % 7);
    }
    ktClassifierTool tool;
    tool.train(data, Knn(k, ktPatternDistanceMetricNorm(order), ktClassifierCosts(1.0)));
    return tool;
}

inline Patterns queries(long count)
{
    Patterns patterns;
    for (long i = 0; i < count; ++i) {
        patterns.push_back(pattern(measurementsWithTies(5 * i + 3)));
    }
    return patterns;
}

/// Three results, to see whether a batch left them alone.
inline Results untouched()
{
    return {untouchedResult(), ktClassifierResult(), untouchedResult()};
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
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before requesting the decision tree.",
                                               [&] { tool.decisionTree(); });
    EXPECT_TRUE(tool == ktClassifierTool());
    EXPECT_NO_THROW(tool.untrain());
    EXPECT_FALSE(tool.isTrained());
}

/// Two sets of parameters for a technique of the user's own, and a diagnostics object that sends recordings elsewhere and sets
/// a flag.
class Scripted : public ::testing::Test {
protected:
    Scripted() { caller_.sendTo(&destination_); }
    /// What is called during a call may use what the body of the test held.
    void TearDown() override { script_.during = nullptr; }

    Script script_;
    TechniqueParams params_{script_, 1};
    TechniqueParams otherParams_{script_, 2};
    const ktClassifierDataProviderMemory data_ = trainingData({{{3}, 1}});
    Recorder destination_{"destination"};
    Recorder caller_{"caller", 8};
};

/// The technique itself.
class Frame : public Scripted {
protected:
    /// Trains with parameters of value 1 and forgets what that noted.
    void trainWithFirst()
    {
        technique_.train(data_, params_);
        script_.takeCalls();
    }

    Technique technique_{script_};
};

/// A tool that is trained with the technique.
class Tool : public Scripted {
protected:
    /// Trains with parameters of value 1 and forgets what that noted.
    void trainWithTechnique()
    {
        tool_.train(data_, params_);
        script_.takeCalls();
    }

    ktClassifierTool tool_;
};

/// Parameters of another technique.
struct OtherParams : TechniqueParams {
    using TechniqueParams::TechniqueParams;
};

}  // namespace kt_test
