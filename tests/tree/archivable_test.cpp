// The classes of decision_tree.h, run through what must hold for every archivable class.

#include "archivable_cases.h"

namespace {

using namespace cases;

using Classes = ::testing::Types<Comparison, Range, Validity, Leaf, Node, Classifier>;

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Tree, Archivable, Classes, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Tree, ArchivableByPointer, Classes, kt_test::CaseNames);
INSTANTIATE_TYPED_TEST_SUITE_P(Tree, Cloneable, Classes, kt_test::CaseNames);
