#include "tree_classifier_kit.h"

namespace {

using kt_test::expectBadPointer;
using namespace trees;

TEST(TreeClassifier, CopiesShareTheTree)
{
    Classifier original = trained(smallTree());
    Classifier copy(original);
    Classifier assigned = trained(leafFor({9}));
    assigned = original;
    const ktPtrHandle<kt_Classifier> clone = original.clone();
    EXPECT_EQ(clone->refCount(), 1);
    EXPECT_TRUE(copy.decisionTree() == original.decisionTree());
    EXPECT_TRUE(assigned.decisionTree() == original.decisionTree());
    EXPECT_TRUE(dynamic_cast<const Classifier&>(*clone).decisionTree() == original.decisionTree());
    original.untrain();
    EXPECT_TRUE(*copy.decisionTree() == smallTree());
    EXPECT_TRUE(*assigned.decisionTree() == smallTree());
    EXPECT_TRUE(clone->isTrained());
}

TEST(TreeClassifier, IsEquivalentByItsTree)
{
    const Classifier classifier = trained(smallTree());
    const Classifier other = trained(leafFor({1}));
    EXPECT_TRUE(classifier.isEquivalent(trained(smallTree())));
    EXPECT_TRUE(classifier == trained(smallTree()));
    EXPECT_FALSE(classifier != trained(smallTree()));
    EXPECT_FALSE(classifier.isEquivalent(other));
    EXPECT_FALSE(classifier == other);
    EXPECT_TRUE(classifier != other);
}

TEST(TreeClassifier, IsNotEquivalentToAnotherTechniqueOrState)
{
    const Classifier classifier = trained(smallTree());
    const Classifier untrained;
    kt_ClassifierKNN neighbours;
    EXPECT_FALSE(classifier.isEquivalent(neighbours));
    EXPECT_FALSE(untrained.isEquivalent(neighbours));
    EXPECT_FALSE(neighbours.isEquivalent(untrained));
    EXPECT_FALSE(classifier.isEquivalent(untrained));
    EXPECT_FALSE(untrained.isEquivalent(classifier));
    EXPECT_FALSE(untrained == classifier);
}

// Kept on purpose: unlike two untrained nearest-neighbour classifiers, which are equivalent.
TEST(TreeClassifier, ComparingTwoUntrainedOnesIsABadPointer)
{
    const Classifier one;
    const Classifier two;
    expectBadPointer([&] { static_cast<void>(one.isEquivalent(two)); });
    expectBadPointer([&] { static_cast<void>(one == two); });
    expectBadPointer([&] { static_cast<void>(one != one); });
}

TEST(TreeClassifier, ComparisonMeetsWhatIsMissingInTheTrees)
{
    const Classifier one = trained(Node());
    expectBadPointer([&] { static_cast<void>(one == trained(Node())); });
    EXPECT_FALSE(one == trained(leafFor({1})));
}

TEST(TreeClassifier, ArchiveHoldsVersionBaseParametersAndTree)
{
    Fields fields(kt_test::store(trained(smallTree())));
    EXPECT_EQ(fields.next<unsigned char>(), 0) << "the classifier's version";
    EXPECT_EQ(fields.next<unsigned char>(), 0) << "the base's version";
    EXPECT_TRUE(fields.next<ktPtrHandle<ktClassifierTrainParams>>().isNull());
    EXPECT_TRUE(*fields.next<Tree>() == smallTree());
    EXPECT_TRUE(fields.atEnd());
}

TEST(TreeClassifier, UntrainedOneIsStoredWithANullTree)
{
    const std::string bytes = kt_test::store(Classifier());
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(bytes)), "00 00 00 00");
    Classifier over = trained(smallTree());
    kt_test::loadInto(over, bytes);
    EXPECT_FALSE(over.isTrained());
}

TEST(TreeClassifier, ObjectThatIsNoTreeLoadsAsUntrained)
{
    unsigned char zero = 0;
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        ktPtrHandle_const<ktPredicateFunction> predicate = yes().clone();
        archive || zero || zero || zero || predicate;
    }
    Classifier over = trained(smallTree());
    const SharedTree before = over.decisionTree();
    kt_test::loadInto(over, archive.bytes());
    EXPECT_FALSE(over.isTrained());
    EXPECT_EQ(before->refCount(), 1);
}

}  // namespace
