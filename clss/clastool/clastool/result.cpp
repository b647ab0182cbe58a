#include <clastool/training_data.h>

#include "decision_rule.h"
#include "scratch.h"

#include <algorithm>
#include <cmath>

namespace {

using CategoryResult = ktClassifierCategoryResult;

void requireScore(double score)
{
    if (score < 0.0 || score > 1.0) {
        throw ktClassifierDefs::BadParams("Scores must be >= 0.0 and <= 1.0");
    }
}

void requireUniqueLabels(const CategoryResult* results, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = i + 1; j < size; ++j) {
            if (results[i].categoryLabel() == results[j].categoryLabel()) {
                throw ktClassifierDefs::BadParams("The category labels of the match results must be unique.");
            }
        }
    }
}

/// Ascending; NaN comes after every number, so that the order is one whatever the costs are.
bool costsLess(const CategoryResult& a, const CategoryResult& b)
{
    return std::isnan(b.expectedCost()) ? !std::isnan(a.expectedCost()) : a.expectedCost() < b.expectedCost();
}

/// Stable. The usual few categories are sorted in place, because std::stable_sort takes memory.
void sortByExpectedCost(CategoryResult* first, CategoryResult* last)
{
    if (last - first > 32) {
        std::stable_sort(first, last, costsLess);
        return;
    }
    for (CategoryResult* next = first; next != last; ++next) {
        std::rotate(std::upper_bound(first, next, *next, costsLess), next, next + 1);
    }
}

/// Fills `priors` and returns their sum.
double lookUpPriors(const CategoryResult* matches, const ktClassifierFrequencies& frequencies, kt_Scratch<double>& priors)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < priors.size(); ++i) {
        if (matches[i].categoryLabel() < 0) {
            throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
        }
        priors[i] = frequencies.categoryFrequency(matches[i].categoryLabel());
        sum += priors[i];
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the category frequencies must be > 0.");
    }
    return sum;
}

/// Turns the priors into unnormalised posteriors and returns their sum.
double weighByMatch(const CategoryResult* matches, double priorSum, kt_Scratch<double>& weights)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        kt_pollAttention();
        weights[i] = matches[i].matchScore() * weights[i] / priorSum;
        sum += weights[i];
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the resulting classification scores must be > 0.");
    }
    return sum;
}

/// What deciding for category j costs, not yet divided by the sum of the posteriors.
double costOfDeciding(const CategoryResult* matches, std::size_t j, const ktClassifierCosts& costs,
                      kt_Scratch<double>& posteriors)
{
    double cost = 0.0;
    for (std::size_t i = 0; i < posteriors.size(); ++i) {
        if (i != j) {
            cost += costs.misclassificationCost(matches[i].categoryLabel(), matches[j].categoryLabel()) * posteriors[i];
        }
    }
    return cost;
}

}  // namespace

ktClassifierCategoryResult::ktClassifierCategoryResult(long categoryLabel, double matchScore, double classScore,
                                                       double expectedCost)
    : label_(categoryLabel), matchScore_(matchScore), classScore_(classScore), expectedCost_(expectedCost)
{
    if (categoryLabel < 0) {
        throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
    }
    requireScore(matchScore);
    requireScore(classScore);
    if (expectedCost < 0.0) {
        throw ktClassifierDefs::BadParams("Costs must be >= 0.0");
    }
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
    : matchScoreFactorLog_(matchScoreFactorLog)
{
    requireUniqueLabels(categoryResults.data(), categoryResults.size());
    results_ = categoryResults;
    sortByExpectedCost(results_.data(), results_.data() + results_.size());
    double sum = 0.0;
    for (const CategoryResult& entry : results_) {
        sum += entry.classScore();
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the classification scores must be > 0.");
    }
    for (CategoryResult& entry : results_) {
        entry = CategoryResult(entry.categoryLabel(), entry.matchScore(), entry.classScore() / sum, entry.expectedCost());
    }
}

ktClassifierResult::ktClassifierResult(const std::vector<ktClassifierCategoryResult>& matchResults,
                                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                                       double matchScoreFactorLog)
{
    kt_DecisionRule::decide(*this, matchResults.data(), matchResults.size(), frequencies, costs, matchScoreFactorLog);
}

void kt_DecisionRule::decide(ktClassifierResult& result, const ktClassifierCategoryResult* matches, std::size_t size,
                             const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                             double matchScoreFactorLog)
{
    requireUniqueLabels(matches, size);
    kt_Scratch<double> posteriors(size);
    const double priorSum = lookUpPriors(matches, frequencies, posteriors);
    const double sum = weighByMatch(matches, priorSum, posteriors);
    kt_Scratch<CategoryResult> decided(size);
    for (std::size_t j = 0; j < size; ++j) {
        const double cost = costOfDeciding(matches, j, costs, posteriors);
        decided[j] = CategoryResult(matches[j].categoryLabel(), matches[j].matchScore(), posteriors[j] / sum, cost / sum);
    }
    sortByExpectedCost(decided.begin(), decided.end());
    result.results_.assign(decided.begin(), decided.end());
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
