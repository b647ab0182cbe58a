#include "knn_classifier_kit.h"
#include "metrics.h"

namespace {

using namespace kt_test;
using namespace neighbors;

// Copies and comparison

TEST(KnnCopy, SharesThePatternsAndHasParametersOfItsOwn)
{
    OpenKNN classifier = trained(line, Params(1));
    OpenKNN copy(classifier);
    EXPECT_TRUE(copy.storedParams() == classifier.storedParams());
    copy.retrain(Params(5));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2}) << "k is still 1 here";
    EXPECT_EQ(answer(copy, {0}).categoryResults().size(), 3u);
    copy.untrain();
    EXPECT_TRUE(classifier.isTrained());
}

TEST(KnnCopy, AssignedOverAnotherOfAsManyPatternsAnswersFromThoseItTookOver)
{
    OpenKNN classifier = trained({{{0}, 1}, {{1}, 2}, {{2}, 3}}, Params(1));
    const OpenKNN other = trained({{{2}, 4}, {{1}, 5}, {{0}, 6}}, Params(1));
    static_cast<kt_ClassifierKNN&>(classifier) = other;
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{6});
    EXPECT_EQ(labelsOf(answer(classifier, {2})), std::vector<long>{4});
}

TEST(KnnCopy, AssignedToItselfStaysAsItIs)
{
    OpenKNN classifier = trained(line, Params(3));
    const kt_ClassifierKNN& same = classifier;
    const ktClassifierResult before = answer(classifier, {0});
    static_cast<kt_ClassifierKNN&>(classifier) = same;
    EXPECT_TRUE(answer(classifier, {0}) == before);
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.trainParams()).k(), 3);
}

TEST(KnnComparison, LooksAtTrainingParametersAndPatterns)
{
    struct Row {
        const char* label;
        OpenKNN a;
        OpenKNN b;
        bool equal;
    };
    Data named = trainingData(line);
    named.setName("named");
    OpenKNN trainedNamed;
    trainedNamed.train(named, Params(3));
    OpenKNN loaded;
    kt_test::loadInto(loaded, kt_test::store(trained(line, Params(3))));
    OpenKNN started;
    started.trainStart(Params(3));
    const Row rows[] = {
        {"both new", OpenKNN(), OpenKNN(), true},
        {"one trained", trained(line, Params(3)), OpenKNN(), false},
        {"trained alike", trained(line, Params(3)), trained(line, Params(3)), true},
        {"another k", trained(line, Params(3)), trained(line, Params(4)), false},
        {"other patterns", trained(line, Params(3)), trained({{{0}, 2}}, Params(3)), false},
        {"another name of the training set", trained(line, Params(3)), trainedNamed, false},
        {"the parameters in use are not compared", trained(line, Params(3)), loaded, true},
        {"untrained, one with parameters", started, OpenKNN(), false},
        {"untrained with equal parameters", started, started, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.b == row.a, row.equal);
        EXPECT_EQ(row.a != row.b, !row.equal);
        EXPECT_EQ(row.a.isEquivalent(row.b), row.equal);
    }
}

TEST(KnnComparison, ClassifierOfAnotherClassIsNotEquivalent)
{
    kt_test::Script script;
    EXPECT_FALSE(kt_ClassifierKNN().isEquivalent(kt_test::Technique(script)));
}

TEST(KnnComparison, NeedsThePatternsOfBothOnceTrained)
{
    const AlwaysTrained without;
    OpenKNN with;
    with.train_(trainingData(line), Params(1));
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(with == without); });
    expectThrows<ktBadPointer>("", [&] { static_cast<void>(without == with); });
}

// Archives

TEST(KnnArchive, IsItsVersionItsBaseAndThePatterns)
{
    const OpenKNN classifier = trained(line, Params(3));
    kt_test::LoadingArchive archive(kt_test::store(classifier));
    const ktArchive::Pass pass(archive);
    unsigned char version = 1;
    unsigned char baseVersion = 1;
    ktPtrHandle<Params> params;
    ktPtrHandle<Data> data;
    archive || version || baseVersion || params || data;
    EXPECT_EQ(version, 0);
    EXPECT_EQ(baseVersion, 0);
    ASSERT_FALSE(params.isNull());
    EXPECT_TRUE(*params == Params(3));
    ASSERT_FALSE(data.isNull());
    EXPECT_TRUE(*data == trainingData(line));
    EXPECT_EQ(archive.left(), 0);
}

TEST(KnnArchive, OfAnUntrainedClassifierHoldsTwoNullPointers)
{
    EXPECT_EQ(kt_test::toHex(afterHeader(kt_test::store(kt_ClassifierKNN()))), "00 00 00 00");
}

TEST(KnnArchive, SharedPatternsAreRestoredShared)
{
    ktPtrHandle<kt_ClassifierKNN> first = new kt_ClassifierKNN(trained(line, Params(1)));
    ktPtrHandle<kt_ClassifierKNN> second = new kt_ClassifierKNN(*first);
    std::stringstream stream;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        archive || first || second;
    }
    ktArchive archive(static_cast<std::istream&>(stream));
    {
        const ktArchive::Pass pass(archive);
        archive || first || second;
    }
    first->trainIncremental(*pattern({5}), 9);
    EXPECT_EQ(labelsOf(answer(*second, {5})), std::vector<long>{9});
}

// Loaded classifiers

/// The archive of a classifier put together from its two parts.
template <class StoredParams, class StoredData>
std::string crafted(ktPtrHandle<StoredParams> params, ktPtrHandle<StoredData> data)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    unsigned char version = 0;
    archive || version || version || params || data;
    return archive.bytes();
}

ktPtrHandle<Data> newData(const std::vector<Labelled>& rows)
{
    return new Data(trainingData(rows));
}

/// A store as only a damaged archive makes it: patterns and labels that need not go together.
ktPtrHandle<Data> damagedData(std::vector<PatternHandle> patterns, std::vector<long> labels)
{
    kt_test::StoringArchive archive;
    {
        const ktArchive::Pass pass(archive);
        unsigned char version = 0;
        std::string text;
        archive || version || version || text || text || patterns || labels;
    }
    ktPtrHandle<Data> data = new Data;
    kt_test::loadInto(*data, archive.bytes());
    return data;
}

ktPtrHandle<Params> paramsWithK(unsigned long k)
{
    std::string bytes = kt_test::store(Params(0x11223344));
    bytes.replace(bytes.find(kt_test::littleEndian32(0x11223344)), 4, kt_test::littleEndian32(k));
    return new Params(kt_test::load<Params>(bytes));
}

// Kept on purpose: loading gives the stored parameters back but does not put them to use.
TEST(KnnLoaded, RunsWithTheParametersOfTheObjectLoadedIntoUntilItIsRetrained)
{
    const OpenKNN stored = trained(line, Params(3, ktPatternDistanceMetricNorm(1.0), ktClassifierCosts(5.0)));
    const std::string bytes = kt_test::store(stored);
    kt_ClassifierKNN fresh;
    kt_test::loadInto(fresh, bytes);
    EXPECT_TRUE(fresh == stored);
    EXPECT_TRUE(answer(fresh, {0}) == answer(trained(line, Params()), {0})) << "k = 1, unit costs";

    OpenKNN used = trained({{{1, 2}, 3}}, Params(4));
    kt_test::loadInto(used, bytes);
    EXPECT_TRUE(answer(used, {0}) == answer(trained(line, Params(4)), {0})) << "k = 4 as before";

    fresh.retrain(*fresh.trainParams());
    used.retrain(*used.trainParams());
    EXPECT_TRUE(answer(fresh, {0}) == answer(stored, {0}));
    EXPECT_TRUE(answer(used, {0}) == answer(stored, {0}));
}

// The nearest row is another one for each of the orders 1, 2 and 4. With so many rows the search goes by the compact copy.
TEST(KnnLoaded, MeasuresAsEuclidDidUntilItIsRetrained)
{
    std::vector<kt_test::Labelled> rows = {{{1.2, 0.0, 0.0}, 1}, {{0.8, 0.8, 0.0}, 2}, {{0.7, 0.7, 0.7}, 4}};
    for (int i = 0; i < 20; ++i) {
        rows.push_back({{9.0, 9.0, static_cast<double>(i)}, 9});
    }
    for (const auto& [order, label] : {std::pair(1.0, 1L), std::pair(2.0, 2L), std::pair(4.0, 4L)}) {
        SCOPED_TRACE(order);
        const OpenKNN stored = trained(rows, Params(1, ktPatternDistanceMetricNorm(order)));
        kt_ClassifierKNN loaded;
        kt_test::loadInto(loaded, kt_test::store(stored));
        EXPECT_EQ(labelsOf(answer(loaded, {0.0, 0.0, 0.0})), std::vector<long>{2});
        loaded.retrain(*loaded.trainParams());
        EXPECT_EQ(labelsOf(answer(loaded, {0.0, 0.0, 0.0})), std::vector<long>{label});
    }
}

TEST(KnnLoaded, WithoutPatternsIsUntrained)
{
    OpenKNN classifier = trained(line, Params(3));
    kt_test::loadInto(classifier, crafted(ktPtrHandle<Params>(new Params(7)), ktPtrHandle<Data>()));
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.storedParams()).k(), 7);
}

TEST(KnnLoaded, ObjectsOfAnotherClassBecomeNull)
{
    const ktPtrHandle<ktFeaturePattern> foreign = new ktFeaturePattern({1.0}, {});
    OpenKNN classifier = trained(line, Params(3));
    kt_test::loadInto(classifier, crafted(foreign, newData({{{1}, 6}})));
    EXPECT_TRUE(classifier.storedParams().isNull());
    EXPECT_TRUE(classifier.isTrained());
    expectThrows<ktClassifierDefs::BadMethod>(notAutomatic, [&] { classifier.trainParams(); });
    kt_test::loadInto(classifier, crafted(ktPtrHandle<Params>(new Params(7)), foreign));
    EXPECT_FALSE(classifier.isTrained());
}

TEST(KnnLoaded, PatternsThatAreMissingEndARun)
{
    const PatternHandle one = pattern({1});
    const ktPtrHandle<Data> data = new Data;
    for (long i = 0; i < 20; ++i) {
        data->addData(one, i);
    }
    std::string bytes = crafted(ktPtrHandle<Params>(new Params(1)), data);
    // All patterns but the first are references to it. A null is a single byte.
    const std::string reference = kt_test::fromHex("01 03 00 00 00");
    std::string references;
    for (int i = 1; i < 20; ++i) {
        references += reference;
    }
    const std::size_t place = bytes.find(references);
    ASSERT_NE(place, std::string::npos) << kt_test::toHex(bytes);
    bytes.replace(place, references.size(), std::string(19, '\0'));
    kt_ClassifierKNN classifier;
    kt_test::loadInto(classifier, bytes);
    EXPECT_TRUE(classifier.isTrained());
    expectRunThrows<ktBadPointer>(classifier, *one, "");
}

TEST(KnnLoaded, KBelowOneFindsNoNeighbour)
{
    for (const unsigned long k : {0UL, 0xFFFFFFFFUL, 0x80000000UL}) {
        SCOPED_TRACE(k);
        kt_ClassifierKNN classifier;
        kt_test::loadInto(classifier, crafted(paramsWithK(k), newData(line)));
        EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2}) << "k = 1 until retrained";
        classifier.retrain(*classifier.trainParams());
        expectRunThrows<ktClassifierDefs::BadParams>(classifier, *pattern({0}),
                                                     "At least one of the category frequencies must be > 0.");
    }
}

TEST(KnnLoaded, OnePatternManyTimesIsRetrainedInLittleMemory)
{
    kt_test::needCounts();
    const ktPtrHandle_const<ktFeaturePattern> wide = new ktFeaturePattern(std::vector<double>(2000, 1.0), {});
    const ktPtrHandle<Data> data = new Data;
    for (long i = 0; i < 2000; ++i) {
        data->addData(wide, i % 3);
    }
    const std::string bytes = crafted(ktPtrHandle<Params>(new Params(3)), data);
    kt_ClassifierKNN classifier;
    kt_test::loadInto(classifier, bytes);
    const kt_test::MemoryWatch watch;
    classifier.retrain(*classifier.trainParams());
    EXPECT_LT(watch.peakBytes(), bytes.size());
    EXPECT_EQ(answer(classifier, std::vector<double>(2000, 1.0)).categoryResults().size(), 3u);
}

// A compact copy takes some 6 KiB, however few the patterns are.
TEST(KnnLoaded, FewPatternsHaveNoCopyUntilTheyAreMore)
{
    kt_test::needCounts();
    Data data;
    for (long i = 0; i < 12; ++i) {
        data.addData(new ktFeaturePattern({static_cast<double>(i)}, {}), i);
    }
    kt_ClassifierKNN stored;
    stored.train(data, Params(1));
    const std::string bytes = kt_test::store(stored);
    kt_ClassifierKNN classifier;
    const kt_test::MemoryWatch watch;
    kt_test::loadInto(classifier, bytes);
    const long loaded = watch.liveBytes();
    for (long i = 12; i < 20; ++i) {
        classifier.trainIncremental(ktFeaturePattern({static_cast<double>(i)}, {}), i);
    }
    // More than eight patterns take by themselves.
    EXPECT_GT(watch.liveBytes() - loaded, 500 + 250 * static_cast<long>(sizeof(void*))) << loaded;
    for (long i = 0; i < 20; ++i) {
        EXPECT_EQ(answer(classifier, {static_cast<double>(i) + 0.25}).categoryResults().front().categoryLabel(), i);
    }
}

// Told from the allocations that a copy of the patterns takes.
TEST(KnnRetrained, AfterAPatternOfItsOwnWasChangedIsAsFastAsBefore)
{
    kt_test::needCounts();
    const ktPtrHandle<ktFeaturePattern> kept = new ktFeaturePattern(std::vector<double>(500, 1.0), {});
    Data data;
    data.addData(kept, 1);
    data.addData(new ktFeaturePattern(std::vector<double>(500, 2.0), {}), 2);
    kt_ClassifierKNN classifier;
    classifier.train(data, Params(1));
    const auto retrained = [&] {
        const kt_test::MemoryWatch watch;
        classifier.retrain(Params(1));
        return watch.allocations();
    };
    const long unchanged = retrained();
    *kept = ktFeaturePattern(std::vector<double>(500, 3.0), {});
    EXPECT_GT(retrained(), unchanged);
    EXPECT_EQ(retrained(), unchanged);
    EXPECT_EQ(labelsOf(answer(classifier, std::vector<double>(500, 2.75))), std::vector<long>{1});
}

TEST(KnnLoaded, HugeKTakesAllPatternsAndNoMoreMemoryThanTheyNeed)
{
    kt_ClassifierKNN classifier;
    kt_test::loadInto(classifier, crafted(paramsWithK(0x7FFFFFFFUL), newData(line)));
    classifier.retrain(*classifier.trainParams());
    const kt_test::MemoryWatch watch;
    EXPECT_TRUE(answer(classifier, {0}) == answer(trained(line, Params(5)), {0}));
    EXPECT_LT(watch.peakBytes(), 100000u);
}

/// Loads them and expects the memory that any input is allowed.
std::vector<ktPtrHandle<kt_ClassifierKNN>> loadWithinBound(const std::string& bytes)
{
    std::vector<ktPtrHandle<kt_ClassifierKNN>> loaded;
    const kt_test::MemoryWatch watch;
    kt_test::loadInto(loaded, bytes);
    EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
    return loaded;
}

TEST(KnnLoaded, RetrainingHookTakesParametersWithoutPatterns)
{
    OpenKNN classifier;
    kt_test::loadInto(static_cast<kt_ClassifierKNN&>(classifier),
                      crafted(ktPtrHandle<Params>(new Params(1)), ktPtrHandle<Data>()));
    ASSERT_FALSE(classifier.isTrained());
    classifier.retrain_(Params(3));
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_EQ(dynamic_cast<const Params&>(*classifier.storedParams()).k(), 1) << "the caller stores the new ones";
}

TEST(KnnLoaded, PatternsReferredToManyTimesTakeTheMemoryOfOne)
{
    const PatternHandle wide = pattern(std::vector<double>(1000, 0.5));
    Data often;
    for (int i = 0; i < 2000; ++i) {
        often.addData(wide, i % 2);
    }
    const ktPtrHandle<kt_ClassifierKNN> trained(new kt_ClassifierKNN);
    trained->train(often, Params(3));
    const auto loaded = loadWithinBound(kt_test::store(std::vector<ktPtrHandle<kt_ClassifierKNN>>{trained}));
    ktClassifierResult expected;
    trained->run(*wide, expected);
    for (const bool retrained : {false, true}) {
        if (retrained) {
            loaded[0]->retrain(Params(3));
        }
        ktClassifierResult result;
        loaded[0]->run(*wide, result);
        EXPECT_EQ(labelsOf(result).front(), labelsOf(expected).front());
    }
    EXPECT_TRUE(*loaded[0] == *trained);
}

TEST(KnnLoaded, StoreOfManyClassifiersTakesTheMemoryOfOne)
{
    const ktPtrHandle<kt_ClassifierKNN> trained(new kt_ClassifierKNN);
    trained->train(trainingData({{std::vector<double>(1000, 0.5), 1}, {std::vector<double>(1000, 1.5), 2}}), Params());
    const auto loaded = loadWithinBound(kt_test::store(std::vector<ktPtrHandle<kt_Classifier>>{
        trained, trained->clone(), trained->clone(), trained->clone(), trained->clone(), trained->clone()}));
    for (const auto& each : loaded) {
        ktClassifierResult result;
        each->run(*pattern(std::vector<double>(1000, 1.25)), result);
        EXPECT_EQ(labelsOf(result).front(), 2);
    }
}

TEST(KnnLoaded, DamagedPatternsAreRefusedWhereARunMeetsThem)
{
    const PatternHandle zero = pattern({0});
    kt_ClassifierKNN classifier;
    const auto load = [&classifier](const ktPtrHandle<Data>& data) {
        kt_test::loadInto(classifier, crafted(ktPtrHandle<Params>(new Params(1)), data));
    };
    load(damagedData({zero, zero}, {3}));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{3}) << "the pattern without a label does not vote";
    load(damagedData({pattern({5}), zero}, {3}));
    expectRunThrows<ktClassifierDefs::BadIndex>(classifier, *zero,
                                                "Category label index must be >=0 and < number of patterns.");
    load(damagedData({zero, nullptr}, {3, 4}));
    expectRunThrows<ktBadPointer>(classifier, *zero, "");
    load(damagedData({nullptr, zero}, {3, 4}));
    expectRunThrows<ktBadPointer>(classifier, *zero, "");
    load(damagedData({zero, pattern({0, 0})}, {3, 4}));
    expectRunThrows<ktClassifierDefs::BadFeatures>(
        classifier, *zero,
        "Pattern distance function requires the number of measurementsin the two patterns to be equal");
    load(damagedData({zero}, {-7}));
    expectRunThrows<ktClassifierDefs::BadLabel>(classifier, *zero, "Category labels must be >= 0");
    load(damagedData({}, {3}));
    expectRunThrows<ktClassifierDefs::InsufficientTrainData>(classifier, *zero, noData);
}

TEST(KnnLoaded, MetricOfAnotherClassIsMissedByTheRun)
{
    ktPtrHandle<Params> params = new Params(1, kt_test::withoutClone(), ktClassifierCosts());
    kt_ClassifierKNN classifier;
    kt_test::loadInto(classifier, crafted(params, newData(line)));
    EXPECT_EQ(labelsOf(answer(classifier, {0})), std::vector<long>{2});
    classifier.retrain(*classifier.trainParams());
    expectRunThrows<ktBadPointer>(classifier, *pattern({0}), "");
}

}  // namespace
