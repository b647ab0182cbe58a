#include "bayesian_classifier_kit.h"

#include "support/normal_reference.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;
using BayesianRun = bayes::WithFixedDensities;

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
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [] { OpenBayesian().checkRunnable_(); });
    const OpenBayesian firstIsNull = classifierWith({Model(), scoring(2, -1.0)});
    const OpenBayesian secondIsNull = classifierWith({scoring(1, -1.0), Model()});
    expectThrows<ktBadPointer>("", [&] { firstIsNull.checkRunnable_(); });
    EXPECT_TRUE(FixedDensity::asked.empty());
    expectThrows<ktBadPointer>("", [&] { secondIsNull.checkRunnable_(); });
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
    expectThrows<ktClassifierDefs::InsufficientTrainData>(message, [&] { classifier.checkRunnable_(); });
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, message);

    ktClassifierTool tool;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(message,
                                                          [&] { tool.train(trainingData(constant), Params(types)); });
    EXPECT_FALSE(tool.isTrained());
    Params lenient(types);
    lenient.throwIfNotReady(false);
    tool.train(trainingData(constant), lenient);
    EXPECT_TRUE(tool.isTrained());
    ktClassifierResult result = untouchedResult();
    expectThrows<ktClassifierDefs::InsufficientTrainData>(message, [&] { tool.run(pattern({0.5}), result); });
    EXPECT_TRUE(result == untouchedResult());
}

TEST_F(BayesianRun, AbortOfTheReadinessCheckLeavesTheToolTrained)
{
    for (long n = 1; n <= 4; ++n) {
        SCOPED_TRACE(n);
        ktClassifierTool tool;
        {
            const kt_test::Attention attention(n, kt_test::abortStatus);
            expectThrows<ktFailure>(kt_test::abortMessage, [&] { tool.train(trainingData(twoCategories), Params()); });
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
        {"both at -infinity", {-infinity, -infinity}, {NaN, NaN}, infinity, {1, 2}},
        {"one at infinity", {-5.0, infinity}, {0.0, NaN}, -infinity, {1, 2}},
        {"NaN, then a number", {NaN, -5.0}, {NaN, 1.0}, 5.0, {1, 2}},
        {"a number, then NaN", {-5.0, NaN}, {NaN, NaN}, NaN, {1, 2}},
        {"NaN between growing numbers", {-5.0, NaN, -3.0}, {std::exp(-2.0), NaN, 1.0}, 3.0, {1, 2, 3}},
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
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), scoring(2, NaN), scoring(3, -5.0)});
    expectRunThrows<ktClassifierDefs::BadParams>(classifier, "Scores must be >= 0.0 and <= 1.0");
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
            expectRunThrows<ktFailure>(classifier, kt_test::abortMessage);
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
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier,
                                                             "No valid data has been used to train the distribution");
}

TEST_F(BayesianRun, NullModelIsABadPointerAfterThePollOfItsTurn)
{
    const OpenBayesian classifier = classifierWith({scoring(1, -3.0), Model(), scoring(3, -4.0)});
    const kt_test::Attention attention;
    expectRunThrows<ktBadPointer>(classifier, "");
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
        expectRunThrows<ktBadPointer>(classifierWith(fields), "");
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
    expectRunThrows<ktClassifierDefs::BadFeatures>(classifier, "my own");
}

TEST_F(BayesianRun, LabelsThatTheDecisionRuleRefusesAreRefused)
{
    expectRunThrows<ktClassifierDefs::BadParams>(classifierWith({scoring(1, -3.0), scoring(1, -4.0)}),
                                                 "The category labels of the match results must be unique.");
    expectRunThrows<ktClassifierDefs::BadLabel>(classifierWith({scoring(-4, -3.0)}), "Category labels must be >= 0");
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
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(classifier == classifier); });
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

TEST_F(BayesianRun, AllocatesNothingInSteadyState)
{
    for (const long categories : {1L, 2L, 32L, 33L, 100L}) {
        const OpenBayesian classifier = ofCategories(categories);
        const ktFeaturePattern whole = pattern({0.5, 0.25, 2.0, 0.125});
        const ktFeaturePattern part = pattern({0.5, 0.25, 2.0, 0.125}, {1, 3});
        ktClassifierResult result;
        classifier.run(whole, result);
        const long expected = categories <= 32 ? 0 : 3;
        EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(whole, result); }), expected) << categories;
        EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(part, result); }), expected) << categories;
    }
}

TEST_F(BayesianRun, OverridesOfCostsTakeNoMemoryForFewCategoriesAndOneAllocationMoreForMany)
{
    ktClassifierCosts costs;
    ktClassifierFrequencies frequencies;
    for (long from = 0; from < 40; ++from) {
        frequencies.categoryFrequencyOverride(from, 2.0);
        for (long to = 0; to < 40; ++to) {
            if (from != to) {
                costs.misclassificationCostOverride(from, to, 2.0);
            }
        }
    }
    for (const long categories : {2L, 32L, 33L, 40L}) {
        std::vector<Labelled> data;
        for (long label = 0; label < categories; ++label) {
            data.push_back({{0.5 * static_cast<double>(label)}, label});
            data.push_back({{0.5 * static_cast<double>(label) + 1.0}, label});
        }
        const OpenBayesian classifier = trained(data, Params({}, frequencies, costs));
        const ktFeaturePattern query = pattern({1.0});
        ktClassifierResult result;
        classifier.run(query, result);
        const long forTheCategories = categories <= 32 ? 0 : 3;
        const long forTheOverrides = categories <= 32 ? 0 : 1;
        EXPECT_EQ(kt_test::allocationsDuring([&] { classifier.run(query, result); }),
                  forTheCategories + forTheOverrides)
            << categories;
    }
}

TEST_F(BayesianRun, AllocatesOnlyForManyMissingMeasurementsOfALargeGroup)
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
        const auto allocationsOf = [&](const ktFeaturePattern& query) {
            return kt_test::allocationsDuring([&] { classifier.run(query, result); });
        };
        EXPECT_EQ(allocationsOf(pattern(rows[1])), 0);
        EXPECT_EQ(allocationsOf(pattern({})), 0);
        EXPECT_EQ(allocationsOf(pattern(rows[1], {0})), 0);
        all.resize((size + 1) / 2);
        EXPECT_EQ(allocationsOf(pattern(rows[1], all)), size > 64 ? 2 : 0) << "working storage for each category";
    }
}

}  // namespace
