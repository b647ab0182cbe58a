// Sequences of calls of tools, classifiers and data providers, against the model in tool_model.h: what is trained and by what,
// which call throws what, in which order the checks come, and what a run answers.

#include "fuzz_kit.h"
#include "tool_model.h"

#include <clastool/clastool.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace {

using fuzz::Input;
using fuzz::Outcome;
using fuzz::outcomeOf;
using fuzz::require;
using fuzz::requireOutcome;
using fuzz::requireSame;
using namespace tool_model;
using Provider = ktClassifierDataProviderMemory;

PatternHandle readPattern(Input& input, std::size_t size)
{
    Indices invalid;
    if (size > 0 && input.below(16) == 0) {
        invalid.push_back(static_cast<long>(input.below(static_cast<unsigned>(size))));
    }
    return new Pattern(input.numbers(size), invalid);
}

// Training data.

struct ProviderCase {
    Provider actual;
    Data model;

    void step(Input& input, std::size_t size)
    {
        switch (input.below(8)) {
        case 0:
            model.name.assign(1, static_cast<char>('a' + input.below(2)));
            actual.setName(model.name);
            break;
        case 1:
            replace(input, size);
            break;
        case 2:
            grow(input, size);
            break;
        case 3:
            ask(input.label());
            break;
        default:
            add(readPattern(input, input.below(32) == 0 ? input.below(4) : size), input.label());
            break;
        }
        require(actual.numPatterns() == static_cast<long>(model.patterns.size()), actual.numPatterns(), " patterns");
        require(actual.numMeasurements() == model.numMeasurements(), actual.numMeasurements(), " measurements");
    }

    void add(const PatternHandle& pattern, long label)
    {
        const Outcome expected = outcomeOf([&] { model.add(pattern, label); });
        requireOutcome(outcomeOf([&] { actual.addData(pattern, label); }), expected, "addData");
    }

    void replace(Input& input, std::size_t size)
    {
        Data given;
        for (unsigned i = input.below(6); i > 0; --i) {
            given.patterns.push_back(readPattern(input, input.below(16) == 0 ? input.below(4) : size));
            given.labels.push_back(input.label());
        }
        if (input.below(16) == 0) {
            given.labels.push_back(0);
        }
        const Outcome expected = outcomeOf([&] {
            if (given.patterns.size() != given.labels.size()) {
                throw BadFeatures("The number of the feature patterns must be equal to the number of category labels");
            }
            for (const PatternHandle& pattern : given.patterns) {
                if (pattern->numMeasurements() != given.numMeasurements()) {
                    throw BadFeatures("Feature patterns must all have the same number of measurements");
                }
            }
            if (std::any_of(given.labels.begin(), given.labels.end(), [](long label) { return label < -1; })) {
                throw BadLabel("Category labels must be >= 0 or unknown");
            }
            model.patterns = given.patterns;
            model.labels = given.labels;
        });
        requireOutcome(outcomeOf([&] { actual.data(given.patterns, given.labels); }), expected, "data");
    }

    /// Many patterns on a grid, enough for the filters in front of the neighbour scan, and full of ties.
    void grow(Input& input, std::size_t size)
    {
        unsigned long random = input.byte() + 256ul * input.byte();
        const unsigned steps = 1 + input.below(12);
        const double scale = input.below(4) == 0 ? input.number() : 1.0;
        for (unsigned i = 8 * input.below(40); i > 0 && model.patterns.size() < 600; --i) {
            std::vector<double> values(size);
            for (double& value : values) {
                random = (random * 1103515245ul + 12345ul) & 0x7ffffffful;
                value = static_cast<double>((random >> 12) % steps) * scale;
            }
            add(new Pattern(values, {}), static_cast<long>((random >> 20) % 5));
        }
    }

    void ask(long index)
    {
        const bool isInside = index >= 0 && index < static_cast<long>(model.patterns.size());
        long label = -2;
        requireOutcome(outcomeOf([&] { label = actual.categoryLabel(index); }),
                       isInside ? Outcome()
                                : fuzz::refusal(BadIndex("Category label index must be >=0 and < number of patterns.")),
                       "categoryLabel");
        requireOutcome(outcomeOf([&] { static_cast<void>(actual.featurePattern(index)); }),
                       isInside
                           ? Outcome()
                           : fuzz::refusal(BadIndex("Feature pattern index must be >=0 and < number of patterns.")),
                       "featurePattern");
        require(!isInside || label == model.labels[static_cast<std::size_t>(index)], "label ", label, " of pattern ",
                index);
    }
};

// Training parameters.

/// Parameters that make no classifier: they throw, or give none.
class NoTechnique : public ktClassifierTrainParams {
public:
    explicit NoTechnique(bool throws) : throws_(throws) {}
    NoTechnique(const NoTechnique& other)
        : ktPersistent(), ktRepBase(), ktClassifierTrainParams(other), throws_(other.throws_)
    {
        throwIfNotReady(other.throwIfNotReady());
    }
    ktPtrHandle<ktClassifierTrainParams> clone() const override { return new NoTechnique(*this); }

protected:
    bool isSameTechnique_(const ktClassifierTrainParams&) const override { return false; }
    kt_Classifier* newClassifier_() const override
    {
        if (throws_) {
            throw std::runtime_error("none");
        }
        return nullptr;
    }

private:
    bool throws_;
};

ktClassifierCosts readCosts(Input& input)
{
    ktClassifierCosts costs;
    for (unsigned i = input.below(4); i > 0; --i) {
        outcomeOf([&] {
            const long from = input.label();
            costs.misclassificationCostOverride(from, input.label(), input.number());
        });
    }
    if (input.below(8) == 0) {
        outcomeOf([&] { costs.defaultMisclassificationCost(input.number()); });
    }
    return costs;
}

ktClassifierFrequencies readFrequencies(Input& input)
{
    ktClassifierFrequencies frequencies;
    for (unsigned i = input.below(4); i > 0; --i) {
        outcomeOf([&] {
            const long label = input.label();
            frequencies.categoryFrequencyOverride(label, input.number());
        });
    }
    return frequencies;
}

Types readTypes(Input& input, std::vector<std::pair<long, Indices>>& sets)
{
    const auto readType = [&] {
        const unsigned kind = input.below(32);
        return static_cast<Type>(kind < 14 ? 0u : kind < 28 ? 1u : kind - 26u);
    };
    Types types(input.flag() ? Types::eNormal : readType());
    for (unsigned i = input.below(5); i > 0; --i) {
        const long label = input.label();
        if (input.flag()) {
            outcomeOf([&] {
                const auto index = static_cast<long>(input.below(4));
                types.distributionTypeOverride(label, index, readType());
            });
            continue;
        }
        Indices indices;
        for (unsigned j = input.below(4); j > 0; --j) {
            indices.push_back(static_cast<long>(input.below(5)));
        }
        if (outcomeOf([&] { types.setDependent(label, indices); }).returned() && !indices.empty()) {
            mergeSets(sets, label, indices);
            require(types.isDependent(label, indices), "measurements made dependent are not");
        }
    }
    return types;
}

/// `like`, if there is one, gives the types and maximum values, so that retraining has a chance.
ParamsHandle readParams(Input& input, const ParamsHandle& like)
{
    auto params = std::make_shared<Params>();
    const unsigned kind = input.below(16);
    if (kind == 0) {
        params->technique = input.flag() ? Technique::throwing : Technique::none;
        params->actual = new NoTechnique(params->technique == Technique::throwing);
    } else if (kind < 9) {
        const Outcome outcome = outcomeOf([&] { params->order = ktPatternDistanceMetricNorm(input.number()).order(); });
        params->order = outcome.returned() && input.below(4) == 0 ? params->order : 1.0 + input.below(3);
        const auto k = static_cast<long>(input.below(16) == 0 ? 300 : 1 + input.below(12));
        params->knn = KnnParams(k, ktPatternDistanceMetricNorm(params->order), readCosts(input));
        params->actual = new KnnParams(params->knn);
    } else {
        params->technique = Technique::bayes;
        if (like && like->technique == Technique::bayes && input.below(8) != 0) {
            params->bayes = like->bayes;
            params->sets = like->sets;
        } else {
            params->bayes.distributionTypes(readTypes(input, params->sets));
            params->bayes.maxMeasurementValues(*readPattern(input, input.below(5)));
        }
        params->bayes.categoryFrequencies(readFrequencies(input));
        params->bayes.misclassificationCosts(readCosts(input));
        params->actual = new BayesParams(params->bayes);
    }
    params->actual->throwIfNotReady(input.below(4) != 0);
    return params;
}

// Decision trees.

TreeHandle readTree(Input& input, unsigned depth)
{
    auto tree = std::make_shared<Tree>();
    if (depth == 0 || input.below(3) == 0) {
        std::vector<ktClassifierCategoryResult> entries;
        for (unsigned i = 1 + input.below(3); i > 0; --i) {
            outcomeOf([&] {
                const long label = input.label();
                entries.emplace_back(label, input.share(), input.share(), input.number());
            });
        }
        outcomeOf([&] { tree->result = ktClassifierResult(entries, input.number()); });
        tree->actual = new ktDecisionTreeLeaf(tree->result);
        return tree;
    }
    tree->kind = input.below(3);
    tree->index = static_cast<long>(input.below(5));
    tree->other = static_cast<long>((static_cast<unsigned>(tree->index) + 1 + input.below(4)) % 5);
    if (tree->kind == 0) {
        tree->predicate = new ktComparisonPredicate(tree->index, tree->other);
    } else if (tree->kind == 1) {
        const double low = input.number();
        tree->range = ktRange(low, input.number());
        tree->predicate = new ktRangePredicate(tree->range, {tree->index, tree->other});
    } else {
        tree->predicate = new ktValidityPredicate({tree->index});
    }
    tree->ifTrue = readTree(input, depth - 1);
    tree->ifFalse = input.below(8) == 0 ? tree->ifTrue : readTree(input, depth - 1);
    tree->actual = new ktDecisionTreeNode(*tree->predicate, *tree->ifTrue->actual, *tree->ifFalse->actual);
    require(tree->actual->categoryLabels() == tree->labels(), "a tree lists other labels");
    return tree;
}

void requireSameResult(const ktClassifierResult& actual, const ktClassifierResult& expected)
{
    require(fuzz::stored(actual) == fuzz::stored(expected), "a run gives another result: label ",
            actual.categoryResults().empty() ? -1 : actual.categoryResults().front().categoryLabel(), " instead of ",
            expected.categoryResults().empty() ? -1 : expected.categoryResults().front().categoryLabel());
}

const ktClassifierResult& untouched()
{
    static const ktClassifierResult result({ktClassifierCategoryResult(77, 0.25, 1.0, 3.5)}, -12.5);
    return result;
}

std::vector<long> labelsOf(const ktClassifierResult& result)
{
    std::vector<long> labels;
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        labels.push_back(category.categoryLabel());
    }
    std::sort(labels.begin(), labels.end());
    return labels;
}

/// Runs both and compares; a run that throws leaves the caller's result alone. Of scores that the model cannot know the labels
/// are compared.
template <class Actual, class Model>
void requireRun(const Actual& actual, const Model& model, const Pattern& pattern)
{
    ktClassifierResult expected = untouched();
    ktClassifierResult given = untouched();
    const Outcome outcome = outcomeOf([&] { expected = model.run(pattern); });
    const Outcome actually = outcomeOf([&] { actual.run(pattern, given); });
    if (outcome.returned() && model.isBeyondTheModel(pattern)) {
        require(!actually.returned() || labelsOf(given) == labelsOf(expected), "a run lists other categories");
        return;
    }
    requireOutcome(actually, outcome, "run");
    requireSameResult(given, expected);
}

void requireSameParams(const ktClassifierTrainParams& actual, const Params& expected)
{
    if (expected.technique == Technique::knn) {
        require(fuzz::stored(dynamic_cast<const KnnParams&>(actual)) == fuzz::stored(expected.knn), "other parameters");
    } else if (expected.technique == Technique::bayes) {
        require(fuzz::stored(dynamic_cast<const BayesParams&>(actual)) == fuzz::stored(expected.bayes),
                "other parameters");
    }
}

/// What can be asked of both, a tool and a classifier.
template <class Actual, class Model>
void requireSameState(Actual& actual, const Model& model)
{
    require(actual.isTrained() == model.isTrained(), "trained: ", actual.isTrained());
    const Params* expected = nullptr;
    ktPtrHandle_const<ktClassifierTrainParams> params;
    const Outcome outcome = outcomeOf([&] { expected = &model.trainParams(); });
    requireOutcome(outcomeOf([&] { params = actual.trainParams(); }), outcome, "trainParams");
    if (expected != nullptr) {
        requireSameParams(*params, *expected);
    }
}

struct ToolCase {
    ktClassifierTool actual;
    Tool model;

    void requireState()
    {
        requireSameState(actual, model);
        const Tree* expected = nullptr;
        ktPtrHandle_const<ktDecisionTree> tree;
        const Outcome outcome = outcomeOf([&] { expected = &model.decisionTree(); });
        requireOutcome(outcomeOf([&] { tree = actual.decisionTree(); }), outcome, "decisionTree");
        if (expected != nullptr) {
            require(tree->categoryLabels() == expected->labels(), "a tree lists other labels");
            require(tree->isEqual(*expected->actual) == expected->equals(*expected), "the tree is another one");
        }
    }
};

struct World {
    ToolCase tools[3];
    ProviderCase providers[2];
    std::vector<TreeHandle> trees;
    std::size_t size = 2;

    ToolCase& tool(Input& input) { return tools[input.below(3)]; }
    ProviderCase& provider(Input& input) { return providers[input.below(2)]; }
};

ParamsHandle storedOf(const ToolCase& tool)
{
    return tool.model.classifier ? tool.model.classifier->stored : nullptr;
}

/// Its own parameters as they are, or new ones.
void retrain(Input& input, ToolCase& tool)
{
    ParamsHandle params = storedOf(tool);
    if (params && tool.model.isTrained() && input.flag()) {
        const ktPtrHandle_const<ktClassifierTrainParams> own = tool.actual.trainParams();
        const Outcome expected = outcomeOf([&] { tool.model.retrain(params); });
        requireOutcome(outcomeOf([&] { tool.actual.retrain(*own); }), expected, "retrain with its own parameters");
        return;
    }
    params = readParams(input, params);
    const Outcome expected = outcomeOf([&] { tool.model.retrain(params); });
    requireOutcome(outcomeOf([&] { tool.actual.retrain(*params->actual); }), expected, "retrain");
}

void trainTree(Input& input, World& world, ToolCase& tool)
{
    if (world.trees.empty() || input.flag()) {
        world.trees.push_back(readTree(input, 1 + input.below(4)));
    }
    const TreeHandle& tree = world.trees[input.below(static_cast<unsigned>(world.trees.size()))];
    tool.actual.train(*tree->actual);
    tool.model.train(tree);
}

void storeAndLoad(const ToolCase& from, ToolCase& to)
{
    const std::string bytes = fuzz::stored(from.actual);
    fuzz::loadInto(to.actual, bytes);
    to.model.loadFrom(from.model);
    require(fuzz::stored(to.actual) == bytes, "a loaded tool is stored to other bytes");
}

void requireComparison(const ToolCase& a, const ToolCase& b)
{
    require((a.actual == b.actual) == a.model.equals(b.model), "tools compare ", a.actual == b.actual);
}

void stepOfTools(Input& input, World& world)
{
    ToolCase& tool = world.tool(input);
    switch (input.below(12)) {
    case 0:
    case 1: {
        const ProviderCase& provider = world.provider(input);
        const ParamsHandle params = readParams(input, storedOf(tool));
        const Outcome expected = outcomeOf([&] { tool.model.train(provider.model, params); });
        requireOutcome(outcomeOf([&] { tool.actual.train(provider.actual, *params->actual); }), expected, "train");
        break;
    }
    case 2:
        trainTree(input, world, tool);
        break;
    case 3:
        retrain(input, tool);
        break;
    case 4:
        tool.actual.untrain();
        tool.model.untrain();
        break;
    case 5: {
        const ToolCase& other = world.tool(input);
        tool.actual = other.actual;
        tool.model.assign(other.model);
        break;
    }
    case 6:
        storeAndLoad(world.tool(input), tool);
        break;
    case 7:
        requireComparison(tool, world.tool(input));
        break;
    default:
        requireRun(tool.actual, tool.model, *readPattern(input, input.below(16) == 0 ? input.below(5) : world.size));
        break;
    }
    tool.requireState();
}

/// Two classifiers of one technique without a tool around them; the second is often a copy of the first.
template <class Actual>
class BareCase {
public:
    explicit BareCase(Technique technique)
    {
        for (Classifier& model : models_) {
            model.technique = technique;
        }
    }

    void step(Input& input, World& world)
    {
        const std::size_t which = input.below(2);
        Actual& actual = *actuals_[which];
        Classifier& model = models_[which];
        switch (input.below(12)) {
        case 0:
        case 1: {
            const ProviderCase& provider = world.provider(input);
            const ParamsHandle params = readParams(input, model.stored);
            const Outcome expected = outcomeOf([&] { model.train(provider.model, params); });
            requireOutcome(outcomeOf([&] { actual.train(provider.actual, *params->actual); }), expected, "train");
            break;
        }
        case 2: {
            const ParamsHandle params = readParams(input, model.stored);
            const Outcome expected = outcomeOf([&] { model.trainStart(params); });
            requireOutcome(outcomeOf([&] { actual.trainStart(*params->actual); }), expected, "trainStart");
            break;
        }
        case 3: {
            const ParamsHandle params = readParams(input, model.stored);
            const Outcome expected = outcomeOf([&] { model.retrain(params); });
            requireOutcome(outcomeOf([&] { actual.retrain(*params->actual); }), expected, "retrain");
            break;
        }
        case 4:
        case 5: {
            const PatternHandle pattern = readPattern(input, input.below(16) == 0 ? input.below(5) : world.size);
            const long label = input.label();
            const Outcome expected = outcomeOf([&] { model.trainIncremental(pattern, label); });
            requireOutcome(outcomeOf([&] { actual.trainIncremental(*pattern, label); }), expected, "trainIncremental");
            break;
        }
        case 6:
            actual.untrain();
            model.untrain();
            break;
        case 7:
            copy(input.flag(), which);
            break;
        case 8:
            compare();
            break;
        case 9:
            trainByHand(input, world, actual, model);
            break;
        default:
            requireRun(actual, model, *readPattern(input, input.below(16) == 0 ? input.below(5) : world.size));
            break;
        }
        // Copying may have put another object in the place of the first.
        requireSameState(*actuals_[which], model);
    }

private:
    static void trainByHand(Input& input, World& world, Actual& actual, Classifier& model)
    {
        if constexpr (std::is_same_v<Actual, kt_ClassifierDecisionTree>) {
            world.trees.push_back(readTree(input, 1 + input.below(4)));
            model.untrain();
            model.tree = world.trees.back();
            actual.trainManual(*model.tree->actual);
        }
    }

    void copy(bool byAssignment, std::size_t to)
    {
        if (byAssignment) {
            *actuals_[to] = *actuals_[1 - to];
        } else {
            const ktPtrHandle<kt_Classifier> clone = actuals_[1 - to]->clone();
            actuals_[to] = dynamic_cast<Actual*>(clone.get());
        }
        models_[to] = models_[1 - to];
    }

    void compare() const
    {
        bool expected = false;
        bool actual = false;
        const Outcome outcome = outcomeOf([&] { expected = models_[0].isEquivalent(models_[1]); });
        requireOutcome(outcomeOf([&] { actual = actuals_[0]->isEquivalent(*actuals_[1]); }), outcome, "isEquivalent");
        require(actual == expected, "classifiers compare ", actual);
    }

    ktPtrHandle<Actual> actuals_[2] = {new Actual, new Actual};
    Classifier models_[2];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    World world;
    world.size = input.below(16) == 0 ? input.below(9) : 1 + input.below(3);
    BareCase<kt_ClassifierKNN> neighbours(Technique::knn);
    BareCase<kt_ClassifierBayesian> bayes(Technique::bayes);
    BareCase<kt_ClassifierDecisionTree> trees(Technique::tree);
    for (ProviderCase& provider : world.providers) {
        for (unsigned i = 1 + input.below(6); i > 0; --i) {
            provider.step(input, world.size);
        }
    }
    while (!input.isAtEnd()) {
        switch (input.below(8)) {
        case 0:
            neighbours.step(input, world);
            break;
        case 1:
            bayes.step(input, world);
            break;
        case 2:
            trees.step(input, world);
            break;
        case 3:
            world.provider(input).step(input, world.size);
            break;
        default:
            stepOfTools(input, world);
            break;
        }
    }
    const bool isEqual = world.providers[0].model.equals(world.providers[1].model);
    require((world.providers[0].actual == world.providers[1].actual) == isEqual, "providers compare otherwise");
    return 0;
}
