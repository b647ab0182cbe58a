#include "bayes_kit.h"
#include "support/allocations.h"
#include "support/bytes.h"
#include "support/normal_reference.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace {

using bayes::Density;
using bayes::fieldsOf;
using bayes::FixedDensity;
using bayes::Indices;
using bayes::ModelFields;
using bayes::modelWith;
using bayes::Sets;
using bayes::Types;
using kt_test::expectThrows;

using Model = kt_CategoryModelBayesian;
using TypeList = std::vector<Types::DistributionType>;

struct OpenModel : Model {
    using Model::serialize_;
    void serializeBase(ktArchive& archive, unsigned char version) { kt_CategoryModel::serialize_(archive, version); }
};

/// Tests with densities that give fixed answers.
class CategoryModelWithFixedDensities : public ::testing::Test {
protected:
    void SetUp() override { FixedDensity::forget(); }
    void TearDown() override { FixedDensity::forget(); }
};

ktFeaturePattern pattern(const std::vector<double>& values, const Indices& invalid = {})
{
    return {values, invalid};
}

double scoreOf(const Model& model, const ktFeaturePattern& query)
{
    return model.matchScore(query, nullptr, 0);
}

void teach(Model& model, const std::vector<ktFeaturePattern>& list)
{
    for (const ktFeaturePattern& each : list) {
        model.adapt(each, nullptr, 0);
    }
}

/// Measurements 0 and 1 jointly normal, measurement 2 binomial of at most 10.
Model mixed()
{
    return {7, {{0, 1}, {2}}, {Types::eNormal, Types::eBinomial}, pattern({0.0, 0.0, 10.0})};
}

const std::vector<ktFeaturePattern>& mixedData()
{
    static const std::vector<ktFeaturePattern> data = {pattern({1.0, 2.0, 2.0}), pattern({2.0, 4.5, 4.0}),
                                                       pattern({4.0, 7.0, 6.0}), pattern({3.0, 7.0, 5.0})};
    return data;
}

/// What a trained model knows, density by density.
std::string bytesOf(const Model& model)
{
    return kt_test::store(model);
}

template <class Class>
const Class& densityOf(const ModelFields& fields, std::size_t i)
{
    return dynamic_cast<const Class&>(*fields.densities.at(i));
}

TEST(CategoryModel, NewOneIsEmpty)
{
    const Model model;
    EXPECT_EQ(model.categoryLabel(), 0);
    EXPECT_EQ(model.numMeasurements(), 0);
    EXPECT_TRUE(fieldsOf(model).groups.empty());
    EXPECT_TRUE(fieldsOf(model).densities.empty());
    EXPECT_EQ(scoreOf(model, pattern({1.0, 2.0})), 0.0);
    Model taught;
    taught.adapt(pattern({1.0}), nullptr, 0);
    EXPECT_TRUE(taught == model);
}

TEST(CategoryModel, LabelAndNumberOfMeasurementsCanBeSet)
{
    Model model;
    model.categoryLabel(-3);
    model.numMeasurements(12);
    EXPECT_EQ(model.categoryLabel(), -3);
    EXPECT_EQ(model.numMeasurements(), 12);
}

TEST(CategoryModel, HasADensityOfTheGivenTypeForEachGroup)
{
    const ModelFields fields = fieldsOf(mixed());
    EXPECT_EQ(fields.label, 7);
    EXPECT_EQ(fields.numMeasurements, 3);
    EXPECT_EQ(fields.groups, Sets({{0, 1}, {2}}));
    ASSERT_EQ(fields.densities.size(), 2u);
    EXPECT_FALSE(fieldsOf(densityOf<kt_PDFMultivariateNormal>(fields, 0)).count > 0);
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFBinomial>(fields, 1)).maximum, 10.0);
    EXPECT_EQ(densityOf<kt_PDFBinomial>(fields, 1).numTrials(), 0);
}

TEST(CategoryModel, NumberOfMeasurementsIsTheSumOfTheGroupSizes)
{
    const TypeList normal(3, Types::eNormal);
    EXPECT_EQ(Model(1, {{0, 5}, {2}, {7, 8, 9}}, normal, {}).numMeasurements(), 6);
    EXPECT_EQ(Model(1, {{0, 0, 0}, {}, {0}}, normal, {}).numMeasurements(), 4);
    EXPECT_EQ(Model(1, {}, {}, {}).numMeasurements(), 0);
    EXPECT_EQ(Model(1, {{0, 1}, {2}}, {}, {}).numMeasurements(), 0) << "groups without a type do not count";
}

TEST(CategoryModel, BinomialMaximumComesFromTheMaximaOfItsGroup)
{
    struct Row {
        const char* label;
        Indices group;
        ktFeaturePattern maxima;
        double maximum;
    };
    const Row rows[] = {
        {"its own entry", {2}, pattern({1.0, 2.0, 10.0}), 10.0},
        {"the first of the group", {1, 2}, pattern({1.0, 2.0, 10.0}), 2.0},
        {"marked invalid", {2}, pattern({1.0, 2.0, 10.0}, {2}), 1.0},
        {"no entry", {2}, pattern({1.0, 2.0}), 1.0},
        {"no entries at all", {0}, ktFeaturePattern(), 1.0},
        {"a group without members", {}, pattern({5.0}), 1.0},
        {"zero", {0}, pattern({0.0}), 0.0},
    };
    for (const Row& row : rows) {
        const ModelFields fields = fieldsOf(Model(1, {row.group}, {Types::eBinomial}, row.maxima));
        EXPECT_EQ(fieldsOf(densityOf<kt_PDFBinomial>(fields, 0)).maximum, row.maximum) << row.label;
    }
}

TEST(CategoryModel, TypesThatAreNotSupportedAreRefused)
{
    const auto building = [](const TypeList& types) {
        return [types] { const Model model(1, Sets(types.size(), {0}), types, {}); };
    };
    const auto unknown = static_cast<Types::DistributionType>(4);
    const auto far = static_cast<Types::DistributionType>(0xFFFFFFFFu);
    expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented",
                                                   building({Types::ePoisson}));
    expectThrows<ktClassifierDefs::NotImplemented>("Uniform distribution is not implemented",
                                                   building({Types::eUniform}));
    expectThrows<ktClassifierDefs::BadParams>("Unknown distribution type", building({unknown}));
    expectThrows<ktClassifierDefs::BadParams>("Unknown distribution type", building({far}));
    expectThrows<ktClassifierDefs::NotImplemented>(
        "Uniform distribution is not implemented",
        building({Types::eNormal, Types::eUniform, Types::ePoisson, unknown}));
}

TEST(CategoryModel, NegativeIndexOfABinomialGroupIsRefused)
{
    expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0",
                                             [] { const Model model(1, {{-1}}, {Types::eBinomial}, pattern({1.0})); });
}

TEST(CategoryModel, MoreTypesThanGroupsIsSafe)
{
    Model model(1, {{0}}, {Types::eNormal, Types::eBinomial}, pattern({3.0}));
    EXPECT_EQ(model.numMeasurements(), 1);
    teach(model, {pattern({1.0}), pattern({2.0})});
    EXPECT_TRUE(std::isfinite(scoreOf(model, pattern({1.0}))));
}

TEST(CategoryModel, ScoreIsTheSumOfTheLogDensitiesOfItsGroups)
{
    Model model = mixed();
    teach(model, mixedData());
    kt_PDFMultivariateNormal normal;
    normal.updateWithData(bayes::patterns({{1.0, 2.0}, {2.0, 4.5}, {4.0, 7.0}, {3.0, 7.0}}));
    kt_PDFBinomial binomial(pattern({10.0}));
    binomial.updateWithData(bayes::patterns({{2.0}, {4.0}, {6.0}, {5.0}}));
    const ktFeaturePattern query = pattern({2.5, 5.0, 3.0});
    EXPECT_EQ(scoreOf(model, query), 0.0 + normal.logValue(pattern({2.5, 5.0})) + binomial.logValue(pattern({3.0})));
    EXPECT_EQ(scoreOf(model, pattern({2.5, 5.0, 3.0}, {2})), normal.logValue(pattern({2.5, 5.0})))
        << "an invalid count adds 0";
    EXPECT_EQ(scoreOf(model, pattern({2.5, 5.0, 3.0}, {0})),
              normal.logValue(pattern({2.5, 5.0}, {0})) + binomial.logValue(pattern({3.0})));
}

TEST(CategoryModel, GroupWithoutMeasurementsAddsNothing)
{
    Model model(1, {{}, {0}}, TypeList(2, Types::eNormal), {});
    Model without(1, {{0}}, {Types::eNormal}, {});
    for (Model* each : {&model, &without}) {
        teach(*each, {pattern({1.0}), pattern({2.0}), pattern({4.0})});
    }
    EXPECT_EQ(scoreOf(model, pattern({1.5})), scoreOf(without, pattern({1.5})));
}

TEST(CategoryModel, NegativeIndexOfANormalGroupIsRefusedWhereItIsRead)
{
    Model model(1, {{0}, {-1}}, TypeList(2, Types::eNormal), {});
    const std::string before = bytesOf(model);
    const auto expectRefused = [](auto operation) {
        expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0", operation);
    };
    expectRefused([&] { model.adapt(pattern({0.5}), nullptr, 0); });
    EXPECT_EQ(bytesOf(model), before);
    Model loaded = bayes::modelWith(1, {{-1}}, {new kt_PDFMultivariateNormal});
    expectRefused([&] { scoreOf(loaded, pattern({0.5})); });
}

TEST(CategoryModel, GroupsOfNormalMeasurementsAreIndependentOfEachOther)
{
    const kt_test::Rows rows = kt_test::TrainingSet{50, 2, 3.0, 10.0, 1}.rows();
    Model model(1, {{1}, {0}}, TypeList(2, Types::eNormal), {});
    teach(model, bayes::patterns(rows));
    const kt_test::Moments moments = kt_test::twoPassMoments(rows);
    const double expected =
        kt_test::logNormalReference(kt_test::marginalReference(moments, {0}), kt_test::asVector({rows[3][0]})) +
        kt_test::logNormalReference(kt_test::marginalReference(moments, {1}), kt_test::asVector({rows[3][1]}));
    EXPECT_NEAR(scoreOf(model, pattern(rows[3])), expected, 1e-12);
}

TEST_F(CategoryModelWithFixedDensities, EachDensitySeesItsGroupInGroupOrder)
{
    const Model model = modelWith(1, {{2, 0}, {1, 1, 9}}, {new FixedDensity(0.25), new FixedDensity(-4.0)});
    EXPECT_EQ(scoreOf(model, pattern({10.0, 11.0, 12.0}, {0})), -3.75);
    ASSERT_EQ(FixedDensity::asked.size(), 2u);
    EXPECT_TRUE(FixedDensity::asked[0].pattern == pattern({12.0, 10.0}, {1}));
    EXPECT_TRUE(FixedDensity::asked[1].pattern == pattern({11.0, 11.0, 0.0}, {2}))
        << "an index past the end is invalid";
}

TEST_F(CategoryModelWithFixedDensities, EachDensityLearnsItsGroupInOrder)
{
    Model model = modelWith(1, {{2, 0}, {1}}, {new FixedDensity(1.0), new FixedDensity(2.0)});
    model.adapt(pattern({10.0, 11.0, 12.0}, {0}), nullptr, 0);
    ASSERT_EQ(FixedDensity::learnt.size(), 2u);
    EXPECT_EQ(FixedDensity::learnt[0].answer, 1.0);
    EXPECT_TRUE(FixedDensity::learnt[0].pattern == pattern({12.0, 10.0}, {1}));
    EXPECT_TRUE(FixedDensity::learnt[1].pattern == pattern({11.0}));
}

TEST_F(CategoryModelWithFixedDensities, DiagnosticsAreNotUsed)
{
    struct Strict : ktDiagObject {
        ktDiagObject* recordingDestination(unsigned long&) override
        {
            ADD_FAILURE() << "asked for a destination";
            return nullptr;
        }
    };
    Strict strict;
    Model model = modelWith(1, {{0}}, {new FixedDensity(-2.5)});
    EXPECT_EQ(model.matchScore(pattern({1.0}), &strict, 3), -2.5);
    model.adapt(pattern({1.0}), &strict, 3);
}

TEST_F(CategoryModelWithFixedDensities, NaNAndInfiniteLogDensitiesAreSummed)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(scoreOf(modelWith(1, {{0}, {0}}, {new FixedDensity(-infinity), new FixedDensity(5.0)}), pattern({1.0})),
              -infinity);
    EXPECT_TRUE(std::isnan(
        scoreOf(modelWith(1, {{0}, {0}}, {new FixedDensity(-infinity), new FixedDensity(infinity)}), pattern({1.0}))));
}

TEST(CategoryModel, LackOfDataNamesTheCategory)
{
    struct Row {
        const char* label;
        Model model;
        std::string message;
    };
    Model constant(0, {{0}}, {Types::eBinomial}, {});
    teach(constant, {pattern({0.5}), pattern({0.5})});
    const Row rows[] = {
        {"normal", Model(3, {{0}}, {Types::eNormal}, {}),
         "No valid data has been used to train the distribution for category 3"},
        {"binomial", Model(12, {{0}}, {Types::eBinomial}, {}),
         "Insufficient data has been used to train the distribution for category 12"},
        {"constant binomial", constant, "Insufficient data has been used to train the distribution for category 0"},
        {"negative label", Model(-1, {{0}}, {Types::eNormal}, {}),
         "No valid data has been used to train the distribution for category -1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        expectThrows<ktClassifierDefs::InsufficientTrainData>(row.message, [&] { scoreOf(row.model, pattern({0.5})); });
    }
}

TEST_F(CategoryModelWithFixedDensities, FirstGroupAtFaultSpeaks)
{
    const Model model(4, {{0}, {0}}, {Types::eBinomial, Types::eNormal}, {});
    expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "Insufficient data has been used to train the distribution for category 4",
        [&] { scoreOf(model, pattern({0.5})); });
}

TEST_F(CategoryModelWithFixedDensities, OtherExceptionsPassUnchanged)
{
    const Model fixed = modelWith(3, {{0}}, {new FixedDensity});
    FixedDensity::during = [](double) { throw ktClassifierDefs::BadParams("my own"); };
    expectThrows<ktClassifierDefs::BadParams>("my own", [&] { scoreOf(fixed, pattern({0.5})); });
    FixedDensity::during = [](double) { throw ktClassifierDefs::InsufficientTrainData("my own"); };
    expectThrows<ktClassifierDefs::InsufficientTrainData>("my own for category 3",
                                                          [&] { scoreOf(fixed, pattern({0.5})); });
    Model model = mixed();
    teach(model, mixedData());
    expectThrows<ktClassifierDefs::BadParams>("Feature measurement must be <= specified maximum value", [&] {
        scoreOf(model, pattern({1.0, 2.0, 11.0}));
    });
}

TEST_F(CategoryModelWithFixedDensities, NullDensityIsABadPointerWhenItsTurnComes)
{
    Model model = modelWith(1, {{0}, {0}, {0}}, {new FixedDensity(1.0), nullptr, new FixedDensity(2.0)});
    expectThrows<ktBadPointer>("", [&] { scoreOf(model, pattern({0.5})); });
    EXPECT_EQ(FixedDensity::asked.size(), 1u);
    expectThrows<ktBadPointer>("", [&] { model.adapt(pattern({0.5}), nullptr, 0); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(model == model); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(model != model); });
}

TEST(CategoryModel, AdaptingAccumulatesOnePatternAtATime)
{
    Model model = mixed();
    teach(model, mixedData());
    const ModelFields fields = fieldsOf(model);
    kt_PDFMultivariateNormal normal;
    normal.updateWithData(bayes::patterns({{1.0, 2.0}, {2.0, 4.5}, {4.0, 7.0}, {3.0, 7.0}}));
    EXPECT_TRUE(densityOf<kt_PDFMultivariateNormal>(fields, 0) == normal);
    kt_PDFBinomial binomial(pattern({10.0}));
    binomial.updateWithData(bayes::patterns({{2.0}, {4.0}, {6.0}, {5.0}}));
    EXPECT_TRUE(densityOf<kt_PDFBinomial>(fields, 1) == binomial);
}

TEST(CategoryModel, InvalidMeasurementKeepsItsOwnGroupFromLearning)
{
    Model model = mixed();
    teach(model, {pattern({1.0, 2.0, 2.0}), pattern({2.0, 4.5, 4.0}, {1}), pattern({4.0, 7.0, 6.0}, {2})});
    const ModelFields fields = fieldsOf(model);
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFMultivariateNormal>(fields, 0)).count, 2);
    EXPECT_NEAR(densityOf<kt_PDFBinomial>(fields, 1).theta(), 0.3, 1e-15);
}

/// The model after the operation that fails, and after the same pattern was learnt by its twin that never saw it.
void expectAdaptLeavesAll(const Model& before, const ktFeaturePattern& refused, const ktFeaturePattern& next,
                          const std::function<void(Model&)>& expectRefusal)
{
    // Through the archive, since copies share their densities. A binomial density loses what it accumulated on that way,
    // so both take it.
    Model model = kt_test::storedAndLoaded(before);
    Model twin = kt_test::storedAndLoaded(before);
    expectRefusal(model);
    EXPECT_EQ(bytesOf(model), bytesOf(before)) << refused.numMeasurements();
    teach(model, {next});
    teach(twin, {next});
    EXPECT_EQ(bytesOf(model), bytesOf(twin));
}

TEST(CategoryModel, AdaptThatFailsLeavesEveryGroupAsItWas)
{
    struct Row {
        const char* label;
        Sets groups;
        TypeList types;
        ktFeaturePattern refused;
        ktFeaturePattern next;
        void (*expect)(Model&, const ktFeaturePattern&);
    };
    const auto tooLarge = [](Model& model, const ktFeaturePattern& refused) {
        expectThrows<ktClassifierDefs::BadParams>(
            "Train data measurement cannot exceed its maximum value when using binomial distribution",
            [&] { model.adapt(refused, nullptr, 0); });
    };
    const auto multivariate = [](Model& model, const ktFeaturePattern& refused) {
        expectThrows<ktClassifierDefs::NotImplemented>("Multivariate Binomial Distributions are not implemented",
                                                       [&] { model.adapt(refused, nullptr, 0); });
    };
    const auto negative = [](Model& model, const ktFeaturePattern& refused) {
        expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0",
                                                 [&] { model.adapt(refused, nullptr, 0); });
    };
    const TypeList normalThenBinomial = {Types::eNormal, Types::eBinomial};
    const Row rows[] = {
        {"the last group refuses",
         {{0, 1}, {2}},
         normalThenBinomial,
         pattern({0.5, 0.5, 1.5}),
         pattern({0.5, 0.25, 1.0}),
         tooLarge},
        {"the first group refuses",
         {{0}, {1}},
         {Types::eBinomial, Types::eBinomial},
         pattern({1.5, 0.5}),
         pattern({0.5, 0.5}),
         tooLarge},
        {"a joint binomial group",
         {{0}, {1, 2}},
         normalThenBinomial,
         pattern({0.5, 0.5, 0.5}),
         pattern({1.0}),
         multivariate},
        {"a negative index", {{0}, {-1}}, {Types::eNormal, Types::eNormal}, pattern({0.5}), pattern({1.0}), negative},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const bool canLearn = row.next.numMeasurements() > 1;
        Model model(1, row.groups, row.types, {});
        for (int learnt = 0; learnt < (canLearn ? 3 : 1); ++learnt) {
            if (canLearn) {
                expectAdaptLeavesAll(model, row.refused, row.next, [&](Model& m) { row.expect(m, row.refused); });
                teach(model, {row.next});
            } else {
                const std::string before = bytesOf(model);
                row.expect(model, row.refused);
                EXPECT_EQ(bytesOf(model), before);
            }
        }
    }
}

TEST(CategoryModel, MatchScoreAllocatesNothingOnceTheDensitiesWereEvaluated)
{
    Model model = mixed();
    teach(model, mixedData());
    const ktFeaturePattern whole = pattern({2.5, 5.0, 3.0});
    const ktFeaturePattern part = pattern({2.5, 5.0, 3.0}, {0});
    scoreOf(model, whole);
    EXPECT_EQ(kt_test::allocationsDuring([&] { scoreOf(model, whole); }), 0);
    EXPECT_EQ(kt_test::allocationsDuring([&] { scoreOf(model, part); }), 0);
}

TEST(CategoryModel, MatchScoreAllocatesOnlyForManyMissingMeasurementsOfALargeGroup)
{
    for (const std::size_t size : {1u, 2u, 16u, 33u, 100u}) {
        SCOPED_TRACE(size);
        Indices group(size);
        std::iota(group.begin(), group.end(), 0);
        Model model(1, {group}, {Types::eNormal}, {});
        const kt_test::Rows rows = kt_test::TrainingSet{20, size, 0.0, 1.0, 30}.rows();
        teach(model, bayes::patterns(rows));
        std::vector<double> oneLess = rows[0];
        oneLess.pop_back();
        const auto allocationsOf = [&](const ktFeaturePattern& query) {
            return kt_test::allocationsDuring([&] { scoreOf(model, query); });
        };
        scoreOf(model, pattern(rows[0]));
        EXPECT_EQ(allocationsOf(pattern(rows[0])), 0);
        for (const ktFeaturePattern& query : {pattern(rows[0], {0}), pattern(oneLess)}) {
            EXPECT_EQ(allocationsOf(query), 0);
        }
        std::vector<double> half = rows[0];
        half.resize(size / 2);
        EXPECT_EQ(allocationsOf(pattern(half)), size > 64 ? 1 : 0);
    }
}

TEST(CategoryModel, GroupScoresTheSameBitsWhateverIsMissingInAnother)
{
    const kt_test::Rows rows = kt_test::TrainingSet{60, 7, 2.0, 10.0, 31}.rows();
    Model model(1, {{5, 0, 3, 1}, {6}, {2, 4}}, TypeList(3, Types::eNormal), {});
    teach(model, bayes::patterns(rows));
    const ModelFields fields = fieldsOf(model);
    const auto logOf = [&](std::size_t group, const std::vector<double>& values) {
        return densityOf<kt_PDFMultivariateNormal>(fields, group).logValue(pattern(values));
    };
    const std::vector<double>& x = rows[9];
    const double first = logOf(0, {x[5], x[0], x[3], x[1]});
    const double second = logOf(1, {x[6]});
    const double third = logOf(2, {x[2], x[4]});
    EXPECT_EQ(scoreOf(model, pattern(x)), first + second + third);
    EXPECT_EQ(scoreOf(model, pattern(x, {6})), first + third);
    EXPECT_EQ(scoreOf(model, pattern(x, {2, 4})), first + second);
    EXPECT_EQ(scoreOf(model, pattern(x, {0, 1, 3, 5, 6})), third);
}

TEST(CategoryModel, CopiesShareTheDensities)
{
    Model model = mixed();
    Model copy(model);
    Model assigned;
    assigned = model;
    teach(model, mixedData());
    EXPECT_TRUE(copy == model);
    EXPECT_TRUE(assigned == model);
    EXPECT_EQ(scoreOf(copy, pattern({2.5, 5.0, 3.0})), scoreOf(model, pattern({2.5, 5.0, 3.0})));
    EXPECT_EQ(fieldsOf(copy).groups, fieldsOf(model).groups);
}

TEST(CategoryModel, ScoreIsUpToDateWhateverChangedSinceTheLastOne)
{
    const TypeList normal(2, Types::eNormal);
    const ktFeaturePattern query = pattern({1.25, 3.5});
    // A fresh model with the same groups tells what the score must be.
    const auto expectFresh = [&](const Model& model, const char* what) {
        EXPECT_EQ(scoreOf(model, query), scoreOf(kt_test::storedAndLoaded(model), query)) << what;
    };
    Model model(1, {{0}, {1}}, normal, {});
    teach(model, bayes::patterns({{1.0, 2.0}, {3.0, 5.0}}));
    Model copy(model);
    expectFresh(model, "first score");
    expectFresh(copy, "of the copy");
    const double before = scoreOf(copy, query);
    teach(model, {pattern({2.0, 9.0})});
    expectFresh(model, "learnt");
    expectFresh(copy, "its densities have learnt through the other model");
    EXPECT_NE(scoreOf(copy, query), before);
    Model other(2, {{1}, {0}}, normal, {});
    teach(other, bayes::patterns({{4.0, 4.0}, {5.0, 7.0}}));
    scoreOf(other, query);
    kt_test::loadInto(copy, bytesOf(other));
    expectFresh(copy, "loaded");
    EXPECT_EQ(scoreOf(copy, query), scoreOf(other, query));
    other = model;
    expectFresh(other, "assigned");
    EXPECT_EQ(scoreOf(other, query), scoreOf(model, query));
    const Model& same = other;
    other = same;
    expectFresh(other, "assigned to itself");
}

TEST(CategoryModel, JointScoreIsUpToDateWhenItsDensityHasLearntSince)
{
    Model model(1, {{1, 0}}, {Types::eNormal}, {});
    teach(model, bayes::patterns({{1.0, 2.0}, {3.0, 5.0}, {2.0, 7.0}}));
    const Model copy(model);
    const ktFeaturePattern query = pattern({1.25, 3.5});
    const double before = scoreOf(copy, query);
    teach(model, {pattern({2.0, 9.0})});
    EXPECT_NE(scoreOf(copy, query), before);
    EXPECT_EQ(scoreOf(copy, query), scoreOf(kt_test::storedAndLoaded(copy), query));
    EXPECT_EQ(scoreOf(model, query), scoreOf(copy, query));
}

TEST(CategoryModel, WhatItKeepsForSingleMeasurementsIsRenewedAfterTheirDensitiesHaveLearnt)
{
    Model model(1, {{0}, {1}}, TypeList(2, Types::eNormal), {});
    teach(model, bayes::patterns({{1.0, 2.0}, {3.0, 5.0}}));
    const Model copy(model);
    const ktFeaturePattern query = pattern({1.25, 3.5});
    const long first = kt_test::allocationsDuring([&] { scoreOf(copy, query); });
    for (int round = 0; round < 20; ++round) {
        teach(model, {pattern({2.0, 9.0 + round})});
        EXPECT_EQ(kt_test::allocationsDuring([&] { scoreOf(copy, query); }), first) << "all that a first score makes";
        EXPECT_EQ(kt_test::allocationsDuring([&] { scoreOf(copy, query); }), 0);
        EXPECT_EQ(scoreOf(copy, query), scoreOf(kt_test::storedAndLoaded(copy), query));
    }
}

TEST(CategoryModel, WhatItKeepsForSingleMeasurementsDoesNotGrowWithWhatTheirDensitiesLearn)
{
    kt_test::needCounts();
    Model model(1, {{0}, {1}}, TypeList(2, Types::eNormal), {});
    teach(model, bayes::patterns({{1.0, 2.0}, {3.0, 5.0}}));
    const Model copy(model);
    const auto learnAndScore = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            teach(model, {pattern({2.0, 9.0 + round})});
            scoreOf(copy, pattern({1.25, 3.5}));
        }
    };
    learnAndScore(5);
    const kt_test::MemoryWatch watch;
    learnAndScore(50);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(CategoryModel, DensityThatLearnsElsewhereIsNothingToTheOthers)
{
    Model model(1, {{0}, {1}}, TypeList(2, Types::eNormal), {});
    teach(model, bayes::patterns({{1.0, 2.0}, {3.0, 5.0}}));
    Model stranger(2, {{0}}, {Types::eNormal}, {});
    teach(stranger, bayes::patterns({{1.0}, {3.0}}));
    const ktFeaturePattern query = pattern({1.25, 3.5});
    const double score = scoreOf(model, query);
    for (int round = 0; round < 3; ++round) {
        scoreOf(stranger, pattern({2.0}));
        teach(stranger, {pattern({2.0})});
        EXPECT_EQ(kt_test::allocationsDuring([&] { EXPECT_EQ(scoreOf(model, query), score); }), 0);
    }
}

TEST(CategoryModel, GroupBeyondThePatternLearnsNothingAndTakesNoMemory)
{
    kt_test::needCounts();
    Indices group(3000);
    std::iota(group.begin(), group.end(), 0);
    Model model(1, {group, {0}}, TypeList(2, Types::eNormal), {});
    const kt_test::MemoryWatch watch;
    teach(model, bayes::patterns({{1.0}, {3.0}}));
    EXPECT_LE(watch.peakBytes(), 100000u);
    const ModelFields fields = fieldsOf(model);
    EXPECT_EQ(densityOf<kt_PDFMultivariateNormal>(fields, 0).mean().numRows(), 0);
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFMultivariateNormal>(fields, 1)).count, 2);
    expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "No valid data has been used to train the distribution for category 1",
        [&] { scoreOf(model, pattern({1.0})); });
}

TEST(CategoryModel, ScoreForgetsTheModelOfBeforeWhenAnotherIsLoadedOrAssigned)
{
    const auto made = [](const Indices& order, double shift) {
        Model model(1, {{order[0]}, {order[1]}}, TypeList(2, Types::eNormal), {});
        teach(model, bayes::patterns({{1.0 + shift, 2.0}, {3.0 - shift, 5.0}}));
        return model;
    };
    const ktFeaturePattern query = pattern({1.25, 3.5});
    const Model other = made({1, 0}, 0.5);
    const double expected = scoreOf(other, query);
    Model loadedInto = made({0, 1}, 0.0);
    ASSERT_NE(scoreOf(loadedInto, query), expected);
    kt_test::loadInto(loadedInto, bytesOf(other));
    EXPECT_EQ(scoreOf(loadedInto, query), expected);
    Model assignedTo = made({0, 1}, 0.0);
    ASSERT_NE(scoreOf(assignedTo, query), expected);
    assignedTo = other;
    EXPECT_EQ(scoreOf(assignedTo, query), expected);
}

TEST(CategoryModel, ScoreOfSingleMeasurementsHasTheBitsOfTheirDensities)
{
    const kt_test::Rows rows = kt_test::TrainingSet{30, 40, 3.0, 10.0, 3}.rows();
    Sets groups;
    std::vector<kt_PDFMultivariateNormal> densities(40);
    for (long i = 0; i < 40; ++i) {
        groups.push_back({39 - i});
        for (const std::vector<double>& row : rows) {
            densities[static_cast<std::size_t>(i)].updateWithData({pattern({row[static_cast<std::size_t>(39 - i)]})});
        }
    }
    Model model(1, groups, TypeList(40, Types::eNormal), {});
    teach(model, bayes::patterns(rows));
    for (const double changed : {rows[0][7], 1e9, 1e200, std::numeric_limits<double>::infinity(), std::nan("")}) {
        std::vector<double> values = rows[0];
        values[7] = changed;
        double expected = 0.0;
        double expectedWithoutLast = 0.0;
        for (std::size_t i = 0; i < 40; ++i) {
            expected += densities[i].logValue(pattern({values[39 - i]}));
            expectedWithoutLast += i == 39 ? 0.0 : densities[i].logValue(pattern({values[39 - i]}));
        }
        EXPECT_EQ(scoreOf(model, pattern(values)), expected);
        EXPECT_EQ(scoreOf(model, pattern(values, {0})), expectedWithoutLast);
        std::vector<double> shorter = values;
        shorter.pop_back();
        EXPECT_EQ(scoreOf(model, pattern(shorter)), scoreOf(model, pattern(values, {39}))) << "past the end is invalid";
    }
}

TEST(CategoryModel, IsEqualInLabelMeasurementsAndDensitiesButNotInGroups)
{
    const auto taught = [](Model model) {
        teach(model, {pattern({1.0, 2.0}), pattern({3.0, 4.0})});
        return model;
    };
    const auto made = [&](long label, const Sets& groups, Types::DistributionType last) {
        return taught(Model(label, groups, {Types::eNormal, last}, pattern({10.0, 10.0})));
    };
    const Model model = made(1, {{0}, {1}}, Types::eNormal);
    struct Row {
        const char* label;
        Model other;
        bool equal;
    };
    ModelFields regrouped = fieldsOf(model);
    regrouped.groups = {{5, 6, 7}};
    ModelFields moreMeasurements = fieldsOf(model);
    moreMeasurements.numMeasurements = 3;
    ModelFields fewerDensities = fieldsOf(model);
    fewerDensities.densities.pop_back();
    const Row rows[] = {
        {"the same", made(1, {{0}, {1}}, Types::eNormal), true},
        {"other groups", modelWith(regrouped), true},
        {"another label", made(2, {{0}, {1}}, Types::eNormal), false},
        {"another number of measurements", modelWith(moreMeasurements), false},
        {"a density less", modelWith(fewerDensities), false},
        {"another kind of density", made(1, {{0}, {1}}, Types::eBinomial), false},
        {"another density", made(1, {{1}, {0}}, Types::eNormal), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(model == row.other, row.equal);
        EXPECT_EQ(model != row.other, !row.equal);
        EXPECT_EQ(row.other == model, row.equal);
    }
}

TEST(CategoryModel, BaseIsEqualInLabelAndMeasurements)
{
    const kt_CategoryModel& one = mixed();
    const Model other(7, {{0}, {1}, {2}}, TypeList(3, Types::eNormal), {});
    EXPECT_TRUE(one == other);
    EXPECT_FALSE(one != other);
    EXPECT_TRUE(one != Model(7, {{0}}, {Types::eNormal}, {}));
    EXPECT_TRUE(one != Model(8, {{0}, {1}, {2}}, TypeList(3, Types::eNormal), {}));
}

TEST(CategoryModel, IsStoredAsItsVersionBaseGroupsAndDensities)
{
    Model model = mixed();
    teach(model, mixedData());
    const ModelFields fields = fieldsOf(model);
    EXPECT_EQ(fields.version, 0);
    EXPECT_EQ(fields.baseVersion, 0);
    EXPECT_EQ(fields.label, 7);
    EXPECT_EQ(fields.numMeasurements, 3);
    EXPECT_EQ(fields.groups, Sets({{0, 1}, {2}}));
    ASSERT_EQ(fields.densities.size(), 2u);
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFMultivariateNormal>(fields, 0)).count, 4);
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFBinomial>(fields, 1)).maximum, 10.0);
}

TEST(CategoryModel, LoadedOneGoesOnToTheBitsOfNeverHavingBeenStored)
{
    Model never(1, {{0, 2}, {1}}, TypeList(2, Types::eNormal), {});
    Model now = kt_test::storedAndLoaded(never);
    for (const std::vector<double>& row : kt_test::TrainingSet{50, 3, 1e3, 1e2, 2}.rows()) {
        teach(never, {pattern(row)});
        teach(now, {pattern(row)});
        now = kt_test::storedAndLoaded(now);
        ASSERT_EQ(bytesOf(now), bytesOf(never));
        ASSERT_EQ(scoreOf(now, pattern(row)), scoreOf(never, pattern(row)));
    }
}

TEST_F(CategoryModelWithFixedDensities, LoadedGroupsAndDensitiesOfDifferentNumberAreSafe)
{
    Model fewGroups = modelWith(1, {{0}}, {new FixedDensity(1.0), new FixedDensity(2.0)});
    EXPECT_EQ(scoreOf(fewGroups, pattern({0.5})), 1.0);
    fewGroups.adapt(pattern({0.5}), nullptr, 0);
    EXPECT_EQ(FixedDensity::learnt.size(), 1u);
    Model fewDensities = modelWith(1, {{0}, {1}, {2}}, {new FixedDensity(1.0)});
    EXPECT_EQ(scoreOf(fewDensities, pattern({0.5})), 1.0);
    EXPECT_TRUE(fewGroups == fewGroups);
    EXPECT_TRUE(kt_test::storedAndLoaded(fewDensities) == fewDensities);
}

TEST_F(CategoryModelWithFixedDensities, LoadedNegativeIndexIsRefused)
{
    Model model = modelWith(1, {{0}, {-2147483647 - 1}}, {new FixedDensity(1.0), new FixedDensity(2.0)});
    const auto expectRefused = [](auto operation) {
        expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0", operation);
    };
    expectRefused([&] { scoreOf(model, pattern({0.5})); });
    expectRefused([&] { model.adapt(pattern({0.5}), nullptr, 0); });
    EXPECT_TRUE(FixedDensity::learnt.empty());
}

TEST(CategoryModel, OneDensityHeldByTwoGroupsIsSafe)
{
    const Density shared = new kt_PDFMultivariateNormal;
    Model model = modelWith(1, {{0}, {1}}, {shared, shared});
    teach(model, {pattern({1.0, 2.0}), pattern({3.0, 4.0})});
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFMultivariateNormal>(fieldsOf(model), 0)).count, 4);
    Model twoSizes = modelWith(1, {{0}, {0, 1}}, {shared, shared});
    expectThrows<ktClassifierDefs::BadParams>("Must call clear before updating with feature vectors of different sizes",
                                              [&] {
                                                  twoSizes.adapt(pattern({1.0, 2.0}), nullptr, 0);
                                              });
    EXPECT_EQ(fieldsOf(densityOf<kt_PDFMultivariateNormal>(fieldsOf(twoSizes), 0)).mean.numRows(), 0);
}

}  // namespace
