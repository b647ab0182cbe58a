// A category as a product of densities, one for each group of measurements. docs/bayes.md says what groups are for,
// docs/numerics.md how densities are evaluated.
//
// An evaluation takes a pattern's values and returns the sum of the groups' log densities. The first evaluation makes a Plan and
// publishes it atomically. The plan holds a kt_GroupDensity for each group. Consecutive groups of a single normal measurement form a run;
// the plan holds their constants side by side, so that one loop evaluates the whole run. A changed density makes the plan out of date.
//
//     plan, scoreOf    evaluation
//     adapt            learning one pattern: first the steps that can fail, for all groups; then the change

#include <clastool/bayes.h>

#include "equal_pairs.h"
#include "group_density.h"
#include "sub_pattern.h"

#include <kt/compiler.h>

#include <algorithm>
#include <memory>
#include <string>

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

/// Not inlined, so that the loop over groups keeps a small stack frame.
KT_NOINLINE double logValueOf(const kt_GroupDensity& group, const ktFeaturePattern& pattern)
{
    return group.logValue(pattern);
}

}  // namespace

kt_CategoryModel::kt_CategoryModel() = default;

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

/// The constants of an evaluation, laid out so that normal densities read a pattern's values as one array.
struct kt_CategoryModelBayesian::Plan {
    struct Step {
        kt_GroupDensity group;
        /// The end of the run of single groups that begins with this group; the group's own place if it is not a single group.
        std::size_t runEnd;
        /// The group's density; null unless it is a normal density and no index is negative.
        const ktNormalDensity* normal = nullptr;
        /// The number of measurements in the group.
        std::size_t size = 0;
        /// Their indices in the pattern; null if the indices are consecutive.
        const long* scattered = nullptr;
    };
    /// One for each group, as in the vectors below.
    std::vector<Step> steps;
    /// The index of the group's first measurement.
    std::vector<std::size_t> indices;
    std::vector<double> means;
    std::vector<double> inverseDeviations;
    std::vector<double> logScales;
    /// The evaluation numbers of the densities that the constants come from.
    std::vector<std::uint64_t> evaluations;
    /// The least number of measurements with which a pattern has all indices of the normal densities.
    std::size_t reach = 0;

    /// The revision of all densities at the last check that found the plan up to date.
    mutable std::atomic<unsigned long> revision;
    /// The previous plan, which other threads may still be checking. It is freed when the next plan is made: before that a density
    /// changes, and no run may overlap the change.
    mutable std::unique_ptr<const Plan> previous;

    explicit Plan(std::size_t size)
        : steps(size),
          indices(size),
          means(size),
          inverseDeviations(size),
          logScales(size),
          evaluations(size),
          revision(ktNormalDensity::evaluatedRevision())
    {
    }

    /// Copies of the model share its densities, which may learn through these copies. If no density of the process has changed, no check
    /// is needed.
    bool isKnownUpToDate() const
    {
        return revision.load(std::memory_order_relaxed) == ktNormalDensity::evaluatedRevision();
    }

    /// Checks the densities. Notes the revision if none has changed.
    bool isUpToDate() const
    {
        const unsigned long now = ktNormalDensity::evaluatedRevision();
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (steps[i].runEnd > i && steps[i].normal->evaluation() != evaluations[i]) {
                return false;
            }
        }
        revision.store(now, std::memory_order_relaxed);
        return true;
    }

    /// Adds the log densities of groups [begin, end) to the sum, in their order. A value that is not finite adds 0. The operations are
    /// those of ktNormalDensity. The terms are independent, so a loop that compilers can vectorise computes them; another one adds them.
    /// Not inlined, so that the sum stays in a register.
    KT_NOINLINE double add(double sum, std::size_t begin, std::size_t end, const double* values) const
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
                const double log = ktNormalDensity::clampLog(logScales[first + i] - 0.5 * (z * z));
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
        Plan::Step& step = fresh->steps[i];
        step.runEnd = i;
        step.group = this->group(i);
        const std::vector<long>& group = groups_[i];
        const ktNormalDensity* normal = step.group.normal();
        if (normal == nullptr || group.empty() || *std::min_element(group.begin(), group.end()) < 0) {
            continue;
        }
        step.normal = normal;
        step.size = group.size();
        const auto last = static_cast<std::size_t>(*std::max_element(group.begin(), group.end()));
        fresh->reach = std::max(fresh->reach, last + 1);
        fresh->indices[i] = static_cast<std::size_t>(group.front());
        const auto isNotNext = [](long index, long next) { return next - 1 != index; };
        const bool isInOrder = std::adjacent_find(group.begin(), group.end(), isNotNext) == group.end();
        step.scattered = isInOrder ? nullptr : group.data();
        ktNormalDensity::Single single;
        if (group.size() == 1 && normal->single(single)) {
            fresh->means[i] = single.mean;
            fresh->inverseDeviations[i] = single.inverseDeviation;
            fresh->logScales[i] = single.logScale;
            fresh->evaluations[i] = normal->evaluation();
            const bool joinsNext = i + 1 < size && fresh->steps[i + 1].runEnd > i + 1;
            step.runEnd = joinsNext ? fresh->steps[i + 1].runEnd : i + 1;
        }
    }
    // Several threads may arrive here. All use the plan that the first thread publishes.
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

kt_GroupDensity kt_CategoryModelBayesian::group(std::size_t index) const
{
    return {groups_[index], densities_[index]};
}

/// A damaged archive may leave groups without densities, or densities without groups.
std::size_t kt_CategoryModelBayesian::numGroups() const
{
    return std::min(groups_.size(), densities_.size());
}

/// The sum of the groups' sizes.
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

/// Requires: `values` are those of the pattern.
double kt_CategoryModelBayesian::scoreOf(const ktFeaturePattern& pattern, const kt_MeasuredValues& values) const
{
    try {
        const Plan* known = plan_.load(std::memory_order_acquire);
        const Plan& plan = known != nullptr && known->isKnownUpToDate() ? *known : *this->plan();
        const bool isWhole = values.size() >= plan.reach;
        const std::size_t size = plan.steps.size();
        double sum = 0.0;
        for (std::size_t i = 0; i < size;) {
            const Plan::Step& step = plan.steps[i];
            if (isWhole && step.runEnd > i) {
                sum = plan.add(sum, i, step.runEnd, values.data());
                i = step.runEnd;
            } else if (isWhole && step.normal != nullptr) {
                double value = 0.0;
                kt_throwOnFailure(step.scattered == nullptr
                                      ? step.normal->logDensity(values.data() + plan.indices[i], step.size, value)
                                      : step.normal->logDensity(values.data(), step.scattered, step.size, value));
                sum += value;
                ++i;
            } else {
                sum += logValueOf(step.group, pattern);
                ++i;
            }
        }
        return sum;
    } catch (const ktClassifierDefs::InsufficientTrainData& error) {
        throw ktClassifierDefs::InsufficientTrainData(error.message() + " for category " +
                                                      std::to_string(categoryLabel()));
    }
}

void kt_CategoryModelBayesian::adapt(const ktFeaturePattern& pattern, ktDiagObject*, unsigned long)
{
    struct Learner {
        kt_GroupDensity density;
        bool wasUnused;
        bool isTaught;
    };
    // All steps that can fail come first. A density that had learnt nothing takes its size from this pattern. If a later density refuses
    // the pattern, it is cleared again.
    const std::size_t size = numGroups();
    std::size_t largest = 0;
    for (const std::vector<long>& group : groups_) {
        largest = std::max(largest, group.size());
    }
    kt_SubPattern part(largest);
    kt_Scratch<Learner> learners(size);
    std::size_t prepared = 0;
    try {
        for (; prepared < size; ++prepared) {
            const kt_GroupDensity density = group(prepared);
            learners[prepared] = {density, density.isUnused(), false};
            const ktNormalDensity::Row row = part.take(pattern, density.indices());
            if (density.isTaughtBy(pattern)) {
                density.prepare(row);
                learners[prepared].isTaught = true;
            }
        }
    } catch (...) {
        for (std::size_t i = 0; i < prepared; ++i) {
            if (learners[i].wasUnused) {
                learners[i].density.clear();
            }
        }
        throw;
    }
    dropPlan();
    for (const Learner& learner : learners) {
        if (learner.isTaught) {
            learner.density.learn(part.take(pattern, learner.density.indices()));
        }
    }
}

/// Sets `isJudged` for each measurement that a normal density models, and `isReached` if its value is within reach of one.
/// Requires: the pattern was evaluated before, so no density is missing.
void kt_CategoryModelBayesian::noteReach(const ktFeaturePattern& pattern, std::vector<bool>& isJudged,
                                         std::vector<bool>& isReached) const
{
    for (std::size_t i = 0; i < numGroups(); ++i) {
        const ktNormalDensity* normal = group(i).normal();
        const std::vector<long>& indices = groups_[i];
        for (std::size_t j = 0; normal != nullptr && j < indices.size(); ++j) {
            const auto index = static_cast<std::size_t>(indices[j]);
            if (index < isJudged.size()) {
                isJudged[index] = true;
                isReached[index] =
                    isReached[index] || normal->reaches(j, pattern.featureMeasurement(indices[j], false));
            }
        }
    }
}

bool kt_CategoryModelBayesian::operator==(const kt_CategoryModelBayesian& other) const
{
    kt_EqualPairs known;
    return isEqual(other, known);
}

/// Skips the pairs of densities that are known to be equal.
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
