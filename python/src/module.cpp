#include "parts.h"

#include <kt/version.h>

#include <cstdint>
#include <string>

namespace {

/// A name that no other copy of this extension in the process has, so that none takes the types of another for its own.
const char* nameOfCopy()
{
    static const std::string name = "clastool " + std::to_string(reinterpret_cast<std::uintptr_t>(&name));
    return name.c_str();
}

}  // namespace

#undef NB_DOMAIN_STR
#define NB_DOMAIN_STR nameOfCopy()
// What the macro defines under the name by which Python asks for the module; see the end of this file.
#define PyInit__clastool makeModule

NB_MODULE(_clastool, module)
{
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

#undef PyInit__clastool

extern "C" NB_EXPORT PyObject* PyInit__clastool();
/// Asked before anything is made: the types of this module are one for the process, so a second interpreter would take them from the first.
extern "C" PyObject* PyInit__clastool()
{
    if (PyInterpreterState_GetID(PyInterpreterState_Get()) != 0) {
        PyErr_SetString(PyExc_ImportError, "clastool runs in the main interpreter only");
        return nullptr;
    }
    return makeModule();
}
