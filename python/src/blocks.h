#pragma once

#include "watch.h"

#include <cstddef>
#include <functional>

/// Does work on rows in blocks, on up to so many threads, the calling one among them. Blocks are as large as some milliseconds
/// allow, so that the watch can look between them, and begun in ascending order. Call it without the interpreter lock.
///
/// Calls `work(first, count, worker)`; no two threads are the same worker, and workers count from 0. Once a block has failed no other
/// is begun; what the first of those that failed has thrown is thrown when all threads are gone.
void doInBlocks(std::size_t numRows, unsigned threads, Watch& watch,
                const std::function<void(std::size_t first, std::size_t count, std::size_t worker)>& work);

/// How many workers there are.
std::size_t numWorkers(std::size_t numRows, unsigned threads);
