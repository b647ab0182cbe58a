#include <clastool/bayes.h>

#include "sub_pattern.h"

#include <algorithm>
#include <string>
#include <typeinfo>

namespace {

using Types = ktClassifierDistributionTypes;

kt_ProbabilityDensityFunction* newDensity(Types::DistributionType type, const ktFeaturePattern& maxValues,
                                          const std::vector<long>& group)
{
    switch (type) {
    case Types::eNormal:
        return new kt_PDFMultivariateNormal;
    case Types::eBinomial: {
        kt_SubPattern part(maxValues, group);
        const ktNormalDensity::Row maximum = part.row();
        const bool isGiven = maximum.size > 0 && maximum.valid[0];
        return new kt_PDFBinomial(ktFeaturePattern({isGiven ? maximum.values[0] : 1.0}, {}));
    }
    case Types::ePoisson:
        throw ktClassifierDefs::NotImplemented("Poisson distribution is not implemented");
    case Types::eUniform:
        throw ktClassifierDefs::NotImplemented("Uniform distribution is not implemented");
    }
    throw ktClassifierDefs::BadParams("Unknown distribution type");
}

/// The density as the given class, if it is exactly that: one derived from it may do everything in its own way.
template <class Density>
Density* exactly(kt_ProbabilityDensityFunction& density)
{
    return typeid(density) == typeid(Density) ? static_cast<Density*>(&density) : nullptr;
}

}  // namespace

kt_CategoryModel::kt_CategoryModel() = default;
kt_CategoryModel::kt_CategoryModel(const kt_CategoryModel&) = default;
kt_CategoryModel& kt_CategoryModel::operator=(const kt_CategoryModel&) = default;
kt_CategoryModel::~kt_CategoryModel() = default;

bool kt_CategoryModel::operator==(const kt_CategoryModel& other) const
{
    return label_ == other.label_ && numMeasurements_ == other.numMeasurements_;
}

void kt_CategoryModel::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_CategoryModel::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
    archive || label_ || numMeasurements_;
}

const kt_Instantiator kt_CategoryModelBayesian::sExemplar(typeid(kt_CategoryModelBayesian),
                                                          &kt_CategoryModelBayesian::make);

ktPersistent* kt_CategoryModelBayesian::make()
{
    return new kt_CategoryModelBayesian;
}

kt_CategoryModelBayesian::kt_CategoryModelBayesian() = default;

kt_CategoryModelBayesian::kt_CategoryModelBayesian(long categoryLabel, const std::vector<std::vector<long>>& groups,
                                                   const std::vector<Types::DistributionType>& types,
                                                   const ktFeaturePattern& maxValues)
    : groups_(groups), densities_(types.size())
{
    const std::vector<long> none;
    std::size_t total = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        const std::vector<long>& group = i < groups_.size() ? groups_[i] : none;
        densities_[i] = newDensity(types[i], maxValues, group);
        total += group.size();
    }
    this->categoryLabel(categoryLabel);
    numMeasurements(static_cast<long>(total));
}

kt_CategoryModelBayesian::kt_CategoryModelBayesian(const kt_CategoryModelBayesian&) = default;

kt_CategoryModelBayesian& kt_CategoryModelBayesian::operator=(const kt_CategoryModelBayesian& other)
{
    kt_CategoryModelBayesian copy(other);
    kt_CategoryModel::operator=(other);
    groups_.swap(copy.groups_);
    densities_.swap(copy.densities_);
    return *this;
}

kt_CategoryModelBayesian::~kt_CategoryModelBayesian() = default;

/// A loaded model may be damaged: it need not have a group for every density.
std::size_t kt_CategoryModelBayesian::numGroups() const
{
    return std::min(groups_.size(), densities_.size());
}

/// How many measurements the groups name altogether.
std::size_t kt_CategoryModelBayesian::groupSizes() const
{
    std::size_t total = 0;
    for (const std::vector<long>& group : groups_) {
        total += group.size();
    }
    return total;
}

double kt_CategoryModelBayesian::matchScore(const ktFeaturePattern& pattern, ktDiagObject*, unsigned long) const
{
    try {
        double sum = 0.0;
        for (std::size_t i = 0; i < numGroups(); ++i) {
            sum += logValueOf(i, pattern);
        }
        return sum;
    } catch (const ktClassifierDefs::InsufficientTrainData& error) {
        throw ktClassifierDefs::InsufficientTrainData(error.message() + " for category " +
                                                      std::to_string(categoryLabel()));
    }
}

double kt_CategoryModelBayesian::logValueOf(std::size_t group, const ktFeaturePattern& pattern) const
{
    kt_ProbabilityDensityFunction& density = *densities_[group];
    kt_SubPattern part(pattern, groups_[group]);
    if (const auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
        return normal->logValueAt(part.row());
    }
    if (const auto* binomial = exactly<kt_PDFBinomial>(density)) {
        return binomial->logValueAt(part.row());
    }
    return density.logValue(part.pattern());
}

void kt_CategoryModelBayesian::adapt(const ktFeaturePattern& pattern, ktDiagObject*, unsigned long)
{
    // Everything that can fail comes first. A density that had learnt nothing takes its size from this pattern; if a later
    // one refuses the pattern, it must be without a size again.
    const std::size_t size = numGroups();
    kt_Scratch<bool> wasUnused(size);
    std::size_t prepared = 0;
    try {
        for (; prepared < size; ++prepared) {
            wasUnused[prepared] = prepare(prepared, pattern);
        }
    } catch (...) {
        for (std::size_t i = 0; i < prepared; ++i) {
            if (wasUnused[i]) {
                stateOf(i)->clear();
            }
        }
        throw;
    }
    for (std::size_t i = 0; i < size; ++i) {
        learn(i, pattern);
    }
}

/// The state that the group's density learns with, or null for a class of the caller's own.
ktNormalDensity* kt_CategoryModelBayesian::stateOf(std::size_t group) const
{
    kt_ProbabilityDensityFunction& density = *densities_[group];
    if (auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
        return &normal->state_;
    }
    if (auto* binomial = exactly<kt_PDFBinomial>(density)) {
        return &binomial->accumulator_.state_;
    }
    return nullptr;
}

/// Checks that the group's density can learn the pattern and makes room for it. Returns whether it had no size before.
bool kt_CategoryModelBayesian::prepare(std::size_t group, const ktFeaturePattern& pattern)
{
    kt_SubPattern part(pattern, groups_[group]);
    const ktNormalDensity* state = stateOf(group);
    if (state == nullptr) {
        return false;
    }
    const bool wasUnused = state->isUnused();
    if (auto* binomial = exactly<kt_PDFBinomial>(*densities_[group])) {
        binomial->prepareFor(part.row());
    } else {
        exactly<kt_PDFMultivariateNormal>(*densities_[group])->prepareFor(part.row());
    }
    return wasUnused;
}

void kt_CategoryModelBayesian::learn(std::size_t group, const ktFeaturePattern& pattern)
{
    kt_ProbabilityDensityFunction& density = *densities_[group];
    kt_SubPattern part(pattern, groups_[group]);
    if (auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
        normal->learn(part.row());
    } else if (auto* binomial = exactly<kt_PDFBinomial>(density)) {
        binomial->learn(part.row());
    } else {
        density.updateWithData({part.pattern()});
    }
}

bool kt_CategoryModelBayesian::operator==(const kt_CategoryModelBayesian& other) const
{
    if (kt_CategoryModel::operator!=(other) || densities_.size() != other.densities_.size()) {
        return false;
    }
    for (std::size_t i = 0; i < densities_.size(); ++i) {
        if (!densities_[i]->isEquivalent(*other.densities_[i])) {
            return false;
        }
    }
    return true;
}

void kt_CategoryModelBayesian::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_CategoryModelBayesian::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    kt_CategoryModel::dispatchSerialize(archive);
    archive || groups_ || densities_;
}
