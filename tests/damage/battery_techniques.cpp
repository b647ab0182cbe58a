// Parameters, metrics, predicates, trees, densities, models, classifiers and the tool.

#include "battery_kit.h"

#include <cmath>
#include <iterator>

namespace kt_test::battery {

void trainTools(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params)
{
    ktClassifierTool tool;
    if (attempt([&] { tool.train(provider, params); })) {
        runOnSomePatterns(tool);
        attempt([&] { tool.retrain(params); });
        storeValueAgain(tool);
    }
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

namespace {

void readAll(const ktNMMatrix& matrix)
{
    // Without columns there may be any number of rows.
    for (long row = 0; row < matrix.numRows() && matrix.numColumns() > 0; ++row) {
        for (long column = 0; column < matrix.numColumns(); ++column) {
            static_cast<void>(matrix(row, column));
        }
    }
}

}  // namespace

void useAs(ktNMMatrix& matrix)
{
    readAll(matrix);
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

namespace {

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

}  // namespace

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

}  // namespace kt_test::battery
