#include "toys.h"

#include "support/damage.h"
#include "support/golden.h"

namespace {

using namespace toys;

/// One of each kind of value that the foundation archives.
struct Everything {
    unsigned char byte = 0;
    long number = 0;
    unsigned long bits = 0;
    double value = 0.0;
    std::string text;
    std::vector<bool> flags;
    std::vector<double> doubles;
    std::vector<std::vector<std::string>> texts;
    std::vector<ktRange> ranges;
    ktNMMatrix matrix;
};

ktArchive& operator||(ktArchive& archive, Everything& all)
{
    const ktArchive::Pass pass(archive);
    return archive || all.byte || all.number || all.bits || all.value || all.text || all.flags || all.doubles ||
           all.texts || all.ranges || all.matrix;
}

Everything everything()
{
    Everything all;
    all.byte = 200;
    all.number = -2;
    all.bits = 0xFFFFFFFEUL;
    all.value = 0.1;
    all.text = "grey level";
    all.flags = {true, false, true, true, false, false, false, false, true};
    all.doubles = {1.0, -0.5};
    all.texts = {{"a", ""}, {}};
    all.ranges = {ktRange(0.0, 1.0), ktRange::FullRange()};
    all.matrix = ktNMMatrix(1, 2);
    all.matrix(0, 1) = 3.0;
    return all;
}

/// A tree in which two nodes share a third, and nulls stand between.
std::vector<ktPtrHandle<Node>> graph()
{
    const ktPtrHandle<Node> shared(new toys::HeavyNode(0.5));
    const ktPtrHandle<Node> left(new Node(1));
    const ktPtrHandle<Node> right(new Node(2));
    left->children = {shared, nullptr};
    right->children = {shared, toys::chain(2)};
    return {left, nullptr, right, left};
}

void loadEverything(ktArchive& archive)
{
    Everything all;
    archive || all;
    const std::string bytes = kt_test::store(all);
    EXPECT_EQ(kt_test::toHex(kt_test::store(kt_test::load<Everything>(bytes))), kt_test::toHex(bytes));
}

void loadGraph(ktArchive& archive)
{
    std::vector<ktPtrHandle<Node>> nodes;
    archive || nodes;
    const std::string bytes = kt_test::store(nodes);
    EXPECT_EQ(kt_test::toHex(kt_test::store(kt_test::load<std::vector<ktPtrHandle<Node>>>(bytes))),
              kt_test::toHex(bytes));
}

TEST(GoldenArchive, ValuesOfTheFoundation)
{
    const std::string bytes = kt_test::store(everything());
    kt_test::expectGolden("foundation_values", bytes);
    const auto loaded = kt_test::load<Everything>(kt_test::goldenBytes("foundation_values"));
    EXPECT_EQ(kt_test::toHex(kt_test::store(loaded)), kt_test::toHex(bytes));
    EXPECT_EQ(loaded.text, "grey level");
    EXPECT_EQ(loaded.matrix(0, 1), 3.0);
}

TEST(GoldenArchive, PointerRecordsOfTheFoundation)
{
    const std::string bytes = kt_test::store(graph());
    kt_test::expectGolden("foundation_records", bytes);
    const auto loaded = kt_test::load<std::vector<ktPtrHandle<Node>>>(kt_test::goldenBytes("foundation_records"));
    EXPECT_EQ(kt_test::toHex(kt_test::store(loaded)), kt_test::toHex(bytes));
    EXPECT_EQ(loaded.at(0), loaded.at(3));
    EXPECT_EQ(loaded[0]->children.at(0), loaded[2]->children.at(0));
}

TEST(StreamFailure, ValuesSurviveItAtEveryByte)
{
    const Everything stored = everything();
    Everything loaded;
    kt_test::failEachByte([&stored](ktArchive& archive) { archive || const_cast<Everything&>(stored); },
                          [&loaded](ktArchive& archive) { archive || loaded; });
    EXPECT_EQ(kt_test::toHex(kt_test::store(loaded)), kt_test::toHex(kt_test::store(everything())));
}

TEST(StreamFailure, PointerRecordsSurviveItAtEveryByte)
{
    std::vector<ktPtrHandle<Node>> stored = graph();
    std::vector<ktPtrHandle<Node>> loaded = {toys::chain(3), toys::chain(2)};
    kt_test::failEachByte([&stored](ktArchive& archive) { archive || stored; },
                          [&loaded](ktArchive& archive) { archive || loaded; });
    EXPECT_EQ(kt_test::toHex(kt_test::store(loaded)), kt_test::toHex(kt_test::store(graph())));
}

TEST(Damage, ValuesLoadOrAreRefused)
{
    const kt_test::DamageReport report =
        kt_test::loadDamaged(kt_test::goldenBytes("foundation_values"), &loadEverything);
    EXPECT_GT(report.loaded, 0);
    EXPECT_GT(report.refused, 0);
}

TEST(Damage, PointerRecordsLoadOrAreRefused)
{
    const kt_test::DamageReport report = kt_test::loadDamaged(kt_test::goldenBytes("foundation_records"), &loadGraph);
    EXPECT_GT(report.loaded, 0);
    EXPECT_GT(report.refused, 0);
    EXPECT_EQ(toys::Alive<Node>::count, 0);
}

TEST(Damage, ObjectWithoutACountLoadsOrIsRefused)
{
    std::ostringstream out;
    Loose loose(7);
    loose.node = toys::chain(2);
    ktArchive storing(static_cast<std::ostream&>(out));
    ktPersistent* result = nullptr;
    ktPersistent::serializePointer(storing, &loose, result);
    const kt_test::DamageReport report = kt_test::loadDamaged(out.str(), [](ktArchive& archive) {
        // A counted object, for which damage can exchange this one, dies with the pass.
        const ktArchive::Pass pass(archive);
        ktPersistent* loaded = nullptr;
        ktPersistent::serializePointer(archive, nullptr, loaded);
        if (dynamic_cast<ktRepBase*>(loaded) == nullptr) {
            delete loaded;
        }
    });
    EXPECT_GT(report.refused, 0);
}

TEST(Damage, ManyOfTheSmallestRecordsStayWithinTheMemoryBound)
{
    const std::vector<ktPtrHandle<Speck>> many = [] {
        std::vector<ktPtrHandle<Speck>> specks;
        for (int i = 0; i < 20000; ++i) {
            specks.push_back(new Speck);
        }
        return specks;
    }();
    const std::string bytes = kt_test::store(many);
    for (const bool blind : {false, true}) {
        const kt_test::MemoryWatch watch;
        const auto loaded = blind ? kt_test::loadBlind<std::vector<ktPtrHandle<Speck>>>(bytes)
                                  : kt_test::load<std::vector<ktPtrHandle<Speck>>>(bytes);
        EXPECT_EQ(loaded.size(), many.size());
        EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024);
    }
}

}  // namespace
