#pragma once

#include <cstddef>
#include <functional>

/// Does work in parts, on at most `threads` threads including the calling one; 0 counts as 1.
///
/// Calls `work(part, worker)` once for each part below `numParts`. Workers are numbered from 0, one for each thread. Parts begin in
/// ascending order; after a part has thrown, no other part begins. When all threads have ended, the exception of the first part that
/// threw is thrown again. The number of threads does not change which one that is, because all parts before it began earlier.
void kt_doInParts(std::size_t numParts, unsigned threads,
                  const std::function<void(std::size_t part, std::size_t worker)>& work);
