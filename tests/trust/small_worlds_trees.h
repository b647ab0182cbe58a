#pragma once

#include "support/test.h"

// Every tree of up to three levels over three predicates, and a plain picture of each.

namespace trust {

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
inline std::vector<Picture> picturesOf(int levels)
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
inline const std::vector<std::vector<Picture>>& pictures()
{
    static const std::vector<std::vector<Picture>> all{picturesOf(0), picturesOf(1), picturesOf(2), picturesOf(3)};
    return all;
}

inline ktPtrHandle<ktPredicateFunction> predicate(int number)
{
    if (number == 0) {
        return new ktComparisonPredicate(0, 1);
    }
    if (number == 1) {
        return new ktRangePredicate(ktRange(0.0, 1.0), {2});
    }
    return new ktValidityPredicate({3});
}

inline ktFeaturePattern pattern(unsigned number)
{
    const std::vector<double> values{(number & 1u) != 0 ? 2.0 : 1.0, 1.5, (number & 2u) != 0 ? 0.5 : 1.5, 0.0};
    return {values, (number & 4u) != 0 ? std::vector<long>() : std::vector<long>{3}};
}

inline ktClassifierResult resultFor(long leaf)
{
    return {{ktClassifierCategoryResult(leaf, 1.0, 1.0, 0.0)}, 0.0};
}

/// Leaves are counted from `first` on, those on the side of yes before the others.
inline Tree treeOf(const Picture& picture, std::size_t levels, long first = 0)
{
    if (picture.isLeaf()) {
        return new ktDecisionTreeLeaf(resultFor(first));
    }
    const Picture& yes = pictures()[levels - 1][picture.yes];
    const Picture& no = pictures()[levels - 1][picture.no];
    return new ktDecisionTreeNode(*predicate(picture.predicate), *treeOf(yes, levels - 1, first),
                                  *treeOf(no, levels - 1, first + yes.numLeaves));
}

inline long leafFor(const Picture& picture, std::size_t levels, unsigned number, long first = 0)
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
inline std::vector<long> labelsOf(const Picture& picture, std::size_t levels, long first = 0)
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

inline std::vector<Tree> treesOf(std::size_t levels)
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

}  // namespace trust
