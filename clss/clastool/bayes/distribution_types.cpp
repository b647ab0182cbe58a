#include <clastool/bayes.h>

#include "../clastool/grow.h"

#include <algorithm>

namespace {

void requireLabel(long label)
{
    if (label < 0) {
        // Kept on purpose: "Cateogory".
        throw ktClassifierDefs::BadLabel("Cateogory labels must be >= 0");
    }
}

void requireIndex(long index)
{
    if (index < 0) {
        throw ktClassifierDefs::BadIndex("Feature measurement indices must be >= 0");
    }
}

bool contains(const std::vector<long>& indices, long index)
{
    return std::find(indices.begin(), indices.end(), index) != indices.end();
}

/// Appends the indices that `to` lacks, in their order.
void appendNew(std::vector<long>& to, const std::vector<long>& indices)
{
    for (const long index : indices) {
        if (!contains(to, index)) {
            to.push_back(index);
        }
    }
}

}  // namespace

ktClassifierDistributionTypes::ktClassifierDistributionTypes(DistributionType defaultType) : defaultType_(defaultType)
{
}

ktClassifierDistributionTypes& ktClassifierDistributionTypes::operator=(const ktClassifierDistributionTypes& other)
{
    return *this = ktClassifierDistributionTypes(other);
}

void ktClassifierDistributionTypes::defaultDistributionType(DistributionType type)
{
    defaultType_ = type;
}

ktClassifierDistributionTypes::DistributionType ktClassifierDistributionTypes::distributionType(
    long categoryLabel, long measurementIndex) const
{
    const long index = distOverrideIndex_(categoryLabel, measurementIndex);
    return index >= 0 ? overrideTypes_[static_cast<std::size_t>(index)] : defaultType_;
}

void ktClassifierDistributionTypes::distributionTypeOverride(long categoryLabel, long measurementIndex,
                                                             DistributionType type)
{
    if (type == defaultType_) {
        // Kept on purpose: nothing is validated, and an override of the pair stays in force.
        return;
    }
    if (setWith(categoryLabel, measurementIndex) != nullptr) {
        throw ktClassifierDefs::BadParams(
            "Cannot override distribution type of a feature measurement that is already part of a dependency set.");
    }
    const long index = distOverrideIndex_(categoryLabel, measurementIndex);
    if (index >= 0) {
        overrideTypes_[static_cast<std::size_t>(index)] = type;
        return;
    }
    kt_makeRoomForOne(overrideLabels_, overrideIndices_, overrideTypes_);
    overrideLabels_.push_back(categoryLabel);
    overrideIndices_.push_back(measurementIndex);
    overrideTypes_.push_back(type);
}

void ktClassifierDistributionTypes::clearDistributionOverrides()
{
    overrideLabels_.clear();
    overrideIndices_.clear();
    overrideTypes_.clear();
    dependentLabels_.clear();
    dependentSets_.clear();
}

void ktClassifierDistributionTypes::setDependent(long categoryLabel, const std::vector<long>& measurementIndices)
{
    requireLabel(categoryLabel);
    std::for_each(measurementIndices.begin(), measurementIndices.end(), requireIndex);
    if (measurementIndices.empty()) {
        return;
    }
    std::vector<long> listed;
    appendNew(listed, measurementIndices);
    const DistributionType type = distributionType(categoryLabel, listed.front());
    for (const long index : listed) {
        if (distributionType(categoryLabel, index) != type) {
            throw ktClassifierDefs::BadParams(
                "The distribution types of dependent feature measurements must be the same.");
        }
    }
    // The merged set holds the members of the first touched set, then the listed indices, then the members of the other touched sets.
    std::vector<bool> touched(numSets());
    std::vector<long> merged;
    for (std::size_t set = 0; set < touched.size(); ++set) {
        const auto isMember = [&](long index) { return isSetWith(set, categoryLabel, index); };
        touched[set] = std::any_of(listed.begin(), listed.end(), isMember);
    }
    const auto first = static_cast<std::size_t>(std::find(touched.begin(), touched.end(), true) - touched.begin());
    if (first < touched.size()) {
        appendNew(merged, dependentSets_[first]);
    }
    for (const long index : listed) {
        if (setWith(categoryLabel, index) == nullptr) {
            merged.push_back(index);
        }
    }
    std::vector<long> labels;
    std::vector<std::vector<long>> sets;
    for (std::size_t set = 0; set < touched.size(); ++set) {
        if (touched[set]) {
            appendNew(merged, dependentSets_[set]);
        }
        if (!touched[set] || set == first) {
            labels.push_back(dependentLabels_[set]);
            sets.push_back(dependentSets_[set]);
        }
    }
    if (first == touched.size()) {
        labels.push_back(categoryLabel);
        sets.emplace_back();
    }
    sets[first] = std::move(merged);
    dependentLabels_.swap(labels);
    dependentSets_.swap(sets);
}

bool ktClassifierDistributionTypes::isDependent(long categoryLabel, const std::vector<long>& measurementIndices) const
{
    requireLabel(categoryLabel);
    std::for_each(measurementIndices.begin(), measurementIndices.end(), requireIndex);
    if (measurementIndices.empty()) {
        return false;
    }
    const std::vector<long>* set = setWith(categoryLabel, measurementIndices.front());
    return set != nullptr && std::all_of(measurementIndices.begin(), measurementIndices.end(),
                                         [&](long index) { return contains(*set, index); });
}

bool ktClassifierDistributionTypes::operator==(const ktClassifierDistributionTypes& other) const
{
    return defaultType_ == other.defaultType_ && overrideLabels_ == other.overrideLabels_ &&
           overrideIndices_ == other.overrideIndices_ && overrideTypes_ == other.overrideTypes_ &&
           dependentLabels_ == other.dependentLabels_ && dependentSets_ == other.dependentSets_;
}

long ktClassifierDistributionTypes::distOverrideIndex_(long categoryLabel, long measurementIndex) const
{
    requireLabel(categoryLabel);
    requireIndex(measurementIndex);
    // A damaged archive may leave sequences of different lengths.
    const std::size_t size = std::min({overrideLabels_.size(), overrideIndices_.size(), overrideTypes_.size()});
    for (std::size_t i = 0; i < size; ++i) {
        if (overrideLabels_[i] == categoryLabel && overrideIndices_[i] == measurementIndex) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

std::size_t ktClassifierDistributionTypes::numSets() const
{
    return std::min(dependentLabels_.size(), dependentSets_.size());
}

bool ktClassifierDistributionTypes::isSetWith(std::size_t set, long categoryLabel, long measurementIndex) const
{
    return dependentLabels_[set] == categoryLabel && contains(dependentSets_[set], measurementIndex);
}

/// The first set of the category that contains the measurement, or null.
const std::vector<long>* ktClassifierDistributionTypes::setWith(long categoryLabel, long measurementIndex) const
{
    for (std::size_t set = 0; set < numSets(); ++set) {
        if (isSetWith(set, categoryLabel, measurementIndex)) {
            return &dependentSets_[set];
        }
    }
    return nullptr;
}

ktArchive& operator||(ktArchive& archive, ktClassifierDistributionTypes::DistributionType& type)
{
    unsigned long value = type;
    archive || value;
    if (archive.isLoading()) {
        // Storing must not write even the same value: two threads may store objects that share these types.
        type = static_cast<ktClassifierDistributionTypes::DistributionType>(value);
    }
    return archive;
}

ktArchive& operator||(ktArchive& archive, ktClassifierDistributionTypes& types)
{
    const ktArchive::Pass pass(archive);
    archive.version("clss/clastool/bayes", 262);
    return archive || types.defaultType_ || types.overrideLabels_ || types.overrideIndices_ || types.overrideTypes_ ||
           types.dependentLabels_ || types.dependentSets_;
}
