#include "provocations.h"

namespace documents {

namespace {

using namespace kt_test;
using Types = ktClassifierDistributionTypes;

/// Parameters that fail when they are asked for their classifier.
class WithoutClassifier : public ktClassifierTrainParams {
public:
    ktPtrHandle<ktClassifierTrainParams> clone() const override { return new WithoutClassifier(*this); }

protected:
    bool isSameTechnique_(const ktClassifierTrainParams&) const override { return true; }
    kt_Classifier* newClassifier_() const override { throw std::runtime_error("none"); }
};

ktClassifierTool neighbors()
{
    ktClassifierTool tool;
    tool.train(trainingData({{{1.0, 2.0}, 0}, {{2.0, 1.0}, 1}}), ktClassifierTrainParamsKNN(1));
    return tool;
}

ktClassifierTool bayes()
{
    ktClassifierTool tool;
    tool.train(trainingData({{{1.0, 2.0}, 0}, {{2.0, 1.0}, 1}}), ktClassifierTrainParamsBayesian());
    return tool;
}

ktClassifierTool tree()
{
    ktClassifierTool tool;
    tool.train(ktDecisionTreeLeaf(ktClassifierResult({{0, 1.0, 1.0, 0.0}}, 0.0)));
    return tool;
}

void run(const ktClassifierTool& tool, const ktFeaturePattern& pattern)
{
    ktClassifierResult result;
    tool.run(pattern, result);
}

void resultOf(const std::vector<ktClassifierCategoryResult>& matches)
{
    ktClassifierResult(matches, ktClassifierFrequencies(), ktClassifierCosts(), 0.0);
}

kt_CategoryModelBayesian modelOf(Types::DistributionType type)
{
    return kt_CategoryModelBayesian(3, {{0}}, {type}, ktFeaturePattern());
}

ktClassifierRule ruleOf(std::size_t width)
{
    ktClassifierRule rule;
    rule.init(std::vector<ktPtrHandle<ktClsFtSc>>(width, new ktClassifierFeatureScoreIgnore), 0);
    return rule;
}

ktClassifierRuleTable tableOf(const std::vector<ktClassifierRule>& rules)
{
    ktClassifierRuleTable table;
    table.train(rules);
    return table;
}

ktClassifierFeatureVector values(std::size_t count)
{
    return ktClassifierFeatureVector(std::vector<double>(count, 1.0));
}

std::vector<Provocation> badParams()
{
    return {
        {"Costs must be >= 0.0", [] { ktClassifierCosts(-1.0); }},
        {"Category frequencies must be > 0.0", [] { ktClassifierFrequencies(0.0); }},
        {"Scores must be >= 0.0 and <= 1.0", [] { ktClassifierCategoryResult(0, 1.5, 0.0, 0.0); }},
        {"The category labels of the match results must be unique.",
         [] {
             resultOf({{0, 0.5, 0.0, 0.0}, {0, 0.5, 0.0, 0.0}});
         }},
        {"At least one of the category frequencies must be > 0.", [] { resultOf({}); }},
        {"At least one of the resulting classification scores must be > 0.",
         [] {
             resultOf({{0, 0.0, 0.0, 0.0}});
         }},
        {"At least one of the classification scores must be > 0.",
         [] { ktClassifierResult(std::vector<ktClassifierCategoryResult>(), 0.0); }},
        {"The training parameters are for a different classification technique.",
         [] { kt_ClassifierKNN().train(trainingData({}), ktClassifierTrainParamsBayesian()); }},
        {"Cannot override distribution type of a feature measurement that is already part of a dependency set.",
         [] {
             Types types;
             types.setDependent(0, {0, 1});
             types.distributionTypeOverride(0, 0, Types::eBinomial);
         }},
        {"The distribution types of dependent feature measurements must be the same.",
         [] {
             Types types;
             types.distributionTypeOverride(0, 0, Types::eBinomial);
             types.setDependent(0, {0, 1});
         }},
        {"Must call clear before updating with feature vectors of different sizes",
         [] {
             kt_PDFMultivariateNormal().updateWithData({ktFeaturePattern({1.0}, {}), ktFeaturePattern()});
         }},
        {"Train data measurement cannot exceed its maximum value when using binomial distribution",
         [] { kt_PDFBinomial().updateWithData({ktFeaturePattern({2.0}, {})}); }},
        {"Feature measurement must be <= specified maximum value",
         [] {
             kt_PDFBinomial density;
             density.updateWithData({ktFeaturePattern({0.25}, {}), ktFeaturePattern({0.75}, {})});
             density.logValue(ktFeaturePattern({2.0}, {}));
         }},
        {"Unknown distribution type", [] { modelOf(static_cast<Types::DistributionType>(7)); }},
        {"Cannot retrain a Bayesian classifier with different distribution types.",
         [] { bayes().retrain(ktClassifierTrainParamsBayesian(Types(Types::eBinomial))); }},
        {"Cannot retrain a Bayesian classifier with different maximum measurements values.",
         [] {
             bayes().retrain(ktClassifierTrainParamsBayesian(Types(), ktClassifierFrequencies(), ktClassifierCosts(),
                                                             ktFeaturePattern({2.0}, {})));
         }},
        {"Measurement indices must be different.", [] { ktComparisonPredicate(1, 1); }},
        {"Order of norm distance must be > 0", [] { ktPatternDistanceMetricNorm(0.0); }},
        {"K must be >= 1", [] { ktClassifierTrainParamsKNN(0); }},
    };
}

std::vector<Provocation> badParamsOfRules()
{
    return {
        {"y0 must be between 0 and 1", [] { ktClassifierFeatureScoreOneSided().y0(2.0); }},
        {"y1 must be between 0 and 1", [] { ktClassifierFeatureScoreOneSided().y1(2.0); }},
        {"y0h must be between 0 and 1", [] { ktClassifierFeatureScoreTwoSided().y0h(2.0); }},
        {"y1h must be between 0 and 1", [] { ktClassifierFeatureScoreTwoSided().y1h(2.0); }},
        {"x1 must be lie between x0 and xc", [] { ktClassifierFeatureScoreOneSided().init(0.0, 5.0, 1.0, 0.0, 1.0); }},
        {"x1 must lie between x0 and xc",
         [] {
             ktClassifierFeatureScoreOneSided score;
             score.x1(5.0);
             score.score(0.0);
         }},
        {"x0 > lowest || x1 > lowest || xc > lowest",
         [] { ktClassifierFeatureScoreTwoSided().init(0.0, 1.0, 5.0, 3.0, 2.0, 1.0, 0.0, 1.0, 0.0, 1.0); }},
        {"Bad x values",
         [] {
             ktClassifierFeatureScoreTwoSided score;
             score.x0(5.0);
             score.score(0.0);
         }},
        {"label < 0", [] { ktClassifierRule().init({new ktClassifierFeatureScoreIgnore}, -1); }},
        {"scoringMethods.size() == 0", [] { ktClassifierRule().init({}, 0); }},
        {"MismatchedFeatureVectorSize", [] { ruleOf(1).score(values(2)); }},
        {"featureVector.featureValues().size() == 0",
         [] { tableOf({ruleOf(1)}).classifyHardThreshold(values(0), 0.5); }},
        {"rules.size() == 0", [] { tableOf({}); }},
        {"rules[i].scoringMethods().size() != ruleSize",
         [] {
             tableOf({ruleOf(1), ruleOf(2)});
         }},
        {"hardThreshold < 0 || hardThreshold > 1", [] { tableOf({ruleOf(1)}).classifyHardThreshold(values(1), 2.0); }},
        {"featureVector.featureValues().size() != rules_[0].scoringMethods().size())",
         [] { tableOf({ruleOf(1)}).classifyHardThreshold(values(2), 0.5); }},
    };
}

std::vector<Provocation> badState()
{
    return {
        {"Classifier tool must be trained before running.", [] { run(ktClassifierTool(), ktFeaturePattern()); }},
        {"Classifier tool must be trained before retraining.",
         [] { ktClassifierTool().retrain(ktClassifierTrainParamsKNN()); }},
        {"Classifier tool must be trained before requesting the training parameters.",
         [] { ktClassifierTool().trainParams(); }},
        {"Classifier tool must be trained before requesting the decision tree.",
         [] { ktClassifierTool().decisionTree(); }},
        {"Classifier tool must be trained before incremental training.",
         [] { kt_ClassifierKNN().trainIncremental(ktFeaturePattern(), 0); }},
        {"the rule table needs to be trained before it can classify",
         [] { ktClassifierRuleTable().classifyHardThreshold(values(1), 0.5); }},
        {"Cannot retrain with a different classification technique.",
         [] { neighbors().retrain(ktClassifierTrainParamsBayesian()); }},
        {"Classifier tool was not automatically trained.", [] { tree().trainParams(); }},
        {"Classifier tool was not trained using a decision tree.", [] { neighbors().decisionTree(); }},
        {"The classification method specified by the training parameters is not implemented.",
         [] { ktClassifierTool().train(trainingData({}), WithoutClassifier()); }},
        {"Poisson distribution is not implemented", [] { modelOf(Types::ePoisson); }},
        {"Uniform distribution is not implemented", [] { modelOf(Types::eUniform); }},
        {"Multivariate Binomial Distributions are not implemented",
         [] {
             kt_PDFBinomial().updateWithData({ktFeaturePattern({0.1, 0.2}, {})});
         }},
        {"Automatic decision tree training is not implemented.",
         [] { kt_ClassifierDecisionTree().train(trainingData({}), ktClassifierTrainParamsKNN()); }},
        {"Incremental decision tree training is not implemented.",
         [] { kt_ClassifierDecisionTree().trainStart(ktClassifierTrainParamsKNN()); }},
        {"No valid data was provided for training.",
         [] { ktClassifierTool().train(trainingData({}), ktClassifierTrainParamsKNN()); }},
        {"No valid data has been used to train the distribution",
         [] { kt_PDFMultivariateNormal().logValue(ktFeaturePattern({1.0}, {})); }},
        {"No valid data has been used to train the distribution for category <label>",
         [] { modelOf(Types::eNormal).matchScore(ktFeaturePattern({1.0}, {}), nullptr, 0); }},
        {"Insufficient data has been used to train the distribution",
         [] { kt_PDFBinomial().logValue(ktFeaturePattern({1.0}, {})); }},
        {"Insufficient data has been used to train the distribution for category <label>",
         [] { modelOf(Types::eBinomial).matchScore(ktFeaturePattern({1.0}, {}), nullptr, 0); }},
    };
}

std::vector<Provocation> badData()
{
    return {
        {"Feature measurement indices must be >= 0", [] { ktFeaturePattern().isValid(-1); }},
        {"Feature measurement indices must be < number of features", [] { ktFeaturePattern({1.0}, {1}); }},
        {"Feature pattern index must be >=0 and < number of patterns.",
         [] { ktClassifierDataProviderMemory().featurePattern(0); }},
        {"Category label index must be >=0 and < number of patterns.",
         [] { ktClassifierDataProviderMemory().categoryLabel(0); }},
        {"Measurement index must be >= 0 and < number of measurements.", [] { ktValidityPredicate({-1}); }},
        {"Category labels must be >= 0", [] { ktClassifierFrequencies().categoryFrequency(-1); }},
        {"Category labels must be different", [] { ktClassifierCosts().misclassificationCost(1, 1); }},
        {"Category labels must be >= 0 or unknown",
         [] { ktClassifierDataProviderMemory().addData(pattern({1.0}), -2); }},
        {"Cateogory labels must be >= 0", [] { Types().distributionType(-1, 0); }},
        {"K-nearest neighbor classification does not support invalid measurements",
         [] {
             run(neighbors(), ktFeaturePattern({1.0, 2.0}, {0}));
         }},
        {"The measurement for the specified measurement index is not valid.",
         [] { ktFeaturePattern().featureMeasurement(0, true); }},
        {"Access to full feature vector requires that all features are valid.",
         [] { ktFeaturePattern({1.0}, {0}).featureMeasurements(true); }},
        {"Feature pattern must have the same number of measurements as the rest of the data.",
         [] {
             trainingData({{{1.0}, 0}, {{1.0, 2.0}, 0}});
         }},
        {"Feature patterns must all have the same number of measurements",
         [] {
             ktClassifierDataProviderMemory().data({pattern({1.0}), pattern({1.0, 2.0})}, {0, 0});
         }},
        {"The number of the feature patterns must be equal to the number of category labels",
         [] { ktClassifierDataProviderMemory().data({pattern({1.0})}, {}); }},
        {"Pattern distance function requires the number of measurementsin the two patterns to be equal",
         [] { ktPatternDistanceMetricNorm().distance(ktFeaturePattern({1.0}, {}), ktFeaturePattern()); }},
    };
}

}  // namespace

std::vector<Provocation> provocationsOfClassification()
{
    std::vector<Provocation> all;
    for (const auto& some : {badParams(), badParamsOfRules(), badState(), badData()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace documents
