// Bayesian classification of 10 categories of 16 measurements: runs, of whole patterns and of some that lack a measurement, the
// decision rule alone, and training.

#include "kit/kit.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#ifdef KT_BENCHMARK_PEERS
#include "kit/opencv.h"

#include <opencv2/ml.hpp>
#endif

namespace {

constexpr long numCategories = 10;
constexpr long numMeasurements = 16;
constexpr long numQueries = 64;

using Groups = std::vector<std::vector<std::size_t>>;

Groups groupsOf(bool isJoint)
{
    std::vector<std::size_t> all(numMeasurements);
    std::iota(all.begin(), all.end(), std::size_t{0});
    if (isJoint) {
        return {all};
    }
    Groups groups;
    for (const std::size_t index : all) {
        groups.push_back({index});
    }
    return groups;
}

ktClassifierTrainParamsBayesian paramsOf(bool isJoint)
{
    ktClassifierDistributionTypes types;
    if (isJoint) {
        std::vector<long> all(numMeasurements);
        std::iota(all.begin(), all.end(), 0L);
        for (long label = 0; label < numCategories; ++label) {
            types.setDependent(label, all);
        }
    }
    return ktClassifierTrainParamsBayesian(types);
}

ktFeaturePattern partOf(const ktFeaturePattern& pattern, const std::vector<std::size_t>& group)
{
    std::vector<double> values;
    values.reserve(group.size());
    for (const std::size_t index : group) {
        values.push_back(pattern.featureMeasurement(static_cast<long>(index), true));
    }
    return {values, {}};
}

/// A normal density by its definition: mean and covariance in two passes, the Cholesky factor kept, a forward
/// substitution for each value.
class LiteralNormal {
public:
    explicit LiteralNormal(const std::vector<ktFeaturePattern>& patterns)
        : size_(static_cast<std::size_t>(patterns.front().numMeasurements())), mean_(size_), factor_(size_)
    {
        const auto count = static_cast<double>(patterns.size());
        for (const ktFeaturePattern& pattern : patterns) {
            for (std::size_t i = 0; i < size_; ++i) {
                mean_[i] += pattern.featureMeasurements(true)[i] / count;
            }
        }
        for (std::size_t i = 0; i < size_; ++i) {
            factor_[i].resize(size_);
            for (std::size_t j = 0; j <= i; ++j) {
                for (const ktFeaturePattern& pattern : patterns) {
                    const std::vector<double>& x = pattern.featureMeasurements(true);
                    factor_[i][j] += (x[i] - mean_[i]) * (x[j] - mean_[j]) / (count - 1.0);
                }
            }
        }
        factorise();
    }

    double logValue(const ktFeaturePattern& pattern) const
    {
        const std::vector<double>& x = pattern.featureMeasurements(true);
        std::vector<double> solved(size_);
        double squares = 0.0;
        for (std::size_t i = 0; i < size_; ++i) {
            double sum = x[i] - mean_[i];
            for (std::size_t j = 0; j < i; ++j) {
                sum -= factor_[i][j] * solved[j];
            }
            solved[i] = sum / factor_[i][i];
            squares += solved[i] * solved[i];
        }
        return logScale_ - 0.5 * squares;
    }

private:
    void factorise()
    {
        logScale_ = -0.5 * static_cast<double>(size_) * std::log(2.0 * std::acos(-1.0));
        for (std::size_t i = 0; i < size_; ++i) {
            for (std::size_t j = 0; j <= i; ++j) {
                double sum = factor_[i][j];
                for (std::size_t l = 0; l < j; ++l) {
                    sum -= factor_[i][l] * factor_[j][l];
                }
                factor_[i][j] = i == j ? std::sqrt(sum) : sum / factor_[j][j];
            }
            logScale_ -= std::log(factor_[i][i]);
        }
    }

    std::size_t size_;
    std::vector<double> mean_;
    std::vector<std::vector<double>> factor_;
    double logScale_ = 0.0;
};

/// The classifier as it is defined: for each category and group the group's part of the pattern and its density there.
class LiteralBayes {
public:
    LiteralBayes(const LabelledPatterns& data, bool isJoint) : groups_(groupsOf(isJoint))
    {
        for (long label = 0; label < numCategories; ++label) {
            std::vector<std::unique_ptr<LiteralNormal>> densities;
            for (const auto& group : groups_) {
                std::vector<ktFeaturePattern> parts;
                for (std::size_t i = 0; i < data.size(); ++i) {
                    if (data.labels[i] == label) {
                        parts.push_back(partOf(*data.patterns[i], group));
                    }
                }
                densities.push_back(std::make_unique<LiteralNormal>(parts));
            }
            models_.push_back(std::move(densities));
        }
    }

    void run(const ktFeaturePattern& pattern, ktClassifierResult& result) const
    {
        std::vector<double> logs;
        logs.reserve(models_.size());
        for (const auto& densities : models_) {
            double sum = 0.0;
            for (std::size_t i = 0; i < groups_.size(); ++i) {
                sum += densities[i]->logValue(partOf(pattern, groups_[i]));
            }
            logs.push_back(sum);
        }
        const double best = *std::max_element(logs.begin(), logs.end());
        std::vector<ktClassifierCategoryResult> matches;
        matches.reserve(logs.size());
        for (std::size_t i = 0; i < logs.size(); ++i) {
            matches.emplace_back(static_cast<long>(i), std::exp(logs[i] - best), 0.0, 0.0);
        }
        result = ktClassifierResult(matches, ktClassifierFrequencies(), ktClassifierCosts(), -best);
    }

private:
    Groups groups_;
    std::vector<std::vector<std::unique_ptr<LiteralNormal>>> models_;
};

#ifdef KT_BENCHMARK_PEERS
struct OpenCvBayes {
    OpenCvBayes(const LabelledPatterns& data, const LabelledPatterns& queryPatterns)
        : classifier(cv::ml::NormalBayesClassifier::create()), queries(asRows(asMatrix(queryPatterns)))
    {
        cv::setNumThreads(1);
        require(classifier->train(asMatrix(data), cv::ml::ROW_SAMPLE, asLabelColumn(data)), "OpenCV does not train");
    }

    void run(std::size_t query, cv::Mat& labels, cv::Mat& probabilities) const
    {
        classifier->predictProb(queries[query], labels, probabilities);
    }

    cv::Ptr<cv::ml::NormalBayesClassifier> classifier;
    std::vector<cv::Mat> queries;
};
#endif

struct Runs {
    explicit Runs(bool isJoint)
        : data(drawPatterns(1000 * numCategories, numMeasurements, numCategories, 2)),
          queries(drawPatterns(numQueries, numMeasurements, numCategories, 3)),
          literal(data, isJoint)
#ifdef KT_BENCHMARK_PEERS
          ,
          opencv(data, queries)
#endif
    {
        library.train(asProvider(data), paramsOf(isJoint));
        for (std::size_t i = 0; i < queries.size(); ++i) {
            requireNearAnswers(*queries.patterns[i]);
        }
#ifdef KT_BENCHMARK_PEERS
        if (isJoint) {
            requireMostLabelsOfOpenCv();
        }
#endif
    }

    void requireNearAnswers(const ktFeaturePattern& query) const
    {
        ktClassifierResult expected;
        ktClassifierResult result;
        literal.run(query, expected);
        library.run(query, result);
        requireNear(result.matchScoreFactorLog(), expected.matchScoreFactorLog(), 1e-8, "The likelihood");
        for (std::size_t i = 0; i < numCategories; ++i) {
            require(result.categoryResults()[i].categoryLabel() == expected.categoryResults()[i].categoryLabel(),
                    "The library orders the categories in another way than the literal implementation");
            requireNear(result.categoryResults()[i].classScore(), expected.categoryResults()[i].classScore(), 1e-9,
                        "The posterior probability");
        }
    }

#ifdef KT_BENCHMARK_PEERS
    /// It computes in another precision, so a pattern half way between two categories may go to the other one.
    void requireMostLabelsOfOpenCv() const
    {
        std::size_t equal = 0;
        for (std::size_t i = 0; i < queries.size(); ++i) {
            ktClassifierResult result;
            cv::Mat labels;
            cv::Mat probabilities;
            library.run(*queries.patterns[i], result);
            opencv.run(i, labels, probabilities);
            equal += labels.at<int>(0) == result.categoryResults().front().categoryLabel() ? 1 : 0;
        }
        require(equal + 2 >= queries.size(),
                "OpenCV decides for " + std::to_string(queries.size() - equal) + " queries differently");
    }
#endif

    LabelledPatterns data;
    LabelledPatterns queries;
    ktClassifierTool library;
    LiteralBayes literal;
#ifdef KT_BENCHMARK_PEERS
    OpenCvBayes opencv;
#endif
};

template <class Classifier>
void timeRuns(benchmark::State& state, const Runs& the, const Classifier& classifier)
{
    ktClassifierResult result;
    timeInTurn(state, the.queries.size(), [&](std::size_t i) { classifier.run(*the.queries.patterns[i], result); });
}

/// The patterns, each without one of its measurements, in turn.
LabelledPatterns withoutOne(LabelledPatterns data)
{
    for (std::size_t i = 0; i < data.size(); ++i) {
        data.patterns[i] = new ktFeaturePattern(data.values(i), {static_cast<long>(i) % numMeasurements});
    }
    return data;
}

void addRuns(bool isJoint)
{
    const std::string prefix = isJoint ? "bayes/joint/10x16/" : "bayes/independent/10x16/";
    addBenchmark(prefix + "library_without_one", [isJoint](benchmark::State& state) {
        const Runs& the = fixtureOf<Runs>(isJoint);
        const LabelledPatterns queries = withoutOne(the.queries);
        ktClassifierResult result;
        timeInTurn(state, queries.size(), [&](std::size_t i) { the.library.run(*queries.patterns[i], result); });
    });
    addBenchmark(prefix + "library", [isJoint](benchmark::State& state) {
        const Runs& the = fixtureOf<Runs>(isJoint);
        timeRuns(state, the, the.library);
    });
    addBenchmark(prefix + "literal", [isJoint](benchmark::State& state) {
        const Runs& the = fixtureOf<Runs>(isJoint);
        timeRuns(state, the, the.literal);
    });
#ifdef KT_BENCHMARK_PEERS
    if (isJoint) {
        addBenchmark(prefix + "opencv", [isJoint](benchmark::State& state) {
            const Runs& the = fixtureOf<Runs>(isJoint);
            cv::Mat labels;
            cv::Mat probabilities;
            timeInTurn(state, the.queries.size(), [&](std::size_t i) { the.opencv.run(i, labels, probabilities); });
        });
    }
#endif
}

/// The decision rule by its formula, a look-up of the cost for each pair.
std::vector<ktClassifierCategoryResult> literalDecision(const std::vector<ktClassifierCategoryResult>& matches,
                                                        const ktClassifierFrequencies& frequencies,
                                                        const ktClassifierCosts& costs)
{
    double frequencySum = 0.0;
    for (const auto& match : matches) {
        frequencySum += frequencies.categoryFrequency(match.categoryLabel());
    }
    std::vector<double> posteriors;
    posteriors.reserve(matches.size());
    double total = 0.0;
    for (const auto& match : matches) {
        posteriors.push_back(match.matchScore() * frequencies.categoryFrequency(match.categoryLabel()) / frequencySum);
        total += posteriors.back();
    }
    std::vector<ktClassifierCategoryResult> results;
    results.reserve(matches.size());
    for (std::size_t j = 0; j < matches.size(); ++j) {
        double cost = 0.0;
        for (std::size_t i = 0; i < matches.size(); ++i) {
            if (i != j) {
                cost +=
                    costs.misclassificationCost(matches[i].categoryLabel(), matches[j].categoryLabel()) * posteriors[i];
            }
        }
        results.emplace_back(matches[j].categoryLabel(), matches[j].matchScore(), posteriors[j] / total, cost / total);
    }
    std::stable_sort(results.begin(), results.end(),
                     [](const auto& a, const auto& b) { return a.expectedCost() < b.expectedCost(); });
    return results;
}

void addDecision(long size)
{
    std::vector<ktClassifierCategoryResult> matches;
    for (long label = 0; label < size; ++label) {
        matches.emplace_back(label, static_cast<double>(label + 1) / static_cast<double>(size), 0.0, 0.0);
    }
    const std::string prefix = "bayes/decision/" + std::to_string(size) + "x16/";
    addBenchmark(prefix + "library", [matches](benchmark::State& state) {
        const ktClassifierFrequencies frequencies;
        const ktClassifierCosts costs;
        const ktClassifierResult decided(matches, frequencies, costs, 0.0);
        require(decided.categoryResults() == literalDecision(matches, frequencies, costs), "The decisions differ");
        for (auto _ : state) {
            const ktClassifierResult result(matches, frequencies, costs, 0.0);
            benchmark::DoNotOptimize(result.categoryResults().data());
            benchmark::ClobberMemory();
        }
    });
    addBenchmark(prefix + "literal", [matches](benchmark::State& state) {
        const ktClassifierFrequencies frequencies;
        const ktClassifierCosts costs;
        for (auto _ : state) {
            const auto results = literalDecision(matches, frequencies, costs);
            benchmark::DoNotOptimize(results.data());
            benchmark::ClobberMemory();
        }
    });
}

struct Training {
    explicit Training(long numPatterns)
        : data(drawPatterns(numPatterns, numMeasurements, numCategories, 2)), provider(asProvider(data))
    {
#ifdef KT_BENCHMARK_PEERS
        cv::setNumThreads(1);
        matrix = asMatrix(data);
        column = asLabelColumn(data);
#endif
    }

    LabelledPatterns data;
    ktClassifierDataProviderMemory provider;
#ifdef KT_BENCHMARK_PEERS
    cv::Mat matrix;
    cv::Mat column;
#endif
};

void timeTraining(benchmark::State& state, const Training& the, bool isJoint)
{
    const ktClassifierTrainParamsBayesian params = paramsOf(isJoint);
    for (auto _ : state) {
        ktClassifierTool tool;
        tool.train(the.provider, params);
    }
}

void addTraining(long numPatterns)
{
    const std::string size = std::to_string(numPatterns) + "x16/";
    addBenchmark("bayes/training_joint/" + size + "library", [numPatterns](benchmark::State& state) {
        timeTraining(state, fixtureOf<Training>(numPatterns), true);
    });
#ifdef KT_BENCHMARK_PEERS
    addBenchmark("bayes/training_joint/" + size + "opencv", [numPatterns](benchmark::State& state) {
        const Training& the = fixtureOf<Training>(numPatterns);
        for (auto _ : state) {
            const auto classifier = cv::ml::NormalBayesClassifier::create();
            classifier->train(the.matrix, cv::ml::ROW_SAMPLE, the.column);
        }
    });
#endif
    addBenchmark("bayes/training_independent/" + size + "library", [numPatterns](benchmark::State& state) {
        timeTraining(state, fixtureOf<Training>(numPatterns), false);
    });
}

}  // namespace

void addBenchmarks()
{
    addRuns(true);
    addRuns(false);
    addDecision(numCategories);
    addDecision(100);
    addDecision(1000);
    addTraining(1000);
    addTraining(100000);
}
