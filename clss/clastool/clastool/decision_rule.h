#pragma once

#include <clastool/training_data.h>

#include <kt/scratch.h>

#include <cstddef>
#include <vector>

/// Raises a failing status of the attention check.
inline void kt_pollAttention()
{
    const long status = kfCheckAttention();
    if (status != 0) {
        kfThrowExceptionOnFailure(status);
    }
}

/// The intermediate values of one category in the decision rule.
struct kt_Verdict {
    ktClassifierCategoryResult category;
    union {
        /// The frequency f of the category. The posterior p is kept in the category's class score.
        double prior = 0.0;
        /// Used by the Bayesian technique until the match scores are known.
        double logLikelihood;
    };
    /// The place of this verdict in the caller's order.
    std::size_t given = 0;
    /// The present place of the verdict that the caller gave at this place.
    std::size_t whereGiven = 0;
    /// One more than the index of the last override with this true category; 0 if there is none.
    std::size_t lastOverride = 0;
};

/// The decision rule behind ktClassifierResult's constructors and the techniques' runs. It reuses the storage of the caller's result.
/// The result changes only if nothing is thrown.
///
/// Cost: quadratic in the categories; linear in the overrides, times the logarithm of the categories. With at most 32 categories and
/// a result that has held as many: no allocation. With more: two allocations, and a third one if costs have overrides.
class kt_DecisionRule {
public:
    static void decide(ktClassifierResult& result, const std::vector<ktClassifierCategoryResult>& matches,
                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                       double matchScoreFactorLog);

    /// Takes labels and match scores from the verdicts and works in them.
    static void decide(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts,
                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                       double matchScoreFactorLog);

    /// Sorts category results by ascending expected cost and hands them to the result. Throws: ktClassifierDefs::BadParams
    /// "The category labels of the match results must be unique.".
    static void sort(ktClassifierResult& result, const std::vector<ktClassifierCategoryResult>& categories,
                     double matchScoreFactorLog);

private:
    kt_DecisionRule(kt_Scratch<kt_Verdict>& verdicts, const ktClassifierFrequencies& frequencies,
                    const ktClassifierCosts& costs);

    double lookUpPriors();
    void weighMatches(double priorSum);
    void sumCosts();
    void divideBySum();

    void sumEqualCosts();
    void indexOverrides();
    void addMistakes(std::size_t truth);
    void lookUpMistakes(const kt_Verdict& truth);
    static void conclude(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts, double matchScoreFactorLog);

    kt_Scratch<kt_Verdict>& verdicts_;
    const ktClassifierFrequencies& frequencies_;
    const ktClassifierCosts& costs_;
    const std::size_t numOverrides_;
    // Not in the verdicts: the loop over all pairs of categories reads these numbers alone.
    kt_Scratch<double, 64> numbers_;
    // The cost of deciding for each category, given the present true category. If all mistakes cost the same: what each true category
    // adds to the costs of the others.
    double* const mistakes_;
    // The sum C over all true categories.
    double* const costSums_;
    // For each override, one more than the index of the previous override with the same true category; 0 if there is none. Empty with
    // few categories.
    std::vector<std::size_t> previous_;
};
