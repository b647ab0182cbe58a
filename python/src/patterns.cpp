#include "arrays.h"
#include "parts.h"
#include "values.h"

#include <nanobind/stl/vector.h>

#include <cmath>
#include <limits>

namespace {

/// Missing measurements hold 0, because NaN is not equal to itself: patterns with the same gaps shall be equal.
ktFeaturePattern made(std::vector<double> numbers, std::vector<long> missing)
{
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (!std::isfinite(numbers[i])) {
            missing.push_back(static_cast<long>(i));
        }
    }
    const ktFeaturePattern checked(numbers, missing);
    for (const long index : missing) {
        numbers[static_cast<std::size_t>(index)] = 0.0;
    }
    return {numbers, missing};
}

void make(ktFeaturePattern* self, nb::handle values, const std::vector<long>& invalid)
{
    new (self) ktFeaturePattern(made(numbersOf(values), invalid));
}

/// Negative indices count from the end, as in Python.
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

ktPtrHandle_const<ktFeaturePattern> patternOf(nb::handle values)
{
    if (nb::isinstance<ktFeaturePattern>(values)) {
        return new ktFeaturePattern(nb::cast<const ktFeaturePattern&>(values));
    }
    return new ktFeaturePattern(made(numbersOf(values), {}));
}

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
