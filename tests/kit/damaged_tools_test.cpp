// Bayesian tools in states that only a damaged archive brings about.

#include "bayes/bayes_kit.h"
#include "kit_kit.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using kt_test::expectBadPointer;
using kt_test::expectThrows;

const std::string otherMeasurements = "Classifier tools must be trained on the same measurements to be merged";

ktClassifierTool toolWith(const bayes::ClassifierFields& fields)
{
    ktClassifierTool tool;
    kt_test::loadInto(tool, bayes::stored([&](ktArchive& archive) {
                          unsigned char version = 0;
                          ktPtrHandle<kt_Classifier> classifier =
                              new kt_ClassifierBayesian(bayes::classifierWith(fields));
                          archive || version || classifier;
                      }));
    return tool;
}

bayes::Density normal(long rows, long columns, long covarianceRows, long covarianceColumns)
{
    bayes::NormalFields fields;
    fields.mean = ktNMMatrix(rows, columns);
    fields.covariance = ktNMMatrix(covarianceRows, covarianceColumns);
    fields.count = 4;
    return new kt_PDFMultivariateNormal(bayes::normalWith(fields));
}

bayes::Density rightNormal()
{
    return normal(1, 1, 1, 1);
}

/// A tool of one category, 0, with a density for each group.
ktClassifierTool toolOf(const bayes::Sets& groups, const std::vector<bayes::Density>& densities)
{
    bayes::ClassifierFields fields;
    fields.params = new bayes::Params;
    fields.labels = {0};
    fields.models = {new kt_CategoryModelBayesian(bayes::modelWith(0, groups, densities))};
    return toolWith(fields);
}

bayes::ClassifierFields wholeFields()
{
    bayes::ClassifierFields fields;
    fields.params = new bayes::Params;
    fields.labels = {0};
    fields.models = {new kt_CategoryModelBayesian(bayes::modelWith(0, {{0}}, {rightNormal()}))};
    return fields;
}

/// Nothing can be learnt by the tool, from it, or said of it, and it stays as it is.
void expectUseless(const ktClassifierTool& damaged)
{
    ktClassifierTool tool = damaged;
    ktClassifierTool whole = toolWith(wholeFields());
    expectBadPointer([&] { ktKit::densities(tool); });
    expectBadPointer([&] { ktKit::add(tool, {ktKit::pattern({1.0})}, {0}); });
    expectBadPointer([&] { ktKit::merge(tool, whole); });
    expectBadPointer([&] { ktKit::merge(whole, tool); });
    EXPECT_TRUE(whole == toolWith(wholeFields()));
}

TEST(KitDamagedTool, AModelIsMissingOrOfTheCallersOwn)
{
    const std::string path = (std::filesystem::temp_directory_path() / "kit_damaged_tool.kt").string();
    for (const bayes::Model& model : {bayes::Model(), bayes::Model(new bayes::ForeignModel)}) {
        bayes::ClassifierFields fields = wholeFields();
        fields.models[0] = model;
        expectUseless(toolWith(fields));
        ktKit::save(toolWith(fields), path);
        expectUseless(ktKit::load(path));
    }
    std::filesystem::remove(path);
}

TEST(KitDamagedTool, ADensityIsMissing)
{
    expectUseless(toolOf({{0}, {1}}, {rightNormal()}));
    expectUseless(toolOf({{0}}, {nullptr}));
}

TEST(KitDamagedTool, TheParametersAreMissingOrOfAnotherTechnique)
{
    for (const ktPtrHandle<ktClassifierTrainParams>& params :
         {ktPtrHandle<ktClassifierTrainParams>(), ktPtrHandle<ktClassifierTrainParams>(new kt_test::Knn(1))}) {
        bayes::ClassifierFields fields = wholeFields();
        fields.params = params;
        ktClassifierTool tool = toolWith(fields);
        ktClassifierTool whole = toolWith(wholeFields());
        expectBadPointer([&] { ktKit::add(tool, {ktKit::pattern({1.0})}, {7}); });
        expectBadPointer([&] { ktKit::merge(tool, whole); });
        expectBadPointer([&] { ktKit::merge(whole, tool); });
        EXPECT_EQ(ktKit::densities(tool)[0].count, 4);
    }
    bayes::ClassifierFields fields = wholeFields();
    fields.params = nullptr;
    ktClassifierTool tool = toolWith(fields);
    ktKit::add(tool, {ktKit::pattern({1.0})}, {0});
    EXPECT_EQ(ktKit::densities(tool)[0].count, 5) << "a known category takes no parameters";
}

TEST(KitDamagedTool, SizesThatDisagreeAreNotMerged)
{
    const bayes::Density binomial = new kt_PDFBinomial;
    for (const bayes::Density& density :
         {normal(2, 1, 1, 1), normal(1, 2, 1, 1), normal(1, 1, 2, 1), normal(1, 1, 1, 2), binomial}) {
        ktClassifierTool tool = toolOf({{0}}, {density});
        ktClassifierTool whole = toolWith(wholeFields());
        expectThrows<ktClassifierDefs::BadFeatures>(otherMeasurements, [&] { ktKit::merge(whole, tool); });
        expectThrows<ktClassifierDefs::BadFeatures>(otherMeasurements, [&] { ktKit::merge(tool, whole); });
        EXPECT_TRUE(whole == toolWith(wholeFields()));
        EXPECT_TRUE(tool == toolOf({{0}}, {density}));
    }
    ktClassifierTool tool = toolWith(wholeFields());
    ktKit::merge(tool, toolWith(wholeFields()));
    EXPECT_EQ(ktKit::densities(tool)[0].count, 8);
    expectThrows<ktClassifierDefs::BadFeatures>(otherMeasurements,
                                                [&] { ktKit::merge(tool, toolOf({{1}}, {rightNormal()})); });
}

}  // namespace
