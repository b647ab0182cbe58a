// Loads one archive, for .ci/load-work, which counts the instructions inside `kt_measuredLoad` and `kt_measuredUse`:
//
//     load_work              lists the kinds of archive
//     load_work KIND N       stores an archive of about N parts, prints its size in bytes, and loads it
//
// The kinds are the values of the library, archives that nobody would store, whose bytes repeat what is dear to read, and temporaries
// that go by one after the other in a pass opened by hand; of these the storing is counted too. Those that begin with "use-"
// are small archives whose next call could take long; the call is counted, the loading is not. Behind each kind stands how many
// times the work four times the archive may take; or how many times the work of which other kind, of the same size.

#include <clastool/clastool.h>

#include <kt/compiler.h>

#include <cmath>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Load = std::function<void(ktArchive&)>;

/// Loads a value and returns what is to be done with it.
using Prepare = std::function<std::function<void()>(ktArchive&)>;

/// What to load, and how; or what to do with it then.
struct Case {
    std::string bytes;
    Load load;
    Prepare prepare;
};

constexpr const char* linear = "4.5";
constexpr const char* almostLinear = "5.5";
constexpr const char* pairs = "17";

struct Kind {
    std::string name;
    std::function<Case(long n)> make;
    std::string most = linear;
};

template <class T>
std::string stored(const T& value)
{
    std::ostringstream out;
    ktArchive archive(out);
    T copy(value);
    archive || copy;
    return out.str();
}

template <class T>
void loadOne(ktArchive& archive)
{
    T value;
    archive || value;
}

template <class T>
Case caseOf(const T& value)
{
    return {stored(value), loadOne<T>, {}};
}

/// What is done with a loaded value.
template <class T, class Use>
Case useOf(const T& value, Use use)
{
    return {stored(value), {}, [use](ktArchive& archive) {
                const auto loaded = std::make_shared<T>();
                archive || *loaded;
                return [loaded, use] { use(*loaded); };
            }};
}

std::string number(unsigned long value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>((value >> shift) & 0xFF);
    }
    return bytes;
}

/// The header of an archive and the beginning of a vector of n elements.
std::string vectorOf(long n)
{
    return "KTAR" + number(1) + std::string(1, '\0') + number(static_cast<unsigned long>(n));
}

std::vector<double> someValues(long n)
{
    std::vector<double> values;
    for (long i = 0; i < n; ++i) {
        values.push_back(static_cast<double>(i * 37 % 101) / 8.0);
    }
    return values;
}

ktClassifierDataProviderMemory trainingSet(long n, bool onePattern)
{
    ktClassifierDataProviderMemory data;
    const ktPtrHandle_const<ktFeaturePattern> shared(new ktFeaturePattern(someValues(3), {}));
    for (long i = 0; i < n; ++i) {
        const auto x = static_cast<double>(i * 37 % 1009);
        data.addData(
            onePattern ? shared : ktPtrHandle_const<ktFeaturePattern>(new ktFeaturePattern({x, x * x, 1.0}, {})),
            i % 3);
    }
    return data;
}

Case pattern(long n)
{
    return caseOf(ktFeaturePattern(someValues(n), {0, 1, n / 2}));
}

Case costs(long n)
{
    ktClassifierCosts value;
    for (long i = 0; i < n; ++i) {
        value.misclassificationCostOverride(i, i + 1, 2.0);
    }
    return caseOf(value);
}

Case frequencies(long n)
{
    ktClassifierFrequencies value;
    for (long i = 0; i < n; ++i) {
        value.categoryFrequencyOverride(i, 0.5);
    }
    return caseOf(value);
}

Case result(long n)
{
    std::vector<ktClassifierCategoryResult> categories;
    for (long i = 0; i < n; ++i) {
        categories.emplace_back(i, 1.0, 1.0, 0.0);
    }
    return caseOf(ktClassifierResult(categories, 0.0));
}

Case distributionTypes(long n)
{
    ktClassifierDistributionTypes value;
    for (long i = 0; i < n; ++i) {
        value.distributionTypeOverride(7, i, ktClassifierDistributionTypes::eBinomial);
        value.setDependent(i % 7, {2 * i, 2 * i + 1});
    }
    return caseOf(value);
}

Case neighborTool(long n)
{
    ktClassifierTool tool;
    tool.train(trainingSet(n, false), ktClassifierTrainParamsKNN(3));
    return caseOf(tool);
}

Case neighborToolOfOnePattern(long n)
{
    ktClassifierTool tool;
    tool.train(trainingSet(n, true), ktClassifierTrainParamsKNN(3));
    return caseOf(tool);
}

/// One density over a group: its covariance has n elements.
Case jointBayesianTool(long n)
{
    long size = 1;
    while (size * size < n) {
        ++size;
    }
    std::vector<long> all;
    for (long i = 0; i < size; ++i) {
        all.push_back(i);
    }
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < 4; ++i) {
        data.addData(new ktFeaturePattern(someValues(size), {}), i % 2);
    }
    ktClassifierDistributionTypes types;
    types.setDependent(0, all);
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian(types));
    return caseOf(tool);
}

Case bayesianToolOfManyCategories(long n)
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < 2 * n; ++i) {
        data.addData(new ktFeaturePattern({static_cast<double>(i), 1.0}, {}), i / 2);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian());
    return caseOf(tool);
}

/// A balanced tree of about n leaves.
ktPtrHandle<ktDecisionTree> balancedTree(long n)
{
    if (n <= 1) {
        return new ktDecisionTreeLeaf(ktClassifierResult({{n, 1.0, 1.0, 0.0}}, 0.0));
    }
    return new ktDecisionTreeNode(ktComparisonPredicate(0, 1), *balancedTree(n / 2), *balancedTree(n - n / 2));
}

Case tree(long n)
{
    const ktPtrHandle<ktDecisionTree> built = balancedTree(n);
    ktClassifierTool tool;
    tool.train(*built);
    return caseOf(tool);
}

/// Each level holds the one below twice, so that there are as many ways to a leaf as no machine can walk.
Case doubledChain(long n)
{
    ktDecisionTreeNode top(ktComparisonPredicate(0, 1), *balancedTree(1), *balancedTree(1));
    for (long i = 0; i < n / 8; ++i) {
        top = ktDecisionTreeNode(ktComparisonPredicate(0, 1), top, top);
    }
    ktClassifierTool tool;
    tool.train(top);
    return caseOf(tool);
}

Case ruleTable(long n)
{
    std::vector<ktClassifierRule> rules(static_cast<std::size_t>(n));
    for (ktClassifierRule& rule : rules) {
        rule.init({new ktClassifierFeatureScoreTwoSided, new ktClassifierFeatureScoreOneSided}, 1);
    }
    ktClassifierRuleTable table;
    table.train(rules);
    return caseOf(table);
}

/// A text from a stream that cannot tell its length.
Case text(long n)
{
    return caseOf(std::string(static_cast<std::size_t>(n), 'x'));
}

Case nulls(long n)
{
    return {vectorOf(n) + std::string(static_cast<std::size_t>(n), '\0'),
            loadOne<std::vector<ktPtrHandle_const<ktFeaturePattern>>>,
            {}};
}

/// Every record names its class anew, so each makes a new number of a class.
Case classesNamedAgain(long n)
{
    std::string bytes = vectorOf(n);
    const std::string name = "ktFeaturePattern";
    const std::string whole = stored(ktFeaturePattern());
    for (long i = 0; i < n; ++i) {
        bytes += '\3';
        bytes += number(static_cast<unsigned long>(name.size())) + name + whole.substr(8);
    }
    return {bytes, loadOne<std::vector<ktPtrHandle_const<ktFeaturePattern>>>, {}};
}

/// Objects that the handle refuses, because they are of another class than it can hold.
Case objectsOfAnotherClass(long n)
{
    Case made = classesNamedAgain(n);
    made.load = loadOne<std::vector<ktPtrHandle<ktDecisionTree>>>;
    return made;
}

/// The last byte is missing, so all that was loaded is thrown away.
Case cutShort(long n)
{
    Case made = neighborTool(n);
    made.bytes.pop_back();
    return made;
}

ktFeaturePattern temporary()
{
    return {{1.0, 2.0, 3.0}, {}};
}

void archiveCopies(ktArchive& archive, long n)
{
    const ktArchive::Pass pass(archive);
    for (long i = 0; i < n; ++i) {
        ktFeaturePattern pattern = temporary();
        archive || pattern;
    }
}

void archiveHandles(ktArchive& archive, long n)
{
    const ktArchive::Pass pass(archive);
    for (long i = 0; i < n; ++i) {
        ktPtrHandle<ktFeaturePattern> pattern;
        if (archive.isStoring()) {
            pattern = new ktFeaturePattern(temporary());
        }
        archive || pattern;
    }
}

std::string storedInOnePass(void (*work)(ktArchive& archive, long n), long n)
{
    std::ostringstream out;
    ktArchive archive(out);
    work(archive, n);
    return out.str();
}

template <void (*Work)(ktArchive& archive, long n)>
Case loadedInOnePass(long n)
{
    return {storedInOnePass(Work, n), [n](ktArchive& archive) { Work(archive, n); }, {}};
}

/// What is loaded of it is nothing: it is stored once more.
template <void (*Work)(ktArchive& archive, long n)>
Case storedInOnePassAgain(long n)
{
    return {storedInOnePass(Work, n), [n](ktArchive&) { storedInOnePass(Work, n); }, {}};
}

/// A count that the bytes cannot hold.
Case impossibleCount(long n)
{
    return {
        vectorOf(2147483647) + std::string(static_cast<std::size_t>(n), '\1'), loadOne<std::vector<std::string>>, {}};
}

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

/// Training of a group of n / 4 measurements with so many patterns of each of two categories, then the first run after loading.
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

using Row = std::vector<double>;

/// Changes a row of a store, which is then out of proportion.
using Wilderness = void (*)(std::size_t number, Row& row);

constexpr std::size_t rowSize = 16;

Row drawnRow(ktRandomGaussian& random, std::size_t number, Wilderness change)
{
    Row row(rowSize);
    for (double& value : row) {
        value = random.next(0.0, 1.0);
    }
    change(number, row);
    return row;
}

/// The norm, which is asked for every stored row because its class is another.
class PlainNorm : public ktPatternDistanceMetricNorm {
public:
    using ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm;
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new PlainNorm(*this); }
};

void runEach(const ktClassifierTool& tool, const std::vector<ktPtrHandle_const<ktFeaturePattern>>& queries)
{
    for (const ktPtrHandle_const<ktFeaturePattern>& query : queries) {
        ktClassifierResult result;
        tool.run(*query, result);
    }
}

void runTogether(const ktClassifierTool& tool, const std::vector<ktPtrHandle_const<ktFeaturePattern>>& queries)
{
    std::vector<ktClassifierResult> results;
    tool.run(queries, results);
}

/// Runs of a tool of 20 n stored rows, with patterns that are drawn as the rows were. Only a tool that is to be loaded first is
/// archived, and beyond the bytes of the case.
Case search(long n, const ktPatternDistanceMetric& metric, Wilderness change, std::size_t numQueries = 20,
            decltype(&runEach) run = runEach, bool isLoaded = false)
{
    const ktClassifierTrainParamsKNN params(5, metric, {});
    return {"", {}, [=](ktArchive&) {
                ktRandomGaussian random(7);
                ktClassifierDataProviderMemory data;
                const auto numRows = 20 * static_cast<std::size_t>(n);
                for (std::size_t i = 0; i < numRows; ++i) {
                    data.addData(new ktFeaturePattern(drawnRow(random, i, change), {}), static_cast<long>(i % 4));
                }
                const auto tool = std::make_shared<ktClassifierTool>();
                tool->train(data, params);
                if (isLoaded) {
                    std::istringstream in(stored(*tool));
                    data = {};
                    ktArchive archive(static_cast<std::istream&>(in));
                    archive || *tool;
                }
                std::vector<ktPtrHandle_const<ktFeaturePattern>> queries;
                for (std::size_t i = 0; i < numQueries; ++i) {
                    queries.emplace_back(new ktFeaturePattern(drawnRow(random, 10 * i + i % 10, change), {}));
                }
                return [tool, queries, run] { run(*tool, queries); };
            }};
}

struct SearchedOrder {
    const char* name;
    double value;
    // How much of the work of the plain scan a search takes at the most: a third more than it was when this was written.
    const char* most;
};

constexpr SearchedOrder searchedOrders[] = {
    {"order-1", 1.0, "0.0077"}, {"order-1.5", 1.5, "0.0123"}, {"order-2", 2.0, "0.0065"}};

struct Wild {
    const char* name;
    Wilderness change;
    // How many times the work of the tame store it takes at the most.
    const char* most = "4 ";
};

const Wild wildernesses[] = {
    {"value", [](std::size_t number, Row& row) { row[3] = number == 700 ? 9999999.0 : row[3]; }},
    {"value-of-1e100", [](std::size_t number, Row& row) { row[3] = number == 700 ? 1e100 : row[3]; }},
    {"rows",
     [](std::size_t number, Row& row) {
         for (double& value : row) {
             value *= number % 500 == 499 ? 1e7 : 1.0;
         }
     }},
    {"sentinels", [](std::size_t number, Row& row) { row[3] = number % 10 == 9 ? 9999999.0 : row[3]; }},
    {"measurement", [](std::size_t, Row& row) { row[3] *= 1e8; }},
    {"far-cluster",
     [](std::size_t number, Row& row) {
         for (double& value : row) {
             value += number % 10 == 9 ? 1e7 : 0.0;
         }
     },
     // Either part is smaller than all.
     "1.02 "},
    {"scales",
     [](std::size_t number, Row& row) {
         for (double& value : row) {
             value *= number % 100 == 50 ? std::pow(10.0, 4.0 + static_cast<double>(number / 100 % 97)) : 1.0;
         }
     }},
    {"values-of-1e4",
     [](std::size_t, Row& row) {
         for (double& value : row) {
             value *= 1e4;
         }
     }},
    {"values-of-1e100",
     [](std::size_t, Row& row) {
         for (double& value : row) {
             value *= 1e100;
         }
     }},
};

/// For each order the plain scan of a tame store, the search there, and the wild stores that are compared with it.
void addSearches(std::vector<Kind>& kinds)
{
    const Wilderness none = [](std::size_t, Row&) {};
    for (const SearchedOrder& order : searchedOrders) {
        const ktPatternDistanceMetricNorm norm(order.value);
        const std::string plain = std::string("search-plain-") + order.name;
        const std::string tame = std::string("search-tame-") + order.name;
        const auto searching = [norm](Wilderness change) {
            return [norm, change](long n) { return search(n, norm, change); };
        };
        kinds.push_back({plain, [order, none](long n) { return search(n, PlainNorm(order.value), none); }, ""});
        kinds.push_back({tame, searching(none), order.most + (" " + plain)});
        for (const Wild& wild : wildernesses) {
            kinds.push_back(
                {std::string("search-wild-") + wild.name + "-" + order.name, searching(wild.change), wild.most + tame});
        }
    }
    const ktPatternDistanceMetricNorm euclidean(2.0);
    kinds.push_back({"search-loaded", [=](long n) { return search(n, euclidean, none, 20, runEach, true); },
                     "1.1 search-tame-order-2"});
    kinds.push_back({"search-one-by-one", [=](long n) { return search(n, euclidean, none, 400); }, ""});
    kinds.push_back({"search-together", [=](long n) { return search(n, euclidean, none, 400, runTogether); },
                     "0.63 search-one-by-one"});
}

std::vector<Kind> allKinds()
{
    std::vector<Kind> all = {{"pattern", pattern},
                             {"costs", costs},
                             {"frequencies", frequencies},
                             {"result", result},
                             {"distribution-types", distributionTypes},
                             {"neighbor-tool", neighborTool},
                             {"neighbor-tool-of-one-pattern", neighborToolOfOnePattern},
                             {"joint-bayesian-tool", jointBayesianTool},
                             {"bayesian-tool-of-many-categories", bayesianToolOfManyCategories},
                             {"tree", tree},
                             {"doubled-chain", doubledChain},
                             {"rule-table", ruleTable},
                             {"text", text},
                             {"nulls", nulls},
                             {"classes-named-again", classesNamedAgain},
                             {"objects-of-another-class", objectsOfAnotherClass},
                             {"cut-short", cutShort},
                             {"copies-loaded-in-one-pass", loadedInOnePass<archiveCopies>},
                             {"handles-loaded-in-one-pass", loadedInOnePass<archiveHandles>},
                             {"copies-stored-in-one-pass", storedInOnePassAgain<archiveCopies>},
                             {"handles-stored-in-one-pass", storedInOnePassAgain<archiveHandles>},
                             {"impossible-count", impossibleCount},
                             {"use-vote-of-all", voteOfAll, pairs},
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
    addSearches(all);
    return all;
}

/// A source that cannot tell how much is left, which is the harder one: nothing can be refused in advance.
class BlindBuffer : public std::streambuf {
public:
    explicit BlindBuffer(std::string& bytes) { setg(bytes.data(), bytes.data(), bytes.data() + bytes.size()); }
};

}  // namespace

/// What is counted: loading the value, using nothing of it, and destroying it; or storing it.
extern "C" void kt_measuredLoad(std::string& bytes, const Load& load);

extern "C" KT_NOINLINE void kt_measuredLoad(std::string& bytes, const Load& load)
{
    BlindBuffer buffer(bytes);
    std::istream in(&buffer);
    try {
        ktArchive archive(in);
        load(archive);
    } catch (const ktArchive::Errors& error) {
        std::cerr << error.what() << "\n";
    }
}

/// What is counted of the kinds that are used.
extern "C" void kt_measuredUse(const std::function<void()>& use);

extern "C" KT_NOINLINE void kt_measuredUse(const std::function<void()>& use)
{
    use();
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        for (const Kind& kind : allKinds()) {
            if (!kind.most.empty()) {
                std::cout << kind.name << " " << kind.most << "\n";
            }
        }
        return 0;
    }
    try {
        for (const Kind& kind : allKinds()) {
            if (kind.name == argv[1]) {
                Case made = kind.make(std::atol(argv[2]));
                std::cout << made.bytes.size() << "\n";
                if (made.load) {
                    kt_measuredLoad(made.bytes, made.load);
                    return 0;
                }
                std::istringstream in(made.bytes);
                ktArchive archive(static_cast<std::istream&>(in));
                kt_measuredUse(made.prepare(archive));
                return 0;
            }
        }
        std::cerr << "there is no kind " << argv[1] << "\n";
    } catch (const std::exception& error) {
        std::cerr << argv[1] << ": " << error.what() << "\n";
    }
    return 1;
}
