#pragma once

#include <clastool/classifier.h>

#include <vector>

/// Answers yes or no for a pattern. Derive from it for a test of your own.
///
/// Threads: const operations run on several threads at once. Archive: version byte.
class KT_API ktPredicateFunction : public ktPersistent, public ktRepBase {
public:
    ktPredicateFunction();

    /// The answer. A measurement that is invalid or past the pattern's end should answer false, as the library's own tests do.
    virtual bool outcome(const ktFeaturePattern& pattern) const = 0;
    /// A new, independent copy.
    virtual ktPtrHandle<ktPredicateFunction> clone() const = 0;
    /// True here; a derived class first tests the class of the other.
    virtual bool isEqual(const ktPredicateFunction& other) const;

    bool operator==(const ktPredicateFunction& other) const { return isEqual(other); }
    bool operator!=(const ktPredicateFunction& other) const { return !isEqual(other); }

protected:
    ktPredicateFunction(const ktPredicateFunction&) = default;
    ktPredicateFunction& operator=(const ktPredicateFunction&) = default;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);
};

/// Whether one measurement is greater than another. False if either is invalid or past the pattern's end, for equal
/// values and for NaN.
///
/// Copy: member by member. Archive: version byte, base, both indices.
class KT_API ktComparisonPredicate : public ktPredicateFunction {
public:
    /// Measurement 0 > measurement 1.
    ktComparisonPredicate();
    /// Measurement `measurementIndex1` > measurement `measurementIndex2`.
    /// Throws: ktClassifierDefs::BadParams "Measurement indices must be different."; for the first, then the second negative
    /// index ktClassifierDefs::BadIndex "Measurement index must be >= 0 and < number of measurements.".
    /// Kept on purpose: the upper bound in that text is not checked, because a predicate does not know the patterns.
    ktComparisonPredicate(long measurementIndex1, long measurementIndex2);

    /// The measurement that is to be greater.
    long measurementIndex1() const { return index1_; }
    /// The measurement that it is compared with.
    long measurementIndex2() const { return index2_; }

    /// Compared exactly, no tolerance.
    bool outcome(const ktFeaturePattern& pattern) const override;
    ktPtrHandle<ktPredicateFunction> clone() const override;
    /// The same class and the same measurements in the same order.
    bool isEqual(const ktPredicateFunction& other) const override;

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    long index1_ = 0;
    long index2_ = 1;
};

/// Whether every listed measurement is valid and lies in a range, both ends included; true for an empty list.
///
/// Copy: member by member. Archive: version byte, base, range, indices.
class KT_API ktRangePredicate : public ktPredicateFunction {
public:
    /// The full range, measurement 0.
    ktRangePredicate();
    /// Throws: ktClassifierDefs::BadIndex "Measurement index must be >= 0 and < number of measurements." for the first
    /// negative index (no upper bound is checked).
    ktRangePredicate(const ktRange& measurementRange, const std::vector<long>& measurementIndices);
    ktRangePredicate(const ktRangePredicate&);
    ktRangePredicate& operator=(const ktRangePredicate& other);

    /// The range that every listed measurement has to lie in, both ends included.
    ktRange measurementRange() const { return range_; }
    /// The measurements that are looked at, in this order.
    std::vector<long> measurementIndices() const { return indices_; }

    /// Stops at the first measurement that fails.
    bool outcome(const ktFeaturePattern& pattern) const override;
    ktPtrHandle<ktPredicateFunction> clone() const override;
    /// The same class, an equal range and equal indices in the same order.
    bool isEqual(const ktPredicateFunction& other) const override;

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    friend class ktDecisionTreeNode;

    ktRange range_;
    std::vector<long> indices_;
};

/// Whether every listed measurement is valid; true for an empty list.
///
/// Copy: member by member. Archive: version byte, base, indices.
class KT_API ktValidityPredicate : public ktPredicateFunction {
public:
    /// Measurement 0.
    ktValidityPredicate();
    /// Throws: ktClassifierDefs::BadIndex "Measurement index must be >= 0 and < number of measurements." for the first
    /// negative index (no upper bound is checked).
    ktValidityPredicate(const std::vector<long>& measurementIndices);

    /// The measurements that are looked at, in this order.
    std::vector<long> measurementIndices() const { return indices_; }

    /// Stops at the first invalid measurement.
    bool outcome(const ktFeaturePattern& pattern) const override;
    ktPtrHandle<ktPredicateFunction> clone() const override;
    /// The same class and equal indices in the same order.
    bool isEqual(const ktPredicateFunction& other) const override;

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    std::vector<long> indices_;
};

/// A binary tree built by hand: nodes that ask a predicate, leaves that hold a result.
///
/// Trees may be of any depth and share subtrees in any way: building, copying, comparing, listing labels and destroying take bounded
/// stack and visit a shared subtree once. That holds for nodes of the caller's own class too, but not for its overrides of the
/// comparison or the listing, which recurse as they like. An archive takes 1000 levels (ktArchive::maxDepth), those of the tool
/// and of the leaf included.
/// Threads: const operations run on several threads at once. Archive: version byte.
class KT_API ktDecisionTree : public ktPersistent, public ktRepBase {
public:
    ktDecisionTree();

    /// The labels that the tree can answer with.
    virtual std::vector<long> categoryLabels() const = 0;
    /// A new tree that no change to this one reaches.
    virtual ktPtrHandle<ktDecisionTree> clone() const = 0;
    /// True here; a derived class first tests the class of the other.
    virtual bool isEqual(const ktDecisionTree& other) const;

    /// The number of entries of `categoryLabels()`.
    long numCategories() const;

    bool operator==(const ktDecisionTree& other) const { return isEqual(other); }
    bool operator!=(const ktDecisionTree& other) const { return !isEqual(other); }

protected:
    ktDecisionTree(const ktDecisionTree&);
    ktDecisionTree& operator=(const ktDecisionTree&);

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class ktDecisionTreeNode;
    friend class ktDecisionTreeLeaf;
    friend class kt_ClassifierDecisionTree;

    // The class as a walk needs it: asking for the run-time type at every node costs more than the walk.
    enum class Kind : unsigned char { other, node, leaf };
    explicit ktDecisionTree(Kind kind);

    const Kind kind_ = Kind::other;
};

/// An inner node: a predicate and the trees for its two outcomes.
///
/// Ownership: holds clones of what it is given; its getters share them, read-only. A predicate or subtree that the same pass also
/// loaded into a handle of the caller's own is read-only too: a walk may keep what a predicate asked when the node took it.
/// Copy: shares predicate and subtrees. Archive: version byte, base, true tree, false tree, predicate, as pointer records.
class KT_API ktDecisionTreeNode : public ktDecisionTree {
public:
    /// No predicate and no subtrees: something to load into.
    ktDecisionTreeNode();
    /// Clones the true tree, the false tree and the predicate, in this order.
    ktDecisionTreeNode(const ktPredicateFunction& predicate, const ktDecisionTree& trueTree,
                       const ktDecisionTree& falseTree);
    ktDecisionTreeNode(const ktDecisionTreeNode&);
    ktDecisionTreeNode& operator=(const ktDecisionTreeNode&);
    ~ktDecisionTreeNode() override;

    /// The question; null in a node that was never given one.
    ktPtrHandle_const<ktPredicateFunction> predicateFunction() const { return predicate_; }
    /// Holds a clone.
    void predicateFunction(const ktPredicateFunction& predicate);
    /// Where the walk goes on if the predicate answers yes; null in a node that was never given one.
    ktPtrHandle_const<ktDecisionTree> trueTree() const { return trueTree_; }
    /// Holds a clone.
    void trueTree(const ktDecisionTree& tree);
    /// Where the walk goes on if the predicate answers no; null in a node that was never given one.
    ktPtrHandle_const<ktDecisionTree> falseTree() const { return falseTree_; }
    /// Holds a clone.
    void falseTree(const ktDecisionTree& tree);

    /// Kept on purpose: the false tree's labels come first, as it gives them, then those that only the true tree adds.
    /// Throws: ktBadPointer for a missing subtree (after loading a damaged archive).
    /// Cost: linear in the distinct nodes.
    std::vector<long> categoryLabels() const override;
    ktPtrHandle<ktDecisionTree> clone() const override;
    /// A node with an equal predicate, an equal true tree and an equal false tree, compared in this order up to the first
    /// difference. Throws: ktBadPointer for a missing predicate or subtree that is reached.
    /// Cost: linear in what both trees hold, each shared part once; with classes of the caller's own whose equality is their
    /// own, linear in the distinct pairs that are met.
    bool isEqual(const ktDecisionTree& other) const override;

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_ClassifierDecisionTree;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    static void releaseChain(ktPtrHandle_const<ktDecisionTree> tree) noexcept;
    template <class Function>
    KT_HIDDEN static bool isWalked(const ktDecisionTree& tree, Function ktDecisionTree::*function);
    KT_HIDDEN void noteTest();
    KT_HIDDEN bool outcome(const ktFeaturePattern& pattern) const;

    ktPtrHandle_const<ktDecisionTree> trueTree_;
    ktPtrHandle_const<ktDecisionTree> falseTree_;
    ktPtrHandle_const<ktPredicateFunction> predicate_;
    // What the predicate asks, if it is a ktRangePredicate of one measurement, as most are: a walk then follows two pointers fewer.
    // Negative for every other predicate.
    long testedIndex_ = -1;
    ktRange testedRange_;
};

/// A leaf: the result for every pattern that reaches it.
///
/// Copy: copies the result. Archive: version byte, base, result.
class KT_API ktDecisionTreeLeaf : public ktDecisionTree {
public:
    /// A default-constructed result.
    ktDecisionTreeLeaf();
    /// Holds a copy of the result.
    ktDecisionTreeLeaf(const ktClassifierResult& classifierResult);
    ktDecisionTreeLeaf(const ktDecisionTreeLeaf&);
    ktDecisionTreeLeaf& operator=(const ktDecisionTreeLeaf&);

    /// The result of every pattern that gets here.
    const ktClassifierResult& classifierResult() const { return result_; }
    /// Holds a copy.
    void classifierResult(const ktClassifierResult& classifierResult);

    /// The labels of the result in its order, duplicates included.
    std::vector<long> categoryLabels() const override;
    ktPtrHandle<ktDecisionTree> clone() const override;
    /// A leaf with an equal result.
    bool isEqual(const ktDecisionTree& other) const override;

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    ktClassifierResult result_;
};

// The implementation side: programs give the tool a tree, and the tool makes this class.

/// The decision-tree classifier: walks from the root to a leaf and answers with the leaf's result. Only `trainManual` trains
/// it.
///
/// Copy: shares the tree, which nobody can change. Archive: version byte, base, tree as a pointer record (null allowed).
class KT_API kt_ClassifierDecisionTree : public kt_Classifier {
public:
    kt_ClassifierDecisionTree();

    /// The held tree; null while untrained.
    const ktPtrHandle_const<ktDecisionTree>& decisionTree() const { return tree_; }

    /// Untrains, then holds a clone of the tree, which may be a part of the held one. Its content is not checked; what is
    /// wrong in it shows in a run. If the tree cannot be cloned, the classifier stays untrained.
    void trainManual(const ktDecisionTree& tree, ktDiagObject* diag = nullptr, unsigned long flags = 0);

    ktPtrHandle<kt_Classifier> clone() const override;
    /// A classifier of this class with an equivalent base and an equal tree.
    /// Kept on purpose: throws ktBadPointer for two untrained classifiers; the nearest-neighbour classifier answers true.
    bool isEquivalent(const kt_Classifier& other) const override;

    bool operator==(const kt_ClassifierDecisionTree& other) const { return isEquivalent(other); }
    bool operator!=(const kt_ClassifierDecisionTree& other) const { return !isEquivalent(other); }

protected:
    /// Throws: ktClassifierDefs::NotImplemented "Automatic decision tree training is not implemented.".
    void train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params) override;
    /// Throws: ktClassifierDefs::NotImplemented "Automatic decision tree training is not implemented.".
    void retrain_(const ktClassifierTrainParams& params) override;
    /// Throws: ktClassifierDefs::NotImplemented "Incremental decision tree training is not implemented.".
    void trainStart_(const ktClassifierTrainParams& params) override;
    /// Throws: ktClassifierDefs::NotImplemented "Incremental decision tree training is not implemented.".
    void trainIncremental_(const ktFeaturePattern& pattern, long label) override;
    void untrain_() override;
    bool isTrained_() const override;
    void checkRunnable_() const override;
    /// The pattern is not checked: predicates answer false for measurements that it lacks.
    /// Throws: ktBadPointer untrained, and for a missing predicate or subtree, or a tree of another class, met in the walk;
    /// what the attention check raises. Polls: once per tree visited. Cost: the depth of the leaf.
    void run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const override;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    void recordTrainInputs_(ktDiagObject*, unsigned long) const override {}
    void recordTrainDetails_(ktDiagObject*, unsigned long) const override {}
    void recordTrainResults_(ktDiagObject*, unsigned long) const override {}
    void recordRunInputs_(ktDiagObject*, unsigned long, const ktFeaturePattern&) const override {}
    void recordRunDetails_(ktDiagObject*, unsigned long) const override {}
    void recordRunResults_(ktDiagObject*, unsigned long, const ktFeaturePattern&,
                           const ktClassifierResult&) const override
    {
    }

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    ktPtrHandle_const<ktDecisionTree> tree_;
};
