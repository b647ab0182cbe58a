// A distance metric of one's own, in which each measurement has a weight: derived, registered so that archives know it, and
// used by the nearest-neighbour technique like the library's own.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/scaling.h"
#include "common/stored_tool.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

using namespace examples;

// Archives know a class by its name with its namespaces, so it stands in one that has a name, and both stay as they are.
namespace weighted {

/// sqrt(sum over i of w_i (a_i - b_i)^2), the Euclidean distance with a weight for each measurement.
class WeightedDistance : public ktPatternDistanceMetric {
public:
    /// Something to load into.
    WeightedDistance() = default;
    explicit WeightedDistance(std::vector<double> weights) : weights_(std::move(weights))
    {
        if (!std::all_of(weights_.begin(), weights_.end(), [](double weight) { return weight >= 0.0; })) {
            throw ktClassifierDefs::BadParams("Weights must be >= 0.0");
        }
    }

    /// Loading checks no values, so a damaged archive may have left any number of weights.
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        const std::vector<double>& x = a.featureMeasurements(true);
        const std::vector<double>& y = b.featureMeasurements(true);
        if (x.size() != weights_.size() || y.size() != weights_.size()) {
            throw ktClassifierDefs::BadFeatures("There must be as many measurements as weights");
        }
        double sum = 0.0;
        for (std::size_t i = 0; i < weights_.size(); ++i) {
            sum += weights_[i] * (x[i] - y[i]) * (x[i] - y[i]);
        }
        return std::sqrt(sum);
    }

    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new WeightedDistance(*this); }

    bool isEquivalent(const ktPatternDistanceMetric& other) const override
    {
        return typeid(other) == typeid(WeightedDistance) &&
               static_cast<const WeightedDistance&>(other).weights_ == weights_;
    }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version, "weighted::WeightedDistance");
            ktPatternDistanceMetric::dispatchSerialize(archive);
            archive || weights_;
        });
    }

private:
    static ktPersistent* make() { return new WeightedDistance; }
    static const kt_Instantiator sExemplar;

    std::vector<double> weights_;
};

// The entry in the registry: without it a stored metric could not be loaded.
const kt_Instantiator WeightedDistance::sExemplar(typeid(WeightedDistance), &WeightedDistance::make);

}  // namespace weighted

namespace {

using weighted::WeightedDistance;

/// How far the means of the two categories are apart, in standard deviations, squared. Of scaled samples.
std::vector<double> separations(const std::vector<Sample>& samples)
{
    std::vector<double> weights;
    for (std::size_t i = 0; i < samples.front().measurements.size(); ++i) {
        double sums[2] = {0.0, 0.0};
        double counts[2] = {0.0, 0.0};
        for (const Sample& sample : samples) {
            sums[sample.label] += sample.measurements[i];
            counts[sample.label] += 1.0;
        }
        const double distance = sums[malignant] / counts[malignant] - sums[benign] / counts[benign];
        weights.push_back(distance * distance);
    }
    return weights;
}

/// A weight of 0 leaves a measurement out.
std::vector<double> withoutTheLesser(std::vector<double> weights, double share)
{
    const double limit = share * *std::max_element(weights.begin(), weights.end());
    std::replace_if(
        weights.begin(), weights.end(), [limit](double weight) { return weight < limit; }, 0.0);
    return weights;
}

ktClassifierTool trained(const std::vector<Sample>& training, const ktPatternDistanceMetric& metric)
{
    ktClassifierTool tool;
    tool.train(trainingSet(training), ktClassifierTrainParamsKNN(5, metric, ktClassifierCosts(1.0)));
    return tool;
}

long numMistakes(const ktClassifierTool& tool, const std::vector<Sample>& samples)
{
    long mistakes = 0;
    for (const Sample& sample : samples) {
        ktClassifierResult result;
        tool.run(ktFeaturePattern(sample.measurements, {}), result);
        mistakes += decision(result) != sample.label ? 1 : 0;
    }
    return mistakes;
}

int weighMeasurements(const std::string& csvPath)
{
    const CellNuclei data = readCellNuclei(csvPath);
    const Split rows = splitSamples(data.samples);
    const Scaling scaling(rows.training);
    const std::vector<Sample> training = scaling(rows.training);
    const std::vector<Sample> test = scaling(rows.test);
    const std::vector<double> weights = separations(training);

    std::cout << "5 nearest neighbours, mistakes on " << test.size() << " test samples:\n";
    const auto printRow = [&](const std::string& what, const ktPatternDistanceMetric& metric) {
        std::cout << "  " << std::left << std::setw(52) << what << std::right << std::setw(3)
                  << numMistakes(trained(training, metric), test) << "\n";
    };
    printRow("the library's Euclidean distance", ktPatternDistanceMetricNorm(2.0));
    printRow("all weights 1", WeightedDistance(std::vector<double>(weights.size(), 1.0)));
    printRow("weighted by how well a measurement separates", WeightedDistance(weights));
    const std::vector<double> few = withoutTheLesser(weights, 0.5);
    printRow("the same, and without the " + std::to_string(std::count(few.begin(), few.end(), 0.0)) + " lesser ones",
             WeightedDistance(few));

    ktClassifierTool tool = trained(training, WeightedDistance(weights));
    ktClassifierTool loaded = toolFrom(bytesOf(tool));
    std::cout << "\nStored and loaded: " << (loaded == tool ? "an equal tool" : "another tool");
    // A loaded nearest-neighbour tool runs with k = 1 and the library's distance until its parameters are applied.
    loaded.retrain(*loaded.trainParams());
    std::cout << ", which with its parameters applied makes " << numMistakes(loaded, test) << " mistakes.\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: weighted_metric CELL_NUCLEI_CSV\n";
        return 1;
    }
    try {
        return weighMeasurements(argv[1]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
