// Trees are read-only once built: threads walk, list, compare, store and release one tree at once. ThreadSanitizer watches.

#include "tree/trees.h"

#include "support/result_bits.h"

namespace {

using namespace trees;
using Node = ktDecisionTreeNode;

constexpr int numThreads = 4;

/// Runs `operation(number of the thread)` on several threads at once.
template <class Operation>
void onSeveralThreads(Operation operation)
{
    std::atomic<int> waiting{numThreads};
    std::vector<std::thread> threads;
    for (int number = 0; number < numThreads; ++number) {
        threads.emplace_back([&operation, &waiting, number] {
            // All begin at once, so that they meet.
            --waiting;
            while (waiting > 0) {
                std::this_thread::yield();
            }
            operation(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Nine comparisons and range tests over three measurements, with shared subtrees, and scores that are not round.
Tree decisions()
{
    Tree tree =
        ktDecisionTreeLeaf(ktClassifierResult({{1, 1.0 / 3.0, 0.1, 0.7}, {2, 2.0 / 3.0, 0.2, 0.3}}, -0.1)).clone();
    for (long i = 0; i < 9; ++i) {
        const ktDecisionTreeLeaf aside(
            ktClassifierResult({{i, 1.0 / (3.0 + static_cast<double>(i)), 0.3, 0.1}}, 1.0 / 7.0));
        if (i % 2 == 0) {
            tree =
                new Node(ktComparisonPredicate(i % 3, (i + 1) % 3), *tree, Node(ktValidityPredicate(), *tree, aside));
        } else {
            tree = new Node(ktRangePredicate(ktRange(0.25, 0.75), {i % 3}), aside, *tree);
        }
    }
    return tree;
}

std::vector<ktFeaturePattern> patterns(unsigned seed)
{
    std::mt19937 random(seed);
    const auto value = [&random] { return static_cast<double>(random() % 1000) / 1000.0; };
    std::vector<ktFeaturePattern> made;
    for (int i = 0; i < 300; ++i) {
        const std::vector<long> invalid = i % 5 == 0 ? std::vector<long>{i % 3} : std::vector<long>();
        made.emplace_back(std::vector<double>{value(), value(), value()}, invalid);
    }
    return made;
}

std::vector<std::vector<std::uint64_t>> answers(const ktClassifierTool& tool,
                                                const std::vector<ktFeaturePattern>& asked)
{
    std::vector<std::vector<std::uint64_t>> found;
    ktClassifierResult result;
    for (const ktFeaturePattern& pattern : asked) {
        tool.run(pattern, result);
        found.push_back(kt_test::bitsOf(result));
    }
    return found;
}

TEST(TreeThreads, WalkOneTreeWithBitEqualAnswers)
{
    ktClassifierTool tool;
    tool.train(*decisions());
    const std::vector<ktFeaturePattern> asked = patterns(1);
    const auto expected = answers(tool, asked);
    onSeveralThreads([&](int) {
        for (int round = 0; round < 10; ++round) {
            EXPECT_EQ(answers(tool, asked), expected);
        }
    });
}

TEST(TreeThreads, ListCompareAndStoreOneTree)
{
    const Tree tree = decisions();
    const Tree other = decisions();
    const std::vector<long> labels = tree->categoryLabels();
    const std::string bytes = kt_test::store(*dynamic_cast<const Node*>(tree.get()));
    onSeveralThreads([&](int) {
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
    const std::vector<ktFeaturePattern> asked = patterns(2);
    ktClassifierTool tool;
    tool.train(*tree);
    const auto expected = answers(tool, asked);
    onSeveralThreads([&](int) {
        for (int round = 0; round < 10; ++round) {
            ktClassifierTool own;
            own.train(*tree);
            EXPECT_EQ(answers(own, asked), expected);
            const ktClassifierTool copy(own);
            own.untrain();
            EXPECT_EQ(answers(copy, asked), expected);
        }
    });
    EXPECT_EQ(tree->refCount(), 1);
}

TEST(TreeThreads, LetGoOfOneTreeThatTheyWalked)
{
    const std::vector<ktFeaturePattern> asked = patterns(3);
    for (int round = 0; round < 200; ++round) {
        // The last thread that drops its handle destroys the nodes that the others read.
        Tree tree = decisions();
        std::vector<ktClassifierTool> tools(numThreads);
        for (ktClassifierTool& tool : tools) {
            tool.train(*tree);
        }
        tree = nullptr;
        onSeveralThreads([&](int number) {
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
