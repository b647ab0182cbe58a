// Every sequence of up to four calls that set, replace, clear or are refused, against plain maps.

#include "small_worlds_overrides.h"

namespace {

using namespace trust;

TEST(SmallWorldOfOverrides, CostsAreAMapByOrderedPairs)
{
    const OverrideSequences<Costs, Pair> sequences(
        costCalls(), [](const Costs& costs, const OverrideModel<Pair>& model) { return isSame(costs, model); });
    const long n = static_cast<long>(sequences.numCalls());
    EXPECT_EQ(sequences.checkFrom(Costs(), OverrideModel<Pair>(), 4), n + n * n + n * n * n + n * n * n * n);
}

TEST(SmallWorldOfOverrides, FrequenciesAreAMapByLabels)
{
    const OverrideSequences<Frequencies, long> sequences(
        frequencyCalls(),
        [](const Frequencies& table, const OverrideModel<long>& model) { return isSame(table, model); });
    const long n = static_cast<long>(sequences.numCalls());
    EXPECT_EQ(sequences.checkFrom(Frequencies(), OverrideModel<long>(), 4), n + n * n + n * n * n + n * n * n * n);
}

}  // namespace
