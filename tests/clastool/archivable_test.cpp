// The classes of foundation.h and training_data.h, run through what must hold for every archivable class.

#include "support/archivable_kit.h"
#include "support/test.h"

namespace {

using namespace kt_test;

/// The class of an error, whose name each case gives as a string of its own.
template <class Error, const char* Name>
struct ErrorCase : kt_test::ArchivableCase<Error> {
    static constexpr const char* name = Name;
    using Layer = typename kt_test::ArchivableCase<Error>::Layer;
    using Base = ktClassifierDefs::Errors;
    static std::vector<Layer> layers() { return {{Name, 0}, {"ktClassifierDefs::Errors", 0}}; }

    static std::vector<Error> samples()
    {
        return {Error(), Error("Costs must be >= 0.0"), Error(std::string("a\0b\xFF", 4))};
    }

    static bool equal(const Error& a, const Error& b)
    {
        return typeid(a) == typeid(b) && a.errorNumber() == b.errorNumber() && a.message() == b.message();
    }
};

constexpr char nameOfBadParams[] = "ktClassifierDefs::BadParams";
using BadParams = ErrorCase<ktClassifierDefs::BadParams, nameOfBadParams>;
constexpr char nameOfBadIndex[] = "ktClassifierDefs::BadIndex";
using BadIndex = ErrorCase<ktClassifierDefs::BadIndex, nameOfBadIndex>;
constexpr char nameOfBadLabel[] = "ktClassifierDefs::BadLabel";
using BadLabel = ErrorCase<ktClassifierDefs::BadLabel, nameOfBadLabel>;
constexpr char nameOfBadMethod[] = "ktClassifierDefs::BadMethod";
using BadMethod = ErrorCase<ktClassifierDefs::BadMethod, nameOfBadMethod>;
constexpr char nameOfNotTrained[] = "ktClassifierDefs::NotTrained";
using NotTrained = ErrorCase<ktClassifierDefs::NotTrained, nameOfNotTrained>;
constexpr char nameOfNotImplemented[] = "ktClassifierDefs::NotImplemented";
using NotImplemented = ErrorCase<ktClassifierDefs::NotImplemented, nameOfNotImplemented>;
constexpr char nameOfBadFeatures[] = "ktClassifierDefs::BadFeatures";
using BadFeatures = ErrorCase<ktClassifierDefs::BadFeatures, nameOfBadFeatures>;
constexpr char nameOfInsufficientTrainData[] = "ktClassifierDefs::InsufficientTrainData";
using InsufficientTrainData = ErrorCase<ktClassifierDefs::InsufficientTrainData, nameOfInsufficientTrainData>;

struct FeaturePattern : kt_test::ArchivableCase<ktFeaturePattern> {
    static constexpr const char* name = "ktFeaturePattern";
    static std::vector<Layer> layers() { return {{}}; }

    static std::vector<ktFeaturePattern> samples()
    {
        return {ktFeaturePattern(), ktFeaturePattern({1.5, -2.0, 0.25}, {1}), ktFeaturePattern({1.5, -2.0, 0.25}, {}),
                ktFeaturePattern({0, 1, 2, 3, 4, 5, 6, 7, infinity, -infinity}, {0, 8})};
    }
};

struct Costs : kt_test::ArchivableCase<ktClassifierCosts> {
    static constexpr const char* name = "ktClassifierCosts";
    static std::vector<Layer> layers() { return {{"clss/clastool/clastool", 435}}; }

    static std::vector<ktClassifierCosts> samples()
    {
        ktClassifierCosts overridden(2.5);
        overridden.misclassificationCostOverride(0, 1, 10.0);
        overridden.misclassificationCostOverride(1, 0, 0.0);
        overridden.misclassificationCostOverride(2147483647, 3, 0.125);
        return {ktClassifierCosts(), ktClassifierCosts(0.0), overridden};
    }
};

struct Frequencies : kt_test::ArchivableCase<ktClassifierFrequencies> {
    static constexpr const char* name = "ktClassifierFrequencies";
    static std::vector<Layer> layers() { return {{"clss/clastool/clastool", 522}}; }

    static std::vector<ktClassifierFrequencies> samples()
    {
        ktClassifierFrequencies overridden(4.0);
        overridden.categoryFrequencyOverride(2, 3.0);
        overridden.categoryFrequencyOverride(1, 2.0);
        return {ktClassifierFrequencies(), ktClassifierFrequencies(0.5), overridden};
    }
};

struct CategoryResult : kt_test::ArchivableCase<ktClassifierCategoryResult> {
    static constexpr const char* name = "ktClassifierCategoryResult";
    static std::vector<Layer> layers() { return {{"clss/clastool/clastool", 346}}; }

    static std::vector<ktClassifierCategoryResult> samples()
    {
        return {ktClassifierCategoryResult(), ktClassifierCategoryResult(7, 0.5, 0.25, 12.5),
                ktClassifierCategoryResult(2147483647, 1.0, 1.0, std::numeric_limits<double>::infinity())};
    }
};

struct Result : kt_test::ArchivableCase<ktClassifierResult> {
    static constexpr const char* name = "ktClassifierResult";
    static std::vector<Layer> layers() { return {{"clss/clastool/clastool", 670}}; }

    static std::vector<ktClassifierResult> samples()
    {
        return {ktClassifierResult(), ktClassifierResult({{3, 0.5, 0.5, 1.0}, {1, 0.75, 0.5, 0.5}}, -12.5),
                ktClassifierResult({{3, 0.5, 1.0, 1.0}}, 0.0)};
    }
};

struct DataProviderMemory : kt_test::ArchivableCase<ktClassifierDataProviderMemory> {
    static constexpr const char* name = "ktClassifierDataProviderMemory";
    using Base = ktClassifierDataProvider;

    static std::vector<ktClassifierDataProviderMemory> samples()
    {
        const ktPtrHandle_const<ktFeaturePattern> shared(new ktFeaturePattern({1.0, 2.0}, {}));
        std::vector<ktClassifierDataProviderMemory> providers(3);
        providers[1].setName("name");
        providers[1].addData(nullptr, 5);
        providers[1].setDescription("one missing pattern");
        providers[2].setDescription("two labels on one pattern");
        providers[2].addData(shared, 3);
        providers[2].addData(new ktFeaturePattern({-1.0, 0.5}, {0}), 0);
        providers[2].addData(shared, -1);
        return providers;
    }

    /// Patterns are compared by value; a missing one, which `==` refuses, is equal to a missing one.
    static bool equal(const ktClassifierDataProviderMemory& a, const ktClassifierDataProviderMemory& b)
    {
        ktClassifierDataProviderMemory left(a);
        ktClassifierDataProviderMemory right(b);
        if (left.numPatterns() == 1 && right.numPatterns() == 1) {
            return left.featurePattern(0).isNull() && right.featurePattern(0).isNull() && left.name() == right.name() &&
                   left.description() == right.description() && left.categoryLabel(0) == right.categoryLabel(0);
        }
        return a == b;
    }
};

using Values = ::testing::Types<BadParams, BadIndex, BadLabel, BadMethod, NotTrained, NotImplemented, BadFeatures,
                                InsufficientTrainData, FeaturePattern, Costs, Frequencies, CategoryResult, Result,
                                DataProviderMemory>;
using Registered = ::testing::Types<BadParams, BadIndex, BadLabel, BadMethod, NotTrained, NotImplemented, BadFeatures,
                                    InsufficientTrainData, FeaturePattern, DataProviderMemory>;

TEST(GoldenArchives, AreThereForEveryRegisteredClass)
{
    // Whichever program runs the class through the tests above stored its archive.
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        EXPECT_NO_THROW(kt_test::goldenBytes(kt_test::plainName(entry->name()))) << entry->name();
    }
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Clastool, Archivable, Values, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Clastool, ArchivableByPointer, Registered, kt_test::CaseNames);
