#pragma once

#include "watch.h"

#include <cstddef>
#include <functional>

/// Works on rows in blocks, on at most `threads` threads, one of them the calling thread. A block takes some milliseconds, so that the
/// watch can look up between blocks. Blocks begin in ascending order. Requires: the caller does not hold the interpreter lock.
///
/// Calls `work(first, count, worker)`. Each thread has its own worker number, counted from 0. No block begins after one has failed.
/// Throws, after all threads have ended: the exception of the first block that failed.
void doInBlocks(std::size_t numRows, unsigned threads, Watch& watch,
                const std::function<void(std::size_t first, std::size_t count, std::size_t worker)>& work);

/// The number of workers that `doInBlocks` uses at most.
std::size_t numWorkers(std::size_t numRows, unsigned threads);
