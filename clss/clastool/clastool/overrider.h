#pragma once

#include <cstddef>
#include <cstring>

/// The code that a virtual call on the object reaches. Compared with that of another object, it shows whether a caller's class overrides
/// the function; if not, it may be treated as its base. `Base` is the class that first declares the function.
///
/// C++ cannot express this. It is read from the object's virtual table, as the Itanium C++ ABI lays it out. With any other ABI, and across
/// a DLL, each object seems to have functions of its own: an override is then assumed.
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
