#include "parts.h"

#include <kt/exception.h>

#include <exception>
#include <string>

void bindErrors()
{
    nb::register_exception_translator([](const std::exception_ptr& failure, void*) {
        try {
            std::rethrow_exception(failure);
        } catch (const ktException& error) {
            const nb::object make = nb::module_::import_("clastool.errors").attr("_make");
            // A damaged archive may put any bytes into a message.
            const std::string text = error.message();
            const nb::object decoded =
                nb::steal(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
            const nb::object made = make(decoded, error.errorNumber());
            PyErr_SetObject(made.type().ptr(), made.ptr());
        }
    });
}
