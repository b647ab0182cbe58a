#include "fields.h"
#include "parts.h"
#include "values.h"

#include <clastool/clastool.h>
#include <clastool/kit/patterns.h>

#include <nanobind/stl/map.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/vector.h>

#include <optional>
#include <vector>

namespace {

using Pair = std::pair<long, long>;

nb::dict overridesOf(const ktClassifierCosts& costs)
{
    double byDefault = 0.0;
    std::vector<long> from;
    std::vector<long> to;
    std::vector<double> values;
    readFields(costs, byDefault, from, to, values);
    nb::dict overrides;
    for (std::size_t i = 0; i < values.size(); ++i) {
        overrides[nb::make_tuple(from[i], to[i])] = values[i];
    }
    return overrides;
}

nb::dict overridesOf(const ktClassifierFrequencies& frequencies)
{
    double byDefault = 0.0;
    std::vector<long> labels;
    std::vector<double> values;
    readFields(frequencies, byDefault, labels, values);
    nb::dict overrides;
    for (std::size_t i = 0; i < values.size(); ++i) {
        overrides[nb::int_(labels[i])] = values[i];
    }
    return overrides;
}

/// The text `Name(default)` or `Name(default, {...})`.
template <class T>
std::string writtenWith(const char* name, double byDefault, const T& self)
{
    const nb::dict overrides = overridesOf(self);
    std::string text = name + ("(" + written(byDefault));
    return text + (overrides.size() > 0 ? ", " + written(overrides) : "") + ")";
}

void bindCostTable(nb::module_& module)
{
    auto type =
        nb::class_<ktClassifierCosts>(module, "Costs", "What it costs to assign a pattern of one category to another.");
    type.def(
            "__init__",
            [](ktClassifierCosts* self, double byDefault, const std::optional<nb::mapping>& overrides) {
                ktClassifierCosts costs(byDefault);
                if (overrides) {
                    for (nb::handle item : overrides->attr("items")()) {
                        const auto pair = nb::cast<Pair>(item[0]);
                        costs.misclassificationCostOverride(pair.first, pair.second, nb::cast<double>(item[1]));
                    }
                }
                new (self) ktClassifierCosts(costs);
            },
            nb::arg("default") = 1.0, nb::arg("overrides") = nb::none(),
            nb::sig(
                "def __init__(self, default: float = 1.0, overrides: Mapping[tuple[int, int], float] | None = None) -> "
                "None"),
            "A cost for every mistake, and others for pairs of a true and an assigned label.")
        .def_static(
            "from_matrix", &ktKit::costs, nb::arg("matrix"), nb::arg("labels") = std::vector<long>(),
            nb::sig("def from_matrix(matrix: Sequence[Sequence[float]], labels: Sequence[int] = ()) -> Costs"),
            "Costs from a square matrix: row i, column j is what it costs to assign a pattern of category labels[i] to "
            "labels[j]. Without labels these are 0, 1, 2, ...")
        .def_prop_rw(
            "default", [](const ktClassifierCosts& self) { return self.defaultMisclassificationCost(); },
            [](ktClassifierCosts& self, double cost) { self.defaultMisclassificationCost(cost); },
            "What a mistake costs that has no override.")
        .def_prop_ro(
            "overrides", [](const ktClassifierCosts& self) { return overridesOf(self); },
            nb::sig("def overrides(self) -> dict[tuple[int, int], float]"),
            "A copy of the overrides, in the order in which they were entered.")
        .def(
            "__getitem__",
            [](const ktClassifierCosts& self, const Pair& pair) {
                return self.misclassificationCost(pair.first, pair.second);
            },
            nb::arg("pair"), "The cost for a pair of a true and an assigned label.")
        .def(
            "__setitem__",
            [](ktClassifierCosts& self, const Pair& pair, double cost) {
                self.misclassificationCostOverride(pair.first, pair.second, cost);
            },
            nb::arg("pair"), nb::arg("cost"))
        .def("clear", &ktClassifierCosts::clearMisclassificationOverrides, "Drops the overrides.")
        .def("__repr__", [](const ktClassifierCosts& self) {
            return writtenWith("Costs", self.defaultMisclassificationCost(), self);
        });
    compares<ktClassifierCosts>(type);
    pickles<ktClassifierCosts>(type);
}

void bindFrequencyTable(nb::module_& module)
{
    auto type = nb::class_<ktClassifierFrequencies>(
        module, "Frequencies", "How frequent each category is, before anything is measured: relative weights.");
    type.def(
            "__init__",
            [](ktClassifierFrequencies* self, double byDefault, const std::optional<nb::mapping>& overrides) {
                ktClassifierFrequencies frequencies(byDefault);
                if (overrides) {
                    for (nb::handle item : overrides->attr("items")()) {
                        frequencies.categoryFrequencyOverride(nb::cast<long>(item[0]), nb::cast<double>(item[1]));
                    }
                }
                new (self) ktClassifierFrequencies(frequencies);
            },
            nb::arg("default") = 1.0, nb::arg("overrides") = nb::none(),
            nb::sig("def __init__(self, default: float = 1.0, overrides: Mapping[int, float] | None = None) -> None"),
            "A frequency for every category, and others for some labels.")
        .def_static("from_values", &ktKit::frequencies, nb::arg("values"), nb::arg("labels") = std::vector<long>(),
                    nb::sig("def from_values(values: Sequence[float], labels: Sequence[int] = ()) -> Frequencies"),
                    "A frequency for each label. Without labels these are 0, 1, 2, ...")
        .def_prop_rw(
            "default", [](const ktClassifierFrequencies& self) { return self.defaultCategoryFrequency(); },
            [](ktClassifierFrequencies& self, double frequency) { self.defaultCategoryFrequency(frequency); },
            "The frequency of every category without an override.")
        .def_prop_ro(
            "overrides", [](const ktClassifierFrequencies& self) { return overridesOf(self); },
            nb::sig("def overrides(self) -> dict[int, float]"),
            "A copy of the overrides, in the order in which they were entered.")
        .def("__getitem__", &ktClassifierFrequencies::categoryFrequency, nb::arg("label"),
             "The frequency of a category.")
        .def("__setitem__", &ktClassifierFrequencies::categoryFrequencyOverride, nb::arg("label"), nb::arg("frequency"))
        .def("clear", &ktClassifierFrequencies::clearFrequencyOverrides, "Drops the overrides.")
        .def("__repr__", [](const ktClassifierFrequencies& self) {
            return writtenWith("Frequencies", self.defaultCategoryFrequency(), self);
        });
    compares<ktClassifierFrequencies>(type);
    pickles<ktClassifierFrequencies>(type);
}

}  // namespace

void bindCosts(nb::module_& module)
{
    bindCostTable(module);
    bindFrequencyTable(module);
}
