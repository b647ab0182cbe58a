#pragma once

#include "trees.h"

#include "support/test.h"

// What the tests of the tree classifier, and of the tool with a tree, share.

namespace trees {

using Classifier = kt_ClassifierDecisionTree;

inline Classifier trained(const ktDecisionTree& tree)
{
    Classifier classifier;
    classifier.trainManual(tree);
    return classifier;
}

inline ktClassifierTool trainedTool(const ktDecisionTree& tree)
{
    ktClassifierTool tool;
    tool.train(tree);
    return tool;
}

/// Measurement 0 above measurement 1: label 1; else label 2.
inline Node smallTree()
{
    return {ktComparisonPredicate(0, 1), leafFor({1}), leafFor({2})};
}

/// Three nodes deep on the true side.
inline Node deepTree()
{
    return {yes(), Node(no(), leafFor({7}), Node(yes(), leafFor({1}), leafFor({8}))), leafFor({9})};
}

template <class Trained>
ktClassifierResult run(const Trained& classifier, const ktFeaturePattern& pattern)
{
    ktClassifierResult result;
    classifier.run(pattern, result);
    return result;
}

inline ktClassifierDataProviderMemory someData()
{
    ktClassifierDataProviderMemory data;
    data.addData(new ktFeaturePattern({1.0}, {}), 1);
    return data;
}

/// Opens the protected operations, and writes down the recordings.
class Opened : public kt_ClassifierDecisionTree {
public:
    explicit Opened(std::string* log = nullptr) : log_(log) {}

    using kt_ClassifierDecisionTree::checkRunnable_;
    using kt_ClassifierDecisionTree::isTrained_;
    using kt_ClassifierDecisionTree::retrain_;
    using kt_ClassifierDecisionTree::run_;
    using kt_ClassifierDecisionTree::serialize_;
    using kt_ClassifierDecisionTree::train_;
    using kt_ClassifierDecisionTree::trainIncremental_;
    using kt_ClassifierDecisionTree::trainStart_;
    using kt_ClassifierDecisionTree::untrain_;

    std::vector<ktDiagObject*> destinations;

private:
    void recordTrainInputs_(ktDiagObject* diag, unsigned long flags) const override { note("inputs", diag, flags); }
    void recordTrainDetails_(ktDiagObject* diag, unsigned long flags) const override { note("details", diag, flags); }
    void recordTrainResults_(ktDiagObject* diag, unsigned long flags) const override { note("results", diag, flags); }

    void note(const char* what, ktDiagObject* diag, unsigned long flags) const
    {
        if (log_ != nullptr) {
            *log_ += std::string(what) + " " + std::to_string(flags) + (isTrained() ? " trained; " : " untrained; ");
            const_cast<Opened*>(this)->destinations.push_back(diag);
        }
    }

    std::string* log_;
};

/// Sends recordings to another object and adds 100 to the flags.
class Redirected : public ktDiagObject {
public:
    explicit Redirected(ktDiagObject* destination) : destination_(destination) {}
    ktDiagObject* recordingDestination(unsigned long& flags) override
    {
        ++asked;
        flags += 100;
        return destination_;
    }

    long asked = 0;

private:
    ktDiagObject* destination_;
};

}  // namespace trees
