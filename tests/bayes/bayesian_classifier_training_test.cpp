#include "bayesian_classifier_kit.h"

#include "support/normal_reference.h"
#include "support/technique.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;
using Data = ktClassifierDataProviderMemory;

TEST(BayesianTraining, RefusesAProviderThatClaimsMoreMeasurementsThanMemoryCanHold)
{
    if (static_cast<std::size_t>(std::numeric_limits<long>::max()) <= Sets().max_size()) {
        GTEST_SKIP() << "a long counts no more than memory might hold";
    }
    BoastingProvider provider;
    provider.addData(new ktFeaturePattern(), 1);
    OpenBayesian classifier;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { classifier.train(provider, Params()); });
    EXPECT_FALSE(classifier.isTrained());
}

TEST(BayesianTraining, NewClassifierIsUntrained)
{
    const OpenBayesian classifier;
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_FALSE(classifier.isTrained_());
    EXPECT_TRUE(fieldsOf(classifier).labels.empty());
    EXPECT_TRUE(fieldsOf(classifier).models.empty());
    expectRunThrows<ktClassifierDefs::NotTrained>(classifier, "Classifier tool must be trained before running.");
}

TEST(BayesianTraining, LabelsStandInTheOrderOfTheirFirstAppearance)
{
    const OpenBayesian classifier = trained({{{1.0}, 7}, {{2.0}, 0}, {{3.0}, 7}, {{4.0}, 3}, {{5.0}, 0}});
    const ClassifierFields fields = fieldsOf(classifier);
    EXPECT_EQ(fields.labels, Indices({7, 0, 3}));
    ASSERT_EQ(fields.models.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(modelOf(fields, i).categoryLabel(), fields.labels[i]);
        EXPECT_EQ(modelOf(fields, i).numMeasurements(), 1);
    }
}

TEST(BayesianTraining, EachModelLearnsThePatternsOfItsLabelInOrder)
{
    const ClassifierFields fields = fieldsOf(trained(twoCategories));
    for (std::size_t i = 0; i < 2; ++i) {
        kt_CategoryModelBayesian expected(fields.labels[i], {{0}, {1}}, {Types::eNormal, Types::eNormal}, {});
        for (const Labelled& row : twoCategories) {
            if (row.label == fields.labels[i]) {
                expected.adapt(pattern(row.measurements), nullptr, 0);
            }
        }
        EXPECT_TRUE(modelOf(fields, i) == expected);
        EXPECT_EQ(fieldsOf(modelOf(fields, i)).groups, Sets({{0}, {1}}));
    }
}

TEST(BayesianTraining, ModelsLearnTheBitsOfAdaptingToOnePatternAfterAnother)
{
    const kt_test::Rows rows = kt_test::TrainingSet{400, 6, 3.0, 10.0, 40}.rows();
    const Sets groups = {{0}, {1, 4, 5}, {2}, {3}};
    for (const auto last : {Types::eNormal, Types::eBinomial}) {
        Data data;
        Types types;
        std::map<long, kt_CategoryModelBayesian> expected;
        for (long label = 0; label < 3; ++label) {
            types.setDependent(label, {1, 4, 5});
            types.distributionTypeOverride(label, 3, last);
            expected.emplace(label, kt_CategoryModelBayesian(
                                        label, groups, {Types::eNormal, Types::eNormal, Types::eNormal, last}, {}));
        }
        for (std::size_t i = 0; i < rows.size(); ++i) {
            std::vector<double> values = rows[i];
            values[3] = 0.5 + values[3] / 1e3;
            values[2] = i % 50 == 7 ? infinity : i % 70 == 9 ? NaN : values[2];
            const ktPtrHandle_const<ktFeaturePattern> made = new ktFeaturePattern(values, i % 30 == 0   ? Indices{0}
                                                                                          : i % 41 == 2 ? Indices{4}
                                                                                                        : Indices());
            const long label = i % 5 == 0 ? 0 : i % 3 == 0 ? 1 : 2;
            data.addData(made, label);
            expected.at(label).adapt(*made, nullptr, 0);
        }
        OpenBayesian classifier;
        classifier.train(data, Params(types));
        const ClassifierFields fields = fieldsOf(classifier);
        ASSERT_EQ(fields.models.size(), 3u);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(kt_test::store(modelOf(fields, i)), kt_test::store(expected.at(fields.labels[i])));
        }
    }
}

TEST(BayesianTraining, FailureLeavesWhatWasTaughtBeforeIt)
{
    const kt_test::Rows rows = kt_test::TrainingSet{75, 2, 3.0, 10.0, 41}.rows();
    Data data;
    kt_CategoryModelBayesian expected(0, {{0}, {1}}, {Types::eNormal, Types::eNormal}, {});
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const ktPtrHandle_const<ktFeaturePattern> made = new ktFeaturePattern(rows[i], {});
        data.addData(made, i == 70 ? 1 : 0);
        if (i < 70) {
            expected.adapt(*made, nullptr, 0);
        }
    }
    Types types;
    types.distributionTypeOverride(1, 0, Types::ePoisson);
    OpenBayesian classifier;
    expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented",
                                                   [&] { classifier.train(data, Params(types)); });
    const ClassifierFields fields = fieldsOf(classifier);
    EXPECT_EQ(fields.labels, Indices({0}));
    EXPECT_EQ(kt_test::store(modelOf(fields, 0)), kt_test::store(expected));
}

TEST(BayesianTraining, PatternsOfAnUnknownCategoryAreSkipped)
{
    const OpenBayesian with = trained({{{1.0}, -1}, {{1.0}, 4}, {{99.0}, -1}, {{2.0}, 4}});
    EXPECT_TRUE(with == trained({{{1.0}, 4}, {{2.0}, 4}}));
    EXPECT_EQ(fieldsOf(with).labels, Indices({4}));
}

TEST(BayesianTraining, WithoutLabelledPatternsThereIsNoModel)
{
    for (const std::vector<Labelled>& rows :
         {std::vector<Labelled>(), std::vector<Labelled>{{{1.0}, -1}, {{2.0}, -1}}}) {
        const OpenBayesian classifier = trained(rows);
        EXPECT_FALSE(classifier.isTrained());
        EXPECT_TRUE(fieldsOf(classifier).labels.empty());
        expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { classifier.checkRunnable_(); });
    }
}

TEST(BayesianTraining, GroupsAreTheDependencySetsAndSingleMeasurementsByTheirLowestIndex)
{
    struct Row {
        const char* label;
        Sets sets;
        Sets groups;
    };
    const Row rows[] = {
        {"no set", {}, {{0}, {1}, {2}, {3}, {4}}},
        {"a set in its stored order", {{3, 1}}, {{0}, {3, 1}, {2}, {4}}},
        {"two sets", {{4, 2}, {3, 0}}, {{3, 0}, {1}, {4, 2}}},
        {"all", {{4, 3, 2, 1, 0}}, {{4, 3, 2, 1, 0}}},
        {"a member past the last measurement", {{1, 7}}, {{0}, {1, 7}, {2}, {3}, {4}}},
        {"only members past the last measurement", {{6, 7}}, {{0}, {1}, {2}, {3}, {4}}},
    };
    for (const Row& row : rows) {
        Types types;
        for (const Indices& set : row.sets) {
            types.setDependent(9, set);
        }
        types.setDependent(8, {0, 4});
        const OpenBayesian classifier = trained({{{1.0, 2.0, 3.0, 4.0, 5.0}, 9}}, Params(types));
        EXPECT_EQ(fieldsOf(modelOf(fieldsOf(classifier), 0)).groups, row.groups) << row.label;
    }
}

TEST(BayesianTraining, SetMetFirstInStoredOrderCounts)
{
    bayes::TypeFields fields;
    fields.dependentLabels = {9, 9};
    fields.dependentSets = {{1, 2}, {2, 0, 1}};
    const OpenBayesian classifier = trained({{{1.0, 2.0, 3.0}, 9}}, Params(bayes::typesWith(fields)));
    EXPECT_EQ(fieldsOf(modelOf(fieldsOf(classifier), 0)).groups, Sets({{2, 0, 1}}))
        << "measurement 0 is in the second set only";
}

TEST(BayesianTraining, TypeOfAGroupIsThatOfItsLowestMeasurement)
{
    Types types(Types::eBinomial);
    types.distributionTypeOverride(1, 2, Types::eNormal);
    types.distributionTypeOverride(1, 0, Types::eNormal);
    types.setDependent(1, {2, 0});
    const Params params(types, {}, {}, pattern({1.0, 40.0, 1.0}));
    const ClassifierFields fields = fieldsOf(trained({{{1.0, 2.0, 3.0}, 1}, {{0.5, 2.0, 0.25}, 6}}, [&] {
        Params all(params);
        all.maxMeasurementValues(pattern({1.0, 40.0, 3.0}));
        return all;
    }()));
    const bayes::ModelFields one = fieldsOf(modelOf(fields, 0));
    ASSERT_EQ(one.groups, Sets({{2, 0}, {1}}));
    EXPECT_NE(dynamic_cast<const kt_PDFMultivariateNormal*>(one.densities[0].get()), nullptr);
    EXPECT_EQ(fieldsOf(dynamic_cast<const kt_PDFBinomial&>(*one.densities[1])).maximum, 40.0);
    const bayes::ModelFields other = fieldsOf(modelOf(fields, 1));
    ASSERT_EQ(other.groups, Sets({{0}, {1}, {2}}));
    EXPECT_EQ(fieldsOf(dynamic_cast<const kt_PDFBinomial&>(*other.densities[2])).maximum, 3.0);
}

TEST(BayesianTraining, FailureLeavesTheModelsBuiltSoFar)
{
    Types poisson;
    poisson.distributionTypeOverride(2, 0, Types::ePoisson);
    Types uniform;
    uniform.distributionTypeOverride(2, 0, Types::eUniform);
    bayes::TypeFields unknown;
    unknown.overrideLabels = {2};
    unknown.overrideIndices = {0};
    unknown.overrideTypes = {9};
    Types binomial;
    binomial.distributionTypeOverride(2, 0, Types::eBinomial);
    Types multivariate(binomial);
    multivariate.distributionTypeOverride(2, 1, Types::eBinomial);
    multivariate.setDependent(2, {0, 1});
    struct Row {
        Types types;
        void (*expect)(OpenBayesian&, const Data&, const Params&);
    };
    const Row rows[] = {
        {poisson,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented",
                                                            [&] { c.train(d, p); });
         }},
        {uniform,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::NotImplemented>("Uniform distribution is not implemented",
                                                            [&] { c.train(d, p); });
         }},
        {bayes::typesWith(unknown),
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::BadParams>("Unknown distribution type", [&] { c.train(d, p); });
         }},
        {binomial,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::BadParams>(
                 "Train data measurement cannot exceed its maximum value when using binomial distribution",
                 [&] { c.train(d, p); });
         }},
        {multivariate,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::NotImplemented>("Multivariate Binomial Distributions are not implemented",
                                                            [&] { c.train(d, p); });
         }},
    };
    for (const Row& row : rows) {
        OpenBayesian classifier = trained(twoCategories);
        row.expect(classifier, trainingData(twoCategories), Params(row.types));
        const ClassifierFields fields = fieldsOf(classifier);
        EXPECT_EQ(fields.labels, Indices({5})) << "the two patterns before the first of label 2";
        ASSERT_EQ(fields.models.size(), 1u);
        EXPECT_TRUE(modelOf(fields, 0) == modelOf(fieldsOf(trained({twoCategories[0], twoCategories[1]})), 0));
        EXPECT_TRUE(classifier.isTrained());
        EXPECT_TRUE(fields.params.isNull());
        expectRunThrows<ktBadPointer>(classifier, "");
    }
}

TEST(BayesianTraining, ToolIsUntrainedAfterAFailure)
{
    Types types;
    types.distributionTypeOverride(2, 0, Types::ePoisson);
    ktClassifierTool tool;
    tool.train(trainingData(twoCategories), Params());
    expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented",
                                                   [&] { tool.train(trainingData(twoCategories), Params(types)); });
    EXPECT_FALSE(tool.isTrained());
}

TEST(BayesianTraining, TypesInUseAloneMatter)
{
    Types types;
    types.distributionTypeOverride(2, 5, Types::ePoisson);
    types.distributionTypeOverride(77, 0, Types::eUniform);
    EXPECT_NO_THROW(trained(twoCategories, Params(types)));
}

TEST(BayesianTraining, TrainingAgainStartsFromNothing)
{
    OpenBayesian classifier = trained(twoCategories);
    const std::vector<Labelled> other = {{{1.0}, 3}, {{2.0}, 3}};
    classifier.train(trainingData(other), Params());
    EXPECT_EQ(fieldsOf(classifier).labels, Indices({3}));
    EXPECT_TRUE(classifier == trained(other));
    OpenBayesian bare = trained(twoCategories);
    bare.train_(trainingData(other), Params());
    EXPECT_EQ(fieldsOf(bare).labels, Indices({3})) << "the hook by itself drops them too";
    EXPECT_EQ(fieldsOf(bare).models.size(), 1u);
}

TEST(BayesianTraining, ParametersOfAnotherTechniqueAreRefused)
{
    kt_test::Script script;
    const kt_test::TechniqueParams foreign(script, 1);
    OpenBayesian classifier = trained(twoCategories);
    expectThrows<ktClassifierDefs::BadParams>(paramsOfOtherTechnique,
                                              [&] { classifier.train_(trainingData(twoCategories), foreign); });
    EXPECT_TRUE(classifier == trained(twoCategories));
    expectThrows<ktClassifierDefs::BadParams>(paramsOfOtherTechnique, [&] { classifier.retrain_(foreign); });
    EXPECT_TRUE(classifier == trained(twoCategories));
}

/// Patterns and labels that the provider in memory would not take.
class AnyProvider : public ktClassifierDataProvider {
public:
    struct Item {
        kt_test::PatternHandle pattern;
        long label;
    };

    explicit AnyProvider(std::vector<Item> items, long numMeasurements)
        : items_(std::move(items)), numMeasurements_(numMeasurements)
    {
    }

    std::string name() override { return "any"; }
    std::string description() override { return ""; }
    long numMeasurements() const override { return numMeasurements_; }
    long numPatterns() const override { return static_cast<long>(items_.size()); }
    kt_test::PatternHandle featurePattern(long index) override
    {
        return items_.at(static_cast<std::size_t>(index)).pattern;
    }
    long categoryLabel(long index) const override { return items_.at(static_cast<std::size_t>(index)).label; }

private:
    std::vector<Item> items_;
    long numMeasurements_;
};

TEST(BayesianTraining, NumberOfMeasurementsIsTheProvidersOwn)
{
    OpenBayesian classifier;
    classifier.train(AnyProvider({{kt_test::pattern({1.0, 2.0, 3.0}), 1}, {kt_test::pattern({4.0}), 2}}, 2), Params());
    const ClassifierFields fields = fieldsOf(classifier);
    EXPECT_EQ(modelOf(fields, 0).numMeasurements(), 2);
    EXPECT_EQ(modelOf(fields, 1).numMeasurements(), 2) << "the second measurement is missing in that pattern";
}

TEST(BayesianTraining, NullPatternIsABadPointerUnlessItsCategoryIsUnknown)
{
    OpenBayesian classifier;
    classifier.train(AnyProvider({{nullptr, -1}, {kt_test::pattern({1.0}), 1}}, 1), Params());
    EXPECT_EQ(fieldsOf(classifier).labels, Indices({1}));
    expectThrows<ktBadPointer>("", [&] {
        classifier.train(AnyProvider({{kt_test::pattern({1.0}), 2}, {nullptr, 2}}, 1), Params());
    });
    EXPECT_EQ(fieldsOf(classifier).labels, Indices({2}));
}

TEST(BayesianTraining, LabelBelowUnknownIsRefused)
{
    OpenBayesian classifier;
    expectThrows<ktClassifierDefs::BadLabel>("Cateogory labels must be >= 0", [&] {
        classifier.train(AnyProvider({{kt_test::pattern({1.0}), -2}}, 1), Params());
    });
    EXPECT_FALSE(classifier.isTrained());
}

TEST(BayesianTraining, ProviderWithoutMeasurementsGivesModelsWithoutGroups)
{
    for (const long numMeasurements : {0L, -5L}) {
        OpenBayesian classifier;
        const kt_test::PatternHandle empty = kt_test::pattern({});
        classifier.train(AnyProvider({{empty, 1}, {empty, 2}, {empty, 1}, {empty, 1}}, numMeasurements), Params());
        const ktClassifierResult result = answer(classifier, ktFeaturePattern());
        EXPECT_EQ(entryFor(result, 1).matchScore(), 1.0);
        EXPECT_EQ(entryFor(result, 2).matchScore(), 1.0);
    }
}

TEST(BayesianTraining, PatternThatIsTooShortTeachesTheMeasurementsThatItHas)
{
    OpenBayesian classifier;
    classifier.train(AnyProvider({{kt_test::pattern({1.0, 2.0}), 1},
                                  {kt_test::pattern({3.0, 5.0}), 1},
                                  {kt_test::pattern({4.0}), 1},
                                  {kt_test::pattern({6.0, 9.0}), 1}},
                                 2),
                     Params());
    const ClassifierFields fields = fieldsOf(classifier);
    kt_CategoryModelBayesian taught(1, {{0}, {1}}, {Types::eNormal, Types::eNormal}, {});
    for (const std::vector<double>& row : {std::vector<double>{1.0, 2.0}, {3.0, 5.0}, {4.0}, {6.0, 9.0}}) {
        taught.adapt(pattern(row), nullptr, 0);
    }
    EXPECT_TRUE(modelOf(fields, 0) == taught);
}

TEST(BayesianTraining, GroupThatTheFirstPatternsAreTooShortForLearnsFromLongerOnes)
{
    Types types;
    types.setDependent(1, {0, 1});
    const std::vector<std::vector<double>> rows = {{1.0}, {2.0, 3.0}, {4.0}, {6.0, 9.0}, {5.0, 7.5}};
    std::vector<AnyProvider::Item> data;
    kt_PDFMultivariateNormal expected;
    for (const std::vector<double>& row : rows) {
        data.push_back({kt_test::pattern(row), 1});
        if (row.size() == 2) {
            expected.updateWithData({pattern(row)});
        }
    }
    OpenBayesian classifier;
    classifier.train(AnyProvider(data, 2), Params(types));
    const bayes::ModelFields model = bayes::fieldsOf(modelOf(fieldsOf(classifier), 0));
    EXPECT_TRUE(dynamic_cast<const kt_PDFMultivariateNormal&>(*model.densities.at(0)) == expected);
}

TEST(BayesianTraining, SetBeyondTheMeasurementsTakesNoMemoryAndCannotRun)
{
    kt_test::needCounts();
    Indices many(3000);
    std::iota(many.begin(), many.end(), 0);
    Types types;
    types.setDependent(0, many);
    ktClassifierTool tool;
    const kt_test::MemoryWatch watch;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "No valid data has been used to train the distribution for category 0", [&] {
            tool.train(kt_test::trainingData({{{1.0}, 0}, {{2.0}, 0}, {{4.0}, 0}}), Params(types));
        });
    EXPECT_LE(watch.peakBytes(), 400000u);
}

TEST(BayesianTraining, LoadedSetWithANegativeIndexIsRefused)
{
    bayes::TypeFields fields;
    fields.dependentLabels = {5};
    fields.dependentSets = {{0, -1}};
    const Params params(bayes::typesWith(fields));
    OpenBayesian classifier = trained(twoCategories);
    expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0",
                                             [&] { classifier.train(trainingData(twoCategories), params); });
    EXPECT_FALSE(classifier.isTrained());
}

TEST(BayesianTraining, StartAndIncrementHaveNoEffect)
{
    OpenBayesian classifier = trained(twoCategories);
    const std::string before = kt_test::store(classifier);
    classifier.trainStart_(Params());
    classifier.trainIncremental_(pattern({1.0, 2.0}), 5);
    classifier.trainIncremental(pattern({1.0, 2.0}), 5);
    classifier.trainIncremental(pattern({1.0}), -7);
    EXPECT_EQ(kt_test::store(classifier), before);
    classifier.trainStart(Params());
    EXPECT_FALSE(classifier.isTrained()) << "starting untrains, and nothing is learnt one by one";
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before incremental training.", [&] {
        classifier.trainIncremental(pattern({1.0, 2.0}), 5);
    });
}

TEST(BayesianTraining, UntrainingDropsLabelsAndModelsTogether)
{
    OpenBayesian classifier = trained(twoCategories);
    classifier.untrain_();
    EXPECT_TRUE(fieldsOf(classifier).labels.empty());
    EXPECT_TRUE(fieldsOf(classifier).models.empty());
    EXPECT_FALSE(classifier.isTrained_());
    OpenBayesian other = trained(twoCategories);
    other.untrain();
    EXPECT_TRUE(fieldsOf(other).params.isNull());
}

TEST(BayesianTraining, OtherFrequenciesAndCostsTakeEffectAtTheNextRun)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(2, 5, 1e9);
    ktClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(5, 3.0);
    OpenBayesian classifier = trained(twoCategories);
    const ktFeaturePattern query = pattern({2.5, 11.5});
    EXPECT_EQ(labelsOf(answer(classifier, query)), Indices({5, 2}));
    const Params params(Types(), frequencies, costs);
    classifier.retrain(params);
    EXPECT_TRUE(answer(classifier, query) == answer(trained(twoCategories, params), query));
    EXPECT_TRUE(dynamic_cast<const Params&>(*classifier.trainParams()) == params);
    EXPECT_TRUE(classifier == trained(twoCategories, params));
}

TEST(BayesianTraining, RetrainingRefusesOtherTypesBeforeOtherMaxima)
{
    Types overridden;
    overridden.distributionTypeOverride(9, 9, Types::eBinomial);
    Types joined;
    joined.setDependent(5, {0, 1});
    struct Row {
        const char* label;
        Params params;
        const char* message;
    };
    const Row rows[] = {
        {"another default", Params(Types(Types::eBinomial)), otherTypes},
        {"an override", Params(overridden), otherTypes},
        {"a dependency set", Params(joined), otherTypes},
        {"other maxima", Params(Types(), {}, {}, pattern({1.0})),
         "Cannot retrain a Bayesian classifier with different maximum measurements values."},
        {"both", Params(joined, {}, {}, pattern({1.0})), otherTypes},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        OpenBayesian classifier = trained(twoCategories);
        expectThrows<ktClassifierDefs::BadParams>(row.message, [&] { classifier.retrain(row.params); });
        EXPECT_TRUE(classifier == trained(twoCategories));
    }
}

TEST(BayesianTraining, RetrainingTakesTheClassifiersOwnParameters)
{
    OpenBayesian classifier = trained(twoCategories);
    classifier.retrain(*classifier.trainParams());
    EXPECT_TRUE(classifier == trained(twoCategories));
}

TEST(BayesianTraining, RetrainingWithoutStoredParametersIsABadPointer)
{
    OpenBayesian classifier = trained(twoCategories);
    ClassifierFields fields = fieldsOf(classifier);
    fields.params = nullptr;
    expectThrows<ktBadPointer>("", [&] { classifierWith(fields).retrain_(Params()); });
    fields.params = new ktClassifierTrainParamsKNN;
    expectThrows<ktBadPointer>("", [&] { classifierWith(fields).retrain_(Params()); });
    expectThrows<ktBadPointer>("", [&] { classifierWith(fields).retrain_(ktClassifierTrainParamsKNN()); });
}

}  // namespace
