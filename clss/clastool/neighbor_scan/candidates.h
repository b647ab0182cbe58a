#pragma once

#include "nearest_list.h"

#include <kt/scratch.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

// The lists of a search: the k smallest sums so far, the rows that may be among the nearest, and the rows with exact distances.

/// The k smallest values so far.
template <class Value>
class kt_Smallest {
public:
    explicit kt_Smallest(std::size_t k) : k_(k), values_(k <= mostSorted ? k : 2 * k) { clear(); }

    void clear()
    {
        std::fill_n(values_.data(), k_, std::numeric_limits<Value>::infinity());
        count_ = k_;
        bound_ = std::numeric_limits<Value>::infinity();
    }

    /// The largest of the k values; infinite while there are fewer.
    Value largest()
    {
        if (count_ > k_) {
            keepSmallest();
        }
        return isSorted() ? values_[k_ - 1] : bound_;
    }

    void take(Value value)
    {
        if (isSorted()) {
            insert(values_.data(), k_, value);
        } else if (value < bound_) {
            values_[count_++] = value;
            if (count_ == values_.size()) {
                keepSmallest();
            }
        }
    }

private:
    /// Up to this k the values are kept sorted, without a branch that depends on them. For more, values gather unsorted behind the k
    /// smallest, until they are as many again: then each costs a few steps, where a heap takes steps for each of its levels.
    static constexpr std::size_t mostSorted = 16;

    bool isSorted() const { return k_ <= mostSorted; }

    static void insert(Value* values, std::size_t size, Value value)
    {
        for (std::size_t place = size - 1; place > 0; --place) {
            values[place] = std::min(values[place], std::max(values[place - 1], value));
        }
        values[0] = std::min(values[0], value);
    }

    void keepSmallest()
    {
        Value* const values = values_.data();
        std::nth_element(values, values + k_ - 1, values + count_);
        count_ = k_;
        bound_ = values[k_ - 1];
    }

    std::size_t k_;
    std::size_t count_ = 0;
    Value bound_ = 0;
    kt_Scratch<Value, 512> values_;
};

/// A row that may be among the nearest, and its sum as far as it is known.
struct kt_Candidate {
    enum class Known : std::uint32_t { nothing, floatSum, simpleSum };

    std::uint32_t row;
    Known known;
    double sum;
};

/// Rows that may still be among the nearest.
class kt_Candidates {
public:
    /// With this many, some must be dropped before the next block of rows is taken.
    static constexpr std::size_t many = 1024;

    void add(const kt_Candidate& candidate) { entries_[count_++] = candidate; }

    /// Keeps the rows whose sum is within the limit for sums of its kind, without a branch that depends on the sums.
    void keepUpTo(double floatLimit, double simpleLimit)
    {
        const double limits[] = {std::numeric_limits<double>::infinity(), floatLimit, simpleLimit};
        std::size_t kept = 0;
        for (std::size_t i = 0; i < count_; ++i) {
            const kt_Candidate candidate = entries_[i];
            entries_[kept] = candidate;
            kept += candidate.sum <= limits[static_cast<std::size_t>(candidate.known)] ? 1 : 0;
        }
        count_ = kept;
    }
    void clear() { count_ = 0; }
    kt_Candidate* begin() { return entries_.data(); }
    kt_Candidate* end() { return entries_.data() + count_; }
    std::size_t size() const { return count_; }

private:
    std::array<kt_Candidate, many + 64> entries_;
    std::size_t count_ = 0;
};

/// The rows that decide the plain answer, with their exact distances, in any order. These are the rows nearer than the k-th smallest
/// distance and, of those at this distance, the first k in stored order: at most 2 k - 1.
class kt_ExactRows {
public:
    kt_ExactRows(std::size_t k, std::size_t numRows) : k_(k), entries_(std::min(2 * k, numRows)) {}

    bool isEmpty() const { return count_ == 0; }

    /// Requires: the distance is not NaN, as the norm of finite values never is.
    void add(std::uint32_t row, double distance)
    {
        const Entry entry{distance, row};
        if (count_ == entries_.size()) {
            if (!(entry < entries_[0])) {
                return;
            }
            std::pop_heap(entries_.begin(), entries_.end());
            --count_;
        }
        entries_[count_++] = entry;
        std::push_heap(entries_.begin(), entries_.begin() + count_);
    }

    /// Writes the rows of the plain answer; the size of `rows` is k.
    void finish(kt_Scratch<std::size_t, 256>& rows)
    {
        std::sort(entries_.begin(), entries_.begin() + count_,
                  [](const Entry& a, const Entry& b) { return a.row < b.row; });
        kt_NearestList list(k_);
        for (std::size_t i = 0; i < count_; ++i) {
            list.insert(entries_[i].row, entries_[i].distance);
        }
        for (std::size_t i = 0; i < rows.size(); ++i) {
            rows[i] = list.row(i);
        }
    }

private:
    struct Entry {
        double distance;
        std::uint32_t row;

        bool operator<(const Entry& other) const
        {
            return distance != other.distance ? distance < other.distance : row < other.row;
        }
    };

    const std::size_t k_;
    kt_Scratch<Entry, 512> entries_;
    std::size_t count_ = 0;
};
