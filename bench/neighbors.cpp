// Nearest neighbours: a run beside the literal definition, a bare scan and OpenCV; and what training takes.

#include "kit/bare_scan.h"
#include "kit/kit.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#ifdef KT_BENCHMARK_PEERS
#include "kit/opencv.h"

#include <opencv2/ml.hpp>
#endif

namespace {

constexpr long k = 5;
constexpr long numCategories = 5;
constexpr long numQueries = 64;

struct Case {
    double order = 2.0;
    long numPatterns = 0;
    long numMeasurements = 0;

    bool operator==(const Case& other) const
    {
        return order == other.order && numPatterns == other.numPatterns && numMeasurements == other.numMeasurements;
    }
    std::string size() const { return std::to_string(numPatterns) + "x" + std::to_string(numMeasurements); }
};

/// The Minkowski distance as it is defined, a general power for each measurement.
class LiteralNorm : public ktPatternDistanceMetric {
public:
    explicit LiteralNorm(double order) : order_(order) {}

    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        const std::vector<double>& x = a.featureMeasurements(true);
        const std::vector<double>& y = b.featureMeasurements(true);
        require(x.size() == y.size(), "Patterns of different sizes");
        double sum = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            sum += std::pow(std::abs(x[i] - y[i]), order_);
        }
        return std::pow(sum, 1.0 / order_);
    }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new LiteralNorm(order_); }

private:
    double order_;
};

/// The classifier as it is defined: the distance to every pattern, a sorted list of the k nearest, their votes.
class LiteralNeighbors {
public:
    struct Neighbor {
        double distance;
        long label;
    };

    LiteralNeighbors(const LabelledPatterns& data, const ktPatternDistanceMetric& metric)
        : data_(data), metric_(metric.clone())
    {
    }

    std::vector<Neighbor> nearest(const ktFeaturePattern& query) const
    {
        std::vector<Neighbor> list;
        for (std::size_t i = 0; i < data_.size(); ++i) {
            const double distance = metric_->distance(query, *data_.patterns[i]);
            if (list.size() == k && !(distance < list.back().distance)) {
                continue;
            }
            const auto isNearer = [](double value, const Neighbor& other) { return value < other.distance; };
            const auto place = std::upper_bound(list.begin(), list.end(), distance, isNearer);
            list.insert(place, Neighbor{distance, data_.labels[i]});
            if (list.size() > k) {
                list.pop_back();
            }
        }
        return list;
    }

    void run(const ktFeaturePattern& query, ktClassifierResult& result) const
    {
        const std::vector<Neighbor> list = nearest(query);
        std::map<long, double> votes;
        for (const Neighbor& neighbor : list) {
            votes[neighbor.label] += 1.0;
        }
        std::vector<ktClassifierCategoryResult> matches;
        for (const auto& [label, count] : votes) {
            matches.emplace_back(label, count / static_cast<double>(list.size()), 0.0, 0.0);
        }
        result = ktClassifierResult(matches, ktClassifierFrequencies(), ktClassifierCosts(), 0.0);
    }

private:
    LabelledPatterns data_;
    ktPtrHandle<ktPatternDistanceMetric> metric_;
};

class BareData {
public:
    BareData(const LabelledPatterns& data, const LabelledPatterns& queries)
        : numMeasurements_(data.values(0).size()), numBlocks_((data.size() + bareScanRows - 1) / bareScanRows)
    {
        // The last block is filled up with patterns that are far from everything.
        blocks_.assign(numBlocks_ * numMeasurements_ * bareScanRows, 1e15f);
        for (std::size_t i = 0; i < data.size(); ++i) {
            for (std::size_t j = 0; j < numMeasurements_; ++j) {
                const std::size_t column = i / bareScanRows * numMeasurements_ + j;
                blocks_[column * bareScanRows + i % bareScanRows] = static_cast<float>(data.values(i)[j]);
            }
        }
        for (std::size_t i = 0; i < queries.size(); ++i) {
            queries_.emplace_back(queries.values(i).begin(), queries.values(i).end());
        }
    }

    float smallest(BareScan scan, std::size_t query) const
    {
        return scan(blocks_.data(), numBlocks_, queries_[query].data(), numMeasurements_);
    }

private:
    std::size_t numMeasurements_;
    std::size_t numBlocks_;
    std::vector<float> blocks_;
    std::vector<std::vector<float>> queries_;
};

#ifdef KT_BENCHMARK_PEERS
class OpenCvNeighbors {
public:
    OpenCvNeighbors(const LabelledPatterns& data, const LabelledPatterns& queries)
        : knearest_(cv::ml::KNearest::create()), queries_(asRows(asMatrix(queries)))
    {
        cv::setNumThreads(1);
        knearest_->setIsClassifier(true);
        knearest_->setAlgorithmType(cv::ml::KNearest::BRUTE_FORCE);
        require(knearest_->train(asMatrix(data), cv::ml::ROW_SAMPLE, asLabelColumn(data)), "OpenCV does not train");
    }

    void run(std::size_t query, cv::Mat& result) const { knearest_->findNearest(queries_[query], k, result); }

    /// Squared.
    std::vector<float> distances(std::size_t query) const
    {
        cv::Mat result;
        cv::Mat labels;
        cv::Mat squares;
        knearest_->findNearest(queries_[query], k, result, labels, squares);
        return {squares.ptr<float>(0), squares.ptr<float>(0) + k};
    }

private:
    cv::Ptr<cv::ml::KNearest> knearest_;
    std::vector<cv::Mat> queries_;
};
#endif

/// Everybody's answers to the same queries. The literal ones are the judge.
struct Neighbors {
    explicit Neighbors(const Case& the)
        : data(drawPatterns(the.numPatterns, the.numMeasurements, numCategories, 2)),
          queries(drawPatterns(numQueries, the.numMeasurements, numCategories, 3)),
          literal(data, LiteralNorm(the.order)),
          bare(data, queries)
#ifdef KT_BENCHMARK_PEERS
          ,
          opencv(data, queries)
#endif
    {
        const ktClassifierDataProviderMemory provider = asProvider(data);
        library.train(provider,
                      ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(the.order), ktClassifierCosts()));
        const bool isLarge = the.numPatterns * the.numMeasurements > 2000000;
        for (std::size_t i = 0; i < (isLarge ? 4u : 16u); ++i) {
            requireEqualAnswers(*queries.patterns[i]);
            if (the.order == 2.0) {
                requireNearDistances(i);
            }
        }
    }

    void requireEqualAnswers(const ktFeaturePattern& query) const
    {
        ktClassifierResult expected;
        ktClassifierResult result;
        literal.run(query, expected);
        library.run(query, result);
        require(result == expected, "The library does not answer what the literal implementation does");
    }

    void requireNearDistances(std::size_t query) const
    {
        const auto list = literal.nearest(*queries.patterns[query]);
        // The others compute in 32 bits and do not take the root.
        const auto requireNearSquare = [&](float square, std::size_t i, const std::string& whose) {
            const double expected = list[i].distance * list[i].distance;
            requireNear(square, expected, 1e-3 * expected + 1e-6, whose + " squared distance");
        };
        requireNearSquare(bare.smallest(bareScanBaseline, query), 0, "The bare scan's");
#ifdef KT_BENCHMARK_PEERS
        const std::vector<float> found = opencv.distances(query);
        for (std::size_t i = 0; i < found.size(); ++i) {
            requireNearSquare(found[i], i, "OpenCV's");
        }
#endif
    }

    LabelledPatterns data;
    LabelledPatterns queries;
    ktClassifierTool library;
    LiteralNeighbors literal;
    BareData bare;
#ifdef KT_BENCHMARK_PEERS
    OpenCvNeighbors opencv;
#endif
};

Neighbors& neighborsOf(const Case& the)
{
    return fixtureOf<Neighbors>(the);
}

template <class Classifier>
void timeRuns(benchmark::State& state, const Neighbors& the, const Classifier& classifier)
{
    ktClassifierResult result;
    timeInTurn(state, the.queries.size(), [&](std::size_t i) { classifier.run(*the.queries.patterns[i], result); });
}

void timeBare(benchmark::State& state, const Neighbors& the, BareScan scan)
{
    timeInTurn(state, the.queries.size(), [&](std::size_t i) { benchmark::DoNotOptimize(the.bare.smallest(scan, i)); });
}

void addRuns(const Case& the)
{
    std::ostringstream prefix;
    prefix << "neighbors/order:" << the.order << "/" << the.size() << "/";
    const auto add = [&](const std::string& who, void (*run)(benchmark::State&, const Neighbors&)) {
        addBenchmark(prefix.str() + who, [the, run](benchmark::State& state) { run(state, neighborsOf(the)); });
    };
    add("library", [](benchmark::State& state, const Neighbors& all) { timeRuns(state, all, all.library); });
    add("literal", [](benchmark::State& state, const Neighbors& all) { timeRuns(state, all, all.literal); });
    if (the.order != 2.0) {
        return;
    }
    add("bare", [](benchmark::State& state, const Neighbors& all) { timeBare(state, all, bareScanBaseline); });
#ifdef KT_BARE_SCAN_AVX2
    if (__builtin_cpu_supports("avx2")) {
        add("bare_avx2", [](benchmark::State& state, const Neighbors& all) { timeBare(state, all, bareScanAvx2); });
    }
#endif
#ifdef KT_BENCHMARK_PEERS
    add("opencv", [](benchmark::State& state, const Neighbors& all) {
        cv::Mat result;
        timeInTurn(state, all.queries.size(), [&](std::size_t i) { all.opencv.run(i, result); });
    });
#endif
}

/// A store in which one value is out of all proportion, as where 9999999 stands for a missing one.
struct WildValue {
    explicit WildValue(const Case& the)
        : data(drawPatterns(the.numPatterns, the.numMeasurements, numCategories, 2)),
          queries(drawPatterns(numQueries, the.numMeasurements, numCategories, 3))
    {
        const std::size_t row = data.size() / 2;
        std::vector<double> values = data.values(row);
        values.back() = 9999999.0;
        data.patterns[row] = new ktFeaturePattern(values, {});
        const ktPatternDistanceMetricNorm metric(the.order);
        library.train(asProvider(data), ktClassifierTrainParamsKNN(k, metric, ktClassifierCosts()));
        const LiteralNeighbors literal(data, LiteralNorm(the.order));
        for (std::size_t i = 0; i < 4; ++i) {
            ktClassifierResult expected;
            ktClassifierResult result;
            literal.run(*queries.patterns[i], expected);
            library.run(*queries.patterns[i], result);
            require(result == expected, "The library does not answer what the literal implementation does");
        }
    }

    LabelledPatterns data;
    LabelledPatterns queries;
    ktClassifierTool library;
};

void addWildValue(const Case& the)
{
    std::ostringstream name;
    name << "neighbors/wild_order:" << the.order << "/" << the.size() << "/library";
    addBenchmark(name.str(), [the](benchmark::State& state) {
        const WildValue& all = fixtureOf<WildValue>(the);
        ktClassifierResult result;
        timeInTurn(state, all.queries.size(),
                   [&](std::size_t i) { all.library.run(*all.queries.patterns[i], result); });
    });
}

/// Training with and without the compact copy of the measurements. A value beyond the copy's range, met first, leaves all
/// queries to the plain scan.
struct Training {
    explicit Training(const Case& the) : data(drawPatterns(the.numPatterns, the.numMeasurements, numCategories, 2))
    {
        LabelledPatterns outOfRange = data;
        std::vector<double> first = data.values(0);
        first[0] = 1e308;
        outOfRange.patterns[0] = new ktFeaturePattern(first, {});
        withCopy = asProvider(data);
        withoutCopy = asProvider(outOfRange);
#ifdef KT_BENCHMARK_PEERS
        cv::setNumThreads(1);
        matrix = asMatrix(data);
        column = asLabelColumn(data);
#endif
    }

    LabelledPatterns data;
    ktClassifierDataProviderMemory withCopy;
    ktClassifierDataProviderMemory withoutCopy;
#ifdef KT_BENCHMARK_PEERS
    cv::Mat matrix;
    cv::Mat column;
#endif
};

double bytesInUse()
{
#ifdef __GLIBC__
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
#else
    return 0.0;
#endif
}

void timeTraining(benchmark::State& state, const ktClassifierDataProviderMemory& provider)
{
    const ktClassifierTrainParamsKNN params(k);
    for (auto _ : state) {
        state.PauseTiming();
        ktClassifierTool tool;
        const double before = bytesInUse();
        state.ResumeTiming();
        tool.train(provider, params);
        state.PauseTiming();
        state.counters["bytes"] = bytesInUse() - before;
        tool.untrain();
        state.ResumeTiming();
    }
}

void addTraining(const Case& the)
{
    const std::string prefix = "neighbors/training/" + the.size() + "/";
    addBenchmark(prefix + "library",
                 [the](benchmark::State& state) { timeTraining(state, fixtureOf<Training>(the).withCopy); });
    addBenchmark(prefix + "library_without_copy",
                 [the](benchmark::State& state) { timeTraining(state, fixtureOf<Training>(the).withoutCopy); });
#ifdef KT_BENCHMARK_PEERS
    addBenchmark(prefix + "opencv", [the](benchmark::State& state) {
        const Training& all = fixtureOf<Training>(the);
        for (auto _ : state) {
            const auto knearest = cv::ml::KNearest::create();
            knearest->train(all.matrix, cv::ml::ROW_SAMPLE, all.column);
        }
    });
#endif
}

}  // namespace

void addBenchmarks()
{
    for (const long numPatterns : {1000L, 3000L, 10000L, 30000L, 100000L, 300000L, 1000000L}) {
        addRuns({2.0, numPatterns, 16});
    }
    for (const long numPatterns : {1000L, 100000L}) {
        addRuns({2.0, numPatterns, 4});
        addRuns({2.0, numPatterns, 64});
    }
    addRuns({2.0, 1000000, 4});
    for (const long numMeasurements : {1L, 2L, 4L, 8L, 32L, 64L, 128L, 256L}) {
        addRuns({2.0, 10000, numMeasurements});
    }
    for (const double order : {1.0, 3.0, 1.5, 0.5, 0.7}) {
        addRuns({order, 1000, 4});
        addRuns({order, 10000, 16});
        addRuns({order, 100000, 16});
    }
    for (const double order : {1.0, 1.5, 2.0}) {
        addWildValue({order, 1000, 16});
        addWildValue({order, 10000, 16});
    }
    addTraining({2.0, 1000, 16});
    addTraining({2.0, 100000, 16});
}
