#include "normal_density_kit.h"

#include "support/normal_reference.h"

namespace {

using namespace kt_test;

TEST(NormalDensity, CopyIsEqualAndIndependent)
{
    ktNormalDensity original = learnt({{1.0, 2.0}, {3.0, 7.0}});
    logOf(original, {1.0, 2.0});
    const ktNormalDensity copy(original);
    ktNormalDensity assigned = learnt({{9.0}});
    EXPECT_EQ(&(assigned = original), &assigned);
    learn(original, Rows{{5.0, 5.0}});
    EXPECT_TRUE(sameBits(copy, learnt({{1.0, 2.0}, {3.0, 7.0}})));
    EXPECT_TRUE(sameBits(assigned, copy));
    const ktNormalDensity& same = assigned;
    assigned = same;
    EXPECT_TRUE(sameBits(assigned, copy));
}

TEST(NormalDensity, EqualityIsExactInMeanCovarianceAndCount)
{
    const ktNormalDensity density = restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 7);
    EXPECT_TRUE(density == restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 7));
    EXPECT_TRUE(density != restored({{1.0}, {2.0 + 0x1p-51}}, {{1.0, 0.5}, {0.5, 1.0}}, 7));
    EXPECT_TRUE(density != restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0 + 0x1p-52}}, 7));
    EXPECT_TRUE(density != restored({{1.0}, {2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 8));
    EXPECT_TRUE(density != restored({{1.0, 2.0}}, {{1.0, 0.5}, {0.5, 1.0}}, 7));
    EXPECT_FALSE(density == ktNormalDensity());
}

}  // namespace
