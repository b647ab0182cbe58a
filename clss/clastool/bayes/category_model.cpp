#include <clastool/bayes.h>

#include "equal_pairs.h"
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

/// The measurements of a group, as its density asks for them. An index past the pattern's end counts as invalid.
class GroupSource : public ktNormalDensity::Source {
public:
    GroupSource(const ktFeaturePattern& pattern, const std::vector<long>& group) : pattern_(pattern), group_(group) {}

    /// Throws: ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0".
    bool measurement(std::size_t index, double& value) const override
    {
        value = pattern_.featureMeasurement(group_[index], false);
        return pattern_.isValid(group_[index]);
    }

private:
    const ktFeaturePattern& pattern_;
    const std::vector<long>& group_;
};

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

/// What a run needs of the groups with a normal density, laid out so that patterns need not be looked at one measurement at a
/// time.
struct kt_CategoryModelBayesian::Plan {
    /// Behind the last of the consecutive single groups that begin here; here where the group is none.
    std::vector<std::size_t> runEnds;
    /// The first measurement of the group.
    std::vector<std::size_t> indices;
    std::vector<double> means;
    std::vector<double> inverseDeviations;
    std::vector<double> logScales;
    /// What the densities of these were evaluated with.
    std::vector<std::uint64_t> evaluations;
    /// The density of the group, if it is a normal one.
    std::vector<const ktNormalDensity*> normals;
    /// The group's indices in the pattern; null if they follow one another.
    std::vector<const long*> scattered;
    /// How many measurements a pattern must have.
    std::size_t reach = 0;

    /// The revision of all densities at which this was last seen to be up to date.
    mutable std::atomic<unsigned long> revision;
    /// The plan before this one. Other threads may have been at the check that found it out of date, until a density changes
    /// the next time, which no run may meet.
    mutable std::unique_ptr<const Plan> previous;

    explicit Plan(std::size_t size)
        : runEnds(size),
          indices(size),
          means(size),
          inverseDeviations(size),
          logScales(size),
          evaluations(size),
          normals(size),
          scattered(size),
          revision(ktNormalDensity::evaluatedRevision())
    {
    }

    /// Densities are shared with copies of the model, through which they may have learnt since. While no density of the
    /// process has changed, none of these needs a visit.
    bool isUpToDate() const
    {
        const unsigned long now = ktNormalDensity::evaluatedRevision();
        if (revision.load(std::memory_order_relaxed) == now) {
            return true;
        }
        for (std::size_t i = 0; i < runEnds.size(); ++i) {
            if (runEnds[i] > i && normals[i]->evaluation() != evaluations[i]) {
                return false;
            }
        }
        revision.store(now, std::memory_order_relaxed);
        return true;
    }

    /// Adds the log densities of groups [begin, end) to the sum, in their order; a value that is not finite adds nothing. The
    /// same operations as the density's own, in two loops, of which the first has no step that waits for the one before.
    double add(double sum, std::size_t begin, std::size_t end, const double* values) const
    {
        constexpr std::size_t block = 32;
        double logs[block];
        for (std::size_t first = begin; first < end; first += block) {
            const std::size_t size = std::min(block, end - first);
            for (std::size_t i = 0; i < size; ++i) {
                logs[i] = values[indices[first + i]];
            }
            for (std::size_t i = 0; i < size; ++i) {
                const double value = logs[i];
                const double z = inverseDeviations[first + i] * (value - means[first + i]);
                const double log = ktNormalDensity::held(logScales[first + i] - 0.5 * (z * z));
                logs[i] = value - value == 0.0 ? log : 0.0;
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
    dropPlan();
    groups_.swap(copy.groups_);
    densities_.swap(copy.densities_);
    return *this;
}

kt_CategoryModelBayesian::~kt_CategoryModelBayesian()
{
    dropPlan();
}

void kt_CategoryModelBayesian::dropPlan() noexcept
{
    delete plan_.exchange(nullptr, std::memory_order_acquire);
}

const kt_CategoryModelBayesian::Plan* kt_CategoryModelBayesian::plan() const
{
    const Plan* old = plan_.load(std::memory_order_acquire);
    if (old != nullptr && old->isUpToDate()) {
        return old;
    }
    const std::size_t size = numGroups();
    auto fresh = std::make_unique<Plan>(size);
    for (std::size_t i = size; i-- > 0;) {
        fresh->runEnds[i] = i;
        const std::vector<long>& group = groups_[i];
        const auto* normal = densities_[i] ? exactly<kt_PDFMultivariateNormal>(*densities_[i]) : nullptr;
        if (normal == nullptr || group.empty() || *std::min_element(group.begin(), group.end()) < 0) {
            continue;
        }
        fresh->normals[i] = &normal->state_;
        const auto last = static_cast<std::size_t>(*std::max_element(group.begin(), group.end()));
        fresh->reach = std::max(fresh->reach, last + 1);
        fresh->indices[i] = static_cast<std::size_t>(group.front());
        const auto isNotNext = [](long index, long next) { return next - 1 != index; };
        const bool isInOrder = std::adjacent_find(group.begin(), group.end(), isNotNext) == group.end();
        fresh->scattered[i] = isInOrder ? nullptr : group.data();
        ktNormalDensity::Single single;
        if (group.size() == 1 && normal->state_.single(single)) {
            fresh->means[i] = single.mean;
            fresh->inverseDeviations[i] = single.inverseDeviation;
            fresh->logScales[i] = single.logScale;
            fresh->evaluations[i] = normal->state_.evaluation();
            const bool joinsNext = i + 1 < size && fresh->runEnds[i + 1] > i + 1;
            fresh->runEnds[i] = joinsNext ? fresh->runEnds[i + 1] : i + 1;
        }
    }
    // Several threads may have come this far; the first to publish wins.
    const Plan* current = old;
    const bool isFirst =
        plan_.compare_exchange_strong(current, fresh.get(), std::memory_order_acq_rel, std::memory_order_acquire);
    if (!isFirst) {  // not covered: another thread published its plan just now
        return current;
    }
    if (old != nullptr) {
        old->previous.reset();
        fresh->previous.reset(old);
    }
    return fresh.release();
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
    return scoreOf(pattern, kt_MeasuredValues(pattern));
}

/// The values are the pattern's.
double kt_CategoryModelBayesian::scoreOf(const ktFeaturePattern& pattern, const kt_MeasuredValues& values) const
{
    try {
        const Plan* whole = plan();
        if (values.size() < whole->reach) {
            whole = nullptr;
        }
        const std::size_t size = numGroups();
        double sum = 0.0;
        for (std::size_t i = 0; i < size;) {
            if (whole != nullptr && whole->runEnds[i] > i) {
                sum = whole->add(sum, i, whole->runEnds[i], values.data());
                i = whole->runEnds[i];
            } else if (whole != nullptr && whole->normals[i] != nullptr) {
                double value = 0.0;
                const long* indices = whole->scattered[i];
                const std::size_t number = groups_[i].size();
                kt_throwOnFailure(indices == nullptr
                                      ? whole->normals[i]->logDensity(values.data() + whole->indices[i], number, value)
                                      : whole->normals[i]->logDensity(values.data(), indices, number, value));
                sum += value;
                ++i;
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
    if (const auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
        double value = 0.0;
        kt_throwOnFailure(
            normal->state_.logDensity(GroupSource(pattern, groups_[group]), groups_[group].size(), value));
        return value;
    }
    kt_SubPattern part(pattern, groups_[group]);
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
            const ktNormalDensity::Row row = part.take(pattern, groups_[prepared]);
            if (isTaughtBy(pattern, prepared)) {
                prepare(prepared, row);
            }
        }
    } catch (...) {
        for (std::size_t i = 0; i < prepared; ++i) {
            if (wasUnused[i]) {
                stateOf(i)->clear();
            }
        }
        throw;
    }
    dropPlan();
    for (std::size_t i = 0; i < size; ++i) {
        if (isTaughtBy(pattern, i)) {
            learn(i, part.take(pattern, groups_[i]));
        }
    }
}

/// A normal density learns nothing from a pattern that lacks one of its measurements. So it makes no room, for more of them
/// than there are.
bool kt_CategoryModelBayesian::isTaughtBy(const ktFeaturePattern& pattern, std::size_t group) const
{
    const std::vector<long>& indices = groups_[group];
    const auto isThere = [&](long index) { return index < pattern.numMeasurements(); };
    return normalOf(group) == nullptr || std::all_of(indices.begin(), indices.end(), isThere);
}

/// Notes of each measurement whether a normal density judges it, and whether the value is near enough for one of them. The pattern was
/// evaluated before, so that all densities can be.
void kt_CategoryModelBayesian::noteReach(const ktFeaturePattern& pattern, std::vector<bool>& isJudged,
                                         std::vector<bool>& isReached) const
{
    for (std::size_t i = 0; i < numGroups(); ++i) {
        const ktNormalDensity* normal = normalOf(i);
        const std::vector<long>& group = groups_[i];
        for (std::size_t j = 0; normal != nullptr && j < group.size(); ++j) {
            const auto index = static_cast<std::size_t>(group[j]);
            if (index < isJudged.size()) {
                isJudged[index] = true;
                isReached[index] = isReached[index] || normal->reaches(j, pattern.featureMeasurement(group[j], false));
            }
        }
    }
}

/// The state of the group's density, or null if that is not a normal one.
ktNormalDensity* kt_CategoryModelBayesian::normalOf(std::size_t group) const
{
    auto* normal = exactly<kt_PDFMultivariateNormal>(*densities_[group]);
    return normal != nullptr ? &normal->state_ : nullptr;
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
    kt_EqualPairs known;
    return isEqual(other, known);
}

/// Leaves out what is known to be equal.
bool kt_CategoryModelBayesian::isEqual(const kt_CategoryModelBayesian& other, kt_EqualPairs& known) const
{
    if (kt_CategoryModel::operator!=(other) || densities_.size() != other.densities_.size()) {
        return false;
    }
    for (std::size_t i = 0; i < densities_.size(); ++i) {
        const kt_ProbabilityDensityFunction& mine = *densities_[i];
        const kt_ProbabilityDensityFunction& others = *other.densities_[i];
        if (known.add(&mine, &others) && !mine.isEquivalent(others)) {
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
        dropPlan();
    }
    archive || groups_ || densities_;
}
