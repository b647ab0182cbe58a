#pragma once

#include "bayes_kit.h"

#include "support/normal_reference.h"

// What the tests of the Bayesian category model share.

namespace models {

using Model = kt_CategoryModelBayesian;
using bayes::Indices;
using bayes::ModelFields;
using bayes::pattern;
using bayes::Types;
using CategoryModelWithFixedDensities = bayes::WithFixedDensities;
using TypeList = std::vector<Types::DistributionType>;

inline double scoreOf(const Model& model, const ktFeaturePattern& query)
{
    return model.matchScore(query, nullptr, 0);
}

inline void teach(Model& model, const std::vector<ktFeaturePattern>& list)
{
    for (const ktFeaturePattern& each : list) {
        model.adapt(each, nullptr, 0);
    }
}

/// Measurements 0 and 1 jointly normal, measurement 2 binomial of at most 10.
inline Model mixed()
{
    return {7, {{0, 1}, {2}}, {Types::eNormal, Types::eBinomial}, pattern({0.0, 0.0, 10.0})};
}

inline const std::vector<ktFeaturePattern>& mixedData()
{
    static const std::vector<ktFeaturePattern> data = {pattern({1.0, 2.0, 2.0}), pattern({2.0, 4.5, 4.0}),
                                                       pattern({4.0, 7.0, 6.0}), pattern({3.0, 7.0, 5.0})};
    return data;
}

/// What a trained model knows, density by density.
inline std::string bytesOf(const Model& model)
{
    return kt_test::store(model);
}

template <class Class>
const Class& densityOf(const ModelFields& fields, std::size_t i)
{
    return dynamic_cast<const Class&>(*fields.densities.at(i));
}

}  // namespace models
