#pragma once

#include "bayes/bayes_kit.h"
#include "kit_kit.h"

// Bayesian tools made field by field, as a damaged archive may leave them.

namespace kt_test {

inline ktClassifierTool toolWith(const bayes::ClassifierFields& fields)
{
    ktClassifierTool tool;
    loadInto(tool, bayes::stored([&](ktArchive& archive) {
                 unsigned char version = 0;
                 ktPtrHandle<kt_Classifier> classifier = new kt_ClassifierBayesian(bayes::classifierWith(fields));
                 archive || version || classifier;
             }));
    return tool;
}

inline bayes::Density normal(long rows, long columns, long covarianceRows, long covarianceColumns)
{
    bayes::NormalFields fields;
    fields.mean = ktNMMatrix(rows, columns);
    fields.covariance = ktNMMatrix(covarianceRows, covarianceColumns);
    fields.count = 4;
    return new kt_PDFMultivariateNormal(bayes::normalWith(fields));
}

inline bayes::Density rightNormal()
{
    return normal(1, 1, 1, 1);
}

/// A tool of one category, 0, with a density for each group.
inline bayes::ClassifierFields fieldsWith(const bayes::Sets& groups, const std::vector<bayes::Density>& densities)
{
    bayes::ClassifierFields fields;
    fields.params = new bayes::Params;
    fields.labels = {0};
    fields.models = {new kt_CategoryModelBayesian(bayes::modelWith(0, groups, densities))};
    return fields;
}

inline ktClassifierTool toolOf(const bayes::Sets& groups, const std::vector<bayes::Density>& densities)
{
    return toolWith(fieldsWith(groups, densities));
}

inline bayes::ClassifierFields wholeFields()
{
    return fieldsWith({{0}}, {rightNormal()});
}

/// Nothing can be learnt by the tool, from it, or said of it, and it stays as it is.
inline void expectUseless(const ktClassifierTool& damaged)
{
    ktClassifierTool tool = damaged;
    ktClassifierTool whole = toolWith(wholeFields());
    expectBadPointer([&] { ktKit::densities(tool); });
    expectBadPointer([&] { ktKit::add(tool, {ktKit::pattern({1.0})}, {0}); });
    expectBadPointer([&] { ktKit::merge(tool, whole); });
    expectBadPointer([&] { ktKit::merge(whole, tool); });
    EXPECT_TRUE(whole == toolWith(wholeFields()));
}

}  // namespace kt_test
