#pragma once

// The version of both libraries. It is stated here alone: the build and the packages take it from these three lines. Its
// first number is that of the binary interface.

/// The first number of the version.
#define KT_VERSION_MAJOR 1
/// The second number of the version.
#define KT_VERSION_MINOR 0
/// The third number of the version.
#define KT_VERSION_PATCH 0

/// The version as one number that grows from release to release, for conditional compilation: 10203 is version 1.2.3.
#define KT_VERSION (KT_VERSION_MAJOR * 10000 + KT_VERSION_MINOR * 100 + KT_VERSION_PATCH)

/// The version as a text, such as "1.2.3".
#define KT_VERSION_STRING KT_VERSION_TEXT(KT_VERSION_MAJOR, KT_VERSION_MINOR, KT_VERSION_PATCH)

// The numbers must be filled in before they become text.
#define KT_VERSION_TEXT(major, minor, patch) KT_VERSION_TEXT_OF(major, minor, patch)
#define KT_VERSION_TEXT_OF(major, minor, patch) #major "." #minor "." #patch
