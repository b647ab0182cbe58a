#include "parts.h"

void bindTrees(nb::module_&) {}
