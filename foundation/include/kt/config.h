#pragma once

// KT_FOUNDATION_API and KT_API mark what the two shared libraries export; everything else is hidden. A static build
// (KT_STATIC) imports nothing, but its classes stay visible: an exception that is thrown in one shared object with a static
// copy is then still caught by class in another.

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(KT_STATIC)
#define KT_EXPORT
#define KT_IMPORT
#else
#define KT_EXPORT __declspec(dllexport)
// With dllimport, g++ demands the attribute on friend operators, then ignores it. Without, it finds what a DLL exports too.
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

// For a static member of an exported class of which each copy of the library has its own: a static library may be linked into
// several shared objects of one process.
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
