#include "blocks.h"

#include "shared_parts.h"

#include <algorithm>
#include <atomic>
#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t largest = 1024;
/// With at least this number of rows the library searches for several rows at once.
constexpr std::size_t together = 32;

/// The size of a block of about 20 ms. `took` is the time of the last block, of `count` rows.
std::size_t nextSize(std::size_t count, Clock::duration took)
{
    const double each = std::chrono::duration<double>(took).count() / static_cast<double>(count);
    // The time of a single search overestimates the time per row of a search for many rows, which may be several times as fast.
    const double most = count < together ? 0.16 : 0.04;
    if (each * together <= most) {
        const auto fits = static_cast<std::size_t>(std::min(0.02 / std::max(each, 1e-9), static_cast<double>(largest)));
        return std::max(together, fits / together * together);
    }
    return static_cast<std::size_t>(std::max(0.02 / each, 1.0));
}

}  // namespace

std::size_t numWorkers(std::size_t numRows, unsigned threads)
{
    return std::clamp<std::size_t>(threads, 1, std::max<std::size_t>(numRows, 1));
}

void doInBlocks(std::size_t numRows, unsigned threads, Watch& watch,
                const std::function<void(std::size_t first, std::size_t count, std::size_t worker)>& work)
{
    kt_SharedParts rows(numRows);
    std::atomic<std::size_t> numDone{0};
    rows.doOnThreads(numWorkers(numRows, threads), [&](std::size_t worker) {
        std::size_t size = 1;
        std::size_t first = 0;
        while (const std::size_t count = rows.take(size, first)) {
            const Clock::time_point began = Clock::now();
            rows.attempt(first, [&] {
                work(first, count, worker);
                const std::size_t done = numDone += count;
                if (worker == 0) {
                    watch.look(done);
                }
            });
            size = nextSize(count, Clock::now() - began);
        }
    });
}
