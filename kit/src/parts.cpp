#include "parts.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using Work = std::function<void(std::size_t part, std::size_t worker)>;

class Parts {
public:
    Parts(std::size_t numParts, const Work& work) : work_(work), failures_(numParts) {}

    void doSome(std::size_t worker) noexcept
    {
        // A part that was taken is always done, even if an earlier part fails meanwhile.
        while (!hasFailed_) {
            const std::size_t part = next_++;
            if (part >= failures_.size()) {
                return;
            }
            try {
                work_(part, worker);
            } catch (...) {
                failures_[part] = std::current_exception();
                hasFailed_ = true;
            }
        }
    }
    void stop() noexcept { hasFailed_ = true; }
    /// Requires: all threads have ended.
    void rethrow() const
    {
        for (const std::exception_ptr& failure : failures_) {
            if (failure) {
                std::rethrow_exception(failure);
            }
        }
    }

private:
    const Work& work_;
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> hasFailed_{false};
    /// The exception of each part. Each part has its own element, so threads need no lock.
    std::vector<std::exception_ptr> failures_;
};

/// Threads that are joined whatever happens.
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
            // The system provides no more threads: the present ones do the work.
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
