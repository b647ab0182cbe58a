#pragma once

#include <cstddef>
#include <cstdint>

/// The number of rows of a group of blocks.
constexpr std::size_t kt_groupRows = 64 * 64;

/// Sorts rows into the order of the leaves of a k-d tree. Each split is at the median of the measurement with the largest spread in a
/// sample, moved to the nearest boundary of a block (of a group of blocks, if there are more rows than one group holds). `values`
/// holds `size` measurements of each row in turn; `rows` to `end` are the rows to be sorted.
/// Cost: rows times the logarithm of the number of blocks. Throws: std::bad_alloc.
/// See: J. L. Bentley, "Multidimensional binary search trees used for associative searching", 1975.
void kt_sortByLeaves(const float* values, std::size_t size, std::uint32_t* rows, const std::uint32_t* end);
