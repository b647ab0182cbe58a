#pragma once

#include "support/messages.h"
#include "support/test.h"

// Metrics as a user of the library would write them.

namespace kt_test {

/// The largest difference.
class Chebyshev : public ktPatternDistanceMetric {
public:
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        const std::vector<double>& x = a.featureMeasurements(true);
        const std::vector<double>& y = b.featureMeasurements(true);
        double largest = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            largest = std::max(largest, std::abs(x[i] - y[i]));
        }
        return largest;
    }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new Chebyshev(*this); }
    bool isEquivalent(const ktPatternDistanceMetric& other) const override
    {
        return dynamic_cast<const Chebyshev*>(&other) != nullptr;
    }
};

/// A distance given by a function. Does not override isEquivalent.
class DistanceBy : public ktPatternDistanceMetric {
public:
    using Function = std::function<double(const ktFeaturePattern& a, const ktFeaturePattern& b)>;

    explicit DistanceBy(Function function) : function_(std::move(function)) {}

    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override { return function_(a, b); }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new DistanceBy(*this); }

private:
    Function function_;
};

/// The stored pattern says itself how far it is from anything: by its first measurement.
inline DistanceBy distanceInPattern()
{
    return DistanceBy(
        [](const ktFeaturePattern&, const ktFeaturePattern& b) { return b.featureMeasurement(0, false); });
}

/// A metric whose clone comes from a function, which may throw or give null.
class CloneBy : public Chebyshev {
public:
    using Function = std::function<ktPtrHandle<ktPatternDistanceMetric>()>;

    explicit CloneBy(Function function) : function_(std::move(function)) {}

    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return function_(); }

private:
    Function function_;
};

inline CloneBy withoutClone()
{
    return CloneBy([] { return ktPtrHandle<ktPatternDistanceMetric>(); });
}

inline double distance(const ktPatternDistanceMetric& metric, const std::vector<double>& a,
                       const std::vector<double>& b)
{
    return metric.distance(ktFeaturePattern(a, {}), ktFeaturePattern(b, {}));
}

/// The layers of a norm, open to a test.
struct OpenNorm : ktPatternDistanceMetricNorm {
    using ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm;
    using ktPatternDistanceMetricNorm::serialize_;
    void serializeBase(ktArchive& archive, unsigned char version)
    {
        ktPatternDistanceMetric::serialize_(archive, version);
    }
};

/// The order of the norm in such parameters.
inline double orderOf(const ktClassifierTrainParamsKNN& params)
{
    return dynamic_cast<const ktPatternDistanceMetricNorm&>(*params.distanceMetric()).order();
}

}  // namespace kt_test
