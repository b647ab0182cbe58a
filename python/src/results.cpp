#include "parts.h"
#include "values.h"

#include <clastool/clastool.h>
#include <clastool/kit/runs.h>

#include <nanobind/stl/vector.h>

namespace {

using Category = ktClassifierCategoryResult;

std::string repr(const Category& self)
{
    return "CategoryResult(" + std::to_string(self.categoryLabel()) + ", " + written(self.matchScore()) + ", " +
           written(self.classScore()) + ", " + written(self.expectedCost()) + ")";
}

std::string repr(const ktClassifierResult& self)
{
    std::string text = "Result([";
    for (const Category& category : self.categoryResults()) {
        text += (text.back() == '[' ? "" : ", ") + repr(category);
    }
    return text + "], " + written(self.matchScoreFactorLog()) + ")";
}

const Category& at(const ktClassifierResult& self, long index)
{
    const auto size = static_cast<long>(self.categoryResults().size());
    if (index < -size || index >= size) {
        throw nb::index_error("category result index out of range");
    }
    return self.categoryResults()[static_cast<std::size_t>(index < 0 ? index + size : index)];
}

}  // namespace

void bindResults(nb::module_& module)
{
    auto category =
        nb::class_<Category>(module, "CategoryResult", "One category's verdict on a pattern. It does not change.");
    category
        .def(nb::init<long, double, double, double>(), nb::arg("label"), nb::arg("match_score"),
             nb::arg("class_score") = 0.0, nb::arg("expected_cost") = 0.0)
        .def_prop_ro("label", &Category::categoryLabel, "The category.")
        .def_prop_ro("match_score", &Category::matchScore,
                     "How well the pattern fits the category, in [0, 1]; what that means, the technique says.")
        .def_prop_ro("class_score", &Category::classScore,
                     "The category's share of the result: its posterior probability.")
        .def_prop_ro("expected_cost", &Category::expectedCost, "What deciding for the category is expected to cost.")
        .def("__repr__", [](const Category& self) { return repr(self); });
    compares<Category>(category);
    pickles<Category>(category);

    auto result = nb::class_<ktClassifierResult>(
        module, "Result", "The answer of a run: category results by ascending expected cost. It does not change.");
    result
        .def(nb::init<const std::vector<Category>&, double>(), nb::arg("category_results"),
             nb::arg("match_score_factor_log") = 0.0,
             "Takes the results as they are, sorts them by expected cost, and divides the class scores by their sum.")
        .def_static(
            "from_match_scores",
            [](const std::vector<Category>& results, const ktClassifierFrequencies& frequencies,
               const ktClassifierCosts& costs,
               double factorLog) { return ktClassifierResult(results, frequencies, costs, factorLog); },
            nb::arg("category_results"), nb::arg("frequencies"), nb::arg("costs"),
            nb::arg("match_score_factor_log") = 0.0,
            "The decision rule: class scores and expected costs from match scores, frequencies and costs.")
        .def_prop_ro("category_results", &ktClassifierResult::categoryResults, nb::rv_policy::copy,
                     "The category results by ascending expected cost: a new list.")
        .def_prop_ro("match_score_factor_log", &ktClassifierResult::matchScoreFactorLog,
                     "ln of the factor by which the technique scaled its match scores.")
        .def_prop_ro(
            "decision", [](const ktClassifierResult& self) { return ktKit::decision(self); },
            "The first category result, that of least expected cost.")
        .def_prop_ro(
            "label", [](const ktClassifierResult& self) { return ktKit::decision(self).categoryLabel(); },
            "The category that is decided for.")
        .def("log_likelihood", &ktKit::logLikelihood, nb::arg("label"),
             "ln of the unscaled likelihood of a category, by which a pattern that fits no category can be told.")
        .def("__len__", [](const ktClassifierResult& self) { return self.categoryResults().size(); })
        .def(
            "__getitem__", [](const ktClassifierResult& self, long index) { return at(self, index); }, nb::arg("index"))
        .def("__repr__", [](const ktClassifierResult& self) { return repr(self); });
    compares<ktClassifierResult>(result);
    pickles<ktClassifierResult>(result);
}
