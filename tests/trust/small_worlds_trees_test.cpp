// Every tree of up to three levels of nodes over three predicates, each leaf with a label of its own: walked, listed,
// stored, loaded and compared, against a plain picture of the tree.

#include "small_worlds_trees.h"

namespace {

using namespace trust;

TEST_F(SmallWorldOfTrees, HasEveryTree)
{
    EXPECT_EQ(treesOf(0).size(), 1u);
    EXPECT_EQ(treesOf(1).size(), 1u + 3u);
    EXPECT_EQ(treesOf(2).size(), 1u + 3u * 4u * 4u);
    EXPECT_EQ(trees_.size(), 1u + 3u * 49u * 49u);
}

TEST_F(SmallWorldOfTrees, IsWalkedToTheLeafOfThePicture)
{
    std::vector<ktFeaturePattern> patterns;
    for (unsigned number = 0; number < 8; ++number) {
        patterns.push_back(pattern(number));
    }
    ktClassifierResult result;
    for (std::size_t i = 0; i < trees_.size(); ++i) {
        ktClassifierTool tool;
        tool.train(*trees_[i]);
        for (unsigned number = 0; number < 8; ++number) {
            tool.run(patterns[number], result);
            ASSERT_TRUE(result == resultFor(leafFor(pictures_[i], 3, number))) << i << " with " << number;
        }
    }
}

TEST_F(SmallWorldOfTrees, ListsItsLabelsAsThePictureDoes)
{
    for (std::size_t i = 0; i < trees_.size(); ++i) {
        ASSERT_EQ(trees_[i]->categoryLabels(), labelsOf(pictures_[i], 3)) << i;
        ASSERT_EQ(trees_[i]->numCategories(), pictures_[i].numLeaves) << i;
    }
}

TEST_F(SmallWorldOfTrees, IsStoredLoadedAndStoredToTheSameBytes)
{
    for (std::size_t i = 0; i < trees_.size(); ++i) {
        const std::string bytes = kt_test::store(trees_[i]);
        const Tree loaded = kt_test::load<Tree>(bytes);
        ASSERT_TRUE(*loaded == *trees_[i] && *trees_[i] == *loaded) << i;
        ASSERT_TRUE(*loaded->clone() == *trees_[i]) << i;
        ASSERT_EQ(kt_test::store(loaded), bytes) << i;
    }
}

TEST_F(SmallWorldOfTrees, EqualsNoOtherTree)
{
    // Each pair once: 26 million of them. Both ways round where there are fewer.
    for (std::size_t i = 0; i < trees_.size(); ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            if ((*trees_[i] == *trees_[j]) != (i == j)) {
                FAIL() << i << " and " << j;
            }
        }
    }
    const std::vector<Tree> smaller = treesOf(2);
    for (std::size_t i = 0; i < smaller.size(); ++i) {
        for (std::size_t j = 0; j < smaller.size(); ++j) {
            EXPECT_EQ(*smaller[i] == *smaller[j], i == j) << i << " and " << j;
        }
    }
}

}  // namespace
