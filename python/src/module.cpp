#include "parts.h"

#include <kt/version.h>

#include <cstdint>
#include <string>

namespace {

/// A name that is unique in the process. Without it, two copies of this extension would share their types.
const char* nameOfCopy()
{
    static const std::string name = "clastool " + std::to_string(reinterpret_cast<std::uintptr_t>(&name));
    return name.c_str();
}

}  // namespace

#undef NB_DOMAIN_STR
#define NB_DOMAIN_STR nameOfCopy()
// Renames the function that NB_MODULE defines. The end of this file defines the one that Python calls.
#define PyInit__clastool makeModule

NB_MODULE(_clastool, module)
{
    // A Python metric may refer to its own tool. The garbage collector does not see this cycle, so nanobind would report a leak.
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

#undef PyInit__clastool

extern "C" NB_EXPORT PyObject* PyInit__clastool();
/// Refuses a second interpreter before the module exists. The types exist once for the process, so it would share them with the first.
extern "C" PyObject* PyInit__clastool()
{
    if (PyInterpreterState_GetID(PyInterpreterState_Get()) != 0) {
        PyErr_SetString(PyExc_ImportError, "clastool runs in the main interpreter only");
        return nullptr;
    }
    return makeModule();
}
