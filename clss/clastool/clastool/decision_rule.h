#pragma once

#include <clastool/training_data.h>

#include <kt/scratch.h>

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
    /// Its score, then its prior, its posterior, at last its place.
    double weight = 0.0;
    /// What deciding for it costs.
    double cost = 0.0;
};

/// The decision rule behind ktClassifierResult's cost-weighted constructor, for the techniques' runs: it reuses the storage
/// of the caller's result, which changes only if nothing is thrown.
class kt_DecisionRule {
public:
    static void decide(ktClassifierResult& result, const std::vector<ktClassifierCategoryResult>& matches,
                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                       double matchScoreFactorLog);

    /// Takes labels and match scores from the verdicts and works in them.
    static void decide(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts,
                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                       double matchScoreFactorLog);

    /// Sorts the verdicts by ascending expected cost and hands them to the result.
    static void conclude(ktClassifierResult& result, kt_Scratch<kt_Verdict>& verdicts, double matchScoreFactorLog);

private:
    static double lookUpPriors(kt_Scratch<kt_Verdict>& verdicts, const ktClassifierFrequencies& frequencies);
    static void sumCosts(kt_Scratch<kt_Verdict>& verdicts, const ktClassifierCosts& costs);
};
