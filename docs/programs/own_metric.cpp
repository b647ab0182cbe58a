#include <clastool/clastool.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <sstream>
#include <typeinfo>

// [metric]
/// The largest difference of any measurement, each divided by its tolerance.
class LargestDifference : public ktPatternDistanceMetric {
public:
    LargestDifference() = default;
    explicit LargestDifference(const std::vector<double>& tolerances) : tolerances_(tolerances) {}

    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        double largest = 0.0;
        for (std::size_t i = 0; i < tolerances_.size(); ++i) {
            const auto index = static_cast<long>(i);
            const double difference = a.featureMeasurement(index, true) - b.featureMeasurement(index, true);
            largest = std::max(largest, std::abs(difference) / tolerances_[i]);
        }
        return largest;
    }

    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new LargestDifference(*this); }

    bool isEquivalent(const ktPatternDistanceMetric& other) const override
    {
        const auto* same = dynamic_cast<const LargestDifference*>(&other);
        return same != nullptr && same->tolerances_ == tolerances_;
    }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version, "LargestDifference");
            ktPatternDistanceMetric::dispatchSerialize(archive);
            archive || tolerances_;
        });
    }

private:
    static ktPersistent* make() { return new LargestDifference; }
    static const kt_Instantiator sExemplar;

    std::vector<double> tolerances_;  // in the units of the measurements
};

const kt_Instantiator LargestDifference::sExemplar(typeid(LargestDifference), &LargestDifference::make);
// [metric]

int main()
{
    ktClassifierDataProviderMemory parts;  // length in mm, weight in g
    parts.addData(new ktFeaturePattern({10.0, 500.0}, {}), 0);
    parts.addData(new ktFeaturePattern({12.0, 528.0}, {}), 1);

    // [use]
    ktClassifierTool tool;
    tool.train(parts, ktClassifierTrainParamsKNN(1, LargestDifference({0.5, 30.0}), ktClassifierCosts()));

    std::stringstream stream;
    ktArchive out(static_cast<std::ostream&>(stream));
    out || tool;

    ktClassifierTool loaded;
    ktArchive in(static_cast<std::istream&>(stream));
    in || loaded;
    loaded.retrain(*loaded.trainParams());  // the metric too is in use only now

    ktClassifierResult result;
    loaded.run(ktFeaturePattern({10.1, 525.0}, {}), result);
    std::cout << "category " << result.categoryResults().front().categoryLabel() << "\n";
    // [use]
}
