// The classes of foundation.h and training_data.h, run through what must hold for every archivable class.

#include "archivable_cases.h"

namespace {

using namespace cases;

using Values = ::testing::Types<BadParams, BadIndex, BadLabel, BadMethod, NotTrained, NotImplemented, BadFeatures,
                                InsufficientTrainData, FeaturePattern, Costs, Frequencies, CategoryResult, Result,
                                DataProviderMemory>;
using Registered = ::testing::Types<BadParams, BadIndex, BadLabel, BadMethod, NotTrained, NotImplemented, BadFeatures,
                                    InsufficientTrainData, FeaturePattern, DataProviderMemory>;

TEST(GoldenArchives, AreThereForEveryRegisteredClass)
{
    // Whichever program runs the class through the tests above stored its archive.
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        EXPECT_NO_THROW(kt_test::goldenBytes(kt_test::plainName(entry->name()))) << entry->name();
    }
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Clastool, Archivable, Values, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Clastool, ArchivableByPointer, Registered, kt_test::CaseNames);
