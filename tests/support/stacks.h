#pragma once

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

// Work on a thread whose stack has a given size, because what a program's first thread has differs from system to system.
// The standard library's threads have no such choice; these are POSIX threads, here and nowhere else.

namespace kt_test {

// How much a thousand pointer records open at once may take: the least stack that any system gives a thread (macOS), twice
// that where nothing is optimised, and what a sanitizer's own systems give where it makes every frame several times as large.
#if defined(__SANITIZE_ADDRESS__)
#define KT_TEST_STACK (8192 * 1024)
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_TEST_STACK (8192 * 1024)
#endif
#endif
#if !defined(KT_TEST_STACK) && defined(KT_TEST_OPTIMISED_LIBRARY)
#define KT_TEST_STACK (512 * 1024)
#elif !defined(KT_TEST_STACK)
#define KT_TEST_STACK (1024 * 1024)
#endif
constexpr std::size_t stackForThousandRecords = KT_TEST_STACK;
/// The same for classes of the tests, which are never optimised.
constexpr std::size_t stackForThousandRecordsOfTests = std::max<std::size_t>(KT_TEST_STACK, 1024 * 1024);

/// Runs `operation` on a thread with a stack of so many bytes, below which nothing is mapped. Returns how many of them it
/// used, what the thread itself needs included.
template <class Operation>
std::size_t runOnStack(std::size_t size, Operation operation)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const block = mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED || mprotect(block, page, PROT_NONE) != 0) {
        ADD_FAILURE() << "no memory for a stack";
        return 0;
    }
    unsigned char* const stack = static_cast<unsigned char*>(block) + page;
    constexpr unsigned char paint = 0xC5;
    std::memset(stack, paint, size);
    pthread_attr_t attributes;
    pthread_t thread;
    const auto start = [](void* given) -> void* {
        (*static_cast<Operation*>(given))();
        return nullptr;
    };
    const bool ran = pthread_attr_init(&attributes) == 0 && pthread_attr_setstack(&attributes, stack, size) == 0 &&
                     pthread_create(&thread, &attributes, start, &operation) == 0 && pthread_join(thread, nullptr) == 0;
    EXPECT_TRUE(ran) << "no thread";
    pthread_attr_destroy(&attributes);
    const unsigned char* const used =
        std::find_if(stack, stack + size, [](unsigned char byte) { return byte != paint; });
    const auto untouched = static_cast<std::size_t>(used - stack);
    munmap(block, size + page);
    return size - untouched;
}

}  // namespace kt_test
