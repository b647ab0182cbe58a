// Predicates, trees and the classifier that walks them. docs/decision-trees.md describes them for callers.
//
// A tree may be of any depth and share subtrees, so nothing here recurses over it, and each shared part is visited once:
//
//     categoryLabels    a list of trees still to be visited, and a set of those that were
//     isEqual           a list of pairs still to be compared; Compared unites what was found equal, so that there are never more
//                       comparisons than parts
//     releaseChain      destroys by rotating nodes: no recursion, no allocation
//     run_              walks to a leaf; a node keeps what its predicate asks, if that is a range of one measurement

#include <clastool/decision_tree.h>

#include "clastool/decision_rule.h"
#include "clastool/overrider.h"

#include <algorithm>
#include <set>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

void requireNonNegative(long index)
{
    if (index < 0) {
        throw ktClassifierDefs::BadIndex("Measurement index must be >= 0 and < number of measurements.");
    }
}

void requireNonNegative(const std::vector<long>& indices)
{
    for (const long index : indices) {
        requireNonNegative(index);
    }
}

/// A loaded predicate may hold a negative index, which no pattern has.
inline bool isAvailable(const ktFeaturePattern& pattern, long index)
{
    return index >= 0 && pattern.isValid(index);
}

/// Whether the object has several owners, so that a walk may meet it again.
bool isShared(const ktRepBase& object)
{
    return object.refCount() > 1;
}

/// Two trees that are still to be compared.
using TreePair = std::pair<const ktDecisionTree*, const ktDecisionTree*>;

bool hasTransitiveEquality(const ktPredicateFunction& predicate)
{
    const std::type_info& type = typeid(predicate);
    return type == typeid(ktRangePredicate) || type == typeid(ktComparisonPredicate) ||
           type == typeid(ktValidityPredicate);
}

/// Remembers which pairs a comparison of two trees has met, and skips those that follow from them.
///
/// The library's own equalities are transitive: if a equals x, x equals b and b equals y, then a equals y. So the parts of both trees
/// fall into classes, and each comparison unites two classes: there are never more comparisons than parts, however the trees share
/// them (J. E. Hopcroft, R. M. Karp, "A linear algorithm for testing equivalence of finite automata", 1971). The equality of a
/// caller's own class need not be transitive: from the first such part on, only the same pair is skipped.
class Compared {
public:
    /// Notes that the two are compared. False if their equality follows from earlier pairs.
    bool note(const void* mine, const void* theirs)
    {
        if (!isTransitive_) {
            return pairs_.emplace(mine, theirs).second;
        }
        // One object may be a part of both trees. It may differ from itself, by a NaN, so it has a class in each tree.
        const void* const a = classOf(mine);
        const void* const b = classOf(static_cast<const char*>(theirs) + 1);
        parents_[a] = b;
        return a != b;
    }

    bool areEqual(const ktPredicateFunction& mine, const ktPredicateFunction& theirs)
    {
        if (!hasTransitiveEquality(mine)) {
            meetOwnEquality();
        }
        const bool mayComeAgain = isShared(mine) || isShared(theirs);
        return (mayComeAgain && !note(&mine, &theirs)) || mine.isEqual(theirs);
    }

    void meetOwnEquality() { isTransitive_ = false; }

private:
    const void* classOf(const void* part)
    {
        const void** parent = &parents_.emplace(part, part).first->second;
        while (*parent != part) {
            part = *parent;
            const void** const next = &parents_.at(part);
            *parent = *next;
            parent = next;
        }
        return part;
    }

    bool isTransitive_ = true;
    std::unordered_map<const void*, const void*> parents_;
    std::set<std::pair<const void*, const void*>> pairs_;
};

}  // namespace

ktPredicateFunction::ktPredicateFunction() = default;

bool ktPredicateFunction::isEqual(const ktPredicateFunction&) const
{
    return true;
}

void ktPredicateFunction::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktPredicateFunction::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
}

const kt_Instantiator ktComparisonPredicate::sExemplar(typeid(ktComparisonPredicate), &ktComparisonPredicate::make);

ktPersistent* ktComparisonPredicate::make()
{
    return new ktComparisonPredicate;
}

ktComparisonPredicate::ktComparisonPredicate() = default;

ktComparisonPredicate::ktComparisonPredicate(long measurementIndex1, long measurementIndex2)
    : index1_(measurementIndex1), index2_(measurementIndex2)
{
    if (measurementIndex1 == measurementIndex2) {
        throw ktClassifierDefs::BadParams("Measurement indices must be different.");
    }
    requireNonNegative(measurementIndex1);
    requireNonNegative(measurementIndex2);
}

bool ktComparisonPredicate::outcome(const ktFeaturePattern& pattern) const
{
    if (!isAvailable(pattern, index1_) || !isAvailable(pattern, index2_)) {
        return false;
    }
    return pattern.featureMeasurement(index1_, false) > pattern.featureMeasurement(index2_, false);
}

ktPtrHandle<ktPredicateFunction> ktComparisonPredicate::clone() const
{
    return new ktComparisonPredicate(*this);
}

bool ktComparisonPredicate::isEqual(const ktPredicateFunction& other) const
{
    if (typeid(*this) != typeid(other)) {
        return false;
    }
    const auto& comparison = static_cast<const ktComparisonPredicate&>(other);
    return index1_ == comparison.index1_ && index2_ == comparison.index2_;
}

void ktComparisonPredicate::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktComparisonPredicate::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPredicateFunction::dispatchSerialize(archive);
    archive || index1_ || index2_;
}

const kt_Instantiator ktRangePredicate::sExemplar(typeid(ktRangePredicate), &ktRangePredicate::make);

ktPersistent* ktRangePredicate::make()
{
    return new ktRangePredicate;
}

ktRangePredicate::ktRangePredicate() : range_(ktRange::FullRange()), indices_(1, 0) {}

ktRangePredicate::ktRangePredicate(const ktRange& measurementRange, const std::vector<long>& measurementIndices)
    : range_(measurementRange), indices_(measurementIndices)
{
    requireNonNegative(indices_);
}

ktRangePredicate::ktRangePredicate(const ktRangePredicate&) = default;

ktRangePredicate& ktRangePredicate::operator=(const ktRangePredicate& other)
{
    // The indices first: they are the only part whose copy can fail.
    indices_ = other.indices_;
    ktPredicateFunction::operator=(other);
    range_ = other.range_;
    return *this;
}

bool ktRangePredicate::outcome(const ktFeaturePattern& pattern) const
{
    return std::all_of(indices_.begin(), indices_.end(), [&](long index) {
        return isAvailable(pattern, index) && range_.isWithin(pattern.featureMeasurement(index, false));
    });
}

ktPtrHandle<ktPredicateFunction> ktRangePredicate::clone() const
{
    return new ktRangePredicate(*this);
}

bool ktRangePredicate::isEqual(const ktPredicateFunction& other) const
{
    if (typeid(*this) != typeid(other)) {
        return false;
    }
    const auto& range = static_cast<const ktRangePredicate&>(other);
    return range_ == range.range_ && indices_ == range.indices_;
}

void ktRangePredicate::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktRangePredicate::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPredicateFunction::dispatchSerialize(archive);
    archive || range_ || indices_;
}

const kt_Instantiator ktValidityPredicate::sExemplar(typeid(ktValidityPredicate), &ktValidityPredicate::make);

ktPersistent* ktValidityPredicate::make()
{
    return new ktValidityPredicate;
}

ktValidityPredicate::ktValidityPredicate() : indices_(1, 0) {}

ktValidityPredicate::ktValidityPredicate(const std::vector<long>& measurementIndices) : indices_(measurementIndices)
{
    requireNonNegative(indices_);
}

bool ktValidityPredicate::outcome(const ktFeaturePattern& pattern) const
{
    return std::all_of(indices_.begin(), indices_.end(), [&](long index) { return isAvailable(pattern, index); });
}

ktPtrHandle<ktPredicateFunction> ktValidityPredicate::clone() const
{
    return new ktValidityPredicate(*this);
}

bool ktValidityPredicate::isEqual(const ktPredicateFunction& other) const
{
    if (typeid(*this) != typeid(other)) {
        return false;
    }
    const auto& validity = static_cast<const ktValidityPredicate&>(other);
    return indices_ == validity.indices_;
}

void ktValidityPredicate::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktValidityPredicate::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPredicateFunction::dispatchSerialize(archive);
    archive || indices_;
}

ktDecisionTree::ktDecisionTree() = default;
ktDecisionTree::ktDecisionTree(Kind kind) : kind_(kind) {}
ktDecisionTree::ktDecisionTree(const ktDecisionTree&) : ktPersistent(), ktRepBase() {}
ktDecisionTree& ktDecisionTree::operator=(const ktDecisionTree& other)
{
    ktPersistent::operator=(other);
    return *this;
}

bool ktDecisionTree::isEqual(const ktDecisionTree&) const
{
    return true;
}

long ktDecisionTree::numCategories() const
{
    return static_cast<long>(categoryLabels().size());
}

void ktDecisionTree::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktDecisionTree::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktPersistent::dispatchSerialize(archive);
}

const kt_Instantiator ktDecisionTreeNode::sExemplar(typeid(ktDecisionTreeNode), &ktDecisionTreeNode::make);

ktPersistent* ktDecisionTreeNode::make()
{
    return new ktDecisionTreeNode;
}

ktDecisionTreeNode::ktDecisionTreeNode() : ktDecisionTree(Kind::node) {}

ktDecisionTreeNode::ktDecisionTreeNode(const ktPredicateFunction& predicate, const ktDecisionTree& trueTree,
                                       const ktDecisionTree& falseTree)
    : ktDecisionTree(Kind::node),
      trueTree_(trueTree.clone()),
      falseTree_(falseTree.clone()),
      predicate_(predicate.clone())
{
    noteTest();
}

ktDecisionTreeNode::ktDecisionTreeNode(const ktDecisionTreeNode& other)
    : ktDecisionTree(Kind::node),
      trueTree_(other.trueTree_),
      falseTree_(other.falseTree_),
      predicate_(other.predicate_),
      testedIndex_(other.testedIndex_),
      testedRange_(other.testedRange_)
{
}

ktDecisionTreeNode& ktDecisionTreeNode::operator=(const ktDecisionTreeNode& other)
{
    // Takes all three before it lets any go: the source may be a part of this node.
    ktPtrHandle_const<ktDecisionTree> newTrue = other.trueTree_;
    ktPtrHandle_const<ktDecisionTree> newFalse = other.falseTree_;
    ktPtrHandle_const<ktPredicateFunction> newPredicate = other.predicate_;
    ktDecisionTree::operator=(other);
    trueTree_.swap(newTrue);
    falseTree_.swap(newFalse);
    predicate_.swap(newPredicate);
    noteTest();
    return *this;
}

ktDecisionTreeNode::~ktDecisionTreeNode()
{
    releaseChain(std::move(trueTree_));
    releaseChain(std::move(falseTree_));
}

/// Destroys what only this handle holds, however deep, without recursion and without allocation. A node is destroyed when it has no
/// subtree left. While its true tree is a node that it alone holds, the two are rotated, which brings the lower one up; otherwise
/// the walk goes on into the false tree. Each rotation shortens the walk, so the time is linear.
void ktDecisionTreeNode::releaseChain(ktPtrHandle_const<ktDecisionTree> tree) noexcept
{
    // This is the only handle on the object, so the object may be taken apart although it is const.
    const auto soleNode = [](const ktPtrHandle_const<ktDecisionTree>& handle) -> ktDecisionTreeNode* {
        const ktDecisionTree* held = handle.get();
        const bool isMine = held != nullptr && held->kind_ == Kind::node && held->refCount() == 1;
        return isMine ? const_cast<ktDecisionTreeNode*>(static_cast<const ktDecisionTreeNode*>(held)) : nullptr;
    };
    while (ktDecisionTreeNode* node = soleNode(tree)) {
        if (ktDecisionTreeNode* lower = soleNode(node->trueTree_)) {
            // tree -> node -> lower becomes tree -> lower -> node, with lower's false tree handed to node.
            node->trueTree_.swap(lower->falseTree_);
            lower->falseTree_.swap(tree);
        } else {
            node->trueTree_ = nullptr;
            ktPtrHandle_const<ktDecisionTree> next = std::move(node->falseTree_);
            tree = std::move(next);
        }
    }
}

void ktDecisionTreeNode::predicateFunction(const ktPredicateFunction& predicate)
{
    predicate_ = predicate.clone();
    noteTest();
}

/// Notes what the predicate asks, for walks.
void ktDecisionTreeNode::noteTest()
{
    testedIndex_ = -1;
    const ktPredicateFunction* predicate = predicate_.get();
    if (predicate == nullptr || typeid(*predicate) != typeid(ktRangePredicate)) {
        return;
    }
    const auto& range = static_cast<const ktRangePredicate&>(*predicate);
    if (range.indices_.size() == 1) {
        testedIndex_ = range.indices_.front();
        testedRange_ = range.range_;
    }
}

inline bool ktDecisionTreeNode::outcome(const ktFeaturePattern& pattern) const
{
    if (testedIndex_ < 0) {
        return predicate_->outcome(pattern);
    }
    return pattern.isValid(testedIndex_) && testedRange_.isWithin(pattern.featureMeasurement(testedIndex_, false));
}

void ktDecisionTreeNode::trueTree(const ktDecisionTree& tree)
{
    trueTree_ = tree.clone();
}

void ktDecisionTreeNode::falseTree(const ktDecisionTree& tree)
{
    falseTree_ = tree.clone();
}

/// Whether the tree is a node that does not override the function. The walk then does the function's work.
template <class Function>
bool ktDecisionTreeNode::isWalked(const ktDecisionTree& tree, Function ktDecisionTree::*function)
{
    if (typeid(tree) == typeid(ktDecisionTreeNode)) {
        return true;
    }
    static const ktDecisionTreeNode node;
    return tree.kind_ == Kind::node &&
           kt_overriderOf(tree, function) == kt_overriderOf(static_cast<const ktDecisionTree&>(node), function);
}

std::vector<long> ktDecisionTreeNode::categoryLabels() const
{
    // A tree that is met again adds nothing.
    std::unordered_set<const ktDecisionTree*> listed;
    std::unordered_set<long> known;
    std::vector<long> labels;
    bool isFirst = true;
    std::vector<const ktDecisionTree*> open{this};
    while (!open.empty()) {
        if (open.back() == nullptr) {
            throw ktBadPointer();
        }
        const ktDecisionTree& tree = *open.back();
        open.pop_back();
        if (isShared(tree) && !listed.insert(&tree).second) {
            continue;
        }
        // A class of the caller's own may override the listing, also one derived from a node. This node must not call itself again.
        if (&tree == this || isWalked(tree, &ktDecisionTree::categoryLabels)) {
            const auto& node = static_cast<const ktDecisionTreeNode&>(tree);
            open.push_back(node.trueTree_.get());
            open.push_back(node.falseTree_.get());
            continue;
        }
        for (const long label : tree.categoryLabels()) {
            // Kept on purpose: the first tree's list is taken as it is, duplicates included.
            if (known.insert(label).second || isFirst) {
                labels.push_back(label);
            }
        }
        isFirst = false;
    }
    return labels;
}

ktPtrHandle<ktDecisionTree> ktDecisionTreeNode::clone() const
{
    return new ktDecisionTreeNode(*this);
}

bool ktDecisionTreeNode::isEqual(const ktDecisionTree& other) const
{
    Compared compared;
    std::vector<TreePair> open{{this, &other}};
    while (!open.empty()) {
        const TreePair pair = open.back();
        open.pop_back();
        if (pair.first == nullptr || pair.second == nullptr) {
            throw ktBadPointer();
        }
        const ktDecisionTree& mine = *pair.first;
        const ktDecisionTree& theirs = *pair.second;
        const bool isNode = &mine == this || isWalked(mine, &ktDecisionTree::isEqual);
        if (!isNode && typeid(mine) != typeid(ktDecisionTreeLeaf)) {
            compared.meetOwnEquality();
        }
        // A tree with one owner is met again only with its owner.
        if ((isShared(mine) || isShared(theirs)) && !compared.note(&mine, &theirs)) {
            continue;
        }
        if (!isNode) {
            if (!mine.isEqual(theirs)) {
                return false;
            }
            continue;
        }
        if (theirs.kind_ != Kind::node) {
            return false;
        }
        const auto& a = static_cast<const ktDecisionTreeNode&>(mine);
        const auto& b = static_cast<const ktDecisionTreeNode&>(theirs);
        if (!compared.areEqual(*a.predicate_, *b.predicate_)) {
            return false;
        }
        open.emplace_back(a.falseTree_.get(), b.falseTree_.get());
        open.emplace_back(a.trueTree_.get(), b.trueTree_.get());
    }
    return true;
}

void ktDecisionTreeNode::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktDecisionTreeNode::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktDecisionTree::dispatchSerialize(archive);
    if (!archive.isLoading()) {
        archive || trueTree_ || falseTree_ || predicate_;
        return;
    }
    testedIndex_ = -1;
    archive || trueTree_ || falseTree_ || predicate_;
    noteTest();
}

const kt_Instantiator ktDecisionTreeLeaf::sExemplar(typeid(ktDecisionTreeLeaf), &ktDecisionTreeLeaf::make);

ktPersistent* ktDecisionTreeLeaf::make()
{
    return new ktDecisionTreeLeaf;
}

ktDecisionTreeLeaf::ktDecisionTreeLeaf() : ktDecisionTree(Kind::leaf) {}

ktDecisionTreeLeaf::ktDecisionTreeLeaf(const ktClassifierResult& classifierResult)
    : ktDecisionTree(Kind::leaf), result_(classifierResult)
{
}

ktDecisionTreeLeaf::ktDecisionTreeLeaf(const ktDecisionTreeLeaf& other)
    : ktDecisionTree(Kind::leaf), result_(other.result_)
{
}

ktDecisionTreeLeaf& ktDecisionTreeLeaf::operator=(const ktDecisionTreeLeaf& other)
{
    result_ = other.result_;
    ktDecisionTree::operator=(other);
    return *this;
}

void ktDecisionTreeLeaf::classifierResult(const ktClassifierResult& classifierResult)
{
    result_ = classifierResult;
}

std::vector<long> ktDecisionTreeLeaf::categoryLabels() const
{
    std::vector<long> labels;
    labels.reserve(result_.categoryResults().size());
    for (const ktClassifierCategoryResult& entry : result_.categoryResults()) {
        labels.push_back(entry.categoryLabel());
    }
    return labels;
}

ktPtrHandle<ktDecisionTree> ktDecisionTreeLeaf::clone() const
{
    return new ktDecisionTreeLeaf(*this);
}

bool ktDecisionTreeLeaf::isEqual(const ktDecisionTree& other) const
{
    return other.kind_ == Kind::leaf && result_ == static_cast<const ktDecisionTreeLeaf&>(other).result_;
}

void ktDecisionTreeLeaf::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void ktDecisionTreeLeaf::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    ktDecisionTree::dispatchSerialize(archive);
    archive || result_;
}

const kt_Instantiator kt_ClassifierDecisionTree::sExemplar(typeid(kt_ClassifierDecisionTree),
                                                           &kt_ClassifierDecisionTree::make);

ktPersistent* kt_ClassifierDecisionTree::make()
{
    return new kt_ClassifierDecisionTree;
}

kt_ClassifierDecisionTree::kt_ClassifierDecisionTree() = default;

void kt_ClassifierDecisionTree::trainManual(const ktDecisionTree& tree, ktDiagObject* diag, unsigned long flags)
{
    // The given tree may be a part of the held one.
    const ktPtrHandle_const<ktDecisionTree> oldTree = tree_;
    untrain();
    tree_ = tree.clone();
    ktDiagObject* destination = ktDiagObject::getRecordingDestination(diag, flags);
    recordTrainInputs_(destination, flags);
    // Kept on purpose: this hook is given the caller's own object, not the destination.
    recordTrainDetails_(diag, flags);
    recordTrainResults_(destination, flags);
}

ktPtrHandle<kt_Classifier> kt_ClassifierDecisionTree::clone() const
{
    return new kt_ClassifierDecisionTree(*this);
}

bool kt_ClassifierDecisionTree::isEquivalent(const kt_Classifier& other) const
{
    const auto* treeClassifier = dynamic_cast<const kt_ClassifierDecisionTree*>(&other);
    if (treeClassifier == nullptr || !kt_Classifier::isEquivalent(other)) {
        return false;
    }
    return tree_->isEqual(*treeClassifier->tree_);
}

void kt_ClassifierDecisionTree::train_(const ktClassifierDataProvider&, const ktClassifierTrainParams&)
{
    throw ktClassifierDefs::NotImplemented("Automatic decision tree training is not implemented.");
}

void kt_ClassifierDecisionTree::retrain_(const ktClassifierTrainParams&)
{
    throw ktClassifierDefs::NotImplemented("Automatic decision tree training is not implemented.");
}

void kt_ClassifierDecisionTree::trainStart_(const ktClassifierTrainParams&)
{
    throw ktClassifierDefs::NotImplemented("Incremental decision tree training is not implemented.");
}

void kt_ClassifierDecisionTree::trainIncremental_(const ktFeaturePattern&, long)
{
    throw ktClassifierDefs::NotImplemented("Incremental decision tree training is not implemented.");
}

void kt_ClassifierDecisionTree::untrain_()
{
    tree_ = nullptr;
}

bool kt_ClassifierDecisionTree::isTrained_() const
{
    return !tree_.isNull();
}

void kt_ClassifierDecisionTree::checkRunnable_() const {}

void kt_ClassifierDecisionTree::run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const
{
    const ktDecisionTree* tree = &*tree_;
    for (;;) {
        kt_pollAttention();
        if (tree->kind_ == ktDecisionTree::Kind::leaf) {
            result = static_cast<const ktDecisionTreeLeaf*>(tree)->classifierResult();
            return;
        }
        if (tree->kind_ != ktDecisionTree::Kind::node) {
            throw ktBadPointer();
        }
        const auto* node = static_cast<const ktDecisionTreeNode*>(tree);
        tree = node->outcome(pattern) ? &*node->trueTree_ : &*node->falseTree_;
    }
}

void kt_ClassifierDecisionTree::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void kt_ClassifierDecisionTree::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version);
    kt_Classifier::dispatchSerialize(archive);
    archive || tree_;
}
