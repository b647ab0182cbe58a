#include "support/test.h"

namespace {

TEST(Pair, HoldsTwoValues)
{
    const ktPair<double> pair(1.5, 2.5);
    EXPECT_EQ(pair.first, 1.5);
    EXPECT_EQ(pair.second, 2.5);
}

TEST(Pair, DefaultsAreValueInitialised)
{
    EXPECT_EQ(ktPair<double>().first, 0.0);
    EXPECT_EQ(ktPair<long>().second, 0);
    EXPECT_EQ(ktPair<std::string>().first, "");
}

TEST(Pair, EqualityIsOfBoth)
{
    EXPECT_TRUE(ktPair<long>(1, 2) == ktPair<long>(1, 2));
    EXPECT_TRUE(ktPair<long>(1, 2) != ktPair<long>(1, 3));
    EXPECT_TRUE(ktPair<long>(1, 2) != ktPair<long>(0, 2));
    EXPECT_FALSE(ktPair<long>(1, 2) != ktPair<long>(1, 2));
}

}  // namespace
