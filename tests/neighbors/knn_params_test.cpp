#include "metrics.h"

#include "support/technique.h"

namespace {

using namespace kt_test;

using Params = ktClassifierTrainParamsKNN;

constexpr const char* badK = "K must be >= 1";

TEST(KnnParams, AreOneNeighbourTheEuclideanNormAndUnitCostsUnlessToldOtherwise)
{
    const Params params;
    EXPECT_EQ(params.k(), 1);
    EXPECT_TRUE(params.distanceMetric()->isEquivalent(ktPatternDistanceMetricNorm(2.0)));
    EXPECT_TRUE(params.misclassificationCosts() == ktClassifierCosts(1.0));
    EXPECT_TRUE(params.throwIfNotReady());
    EXPECT_TRUE(Params(7) == Params(7, ktPatternDistanceMetricNorm(2.0), ktClassifierCosts(1.0)));
}

TEST(KnnParams, HoldWhatTheyAreGiven)
{
    const Params params(9, ktPatternDistanceMetricNorm(3.0), someCosts());
    EXPECT_EQ(params.k(), 9);
    EXPECT_EQ(orderOf(params), 3.0);
    EXPECT_TRUE(params.misclassificationCosts() == someCosts());
}

TEST(KnnParams, TakeAMetricOrCostsAlone)
{
    EXPECT_TRUE(Params(9, ktPatternDistanceMetricNorm(3.0)) ==
                Params(9, ktPatternDistanceMetricNorm(3.0), ktClassifierCosts()));
    EXPECT_TRUE(Params(9, someCosts()) == Params(9, ktPatternDistanceMetricNorm(2.0), someCosts()));
    expectThrows<ktClassifierDefs::BadParams>(badK, [] { Params params(0, ktPatternDistanceMetricNorm(3.0)); });
    expectThrows<ktClassifierDefs::BadParams>(badK, [] { Params params(0, someCosts()); });
    // A number is an order to one reader and a cost to the next, so it is neither.
    EXPECT_FALSE((std::is_constructible_v<Params, long, double>));
}

TEST(KnnParams, RefuseAKBelowOneAndKeepTheOldOne)
{
    for (const long k : {0L, -1L, -5L, std::numeric_limits<long>::min()}) {
        SCOPED_TRACE(k);
        expectThrows<ktClassifierDefs::BadParams>(badK, [&] { const Params params(k); });
        expectThrows<ktClassifierDefs::BadParams>(
            badK, [&] { const Params params(k, ktPatternDistanceMetricNorm(), ktClassifierCosts()); });
        Params params(3, ktPatternDistanceMetricNorm(7.5), someCosts());
        const Params before(params);
        expectThrows<ktClassifierDefs::BadParams>(badK, [&] { params.k(k); });
        EXPECT_TRUE(params == before);
    }
}

TEST(KnnParams, TakeEveryKFromOneOn)
{
    for (const long k : {1L, 2L, std::numeric_limits<long>::max()}) {
        EXPECT_EQ(Params(k).k(), k);
        Params params(5);
        params.k(k);
        EXPECT_EQ(params.k(), k);
    }
}

TEST(KnnParams, KIsCheckedBeforeTheMetricIsCloned)
{
    const kt_test::CloneBy metric(
        []() -> ktPtrHandle<ktPatternDistanceMetric> { throw std::runtime_error("no clone"); });
    expectThrows<ktClassifierDefs::BadParams>(badK, [&] { const Params params(0, metric, ktClassifierCosts()); });
    EXPECT_THROW(Params(1, metric, ktClassifierCosts()), std::runtime_error);
}

TEST(KnnParams, HoldACloneOfTheMetric)
{
    ktPatternDistanceMetricNorm metric(3.0);
    const Params constructed(1, metric, ktClassifierCosts());
    Params set;
    set.distanceMetric(metric);
    metric.order(1.0);
    EXPECT_EQ(orderOf(constructed), 3.0);
    EXPECT_EQ(orderOf(set), 3.0);
    EXPECT_EQ(metric.refCount(), 0);
}

TEST(KnnParams, GiveAFurtherHandleOnTheirMetric)
{
    const Params params;
    const ktPtrHandle_const<ktPatternDistanceMetric> first = params.distanceMetric();
    EXPECT_EQ(first->refCount(), 2);
    const ktPtrHandle_const<ktPatternDistanceMetric> second = params.distanceMetric();
    EXPECT_TRUE(first == second);
    EXPECT_EQ(first->refCount(), 3);
}

TEST(KnnParams, LetTheOldMetricGoWhenANewOneIsSet)
{
    Params params;
    const ktPtrHandle_const<ktPatternDistanceMetric> old = params.distanceMetric();
    params.distanceMetric(kt_test::Chebyshev());
    EXPECT_EQ(old->refCount(), 1);
    EXPECT_TRUE(params.distanceMetric()->isEquivalent(kt_test::Chebyshev()));
}

TEST(KnnParams, TakeTheirOwnMetricAgain)
{
    Params params(1, ktPatternDistanceMetricNorm(3.0), ktClassifierCosts());
    params.distanceMetric(*params.distanceMetric());
    EXPECT_EQ(orderOf(params), 3.0);
    EXPECT_EQ(params.distanceMetric()->refCount(), 2) << "the parameters and the handle asked for";
}

TEST(KnnParams, KeepTheOldMetricIfTheNewOneCannotBeCloned)
{
    Params params(3, ktPatternDistanceMetricNorm(7.5), someCosts());
    const ktPtrHandle_const<ktPatternDistanceMetric> old = params.distanceMetric();
    const kt_test::CloneBy metric(
        []() -> ktPtrHandle<ktPatternDistanceMetric> { throw std::runtime_error("no clone"); });
    EXPECT_THROW(params.distanceMetric(metric), std::runtime_error);
    EXPECT_TRUE(params.distanceMetric() == old);
}

TEST(KnnParams, HoldACopyOfTheCosts)
{
    ktClassifierCosts costs = someCosts();
    Params params;
    params.misclassificationCosts(costs);
    costs.clearMisclassificationOverrides();
    EXPECT_TRUE(params.misclassificationCosts() == someCosts());
    params.misclassificationCosts(params.misclassificationCosts());
    EXPECT_TRUE(params.misclassificationCosts() == someCosts());
}

TEST(KnnParams, EachCopySharesTheMetric)
{
    const Params params(3, ktPatternDistanceMetricNorm(7.5), someCosts());
    const ktPtrHandle_const<ktPatternDistanceMetric> metric = params.distanceMetric();
    ASSERT_EQ(metric->refCount(), 2);
    const Params copy(params);
    EXPECT_EQ(metric->refCount(), 3);
    Params assigned;
    assigned = params;
    EXPECT_EQ(metric->refCount(), 4);
    const ktPtrHandle<ktClassifierTrainParams> clone = params.clone();
    EXPECT_EQ(metric->refCount(), 5);
    EXPECT_TRUE(copy == params);
    EXPECT_TRUE(assigned == params);
    EXPECT_TRUE(dynamic_cast<const Params&>(*clone) == params);
}

TEST(KnnParams, CarryThrowIfNotReadyIntoCopiesAssignmentsAndClones)
{
    for (const bool flag : {false, true}) {
        SCOPED_TRACE(flag);
        Params params;
        params.throwIfNotReady(flag);
        EXPECT_EQ(Params(params).throwIfNotReady(), flag);
        EXPECT_EQ(params.clone()->throwIfNotReady(), flag);
        Params assigned;
        assigned.throwIfNotReady(!flag);
        assigned = params;
        EXPECT_EQ(assigned.throwIfNotReady(), flag);
    }
}

TEST(KnnParams, DoNotStoreThrowIfNotReady)
{
    Params with;
    Params without;
    without.throwIfNotReady(false);
    EXPECT_EQ(kt_test::store(with), kt_test::store(without));
    EXPECT_TRUE(storedAndLoaded(without).throwIfNotReady());
    kt_test::loadInto(without, kt_test::store(with));
    EXPECT_FALSE(without.throwIfNotReady()) << "loading leaves the flag of the object loaded into";
}

TEST(KnnParams, AreEqualByKMetricAndCosts)
{
    struct Row {
        const char* label;
        Params params;
        bool equal;
    };
    const ktPatternDistanceMetricNorm norm(1.0);
    const Params params(3, norm, someCosts());
    const Row rows[] = {
        {"the same values, another metric object", Params(3, ktPatternDistanceMetricNorm(1.0), someCosts()), true},
        {"another k", Params(4, norm, someCosts()), false},
        {"another order", Params(3, ktPatternDistanceMetricNorm(2.0), someCosts()), false},
        {"another class of metric", Params(3, kt_test::Chebyshev(), someCosts()), false},
        {"other costs", Params(3, norm, ktClassifierCosts(2.5)), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(params == row.params, row.equal);
        EXPECT_EQ(params != row.params, !row.equal);
        EXPECT_EQ(row.params == params, row.equal);
    }
}

TEST(KnnParams, AskTheirOwnMetricAboutTheOthers)
{
    const Params indifferent(3, kt_test::distanceInPattern(), ktClassifierCosts());
    const Params norm(3);
    EXPECT_TRUE(indifferent == norm);
    EXPECT_FALSE(norm == indifferent);
}

TEST(KnnParams, ThrowIfNotReadyDoesNotMatterForEquality)
{
    Params params;
    params.throwIfNotReady(false);
    EXPECT_TRUE(params == Params());
}

TEST(KnnParams, AreNotEqualToParametersOfAnotherTechnique)
{
    kt_test::Script script;
    EXPECT_FALSE(OpenParams<Params>().isEqual_(kt_test::TechniqueParams(script, 1)));
}

TEST(KnnParams, ComparisonNeedsBothMetricsOnceClassAndKAreEqual)
{
    kt_test::Script script;
    Params whole(3);
    Params without(3, kt_test::withoutClone(), ktClassifierCosts());
    ASSERT_TRUE(without.distanceMetric().isNull());
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(whole == without); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(without == whole); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(without == without); });
    EXPECT_FALSE(OpenParams<Params>(without).isEqual_(kt_test::TechniqueParams(script, 1))) << "the class comes first";
    whole.k(4);
    EXPECT_FALSE(whole == without) << "k comes before the metric";
    EXPECT_FALSE(without == whole);
}

TEST(KnnParams, AreOfOneTechniqueWhateverTheirValues)
{
    kt_test::Script script;
    const OpenParams<Params> params;
    EXPECT_TRUE(params.isSameTechnique_(Params(7, kt_test::Chebyshev(), someCosts())));
    EXPECT_TRUE(params.isSameTechnique_(OpenParams<Params>(3))) << "a derived class";
    EXPECT_FALSE(params.isSameTechnique_(kt_test::TechniqueParams(script, 1)));
}

TEST(KnnParams, MakeANewUntrainedNearestNeighbourClassifier)
{
    const OpenParams<Params> params(7);
    kt_Classifier* const made = params.newClassifier_();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->refCount(), 0) << "the caller owns it";
    const ktPtrHandle<kt_Classifier> owner = made;
    const kt_Classifier& classifier = *owner;
    EXPECT_TRUE(typeid(classifier) == typeid(kt_ClassifierKNN));
    EXPECT_FALSE(owner->isTrained());
    EXPECT_TRUE(owner->isEquivalent(kt_ClassifierKNN()));
    EXPECT_FALSE(ktPtrHandle<kt_Classifier>(params.newClassifier_()) == owner);
}

TEST(KnnParams, AreStoredAsTheirVersionTheirBaseKMetricAndCosts)
{
    const unsigned char version = 0;
    const ktPtrHandle<ktPatternDistanceMetricNorm> metric(new ktPatternDistanceMetricNorm(3.0));
    EXPECT_EQ(kt_test::toHex(kt_test::store(Params(9, *metric, someCosts()))),
              kt_test::toHex(kt_test::store(version, version, 9L, metric, someCosts())));
}

/// An archive of parameters put together field by field.
template <class Metric>
std::string craftedParams(long k, const ktPtrHandle<Metric>& metric)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    unsigned char version = 0;
    ktPtrHandle<Metric> stored = metric;
    ktClassifierCosts costs(2.5);
    archive || version || version || k || stored || costs;
    return archive.bytes();
}

TEST(KnnParams, LoadAnyKWithoutCheckingIt)
{
    const ktPtrHandle<ktPatternDistanceMetricNorm> metric = new ktPatternDistanceMetricNorm(3.0);
    for (const long k : {0L, -7L, -2147483647L - 1, 2147483647L}) {
        const Params params = kt_test::load<Params>(craftedParams(k, metric));
        EXPECT_EQ(params.k(), k);
        EXPECT_EQ(orderOf(params), 3.0);
    }
}

TEST(KnnParams, LoadANullMetricAndOneOfAnotherClassAsNull)
{
    const ktPtrHandle<ktFeaturePattern> foreign = new ktFeaturePattern({1.0}, {});
    for (const std::string& bytes :
         {craftedParams(3, ktPtrHandle<ktPatternDistanceMetricNorm>()), craftedParams(3, foreign)}) {
        Params params(9, kt_test::Chebyshev(), ktClassifierCosts());
        kt_test::loadInto(params, bytes);
        EXPECT_TRUE(params.distanceMetric().isNull());
        EXPECT_EQ(params.k(), 3);
        EXPECT_EQ(params.misclassificationCosts().defaultMisclassificationCost(), 2.5);
    }
}

TEST(KnnParams, LetTheOldMetricGoWhenTheyAreLoaded)
{
    Params params;
    const ktPtrHandle_const<ktPatternDistanceMetric> old = params.distanceMetric();
    kt_test::loadInto(params, kt_test::store(Params(3)));
    EXPECT_EQ(old->refCount(), 1);
    EXPECT_FALSE(params.distanceMetric() == old);
}

TEST(KnnParams, AreStoredOnlyIfKFits32Bits)
{
    const Params largest(2147483647L);
    EXPECT_EQ(storedAndLoaded(largest).k(), 2147483647L);
    const Params params(std::numeric_limits<long>::max());
    if (params == largest) {
        return;  // Nothing larger fits a long of 32 bits.
    }
    expectThrows<ktArchive::OutOfRange>(
        "Archive value out of range: " + std::to_string(params.k()) + " does not fit 32 bits.",
        [&] { kt_test::store(params); });
}

}  // namespace
