#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>

#if defined(__GNUG__)
#include <cxxabi.h>
#endif

/// The name of a class as a C++ program writes it, with its namespaces.
inline std::string kt_plainClassName(const std::type_info& type)
{
#if defined(__GNUG__)
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> plain(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                       &std::free);
    return status == 0 ? plain.get() : type.name();  // not covered: the C library out of memory
#else
    // These compilers give the plain name behind a keyword.
    const char* name = type.name();
    for (const char* keyword : {"class ", "struct "}) {
        if (std::strncmp(name, keyword, std::strlen(keyword)) == 0) {
            name += std::strlen(keyword);
        }
    }
    return name;
#endif
}
