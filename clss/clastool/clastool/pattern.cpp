#include <clastool/foundation.h>

#include "pattern_holders.h"

#include <algorithm>

const kt_Instantiator ktFeaturePattern::sExemplar(typeid(ktFeaturePattern), &ktFeaturePattern::make);

ktPersistent* ktFeaturePattern::make()
{
    return new ktFeaturePattern;
}

ktFeaturePattern::ktFeaturePattern() = default;

ktFeaturePattern::ktFeaturePattern(const std::vector<double>& measurements, const std::vector<long>& invalidIndices)
{
    if (!invalidIndices.empty()) {
        validity_ = std::make_unique<std::vector<bool>>(measurements.size(), true);
    }
    for (const long index : invalidIndices) {
        if (index < 0) {
            throwNegativeIndex();
        }
        if (static_cast<std::size_t>(index) >= measurements.size()) {
            throw ktClassifierDefs::BadIndex("Feature measurement indices must be < number of features");
        }
        (*validity_)[static_cast<std::size_t>(index)] = false;
    }
    measurements_ = measurements;
    if (validity_ != nullptr) {
        numInvalid_ = countInvalid(measurements_, *validity_);
    }
}

ktFeaturePattern::ktFeaturePattern(const ktFeaturePattern& other)
    : ktPersistent(),
      ktRepBase(),
      measurements_(other.measurements_),
      validity_(copyOf(other.validity_)),
      numInvalid_(other.numInvalid_)
{
}

ktFeaturePattern& ktFeaturePattern::operator=(const ktFeaturePattern& other)
{
    // Copied aside first, so that running out of memory half way leaves the pattern as it was.
    std::vector<double> measurements = other.measurements_;
    std::unique_ptr<std::vector<bool>> validity = copyOf(other.validity_);
    changing();
    ktPersistent::operator=(other);
    measurements_.swap(measurements);
    validity_.swap(validity);
    numInvalid_ = other.numInvalid_;
    return *this;
}

ktFeaturePattern::~ktFeaturePattern() = default;

void ktFeaturePattern::changing() noexcept
{
    if (holders_) {
        holders_->end();
        holders_ = nullptr;
    }
}

void ktFeaturePattern::throwNegativeIndex()
{
    throw ktClassifierDefs::BadIndex("Feature measurement indices must be >= 0");
}

void ktFeaturePattern::throwNotValid()
{
    throw ktClassifierDefs::BadFeatures("The measurement for the specified measurement index is not valid.");
}

const std::vector<double>& ktFeaturePattern::featureMeasurements(bool throwIfAnyInvalid) const
{
    if (throwIfAnyInvalid && numInvalid() > 0) {
        throw ktClassifierDefs::BadFeatures("Access to full feature vector requires that all features are valid.");
    }
    return measurements_;
}

std::vector<long> ktFeaturePattern::invalidFeatureIndices()
{
    std::vector<long> indices;
    for (std::size_t i = 0; numInvalid_ != 0 && i < measurements_.size(); ++i) {
        if (!holdsValid(i)) {
            indices.push_back(static_cast<long>(i));
        }
    }
    return indices;
}

std::unique_ptr<std::vector<bool>> ktFeaturePattern::copyOf(const std::unique_ptr<std::vector<bool>>& validity)
{
    return validity == nullptr ? nullptr : std::make_unique<std::vector<bool>>(*validity);
}

long ktFeaturePattern::countInvalid(const std::vector<double>& measurements, const std::vector<bool>& validity)
{
    const auto numFlags = static_cast<std::ptrdiff_t>(std::min(validity.size(), measurements.size()));
    const auto numValid = std::count(validity.begin(), validity.begin() + numFlags, true);
    return static_cast<long>(measurements.size()) - static_cast<long>(numValid);
}

bool ktFeaturePattern::operator==(const ktFeaturePattern& other) const
{
    if (measurements_ != other.measurements_ || (validity_ == nullptr) != (other.validity_ == nullptr)) {
        return false;
    }
    return validity_ == nullptr || *validity_ == *other.validity_;
}

void ktFeaturePattern::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktFeaturePattern::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
    bool allValid = validity_ == nullptr;
    if (archive.isStoring()) {
        std::vector<bool> none;
        archive || measurements_;
        archive.flags(allValid ? none : *validity_, allValid, measurements_.size());
        return;
    }
    // Loaded aside, so that the count fits the flags also when loading fails half way.
    std::vector<double> measurements;
    std::vector<bool> flags;
    archive || measurements;
    archive.flags(flags, allValid, measurements.size());
    std::unique_ptr<std::vector<bool>> validity;
    if (!allValid) {
        validity = std::make_unique<std::vector<bool>>(std::move(flags));
    }
    changing();
    measurements_.swap(measurements);
    validity_.swap(validity);
    numInvalid_ = allValid ? 0 : countInvalid(measurements_, *validity_);
}
