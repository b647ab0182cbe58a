#pragma once

// Trees of many levels, and work on them on a small stack.

#include "trees.h"

#include "support/stacks.h"

namespace trees {

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

/// Runs `operation` on a thread with a stack of 256 KiB.
template <class Operation>
void runOnSmallStack(Operation operation)
{
    kt_test::runOnStack(256 * 1024, operation);
}

inline constexpr long million = 1000000;

/// A chain of a million nodes, handled on a stack of 256 KiB.
class MillionNodes : public ::testing::TestWithParam<Shape> {
protected:
    static Tree build(long end) { return trees::chain(GetParam(), million, leafFor({end}), leafFor({8})); }
};

}  // namespace trees
