// Bayesian tools in states that only a damaged archive brings about.

#include "damaged_tools.h"

namespace {

using namespace kt_test;

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
    const std::string otherMeasurements = "Classifier tools must be trained on the same measurements to be merged";
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
