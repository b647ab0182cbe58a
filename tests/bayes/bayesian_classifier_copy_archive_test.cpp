#include "bayesian_classifier_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;

TEST(BayesianClassifier, ComparesBaseAndModelsInOrderButNotLabels)
{
    const OpenBayesian classifier = trained(twoCategories);
    ClassifierFields relabelled = fieldsOf(classifier);
    relabelled.labels = {90, 91, 92};
    ClassifierFields reordered = fieldsOf(classifier);
    std::swap(reordered.models[0], reordered.models[1]);
    ClassifierFields fewer = fieldsOf(classifier);
    fewer.models.pop_back();
    ClassifierFields without = fieldsOf(classifier);
    without.params = nullptr;
    struct Row {
        const char* label;
        OpenBayesian other;
        bool equal;
    };
    const Row rows[] = {
        {"the same", trained(twoCategories), true},
        {"other labels", classifierWith(relabelled), true},
        {"another order of models", classifierWith(reordered), false},
        {"a model less", classifierWith(fewer), false},
        {"other parameters", trained(twoCategories, Params(Types(), ktClassifierFrequencies(2.0))), false},
        {"no parameters", classifierWith(without), false},
        {"other data", trained({twoCategories.begin() + 1, twoCategories.end()}), false},
        {"untrained", OpenBayesian(), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(classifier == row.other, row.equal);
        EXPECT_EQ(classifier != row.other, !row.equal);
        EXPECT_EQ(classifier.isEquivalent(row.other), row.equal);
        EXPECT_EQ(row.other.isEquivalent(classifier), row.equal);
    }
    EXPECT_TRUE(OpenBayesian() == OpenBayesian());
}

TEST(BayesianClassifier, ModelsAndDensitiesUnderManyHandlesAreComparedAFewTimes)
{
    constexpr std::size_t handles = 3000;
    const Density shared = new bayes::FixedDensity(-1.0);
    bayes::ModelFields model;
    model.label = 3;
    model.groups = Sets(handles, Indices{0});
    model.densities = std::vector<Density>(handles, shared);
    const Model held = new kt_CategoryModelBayesian(modelWith(model));
    std::vector<Model> models(handles, held);
    const OpenBayesian classifier = classifierWith(models);
    const OpenBayesian copy = classifierWith(models);
    bayes::FixedDensity::forget();
    EXPECT_TRUE(classifier == copy);
    EXPECT_LE(bayes::FixedDensity::numCompared, 300);
    model.densities.back() = new bayes::FixedDensity(-2.0);
    models.back() = new kt_CategoryModelBayesian(modelWith(model));
    const OpenBayesian other = classifierWith(models);
    EXPECT_FALSE(classifier == other) << "what was found equal says nothing about another pair";
    EXPECT_TRUE(other == classifierWith(models));
    models.back() = nullptr;
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(classifierWith(models) == classifierWith(models)); });
}

TEST(BayesianClassifier, IsNotEquivalentToAnotherTechnique)
{
    kt_ClassifierKNN neighbours;
    neighbours.train(trainingData(twoCategories), ktClassifierTrainParamsKNN());
    EXPECT_FALSE(trained(twoCategories).isEquivalent(neighbours));
    EXPECT_FALSE(kt_ClassifierBayesian().isEquivalent(kt_ClassifierKNN()));
}

TEST(BayesianClassifier, NullModelsCannotBeCompared)
{
    const OpenBayesian whole = classifierWith({scoring(1, -1.0), scoring(2, -1.0)});
    const OpenBayesian without = classifierWith({scoring(1, -1.0), Model()});
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(whole == without); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(without == whole); });
    EXPECT_FALSE(without == classifierWith({scoring(1, -1.0)})) << "the number of models comes first";
    EXPECT_FALSE(without == classifierWith({scoring(1, -2.0), Model()})) << "the first difference decides";
}

TEST(BayesianClassifier, CopiesShareModelsAndParameters)
{
    OpenBayesian original = trained(twoCategories);
    const ktPtrHandle_const<ktClassifierTrainParams> params = original.trainParams();
    const kt_ClassifierBayesian copy(original);
    kt_ClassifierBayesian assigned;
    assigned = original;
    const ktPtrHandle<kt_Classifier> clone = original.clone();
    EXPECT_EQ(params->refCount(), 5) << "original, copy, assigned, clone, and the handle asked for";
    EXPECT_EQ(clone->refCount(), 1);
    const ktFeaturePattern query = pattern({2.0, 20.0});
    const ktClassifierResult expected = answer(original, query);
    EXPECT_EQ(kt_test::allocationsDuring([&] {
                  ktClassifierResult result = expected;
                  copy.run(query, result);
              }),
              1)
        << "the copy's models have been evaluated; the one is the result's own copy";
    original.untrain();
    EXPECT_TRUE(answer(copy, query) == expected);
    EXPECT_TRUE(answer(assigned, query) == expected);
    EXPECT_TRUE(answer(*clone, query) == expected);
}

TEST(BayesianClassifier, IsStoredAsItsVersionBaseLabelsAndModels)
{
    const ClassifierFields fields = fieldsOf(trained(twoCategories));
    EXPECT_EQ(fields.version, 0);
    EXPECT_EQ(fields.baseVersion, 0);
    ASSERT_FALSE(fields.params.isNull());
    EXPECT_TRUE(dynamic_cast<const Params&>(*fields.params) == Params());
    EXPECT_EQ(fields.labels, Indices({5, 2}));
    ASSERT_EQ(fields.models.size(), 2u);
    EXPECT_EQ(modelOf(fields, 1).categoryLabel(), 2);
}

TEST(BayesianClassifier, LoadedOneGivesTheSameAnswersBitForBit)
{
    const OpenBayesian classifier = ofCategories(5);
    const kt_ClassifierBayesian loaded = kt_test::storedAndLoaded<kt_ClassifierBayesian>(classifier);
    EXPECT_TRUE(loaded == classifier);
    for (double x = -3.0; x < 8.0; x += 0.5) {
        for (const Indices& invalid : {Indices{}, Indices{0}, Indices{2, 3}}) {
            const ktFeaturePattern query = pattern({x, 0.25, 2.0, 1.0 - x}, invalid);
            EXPECT_TRUE(answer(loaded, query) == answer(classifier, query)) << x;
        }
    }
}

TEST(BayesianClassifier, ToolIsStoredAndLoadedWithItsParametersInForce)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(2, 5, 1e6);
    ktClassifierTool tool;
    tool.train(trainingData(twoCategories), Params(Types(), {}, costs));
    ktClassifierTool loaded = kt_test::storedAndLoaded(tool);
    EXPECT_TRUE(loaded == tool);
    ktClassifierResult expected;
    ktClassifierResult result;
    tool.run(pattern({4.0, 14.0}), expected);
    loaded.run(pattern({4.0, 14.0}), result);
    EXPECT_TRUE(result == expected);
}

}  // namespace
