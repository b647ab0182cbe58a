#pragma once

#include <clastool/training_data.h>

#include <cstddef>

/// Raises a failing status of the attention check.
inline void kt_pollAttention()
{
    const long status = kfCheckAttention();
    if (status != 0) {
        kfThrowExceptionOnFailure(status);
    }
}

/// The decision rule behind ktClassifierResult's cost-weighted constructor, for the techniques' runs: it reuses the storage
/// of the caller's result, which changes only if nothing is thrown.
class kt_DecisionRule {
public:
    static void decide(ktClassifierResult& result, const ktClassifierCategoryResult* matches, std::size_t size,
                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                       double matchScoreFactorLog);
};
