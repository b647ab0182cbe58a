#include "allocation_scenarios.h"
#include "bayes/bayes_kit.h"

namespace trust {

namespace {

using Types = ktClassifierDistributionTypes;
using Params = ktClassifierTrainParamsBayesian;
using Classifier = kt_ClassifierBayesian;

std::vector<ktFeaturePattern> threePatterns()
{
    return {{{1.0, 2.0}, {}}, {{2.0, 1.5}, {}}, {{4.0, 0.5}, {}}};
}

/// A joint group and a binomial measurement in category 1, all normal in category 2.
Types mixedTypes()
{
    Types types;
    types.setDependent(1, {0, 2});
    types.distributionTypeOverride(1, 1, Types::eBinomial);
    return types;
}

Params mixedParams()
{
    ktClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(1, 3.0);
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(1, 2, 7.0);
    return Params(mixedTypes(), frequencies, costs, ktFeaturePattern({1.0, 20.0, 1.0}, {}));
}

ktClassifierDataProviderMemory someData()
{
    return kt_test::trainingData({{{1.0, 4.0, 0.5}, 1},
                                  {{2.0, 7.0, 1.5}, 1},
                                  {{3.0, 5.0, 0.0}, 1},
                                  {{7.0, 4.0, 9.0}, 2},
                                  {{8.0, 6.0, 8.0}, 2},
                                  {{5.0, 5.0, 5.0}, -1}});
}

Classifier trained(const Params& params)
{
    Classifier classifier;
    classifier.train(someData(), params);
    return classifier;
}

void listDistributionTypes(ScenarioList& list)
{
    Types sets;
    sets.setDependent(0, {1, 2});
    sets.setDependent(0, {9});
    sets.setDependent(0, {5, 6});
    sets.distributionTypeOverride(1, 0, Types::eBinomial);
    list.makes(
        "distribution types: made", [] { return Types(Types::eBinomial); }, Allocates::nothing);
    list.values("distribution types", mixedTypes(), sets);
    list.keeps(
        "distribution types: first override", [] { return Types(); },
        [](Types& types) { types.distributionTypeOverride(3, 4, Types::eBinomial); });
    list.keeps(
        "distribution types: override that needs room", [sets] { return sets; },
        [](Types& types) { types.distributionTypeOverride(3, 4, Types::ePoisson); });
    list.keeps(
        "distribution types: override replaced", [sets] { return sets; },
        [](Types& types) { types.distributionTypeOverride(1, 0, Types::ePoisson); }, Allocates::nothing);
    list.keeps(
        "distribution types: refuse to override a member of a set", [sets] { return sets; },
        refused([](Types& types) { types.distributionTypeOverride(0, 9, Types::eBinomial); }));
    list.keeps(
        "distribution types: first set", [] { return Types(); },
        [](Types& types) {
            types.setDependent(0, {3, 1});
        });
    list.keeps(
        "distribution types: set that touches none", [sets] { return sets; },
        [](Types& types) {
            types.setDependent(0, {3, 4});
        });
    list.keeps(
        "distribution types: set that joins two", [sets] { return sets; },
        [](Types& types) {
            types.setDependent(0, {2, 7, 5});
        });
    list.keeps(
        "distribution types: refuse a set of two types", [sets] { return sets; }, refused([](Types& types) {
            types.setDependent(1, {0, 1});
        }));
    list.asks(
        "distribution types: asked for a type and whether measurements depend", sets,
        [indices = std::vector<long>{6, 5}](const Types& types) {
            return static_cast<long>(types.distributionType(1, 0)) + (types.isDependent(0, indices) ? 10 : 0);
        },
        Allocates::nothing);
    list.keeps(
        "distribution types: cleared", [sets] { return sets; },
        [](Types& types) {
            types.defaultDistributionType(Types::eBinomial);
            types.clearDistributionOverrides();
        },
        Allocates::nothing);
}

void listNormal(ScenarioList& list)
{
    using Normal = kt_PDFMultivariateNormal;
    Normal learnt;
    learnt.updateWithData(threePatterns());
    list.makes(
        "normal: made", [] { return Normal(); }, Allocates::nothing);
    list.values("normal", Normal(), learnt);
    list.keeps(
        "normal: first patterns learnt", [] { return Normal(); },
        [patterns = threePatterns()](Normal& density) { density.updateWithData(patterns); });
    list.keeps(
        "normal: more patterns learnt", [learnt] { return learnt; },
        [patterns = threePatterns()](Normal& density) { density.updateWithDataNormalize(patterns, 2.0); });
    list.keeps(
        "normal: refuses patterns of another size", [learnt] { return learnt; },
        refused([](Normal& density) { density.updateWithData({ktFeaturePattern({1.0}, {})}); }));
    list.asks(
        "normal: evaluated the first time", learnt,
        [query = ktFeaturePattern({1.0, 1.0}, {})](const Normal& density) { return Normal(density).logValue(query); });
    list.asks(
        "normal: evaluated without one measurement", learnt,
        [query = ktFeaturePattern({1.0, 1.0}, {0})](const Normal& density) { return Normal(density).logValue(query); });
    list.keeps(
        "normal: refuses to be evaluated untrained", [] { return Normal(); },
        refused([query = ktFeaturePattern({1.0}, {})](const Normal& density) { density.logValue(query); }));
    list.asks("normal: asked for mean", learnt, [](const Normal& density) { return density.mean(); });
    list.asks("normal: asked for covariance", learnt, [](const Normal& density) { return density.covariance(); });
    list.keeps(
        "normal: cleared", [learnt] { return learnt; }, [](Normal& density) { density.clear(); }, Allocates::nothing);
}

void listBinomial(ScenarioList& list)
{
    using Binomial = kt_PDFBinomial;
    const std::vector<ktFeaturePattern> patterns{{{1.0}, {}}, {{4.0}, {}}, {{3.0}, {}}};
    const ktFeaturePattern maximum({20.0}, {});
    Binomial learnt(maximum);
    learnt.updateWithData(patterns);
    list.makes(
        "binomial: made", [] { return Binomial(); }, Allocates::nothing);
    list.makes(
        "binomial: made with a maximum", [maximum] { return Binomial(maximum); }, Allocates::nothing);
    list.values("binomial", Binomial(), learnt);
    list.keeps(
        "binomial: first patterns learnt", [maximum] { return Binomial(maximum); },
        [patterns](Binomial& density) { density.updateWithData(patterns); });
    list.keeps(
        "binomial: more patterns learnt", [learnt] { return learnt; },
        [patterns](Binomial& density) { density.updateWithData(patterns); });
    list.keeps(
        "binomial: refuses a measurement above its maximum", [learnt] { return learnt; },
        refused([](Binomial& density) { density.updateWithData({ktFeaturePattern({21.0}, {})}); }));
    list.asks(
        "binomial: evaluated", learnt,
        [query = ktFeaturePattern({5.0}, {})](const Binomial& density) { return density.logValue(query); },
        Allocates::nothing);
    list.keeps(
        "binomial: cleared", [learnt] { return learnt; }, [](Binomial& density) { density.clear(); },
        Allocates::nothing);
}

void listModels(ScenarioList& list)
{
    using Model = kt_CategoryModelBayesian;
    const std::vector<std::vector<long>> groups{{0, 2}, {1}, {3}};
    const std::vector<Types::DistributionType> kinds{Types::eNormal, Types::eBinomial, Types::eNormal};
    const ktFeaturePattern maximum({1.0, 20.0, 1.0, 1.0}, {});
    const auto make = [=] { return Model(4, groups, kinds, maximum); };
    // A copy would share its densities with the model that it is taken from.
    const auto adapted = [make] {
        Model model = make();
        for (const double x : {1.0, 2.0, 4.0}) {
            model.adapt(ktFeaturePattern({x, 3.0 * x, x * x, -x}, {}), nullptr, 0);
        }
        return model;
    };
    const ktFeaturePattern query({1.0, 3.0, 2.0, -1.0}, {});
    list.makes(
        "category model: made empty", [] { return Model(); }, Allocates::nothing);
    list.makes("category model: made", make);
    list.makes("category model: refused for a type that is not implemented", [=] {
        try {
            const Model model(4, groups, {Types::eNormal, Types::ePoisson, Types::eNormal}, maximum);
        } catch (const ktClassifierDefs::NotImplemented& error) {
            return error.message();
        }
        return std::string("not refused");
    });
    list.values("category model", Model(), adapted());
    list.keeps("category model: learns its first pattern", make,
               [query](Model& model) { model.adapt(query, nullptr, 0); });
    // Groups of up to 32 measurements are laid out on the stack.
    std::vector<long> large(40);
    std::iota(large.begin(), large.end(), 2);
    const auto makeLarge = [large] {
        return Model(1, {{0, 1}, large, {0}}, {Types::eNormal, Types::eNormal, Types::eBinomial}, {});
    };
    const auto learnLarge = [](Model& model) {
        std::vector<double> values(42, 3.0);
        values[0] = 0.5;
        model.adapt(ktFeaturePattern(values, {}), nullptr, 0);
    };
    list.keeps("category model with a large group: learns its first pattern", makeLarge, learnLarge);
    list.keeps(
        "category model with a large group: learns one more pattern",
        [=] {
            Model model = makeLarge();
            learnLarge(model);
            return model;
        },
        learnLarge);
    list.keeps(
        "category model: learns one more pattern", adapted, [query](Model& model) { model.adapt(query, nullptr, 0); },
        Allocates::nothing);
    list.keeps("category model: refuses a pattern in its second group", adapted,
               refused([wrong = ktFeaturePattern({1.0, 21.0, 2.0, -1.0}, {})](Model& model) {
                   model.adapt(wrong, nullptr, 0);
               }));
    list.keeps("category model: scores the first time", adapted,
               [query](const Model& model) { model.matchScore(query, nullptr, 0); });
    list.keeps("category model: scores a pattern with a hole", adapted,
               [hole = ktFeaturePattern({1.0, 3.0, 2.0, -1.0}, {2, 3})](const Model& model) {
                   model.matchScore(hole, nullptr, 0);
               });
    list.keeps("category model: refuses to score untrained", make,
               refused([query](const Model& model) { model.matchScore(query, nullptr, 0); }));
}

void listParams(ScenarioList& list)
{
    list.makes(
        "Bayesian parameters: made by default", [] { return Params(); }, Allocates::nothing);
    list.makes("Bayesian parameters: made", [from = mixedParams()] {
        return Params(from.distributionTypes(), from.categoryFrequencies(), from.misclassificationCosts(),
                      from.maxMeasurementValues());
    });
    list.values("Bayesian parameters", Params(), mixedParams());
    list.asks("Bayesian parameters: cloned", mixedParams(), [](const Params& params) { return params.clone(); });
    const auto fresh = [] {
        return Params(Types(Types::eUniform), ktClassifierFrequencies(3.0), ktClassifierCosts(5.0));
    };
    list.keeps("Bayesian parameters: distribution types set", fresh,
               [from = mixedParams()](Params& params) { params.distributionTypes(from.distributionTypes()); });
    list.keeps("Bayesian parameters: frequencies set", fresh,
               [from = mixedParams()](Params& params) { params.categoryFrequencies(from.categoryFrequencies()); });
    list.keeps("Bayesian parameters: costs set", fresh, [from = mixedParams()](Params& params) {
        params.misclassificationCosts(from.misclassificationCosts());
    });
    list.keeps("Bayesian parameters: maximum values set", fresh,
               [from = mixedParams()](Params& params) { params.maxMeasurementValues(from.maxMeasurementValues()); });
}

/// Failed training leaves the old state, or no parameters and as many labels as models.
void expectBayesTrainingFailed(const Classifier& classifier, const Classifier& before)
{
    const bayes::ClassifierFields fields = bayes::fieldsOf(classifier);
    EXPECT_EQ(fields.labels.size(), fields.models.size());
    expectTrainingFailed(classifier, before);
}

/// Measurements that do not vary within a category borrow their spreads when training or loading ends.
void listBorrowing(ScenarioList& list)
{
    using Run = std::pair<Classifier, ktClassifierResult>;
    const auto data = kt_test::trainingData({{{1.0, 4.0, 8.0}, 0}, {{2.0, 4.0, 8.0}, 0}, {{7.0, 1.0, 8.0}, 1}});
    const ktFeaturePattern query({2.0, 3.0, 5.0}, {});
    Classifier trainedOnThem;
    trainedOnThem.train(data, Params());
    const auto untrained = [] { return Run(Classifier(), ktClassifierResult()); };
    const auto fitForUse = [](const Run&) {};
    list.leaves(
        "Bayesian classifier: trained on what does not vary, and run", untrained,
        [=](Run& state) {
            state.first.train(data, Params());
            state.first.run(query, state.second);
        },
        fitForUse);
    list.leaves(
        "Bayesian classifier: loaded with what does not vary, and run", untrained,
        [query, bytes = kt_test::store(trainedOnThem)](Run& state) {
            kt_test::loadInto(state.first, bytes);
            state.first.run(query, state.second);
        },
        fitForUse);
}

void listClassifier(ScenarioList& list)
{
    const auto prepare = [] { return trained(mixedParams()); };
    const ktFeaturePattern query({1.0, 4.0, 0.5}, {});
    list.makes(
        "Bayesian classifier: made", [] { return Classifier(); }, Allocates::nothing);
    list.values("Bayesian classifier", trained(Params()), prepare());
    list.asks("Bayesian classifier: cloned", prepare(),
              [](const Classifier& classifier) { return classifier.clone(); });
    list.leaves(
        "Bayesian classifier: trained", [] { return Classifier(); },
        [data = someData(), params = mixedParams()](Classifier& classifier) { classifier.train(data, params); },
        [](const Classifier& classifier) { expectBayesTrainingFailed(classifier, Classifier()); });
    list.leaves(
        "Bayesian classifier: trained again", [] { return trained(Params()); },
        [data = someData(), params = mixedParams()](Classifier& classifier) { classifier.train(data, params); },
        [](const Classifier& classifier) { expectBayesTrainingFailed(classifier, trained(Params())); });
    list.keeps("Bayesian classifier: retrained", prepare, [params = [] {
                   Params params = mixedParams();
                   params.misclassificationCosts(ktClassifierCosts(5.0));
                   return params;
               }()](Classifier& classifier) { classifier.retrain(params); });
    list.keeps("Bayesian classifier: refuses to be retrained with other types", prepare,
               refused([](Classifier& classifier) { classifier.retrain(Params()); }));
    list.leaves(
        "Bayesian classifier: incremental training begun", prepare,
        [params = mixedParams()](Classifier& classifier) { classifier.trainStart(params); },
        [prepare](const Classifier& classifier) { expectBayesTrainingFailed(classifier, prepare()); });
    list.keeps(
        "Bayesian classifier: incremental step", prepare,
        [query](Classifier& classifier) { classifier.trainIncremental(query, 1); }, Allocates::nothing);
    list.keeps(
        "Bayesian classifier: run the first time",
        [prepare] { return std::make_pair(kt_test::storedAndLoaded(prepare()), kt_test::untouchedResult()); },
        [query](std::pair<Classifier, ktClassifierResult>& state) { state.first.run(query, state.second); });
    list.keeps(
        "Bayesian classifier: run the first time with 40 categories and a hole",
        [] {
            ktClassifierDataProviderMemory data;
            for (long i = 0; i < 80; ++i) {
                const auto x = static_cast<double>(i);
                data.addData(kt_test::pattern({x, 0.5 * x * x, -x}), i % 40);
            }
            Classifier classifier;
            classifier.train(data, Params());
            return std::make_pair(kt_test::storedAndLoaded(classifier), kt_test::untouchedResult());
        },
        [hole = ktFeaturePattern({1.0, 4.0, 0.5}, {2})](std::pair<Classifier, ktClassifierResult>& state) {
            state.first.run(hole, state.second);
        });
    listBorrowing(list);
    list.keeps(
        "Bayesian classifier: refuses to run untrained", [] { return Classifier(); },
        refused([query](const Classifier& classifier) {
            ktClassifierResult result;
            classifier.run(query, result);
        }));
    list.keeps(
        "Bayesian classifier: asked for its parameters, and untrained", prepare,
        [](Classifier& classifier) {
            EXPECT_TRUE(classifier.trainParams()->throwIfNotReady());
            classifier.untrain();
        },
        Allocates::nothing);
}

}  // namespace

void listBayes(ScenarioList& list)
{
    listDistributionTypes(list);
    listNormal(list);
    listBinomial(list);
    listModels(list);
    listParams(list);
    listClassifier(list);
}

}  // namespace trust
