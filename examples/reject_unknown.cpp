// Rejects patterns that belong to no category, by limits on their likelihood that are learnt from the training data. The
// class scores of a result cannot tell: they are shares, and add up to 1 for a pattern that fits nowhere too.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <vector>

using namespace examples;

namespace {

ktClassifierResult run(const ktClassifierTool& tool, const std::vector<double>& measurements)
{
    ktClassifierResult result;
    tool.run(ktFeaturePattern(measurements, {}), result);
    return result;
}

/// How likely the pattern is in each category. The match scores of a run are likelihoods times a factor that makes the best
/// of them 1, and the result tells the factor; a likelihood far below the best one may have become 0.
std::map<long, double> logLikelihoods(const ktClassifierResult& result)
{
    std::map<long, double> likelihoods;
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        likelihoods[category.categoryLabel()] = std::log(category.matchScore()) - result.matchScoreFactorLog();
    }
    return likelihoods;
}

/// For each category the likelihood below which a given share of its own training samples lies.
class Limits {
public:
    Limits(const ktClassifierTool& tool, const std::vector<Sample>& training, double share)
    {
        std::map<long, std::vector<double>> ofCategory;
        for (const Sample& sample : training) {
            ofCategory[sample.label].push_back(logLikelihoods(run(tool, sample.measurements)).at(sample.label));
        }
        for (auto& [label, likelihoods] : ofCategory) {
            std::sort(likelihoods.begin(), likelihoods.end());
            limits_[label] = likelihoods.at(static_cast<std::size_t>(share * static_cast<double>(likelihoods.size())));
        }
    }

    /// Whether the pattern is too unlikely for every category.
    bool reject(const ktClassifierResult& result) const
    {
        const std::map<long, double> likelihoods = logLikelihoods(result);
        return std::all_of(limits_.begin(), limits_.end(),
                           [&](const auto& limit) { return likelihoods.at(limit.first) < limit.second; });
    }

private:
    std::map<long, double> limits_;
};

/// Patterns each of whose measurements was really measured, but no two of them on one sample.
std::vector<Sample> strangers(const std::vector<Sample>& samples)
{
    std::vector<Sample> mixed = samples;
    for (std::size_t i = 0; i < mixed.size(); ++i) {
        for (std::size_t j = 0; j < mixed[i].measurements.size(); ++j) {
            mixed[i].measurements[j] = samples[(i + 5 * j) % samples.size()].measurements[j];
        }
    }
    return mixed;
}

long numCertain(const ktClassifierTool& tool, const std::vector<Sample>& samples)
{
    return static_cast<long>(std::count_if(samples.begin(), samples.end(), [&](const Sample& sample) {
        return run(tool, sample.measurements).categoryResults().at(0).classScore() > 0.99;
    }));
}

void printRow(const ktClassifierTool& tool, const Split& rows, const std::vector<Sample>& unknown, double share)
{
    const Limits limits(tool, rows.training, share);
    long rejected = 0;
    long mistakes = 0;
    for (const Sample& sample : rows.test) {
        const ktClassifierResult result = run(tool, sample.measurements);
        const bool isRejected = limits.reject(result);
        rejected += isRejected ? 1 : 0;
        mistakes += !isRejected && decision(result) != sample.label ? 1 : 0;
    }
    const auto caught = std::count_if(unknown.begin(), unknown.end(), [&](const Sample& sample) {
        return limits.reject(run(tool, sample.measurements));
    });
    std::cout << std::setw(17) << std::fixed << std::setprecision(0) << 100.0 * share << " %" << std::setw(18)
              << rejected << std::setw(18) << mistakes << std::setw(18) << caught << "\n";
}

int rejectUnknown(const std::string& csvPath)
{
    const CellNuclei data = readCellNuclei(csvPath);
    const Split rows = splitSamples(data.samples);
    const std::vector<Sample> unknown = strangers(rows.test);

    // The first ten measurements as one group: what no category has is a matter of how they go together.
    ktClassifierDistributionTypes types;
    const std::vector<long> group = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    types.setDependent(benign, group);
    types.setDependent(malignant, group);
    ktClassifierTool tool;
    tool.train(trainingSet(rows.training), ktClassifierTrainParamsBayesian(types));

    std::cout << rows.training.size() << " training samples, " << rows.test.size() << " test samples, "
              << unknown.size() << " strangers whose measurements come from as many different test samples.\n\n"
              << "Sorted with a class score above 0.99: " << numCertain(tool, rows.test) << " test samples, and "
              << numCertain(tool, unknown) << " strangers.\n\n"
              << "  share of training      test samples     mistakes among         strangers\n"
              << "   samples rejected          rejected         the others          rejected\n";
    for (const double share : {0.0, 0.01, 0.02, 0.05}) {
        printRow(tool, rows, unknown, share);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: reject_unknown CELL_NUCLEI_CSV\n";
        return 1;
    }
    try {
        return rejectUnknown(argv[1]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
