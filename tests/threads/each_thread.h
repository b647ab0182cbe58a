#pragma once

#include "support/test.h"

namespace threads {

inline constexpr int numThreads = 8;
/// Where eight would take too long.
inline constexpr int fewThreads = 4;

/// Runs `work(i)` on that many threads at once, which begin together.
template <int Count = numThreads, class Work>
void onEachThread(Work work)
{
    std::atomic<int> waiting{Count};
    std::vector<std::thread> started;
    for (int i = 0; i < Count; ++i) {
        started.emplace_back([&waiting, work, i] {
            --waiting;
            while (waiting > 0) {
                std::this_thread::yield();
            }
            work(i);
        });
    }
    for (std::thread& thread : started) {
        thread.join();
    }
}

}  // namespace threads
