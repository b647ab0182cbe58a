#include <clastool/kit/learning.h>

#include "access.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <typeinfo>
#include <utility>

// Copies of a tool share their models, so a model is never changed in place. A copy of it with its own densities learns. A new
// classifier then takes the copy, after everything else has succeeded.

namespace {

using Access = kt_KitAccess;
using Model = ktPtrHandle<kt_CategoryModelBayesian>;

constexpr const char* foreignDensity = "A density is neither normal nor binomial";

/// The density as the given class, null for any other class: a derived class may override everything.
template <class Class>
Class* exactly(kt_ProbabilityDensityFunction& density)
{
    return typeid(density) == typeid(Class) ? static_cast<Class*>(&density) : nullptr;
}

kt_CategoryModelBayesian& asBayesian(kt_CategoryModel& model)
{
    if (typeid(model) != typeid(kt_CategoryModelBayesian)) {
        throw ktBadPointer();
    }
    return static_cast<kt_CategoryModelBayesian&>(model);
}

/// The densities of a model, checked: one for each group, each normal or binomial.
const Access::Densities& checkedDensities(const kt_CategoryModelBayesian& model)
{
    const Access::Densities& densities = Access::densities(model);
    if (densities.size() != Access::groups(model).size()) {
        throw ktBadPointer();
    }
    for (const auto& density : densities) {
        if (exactly<kt_PDFMultivariateNormal>(*density) == nullptr && exactly<kt_PDFBinomial>(*density) == nullptr) {
            throw ktClassifierDefs::NotImplemented(foreignDensity);
        }
    }
    return densities;
}

void fill(ktKit::Density& filled, kt_PDFMultivariateNormal& normal)
{
    const ktNormalDensity& state = Access::state(normal);
    filled.mean.assign(state.mean().data(), state.mean().data() + state.mean().numRows() * state.mean().numColumns());
    filled.covariance = state.covariance();
    filled.count = state.count();
}

void fill(ktKit::Density& filled, kt_PDFBinomial& binomial)
{
    filled.type = ktClassifierDistributionTypes::eBinomial;
    filled.count = Access::state(Access::accumulator(binomial)).count();
    filled.numTrials = binomial.numTrials();
    filled.theta = binomial.theta();
}

/// A copy of the model that shares no density with it.
Model ownCopy(const kt_CategoryModelBayesian& model)
{
    Model copy = new kt_CategoryModelBayesian(model);
    for (auto& density : Access::densities(*copy)) {
        if (auto* normal = exactly<kt_PDFMultivariateNormal>(*density)) {
            density = new kt_PDFMultivariateNormal(*normal);
        } else {
            density = new kt_PDFBinomial(static_cast<kt_PDFBinomial&>(*density));
        }
    }
    return copy;
}

/// The models of a Bayesian classifier, checked, and which of them are copies that may change.
class Models {
public:
    explicit Models(kt_ClassifierBayesian& classifier)
        : classifier_(classifier), models_(Access::models(classifier)), isOwn_(models_.size())
    {
        for (const auto& model : models_) {
            checkedDensities(asBayesian(*model));
        }
    }

    std::size_t size() const { return models_.size(); }
    kt_CategoryModelBayesian& at(std::size_t place) const { return asBayesian(*models_[place]); }
    /// The place of the model with this label; size() if there is none.
    std::size_t find(long label) const
    {
        const auto isIt = [label](const auto& model) { return model->categoryLabel() == label; };
        return static_cast<std::size_t>(std::find_if(models_.begin(), models_.end(), isIt) - models_.begin());
    }
    /// The model at the place, for changes: a copy that nobody shares.
    kt_CategoryModelBayesian& own(std::size_t place)
    {
        if (!isOwn_[place]) {
            models_[place] = ownCopy(at(place));
            isOwn_[place] = true;
        }
        return at(place);
    }
    void append(const Model& model)
    {
        models_.push_back(model);
        isOwn_.push_back(true);
    }

    /// Throws for a loaded binomial density whose accumulated patterns the archive did not hold.
    void requireKnown() const
    {
        for (const auto& model : models_) {
            for (const auto& density : Access::densities(asBayesian(*model))) {
                auto* binomial = exactly<kt_PDFBinomial>(*density);
                const bool isKnown = binomial == nullptr || !Access::isLoaded(classifier_) ||
                                     Access::state(Access::accumulator(*binomial)).count() > 0;
                if (!isKnown) {
                    throw ktClassifierDefs::BadMethod(
                        "A binomial density from an archive cannot learn further: ktKit::save keeps what that takes");
                }
            }
        }
    }

    /// A classifier like the one given to the constructor, but with these models.
    ktPtrHandle<kt_Classifier> classifier() const
    {
        const ktPtrHandle<kt_ClassifierBayesian> made = new kt_ClassifierBayesian(classifier_);
        std::vector<long> labels;
        for (const auto& model : models_) {
            labels.push_back(model->categoryLabel());
        }
        Access::labels(*made) = labels;
        Access::models(*made) = models_;
        Access::evaluated(*made) = evaluated();
        return made;
    }

private:
    /// The models that are evaluated in place of these. Loading a classifier makes them, so this stores and loads one. Labels may be too
    /// large for an archive, so it uses places instead.
    Access::Models evaluated() const
    {
        kt_ClassifierBayesian plain;
        for (std::size_t i = 0; i < models_.size(); ++i) {
            const Model model = new kt_CategoryModelBayesian(at(i));
            model->categoryLabel(static_cast<long>(i));
            Access::labels(plain).push_back(static_cast<long>(i));
            Access::models(plain).push_back(model);
        }
        std::stringstream bytes;
        ktArchive store(static_cast<std::ostream&>(bytes));
        store || plain;
        kt_ClassifierBayesian loaded;
        ktArchive load(static_cast<std::istream&>(bytes));
        load || loaded;
        Access::Models evaluated = Access::evaluated(loaded);
        for (std::size_t i = 0; i < models_.size(); ++i) {
            evaluated[i]->categoryLabel(models_[i]->categoryLabel());
        }
        return evaluated;
    }

    kt_ClassifierBayesian& classifier_;
    Access::Models models_;
    std::vector<bool> isOwn_;
};

/// Throws what training on the patterns would throw.
void requirePatterns(const ktKit::Patterns& patterns, const std::vector<long>& labels, long numMeasurements,
                     bool allValid)
{
    if (patterns.size() != labels.size()) {
        throw ktClassifierDefs::BadFeatures(
            "The number of the feature patterns must be equal to the number of category labels");
    }
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        if (patterns[i]->numMeasurements() != numMeasurements) {
            throw ktClassifierDefs::BadFeatures(
                "Feature pattern must have the same number of measurements as the rest of the data.");
        }
        if (allValid && patterns[i]->numInvalid() > 0) {
            throw ktClassifierDefs::BadFeatures(
                "K-nearest neighbor classification does not support invalid measurements");
        }
        if (labels[i] < -1) {
            throw ktClassifierDefs::BadLabel("Category labels must be >= 0 or unknown");
        }
    }
}

ktPtrHandle<kt_Classifier> withKept(kt_ClassifierKNN& classifier, const ktKit::Patterns& patterns,
                                    const std::vector<long>& labels)
{
    ktClassifierDataProviderMemory& old = *Access::kept(classifier);
    const bool isFirst = old.numPatterns() == 0 && !patterns.empty();
    requirePatterns(patterns, labels, isFirst ? patterns.front()->numMeasurements() : old.numMeasurements(), true);
    const ktPtrHandle<ktClassifierDataProviderMemory> kept = new ktClassifierDataProviderMemory(old);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        if (labels[i] != -1) {
            kept->addData(patterns[i], labels[i]);
        }
    }
    const ktPtrHandle<kt_ClassifierKNN> made = new kt_ClassifierKNN(classifier);
    Access::kept(*made) = kept;
    Access::remakeCopy(*made);
    return made;
}

const ktClassifierTrainParamsBayesian& bayesianParams(const kt_Classifier& classifier)
{
    const auto* params = dynamic_cast<const ktClassifierTrainParamsBayesian*>(Access::params(classifier));
    if (params == nullptr) {
        throw ktBadPointer();
    }
    return *params;
}

ktPtrHandle<kt_Classifier> withLearnt(kt_ClassifierBayesian& classifier, const ktKit::Patterns& patterns,
                                      const std::vector<long>& labels)
{
    Models models(classifier);
    const long numMeasurements = models.at(0).numMeasurements();
    requirePatterns(patterns, labels, numMeasurements, false);
    models.requireKnown();
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        if (labels[i] == -1) {
            continue;
        }
        const std::size_t place = models.find(labels[i]);
        if (place == models.size()) {
            models.append(Access::newModel(labels[i], numMeasurements, bayesianParams(classifier)));
        }
        models.own(place).adapt(*patterns[i], nullptr, 0);
    }
    return models.classifier();
}

/// Adds the state of the other density to `mine`.
void join(ktNormalDensity& mine, const ktNormalDensity& other)
{
    if (other.count() < 1) {
        return;
    }
    if (mine.count() < 1) {
        mine.restore(other.mean(), other.covariance(), other.count());
        return;
    }
    const double a = static_cast<double>(mine.count());
    const double b = static_cast<double>(other.count());
    const double n = a + b;
    const long size = mine.mean().numRows();
    ktNMMatrix mean = mine.mean();
    ktNMMatrix covariance = mine.covariance();
    for (long i = 0; i < size; ++i) {
        const double di = other.mean()(i, 0) - mine.mean()(i, 0);
        mean(i, 0) += di * (b / n);
        for (long j = 0; j < size; ++j) {
            const double dj = other.mean()(j, 0) - mine.mean()(j, 0);
            const double within = (a - 1) * mine.covariance()(i, j) + (b - 1) * other.covariance()(i, j);
            covariance(i, j) = (within + di * dj * (a * (b / n))) / (n - 1);
        }
    }
    constexpr double most = std::numeric_limits<std::int32_t>::max();
    mine.restore(mean, covariance, static_cast<long>(std::min(n, most)));
}

void join(kt_CategoryModelBayesian& mine, const kt_CategoryModelBayesian& other)
{
    for (std::size_t group = 0; group < Access::densities(mine).size(); ++group) {
        kt_ProbabilityDensityFunction& density = *Access::densities(mine)[group];
        kt_ProbabilityDensityFunction& others = *Access::densities(other)[group];
        if (auto* normal = exactly<kt_PDFMultivariateNormal>(density)) {
            join(Access::state(*normal), Access::state(static_cast<kt_PDFMultivariateNormal&>(others)));
            continue;
        }
        auto& binomial = static_cast<kt_PDFBinomial&>(density);
        kt_PDFMultivariateNormal& added = Access::accumulator(static_cast<kt_PDFBinomial&>(others));
        join(Access::state(Access::accumulator(binomial)), Access::state(added));
        Access::estimate(binomial);
    }
}

/// Whether the state of a density has this number of measurements; a damaged archive may leave any number.
bool hasSize(const ktNormalDensity& state, std::size_t size)
{
    const auto rows = static_cast<long>(size);
    return state.count() < 1 || (state.mean().numRows() == rows && state.mean().numColumns() == 1 &&
                                 state.covariance().numRows() == rows && state.covariance().numColumns() == rows);
}

/// Whether the state of each density fits its group.
bool isConsistent(const kt_CategoryModelBayesian& model)
{
    for (std::size_t group = 0; group < Access::densities(model).size(); ++group) {
        kt_ProbabilityDensityFunction& density = *Access::densities(model)[group];
        auto* normal = exactly<kt_PDFMultivariateNormal>(density);
        const bool isRight =
            normal != nullptr ? hasSize(Access::state(*normal), Access::groups(model)[group].size())
                              : hasSize(Access::state(Access::accumulator(static_cast<kt_PDFBinomial&>(density))), 1);
        if (!isRight) {
            return false;
        }
    }
    return true;
}

/// Whether both have the same groups, with the same kind of density in each.
bool isAlike(const kt_CategoryModelBayesian& a, const kt_CategoryModelBayesian& b)
{
    const auto isSame = [](const auto& mine, const auto& other) {
        const kt_ProbabilityDensityFunction& one = *mine;
        const kt_ProbabilityDensityFunction& two = *other;
        return typeid(one) == typeid(two);
    };
    const Access::Densities& mine = Access::densities(a);
    const Access::Densities& other = Access::densities(b);
    return isConsistent(a) && isConsistent(b) && Access::groups(a) == Access::groups(b) &&
           std::equal(mine.begin(), mine.end(), other.begin(), other.end(), isSame);
}

/// Puts the classifier into the tool. Throws if it cannot run and its parameters demand that it can.
void replaceClassifier(ktClassifierTool& tool, const ktPtrHandle<kt_Classifier>& classifier)
{
    const ktClassifierTrainParams* const params = Access::params(*classifier);
    if (params != nullptr && params->throwIfNotReady()) {
        Access::checkRunnable(*classifier);
    }
    Access::replaceClassifier(tool, classifier);
}

kt_ClassifierBayesian& requireMergeable(const ktClassifierTool& tool)
{
    auto* classifier = Access::classifierAs<kt_ClassifierBayesian>(tool);
    if (classifier == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tools must be trained by Bayes to be merged");
    }
    return *classifier;
}

}  // namespace

std::vector<ktKit::Density> ktKit::densities(const ktClassifierTool& tool)
{
    if (!tool.isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before requesting the densities");
    }
    auto* classifier = Access::classifierAs<kt_ClassifierBayesian>(tool);
    if (classifier == nullptr) {
        throw ktClassifierDefs::BadMethod("Classifier tool was not trained by Bayes");
    }
    std::vector<Density> all;
    for (const auto& held : Access::models(*classifier)) {
        const kt_CategoryModelBayesian& model = asBayesian(*held);
        const Access::Densities& densities = checkedDensities(model);
        for (std::size_t group = 0; group < densities.size(); ++group) {
            Density density;
            density.label = model.categoryLabel();
            density.measurements = Access::groups(model)[group];
            if (auto* normal = exactly<kt_PDFMultivariateNormal>(*densities[group])) {
                fill(density, *normal);
            } else {
                fill(density, static_cast<kt_PDFBinomial&>(*densities[group]));
            }
            all.push_back(std::move(density));
        }
    }
    return all;
}

void ktKit::add(ktClassifierTool& tool, const Patterns& patterns, const std::vector<long>& labels)
{
    if (!tool.isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tool must be trained before incremental training.");
    }
    if (auto* neighbors = Access::classifierAs<kt_ClassifierKNN>(tool)) {
        replaceClassifier(tool, withKept(*neighbors, patterns, labels));
    } else if (auto* bayes = Access::classifierAs<kt_ClassifierBayesian>(tool)) {
        replaceClassifier(tool, withLearnt(*bayes, patterns, labels));
    } else {
        throw ktClassifierDefs::BadMethod("Classifier tool was trained neither for nearest neighbors nor by Bayes");
    }
}

void ktKit::merge(ktClassifierTool& tool, const ktClassifierTool& other)
{
    if (!tool.isTrained() || !other.isTrained()) {
        throw ktClassifierDefs::NotTrained("Classifier tools must be trained before they are merged");
    }
    kt_ClassifierBayesian& mine = requireMergeable(tool);
    kt_ClassifierBayesian& others = requireMergeable(other);
    if (bayesianParams(mine) != bayesianParams(others)) {
        throw ktClassifierDefs::BadParams("Classifier tools must be trained with equal parameters to be merged");
    }
    Models models(mine);
    const Models added(others);
    const auto requireAlike = [](bool isRight) {
        if (!isRight) {
            throw ktClassifierDefs::BadFeatures(
                "Classifier tools must be trained on the same measurements to be merged");
        }
    };
    for (std::size_t i = 0; i < added.size(); ++i) {
        const std::size_t place = models.find(added.at(i).categoryLabel());
        requireAlike(added.at(i).numMeasurements() == models.at(0).numMeasurements());
        requireAlike(place == models.size() || isAlike(models.at(place), added.at(i)));
    }
    models.requireKnown();
    added.requireKnown();
    for (std::size_t i = 0; i < added.size(); ++i) {
        const std::size_t place = models.find(added.at(i).categoryLabel());
        if (place == models.size()) {
            models.append(ownCopy(added.at(i)));
        } else {
            join(models.own(place), added.at(i));
        }
    }
    replaceClassifier(tool, models.classifier());
}
