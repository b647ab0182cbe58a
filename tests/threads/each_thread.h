#pragma once

#include "support/test.h"

namespace threads {

constexpr int numThreads = 8;

/// Runs `work(i)` on eight threads at once, which begin together.
template <class Work>
void onEachThread(Work work)
{
    std::atomic<int> waiting{numThreads};
    std::vector<std::thread> started;
    for (int i = 0; i < numThreads; ++i) {
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
