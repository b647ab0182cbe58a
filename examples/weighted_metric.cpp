// A distance metric of one's own, in which each measurement has a weight: derived, registered so that archives know it, and
// used by the nearest-neighbour technique like the library's own. Takes any file whose first column names the categories.

#include "common/errors.h"
#include "common/options.h"

#include <iostream>

/// sum over i of w_i (a_i - b_i)^2, the square of a Euclidean distance with weights: without the root the same patterns are near.
/// Archives know the class by its name, so that stays, and the class stands in no anonymous namespace.
class WeightedDistance : public ktPatternDistanceMetric {
public:
    /// Without weights it is something to load into.
    explicit WeightedDistance(const std::vector<double>& weights = {}) : weights_(weights) {}

    /// Throws for a weight without a measurement, which a damaged archive may have left.
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        const std::vector<double>& x = a.featureMeasurements(true);
        const std::vector<double>& y = b.featureMeasurements(true);
        double sum = 0.0;
        for (std::size_t i = 0; i < weights_.size(); ++i) {
            sum += weights_[i] * (x.at(i) - y.at(i)) * (x.at(i) - y.at(i));
        }
        return sum;
    }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new WeightedDistance(*this); }
    bool isEquivalent(const ktPatternDistanceMetric& other) const override
    {
        return typeid(other) == typeid(*this) && static_cast<const WeightedDistance&>(other).weights_ == weights_;
    }

private:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version, "WeightedDistance");
            ktPatternDistanceMetric::dispatchSerialize(archive);
            archive || weights_;
        });
    }
    static ktPersistent* make() { return new WeightedDistance; }
    static const kt_Instantiator sExemplar;

    std::vector<double> weights_;
};

// The entry in the registry: without it a stored metric could not be loaded.
const kt_Instantiator WeightedDistance::sExemplar(typeid(WeightedDistance), &WeightedDistance::make);

namespace {

void weighMeasurements(const std::string& csvPath)
{
    const ktKit::Table table = ktKit::readCsv(csvPath);
    const ktKit::Split rows = examples::thirds(table.data);
    const ktKit::Scaler scaler(rows.training);
    const ktClassifierDataProviderMemory training = scaler.transform(rows.training);
    const auto numMistakes = [&](const ktClassifierTool& tool) {
        const ktKit::Patterns test = ktKit::patterns(scaler.transform(rows.test));
        return examples::counted(rows.test, ktKit::runAll(tool, test), {}).mistakes();
    };
    // A measurement counts by how far it separates the categories' means from each other, and from 0, the mean of all.
    ktClassifierTool tool;
    tool.train(training, ktClassifierTrainParamsBayesian());
    std::vector<double> weights(table.columns.size(), 0.0);
    for (const ktKit::Density& density : ktKit::densities(tool)) {
        weights[static_cast<std::size_t>(density.measurements[0])] += density.mean[0] * density.mean[0];
    }
    tool.train(training, ktClassifierTrainParamsKNN(5));
    std::cout << "the library's Euclidean distance: " << numMistakes(tool) << " mistakes\n";
    tool.train(training, ktClassifierTrainParamsKNN(5, WeightedDistance(weights)));
    ktKit::save(tool, "weighted_metric.tool");
    std::cout << "weighted, saved and loaded: " << numMistakes(ktKit::load("weighted_metric.tool")) << " mistakes\n";
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        argc == 2 ? weighMeasurements(argv[1]) : throw std::runtime_error("usage: weighted_metric CSV");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
