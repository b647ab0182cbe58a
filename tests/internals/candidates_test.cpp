// The lists of a search, against lists that are sorted whole.

#include "clss/clastool/neighbor_scan/candidates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

TEST(SmallestValues, LargestIsThatOfTheSortedValues)
{
    std::mt19937 random(1);
    for (const std::size_t k : std::vector<std::size_t>{1, 2, 15, 16, 17, 18, 40, 200}) {
        for (const unsigned step : {1U, 7U, 64U}) {
            for (const unsigned range : {10U, 1000000U}) {
                kt_Smallest<float> smallest(k);
                std::vector<float> taken(k, std::numeric_limits<float>::infinity());
                for (unsigned count = 1; count <= 1000; ++count) {
                    const auto value = static_cast<float>(random() % range);
                    smallest.take(value);
                    taken.insert(std::upper_bound(taken.begin(), taken.end(), value), value);
                    if (count % step == 0) {
                        ASSERT_EQ(smallest.largest(), taken[k - 1]) << k << " of " << count;
                    }
                }
                smallest.clear();
                EXPECT_EQ(smallest.largest(), std::numeric_limits<float>::infinity());
                smallest.take(3.0F);
                EXPECT_EQ(smallest.largest(), k == 1 ? 3.0F : std::numeric_limits<float>::infinity());
            }
        }
    }
}
