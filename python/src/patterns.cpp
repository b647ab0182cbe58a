#include "arrays.h"
#include "parts.h"
#include "values.h"

#include <nanobind/stl/vector.h>

#include <cmath>
#include <limits>

namespace {

void make(ktFeaturePattern* self, nb::handle values, const std::vector<long>& invalid)
{
    const std::vector<double> numbers = numbersOf(values);
    std::vector<long> missing = invalid;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (!std::isfinite(numbers[i])) {
            missing.push_back(static_cast<long>(i));
        }
    }
    new (self) ktFeaturePattern(numbers, missing);
}

/// Python counts from the end too.
long place(const ktFeaturePattern& self, long index)
{
    const long size = self.numMeasurements();
    if (index < -size || index >= size) {
        throw nb::index_error("measurement index out of range");
    }
    return index < 0 ? index + size : index;
}

nb::object valid(const ktFeaturePattern& self)
{
    Array<bool> flags({static_cast<std::size_t>(self.numMeasurements())});
    for (long i = 0; i < self.numMeasurements(); ++i) {
        flags.data()[i] = self.isValid(i);
    }
    return flags.object();
}

double valueAt(const ktFeaturePattern& self, long index)
{
    const long i = place(self, index);
    return self.isValid(i) ? self.featureMeasurement(i, true) : std::numeric_limits<double>::quiet_NaN();
}

nb::object values(const ktFeaturePattern& self)
{
    std::vector<double> numbers(static_cast<std::size_t>(self.numMeasurements()));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = valueAt(self, static_cast<long>(i));
    }
    return arrayOf(numbers);
}

std::string repr(const ktFeaturePattern& self)
{
    std::string text = "FeaturePattern([";
    for (long i = 0; i < self.numMeasurements(); ++i) {
        text += (i > 0 ? ", " : "") + written(valueAt(self, i));
    }
    return text + "])";
}

}  // namespace

void bindPatterns(nb::module_& module)
{
    auto type = nb::class_<ktFeaturePattern>(
        module, "FeaturePattern",
        "One object to be classified: its measurements, each of them valid or missing. It does not change.");
    type.def("__init__", &make, nb::arg("values"), nb::arg("invalid") = std::vector<long>(),
             nb::sig("def __init__(self, values: ArrayLike, invalid: Sequence[int] = ()) -> None"),
             "Measurements. Those that are NaN or infinite, and those at the indices `invalid`, are missing.")
        .def_prop_ro("values", &values, nb::sig("def values(self) -> NDArray[numpy.float64]"),
                     "The measurements, NaN where missing: a new array.")
        .def_prop_ro("valid", &valid, nb::sig("def valid(self) -> NDArray[numpy.bool_]"),
                     "Which measurements are there: a new array.")
        .def_prop_ro("num_invalid", &ktFeaturePattern::numInvalid, "How many measurements are missing.")
        .def("__len__", &ktFeaturePattern::numMeasurements)
        .def("__getitem__", &valueAt, nb::arg("index"), "A measurement, NaN if it is missing.")
        .def("__repr__", &repr);
    compares<ktFeaturePattern>(type);
    pickles<ktFeaturePattern>(type);
}
