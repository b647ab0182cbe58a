#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <new>

// The test programs replace the global allocation functions by counting ones that can be told to fail. The memory itself
// comes from malloc, so sanitizers still see every block. Everything here counts the calling thread alone. Under
// ThreadSanitizer, and where the libraries are DLLs, the functions cannot be replaced, and nothing is counted: a MemoryWatch
// sees nothing, and what needs the counts ends the test as skipped.
//
//     kt_test::MemoryWatch watch;                          kt_test::failEachAllocation(
//     { Thing thing; thing.fill(); }                           [] { return Thing(); },
//     EXPECT_EQ(watch.liveBytes(), 0);                         [](Thing& thing) { thing.fill(); },
//     EXPECT_LE(watch.peakBytes(), 4096u);                     [](const Thing& thing) { EXPECT_TRUE(thing == Thing()); });

namespace kt_test {

/// Where nothing is counted, ends the running test as skipped.
void needCounts();

/// What was allocated on this thread since the watch was made. Memory freed here that was allocated before counts
/// negative.
class MemoryWatch {
public:
    MemoryWatch() noexcept;
    /// A new watch within this one's time leaves its peak right.
    ~MemoryWatch();
    MemoryWatch(const MemoryWatch&) = delete;
    MemoryWatch& operator=(const MemoryWatch&) = delete;

    /// Number of allocations, failed ones included.
    long allocations() const noexcept;
    /// Blocks and bytes that are in use now and were not when the watch was made.
    long liveBlocks() const noexcept;
    long liveBytes() const noexcept;
    /// The most bytes in use at once, above those in use when the watch was made.
    std::size_t peakBytes() const noexcept;

private:
    long allocations_;
    long blocks_;
    long bytes_;
    long outerPeak_;
};

enum class Fails { once, fromThenOn };

/// As long as it lives, the n-th allocation of this thread from its making on (n counts from 1) throws std::bad_alloc; with
/// Fails::fromThenOn each later one too. One at a time.
class AllocationFailure {
public:
    explicit AllocationFailure(long n, Fails how = Fails::once);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    /// Whether an allocation has failed.
    bool happened() const noexcept;
};

/// The number of allocations that `operation` makes.
template <class Operation>
long allocationsDuring(Operation operation)
{
    needCounts();
    const MemoryWatch watch;
    operation();
    return watch.allocations();
}

/// Runs `operation(state)`, each time on a fresh `state = prepare()`, with its 1st, 2nd, ... allocation failing, once and
/// from then on, until it makes no such allocation any more. Expects each time that
/// - it ends in std::bad_alloc or, where it does without the failed allocation, normally;
/// - `unchanged(state)` finds nothing to complain about after a std::bad_alloc;
/// - the same operation succeeds right afterwards on the same state;
/// - `finished(state)` finds nothing to complain about wherever the operation succeeded;
/// - nothing is left allocated when the state is gone.
/// Returns the number of allocations that `operation` makes: expect it to be above 0, or nothing was tested.
template <class Prepare, class Operation, class Unchanged, class Finished>
long failEachAllocation(Prepare prepare, Operation operation, Unchanged unchanged, Finished finished)
{
    needCounts();
    {
        // What is set up on first use, in the standard library or here, must not look like a leak.
        auto state = prepare();
        operation(state);
        finished(state);
    }
    long last = 0;
    for (const Fails how : {Fails::once, Fails::fromThenOn}) {
        bool happened = true;
        for (long n = 1; happened && !::testing::Test::HasFailure(); ++n) {
            SCOPED_TRACE(::testing::Message()
                         << "allocation " << n << " fails" << (how == Fails::once ? "" : " and all later ones"));
            const MemoryWatch watch;
            {
                auto state = prepare();
                bool threw = false;
                try {
                    const AllocationFailure failure(n, how);
                    try {
                        operation(state);
                    } catch (...) {
                        happened = failure.happened();
                        throw;
                    }
                    happened = failure.happened();
                } catch (const std::bad_alloc&) {
                    threw = true;
                } catch (const std::exception& error) {
                    ADD_FAILURE() << "not std::bad_alloc but: " << error.what();
                } catch (...) {
                    ADD_FAILURE() << "not std::bad_alloc";
                }
                if (threw) {
                    EXPECT_TRUE(happened) << "std::bad_alloc though no allocation failed";
                    unchanged(state);
                    EXPECT_NO_THROW(operation(state)) << "the same operation right afterwards";
                }
                if (!::testing::Test::HasFailure()) {
                    finished(state);
                }
            }
            if (!::testing::Test::HasFailure()) {
                // A failure that was recorded holds memory of its own.
                EXPECT_EQ(watch.liveBlocks(), 0) << "blocks leaked";
            }
            last = n - 1;
        }
    }
    return last;
}

/// The same where there is nothing to say about what the operation achieved.
template <class Prepare, class Operation, class Unchanged>
long failEachAllocation(Prepare prepare, Operation operation, Unchanged unchanged)
{
    return failEachAllocation(prepare, operation, unchanged, [](auto&) {});
}

/// The same for an operation that starts from nothing.
template <class Operation>
long failEachAllocation(Operation operation)
{
    struct Nothing {};
    return failEachAllocation([] { return Nothing(); }, [&operation](Nothing&) { operation(); }, [](Nothing&) {});
}

}  // namespace kt_test
