#pragma once

#include "../clastool/training_watch.h"

#include <cstddef>
#include <cstdint>

/// The number of rows of a group of blocks.
constexpr std::size_t kt_groupRows = 64 * 64;

/// Sorts rows into the order of the leaves of a k-d tree. Each split is at the median of the measurement with the largest spread in a
/// sample, moved to the nearest boundary of a block (of a group of blocks, if there are more rows than one group holds). `values`
/// holds `size` measurements of each row in turn; `rows` to `end` are the rows to be sorted.
/// Cost: rows times the logarithm of the number of blocks; a step for each row of each split. Throws: std::bad_alloc;
/// kt_WatchedSteps::GivenUp.
/// See: J. L. Bentley, "Multidimensional binary search trees used for associative searching", 1975.
void kt_sortByLeaves(const float* values, std::size_t size, std::uint32_t* rows, const std::uint32_t* end,
                     kt_WatchedSteps& steps);

/// Sorts rows of `size` values in place: row `order[i]` moves to place i. `order` holds each number below `count` once.
/// Cost: a step for each row, and a bit of memory. Throws: std::bad_alloc; kt_WatchedSteps::GivenUp.
void kt_moveRows(float* values, std::size_t size, const std::uint32_t* order, std::size_t count,
                 kt_WatchedSteps& steps);
