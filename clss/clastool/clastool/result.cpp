#include <clastool/training_data.h>

#include "decision_rule.h"

#include <kt/compiler.h>

#include <algorithm>
#include <cmath>
#include <cstring>

// The decision rule, as ktClassifierResult defines it. In come labels and match scores m(i); out come class scores and expected costs,
// sorted by cost. decide() takes the steps in the order of the definition:
//
//     lookUpPriors   f(i), and their sum F
//     weighMatches   p(i) = (m(i) f(i)) / F
//     sumCosts       C(j), the sum of cost(l(i), l(j)) p(i) over all i but j
//     divideBySum    P, the sum of all p(i), the class scores p(j) / P and the expected costs C(j) / P
//     conclude       sorts by expected cost
//
// The verdicts are first sorted by label, so that bisection finds the labels of overrides. Each verdict remembers its place in the
// caller's order. Sums add their terms in that order.

namespace {

using CategoryResult = ktClassifierCategoryResult;

using Verdicts = kt_Scratch<kt_Verdict>;

/// Results with at most this number of categories need no allocation.
constexpr std::size_t fewCategories = 32;

void copyInto(Verdicts& verdicts, const std::vector<CategoryResult>& results)
{
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[i].category = results[i];
    }
}

bool labelLess(const kt_Verdict& verdict, long label)
{
    return verdict.category.categoryLabel() < label;
}

/// Sorts the verdicts by label, and notes the caller's order: sums add their terms in that order, and equal costs keep it.
void orderByLabel(Verdicts& verdicts)
{
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[i].given = verdicts[i].whereGiven = i;
    }
    const auto less = [](const kt_Verdict& a, const kt_Verdict& b) { return labelLess(a, b.category.categoryLabel()); };
    const auto isOutOfOrder = [&](const kt_Verdict& a, const kt_Verdict& b) { return !less(a, b); };
    if (std::adjacent_find(verdicts.begin(), verdicts.end(), isOutOfOrder) == verdicts.end()) {
        return;
    }
    std::sort(verdicts.begin(), verdicts.end(), less);
    if (std::adjacent_find(verdicts.begin(), verdicts.end(), isOutOfOrder) != verdicts.end()) {
        throw ktClassifierDefs::BadParams("The category labels of the match results must be unique.");
    }
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[verdicts[i].given].whereGiven = i;
    }
}

kt_Verdict& inGivenOrder(Verdicts& verdicts, std::size_t i)
{
    return verdicts[verdicts[i].whereGiven];
}

/// The verdict with this label; null if there is none.
kt_Verdict* find(Verdicts& verdicts, long label)
{
    kt_Verdict* const found = std::lower_bound(verdicts.begin(), verdicts.end(), label, labelLess);
    return found != verdicts.end() && found->category.categoryLabel() == label ? found : nullptr;
}

/// How many expected costs are summed side by side.
constexpr std::size_t sumsAtOnce = 16;

/// Adds each of the numbers to each of the sums. The sums are pairs, which stay in registers; compilers do not achieve that with the
/// plain loop.
void addToAll(double (&sums)[sumsAtOnce], const double* begin, const double* end)
{
    if (begin == end) {
        return;
    }
    kt_DoublePair pairs[sumsAtOnce / 2];
    std::memcpy(pairs, sums, sizeof pairs);
    for (const double* number = begin; number != end; ++number) {
        const kt_DoublePair twice = {*number, *number};
        for (kt_DoublePair& pair : pairs) {
            pair += twice;
        }
    }
    std::memcpy(sums, pairs, sizeof pairs);
}

double addUp(double sum, const double* begin, const double* end)
{
    for (const double* number = begin; number != end; ++number) {
        sum += *number;
    }
    return sum;
}

/// Ascending by cost. NaN comes after every number. Equal costs keep the caller's order.
bool costLess(const kt_Verdict& a, const kt_Verdict& b)
{
    const double costA = a.category.expectedCost();
    const double costB = b.category.expectedCost();
    if (costA < costB || costB < costA) {
        return costA < costB;
    }
    return std::isnan(costA) == std::isnan(costB) ? a.given < b.given : std::isnan(costB);
}

}  // namespace

void ktClassifierCategoryResult::refuse() const
{
    if (label_ < 0) {
        throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
    }
    for (const double score : {matchScore_, classScore_}) {
        if (score < 0.0 || score > 1.0) {
            throw ktClassifierDefs::BadParams("Scores must be >= 0.0 and <= 1.0");
        }
    }
    throw ktClassifierDefs::BadParams("Costs must be >= 0.0");
}

bool ktClassifierCategoryResult::operator==(const ktClassifierCategoryResult& other) const
{
    return label_ == other.label_ && matchScore_ == other.matchScore_ && classScore_ == other.classScore_ &&
           expectedCost_ == other.expectedCost_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierCategoryResult& result)
{
    const ktArchive::Pass pass(archive);
    archive.version("clss/clastool/clastool", 346);
    return archive || result.label_ || result.matchScore_ || result.classScore_ || result.expectedCost_;
}

ktClassifierResult::ktClassifierResult() = default;

ktClassifierResult::ktClassifierResult(const std::vector<ktClassifierCategoryResult>& categoryResults,
                                       double matchScoreFactorLog)
{
    kt_DecisionRule::sort(*this, categoryResults, matchScoreFactorLog);
    double sum = 0.0;
    for (const CategoryResult& entry : results_) {
        sum += entry.classScore();
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the classification scores must be > 0.");
    }
    for (CategoryResult& entry : results_) {
        entry =
            CategoryResult(entry.categoryLabel(), entry.matchScore(), entry.classScore() / sum, entry.expectedCost());
    }
}

ktClassifierResult::ktClassifierResult(const std::vector<ktClassifierCategoryResult>& matchResults,
                                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                                       double matchScoreFactorLog)
{
    kt_DecisionRule::decide(*this, matchResults, frequencies, costs, matchScoreFactorLog);
}

void kt_DecisionRule::decide(ktClassifierResult& result, const std::vector<ktClassifierCategoryResult>& matches,
                             const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                             double matchScoreFactorLog)
{
    Verdicts verdicts(matches.size());
    copyInto(verdicts, matches);
    decide(result, verdicts, frequencies, costs, matchScoreFactorLog);
}

void kt_DecisionRule::decide(ktClassifierResult& result, Verdicts& verdicts, const ktClassifierFrequencies& frequencies,
                             const ktClassifierCosts& costs, double matchScoreFactorLog)
{
    orderByLabel(verdicts);
    kt_DecisionRule rule(verdicts, frequencies, costs);
    rule.weighMatches(rule.lookUpPriors());
    rule.sumCosts();
    rule.divideBySum();
    conclude(result, verdicts, matchScoreFactorLog);
}

void kt_DecisionRule::sort(ktClassifierResult& result, const std::vector<ktClassifierCategoryResult>& categories,
                           double matchScoreFactorLog)
{
    Verdicts verdicts(categories.size());
    copyInto(verdicts, categories);
    orderByLabel(verdicts);
    conclude(result, verdicts, matchScoreFactorLog);
}

// A loaded table may be damaged: its sequences need not be equally long.
kt_DecisionRule::kt_DecisionRule(Verdicts& verdicts, const ktClassifierFrequencies& frequencies,
                                 const ktClassifierCosts& costs)
    : verdicts_(verdicts),
      frequencies_(frequencies),
      costs_(costs),
      numOverrides_(std::min({costs.fromLabels_.size(), costs.toLabels_.size(), costs.costs_.size()})),
      numbers_(2 * verdicts.size()),
      mistakes_(numbers_.data()),
      costSums_(mistakes_ + verdicts.size())
{
}

/// f(i), and their sum F.
double kt_DecisionRule::lookUpPriors()
{
    for (kt_Verdict& verdict : verdicts_) {
        if (verdict.category.categoryLabel() < 0) {
            throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
        }
        verdict.prior = frequencies_.default_;
    }
    // Backwards, because the first of several overrides of a label counts.
    for (std::size_t k = std::min(frequencies_.labels_.size(), frequencies_.frequencies_.size()); k-- > 0;) {
        if (kt_Verdict* const overridden = find(verdicts_, frequencies_.labels_[k])) {
            overridden->prior = frequencies_.frequencies_[k];
        }
    }
    double sum = 0.0;
    for (std::size_t i = 0; i < verdicts_.size(); ++i) {
        sum += inGivenOrder(verdicts_, i).prior;
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the category frequencies must be > 0.");
    }
    return sum;
}

/// p(i) = (m(i) f(i)) / F.
void kt_DecisionRule::weighMatches(double priorSum)
{
    for (kt_Verdict& verdict : verdicts_) {
        verdict.category.classScore_ = verdict.category.matchScore() * verdict.prior / priorSum;
    }
}

/// C(j), the sum of cost(l(i), l(j)) p(i) over all i but j.
void kt_DecisionRule::sumCosts()
{
    if (numOverrides_ == 0) {
        sumEqualCosts();
        return;
    }
    indexOverrides();
    std::fill_n(costSums_, verdicts_.size(), 0.0);
    for (std::size_t i = 0; i < verdicts_.size(); ++i) {
        kt_pollAttention();
        addMistakes(verdicts_[i].whereGiven);
    }
}

/// For mistakes of equal cost. All sums over the categories before j are prefixes of one running sum. The terms behind j are added to
/// several sums side by side.
void kt_DecisionRule::sumEqualCosts()
{
    const std::size_t size = verdicts_.size();
    double* const products = mistakes_;
    for (std::size_t i = 0; i < size; ++i) {
        products[i] = costs_.default_ * inGivenOrder(verdicts_, i).category.classScore_;
    }
    double before = 0.0;
    for (std::size_t first = 0; first < size; first += sumsAtOnce) {
        const std::size_t end = std::min(first + sumsAtOnce, size);
        double sums[sumsAtOnce];
        for (std::size_t j = first; j < end; ++j) {
            kt_pollAttention();
            sums[j - first] = addUp(before, products + j + 1, products + end);
            before += products[j];
        }
        // Only the last group can have fewer sums, and no terms are left for it.
        addToAll(sums, products + end, products + size);
        for (std::size_t j = first; j < end; ++j) {
            costSums_[verdicts_[j].whereGiven] = sums[j - first];
        }
    }
}

/// Adds cost(l(i), l(j)) p(i) to C(j), for the true category i and all other categories j.
void kt_DecisionRule::addMistakes(std::size_t truth)
{
    lookUpMistakes(verdicts_[truth]);
    const std::size_t size = verdicts_.size();
    const double posterior = verdicts_[truth].category.classScore_;
    const double sumOfTruth = costSums_[truth];
    for (std::size_t j = 0; j < size; ++j) {
        costSums_[j] += mistakes_[j] * posterior;
    }
    costSums_[truth] = sumOfTruth;
}

/// P, the sum of all p(i), the class scores p(j) / P and the expected costs C(j) / P.
void kt_DecisionRule::divideBySum()
{
    double posteriorSum = 0.0;
    for (std::size_t i = 0; i < verdicts_.size(); ++i) {
        posteriorSum += inGivenOrder(verdicts_, i).category.classScore();
    }
    if (posteriorSum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the resulting classification scores must be > 0.");
    }
    for (std::size_t i = 0; i < verdicts_.size(); ++i) {
        kt_Verdict& verdict = inGivenOrder(verdicts_, i);
        verdict.category.classScore_ /= posteriorSum;
        verdict.category.expectedCost_ = costSums_[verdicts_[i].whereGiven] / posteriorSum;
        verdict.category.check();
    }
}

void kt_DecisionRule::conclude(ktClassifierResult& result, Verdicts& verdicts, double matchScoreFactorLog)
{
    // Sorting pointers moves fewer bytes.
    kt_Scratch<const kt_Verdict*> order(verdicts.size());
    std::transform(verdicts.begin(), verdicts.end(), order.begin(), [](const kt_Verdict& verdict) { return &verdict; });
    std::sort(order.begin(), order.end(), [](const kt_Verdict* a, const kt_Verdict* b) { return costLess(*a, *b); });
    result.results_.resize(order.size());
    std::transform(order.begin(), order.end(), result.results_.begin(),
                   [](const kt_Verdict* verdict) { return verdict->category; });
    result.matchScoreFactorLog_ = matchScoreFactorLog;
}

/// The costs of deciding for each category if this is the true one.
void kt_DecisionRule::lookUpMistakes(const kt_Verdict& truth)
{
    std::fill_n(mistakes_, verdicts_.size(), costs_.default_);
    // Backwards, because the first of several overrides of a pair counts.
    const bool isIndexed = !previous_.empty();
    for (std::size_t k = isIndexed ? truth.lastOverride : numOverrides_; k > 0;
         k = isIndexed ? previous_[k - 1] : k - 1) {
        if (costs_.fromLabels_[k - 1] == truth.category.categoryLabel()) {
            if (const kt_Verdict* const decided = find(verdicts_, costs_.toLabels_[k - 1])) {
                mistakes_[static_cast<std::size_t>(decided - verdicts_.begin())] = costs_.costs_[k - 1];
            }
        }
    }
}

/// Chains the overrides of each true category. With few categories a scan of all overrides is fast enough.
void kt_DecisionRule::indexOverrides()
{
    if (verdicts_.size() <= fewCategories) {
        return;
    }
    previous_.resize(numOverrides_);
    for (std::size_t k = 0; k < numOverrides_; ++k) {
        if (kt_Verdict* const truth = find(verdicts_, costs_.fromLabels_[k])) {
            previous_[k] = truth->lastOverride;
            truth->lastOverride = k + 1;
        }
    }
}

ktClassifierResult& ktClassifierResult::operator=(const ktClassifierResult& other)
{
    // The elements are trivially copyable, so the assignment either succeeds or changes nothing. It keeps the storage for the next run.
    results_ = other.results_;
    matchScoreFactorLog_ = other.matchScoreFactorLog_;
    return *this;
}

bool ktClassifierResult::operator==(const ktClassifierResult& other) const
{
    return results_ == other.results_ && matchScoreFactorLog_ == other.matchScoreFactorLog_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierResult& result)
{
    const ktArchive::Pass pass(archive);
    archive.version("clss/clastool/clastool", 670);
    return archive || result.results_ || result.matchScoreFactorLog_;
}
