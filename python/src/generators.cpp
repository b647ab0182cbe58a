#include "parts.h"

void bindGenerators(nb::module_&) {}
