// Values that are not finite, or too far from every category for their squares to be numbers.

#include "../../docs/programs/look_alikes.h"
#include "bayesian_classifier_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;
using bayes::pattern;

constexpr unsigned long seed = 20;

TEST(UnreachedValues, ValueThatIsNotFiniteIsMissing)
{
    Types types;
    types.setDependent(0, {0, 1});
    types.distributionTypeOverride(0, 3, Types::eBinomial);
    types.distributionTypeOverride(1, 3, Types::eBinomial);
    const auto classifier = trained({{{1.0, 2.0, 5.0, 2.0}, 0},
                                     {{2.0, 2.5, 5.0, 4.0}, 0},
                                     {{3.0, 9.0, 5.0, 5.0}, 0},
                                     {{7.0, 4.0, 1.0, 6.0}, 1},
                                     {{8.0, 7.0, 2.0, 9.0}, 1}},
                                    {types, {}, {}, pattern({1.0, 1.0, 1.0, 10.0})});
    for (long index = 0; index < 4; ++index) {
        std::vector<double> values = {4.0, 5.0, 3.0, 6.0};
        const ktClassifierResult missing = answer(classifier, pattern(values, {index}));
        for (const double value : {NaN, infinity, -infinity}) {
            values[static_cast<std::size_t>(index)] = value;
            EXPECT_TRUE(answer(classifier, pattern(values)) == missing) << index << ": " << value;
        }
    }
}

TEST(UnreachedValues, ValueWhoseSquareOverflowsLosesItsOwnMeasurementAlone)
{
    const auto samples = wineLookAlikes(300, seed);
    std::vector<Labelled> training;
    for (std::size_t i = 0; i < 120; ++i) {
        training.push_back({samples[i].values, samples[i].label});
    }
    for (const bool jointly : {false, true}) {
        const auto classifier = trained(training, jointly ? allTogether(13, 3) : Params());
        for (std::size_t i = 120; i < samples.size(); ++i) {
            std::vector<double> values = samples[i].values;
            const auto index = static_cast<long>(i % 13);
            const long without = decided(classifier, values, {index});
            for (const double wild : {1e160, -1e308}) {
                values[static_cast<std::size_t>(index)] = wild;
                const ktClassifierResult result = answer(classifier, pattern(values));
                EXPECT_EQ(labelsOf(result)[0], without);
                EXPECT_EQ(result.matchScoreFactorLog(), 1e300) << "like nothing seen";
            }
        }
    }
    // A category that it can be told from keeps its say.
    const OpenBayesian wide = trained({{{1.0}, 0}, {{2.0}, 0}, {{1e150}, 1}, {{-2e150}, 1}});
    EXPECT_EQ(decided(wide, {1e151}), 1);
}

/// A model for which no pattern is likely.
class Hopeless : public bayes::ForeignModel {
public:
    double matchScore(const ktFeaturePattern&, ktDiagObject*, unsigned long) const override { return -1e300; }

    static ktPersistent* make() { return new Hopeless; }
};

TEST(UnreachedValues, ValueWhoseSquareOverflowsIsFoundBesideForeignModelsAndMissingMeasurements)
{
    const kt_Instantiator entry(typeid(Hopeless), &Hopeless::make, "Hopeless");
    kt_PDFMultivariateNormal low;
    low.updateWithData(bayes::patterns({{0.0}, {1.0}}));
    kt_PDFMultivariateNormal high;
    high.updateWithData(bayes::patterns({{10.0}, {11.0}}));
    const auto model = [&](long label, const kt_PDFMultivariateNormal& density) -> Model {
        return new kt_CategoryModelBayesian(
            bayes::modelWith(label, {{0}, {1}, {7}},
                             {new kt_PDFMultivariateNormal(low), new kt_PDFMultivariateNormal(density),
                              new kt_PDFMultivariateNormal(low)}));
    };
    const auto classifier = classifierWith({model(1, low), new Hopeless, model(2, high)});
    EXPECT_EQ(decided(classifier, {1e200, 0.5}), 1);
    EXPECT_EQ(decided(classifier, {1e200, 10.5}), 2);
}

TEST(UnreachedValues, ValueWhoseSquareOverflowsLeavesBinomialMeasurementsTheirSay)
{
    Types types;
    types.distributionTypeOverride(0, 1, Types::eBinomial);
    types.distributionTypeOverride(1, 1, Types::eBinomial);
    const auto classifier = trained({{{0.0, 1.0}, 0}, {{1.0, 3.0}, 0}, {{5.0, 7.0}, 1}, {{6.0, 9.0}, 1}},
                                    Params(types, {}, {}, pattern({1.0, 10.0})));
    EXPECT_EQ(decided(classifier, {1e160, 1.0}), 0);
    EXPECT_EQ(decided(classifier, {1e160, 9.0}), 1);
}

TEST(UnreachedValues, LongPatternThatLacksAMeasurementIsJudgedByTheOthers)
{
    constexpr std::size_t size = 600;
    ktRandomGaussian random(seed);
    const auto rows = drawn({20, 20}, [&](long label) {
        std::vector<double> values(size);
        std::generate(values.begin(), values.end(), [&] { return random.next(0.1 * static_cast<double>(label), 1.0); });
        return values;
    });
    const auto less = [](std::vector<Labelled> given) {
        for (Labelled& row : given) {
            row.measurements.erase(row.measurements.begin() + 5);
        }
        return given;
    };
    const auto whole = trained(rows);
    const auto without = trained(less(rows));
    for (const Labelled& row : rows) {
        std::vector<double> values = row.measurements;
        const ktClassifierResult lacking = answer(whole, pattern(values, {5}));
        values.erase(values.begin() + 5);
        const ktClassifierResult expected = answer(without, pattern(values));
        EXPECT_NEAR(logLikelihood(lacking, 0), logLikelihood(expected, 0), 1e-9);
        EXPECT_NEAR(logLikelihood(lacking, 1), logLikelihood(expected, 1), 1e-9);
    }
}

}  // namespace
