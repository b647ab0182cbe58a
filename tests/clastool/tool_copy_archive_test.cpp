#include "tool_kit.h"

#include "support/archivable_kit.h"

namespace {

using namespace kt_test;

// Copies

using ToolCopy = Tool;

TEST_F(ToolCopy, ClonesATrainedClassifier)
{
    trainWithTechnique();
    ktClassifierTool copy(tool_);
    EXPECT_EQ(script_.takeCalls(), Calls{"clone of the technique"});
    EXPECT_EQ(script_.techniques, 2);
    copy.untrain();
    EXPECT_TRUE(tool_.isTrained());
    EXPECT_EQ(labelsOf(answer(tool_, {5})), std::vector<long>{5});
}

TEST_F(ToolCopy, AssignmentLetsTheOldClassifierGoWithoutUntrainingIt)
{
    trainWithTechnique();
    EXPECT_EQ(&(tool_ = trainedTree()), &tool_);
    EXPECT_EQ(script_.calls, Calls());
    EXPECT_EQ(script_.techniques, 0);
    EXPECT_TRUE(*tool_.decisionTree() == someTree());
}

TEST_F(ToolCopy, OfAnUntrainedToolIsEmpty)
{
    trainWithTechnique();
    tool_.untrain();
    ASSERT_EQ(script_.techniques, 1);
    ktClassifierTool copy(tool_);
    ktClassifierTool assigned = trainedKnn();
    assigned = tool_;
    EXPECT_EQ(script_.techniques, 1);
    expectUntrained(copy);
    expectUntrained(assigned);
}

// Kept on purpose: what a tool holds is dropped before the source is looked at.
TEST_F(ToolCopy, AssignedToItselfIsEmpty)
{
    trainWithTechnique();
    const ktClassifierTool& same = tool_;
    tool_ = same;
    EXPECT_EQ(script_.techniques, 0);
    EXPECT_EQ(script_.calls, Calls());
    expectUntrained(tool_);
}

TEST_F(ToolCopy, ThatFailsLeavesTheTargetEmptyAndTheSourceTrained)
{
    trainWithTechnique();
    script_.failAt("clone of the technique", Stop("stop"));
    ktClassifierTool target = trainedKnn();
    EXPECT_THROW(target = tool_, Stop);
    expectUntrained(target);
    EXPECT_TRUE(tool_.isTrained());
    EXPECT_THROW(ktClassifierTool{tool_}, Stop);
    EXPECT_EQ(script_.techniques, 1);
}

TEST_F(ToolCopy, HasParametersOfItsOwn)
{
    tool_ = trainedKnn(Knn(3));
    ktClassifierTool copy(tool_);
    copy.retrain(Knn(1));
    EXPECT_EQ(dynamic_cast<const Knn&>(*tool_.trainParams()).k(), 3);
    EXPECT_EQ(answer(tool_, {0}).categoryResults().size(), 2u);
    EXPECT_EQ(answer(copy, {0}).categoryResults().size(), 1u);
}

/// Nearest-neighbour parameters that show the classifier which they make.
struct ShowingParams : Knn {
    explicit ShowingParams(ktPtrHandle<kt_ClassifierKNN>& made) : Knn(1), made_(made) {}
    kt_Classifier* newClassifier_() const override
    {
        made_ = new kt_ClassifierKNN;
        return made_.get();
    }
    ktPtrHandle<kt_ClassifierKNN>& made_;
};

TEST_F(ToolCopy, SharesTheKeptPatternsAndSeesWhatIsAddedToThem)
{
    ktPtrHandle<kt_ClassifierKNN> classifier;
    tool_.train(trainingData(line), ShowingParams(classifier));
    ktClassifierTool copy(tool_);
    const ktClassifierTool loaded = kt_test::storedAndLoaded(tool_);
    classifier->trainIncremental(*pattern({5}), 9);
    EXPECT_EQ(labelsOf(answer(tool_, {5})), std::vector<long>{9});
    EXPECT_EQ(labelsOf(answer(copy, {5})), std::vector<long>{9});
    EXPECT_EQ(labelsOf(answer(loaded, {5})), std::vector<long>{5}) << "an archive holds a copy";
    classifier->untrain();
    EXPECT_FALSE(tool_.isTrained());
    EXPECT_EQ(labelsOf(answer(copy, {5})), std::vector<long>{9});
}

// Destruction

TEST_F(Tool, DestructorUntrainsATrainedClassifierAndLetsItGo)
{
    {
        ktClassifierTool tool;
        tool.train(data_, params_);
        script_.takeCalls();
    }
    EXPECT_EQ(script_.calls, Calls{"untrain_"});
    EXPECT_EQ(script_.techniques, 0);
    {
        ktClassifierTool tool;
        tool.train(data_, params_);
        tool.untrain();
        script_.takeCalls();
    }
    EXPECT_EQ(script_.calls, Calls()) << "there was nothing left to untrain";
}

TEST_F(Tool, DestructorKeepsWhatATechniqueThrowsToItself)
{
    {
        ktClassifierTool tool;
        tool.train(data_, params_);
        script_.failAt("untrain_", Stop("stop"));
    }
    EXPECT_EQ(script_.techniques, 0);
}

// Comparison

TEST_F(Tool, ComparisonLooksAtTrainingTechniqueParametersAndModel)
{
    ktClassifierTool untrained = trainedKnn();
    untrained.untrain();
    struct Row {
        const char* label;
        const ktClassifierTool& a;
        const ktClassifierTool& b;
        bool equal;
    };
    const ktClassifierTool knn = trainedKnn();
    const ktClassifierTool tree = trainedTree();
    const ktClassifierTool fresh;
    const Row rows[] = {
        {"both new", fresh, ktClassifierTool(), true},
        {"untrained, whatever they hold", untrained, fresh, true},
        {"one trained", knn, fresh, false},
        {"one untrained", tree, untrained, false},
        {"a tool and itself", knn, knn, true},
        {"trained alike", knn, trainedKnn(), true},
        {"other parameters", knn, trainedKnn(Knn(4)), false},
        {"other patterns", knn, trainedKnn(Knn(3), {{{1}, 1}}), false},
        {"another technique", knn, tree, false},
        {"equal trees", tree, trainedTree(), true},
        {"other trees", tree, trainedTree(leaf(4)), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.b == row.a, row.equal);
        EXPECT_EQ(row.a != row.b, !row.equal);
        EXPECT_EQ(row.b != row.a, !row.equal);
    }
}

// Archives

using ToolArchive = Tool;

TEST_F(ToolArchive, IsItsVersionAndTheClassifierByPointer)
{
    kt_test::LoadingArchive archive(kt_test::store(trainedKnn()));
    const ktArchive::Pass pass(archive);
    unsigned char version = 1;
    ktPtrHandle<kt_ClassifierKNN> classifier;
    archive || version || classifier;
    EXPECT_EQ(version, 0);
    ASSERT_FALSE(classifier.isNull());
    EXPECT_EQ(dynamic_cast<const Knn&>(*classifier->trainParams()).k(), 3);
    EXPECT_EQ(archive.left(), 0);
}

TEST_F(ToolArchive, OfANewToolHoldsANullPointer)
{
    EXPECT_EQ(kt_test::toHex(kt_test::afterHeader(kt_test::store(ktClassifierTool()))), "00 00");
    trainWithTechnique();
    kt_test::loadInto(tool_, kt_test::store(ktClassifierTool()));
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
}

TEST_F(ToolArchive, OfAnUntrainedClassifierLoadsUntrained)
{
    ktClassifierTool tool = trainedKnn();
    tool.untrain();
    ktClassifierTool loaded = kt_test::storedAndLoaded(tool);
    expectUntrained(loaded);
}

TEST_F(ToolArchive, ObjectOfAnotherClassLeavesTheToolWithoutAClassifier)
{
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        unsigned char version = 0;
        ktPtrHandle<ktFeaturePattern> foreign = new ktFeaturePattern({1.0}, {});
        archive || version || foreign;
    }
    trainWithTechnique();
    kt_test::loadInto(tool_, archive.bytes());
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
}

TEST_F(ToolArchive, LoadingThatFailsHasLetTheOldClassifierGo)
{
    const std::string bytes = kt_test::store(trainedKnn());
    trainWithTechnique();
    EXPECT_THROW(kt_test::loadInto(tool_, bytes.substr(0, bytes.size() - 1)), ktArchive::Corrupt);
    EXPECT_EQ(script_.techniques, 0);
    expectUntrained(tool_);
    kt_test::loadInto(tool_, bytes);
    EXPECT_TRUE(tool_ == trainedKnn());
}

TEST_F(ToolArchive, ClassifierThatIsNotRegisteredCannotBeStored)
{
    trainWithTechnique();
    EXPECT_THROW(kt_test::store(tool_), ktArchive::Corrupt);
    EXPECT_EQ(valueOf(tool_.trainParams()), 1);
}

/// Tools loaded in one pass from one record and references to it.
struct LoadedTogether {
    explicit LoadedTogether(const ktClassifierTool& tool)
    {
        ktClassifierTool stored(tool);
        std::ostringstream out;
        ktArchive storing(static_cast<std::ostream&>(out));
        {
            const ktArchive::Pass pass(storing);
            storing || stored || stored || stored;
        }
        EXPECT_EQ(out.str().size(), kt_test::store(stored).size() + 12) << "a version byte and a reference, twice";
        kt_test::LoadingArchive loading(out.str());
        const ktArchive::Pass pass(loading);
        {
            ktClassifierTool lost;
            loading || lost;
        }
        loading || first || second;
    }

    ktClassifierTool first;
    ktClassifierTool second;
};

TEST_F(ToolArchive, ToolsLoadedFromReferencesToOneRecordAreToolsOfTheirOwn)
{
    const ktClassifierTool stored = trainedKnn();
    struct Row {
        const char* label;
        std::function<void(ktClassifierTool&)> change;
    };
    const Row rows[] = {
        {"untrained", [](ktClassifierTool& tool) { tool.untrain(); }},
        {"retrained", [](ktClassifierTool& tool) { tool.retrain(Knn(1)); }},
        {"trained",
         [](ktClassifierTool& tool) {
             tool.train(trainingData({{{1}, 4}}), Knn(1));
         }},
        {"trained by hand", [](ktClassifierTool& tool) { tool.train(someTree()); }},
        {"assigned", [](ktClassifierTool& tool) { tool = trainedTree(); }},
        {"moved over", [](ktClassifierTool& tool) { tool = ktClassifierTool(); }},
        {"destroyed", [](ktClassifierTool& tool) { const ktClassifierTool gone(std::move(tool)); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        LoadedTogether tools(stored);
        EXPECT_TRUE(tools.first == stored) << "though a tool that held its classifier has gone";
        row.change(tools.first);
        EXPECT_FALSE(tools.first == stored);
        EXPECT_TRUE(tools.second == stored);
        row.change(tools.second);
        EXPECT_TRUE(tools.second == tools.first);
    }
}

TEST_F(ToolArchive, RefusedRetrainingOfALoadedToolChangesNeitherOfTwo)
{
    LoadedTogether tools(trainedKnn());
    EXPECT_THROW(tools.first.retrain(ktClassifierTrainParamsBayesian()), ktClassifierDefs::BadMethod);
    EXPECT_TRUE(tools.first == trainedKnn());
    EXPECT_TRUE(tools.second == trainedKnn());
}

TEST_F(ToolArchive, ClassifierThatSomethingElseHoldsIsUntrainedWithItsToolUnlessItWasLoaded)
{
    ktPtrHandle<kt_ClassifierKNN> classifier;
    tool_.train(trainingData(line), ShowingParams(classifier));
    tool_.untrain();
    EXPECT_FALSE(classifier->isTrained());
}

TEST_F(ToolCopy, MoveTakesTheClassifierAndLeavesAnEmptyTool)
{
    trainWithTechnique();
    ktClassifierTool moved(std::move(tool_));
    EXPECT_EQ(script_.calls, Calls());
    expectUntrained(tool_);
    EXPECT_EQ(valueOf(moved.trainParams()), 1);
    ktClassifierTool target = trainedKnn();
    target = std::move(moved);
    EXPECT_EQ(script_.calls, Calls());
    EXPECT_EQ(script_.techniques, 1);
    expectUntrained(moved);
    EXPECT_EQ(valueOf(target.trainParams()), 1);
}

/// The first is trained, and the others refer to its classifier.
std::string storedTools(std::size_t references)
{
    std::vector<ktClassifierTool> tools(1, trainedKnn());
    const std::string one = kt_test::store(tools);
    const std::size_t header = kt_test::archiveHeader().size();
    std::string bytes = kt_test::withBytesAt(one, header + 1, kt_test::littleEndian32(references + 1));
    for (std::size_t i = 0; i < references; ++i) {
        bytes += kt_test::fromHex("00 01 00 00 00 00");
    }
    return bytes;
}

TEST_F(ToolArchive, VectorOfToolsIsLoadedWithoutACopyFromEveryKindOfStream)
{
    for (const std::size_t references : {0u, 15u, 19u, 20000u}) {
        SCOPED_TRACE(references);
        const std::string bytes = storedTools(references);
        for (const bool blind : {false, true}) {
            const kt_test::MemoryWatch watch;
            const auto tools = blind ? kt_test::loadBlind<std::vector<ktClassifierTool>>(bytes)
                                     : kt_test::load<std::vector<ktClassifierTool>>(bytes);
            EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
            EXPECT_LE(watch.allocations(), 200) << "a clone allocates";
            ASSERT_EQ(tools.size(), references + 1);
            EXPECT_TRUE(tools.front() == trainedKnn());
            EXPECT_TRUE(tools.back() == trainedKnn());
            EXPECT_TRUE(
                std::all_of(tools.begin(), tools.end(), [](const ktClassifierTool& t) { return t.isTrained(); }));
        }
    }
}

// Kept on purpose: a loaded nearest-neighbour tool runs with k = 1, the Euclidean norm and unit costs until it is retrained.
TEST_F(ToolArchive, LoadedNearestNeighbourToolRunsWithItsParametersOnceTheyAreReapplied)
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(5, 2, 10.0);
    const ktClassifierTool stored = trainedKnn(Knn(3, ktPatternDistanceMetricNorm(1.0), costs));
    ktClassifierTool loaded = kt_test::storedAndLoaded(stored);
    EXPECT_TRUE(loaded == stored);
    EXPECT_TRUE(answer(loaded, {0}) == answer(trainedKnn(Knn()), {0}));
    EXPECT_TRUE(dynamic_cast<const Knn&>(*loaded.trainParams()) == Knn(3, ktPatternDistanceMetricNorm(1.0), costs));

    loaded.retrain(*loaded.trainParams(), nullptr, 0);
    EXPECT_TRUE(answer(loaded, {0}) == answer(stored, {0}));
    EXPECT_TRUE(loaded == stored);
}

TEST_F(ToolArchive, LoadedParametersAskForTheReadinessCheckAgain)
{
    Knn lenient(3);
    lenient.throwIfNotReady(false);
    ktClassifierTool loaded = kt_test::storedAndLoaded(trainedKnn(lenient, {}));
    EXPECT_TRUE(loaded.trainParams()->throwIfNotReady());
    expectThrows<ktClassifierDefs::InsufficientTrainData>(noData, [&] { loaded.retrain(*loaded.trainParams()); });
    expectUntrained(loaded);
}

TEST_F(ToolArchive, LoadedKBelowOneIsRefusedByTheRunAndHugeKTakesAllPatterns)
{
    const std::string stored = kt_test::store(trainedKnn(Knn(0x11223344)));
    const std::size_t position = stored.find(kt_test::littleEndian32(0x11223344));
    ASSERT_NE(position, std::string::npos);
    const auto loadedWithK = [&](unsigned long k) {
        auto tool = kt_test::load<ktClassifierTool>(kt_test::withBytesAt(stored, position, kt_test::littleEndian32(k)));
        tool.retrain(*tool.trainParams());
        return tool;
    };
    for (const unsigned long k : {0UL, 0xFFFFFFFFUL, 0x80000000UL}) {
        SCOPED_TRACE(k);
        const ktClassifierTool tool = loadedWithK(k);
        ktClassifierResult result = untouchedResult();
        expectThrows<ktClassifierDefs::BadParams>("At least one of the category frequencies must be > 0.",
                                                  [&] { tool.run(*pattern({0}), result); });
        EXPECT_TRUE(result == untouchedResult());
    }
    EXPECT_TRUE(answer(loadedWithK(0x7FFFFFFFUL), {0}) == answer(trainedKnn(Knn(5)), {0}));
}

// What must hold for every archivable class. Only an empty tool is unchanged by an assignment that fails, so each case pairs
// one with a trained tool.

struct ToolCase : kt_test::ArchivableCase<ktClassifierTool> {
    static constexpr const char* name = "ktClassifierTool";
    static std::vector<Layer> layers() { return {{"clss/clastool/clastool", 896}}; }
    static constexpr bool keepsValueWhenAssignedToItself = false;
    static std::vector<ktClassifierTool> samples() { return {ktClassifierTool(), trainedKnn()}; }
};

struct ToolTreeCase : ToolCase {
    static constexpr const char* name = "ktClassifierToolWithTree";
    static std::vector<ktClassifierTool> samples() { return {ktClassifierTool(), trainedTree()}; }
};

using ToolCases = ::testing::Types<ToolCase, ToolTreeCase>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Tool, Archivable, ToolCases, kt_test::CaseNames);
