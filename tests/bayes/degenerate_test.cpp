// Training sets that real inspection lines produce: too few samples, measurements that never change, measurements that say
// the same twice, values far from zero or hardly different from it.

#include "degenerate_sets.h"

namespace {

using namespace bayes;
using namespace kt_test;

TEST(DegenerateSets, GiveFiniteLogDensities)
{
    for (const DegenerateSet& set : degenerateSets()) {
        SCOPED_TRACE(set.label);
        kt_PDFMultivariateNormal density;
        density.updateWithData(bayes::patterns(set.rows));
        for (const std::vector<double>& query : queries()) {
            for (const Indices& invalid : missing()) {
                const double value = density.logValue(ktFeaturePattern(query, invalid));
                EXPECT_TRUE(value >= -1e300 && value <= 1e300) << value;
            }
        }
    }
}

TEST(DegenerateSets, GiveTheirOwnSamplesMoreThanFarPatterns)
{
    for (const DegenerateSet& set : degenerateSets()) {
        if (!set.scales) {
            continue;
        }
        kt_PDFMultivariateNormal density;
        density.updateWithData(bayes::patterns(set.rows));
        for (const std::vector<double>& row : set.rows) {
            EXPECT_GT(density.logValue(ktFeaturePattern(row, {})),
                      density.logValue(ktFeaturePattern({1e12, -1e12, 1e12}, {})))
                << set.label;
        }
    }
}

TEST(DegenerateSets, TrainAndRunBesideAHealthyCategory)
{
    const Rows healthy = kt_test::TrainingSet{30, 3, 2.0, 5.0, 32}.rows();
    for (const DegenerateSet& set : degenerateSets()) {
        for (const bool jointly : {false, true}) {
            SCOPED_TRACE(::testing::Message() << set.label << (jointly ? ", jointly" : ", independently"));
            std::vector<Labelled> rows = labelled(healthy, 1);
            for (const Labelled& row : labelled(set.rows, 2)) {
                rows.push_back(row);
            }
            ktClassifierTool tool;
            tool.train(kt_test::trainingData(rows), grouped(jointly));
            for (const std::vector<double>& query : queries()) {
                for (const Indices& invalid : missing()) {
                    ktClassifierResult result;
                    tool.run(ktFeaturePattern(query, invalid), result);
                    const ktClassifierCategoryResult& best = result.categoryResults()[0];
                    const ktClassifierCategoryResult& other = result.categoryResults()[1];
                    EXPECT_NEAR(best.classScore() + other.classScore(), 1.0, 1e-15);
                    EXPECT_EQ(std::max(best.matchScore(), other.matchScore()), 1.0);
                    EXPECT_TRUE(std::isfinite(result.matchScoreFactorLog()));
                    EXPECT_LE(best.expectedCost(), other.expectedCost());
                }
            }
        }
    }
}

TEST(DegenerateSets, SamplesOfOneSampleCategoriesAreRecognised)
{
    for (const bool jointly : {false, true}) {
        const auto classifier =
            bayes::trained({{{1.0, 2.0, 3.0}, 0}, {{1.0, 2.0, 3.5}, 1}, {{-4.0, 2.0, 3.0}, 2}}, grouped(jointly));
        EXPECT_EQ(labelsOf(answer(classifier, ktFeaturePattern({1.0, 2.0, 3.0}, {})))[0], 0);
        EXPECT_EQ(labelsOf(answer(classifier, ktFeaturePattern({1.0, 2.0, 3.5}, {})))[0], 1);
        EXPECT_EQ(labelsOf(answer(classifier, ktFeaturePattern({-4.0, 2.0, 3.0}, {})))[0], 2);
        EXPECT_EQ(labelsOf(answer(classifier, ktFeaturePattern({-4.0, 2.0, 3.0}, {2})))[0], 2);
    }
}

TEST(DegenerateSets, OnlyInvalidPatternsCannotRun)
{
    kt_test::PatternHandle invalid = new ktFeaturePattern({1.0, 2.0}, {0, 1});
    ktClassifierDataProviderMemory data;
    data.addData(kt_test::pattern({1.0, 2.0}), 0);
    data.addData(invalid, 4);
    data.addData(invalid, 4);
    ktClassifierTool tool;
    expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "No valid data has been used to train the distribution for category 4", [&] { tool.train(data, Params()); });
    EXPECT_FALSE(tool.isTrained());
}

TEST(DegenerateSets, MeasurementThatIsNeverValidSpoilsItsOwnGroupAlone)
{
    ktClassifierDataProviderMemory data;
    data.addData(kt_test::pattern({1.0, 2.0, 9.0}, {2}), 4);
    data.addData(kt_test::pattern({2.0, 3.0, 9.0}, {2}), 4);
    Params params;
    params.throwIfNotReady(false);
    bayes::OpenBayesian classifier;
    classifier.train(data, params);
    const bayes::ModelFields model = bayes::fieldsOf(bayes::modelOf(bayes::fieldsOf(classifier), 0));
    const long counts[] = {2, 2, 0};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(bayes::fieldsOf(dynamic_cast<const kt_PDFMultivariateNormal&>(*model.densities.at(i))).count,
                  counts[i]);
    }
}

/// The rows with each measurement multiplied by a power of two of its own.
Rows scaledBy(const std::vector<int>& exponents, Rows rows)
{
    for (std::vector<double>& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = std::ldexp(row[i], exponents[i]);
        }
    }
    return rows;
}

const std::vector<std::vector<int>>& powersOfTwo()
{
    static const std::vector<std::vector<int>> lists = {{1, 0, 0},    {0, 7, -3},   {20, -2, 40},
                                                        {-1, -1, -1}, {60, 60, 60}, {3, 90, 0}};
    return lists;
}

TEST(DegenerateSets, ScalingByPowersOfTwoShiftsTheLogDensityByTheirLogarithms)
{
    for (const DegenerateSet& set : degenerateSets()) {
        for (const std::vector<int>& exponents : powersOfTwo()) {
            if (!set.scales) {
                continue;
            }
            SCOPED_TRACE(set.label);
            kt_PDFMultivariateNormal density;
            density.updateWithData(bayes::patterns(set.rows));
            kt_PDFMultivariateNormal scaled;
            scaled.updateWithData(bayes::patterns(scaledBy(exponents, set.rows)));
            const double shift = (exponents[0] + exponents[1] + exponents[2]) * std::log(2.0);
            for (const std::vector<double>& row : set.rows) {
                const double value = density.logValue(ktFeaturePattern(row, {}));
                const double scaledValue = scaled.logValue(ktFeaturePattern(scaledBy(exponents, {row})[0], {}));
                EXPECT_NEAR(scaledValue, value - shift, 1e-13 * (std::abs(value) + std::abs(shift) + 1.0));
            }
        }
    }
}

TEST(DegenerateSets, ScalingByPowersOfTwoChangesNoDecision)
{
    const Rows healthy = kt_test::TrainingSet{30, 3, 2.0, 5.0, 33}.rows();
    const Rows tested = kt_test::TrainingSet{60, 3, 2.5, 3.0, 34}.rows();
    long decisions = 0;
    for (const DegenerateSet& set : degenerateSets()) {
        for (const std::vector<int>& exponents : powersOfTwo()) {
            for (const bool jointly : {false, true}) {
                if (!set.scales) {
                    continue;
                }
                SCOPED_TRACE(set.label);
                const auto trainedOn = [&](const Rows& one, const Rows& two) {
                    std::vector<Labelled> rows = labelled(one, 1);
                    for (const Labelled& row : labelled(two, 2)) {
                        rows.push_back(row);
                    }
                    return bayes::trained(rows, grouped(jointly));
                };
                const auto original = trainedOn(healthy, set.rows);
                const auto scaled = trainedOn(scaledBy(exponents, healthy), scaledBy(exponents, set.rows));
                Rows all = tested;
                all.insert(all.end(), set.rows.begin(), set.rows.end());
                for (const std::vector<double>& row : all) {
                    for (const Indices& invalid : {Indices{}, Indices{1}}) {
                        const ktFeaturePattern query(row, invalid);
                        const ktFeaturePattern scaledQuery(scaledBy(exponents, {row})[0], invalid);
                        EXPECT_EQ(labelsOf(answer(scaled, scaledQuery)), labelsOf(answer(original, query)));
                        ++decisions;
                    }
                }
            }
        }
    }
    EXPECT_GT(decisions, 10000);
}

TEST(DegenerateSets, OfAConstantAtZeroUnitsMatter)
{
    // A measurement constant at zero shows no unit, so a density alone takes a plain number for its spread, and one distance
    // counts for more or less with the unit that it is told in.
    kt_PDFMultivariateNormal density;
    density.updateWithData(bayes::patterns({{0.0}, {0.0}}));
    const double inMetres =
        density.logValue(ktFeaturePattern({1e-9}, {})) - density.logValue(ktFeaturePattern({0.0}, {}));
    const double inNanometres =
        density.logValue(ktFeaturePattern({1.0}, {})) - density.logValue(ktFeaturePattern({0.0}, {}));
    EXPECT_NEAR(inMetres, -0.5, 1e-12);
    EXPECT_NEAR(inNanometres, -0.5e18, 1e4);
}

TEST(DegenerateSets, MarginalsAgreeWithNumericalIntegration)
{
    // Some directions are narrow: the integral runs over 40 of the conditional spreads around the conditional mean,
    // which the density itself shows by its largest value.
    struct Row {
        const char* label;
        Rows rows;
        std::vector<double> at;
    };
    const Row sets[] = {
        {"one sample", {{0.0, 0.0}}, {1e-9, -5e-10}},
        {"collinear", {{1.0, 2.0}, {2.0, 4.0}, {4.0, 8.0}, {3.0, 6.0}}, {2.5, 5.25}},
        {"a constant", {{1.0, 0.0}, {2.0, 0.0}, {4.0, 0.0}}, {2.0, 1e-9}},
    };
    for (const Row& set : sets) {
        SCOPED_TRACE(set.label);
        kt_PDFMultivariateNormal density;
        density.updateWithData(bayes::patterns(set.rows));
        const kt_test::Moments evaluated = kt_test::evaluatedReference(kt_test::twoPassMoments(set.rows));
        for (const long kept : {0L, 1L}) {
            const long out = 1 - kept;
            const auto c = static_cast<std::size_t>(kept);
            const long double slope = evaluated.covariance(out, kept) / evaluated.covariance(kept, kept);
            const auto centre = static_cast<double>(evaluated.mean(out) + slope * (set.at[c] - evaluated.mean(kept)));
            const auto spread = static_cast<double>(
                std::sqrt(evaluated.covariance(out, out) - slope * evaluated.covariance(out, kept)));
            double sum = 0.0;
            constexpr int steps = 2000;
            for (int i = 0; i <= steps; ++i) {
                const double other = centre + (40.0 * i / steps - 20.0) * spread;
                sum += std::exp(density.logValue(ktFeaturePattern(
                    kept == 0 ? std::vector<double>{set.at[c], other} : std::vector<double>{other, set.at[c]}, {})));
            }
            const double integral = sum * 40.0 * spread / steps;
            const double marginal = std::exp(density.logValue(ktFeaturePattern({set.at[c], set.at[c]}, {out})));
            EXPECT_NEAR(integral / marginal, 1.0, 1e-6) << "measurement " << kept << " kept";
        }
    }
}

}  // namespace
