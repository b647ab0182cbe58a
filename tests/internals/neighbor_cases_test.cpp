// Nearest-neighbour runs against a second, plain implementation, compared to the bit: 100,000 random cases with each set of
// kernels that the machine has. A case is one run on one set of patterns. With KT_NEIGHBOR_SET=n in the environment only
// the n-th set of each kind is made.

#include "neighbor_cases.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using namespace neighbor_cases;

TEST_P(NeighborCases, AreAnsweredAsByThePlainScan)
{
    const char* const only = std::getenv("KT_NEIGHBOR_SET");
    const unsigned long first = only != nullptr ? std::strtoul(only, nullptr, 10) : 0;
    const unsigned long end = only != nullptr ? first + 1 : setsOfKind;
    for (unsigned long number = first; number < end && !HasFailure(); ++number) {
        check(number);
    }
    if (only == nullptr && GetParam().isServed) {
        EXPECT_GT(served_ * 2, asked_);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, NeighborCases, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
