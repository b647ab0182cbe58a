#include "category_model_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using namespace models;
using models::Model;
using models::pattern;

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
