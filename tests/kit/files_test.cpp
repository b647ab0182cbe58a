// One file for a tool.

#include "tool_files.h"

#if defined(__linux__)
#include <sys/resource.h>
#include <csignal>
#endif

namespace {

using namespace kt_test;

TEST_F(KitFile, EachTechniqueRunsAsItDid)
{
    const ktKit::Patterns queries = Sample(100, 160).patterns;
    for (const ktClassifierTool& tool :
         {trainedOn(Sample(0, 90), unusualKnn()), trainedOn(Sample(0, 90), kt_test::bayesParams(true)),
          trainedOn(Sample(0, 90), kt_test::bayesParams()), kt_test::treeTool()}) {
        const ktClassifierTool loaded = reloaded(tool);
        EXPECT_TRUE(loaded == tool);
        EXPECT_TRUE(oneByOne(loaded, queries) == oneByOne(tool, queries));
    }
    EXPECT_FALSE(reloaded(ktClassifierTool()).isTrained());
    EXPECT_EQ(numFiles(), 1U);
}

// A tool that the plain archive loaded runs with k = 1 until it is retrained; the file keeps that too.
TEST_F(KitFile, NearestNeighborsRunWithTheParametersThatWereInUse)
{
    const ktKit::Patterns queries = Sample(100, 160).patterns;
    const ktClassifierTool tool = trainedOn(Sample(0, 90), unusualKnn());
    const ktClassifierTool plain = storedAndLoaded(tool);
    ASSERT_FALSE(oneByOne(plain, queries) == oneByOne(tool, queries));
    ktClassifierTool loaded = reloaded(plain);
    EXPECT_TRUE(oneByOne(loaded, queries) == oneByOne(plain, queries));
    EXPECT_EQ(ktKit::neighbors(loaded, *queries[0]).size(), 1U);
    // What the training was given is there still.
    loaded.retrain(*loaded.trainParams());
    EXPECT_TRUE(oneByOne(loaded, queries) == oneByOne(tool, queries));
    EXPECT_EQ(ktKit::neighbors(loaded, *queries[0]).size(), 4U);
}

TEST_F(KitFile, HoldsWhatTheHeaderSays)
{
    ktClassifierTool tool = trainedOn(Sample(0, 6), unusualKnn());
    ktKit::save(tool, path_);
    std::stringstream stream;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        ktPtrHandle<Knn> inUse = new Knn(unusualKnn());
        // The metric is one object, which the stored parameters and those in use share.
        inUse = new Knn(dynamic_cast<const Knn&>(*tool.trainParams()));
        std::vector<ktPtrHandle<kt_PDFMultivariateNormal>> none;
        ktPtrHandle<ktKit::Scaler> scaler;
        archive || tool || inUse || none || scaler;
    }
    EXPECT_EQ(kt_test::toHex(fileBytes(path_)), kt_test::toHex(fileAround(stream.str())));
    EXPECT_EQ(crc32("123456789"), 0xCBF43926U) << "the check value of the polynomial";
}

TEST_F(KitFile, BinomialDensitiesLearnOnWhereTheyStood)
{
    const Sample first(0, 60);
    const Sample second(60, 90);
    Sample both = first;
    both += second;
    ktClassifierTool loaded = reloaded(trainedOn(first, kt_test::bayesParams(true)));
    ktKit::add(loaded, second.patterns, second.labels);
    EXPECT_TRUE(loaded == trainedOn(both, kt_test::bayesParams(true)));
}

TEST_F(KitFile, AScalerGoesIntoTheToolsFile)
{
    ktClassifierDataProviderMemory data;
    const Sample sample(0, 60);
    data.data(sample.patterns, sample.labels);
    const ktKit::Scaler scaler(data);
    ktClassifierTool tool;
    tool.train(scaler.transform(data), unusualKnn());
    ktKit::save(tool, scaler, path_);
    ktKit::Scaler loaded;
    EXPECT_TRUE(ktKit::load(path_, loaded) == tool);
    EXPECT_TRUE(loaded == scaler);
    expectThrows<ktKit::FileError>(path_ + ": the tool was saved with a scaler, so it is loaded with one",
                                   [this] { ktKit::load(path_); });
    ktKit::save(tool, path_);
    expectThrows<ktKit::FileError>(path_ + ": the tool was saved without a scaler",
                                   [&] { ktKit::load(path_, loaded); });
    EXPECT_TRUE(loaded == scaler);
}

TEST_F(KitFile, EveryTruncationIsRefused)
{
    ktKit::save(trainedOn(Sample(0, 6), unusualKnn()), path_);
    const std::string whole = fileBytes(path_);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        const std::string what =
            size < 13 ? "unexpected end at byte " + std::to_string(size)
                      : "damaged or cut short: the checksum at byte " + std::to_string(size - 4) + " does not match";
        expectRefused(whole.substr(0, size), what);
    }
}

TEST_F(KitFile, EveryFlippedBitIsRefused)
{
    ktKit::save(trainedOn(Sample(0, 6), kt_test::bayesParams(true)), path_);
    const std::string whole = fileBytes(path_);
    const std::string checksum =
        "damaged or cut short: the checksum at byte " + std::to_string(whole.size() - 4) + " does not match";
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            SCOPED_TRACE(at);
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ 1 << bit);
            const std::string version = "unknown version " + std::to_string(1 << bit) + " at byte 8";
            const std::string other = "not a file of ktKit::save, at byte " + std::to_string(at);
            expectRefused(damaged, at < 8 ? other : at == 8 ? version : checksum);
        }
    }
    expectRefused(whole + "x",
                  "damaged or cut short: the checksum at byte " + std::to_string(whole.size() - 3) + " does not match");
}

// More than the 4096 bytes that are looked at together, and each number of bytes around them.
TEST_F(KitFile, TheChecksumIsRightAtEverySize)
{
    for (std::size_t size = 4070; size < 4110; ++size) {
        SCOPED_TRACE(size);
        const std::string file = fileAround(std::string(size, 'x'));
        expectRefused(file, "the archive that begins at byte 9: Corrupt archive: not an archive at byte 4.");
    }
    const ktClassifierTool tool = trainedOn(Sample(0, 700), unusualKnn());
    EXPECT_TRUE(reloaded(tool) == tool);
    std::string whole = fileBytes(path_);
    whole[5000] = static_cast<char>(whole[5000] ^ 1);
    expectRefused(whole,
                  "damaged or cut short: the checksum at byte " + std::to_string(whole.size() - 4) + " does not match");
}

TEST_F(KitFile, AnythingElseIsRefused)
{
    expectRefused("", "unexpected end at byte 0");
    expectRefused("label,width\n0,1\n", "not a file of ktKit::save, at byte 0");
    expectRefused("kt", "unexpected end at byte 2");
    expectRefused("ktKit\n\x1A and more", "not a file of ktKit::save, at byte 5");
    expectRefused("KTAR and more", "an archive as ktArchive stores it, not a file of ktKit::save, at byte 0");
    const std::string header = kt_test::archiveHeader();
    expectRefused(fileAround(""), "the archive that begins at byte 9: Corrupt archive: not an archive at byte 4.");
    // No classifier, no parameters, no accumulators: an untrained tool.
    const std::string untrained = header + kt_test::fromHex("00 00 00 00 00000000 00");
    writeBytes(path_, fileAround(untrained));
    EXPECT_FALSE(ktKit::load(path_).isTrained());
    const std::string foreign = "something else than a tool and its parameters before byte ";
    expectRefused(fileAround(untrained + "x"), foreign + "26");
    // One accumulator, null, for a tool without densities.
    expectRefused(fileAround(header + kt_test::fromHex("00 00 00 00 01000000 00 00")), foreign + "27");
}

TEST_F(KitFile, ParametersThatDoNotFitAreRefused)
{
    std::stringstream stream;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        ktClassifierTool tool = trainedOn(Sample(0, 6), unusualKnn());
        ktPtrHandle<Knn> none;
        std::vector<ktPtrHandle<kt_PDFMultivariateNormal>> accumulators;
        ktPtrHandle<ktKit::Scaler> scaler;
        archive || tool || none || accumulators || scaler;
    }
    expectRefused(fileAround(stream.str()), "something else than a tool and its parameters before byte " +
                                                std::to_string(9 + stream.str().size()));
}

TEST_F(KitFile, AccumulatorsThatAreMissingAreRefused)
{
    std::stringstream stream;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        ktClassifierTool tool = trainedOn(Sample(0, 60), kt_test::bayesParams(true));
        ktPtrHandle<Knn> none;
        std::vector<ktPtrHandle<kt_PDFMultivariateNormal>> accumulators(3);
        ktPtrHandle<ktKit::Scaler> scaler;
        archive || tool || none || accumulators || scaler;
    }
    expectRefused(fileAround(stream.str()), "something else than a tool and its parameters before byte " +
                                                std::to_string(9 + stream.str().size()));
}

/// Does with a tool whatever the kit does; all of it answers, or throws one of the library's exceptions.
template <class Params>
void useAll(ktClassifierTool& tool, const ktClassifierTool& whole, const Params& params)
{
    const Sample some(90, 93);
    const auto attempt = [](const auto& operation) {
        try {
            operation();
        } catch (const ktException&) {
            // What it says depends on the damage.
        }
    };
    ktClassifierTool merged = whole;
    attempt([&] { ktKit::runAll(tool, some.patterns); });
    attempt([&] { ktKit::neighbors(tool, *some.patterns[0]); });
    attempt([&] { ktKit::densities(tool); });
    attempt([&] { ktKit::Rejection(tool, ktClassifierDataProviderMemory(), 0.0).rejects(*some.patterns[0]); });
    attempt([&] { ktKit::merge(merged, tool); });
    attempt([&] { ktKit::merge(tool, whole); });
    attempt([&] { ktKit::add(tool, some.patterns, some.labels); });
    attempt([&] { tool.retrain(params); });
}

// Whoever knows the checksum can write any archive into a file.
TEST_F(KitFile, AnyArchiveEndsInAnErrorOrInAToolThatIsSafe)
{
    const auto tryAll = [this](const auto& params) {
        const ktClassifierTool whole = trainedOn(Sample(0, 6), params);
        ktKit::save(whole, path_);
        const std::string bytes = fileBytes(path_);
        const std::string archive = bytes.substr(9, bytes.size() - 13);
        long loaded = 0;
        long refused = 0;
        for (std::size_t bit = 64; bit < 8 * archive.size(); bit += 3) {
            std::string damaged = archive;
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
            writeBytes(path_, fileAround(damaged));
            try {
                ktClassifierTool tool = ktKit::load(path_);
                ++loaded;
                useAll(tool, whole, params);
            } catch (const ktKit::FileError&) {
                ++refused;
            }
        }
        EXPECT_GT(loaded, 100);
        EXPECT_GT(refused, 100);
    };
    tryAll(unusualKnn());
    tryAll(kt_test::bayesParams(true));
}

TEST_F(KitFile, WhatCannotBeReadIsSaid)
{
    expectThrows<ktKit::FileError>(path_ + ": cannot be read", [this] { ktKit::load(path_); });
    const std::string folder = folder_.string();
    expectThrows<ktKit::FileError>(folder + ": cannot be read", [&] { ktKit::load(folder); });
}

TEST_F(KitFile, WhatCannotBeWrittenIsSaidAndLeavesNothing)
{
    const std::string nowhere = (folder_ / "no" / "tool.kt").string();
    expectThrows<ktKit::FileError>(nowhere + ": cannot be written", [&] { ktKit::save(kt_test::treeTool(), nowhere); });
    std::filesystem::create_directories(folder_ / "taken" / "in it");
    const std::string taken = (folder_ / "taken").string();
    expectThrows<ktKit::FileError>(taken + ": cannot be written", [&] { ktKit::save(kt_test::treeTool(), taken); });
    EXPECT_EQ(numFiles(), 1U);
}

#if defined(__linux__)

/// While it lives, no file of this process grows beyond `most` bytes, as on a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t most) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {most, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    void (*handler_)(int);
    rlimit before_{};
};

TEST_F(KitFile, AFullDiskIsSaidAndLeavesTheOldFile)
{
    const ktClassifierTool old = kt_test::treeTool();
    ktKit::save(old, path_);
    const std::string bytes = fileBytes(path_);
    const ktClassifierTool small = trainedOn(Sample(0, 6), unusualKnn());
    const ktClassifierTool large = trainedOn(Sample(0, 2000), unusualKnn());
    for (const rlim_t most : {rlim_t{0}, rlim_t{100}, rlim_t{10000}}) {
        const ktClassifierTool& tool = most < 10000 ? small : large;
        std::string said;
        {
            // What is expected of it is told later, because a report of the tests may go to a file.
            const FullDisk disk(most);
            try {
                ktKit::save(tool, path_);
            } catch (const ktKit::FileError& error) {
                said = error.message();
            }
        }
        EXPECT_EQ(said, path_ + ": cannot be written") << most;
        EXPECT_EQ(fileBytes(path_), bytes);
        EXPECT_EQ(numFiles(), 1U);
    }
}

#endif

TEST_F(KitFile, AFailedSaveLeavesTheOldFile)
{
    const ktClassifierTool old = kt_test::treeTool();
    ktKit::save(old, path_);
    const std::string bytes = fileBytes(path_);
    const ktClassifierTool unstorable = trainedOn(Sample(0, 6), Knn(1, UnregisteredMetric(), ktClassifierCosts()));
    EXPECT_THROW(ktKit::save(unstorable, path_), ktArchive::Corrupt);
    EXPECT_EQ(fileBytes(path_), bytes);
    EXPECT_EQ(numFiles(), 1U);
    ktKit::save(trainedOn(Sample(0, 6), unusualKnn()), path_);
    EXPECT_NE(fileBytes(path_), bytes);
    EXPECT_EQ(numFiles(), 1U);
}

TEST_F(KitFile, AStreamGetsTheBytesOfAFile)
{
    const ktClassifierTool tool = trainedOn(Sample(0, 90), kt_test::bayesParams(true));
    ktKit::save(tool, path_);
    std::stringstream stream;
    stream << "before";
    ktKit::save(tool, stream);
    EXPECT_EQ(stream.str(), "before" + fileBytes(path_));
    stream.seekg(6);
    const ktClassifierTool loaded = ktKit::load(stream);
    const ktKit::Patterns queries = Sample(100, 160).patterns;
    EXPECT_TRUE(loaded == tool);
    EXPECT_TRUE(oneByOne(loaded, queries) == oneByOne(tool, queries));
}

TEST_F(KitFile, WhatIsWrongWithAStreamIsSaid)
{
    ktKit::Scaler scaler;
    ktKit::save(kt_test::treeTool(), scaler, path_);
    const std::string whole = fileBytes(path_);
    struct Case {
        std::string bytes;
        std::string what;
    };
    for (const Case& given :
         {Case{"", "unexpected end at byte 0"},
          Case{"KTAR", "an archive as ktArchive stores it, not a file of ktKit::save, at byte 0"},
          Case{whole, "the tool was saved with a scaler, so it is loaded with one"},
          Case{whole.substr(0, whole.size() - 1),
               "damaged or cut short: the checksum at byte " + std::to_string(whole.size() - 5) + " does not match"}}) {
        std::istringstream stream(given.bytes);
        expectThrows<ktKit::FileError>("stream: " + given.what, [&] { ktKit::load(stream); });
    }
    for (const std::ios::iostate state : {std::ios::badbit, std::ios::failbit}) {
        std::stringstream stream(whole);
        stream.setstate(state);
        expectThrows<ktKit::FileError>("stream: cannot be read", [&] { ktKit::load(stream); });
        expectThrows<ktKit::FileError>("stream: cannot be written", [&] { ktKit::save(kt_test::treeTool(), stream); });
    }
    kt_test::BlindSource broken(whole, 20, kt_test::AtLimit::throws);
    expectThrows<ktKit::FileError>("stream: cannot be read", [&] { ktKit::load(broken); });
    kt_test::LimitedSink full(20, kt_test::AtLimit::refuses);
    expectThrows<ktKit::FileError>("stream: cannot be written", [&] { ktKit::save(kt_test::treeTool(), full); });
}

TEST_F(KitFile, TheErrorIsOneOfTheLibrarysExceptions)
{
    const ktKit::FileError error("what is wrong");
    EXPECT_EQ(error.errorNumber(), 0x10004400);
    EXPECT_STREQ(error.what(), "what is wrong");
    ktKit::FileError other("");
    other = error;
    EXPECT_EQ(other.message(), "what is wrong");
    auto* const thrown = new ktKit::FileError(error);
    expectThrows<ktKit::FileError>("what is wrong", [&] { thrown->suicideAndRethrow(); });
}

TEST_F(KitFile, RunsOutOfMemoryCleanly)
{
    const ktClassifierTool tool = trainedOn(Sample(0, 6), unusualKnn());
    const ktClassifierTool bayes = trainedOn(Sample(0, 6), kt_test::bayesParams(true));
    ktKit::save(tool, path_);
    const std::string bytes = fileBytes(path_);
    struct Nothing {};
    const auto prepare = [] { return Nothing(); };
    EXPECT_GT(kt_test::failEachAllocation(
                  prepare, [&](Nothing&) { ktKit::save(tool, path_); },
                  [&](Nothing&) { EXPECT_EQ(fileBytes(path_), bytes); }),
              0);
    EXPECT_EQ(numFiles(), 1U);
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::load(path_); }), 0);
    const std::string other = (folder_ / "bayes.kt").string();
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::save(bayes, other); }), 0);
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::load(other); }), 0);
    EXPECT_EQ(numFiles(), 2U);
    EXPECT_GT(kt_test::failEachAllocation([&] {
                  std::istringstream stream(bytes, std::ios::binary);
                  ktKit::load(stream);
              }),
              0);
}

}  // namespace
