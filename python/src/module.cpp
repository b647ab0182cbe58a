#include "parts.h"

#include <kt/version.h>

NB_MODULE(_clastool, module)
{
    // The class registry and the types of this module are one for the process.
    if (PyInterpreterState_GetID(PyInterpreterState_Get()) != 0) {
        throw nb::import_error("clastool runs in the main interpreter only");
    }
    // A metric of Python's that leads back to its tool is a circle that Python does not see.
    nb::set_leak_warnings(false);
    module.attr("__version__") = KT_VERSION_STRING;
    bindErrors();
    bindPatterns(module);
    bindCosts(module);
    bindResults(module);
    bindParams(module);
    bindTrees(module);
    bindRules(module);
    bindGenerators(module);
    bindTool(module);
}
