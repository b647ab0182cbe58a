#include "load_work.h"

#include <cstdlib>
#include <limits>
#include <numeric>
#include <utility>

namespace load_work {

namespace {

/// Overrides for pairs of n labels in no order.
ktClassifierCosts scatteredCosts(long n)
{
    ktClassifierCosts costs;
    for (long i = 0; i < n; ++i) {
        costs.misclassificationCostOverride(i * 37 % n, (i * 37 + 1) % n, 2.0);
    }
    return costs;
}

/// n stored patterns of n labels, of which the k nearest vote.
Case neighborsWithOverrides(long n, long k)
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < n; ++i) {
        data.addData(new ktFeaturePattern({static_cast<double>(i)}, {}), i);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(2.0), scatteredCosts(n)));
    return useOf(tool, [](ktClassifierTool& loaded) {
        loaded.retrain(*loaded.trainParams());
        ktClassifierResult result;
        loaded.run(ktFeaturePattern({0.0}, {}), result);
    });
}

Case voteOfAll(long n)
{
    return neighborsWithOverrides(n, n);
}

Case voteOfEight(long n)
{
    return neighborsWithOverrides(n, 8);
}

Case bayesianRun(long n)
{
    ktClassifierDataProviderMemory data;
    ktClassifierFrequencies frequencies;
    for (long i = 0; i < n; ++i) {
        data.addData(new ktFeaturePattern({static_cast<double>(2 * i)}, {}), i);
        data.addData(new ktFeaturePattern({static_cast<double>(2 * i + 1)}, {}), i);
        frequencies.categoryFrequencyOverride(n - i, 0.5);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian({}, frequencies, scatteredCosts(n)));
    return useOf(tool, [](ktClassifierTool& loaded) {
        ktClassifierResult result;
        loaded.run(ktFeaturePattern({0.0}, {}), result);
    });
}

/// Labels in no order.
std::vector<ktClassifierCategoryResult> scatteredResults(long n)
{
    std::vector<ktClassifierCategoryResult> categories;
    for (long i = 0; i < n; ++i) {
        categories.emplace_back(i * 1009 % n, 1.0, 1.0, static_cast<double>(i * 37 % 101));
    }
    return categories;
}

Case plainResult(long n)
{
    return useOf(scatteredResults(n), [](const std::vector<ktClassifierCategoryResult>& loaded) {
        const ktClassifierResult result(loaded, 0.0);
    });
}

/// The decision rule, aborted at its first poll: the work lies behind the polls.
Case abortedRule(long n)
{
    const ktClassifierCosts costs = scatteredCosts(n);
    return useOf(scatteredResults(n), [costs](const std::vector<ktClassifierCategoryResult>& loaded) {
        kfSetAttentionHandler([](void*) { return static_cast<long>(0x80000C61UL); }, nullptr);
        try {
            const ktClassifierResult result(loaded, ktClassifierFrequencies(), costs, 0.0);
            std::abort();
        } catch (const ktFailure&) {
            kfSetAttentionHandler(nullptr, nullptr);
        }
    });
}

using Tree = ktPtrHandle<ktDecisionTree>;

void requireEqual(const std::pair<ktClassifierTool, ktClassifierTool>& tools)
{
    if (tools.first != tools.second) {
        std::abort();
    }
}

/// Two loaded tools that are compared with each other.
Case equalTools(const ktClassifierTool& one, const ktClassifierTool& other)
{
    const std::string first = stored(one), second = stored(other);
    return {first + second, {}, [first, second](ktArchive&) {
                const auto tools = std::make_shared<std::pair<ktClassifierTool, ktClassifierTool>>();
                std::istringstream inFirst(first), inSecond(second);
                ktArchive archiveFirst(static_cast<std::istream&>(inFirst));
                ktArchive archiveSecond(static_cast<std::istream&>(inSecond));
                archiveFirst || tools->first;
                archiveSecond || tools->second;
                return [tools] { requireEqual(*tools); };
            }};
}

ktClassifierTool toolOf(const ktDecisionTree& tree)
{
    ktClassifierTool tool;
    tool.train(tree);
    return tool;
}

/// Some n nodes that share one predicate of n measurements.
Case sharedPredicate(long n)
{
    const ktDecisionTreeNode asking(ktValidityPredicate(std::vector<long>(static_cast<std::size_t>(n), 1)),
                                    *balancedTree(1), *balancedTree(2));
    // A chain of the same predicate, as deep as an archive takes, in several arms.
    std::vector<Tree> arms;
    for (long arm = 0; arm < n / 500 + 1; ++arm) {
        Tree chain = asking.clone();
        for (long i = 0; i < 500; ++i) {
            ktDecisionTreeNode above(asking);
            above.trueTree(*chain);
            chain = above.clone();
        }
        arms.push_back(chain);
    }
    Tree all = arms.front();
    for (const Tree& arm : arms) {
        ktDecisionTreeNode above(asking);
        above.trueTree(*all);
        above.falseTree(*arm);
        all = above.clone();
    }
    return equalTools(toolOf(*all), toolOf(*all));
}

/// Levels of nodes, each of which has two of the next level: as many levels as nodes in one.
Tree woven(long n, long turn)
{
    long levels = 1;
    while (levels * levels < n) {
        ++levels;
    }
    std::vector<Tree> below(static_cast<std::size_t>(levels), balancedTree(1));
    for (long level = 0; level < levels; ++level) {
        std::vector<Tree> nodes;
        for (std::size_t i = 0; i < below.size(); ++i) {
            const std::size_t next = (i + 1) % below.size();
            nodes.emplace_back(new ktDecisionTreeNode(ktComparisonPredicate(0, 1), *below[turn == 0 ? i : next],
                                                      *below[turn == 0 ? next : i]));
        }
        below = nodes;
    }
    return below.front();
}

/// Equal trees, differently shared: every node of a level meets every one of the other tree.
Case wovenTrees(long n)
{
    return equalTools(toolOf(*woven(n, 0)), toolOf(*woven(n, 1)));
}

/// A classifier that holds one model of many measurements many times, against its own copy.
Case sharedModels(long n)
{
    std::vector<std::vector<long>> groups;
    std::vector<ktClassifierDistributionTypes::DistributionType> types;
    for (long i = 0; i < n; ++i) {
        groups.push_back({i});
        types.push_back(ktClassifierDistributionTypes::eNormal);
    }
    const ktPtrHandle<kt_CategoryModelBayesian> model =
        new kt_CategoryModelBayesian(1, groups, types, ktFeaturePattern());
    model->adapt(ktFeaturePattern(someValues(n), {}), nullptr, 0);
    std::vector<ktPtrHandle<kt_CategoryModel>> models(static_cast<std::size_t>(n), model);
    std::vector<long> labels(models.size(), 1);
    ktPtrHandle<ktClassifierTrainParams> params = new ktClassifierTrainParamsBayesian;
    unsigned char version = 0;
    std::ostringstream out;
    ktArchive archive(out);
    {
        const ktArchive::Pass pass(archive);
        archive || version || version || params || labels || models;
    }
    const std::string bytes = out.str();
    return {bytes, {}, [bytes](ktArchive& first) {
                const auto pair = std::make_shared<std::pair<kt_ClassifierBayesian, kt_ClassifierBayesian>>();
                std::istringstream again(bytes);
                ktArchive second(static_cast<std::istream&>(again));
                first || pair->first;
                second || pair->second;
                return [pair] {
                    if (pair->first != pair->second) {
                        std::abort();
                    }
                };
            }};
}

/// Parameters with a dependency set, and training data of one measurement.
Case trainedWithSet(const std::vector<long>& set, bool isBeyondTheData)
{
    ktClassifierDistributionTypes::DistributionType normal = ktClassifierDistributionTypes::eNormal;
    std::vector<long> none, labels{0};
    std::vector<ktClassifierDistributionTypes::DistributionType> noTypes;
    std::vector<std::vector<long>> sets{set};
    unsigned char version = 0;
    std::ostringstream out;
    ktArchive archive(out);
    {
        const ktArchive::Pass pass(archive);
        archive || version || normal || none || none || noTypes || labels || sets;
    }
    return {out.str(), {}, [isBeyondTheData](ktArchive& in) {
                ktClassifierDistributionTypes types;
                in || types;
                const auto params = std::make_shared<ktClassifierTrainParamsBayesian>(types);
                return [params, isBeyondTheData] {
                    ktClassifierDataProviderMemory data;
                    for (const double value : {1.0, 2.0, 4.0}) {
                        data.addData(new ktFeaturePattern({value}, {}), 0);
                    }
                    ktClassifierTool tool;
                    try {
                        tool.train(data, *params);
                    } catch (const ktClassifierDefs::InsufficientTrainData&) {
                        // A group that reaches beyond the data learns nothing.
                    }
                    if (tool.isTrained() == isBeyondTheData) {
                        std::abort();
                    }
                };
            }};
}

Case setOfMeasurementsThatAreNotThere(long n)
{
    std::vector<long> set;
    for (long i = 0; i < n; ++i) {
        set.push_back(i);
    }
    return trainedWithSet(set, true);
}

/// Its density has a covariance for each two of them.
Case setOfOneMeasurement(long n)
{
    return trainedWithSet(std::vector<long>(static_cast<std::size_t>(n), 0), false);
}

/// Training of a group of n / 4 measurements with `numPatterns` patterns of each of two categories, then the first run after loading.
Case trainedGroup(long n, long numPatterns)
{
    return {"", {}, [=](ktArchive&) {
                ktRandomGaussian random(7);
                std::vector<long> group(static_cast<std::size_t>(n / 4));
                std::iota(group.begin(), group.end(), 0);
                ktClassifierDistributionTypes types;
                types.setDependent(0, group);
                types.setDependent(1, group);
                const auto params = std::make_shared<ktClassifierTrainParamsBayesian>(types);
                const auto data = std::make_shared<ktClassifierDataProviderMemory>();
                for (long i = 0; i < 2 * numPatterns; ++i) {
                    std::vector<double> values;
                    for (std::size_t j = 0; j < group.size(); ++j) {
                        values.push_back(random.next(0.0, 1.0));
                    }
                    data->addData(new ktFeaturePattern(values, {}), i % 2);
                }
                return [params, data] {
                    ktClassifierTool tool;
                    tool.train(*data, *params);
                    std::istringstream in(stored(tool));
                    ktArchive archive(static_cast<std::istream&>(in));
                    archive || tool;
                    ktClassifierResult result;
                    tool.run(*data->featurePattern(0), result);
                };
            }};
}

Case regularGroup(long n)
{
    return trainedGroup(n, n);
}

/// Fewer patterns than measurements.
Case singularGroup(long n)
{
    return trainedGroup(n, n / 5);
}

/// n stored patterns, to which as many are added one by one.
Case taught(long n, double first)
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < n; ++i) {
        data.addData(new ktFeaturePattern({i == 0 ? first : static_cast<double>(i * 37 % 1009)}, {}), i % 3);
    }
    kt_ClassifierKNN classifier;
    classifier.train(data, ktClassifierTrainParamsKNN(3));
    return useOf(classifier, [n](kt_ClassifierKNN& loaded) {
        for (long i = 0; i < n; ++i) {
            loaded.trainIncremental(ktFeaturePattern({static_cast<double>(i * 61 % 1013)}, {}), i % 3);
        }
    });
}

Case taughtOneByOne(long n)
{
    return taught(n, 0.0);
}

/// No copy can be made of such a store.
Case taughtBesideInfinity(long n)
{
    return taught(n, std::numeric_limits<double>::infinity());
}

/// n references to one stored pattern of n measurements, retrained with its own parameters.
Case retrainedOnOnePattern(long n)
{
    const ktPtrHandle_const<ktFeaturePattern> shared(new ktFeaturePattern(someValues(n), {}));
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < n; ++i) {
        data.addData(shared, i % 3);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsKNN(3));
    return useOf(tool, [](ktClassifierTool& loaded) { loaded.retrain(*loaded.trainParams()); });
}

}  // namespace

std::vector<Kind> useKinds()
{
    return {{"use-vote-of-all", voteOfAll, pairs},
            {"use-vote-of-eight", voteOfEight, almostLinear},
            {"use-bayesian-run", bayesianRun, pairs},
            {"use-plain-result", plainResult, almostLinear},
            {"use-aborted-rule", abortedRule, almostLinear},
            {"use-shared-predicate", sharedPredicate},
            {"use-woven-trees", wovenTrees, almostLinear},
            {"use-shared-models", sharedModels},
            {"use-set-beyond-the-data", setOfMeasurementsThatAreNotThere},
            {"use-set-of-one-measurement", setOfOneMeasurement, pairs},
            {"use-regular-group", regularGroup, ""},
            {"use-singular-group", singularGroup, "1.5 use-regular-group"},
            {"use-taught-one-by-one", taughtOneByOne, almostLinear},
            {"use-taught-beside-infinity", taughtBesideInfinity, almostLinear},
            {"use-retrained-on-one-pattern", retrainedOnOnePattern}};
}

}  // namespace load_work
