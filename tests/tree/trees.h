#pragma once

#include "support/test.h"

// What the tests of decision trees build their trees of, and what they expect of predicates.

namespace trees {

using Tree = ktPtrHandle<ktDecisionTree>;
using Node = ktDecisionTreeNode;
using Leaf = ktDecisionTreeLeaf;
using Labels = std::vector<long>;
using Predicate = ktPtrHandle_const<ktPredicateFunction>;
using SharedTree = ktPtrHandle_const<ktDecisionTree>;

inline std::vector<ktClassifierCategoryResult> entriesFor(const std::vector<long>& labels)
{
    std::vector<ktClassifierCategoryResult> entries;
    for (const long label : labels) {
        entries.emplace_back(label, 1.0, 1.0, 0.0);
    }
    return entries;
}

/// A result with these labels in this order.
inline ktClassifierResult resultFor(const std::vector<long>& labels)
{
    return {entriesFor(labels), 0.0};
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
    std::vector<ktClassifierCategoryResult> entries = entriesFor(labels);
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

inline Predicate comparison(long left, long right)
{
    return new ktComparisonPredicate(left, right);
}

inline Predicate range(double low, double high, const std::vector<long>& indices)
{
    return new ktRangePredicate(ktRange(low, high), indices);
}

inline Predicate validity(const std::vector<long>& indices)
{
    return new ktValidityPredicate(indices);
}

struct OutcomeRow {
    const char* what;
    Predicate predicate;
    ktFeaturePattern pattern;
    bool outcome;
};

inline void expectOutcomes(const std::vector<OutcomeRow>& rows)
{
    for (const OutcomeRow& row : rows) {
        EXPECT_EQ(row.predicate->outcome(row.pattern), row.outcome) << row.what;
    }
}

}  // namespace trees
