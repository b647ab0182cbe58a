#include <clastool/training_data.h>

#include "decision_rule.h"

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

using Verdicts = kt_Scratch<kt_Verdict>;

void copyInto(Verdicts& verdicts, const std::vector<CategoryResult>& results)
{
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[i].category = results[i];
    }
}

void requireUniqueLabels(Verdicts& verdicts)
{
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

/// Equal costs keep their places, without the memory that std::stable_sort takes: few verdicts are sorted by insertion, more
/// of them with their places as second key.
void sortByCost(Verdicts& verdicts)
{
    if (verdicts.size() <= 32) {
        for (kt_Verdict* next = verdicts.begin(); next != verdicts.end(); ++next) {
            const kt_Verdict inserted = *next;
            kt_Verdict* place = next;
            for (; place != verdicts.begin() && costsLess(inserted, place[-1]); --place) {
                *place = place[-1];
            }
            *place = inserted;
        }
        return;
    }
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        verdicts[i].weight = static_cast<double>(i);
    }
    std::sort(verdicts.begin(), verdicts.end(), [](const kt_Verdict& a, const kt_Verdict& b) {
        return costsLess(a, b) || (!costsLess(b, a) && a.weight < b.weight);
    });
}

/// Notes the priors as weights and returns their sum.
double lookUpPriors(Verdicts& verdicts, const ktClassifierFrequencies& frequencies)
{
    double sum = 0.0;
    for (kt_Verdict& verdict : verdicts) {
        const long label = verdict.category.categoryLabel();
        if (label < 0) {
            throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
        }
        verdict.weight = frequencies.categoryFrequency(label);
        sum += verdict.weight;
    }
    if (sum == 0.0) {
        throw ktClassifierDefs::BadParams("At least one of the category frequencies must be > 0.");
    }
    return sum;
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
        const CategoryResult& match = verdict.category;
        verdict.category =
            CategoryResult(match.categoryLabel(), match.matchScore(), verdict.weight / sum, verdict.cost / sum);
    }
    conclude(result, verdicts, matchScoreFactorLog);
}

/// What deciding for each category costs, not yet divided by the sum of the posteriors. Each sum takes its terms in
/// ascending order of the true category.
void kt_DecisionRule::sumCosts(kt_Scratch<kt_Verdict>& verdicts, const ktClassifierCosts& costs)
{
    for (kt_Verdict& verdict : verdicts) {
        verdict.cost = 0.0;
    }
    const bool isUniform = costs.hasNoOverrides();
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        const long truth = verdicts[i].category.categoryLabel();
        const double posterior = verdicts[i].weight;
        const double uniform = costs.defaultMisclassificationCost() * posterior;
        for (std::size_t j = 0; j < verdicts.size(); ++j) {
            if (i != j) {
                const long decided = verdicts[j].category.categoryLabel();
                verdicts[j].cost += isUniform ? uniform : costs.misclassificationCost(truth, decided) * posterior;
            }
        }
    }
}

void kt_DecisionRule::conclude(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts, double matchScoreFactorLog)
{
    result.results_.reserve(verdicts.size());
    sortByCost(verdicts);
    result.results_.clear();
    for (const kt_Verdict& verdict : verdicts) {
        result.results_.push_back(verdict.category);
    }
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
