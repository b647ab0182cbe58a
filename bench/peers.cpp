// Nearest neighbours on four kinds of data: a run, and a batch of runs, beside indexes and batches of other libraries.

#include "kit/kit.h"

#ifdef KT_BENCHMARK_PEERS
#include "kit/index_peers.h"
#endif

namespace {

constexpr std::size_t k = 5;
constexpr long batch = 1000;

struct Case {
    std::string kind;
    long numPatterns = 0;
    long numMeasurements = 0;

    bool operator==(const Case& other) const
    {
        return kind == other.kind && numPatterns == other.numPatterns && numMeasurements == other.numMeasurements;
    }
    /// Where runs are short, enough queries that the processor cannot learn the branches of all of them. With 1000 it can, and a k-d
    /// tree's search then takes a third of its time.
    long numQueries() const { return numMeasurements <= 16 ? 16000 : batch; }
    std::string name() const
    {
        return "peers/" + kind + "/" + std::to_string(numPatterns) + "x" + std::to_string(numMeasurements) + "/";
    }
};

/// Everybody with the same patterns and queries, and the same votes.
struct Peers {
    explicit Peers(const Case& the)
        : data(drawKind(the.kind, the.numPatterns, the.numMeasurements, 2)),
          queries(drawKind(the.kind, the.numQueries(), the.numMeasurements, 3))
    {
        library.train(asProvider(data), ktClassifierTrainParamsKNN(static_cast<long>(k)));
        std::vector<ktClassifierResult> results;
        library.run(queries.patterns, results);
        for (std::size_t i = 0; i < 64; ++i) {
            ktClassifierResult result;
            library.run(*queries.patterns[i], result);
            require(results[i] == result, "A batch does not answer what a run does");
        }
#ifdef KT_BENCHMARK_PEERS
        tree = TreePeer::make(data);
        flat = std::make_unique<FlatPeer>(data);
        floatQueries = asOnePiece<float>(queries);
        for (std::size_t i = 0; i < 16; ++i) {
            requireSameNeighbors(i);
        }
#endif
    }

#ifdef KT_BENCHMARK_PEERS
    void requireSameNeighbors(std::size_t i) const
    {
        std::vector<std::uint32_t> rows(k);
        std::vector<double> squares(k);
        tree->search(queries.values(i).data(), rows, squares);
        ktClassifierResult result;
        library.run(*queries.patterns[i], result);
        for (const ktClassifierCategoryResult& category : result.categoryResults()) {
            const auto isIts = [&](std::uint32_t row) { return data.labels[row] == category.categoryLabel(); };
            const auto votes = std::count_if(rows.begin(), rows.end(), isIts);
            requireNear(category.matchScore(), static_cast<double>(votes) / static_cast<double>(k), 1e-9,
                        "The share of votes of nanoflann's neighbours");
        }
        std::vector<faiss::Index::idx_t> flatRows(k);
        std::vector<float> flatSquares(k);
        flat->search(floatQueries.data() + i * queries.values(0).size(), 1, flatRows, flatSquares);
        requireNear(flatSquares[k - 1], squares[k - 1], 1e-3 * squares[k - 1] + 1e-6, "FAISS' squared distance");
    }
#endif

    LabelledPatterns data;
    LabelledPatterns queries;
    ktClassifierTool library;
#ifdef KT_BENCHMARK_PEERS
    std::unique_ptr<TreePeer> tree;
    std::unique_ptr<FlatPeer> flat;
    std::vector<float> floatQueries;
#endif
};

void timeRuns(benchmark::State& state, const Peers& all)
{
    ktClassifierResult result;
    timeInTurn(state, all.queries.size(), [&](std::size_t i) { all.library.run(*all.queries.patterns[i], result); });
}

using Batch = std::vector<ktPtrHandle_const<ktFeaturePattern>>;

std::vector<Batch> batchesOf(const LabelledPatterns& queries)
{
    std::vector<Batch> batches;
    for (auto first = queries.patterns.begin(); first != queries.patterns.end(); first += batch) {
        batches.emplace_back(first, first + batch);
    }
    return batches;
}

void timeBatch(benchmark::State& state, const Peers& all)
{
    const std::vector<Batch> batches = batchesOf(all.queries);
    state.counters["queries"] = static_cast<double>(batch);
    std::vector<ktClassifierResult> results;
    timeInTurn(state, batches.size(), [&](std::size_t i) { all.library.run(batches[i], results); });
}

/// What a batch gives, by runs: the results of all queries, while those of the batch before are still there.
void timeEach(benchmark::State& state, const Peers& all)
{
    const std::vector<Batch> batches = batchesOf(all.queries);
    state.counters["queries"] = static_cast<double>(batch);
    std::vector<ktClassifierResult> results;
    timeInTurn(state, batches.size(), [&](std::size_t i) {
        std::vector<ktClassifierResult> found(batches[i].size());
        for (std::size_t query = 0; query < found.size(); ++query) {
            all.library.run(*batches[i][query], found[query]);
        }
        results.swap(found);
    });
}

#ifdef KT_BENCHMARK_PEERS
void timeTree(benchmark::State& state, const Peers& all)
{
    std::vector<std::uint32_t> rows(k);
    std::vector<double> squares(k);
    timeInTurn(state, all.queries.size(), [&](std::size_t i) {
        all.tree->search(all.queries.values(i).data(), rows, squares);
        benchmark::DoNotOptimize(votedLabel(rows.data(), k, all.data.labels));
    });
}

/// `count` queries in one search, and their votes.
void timeFlat(benchmark::State& state, const Peers& all, std::size_t count)
{
    std::vector<faiss::Index::idx_t> rows(k * count);
    std::vector<float> squares(k * count);
    const std::size_t size = all.queries.values(0).size();
    state.counters["queries"] = static_cast<double>(count);
    timeInTurn(state, all.queries.size() / count, [&](std::size_t i) {
        all.flat->search(all.floatQueries.data() + i * count * size, count, rows, squares);
        for (std::size_t query = 0; query < count; ++query) {
            benchmark::DoNotOptimize(votedLabel(rows.data() + query * k, k, all.data.labels));
        }
    });
}
#endif

void addCase(const Case& the)
{
    const auto add = [&](const std::string& who, void (*run)(benchmark::State&, const Peers&)) {
        addBenchmark(the.name() + who, [the, run](benchmark::State& state) { run(state, fixtureOf<Peers>(the)); });
    };
    add("library", timeRuns);
    add("library_batch", timeBatch);
    add("library_each", timeEach);
#ifdef KT_BENCHMARK_PEERS
    add("nanoflann", timeTree);
    add("faiss", [](benchmark::State& state, const Peers& all) { timeFlat(state, all, 1); });
    add("faiss_batch", [](benchmark::State& state, const Peers& all) { timeFlat(state, all, batch); });
#endif
}

}  // namespace

void addBenchmarks()
{
    for (const char* kind : {"separated", "overlapping", "uniform"}) {
        for (const long numPatterns : {1000L, 10000L, 100000L, 1000000L}) {
            for (const long numMeasurements : {2L, 4L, 8L, 16L}) {
                addCase({kind, numPatterns, numMeasurements});
            }
        }
        addCase({kind, 1000000, 3});
    }
    for (const char* kind : {"separated", "overlapping", "uniform", "digits-like"}) {
        for (const long numPatterns : {1000L, 10000L, 100000L}) {
            addCase({kind, numPatterns, 64});
        }
        addCase({kind, 10000, 784});
        if (kind != std::string("digits-like")) {
            addCase({kind, 10000, 128});
        }
    }
}
