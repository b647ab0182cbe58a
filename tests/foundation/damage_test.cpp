#include "golden_values.h"

#include "support/damage.h"
#include "support/golden.h"

namespace {

using namespace toys;

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
    const auto loaded = kt_test::load<Nodes>(kt_test::goldenBytes("foundation_records"));
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
    Nodes stored = graph();
    Nodes loaded = {toys::chain(3), toys::chain(2)};
    kt_test::failEachByte([&stored](ktArchive& archive) { archive || stored; },
                          [&loaded](ktArchive& archive) { archive || loaded; });
    EXPECT_EQ(kt_test::toHex(kt_test::store(loaded)), kt_test::toHex(kt_test::store(graph())));
}

TEST(Damage, ValuesLoadOrAreRefused)
{
    const kt_test::DamageReport report =
        kt_test::loadDamaged(kt_test::goldenBytes("foundation_values"), &loadAndStore<Everything>);
    EXPECT_GT(report.loaded, 0);
    EXPECT_GT(report.refused, 0);
}

TEST(Damage, PointerRecordsLoadOrAreRefused)
{
    const kt_test::DamageReport report =
        kt_test::loadDamaged(kt_test::goldenBytes("foundation_records"), &loadAndStore<Nodes>);
    EXPECT_GT(report.loaded, 0);
    EXPECT_GT(report.refused, 0);
    EXPECT_EQ(toys::Alive<Node>::count, 0);
}

TEST(Damage, ObjectWithoutACountLoadsOrIsRefused)
{
    Loose loose(7);
    loose.node = toys::chain(2);
    const kt_test::DamageReport report = kt_test::loadDamaged(kt_test::storePointer(&loose), [](ktArchive& archive) {
        // A counted object, for which damage can exchange this one, dies with the pass.
        const ktArchive::Pass pass(archive);
        ktPersistent* loaded = kt_test::loadPointer(archive);
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
