#include "blocks.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using Work = std::function<void(std::size_t first, std::size_t count, std::size_t worker)>;
using Clock = std::chrono::steady_clock;

constexpr std::size_t largest = 1024;
/// From so many rows on the library searches for several at once.
constexpr std::size_t together = 32;

/// How many rows make a block of some 20 ms, after one of so many rows took so long.
std::size_t nextSize(std::size_t count, Clock::duration took)
{
    const double each = std::chrono::duration<double>(took).count() / static_cast<double>(count);
    // A search for one row says little about one for many, which may be several times as fast.
    const double most = count < together ? 0.16 : 0.04;
    if (each * together <= most) {
        const auto fits = static_cast<std::size_t>(std::min(0.02 / std::max(each, 1e-9), static_cast<double>(largest)));
        return std::max(together, fits / together * together);
    }
    return static_cast<std::size_t>(std::max(0.02 / each, 1.0));
}

class Blocks {
public:
    Blocks(std::size_t numRows, const Work& work) : numRows_(numRows), work_(work) {}

    /// Calls `between(done)` behind each block.
    template <class Between>
    void doSome(std::size_t worker, Between between) noexcept
    {
        std::size_t size = 1;
        while (!hasFailed_) {
            const std::size_t first = next_.fetch_add(size);
            if (first >= numRows_) {
                return;
            }
            const std::size_t count = std::min(size, numRows_ - first);
            const Clock::time_point began = Clock::now();
            try {
                work_(first, count, worker);
                between(done_ += count);
            } catch (...) {
                note(first, std::current_exception());
            }
            size = nextSize(count, Clock::now() - began);
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
    void note(std::size_t first, const std::exception_ptr& failure) noexcept
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!failure_ || first < failedFirst_) {
            failure_ = failure;
            failedFirst_ = first;
        }
        hasFailed_ = true;
    }

    const std::size_t numRows_;
    const Work& work_;
    std::atomic<std::size_t> next_{0};
    std::atomic<std::size_t> done_{0};
    std::atomic<bool> hasFailed_{false};
    std::mutex mutex_;
    std::exception_ptr failure_;
    std::size_t failedFirst_ = 0;
};

/// Threads that are waited for whatever happens.
class Helpers {
public:
    explicit Helpers(Blocks& blocks) : blocks_(blocks) {}
    ~Helpers() { join(); }
    Helpers(const Helpers&) = delete;
    Helpers& operator=(const Helpers&) = delete;

    void start(std::size_t number)
    {
        threads_.reserve(number);
        try {
            for (std::size_t worker = 1; worker <= number; ++worker) {
                threads_.emplace_back([this, worker] { blocks_.doSome(worker, [](std::size_t) {}); });
            }
        } catch (const std::system_error&) {
            // The system gives no more threads: those there are do the work.
        } catch (...) {
            blocks_.stop();
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
    Blocks& blocks_;
    std::vector<std::thread> threads_;
};

}  // namespace

std::size_t numWorkers(std::size_t numRows, unsigned threads)
{
    return std::clamp<std::size_t>(threads, 1, std::max<std::size_t>(numRows, 1));
}

void doInBlocks(std::size_t numRows, unsigned threads, Watch& watch, const Work& work)
{
    Blocks blocks(numRows, work);
    {
        Helpers helpers(blocks);
        helpers.start(numWorkers(numRows, threads) - 1);
        blocks.doSome(0, [&](std::size_t done) { watch.look(done); });
    }
    blocks.rethrow();
}
