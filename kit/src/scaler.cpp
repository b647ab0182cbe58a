#include <clastool/kit/scaler.h>

#include <clastool/kit/patterns.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace {

struct CenterAndSpread {
    double center;
    double spread;
};

/// Divides the values by a power of 2, so that no square of them overflows or becomes 0; no digit changes. Returns the exponent.
int normalize(std::vector<double>& values)
{
    double most = 0.0;
    for (const double value : values) {
        most = std::max(most, std::abs(value));
    }
    int exponent = 0;
    std::frexp(most, &exponent);
    for (double& value : values) {
        value = std::ldexp(value, -exponent);
    }
    return exponent;
}

double meanOf(const std::vector<double>& values)
{
    double mean = 0.0;
    double n = 0.0;
    for (const double value : values) {
        n += 1.0;
        mean += (value - mean) / n;
    }
    return mean;
}

CenterAndSpread byDeviation(std::vector<double>& values)
{
    const int exponent = normalize(values);
    const double mean = meanOf(values);
    double squares = 0.0;
    for (const double value : values) {
        squares += (value - mean) * (value - mean);
    }
    const double deviation = std::sqrt(squares / static_cast<double>(values.size()));
    return {std::ldexp(mean, exponent), std::ldexp(deviation, exponent)};
}

double quantile(const std::vector<double>& sorted, double share)
{
    const double place = share * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const double low = sorted[below];
    const double high = sorted[std::min(below + 1, sorted.size() - 1)];
    const double part = place - static_cast<double>(below);
    return std::isfinite(high - low) ? low + (high - low) * part : low * (1.0 - part) + high * part;
}

CenterAndSpread byQuartiles(std::vector<double>& values)
{
    std::sort(values.begin(), values.end());
    const double distance = quantile(values, 0.75) - quantile(values, 0.25);
    return {quantile(values, 0.5), std::min(distance, std::numeric_limits<double>::max())};
}

}  // namespace

const kt_Instantiator ktKit::Scaler::sExemplar(typeid(ktKit::Scaler), &ktKit::Scaler::make);

ktPersistent* ktKit::Scaler::make()
{
    return new Scaler;
}

ktKit::Scaler::Scaler() = default;

ktKit::Scaler& ktKit::Scaler::operator=(const Scaler& other)
{
    Scaler copy(other);
    ktPersistent::operator=(other);
    centers_.swap(copy.centers_);
    spreads_.swap(copy.spreads_);
    return *this;
}

ktKit::Scaler::Scaler(const ktClassifierDataProvider& data, Method method)
{
    const Patterns patterns = ktKit::patterns(data);
    for (const auto& pattern : patterns) {
        if (pattern->numMeasurements() != patterns.front()->numMeasurements()) {
            throw ktClassifierDefs::BadFeatures("All patterns must have the same number of measurements");
        }
    }
    if (patterns.empty()) {
        throw ktClassifierDefs::InsufficientTrainData("No valid data was provided for training.");
    }
    std::vector<double> values;
    for (long j = 0; j < patterns.front()->numMeasurements(); ++j) {
        values.clear();
        for (const auto& pattern : patterns) {
            const double value = pattern->featureMeasurement(j, false);
            if (pattern->isValid(j) && std::isfinite(value)) {
                values.push_back(value);
            }
        }
        CenterAndSpread learnt{0.0, 1.0};
        if (!values.empty()) {
            learnt = method == eMedianAndQuartiles ? byQuartiles(values) : byDeviation(values);
        }
        centers_.push_back(learnt.center);
        spreads_.push_back(learnt.spread > 0.0 ? learnt.spread : 1.0);
    }
}

ktPtrHandle_const<ktFeaturePattern> ktKit::Scaler::transform(const ktFeaturePattern& pattern) const
{
    const std::size_t known = std::min(centers_.size(), spreads_.size());
    std::vector<double> values = pattern.featureMeasurements(false);
    if (values.size() != known) {
        throw ktClassifierDefs::BadFeatures("The pattern has " + std::to_string(values.size()) +
                                            " measurements, but the scaler was made for " + std::to_string(known));
    }
    std::vector<long> missing;
    for (std::size_t j = 0; j < known; ++j) {
        const auto index = static_cast<long>(j);
        const bool isValid = pattern.isValid(index);
        if (isValid) {
            values[j] = (values[j] - centers_[j]) / spreads_[j];
        }
        if (!isValid || !std::isfinite(values[j])) {
            missing.push_back(index);
        }
    }
    return new ktFeaturePattern(values, missing);
}

ktClassifierDataProviderMemory ktKit::Scaler::transform(const ktClassifierDataProvider& data) const
{
    // A provider's readers are declared without const.
    auto& readable = const_cast<ktClassifierDataProvider&>(data);
    ktClassifierDataProviderMemory transformed;
    transformed.setName(readable.name());
    transformed.setDescription(readable.description());
    for (long i = 0; i < readable.numPatterns(); ++i) {
        transformed.addData(transform(*readable.featurePattern(i)), readable.categoryLabel(i));
    }
    return transformed;
}

bool ktKit::Scaler::operator==(const Scaler& other) const
{
    return centers_ == other.centers_ && spreads_ == other.spreads_;
}

void ktKit::Scaler::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktKit::Scaler::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
    archive || centers_ || spreads_;
}
