#include "bayes_kit.h"
#include "support/allocations.h"
#include "support/attention.h"
#include "support/bytes.h"
#include "support/normal_reference.h"
#include "support/technique.h"

#include <clastool/nearest_neighbor.h>

#include <cmath>
#include <limits>
#include <map>
#include <numeric>

namespace {

using bayes::answer;
using bayes::ClassifierFields;
using bayes::classifierWith;
using bayes::entryFor;
using bayes::fieldsOf;
using bayes::FixedDensity;
using bayes::Indices;
using bayes::Model;
using bayes::modelOf;
using bayes::OpenBayesian;
using bayes::Params;
using bayes::scoring;
using bayes::Sets;
using bayes::trained;
using bayes::Types;
using kt_test::expectThrows;
using kt_test::Labelled;
using kt_test::labelsOf;
using kt_test::trainingData;
using kt_test::untouchedResult;

using Data = ktClassifierDataProviderMemory;

constexpr const char* noData = "No valid data was provided for training.";
constexpr const char* otherTechnique = "The training parameters are for a different classification technique.";
constexpr const char* otherTypes = "Cannot retrain a Bayesian classifier with different distribution types.";
constexpr const char* otherMaxima = "Cannot retrain a Bayesian classifier with different maximum measurements values.";
constexpr const char* unknownVersion = "Unknown version in an archive.";

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Two categories of two measurements.
const std::vector<Labelled> twoCategories = {{{1.0, 10.0}, 5}, {{2.0, 12.0}, 5}, {{8.0, 30.0}, 2},
                                             {{9.0, 36.0}, 2}, {{3.0, 11.0}, 5}, {{7.0, 33.0}, 2}};

ktFeaturePattern pattern(const std::vector<double>& values, const Indices& invalid = {})
{
    return {values, invalid};
}

bool isSame(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

/// Expects the error from a run, and the caller's result untouched.
template <class Error>
void expectRunThrows(const kt_Classifier& classifier, const std::string& message, long number,
                     const ktFeaturePattern& query = pattern({0.5, 0.5}))
{
    ktClassifierResult result = untouchedResult();
    expectThrows<Error>(message, number, [&] { classifier.run(query, result); });
    EXPECT_TRUE(result == untouchedResult());
}

/// Tests with densities that give fixed answers.
class BayesianRun : public ::testing::Test {
protected:
    void SetUp() override { FixedDensity::forget(); }
    void TearDown() override { FixedDensity::forget(); }
};

TEST(BayesianTraining, NewClassifierIsUntrained)
{
    const OpenBayesian classifier;
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_FALSE(classifier.isTrained_());
    EXPECT_TRUE(fieldsOf(classifier).labels.empty());
    EXPECT_TRUE(fieldsOf(classifier).models.empty());
    expectRunThrows<ktClassifierDefs::NotTrained>(classifier, "Classifier tool must be trained before running.",
                                                  0x10004201);
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
            values[2] = i % 50 == 7 ? infinity : i % 70 == 9 ? nan : values[2];
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
    expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented", 0x10004205,
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
        expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207, [&] { classifier.checkRunnable_(); });
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
             expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented", 0x10004205,
                                                            [&] { c.train(d, p); });
         }},
        {uniform,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::NotImplemented>("Uniform distribution is not implemented", 0x10004205,
                                                            [&] { c.train(d, p); });
         }},
        {bayes::typesWith(unknown),
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::BadParams>("Unknown distribution type", 0x10004200, [&] { c.train(d, p); });
         }},
        {binomial,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::BadParams>(
                 "Train data measurement cannot exceed its maximum value when using binomial distribution", 0x10004200,
                 [&] { c.train(d, p); });
         }},
        {multivariate,
         [](OpenBayesian& c, const Data& d, const Params& p) {
             expectThrows<ktClassifierDefs::NotImplemented>("Multivariate Binomial Distributions are not implemented",
                                                            0x10004205, [&] { c.train(d, p); });
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
        expectRunThrows<ktBadPointer>(classifier, "", 0x10004007);
    }
}

TEST(BayesianTraining, ToolIsUntrainedAfterAFailure)
{
    Types types;
    types.distributionTypeOverride(2, 0, Types::ePoisson);
    ktClassifierTool tool;
    tool.train(trainingData(twoCategories), Params());
    expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented", 0x10004205,
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
    expectThrows<ktClassifierDefs::BadParams>(otherTechnique, 0x10004200,
                                              [&] { classifier.train_(trainingData(twoCategories), foreign); });
    EXPECT_TRUE(classifier == trained(twoCategories));
    expectThrows<ktClassifierDefs::BadParams>(otherTechnique, 0x10004200, [&] { classifier.retrain_(foreign); });
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
    expectThrows<ktBadPointer>("", 0x10004007, [&] {
        classifier.train(AnyProvider({{kt_test::pattern({1.0}), 2}, {nullptr, 2}}, 1), Params());
    });
    EXPECT_EQ(fieldsOf(classifier).labels, Indices({2}));
}

TEST(BayesianTraining, LabelBelowUnknownIsRefused)
{
    OpenBayesian classifier;
    expectThrows<ktClassifierDefs::BadLabel>("Cateogory labels must be >= 0", 0x10004203, [&] {
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

TEST(BayesianTraining, LoadedSetWithANegativeIndexIsRefused)
{
    bayes::TypeFields fields;
    fields.dependentLabels = {5};
    fields.dependentSets = {{0, -1}};
    const Params params(bayes::typesWith(fields));
    OpenBayesian classifier = trained(twoCategories);
    expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0", 0x10004202,
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
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before incremental training.",
                                               0x10004201, [&] {
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
        {"other maxima", Params(Types(), {}, {}, pattern({1.0})), otherMaxima},
        {"both", Params(joined, {}, {}, pattern({1.0})), otherTypes},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        OpenBayesian classifier = trained(twoCategories);
        expectThrows<ktClassifierDefs::BadParams>(row.message, 0x10004200, [&] { classifier.retrain(row.params); });
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
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifierWith(fields).retrain_(Params()); });
    fields.params = new ktClassifierTrainParamsKNN;
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifierWith(fields).retrain_(Params()); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { classifierWith(fields).retrain_(ktClassifierTrainParamsKNN()); });
}

TEST(BayesianTraining, TrainingThatRunsOutOfMemoryIsRepeatedWithTheSameOutcome)
{
    Types types;
    types.setDependent(5, {0, 1});
    const Params params(types);
    const Data data = trainingData(twoCategories);
    const OpenBayesian expected = trained(twoCategories, params);
    const std::string bytes = kt_test::store(expected);
    EXPECT_GT(kt_test::failEachAllocation([] { return OpenBayesian(); },
                                          [&](OpenBayesian& classifier) { classifier.train(data, params); },
                                          [](const OpenBayesian& classifier) {
                                              const ClassifierFields fields = fieldsOf(classifier);
                                              EXPECT_EQ(fields.labels.size(), fields.models.size());
                                              EXPECT_TRUE(fields.params.isNull());
                                          }),
              0);
}

TEST(BayesianTraining, ToolWhoseTrainingRunsOutOfMemoryIsUntrainedAndOneWhoseCheckDoesIsTrained)
{
    const Data data = trainingData(twoCategories);
    ktClassifierTool whole;
    whole.train(data, Params());
    for (const bool check : {false, true}) {
        SCOPED_TRACE(check);
        Params params;
        params.throwIfNotReady(check);
        long trainedAfterwards = 0;
        const auto train = [&](ktClassifierTool& tool) {
            try {
                tool.train(data, params);
            } catch (const ktClassifierDefs::NotImplemented&) {
                // What a tool says when the parameters give no classifier, for whatever reason.
                throw std::bad_alloc();
            }
        };
        const auto inspect = [&](const ktClassifierTool& tool) {
            EXPECT_TRUE(!tool.isTrained() || tool == whole);
            trainedAfterwards += tool.isTrained() ? 1 : 0;
        };
        EXPECT_GT(kt_test::failEachAllocation([] { return ktClassifierTool(); }, train, inspect), 0);
        EXPECT_EQ(trainedAfterwards > 0, check);
    }
}

TEST(BayesianTraining, RetrainingThatRunsOutOfMemoryChangesNothing)
{
    const Params other(Types(), ktClassifierFrequencies(2.0), ktClassifierCosts(3.0));
    EXPECT_GT(kt_test::failEachAllocation(
                  [] { return trained(twoCategories); }, [&](OpenBayesian& classifier) { classifier.retrain(other); },
                  [](const OpenBayesian& classifier) { EXPECT_TRUE(classifier == trained(twoCategories)); }),
              0);
}

TEST_F(BayesianRun, ReadinessCheckRunsAPatternOfZeros)
{
    const OpenBayesian classifier = classifierWith(
        {new kt_CategoryModelBayesian(bayes::modelWith(1, {{0, 2}, {1, 5}}, {new FixedDensity, new FixedDensity})),
         scoring(2, -1.0)});
    EXPECT_NO_THROW(classifier.checkRunnable_());
    ASSERT_EQ(FixedDensity::asked.size(), 3u);
    EXPECT_TRUE(FixedDensity::asked[0].pattern == pattern({0.0, 0.0}));
    EXPECT_TRUE(FixedDensity::asked[1].pattern == pattern({0.0, 0.0}, {1}))
        << "four measurements: index 5 is past the end";
    EXPECT_TRUE(FixedDensity::asked[2].pattern == pattern({0.0}));
}

TEST_F(BayesianRun, PatternOfTheReadinessCheckIsAsLongAsTheFirstModelSaysAndItsGroupsAllow)
{
    struct Row {
        long claimed;
        long valid;
    };
    for (const Row& row : {Row{2147483647, 3}, Row{3, 3}, Row{2, 2}, Row{0, 0}, Row{-1, 0}, Row{-2147483647 - 1, 0}}) {
        SCOPED_TRACE(row.claimed);
        FixedDensity::forget();
        bayes::ModelFields fields;
        fields.label = 1;
        fields.numMeasurements = row.claimed;
        fields.groups = {{0, 1, 2}};
        fields.densities = {new FixedDensity};
        const OpenBayesian classifier = classifierWith({new kt_CategoryModelBayesian(bayes::modelWith(fields))});
        const kt_test::MemoryWatch watch;
        classifier.checkRunnable_();
        EXPECT_LT(watch.peakBytes(), 100000u);
        ASSERT_EQ(FixedDensity::asked.size(), 1u);
        EXPECT_EQ(3 - FixedDensity::asked[0].pattern.numInvalid(), row.valid);
    }
}

TEST_F(BayesianRun, ReadinessCheckNeedsModelsAndTheFirstOne)
{
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, 0x10004207, [] { OpenBayesian().checkRunnable_(); });
    const OpenBayesian firstIsNull = classifierWith({Model(), scoring(2, -1.0)});
    const OpenBayesian secondIsNull = classifierWith({scoring(1, -1.0), Model()});
    expectThrows<ktBadPointer>("", 0x10004007, [&] { firstIsNull.checkRunnable_(); });
    EXPECT_TRUE(FixedDensity::asked.empty());
    expectThrows<ktBadPointer>("", 0x10004007, [&] { secondIsNull.checkRunnable_(); });
    EXPECT_EQ(FixedDensity::asked.size(), 1u);
}

TEST_F(BayesianRun, ReadinessCheckPollsAsARunDoes)
{
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), scoring(2, -5.0), scoring(3, -4.0)});
    const kt_test::Attention attention;
    classifier.checkRunnable_();
    EXPECT_EQ(attention.polls(), 6);
    answer(classifier, pattern({0.5}));
    EXPECT_EQ(attention.polls(), 12);
}

TEST_F(BayesianRun, ReadinessCheckNamesTheCategoryThatLacksData)
{
    Types types;
    types.distributionTypeOverride(3, 0, Types::eBinomial);
    const std::vector<Labelled> constant = {{{0.5}, 1}, {{0.5}, 3}, {{0.25}, 1}, {{0.5}, 3}};
    const std::string message = "Insufficient data has been used to train the distribution for category 3";
    const OpenBayesian classifier = trained(constant, Params(types));
    expectThrows<ktClassifierDefs::InsufficientTrainData>(message, 0x10004207, [&] { classifier.checkRunnable_(); });
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, message, 0x10004207);

    ktClassifierTool tool;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(message, 0x10004207,
                                                          [&] { tool.train(trainingData(constant), Params(types)); });
    EXPECT_FALSE(tool.isTrained());
    Params lenient(types);
    lenient.throwIfNotReady(false);
    tool.train(trainingData(constant), lenient);
    EXPECT_TRUE(tool.isTrained());
    ktClassifierResult result = untouchedResult();
    expectThrows<ktClassifierDefs::InsufficientTrainData>(message, 0x10004207,
                                                          [&] { tool.run(pattern({0.5}), result); });
    EXPECT_TRUE(result == untouchedResult());
}

TEST_F(BayesianRun, AbortOfTheReadinessCheckLeavesTheToolTrained)
{
    for (long n = 1; n <= 4; ++n) {
        SCOPED_TRACE(n);
        ktClassifierTool tool;
        {
            const kt_test::Attention attention(n, kt_test::abortStatus);
            expectThrows<ktFailure>(kt_test::abortMessage, 0x10004008,
                                    [&] { tool.train(trainingData(twoCategories), Params()); });
            EXPECT_EQ(attention.polls(), n);
        }
        EXPECT_TRUE(tool.isTrained());
        ktClassifierResult result;
        tool.run(pattern({2.0, 11.0}), result);
        EXPECT_TRUE(result == answer(trained(twoCategories), pattern({2.0, 11.0})));
    }
}

TEST_F(BayesianRun, MatchScoreIsTheLikelihoodOverTheBestOne)
{
    const ktClassifierResult result = answer(classifierWith({scoring(1, -3.0), scoring(2, -5.0)}), pattern({0.5}));
    EXPECT_EQ(labelsOf(result), Indices({1, 2}));
    EXPECT_EQ(entryFor(result, 1).matchScore(), 1.0);
    EXPECT_DOUBLE_EQ(entryFor(result, 2).matchScore(), 0.13533528323661269189);
    EXPECT_EQ(result.matchScoreFactorLog(), 3.0);
}

TEST_F(BayesianRun, ResultIsThatOfTheDecisionRule)
{
    ktClassifierFrequencies frequencies(2.0);
    frequencies.categoryFrequencyOverride(8, 0.5);
    ktClassifierCosts costs(3.0);
    costs.misclassificationCostOverride(4, 8, 100.0);
    ClassifierFields fields;
    fields.params = new Params(Types(), frequencies, costs);
    fields.models = {scoring(4, -3.5), scoring(8, -2.25), scoring(6, -4.0)};
    const std::vector<ktClassifierCategoryResult> matches = {
        {4, std::exp(2.25 - 3.5), 0.0, 0.0}, {8, 1.0, 0.0, 0.0}, {6, std::exp(2.25 - 4.0), 0.0, 0.0}};
    EXPECT_TRUE(answer(classifierWith(fields), pattern({0.5})) ==
                ktClassifierResult(matches, frequencies, costs, 2.25));
}

TEST_F(BayesianRun, LogLikelihoodIsRecoveredFromMatchScoreAndFactor)
{
    const OpenBayesian classifier = trained(twoCategories);
    const ktFeaturePattern query = pattern({5.0, 20.0});
    const ktClassifierResult result = answer(classifier, query);
    for (const Model& model : fieldsOf(classifier).models) {
        const double score = model->matchScore(query, nullptr, 0);
        const double recovered =
            std::log(entryFor(result, model->categoryLabel()).matchScore()) - result.matchScoreFactorLog();
        EXPECT_NEAR(recovered, score, 1e-12 * std::abs(score));
    }
}

TEST_F(BayesianRun, ScoresOfAnyKindAreAnswered)
{
    struct Row {
        const char* label;
        std::vector<double> scores;
        std::vector<double> matches;
        double factorLog;
        Indices order;
    };
    const Row rows[] = {
        {"equal", {-4.0, -4.0}, {1.0, 1.0}, 4.0, {1, 2}},
        {"the better one last", {-9.0, -4.0}, {std::exp(-5.0), 1.0}, 4.0, {2, 1}},
        {"one category", {-7.0}, {1.0}, 7.0, {1}},
        {"positive", {4.0, 2.0}, {1.0, std::exp(-2.0)}, -4.0, {1, 2}},
        {"zero", {0.0, -1.0}, {1.0, std::exp(-1.0)}, 0.0, {1, 2}},
        {"too far apart", {-5000.0, -1.0}, {0.0, 1.0}, 1.0, {2, 1}},
        {"both at the limit", {-1e300, -1e300}, {1.0, 1.0}, 1e300, {1, 2}},
        {"one at -infinity", {-infinity, -5.0}, {0.0, 1.0}, 5.0, {2, 1}},
        {"both at -infinity", {-infinity, -infinity}, {nan, nan}, infinity, {1, 2}},
        {"one at infinity", {-5.0, infinity}, {0.0, nan}, -infinity, {1, 2}},
        {"NaN, then a number", {nan, -5.0}, {nan, 1.0}, 5.0, {1, 2}},
        {"a number, then NaN", {-5.0, nan}, {nan, nan}, nan, {1, 2}},
        {"NaN between growing numbers", {-5.0, nan, -3.0}, {std::exp(-2.0), nan, 1.0}, 3.0, {1, 2, 3}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::vector<Model> models;
        for (std::size_t i = 0; i < row.scores.size(); ++i) {
            models.push_back(scoring(static_cast<long>(i) + 1, row.scores[i]));
        }
        const ktClassifierResult result = answer(classifierWith(models), pattern({0.5}));
        EXPECT_EQ(labelsOf(result), row.order);
        EXPECT_TRUE(isSame(result.matchScoreFactorLog(), row.factorLog)) << result.matchScoreFactorLog();
        for (std::size_t i = 0; i < row.scores.size(); ++i) {
            const double match = entryFor(result, static_cast<long>(i) + 1).matchScore();
            EXPECT_TRUE(isSame(match, row.matches[i])) << "category " << i + 1 << ": " << match;
        }
    }
}

TEST_F(BayesianRun, NaNMakesALesserLaterScoreTheReference)
{
    // The NaN takes over from -3, and -5 from the NaN: exp(-3 + 5) is no match score.
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), scoring(2, nan), scoring(3, -5.0)});
    expectRunThrows<ktClassifierDefs::BadParams>(classifier, "Scores must be >= 0.0 and <= 1.0", 0x10004200);
}

TEST_F(BayesianRun, DecisionsAtTheLimitComeFromPriorsAndCosts)
{
    OpenBayesian classifier = trained({{{1.0}, 1}, {{2.0}, 1}, {{1.5}, 2}, {{2.5}, 2}});
    const ktFeaturePattern far = pattern({1e200});
    ktClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(2, 3.0);
    classifier.retrain(Params(Types(), frequencies));
    const ktClassifierResult byPriors = answer(classifier, far);
    EXPECT_EQ(labelsOf(byPriors), Indices({2, 1}));
    EXPECT_EQ(entryFor(byPriors, 2).classScore(), 0.75);
    EXPECT_EQ(byPriors.matchScoreFactorLog(), 1e300);
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(1, 2, 10.0);
    classifier.retrain(Params(Types(), frequencies, costs));
    EXPECT_EQ(labelsOf(answer(classifier, far)), Indices({1, 2}));
}

TEST_F(BayesianRun, PollsOncePerCategoryAndOnceMoreInTheDecisionRule)
{
    for (const long categories : {1L, 3L, 40L}) {
        std::vector<Model> models;
        for (long i = 0; i < categories; ++i) {
            models.push_back(scoring(i, -1.0));
        }
        const OpenBayesian classifier = classifierWith(models);
        const kt_test::Attention attention;
        answer(classifier, pattern({0.5}));
        EXPECT_EQ(attention.polls(), 2 * categories);
    }
}

TEST_F(BayesianRun, EachPollCanEndIt)
{
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), scoring(2, -5.0), scoring(3, -4.0)});
    for (long n = 1; n <= 6; ++n) {
        SCOPED_TRACE(n);
        FixedDensity::forget();
        {
            const kt_test::Attention attention(n, kt_test::abortStatus);
            expectRunThrows<ktFailure>(classifier, kt_test::abortMessage, 0x10004008);
            EXPECT_EQ(attention.polls(), n);
        }
        EXPECT_EQ(FixedDensity::asked.size(), static_cast<std::size_t>(std::min(n - 1, 3L)))
            << "polled before each category";
    }
    EXPECT_EQ(labelsOf(answer(classifier, pattern({0.5}))), Indices({1, 3, 2}));
}

TEST_F(BayesianRun, StatusOfTheAttentionCheckBecomesItsOwnError)
{
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0)});
    const kt_test::Attention attention(1, static_cast<long>(0x80000B61UL));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(
        classifier, "No valid data has been used to train the distribution", 0x10004207);
}

TEST_F(BayesianRun, NullModelIsABadPointerAfterThePollOfItsTurn)
{
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), Model(), scoring(3, -4.0)});
    const kt_test::Attention attention;
    expectRunThrows<ktBadPointer>(classifier, "", 0x10004007);
    EXPECT_EQ(attention.polls(), 2);
    EXPECT_EQ(FixedDensity::asked.size(), 1u);
}

TEST_F(BayesianRun, StoredParametersAreNeededAfterTheScores)
{
    ClassifierFields fields;
    fields.models = {scoring(1, -3.0), scoring(2, -4.0)};
    const ktPtrHandle<ktClassifierTrainParams> wrong[] = {nullptr, new ktClassifierTrainParamsKNN};
    for (const ktPtrHandle<ktClassifierTrainParams>& params : wrong) {
        FixedDensity::forget();
        fields.params = params;
        expectRunThrows<ktBadPointer>(classifierWith(fields), "", 0x10004007);
        EXPECT_EQ(FixedDensity::asked.size(), 2u);
    }
}

TEST_F(BayesianRun, WhatADensityThrowsPassesThrough)
{
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), scoring(2, -5.0)});
    FixedDensity::during = [](double answer) {
        if (answer == -5.0) {
            throw ktClassifierDefs::BadFeatures("my own");
        }
    };
    expectRunThrows<ktClassifierDefs::BadFeatures>(classifier, "my own", 0x10004206);
}

TEST_F(BayesianRun, LabelsThatTheDecisionRuleRefusesAreRefused)
{
    expectRunThrows<ktClassifierDefs::BadParams>(classifierWith({scoring(1, -3.0), scoring(1, -4.0)}),
                                                 "The category labels of the match results must be unique.",
                                                 0x10004200);
    expectRunThrows<ktClassifierDefs::BadLabel>(classifierWith({scoring(-4, -3.0)}), "Category labels must be >= 0",
                                                0x10004203);
}

TEST_F(BayesianRun, LabelOfTheAnswerIsTheModels)
{
    ClassifierFields fields;
    fields.params = new Params;
    fields.labels = {7};
    fields.models = {scoring(1, -3.0), scoring(2, -4.0)};
    const OpenBayesian classifier = classifierWith(fields);
    EXPECT_EQ(labelsOf(answer(classifier, pattern({0.5}))), Indices({1, 2})) << "and fewer labels than models are safe";
}

TEST_F(BayesianRun, LoadedLabelsBeyondTheModelsAreSafe)
{
    ClassifierFields fields;
    fields.params = new Params;
    fields.labels = {5, 2, 9};
    OpenBayesian classifier = classifierWith(fields);
    EXPECT_FALSE(classifier.isTrained());
    classifier.train(trainingData(twoCategories), Params());
    EXPECT_TRUE(classifier == trained(twoCategories));
    EXPECT_EQ(fieldsOf(classifier).labels, Indices({5, 2}));
}

TEST_F(BayesianRun, ModelOfAnotherClassRunsButIsNotCompared)
{
    const OpenBayesian classifier = classifierWith({new bayes::ForeignModel, scoring(2, -2.0)});
    EXPECT_EQ(labelsOf(answer(classifier, pattern({0.5}))), Indices({0, 2}));
    EXPECT_NO_THROW(classifier.checkRunnable_());
    expectThrows<ktBadPointer>("", 0x10004007, [&] { static_cast<void>(classifier == classifier); });
}

TEST_F(BayesianRun, MissingMeasurementsAreMarginalised)
{
    Types types;
    types.setDependent(1, {0, 1});
    types.setDependent(2, {0, 1});
    std::vector<Labelled> rows;
    for (const std::vector<double>& row : kt_test::TrainingSet{40, 2, 1.0, 20.0, 21}.rows()) {
        rows.push_back({row, 1});
        rows.push_back({{row[1] + 1.0, row[0]}, 2});
    }
    const OpenBayesian joint = trained(rows, Params(types));
    const OpenBayesian independent = trained(rows);
    const ktFeaturePattern query = pattern({0.75, 1.25}, {1});
    const ktClassifierResult marginal = answer(joint, query);
    const ktClassifierResult single = answer(independent, query);
    for (const long label : {1L, 2L}) {
        EXPECT_NEAR(entryFor(marginal, label).classScore(), entryFor(single, label).classScore(), 1e-12);
    }
    const ktClassifierResult nothing = answer(joint, pattern({0.0, 0.0}, {0, 1}));
    EXPECT_EQ(entryFor(nothing, 1).classScore(), 0.5) << "without a measurement the priors decide";
    EXPECT_EQ(nothing.matchScoreFactorLog(), 0.0);
    EXPECT_TRUE(answer(joint, pattern({0.75})) == answer(joint, pattern({0.75, 9.0}, {1})))
        << "past the end is missing";
    EXPECT_TRUE(answer(joint, pattern({0.75, 1.25, 7.0})) == answer(joint, pattern({0.75, 1.25})))
        << "more is not looked at";
}

/// Categories with two normal groups and a binomial one.
OpenBayesian ofCategories(long categories)
{
    Types types;
    std::vector<Labelled> rows;
    for (long i = 0; i < categories; ++i) {
        types.distributionTypeOverride(i, 2, Types::eBinomial);
        types.setDependent(i, {0, 3});
        const auto shift = static_cast<double>(i);
        for (const std::vector<double>& row : kt_test::TrainingSet{8, 4, 0.0, 3.0, 22}.rows()) {
            rows.push_back({{row[0] + shift, row[1], std::floor(std::abs(3.0 * row[2])), row[3] - shift}, i});
        }
    }
    return trained(rows, Params(types, {}, {}, pattern({1.0, 1.0, 20.0, 1.0})));
}

TEST_F(BayesianRun, AllocatesNothingInSteadyState)
{
    for (const long categories : {1L, 2L, 32L, 33L, 100L}) {
        const OpenBayesian classifier = ofCategories(categories);
        const ktFeaturePattern whole = pattern({0.5, 0.25, 2.0, 0.125});
        const ktFeaturePattern part = pattern({0.5, 0.25, 2.0, 0.125}, {1, 3});
        ktClassifierResult result;
        classifier.run(whole, result);
        const long expected = categories <= 32 ? 0 : 1;
        EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(whole, result); }), expected) << categories;
        EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(part, result); }), expected) << categories;
    }
}

TEST_F(BayesianRun, AllocatesNothingForGroupsOfAnySize)
{
    for (const std::size_t size : {1u, 2u, 16u, 33u, 100u}) {
        SCOPED_TRACE(size);
        std::vector<long> all(size);
        std::iota(all.begin(), all.end(), 0);
        Types types;
        types.setDependent(0, all);
        types.setDependent(1, all);
        const kt_test::Rows rows = kt_test::TrainingSet{20, size, 0.0, 3.0, 42}.rows();
        std::vector<Labelled> labelled;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            labelled.push_back({rows[i], static_cast<long>(i % 2)});
        }
        const OpenBayesian classifier = trained(labelled, Params(types));
        ktClassifierResult result;
        classifier.run(pattern(rows[0]), result);
        for (const ktFeaturePattern& query : {pattern(rows[1]), pattern(rows[1], {0}), pattern({})}) {
            EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(query, result); }), 0);
        }
    }
}

TEST_F(BayesianRun, ThatRunsOutOfMemoryLeavesTheResultAndGivesTheSameAnswerAfterwards)
{
    const OpenBayesian original = ofCategories(40);
    const ktFeaturePattern query = pattern({0.5, 0.25, 2.0, 0.125}, {3});
    const ktClassifierResult expected = answer(original, query);
    struct State {
        kt_ClassifierBayesian classifier;
        ktClassifierResult result;
    };
    EXPECT_GT(kt_test::failEachAllocation(
                  [&] {
                      return State{kt_test::storedAndLoaded<kt_ClassifierBayesian>(original), untouchedResult()};
                  },
                  [&](State& state) { state.classifier.run(query, state.result); },
                  [](const State& state) { EXPECT_TRUE(state.result == untouchedResult()); }),
              40);
    EXPECT_TRUE(answer(original, query) == expected);
}

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
    expectThrows<ktBadPointer>("", 0x10004007, [&] { static_cast<void>(whole == without); });
    expectThrows<ktBadPointer>("", 0x10004007, [&] { static_cast<void>(without == whole); });
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

TEST(BayesianClassifier, RefusesAnyOtherVersionOfEitherLayer)
{
    const std::string stored = kt_test::store(trained(twoCategories));
    for (const std::size_t layer : {0u, 1u}) {
        SCOPED_TRACE(layer);
        kt_ClassifierBayesian classifier;
        expectThrows<ktArchive::UnknownVersion>(unknownVersion, 0x10004001, [&] {
            kt_test::loadInto(classifier, kt_test::withBytesAt(stored, kt_test::archiveHeader().size() + layer, "\1"));
        });
        EXPECT_FALSE(classifier.isTrained());
    }
}

TEST(BayesianClassifier, RefusesAnotherVersionHandedToItsSerializeAndLeavesTheStreamAlone)
{
    OpenBayesian classifier = trained(twoCategories);
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    expectThrows<ktArchive::UnknownVersion>(unknownVersion, 0x10004001, [&] { classifier.serialize_(archive, 1); });
    EXPECT_EQ(out.str(), "");
}

}  // namespace
