#pragma once

#include "support/stacks.h"
#include "support/test.h"

// What the tests of decision trees build their trees of.

namespace trees {

using Tree = ktPtrHandle<ktDecisionTree>;
using SharedTree = ktPtrHandle_const<ktDecisionTree>;

/// A result with these labels in this order.
inline ktClassifierResult resultFor(const std::vector<long>& labels)
{
    std::vector<ktClassifierCategoryResult> entries;
    for (const long label : labels) {
        entries.emplace_back(label, 1.0, 1.0, 0.0);
    }
    return {entries, 0.0};
}

inline ktDecisionTreeLeaf leafFor(const std::vector<long>& labels)
{
    return ktDecisionTreeLeaf(resultFor(labels));
}

/// Says yes to every pattern.
inline ktValidityPredicate yes()
{
    return ktValidityPredicate(std::vector<long>());
}

/// Says no to every pattern: nothing lies in its range.
inline ktRangePredicate no()
{
    return {ktRange(1.0, 0.0), {0}};
}

/// A leaf whose result no constructor makes: labels as they stand, twice or more if need be.
inline ktDecisionTreeLeaf loadedLeaf(const std::vector<long>& labels)
{
    std::vector<ktClassifierCategoryResult> entries;
    for (const long label : labels) {
        entries.emplace_back(label, 1.0, 1.0, 0.0);
    }
    unsigned char version = 0;
    double factorLog = 0.0;
    kt_test::StoringArchive archive;
    archive || version || version || version || entries || factorLog;
    return kt_test::load<ktDecisionTreeLeaf>(archive.bytes());
}

inline ktDecisionTreeNode node(const ktDecisionTree& trueTree, const ktDecisionTree& falseTree)
{
    return {yes(), trueTree, falseTree};
}

inline ktDecisionTreeNode missingTrue(const ktDecisionTree& falseTree)
{
    ktDecisionTreeNode result;
    result.predicateFunction(yes());
    result.falseTree(falseTree);
    return result;
}

inline ktDecisionTreeNode missingFalse(const ktDecisionTree& trueTree)
{
    ktDecisionTreeNode result;
    result.predicateFunction(yes());
    result.trueTree(trueTree);
    return result;
}

inline ktDecisionTreeNode missingPredicate(const ktDecisionTree& trueTree, const ktDecisionTree& falseTree)
{
    ktDecisionTreeNode result;
    result.trueTree(trueTree);
    result.falseTree(falseTree);
    return result;
}

enum class Shape { trueSide, falseSide, zigZag };

/// A chain of `length` nodes that every pattern walks down to the leaf `end`; on the other side of each node lies `aside`.
/// The nodes are objects of their own and share predicate and leaf.
inline Tree chain(Shape shape, long length, const ktDecisionTreeLeaf& end, const ktDecisionTreeLeaf& aside)
{
    const ktDecisionTreeNode towardsTrue(yes(), end, aside);
    const ktDecisionTreeNode towardsFalse(no(), aside, end);
    Tree tree = end.clone();
    for (long level = 0; level < length; ++level) {
        const bool isTrue = shape == Shape::trueSide || (shape == Shape::zigZag && level % 2 == 0);
        ktPtrHandle<ktDecisionTreeNode> node = new ktDecisionTreeNode(isTrue ? towardsTrue : towardsFalse);
        if (isTrue) {
            node->trueTree(*tree);
        } else {
            node->falseTree(*tree);
        }
        tree = node;
    }
    return tree;
}

/// The two branches of each node are clones of one tree, so they share their subtrees, and 2^levels ways lead to a leaf.
inline Tree doubledChain(int levels, const ktDecisionTreeLeaf& end)
{
    Tree tree = end.clone();
    for (int level = 0; level < levels; ++level) {
        tree = new ktDecisionTreeNode(yes(), *tree, *tree);
    }
    return tree;
}

/// Loads an archive value by value, in one pass.
class Fields {
public:
    explicit Fields(const std::string& bytes)
        : stream_(bytes), archive_(static_cast<std::istream&>(stream_)), pass_(archive_)
    {
    }

    template <class T>
    T next()
    {
        T value{};
        archive_ || value;
        return value;
    }

    bool atEnd() { return stream_.peek() == std::istringstream::traits_type::eof(); }

private:
    std::istringstream stream_;
    ktArchive archive_;
    ktArchive::Pass pass_;
};

/// Runs `operation` on a thread with a stack of 256 KiB.
template <class Operation>
void runOnSmallStack(Operation operation)
{
    kt_test::runOnStack(256 * 1024, operation);
}

}  // namespace trees
