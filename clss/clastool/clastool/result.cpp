#include <clastool/training_data.h>

#include "decision_rule.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using CategoryResult = ktClassifierCategoryResult;

using Verdicts = kt_Scratch<kt_Verdict>;

void copyInto(Verdicts& verdicts, const std::vector<CategoryResult>& results)
{
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[i].category = results[i];
    }
}

void requireUniqueLabels(Verdicts& verdicts)
{
    // Labels that ascend, as they do in most results, are found unique in one pass.
    bool isAscending = true;
    for (std::size_t i = 1; i < verdicts.size(); ++i) {
        isAscending &= verdicts[i - 1].category.categoryLabel() < verdicts[i].category.categoryLabel();
    }
    if (isAscending) {
        return;
    }
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        for (std::size_t j = i + 1; j < verdicts.size(); ++j) {
            if (verdicts[i].category.categoryLabel() == verdicts[j].category.categoryLabel()) {
                throw ktClassifierDefs::BadParams("The category labels of the match results must be unique.");
            }
        }
    }
}

/// Ascending; NaN comes after every number, so that the order is one whatever the costs are.
bool costsLess(const kt_Verdict& a, const kt_Verdict& b)
{
    const double costA = a.category.expectedCost();
    const double costB = b.category.expectedCost();
    return costA < costB || (std::isnan(costB) && !std::isnan(costA));
}

/// Equal costs keep their places, without the memory that std::stable_sort takes.
void sortByCost(Verdicts& verdicts)
{
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[i].weight = static_cast<double>(i);
    }
    std::sort(verdicts.begin(), verdicts.end(), [](const kt_Verdict& a, const kt_Verdict& b) {
        return costsLess(a, b) || (!costsLess(b, a) && a.weight < b.weight);
    });
}

/// Places the verdicts by ascending cost, equal costs in their order. A few of them find their places by counting who goes
/// before whom: no step depends on how a comparison ended, so a processor need not guess.
void placeByCost(std::vector<CategoryResult>& results, Verdicts& verdicts)
{
    const std::size_t size = verdicts.size();
    results.resize(size);
    std::array<double, 32> costs;
    bool areFewNumbers = size <= costs.size();
    for (std::size_t i = 0; i < size && areFewNumbers; ++i) {
        costs[i] = verdicts[i].category.expectedCost();
        areFewNumbers = !std::isnan(costs[i]);
    }
    if (!areFewNumbers) {
        sortByCost(verdicts);
        std::transform(verdicts.begin(), verdicts.end(), results.begin(),
                       [](const kt_Verdict& verdict) { return verdict.category; });
        return;
    }
    for (std::size_t i = 0; i < size; ++i) {
        std::size_t place = 0;
        for (std::size_t j = 0; j < i; ++j) {
            place += costs[j] <= costs[i] ? 1u : 0u;
        }
        for (std::size_t j = i + 1; j < size; ++j) {
            place += costs[j] < costs[i] ? 1u : 0u;
        }
        results[place] = verdicts[i].category;
    }
}

/// Turns the priors into unnormalised posteriors and returns their sum.
double weighByMatch(Verdicts& verdicts, double priorSum)
{
    double sum = 0.0;
    for (kt_Verdict& verdict : verdicts) {
        kt_pollAttention();
        verdict.weight = verdict.category.matchScore() * verdict.weight / priorSum;
        sum += verdict.weight;
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the resulting classification scores must be > 0.");
    }
    return sum;
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
    Verdicts verdicts(categoryResults.size());
    copyInto(verdicts, categoryResults);
    requireUniqueLabels(verdicts);
    kt_DecisionRule::conclude(*this, verdicts, matchScoreFactorLog);
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

void kt_DecisionRule::decide(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts,
                             const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                             double matchScoreFactorLog)
{
    requireUniqueLabels(verdicts);
    const double priorSum = lookUpPriors(verdicts, frequencies);
    const double sum = weighByMatch(verdicts, priorSum);
    sumCosts(verdicts, costs);
    for (kt_Verdict& verdict : verdicts) {
        verdict.category.classScore_ = verdict.weight / sum;
        verdict.category.expectedCost_ = verdict.cost / sum;
        verdict.category.check();
    }
    conclude(result, verdicts, matchScoreFactorLog);
}

/// Notes the priors as weights and returns their sum.
double kt_DecisionRule::lookUpPriors(kt_Scratch<kt_Verdict>& verdicts, const ktClassifierFrequencies& frequencies)
{
    const bool isUniform = frequencies.hasNoOverrides();
    double sum = 0.0;
    for (kt_Verdict& verdict : verdicts) {
        const long label = verdict.category.categoryLabel();
        if (label < 0) {
            throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
        }
        verdict.weight = isUniform ? frequencies.defaultCategoryFrequency() : frequencies.categoryFrequency(label);
        sum += verdict.weight;
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the category frequencies must be > 0.");
    }
    return sum;
}

/// What deciding for each category costs, not yet divided by the sum of the posteriors. Each sum takes its terms in
/// ascending order of the true category.
void kt_DecisionRule::sumCosts(kt_Scratch<kt_Verdict>& verdicts, const ktClassifierCosts& costs)
{
    const bool isUniform = costs.hasNoOverrides();
    std::array<double, 32> sums;
    for (std::size_t first = 0; first < verdicts.size(); first += sums.size()) {
        const std::size_t size = std::min(sums.size(), verdicts.size() - first);
        std::fill_n(sums.begin(), size, 0.0);
        for (std::size_t i = 0; i < verdicts.size(); ++i) {
            const double posterior = verdicts[i].weight;
            const double uniform = costs.defaultMisclassificationCost() * posterior;
            // Deciding for the truth costs nothing: its own sum is put back.
            const bool isAmong = i >= first && i - first < size;
            const double own = isAmong ? sums[i - first] : 0.0;
            for (std::size_t j = 0; j < size && isUniform; ++j) {
                sums[j] += uniform;
            }
            for (std::size_t j = 0; j < size && !isUniform; ++j) {
                if (first + j != i) {
                    const long decided = verdicts[first + j].category.categoryLabel();
                    sums[j] += costs.misclassificationCost(verdicts[i].category.categoryLabel(), decided) * posterior;
                }
            }
            if (isAmong) {
                sums[i - first] = own;
            }
        }
        for (std::size_t j = 0; j < size; ++j) {
            verdicts[first + j].cost = sums[j];
        }
    }
}

void kt_DecisionRule::conclude(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts, double matchScoreFactorLog)
{
    placeByCost(result.results_, verdicts);
    result.matchScoreFactorLog_ = matchScoreFactorLog;
}

ktClassifierResult& ktClassifierResult::operator=(const ktClassifierResult& other)
{
    // Assigning trivially copyable elements either succeeds or leaves them, and keeps the storage for the next run.
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
