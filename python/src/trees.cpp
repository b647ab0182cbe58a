#include "arrays.h"
#include "parts.h"
#include "values.h"

#include <clastool/clastool.h>

#include <nanobind/stl/vector.h>

#include <vector>

namespace {

using Indices = std::vector<long>;

/// A Python object of the predicate's own class, with a copy.
nb::object objectOf(const ktPredicateFunction* predicate)
{
    if (const auto* const comparison = dynamic_cast<const ktComparisonPredicate*>(predicate)) {
        return nb::cast(*comparison);
    }
    if (const auto* const range = dynamic_cast<const ktRangePredicate*>(predicate)) {
        return nb::cast(*range);
    }
    if (const auto* const validity = dynamic_cast<const ktValidityPredicate*>(predicate)) {
        return nb::cast(*validity);
    }
    throw ktBadPointer();
}

/// A Python object of the tree's own class. It holds a copy, which shares the children.
nb::object objectOf(const ktDecisionTree* tree)
{
    if (const auto* const node = dynamic_cast<const ktDecisionTreeNode*>(tree)) {
        return nb::cast(*node);
    }
    if (const auto* const leaf = dynamic_cast<const ktDecisionTreeLeaf*>(tree)) {
        return nb::cast(*leaf);
    }
    throw ktBadPointer();
}

std::string repr(const ktRangePredicate& self)
{
    const ktRange range = self.measurementRange();
    return "RangePredicate(" + written(range.low()) + ", " + written(range.high()) + ", " +
           written(nb::cast(self.measurementIndices())) + ")";
}

void bindPredicates(nb::module_& module)
{
    nb::class_<ktPredicateFunction>(module, "Predicate", "Answers yes or no for a pattern. It does not change.")
        .def(
            "__call__",
            [](const ktPredicateFunction& self, nb::handle pattern) { return self.outcome(*patternOf(pattern)); },
            nb::arg("pattern"), nb::sig("def __call__(self, pattern: FeaturePattern | ArrayLike) -> bool"),
            "The answer: no where a measurement is missing.");

    auto comparison = nb::class_<ktComparisonPredicate, ktPredicateFunction>(
        module, "ComparisonPredicate", "Whether one measurement is greater than another.");
    comparison.def(nb::init<long, long>(), nb::arg("index1"), nb::arg("index2"))
        .def_prop_ro("index1", &ktComparisonPredicate::measurementIndex1, "The measurement that is to be greater.")
        .def_prop_ro("index2", &ktComparisonPredicate::measurementIndex2, "The measurement that it is compared with.")
        .def("__repr__", [](const ktComparisonPredicate& self) {
            return "ComparisonPredicate(" + std::to_string(self.measurementIndex1()) + ", " +
                   std::to_string(self.measurementIndex2()) + ")";
        });
    compares<ktComparisonPredicate>(comparison);
    pickles<ktComparisonPredicate>(comparison);

    auto range = nb::class_<ktRangePredicate, ktPredicateFunction>(
        module, "RangePredicate", "Whether all of these measurements lie in a range, both ends included.");
    range
        .def(
            "__init__",
            [](ktRangePredicate* self, double low, double high, const Indices& indices) {
                new (self) ktRangePredicate(ktRange(low, high), indices);
            },
            nb::arg("low"), nb::arg("high"), nb::arg("indices"))
        .def_prop_ro(
            "low", [](const ktRangePredicate& self) { return self.measurementRange().low(); }, "The low end.")
        .def_prop_ro(
            "high", [](const ktRangePredicate& self) { return self.measurementRange().high(); }, "The high end.")
        .def_prop_ro("indices", &ktRangePredicate::measurementIndices, "The measurements that are looked at.")
        .def("__repr__", [](const ktRangePredicate& self) { return repr(self); });
    compares<ktRangePredicate>(range);
    pickles<ktRangePredicate>(range);

    auto validity = nb::class_<ktValidityPredicate, ktPredicateFunction>(
        module, "ValidityPredicate", "Whether all of these measurements are there.");
    validity.def(nb::init<const Indices&>(), nb::arg("indices"))
        .def_prop_ro("indices", &ktValidityPredicate::measurementIndices, "The measurements that are looked at.")
        .def("__repr__", [](const ktValidityPredicate& self) {
            return "ValidityPredicate(" + written(nb::cast(self.measurementIndices())) + ")";
        });
    compares<ktValidityPredicate>(validity);
    pickles<ktValidityPredicate>(validity);
}

Indices labelsOf(const ktDecisionTree& tree)
{
    return tree.categoryLabels();
}

void bindNodes(nb::module_& module)
{
    using Node = ktDecisionTreeNode;
    using Leaf = ktDecisionTreeLeaf;
    nb::class_<ktDecisionTree>(module, "DecisionTree",
                               "A tree of nodes that ask and leaves that answer. It does not change.")
        .def_prop_ro("category_labels", &labelsOf, "The labels that the tree can answer with.");

    auto leaf = nb::class_<Leaf, ktDecisionTree>(module, "Leaf", "The result for every pattern that gets here.");
    leaf.def(nb::init<const ktClassifierResult&>(), nb::arg("result"))
        .def_prop_ro(
            "result", [](const Leaf& self) { return self.classifierResult(); }, "The answer.")
        .def("__repr__", [](const Leaf& self) { return "Leaf(" + written(nb::cast(self.classifierResult())) + ")"; });
    compares<Leaf>(leaf);
    pickles<Leaf>(leaf);

    auto node = nb::class_<Node, ktDecisionTree>(module, "Node",
                                                 "A question, and the trees for its two answers, which it shares. "
                                                 "Trees may be of any depth; archives take 1000.");
    node.def(nb::init<const ktPredicateFunction&, const ktDecisionTree&, const ktDecisionTree&>(), nb::arg("predicate"),
             nb::arg("true_tree"), nb::arg("false_tree"))
        .def_prop_ro(
            "predicate", [](const Node& self) { return objectOf(self.predicateFunction().get()); },
            nb::sig("def predicate(self) -> Predicate"), "The question.")
        .def_prop_ro(
            "true_tree", [](const Node& self) { return objectOf(self.trueTree().get()); },
            nb::sig("def true_tree(self) -> Node | Leaf"), "Where the walk goes on if the answer is yes.")
        .def_prop_ro(
            "false_tree", [](const Node& self) { return objectOf(self.falseTree().get()); },
            nb::sig("def false_tree(self) -> Node | Leaf"), "Where the walk goes on if the answer is no.")
        .def("__repr__", [](const Node& self) {
            return "<Node: " + written(objectOf(self.predicateFunction().get())) + ", category labels " +
                   written(nb::cast(labelsOf(self))) + ">";
        });
    compares<Node>(node);
    pickles<Node>(node);
}

}  // namespace

nb::object treeObjectOf(const ktDecisionTree* tree)
{
    return objectOf(tree);
}

void bindTrees(nb::module_& module)
{
    bindPredicates(module);
    bindNodes(module);
}
