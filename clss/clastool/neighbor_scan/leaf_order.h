#pragma once

#include <cstddef>
#include <cstdint>

/// How many rows belong to one box of boxes.
constexpr std::size_t kt_groupRows = 64 * 64;

/// Brings rows into the order of the leaves of a k-d tree: each of its splits is at the median, or as near to it as leaves both sides
/// whole blocks (and whole groups of blocks, where there are more rows than one holds), of the measurement that spreads
/// most in a sample. `values` holds `size` measurements of row after row; `rows` to `end` are the rows to be sorted.
/// Cost: rows times the logarithm of the number of blocks. Throws: std::bad_alloc.
/// See: J. L. Bentley, "Multidimensional binary search trees used for associative searching", 1975.
void kt_sortByLeaves(const float* values, std::size_t size, std::uint32_t* rows, const std::uint32_t* end);
