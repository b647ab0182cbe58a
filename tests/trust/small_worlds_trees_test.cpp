// Every tree of up to three levels of nodes over three predicates, each leaf with a label of its own: walked, listed,
// stored, loaded and compared, against a plain picture of the tree.

#include "support/test.h"

namespace {

using Tree = ktPtrHandle<ktDecisionTree>;

/// Predicates 0, 1 and 2 say yes to a pattern by bits 0, 1 and 2 of its number.
struct Picture {
    int predicate = -1;
    std::size_t yes = 0;
    std::size_t no = 0;
    long numLeaves = 1;

    bool isLeaf() const { return predicate < 0; }
};

/// Every tree of up to this many levels; number 0 is the leaf, and branches are numbers of smaller trees.
std::vector<Picture> picturesOf(int levels)
{
    std::vector<Picture> pictures{Picture()};
    for (int level = 1; level <= levels; ++level) {
        const std::vector<Picture> smaller = pictures;
        pictures = {Picture()};
        for (int predicate = 0; predicate < 3; ++predicate) {
            for (std::size_t yes = 0; yes < smaller.size(); ++yes) {
                for (std::size_t no = 0; no < smaller.size(); ++no) {
                    pictures.push_back({predicate, yes, no, smaller[yes].numLeaves + smaller[no].numLeaves});
                }
            }
        }
    }
    return pictures;
}

/// The trees of every number of levels.
const std::vector<std::vector<Picture>>& pictures()
{
    static const std::vector<std::vector<Picture>> all{picturesOf(0), picturesOf(1), picturesOf(2), picturesOf(3)};
    return all;
}

ktPtrHandle<ktPredicateFunction> predicate(int number)
{
    if (number == 0) {
        return new ktComparisonPredicate(0, 1);
    }
    if (number == 1) {
        return new ktRangePredicate(ktRange(0.0, 1.0), {2});
    }
    return new ktValidityPredicate({3});
}

ktFeaturePattern pattern(unsigned number)
{
    const std::vector<double> values{(number & 1u) != 0 ? 2.0 : 1.0, 1.5, (number & 2u) != 0 ? 0.5 : 1.5, 0.0};
    return {values, (number & 4u) != 0 ? std::vector<long>() : std::vector<long>{3}};
}

ktClassifierResult resultFor(long leaf)
{
    return {{ktClassifierCategoryResult(leaf, 1.0, 1.0, 0.0)}, 0.0};
}

/// Leaves are counted from `first` on, those on the side of yes before the others.
Tree treeOf(const Picture& picture, std::size_t levels, long first = 0)
{
    if (picture.isLeaf()) {
        return new ktDecisionTreeLeaf(resultFor(first));
    }
    const Picture& yes = pictures()[levels - 1][picture.yes];
    const Picture& no = pictures()[levels - 1][picture.no];
    return new ktDecisionTreeNode(*predicate(picture.predicate), *treeOf(yes, levels - 1, first),
                                  *treeOf(no, levels - 1, first + yes.numLeaves));
}

long leafFor(const Picture& picture, std::size_t levels, unsigned number, long first = 0)
{
    if (picture.isLeaf()) {
        return first;
    }
    const Picture& yes = pictures()[levels - 1][picture.yes];
    const bool goesThere = ((number >> picture.predicate) & 1u) != 0;
    return goesThere ? leafFor(yes, levels - 1, number, first)
                     : leafFor(pictures()[levels - 1][picture.no], levels - 1, number, first + yes.numLeaves);
}

/// The side of no is listed first.
std::vector<long> labelsOf(const Picture& picture, std::size_t levels, long first = 0)
{
    if (picture.isLeaf()) {
        return {first};
    }
    const Picture& yes = pictures()[levels - 1][picture.yes];
    std::vector<long> labels = labelsOf(pictures()[levels - 1][picture.no], levels - 1, first + yes.numLeaves);
    const std::vector<long> others = labelsOf(yes, levels - 1, first);
    labels.insert(labels.end(), others.begin(), others.end());
    return labels;
}

std::vector<Tree> treesOf(std::size_t levels)
{
    std::vector<Tree> trees;
    for (const Picture& picture : pictures()[levels]) {
        trees.push_back(treeOf(picture, levels));
    }
    return trees;
}

class SmallWorldOfTrees : public ::testing::Test {
protected:
    const std::vector<Picture>& pictures_ = pictures()[3];
    const std::vector<Tree> trees_ = treesOf(3);
};

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
