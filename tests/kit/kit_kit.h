#pragma once

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

inline ktClassifierTool trainedOn(const Sample& sample, const ktClassifierTrainParams& params)
{
    ktClassifierDataProviderMemory data;
    data.data(sample.patterns, sample.labels);
    ktClassifierTool tool;
    tool.train(data, params);
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

inline std::string bytesOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::string& bytes)
{
    // A file of its own: where one is written over, some file systems wait for the disk.
    std::filesystem::remove(path);
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// The tool after its plain archive was stored and loaded.
inline ktClassifierTool throughArchive(ktClassifierTool tool)
{
    std::stringstream stream;
    ktArchive store(static_cast<std::ostream&>(stream));
    store || tool;
    ktClassifierTool loaded;
    ktArchive load(static_cast<std::istream&>(stream));
    load || loaded;
    return loaded;
}

}  // namespace kt_test
