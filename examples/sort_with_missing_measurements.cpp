// Sorts biopsies some of whose measurements are missing, by probability densities: with independent measurements, with a
// group of dependent ones, and with other priors. Then rejects a pattern that belongs to no category.

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

/// A sample whose pattern lacks some measurements.
struct Incomplete {
    ktPtrHandle_const<ktFeaturePattern> pattern;
    long label;
};

/// One measurement in ten is missing: of every second sample six of the thirty, of the others none. A density of several
/// measurements learns from samples that have all of them, so a rule that took three from every sample would leave it
/// nothing to learn.
std::vector<Incomplete> withMissing(const std::vector<Sample>& samples)
{
    std::vector<Incomplete> incomplete;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        std::vector<long> missing;
        for (std::size_t j = 0; j < samples[i].measurements.size(); ++j) {
            if ((i + 2 * j) % 10 == 0) {
                missing.push_back(static_cast<long>(j));
            }
        }
        incomplete.push_back({new ktFeaturePattern(samples[i].measurements, missing), samples[i].label});
    }
    return incomplete;
}

ktClassifierDataProviderMemory trainingSet(const std::vector<Incomplete>& samples)
{
    ktClassifierDataProviderMemory data;
    for (const Incomplete& sample : samples) {
        data.addData(sample.pattern, sample.label);
    }
    return data;
}

/// The measurements whose names begin with "mean_".
std::vector<long> meanMeasurements(const std::vector<std::string>& names)
{
    std::vector<long> indices;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].rfind("mean_", 0) == 0) {
            indices.push_back(static_cast<long>(i));
        }
    }
    return indices;
}

ktClassifierResult run(const ktClassifierTool& tool, const ktFeaturePattern& pattern)
{
    ktClassifierResult result;
    tool.run(pattern, result);
    return result;
}

void printDecisions(const std::string& title, const ktClassifierTool& tool, const std::vector<Incomplete>& samples,
                    const ktClassifierCosts& costs)
{
    ConfusionMatrix matrix;
    for (const Incomplete& sample : samples) {
        matrix.add(sample.label, decision(run(tool, *sample.pattern)));
    }
    std::cout << title << ":\n";
    print(matrix);
    std::cout << "  total cost: " << std::fixed << std::setprecision(0) << matrix.totalCost(costs) << "\n\n";
}

/// How likely the pattern is in the category that explains it best. The match scores of a run are likelihoods times a
/// factor that makes the best of them 1; dividing by the factor brings the likelihoods back.
double bestLogLikelihood(const ktClassifierTool& tool, const ktFeaturePattern& pattern)
{
    const ktClassifierResult result = run(tool, pattern);
    double best = 0.0;
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        best = std::max(best, category.matchScore());
    }
    return std::log(best) - result.matchScoreFactorLog();
}

/// Rejects what is less likely than every training sample. Each missing measurement takes a factor out of the likelihood,
/// so there is one limit for each number of measurements present.
class Rejection {
public:
    Rejection(const ktClassifierTool& tool, const std::vector<Incomplete>& training) : tool_(tool)
    {
        for (const Incomplete& sample : training) {
            const double logLikelihood = bestLogLikelihood(tool, *sample.pattern);
            const auto place = limits_.emplace(present(*sample.pattern), logLikelihood).first;
            place->second = std::min(place->second, logLikelihood);
        }
    }

    double limit(const ktFeaturePattern& pattern) const { return limits_.at(present(pattern)); }
    bool operator()(const ktFeaturePattern& pattern) const
    {
        return bestLogLikelihood(tool_, pattern) < limit(pattern);
    }

private:
    static long present(const ktFeaturePattern& pattern) { return pattern.numMeasurements() - pattern.numInvalid(); }

    const ktClassifierTool& tool_;
    std::map<long, double> limits_;
};

void printRejection(const std::string& title, const ktClassifierTool& tool, const std::vector<Incomplete>& training,
                    const std::vector<Incomplete>& test, const ktFeaturePattern& stranger)
{
    const Rejection rejects(tool, training);
    long rejected = 0;
    for (const Incomplete& sample : test) {
        rejected += rejects(*sample.pattern) ? 1 : 0;
    }
    std::cout << title << ":\n  the stranger: log-likelihood " << std::fixed << std::setprecision(1)
              << bestLogLikelihood(tool, stranger) << ", limit " << rejects.limit(stranger) << ": "
              << (rejects(stranger) ? "rejected" : "taken for one of the categories")
              << "\n  test samples rejected: " << rejected << " of " << test.size() << "\n";
}

int sortWithMissingMeasurements(const std::string& csvPath)
{
    const CellNuclei data = readCellNuclei(csvPath);
    const Split rows = splitSamples(data.samples);
    const std::vector<Incomplete> training = withMissing(rows.training);
    const std::vector<Incomplete> test = withMissing(rows.test);
    const std::vector<long> means = meanMeasurements(data.names);
    std::cout << data.samples.size() << " samples, " << training.size() << " to learn from and " << test.size()
              << " for the test. One measurement in ten is missing.\nA malignant sample called benign costs 10, the "
                 "reverse 1.\n\n";

    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(malignant, benign, 10.0);
    const ktClassifierFrequencies equalPriors(1.0);

    ktClassifierTool independent;
    independent.train(trainingSet(training),
                      ktClassifierTrainParamsBayesian(ktClassifierDistributionTypes(), equalPriors, costs));
    printDecisions("Independent measurements, equal priors", independent, test, costs);

    ktClassifierDistributionTypes grouped;
    grouped.setDependent(benign, means);
    grouped.setDependent(malignant, means);
    ktClassifierTool dependent;
    dependent.train(trainingSet(training), ktClassifierTrainParamsBayesian(grouped, equalPriors, costs));
    printDecisions("The ten mean_ measurements as one dependent group, equal priors", dependent, test, costs);

    // Priors take effect without training again. These are stated, not counted: say, those of a screening.
    ktClassifierFrequencies statedPriors;
    statedPriors.categoryFrequencyOverride(benign, 0.95);
    statedPriors.categoryFrequencyOverride(malignant, 0.05);
    ktClassifierTool screening(dependent);
    screening.retrain(ktClassifierTrainParamsBayesian(grouped, statedPriors, costs));
    printDecisions("The same group, priors 95 % benign and 5 % malignant", screening, test, costs);

    // Each of its measurements is an ordinary one, but they do not go together: the radius is that of another sample.
    std::vector<double> strange = rows.test[0].measurements;
    strange[0] = rows.test[1].measurements[0];
    const ktFeaturePattern stranger(strange, {});
    std::cout << "A pattern of no category, the first test sample with " << data.names[0] << " " << std::fixed
              << std::setprecision(2) << strange[0] << " in place of " << rows.test[0].measurements[0] << ".\n";
    printRejection("With independent measurements", independent, training, test, stranger);
    printRejection("With the dependent group", dependent, training, test, stranger);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: sort_with_missing_measurements CELL_NUCLEI_CSV\n";
        return 1;
    }
    try {
        return sortWithMissingMeasurements(argv[1]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
