#include "parts.h"

void bindRules(nb::module_&) {}
