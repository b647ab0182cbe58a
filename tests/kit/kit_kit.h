#pragma once

#include "support/golden.h"
#include "support/test.h"

#include <clastool/kit.h>

#include <filesystem>

// What the tests of the kit share.

namespace kt_test {

using Knn = ktClassifierTrainParamsKNN;
using Bayes = ktClassifierTrainParamsBayesian;
using Results = std::vector<ktClassifierResult>;

/// Whole numbers, so that there are ties.
inline std::vector<double> measured(long i)
{
    return {static_cast<double>(i % 31), static_cast<double>(i * 7 % 53), static_cast<double>(i * i % 17)};
}

/// Patterns first, first + 1, ... before last, with their labels.
struct Sample {
    ktKit::Patterns patterns;
    std::vector<long> labels;

    explicit Sample(long first, long last, long numLabels = 3)
    {
        for (long i = first; i < last; ++i) {
            patterns.push_back(ktKit::pattern(measured(i)));
            labels.push_back(i % numLabels);
        }
    }
    Sample& operator+=(const Sample& other)
    {
        patterns.insert(patterns.end(), other.patterns.begin(), other.patterns.end());
        labels.insert(labels.end(), other.labels.begin(), other.labels.end());
        return *this;
    }
};

inline ktClassifierDataProviderMemory dataOf(const Sample& sample)
{
    ktClassifierDataProviderMemory data;
    data.data(sample.patterns, sample.labels);
    return data;
}

inline ktClassifierTool trainedOn(const Sample& sample, const ktClassifierTrainParams& params)
{
    ktClassifierTool tool;
    tool.train(dataOf(sample), params);
    return tool;
}

/// Measurement 0 > measurement 1: label 4, else label 6.
inline ktClassifierTool treeTool()
{
    const auto leaf = [](long label) {
        return ktDecisionTreeLeaf(ktClassifierResult({ktClassifierCategoryResult(label, 1.0, 1.0, 0.0)}, 0.0));
    };
    ktClassifierTool tool;
    tool.train(ktDecisionTreeNode(ktComparisonPredicate(), leaf(4), leaf(6)));
    return tool;
}

/// Normal densities of a pair and of one measurement, or a binomial one in place of that.
inline Bayes bayesParams(bool withBinomial = false)
{
    ktClassifierDistributionTypes types;
    for (const long label : {0L, 1L, 2L}) {
        types.setDependent(label, {0, 1});
        if (withBinomial) {
            types.distributionTypeOverride(label, 2, ktClassifierDistributionTypes::eBinomial);
        }
    }
    return Bayes(types, ktClassifierFrequencies(), ktClassifierCosts(2.0), *ktKit::pattern({0.0, 0.0, 20.0}));
}

inline Results oneByOne(const ktClassifierTool& tool, const ktKit::Patterns& patterns)
{
    Results results(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        tool.run(*patterns[i], results[i]);
    }
    return results;
}

inline void writeBytes(const std::string& path, const std::string& bytes)
{
    // A file of its own: where one is written over, some file systems wait for the disk.
    std::filesystem::remove(path);
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// The table of this text.
inline ktKit::Table readText(const std::string& text, const ktKit::CsvOptions& options = {})
{
    std::istringstream stream(text);
    return ktKit::readCsv(stream, options);
}

inline void expectCsvRefused(const std::string& text, const std::string& what, const ktKit::CsvOptions& options = {})
{
    SCOPED_TRACE(text);
    expectThrows<ktKit::FileError>("stream: " + what, [&] { readText(text, options); });
}

/// Two measurements around (0, 0) and around (100, 100), label 4 and 9.
inline Sample twoClouds()
{
    Sample sample(0, 0);
    for (long i = 0; i < 40; ++i) {
        const double center = i % 2 == 0 ? 0.0 : 100.0;
        const double x = center + static_cast<double>(i * 7 % 11) - 5.0;
        const double y = center + static_cast<double>(i * 5 % 13) - 6.0;
        sample.patterns.push_back(ktKit::pattern({x, y}));
        sample.labels.push_back(i % 2 == 0 ? 4 : 9);
    }
    return sample;
}

inline double logLikelihood(const ktClassifierTool& tool, const ktFeaturePattern& pattern, long label)
{
    ktClassifierResult result;
    tool.run(pattern, result);
    return ktKit::logLikelihood(result, label);
}

inline ktKit::ConfusionMatrix someMatrix()
{
    ktKit::ConfusionMatrix matrix;
    for (const auto& pair : std::vector<std::pair<long, long>>{{0, 0}, {0, 0}, {0, 7}, {7, 7}, {7, -1}, {2, 0}}) {
        matrix.add(pair.first, pair.second);
    }
    return matrix;
}

inline ktClassifierTool nearest(long k = 5)
{
    return trainedOn(Sample(0, 700, 7), Knn(k));
}

inline std::vector<double> rowsOf(const ktKit::Patterns& patterns)
{
    std::vector<double> rows;
    for (const auto& pattern : patterns) {
        const std::vector<double>& values = pattern->featureMeasurements(false);
        rows.insert(rows.end(), values.begin(), values.end());
    }
    return rows;
}

/// Rows with the labels -1, 0, 1, ...
inline ktClassifierDataProviderMemory dataOfRows(const std::vector<std::vector<double>>& rows)
{
    ktClassifierDataProviderMemory made;
    for (const auto& row : rows) {
        made.addData(ktKit::pattern(row), made.numPatterns() - 1);
    }
    made.setName("some");
    made.setDescription("numbers");
    return made;
}

}  // namespace kt_test
