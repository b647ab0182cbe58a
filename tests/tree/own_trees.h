#pragma once

// Trees and predicates as a user of the library would write them.

#include "trees.h"

namespace trees {

/// Labels of its own; writes down what is done with it. Equal to every tree, unless made to be equal to none.
class OwnTree : public ktDecisionTree {
public:
    explicit OwnTree(const Labels& labels = {}, std::string name = "", std::string* log = nullptr,
                     bool equalsAll = true)
        : labels_(labels), name_(std::move(name)), log_(log), equalsAll_(equalsAll)
    {
    }
    Labels categoryLabels() const override
    {
        note("labels");
        return labels_;
    }
    ktPtrHandle<ktDecisionTree> clone() const override
    {
        note("clone");
        return new OwnTree(*this);
    }
    bool isEqual(const ktDecisionTree& other) const override
    {
        note("compare");
        return equalsAll_ && ktDecisionTree::isEqual(other);
    }

private:
    void note(const char* what) const
    {
        if (log_ != nullptr) {
            *log_ += std::string(what) + " " + name_ + "; ";
        }
    }

    Labels labels_;
    std::string name_;
    std::string* log_;
    bool equalsAll_;
};

/// Throws when it is to be cloned.
class UnclonableTree : public OwnTree {
public:
    ktPtrHandle<ktDecisionTree> clone() const override { throw std::runtime_error("no clone"); }
};

class OwnPredicate : public ktPredicateFunction {
public:
    explicit OwnPredicate(std::string* log, bool equalsAll = true) : log_(log), equalsAll_(equalsAll) {}
    bool outcome(const ktFeaturePattern&) const override { return true; }
    ktPtrHandle<ktPredicateFunction> clone() const override
    {
        *log_ += "clone predicate; ";
        return new OwnPredicate(*this);
    }
    bool isEqual(const ktPredicateFunction&) const override
    {
        *log_ += "compare predicate; ";
        return equalsAll_;
    }

private:
    std::string* log_;
    bool equalsAll_;
};

class OwnLeaf : public ktDecisionTreeLeaf {
public:
    using ktDecisionTreeLeaf::ktDecisionTreeLeaf;
    ktPtrHandle<ktDecisionTree> clone() const override { return new OwnLeaf(*this); }
};

class OwnNode : public ktDecisionTreeNode {
public:
    using ktDecisionTreeNode::ktDecisionTreeNode;
    ktPtrHandle<ktDecisionTree> clone() const override { return new OwnNode(*this); }
};

/// Says the contrary of what its base says; throws for a pattern without measurements.
class Contrary : public ktComparisonPredicate {
public:
    using ktComparisonPredicate::ktComparisonPredicate;
    bool outcome(const ktFeaturePattern& pattern) const override
    {
        if (pattern.numMeasurements() == 0) {
            throw std::runtime_error("nothing to compare");
        }
        return !ktComparisonPredicate::outcome(pattern);
    }
    ktPtrHandle<ktPredicateFunction> clone() const override { return new Contrary(*this); }
};

}  // namespace trees
