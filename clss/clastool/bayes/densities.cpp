// The densities of a Bayesian model. kt_PDFMultivariateNormal wraps ktNormalDensity (foundation/src/normal_density.cpp).
// docs/numerics.md, "Binomial density", has the formulas and traps of kt_PDFBinomial.
//
// kt_PDFBinomial learns proportions x / maximum. A normal density accumulates their mean and variance. The estimates are theta = mean and
// n = theta (1 - theta) / variance. An evaluation needs ln m! for three m. A table holds the plain sums up to m = 100,000. Beyond it
// Stirling's series is used.

#include <clastool/bayes.h>

#include "sub_pattern.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <memory>

namespace {

/// Truncates towards 0 and saturates at 32 bits. Requires: not NaN.
std::int32_t truncated(double value)
{
    constexpr double lowest = std::numeric_limits<std::int32_t>::min();
    constexpr double highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(std::max(lowest, value), highest));
}

constexpr std::int64_t tableSize = 100000;

/// The sums ln 1 + ... + ln m for m up to `tableSize`. The first call that needs them makes them, and publishes them without a lock.
std::atomic<const double*> logFactorials{nullptr};

/// Frees the sums when the library is unloaded. The pointer is a separate object without a destructor, so it outlives all static
/// objects. If a destructor that runs later needs the sums, it makes them anew.
struct FreesLogFactorials {
    FreesLogFactorials() = default;
    ~FreesLogFactorials() { delete[] logFactorials.exchange(nullptr); }  // not covered: runs after the last test
    FreesLogFactorials(const FreesLogFactorials&) = delete;
    FreesLogFactorials& operator=(const FreesLogFactorials&) = delete;
};
const FreesLogFactorials freesLogFactorials;

const double* makeLogFactorials()
{
    auto fresh = std::make_unique<double[]>(tableSize + 1);
    for (std::int64_t m = 2; m <= tableSize; ++m) {
        fresh[static_cast<std::size_t>(m)] = fresh[static_cast<std::size_t>(m - 1)] + std::log(static_cast<double>(m));
    }
    const double* first = nullptr;
    const bool isFirst = logFactorials.compare_exchange_strong(first, fresh.get(), std::memory_order_acq_rel);
    if (!isFirst) {  // not covered: another thread published its sums just now
        return first;
    }
    return fresh.release();
}

/// ln m!, 0 for m < 2. Beyond the table Stirling's series, which agrees with the plain sum to 1e-12.
double logFactorial(std::int64_t m)
{
    if (m < 2) {
        return 0.0;
    }
    if (m <= tableSize) {
        const double* sums = logFactorials.load(std::memory_order_acquire);
        return (sums != nullptr ? sums : makeLogFactorials())[m];
    }
    constexpr double halfLogTwoPi = 0.91893853320467274178032973640562;
    const auto x = static_cast<double>(m);
    return (x + 0.5) * std::log(x) - x + halfLogTwoPi + 1.0 / (12.0 * x) - 1.0 / (360.0 * x * x * x);
}

[[noreturn]] void throwMultivariate()
{
    throw ktClassifierDefs::NotImplemented("Multivariate Binomial Distributions are not implemented");
}

}  // namespace

kt_ProbabilityDensityFunction::kt_ProbabilityDensityFunction() = default;

void kt_ProbabilityDensityFunction::dispatchSerialize(ktArchive& archive)
{
    // No version byte of its own.
    serialize_(archive, 0);
}

void kt_ProbabilityDensityFunction::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
}

const kt_Instantiator kt_PDFMultivariateNormal::sExemplar(typeid(kt_PDFMultivariateNormal),
                                                          &kt_PDFMultivariateNormal::make);

ktPersistent* kt_PDFMultivariateNormal::make()
{
    return new kt_PDFMultivariateNormal;
}

kt_PDFMultivariateNormal::kt_PDFMultivariateNormal() = default;

void kt_PDFMultivariateNormal::updateWithDataNormalize(const std::vector<ktFeaturePattern>& patterns, double normalizer)
{
    std::list<kt_SubPattern> parts;
    std::vector<ktNormalDensity::Row> rows;
    rows.reserve(patterns.size());
    for (const ktFeaturePattern& pattern : patterns) {
        rows.push_back(parts.emplace_back(pattern).row());
    }
    kt_throwOnFailure(state_.accumulate(rows.data(), rows.size(), normalizer));
}

void kt_PDFMultivariateNormal::updateWithData(const std::vector<ktFeaturePattern>& patterns)
{
    updateWithDataNormalize(patterns, 1.0);
}

double kt_PDFMultivariateNormal::logValue(const ktFeaturePattern& pattern) const
{
    double value = 0.0;
    kt_throwOnFailure(state_.logDensity(kt_SubPattern(pattern).row(), value));
    return value;
}

bool kt_PDFMultivariateNormal::isEquivalent(const kt_ProbabilityDensityFunction& other) const
{
    const auto* normal = dynamic_cast<const kt_PDFMultivariateNormal*>(&other);
    return normal != nullptr && *this == *normal;
}

void kt_PDFMultivariateNormal::clear()
{
    state_.clear();
}

void kt_PDFMultivariateNormal::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_PDFMultivariateNormal::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    kt_ProbabilityDensityFunction::dispatchSerialize(archive);
    ktNMMatrix mean = state_.mean();
    ktNMMatrix covariance = state_.covariance();
    long count = state_.count();
    archive || mean || covariance || count;
    if (archive.isLoading()) {
        state_.restore(mean, covariance, count);
    }
}

const kt_Instantiator kt_PDFBinomial::sExemplar(typeid(kt_PDFBinomial), &kt_PDFBinomial::make);

ktPersistent* kt_PDFBinomial::make()
{
    return new kt_PDFBinomial;
}

kt_PDFBinomial::kt_PDFBinomial() = default;

kt_PDFBinomial::kt_PDFBinomial(const ktFeaturePattern& maxValues) : maximum_(maxValues.featureMeasurement(0, false)) {}

kt_PDFBinomial& kt_PDFBinomial::operator=(const kt_PDFBinomial& other)
{
    // The accumulator comes first, because only its copy can fail.
    accumulator_ = other.accumulator_;
    kt_ProbabilityDensityFunction::operator=(other);
    numTrials_ = other.numTrials_;
    theta_ = other.theta_;
    maximum_ = other.maximum_;
    return *this;
}

void kt_PDFBinomial::requireWithinMaximum(const ktNormalDensity::Row& row) const
{
    for (std::size_t i = 0; i < row.size; ++i) {
        if (row.valid[i] && std::isfinite(row.values[i]) && row.values[i] > maximum_) {
            throw ktClassifierDefs::BadParams(
                "Train data measurement cannot exceed its maximum value when using binomial distribution");
        }
    }
}

void kt_PDFBinomial::updateWithData(const std::vector<ktFeaturePattern>& patterns)
{
    if (patterns.empty()) {
        return;
    }
    if (patterns.front().numMeasurements() != 1) {
        throwMultivariate();
    }
    for (const ktFeaturePattern& pattern : patterns) {
        requireWithinMaximum(kt_SubPattern(pattern).row());
    }
    accumulator_.updateWithDataNormalize(patterns, maximum_);
    estimate();
}

void kt_PDFBinomial::prepareFor(const ktNormalDensity::Row& row)
{
    if (row.size != 1) {
        throwMultivariate();
    }
    requireWithinMaximum(row);
    kt_throwOnFailure(accumulator_.state_.prepare(1));
}

void kt_PDFBinomial::learn(const ktNormalDensity::Row& row)
{
    kt_throwOnFailure(accumulator_.state_.accumulate(&row, 1, maximum_));
    estimate();
}

/// n and theta from the accumulated mean and variance, by the method of moments.
void kt_PDFBinomial::estimate()
{
    const ktNormalDensity& state = accumulator_.state_;
    if (state.count() < 1) {
        return;
    }
    theta_ = state.mean()(0, 0);
    const double variance = state.covariance()(0, 0);
    if (std::abs(variance) <= 1e-15) {
        // Kept on purpose: a constant training set leaves n as it was, although theta is set.
        return;
    }
    numTrials_ = truncated((1.0 - theta_) / variance * theta_ + 0.5);
}

double kt_PDFBinomial::logValue(const ktFeaturePattern& pattern) const
{
    return logValueAt(kt_SubPattern(pattern).row());
}

double kt_PDFBinomial::logValueAt(const ktNormalDensity::Row& row) const
{
    if (numTrials_ == 0) {
        throw ktClassifierDefs::InsufficientTrainData("Insufficient data has been used to train the distribution");
    }
    if (row.size != 1) {
        throwMultivariate();
    }
    if (!row.valid[0] || !std::isfinite(row.values[0])) {
        return 0.0;
    }
    if (row.values[0] > maximum_) {
        throw ktClassifierDefs::BadParams("Feature measurement must be <= specified maximum value");
    }
    const double rounded = row.values[0] * (static_cast<double>(numTrials_) / maximum_) + 0.5;
    if (std::isnan(rounded)) {
        return rounded;
    }
    // n and k may have any sign. Their difference needs more than 32 bits.
    const std::int64_t n = numTrials_;
    const std::int64_t k = truncated(rounded);
    return logFactorial(n) - (logFactorial(k) + logFactorial(n - k)) + static_cast<double>(k) * std::log(theta_) +
           static_cast<double>(n - k) * std::log(1.0 - theta_);
}

bool kt_PDFBinomial::isEquivalent(const kt_ProbabilityDensityFunction& other) const
{
    const auto* binomial = dynamic_cast<const kt_PDFBinomial*>(&other);
    return binomial != nullptr && *this == *binomial;
}

void kt_PDFBinomial::clear()
{
    accumulator_.clear();
    numTrials_ = 0;
}

bool kt_PDFBinomial::operator==(const kt_PDFBinomial& other) const
{
    return numTrials_ == other.numTrials_ && theta_ == other.theta_ && maximum_ == other.maximum_;
}

void kt_PDFBinomial::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_PDFBinomial::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    kt_ProbabilityDensityFunction::dispatchSerialize(archive);
    if (archive.isLoading()) {
        accumulator_.clear();
    }
    archive || numTrials_ || theta_ || maximum_;
}
