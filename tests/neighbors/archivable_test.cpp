// The classes of nearest_neighbor.h, run through what must hold for every archivable class.

#include "archivable_cases.h"

namespace {

using namespace cases;

using Values = ::testing::Types<Norm, TrainParamsKNN, ClassifierKNN>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Neighbors, Archivable, Values, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Neighbors, ArchivableByPointer, Values, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Neighbors, Cloneable, Values, kt_test::CaseNames);
