// What Bayesian tools have learnt, and learning on.

#include "densities.h"

namespace {

using namespace kt_test;

const std::string fromArchive =
    "A binomial density from an archive cannot learn further: ktKit::save keeps what that takes";

TEST(KitDensities, AreWhatWasLearnt)
{
    const Sample sample(0, 91);
    const std::vector<ktKit::Density> densities = ktKit::densities(trainedOn(sample, bayesParams()));
    ASSERT_EQ(densities.size(), 6U);
    for (std::size_t i = 0; i < densities.size(); ++i) {
        SCOPED_TRACE(i);
        const auto label = static_cast<long>(i / 2);
        const std::vector<long> group = i % 2 == 0 ? std::vector<long>{0, 1} : std::vector<long>{2};
        EXPECT_EQ(densities[i].label, label);
        EXPECT_EQ(densities[i].measurements, group);
        EXPECT_EQ(densities[i].type, ktClassifierDistributionTypes::eNormal);
        expectNear(densities[i], byDefinition(sample, label, group));
    }
}

// Proportions 1/4, 1/2, 1/2, 3/4: theta = 1/2, variance 1/24, n = 1/4 * 24 = 6.
TEST(KitDensities, TellTrialsOfABinomialOne)
{
    ktClassifierTool tool;
    tool.train(kt_test::trainingData({{{5.0}, 3}, {{10.0}, 3}, {{10.0}, 3}, {{15.0}, 3}}),
               kt_test::Bayes(ktClassifierDistributionTypes(ktClassifierDistributionTypes::eBinomial),
                              ktClassifierFrequencies(), ktClassifierCosts(), ktFeaturePattern({20.0}, {})));
    const std::vector<ktKit::Density> densities = ktKit::densities(tool);
    ASSERT_EQ(densities.size(), 1U);
    EXPECT_EQ(densities[0].label, 3);
    EXPECT_EQ(densities[0].type, ktClassifierDistributionTypes::eBinomial);
    EXPECT_EQ(densities[0].numTrials, 6);
    EXPECT_EQ(densities[0].theta, 0.5);
    EXPECT_EQ(densities[0].count, 4);
    EXPECT_TRUE(densities[0].mean.empty());
    EXPECT_EQ(ktKit::densities(storedAndLoaded(tool))[0].count, 0);
}

TEST(KitDensities, SaysWhatIsWrong)
{
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before requesting the densities",
                                               [] { ktKit::densities(ktClassifierTool()); });
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was not trained by Bayes",
                                              [] { ktKit::densities(kt_test::treeTool()); });
}

/// A density, and a model, of the caller's own. Their registered names are as long as those of the library's, so that they can take
/// their places in an archive.
class ForeignDensity : public kt_PDFMultivariateNormal {
public:
    static ktPersistent* make() { return new ForeignDensity; }
};
class ForeignModel : public kt_CategoryModelBayesian {
public:
    static ktPersistent* make() { return new ForeignModel; }
};

ktClassifierTool withForeign(ktClassifierTool tool, const std::string& known, const std::string& foreign)
{
    std::stringstream stored;
    ktArchive store(static_cast<std::ostream&>(stored));
    store || tool;
    std::string bytes = stored.str();
    const std::size_t at = bytes.find(known);
    if (at == std::string::npos || known.size() != foreign.size()) {
        throw std::logic_error("the archive does not name the class so");
    }
    kt_test::LoadingArchive load(bytes.replace(at, known.size(), foreign));
    ktClassifierTool loaded;
    load || loaded;
    return loaded;
}

TEST(KitLearning, ClassesOfTheCallersOwnAreRefused)
{
    const kt_Instantiator density(typeid(ForeignDensity), &ForeignDensity::make, "kt_PDFOfTheCallersOwnOne");
    const kt_Instantiator model(typeid(ForeignModel), &ForeignModel::make, "kt_CategoryModelOfAnyOne");
    const ktClassifierTool whole = trainedOn(Sample(0, 30), bayesParams());
    ktClassifierTool foreign = withForeign(whole, "kt_PDFMultivariateNormal", "kt_PDFOfTheCallersOwnOne");
    const std::string refused = "A density is neither normal nor binomial";
    const Sample more(30, 32);
    ktClassifierTool other = whole;
    expectThrows<ktClassifierDefs::NotImplemented>(refused, [&] { ktKit::densities(foreign); });
    expectThrows<ktClassifierDefs::NotImplemented>(refused, [&] { ktKit::add(foreign, more.patterns, more.labels); });
    expectThrows<ktClassifierDefs::NotImplemented>(refused, [&] { ktKit::merge(foreign, whole); });
    expectThrows<ktClassifierDefs::NotImplemented>(refused, [&] { ktKit::merge(other, foreign); });
    foreign = withForeign(whole, "kt_CategoryModelBayesian", "kt_CategoryModelOfAnyOne");
    expectBadPointer([&] { ktKit::densities(foreign); });
    expectBadPointer([&] { ktKit::add(foreign, more.patterns, more.labels); });
    expectBadPointer([&] { ktKit::merge(other, foreign); });
    EXPECT_TRUE(other == whole);
}

TEST(KitDensities, RunOutOfMemoryCleanly)
{
    const ktClassifierTool tool = trainedOn(Sample(0, 9), bayesParams(true));
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::densities(tool); }), 0);
}

TEST(KitAdd, IsAsTrainingOnAll)
{
    const Sample first(0, 60, 2);
    Sample second(60, 150, 3);
    // The third pattern is of an unknown category.
    second.labels[2] = -1;
    Sample both = first;
    both += second;
    const ktKit::Patterns queries = Sample(200, 260).patterns;
    std::vector<ktPtrHandle<ktClassifierTrainParams>> each;
    each.emplace_back(new Knn(5, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(3.0)));
    each.emplace_back(new kt_test::Bayes(bayesParams()));
    each.emplace_back(new kt_test::Bayes(bayesParams(true)));
    for (const auto& params : each) {
        ktClassifierTool tool = trainedOn(first, *params);
        const ktClassifierTool copy = tool;
        const ktClassifierTool expected = trainedOn(both, *params);
        ktKit::add(tool, second.patterns, second.labels);
        EXPECT_TRUE(tool == expected);
        EXPECT_TRUE(oneByOne(tool, queries) == oneByOne(expected, queries));
        EXPECT_TRUE(copy == trainedOn(first, *params)) << "the copy has seen nothing of it";
        EXPECT_TRUE(oneByOne(copy, queries) == oneByOne(trainedOn(first, *params), queries));
    }
}

// The spread of a measurement that does not vary is borrowed from what all categories have learnt, the new patterns too.
TEST(KitAdd, WhatIsBorrowedIsSettledAnew)
{
    const auto data = [](long last) {
        ktKit::Patterns patterns;
        std::vector<long> labels;
        for (long i = 0; i < last; ++i) {
            patterns.push_back(
                ktKit::pattern({i % 2 == 0 ? 4.0 : 6.0 + static_cast<double>(i % 5), static_cast<double>(i % 3)}));
            labels.push_back(i % 2);
        }
        return std::make_pair(patterns, labels);
    };
    ktClassifierTool tool;
    ktClassifierTool expected;
    ktClassifierDataProviderMemory some;
    some.data(data(10).first, data(10).second);
    tool.train(some, kt_test::Bayes());
    some.data(data(40).first, data(40).second);
    expected.train(some, kt_test::Bayes());
    const auto all = data(40);
    ktKit::add(tool, {all.first.begin() + 10, all.first.end()}, {all.second.begin() + 10, all.second.end()});
    const ktKit::Patterns queries = {ktKit::pattern({4.5, 1.0}), ktKit::pattern({5.0, 0.0})};
    EXPECT_TRUE(oneByOne(tool, queries) == oneByOne(expected, queries));
}

TEST(KitAdd, GoesOnAfterLoadingCategoriesOfOnePattern)
{
    Sample all(0, 4);
    const Sample others(4, 60);
    kt_test::Bayes params = bayesParams(true);
    params.throwIfNotReady(false);
    std::stringstream file;
    ktKit::save(trainedOn(all, params), file);
    ktClassifierTool tool = ktKit::load(file);
    ktKit::add(tool, others.patterns, others.labels);
    all += others;
    expectSameDensities(tool, trainedOn(all, params));
}

TEST(KitAdd, KeepsTheParametersInUse)
{
    ktClassifierTool tool = storedAndLoaded(trainedOn(Sample(0, 60), Knn(5)));
    ktKit::add(tool, {ktKit::pattern({1, 2, 3})}, {7});
    EXPECT_EQ(ktKit::neighbors(tool, *ktKit::pattern({1, 2, 3})).size(), 1U);
    EXPECT_EQ(ktKit::neighbors(tool, *ktKit::pattern({1, 2, 3}))[0].index, 60U);
    EXPECT_TRUE(*tool.trainParams() == Knn(5));
}

TEST(KitAdd, FillsAToolThatKeepsNothing)
{
    Knn params(1);
    params.throwIfNotReady(false);
    ktClassifierTool tool;
    tool.train(ktClassifierDataProviderMemory(), params);
    ktKit::add(tool, {}, {});
    ktKit::add(tool, {ktKit::pattern({1.0, 2.0})}, {7});
    EXPECT_EQ(ktKit::neighbors(tool, *ktKit::pattern({1.0, 2.0}))[0].label, 7);
}

TEST(KitAdd, LabelsMayBeTooLargeForAnArchive)
{
    if (sizeof(long) == 4) {
        GTEST_SKIP() << "a long holds no label that an archive cannot";
    }
    const auto data = [](long last) {
        Sample sample(0, last, 2);
        for (long& label : sample.labels) {
            label += static_cast<long>(1LL << 40);
        }
        return sample;
    };
    ktClassifierTool tool = trainedOn(data(20), kt_test::Bayes());
    Sample rest = data(40);
    rest.patterns.erase(rest.patterns.begin(), rest.patterns.begin() + 20);
    rest.labels.erase(rest.labels.begin(), rest.labels.begin() + 20);
    ktKit::add(tool, rest.patterns, rest.labels);
    const ktClassifierTool expected = trainedOn(data(40), kt_test::Bayes());
    EXPECT_TRUE(tool == expected);
    EXPECT_TRUE(oneByOne(tool, rest.patterns) == oneByOne(expected, rest.patterns));
}

TEST(KitAdd, SaysWhatIsWrongInOrderAndLeavesTheTool)
{
    const ktPtrHandle_const<ktFeaturePattern> good = ktKit::pattern({1, 2, 3});
    const ktPtrHandle_const<ktFeaturePattern> shorter = new ktFeaturePattern({1.0, 2.0}, {0});
    const ktPtrHandle_const<ktFeaturePattern> invalid = new ktFeaturePattern({1, 2, 3}, {1});
    const std::string number = "The number of the feature patterns must be equal to the number of category labels";
    const std::string size = "Feature pattern must have the same number of measurements as the rest of the data.";
    const std::string label = "Category labels must be >= 0 or unknown";

    ktClassifierTool untrained;
    expectThrows<ktClassifierDefs::NotTrained>("Classifier tool must be trained before incremental training.",
                                               [&] { ktKit::add(untrained, {nullptr}, {}); });
    ktClassifierTool tree = kt_test::treeTool();
    expectThrows<ktClassifierDefs::BadMethod>("Classifier tool was trained neither for nearest neighbors nor by Bayes",
                                              [&] { ktKit::add(tree, {nullptr}, {}); });
    ktClassifierTool knn = trainedOn(Sample(0, 60), Knn(5));
    ktClassifierTool bayes = trainedOn(Sample(0, 60), bayesParams(true));
    for (ktClassifierTool* const tool : {&knn, &bayes}) {
        const ktClassifierTool before = *tool;
        expectThrows<ktClassifierDefs::BadFeatures>(number, [&] { ktKit::add(*tool, {nullptr}, {}); });
        expectBadPointer([&] { ktKit::add(*tool, {good, nullptr, shorter}, {0, -2, 0}); });
        expectThrows<ktClassifierDefs::BadFeatures>(size, [&] {
            ktKit::add(*tool, {good, shorter, nullptr}, {0, -2, 0});
        });
        expectThrows<ktClassifierDefs::BadLabel>(label, [&] { ktKit::add(*tool, {good, good, shorter}, {0, -2, 0}); });
        EXPECT_TRUE(*tool == before);
    }
    expectThrows<ktClassifierDefs::BadFeatures>(
        "K-nearest neighbor classification does not support invalid measurements", [&] {
            ktKit::add(knn, {good, invalid}, {0, -2});
        });
    const ktClassifierTool before = bayes;
    expectThrows<ktClassifierDefs::BadParams>(
        "Train data measurement cannot exceed its maximum value when using binomial distribution", [&] {
            ktKit::add(bayes, {good, ktKit::pattern({1, 2, 21})}, {0, 0});
        });
    // One pattern of a new category leaves its binomial density without n.
    expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "Insufficient data has been used to train the distribution for category 9", [&] {
            ktClassifierDistributionTypes types(ktClassifierDistributionTypes::eBinomial);
            ktClassifierTool tool;
            tool.train(kt_test::trainingData({{{0.25}, 1}, {{0.5}, 1}}), kt_test::Bayes(types));
            ktKit::add(tool, {ktKit::pattern({0.5})}, {9});
        });
    EXPECT_TRUE(bayes == before);
    ktClassifierTool loaded = storedAndLoaded(bayes);
    expectThrows<ktClassifierDefs::BadMethod>(fromArchive, [&] { ktKit::add(loaded, {good}, {0}); });
    EXPECT_TRUE(loaded == bayes);
}

TEST(KitAdd, RunsOutOfMemoryCleanly)
{
    // Patterns remember the classifiers that copied their measurements, so each state has patterns of its own.
    struct State {
        Sample more = Sample(60, 64, 4);
        ktClassifierTool tool;
        ktClassifierTool before;
    };
    const Knn knn(5);
    const kt_test::Bayes bayes = bayesParams();
    for (const ktClassifierTrainParams* const params :
         {static_cast<const ktClassifierTrainParams*>(&knn), static_cast<const ktClassifierTrainParams*>(&bayes)}) {
        const auto prepare = [params] {
            State state;
            state.tool = trainedOn(Sample(0, 20), *params);
            state.before = state.tool;
            return state;
        };
        EXPECT_GT(kt_test::failEachAllocation(
                      prepare, [](State& state) { ktKit::add(state.tool, state.more.patterns, state.more.labels); },
                      [](const State& state) { EXPECT_TRUE(state.tool == state.before); }),
                  0);
    }
}

TEST(KitMerge, IsAsTrainingOnBothParts)
{
    for (const bool withBinomial : {false, true}) {
        Sample both(0, 70, 2);
        const Sample second(70, 190, 3);
        ktClassifierTool tool = trainedOn(both, bayesParams(withBinomial));
        const ktClassifierTool copy = tool;
        const ktClassifierTool other = trainedOn(second, bayesParams(withBinomial));
        ktKit::merge(tool, other);
        EXPECT_TRUE(copy == trainedOn(both, bayesParams(withBinomial))) << "the copy has seen nothing of it";
        EXPECT_TRUE(other == trainedOn(second, bayesParams(withBinomial)));
        both += second;
        const ktClassifierTool expected = trainedOn(both, bayesParams(withBinomial));
        expectSameDensities(tool, expected);
        const ktKit::Patterns queries = Sample(200, 260).patterns;
        const kt_test::Results found = oneByOne(tool, queries);
        const kt_test::Results right = oneByOne(expected, queries);
        for (std::size_t i = 0; i < queries.size(); ++i) {
            for (const long label : {0L, 1L, 2L}) {
                EXPECT_NEAR(ktKit::logLikelihood(found[i], label), ktKit::logLikelihood(right[i], label), 1e-9);
            }
        }
    }
}

// Far from zero, where summing squares would lose all digits: within 1e-12 of the definition.
TEST(KitMerge, IsAsExactAsLearning)
{
    const auto part = [](long first, long last) {
        Sample sample(0, 0);
        for (long i = first; i < last; ++i) {
            sample.patterns.push_back(
                ktKit::pattern({1e6 + static_cast<double>(i * i % 101), static_cast<double>(i % 7) / 4 - 3e5}));
            sample.labels.push_back(0);
        }
        return sample;
    };
    ktClassifierDistributionTypes types;
    types.setDependent(0, {0, 1});
    ktClassifierTool tool = trainedOn(part(0, 1000), kt_test::Bayes(types));
    ktKit::merge(tool, trainedOn(part(1000, 1010), kt_test::Bayes(types)));
    const ktKit::Density found = ktKit::densities(tool)[0];
    const ktKit::Density expected = byDefinition(part(0, 1010), 0, {0, 1});
    EXPECT_EQ(found.count, 1010);
    for (const long i : {0L, 1L}) {
        const auto place = static_cast<std::size_t>(i);
        expectNear(found.mean[place], expected.mean[place]);
        EXPECT_NEAR(found.covariance(i, i), expected.covariance(i, i), 1e-10 * expected.covariance(i, i));
    }
}

TEST(KitMerge, AToolMergedWithItselfCountsTwice)
{
    Sample twice(0, 30);
    ktClassifierTool tool = trainedOn(twice, bayesParams(true));
    ktKit::merge(tool, tool);
    twice += Sample(0, 30);
    expectSameDensities(tool, trainedOn(twice, bayesParams(true)));
}

TEST(KitMerge, WhatHasLearntNothingTakesTheOther)
{
    const auto tool = [](const ktKit::Patterns& patterns) {
        ktClassifierDataProviderMemory data;
        for (const auto& pattern : patterns) {
            data.addData(pattern, 0);
        }
        ktClassifierTool trained;
        kt_test::Bayes params;
        params.throwIfNotReady(false);
        trained.train(data, params);
        return trained;
    };
    const ktKit::Patterns unknown = {ktKit::pattern({NaN}), ktKit::pattern({NaN})};
    const ktKit::Patterns known = {ktKit::pattern({1.0}), ktKit::pattern({3.0})};
    ktClassifierTool first = tool(unknown);
    ktKit::merge(first, tool(known));
    ktClassifierTool second = tool(known);
    ktKit::merge(second, tool(unknown));
    for (const ktClassifierTool& merged : {first, second}) {
        const ktKit::Density density = ktKit::densities(merged)[0];
        EXPECT_EQ(density.count, 2);
        EXPECT_EQ(density.mean, std::vector<double>{2.0});
        EXPECT_EQ(density.covariance(0, 0), 2.0);
    }
}

TEST(KitMerge, ACategoryOfOnePatternCounts)
{
    Sample both(0, 70);
    const Sample one(70, 71);
    kt_test::Bayes params = bayesParams(true);
    params.throwIfNotReady(false);
    ktClassifierTool tool = trainedOn(both, params);
    ktKit::merge(tool, trainedOn(one, params));
    both += one;
    expectSameDensities(tool, trainedOn(both, params));
}

TEST(KitMerge, SaysWhatIsWrongInOrderAndLeavesTheTool)
{
    const std::string untrained = "Classifier tools must be trained before they are merged";
    const std::string technique = "Classifier tools must be trained by Bayes to be merged";
    const std::string params = "Classifier tools must be trained with equal parameters to be merged";
    const std::string measurements = "Classifier tools must be trained on the same measurements to be merged";
    ktClassifierTool none;
    ktClassifierTool tree = kt_test::treeTool();
    ktClassifierTool bayes = trainedOn(Sample(0, 60), bayesParams());
    const ktClassifierTool before = bayes;
    expectThrows<ktClassifierDefs::NotTrained>(untrained, [&] { ktKit::merge(none, tree); });
    expectThrows<ktClassifierDefs::NotTrained>(untrained, [&] { ktKit::merge(tree, none); });
    expectThrows<ktClassifierDefs::BadMethod>(technique, [&] { ktKit::merge(tree, bayes); });
    expectThrows<ktClassifierDefs::BadMethod>(technique, [&] { ktKit::merge(bayes, tree); });
    expectThrows<ktClassifierDefs::BadParams>(
        params, [&] { ktKit::merge(bayes, trainedOn(Sample(0, 60), bayesParams(true))); });
    Sample longer(0, 0);
    for (long i = 0; i < 9; ++i) {
        longer.patterns.push_back(ktKit::pattern({static_cast<double>(i), 2.0, 1.0, static_cast<double>(i % 4)}));
        longer.labels.push_back(8);
    }
    expectThrows<ktClassifierDefs::BadFeatures>(measurements,
                                                [&] { ktKit::merge(bayes, trainedOn(longer, bayesParams())); });
    EXPECT_TRUE(bayes == before);
    ktClassifierTool binomial = trainedOn(Sample(0, 60), bayesParams(true));
    expectThrows<ktClassifierDefs::BadMethod>(fromArchive, [&] { ktKit::merge(binomial, storedAndLoaded(binomial)); });
    ktClassifierTool loaded = storedAndLoaded(binomial);
    expectThrows<ktClassifierDefs::BadMethod>(fromArchive, [&] { ktKit::merge(loaded, binomial); });
    EXPECT_TRUE(loaded == binomial);
}

TEST(KitMerge, RunsOutOfMemoryCleanly)
{
    const ktClassifierTool tool = trainedOn(Sample(0, 20, 2), bayesParams());
    const ktClassifierTool other = trainedOn(Sample(20, 50), bayesParams());
    EXPECT_GT(
        kt_test::failEachAllocation([&] { return tool; }, [&](ktClassifierTool& copy) { ktKit::merge(copy, other); },
                                    [&](const ktClassifierTool& copy) { EXPECT_TRUE(copy == tool); }),
        0);
}

}  // namespace
