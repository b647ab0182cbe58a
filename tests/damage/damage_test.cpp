// Every golden archive, damaged in every way, loaded, and what loaded used for all that a program might use it for.
//
// Without KT_EVERY_CASE in the environment one case in ten is run; `.ci/release/damage` runs all of them.

#include "damage/battery.h"

#include "support/damage.h"
#include "support/golden.h"
#include "support/streams.h"
#include "support/test.h"

#include <filesystem>

namespace {

using namespace kt_test;

/// The golden archives, except those of the foundation's own tests, which have classes of their own.
std::vector<std::string> goldenNames()
{
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(kt_test::goldenFolder())) {
        const std::string name = file.path().stem().string();
        if (name.rfind("foundation_", 0) != 0) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// What became of the damaged archives.
struct Counts {
    long loaded = 0;
    long refused = 0;
};

using Subjects = std::vector<std::unique_ptr<Subject>>;

class DamagedGolden : public ::testing::TestWithParam<std::string> {
protected:
    DamagedGolden() : type_(kt_test::typeOfGolden(GetParam())), bytes_(kt_test::goldenBytes(GetParam())) {}

    /// Uses every undamaged value: what the battery and the library set up on first use must not look like a leak.
    static void SetUpTestSuite()
    {
        for (const std::string& name : goldenNames()) {
            forEachValue(kt_test::typeOfGolden(name), kt_test::goldenBytes(name),
                         [](Subject& subject) { subject.use(); });
        }
    }

    void SetUp() override
    {
        forEachValue(type_, bytes_, [this](Subject& subject) { undamaged_.push_back(subject.bytes()); });
        ASSERT_GT(undamaged_.size(), 1u);
    }

    template <class Visit>
    static void forEachValue(const ArchivedType& type, const std::string& bytes, Visit visit)
    {
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        while (in.peek() != std::istringstream::traits_type::eof()) {
            const std::unique_ptr<Subject> subject = type.make();
            subject->load(archive);
            visit(*subject);
        }
    }

    /// Loads as many values as the golden archive has. Returns whether all were loaded; the last one may be half loaded.
    bool load(std::istream& in, std::size_t size, Subjects& subjects) const
    {
        bool loaded = true;
        const kt_test::MemoryWatch watch;
        ktArchive archive(in);
        while (loaded && subjects.size() < undamaged_.size()) {
            subjects.push_back(type_.make());
            try {
                subjects.back()->load(archive);
            } catch (const ktArchive::Errors&) {
                loaded = false;
            }
        }
        EXPECT_LE(watch.peakBytes(), 64 * size + 64 * 1024);
        return loaded;
    }

    void checkDamaged(const std::string& damaged, Counts& counts) const
    {
        std::istringstream in(damaged);
        Subjects subjects;
        const bool loaded = load(in, damaged.size(), subjects);
        kt_test::BlindSource blind(damaged);
        Subjects blindly;
        EXPECT_EQ(load(blind, damaged.size(), blindly), loaded) << "from a stream without a length";
        ++(loaded ? counts.loaded : counts.refused);
        if (!loaded) {
            subjects.back()->recover(bytes_);
            subjects.pop_back();
        }
        for (std::size_t i = 0; i < subjects.size(); ++i) {
            const std::string bytes = subjects[i]->bytes();
            EXPECT_EQ(blindly.at(i)->bytes(), bytes) << "value " << i << " from a stream without a length";
            // A value that the damage did not reach has been used before.
            if (bytes != undamaged_[i]) {
                subjects[i]->use();
            }
        }
    }

    const ArchivedType& type_;
    const std::string bytes_;
    std::vector<std::string> undamaged_;
};

TEST_P(DamagedGolden, LoadsIntoWhatIsSafeToUseOrIsRefused)
{
    Counts counts;
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
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    const ktArchive::Pass pass(archive);
    archive.version();
    archive.count(40, 2);
    for (int i = 0; i < 20; ++i) {
        archive || first || second;
    }
    return out.str();
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
