// Measurements that do not vary within a category, and what their categories lend each other.

#include "../../docs/programs/look_alikes.h"
#include "bayesian_classifier_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;

constexpr unsigned long seed = 20;

// What is borrowed, by its formulas.

TEST(BorrowedSpreads, PooledSpreadStandsInForNone)
{
    // Variances 2 of two samples, 1 of three, none of one and of four.
    const auto classifier = trained({{{1.0}, 0},
                                     {{3.0}, 0},
                                     {{6.0}, 1},
                                     {{7.0}, 1},
                                     {{8.0}, 1},
                                     {{4.0}, 2},
                                     {{9.0}, 3},
                                     {{9.0}, 3},
                                     {{9.0}, 3},
                                     {{9.0}, 3}});
    const double pooled = (2.0 * 2.0 + 3.0 * 1.0) / 10.0;
    const ktClassifierResult result = answer(classifier, pattern({5.0}));
    EXPECT_NEAR(logLikelihood(result, 0), logNormal(5.0, 2.0, 2.0), 1e-12) << "a spread of its own stays";
    EXPECT_NEAR(logLikelihood(result, 1), logNormal(5.0, 7.0, 1.0), 1e-12);
    EXPECT_NEAR(logLikelihood(result, 2), logNormal(5.0, 4.0, pooled), 1e-12);
    EXPECT_NEAR(logLikelihood(result, 3), logNormal(5.0, 9.0, pooled), 1e-12);
}

// The pooled spread of these is less than the least number above 0.
TEST(BorrowedSpreads, SpreadTooSmallForANumberIsLentAllTheSame)
{
    std::vector<Labelled> rows = {{{0.0}, 0}, {{5e-162}, 0}};
    rows.insert(rows.end(), 1000, {{1.0}, 1});
    const auto classifier = trained(rows);
    EXPECT_EQ(decided(classifier, {1.0}), 1);
    EXPECT_EQ(decided(classifier, {0.0}), 0);
}

TEST(BorrowedSpreads, SpreadOfTheMeansStandsInWhereNoneVaries)
{
    const auto classifier = trained({{{1.0}, 0}, {{1.0}, 0}, {{4.0}, 1}, {{7.0}, 2}});
    const ktClassifierResult result = answer(classifier, pattern({2.0}));
    for (const auto& [label, mean] : {std::pair(0L, 1.0), std::pair(1L, 4.0), std::pair(2L, 7.0)}) {
        EXPECT_NEAR(logLikelihood(result, label), logNormal(2.0, mean, (9.0 + 0.0 + 9.0) / 3.0), 1e-12);
    }
}

TEST(BorrowedSpreads, WhatNeverVariesSaysNothing)
{
    const auto classifier = trained({{{1.0, 5.0}, 0}, {{3.0, 5.0}, 0}, {{6.0, 5.0}, 1}, {{7.0, 5.0}, 1}});
    const auto without = trained({{{1.0}, 0}, {{3.0}, 0}, {{6.0}, 1}, {{7.0}, 1}});
    for (const double fixed : {5.0, 5.0000001, -1e9, 1e300}) {
        EXPECT_TRUE(answer(classifier, pattern({2.5, fixed})) == answer(without, pattern({2.5}))) << fixed;
    }
    const auto nothing = trained({{{5.0}, 0}, {{5.0}, 0}, {{5.0}, 1}});
    EXPECT_EQ(logLikelihood(answer(nothing, pattern({17.0})), 0), 0.0);
    EXPECT_EQ(logLikelihood(answer(nothing, pattern({17.0})), 1), 0.0);
}

TEST(BorrowedSpreads, WhatNeverVariesSaysNothingHoweverManyTheCategories)
{
    for (const double fixed : {1.0, 0.1, 7e200}) {
        std::vector<Labelled> rows;
        for (long label = 0; label < 3000; ++label) {
            rows.push_back({{static_cast<double>(label), fixed}, label});
        }
        const auto classifier = trained(rows);
        EXPECT_EQ(decided(classifier, {41.0, fixed + 1e-3}), 41) << fixed;
        EXPECT_NEAR(logLikelihood(answer(classifier, pattern({41.0, 5.0})), 41),
                    logNormal(41.0, 41.0, (3000.0 * 3000.0 - 1.0) / 12.0), 1e-9)
            << fixed;
    }
}

TEST(BorrowedSpreads, JointGroupBorrowsBeforeItsCorrelationsAreFormed)
{
    Types types;
    types.setDependent(0, {0, 1, 2});
    types.setDependent(1, {2, 0});
    // Measurement 1 never varies in category 0; measurement 3 never at all.
    const std::vector<Labelled> rows = {{{1.0, 4.0, 2.0, 8.0}, 0}, {{2.0, 4.0, 2.5, 8.0}, 0},
                                        {{3.0, 4.0, 5.0, 8.0}, 0}, {{7.0, 1.0, 2.0, 8.0}, 1},
                                        {{8.0, 3.0, 1.0, 8.0}, 1}, {{6.0, 2.0, 1.5, 8.0}, 1}};
    const auto classifier = trained(rows, {types});
    const kt_test::Moments own = kt_test::twoPassMoments({{1.0, 2.0}, {2.0, 2.5}, {3.0, 5.0}});
    kt_test::Moments shrunk = own;
    shrunk.covariance(0, 1) *= 0.99L;
    shrunk.covariance(1, 0) *= 0.99L;
    const kt_test::LongVector x = kt_test::asVector({2.5, 3.5});
    const double borrowed = logNormal(2.75, 4.0, 3.0 * 1.0 / 6.0);
    const ktClassifierResult result = answer(classifier, pattern({2.5, 2.75, 3.5, 77.0}));
    EXPECT_NEAR(logLikelihood(result, 0), kt_test::logNormalReference(shrunk, x) + borrowed, 1e-12);
    const ktClassifierResult marginal = answer(classifier, pattern({2.5, 0.0, 3.5, 77.0}, {1}));
    EXPECT_NEAR(logLikelihood(marginal, 0), kt_test::logNormalReference(shrunk, x), 1e-12);
    // The other category keeps all that it has learnt.
    double kept = 0.0;
    for (const Density& density : bayes::fieldsOf(bayes::modelOf(fieldsOf(classifier), 1)).densities) {
        const auto& normal = dynamic_cast<const kt_PDFMultivariateNormal&>(*density);
        const bool isPair = normal.mean().numRows() == 2;
        const double alone = normal.mean()(0, 0) == 2.0 ? 2.75 : 77.0;
        kept += alone == 77.0 && !isPair ? 0.0 : normal.logValue(isPair ? pattern({3.5, 2.5}) : pattern({alone}));
    }
    EXPECT_NEAR(logLikelihood(result, 1), kept, 1e-12);
}

TEST(BorrowedSpreads, CategoriesLendAcrossOtherGroupsButNotAcrossOtherDistributions)
{
    Types types;
    types.setDependent(0, {0, 1});
    types.distributionTypeOverride(2, 0, Types::eBinomial);
    const auto classifier = trained({{{1.0, 1.0}, 0},
                                     {{3.0, 2.0}, 0},
                                     {{2.0, 4.0}, 0},
                                     {{5.0, 3.0}, 1},
                                     {{5.0, 5.0}, 1},
                                     {{2.0, 7.0}, 2},
                                     {{4.0, 8.0}, 2}},
                                    {types, {}, {}, pattern({10.0, 10.0})});
    const double pooled = 3.0 * 1.0 / 5.0;
    const ktClassifierResult result = answer(classifier, pattern({4.5, 0.0}, {1}));
    EXPECT_NEAR(logLikelihood(result, 1), logNormal(4.5, 5.0, pooled), 1e-12) << "two of the five counts are its own";
    EXPECT_NEAR(logLikelihood(result, 0), logNormal(4.5, 2.0, 1.0), 1e-12);
}

TEST(BorrowedSpreads, MeasurementThatWasLearntBeyondTheRangeSaysNothing)
{
    const std::vector<Labelled> rows = {
        {{1.0, 2.0}, 0}, {{2.0, 2.5}, 0}, {{3.0, 9.0}, 0}, {{7.0, 4.0}, 1}, {{8.0, 7.0}, 1}};
    for (const double wild : {1e160, 1.7e308, -1e200}) {
        std::vector<Labelled> spoilt = rows;
        spoilt[1].measurements[1] = wild;
        for (const bool jointly : {false, true}) {
            const auto classifier = trained(spoilt, jointly ? allTogether(2, 2) : Params());
            EXPECT_EQ(decided(classifier, {2.5, 7.0}), 0);
            EXPECT_EQ(decided(classifier, {6.5, 3.0}), 1);
            const ktClassifierResult result = answer(classifier, pattern({2.5, 7.0}));
            EXPECT_NEAR(logLikelihood(result, 1), logNormal(2.5, 7.5, 0.5), 1e-9);
        }
    }
}

// Categories with and without spread of their own.

TEST(BorrowedSpreads, CategoryThatNeverSawAHoleLeavesTheOthersWithoutHoleTheirs)
{
    ktRandomGaussian random(seed);
    int turn = 0;
    const auto rows = drawn({200, 200}, [&](long label) {
        ++turn;
        return std::vector<double>{label == 1 && turn % 2 == 0 ? 1.0 : 0.0, random.next(label == 1 ? 4.0 : 0.0, 1.0)};
    });
    const auto classifier = trained(rows);
    const auto size = trained(drawn({200, 200}, [&](long label) {
        return std::vector<double>{0.0, random.next(label == 1 ? 4.0 : 0.0, 1.0)};
    }));
    EXPECT_GE(shareRight(classifier, rows), 0.95);
    EXPECT_GE(shareRight(classifier, rows), shareRight(size, rows) - 0.01) << "hardly worse than without the holes";
}

TEST(BorrowedSpreads, OneSampleIsJudgedByTheSpreadOfTheOthers)
{
    ktRandomGaussian random(seed);
    const auto classifier = trained(
        drawn({1, 100}, [&](long label) { return std::vector<double>{label == 0 ? 1.0 : random.next(10.0, 1.0)}; }));
    for (const double x : {1.00001, 0.0, 2.5, 4.5, -3.0}) {
        EXPECT_EQ(decided(classifier, {x}), 0) << x;
    }
    for (const double x : {7.0, 10.0, 14.0}) {
        EXPECT_EQ(decided(classifier, {x}), 1) << x;
    }
}

TEST(BorrowedSpreads, OneSampleOfEachCategoryGivesTheNearestInSpreadsOfTheirMeans)
{
    const auto classifier = trained({{{1.0, 100.0, 7.0}, 0}, {{2.0, 300.0, 7.0}, 1}, {{6.0, 200.0, 7.0}, 2}});
    const double spread0 = std::sqrt((4.0 + 1.0 + 9.0) / 3.0);
    const double spread1 = std::sqrt(20000.0 / 3.0);
    const std::vector<std::vector<double>> means = {{1.0, 100.0}, {2.0, 300.0}, {6.0, 200.0}};
    ktRandomUniform random(seed);
    for (int i = 0; i < 300; ++i) {
        const std::vector<double> x = {random.next(0.0, 7.0), random.next(50.0, 350.0), random.next(0.0, 9.0)};
        const auto distance = [&](const std::vector<double>& mean) {
            return std::hypot((x[0] - mean[0]) / spread0, (x[1] - mean[1]) / spread1);
        };
        const auto nearest = std::min_element(means.begin(), means.end(),
                                              [&](const auto& a, const auto& b) { return distance(a) < distance(b); });
        EXPECT_EQ(decided(classifier, x), nearest - means.begin());
    }
}

TEST(BorrowedSpreads, OffsetsUpToAThousandMillionChangeNoDecision)
{
    ktRandomGaussian random(seed);
    const auto draw = [&](long label) {
        return std::vector<double>{random.next(5.0 * static_cast<double>(label), 1.0)};
    };
    const auto training = drawn({200, 200}, draw);
    const auto test = drawn({1000, 1000}, draw);
    const auto shifted = [](std::vector<Labelled> rows, double offset) {
        for (Labelled& row : rows) {
            row.measurements[0] += offset;
        }
        return rows;
    };
    const auto original = trained(training);
    for (const double offset : {1e3, 1e6, 1e8, 1e9}) {
        const auto classifier = trained(shifted(training, offset));
        int changed = 0;
        for (const Labelled& row : test) {
            changed +=
                decided(classifier, {row.measurements[0] + offset}) != decided(original, row.measurements) ? 1 : 0;
        }
        EXPECT_LE(changed, 1) << offset;
    }
}

TEST(BorrowedSpreads, ConstantThatDriftsChangesFewAnswers)
{
    ktRandomGaussian random(seed);
    const auto draw = [&](bool elsewhereToo) {
        return [&random, elsewhereToo](long label) {
            std::vector<double> values;
            for (int i = 0; i < 4; ++i) {
                values.push_back(random.next(0.7 * static_cast<double>(label * (i % 2)), 1.0));
            }
            values.push_back(label == 0 || !elsewhereToo ? 3.0 : random.next(3.0, 1.0));
            return values;
        };
    };
    for (const bool elsewhereToo : {false, true}) {
        for (const bool jointly : {false, true}) {
            const auto classifier =
                trained(drawn({100, 100, 100}, draw(elsewhereToo)), jointly ? allTogether(5, 3) : Params());
            const auto test = drawn({700, 700, 700}, draw(elsewhereToo));
            for (const double drift : {1e-6, 1e-4, 1e-2}) {
                int changed = 0;
                for (const Labelled& row : test) {
                    std::vector<double> moved = row.measurements;
                    moved[4] += drift;
                    changed += decided(classifier, moved) != decided(classifier, row.measurements) ? 1 : 0;
                }
                EXPECT_LE(changed, 21) << drift << (jointly ? ", jointly" : "") << ", of 2100";
            }
        }
    }
}

TEST(BorrowedSpreads, HalfConstantCategoriesAreToldByTheOtherHalf)
{
    ktRandomGaussian random(seed);
    const auto draw = [&](long label) {
        std::vector<double> values;
        for (int i = 0; i < 16; ++i) {
            const bool isConstant = label < 2 && i % 2 == 0;
            values.push_back(isConstant ? 0.0
                                        : random.next(static_cast<double>((label * 5 + i * (label + 2)) % 4), 1.0));
        }
        return values;
    };
    const auto training = drawn({60, 60, 60, 60}, draw);
    const auto test = drawn({300, 300, 300, 300}, draw);
    EXPECT_GE(shareRight(trained(training), test), 0.9);
    EXPECT_GE(shareRight(trained(training, allTogether(16, 4)), test), 0.9);
}

TEST(BorrowedSpreads, UnitsChangeNoAnswer)
{
    const auto samples = digitLookAlikes(400, seed);
    ktRandomUniform random(seed);
    std::vector<double> units;
    for (int i = 0; i < 64; ++i) {
        units.push_back(std::pow(10.0, random.next(-12.0, 12.0)));
    }
    const auto inUnits = [&](std::vector<double> values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] *= units[i];
        }
        return values;
    };
    std::vector<Labelled> plain;
    std::vector<Labelled> scaled;
    for (std::size_t i = 0; i < 200; ++i) {
        plain.push_back({samples[i].values, samples[i].label});
        scaled.push_back({inUnits(samples[i].values), samples[i].label});
    }
    for (const bool jointly : {false, true}) {
        const Params params = jointly ? allTogether(64, 10) : Params();
        const auto original = trained(plain, params);
        const auto other = trained(scaled, params);
        for (std::size_t i = 200; i < samples.size(); ++i) {
            EXPECT_EQ(decided(other, inUnits(samples[i].values)), decided(original, samples[i].values)) << i;
        }
    }
}

TEST(BorrowedSpreads, LookAlikesOfDigitsAreRead)
{
    const auto samples = digitLookAlikes(1790, seed);
    std::vector<Labelled> training;
    std::vector<Labelled> test;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        (i < 490 ? training : test).push_back({samples[i].values, samples[i].label});
    }
    EXPECT_GE(shareRight(trained(training), test), 0.86);
    EXPECT_GE(shareRight(trained(training, allTogether(64, 10)), test), 0.83) << "49 samples of 64 measurements";
}

// Whatever is learnt.

TEST(BorrowedSpreads, AnythingTrainsAndRuns)
{
    ktRandomUniform random(seed);
    const std::vector<double> odd = {0.0,    -0.0,    1.0, 5e-324,   1e-200,    1e160,
                                     -1e308, 1.7e308, NaN, infinity, -infinity, 0.1};
    const auto value = [&] {
        return random.next(0.0, 1.0) < 0.4 ? odd[static_cast<std::size_t>(random.next(0.0, 12.0))]
                                           : random.next(-2.0, 2.0);
    };
    const auto draw = [&] { return std::vector<double>{value(), value(), value(), value()}; };
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed << ", round " << round);
        std::vector<Labelled> rows;
        for (long i = 0; i < 12; ++i) {
            // A finite one first, so that each density has learnt something.
            rows.push_back({i < 3 ? std::vector<double>{random.next(-1.0, 1.0), 1.0, 1.0, 2.0} : draw(), i % 3});
        }
        const auto classifier = trained(rows, round % 2 == 0 ? allTogether(4, 3) : Params());
        for (int query = 0; query < 8; ++query) {
            const ktClassifierResult result = answer(classifier, pattern(draw()));
            double sum = 0.0;
            for (const ktClassifierCategoryResult& category : result.categoryResults()) {
                sum += category.classScore();
                EXPECT_TRUE(std::isfinite(category.matchScore()) && std::isfinite(category.expectedCost()));
            }
            EXPECT_NEAR(sum, 1.0, 1e-12);
            EXPECT_TRUE(std::isfinite(result.matchScoreFactorLog()));
        }
    }
}

// What is kept of them.

std::vector<Labelled> withConstants()
{
    return {{{1.0, 4.0, 2.0, 8.0}, 0}, {{2.0, 4.0, 2.5, 8.0}, 0}, {{3.0, 4.0, 5.0, 8.0}, 0},
            {{7.0, 1.0, 2.0, 8.0}, 1}, {{8.0, 3.0, 1.0, 8.0}, 1}, {{5.0, 5.0, 5.0, 8.0}, 2}};
}

TEST(BorrowedSpreads, WhatWasLearntAndStoredStaysAsItIs)
{
    for (const bool jointly : {false, true}) {
        const Params params = jointly ? allTogether(4, 3) : Params();
        const auto classifier = trained(withConstants(), params);
        for (std::size_t label = 0; label < 3; ++label) {
            std::vector<std::vector<long>> groups = {{0}, {1}, {2}, {3}};
            if (jointly) {
                groups = {{0, 1, 2, 3}};
            }
            kt_CategoryModelBayesian model(static_cast<long>(label), groups,
                                           std::vector<Types::DistributionType>(groups.size(), Types::eNormal), {});
            for (const Labelled& row : withConstants()) {
                if (row.label == static_cast<long>(label)) {
                    model.adapt(pattern(row.measurements), nullptr, 0);
                }
            }
            EXPECT_TRUE(bayes::modelOf(fieldsOf(classifier), label) == model);
        }
    }
}

TEST(BorrowedSpreads, LoadedAndCopiedOnesAnswerWithTheSameBits)
{
    for (const bool jointly : {false, true}) {
        const auto classifier = trained(withConstants(), jointly ? allTogether(4, 3) : Params());
        const OpenBayesian copy(classifier);
        OpenBayesian assigned = trained({{{1.0}, 7}});
        assigned = classifier;
        const auto loaded = kt_test::storedAndLoaded<kt_ClassifierBayesian>(classifier);
        OpenBayesian loadedOver = trained({{{1.0}, 7}});
        kt_test::loadInto(static_cast<kt_ClassifierBayesian&>(loadedOver),
                          kt_test::store(static_cast<const kt_ClassifierBayesian&>(classifier)));
        const ktPtrHandle<kt_Classifier> clone = classifier.clone();
        for (const ktFeaturePattern& query :
             {pattern({2.0, 3.0, 4.0, 5.0}), pattern({2.0, 3.0, 4.0, 5.0}, {1}), pattern({2.0, 1e160, 4.0, 5.0})}) {
            const ktClassifierResult expected = answer(classifier, query);
            EXPECT_TRUE(answer(copy, query) == expected);
            EXPECT_TRUE(answer(assigned, query) == expected);
            EXPECT_TRUE(answer(*clone, query) == expected);
            EXPECT_TRUE(answer(loaded, query) == expected);
            EXPECT_TRUE(answer(loadedOver, query) == expected);
        }
        EXPECT_TRUE(copy == classifier);
        EXPECT_TRUE(loadedOver == classifier);
        assigned.untrain();
        EXPECT_FALSE(assigned.isTrained());
        assigned.train(kt_test::trainingData({{{1.0}, 7}, {{2.0}, 7}}), Params());
        EXPECT_NEAR(logLikelihood(answer(assigned, pattern({1.0})), 7), logNormal(1.0, 1.5, 0.5), 1e-12);
    }
}

TEST(BorrowedSpreads, FailedTrainingBorrowsAmongWhatItHasLearnt)
{
    OpenBayesian classifier;
    ktClassifierDataProviderMemory data = kt_test::trainingData(withConstants());
    data.addData(kt_test::pattern({1.0, 2.0, 3.0, 4.0}), 3);
    Types types;
    types.distributionTypeOverride(3, 0, Types::ePoisson);
    expectThrows<ktClassifierDefs::NotImplemented>("Poisson distribution is not implemented",
                                                   [&] { classifier.train_(data, Params(types)); });
    bayes::ClassifierFields fields = fieldsOf(classifier);
    fields.params = new Params;
    const OpenBayesian withParams = classifierWith(fields);
    ktClassifierResult result;
    expectThrows<ktBadPointer>("", [&] { classifier.run_(pattern({5.0, 4.0, 3.0, 8.0}), result); });
    EXPECT_TRUE(answer(withParams, pattern({5.0, 4.0, 3.0, 8.0})) ==
                answer(trained(withConstants()), pattern({5.0, 4.0, 3.0, 8.0})));
}

TEST(BorrowedSpreads, DensitiesAndModelsOfOtherClassesAreAskedThemselves)
{
    bayes::FixedDensity::forget();
    kt_PDFMultivariateNormal constant;
    constant.updateWithData(bayes::patterns({{2.0}, {2.0}}));
    kt_PDFMultivariateNormal varying;
    varying.updateWithData(bayes::patterns({{1.0}, {3.0}}));
    const auto model = [](long label, const kt_PDFMultivariateNormal& density) -> Model {
        return new kt_CategoryModelBayesian(bayes::modelWith(
            label, {{0}, {1, 0}}, {new kt_PDFMultivariateNormal(density), new bayes::FixedDensity(-2.0)}));
    };
    const auto classifier = classifierWith({model(1, constant), new bayes::ForeignModel, model(2, varying)});
    const ktClassifierResult result = answer(classifier, pattern({1.5, 7.0}));
    EXPECT_NEAR(logLikelihood(result, 1), logNormal(1.5, 2.0, 2.0 * 2.0 / 4.0) - 2.0, 1e-12);
    EXPECT_NEAR(logLikelihood(result, 2), logNormal(1.5, 2.0, 2.0) - 2.0, 1e-12);
    EXPECT_NEAR(logLikelihood(result, 0), -1.0, 1e-12);
    ASSERT_EQ(bayes::FixedDensity::asked.size(), 2u);
    EXPECT_TRUE(bayes::FixedDensity::asked[0].pattern == pattern({7.0, 1.5}));
}

TEST(BorrowedSpreads, DamagedModelsAreSafe)
{
    kt_PDFMultivariateNormal constant;
    constant.updateWithData(bayes::patterns({{2.0}, {2.0}}));
    const Density shared = new kt_PDFMultivariateNormal(constant);
    const auto with = [](long label, const bayes::Sets& groups, const std::vector<Density>& densities) -> Model {
        bayes::ModelFields fields;
        fields.label = label;
        fields.groups = groups;
        fields.densities = densities;
        return new kt_CategoryModelBayesian(bayes::modelWith(fields));
    };
    const Density untrained = new kt_PDFMultivariateNormal;
    const Model sane = with(5, {{0}}, {new kt_PDFMultivariateNormal(constant)});
    const ktFeaturePattern query = pattern({3.0, 4.0});
    const auto models = [&](const Model& model) { return classifierWith({model, sane}); };
    expectThrows<ktBadPointer>("", [&] { answer(models(nullptr), query); });
    expectThrows<ktBadPointer>("", [&] { answer(models(with(1, {{0}}, {nullptr})), query); });
    expectThrows<ktBadPointer>("", [&] { answer(models(with(1, {{0}, {1}}, {shared, nullptr})), query); });
    expectThrows<ktClassifierDefs::BadParams>("Must call clear before updating with feature vectors of different sizes",
                                              [&] {
                                                  answer(models(with(1, {{0, 1}}, {shared})), query);
                                              });
    expectThrows<ktClassifierDefs::BadIndex>("Feature measurement indices must be >= 0",
                                             [&] { answer(models(with(1, {{-1}}, {shared})), query); });
    expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "No valid data has been used to train the distribution for category 1",
        [&] { answer(models(with(1, {{0}}, {untrained})), query); });
    EXPECT_NO_THROW(answer(models(with(1, {{0}}, {shared, shared})), query));
    EXPECT_NO_THROW(answer(models(with(1, {{0}, {1}, {0}}, {shared})), query));
    EXPECT_NO_THROW(answer(models(with(1, {{2147483647}}, {shared})), query));
    EXPECT_NO_THROW(answer(models(with(1, {{0}, {1}, {0}}, {shared, shared, shared})), query)) << "one density for all";
    const Model twice = with(1, {{0}}, {shared});
    expectThrows<ktClassifierDefs::BadParams>("The category labels of the match results must be unique.", [&] {
        answer(classifierWith({twice, twice, sane}), query);
    });
}

TEST(BorrowedSpreads, MeasurementThatAGroupNamesAgainIsLeftOut)
{
    bayes::TypeFields fields;
    fields.dependentLabels = {0};
    fields.dependentSets = {Indices(300, 0)};
    const auto classifier = trained({{{1.0}, 0}, {{3.0}, 0}, {{6.0}, 1}, {{7.0}, 1}}, {bayes::typesWith(fields)});
    EXPECT_EQ(bayes::fieldsOf(bayes::modelOf(fieldsOf(classifier), 0)).groups, bayes::Sets({Indices(300, 0)}));
    EXPECT_NEAR(logLikelihood(answer(classifier, pattern({2.5})), 0), logNormal(2.5, 2.0, 2.0), 1e-12);
}

TEST(BorrowedSpreads, LoadingTakesMemoryInProportion)
{
    kt_test::needCounts();
    // One density of 60 constants under the handles of 150 groups: a stand-in for each would be 29 kB.
    constexpr long size = 60;
    Indices group(size);
    std::iota(group.begin(), group.end(), 0);
    kt_PDFMultivariateNormal constants;
    constants.updateWithData({pattern(std::vector<double>(size, 1.0))});
    const Density shared = new kt_PDFMultivariateNormal(constants);
    bayes::ModelFields fields;
    fields.groups = bayes::Sets(150, group);
    fields.densities = std::vector<Density>(150, shared);
    constants.clear();
    constants.updateWithData({pattern(std::vector<double>(size, 2.0))});
    bayes::ModelFields other;
    other.groups = {group};
    other.densities = {new kt_PDFMultivariateNormal(constants)};
    const auto classifier = classifierWith({Model(new kt_CategoryModelBayesian(bayes::modelWith(fields))),
                                            Model(new kt_CategoryModelBayesian(bayes::modelWith(other)))});
    const std::string bytes = kt_test::store(static_cast<const kt_ClassifierBayesian&>(classifier));
    kt_ClassifierBayesian loaded;
    const kt_test::MemoryWatch watch;
    kt_test::loadInto(loaded, bytes);
    EXPECT_LE(watch.peakBytes(), 12 * bytes.size() + 65536);
}

TEST(BorrowedSpreads, TrainingThatRanOutOfMemoryLeavesWhatCanBeEvaluated)
{
    kt_test::needCounts();
    const auto data = kt_test::trainingData({{{1.0}, 0}, {{1.0}, 0}, {{4.0}, 1}, {{5.0}, 1}});
    int withModels = 0;
    bool isDone = false;
    for (long n = 1; !isDone; ++n) {
        OpenBayesian classifier;
        try {
            const kt_test::AllocationFailure failure(n, kt_test::Fails::fromThenOn);
            classifier.train_(data, Params());
            isDone = true;
        } catch (const std::bad_alloc&) {
        }
        withModels += !isDone && classifier.isTrained_() ? 1 : 0;
        ktClassifierResult result;
        // Scores come before the parameters, which only `train` stores.
        expectThrows<ktBadPointer>("", [&] { classifier.run_(pattern({2.0}), result); });
    }
    EXPECT_GT(withModels, 5);
}

}  // namespace
