#include "parts.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using Work = std::function<void(std::size_t part, std::size_t worker)>;

class Parts {
public:
    Parts(std::size_t numParts, const Work& work) : numParts_(numParts), work_(work) {}

    void doSome(std::size_t worker) noexcept
    {
        // A part that was taken is done: one before it may have failed, but not yet when this one was begun.
        while (!hasFailed_) {
            const std::size_t part = next_++;
            if (part >= numParts_) {
                return;
            }
            try {
                work_(part, worker);
            } catch (...) {
                note(part, std::current_exception());
            }
        }
    }
    void stop() noexcept { hasFailed_ = true; }
    void rethrow() const
    {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

private:
    void note(std::size_t part, const std::exception_ptr& failure) noexcept
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!failure_ || part < failedPart_) {
            failure_ = failure;
            failedPart_ = part;
        }
        hasFailed_ = true;
    }

    const std::size_t numParts_;
    const Work& work_;
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> hasFailed_{false};
    std::mutex mutex_;
    std::exception_ptr failure_;
    std::size_t failedPart_ = 0;
};

/// Threads that are waited for whatever happens.
class Helpers {
public:
    explicit Helpers(Parts& parts) : parts_(parts) {}
    ~Helpers() { join(); }
    Helpers(const Helpers&) = delete;
    Helpers& operator=(const Helpers&) = delete;

    void start(std::size_t number)
    {
        threads_.reserve(number);
        try {
            for (std::size_t worker = 1; worker <= number; ++worker) {
                threads_.emplace_back([this, worker] { parts_.doSome(worker); });
            }
        } catch (const std::system_error&) {
            // The system gives no more threads: those there are do the work.
        } catch (...) {
            parts_.stop();
            throw;
        }
    }
    void join()
    {
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

private:
    Parts& parts_;
    std::vector<std::thread> threads_;
};

}  // namespace

void kt_doInParts(std::size_t numParts, unsigned threads, const Work& work)
{
    Parts parts(numParts, work);
    Helpers helpers(parts);
    const std::size_t atOnce = std::min<std::size_t>(threads, numParts);
    if (atOnce > 1) {
        helpers.start(atOnce - 1);
    }
    parts.doSome(0);
    helpers.join();
    parts.rethrow();
}
