#include <clastool/training_data.h>

#include "grow.h"

#include <utility>

namespace {

void requireLabelOrUnknown(long label)
{
    if (label < -1) {
        throw ktClassifierDefs::BadLabel("Category labels must be >= 0 or unknown");
    }
}

}  // namespace

ktClassifierDataProvider::ktClassifierDataProvider() = default;

bool ktClassifierDataProvider::isEqual_(const ktClassifierDataProvider&) const
{
    return true;
}

void ktClassifierDataProvider::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktClassifierDataProvider::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
}

const kt_Instantiator ktClassifierDataProviderMemory::sExemplar(typeid(ktClassifierDataProviderMemory),
                                                                &ktClassifierDataProviderMemory::make);

ktPersistent* ktClassifierDataProviderMemory::make()
{
    return new ktClassifierDataProviderMemory;
}

ktClassifierDataProviderMemory::ktClassifierDataProviderMemory() = default;
ktClassifierDataProviderMemory::ktClassifierDataProviderMemory(const ktClassifierDataProviderMemory& other)
    : ktClassifierDataProvider(other),
      name_(other.name_),
      description_(other.description_),
      patterns_(other.patterns_),
      labels_(other.labels_)
{
}

ktClassifierDataProviderMemory& ktClassifierDataProviderMemory::operator=(const ktClassifierDataProviderMemory& other)
{
    ktClassifierDataProviderMemory copy(other);
    ktClassifierDataProvider::operator=(other);
    name_.swap(copy.name_);
    description_.swap(copy.description_);
    patterns_.swap(copy.patterns_);
    labels_.swap(copy.labels_);
    ++revision_;
    return *this;
}

std::string ktClassifierDataProviderMemory::name()
{
    return name_;
}

void ktClassifierDataProviderMemory::setName(const std::string& name)
{
    name_ = name;
}

std::string ktClassifierDataProviderMemory::description()
{
    return description_;
}

void ktClassifierDataProviderMemory::setDescription(const std::string& description)
{
    description_ = description;
}

long ktClassifierDataProviderMemory::numMeasurements() const
{
    return patterns_.empty() ? 0 : patterns_.front()->numMeasurements();
}

long ktClassifierDataProviderMemory::numPatterns() const
{
    return static_cast<long>(patterns_.size());
}

ktPtrHandle_const<ktFeaturePattern> ktClassifierDataProviderMemory::featurePattern(long index)
{
    // The second condition only differs where a derived class counts its patterns in its own way.
    if (index < 0 || index >= numPatterns() || static_cast<std::size_t>(index) >= patterns_.size()) {
        throw ktClassifierDefs::BadIndex("Feature pattern index must be >=0 and < number of patterns.");
    }
    return patterns_[static_cast<std::size_t>(index)];
}

long ktClassifierDataProviderMemory::categoryLabel(long index) const
{
    // A loaded store may be damaged: it need not hold a label for every pattern.
    if (index < 0 || index >= numPatterns() || static_cast<std::size_t>(index) >= labels_.size()) {
        throw ktClassifierDefs::BadIndex("Category label index must be >=0 and < number of patterns.");
    }
    return labels_[static_cast<std::size_t>(index)];
}

void ktClassifierDataProviderMemory::addData(const ktPtrHandle_const<ktFeaturePattern>& pattern, long label)
{
    if (!patterns_.empty() && pattern->numMeasurements() != numMeasurements()) {
        throw ktClassifierDefs::BadFeatures(
            "Feature pattern must have the same number of measurements as the rest of the data.");
    }
    requireLabelOrUnknown(label);
    // Taken aside: making room below would free a handle of this very store that was passed in.
    const ktPtrHandle_const<ktFeaturePattern> added = pattern;
    kt_makeRoomForOne(patterns_, labels_);
    patterns_.push_back(added);
    labels_.push_back(label);
    ++revision_;
}

void ktClassifierDataProviderMemory::data(const std::vector<ktPtrHandle_const<ktFeaturePattern>>& patterns,
                                          const std::vector<long>& labels)
{
    if (patterns.size() != labels.size()) {
        throw ktClassifierDefs::BadFeatures(
            "The number of the feature patterns must be equal to the number of category labels");
    }
    if (patterns.size() >= 2) {
        const long numMeasurements = patterns.front()->numMeasurements();
        for (const auto& pattern : patterns) {
            if (pattern->numMeasurements() != numMeasurements) {
                throw ktClassifierDefs::BadFeatures("Feature patterns must all have the same number of measurements");
            }
        }
    }
    for (const long label : labels) {
        requireLabelOrUnknown(label);
    }
    auto newPatterns = patterns;
    auto newLabels = labels;
    patterns_.swap(newPatterns);
    labels_.swap(newLabels);
    ++revision_;
}

bool ktClassifierDataProviderMemory::isEqual_(const ktClassifierDataProvider& other) const
{
    const auto* memory = dynamic_cast<const ktClassifierDataProviderMemory*>(&other);
    if (memory == nullptr || patterns_.size() != memory->patterns_.size()) {
        return false;
    }
    for (std::size_t i = 0; i < patterns_.size(); ++i) {
        if (*patterns_[i] != *memory->patterns_[i]) {
            return false;
        }
    }
    return name_ == memory->name_ && description_ == memory->description_ && labels_ == memory->labels_;
}

void ktClassifierDataProviderMemory::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktClassifierDataProviderMemory::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktClassifierDataProvider::dispatchSerialize(archive);
    if (archive.isLoading()) {
        ++revision_;
    }
    archive || name_ || description_ || patterns_ || labels_;
}
