#pragma once

#include "technique_models.h"

#include "support/neighbor_reference.h"

#include <functional>
#include <limits>

// The documented classifiers and the tool, written down as plainly as possible. They throw the library's own exceptions.

namespace tool_model {

/// The documented classifier: base and the three techniques in one.
struct Classifier {
    Technique technique;
    ParamsHandle stored;
    // Nearest neighbours: the kept patterns, shared with copies, and the parameters in use.
    std::shared_ptr<Data> kept;
    ParamsHandle inUse = std::make_shared<Params>();
    std::vector<Category> categories;
    TreeHandle tree;

    bool isTrained() const { return kept != nullptr || !categories.empty() || tree != nullptr; }

    void untrain()
    {
        if (isTrained()) {
            dropModel();
            stored = nullptr;
        }
    }

    void dropModel()
    {
        kept = nullptr;
        categories.clear();
        tree = nullptr;
    }

    void requireOwn(const ParamsHandle& params) const
    {
        if (params->technique != technique) {
            throw BadParams("The training parameters are for a different classification technique.");
        }
    }

    void train(const Data& data, const ParamsHandle& params)
    {
        untrain();
        switch (technique) {
        case Technique::knn:
            requireOwn(params);
            trainKnn(data, params);
            break;
        case Technique::bayes:
            requireOwn(params);
            trainBayes(data, *params);
            break;
        default:
            throw NotImplemented("Automatic decision tree training is not implemented.");
        }
        stored = params;
    }

    void trainKnn(const Data& data, const ParamsHandle& params)
    {
        inUse = params;
        kept = std::make_shared<Data>();
        kept->name = data.name;
        kept->description = data.description;
        for (const PatternHandle& pattern : data.patterns) {
            if (pattern->numInvalid() > 0) {
                throw BadFeatures("K-nearest neighbor classification does not support invalid measurements");
            }
        }
        for (std::size_t i = 0; i < data.patterns.size(); ++i) {
            if (data.labels[i] != -1) {
                kept->add(data.patterns[i], data.labels[i]);
            }
        }
    }

    void trainBayes(const Data& data, const Params& params)
    {
        for (std::size_t i = 0; i < data.patterns.size(); ++i) {
            const long label = data.labels[i];
            if (label == -1) {
                continue;
            }
            const auto isIt = [label](const Category& category) { return category.label == label; };
            const auto known = std::find_if(categories.begin(), categories.end(), isIt);
            if (known != categories.end()) {
                known->adapt(*data.patterns[i]);
            } else {
                Category category = newCategory(label, data.numMeasurements(), params);
                category.adapt(*data.patterns[i]);
                categories.push_back(category);
            }
        }
    }

    void trainStart(const ParamsHandle& params)
    {
        untrain();
        if (technique == Technique::tree) {
            throw NotImplemented("Incremental decision tree training is not implemented.");
        }
        stored = params;
    }

    void trainIncremental(const PatternHandle& pattern, long label)
    {
        if (!isTrained()) {
            throw NotTrained("Classifier tool must be trained before incremental training.");
        }
        if (technique == Technique::tree) {
            throw NotImplemented("Incremental decision tree training is not implemented.");
        }
        if (technique == Technique::knn) {
            kept->add(pattern, label);
        }
    }

    void retrain(const ParamsHandle& params)
    {
        if (!isTrained()) {
            throw NotTrained("Classifier tool must be trained before retraining.");
        }
        if (!stored || stored->technique != params->technique) {
            throw BadMethod("Cannot retrain with a different classification technique.");
        }
        requireOwn(params);
        if (technique == Technique::bayes) {
            if (stored->bayes.distributionTypes() != params->bayes.distributionTypes()) {
                throw BadParams("Cannot retrain a Bayesian classifier with different distribution types.");
            }
            if (stored->bayes.maxMeasurementValues() != params->bayes.maxMeasurementValues()) {
                throw BadParams("Cannot retrain a Bayesian classifier with different maximum measurements values.");
            }
        }
        inUse = params;
        stored = params;
    }

    void checkRunnable() const
    {
        if (technique == Technique::tree) {
            return;
        }
        if (technique == Technique::knn ? kept->patterns.empty() : categories.empty()) {
            throw InsufficientTrainData("No valid data was provided for training.");
        }
        if (technique == Technique::bayes) {
            const auto size = static_cast<std::size_t>(categories.front().numMeasurements());
            runBayes(Pattern(std::vector<double>(size, 0.0), {}));
        }
    }

    ktClassifierResult run(const Pattern& pattern) const
    {
        if (!isTrained()) {
            throw NotTrained("Classifier tool must be trained before running.");
        }
        switch (technique) {
        case Technique::knn:
            return runKnn(pattern);
        case Technique::bayes:
            return runBayes(pattern);
        default:
            return tree->run(pattern);
        }
    }

    ktClassifierResult runKnn(const Pattern& pattern) const
    {
        checkRunnable();
        if (pattern.numInvalid() > 0 || pattern.numMeasurements() != kept->numMeasurements()) {
            throw BadFeatures("K-nearest neighbor classification does not support invalid measurements");
        }
        kt_test::PlainNeighbors nearest{static_cast<std::size_t>(inUse->knn.k()), {}, {}};
        for (std::size_t i = 0; i < kept->patterns.size(); ++i) {
            const std::vector<double>& known = kept->patterns[i]->featureMeasurements(true);
            nearest.take(i, kt_test::plainDistance(pattern.featureMeasurements(true), known, inUse->order));
        }
        return kt_test::resultOfVotes(nearest.rows, kept->labels, inUse->knn.misclassificationCosts());
    }

    /// Whether a run depends on spreads that categories lend each other, or on measurements too far from all of them. The
    /// model knows nothing of either.
    bool isBeyondTheModel(const Pattern& pattern) const
    {
        const auto isFar = [&](const Category& category) { return !(category.matchScore(pattern) > -1e299); };
        return technique == Technique::bayes &&
               (std::any_of(categories.begin(), categories.end(), std::mem_fn(&Category::borrowsSpreads)) ||
                std::all_of(categories.begin(), categories.end(), isFar));
    }

    ktClassifierResult runBayes(const Pattern& pattern) const
    {
        std::vector<double> scores;
        for (const Category& category : categories) {
            scores.push_back(category.matchScore(pattern));
        }
        if (!stored) {
            throw ktBadPointer();
        }
        double best = -std::numeric_limits<double>::infinity();
        for (const double score : scores) {
            best = best >= score ? best : score;
        }
        const double factorLog = std::log(1.0) - best;
        std::vector<ktClassifierCategoryResult> matches;
        for (std::size_t i = 0; i < scores.size(); ++i) {
            matches.emplace_back(categories[i].label, std::exp(factorLog + scores[i]), 0.0, 0.0);
        }
        return {matches, stored->bayes.categoryFrequencies(), stored->bayes.misclassificationCosts(), factorLog};
    }

    const Params& trainParams() const
    {
        if (!isTrained()) {
            throw NotTrained("Classifier tool must be trained before requesting the training parameters.");
        }
        if (!stored) {
            throw BadMethod("Classifier tool was not automatically trained.");
        }
        return *stored;
    }

    bool isEquivalent(const Classifier& other) const
    {
        if (technique != other.technique || isTrained() != other.isTrained()) {
            return false;
        }
        if ((stored != nullptr) != (other.stored != nullptr) || (stored && !stored->equals(*other.stored))) {
            return false;
        }
        switch (technique) {
        case Technique::knn:
            return !isTrained() || kept->equals(*other.kept);
        case Technique::bayes:
            return haveEqualModels(other);
        default:
            if (!tree || !other.tree) {
                throw ktBadPointer();
            }
            return tree->equals(*other.tree);
        }
    }

    bool haveEqualModels(const Classifier& other) const
    {
        if (categories.size() != other.categories.size()) {
            return false;
        }
        for (std::size_t i = 0; i < categories.size(); ++i) {
            const Category& a = categories[i];
            const Category& b = other.categories[i];
            if (a.label != b.label || a.numMeasurements() != b.numMeasurements() ||
                a.densities.size() != b.densities.size()) {
                return false;
            }
            for (std::size_t j = 0; j < a.densities.size(); ++j) {
                if (!a.densities[j]->isEquivalent(*b.densities[j])) {
                    return false;
                }
            }
        }
        return true;
    }
};

/// The documented tool.
struct Tool {
    std::shared_ptr<Classifier> classifier;

    bool isTrained() const { return classifier && classifier->isTrained(); }

    void untrain() const
    {
        if (classifier) {
            classifier->untrain();
        }
    }

    void assign(const Tool& other)
    {
        const std::shared_ptr<Classifier> source = other.classifier;
        const bool isSelf = this == &other;
        classifier = nullptr;
        if (!isSelf && source && source->isTrained()) {
            classifier = std::make_shared<Classifier>(*source);
        }
    }

    void train(const Data& data, const ParamsHandle& params)
    {
        untrain();
        classifier = nullptr;
        if (params->technique == Technique::throwing) {
            throw NotImplemented("The classification method specified by the training parameters is not implemented.");
        }
        if (params->technique == Technique::none) {
            throw ktBadPointer();
        }
        classifier = std::make_shared<Classifier>();
        classifier->technique = params->technique;
        try {
            classifier->train(data, params);
        } catch (...) {
            classifier = nullptr;
            throw;
        }
        untrainIfNotRunnable(params);
    }

    void train(const TreeHandle& tree)
    {
        untrain();
        classifier = std::make_shared<Classifier>();
        classifier->technique = Technique::tree;
        classifier->tree = tree;
    }

    void retrain(const ParamsHandle& params) const
    {
        if (!classifier) {
            throw NotTrained("Classifier tool must be trained before retraining.");
        }
        classifier->retrain(params);
        untrainIfNotRunnable(params);
    }

    void untrainIfNotRunnable(const ParamsHandle& params) const
    {
        if (!params->actual->throwIfNotReady()) {
            return;
        }
        try {
            classifier->checkRunnable();
        } catch (const Errors&) {
            untrain();
            throw;
        }
    }

    ktClassifierResult run(const Pattern& pattern) const
    {
        if (!classifier) {
            throw NotTrained("Classifier tool must be trained before running.");
        }
        return classifier->run(pattern);
    }

    bool isBeyondTheModel(const Pattern& pattern) const { return classifier && classifier->isBeyondTheModel(pattern); }

    const Params& trainParams() const
    {
        if (!classifier) {
            throw NotTrained("Classifier tool must be trained before requesting the training parameters.");
        }
        return classifier->trainParams();
    }

    const Tree& decisionTree() const
    {
        if (!isTrained()) {
            throw NotTrained("Classifier tool must be trained before requesting the decision tree.");
        }
        if (classifier->technique != Technique::tree) {
            throw BadMethod("Classifier tool was not trained using a decision tree.");
        }
        return *classifier->tree;
    }

    bool equals(const Tool& other) const
    {
        if (isTrained() != other.isTrained()) {
            return false;
        }
        return !isTrained() || classifier->isEquivalent(*other.classifier);
    }

    /// Stored and loaded by another tool: patterns are no longer shared, and nearest neighbours run with default parameters
    /// until they are retrained. `throwIfNotReady` is not stored.
    void loadFrom(const Tool& other)
    {
        const std::shared_ptr<Classifier> source = other.classifier;
        classifier = source ? std::make_shared<Classifier>(*source) : nullptr;
        if (classifier && classifier->kept) {
            classifier->kept = std::make_shared<Data>(*classifier->kept);
        }
        if (classifier) {
            classifier->inUse = std::make_shared<Params>();
        }
        if (classifier && classifier->stored) {
            auto params = std::make_shared<Params>(*classifier->stored);
            params->actual = params->actual->clone();
            params->actual->throwIfNotReady(true);
            classifier->stored = params;
        }
    }
};

}  // namespace tool_model
