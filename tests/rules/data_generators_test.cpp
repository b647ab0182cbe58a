#include "generators.h"

namespace {

using namespace kt_test;

using Labels = std::vector<long>;
using Measurements = std::vector<std::vector<double>>;

// The numbers below come from a second implementation of the two generators.
TEST(ClassDataGenerator, GivesTheSameBitsEverywhere)
{
    kt_ClassDataGenerator generator(twoMeasurements, 4);
    EXPECT_EQ(measurementsOf(generator.generateData()), (Measurements{{0x1.231f4b8621467p+3, -0x1.c46c71e58b6c5p+1},
                                                                      {0x1.268118f7a3c96p+3, -0x1.3ab9ad6cfac07p+0},
                                                                      {0x1.25be975ae4c34p+3, -0x1.3123f8004ac0ep+1},
                                                                      {0x1.83c834606bbe2p+3, -0x1.5f8f104c2a2f5p+1}}));
}

TEST(ClassDataGenerator, DrawsPatternByPatternWithSeedOne)
{
    ktRandomGaussian random(1);
    Measurements expected;
    for (int i = 0; i < 50; ++i) {
        const double first = random.next(10.0, 2.0);
        expected.push_back({first, random.next(-3.0, 0.5)});
    }
    kt_ClassDataGenerator generator(twoMeasurements, 50);
    EXPECT_EQ(measurementsOf(generator.generateData()), expected);
}

TEST(ClassDataGenerator, PatternsAreValidAndLabelledZeroInAStoreWithoutAName)
{
    ktClassifierDataProviderMemory data = kt_ClassDataGenerator(twoMeasurements, 5).generateData();
    EXPECT_EQ(data.numPatterns(), 5);
    EXPECT_EQ(data.numMeasurements(), 2);
    EXPECT_EQ(labelsOf(data), Labels(5, 0));
    for (long i = 0; i < 5; ++i) {
        EXPECT_EQ(data.featurePattern(i)->numInvalid(), 0);
    }
    EXPECT_EQ(data.name(), "");
    EXPECT_EQ(data.description(), "");
}

TEST(ClassDataGenerator, TwoCallsAndTwoGeneratorsGiveTheSame)
{
    kt_ClassDataGenerator generator(twoMeasurements, 20);
    ktClassifierDataProviderMemory first = generator.generateData();
    ktClassifierDataProviderMemory again = generator.generateData();
    EXPECT_TRUE(again == first);
    EXPECT_EQ(again.featurePattern(3), first.featurePattern(3)) << "nothing is drawn again";
    EXPECT_TRUE(kt_ClassDataGenerator(twoMeasurements, 20).generateData() == first);
}

TEST(ClassDataGenerator, MorePatternsBeginLikeFewer)
{
    const Measurements few = measurementsOf(kt_ClassDataGenerator(twoMeasurements, 3).generateData());
    Measurements many = measurementsOf(kt_ClassDataGenerator(twoMeasurements, 30).generateData());
    many.resize(3);
    EXPECT_EQ(many, few);
}

TEST(ClassDataGenerator, WithoutPatternsGivesAnEmptyStore)
{
    expectEmpty(kt_ClassDataGenerator().generateData());
    for (const long patterns : {0L, -1L, LONG_MIN}) {
        kt_ClassDataGenerator generator(twoMeasurements, patterns);
        expectEmpty(generator.generateData());
        expectEmpty(generator.generateData());
    }
}

TEST(ClassDataGenerator, EmptyDistributionGivesPatternsWithoutMeasurementsAndTheSameNumberEachTime)
{
    kt_ClassDataGenerator generator({}, 3);
    for (int call = 0; call < 2; ++call) {
        const ktClassifierDataProviderMemory data = generator.generateData();
        EXPECT_EQ(measurementsOf(data), Measurements(3)) << "call " << call;
        EXPECT_EQ(labelsOf(data), Labels(3, 0)) << "call " << call;
        EXPECT_EQ(data.numMeasurements(), 0);
    }
}

TEST(ClassDataGenerator, AnyMeanAndSpreadIsTaken)
{
    kt_ClassDataGenerator generator({{5.0, 0.0}, {NaN, 1.0}, {infinity, 1.0}, {0.0, 1.0}, {0.0, -1.0}}, 10);
    ktRandomGaussian random(1);
    for (const std::vector<double>& row : measurementsOf(generator.generateData())) {
        EXPECT_EQ(row[0], 5.0);
        EXPECT_TRUE(std::isnan(row[1]));
        EXPECT_EQ(row[2], infinity);
        for (int j = 0; j < 3; ++j) {
            random.next(0.0, 1.0);
        }
        EXPECT_EQ(row[3], random.next(0.0, 1.0));
        EXPECT_EQ(row[4], -random.next(0.0, 1.0)) << "a negative spread mirrors";
    }
}

TEST(ClassDataGenerator, ReturnsACopyOfItsData)
{
    kt_ClassDataGenerator generator(twoMeasurements, 3);
    ktClassifierDataProviderMemory data = generator.generateData();
    const ktClassifierDataProviderMemory before = data;
    data.setName("changed");
    data.addData(data.featurePattern(0), 5);
    EXPECT_TRUE(generator.generateData() == before);
}

TEST(ClassDataGenerator, CopyOfAGeneratedOneIsGenerated)
{
    kt_ClassDataGenerator original(twoMeasurements, 3);
    kt_ClassDataGenerator copyBefore(original);
    ktClassifierDataProviderMemory data = original.generateData();
    kt_ClassDataGenerator copy(original);
    kt_ClassDataGenerator assigned({{0.0, 1.0}}, 1);
    assigned.generateData();
    EXPECT_EQ(&(assigned = original), &assigned);
    EXPECT_EQ(copy.generateData().featurePattern(0), data.featurePattern(0)) << "the same pattern";
    EXPECT_EQ(assigned.generateData().featurePattern(0), data.featurePattern(0));
    EXPECT_NE(copyBefore.generateData().featurePattern(0), data.featurePattern(0)) << "drawn by itself";
    EXPECT_TRUE(copyBefore.generateData() == data);
    assigned = kt_ClassDataGenerator({{1.0, 0.0}}, 2);
    EXPECT_EQ(measurementsOf(assigned.generateData()), (Measurements{{1.0}, {1.0}})) << "not generated any more";
    const kt_ClassDataGenerator& same = copy;
    copy = same;
    EXPECT_TRUE(copy.generateData() == data);
}

TEST(TotalDataGenerator, WithoutClassesGivesAnEmptyStore)
{
    expectEmpty(kt_TotalDataGenerator().generateData());
    kt_TotalDataGenerator generator{std::vector<kt_ClassDataGenerator>{}};
    expectEmpty(generator.generateData());
    expectEmpty(generator.generateData());
}

/// One class whose patterns can be told apart, as numbers of its patterns in the order of the combined data.
std::vector<std::size_t> orderOf(std::size_t measurements)
{
    const long patterns = static_cast<long>(measurements) + 3;
    kt_TotalDataGenerator total({normalClass(measurements, patterns)});
    const Measurements drawn = measurementsOf(normalClass(measurements, patterns).generateData());
    std::vector<std::size_t> order;
    for (const std::vector<double>& row : measurementsOf(total.generateData())) {
        order.push_back(static_cast<std::size_t>(std::find(drawn.begin(), drawn.end(), row) - drawn.begin()));
    }
    return order;
}

TEST(TotalDataGenerator, OrderIsTheSameEverywhere)
{
    using Order = std::vector<std::size_t>;
    const Order orders[] = {{0},
                            {1, 0},
                            {1, 2, 0},
                            {3, 2, 0, 1},
                            {3, 4, 2, 1, 0},
                            {3, 0, 4, 1, 2, 5},
                            {2, 0, 4, 5, 3, 6, 1},
                            {5, 0, 4, 6, 3, 7, 1, 2}};
    for (const Order& order : orders) {
        EXPECT_EQ(orderOf(order.size()), order);
    }
}

TEST(TotalDataGenerator, GivesTheSameBitsEverywhere)
{
    kt_TotalDataGenerator generator({kt_ClassDataGenerator(twoMeasurements, 4), constantClass(7.0, 2, 4)});
    ktClassifierDataProviderMemory data = generator.generateData();
    EXPECT_EQ(measurementsOf(data), (Measurements{{0x1.268118f7a3c96p+3, -0x1.3ab9ad6cfac07p+0},
                                                  {0x1.231f4b8621467p+3, -0x1.c46c71e58b6c5p+1}}));
    EXPECT_EQ(data.name(), "");
    EXPECT_EQ(data.description(), "");
}

TEST(TotalDataGenerator, KeptOnPurposePatternsAreCountedByTheNumberOfMeasurements)
{
    kt_TotalDataGenerator generator({constantClass(0.0, 2, 10), constantClass(1.0, 2, 10), constantClass(2.0, 2, 10)});
    const ktClassifierDataProviderMemory data = generator.generateData();
    EXPECT_EQ(data.numPatterns(), 2) << "of 30";
    // Those of the first class come first, and they are as many as there are places.
    EXPECT_EQ(labelsOf(data), (Labels{0, 0}));
    EXPECT_EQ(measurementsOf(data), (Measurements{{0.0, 0.0}, {0.0, 0.0}}));
}

TEST(TotalDataGenerator, LabelIsThePositionOfTheClass)
{
    kt_TotalDataGenerator generator({kt_ClassDataGenerator(), constantClass(1.0, 2, 0), constantClass(2.0, 2, 10)});
    const ktClassifierDataProviderMemory data = generator.generateData();
    EXPECT_EQ(labelsOf(data), (Labels{2, 2}));
    EXPECT_EQ(measurementsOf(data), (Measurements{{2.0, 2.0}, {2.0, 2.0}}));
}

TEST(TotalDataGenerator, ClassWithoutMeasurementsGivesNoPattern)
{
    kt_TotalDataGenerator only({kt_ClassDataGenerator({}, 5)});
    expectEmpty(only.generateData());
    kt_TotalDataGenerator first({kt_ClassDataGenerator({}, 5), constantClass(1.0, 3, 4)});
    EXPECT_EQ(labelsOf(first.generateData()), (Labels{1, 1, 1}));
    kt_TotalDataGenerator last({constantClass(1.0, 3, 4), kt_ClassDataGenerator({}, 5)});
    EXPECT_EQ(labelsOf(last.generateData()), (Labels{0, 0, 0}));
}

TEST(TotalDataGenerator, AsManyPatternsAsMeasurementsAreEnough)
{
    kt_TotalDataGenerator generator({constantClass(0.0, 3, 3), constantClass(1.0, 3, 3)});
    EXPECT_EQ(labelsOf(generator.generateData()), (Labels{0, 0, 0}));
}

/// Also another time: a failure leaves nothing behind.
template <class Error>
void expectRefusedTwice(kt_TotalDataGenerator generator, const char* message)
{
    for (int call = 0; call < 2; ++call) {
        kt_test::expectThrows<Error>(message, [&] { generator.generateData(); });
    }
}

TEST(TotalDataGenerator, ClassWithFewerPatternsThanMeasurementsIsRefused)
{
    const char* message = "Feature pattern index must be >=0 and < number of patterns.";
    expectRefusedTwice<ktClassifierDefs::BadIndex>(kt_TotalDataGenerator({normalClass(3, 2)}), message);
    expectRefusedTwice<ktClassifierDefs::BadIndex>(kt_TotalDataGenerator({normalClass(3, 10), normalClass(3, 1)}),
                                                   message);
}

TEST(TotalDataGenerator, ClassWithoutPatternsIsNoHindrance)
{
    kt_TotalDataGenerator generator({normalClass(5, 0), normalClass(3, 4)});
    EXPECT_EQ(labelsOf(generator.generateData()), (Labels{1, 1, 1}));
}

TEST(TotalDataGenerator, ClassesOfDifferentWidthsAreRefused)
{
    const char* message = "Feature pattern must have the same number of measurements as the rest of the data.";
    expectRefusedTwice<ktClassifierDefs::BadFeatures>(kt_TotalDataGenerator({normalClass(2, 10), normalClass(3, 10)}),
                                                      message);
    expectRefusedTwice<ktClassifierDefs::BadFeatures>(
        kt_TotalDataGenerator({normalClass(3, 10), kt_ClassDataGenerator(), normalClass(2, 10)}), message);
}

TEST(TotalDataGenerator, TwoCallsAndTwoGeneratorsGiveTheSame)
{
    const std::vector<kt_ClassDataGenerator> classes = {normalClass(4, 10), constantClass(1.0, 4, 10)};
    kt_TotalDataGenerator generator(classes);
    ktClassifierDataProviderMemory first = generator.generateData();
    ktClassifierDataProviderMemory again = generator.generateData();
    EXPECT_TRUE(again == first);
    EXPECT_EQ(again.featurePattern(1), first.featurePattern(1)) << "nothing is drawn again";
    EXPECT_TRUE(kt_TotalDataGenerator(classes).generateData() == first);
}

TEST(TotalDataGenerator, TakesTheDataOfGeneratorsThatHaveSome)
{
    std::vector<kt_ClassDataGenerator> classes = {normalClass(1, 5)};
    ktClassifierDataProviderMemory classData = classes.front().generateData();
    kt_TotalDataGenerator generator(classes);
    EXPECT_EQ(generator.generateData().featurePattern(0), classData.featurePattern(0));
}

TEST(TotalDataGenerator, CallersGeneratorsStayAsTheyAre)
{
    std::vector<kt_ClassDataGenerator> classes = {normalClass(1, 5)};
    kt_TotalDataGenerator generator(classes);
    ktClassifierDataProviderMemory combined = generator.generateData();
    EXPECT_NE(classes.front().generateData().featurePattern(0), combined.featurePattern(0)) << "drawn by itself";
}

TEST(TotalDataGenerator, CopyOfAGeneratedOneIsGenerated)
{
    kt_TotalDataGenerator original({normalClass(3, 5)});
    kt_TotalDataGenerator copyBefore(original);
    ktClassifierDataProviderMemory data = original.generateData();
    kt_TotalDataGenerator copy(original);
    kt_TotalDataGenerator assigned;
    EXPECT_EQ(&(assigned = original), &assigned);
    EXPECT_EQ(copy.generateData().featurePattern(0), data.featurePattern(0)) << "the same pattern";
    EXPECT_EQ(assigned.generateData().featurePattern(0), data.featurePattern(0));
    EXPECT_NE(copyBefore.generateData().featurePattern(0), data.featurePattern(0)) << "drawn by itself";
    EXPECT_TRUE(copyBefore.generateData() == data);
    assigned = kt_TotalDataGenerator();
    expectEmpty(assigned.generateData());
    const kt_TotalDataGenerator& same = copy;
    copy = same;
    EXPECT_TRUE(copy.generateData() == data);
}

TEST(DataGenerators, AreNotPersistent)
{
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, kt_ClassDataGenerator>));
    EXPECT_FALSE((std::is_base_of_v<ktPersistent, kt_TotalDataGenerator>));
}

}  // namespace
