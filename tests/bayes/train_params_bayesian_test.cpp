#include "types_kit.h"

namespace {

using namespace bayes;
using namespace kt_test;

TEST(BayesianParams, AreNormalWithUnitFrequenciesAndCostsUnlessToldOtherwise)
{
    const Params params;
    EXPECT_TRUE(params.distributionTypes() == Types(Types::eNormal));
    EXPECT_TRUE(params.categoryFrequencies() == ktClassifierFrequencies());
    EXPECT_TRUE(params.misclassificationCosts() == ktClassifierCosts());
    EXPECT_TRUE(params.maxMeasurementValues() == ktFeaturePattern());
    EXPECT_EQ(params.maxMeasurementValues().numMeasurements(), 0);
    EXPECT_TRUE(params.throwIfNotReady());
    EXPECT_TRUE(params == Params());
}

TEST(BayesianParams, HoldWhatTheyAreGiven)
{
    const Params params = someParams();
    EXPECT_TRUE(params.distributionTypes() == someTypes());
    EXPECT_TRUE(params.categoryFrequencies() == someFrequencies());
    EXPECT_TRUE(params.misclassificationCosts() == someCosts());
    EXPECT_TRUE(params.maxMeasurementValues() == someMaxima());
}

TEST(BayesianParams, LaterArgumentsHaveTheirDefaults)
{
    EXPECT_TRUE(Params(someTypes()) ==
                Params(someTypes(), ktClassifierFrequencies(), ktClassifierCosts(), ktFeaturePattern()));
    EXPECT_TRUE(Params(someTypes(), someFrequencies()).misclassificationCosts() == ktClassifierCosts());
    EXPECT_TRUE(Params(someTypes(), someFrequencies(), someCosts()).maxMeasurementValues() == ktFeaturePattern());
}

TEST(BayesianParams, TakeCostsAloneOrWithFrequencies)
{
    EXPECT_TRUE(Params(someCosts()) == Params(Types(), ktClassifierFrequencies(), someCosts()));
    EXPECT_TRUE(Params(someFrequencies(), someCosts()) == Params(Types(), someFrequencies(), someCosts()));
    // What was taken for types of distribution is still that.
    EXPECT_TRUE(Params(Types::eBinomial) == Params(Types(Types::eBinomial)));
    EXPECT_TRUE(Params({}, {}) == Params());
}

TEST(BayesianParams, SettersReplaceTheirFieldAlone)
{
    Params params;
    params.distributionTypes(someTypes());
    EXPECT_TRUE(params == Params(someTypes()));
    params.categoryFrequencies(someFrequencies());
    EXPECT_TRUE(params == Params(someTypes(), someFrequencies()));
    params.misclassificationCosts(someCosts());
    EXPECT_TRUE(params == Params(someTypes(), someFrequencies(), someCosts()));
    params.maxMeasurementValues(someMaxima());
    EXPECT_TRUE(params == someParams());
}

TEST(BayesianParams, SettersStoreCopies)
{
    Types types = someTypes();
    Params params(types);
    Params set;
    set.distributionTypes(types);
    types.clearDistributionOverrides();
    EXPECT_TRUE(params.distributionTypes() == someTypes());
    EXPECT_TRUE(set.distributionTypes() == someTypes());
    set.distributionTypes(set.distributionTypes());
    EXPECT_TRUE(set.distributionTypes() == someTypes());
}

TEST(BayesianParams, MaximaAreNotCheckedAgainstTheTypes)
{
    Params params{Types(Types::eBinomial)};
    EXPECT_NO_THROW(params.maxMeasurementValues(ktFeaturePattern({-1.0, 0.0}, {0})));
    EXPECT_NO_THROW(params.distributionTypes(Types(Types::eUniform)));
}

TEST(BayesianParams, AreEqualByAllFourFields)
{
    struct Row {
        const char* label;
        Params params;
    };
    const Row rows[] = {
        {"types", Params(Types(), someFrequencies(), someCosts(), someMaxima())},
        {"frequencies", Params(someTypes(), ktClassifierFrequencies(), someCosts(), someMaxima())},
        {"costs", Params(someTypes(), someFrequencies(), ktClassifierCosts(), someMaxima())},
        {"maxima", Params(someTypes(), someFrequencies(), someCosts(), ktFeaturePattern())},
    };
    EXPECT_TRUE(someParams() == someParams());
    EXPECT_FALSE(someParams() != someParams());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_FALSE(someParams() == row.params);
        EXPECT_FALSE(row.params == someParams());
        EXPECT_TRUE(someParams() != row.params);
        EXPECT_TRUE(OpenParams<Params>(someParams()).isSameTechnique_(row.params));
    }
}

TEST(BayesianParams, ThrowIfNotReadyDoesNotMatterForEquality)
{
    Params params;
    params.throwIfNotReady(false);
    EXPECT_TRUE(params == Params());
}

TEST(BayesianParams, AreNeitherEqualNorOfOneTechniqueWithOthers)
{
    kt_test::Script script;
    const OpenParams<Params> params;
    for (const ktPtrHandle<ktClassifierTrainParams>& other :
         {ktPtrHandle<ktClassifierTrainParams>(new kt_test::TechniqueParams(script, 1))}) {
        EXPECT_FALSE(params.isEqual_(*other));
        EXPECT_FALSE(params.isSameTechnique_(*other));
    }
    EXPECT_TRUE(params.isSameTechnique_(OpenParams<Params>(someParams()))) << "a derived class";
}

TEST(BayesianParams, MakeANewUntrainedBayesianClassifier)
{
    const OpenParams<Params> params(someParams());
    kt_Classifier* const made = params.newClassifier_();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->refCount(), 0) << "the caller owns it";
    const ktPtrHandle<kt_Classifier> owner = made;
    const kt_Classifier& classifier = *owner;
    EXPECT_TRUE(typeid(classifier) == typeid(kt_ClassifierBayesian));
    EXPECT_FALSE(owner->isTrained());
    const bayes::ClassifierFields fields = bayes::fieldsOf(dynamic_cast<const kt_ClassifierBayesian&>(classifier));
    EXPECT_TRUE(fields.labels.empty());
    EXPECT_TRUE(fields.models.empty());
    EXPECT_TRUE(fields.params.isNull());
}

TEST(BayesianParams, CarryThrowIfNotReadyIntoCopiesAssignmentsAndClones)
{
    for (const bool flag : {false, true}) {
        SCOPED_TRACE(flag);
        Params params = someParams();
        params.throwIfNotReady(flag);
        EXPECT_EQ(Params(params).throwIfNotReady(), flag);
        EXPECT_EQ(params.clone()->throwIfNotReady(), flag);
        Params assigned;
        assigned.throwIfNotReady(!flag);
        assigned = params;
        EXPECT_EQ(assigned.throwIfNotReady(), flag);
        EXPECT_TRUE(assigned == someParams());
    }
}

TEST(BayesianParams, DoNotStoreThrowIfNotReady)
{
    Params without = someParams();
    without.throwIfNotReady(false);
    EXPECT_EQ(kt_test::store(without), kt_test::store(someParams()));
    EXPECT_TRUE(storedAndLoaded(without).throwIfNotReady());
    kt_test::loadInto(without, kt_test::store(someParams()));
    EXPECT_FALSE(without.throwIfNotReady()) << "loading leaves the flag of the object loaded into";
}

TEST(BayesianParams, AreStoredWithTheCostsBeforeTheFrequencies)
{
    unsigned char version = 1;
    unsigned char baseVersion = 1;
    Types types;
    ktClassifierCosts costs;
    ktClassifierFrequencies frequencies;
    ktFeaturePattern maxima;
    bayes::readBack(kt_test::store(someParams()), [&](ktArchive& archive) {
        archive || version || baseVersion || types || costs || frequencies || maxima;
    });
    EXPECT_EQ(version, 0);
    EXPECT_EQ(baseVersion, 0);
    EXPECT_TRUE(types == someTypes());
    EXPECT_TRUE(costs == someCosts());
    EXPECT_TRUE(frequencies == someFrequencies());
    EXPECT_TRUE(maxima == someMaxima());
}

}  // namespace
