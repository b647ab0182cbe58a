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

/// One category on its way through the decision rule.
struct kt_Verdict {
    ktClassifierCategoryResult category;
    union {
        /// The frequency f of the category. The posterior p that follows from it stands in the category's class score.
        double prior = 0.0;
        /// For the Bayesian technique, until it has the match scores.
        double logLikelihood;
    };
    /// The place at which the caller gave this verdict.
    std::size_t given = 0;
    /// The present place of the verdict that the caller gave at this one.
    std::size_t whereGiven = 0;
    /// One more than the last override whose true category this is, 0 for none.
    std::size_t lastOverride = 0;
};

/// The decision rule behind ktClassifierResult's constructors, for the techniques' runs: it reuses the storage of the
/// caller's result, which changes only if nothing is thrown.
///
/// Cost: quadratic in the categories, and linear in the overrides but for the search of their labels. No allocation for up to
/// 32 categories into a result that has held as many; beyond, two, and one more if there are overrides of the costs.
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
    // Apart from the verdicts, because the loop over all pairs of categories needs nothing else.
    kt_Scratch<double, 64> numbers_;
    // What deciding for each category costs for the true category at hand; if all mistakes cost the same, what each true category
    // adds to the costs of deciding for any other.
    double* const mistakes_;
    // The sum C over all true categories.
    double* const costSums_;
    // For each override, one more than the override before it with the same true category. Empty for few categories, whose
    // overrides are looked for among all.
    std::vector<std::size_t> previous_;
};
