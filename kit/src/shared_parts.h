#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

/// Shares the parts of a piece of work among threads. A thread takes the next parts when it has finished its own. Parts begin in
/// ascending order. None begins after one has failed.
class kt_SharedParts {
public:
    explicit kt_SharedParts(std::size_t numParts) : numParts_(numParts) {}

    /// Takes up to `most` parts and stores the number of the first. Returns how many were taken; 0 if none is left or one has failed.
    std::size_t take(std::size_t most, std::size_t& first) noexcept
    {
        if (hasFailed_) {
            return 0;
        }
        first = next_.fetch_add(most);
        return first < numParts_ ? std::min(most, numParts_ - first) : 0;
    }

    /// Calls `work()` for parts that were taken from `first` on. Stores an exception instead of passing it on.
    template <class Work>
    void attempt(std::size_t first, const Work& work) noexcept
    {
        try {
            work();
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (!failure_ || first < failedFirst_) {
                failure_ = std::current_exception();
                failedFirst_ = first;
            }
            hasFailed_ = true;
        }
    }

    /// Calls `share(worker)` once for each worker: worker 0 on the calling thread, each other worker on its own thread. If the system
    /// gives fewer threads, these do all the work.
    /// Requires: `share` takes and attempts parts, and throws nothing.
    /// Throws, after all threads have ended: the exception of the first part that failed. It is the same for any number of threads,
    /// because all parts before that one were begun.
    template <class Share>
    void doOnThreads(std::size_t numWorkers, const Share& share)
    {
        {
            Joined others;
            try {
                for (std::size_t worker = 1; worker < numWorkers; ++worker) {
                    others.threads.emplace_back([&share, worker] { share(worker); });
                }
            } catch (const std::system_error&) {
                // The threads that exist do the work.
            } catch (...) {
                hasFailed_ = true;
                throw;
            }
            share(std::size_t{0});
        }
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

private:
    /// Joins its threads on every way out of the scope.
    struct Joined {
        Joined() = default;
        Joined(const Joined&) = delete;
        Joined& operator=(const Joined&) = delete;
        ~Joined()
        {
            for (std::thread& thread : threads) {
                thread.join();
            }
        }

        std::vector<std::thread> threads;
    };

    const std::size_t numParts_;
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> hasFailed_{false};
    std::mutex mutex_;
    std::exception_ptr failure_;
    std::size_t failedFirst_ = 0;
};
