#include "arrays.h"
#include "parts.h"
#include "values.h"

#include <clastool/rule_table.h>

#include <nanobind/stl/vector.h>

#include <vector>

namespace {

using Score = ktClsFtSc;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;
using Ignore = ktClassifierFeatureScoreIgnore;
using Methods = std::vector<ktPtrHandle<Score>>;

/// A copy of the scoring function, of its own class.
nb::object objectOf(const Score* score)
{
    if (const auto* const one = dynamic_cast<const OneSided*>(score)) {
        return nb::cast(*one);
    }
    if (const auto* const two = dynamic_cast<const TwoSided*>(score)) {
        return nb::cast(*two);
    }
    if (const auto* const ignore = dynamic_cast<const Ignore*>(score)) {
        return nb::cast(*ignore);
    }
    throw ktBadPointer();
}

/// Copies of the scoring functions, because a rule shares those that it is given.
Methods methodsOf(const std::vector<const Score*>& scores)
{
    Methods methods;
    for (const Score* const score : scores) {
        methods.push_back(score == nullptr ? nullptr : score->clone());
    }
    return methods;
}

nb::list scoresOf(const ktClassifierRule& rule)
{
    nb::list scores;
    for (const ktPtrHandle<Score>& method : rule.scoringMethods()) {
        scores.append(objectOf(method.get()));
    }
    return scores;
}

void bindIgnore(nb::module_& module)
{
    auto type = nb::class_<Ignore, Score>(module, "FeatureScoreIgnore", "Leaves its feature out of a rule's score.");
    type.def(nb::init<>())
        .def("__repr__", [](const Ignore&) { return "FeatureScoreIgnore()"; })
        .def(
            "__getstate__", [](const Ignore&) { return nb::make_tuple(); },
            nb::sig("def __getstate__(self) -> tuple[()]"))
        .def(
            "__setstate__", [](Ignore& self, const nb::tuple&) { new (&self) Ignore(); },
            nb::sig("def __setstate__(self, state: tuple[()], /) -> None"));
    compares<Ignore>(type);
    picklesByState(type);
}

void bindOneSided(nb::module_& module)
{
    auto type = nb::class_<OneSided, Score>(module, "FeatureScoreOneSided",
                                            "A ramp: y0 on the outer side of x0, from y0 to y1 between x0 and x1, y1 "
                                            "up to xc, and 0 past xc. It does not change.");
    type.def(
            "__init__",
            [](OneSided* self, double x0, double x1, double xc, double y0, double y1) {
                OneSided score;
                score.init(x0, x1, xc, y0, y1);
                new (self) OneSided(score);
            },
            nb::arg("x0") = 0.0, nb::arg("x1") = 1.0, nb::arg("xc") = 1.0, nb::arg("y0") = 1.0, nb::arg("y1") = 0.0)
        .def_prop_ro("x0", nb::overload_cast<>(&OneSided::x0, nb::const_), "Where the ramp begins.")
        .def_prop_ro("x1", nb::overload_cast<>(&OneSided::x1, nb::const_), "Where the ramp ends.")
        .def_prop_ro("xc", nb::overload_cast<>(&OneSided::xc, nb::const_), "Past it the score is 0.")
        .def_prop_ro("y0", nb::overload_cast<>(&OneSided::y0, nb::const_), "The score on the outer side of x0.")
        .def_prop_ro("y1", nb::overload_cast<>(&OneSided::y1, nb::const_), "The score from x1 to xc.")
        .def("__repr__", [](const OneSided& self) {
            return "FeatureScoreOneSided(" + written(self.x0()) + ", " + written(self.x1()) + ", " +
                   written(self.xc()) + ", " + written(self.y0()) + ", " + written(self.y1()) + ")";
        });
    compares<OneSided>(type);
    pickles<OneSided>(type);
}

void bindTwoSided(nb::module_& module)
{
    auto type = nb::class_<TwoSided, Score>(
        module, "FeatureScoreTwoSided",
        "Two ramps side by side, the low one below the smallest x of the high one. It does not change.");
    type.def(
            "__init__",
            [](TwoSided* self, double x0, double x1, double xc, double x0h, double x1h, double xch, double y0,
               double y1, double y0h, double y1h) {
                TwoSided score;
                score.init(x0, x1, xc, x0h, x1h, xch, y0, y1, y0h, y1h);
                new (self) TwoSided(score);
            },
            nb::arg("x0"), nb::arg("x1"), nb::arg("xc"), nb::arg("x0h"), nb::arg("x1h"), nb::arg("xch"), nb::arg("y0"),
            nb::arg("y1"), nb::arg("y0h"), nb::arg("y1h"))
        .def_prop_ro(
            "low", [](const TwoSided& self) { return self.Low(); }, "The half below the split point.")
        .def_prop_ro(
            "high", [](const TwoSided& self) { return self.High(); }, "The half at and above the split point.")
        .def("__repr__", [](const TwoSided& self) {
            std::string text = "FeatureScoreTwoSided(" + written(self.x0());
            for (const double value : {self.x1(), self.xc(), self.x0h(), self.x1h(), self.xch(), self.y0(), self.y1(),
                                       self.y0h(), self.y1h()}) {
                text += ", " + written(value);
            }
            return text + ")";
        });
    compares<TwoSided>(type);
    pickles<TwoSided>(type);
}

void bindScores(nb::module_& module)
{
    nb::class_<Score>(module, "FeatureScore", "Maps one measured value to a score between 0 and 1.")
        .def("__call__", &Score::score, nb::arg("x"), "The score; -1 leaves the value out of a rule's score.");
    bindIgnore(module);
    bindOneSided(module);
    bindTwoSided(module);
}

std::string repr(const ktClassifierRule& self)
{
    return "Rule(" + written(scoresOf(self)) + ", " + std::to_string(self.label()) + ")";
}

void bindRule(nb::module_& module)
{
    auto type = nb::class_<ktClassifierRule>(
        module, "Rule",
        "A fuzzy rule: a scoring function for each feature, and the label that it stands for. It does not change.");
    type.def(
            "__init__",
            [](ktClassifierRule* self, const std::vector<const Score*>& scores, long label) {
                ktClassifierRule rule;
                rule.init(methodsOf(scores), label);
                new (self) ktClassifierRule(rule);
            },
            nb::arg("scores"), nb::arg("label"))
        .def_prop_ro(
            "scores", &scoresOf,
            nb::sig("def scores(self) -> list[FeatureScoreIgnore | FeatureScoreOneSided | FeatureScoreTwoSided]"),
            "A copy of the scoring functions, in feature order.")
        .def_prop_ro("label", &ktClassifierRule::label, "What the rule stands for.")
        .def(
            "score",
            [](const ktClassifierRule& self, nb::handle values) {
                return self.score(ktClassifierFeatureVector(numbersOf(values)));
            },
            nb::arg("values"), nb::sig("def score(self, values: ArrayLike) -> float"),
            "The geometric mean of the scores that count.")
        .def("__repr__", [](const ktClassifierRule& self) { return repr(self); });
    compares<ktClassifierRule>(type);
    pickles<ktClassifierRule>(type);
}

void bindRuleTable(nb::module_& module)
{
    auto type = nb::class_<ktClassifierRuleTable>(module, "RuleTable",
                                                  "Rules in the order in which they are tried. It does not change.");
    type.def(
            "__init__",
            [](ktClassifierRuleTable* self, const std::vector<ktClassifierRule>& rules) {
                ktClassifierRuleTable table;
                table.train(rules);
                new (self) ktClassifierRuleTable(table);
            },
            nb::arg("rules"))
        .def_prop_ro(
            "rules", [](const ktClassifierRuleTable& self) { return self.rules(); }, "A copy of the rules.")
        .def(
            "classify",
            [](const ktClassifierRuleTable& self, nb::handle values, double threshold) {
                return self.classifyHardThreshold(ktClassifierFeatureVector(numbersOf(values)), threshold);
            },
            nb::arg("values"), nb::arg("threshold"),
            nb::sig("def classify(self, values: ArrayLike, threshold: float) -> int"),
            "The label of the first rule whose score is greater than the threshold, or -1.")
        .def("__repr__",
             [](const ktClassifierRuleTable& self) { return "RuleTable(" + written(nb::cast(self.rules())) + ")"; });
    compares<ktClassifierRuleTable>(type);
    pickles<ktClassifierRuleTable>(type);
}

}  // namespace

void bindRules(nb::module_& module)
{
    bindScores(module);
    bindRule(module);
    bindRuleTable(module);
}
