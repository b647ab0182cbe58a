#include "tool.h"

#include "access.h"
#include "metric.h"
#include "parts.h"
#include "runs.h"
#include "values.h"

#include <clastool/kit/files.h>
#include <clastool/kit/learning.h>

#include <nanobind/stl/map.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/vector.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

namespace {

using Access = kt_KitAccess;

/// The parameters in a Python object.
const ktClassifierTrainParams& paramsOf(nb::handle object)
{
    if (nb::isinstance<ktClassifierTrainParamsKNN>(object)) {
        return nb::cast<const ktClassifierTrainParamsKNN&>(object);
    }
    if (nb::isinstance<ktClassifierTrainParamsBayesian>(object)) {
        return nb::cast<const ktClassifierTrainParamsBayesian&>(object);
    }
    throw nb::type_error("parameters are KNNParams or BayesParams");
}

const char* techniqueOf(const ktClassifierTool& tool)
{
    if (!tool.isTrained()) {
        return nullptr;
    }
    return Access::classifierAs<kt_ClassifierKNN>(tool) != nullptr        ? "neighbors"
           : Access::classifierAs<kt_ClassifierBayesian>(tool) != nullptr ? "bayes"
                                                                          : "tree";
}

/// The number of learnt patterns of each category.
std::map<long, long> countsOf(const ktClassifierTool& tool)
{
    std::map<long, long> counts;
    if (auto* neighbors = Access::classifierAs<kt_ClassifierKNN>(tool)) {
        const ktPtrHandle<ktClassifierDataProviderMemory>& kept = Access::kept(*neighbors);
        for (long i = 0; kept && i < kept->numPatterns(); ++i) {
            ++counts[kept->categoryLabel(i)];
        }
    } else if (Access::classifierAs<kt_ClassifierBayesian>(tool) != nullptr && tool.isTrained()) {
        for (const ktKit::Density& density : ktKit::densities(tool)) {
            long& count = counts[density.label];
            count = std::max(count, density.count);
        }
    }
    return counts;
}

long numKept(const ktClassifierTool& tool)
{
    auto* const neighbors = Access::classifierAs<kt_ClassifierKNN>(tool);
    return neighbors != nullptr && Access::kept(*neighbors) ? Access::kept(*neighbors)->numPatterns() : 0;
}

long numMeasurementsOf(const ktClassifierTool& tool)
{
    if (numKept(tool) > 0) {
        return Access::kept(*Access::classifierAs<kt_ClassifierKNN>(tool))->numMeasurements();
    }
    auto* const bayes = Access::classifierAs<kt_ClassifierBayesian>(tool);
    const bool hasModels = bayes != nullptr && !Access::models(*bayes).empty();
    return hasModels ? Access::models(*bayes).front()->numMeasurements() : 0;
}

nb::object paramsIn(const ktClassifierTool& tool)
{
    // trainParams() throws if there are no parameters, and is not const.
    ktClassifierTool copy = tool;
    const ktPtrHandle_const<ktClassifierTrainParams> params = copy.trainParams();
    if (auto* neighbors = Access::classifierAs<kt_ClassifierKNN>(tool)) {
        return nb::cast(Access::paramsInUse(*neighbors));
    }
    if (const auto* bayes = dynamic_cast<const ktClassifierTrainParamsBayesian*>(params.get())) {
        return nb::cast(*bayes);
    }
    throw ktBadPointer();
}

void train(SharedTool& self, nb::handle measurements, nb::handle labels, nb::handle params, nb::handle progress)
{
    const ktPtrHandle<ktClassifierTrainParams> chosen = paramsOf(params).clone();
    const Rows rows(measurements);
    const Labels ofRows(labels, rows.size());
    Watch watch(progress, rows.size());
    const nb::gil_scoped_release unlocked;
    ktClassifierTool tool = trainedOn(rows, ofRows, *chosen, watch);
    watch.finish();
    self.take(std::move(tool));
}

void trainTree(SharedTool& self, const ktDecisionTree& tree)
{
    ktClassifierTool tool;
    tool.train(tree);
    self.take(std::move(tool));
}

void retrain(SharedTool& self, nb::handle params)
{
    const ktPtrHandle<ktClassifierTrainParams> chosen = paramsOf(params).clone();
    const nb::gil_scoped_release unlocked;
    self.change([&](const Trained& old) {
        ktClassifierTool tool = old.tool();
        tool.retrain(*chosen);
        return std::make_shared<const Trained>(std::move(tool), old);
    });
}

ktClassifierResult run(const SharedTool& self, nb::handle pattern)
{
    const std::shared_ptr<const Trained> trained = self.now();
    const ktPtrHandle_const<ktFeaturePattern> given = patternOf(pattern);
    ktClassifierResult result;
    const nb::gil_scoped_release unlocked;
    trained->tool().run(*given, result);
    return result;
}

void add(SharedTool& self, nb::handle measurements, nb::handle labels)
{
    const Rows rows(measurements);
    const Labels ofRows(labels, rows.size());
    Watch watch(nb::none(), rows.size());
    const nb::gil_scoped_release unlocked;
    PatternMaker maker(rows);
    ktKit::Patterns patterns;
    std::vector<long> copied;
    patterns.reserve(rows.size());
    copied.reserve(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (i % 256 == 0) {
            watch.look(i);
        }
        ktPtrHandle<ktFeaturePattern> pattern;
        maker.make(i, pattern);
        patterns.push_back(pattern);
        copied.push_back(ofRows[i]);
    }
    self.change([&](const Trained& old) {
        ktClassifierTool tool = old.tool();
        ktKit::add(tool, patterns, copied);
        return std::make_shared<const Trained>(std::move(tool));
    });
}

void merge(SharedTool& self, const SharedTool& other)
{
    const std::shared_ptr<const Trained> given = other.now();
    const nb::gil_scoped_release unlocked;
    self.change([&](const Trained& old) {
        ktClassifierTool tool = old.tool();
        ktKit::merge(tool, given->tool());
        return std::make_shared<const Trained>(std::move(tool));
    });
}

/// The bytes of a kit file, which holds everything that runs and further training need; with `plain`, those of the tool's own archive.
std::string bytesOf(const ktClassifierTool& tool, bool plain)
{
    std::ostringstream stream(std::ios::binary);
    if (plain) {
        ktClassifierTool copy = tool;
        ktArchive archive(static_cast<std::ostream&>(stream));
        archive || copy;
    } else {
        ktKit::save(tool, stream);
    }
    return stream.str();
}

/// Whether the stream holds the tool's own archive, not a kit file.
bool isPlain(std::istream& stream)
{
    char begin[4] = {};
    stream.read(begin, sizeof begin);
    stream.clear();
    stream.seekg(0);
    return std::string(begin, sizeof begin) == "KTAR";
}

/// A tool that runs with its stored parameters. Nearest neighbours take them only by `retrain`.
ktClassifierTool loadedPlain(std::istream& stream)
{
    ktClassifierTool tool;
    ktArchive archive(stream);
    archive || tool;
    if (Access::classifierAs<kt_ClassifierKNN>(tool) != nullptr && tool.isTrained()) {
        tool.retrain(*tool.trainParams());
    }
    return tool;
}

nb::bytes toBytes(const SharedTool& self, bool plain)
{
    const std::shared_ptr<const Trained> trained = self.now();
    std::string bytes;
    {
        const nb::gil_scoped_release unlocked;
        bytes = bytesOf(trained->tool(), plain);
    }
    return nb::bytes(bytes.data(), bytes.size());
}

SharedTool fromBytes(const std::string& bytes)
{
    const nb::gil_scoped_release unlocked;
    std::istringstream stream(bytes, std::ios::binary);
    return SharedTool(isPlain(stream) ? loadedPlain(stream) : ktKit::load(stream));
}

/// Takes any object that supports the buffer protocol.
SharedTool fromBuffer(nb::handle data)
{
    const nb::bytes bytes(data);
    return fromBytes(std::string(bytes.c_str(), bytes.size()));
}

/// The name of a file in the encoding of the file system.
std::string pathOf(nb::handle path)
{
    const nb::bytes bytes = nb::cast<nb::bytes>(nb::module_::import_("os").attr("fsencode")(path));
    std::string name(bytes.c_str(), bytes.size());
    // The system would end the name there.
    if (name.find('\0') != std::string::npos) {
        throw nb::value_error("embedded null byte");
    }
    return name;
}

void save(const SharedTool& self, nb::handle path, bool plain)
{
    const std::shared_ptr<const Trained> trained = self.now();
    const std::string name = pathOf(path);
    const nb::gil_scoped_release unlocked;
    if (!plain) {
        ktKit::save(trained->tool(), name);
        return;
    }
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    const std::string bytes = bytesOf(trained->tool(), plain);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw ktKit::FileError(name + ": cannot be written");
    }
}

SharedTool load(nb::handle path)
{
    const std::string name = pathOf(path);
    const nb::gil_scoped_release unlocked;
    std::ifstream file(name, std::ios::binary);
    return SharedTool(isPlain(file) ? loadedPlain(file) : ktKit::load(name));
}

/// The tool with the Euclidean norm in place of a Python function, which archives cannot hold.
ktClassifierTool withoutFunction(ktClassifierTool tool, ktClassifierTrainParamsKNN params)
{
    params.distanceMetric(ktPatternDistanceMetricNorm());
    tool.retrain(params);
    return tool;
}

/// The recipe by which pickle makes the tool again: its bytes, and its parameters if their metric is a function. From protocol 5 on the
/// bytes may be pickled out of band.
nb::tuple reduce(nb::handle self, int protocol)
{
    const std::shared_ptr<const Trained> trained = nb::cast<const SharedTool&>(self).now();
    const ktClassifierTool& tool = trained->tool();
    auto* const neighbors = Access::classifierAs<kt_ClassifierKNN>(tool);
    const bool hasFunction =
        neighbors != nullptr &&
        dynamic_cast<const PythonMetric*>(Access::paramsInUse(*neighbors).distanceMetric().get()) != nullptr;
    const nb::object params = hasFunction ? nb::cast(Access::paramsInUse(*neighbors)) : nb::none();
    std::string bytes;
    {
        const nb::gil_scoped_release unlocked;
        bytes =
            hasFunction ? bytesOf(withoutFunction(tool, Access::paramsInUse(*neighbors)), false) : bytesOf(tool, false);
    }
    nb::object data = nb::bytes(bytes.data(), bytes.size());
    if (protocol >= 5) {
        data = nb::module_::import_("pickle").attr("PickleBuffer")(data);
    }
    return nb::make_tuple(nb::module_::import_("clastool._tables").attr("remade"),
                          nb::make_tuple(self.type(), data, params));
}

bool areEqual(const SharedTool& a, const SharedTool& b)
{
    const std::shared_ptr<const Trained> first = a.now();
    const std::shared_ptr<const Trained> second = b.now();
    const nb::gil_scoped_release unlocked;
    return first->tool() == second->tool();
}

std::string repr(const SharedTool& self)
{
    const std::shared_ptr<const Trained> trained = self.now();
    const char* const technique = techniqueOf(trained->tool());
    if (technique == nullptr) {
        return "<ClassifierTool: untrained>";
    }
    const std::size_t size = trained->categories().size();
    return std::string("<ClassifierTool: ") + technique + ", " + std::to_string(size) +
           (size == 1 ? " category>" : " categories>");
}

nb::object categories(const SharedTool& self)
{
    const std::vector<long>& labels = self.now()->categories();
    Array<std::int64_t> array({labels.size()});
    std::copy(labels.begin(), labels.end(), array.data());
    return array.object();
}

nb::object meanOf(const ktKit::Density& density)
{
    return arrayOf(density.mean);
}

nb::object covarianceOf(const ktKit::Density& density)
{
    const ktNMMatrix& matrix = density.covariance;
    const auto rows = static_cast<std::size_t>(matrix.numRows());
    const auto columns = static_cast<std::size_t>(matrix.numColumns());
    Array<double> array({rows, columns});
    std::copy_n(matrix.data(), rows * columns, array.data());
    return array.object();
}

void bindDensity(nb::module_& module)
{
    using Density = ktKit::Density;
    auto type = nb::class_<Density>(
        module, "Density", "What a Bayesian tool has learnt of one group of measurements in one category: a copy.");
    type.def_ro("label", &Density::label, "The category.")
        .def_prop_ro(
            "measurements", [](const Density& self) { return self.measurements; }, "The measurements of the group.")
        .def_ro("type", &Density::type, "Normal or binomial.")
        .def_prop_ro("mean", &meanOf, nb::sig("def mean(self) -> NDArray[numpy.float64]"),
                     "Normal: the mean of each measurement.")
        .def_prop_ro("covariance", &covarianceOf, nb::sig("def covariance(self) -> NDArray[numpy.float64]"),
                     "Normal: the unbiased covariance, square.")
        .def_ro("count", &Density::count,
                "How many patterns were learnt; 0 for a binomial density from a plain archive.")
        .def_ro("num_trials", &Density::numTrials, "Binomial: n.")
        .def_ro("theta", &Density::theta, "Binomial: the probability of a trial.")
        .def("__repr__", [](const Density& self) {
            return "<Density: category " + std::to_string(self.label) + ", measurements " +
                   written(nb::cast(self.measurements)) + ", " + std::to_string(self.count) + " patterns>";
        });
}

#define KT_RUN_ARGUMENTS nb::arg("threads") = 1, nb::arg("progress") = nb::none()

template <class Class>
void bindTraining(Class& type)
{
    type.def(nb::init<>(), "Untrained.")
        .def("train", &train, nb::arg("X"), nb::arg("y"), nb::arg("params"), nb::kw_only(),
             nb::arg("progress") = nb::none(),
             nb::sig("def train(self, X: ArrayLike, y: ArrayLike, params: KNNParams | BayesParams, *, progress: "
                     "Callable[[int, int], object] | None = None) -> None"),
             "Trains on the rows of X, whose labels are y; -1 is an unknown category. X is read where it is if it is "
             "an array of "
             "float32 or float64. What is NaN or infinite is missing. If anything is raised the tool stays as it was.")
        .def("train", &trainTree, nb::arg("tree"), nb::sig("def train(self, tree: Node | Leaf) -> None"),
             "Takes a decision tree.")
        .def("retrain", &retrain, nb::arg("params"),
             nb::sig("def retrain(self, params: KNNParams | BayesParams) -> None"),
             "Takes new parameters without training again, for example other costs, frequencies or another k.")
        .def("add", &add, nb::arg("X"), nb::arg("y"), nb::sig("def add(self, X: ArrayLike, y: ArrayLike) -> None"),
             "Trains further: afterwards it is as if these rows had stood behind those of the training.")
        .def("merge", &merge, nb::arg("other"),
             "Joins what another Bayesian tool has learnt: afterwards it is as if this one had been trained on the "
             "rows of both.")
        .def(
            "untrain", [](SharedTool& self) { self.take(ktClassifierTool()); }, "Forgets the training.");
}

template <class Class>
void bindRuns(Class& type)
{
    type.def("run", &run, nb::arg("pattern"), nb::sig("def run(self, pattern: FeaturePattern | ArrayLike) -> Result"),
             "Classifies a pattern.")
        .def(
            "run_rows",
            [](const SharedTool& self, nb::handle rows, unsigned threads, bool onlyLabels, nb::handle progress) {
                return runRows(*self.now(), Rows(rows), threads, onlyLabels, progress);
            },
            nb::arg("X"), nb::kw_only(), nb::arg("threads") = 1, nb::arg("only_labels") = false,
            nb::arg("progress") = nb::none(),
            nb::sig("def run_rows(self, X: ArrayLike, *, threads: int = 1, only_labels: bool = False, progress: "
                    "Callable[[int, int], object] | None = None) -> RowResults"),
            "Classifies each row of X: the answers of `run`, to the bit, as arrays.")
        .def(
            "log_likelihoods",
            [](const SharedTool& self, nb::handle rows, unsigned threads, nb::handle progress) {
                return logLikelihoods(*self.now(), Rows(rows), threads, progress);
            },
            nb::arg("X"), nb::kw_only(), KT_RUN_ARGUMENTS,
            nb::sig(
                "def log_likelihoods(self, X: ArrayLike, *, threads: int = 1, progress: Callable[[int, int], object] | "
                "None = None) -> NDArray[numpy.float64]"),
            "Bayes: ln of the unscaled likelihood of each row of X in each of `categories`.")
        .def(
            "neighbors",
            [](const SharedTool& self, nb::handle rows, nb::handle k, unsigned threads, nb::handle progress) {
                return findNeighbors(*self.now(), Rows(rows), k, threads, progress);
            },
            nb::arg("X"), nb::arg("k") = nb::none(), nb::kw_only(), KT_RUN_ARGUMENTS,
            nb::sig("def neighbors(self, X: ArrayLike, k: int | None = None, *, threads: int = 1, progress: "
                    "Callable[[int, int], object] | None = None) -> Neighbors"),
            "Nearest neighbours: those by which each row of X is decided on, or the nearest k.")
        .def(
            "first_within",
            [](const SharedTool& self, nb::handle rows, nb::handle distances, std::size_t count, unsigned threads,
               nb::handle progress) {
                return findFirstWithin(*self.now(), Rows(rows), distances, count, threads, progress);
            },
            nb::arg("X"), nb::arg("distances"), nb::arg("count"), nb::kw_only(), KT_RUN_ARGUMENTS,
            nb::sig(
                "def first_within(self, X: ArrayLike, distances: ArrayLike, count: int, *, threads: int = 1, progress: "
                "Callable[[int, int], object] | None = None) -> Neighbors"),
            "Nearest neighbours: of the kept patterns no farther from each row of X than its distance, the first ones "
            "in the "
            "order of the training, up to count. Where there are fewer, NaN and -1 fill up.");
}

template <class Class>
void bindProperties(Class& type)
{
    type.def_prop_ro(
            "is_trained", [](const SharedTool& self) { return self.now()->tool().isTrained(); },
            "Whether there is something to run with.")
        .def_prop_ro(
            "technique", [](const SharedTool& self) { return techniqueOf(self.now()->tool()); },
            nb::sig("def technique(self) -> typing.Literal['neighbors', 'bayes', 'tree'] | None"),
            "What the tool was trained for, None if it was not.")
        .def_prop_ro("categories", &categories, nb::sig("def categories(self) -> NDArray[numpy.int64]"),
                     "The labels that a run can answer with, ascending.")
        .def_prop_ro(
            "category_counts", [](const SharedTool& self) { return countsOf(self.now()->tool()); },
            "How many patterns of each category were learnt; empty for a decision tree.")
        .def_prop_ro(
            "params", [](const SharedTool& self) { return paramsIn(self.now()->tool()); },
            nb::sig("def params(self) -> typing.Any"), "A copy of the parameters in use: KNNParams or BayesParams.")
        .def_prop_ro(
            "tree",
            [](const SharedTool& self) {
                ktClassifierTool copy = self.now()->tool();
                return treeObjectOf(copy.decisionTree().get());
            },
            nb::sig("def tree(self) -> Node | Leaf"), "The decision tree.")
        .def_prop_ro(
            "num_measurements", [](const SharedTool& self) { return numMeasurementsOf(self.now()->tool()); },
            "How many measurements the tool was trained on; 0 for a decision tree.")
        .def_prop_ro(
            "num_patterns", [](const SharedTool& self) { return numKept(self.now()->tool()); },
            "How many patterns are kept: nearest neighbours.")
        .def(
            "densities", [](const SharedTool& self) { return ktKit::densities(self.now()->tool()); },
            "Bayes: a density for each group of measurements of each category.");
}

template <class Class>
void bindStoring(Class& type)
{
    type.def("to_bytes", &toBytes, nb::kw_only(), nb::arg("plain") = false, "The bytes of a file of `save`.")
        .def_static("from_bytes", &fromBuffer, nb::arg("data"),
                    nb::sig("def from_bytes(data: Buffer) -> ClassifierTool"), "The tool in such bytes, plain or not.")
        .def("save", &save, nb::arg("path"), nb::kw_only(), nb::arg("plain") = false,
             nb::sig("def save(self, path: str | os.PathLike[str], *, plain: bool = False) -> None"),
             "Stores the tool in a file, with all that runs and further training depend on: C++ loads it by "
             "`ktKit::load`. If it is "
             "plain, the file is what C++ stores and loads by `archive || tool`: nearest neighbours then take a "
             "`retrain` in C++, "
             "and binomial densities cannot learn further.")
        .def_static("load", &load, nb::arg("path"), nb::sig("def load(path: str | os.PathLike[str]) -> ClassifierTool"),
                    "The tool in such a file, plain or not.")
        .def("__copy__", [](const SharedTool& self) { return SharedTool(self); })
        .def(
            "__deepcopy__", [](const SharedTool& self, nb::handle) { return SharedTool(self); }, nb::arg("memo"))
        .def("__reduce_ex__", &reduce, nb::arg("protocol"),
             nb::sig("def __reduce_ex__(self, protocol: typing.SupportsIndex) -> tuple[object, ...]"))
        .def("__repr__", &repr);
}

}  // namespace

void bindTool(nb::module_& module)
{
    bindDensity(module);
    auto type = nb::class_<SharedTool>(
        module, "ClassifierTool",
        "Trains a classifier from labelled patterns, or takes a decision tree, and runs it.\n\n"
        "Any method may be called on several threads at once: a run goes on with what was there when it began.");
    bindTraining(type);
    bindRuns(type);
    bindProperties(type);
    bindStoring(type);
    type.def("__eq__", &areEqual, nb::is_operator(), nb::sig("def __eq__(self, other: object, /) -> bool"));
    type.def(
        "__ne__", [](const SharedTool& a, const SharedTool& b) { return !areEqual(a, b); }, nb::is_operator(),
        nb::sig("def __ne__(self, other: object, /) -> bool"));
    isUnhashable(type);
}
