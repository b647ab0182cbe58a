#include "battery.h"

#include <clastool/clastool.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace kt_test {

namespace {

using Provider = ktClassifierDataProviderMemory;
using Labels = std::vector<long>;
using Entries = std::vector<ktClassifierCategoryResult>;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Runs one operation; a ktException is an answer too. Returns whether there was none.
template <class Operation>
bool attempt(Operation operation)
{
    try {
        operation();
        return true;
    } catch (const ktException&) {
        return false;
    }
}

void promise(bool kept, const char* what)
{
    if (!kept) {
        throw BrokenPromise(what);
    }
}

// Storing and loading.

template <class T>
std::string bytesOf(T& value)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    archive || value;
    return out.str();
}

template <class T>
void loadFrom(T& value, const std::string& bytes)
{
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    archive || value;
}

/// Runs a storing operation. A value may hold what cannot be stored (a null scoring function), and one more record around
/// a chain as deep as an archive may be is too deep. Nothing else is an excuse.
template <class Operation>
bool stores(Operation operation)
{
    try {
        operation();
        return true;
    } catch (const ktBadPointer&) {
        return false;
    } catch (const ktArchive::TooDeep&) {
        return false;
    }
}

/// An object of any class, and its owner.
class AnyObject {
public:
    AnyObject() = default;
    AnyObject(const AnyObject&) = delete;
    AnyObject& operator=(const AnyObject&) = delete;
    ~AnyObject() { take(nullptr); }

    ktPersistent* get() const { return object_; }

    void load(ktArchive& archive)
    {
        take(nullptr);
        const ktArchive::Pass pass(archive);
        ktPersistent* loaded = nullptr;
        ktPersistent::serializePointer(archive, nullptr, loaded);
        take(loaded);
    }

    void take(ktPersistent* object)
    {
        if (count_.isNull()) {
            delete object_;
        }
        object_ = object;
        count_ = dynamic_cast<ktRepBase*>(object);
    }

private:
    ktPersistent* object_ = nullptr;
    // Null for an object without a count.
    ktPtrHandle<ktRepBase> count_;
};

std::string recordOf(ktPersistent& object)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    ktPersistent* nothing = nullptr;
    ktPersistent::serializePointer(archive, &object, nothing);
    return out.str();
}

/// Stored by pointer, loaded and stored again: the same bytes, and the same class.
void storeObjectAgain(ktPersistent& object)
{
    std::string bytes;
    if (!stores([&] { bytes = recordOf(object); })) {
        return;
    }
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    AnyObject again;
    again.load(archive);
    promise(again.get() != nullptr, "an object stored by pointer is loaded");
    const ktPersistent& loaded = *again.get();
    promise(typeid(loaded) == typeid(object), "an object is restored with its class");
    promise(recordOf(*again.get()) == bytes, "an object stored again gives the same bytes");
}

template <class T>
T fresh()
{
    if constexpr (std::is_same_v<T, ktPtrHandle<ktClsFtSc>>) {
        // A null one cannot be stored.
        return new ktClassifierFeatureScoreIgnore;
    } else if constexpr (std::is_same_v<T, ktClassifierFeatureVector>) {
        return ktClassifierFeatureVector(std::vector<double>());
    } else {
        return T();
    }
}

/// Stored in place, loaded and stored again: the same bytes.
template <class T>
void storeValueAgain(T& value)
{
    std::string bytes;
    if (!stores([&] { bytes = bytesOf(value); })) {
        return;
    }
    T again = fresh<T>();
    loadFrom(again, bytes);
    promise(bytesOf(again) == bytes, "a value stored again gives the same bytes");
}

// Comparing and copying.

template <class T, class = void>
struct IsComparable : std::false_type {
};
template <class T>
struct IsComparable<T, std::void_t<decltype(std::declval<const T&>() == std::declval<const T&>())>> : std::true_type {
};

template <class T>
void compare(const T& a, const T& b)
{
    if constexpr (IsComparable<T>::value) {
        bool there = false;
        bool back = false;
        const bool answered = attempt([&] { there = a == b; });
        promise(attempt([&] { back = b == a; }) == answered && there == back, "equality goes both ways");
    }
}

template <class T>
void copyAndCompare(T& value)
{
    T copy(value);
    compare(copy, value);
    copy = fresh<T>();
    copy = value;
    compare(copy, value);
    compare(copy, fresh<T>());
    const T& self = copy;
    copy = self;
    storeValueAgain(copy);
    copy = fresh<T>();
}

// What values are used with.

const std::vector<ktFeaturePattern>& patterns()
{
    static const std::vector<ktFeaturePattern> all = {{{}, {}},
                                                      {{0.5}, {}},
                                                      {{0.5, 0.25}, {}},
                                                      {{0.5, 0.25, 2.0}, {}},
                                                      {{0.5, 0.25, 2.0}, {1}},
                                                      {{1.0, -2.0, 0.0, 7.0}, {}},
                                                      {{nan, nan, nan}, {}},
                                                      {{nan, 1.0}, {}},
                                                      {{infinity, -infinity}, {}},
                                                      {{1e308, -1e308, 5e-324}, {}},
                                                      {{1.0, 1.0}, {0, 1}},
                                                      {std::vector<double>(9, 3.0), {8}},
                                                      {std::vector<double>(33, -1.0), {}}};
    return all;
}

Provider makeProvider(const std::vector<std::pair<std::vector<double>, long>>& rows)
{
    Provider provider;
    for (const auto& [measurements, label] : rows) {
        provider.addData(new ktFeaturePattern(measurements, {}), label);
    }
    return provider;
}

const std::vector<Provider>& providers()
{
    static const std::vector<Provider> all = {
        Provider(), makeProvider({{{1.0}, 4}, {{2.0}, 4}, {{1.5}, -1}}),
        makeProvider({{{0.0, 0.0}, 0}, {{4.0, 4.0}, 1}, {{1.0, 0.0}, 0}, {{3.0, 5.0}, 1}}),
        makeProvider({{{1.0, 2.0, 3.0}, 2}, {{8.0, 9.0, 7.0}, 7}, {{3.0, 2.5, 5.0}, 2}, {{nan, 9.5, infinity}, 7}})};
    return all;
}

constexpr long someLabels[] = {0, 1, 2, 7, -1, 2147483647};

void useResult(const ktClassifierResult& result)
{
    for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
        attempt([&] {
            ktClassifierCategoryResult(entry.categoryLabel(), entry.matchScore(), entry.classScore(),
                                       entry.expectedCost());
        });
    }
}

template <class Runs>
void runOn(const std::vector<ktFeaturePattern>& all, const Runs& runs)
{
    for (const ktFeaturePattern& pattern : all) {
        const ktClassifierResult untouched({ktClassifierCategoryResult(77, 0.25, 1.0, 3.5)}, -12.5);
        ktClassifierResult result(untouched);
        if (attempt([&] { runs.run(pattern, result); })) {
            useResult(result);
        } else {
            promise(result == untouched, "a run that throws leaves the result alone");
        }
    }
}

template <class Runs>
void runOnEveryPattern(const Runs& runs)
{
    runOn(patterns(), runs);
}

/// After a change that brings no new kind of value into play.
template <class Runs>
void runOnSomePatterns(const Runs& runs)
{
    static const std::vector<ktFeaturePattern> some = {{{0.5}, {}}, {{0.5, 0.25}, {}}, {{0.5, nan, 2.0}, {1}}};
    runOn(some, runs);
}

/// Trains with parameters and runs; what was trained is stored and loaded.
void trainTools(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params)
{
    ktClassifierTool tool;
    if (attempt([&] { tool.train(provider, params); })) {
        runOnSomePatterns(tool);
        attempt([&] { tool.retrain(params); });
        storeValueAgain(tool);
    }
}

// The classes, one by one.

void useAs(ktClassifierDefs::Errors& error)
{
    // A message may hold a null character, at which a C string ends.
    promise(std::string(error.what()) == error.message().c_str(), "what() is the message");
    static_cast<void>(error.errorNumber());
    try {
        // Throws a copy and destroys the object, so it gets one of its own.
        std::istringstream in(recordOf(error));
        ktArchive archive(static_cast<std::istream&>(in));
        ktPersistent* loaded = nullptr;
        ktPersistent::serializePointer(archive, nullptr, loaded);
        dynamic_cast<ktException&>(*loaded).suicideAndRethrow();
    } catch (const ktException& thrown) {
        promise(typeid(thrown) == typeid(error) && thrown.message() == error.message(), "an error rethrown is a copy");
    }
}

void useAs(ktFeaturePattern& pattern)
{
    const long end = pattern.numMeasurements() + 2;
    long invalid = 0;
    for (long i = 0; i < end; ++i) {
        invalid += pattern.isValid(i) ? 0 : 1;
        static_cast<void>(pattern.featureMeasurement(i, false));
        attempt([&] { static_cast<void>(pattern.featureMeasurement(i, true)); });
    }
    promise(invalid == pattern.numInvalid() + 2, "as many measurements are invalid as the pattern says");
    promise(static_cast<long>(pattern.invalidFeatureIndices().size()) == pattern.numInvalid(), "and it names them");
    attempt([&] { static_cast<void>(pattern.featureMeasurements(true)); });
    for (const ktClassifierDataProvider& each : providers()) {
        Provider provider(dynamic_cast<const Provider&>(each));
        attempt([&] { provider.addData(new ktFeaturePattern(pattern), 1); });
    }
    for (const ktFeaturePattern& other : patterns()) {
        compare(pattern, other);
        attempt([&] { static_cast<void>(ktPatternDistanceMetricNorm(3.0).distance(pattern, other)); });
    }
}

void useAs(Provider& provider)
{
    static_cast<void>(provider.name() + provider.description());
    attempt([&] { static_cast<void>(provider.numMeasurements()); });
    attempt([&] { static_cast<void>(provider.featurePattern(-1)); });
    std::vector<ktPtrHandle_const<ktFeaturePattern>> all;
    Labels labels;
    for (long i = 0; i <= provider.numPatterns(); ++i) {
        attempt([&] { all.push_back(provider.featurePattern(i)); });
        attempt([&] { labels.push_back(provider.categoryLabel(i)); });
    }
    trainTools(provider, ktClassifierTrainParamsKNN(3));
    trainTools(provider, ktClassifierTrainParamsBayesian());
    Provider other;
    attempt([&] { other.data(all, labels); });
    for (const ktFeaturePattern& pattern : patterns()) {
        attempt([&] { provider.addData(new ktFeaturePattern(pattern), 1); });
    }
    attempt([&] { provider.addData(provider.featurePattern(0), 1); });
    provider.setName("other");
    provider.setDescription("other");
}

void useAs(ktClassifierTrainParams& params)
{
    const ktPtrHandle<ktClassifierTrainParams> clone = params.clone();
    params.throwIfNotReady(false);
    for (const Provider& provider : providers()) {
        trainTools(provider, params);
        trainTools(provider, *clone);
    }
    ktClassifierTool knn;
    knn.train(providers()[2], ktClassifierTrainParamsKNN(1));
    attempt([&] { knn.retrain(params); });
    runOnEveryPattern(knn);
    if (auto* own = dynamic_cast<ktClassifierTrainParamsKNN*>(&params)) {
        attempt([&] { own->distanceMetric(*own->distanceMetric()); });
        own->misclassificationCosts(own->misclassificationCosts());
        attempt([&] { own->k(own->k()); });
        own->k(3);
    }
    if (auto* own = dynamic_cast<ktClassifierTrainParamsBayesian*>(&params)) {
        attempt([&] { own->distributionTypes(own->distributionTypes()); });
        own->categoryFrequencies(own->categoryFrequencies());
        own->misclassificationCosts(own->misclassificationCosts());
        own->maxMeasurementValues(own->maxMeasurementValues());
    }
}

void useAs(ktPatternDistanceMetric& metric)
{
    const ktPtrHandle<ktPatternDistanceMetric> clone = metric.clone();
    promise(metric.isEquivalent(*clone) == clone->isEquivalent(metric), "equality goes both ways");
    for (const ktFeaturePattern& a : patterns()) {
        for (const ktFeaturePattern& b : patterns()) {
            attempt([&] { static_cast<void>(metric.distance(a, b)); });
        }
    }
    trainTools(providers()[2], ktClassifierTrainParamsKNN(3, metric, ktClassifierCosts()));
    if (auto* norm = dynamic_cast<ktPatternDistanceMetricNorm*>(&metric)) {
        attempt([&] { norm->order(norm->order()); });
        norm->order(3.0);
    }
}

void useTree(const ktDecisionTree& tree)
{
    ktClassifierTool tool;
    if (attempt([&] { tool.train(tree); })) {
        runOnEveryPattern(tool);
        attempt([&] { static_cast<void>(tool.decisionTree()->categoryLabels()); });
        storeValueAgain(tool);
        tool.train(*tool.decisionTree());
    }
}

void useAs(ktPredicateFunction& predicate)
{
    const ktPtrHandle<ktPredicateFunction> clone = predicate.clone();
    compare<ktPredicateFunction>(predicate, *clone);
    compare<ktPredicateFunction>(predicate, ktComparisonPredicate(1, 0));
    for (const ktFeaturePattern& pattern : patterns()) {
        attempt([&] { static_cast<void>(predicate.outcome(pattern)); });
    }
    if (const auto* range = dynamic_cast<const ktRangePredicate*>(&predicate)) {
        static_cast<void>(range->measurementRange().isWithin(0.5));
        static_cast<void>(range->measurementIndices());
    }
    useTree(ktDecisionTreeNode(predicate, ktDecisionTreeLeaf(), ktDecisionTreeLeaf()));
}

void useAs(ktDecisionTree& tree)
{
    Labels labels;
    if (attempt([&] { labels = tree.categoryLabels(); })) {
        promise(tree.numCategories() == static_cast<long>(labels.size()), "as many categories as labels");
    }
    const ktPtrHandle<ktDecisionTree> clone = tree.clone();
    compare<ktDecisionTree>(tree, *clone);
    compare<ktDecisionTree>(tree, ktDecisionTreeLeaf());
    useTree(tree);
    if (auto* node = dynamic_cast<ktDecisionTreeNode*>(&tree)) {
        attempt([&] { node->predicateFunction(*node->predicateFunction()); });
        attempt([&] { node->trueTree(*node->falseTree()); });
        attempt([&] { node->falseTree(*clone); });
        useTree(tree);
    }
    if (auto* leaf = dynamic_cast<ktDecisionTreeLeaf*>(&tree)) {
        useResult(leaf->classifierResult());
        leaf->classifierResult(ktClassifierResult(leaf->classifierResult()));
    }
}

void readAll(const ktNMMatrix& matrix)
{
    // Without columns there may be any number of rows.
    for (long row = 0; row < matrix.numRows() && matrix.numColumns() > 0; ++row) {
        for (long column = 0; column < matrix.numColumns(); ++column) {
            static_cast<void>(matrix(row, column));
        }
    }
}

void useAs(kt_ProbabilityDensityFunction& density)
{
    const bool isNormal = dynamic_cast<const kt_PDFMultivariateNormal*>(&density) != nullptr;
    const auto evaluate = [&] {
        for (const ktFeaturePattern& pattern : patterns()) {
            attempt([&] {
                const double value = density.logValue(pattern);
                promise(!isNormal || std::abs(value) <= 1e300, "a normal log density is held within 1e300");
            });
        }
    };
    evaluate();
    promise(attempt([&] { static_cast<void>(density.isEquivalent(density)); }), "a density is compared with itself");
    for (const ktFeaturePattern& pattern : patterns()) {
        attempt([&] { density.updateWithData({pattern}); });
    }
    evaluate();
    storeObjectAgain(density);
    if (auto* normal = dynamic_cast<kt_PDFMultivariateNormal*>(&density)) {
        readAll(normal->mean());
        readAll(normal->covariance());
        for (const double normalizer : {2.0, 0.0, nan}) {
            attempt([&] { normal->updateWithDataNormalize(patterns(), normalizer); });
        }
    }
    density.clear();
    attempt([&] { density.updateWithData({patterns()[1], patterns()[1]}); });
    evaluate();
}

void useAs(kt_CategoryModel& model)
{
    const auto score = [&] {
        for (const ktFeaturePattern& pattern : patterns()) {
            attempt([&] { static_cast<void>(model.matchScore(pattern, nullptr, 0)); });
        }
    };
    score();
    for (const ktFeaturePattern& pattern : patterns()) {
        attempt([&] { model.adapt(pattern, nullptr, 0); });
    }
    score();
    storeObjectAgain(model);
    model.categoryLabel(3);
    model.numMeasurements(-3);
    score();
    model.numMeasurements(2147483647);
    score();
}

/// What a tool and a bare classifier have in common.
template <class Trained>
void useTrained(Trained& trained)
{
    runOnEveryPattern(trained);
    attempt([&] { trained.retrain(*trained.trainParams()); });
    runOnEveryPattern(trained);
    ktPtrHandle_const<ktClassifierTrainParams> params;
    if (attempt([&] { params = trained.trainParams(); })) {
        for (const Provider& provider : providers()) {
            attempt([&] { trained.train(provider, *params); });
            runOnSomePatterns(trained);
        }
    }
    trained.untrain();
    promise(!trained.isTrained(), "untrain untrains");
    runOnSomePatterns(trained);
}

void useAs(ktClassifierTool& tool);

/// The classifier as the program's front door holds it.
void useInTool(const ktPtrHandle<kt_Classifier>& classifier)
{
    std::ostringstream out;
    const bool stored = stores([&] {
        ktArchive archive(static_cast<std::ostream&>(out));
        const ktArchive::Pass pass(archive);
        archive.version();
        ktPtrHandle<kt_Classifier> held = classifier;
        archive || held;
    });
    if (stored) {
        ktClassifierTool tool;
        loadFrom(tool, out.str());
        useAs(tool);
    }
}

void addPatterns(kt_Classifier& classifier)
{
    std::size_t next = 0;
    for (const ktFeaturePattern& pattern : patterns()) {
        attempt([&] { classifier.trainIncremental(pattern, someLabels[next++ % std::size(someLabels)]); });
    }
    runOnSomePatterns(classifier);
}

void useAs(kt_Classifier& classifier)
{
    const ktPtrHandle<kt_Classifier> clone = classifier.clone();
    bool there = false;
    bool back = false;
    const bool answered = attempt([&] { there = classifier.isEquivalent(*clone); });
    promise(attempt([&] { back = clone->isEquivalent(classifier); }) == answered && there == back,
            "equality goes both ways");
    useInTool(clone);
    attempt([&] { classifier.retrain(*classifier.trainParams()); });
    addPatterns(classifier);
    storeObjectAgain(classifier);
    ktPtrHandle_const<ktClassifierTrainParams> params;
    attempt([&] { params = clone->trainParams(); });
    useTrained(classifier);
    if (params) {
        attempt([&] { classifier.trainStart(*params); });
        addPatterns(classifier);
    }
    if (auto* tree = dynamic_cast<kt_ClassifierDecisionTree*>(clone.get())) {
        attempt([&] { tree->trainManual(*tree->decisionTree()); });
        runOnSomePatterns(*tree);
    }
}

void useAs(ktClassifierTool& tool)
{
    copyAndCompare(tool);
    attempt([&] { useAs(*tool.decisionTree()->clone()); });
    ktClassifierTool byTree;
    attempt([&] {
        byTree.train(*tool.decisionTree());
        compare(byTree, tool);
    });
    useTrained(tool);
}

void useAs(ktClassifierCosts& costs)
{
    for (const long a : someLabels) {
        for (const long b : someLabels) {
            attempt([&] { static_cast<void>(costs.misclassificationCost(a, b)); });
        }
    }
    trainTools(providers()[2], ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(), costs));
    const Entries entries = {{0, 0.5, 0.5, 0.0}, {7, 0.25, 0.5, 0.0}};
    attempt([&] { useResult(ktClassifierResult(entries, ktClassifierFrequencies(), costs, 0.0)); });
    attempt([&] { costs.defaultMisclassificationCost(costs.defaultMisclassificationCost()); });
    attempt([&] { costs.misclassificationCostOverride(1, 0, 1.0); });
    attempt([&] { costs.misclassificationCostOverride(7, 8, 1.0); });
    storeValueAgain(costs);
    costs.clearMisclassificationOverrides();
    promise(costs.misclassificationCost(1, 0) == costs.misclassificationCost(7, 8) ||
                std::isnan(costs.defaultMisclassificationCost()),
            "without overrides all costs are the default");
}

void useAs(ktClassifierFrequencies& frequencies)
{
    for (const long label : someLabels) {
        attempt([&] { static_cast<void>(frequencies.categoryFrequency(label)); });
    }
    const Entries entries = {{0, 0.5, 0.5, 0.0}, {7, 0.25, 0.5, 0.0}};
    attempt([&] { useResult(ktClassifierResult(entries, frequencies, ktClassifierCosts(), 0.0)); });
    trainTools(providers()[2], ktClassifierTrainParamsBayesian(ktClassifierDistributionTypes(), frequencies));
    attempt([&] { frequencies.categoryFrequencyOverride(1, 1.0); });
    attempt([&] { frequencies.categoryFrequencyOverride(7, 1.0); });
    storeValueAgain(frequencies);
    frequencies.clearFrequencyOverrides();
    attempt([&] { frequencies.defaultCategoryFrequency(frequencies.defaultCategoryFrequency()); });
}

void useAs(ktClassifierCategoryResult& entry)
{
    attempt([&] { useResult(ktClassifierResult({entry, ktClassifierCategoryResult(3, 0.5, 0.5, 0.0)}, 0.0)); });
}

void useAs(ktClassifierResult& result)
{
    useResult(result);
    const Entries entries = result.categoryResults();
    attempt([&] { useResult(ktClassifierResult(entries, result.matchScoreFactorLog())); });
    attempt([&] { useResult(ktClassifierResult(entries, ktClassifierFrequencies(), ktClassifierCosts(), 0.0)); });
    useTree(ktDecisionTreeLeaf(result));
}

void useAs(ktClassifierDistributionTypes& types)
{
    const auto look = [&] {
        for (const long label : someLabels) {
            attempt([&] { static_cast<void>(types.distributionType(label, 0)); });
            attempt([&] { static_cast<void>(types.isDependent(label, {1, 2})); });
        }
    };
    look();
    for (const Provider& provider : providers()) {
        trainTools(provider, ktClassifierTrainParamsBayesian(types));
    }
    for (const long label : someLabels) {
        attempt([&] { types.setDependent(label, {0, 2}); });
        attempt([&] { types.setDependent(label, {2, 1, 5}); });
        attempt([&] { types.distributionTypeOverride(label, 9, ktClassifierDistributionTypes::ePoisson); });
    }
    look();
    storeValueAgain(types);
    attempt([&] { types.defaultDistributionType(types.defaultDistributionType()); });
    types.clearDistributionOverrides();
}

void useScore(ktClsFtSc& score)
{
    const ktPtrHandle<ktClsFtSc> clone = score.clone();
    promise((score == *clone) == (*clone == score), "equality goes both ways");
    for (const double x : {0.0, 3.0, -1e308, infinity, -infinity, nan}) {
        attempt([&] { static_cast<void>(score.score(x)); });
    }
    ktClassifierRule rule;
    attempt([&] {
        rule.init({clone}, 3);
        static_cast<void>(rule.score(ktClassifierFeatureVector({0.5})));
    });
}

void useAs(ktPtrHandle<ktClsFtSc>& score)
{
    if (score) {
        useScore(*score);
    }
}

void useAs(ktClassifierFeatureScoreOneSided& score)
{
    useScore(score);
    attempt([&] { score.init(score.x0(), score.x1(), score.xc(), score.y0(), score.y1()); });
    attempt([&] { score.y0(score.y0()); });
    attempt([&] { score.y1(score.y1()); });
    score.x0(nan);
    useScore(score);
}

void useAs(ktClassifierFeatureScoreTwoSided& score)
{
    useScore(score);
    ktClassifierFeatureScoreOneSided low(score.Low());
    ktClassifierFeatureScoreOneSided high(score.High());
    useAs(low);
    useAs(high);
    attempt([&] {
        score.init(score.x0(), score.x1(), score.xc(), score.x0h(), score.x1h(), score.xch(), score.y0(), score.y1(),
                   score.y0h(), score.y1h());
    });
    score.xch(nan);
    useScore(score);
}

std::vector<ktClassifierFeatureVector> featureVectors(std::size_t size)
{
    std::vector<ktClassifierFeatureVector> all;
    for (const std::size_t each : {std::size_t{0}, size, size + 1}) {
        for (const double value : {3.0, nan, -infinity}) {
            all.emplace_back(std::vector<double>(each, value));
        }
    }
    return all;
}

void useAs(ktClassifierFeatureVector& values)
{
    for (const std::size_t size : {std::size_t{1}, values.featureValues().size()}) {
        ktClassifierRule rule;
        attempt([&] {
            rule.init(std::vector<ktPtrHandle<ktClsFtSc>>(size, new ktClassifierFeatureScoreOneSided), 3);
            static_cast<void>(rule.score(values));
        });
    }
}

void useAs(ktClassifierRule& rule)
{
    for (const ktClassifierFeatureVector& values : featureVectors(rule.scoringMethods().size())) {
        attempt([&] { static_cast<void>(rule.score(values)); });
    }
    for (const ktPtrHandle<ktClsFtSc>& method : rule.scoringMethods()) {
        if (method) {
            useScore(*method);
        }
    }
    ktClassifierRuleTable table;
    attempt([&] { table.train({rule, rule}); });
    attempt([&] { rule.init(std::vector<ktPtrHandle<ktClsFtSc>>(rule.scoringMethods()), 5); });
}

void useAs(ktClassifierRuleTable& table)
{
    const std::size_t size = table.rules().empty() ? 1 : table.rules().front().scoringMethods().size();
    for (const ktClassifierFeatureVector& values : featureVectors(size)) {
        for (const double threshold : {0.5, -1.0, nan}) {
            attempt([&] { static_cast<void>(table.classifyHardThreshold(values, threshold)); });
        }
    }
    for (ktClassifierRule rule : table.rules()) {
        useAs(rule);
    }
    attempt([&] { table.train(std::vector<ktClassifierRule>(table.rules())); });
}

// Containers and plain values have no operations of their own.
template <class T>
std::enable_if_t<!std::is_base_of_v<ktPersistent, T>> useAs(std::vector<T>&)
{
}
void useAs(ktNMMatrix& matrix)
{
    readAll(matrix);
}

// Dispatch by the class of an object.

template <class T>
bool useIfClassIs(ktPersistent& object)
{
    if (typeid(object) != typeid(T)) {
        return false;
    }
    auto& value = dynamic_cast<T&>(object);
    copyAndCompare(value);
    useAs(value);
    return true;
}

template <class... T>
struct Classes {
    static bool use(ktPersistent& object) { return (useIfClassIs<T>(object) || ...); }
};

using Registered = Classes<ktClassifierDefs::BadParams, ktClassifierDefs::BadIndex, ktClassifierDefs::BadLabel,
                           ktClassifierDefs::BadMethod, ktClassifierDefs::NotTrained, ktClassifierDefs::NotImplemented,
                           ktClassifierDefs::BadFeatures, ktClassifierDefs::InsufficientTrainData, ktFeaturePattern,
                           Provider, ktClassifierTrainParamsKNN, kt_ClassifierKNN, kt_ClassifierDecisionTree,
                           ktPatternDistanceMetricNorm, ktComparisonPredicate, ktRangePredicate, ktValidityPredicate,
                           ktDecisionTreeNode, ktDecisionTreeLeaf, ktClassifierTrainParamsBayesian,
                           kt_CategoryModelBayesian, kt_PDFMultivariateNormal, kt_PDFBinomial, kt_ClassifierBayesian>;

void useObject(ktPersistent& object)
{
    storeObjectAgain(object);
    promise(Registered::use(object), "every class of the registry has a battery");
    storeObjectAgain(object);
}

// The subjects.

template <class T>
std::string storedBytes(T& value)
{
    std::string bytes;
    stores([&] { bytes = bytesOf(value); });
    return bytes;
}

class ObjectSubject : public Subject {
public:
    void load(ktArchive& archive) override { object_.load(archive); }
    std::string bytes() override
    {
        std::string bytes;
        stores([&] { bytes = object_.get() == nullptr ? "null" : recordOf(*object_.get()); });
        return bytes;
    }
    void use() override
    {
        if (object_.get() != nullptr) {
            useObject(*object_.get());
        }
    }
    void recover(const std::string& good) override
    {
        promise(object_.get() == nullptr, "a load that fails gives no object");
        std::istringstream in(good);
        ktArchive archive(static_cast<std::istream&>(in));
        load(archive);
    }

private:
    AnyObject object_;
};

template <class T>
class ValueSubject : public Subject {
public:
    void load(ktArchive& archive) override { archive || value_; }
    std::string bytes() override { return storedBytes(value_); }
    void use() override
    {
        storeValueAgain(value_);
        copyAndCompare(value_);
        if constexpr (std::is_base_of_v<ktPersistent, T>) {
            useObject(value_);
        } else {
            useAs(value_);
        }
        storeValueAgain(value_);
    }
    void recover(const std::string& good) override
    {
        T copy(value_);
        copy = fresh<T>();
        T used(value_);
        useAs(used);
        loadFrom(value_, good);
        value_ = copy;
        loadFrom(value_, good);
    }

private:
    T value_ = fresh<T>();
};

template <class T>
class HandleSubject : public Subject {
public:
    void load(ktArchive& archive) override { archive || handle_; }
    std::string bytes() override { return storedBytes(handle_); }
    void use() override
    {
        if (handle_) {
            useObject(const_cast<std::remove_const_t<T>&>(*handle_));
        }
    }
    void recover(const std::string& good) override { loadFrom(handle_, good); }

private:
    ktPtrHandle<T> handle_;
};

template <class S>
std::unique_ptr<Subject> makeSubject()
{
    return std::make_unique<S>();
}

template <class T>
ArchivedType value(const char* name)
{
    return {name, &makeSubject<ValueSubject<T>>};
}

template <class T>
ArchivedType handle(const char* name)
{
    return {name, &makeSubject<HandleSubject<T>>};
}

}  // namespace

const std::vector<ArchivedType>& archivedTypes()
{
    static const std::vector<ArchivedType> types = {
        {"any object", &makeSubject<ObjectSubject>},
        value<ktClassifierTool>("ktClassifierTool"),
        value<ktClassifierTool>("ktClassifierToolWithTree"),
        value<ktClassifierCosts>("ktClassifierCosts"),
        value<ktClassifierFrequencies>("ktClassifierFrequencies"),
        value<ktClassifierCategoryResult>("ktClassifierCategoryResult"),
        value<ktClassifierResult>("ktClassifierResult"),
        value<ktClassifierDistributionTypes>("ktClassifierDistributionTypes"),
        value<ktPtrHandle<ktClsFtSc>>("ktClsFtSc"),
        value<ktClassifierFeatureScoreOneSided>("ktClassifierFeatureScoreOneSided"),
        value<ktClassifierFeatureScoreTwoSided>("ktClassifierFeatureScoreTwoSided"),
        value<ktClassifierFeatureVector>("ktClassifierFeatureVector"),
        value<ktClassifierRule>("ktClassifierRule"),
        value<ktClassifierRuleTable>("ktClassifierRuleTable"),
        value<ktClassifierDefs::BadParams>("BadParams in place"),
        value<ktFeaturePattern>("ktFeaturePattern in place"),
        value<Provider>("ktClassifierDataProviderMemory in place"),
        value<ktClassifierTrainParamsKNN>("ktClassifierTrainParamsKNN in place"),
        value<kt_ClassifierKNN>("kt_ClassifierKNN in place"),
        value<kt_ClassifierDecisionTree>("kt_ClassifierDecisionTree in place"),
        value<ktPatternDistanceMetricNorm>("ktPatternDistanceMetricNorm in place"),
        value<ktComparisonPredicate>("ktComparisonPredicate in place"),
        value<ktRangePredicate>("ktRangePredicate in place"),
        value<ktValidityPredicate>("ktValidityPredicate in place"),
        value<ktDecisionTreeNode>("ktDecisionTreeNode in place"),
        value<ktDecisionTreeLeaf>("ktDecisionTreeLeaf in place"),
        value<ktClassifierTrainParamsBayesian>("ktClassifierTrainParamsBayesian in place"),
        value<kt_CategoryModelBayesian>("kt_CategoryModelBayesian in place"),
        value<kt_PDFMultivariateNormal>("kt_PDFMultivariateNormal in place"),
        value<kt_PDFBinomial>("kt_PDFBinomial in place"),
        value<kt_ClassifierBayesian>("kt_ClassifierBayesian in place"),
        handle<const ktFeaturePattern>("handle to a pattern"),
        handle<const ktDecisionTree>("handle to a tree"),
        handle<kt_Classifier>("handle to a classifier"),
        handle<ktClassifierTrainParams>("handle to parameters"),
        value<std::vector<ktClassifierTool>>("tools"),
        value<std::vector<ktPtrHandle<ktDecisionTree>>>("trees"),
        value<std::vector<std::vector<ktPtrHandle<const ktFeaturePattern>>>>("patterns"),
        value<std::vector<std::vector<std::string>>>("texts"),
        value<std::vector<bool>>("flags"),
        value<std::vector<double>>("doubles"),
        value<std::vector<ktClassifierDistributionTypes::DistributionType>>("enumerations"),
        value<std::vector<unsigned char>>("bytes"),
        value<std::vector<ktRange>>("ranges"),
        value<std::vector<unsigned long>>("numbers"),
        value<ktNMMatrix>("matrix")};
    return types;
}

const ArchivedType& typeOfGolden(const std::string& name)
{
    const std::vector<ArchivedType>& types = archivedTypes();
    const auto found =
        std::find_if(types.begin(), types.end(), [&](const ArchivedType& type) { return type.name == name; });
    return found != types.end() ? *found : types.front();
}

}  // namespace kt_test
