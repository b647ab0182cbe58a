#include "arrays.h"
#include "parts.h"

#include <clastool/data_generators.h>

#include <nanobind/stl/pair.h>
#include <nanobind/stl/vector.h>

#include <utility>
#include <vector>

namespace {

/// Two arrays: the patterns, one row each, and their labels.
nb::tuple arraysOf(ktClassifierDataProviderMemory data)
{
    const auto size = static_cast<std::size_t>(data.numPatterns());
    const auto width = static_cast<std::size_t>(data.numMeasurements());
    Array<double> rows({size, width});
    Array<std::int64_t> labels({size});
    for (std::size_t i = 0; i < size; ++i) {
        const auto index = static_cast<long>(i);
        const std::vector<double>& values = data.featurePattern(index)->featureMeasurements(false);
        std::copy(values.begin(), values.end(), rows.data() + i * width);
        labels.data()[i] = data.categoryLabel(index);
    }
    return nb::make_tuple(rows.object(), labels.object());
}

}  // namespace

void bindGenerators(nb::module_& module)
{
    const char* const signature = "def generate(self) -> tuple[NDArray[numpy.float64], NDArray[numpy.int64]]";
    nb::class_<kt_ClassDataGenerator>(module, "ClassDataGenerator",
                                      "Draws the patterns of one category from independent normal distributions.")
        .def(
            "__init__",
            [](kt_ClassDataGenerator* self, const std::vector<std::pair<double, double>>& distribution, long size) {
                std::vector<ktPair<double>> pairs;
                for (const auto& [mean, deviation] : distribution) {
                    pairs.emplace_back(mean, deviation);
                }
                new (self) kt_ClassDataGenerator(pairs, size);
            },
            nb::arg("distribution"), nb::arg("num_patterns"),
            "Mean and standard deviation of each measurement, and the number of patterns.")
        .def(
            "generate", [](kt_ClassDataGenerator& self) { return arraysOf(self.generateData()); }, nb::sig(signature),
            "Rows and labels: the same numbers on every platform, and at every call. All labels are 0.");
    nb::class_<kt_TotalDataGenerator>(
        module, "TotalDataGenerator",
        "Puts the data of class generators together. As many patterns as measurements are taken of each, and returned.")
        .def(nb::init<const std::vector<kt_ClassDataGenerator>&>(), nb::arg("class_generators"))
        .def(
            "generate", [](kt_TotalDataGenerator& self) { return arraysOf(self.generateData()); }, nb::sig(signature),
            "Rows and labels, which are the positions of the generators, in a random order, the same at every call.");
}
