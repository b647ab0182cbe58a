// A run of a decision tree of depth 8. All walk one tree: the one that OpenCV learnt where it is there, else one drawn here.

#include "kit/kit.h"

#include <limits>

#ifdef KT_BENCHMARK_PEERS
#include "kit/opencv.h"

#include <opencv2/ml.hpp>
#endif

namespace {

constexpr int depth = 8;
constexpr long numMeasurements = 16;
constexpr long numCategories = 5;
constexpr long numQueries = 1000;

/// A node asks whether its measurement is at most the threshold and goes on at `low`, else at `high`. A leaf has neither.
struct Split {
    long measurement = 0;
    double threshold = 0.0;
    std::size_t low = 0;
    std::size_t high = 0;
    long label = 0;

    bool isLeaf() const { return low == 0; }
};

/// The root comes first.
using Splits = std::vector<Split>;

/// Patterns whose measurements 32-bit floats hold, so that all compare the same numbers.
LabelledPatterns drawFloatPatterns(long numPatterns, unsigned long seed)
{
    LabelledPatterns data = drawPatterns(numPatterns, numMeasurements, numCategories, seed);
    for (auto& pattern : data.patterns) {
        std::vector<double> values = pattern->featureMeasurements(true);
        for (double& value : values) {
            value = static_cast<double>(static_cast<float>(value));
        }
        pattern = new ktFeaturePattern(values, {});
    }
    return data;
}

#ifdef KT_BENCHMARK_PEERS
cv::Ptr<cv::ml::DTrees> trainOpenCv(const LabelledPatterns& data)
{
    cv::setNumThreads(1);
    const auto tree = cv::ml::DTrees::create();
    tree->setMaxDepth(depth);
    tree->setMinSampleCount(2);
    tree->setCVFolds(0);
    tree->setUseSurrogates(false);
    require(tree->train(asMatrix(data), cv::ml::ROW_SAMPLE, asLabelColumn(data)), "OpenCV does not train");
    return tree;
}

Splits splitsOf(const cv::ml::DTrees& tree)
{
    Splits splits;
    for (const cv::ml::DTrees::Node& node : tree.getNodes()) {
        Split split;
        split.label = static_cast<long>(node.value);
        if (node.split >= 0) {
            const cv::ml::DTrees::Split& test = tree.getSplits()[static_cast<std::size_t>(node.split)];
            split.measurement = test.varIdx;
            split.threshold = static_cast<double>(test.c);
            split.low = static_cast<std::size_t>(node.left);
            split.high = static_cast<std::size_t>(node.right);
        }
        splits.push_back(split);
    }
    require(tree.getRoots().front() == 0, "OpenCV's tree does not begin with its root");
    return splits;
}
#else
/// A full tree of random splits.
Splits drawSplits()
{
    constexpr std::size_t numNodes = (std::size_t{1} << (depth + 1)) - 1;
    ktRandomUniform measurement(4);
    ktRandomGaussian threshold(5);
    Splits splits(numNodes);
    for (std::size_t i = 0; i < numNodes; ++i) {
        splits[i].label = static_cast<long>(i) % numCategories;
        if (2 * i + 2 < numNodes) {
            splits[i].measurement = static_cast<long>(measurement.next(0.0, numMeasurements));
            splits[i].threshold = threshold.next(0.0, 0.5);
            splits[i].low = 2 * i + 1;
            splits[i].high = 2 * i + 2;
        }
    }
    return splits;
}
#endif

ktClassifierResult resultFor(long label)
{
    std::vector<ktClassifierCategoryResult> results;
    for (long other = 0; other < numCategories; ++other) {
        const double score = other == label ? 0.6 : 0.1;
        results.emplace_back(other, score, score, 1.0 - score);
    }
    return {results, 0.0};
}

ktPtrHandle<ktDecisionTree> libraryTree(const Splits& splits, std::size_t node)
{
    const Split& split = splits[node];
    if (split.isLeaf()) {
        return new ktDecisionTreeLeaf(resultFor(split.label));
    }
    const ktRange range(-std::numeric_limits<double>::infinity(), split.threshold);
    return new ktDecisionTreeNode(ktRangePredicate(range, {split.measurement}), *libraryTree(splits, split.low),
                                  *libraryTree(splits, split.high));
}

/// A test of a range as it is defined. The walk knows it as a predicate like any other.
class LiteralRangePredicate : public ktPredicateFunction {
public:
    LiteralRangePredicate(double low, double high, const std::vector<long>& indices)
        : low_(low), high_(high), indices_(indices)
    {
    }
    bool outcome(const ktFeaturePattern& pattern) const override
    {
        for (const long index : indices_) {
            if (!pattern.isValid(index)) {
                return false;
            }
            const double value = pattern.featureMeasurement(index, true);
            if (!(value >= low_ && value <= high_)) {
                return false;
            }
        }
        return true;
    }
    ktPtrHandle<ktPredicateFunction> clone() const override { return new LiteralRangePredicate(low_, high_, indices_); }

private:
    double low_;
    double high_;
    std::vector<long> indices_;
};

/// The tree as it is defined: an object for each node, a virtual predicate that looks at a list of measurements.
class LiteralTree {
public:
    LiteralTree(const Splits& splits, std::size_t node)
    {
        const Split& split = splits[node];
        if (split.isLeaf()) {
            result_ = resultFor(split.label);
            return;
        }
        predicate_ =
            new LiteralRangePredicate(-std::numeric_limits<double>::infinity(), split.threshold, {split.measurement});
        low_ = std::make_unique<LiteralTree>(splits, split.low);
        high_ = std::make_unique<LiteralTree>(splits, split.high);
    }

    void run(const ktFeaturePattern& pattern, ktClassifierResult& result) const
    {
        const LiteralTree* tree = this;
        while (tree->predicate_) {
            tree = tree->predicate_->outcome(pattern) ? tree->low_.get() : tree->high_.get();
        }
        result = tree->result_;
    }

private:
    ktPtrHandle<ktPredicateFunction> predicate_;
    std::unique_ptr<LiteralTree> low_;
    std::unique_ptr<LiteralTree> high_;
    ktClassifierResult result_;
};

struct Trees {
    explicit Trees(int)
        : queries(drawFloatPatterns(numQueries, 3)),
#ifdef KT_BENCHMARK_PEERS
          opencv(trainOpenCv(drawFloatPatterns(20000, 2))),
          rows(asRows(asMatrix(queries))),
          splits(splitsOf(*opencv)),
#else
          splits(drawSplits()),
#endif
          literal(splits, 0)
    {
        library.train(*libraryTree(splits, 0));
        for (std::size_t i = 0; i < queries.size(); ++i) {
            requireEqualAnswers(i);
        }
    }

    void requireEqualAnswers(std::size_t query) const
    {
        ktClassifierResult expected;
        ktClassifierResult result;
        literal.run(*queries.patterns[query], expected);
        library.run(*queries.patterns[query], result);
        require(result == expected, "The library does not answer what the literal implementation does");
#ifdef KT_BENCHMARK_PEERS
        require(static_cast<long>(opencv->predict(rows[query])) == result.categoryResults().front().categoryLabel(),
                "OpenCV does not answer what the library does");
#endif
    }

    /// How many nodes a query passes before its leaf, on average.
    double meanDepth() const
    {
        double nodes = 0.0;
        for (const auto& pattern : queries.patterns) {
            for (std::size_t at = 0; !splits[at].isLeaf(); ++nodes) {
                const double value = pattern->featureMeasurement(splits[at].measurement, true);
                at = value <= splits[at].threshold ? splits[at].low : splits[at].high;
            }
        }
        return nodes / static_cast<double>(queries.size());
    }

    LabelledPatterns queries;
#ifdef KT_BENCHMARK_PEERS
    cv::Ptr<cv::ml::DTrees> opencv;
    std::vector<cv::Mat> rows;
#endif
    Splits splits;
    LiteralTree literal;
    ktClassifierTool library;
};

template <class Classifier>
void timeRuns(benchmark::State& state, const Trees& the, const Classifier& classifier)
{
    ktClassifierResult result;
    timeInTurn(state, the.queries.size(), [&](std::size_t i) { classifier.run(*the.queries.patterns[i], result); });
    state.counters["mean_depth"] = the.meanDepth();
}

}  // namespace

void addBenchmarks()
{
    addBenchmark("tree/run/depth8/library", [](benchmark::State& state) {
        const Trees& the = fixtureOf<Trees>(depth);
        timeRuns(state, the, the.library);
    });
    addBenchmark("tree/run/depth8/literal", [](benchmark::State& state) {
        const Trees& the = fixtureOf<Trees>(depth);
        timeRuns(state, the, the.literal);
    });
#ifdef KT_BENCHMARK_PEERS
    addBenchmark("tree/run/depth8/opencv", [](benchmark::State& state) {
        const Trees& the = fixtureOf<Trees>(depth);
        timeInTurn(state, the.queries.size(),
                   [&](std::size_t i) { benchmark::DoNotOptimize(the.opencv->predict(the.rows[i])); });
    });
#endif
}
