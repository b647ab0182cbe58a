#pragma once

#include <cstddef>
#include <cstring>

/// The code that a call of a virtual function of the object reaches, to be compared with that of another object: a class of the
/// caller's own that overrides nothing of an algorithm may then be treated as its base. `Base` is the class that declares the
/// function first.
///
/// It is read from the object's table of virtual functions, as the Itanium C++ ABI lays it out, because the language has no
/// word for it. With any other ABI each object's functions look like its own; so do a library's where a program reaches them
/// in its own way, as in a DLL. Both only mean that an override is believed to be there.
template <class Base, class Function>
const void* kt_overriderOf(const Base& object, Function Base::*function)
{
    const void* code = &object;
#if defined(__GXX_ABI_VERSION)
    std::ptrdiff_t place = 0;
    static_assert(sizeof function >= sizeof place);
    std::memcpy(&place, &function, sizeof place);
    const char* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&object), sizeof table);
    // The lowest bit only says that the function is virtual.
    std::memcpy(&code, table + (place & ~std::ptrdiff_t{1}), sizeof code);
#endif
    return code;
}
