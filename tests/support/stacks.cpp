#include "stacks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#if defined(_WIN32)
#include <process.h>
#include <windows.h>
#else
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

// The least stack that any system gives a thread (macOS), twice that where nothing is optimised or where every call sets 160
// bytes aside (s390x), and what a sanitizer's own systems give where it makes every frame several times as large.
#if defined(__SANITIZE_ADDRESS__)
#define KT_TEST_STACK (8192 * 1024)
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_TEST_STACK (8192 * 1024)
#endif
#endif
#if !defined(KT_TEST_STACK) && defined(KT_TEST_OPTIMISED_LIBRARY) && !defined(__s390x__)
#define KT_TEST_STACK (512 * 1024)
#elif !defined(KT_TEST_STACK)
#define KT_TEST_STACK (1024 * 1024)
#endif

namespace kt_test {

const std::size_t stackForThousandRecords = KT_TEST_STACK;
const std::size_t stackForThousandRecordsOfTests = 2 * stackForThousandRecords;

namespace {

constexpr unsigned char paint = 0xC5;

/// How many bytes at the low end of a painted stack are as they were.
std::size_t untouchedBytes(const unsigned char* low, const unsigned char* high)
{
    return static_cast<std::size_t>(std::find_if(low, high, [](unsigned char byte) { return byte != paint; }) - low);
}

}  // namespace

#if defined(_WIN32)

namespace {

struct Work {
    const std::function<void()>& operation;
    std::size_t used;
};

// A thread cannot be given a stack here, so it paints its own, downwards as the pages of a stack have to be touched. The lowest
// pages are the system's, which tells an overflow by them.
unsigned __stdcall paintAndRun(void* given)
{
    constexpr std::size_t pagesOfTheSystem = 4 * 4096;
    constexpr std::size_t ownFrame = 1024;
    Work& work = *static_cast<Work*>(given);
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    unsigned char* const lowest = reinterpret_cast<unsigned char*>(low + pagesOfTheSystem);
    volatile unsigned char here = 0;
    for (volatile unsigned char* place = &here - ownFrame; place >= lowest; --place) {
        *place = paint;
    }
    work.operation();
    const auto* const end = reinterpret_cast<const unsigned char*>(high);
    work.used = static_cast<std::size_t>(end - lowest) - untouchedBytes(lowest, end);
    return 0;
}

}  // namespace

std::size_t runOnStack(std::size_t size, const std::function<void()>& operation)
{
    Work work{operation, 0};
    const auto thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, static_cast<unsigned>(size), paintAndRun,
                                                                &work, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    EXPECT_TRUE(thread != nullptr && WaitForSingleObject(thread, INFINITE) == WAIT_OBJECT_0) << "no thread";
    if (thread != nullptr) {
        CloseHandle(thread);
    }
    return work.used;
}

#else

std::size_t runOnStack(std::size_t size, const std::function<void()>& operation)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const block = mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED || mprotect(block, page, PROT_NONE) != 0) {
        ADD_FAILURE() << "no memory for a stack";
        return 0;
    }
    unsigned char* const stack = static_cast<unsigned char*>(block) + page;
    std::memset(stack, paint, size);
    pthread_attr_t attributes;
    pthread_t thread;
    const auto start = [](void* given) -> void* {
        (*static_cast<const std::function<void()>*>(given))();
        return nullptr;
    };
    void* const given = const_cast<std::function<void()>*>(&operation);
    const bool ran = pthread_attr_init(&attributes) == 0 && pthread_attr_setstack(&attributes, stack, size) == 0 &&
                     pthread_create(&thread, &attributes, start, given) == 0 && pthread_join(thread, nullptr) == 0;
    EXPECT_TRUE(ran) << "no thread";
    pthread_attr_destroy(&attributes);
    const std::size_t used = size - untouchedBytes(stack, stack + size);
    munmap(block, size + page);
    return used;
}

#endif

}  // namespace kt_test
