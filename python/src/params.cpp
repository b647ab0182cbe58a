#include "arrays.h"
#include "fields.h"
#include "metric.h"
#include "parts.h"
#include "values.h"

#include <clastool/clastool.h>

#include <nanobind/stl/pair.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <vector>

namespace {

using Knn = ktClassifierTrainParamsKNN;
using Bayes = ktClassifierTrainParamsBayesian;
using Types = ktClassifierDistributionTypes;
using Type = Types::DistributionType;
using Place = std::pair<long, long>;

const char* nameOf(Type type)
{
    switch (type) {
    case Types::eNormal:
        return "DistributionType.NORMAL";
    case Types::eBinomial:
        return "DistributionType.BINOMIAL";
    case Types::ePoisson:
        return "DistributionType.POISSON";
    default:
        return "DistributionType.UNIFORM";
    }
}

struct TypeFields {
    Type byDefault = Types::eNormal;
    std::vector<long> labels;
    std::vector<long> indices;
    std::vector<Type> types;
    std::vector<long> setLabels;
    std::vector<std::vector<long>> sets;

    explicit TypeFields(const Types& self) { readFields(self, byDefault, labels, indices, types, setLabels, sets); }
};

nb::dict overridesOf(const Types& self)
{
    const TypeFields fields(self);
    nb::dict overrides;
    for (std::size_t i = 0; i < fields.types.size(); ++i) {
        overrides[nb::make_tuple(fields.labels[i], fields.indices[i])] = fields.types[i];
    }
    return overrides;
}

std::vector<std::pair<long, std::vector<long>>> setsOf(const Types& self)
{
    const TypeFields fields(self);
    std::vector<std::pair<long, std::vector<long>>> sets;
    for (std::size_t i = 0; i < fields.sets.size(); ++i) {
        sets.emplace_back(fields.setLabels[i], fields.sets[i]);
    }
    return sets;
}

std::string repr(const Types& self)
{
    const TypeFields fields(self);
    std::string text = std::string("<DistributionTypes: ") + nameOf(fields.byDefault);
    for (std::size_t i = 0; i < fields.types.size(); ++i) {
        text += ", (" + std::to_string(fields.labels[i]) + ", " + std::to_string(fields.indices[i]) +
                "): " + nameOf(fields.types[i]);
    }
    for (std::size_t i = 0; i < fields.sets.size(); ++i) {
        text += ", dependent in " + std::to_string(fields.setLabels[i]) + ": " + written(nb::cast(fields.sets[i]));
    }
    return text + ">";
}

void bindDistributionTypes(nb::module_& module)
{
    nb::enum_<Type>(module, "DistributionType", "Which distribution models a measurement.")
        .value("NORMAL", Types::eNormal, "Normal, of several measurements jointly too.")
        .value("BINOMIAL", Types::eBinomial, "Binomial, of one measurement between 0 and a maximum.")
        .value("POISSON", Types::ePoisson, "Not supported: training with it fails.")
        .value("UNIFORM", Types::eUniform, "Not supported: training with it fails.");

    auto type = nb::class_<Types>(
        module, "DistributionTypes",
        "Which distribution models each measurement of each category, and which measurements are modelled jointly.");
    type.def(nb::init<Type>(), nb::arg("default") = Types::eNormal)
        .def_prop_rw(
            "default", [](const Types& self) { return self.defaultDistributionType(); },
            [](Types& self, Type value) { self.defaultDistributionType(value); },
            "The type of every measurement without an override.")
        .def(
            "__getitem__",
            [](const Types& self, const Place& at) { return self.distributionType(at.first, at.second); },
            nb::arg("place"), "The type at a pair of a label and the index of a measurement.")
        .def(
            "__setitem__",
            [](Types& self, const Place& at, Type value) { self.distributionTypeOverride(at.first, at.second, value); },
            nb::arg("place"), nb::arg("type"))
        .def_prop_ro("overrides", &overridesOf,
                     nb::sig("def overrides(self) -> dict[tuple[int, int], DistributionType]"),
                     "A copy of the overrides, by label and index.")
        .def("set_dependent", &Types::setDependent, nb::arg("label"), nb::arg("indices"),
             "Makes these measurements of a category a joint group, together with the groups that they touch.")
        .def("is_dependent", &Types::isDependent, nb::arg("label"), nb::arg("indices"),
             "Whether these measurements of a category are in one joint group.")
        .def_prop_ro("dependent_sets", &setsOf, "A copy of the joint groups: pairs of a label and its members.")
        .def("clear", &Types::clearDistributionOverrides, "Drops overrides and joint groups.")
        .def("__repr__", &repr);
    compares<Types>(type);
    pickles<Types>(type);
}

void bindNorm(nb::module_& module)
{
    using Norm = ktPatternDistanceMetricNorm;
    auto type = nb::class_<Norm>(
        module, "Norm", "The Minkowski distance of order p: (sum of |a_i - b_i|^p)^(1/p). It does not change.");
    type.def(nb::init<double>(), nb::arg("order") = 2.0)
        .def_prop_ro(
            "order", [](const Norm& self) { return self.order(); }, "The order p.")
        .def(
            "__call__",
            [](const Norm& self, nb::handle a, nb::handle b) { return self.distance(*patternOf(a), *patternOf(b)); },
            nb::arg("a"), nb::arg("b"),
            nb::sig("def __call__(self, a: FeaturePattern | ArrayLike, b: FeaturePattern | ArrayLike) -> float"),
            "The distance of two patterns.")
        .def("__repr__", [](const Norm& self) { return "Norm(" + written(self.order()) + ")"; });
    compares<Norm>(type);
    pickles<Norm>(type);
}

void makeKnn(Knn* self, long k, nb::handle metric, const ktClassifierCosts* costs, bool throwIfNotReady)
{
    Knn params(k, *metricOf(metric), costs == nullptr ? ktClassifierCosts() : *costs);
    params.throwIfNotReady(throwIfNotReady);
    new (self) Knn(params);
}

/// The end of the text of parameters, with `throw_if_not_ready` only if it is not the default.
std::string flagOf(const ktClassifierTrainParams& self)
{
    return self.throwIfNotReady() ? ")" : ", throw_if_not_ready=False)";
}

void bindKnn(nb::module_& module)
{
    auto type = nb::class_<Knn>(module, "KNNParams", "Choose nearest neighbours: their number, the metric, the costs.");
    type.def("__init__", &makeKnn, nb::arg("k") = 1, nb::arg("metric") = nb::none(), nb::arg("costs") = nb::none(),
             nb::kw_only(), nb::arg("throw_if_not_ready") = true,
             nb::sig("def __init__(self, k: int = 1, metric: _Metric | None = None, costs: Costs | None = None, *, "
                     "throw_if_not_ready: bool = True) -> None"),
             "The metric is a Norm, or a function of two arrays that returns their distance; None is the Euclidean "
             "norm.")
        .def_prop_rw(
            "k", [](const Knn& self) { return self.k(); }, [](Knn& self, long k) { self.k(k); },
            "The number of neighbours that vote.")
        .def_prop_rw(
            "metric", [](const Knn& self) { return objectOf(self.distanceMetric().get()); },
            [](Knn& self, nb::handle metric) { self.distanceMetric(*metricOf(metric)); }, nb::arg("metric").none(),
            nb::for_getter(nb::sig("def metric(self) -> _Metric")),
            nb::for_setter(nb::sig("def metric(self, metric: _Metric | None) -> None")),
            "A copy of the Norm, or the function.")
        .def_prop_rw(
            "costs", [](const Knn& self) { return self.misclassificationCosts(); },
            [](Knn& self, const ktClassifierCosts& costs) { self.misclassificationCosts(costs); },
            "A copy of what each mistake costs: assign it to change it.")
        .def_prop_rw(
            "throw_if_not_ready", [](const Knn& self) { return self.throwIfNotReady(); },
            [](Knn& self, bool value) { self.throwIfNotReady(value); },
            "Whether training checks that the tool can run.")
        .def("__repr__",
             [](const Knn& self) {
                 return "KNNParams(" + std::to_string(self.k()) + ", " +
                        written(objectOf(self.distanceMetric().get())) + ", " +
                        written(nb::cast(self.misclassificationCosts())) + flagOf(self);
             })
        .def(
            "__getstate__",
            [](const Knn& self) {
                return nb::make_tuple(self.k(), objectOf(self.distanceMetric().get()), self.misclassificationCosts(),
                                      self.throwIfNotReady());
            },
            nb::sig("def __getstate__(self) -> tuple[int, _Metric, Costs, bool]"))
        .def("__setstate__", [](Knn& self, const std::tuple<long, nb::object, ktClassifierCosts, bool>& state) {
            makeKnn(&self, std::get<0>(state), std::get<1>(state), &std::get<2>(state), std::get<3>(state));
        });
    compares<Knn>(type);
    picklesByState(type);
}

template <class T>
T given(const T* value)
{
    return value == nullptr ? T() : *value;
}

void makeBayes(Bayes* self, const Types* types, const ktClassifierFrequencies* frequencies,
               const ktClassifierCosts* costs, nb::handle maxValues, bool throwIfNotReady)
{
    Bayes params(given(types), given(frequencies), given(costs),
                 maxValues.is_none() ? ktFeaturePattern() : *patternOf(maxValues));
    params.throwIfNotReady(throwIfNotReady);
    new (self) Bayes(params);
}

void bindBayes(nb::module_& module)
{
    auto type = nb::class_<Bayes>(
        module, "BayesParams",
        "Choose Bayes: distributions, prior frequencies, costs, and maxima of binomial measurements.");
    type.def("__init__", &makeBayes, nb::arg("distribution_types") = nb::none(), nb::arg("frequencies") = nb::none(),
             nb::arg("costs") = nb::none(), nb::arg("max_values") = nb::none(), nb::kw_only(),
             nb::arg("throw_if_not_ready") = true,
             nb::sig("def __init__(self, distribution_types: DistributionTypes | None = None, frequencies: Frequencies "
                     "| None = "
                     "None, costs: Costs | None = None, max_values: FeaturePattern | ArrayLike | None = None, *, "
                     "throw_if_not_ready: bool = True) -> None"),
             "Independent normal distributions, equal frequencies and equal costs, unless given. A maximum that is "
             "missing is 1.")
        .def_prop_rw(
            "distribution_types", [](const Bayes& self) { return self.distributionTypes(); },
            [](Bayes& self, const Types& types) { self.distributionTypes(types); },
            "A copy of the distributions: assign it to change it.")
        .def_prop_rw(
            "frequencies", [](const Bayes& self) { return self.categoryFrequencies(); },
            [](Bayes& self, const ktClassifierFrequencies& frequencies) { self.categoryFrequencies(frequencies); },
            "A copy of the prior frequencies: assign it to change it.")
        .def_prop_rw(
            "costs", [](const Bayes& self) { return self.misclassificationCosts(); },
            [](Bayes& self, const ktClassifierCosts& costs) { self.misclassificationCosts(costs); },
            "A copy of what each mistake costs: assign it to change it.")
        .def_prop_rw(
            "max_values", [](const Bayes& self) { return self.maxMeasurementValues(); },
            [](Bayes& self, nb::handle values) { self.maxMeasurementValues(*patternOf(values)); },
            nb::for_getter(nb::sig("def max_values(self) -> FeaturePattern")),
            nb::for_setter(nb::sig("def max_values(self, values: FeaturePattern | ArrayLike) -> None")),
            "The largest value of each binomial measurement.")
        .def_prop_rw(
            "throw_if_not_ready", [](const Bayes& self) { return self.throwIfNotReady(); },
            [](Bayes& self, bool value) { self.throwIfNotReady(value); },
            "Whether training checks that the tool can run.")
        .def("__repr__",
             [](const Bayes& self) {
                 return "BayesParams(" + repr(self.distributionTypes()) + ", " +
                        written(nb::cast(self.categoryFrequencies())) + ", " +
                        written(nb::cast(self.misclassificationCosts())) + ", " +
                        written(nb::cast(self.maxMeasurementValues())) + flagOf(self);
             })
        .def(
            "__getstate__",
            [](const Bayes& self) { return nb::make_tuple(stored<Bayes>(self), self.throwIfNotReady()); },
            nb::sig("def __getstate__(self) -> tuple[bytes, bool]"))
        .def("__setstate__", [](Bayes& self, const std::tuple<nb::bytes, bool>& state) {
            auto params = loaded<Bayes>(std::get<0>(state));
            params.throwIfNotReady(std::get<1>(state));
            new (&self) Bayes(params);
        });
    compares<Bayes>(type);
    picklesByState(type);
}

}  // namespace

void bindParams(nb::module_& module)
{
    bindDistributionTypes(module);
    bindNorm(module);
    bindKnn(module);
    bindBayes(module);
}
