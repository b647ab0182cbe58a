#include "allocations.h"

#include <algorithm>
#include <cstdlib>

// The size of a block as its allocator knows it, so that no bookkeeping of our own stands between a sanitizer and the
// block's ends.
#if defined(_WIN32)
#include <malloc.h>
#elif defined(__APPLE__)
#include <malloc/malloc.h>
#else
#include <malloc.h>
#endif

// ThreadSanitizer brings allocation functions of its own that cannot be replaced, and a DLL never takes those of the program.
// Nothing is counted there.
#if defined(__SANITIZE_THREAD__) || (defined(_WIN32) && !defined(KT_STATIC))
#define KT_TEST_COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KT_TEST_COUNTS_ALLOCATIONS 0
#endif
#endif
#if !defined(KT_TEST_COUNTS_ALLOCATIONS)
#define KT_TEST_COUNTS_ALLOCATIONS 1
#endif

namespace {

struct Counters {
    long allocations;
    long blocks;
    long bytes;
    long peak;
    // 0: none fails. n: the n-th from now fails.
    long untilFailure;
    bool allLaterFail;
    bool failed;
};

thread_local Counters counters{};

#if KT_TEST_COUNTS_ALLOCATIONS

bool mustFail() noexcept
{
    ++counters.allocations;
    if (counters.failed && counters.allLaterFail) {
        return true;
    }
    if (counters.untilFailure == 0 || --counters.untilFailure != 0) {
        return false;
    }
    counters.failed = true;
    return true;
}

long sizeOf(void* block) noexcept
{
#if defined(_WIN32)
    return static_cast<long>(_msize(block));
#elif defined(__APPLE__)
    return static_cast<long>(malloc_size(block));
#else
    return static_cast<long>(malloc_usable_size(block));
#endif
}

void* counted(void* block) noexcept
{
    if (block != nullptr) {
        ++counters.blocks;
        counters.bytes += sizeOf(block);
        counters.peak = std::max(counters.peak, counters.bytes);
    }
    return block;
}

void* allocate(std::size_t size) noexcept
{
    return mustFail() ? nullptr : counted(std::malloc(size == 0 ? 1 : size));
}

void* allocate(std::size_t size, std::align_val_t alignment) noexcept
{
#if defined(_WIN32)
    // Blocks of _aligned_malloc have a size of another kind; nothing here asks for more than malloc's own alignment.
    static_cast<void>(alignment);
    return allocate(size);
#else
    const auto step = static_cast<std::size_t>(alignment);
    return mustFail() ? nullptr
                      : counted(std::aligned_alloc(step, (std::max<std::size_t>(size, 1) + step - 1) / step * step));
#endif
}

void* orThrow(void* block)
{
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void release(void* block) noexcept
{
    if (block != nullptr) {
        --counters.blocks;
        counters.bytes -= sizeOf(block);
        std::free(block);
    }
}

#endif

}  // namespace

namespace kt_test {

void needCounts()
{
#if !KT_TEST_COUNTS_ALLOCATIONS
    const char* const reason = "a test program cannot replace the allocation functions here; see support/allocations.h";
    [reason] { GTEST_SKIP() << reason; }();
    throw ::testing::AssertionException(
        ::testing::TestPartResult(::testing::TestPartResult::kSkip, __FILE__, __LINE__, reason));
#endif
}

MemoryWatch::MemoryWatch() noexcept
    : allocations_(counters.allocations), blocks_(counters.blocks), bytes_(counters.bytes), outerPeak_(counters.peak)
{
    counters.peak = counters.bytes;
}

MemoryWatch::~MemoryWatch()
{
    counters.peak = std::max(counters.peak, outerPeak_);
}

long MemoryWatch::allocations() const noexcept
{
    return counters.allocations - allocations_;
}

long MemoryWatch::liveBlocks() const noexcept
{
    return counters.blocks - blocks_;
}

long MemoryWatch::liveBytes() const noexcept
{
    return counters.bytes - bytes_;
}

std::size_t MemoryWatch::peakBytes() const noexcept
{
    return static_cast<std::size_t>(std::max(counters.peak - bytes_, 0L));
}

AllocationFailure::AllocationFailure(long n, Fails how)
{
    needCounts();
    counters.untilFailure = n;
    counters.allLaterFail = how == Fails::fromThenOn;
    counters.failed = false;
}

AllocationFailure::~AllocationFailure()
{
    counters.untilFailure = 0;
    counters.allLaterFail = false;
    counters.failed = false;
}

bool AllocationFailure::happened() const noexcept
{
    return counters.failed;
}

}  // namespace kt_test

#if KT_TEST_COUNTS_ALLOCATIONS

void* operator new(std::size_t size)
{
    return orThrow(allocate(size));
}
void* operator new[](std::size_t size)
{
    return orThrow(allocate(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    return orThrow(allocate(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return orThrow(allocate(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocate(size, alignment);
}

void operator delete(void* block) noexcept
{
    release(block);
}
void operator delete[](void* block) noexcept
{
    release(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept
{
    release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept
{
    release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    release(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    release(block);
}
void operator delete[](void* block, std::align_val_t) noexcept
{
    release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept
{
    release(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept
{
    release(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept
{
    release(block);
}

#endif
