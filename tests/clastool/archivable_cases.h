#pragma once

// The archivable classes of foundation.h and training_data.h and their samples.

#include "support/archivable_kit.h"

#include "error_classes.h"

namespace cases {

/// Of what error_classes.h names.
template <class Named>
struct ErrorCase : kt_test::ArchivableCase<typename Named::Class> {
    using Error = typename Named::Class;
    using Layer = typename kt_test::ArchivableCase<Error>::Layer;
    using Base = ktClassifierDefs::Errors;
    static constexpr const char* name = Named::name;
    static std::vector<Layer> layers() { return {{name, 0}, {"ktClassifierDefs::Errors", 0}}; }

    static std::vector<Error> samples()
    {
        return {Error(), Error("Costs must be >= 0.0"), Error(std::string("a\0b\xFF", 4))};
    }

    static bool equal(const Error& a, const Error& b)
    {
        return typeid(a) == typeid(b) && a.errorNumber() == b.errorNumber() && a.message() == b.message();
    }
};

using BadParams = ErrorCase<errors::BadParams>;
using BadIndex = ErrorCase<errors::BadIndex>;
using BadLabel = ErrorCase<errors::BadLabel>;
using BadMethod = ErrorCase<errors::BadMethod>;
using NotTrained = ErrorCase<errors::NotTrained>;
using NotImplemented = ErrorCase<errors::NotImplemented>;
using BadFeatures = ErrorCase<errors::BadFeatures>;
using InsufficientTrainData = ErrorCase<errors::InsufficientTrainData>;

struct FeaturePattern : kt_test::ArchivableCase<ktFeaturePattern> {
    static constexpr const char* name = "ktFeaturePattern";
    static std::vector<Layer> layers() { return {{}}; }

    static std::vector<ktFeaturePattern> samples()
    {
        return {ktFeaturePattern(), ktFeaturePattern({1.5, -2.0, 0.25}, {1}), ktFeaturePattern({1.5, -2.0, 0.25}, {}),
                ktFeaturePattern({0, 1, 2, 3, 4, 5, 6, 7, kt_test::infinity, -kt_test::infinity}, {0, 8})};
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

}  // namespace cases
