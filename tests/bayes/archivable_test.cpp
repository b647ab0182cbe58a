// The classes of bayes.h, run through what must hold for every archivable class.

#include "archivable_cases.h"

namespace {

using namespace cases;

using Values = ::testing::Types<DistributionTypes>;
using Classes = ::testing::Types<MultivariateNormal, Binomial, CategoryModel, TrainParams, Classifier>;
using Cloned = ::testing::Types<TrainParams, Classifier>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(BayesValues, Archivable, Values, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Bayes, Archivable, Classes, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Bayes, ArchivableByPointer, Classes, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Bayes, Cloneable, Cloned, kt_test::CaseNames);
