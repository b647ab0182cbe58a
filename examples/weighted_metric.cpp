// A distance metric of one's own, in which each measurement has a weight: derived, registered so that archives know it, and
// used by the nearest-neighbour technique like the library's own. Takes any file whose first column names the categories.

#include "common/errors.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

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

/// How far the means of the categories are from their mean, squared: of measurements scaled to one spread.
std::vector<double> separations(const ktClassifierDataProvider& data, std::size_t size)
{
    ktClassifierTool bayes;
    bayes.train(data, ktClassifierTrainParamsBayesian());
    std::vector<double> weights(size, 0.0);
    for (const ktKit::Density& density : ktKit::densities(bayes)) {
        weights[static_cast<std::size_t>(density.measurements[0])] += density.mean[0] * density.mean[0];
    }
    return weights;
}

int weighMeasurements(const std::string& csvPath)
{
    const ktKit::Table table = ktKit::readCsv(csvPath);
    const ktKit::Split rows = ktKit::split(table.data, ktKit::stratifiedFolds(ktKit::labels(table.data), 3, 1), 0);
    const ktKit::Scaler scaler(rows.training);
    const std::vector<double> weights = separations(scaler.transform(rows.training), table.columns.size());
    const ktKit::Patterns test = ktKit::patterns(scaler.transform(rows.test));
    ktClassifierTool tool;
    const auto print = [&](const std::string& what, const ktPatternDistanceMetric& metric) {
        tool.train(scaler.transform(rows.training), ktClassifierTrainParamsKNN(5, metric));
        ktKit::ConfusionMatrix matrix;
        const std::vector<ktClassifierResult> results = ktKit::runAll(tool, test);
        for (std::size_t i = 0; i < test.size(); ++i) {
            matrix.add(rows.test.categoryLabel(static_cast<long>(i)), ktKit::decision(results[i]).categoryLabel());
        }
        std::cout << what << ": " << matrix.mistakes() << " mistakes\n";
    };
    print("the library's Euclidean distance", ktPatternDistanceMetricNorm(2.0));
    print("all weights 1", weighted::WeightedDistance(std::vector<double>(weights.size(), 1.0)));
    print("weighted by how well a measurement separates", weighted::WeightedDistance(weights));

    ktKit::save(tool, "weighted_metric.tool");
    const ktClassifierTool loaded = ktKit::load("weighted_metric.tool");
    const bool isSame = ktKit::runAll(loaded, test) == ktKit::runAll(tool, test);
    std::cout << "Stored and loaded, it gives " << (isSame ? "the same answers.\n" : "other answers.\n");
    return isSame ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 2 ? weighMeasurements(argv[1]) : throw std::runtime_error("usage: weighted_metric CSV");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
