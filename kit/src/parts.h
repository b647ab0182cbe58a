#pragma once

#include <cstddef>
#include <functional>

/// Does work in parts, on as many threads as asked for at the most, the calling one among them; 0 counts as 1.
///
/// Calls `work(part, worker)` once for each part below `numParts`; no two threads are the same worker, and workers count from 0.
/// The parts are begun in ascending order; once one has thrown no other is begun. When all threads are gone, throws
/// what the first of the parts that threw has thrown: the same whatever the number of threads, because all parts before it were
/// begun before it.
void kt_doInParts(std::size_t numParts, unsigned threads,
                  const std::function<void(std::size_t part, std::size_t worker)>& work);
