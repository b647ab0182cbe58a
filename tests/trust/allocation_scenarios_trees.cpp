#include "allocation_scenarios.h"

#include "support/training.h"

namespace trust {

namespace {

using Node = ktDecisionTreeNode;
using Leaf = ktDecisionTreeLeaf;
using Classifier = kt_ClassifierDecisionTree;

Leaf leaf(long label)
{
    return Leaf(ktClassifierResult({{label, 1.0, 1.0, 0.0}, {label + 1, 0.5, 0.5, 1.0}}, -1.0));
}

Node someTree()
{
    const Node lower(ktRangePredicate(ktRange(0.0, 1.0), {0, 2}), leaf(5), leaf(3));
    return Node(ktComparisonPredicate(0, 1), Node(ktValidityPredicate({1}), lower, leaf(1)), lower);
}

void listPredicates(ScenarioList& list)
{
    const std::vector<long> indices{3, 1, 2};
    const ktFeaturePattern pattern({0.5, 0.25, 0.75, 1.0}, {});
    const auto asksOutcome = [&](const std::string& name, const auto& predicate) {
        list.asks(
            name + ": answers", predicate, [pattern](const auto& given) { return given.outcome(pattern) ? 1L : 0L; },
            Allocates::nothing);
        list.asks(name + ": cloned", predicate, [](const auto& given) { return given.clone(); });
    };
    const ktComparisonPredicate comparison(2, 1);
    list.makes(
        "comparison: made", [] { return ktComparisonPredicate(2, 1); }, Allocates::nothing);
    list.values("comparison", ktComparisonPredicate(), comparison, Allocates::nothing);
    asksOutcome("comparison", comparison);
    list.makes("comparison: refused for equal indices", [] {
        try {
            const ktComparisonPredicate predicate(2, 2);
        } catch (const ktClassifierDefs::BadParams& error) {
            return error.message();
        }
        return std::string("not refused");
    });
    const ktRangePredicate range(ktRange(0.0, 1.0), indices);
    list.makes("range predicate: made by default", [] { return ktRangePredicate(); });
    list.makes("range predicate: made", [indices] { return ktRangePredicate(ktRange(0.0, 1.0), indices); });
    list.values("range predicate", ktRangePredicate(), range);
    asksOutcome("range predicate", range);
    list.asks("range predicate: asked for its indices", range,
              [](const ktRangePredicate& predicate) { return predicate.measurementIndices(); });
    const ktValidityPredicate validity(indices);
    list.makes("validity: made by default", [] { return ktValidityPredicate(); });
    list.makes("validity: made", [indices] { return ktValidityPredicate(indices); });
    list.values("validity", ktValidityPredicate(), validity);
    asksOutcome("validity", validity);
    list.asks("validity: asked for its indices", validity,
              [](const ktValidityPredicate& predicate) { return predicate.measurementIndices(); });
}

void listTrees_(ScenarioList& list)
{
    list.makes(
        "leaf: made by default", [] { return Leaf(); }, Allocates::nothing);
    list.makes("leaf: made", [result = leaf(1).classifierResult()] { return Leaf(result); });
    list.values("leaf", Leaf(), leaf(1));
    list.asks("leaf: cloned", leaf(1), [](const Leaf& given) { return given.clone(); });
    list.keeps(
        "leaf: result set", [] { return leaf(4); },
        [result = ktClassifierResult({{1, 1.0, 1.0, 0.0}, {2, 1.0, 1.0, 0.0}, {3, 1.0, 1.0, 0.0}}, 0.0)](Leaf& given) {
            given.classifierResult(result);
        });
    list.asks("leaf: lists its labels", leaf(1), [](const Leaf& given) { return given.categoryLabels(); });

    list.makes("node: made empty", [] { return ktPtrHandle<Node>(new Node); });
    list.makes("node: made",
               [predicate = ktRangePredicate(), yes = leaf(1), no = someTree()] { return Node(predicate, yes, no); });
    list.asks(
        "node: copied", someTree(), [](const Node& node) { return Node(node); }, Allocates::nothing);
    list.keeps(
        "node: assigned", [] { return Node(); }, [from = someTree()](Node& node) { node = from; }, Allocates::nothing);
    list.asks("node: compared", std::make_pair(someTree(), someTree()),
              [](const std::pair<Node, Node>& both) { return both.first == both.second ? 1L : 0L; });
    list.storedAndLoaded("node", Node(ktComparisonPredicate(), leaf(1), leaf(2)), someTree());
    list.asks("node: cloned", someTree(), [](const Node& node) { return node.clone(); });
    list.keeps("node: predicate set", someTree,
               [predicate = ktRangePredicate()](Node& node) { node.predicateFunction(predicate); });
    list.keeps("node: true tree set", someTree, [tree = leaf(9)](Node& node) { node.trueTree(tree); });
    list.keeps("node: false tree set", someTree, [tree = someTree()](Node& node) { node.falseTree(tree); });
    list.asks("node: lists its labels", someTree(), [](const Node& node) { return node.categoryLabels(); });
    list.asks("node: counts its categories", someTree(), [](const Node& node) { return node.numCategories(); });
}

Classifier trained()
{
    Classifier classifier;
    classifier.trainManual(someTree());
    return classifier;
}

using Run = std::pair<Classifier, ktClassifierResult>;

void listClassifier(ScenarioList& list)
{
    const auto run = [query = ktFeaturePattern({0.5, 0.25, 0.75}, {})](Run& state) {
        state.first.run(query, state.second);
    };
    list.makes("tree classifier: made", [] { return ktPtrHandle<Classifier>(new Classifier); });
    list.asks(
        "tree classifier: copied", trained(), [](const Classifier& given) { return Classifier(given); },
        Allocates::nothing);
    list.keeps(
        "tree classifier: assigned", trained,
        [from =
             [] {
                 Classifier other;
                 other.trainManual(leaf(1));
                 return other;
             }()](Classifier& classifier) { classifier = from; },
        Allocates::nothing);
    list.asks("tree classifier: compared", std::make_pair(trained(), trained()),
              [](const std::pair<Classifier, Classifier>& both) { return both.first == both.second ? 1L : 0L; });
    list.storedAndLoaded("tree classifier", trained(), trained());
    list.asks("tree classifier: cloned", trained(), [](const Classifier& given) { return given.clone(); });
    list.leaves(
        "tree classifier: trained by hand", trained,
        [tree = leaf(1)](Classifier& classifier) { classifier.trainManual(tree); },
        [](const Classifier& classifier) { EXPECT_FALSE(classifier.isTrained()); });
    list.keeps("tree classifier: refuses automatic training", trained,
               [data = kt_test::trainingData({{{1.0}, 1}})](Classifier& classifier) {
                   Classifier copy(classifier);
                   try {
                       copy.train(data, ktClassifierTrainParamsKNN());
                   } catch (const ktClassifierDefs::NotImplemented&) {
                       return;
                   }
                   ADD_FAILURE() << "not refused";
               });
    list.keeps("tree classifier: refuses an incremental step", trained,
               refused([](Classifier& classifier) { classifier.trainIncremental(ktFeaturePattern(), 1); }));
    list.keeps(
        "tree classifier: run", [] { return std::make_pair(trained(), kt_test::untouchedResult()); }, run);
    list.keeps(
        "tree classifier: run where the result has room",
        [run] {
            Run state(trained(), ktClassifierResult());
            run(state);
            return state;
        },
        run, Allocates::nothing);
    list.keeps(
        "tree classifier: refuses to run untrained",
        [] { return std::make_pair(Run(trained(), kt_test::untouchedResult()), 0L); },
        refused([run](std::pair<Run, long>& state) {
            Run untrained(Classifier(), state.first.second);
            run(untrained);
        }));
}

}  // namespace

void listTrees(ScenarioList& list)
{
    listPredicates(list);
    listTrees_(list);
    listClassifier(list);
}

}  // namespace trust
