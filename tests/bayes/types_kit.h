#pragma once

// Distribution types and parameters that their tests start from.

#include "bayes_kit.h"

#include "support/messages.h"
#include "support/technique.h"

namespace bayes {

/// Two overrides and two sets of label 3, a set of label 4.
inline Types typesWithSets()
{
    Types types;
    types.distributionTypeOverride(3, 0, Types::eBinomial);
    types.distributionTypeOverride(4, 1, Types::ePoisson);
    types.setDependent(3, {1, 2});
    types.setDependent(4, {2, 5});
    types.setDependent(3, {6, 7});
    return types;
}

/// Expects that the operation is refused with these words and changes nothing.
template <class Error, class Operation>
void expectRefused(const std::string& message, const Types& before, Operation operation)
{
    Types types(before);
    kt_test::expectThrows<Error>(message, [&] { operation(types); });
    EXPECT_TRUE(types == before);
}

inline Types someTypes()
{
    Types types(Types::eNormal);
    types.distributionTypeOverride(0, 1, Types::eBinomial);
    types.setDependent(0, {2, 3});
    return types;
}

inline ktClassifierFrequencies someFrequencies()
{
    ktClassifierFrequencies frequencies(2.0);
    frequencies.categoryFrequencyOverride(1, 0.25);
    return frequencies;
}

inline ktFeaturePattern someMaxima()
{
    return {{1.0, 7.0}, {0}};
}

inline Params someParams()
{
    return {someTypes(), someFrequencies(), kt_test::someCosts(), someMaxima()};
}

}  // namespace bayes
