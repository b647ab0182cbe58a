// Trees are read-only once built: threads walk, list, compare, store and release one tree at once. ThreadSanitizer watches.

#include "threads/tools.h"
#include "tree/trees.h"

namespace {

using namespace threads;
using namespace trees;

TEST(TreeThreads, WalkOneTreeWithBitEqualAnswers)
{
    ktClassifierTool tool;
    tool.train(*decisions());
    const std::vector<ktFeaturePattern> asked = randomPatterns(1);
    const auto expected = bitsOfAnswers(tool, asked);
    onEachThread<fewThreads>([&](int) {
        for (int round = 0; round < 10; ++round) {
            EXPECT_EQ(bitsOfAnswers(tool, asked), expected);
        }
    });
}

TEST(TreeThreads, ListCompareAndStoreOneTree)
{
    const Tree tree = decisions();
    const Tree other = decisions();
    const std::vector<long> labels = tree->categoryLabels();
    const std::string bytes = kt_test::store(*dynamic_cast<const Node*>(tree.get()));
    onEachThread<fewThreads>([&](int) {
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(tree->categoryLabels(), labels);
            EXPECT_TRUE(*tree == *other);
            EXPECT_TRUE(*tree == *tree->clone());
            EXPECT_EQ(kt_test::store(*dynamic_cast<const Node*>(tree.get())), bytes);
        }
    });
}

TEST(TreeThreads, TrainToolsOfTheirOwnWithOneTree)
{
    const Tree tree = decisions();
    const std::vector<ktFeaturePattern> asked = randomPatterns(2);
    ktClassifierTool tool;
    tool.train(*tree);
    const auto expected = bitsOfAnswers(tool, asked);
    onEachThread<fewThreads>([&](int) {
        for (int round = 0; round < 10; ++round) {
            ktClassifierTool own;
            own.train(*tree);
            EXPECT_EQ(bitsOfAnswers(own, asked), expected);
            const ktClassifierTool copy(own);
            own.untrain();
            EXPECT_EQ(bitsOfAnswers(copy, asked), expected);
        }
    });
    EXPECT_EQ(tree->refCount(), 1);
}

TEST(TreeThreads, LetGoOfOneTreeThatTheyWalked)
{
    const std::vector<ktFeaturePattern> asked = randomPatterns(3);
    for (int round = 0; round < 200; ++round) {
        // The last thread that drops its handle destroys the nodes that the others read.
        Tree tree = decisions();
        std::vector<ktClassifierTool> tools(fewThreads);
        for (ktClassifierTool& tool : tools) {
            tool.train(*tree);
        }
        tree = nullptr;
        onEachThread<fewThreads>([&](int number) {
            ktClassifierTool& tool = tools[static_cast<std::size_t>(number)];
            ktClassifierResult result;
            tool.run(asked[static_cast<std::size_t>(round)], result);
            EXPECT_FALSE(result.categoryResults().empty());
            tool.untrain();
            EXPECT_FALSE(tool.isTrained());
        });
    }
}

}  // namespace
