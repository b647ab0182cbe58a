#include "category_model_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using namespace models;
using models::Model;
using models::pattern;

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

}  // namespace
