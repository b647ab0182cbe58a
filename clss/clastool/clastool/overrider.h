#pragma once

#include <cstddef>
#include <cstring>

/// The code that a call of a virtual function of the object reaches, to compare with that of another object: a class of the caller's own
/// without an override may be treated as its base. `Base` is the class that declares the function first.
///
/// The language has no means for this. It is read from the object's virtual table, as the Itanium C++ ABI lays it out. With any other ABI,
/// and across a DLL, each object's functions look like its own: an override is then assumed.
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
