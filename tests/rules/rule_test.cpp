#include "scores.h"

namespace {

using namespace kt_test;
using FeatureVector = ktClassifierFeatureVector;
using Ignore = ktClassifierFeatureScoreIgnore;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;

TEST(FeatureVector, CopiesTheValuesItIsMadeOf)
{
    std::vector<double> values = {1.5, -2.0, infinity};
    const FeatureVector featureVector(values);
    values[0] = 9.0;
    EXPECT_EQ(featureVector.featureValues(), (std::vector<double>{1.5, -2.0, infinity}));
    EXPECT_TRUE((std::is_same_v<decltype(featureVector.featureValues()), const std::vector<double>&>));
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, FeatureVector>));
}

TEST(Rule, NewOneHasNoScoringFunctionsAndLabelZero)
{
    const ktClassifierRule fresh;
    EXPECT_TRUE(fresh.scoringMethods().empty());
    EXPECT_EQ(fresh.label(), 0);
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, ktClassifierRule>));
}

TEST(Rule, InitReplacesTheScoringFunctionsAndTheLabel)
{
    ktClassifierRule changed = rule(constants({0.1, 0.2, 0.3}), 7);
    ScoreHandles methods = constants({0.5, 0.6});
    changed.init(methods, 0);
    EXPECT_EQ(changed.scoringMethods(), methods) << "the same objects";
    EXPECT_EQ(changed.label(), 0);
    methods.clear();
    EXPECT_EQ(changed.scoringMethods().size(), 2u);
    changed.init(changed.scoringMethods(), LONG_MAX);
    EXPECT_EQ(changed.scoringMethods().size(), 2u) << "its own";
    EXPECT_EQ(changed.label(), LONG_MAX);
}

TEST(Rule, InitChecksTheLabelThenTheNumberAndChangesNothingWhenItRefuses)
{
    struct Row {
        const char* what;
        ScoreHandles methods;
        long label;
        const char* message;
    };
    const Row rows[] = {
        {"label", constants({0.5}), -1, "label < 0"},
        {"least label", constants({0.5}), LONG_MIN, "label < 0"},
        {"label before the number", {}, -1, "label < 0"},
        {"number", {}, 0, "scoringMethods.size() == 0"},
        {"number with a label", {}, 3, "scoringMethods.size() == 0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const ScoreHandles before = constants({0.25, 0.75});
        ktClassifierRule unchanged = rule(before, 4);
        expectBadParams(row.message, [&] { unchanged.init(row.methods, row.label); });
        EXPECT_EQ(unchanged.scoringMethods(), before);
        EXPECT_EQ(unchanged.label(), 4);
    }
}

TEST(Rule, NullScoringFunctionIsTakenByInitAndRefusedByScore)
{
    const ktPtrHandle<Constant> first(new Constant(0.5));
    const ktClassifierRule holed = rule({first, nullptr, nullptr}, 1);
    expectBadPointer([&] { holed.score(anyValues(3)); });
    EXPECT_EQ(first->timesAsked(), 1) << "in order";
    EXPECT_EQ(holed.scoringMethods(), (ScoreHandles{first, nullptr, nullptr}));
    expectBadPointer([] { rule({nullptr, new Constant(0.0)}, 1).score(anyValues(2)); });
}

TEST(Rule, CopiesShareTheScoringFunctions)
{
    const ktPtrHandle<OneSided> function(new OneSided);
    const ktClassifierRule original = rule({function}, 3);
    const ktClassifierRule copy(original);
    ktClassifierRule assigned = rule(constants({0.1, 0.2}), 9);
    EXPECT_EQ(&(assigned = original), &assigned);
    EXPECT_EQ(function->refCount(), 4) << "this handle and three rules";
    EXPECT_EQ(copy.label(), 3);
    EXPECT_EQ(assigned.label(), 3);
    const FeatureVector half(std::vector<double>{0.5});
    EXPECT_EQ(copy.score(half), 0.5);
    function->y0(0.5);
    EXPECT_EQ(original.score(half), 0.25);
    EXPECT_EQ(copy.score(half), 0.25);
    EXPECT_EQ(assigned.score(half), 0.25);
}

TEST(Rule, ScoreChecksTheSizesThenThatThereAreValues)
{
    const ktClassifierRule three = rule(constants({0.1, 0.2, 0.3}), 0);
    for (const std::size_t size : {0u, 1u, 2u, 4u}) {
        expectBadParams("MismatchedFeatureVectorSize", [&] { three.score(anyValues(size)); });
    }
    expectBadParams("MismatchedFeatureVectorSize", [] { ktClassifierRule().score(anyValues(1)); });
    expectBadParams("featureVector.featureValues().size() == 0", [] { ktClassifierRule().score(anyValues(0)); });
    expectBadParams("MismatchedFeatureVectorSize", [] { rule({nullptr}, 0).score(anyValues(2)); });
}

TEST(Rule, ScoreIsTheGeometricMeanOfTheScoresThatCount)
{
    struct Row {
        std::vector<double> scores;
        double expected;
    };
    const Row rows[] = {
        {{0.25, 1.0, -1.0}, 0.5},
        {{0.5}, 0.5},
        {{1.0, 1.0}, 1.0},
        {{0.0}, 0.0},
        {{0.9, 0.0, 0.8}, 0.0},
        {{0.0, -1.0}, 0.0},
        {{0.5, 0.125}, 0.25},
        {{0.5, 0.25, 0.125}, 0.25},
        {{-1.0, -1.0, 0.75}, 0.75},
        {{0.5, NaN, 0.125}, 0.25},
        {{NaN, 0.0}, 0.0},
        {{0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5}, 0.5},
        // The product is what it is: this one is too small for a double.
        {{1e-200, 1e-200}, 0.0},
    };
    for (const Row& row : rows) {
        EXPECT_DOUBLE_EQ(rule(constants(row.scores), 1).score(anyValues(row.scores.size())), row.expected)
            << ::testing::PrintToString(row.scores);
    }
}

TEST(Rule, KeptOnPurposeNanIsLeftOutLikeTheIgnoreMarker)
{
    EXPECT_EQ(rule(constants({NaN, 0.25, 1.0}), 1).score(anyValues(3)), 0.5);
    EXPECT_EQ(rule(constants({-1.0, 0.25, 1.0}), 1).score(anyValues(3)), 0.5);
    const ktClassifierRule ramps = rule({new OneSided, new OneSided}, 1);
    EXPECT_EQ(ramps.score(FeatureVector(std::vector<double>{NaN, 0.75})), 0.25) << "a measurement that is NaN";
}

TEST(Rule, KeptOnPurposeRuleThatLeavesEverythingOutScoresOne)
{
    EXPECT_EQ(rule({new Ignore, new Ignore}, 1).score(FeatureVector(std::vector<double>{3.0, NaN})), 1.0);
    EXPECT_EQ(rule(constants({NaN}), 1).score(anyValues(1)), 1.0);
    EXPECT_EQ(rule(constants({NaN, -1.0}), 1).score(anyValues(2)), 1.0);
}

// A scoring function of a user's own may give anything.
TEST(Rule, ScoresOutsideTheUnitIntervalAreMultipliedAllTheSame)
{
    const auto score = [](const std::vector<double>& scores) {
        return rule(constants(scores), 1).score(anyValues(scores.size()));
    };
    EXPECT_EQ(score({-0.5}), -0.5) << "the product, not its root";
    EXPECT_EQ(score({-0.5, 0.25}), -0.125);
    EXPECT_EQ(score({-0.5, -0.5}), 0.5);
    EXPECT_EQ(score({-tiny}), -tiny);
    EXPECT_EQ(score({std::nextafter(-1.0, 0.0)}), std::nextafter(-1.0, 0.0)) << "nearly the marker";
    EXPECT_EQ(score({4.0}), 4.0);
    EXPECT_EQ(score({infinity}), infinity);
    EXPECT_EQ(score({-infinity}), -infinity);
    EXPECT_TRUE(std::isnan(score({0.0, infinity}))) << "the product is NaN";
}

TEST(Rule, EachScoringFunctionGetsTheValueAtItsPlace)
{
    const ktClassifierRule ramps = rule({new OneSided, new Ignore, new TwoSided}, 1);
    EXPECT_EQ(ramps.score(FeatureVector(std::vector<double>{0.75, 9.0, 0.0})), 0.5);
    EXPECT_EQ(ramps.score(FeatureVector(std::vector<double>{0.0, 9.0, -0.75})), 0.5);
    EXPECT_EQ(ramps.score(FeatureVector(std::vector<double>{9.0, 0.0, 0.0})), 0.0);
}

TEST(Rule, ScoresLikeTheMeanOfTheLogarithms)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(0.01, 1.0);
    std::uniform_int_distribution<int> kind(0, 5);
    for (int round = 0; round < 500; ++round) {
        std::vector<double> scores(1 + static_cast<std::size_t>(round % 7));
        double logarithms = 0.0;
        int count = 0;
        for (double& score : scores) {
            const int drawn = kind(random);
            score = drawn == 0 ? -1.0 : drawn == 1 ? NaN : any(random);
            if (drawn > 1) {
                logarithms += std::log(score);
                ++count;
            }
        }
        const double expected = count == 0 ? 1.0 : std::exp(logarithms / count);
        EXPECT_NEAR(rule(constants(scores), 1).score(anyValues(scores.size())), expected, 1e-14)
            << ::testing::PrintToString(scores);
    }
}

TEST(Rule, FailuresOfScoringFunctionsPassThrough)
{
    const ktPtrHandle<OneSided> bad(new OneSided);
    bad->x1(5.0);
    expectBadParams("x1 must lie between x0 and xc", [&] { rule({new Ignore, bad}, 1).score(anyValues(2)); });
    const ktPtrHandle<TwoSided> split(new TwoSided);
    split->x0(1.0);
    expectBadParams("Bad x values", [&] { rule({split}, 1).score(anyValues(1)); });
    expectBadPointer([&] { rule({nullptr, bad}, 1).score(anyValues(2)); });
}

TEST(Rule, EqualityComparesTheScoringFunctionsByValueInOrderAndTheLabel)
{
    const ScoreHandles methods = {new OneSided, new Ignore, new TwoSided};
    const ktClassifierRule original = rule(methods, 3);
    EXPECT_TRUE(original == original);
    EXPECT_FALSE(original != original);
    EXPECT_TRUE(original == rule({new OneSided, new Ignore, new TwoSided}, 3)) << "other objects of the same values";
    const ktClassifierRule different[] = {
        rule(methods, 4),
        rule({methods[0], methods[1]}, 3),
        rule({methods[0], methods[2], methods[1]}, 3),
        rule({methods[0], methods[1], methods[2], methods[1]}, 3),
        rule({new OneSided(oneSided(0, 1, 2, 1, 0)), methods[1], methods[2]}, 3),
        rule({new kt_test::DerivedOneSided, methods[1], methods[2]}, 3),
        ktClassifierRule(),
    };
    for (const ktClassifierRule& other : different) {
        EXPECT_FALSE(original == other);
        EXPECT_FALSE(other == original);
        EXPECT_TRUE(original != other);
    }
    EXPECT_TRUE(ktClassifierRule() == ktClassifierRule());
}

TEST(Rule, EqualityOfNullScoringFunctionsIsRefused)
{
    const ktClassifierRule null = rule({nullptr}, 3);
    const ktClassifierRule ignoring = rule({new Ignore}, 3);
    expectBadPointer([&] { static_cast<void>(null == null); });
    expectBadPointer([&] { static_cast<void>(null == ignoring); });
    expectBadPointer([&] { static_cast<void>(ignoring != null); });
    EXPECT_FALSE(null == ktClassifierRule()) << "their numbers differ";
}

TEST(Rule, ScoreAllocatesNothing)
{
    const ktClassifierRule ramps = rule({new OneSided, new Ignore, new TwoSided}, 1);
    const FeatureVector values = anyValues(3);
    EXPECT_EQ(kt_test::allocationsDuring([&] { ramps.score(values); }), 0);
}

}  // namespace
