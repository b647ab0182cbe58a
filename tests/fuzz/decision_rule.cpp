// The decision rule: costs and frequencies against plain tables, both constructors of a result against the documented steps
// taken one by one in double, and class scores and expected costs against long double.

#include "fuzz_kit.h"

#include <clastool/training_data.h>

#include <algorithm>

namespace {

using fuzz::badParams;
using fuzz::Input;
using fuzz::Outcome;
using fuzz::require;
using fuzz::requireOutcome;
using fuzz::requireSame;
using CategoryResult = ktClassifierCategoryResult;
using BadLabel = ktClassifierDefs::BadLabel;
using BadParams = ktClassifierDefs::BadParams;

const BadLabel negativeLabel("Category labels must be >= 0");

struct Override {
    long from;
    long to;
    double value;
};

/// A default and overrides for pairs of labels.
struct Table {
    double fallback;
    std::vector<Override> overrides;

    double* find(long from, long to)
    {
        for (Override& entry : overrides) {
            if (entry.from == from && entry.to == to) {
                return &entry.value;
            }
        }
        return nullptr;
    }
    void set(long from, long to, double value)
    {
        if (double* held = find(from, to)) {
            *held = value;
        } else {
            overrides.push_back({from, to, value});
        }
    }
    double get(long from, long to)
    {
        const double* held = find(from, to);
        return held != nullptr ? *held : fallback;
    }
};

struct Costs {
    ktClassifierCosts actual;
    Table model{1.0, {}};

    void change(Input& input)
    {
        const unsigned operation = input.below(8);
        const double cost = input.number();
        if (operation == 0) {
            const Outcome expected = cost < 0.0 ? badParams("Costs must be >= 0.0") : Outcome();
            requireOutcome(fuzz::outcomeOf([&] { actual.defaultMisclassificationCost(cost); }), expected,
                           "default cost");
            model.fallback = expected.returned() ? cost : model.fallback;
        } else if (operation == 1 && input.flag()) {
            actual.clearMisclassificationOverrides();
            model.overrides.clear();
        } else {
            const long from = input.label();
            const long to = input.label();
            const Outcome expected = cost < 0.0 ? badParams("Costs must be >= 0.0") : lookUp(from, to);
            requireOutcome(fuzz::outcomeOf([&] { actual.misclassificationCostOverride(from, to, cost); }), expected,
                           "cost override");
            if (expected.returned()) {
                model.set(from, to, cost);
            }
        }
    }

    void ask(Input& input)
    {
        const long from = input.label();
        const long to = input.label();
        double cost = -1.0;
        const Outcome outcome = fuzz::outcomeOf([&] { cost = actual.misclassificationCost(from, to); });
        requireOutcome(outcome, lookUp(from, to), "cost");
        if (outcome.returned()) {
            requireSame(cost, model.get(from, to), "cost of ", from, " as ", to);
        }
    }

    static Outcome lookUp(long from, long to)
    {
        if (from == to) {
            return fuzz::refusal(BadLabel("Category labels must be different"));
        }
        return from < 0 || to < 0 ? fuzz::refusal(negativeLabel) : Outcome();
    }
};

struct Frequencies {
    ktClassifierFrequencies actual;
    Table model{1.0, {}};

    void change(Input& input)
    {
        const unsigned operation = input.below(8);
        const double frequency = input.number();
        Outcome expected = frequency <= 0.0 ? badParams("Category frequencies must be > 0.0") : Outcome();
        if (operation == 0) {
            requireOutcome(fuzz::outcomeOf([&] { actual.defaultCategoryFrequency(frequency); }), expected,
                           "default frequency");
            model.fallback = expected.returned() ? frequency : model.fallback;
        } else if (operation == 1 && input.flag()) {
            actual.clearFrequencyOverrides();
            model.overrides.clear();
        } else {
            const long label = input.label();
            if (expected.returned() && label < 0) {
                expected = fuzz::refusal(negativeLabel);
            }
            requireOutcome(fuzz::outcomeOf([&] { actual.categoryFrequencyOverride(label, frequency); }), expected,
                           "frequency override");
            if (expected.returned()) {
                model.set(label, label, frequency);
            }
        }
    }
};

/// A category result as an archive may hold it: loading validates nothing.
CategoryResult loadedResult(long label, double match, double share, double cost)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    unsigned char version = 0;
    const ktArchive::Pass pass(archive);
    archive || version || label || match || share || cost;
    CategoryResult result;
    fuzz::loadInto(result, out.str());
    return result;
}

Outcome categoryRefusal(long label, double match, double share, double cost)
{
    const auto isOutside = [](double score) { return score < 0.0 || score > 1.0; };
    if (label < 0) {
        return fuzz::refusal(negativeLabel);
    }
    if (isOutside(match) || isOutside(share)) {
        return badParams("Scores must be >= 0.0 and <= 1.0");
    }
    return cost < 0.0 ? badParams("Costs must be >= 0.0") : Outcome();
}

CategoryResult readResult(Input& input)
{
    const long label = input.label();
    const double match = input.share();
    const double share = input.share();
    const double cost = input.number();
    CategoryResult result = loadedResult(label, match, share, cost);
    const Outcome outcome = fuzz::outcomeOf([&] { result = CategoryResult(label, match, share, cost); });
    requireOutcome(outcome, categoryRefusal(label, match, share, cost), "category result");
    requireSame(result.matchScore(), match, "match score");
    requireSame(result.classScore(), share, "class score");
    requireSame(result.expectedCost(), cost, "expected cost");
    return result;
}

struct Entry {
    long label;
    double match;
    double share;
    double cost;
};

/// What a constructor gives: entries in order, or a refusal.
struct Expected {
    Outcome outcome;
    std::vector<Entry> entries;
};

bool hasDuplicate(const std::vector<CategoryResult>& results)
{
    for (std::size_t i = 0; i < results.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (results[i].categoryLabel() == results[j].categoryLabel()) {
                return true;
            }
        }
    }
    return false;
}

const char* const duplicateText = "The category labels of the match results must be unique.";

void sortByCost(std::vector<Entry>& entries)
{
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.cost < b.cost || (!std::isnan(a.cost) && std::isnan(b.cost));
    });
}

Expected plainRule(const std::vector<CategoryResult>& results)
{
    if (hasDuplicate(results)) {
        return {badParams(duplicateText), {}};
    }
    Expected expected;
    for (const CategoryResult& result : results) {
        expected.entries.push_back(
            {result.categoryLabel(), result.matchScore(), result.classScore(), result.expectedCost()});
    }
    sortByCost(expected.entries);
    double sum = 0.0;
    for (const Entry& entry : expected.entries) {
        sum += entry.share;
    }
    if (sum == 0.0) {
        return {badParams("At least one of the classification scores must be > 0."), {}};
    }
    for (Entry& entry : expected.entries) {
        entry.share /= sum;
        const Outcome outcome = categoryRefusal(entry.label, entry.match, entry.share, entry.cost);
        if (!outcome.returned()) {
            return {outcome, {}};
        }
    }
    return expected;
}

Expected weightedRule(const std::vector<CategoryResult>& results, Table& frequencies, Table& costs)
{
    if (hasDuplicate(results)) {
        return {badParams(duplicateText), {}};
    }
    const std::size_t n = results.size();
    std::vector<double> weights;
    double sum = 0.0;
    for (const CategoryResult& result : results) {
        if (result.categoryLabel() < 0) {
            return {fuzz::refusal(negativeLabel), {}};
        }
        weights.push_back(frequencies.get(result.categoryLabel(), result.categoryLabel()));
        sum += weights.back();
    }
    if (sum == 0.0) {
        return {badParams("At least one of the category frequencies must be > 0."), {}};
    }
    double total = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        weights[i] = results[i].matchScore() * weights[i] / sum;
        total += weights[i];
    }
    if (total == 0.0) {
        return {badParams("At least one of the resulting classification scores must be > 0."), {}};
    }
    Expected expected;
    for (std::size_t j = 0; j < n; ++j) {
        double cost = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            if (i != j) {
                cost += costs.get(results[i].categoryLabel(), results[j].categoryLabel()) * weights[i];
            }
        }
        const Entry entry{results[j].categoryLabel(), results[j].matchScore(), weights[j] / total, cost / total};
        const Outcome outcome = categoryRefusal(entry.label, entry.match, entry.share, entry.cost);
        if (!outcome.returned()) {
            return {outcome, {}};
        }
        expected.entries.push_back(entry);
    }
    sortByCost(expected.entries);
    return expected;
}

void requireResult(const ktClassifierResult& result, const Expected& expected, double factorLog)
{
    const std::vector<CategoryResult>& entries = result.categoryResults();
    require(entries.size() == expected.entries.size(), entries.size(), " categories");
    requireSame(result.matchScoreFactorLog(), factorLog, "factor");
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const Entry& entry = expected.entries[i];
        require(entries[i].categoryLabel() == entry.label, "label ", entries[i].categoryLabel(), " at place ", i,
                " instead of ", entry.label);
        requireSame(entries[i].matchScore(), entry.match, "match score of ", entry.label);
        requireSame(entries[i].classScore(), entry.share, "class score of ", entry.label);
        requireSame(entries[i].expectedCost(), entry.cost, "expected cost of ", entry.label);
    }
}

/// Whether an intermediate result loses nothing to the range of a double, a few roundings away from it included: 0, or a
/// normal number.
bool isNormal(long double value)
{
    return value == 0.0L || (value >= 0x1p-1020L && value <= 0x1p1022L);
}

/// The rule in long double, of values that are all 0 or positive.
class LongRule {
public:
    LongRule(const std::vector<CategoryResult>& results, Table& frequencies, Table& costs) : results_(results)
    {
        for (const CategoryResult& result : results) {
            priorSum_ += note(frequencies.get(result.categoryLabel(), result.categoryLabel()));
            note(priorSum_);
        }
        for (const CategoryResult& result : results) {
            const long double prior = frequencies.get(result.categoryLabel(), result.categoryLabel());
            posteriors_.push_back(note(note(result.matchScore() * prior) / priorSum_));
            sum_ += posteriors_.back();
            note(sum_);
        }
        for (std::size_t j = 0; j < results.size(); ++j) {
            long double cost = 0.0L;
            for (std::size_t i = 0; i < results.size(); ++i) {
                if (i != j) {
                    cost += note(costs.get(results[i].categoryLabel(), results[j].categoryLabel()) * posteriors_[i]);
                    note(cost);
                }
            }
            costs_.push_back(cost);
            note(cost / sum_);
            note(posteriors_[j] / sum_);
        }
    }

    /// With n categories, the sum of the priors is known to n - 1 roundings and a posterior to 2 more, n + 1; their sum to
    /// another n - 1, 2n; a class score to n + 1 + 2n + 1 = 3n + 2. A cost has n + 1 roundings of its posterior, one of the
    /// product and n - 2 of the sum, 2n; divided, 2n + 2n + 1 = 4n + 1. Nothing is negative, so nothing cancels. Three more
    /// cover the roundings of long double, each 2^-11 of those.
    void compare(const ktClassifierResult& result) const
    {
        if (!isComparable_) {
            return;
        }
        const double n = static_cast<double>(results_.size());
        for (const CategoryResult& entry : result.categoryResults()) {
            std::size_t i = 0;
            while (results_[i].categoryLabel() != entry.categoryLabel()) {
                ++i;
            }
            requireNear(entry.classScore(), posteriors_[i] / sum_, 3.0 * n + 5.0, "class score");
            requireNear(entry.expectedCost(), costs_[i] / sum_, 4.0 * n + 4.0, "expected cost");
        }
    }

private:
    long double note(long double value)
    {
        isComparable_ = isComparable_ && isNormal(value);
        return value;
    }

    static void requireNear(double actual, long double exact, double roundings, const char* what)
    {
        require(std::abs(static_cast<long double>(actual) - exact) <= fuzz::gammaOf(roundings) * exact, what, " ",
                actual, " is too far from ", static_cast<double>(exact));
    }

    const std::vector<CategoryResult>& results_;
    long double priorSum_ = 0.0L;
    long double sum_ = 0.0L;
    std::vector<long double> posteriors_;
    std::vector<long double> costs_;
    bool isComparable_ = true;
};

void requireRoundTrip(const ktClassifierResult& result)
{
    const ktClassifierResult loaded = fuzz::storedAndLoaded(result);
    bool hasNan = std::isnan(result.matchScoreFactorLog());
    for (const CategoryResult& entry : result.categoryResults()) {
        hasNan = hasNan || std::isnan(entry.matchScore()) || std::isnan(entry.classScore()) ||
                 std::isnan(entry.expectedCost());
    }
    require((loaded == result) == !hasNan, "a loaded result is not equal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    Costs costs;
    Frequencies frequencies;
    for (unsigned i = input.below(12); i > 0; --i) {
        costs.change(input);
    }
    for (unsigned i = input.below(6); i > 0; --i) {
        frequencies.change(input);
    }
    costs.ask(input);
    const double factorLog = input.number();
    std::vector<CategoryResult> results;
    // Labels of their own for long lists: the sort of more than 32 entries is another one.
    const unsigned many = input.below(8) == 0 ? 30 + input.below(40) : 0;
    for (unsigned i = 0; i < many; ++i) {
        results.push_back(loadedResult(static_cast<long>(i), input.share(), input.share(), input.number()));
    }
    for (unsigned i = many > 0 ? 0 : input.below(9); i > 0; --i) {
        results.push_back(readResult(input));
    }

    ktClassifierResult plain;
    Expected expected = plainRule(results);
    requireOutcome(fuzz::outcomeOf([&] { plain = ktClassifierResult(results, factorLog); }), expected.outcome,
                   "plain constructor");
    if (expected.outcome.returned()) {
        requireResult(plain, expected, factorLog);
        requireRoundTrip(plain);
    }

    ktClassifierResult weighted;
    expected = weightedRule(results, frequencies.model, costs.model);
    const Outcome outcome =
        fuzz::outcomeOf([&] { weighted = ktClassifierResult(results, frequencies.actual, costs.actual, factorLog); });
    requireOutcome(outcome, expected.outcome, "cost-weighted constructor");
    if (outcome.returned()) {
        requireResult(weighted, expected, factorLog);
        requireRoundTrip(weighted);
        LongRule(results, frequencies.model, costs.model).compare(weighted);
    }
    return 0;
}
