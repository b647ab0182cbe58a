// Every golden archive, damaged in every way, loaded, and what loaded used for all that a program might use it for.
//
// Without KT_EVERY_CASE in the environment one case in ten is run; `.ci/release/damage` runs all of them.

#include "damaged_golden.h"

namespace {

using namespace kt_test;

TEST_P(DamagedGolden, LoadsIntoWhatIsSafeToUseOrIsRefused)
{
    DamageReport counts;
    kt_test::forEachChosenDamage(bytes_, [&](const std::string& damaged, const std::string& what) {
        if (HasFailure()) {
            return;
        }
        SCOPED_TRACE(what);
        const kt_test::MemoryWatch watch;
        try {
            checkDamaged(damaged, counts);
            // A failure that was recorded holds memory of its own.
            EXPECT_TRUE(HasFailure() || watch.liveBlocks() == 0) << "blocks leaked";
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    });
    EXPECT_GT(counts.loaded, 0);
    EXPECT_GT(counts.refused, 0);
    RecordProperty("loaded", std::to_string(counts.loaded));
    RecordProperty("refused", std::to_string(counts.refused));
    std::cout << "damaged archives: " << counts.loaded << " loaded, " << counts.refused << " refused\n";
}

std::string nameOf(const ::testing::TestParamInfo<std::string>& golden)
{
    return golden.param;
}

INSTANTIATE_TEST_SUITE_P(Trust, DamagedGolden, ::testing::ValuesIn(goldenNames()), nameOf);

/// So many tools that a vector of them grows while it is loaded from a stream without a length; most refer to a classifier that stands
/// before.
std::string storedTools()
{
    ktClassifierTool first;
    ktClassifierTool second;
    first.train(ktDecisionTreeLeaf(ktClassifierResult({{4, 1.0, 1.0, 0.0}}, 0.0)));
    second.train(ktDecisionTreeLeaf(ktClassifierResult({{6, 1.0, 1.0, 0.0}}, 0.0)));
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    archive.version();
    archive.count(40, 2);
    for (int i = 0; i < 20; ++i) {
        archive || first || second;
    }
    return archive.bytes();
}

/// What became of the bytes, and the labels that the loaded tools answer with; 0 for one that is not trained.
std::string loadedTools(std::istream& in, std::size_t size)
{
    std::vector<ktClassifierTool> tools;
    std::string labels;
    const kt_test::MemoryWatch watch;
    try {
        ktArchive archive(in);
        archive || tools;
    } catch (const ktException&) {
        labels = "refused ";
        tools.clear();
    }
    EXPECT_LE(watch.peakBytes(), 64 * size + 64 * 1024);
    for (const ktClassifierTool& tool : tools) {
        ktClassifierResult result;
        if (tool.isTrained()) {
            tool.run(ktFeaturePattern({1.0}, {}), result);
        }
        const std::vector<ktClassifierCategoryResult>& categories = result.categoryResults();
        labels += std::to_string(categories.empty() ? 0 : categories.front().categoryLabel()) + ' ';
    }
    return labels;
}

TEST(DamagedTools, ManyInAVectorAreTheSameFromEveryKindOfStream)
{
    const std::string bytes = storedTools();
    std::string expected;
    for (int i = 0; i < 20; ++i) {
        expected += "4 6 ";
    }
    std::istringstream undamaged(bytes);
    EXPECT_EQ(loadedTools(undamaged, bytes.size()), expected);
    kt_test::forEachChosenDamage(bytes, [](const std::string& damaged, const std::string& what) {
        std::istringstream in(damaged);
        kt_test::BlindSource blind(damaged);
        EXPECT_EQ(loadedTools(blind, damaged.size()), loadedTools(in, damaged.size())) << what;
    });
}

TEST(DamagedGoldens, BelongToEveryRegisteredClassAndEveryValueClass)
{
    const std::vector<std::string> names = goldenNames();
    std::set<std::string> missing;
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        missing.insert(entry->name().substr(entry->name().rfind(':') + 1));
    }
    EXPECT_EQ(missing.size(), 24u);
    for (const ArchivedType& type : kt_test::archivedTypes()) {
        if (type.name.rfind("kt", 0) == 0 && type.name.find(' ') == std::string::npos) {
            missing.insert(type.name);
        }
    }
    for (const std::string& name : names) {
        missing.erase(name);
    }
    EXPECT_EQ(missing, std::set<std::string>());
}

}  // namespace
