#include "ramps.h"

namespace {

using namespace kt_test;
using Ignore = ktClassifierFeatureScoreIgnore;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;

TEST(FeatureScore, IsACountedObjectThatArchivesDoNotKnowByPointer)
{
    EXPECT_TRUE((std::is_base_of_v<ktRepBase, ktClsFtSc>));
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, ktClsFtSc>));
    EXPECT_TRUE(std::is_abstract_v<ktClsFtSc>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ktClsFtSc>);
    EXPECT_EQ(OneSided().refCount(), 0);
    const ktPtrHandle<ktClsFtSc> held(new OneSided);
    EXPECT_EQ(OneSided(static_cast<const OneSided&>(*held)).refCount(), 0) << "a copy";
}

TEST(FeatureScore, OfAnOwnClassIsEqualToThoseOfItsExactClass)
{
    class Half : public ktClsFtSc {
    public:
        double score(double) const override { return 0.5; }
        Half* clone() const override { return new Half(*this); }
    };
    class Derived : public Half {};
    const ktClsFtSc& half = Half();
    EXPECT_TRUE(half == Half());
    EXPECT_FALSE(half != Half());
    EXPECT_FALSE(half == Derived());
    EXPECT_FALSE(Derived() == half);
    EXPECT_FALSE(half == ktClassifierFeatureScoreIgnore());
}

TEST(FeatureScoreIgnore, GivesTheMarkerForEveryValue)
{
    const Ignore ignore;
    for (const double x : {0.0, -1.0, 1e300, -1e300, infinity, -infinity, NaN}) {
        EXPECT_EQ(ignore.score(x), -1.0) << x;
    }
}

/// One object of each class, and one that differs from it in a value if there is any.
struct Pair {
    const char* label;
    ktPtrHandle<ktClsFtSc> object;
    std::vector<ktPtrHandle<ktClsFtSc>> others;
};

/// The object and all that differ from it in one value.
template <class Score>
Pair pairOf(const char* label, const Score& score, const std::vector<void (Score::*)(double)>& setters)
{
    Pair pair{label, new Score(score), {}};
    for (const auto setter : setters) {
        auto* other = new Score(score);
        (other->*setter)(0.625);
        pair.others.push_back(other);
    }
    return pair;
}

std::vector<Pair> pairs()
{
    return {pairOf<Ignore>("ignore", {}, {}),
            pairOf<OneSided>("one-sided", oneSided(2, 4, 7, 0.25, 0.75),
                             {&OneSided::x0, &OneSided::x1, &OneSided::xc, &OneSided::y0, &OneSided::y1}),
            pairOf<TwoSided>("two-sided", twoSidedOf(trapezoid),
                             {&TwoSided::x0, &TwoSided::x1, &TwoSided::xc, &TwoSided::y0, &TwoSided::y1, &TwoSided::x0h,
                              &TwoSided::x1h, &TwoSided::xch, &TwoSided::y0h, &TwoSided::y1h})};
}

TEST(FeatureScore, EqualityComparesTheClassAndEachValue)
{
    const std::vector<Pair> all = pairs();
    for (const Pair& a : all) {
        SCOPED_TRACE(a.label);
        for (const Pair& b : all) {
            EXPECT_EQ(*a.object == *b.object, &a == &b) << b.label;
            EXPECT_EQ(*a.object != *b.object, &a != &b) << b.label;
        }
        for (const ktPtrHandle<ktClsFtSc>& other : a.others) {
            EXPECT_FALSE(*a.object == *other);
            EXPECT_FALSE(*other == *a.object);
        }
    }
}

TEST(FeatureScore, ClassDerivedFromAConcreteOneIsAnotherClass)
{
    EXPECT_FALSE(OneSided() == kt_test::DerivedOneSided());
    EXPECT_FALSE(kt_test::DerivedOneSided() == OneSided());
    EXPECT_TRUE(kt_test::DerivedOneSided() == kt_test::DerivedOneSided());
    EXPECT_FALSE(TwoSided() == kt_test::DerivedTwoSided());
    EXPECT_FALSE(kt_test::DerivedTwoSided() == TwoSided());
    EXPECT_FALSE(Ignore() == kt_test::DerivedIgnore());
    EXPECT_FALSE(kt_test::DerivedIgnore() == Ignore());
    EXPECT_TRUE(Ignore() != kt_test::Constant(-1.0));
}

TEST(FeatureScore, NanEqualsNan)
{
    OneSided a;
    a.x0(NaN);
    EXPECT_TRUE(a == OneSided(a));
    TwoSided b;
    b.xch(NaN);
    EXPECT_TRUE(b == TwoSided(b));
    b.x0(1);
    EXPECT_FALSE(b == TwoSided()) << "the other values still count";
}

TEST(FeatureScore, EqualMeansNeitherLessNorGreaterSoNanEqualsEveryNumber)
{
    OneSided a;
    a.x1(NaN);
    EXPECT_TRUE(a == OneSided());
    EXPECT_TRUE(OneSided() == a);
    OneSided zero;
    zero.x0(-0.0);
    EXPECT_TRUE(zero == OneSided());
}

TEST(FeatureScore, CloneIsANewObjectOfTheSameClassWithTheSameValues)
{
    for (const Pair& pair : pairs()) {
        SCOPED_TRACE(pair.label);
        const ktClsFtSc& original = *pair.object;
        ktClsFtSc* const clone = original.clone();
        EXPECT_NE(clone, pair.object.get());
        EXPECT_EQ(clone->refCount(), 0);
        const ktPtrHandle<ktClsFtSc> owner(clone);
        EXPECT_EQ(typeid(*clone), typeid(original));
        EXPECT_TRUE(*clone == original);
    }
}

TEST(FeatureScore, DerivedClassClonesAsTheBaseSays)
{
    struct Derived : OneSided {
        ktClsFtSc* clone() const override { return new Derived(*this); }
    };
    const ktPtrHandle<ktClsFtSc> clone(Derived().clone());
    const ktClsFtSc& cloned = *clone;
    EXPECT_EQ(typeid(cloned), typeid(Derived));
}

TEST(FeatureScore, CloneCopyAndAssignedObjectAreIndependent)
{
    TwoSided original = twoSidedOf(trapezoid);
    const ktPtrHandle<TwoSided> clone(static_cast<TwoSided*>(original.clone()));
    const TwoSided copy(original);
    TwoSided assigned;
    EXPECT_EQ(&(assigned = original), &assigned);
    OneSided half = original.High();
    original.init(0, -1, -1, 0, 1, 1, 1, 0, 1, 0);
    EXPECT_EQ(valuesOf(*clone), trapezoid);
    EXPECT_EQ(valuesOf(copy), trapezoid);
    EXPECT_EQ(valuesOf(assigned), trapezoid);
    EXPECT_EQ(valuesOf(half), (std::vector<double>{7, 5, 4, 0.2, 0.8}));
    half.x0(9);
    const OneSided halfCopy(half);
    half = OneSided();
    EXPECT_EQ(valuesOf(halfCopy), (std::vector<double>{9, 5, 4, 0.2, 0.8}));
    EXPECT_EQ(valuesOf(half), valuesOf(OneSided()));
}

TEST(FeatureScore, AssignmentLeavesTheCountsAlone)
{
    const ktPtrHandle<OneSided> held(new OneSided(oneSided(2, 4, 7, 0.25, 0.75)));
    const ktPtrHandle<OneSided> second = held;
    OneSided other;
    other = *held;
    EXPECT_EQ(other.refCount(), 0);
    *held = OneSided();
    EXPECT_EQ(held->refCount(), 2);
    EXPECT_TRUE(*second == OneSided()) << "shared";
    const ktPtrHandle<Ignore> ignoring(new Ignore);
    *ignoring = Ignore();
    EXPECT_EQ(ignoring->refCount(), 1);
}

TEST(FeatureScore, LastHandleFreesIt)
{
    const kt_test::MemoryWatch watch;
    {
        ktPtrHandle<ktClsFtSc> handle(new TwoSided);
        ktPtrHandle<ktClsFtSc> second = handle;
        handle = new Ignore;
        EXPECT_EQ(second->refCount(), 1);
        second = nullptr;
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

}  // namespace
