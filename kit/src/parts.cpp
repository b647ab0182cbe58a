#include "parts.h"

#include "shared_parts.h"

#include <algorithm>

void kt_doInParts(std::size_t numParts, unsigned threads,
                  const std::function<void(std::size_t part, std::size_t worker)>& work)
{
    kt_SharedParts parts(numParts);
    parts.doOnThreads(std::min<std::size_t>(threads, numParts), [&](std::size_t worker) {
        std::size_t part = 0;
        while (parts.take(1, part) != 0) {
            parts.attempt(part, [&] { work(part, worker); });
        }
    });
}
