#pragma once

#include <clastool/clastool.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

// A graph of objects that share parts, and a builder that grows it as an input says.

namespace object_graph {

using Types = ktClassifierDistributionTypes;
template <class T>
using Handles = std::vector<ktPtrHandle<T>>;

/// The input, as the numbers that a builder asks for; zeros behind its end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool isEmpty() const { return next_ == end_; }
    unsigned byte() { return isEmpty() ? 0 : *next_++; }
    bool flag() { return byte() % 2 != 0; }
    long label() { return static_cast<long>(byte() % 6) - 1; }
    /// Any number but NaN, which equals nothing.
    double number()
    {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        static constexpr double special[] = {0.0, -0.0, 1.0, 0.5, 1e300, -1e300, 5e-324, infinity, -infinity, 1e-18};
        const unsigned which = byte();
        return which < std::size(special) ? special[which] : (static_cast<double>(which) - 128.0) / 8.0;
    }
    std::vector<double> numbers()
    {
        std::vector<double> all(byte() % 5);
        for (double& each : all) {
            each = number();
        }
        return all;
    }
    std::vector<long> indices()
    {
        std::vector<long> all(byte() % 4);
        for (long& each : all) {
            each = byte() % 5;
        }
        return all;
    }
    std::string text()
    {
        std::string all(byte() % 5, ' ');
        for (char& each : all) {
            each = static_cast<char>(byte());
        }
        return all;
    }
    /// One of those that there are.
    template <class T>
    T& oneOf(std::vector<T>& all)
    {
        return all[byte() % all.size()];
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

/// Runs one step; what the library refuses leaves the graph as it was.
template <class Step>
void attempt(Step step)
{
    try {
        step();
    } catch (const ktException&) {
    }
}

struct Graph {
    Handles<const ktFeaturePattern> patterns;
    Handles<ktClassifierDataProviderMemory> providers;
    Handles<ktPatternDistanceMetric> metrics;
    Handles<ktPredicateFunction> predicates;
    Handles<ktDecisionTree> trees;
    Handles<ktClassifierTrainParams> params;
    Handles<kt_ProbabilityDensityFunction> densities;
    Handles<kt_CategoryModel> models;
    Handles<kt_Classifier> classifiers;
    std::vector<ktClassifierTool> tools;
    std::vector<ktClassifierCosts> costs;
    std::vector<ktClassifierFrequencies> frequencies;
    std::vector<Types> types;
    std::vector<ktClassifierResult> results;
    std::vector<ktClassifierRule> rules;
    std::vector<std::string> texts;
    std::vector<bool> flags;
    std::vector<double> numbers;
    std::vector<long> labels;
    std::vector<std::vector<unsigned long>> words;
};

inline ktArchive& operator||(ktArchive& archive, Graph& graph)
{
    const ktArchive::Pass pass(archive);
    return archive || graph.trees || graph.tools || graph.patterns || graph.providers || graph.metrics ||
           graph.predicates || graph.params || graph.densities || graph.models || graph.classifiers || graph.costs ||
           graph.frequencies || graph.types || graph.results || graph.rules || graph.texts || graph.flags ||
           graph.numbers || graph.labels || graph.words;
}

/// Grows a graph step by step. Each kind of object has one to begin with, so that there always is one to build on.
class Builder {
public:
    explicit Builder(Input& input) : in_(input)
    {
        graph_.patterns = {new ktFeaturePattern({0.5, 2.0}, {})};
        graph_.providers = {new ktClassifierDataProviderMemory};
        graph_.metrics = {new ktPatternDistanceMetricNorm};
        graph_.predicates = {new ktValidityPredicate};
        graph_.trees = {new ktDecisionTreeLeaf};
        graph_.params = {new ktClassifierTrainParamsKNN, new ktClassifierTrainParamsBayesian};
        graph_.densities = {new kt_PDFMultivariateNormal, new kt_PDFBinomial(ktFeaturePattern({9.0}, {}))};
        graph_.models = {new kt_CategoryModelBayesian(1, {{0}, {1, 2}}, {Types::eNormal, Types::eNormal}, {})};
        graph_.classifiers = {new kt_ClassifierKNN, new kt_ClassifierBayesian, new kt_ClassifierDecisionTree};
        graph_.tools.resize(1);
        graph_.costs.resize(1);
        graph_.frequencies.resize(1);
        graph_.types.resize(1);
        graph_.results.resize(1);
        graph_.rules.resize(1);
    }

    Graph build()
    {
        static constexpr void (Builder::*steps[])() = {
            &Builder::addPattern,   &Builder::addData,     &Builder::addProvider, &Builder::addMetric,
            &Builder::addPredicate, &Builder::addNode,     &Builder::addLeaf,     &Builder::addKnnParams,
            &Builder::addBayesian,  &Builder::learn,       &Builder::adapt,       &Builder::addModel,
            &Builder::train,        &Builder::trainByHand, &Builder::trainMore,   &Builder::trainTool,
            &Builder::changeCosts,  &Builder::changeOdds,  &Builder::changeTypes, &Builder::addResult,
            &Builder::addRule,      &Builder::addPlain,    &Builder::shareAgain,  &Builder::addNulls};
        while (!in_.isEmpty()) {
            const auto step = steps[in_.byte() % std::size(steps)];
            attempt([&] { (this->*step)(); });
        }
        return std::move(graph_);
    }

private:
    const ktFeaturePattern& pattern() { return *in_.oneOf(graph_.patterns); }

    void addPattern()
    {
        const std::vector<double> values = in_.numbers();
        graph_.patterns.push_back(new ktFeaturePattern(values, in_.indices()));
    }
    void addData()
    {
        const ktPtrHandle<const ktFeaturePattern> pattern = in_.oneOf(graph_.patterns);
        if (pattern) {
            in_.oneOf(graph_.providers)->addData(pattern, in_.label());
        }
    }
    void addProvider()
    {
        const ktPtrHandle<ktClassifierDataProviderMemory> provider(
            new ktClassifierDataProviderMemory(*in_.oneOf(graph_.providers)));
        provider->setName(in_.text());
        provider->setDescription(in_.text());
        graph_.providers.push_back(provider);
    }
    void addMetric() { graph_.metrics.push_back(new ktPatternDistanceMetricNorm(in_.number())); }
    void addPredicate()
    {
        const unsigned kind = in_.byte() % 3;
        if (kind == 0) {
            graph_.predicates.push_back(new ktComparisonPredicate(in_.label() + 1, in_.label() + 2));
        } else if (kind == 1) {
            const double low = in_.number();
            graph_.predicates.push_back(new ktRangePredicate(ktRange(low, in_.number()), in_.indices()));
        } else {
            graph_.predicates.push_back(new ktValidityPredicate(in_.indices()));
        }
    }
    void addNode()
    {
        const ktPtrHandle<ktDecisionTree> yes = in_.oneOf(graph_.trees);
        const ktPtrHandle<ktDecisionTree> no = in_.oneOf(graph_.trees);
        graph_.trees.push_back(new ktDecisionTreeNode(*in_.oneOf(graph_.predicates), *yes, *no));
    }
    void addLeaf() { graph_.trees.push_back(new ktDecisionTreeLeaf(in_.oneOf(graph_.results))); }
    void addKnnParams()
    {
        const long k = in_.label() + 1;
        graph_.params.push_back(new ktClassifierTrainParamsKNN(k, *in_.oneOf(graph_.metrics), in_.oneOf(graph_.costs)));
    }
    void addBayesian()
    {
        graph_.params.push_back(new ktClassifierTrainParamsBayesian(
            in_.oneOf(graph_.types), in_.oneOf(graph_.frequencies), in_.oneOf(graph_.costs), pattern()));
    }
    void learn()
    {
        const ktPtrHandle<kt_ProbabilityDensityFunction> density = in_.oneOf(graph_.densities);
        if (in_.flag()) {
            graph_.densities.push_back(new kt_PDFMultivariateNormal);
            graph_.densities.push_back(new kt_PDFBinomial(pattern()));
        }
        density->updateWithData({pattern()});
    }
    void adapt() { in_.oneOf(graph_.models)->adapt(pattern(), nullptr, 0); }
    void addModel()
    {
        const std::vector<std::vector<long>> groups = {in_.indices(), in_.indices()};
        const auto type = static_cast<Types::DistributionType>(in_.byte() % 2);
        graph_.models.push_back(new kt_CategoryModelBayesian(in_.label(), groups, {type, Types::eNormal}, pattern()));
    }
    void train()
    {
        const ktPtrHandle<kt_Classifier> classifier = in_.oneOf(graph_.classifiers)->clone();
        graph_.classifiers.push_back(classifier);
        const auto& provider = *in_.oneOf(graph_.providers);
        classifier->train(provider, *in_.oneOf(graph_.params));
    }
    void trainByHand()
    {
        const ktPtrHandle<kt_ClassifierDecisionTree> classifier(new kt_ClassifierDecisionTree);
        classifier->trainManual(*in_.oneOf(graph_.trees));
        graph_.classifiers.push_back(classifier);
    }
    void trainMore()
    {
        kt_Classifier& classifier = *in_.oneOf(graph_.classifiers);
        if (in_.flag()) {
            classifier.trainStart(*in_.oneOf(graph_.params));
        }
        classifier.trainIncremental(pattern(), in_.label());
    }
    void trainTool()
    {
        graph_.tools.emplace_back();
        if (in_.flag()) {
            graph_.tools.back().train(*in_.oneOf(graph_.trees));
        } else {
            const auto& provider = *in_.oneOf(graph_.providers);
            graph_.tools.back().train(provider, *in_.oneOf(graph_.params));
        }
    }
    void changeCosts()
    {
        graph_.costs.push_back(graph_.costs.back());
        const long from = in_.label();
        const long to = in_.label();
        graph_.costs.back().misclassificationCostOverride(from, to, in_.number());
    }
    void changeOdds()
    {
        graph_.frequencies.push_back(graph_.frequencies.back());
        const long label = in_.label();
        graph_.frequencies.back().categoryFrequencyOverride(label, in_.number());
    }
    void changeTypes()
    {
        graph_.types.push_back(graph_.types.back());
        const long label = in_.label();
        if (in_.flag()) {
            graph_.types.back().setDependent(label, in_.indices());
        } else {
            const auto type = static_cast<Types::DistributionType>(in_.byte() % 4);
            graph_.types.back().distributionTypeOverride(label, in_.label(), type);
        }
    }
    void addResult()
    {
        std::vector<ktClassifierCategoryResult> entries;
        for (unsigned i = in_.byte() % 4; i > 0; --i) {
            const long label = in_.label();
            entries.emplace_back(label, 0.5, 0.25, in_.number());
        }
        graph_.results.push_back(ktClassifierResult(entries, in_.number()));
    }
    void addRule()
    {
        Handles<ktClsFtSc> methods;
        for (unsigned i = in_.byte() % 4; i > 0; --i) {
            const unsigned kind = in_.byte() % 3;
            if (kind == 0) {
                methods.push_back(new ktClassifierFeatureScoreIgnore);
            } else if (kind == 1) {
                ktPtrHandle<ktClassifierFeatureScoreOneSided> score(new ktClassifierFeatureScoreOneSided);
                score->x0(in_.number());
                methods.push_back(score);
            } else {
                methods.push_back(new ktClassifierFeatureScoreTwoSided);
            }
        }
        ktClassifierRule rule;
        rule.init(methods, in_.label());
        graph_.rules.push_back(rule);
    }
    void addPlain()
    {
        graph_.texts.push_back(in_.text());
        graph_.flags.push_back(in_.flag());
        graph_.numbers.push_back(in_.number());
        graph_.labels.push_back(in_.label());
        graph_.words.emplace_back(in_.byte() % 3, 0xFFFFFFFFUL - in_.byte());
    }
    void shareAgain()
    {
        graph_.patterns.push_back(in_.oneOf(graph_.patterns));
        graph_.trees.push_back(in_.oneOf(graph_.trees));
        graph_.densities.push_back(in_.oneOf(graph_.densities));
        graph_.models.push_back(in_.oneOf(graph_.models));
        graph_.classifiers.push_back(in_.oneOf(graph_.classifiers));
        graph_.params.push_back(in_.oneOf(graph_.params));
    }
    void addNulls()
    {
        graph_.patterns.push_back(nullptr);
        graph_.trees.push_back(nullptr);
        graph_.models.push_back(nullptr);
    }

    Input& in_;
    Graph graph_;
};

}  // namespace object_graph
