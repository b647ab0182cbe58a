#include "parts.h"

#include <kt/exception.h>

#include <exception>

void bindErrors()
{
    nb::register_exception_translator([](const std::exception_ptr& failure, void*) {
        try {
            std::rethrow_exception(failure);
        } catch (const ktException& error) {
            const nb::object make = nb::module_::import_("clastool.errors").attr("_make");
            const nb::object made = make(error.what(), error.errorNumber());
            PyErr_SetObject(made.type().ptr(), made.ptr());
        }
    });
}
