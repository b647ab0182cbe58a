#pragma once

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include <kt/archive.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>

namespace nb = nanobind;

// What the classes of values share: comparison, pickling and copies by archives, and their text.

/// The bytes of an archive that holds the value.
template <class T>
nb::bytes stored(T value)
{
    std::ostringstream stream(std::ios::binary);
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        archive || value;
    }
    const std::string bytes = stream.str();
    return nb::bytes(bytes.data(), bytes.size());
}

/// The value that an archive holds.
template <class T>
T loaded(const nb::bytes& bytes)
{
    std::istringstream stream(std::string(bytes.c_str(), bytes.size()), std::ios::binary);
    ktArchive archive(static_cast<std::istream&>(stream));
    T value{};
    archive || value;
    return value;
}

/// The text that `repr` returns.
inline std::string written(nb::handle object)
{
    return nb::cast<std::string>(nb::repr(object));
}
inline std::string written(double number)
{
    return written(nb::float_(number));
}

/// Makes the values of a class unhashable: they can change, so equal values need not stay equal.
inline void isUnhashable(nb::object type)
{
    type.attr("__hash__") = nb::none();
}

/// Values compare by the library's own operator. For other objects Python tries the other operand.
template <class T, class Class>
void compares(Class& type)
{
    type.def(
        "__eq__", [](const T& self, const T& other) { return self == other; }, nb::is_operator(),
        nb::sig("def __eq__(self, other: object, /) -> bool"));
    type.def(
        "__ne__", [](const T& self, const T& other) { return !(self == other); }, nb::is_operator(),
        nb::sig("def __ne__(self, other: object, /) -> bool"));
    isUnhashable(type);
}

/// Makes pickle take the state of values in every protocol. By itself Python does so from protocol 2 on.
template <class Class>
void picklesByState(Class& type)
{
    type.def(
        "__reduce_ex__",
        [](nb::handle self, int protocol) {
            const nb::handle object(reinterpret_cast<PyObject*>(&PyBaseObject_Type));
            return object.attr("__reduce_ex__")(self, std::max(protocol, 2));
        },
        nb::arg("protocol"), nb::sig("def __reduce_ex__(self, protocol: typing.SupportsIndex) -> tuple[object, ...]"));
}

/// Values are pickled as the bytes of an archive. The module `copy` uses the same functions.
template <class T, class Class>
void pickles(Class& type)
{
    picklesByState(type);
    type.def("__getstate__", [](const T& self) { return stored<T>(self); });
    type.def("__setstate__", [](T& self, const nb::bytes& state) { new (&self) T(loaded<T>(state)); });
}
