#pragma once

#include <cstddef>
#include <functional>

// Work on a thread whose stack has a given size, because what a program's first thread has differs from system to system.
// The standard library's threads have no such choice.

namespace kt_test {

/// How much a thousand pointer records open at once may take.
extern const std::size_t stackForThousandRecords;
/// The same for classes of the tests, which are never optimised.
extern const std::size_t stackForThousandRecordsOfTests;

/// Runs `operation` on a thread with a stack of `size` bytes, below which nothing is mapped. Returns how many of them were used,
/// including those of the thread itself.
std::size_t runOnStack(std::size_t size, const std::function<void()>& operation);

}  // namespace kt_test
