// Trees that are far deeper, or have far more ways through them, than a plain recursion could stand.

#include "deep_trees.h"

namespace {

using namespace kt_test;
using namespace trees;

TEST_P(MillionNodes, AreBuiltAndDestroyed)
{
    kt_test::needCounts();
    runOnSmallStack([] {
        const kt_test::MemoryWatch watch;
        Tree tree = build(1);
        EXPECT_GT(watch.liveBlocks(), million);
        tree = nullptr;
        EXPECT_EQ(watch.liveBlocks(), 0);
    });
}

TEST_P(MillionNodes, AreCopiedWithoutCopyingWhatIsBelow)
{
    runOnSmallStack([] {
        const kt_test::MemoryWatch watch;
        Tree tree = build(1);
        const Tree clone = tree->clone();
        {
            const Node copy(dynamic_cast<const Node&>(*tree));
            Node assigned;
            assigned = copy;
            EXPECT_EQ(assigned.trueTree().get(), copy.trueTree().get());
        }
        EXPECT_LT(watch.liveBlocks(), million + 100);
        tree = nullptr;
        EXPECT_EQ(clone->categoryLabels().size(), 2u);
    });
}

TEST_P(MillionNodes, AreWalkedToTheEnd)
{
    runOnSmallStack([] {
        kt_ClassifierDecisionTree classifier;
        classifier.trainManual(*build(1));
        const Attention attention;
        ktClassifierResult result;
        classifier.run(ktFeaturePattern(), result);
        EXPECT_TRUE(result == resultFor({1}));
        EXPECT_EQ(attention.polls(), million + 1);
        classifier.untrain();
    });
}

TEST_P(MillionNodes, AreCompared)
{
    runOnSmallStack([] {
        const Tree tree = build(1);
        const Tree equal = build(1);
        const Tree otherAtTheEnd = build(2);
        EXPECT_TRUE(*tree == *equal);
        EXPECT_TRUE(*tree == *tree);
        EXPECT_FALSE(*tree == *otherAtTheEnd);
        EXPECT_FALSE(*otherAtTheEnd == *tree);
    });
}

TEST_P(MillionNodes, AreListed)
{
    runOnSmallStack([] {
        const Labels expected = GetParam() == Shape::falseSide ? Labels{1, 8} : Labels{8, 1};
        EXPECT_EQ(build(1)->categoryLabels(), expected);
        EXPECT_EQ(build(1)->numCategories(), 2);
    });
}

TEST_P(MillionNodes, AreReleasedByAssignmentSettersLoadingAndTraining)
{
    runOnSmallStack([] {
        const kt_test::MemoryWatch watch;
        {
            Node parent(trees::yes(), *build(1), *build(2));
            parent.trueTree(leafFor({1}));
            parent.falseTree(leafFor({2}));
            parent.trueTree(*build(1));
            parent = Node(trees::yes(), leafFor({1}), leafFor({2}));
            parent.falseTree(*build(1));
            kt_test::loadInto(parent, kt_test::store(Node(trees::yes(), leafFor({1}), leafFor({2}))));
            EXPECT_EQ(parent.numCategories(), 2);
            kt_ClassifierDecisionTree classifier;
            classifier.trainManual(*build(1));
            classifier.trainManual(parent);
            EXPECT_EQ(classifier.decisionTree()->numCategories(), 2);
        }
        EXPECT_EQ(watch.liveBlocks(), 0);
    });
}

TEST_P(MillionNodes, PartThatAHandleHoldsOutlivesTheRest)
{
    runOnSmallStack([] {
        SharedTree middle = build(1);
        long depth = 0;
        for (; depth < million / 2; ++depth) {
            const auto& node = dynamic_cast<const Node&>(*middle);
            const SharedTree below = node.trueTree();
            middle = dynamic_cast<const Node*>(below.get()) != nullptr ? below : node.falseTree();
        }
        kt_ClassifierDecisionTree classifier;
        classifier.trainManual(*middle);
        const Attention attention;
        ktClassifierResult result;
        classifier.run(ktFeaturePattern(), result);
        EXPECT_EQ(attention.polls(), million / 2 + 1);
    });
}

std::string shapeName(const ::testing::TestParamInfo<Shape>& info)
{
    return info.param == Shape::trueSide ? "TrueSide" : info.param == Shape::falseSide ? "FalseSide" : "ZigZag";
}

INSTANTIATE_TEST_SUITE_P(Tree, MillionNodes, ::testing::Values(Shape::trueSide, Shape::falseSide, Shape::zigZag),
                         shapeName);

/// Every tree below, once each.
std::set<const ktDecisionTree*> distinctTrees(const ktDecisionTree& root)
{
    std::set<const ktDecisionTree*> seen{&root};
    std::vector<const ktDecisionTree*> open{&root};
    while (!open.empty()) {
        const auto* node = dynamic_cast<const Node*>(open.back());
        open.pop_back();
        if (node == nullptr) {
            continue;
        }
        for (const ktDecisionTree* below : {node->trueTree().get(), node->falseTree().get()}) {
            if (seen.insert(below).second) {
                open.push_back(below);
            }
        }
    }
    return seen;
}

constexpr int doubledLevels = 60;

TEST(DoubledChain, OfSixtyLevelsIsComparedAndListed)
{
    const Tree tree = doubledChain(doubledLevels, leafFor({3, 1}));
    EXPECT_TRUE(*tree == *doubledChain(doubledLevels, leafFor({3, 1})));
    EXPECT_TRUE(*tree == *tree->clone());
    EXPECT_FALSE(*tree == *doubledChain(doubledLevels, leafFor({1, 3})));
    EXPECT_FALSE(*tree == *doubledChain(doubledLevels - 1, leafFor({3, 1})));
    EXPECT_EQ(tree->categoryLabels(), (Labels{3, 1}));
    EXPECT_EQ(distinctTrees(*tree).size(), 2u * doubledLevels + 1);
}

TEST(DoubledChain, OfSixtyLevelsIsStoredAndLoadedWithAllItsSharing)
{
    const Tree tree = doubledChain(doubledLevels, leafFor({3, 1}));
    const std::string bytes = kt_test::store(tree);
    EXPECT_LT(bytes.size(), 10000u);
    const auto loaded = kt_test::load<Tree>(bytes);
    EXPECT_TRUE(*loaded == *tree);
    EXPECT_TRUE(*tree == *loaded);
    EXPECT_EQ(loaded->categoryLabels(), (Labels{3, 1}));
    EXPECT_EQ(distinctTrees(*loaded).size(), distinctTrees(*tree).size());
    EXPECT_EQ(kt_test::store(loaded), bytes);
}

TEST(DoubledChain, ThatLacksASubtreeAtTheEndIsABadPointer)
{
    Tree tree = Node().clone();
    for (int level = 0; level < doubledLevels; ++level) {
        tree = new Node(trees::yes(), *tree, *tree);
    }
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(tree->categoryLabels()); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(*tree == *tree->clone()); });
}

TEST(DoubledChain, OfAHundredThousandLevelsIsComparedListedAndDestroyedOnASmallStack)
{
    runOnSmallStack([] {
        const kt_test::MemoryWatch watch;
        {
            const Tree tree = doubledChain(100000, leafFor({3, 1}));
            EXPECT_TRUE(*tree == *doubledChain(100000, leafFor({3, 1})));
            EXPECT_EQ(tree->categoryLabels(), (Labels{3, 1}));
        }
        EXPECT_EQ(watch.liveBlocks(), 0);
    });
}

/// A node of the caller's own that only says how it is cloned.
class ClonedNode : public Node {
public:
    using Node::Node;
    Tree clone() const override { return new ClonedNode(*this); }
};

TEST(DoubledChain, OfAClassThatOverridesOnlyCloneIsComparedAndListedLikeOneOfNodes)
{
    // In a DLL the library cannot tell that its functions are not overridden.
    kt_test::needCounts();
    runOnSmallStack([] {
        const auto build = [](const ktDecisionTreeLeaf& end) {
            Tree tree = end.clone();
            for (int level = 0; level < 100000; ++level) {
                tree = new ClonedNode(trees::yes(), *tree, *tree);
            }
            return tree;
        };
        const Tree tree = build(leafFor({3, 1}));
        EXPECT_TRUE(*tree == *build(leafFor({3, 1})));
        EXPECT_FALSE(*tree == *build(leafFor({3, 2})));
        EXPECT_TRUE(*tree == *doubledChain(100000, leafFor({3, 1}))) << "a node is a node";
        EXPECT_TRUE(*doubledChain(100000, leafFor({3, 1})) == *tree);
        EXPECT_EQ(tree->categoryLabels(), (Labels{3, 1}));
        EXPECT_EQ(Node(trees::no(), *tree, leafFor({5, 4})).categoryLabels(), (Labels{5, 4, 3, 1}));
    });
}

/// `levels` levels of `levels` nodes each, of which each has two of the next level below it: with a turn of 0 and of 1 the same
/// unfolded, but shared in another way, so that every node of a level meets every one of the other tree.
Tree woven(long levels, long turn, const ktDecisionTreeLeaf& end)
{
    std::vector<Tree> below(static_cast<std::size_t>(levels), end.clone());
    const std::size_t size = below.size();
    for (long level = 0; level < levels; ++level) {
        std::vector<Tree> nodes;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t next = (i + 1) % size;
            nodes.emplace_back(new Node(trees::yes(), *below[turn == 0 ? i : next], *below[turn == 0 ? next : i]));
        }
        below = nodes;
    }
    return below.front();
}

TEST(WovenTrees, AreComparedInMemoryForTheirNodesNotForTheirPairs)
{
    constexpr long levels = 100;
    const Tree tree = woven(levels, 0, leafFor({1}));
    const Tree turned = woven(levels, 1, leafFor({1}));
    const std::size_t numNodes = distinctTrees(*tree).size();
    EXPECT_GT(numNodes, 5000u);
    const Tree other = woven(levels, 1, leafFor({2}));
    const kt_test::MemoryWatch watch;
    EXPECT_TRUE(*tree == *turned);
    EXPECT_TRUE(*turned == *tree);
    EXPECT_FALSE(*tree == *other);
    kt_test::needCounts();
    EXPECT_LT(watch.peakBytes(), 400 * numNodes);
}

/// A chain that, stored through a handle, opens this number of pointer records at once.
Tree nested(long records)
{
    return trees::chain(Shape::zigZag, records - 1, leafFor({1}), leafFor({2}));
}

constexpr const char* tooDeep = "Archive too deep: more than 1000 pointer records are open at once.";

template <class T>
std::string storeWithoutLimit(T value)
{
    kt_test::StoringArchive archive;
    archive.maxDepth(2000);
    archive || value;
    return archive.bytes();
}

/// Runs `operation` on the stack that a thousand records may take, and notes what it used of it.
template <class Operation>
void runOnStackForThousand(const char* what, Operation operation)
{
    const std::size_t used = kt_test::runOnStack(kt_test::stackForThousandRecords, operation);
    EXPECT_GT(used, 0u);
    ::testing::Test::RecordProperty(what, std::to_string(used));
}

TEST(TreeNesting, Of1000RecordsIsStoredAndLoadedOnASmallStack)
{
    for (const Shape shape : {Shape::trueSide, Shape::falseSide, Shape::zigZag}) {
        const Tree tree = trees::chain(shape, 999, leafFor({1}), leafFor({2}));
        std::string bytes;
        runOnStackForThousand("stackToStore", [&] { bytes = kt_test::store(tree); });
        runOnStackForThousand("stackToLoad", [&] { EXPECT_TRUE(*kt_test::load<Tree>(bytes) == *tree); });
        runOnStackForThousand("stackToLoadBlindly", [&] { EXPECT_TRUE(*kt_test::loadBlind<Tree>(bytes) == *tree); });
    }
}

TEST(TreeNesting, Of1001RecordsIsRefusedOnASmallStack)
{
    const Tree tree = nested(1001);
    const std::string bytes = storeWithoutLimit(nested(1001));
    runOnStackForThousand("stackToRefuse", [&] {
        EXPECT_THROW(kt_test::store(tree), ktArchive::TooDeep);
        EXPECT_THROW(kt_test::load<Tree>(bytes), ktArchive::TooDeep);
    });
}

TEST(TreeNesting, ToolOf1000RecordsIsStoredAndLoadedOnASmallStack)
{
    ktClassifierTool tool;
    tool.train(*nested(999));
    runOnStackForThousand("stackOfATool", [&] { EXPECT_TRUE(kt_test::storedAndLoaded(tool) == tool); });
}

TEST(TreeNesting, Of1001RecordsIsTooDeepToStore)
{
    const Tree tree = nested(1001);
    expectThrows<ktArchive::TooDeep>(tooDeep, [&] { kt_test::store(tree); });
    EXPECT_TRUE(*tree == *nested(1001));
}

TEST(TreeNesting, Of1001RecordsIsTooDeepToLoad)
{
    const std::string bytes = storeWithoutLimit(nested(1001));
    Tree loaded = leafFor({1}).clone();
    expectThrows<ktArchive::TooDeep>(tooDeep, [&] { kt_test::loadInto(loaded, bytes); });
    EXPECT_TRUE(loaded.isNull());
    kt_test::loadInto(loaded, kt_test::store(nested(1000)));
    EXPECT_TRUE(*loaded == *nested(1000));
}

TEST(TreeNesting, LimitIsTheArchivesToSet)
{
    const std::string bytes = storeWithoutLimit(nested(2000));
    kt_test::LoadingArchive archive(bytes);
    archive.maxDepth(2000);
    Tree loaded;
    archive || loaded;
    EXPECT_TRUE(*loaded == *nested(2000));
}

TEST(TreeNesting, ToolsOwnRecordCounts)
{
    ktClassifierTool fits;
    fits.train(*nested(999));
    EXPECT_TRUE(kt_test::storedAndLoaded(fits) == fits);
    ktClassifierTool tooMuch;
    tooMuch.train(*nested(1000));
    expectThrows<ktArchive::TooDeep>(tooDeep, [&] { kt_test::store(tooMuch); });
    EXPECT_TRUE(*tooMuch.decisionTree() == *nested(1000));
    ktClassifierTool loaded = fits;
    const std::string bytes = storeWithoutLimit(tooMuch);
    expectThrows<ktArchive::TooDeep>(tooDeep, [&] { kt_test::loadInto(loaded, bytes); });
    EXPECT_FALSE(loaded.isTrained());
}

TEST(TreeNesting, NodeStoredInPlaceIsNoRecord)
{
    const Tree tree = nested(1001);
    const auto& node = dynamic_cast<const Node&>(*tree);
    EXPECT_TRUE(kt_test::storedAndLoaded(node) == node);
    const Tree deeper = nested(1002);
    expectThrows<ktArchive::TooDeep>(tooDeep, [&] { kt_test::store(dynamic_cast<const Node&>(*deeper)); });
}

// The definitions of comparing, listing and walking, written down as they read. They visit every way through a tree.

bool plainEqual(const ktDecisionTree& a, const ktDecisionTree& b)
{
    if (const auto* leaf = dynamic_cast<const Leaf*>(&a)) {
        const auto* other = dynamic_cast<const Leaf*>(&b);
        return other != nullptr && leaf->classifierResult() == other->classifierResult();
    }
    const auto& node = dynamic_cast<const Node&>(a);
    const auto* other = dynamic_cast<const Node*>(&b);
    return other != nullptr && *node.predicateFunction() == *other->predicateFunction() &&
           plainEqual(*node.trueTree(), *other->trueTree()) && plainEqual(*node.falseTree(), *other->falseTree());
}

Labels plainLabels(const ktDecisionTree& tree)
{
    const auto* node = dynamic_cast<const Node*>(&tree);
    if (node == nullptr) {
        return tree.categoryLabels();
    }
    Labels labels = plainLabels(*node->falseTree());
    for (const long label : plainLabels(*node->trueTree())) {
        if (std::find(labels.begin(), labels.end(), label) == labels.end()) {
            labels.push_back(label);
        }
    }
    return labels;
}

const ktClassifierResult& plainWalk(const ktDecisionTree& tree, const ktFeaturePattern& pattern)
{
    if (const auto* leaf = dynamic_cast<const Leaf*>(&tree)) {
        return leaf->classifierResult();
    }
    const auto& node = dynamic_cast<const Node&>(tree);
    return plainWalk(node.predicateFunction()->outcome(pattern) ? *node.trueTree() : *node.falseTree(), pattern);
}

/// What an operation answers, or that it ends in a bad pointer.
template <class Answer>
struct Outcome {
    bool isBadPointer;
    Answer answer;

    bool operator==(const Outcome& other) const { return isBadPointer == other.isBadPointer && answer == other.answer; }
};

template <class Operation>
auto outcomeOf(Operation operation) -> Outcome<decltype(operation())>
{
    try {
        return {false, operation()};
    } catch (const ktBadPointer&) {
        return {true, {}};
    }
}

/// Trees with few different parts, so that equal ones are common; with much sharing; and with parts missing.
class RandomTrees {
public:
    RandomTrees(unsigned seed, long missingPercent) : random_(seed), missingPercent_(missingPercent) {}

    Tree next(int nodes)
    {
        std::vector<Tree> made{leafFor({1}).clone(), leafFor({2, 3}).clone(), leafFor({3, 1}).clone()};
        for (int i = 0; i < nodes; ++i) {
            ktPtrHandle<Node> node = new Node;
            if (isPresent()) {
                node->predicateFunction(ktComparisonPredicate(below(2), 2));
            }
            if (isPresent()) {
                node->trueTree(*made[made.size() - 1 - static_cast<std::size_t>(below(3))]);
            }
            if (isPresent()) {
                node->falseTree(*made[made.size() - 1 - static_cast<std::size_t>(below(3))]);
            }
            made.push_back(node);
        }
        return made.back();
    }

    long below(long end) { return static_cast<long>(random_() % static_cast<unsigned long>(end)); }

private:
    bool isPresent() { return below(100) >= missingPercent_; }

    std::mt19937 random_;
    long missingPercent_;
};

/// The same tree with nothing shared; missing parts stay missing.
Tree unshared(const ktDecisionTree& tree)
{
    const auto* node = dynamic_cast<const Node*>(&tree);
    if (node == nullptr) {
        return tree.clone();
    }
    ktPtrHandle<Node> copy = new Node;
    if (node->predicateFunction()) {
        copy->predicateFunction(*node->predicateFunction());
    }
    if (node->trueTree()) {
        copy->trueTree(*unshared(*node->trueTree()));
    }
    if (node->falseTree()) {
        copy->falseTree(*unshared(*node->falseTree()));
    }
    return copy;
}

TEST(RandomTree, IsComparedAsByVisitingEveryWay)
{
    long equal = 0;
    long unequal = 0;
    long bad = 0;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        RandomTrees random(seed, seed % 3 == 0 ? 5 : 0);
        const Tree a = random.next(1 + static_cast<int>(seed % 9));
        const Tree others[] = {random.next(1 + static_cast<int>(seed % 9)), unshared(*a), kt_test::storedAndLoaded(a)};
        for (const Tree& b : others) {
            const auto expected = outcomeOf([&] { return plainEqual(*a, *b); });
            ASSERT_TRUE(outcomeOf([&] { return *a == *b; }) == expected);
            ASSERT_TRUE(outcomeOf([&] { return *b == *a; }) == outcomeOf([&] { return plainEqual(*b, *a); }));
            ++(expected.isBadPointer ? bad : expected.answer ? equal : unequal);
        }
    }
    EXPECT_GT(equal, 1000);
    EXPECT_GT(unequal, 1000);
    EXPECT_GT(bad, 100);
}

TEST(RandomTree, IsListedAsByVisitingEveryWay)
{
    long bad = 0;
    std::set<Labels> lists;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        RandomTrees random(seed, seed % 3 == 0 ? 5 : 0);
        const Tree tree = random.next(1 + static_cast<int>(seed % 12));
        const auto expected = outcomeOf([&] { return plainLabels(*tree); });
        ASSERT_TRUE(outcomeOf([&] { return tree->categoryLabels(); }) == expected);
        ASSERT_TRUE(outcomeOf([&] { return kt_test::storedAndLoaded(tree)->categoryLabels(); }) == expected);
        lists.insert(expected.answer);
        bad += expected.isBadPointer ? 1 : 0;
    }
    EXPECT_GE(lists.size(), 5u);
    EXPECT_GT(bad, 100);
}

TEST(RandomTree, IsWalkedAsByRecursion)
{
    long bad = 0;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        RandomTrees random(seed, seed % 3 == 0 ? 5 : 0);
        kt_ClassifierDecisionTree classifier;
        classifier.trainManual(*random.next(1 + static_cast<int>(seed % 12)));
        for (int i = 0; i < 4; ++i) {
            const auto value = [&random] { return static_cast<double>(random.below(3)); };
            const ktFeaturePattern pattern({value(), value(), value()}, {random.below(3)});
            const auto expected = outcomeOf([&] { return plainWalk(*classifier.decisionTree(), pattern); });
            const auto found = outcomeOf([&] {
                ktClassifierResult result;
                classifier.run(pattern, result);
                return result;
            });
            ASSERT_TRUE(found == expected);
            bad += expected.isBadPointer ? 1 : 0;
        }
    }
    EXPECT_GT(bad, 100);
}

}  // namespace
