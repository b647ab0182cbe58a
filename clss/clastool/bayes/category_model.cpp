#include <clastool/bayes.h>

#include "sub_pattern.h"

#include <algorithm>
#include <memory>
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

/// The groups of a single measurement with a normal density, side by side, so that a run need not visit their densities one
/// by one.
struct kt_CategoryModelBayesian::Singles {
    unsigned long revision;
    /// Behind the last of the consecutive single groups that begin here; here where the group is none.
    std::vector<std::size_t> runEnds;
    std::vector<std::size_t> indices;
    std::vector<ktNormalDensity::Single> constants;
    /// How many measurements a pattern must have.
    std::size_t reach = 0;

    /// Adds the log densities of groups [begin, end) to the sum, in their order. The same operations as the density's own,
    /// in two loops, of which the first has no step that waits for the one before.
    double add(double sum, std::size_t begin, std::size_t end, const double* values) const
    {
        constexpr std::size_t block = 32;
        double logs[block];
        for (std::size_t first = begin; first < end; first += block) {
            const std::size_t size = std::min(block, end - first);
            for (std::size_t i = 0; i < size; ++i) {
                const ktNormalDensity::Single& density = constants[first + i];
                const double z = density.inverseDeviation * (values[indices[first + i]] - density.mean);
                logs[i] = ktNormalDensity::held(density.logScale - 0.5 * (z * z));
            }
            for (std::size_t i = 0; i < size; ++i) {
                sum += logs[i];
            }
        }
        return sum;
    }
};

kt_CategoryModelBayesian::kt_CategoryModelBayesian(const kt_CategoryModelBayesian& other)
    : kt_CategoryModel(other), groups_(other.groups_), densities_(other.densities_)
{
}

kt_CategoryModelBayesian& kt_CategoryModelBayesian::operator=(const kt_CategoryModelBayesian& other)
{
    kt_CategoryModelBayesian copy(other);
    kt_CategoryModel::operator=(other);
    dropSingles();
    groups_.swap(copy.groups_);
    densities_.swap(copy.densities_);
    return *this;
}

kt_CategoryModelBayesian::~kt_CategoryModelBayesian()
{
    dropSingles();
}

void kt_CategoryModelBayesian::dropSingles() noexcept
{
    delete singles_.exchange(nullptr, std::memory_order_acquire);
}

/// The single groups, if they are up to date. Densities are shared with copies of the model, which may have changed them.
const kt_CategoryModelBayesian::Singles* kt_CategoryModelBayesian::singles() const
{
    const unsigned long revision = ktNormalDensity::evaluatedRevision();
    if (const Singles* published = singles_.load(std::memory_order_acquire)) {
        return published->revision == revision ? published : nullptr;
    }
    auto fresh = std::make_unique<Singles>();
    const std::size_t size = numGroups();
    fresh->revision = revision;
    fresh->runEnds.resize(size);
    fresh->indices.resize(size);
    fresh->constants.resize(size);
    for (std::size_t i = size; i-- > 0;) {
        fresh->runEnds[i] = i;
        const auto* normal = densities_[i] ? exactly<kt_PDFMultivariateNormal>(*densities_[i]) : nullptr;
        const bool isSingle = normal != nullptr && groups_[i].size() == 1 && groups_[i].front() >= 0;
        if (isSingle && normal->state_.single(fresh->constants[i])) {
            fresh->indices[i] = static_cast<std::size_t>(groups_[i].front());
            fresh->reach = std::max(fresh->reach, fresh->indices[i] + 1);
            const bool joinsNext = i + 1 < size && fresh->runEnds[i + 1] > i + 1;
            fresh->runEnds[i] = joinsNext ? fresh->runEnds[i + 1] : i + 1;
        }
    }
    // Several threads may have come this far; the first to publish wins.
    const Singles* expected = nullptr;
    if (singles_.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
        return fresh.release();
    }
    return expected;
}

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
        const std::vector<double>& values = pattern.featureMeasurements(false);
        const Singles* side = pattern.numInvalid() == 0 ? singles() : nullptr;
        if (side != nullptr && values.size() < side->reach) {
            side = nullptr;
        }
        double sum = 0.0;
        for (std::size_t i = 0; i < numGroups();) {
            const std::size_t end = side != nullptr ? side->runEnds[i] : i;
            if (end > i) {
                sum = side->add(sum, i, end, values.data());
                i = end;
            } else {
                sum += logValueOf(i, pattern);
                ++i;
            }
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
    return density.logValue(kt_SubPattern::pattern(part.row()));
}

void kt_CategoryModelBayesian::adapt(const ktFeaturePattern& pattern, ktDiagObject*, unsigned long)
{
    // Everything that can fail comes first. A density that had learnt nothing takes its size from this pattern; if a later
    // one refuses the pattern, it must be without a size again.
    const std::size_t size = numGroups();
    std::size_t largest = 0;
    for (const std::vector<long>& group : groups_) {
        largest = std::max(largest, group.size());
    }
    kt_SubPattern part(largest);
    kt_Scratch<bool> wasUnused(size);
    std::size_t prepared = 0;
    try {
        for (; prepared < size; ++prepared) {
            const ktNormalDensity* state = stateOf(prepared);
            wasUnused[prepared] = state != nullptr && state->isUnused();
            prepare(prepared, part.take(pattern, groups_[prepared]));
        }
    } catch (...) {
        for (std::size_t i = 0; i < prepared; ++i) {
            if (wasUnused[i]) {
                stateOf(i)->clear();
            }
        }
        throw;
    }
    dropSingles();
    for (std::size_t i = 0; i < size; ++i) {
        learn(i, part.take(pattern, groups_[i]));
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

/// Checks that the group's density can learn its part of a pattern and makes room for it.
void kt_CategoryModelBayesian::prepare(std::size_t group, const ktNormalDensity::Row& row)
{
    kt_ProbabilityDensityFunction& density = *densities_[group];
    if (auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
        normal->prepareFor(row);
    } else if (auto* binomial = exactly<kt_PDFBinomial>(density)) {
        binomial->prepareFor(row);
    }
}

void kt_CategoryModelBayesian::learn(std::size_t group, const ktNormalDensity::Row& row)
{
    kt_ProbabilityDensityFunction& density = *densities_[group];
    if (auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
        normal->learn(row);
    } else if (auto* binomial = exactly<kt_PDFBinomial>(density)) {
        binomial->learn(row);
    } else {
        density.updateWithData({kt_SubPattern::pattern(row)});
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
    if (archive.isLoading()) {
        dropSingles();
    }
    archive || groups_ || densities_;
}
