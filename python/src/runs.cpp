#include "runs.h"

#include "access.h"
#include "blocks.h"

#include <clastool/kit/runs.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using Access = kt_KitAccess;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

void requireTrained(const ktClassifierTool& tool)
{
    if (!tool.isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before running.");
    }
}

kt_ClassifierKNN& requireNeighbors(const ktClassifierTool& tool)
{
    auto* const classifier = Access::classifierAs<kt_ClassifierKNN>(tool);
    if (classifier == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not trained for nearest neighbors");
    }
    return *classifier;
}

/// Finds the column of a category by its label.
class Columns {
public:
    explicit Columns(const std::vector<long>& categories) : categories_(categories)
    {
        if (!categories.empty() && categories.front() >= 0 && categories.back() < 4096) {
            columns_.resize(static_cast<std::size_t>(categories.back()) + 1, none);
            for (std::size_t i = 0; i < categories.size(); ++i) {
                columns_[static_cast<std::size_t>(categories[i])] = i;
            }
        }
    }

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    std::size_t operator[](long label) const
    {
        if (!columns_.empty()) {
            const auto i = static_cast<std::size_t>(label);
            return i < columns_.size() ? columns_[i] : none;
        }
        const auto found = std::lower_bound(categories_.begin(), categories_.end(), label);
        return found != categories_.end() && *found == label ? static_cast<std::size_t>(found - categories_.begin())
                                                             : none;
    }

private:
    const std::vector<long>& categories_;
    std::vector<std::size_t> columns_;
};

/// The costs that a run uses; null for a decision tree, whose leaves hold expected costs.
std::shared_ptr<const ktClassifierCosts> costsOf(const ktClassifierTool& tool)
{
    if (auto* neighbors = Access::classifierAs<kt_ClassifierKNN>(tool)) {
        return std::make_shared<ktClassifierCosts>(Access::paramsInUse(*neighbors).misclassificationCosts());
    }
    const auto* const classifier = Access::classifierAs<kt_Classifier>(tool);
    const auto* const params = dynamic_cast<const ktClassifierTrainParamsBayesian*>(Access::params(*classifier));
    return params == nullptr ? nullptr : std::make_shared<ktClassifierCosts>(params->misclassificationCosts());
}

/// The arrays of RowResults, one row for each pattern.
struct Table {
    std::int64_t* labels;
    double* factorLogs;
    double* matchScores;
    double* classScores;
    double* expectedCosts;
};

class Writer {
public:
    Writer(const Trained& trained, const Table& table)
        : categories_(trained.categories()), columns_(categories_), costs_(costsOf(trained.tool())), table_(table)
    {
    }

    void write(std::size_t row, const ktClassifierResult& result) const
    {
        table_.labels[row] = ktKit::decision(result).categoryLabel();
        if (table_.factorLogs == nullptr) {
            return;
        }
        table_.factorLogs[row] = result.matchScoreFactorLog();
        const std::size_t width = categories_.size();
        double* const matchScores = table_.matchScores + row * width;
        double* const classScores = table_.classScores + row * width;
        double* const expectedCosts = table_.expectedCosts + row * width;
        std::fill_n(matchScores, width, 0.0);
        std::fill_n(classScores, width, 0.0);
        std::fill_n(expectedCosts, width, nan);
        std::size_t numFound = 0;
        for (const ktClassifierCategoryResult& category : result.categoryResults()) {
            const std::size_t column = columns_[category.categoryLabel()];
            // A leaf may name a category twice. Its decision uses the first entry.
            if (column != Columns::none && std::isnan(expectedCosts[column])) {
                matchScores[column] = category.matchScore();
                classScores[column] = category.classScore();
                expectedCosts[column] = category.expectedCost();
                ++numFound;
            }
        }
        if (numFound < width && costs_ != nullptr) {
            writeOthers(classScores, expectedCosts, result);
        }
    }

private:
    /// Writes the expected costs of deciding for categories without a vote.
    void writeOthers(const double* classScores, double* expectedCosts, const ktClassifierResult& result) const
    {
        for (std::size_t j = 0; j < categories_.size(); ++j) {
            if (!std::isnan(expectedCosts[j]) || classScores[j] != 0.0) {
                continue;
            }
            double sum = 0.0;
            for (const ktClassifierCategoryResult& category : result.categoryResults()) {
                if (category.categoryLabel() != categories_[j]) {
                    sum +=
                        costs_->misclassificationCost(category.categoryLabel(), categories_[j]) * category.classScore();
                }
            }
            expectedCosts[j] = sum;
        }
    }

    const std::vector<long>& categories_;
    Columns columns_;
    const std::shared_ptr<const ktClassifierCosts> costs_;
    Table table_;
};

/// The storage of one thread, which it reuses for each block.
class Worker {
public:
    explicit Worker(const Rows& rows) : maker_(rows) {}

    const ktKit::Patterns& patterns(std::size_t first, std::size_t count)
    {
        handles_.clear();
        own_.resize(std::max(own_.size(), count));
        for (std::size_t i = 0; i < count; ++i) {
            maker_.make(first + i, own_[i]);
        }
        handles_.assign(own_.begin(), own_.begin() + static_cast<std::ptrdiff_t>(count));
        return handles_;
    }
    const ktFeaturePattern& pattern(std::size_t row)
    {
        own_.resize(std::max<std::size_t>(own_.size(), 1));
        maker_.make(row, own_.front());
        return *own_.front();
    }
    std::vector<ktClassifierResult>& results() { return results_; }

private:
    PatternMaker maker_;
    std::vector<ktPtrHandle<ktFeaturePattern>> own_;
    ktKit::Patterns handles_;
    std::vector<ktClassifierResult> results_;
};

/// Calls `work(worker, first, count)` for blocks of rows, without the interpreter lock.
template <class Work>
void forBlocks(const Rows& rows, unsigned threads, nb::handle progress, Work work)
{
    Watch watch(progress, rows.size());
    {
        const nb::gil_scoped_release unlocked;
        std::vector<Worker> workers(numWorkers(rows.size(), threads), Worker(rows));
        doInBlocks(rows.size(), threads, watch, [&](std::size_t first, std::size_t count, std::size_t worker) {
            work(workers[worker], first, count);
        });
    }
    watch.finish();
}

nb::object make(const char* name, const nb::tuple& fields)
{
    return nb::module_::import_("clastool._tables").attr(name)(*fields);
}

nb::object arrayOfLabels(const std::vector<long>& labels)
{
    Array<std::int64_t> array({labels.size()});
    std::copy(labels.begin(), labels.end(), array.data());
    return array.object();
}

}  // namespace

nb::object runRows(const Trained& trained, const Rows& rows, unsigned threads, bool onlyLabels, nb::handle progress)
{
    requireTrained(trained.tool());
    const std::size_t size = rows.size();
    const std::size_t width = onlyLabels ? 0 : trained.categories().size();
    Array<std::int64_t> labels({size});
    Array<double> matchScores({size, width});
    Array<double> classScores({size, width});
    Array<double> expectedCosts({size, width});
    Array<double> factorLogs({onlyLabels ? 0 : size});
    const Table table{labels.data(), onlyLabels ? nullptr : factorLogs.data(), matchScores.data(), classScores.data(),
                      expectedCosts.data()};
    const Writer writer(trained, table);
    forBlocks(rows, threads, progress, [&](Worker& worker, std::size_t first, std::size_t count) {
        std::vector<ktClassifierResult>& results = worker.results();
        trained.tool().run(worker.patterns(first, count), results);
        for (std::size_t i = 0; i < count; ++i) {
            writer.write(first + i, results[i]);
        }
    });
    const nb::object categories = arrayOfLabels(trained.categories());
    if (onlyLabels) {
        return make("RowResults", nb::make_tuple(labels.object(), categories));
    }
    return make("RowResults", nb::make_tuple(labels.object(), categories, matchScores.object(), classScores.object(),
                                             expectedCosts.object(), factorLogs.object()));
}

nb::object logLikelihoods(const Trained& trained, const Rows& rows, unsigned threads, nb::handle progress)
{
    requireTrained(trained.tool());
    auto* const bayes = Access::classifierAs<kt_ClassifierBayesian>(trained.tool());
    if (bayes == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not trained by Bayes");
    }
    // If training ran out of memory, the models with borrowed spreads are missing.
    const Access::Models& models = Access::evaluated(*bayes).size() == Access::models(*bayes).size()
                                       ? Access::evaluated(*bayes)
                                       : Access::models(*bayes);
    const std::size_t width = trained.categories().size();
    const Columns columns(trained.categories());
    std::vector<std::size_t> places;
    for (const auto& model : models) {
        places.push_back(columns[model->categoryLabel()]);
    }
    Array<double> values({rows.size(), width});
    double* const to = values.data();
    forBlocks(rows, threads, progress, [&](Worker& worker, std::size_t first, std::size_t count) {
        for (std::size_t row = first; row < first + count; ++row) {
            const ktFeaturePattern& pattern = worker.pattern(row);
            for (std::size_t i = 0; i < models.size(); ++i) {
                to[row * width + places[i]] = models[i]->matchScore(pattern, nullptr, 0);
            }
        }
    });
    return values.object();
}

nb::object findNeighbors(const Trained& trained, const Rows& rows, nb::handle k, unsigned threads, nb::handle progress)
{
    requireTrained(trained.tool());
    kt_ClassifierKNN& classifier = requireNeighbors(trained.tool());
    ktClassifierTool tool = trained.tool();
    ktClassifierTrainParamsKNN params = Access::paramsInUse(classifier);
    if (!k.is_none()) {
        params.k(nb::cast<long>(k));
        tool.retrain(params);
    }
    const auto width = static_cast<std::size_t>(std::clamp(params.k(), 0L, Access::kept(classifier)->numPatterns()));
    Array<double> distances({rows.size(), width});
    Array<std::int64_t> indices({rows.size(), width});
    Array<std::int64_t> labels({rows.size(), width});
    double* const toDistances = distances.data();
    std::int64_t* const toIndices = indices.data();
    std::int64_t* const toLabels = labels.data();
    forBlocks(rows, threads, progress, [&](Worker& worker, std::size_t first, std::size_t count) {
        for (std::size_t row = first; row < first + count; ++row) {
            std::size_t at = row * width;
            for (const ktKit::Neighbor& neighbor : ktKit::neighbors(tool, worker.pattern(row))) {
                toDistances[at] = neighbor.distance;
                toIndices[at] = static_cast<std::int64_t>(neighbor.index);
                toLabels[at++] = neighbor.label;
            }
        }
    });
    return make("Neighbors", nb::make_tuple(distances.object(), indices.object(), labels.object()));
}

nb::object findFirstWithin(const Trained& trained, const Rows& rows, nb::handle distances, std::size_t count,
                           unsigned threads, nb::handle progress)
{
    requireTrained(trained.tool());
    kt_ClassifierKNN& classifier = requireNeighbors(trained.tool());
    const std::vector<double> reaches = numbersOf(distances);
    if (reaches.size() != rows.size()) {
        throw nb::value_error("distances must have one for each row of X");
    }
    const std::size_t width = count;
    Array<double> found({rows.size(), width});
    Array<std::int64_t> indices({rows.size(), width});
    Array<std::int64_t> labels({rows.size(), width});
    std::fill_n(found.data(), rows.size() * width, std::numeric_limits<double>::quiet_NaN());
    std::fill_n(indices.data(), rows.size() * width, -1);
    std::fill_n(labels.data(), rows.size() * width, -1);
    const ktClassifierTrainParamsKNN params = Access::paramsInUse(classifier);
    const ktPtrHandle_const<ktPatternDistanceMetric> metric = params.distanceMetric();
    ktClassifierDataProviderMemory& kept = *Access::kept(classifier);
    forBlocks(rows, threads, progress, [&](Worker& worker, std::size_t first, std::size_t number) {
        for (std::size_t row = first; row < first + number; ++row) {
            const ktFeaturePattern& pattern = worker.pattern(row);
            if (pattern.numInvalid() > 0 || pattern.numMeasurements() != kept.numMeasurements()) {
                throw ktClassifierDefs::BadFeatures(
                    "K-nearest neighbor classification does not support invalid measurements");
            }
            std::size_t at = row * width;
            for (long i = 0; i < kept.numPatterns() && at < (row + 1) * width; ++i) {
                const double distance = metric->distance(pattern, *kept.featurePattern(i));
                const double counted = std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
                if (counted <= reaches[row]) {
                    found.data()[at] = counted;
                    indices.data()[at] = i;
                    labels.data()[at++] = kept.categoryLabel(i);
                }
            }
        }
    });
    return make("Neighbors", nb::make_tuple(found.object(), indices.object(), labels.object()));
}
