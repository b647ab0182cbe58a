#pragma once

// The one place where a compiler's extensions are named.
//
// KT_FOUNDATION_API and KT_API mark what the two shared libraries export; everything else is hidden. In a static build
// (KT_STATIC) nothing is imported, but the classes stay visible, so that an exception thrown in one shared object that
// holds a static copy is still caught by class in another.

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(KT_STATIC)
#define KT_EXPORT
#define KT_IMPORT
#else
#define KT_EXPORT __declspec(dllexport)
// g++ takes what a DLL exports without being told. Told, it warns of each operator that is a friend: it wants to be told there
// again, and does not listen there.
#if defined(__GNUC__) && !defined(__clang__)
#define KT_IMPORT
#else
#define KT_IMPORT __declspec(dllimport)
#endif
#endif
#else
#define KT_EXPORT __attribute__((visibility("default")))
#define KT_IMPORT __attribute__((visibility("default")))
#endif

// For a static member that every copy of the library in a process has for itself, although its class is one everywhere:
// static libraries may be linked into several shared objects.
#if defined(_WIN32) || defined(__CYGWIN__)
#define KT_HIDDEN
#else
#define KT_HIDDEN __attribute__((visibility("hidden")))
#endif

#if defined(KT_FOUNDATION_BUILD)
#define KT_FOUNDATION_API KT_EXPORT
#else
#define KT_FOUNDATION_API KT_IMPORT
#endif

#if defined(KT_CLASTOOL_BUILD)
#define KT_API KT_EXPORT
#else
#define KT_API KT_IMPORT
#endif

// For the libraries' own use: hints and questions to the processor, and two doubles that it works on at once, each as if
// it were alone. Where a compiler has no word for them the hint is nothing, the answer no, and the two a structure.
#if defined(__GNUC__)
#define KT_PREFETCH(address) __builtin_prefetch(address)
#define KT_LOWEST_BIT(bits) __builtin_ctzll(bits)
#else
#define KT_PREFETCH(address) static_cast<void>(address)
#define KT_LOWEST_BIT(bits) kt_lowestBit(bits)
/// The place of the lowest bit that is set; there is one.
inline int kt_lowestBit(unsigned long long bits)
{
    int place = 0;
    while ((bits >> place & 1) == 0) {
        ++place;
    }
    return place;
}
#endif
// g++ for 64-bit Windows aligns the stack to 16 bytes, but writes vectors of 32 there by instructions that take an aligned
// address (its bug 54412). Some builds of it are mended, but a program cannot tell which, so all do without.
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__)) && (!defined(_WIN64) || defined(__clang__))
#define KT_PROCESSOR_HAS_AVX2_AND_FMA \
    (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))  // not covered: tests run where both are
// Wherever these vectors are known, the wider ones that the kernels use besides are too.
#define KT_PROCESSOR_HAS_AVX512_VNNI (__builtin_cpu_supports("avx512vnni"))  // not covered: tests run where it is
#else
#define KT_PROCESSOR_HAS_AVX2_AND_FMA false
#define KT_PROCESSOR_HAS_AVX512_VNNI false
#endif
// A function that keeps a frame of its own.
#if defined(__GNUC__)
#define KT_NOINLINE __attribute__((noinline))
#elif defined(_MSC_VER)
#define KT_NOINLINE __declspec(noinline)
#else
#define KT_NOINLINE
#endif

#if defined(__GNUC__)
typedef double kt_DoublePair __attribute__((vector_size(16)));
#else
struct kt_DoublePair {
    double values[2];
    double operator[](int index) const { return values[index]; }
    kt_DoublePair operator*(const kt_DoublePair& other) const
    {
        return {{values[0] * other.values[0], values[1] * other.values[1]}};
    }
    kt_DoublePair operator-(const kt_DoublePair& other) const
    {
        return {{values[0] - other.values[0], values[1] - other.values[1]}};
    }
    kt_DoublePair operator/(const kt_DoublePair& other) const
    {
        return {{values[0] / other.values[0], values[1] / other.values[1]}};
    }
    kt_DoublePair operator+(const kt_DoublePair& other) const
    {
        return {{values[0] + other.values[0], values[1] + other.values[1]}};
    }
    kt_DoublePair& operator+=(const kt_DoublePair& other) { return *this = *this + other; }
};
#endif

#if defined(KT_FOUNDATION_BUILD)
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>

#if defined(__GNUG__)
#include <cxxabi.h>
#endif

/// The name of a class as a C++ program writes it, with its namespaces. For the library's own use.
inline std::string kt_plainClassName(const std::type_info& type)
{
#if defined(__GNUG__)
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> plain(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                       &std::free);
    return status == 0 ? plain.get() : type.name();  // not covered: the C library out of memory
#else
    // Here names come plain, but for the keyword in front of them.
    const char* name = type.name();
    for (const char* keyword : {"class ", "struct "}) {
        if (std::strncmp(name, keyword, std::strlen(keyword)) == 0) {
            name += std::strlen(keyword);
        }
    }
    return name;
#endif
}
#endif
