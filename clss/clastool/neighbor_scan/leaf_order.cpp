// Sorts rows into the order of the leaves of a k-d tree, without building the tree. Rows are split at the median of the measurement
// with the largest spread, then each half in the same way, until one block is left. Splits lie between whole blocks.
// docs/neighbor-scan.md says what the order is for.

#include "leaf_order.h"

#include "kernels.h"

#include <kt/compiler.h>

#include <algorithm>
#include <vector>

namespace {

/// A row and its value of the measurement at which rows are split.
struct Keyed {
    float value;
    std::uint32_t row;
};

/// Moves the values for which `isLess` holds to the front, and returns their number. It swaps without a branch, because the processor
/// would often predict that branch wrong.
template <class IsLess>
std::size_t partition(Keyed* keyed, std::size_t count, IsLess isLess)
{
    std::size_t numLess = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Keyed here = keyed[i];
        keyed[i] = keyed[numLess];
        keyed[numLess] = here;
        numLess += isLess(here.value) ? 1 : 0;
    }
    return numLess;
}

/// A value near the one at place `left` of the sorted values, found from a sample.
float pivotOf(const Keyed* keyed, std::size_t count, std::size_t left)
{
    constexpr std::size_t sampled = 31;
    float sample[sampled];
    for (std::size_t i = 0; i < sampled; ++i) {
        sample[i] = keyed[i * count / sampled].value;
    }
    float* const pivot = sample + left * sampled / count;
    std::nth_element(sample, pivot, sample + sampled);
    return *pivot;
}

/// Moves the `left` smallest values to the front, in any order. Takes linear time: after a round that excludes few values,
/// std::nth_element does the rest.
void select(Keyed* keyed, std::size_t count, std::size_t left)
{
    constexpr std::size_t few = 256;
    for (std::size_t numDropped = count; count > few && numDropped * 16 >= count;) {
        const float pivot = pivotOf(keyed, count, left);
        std::size_t numLess = partition(keyed, count, [pivot](float value) { return value < pivot; });
        if (numLess > left) {
            numDropped = count - numLess;
            count = numLess;
            continue;
        }
        if (numLess == 0) {
            // No value is less than the pivot: values equal to it are taken, so that the round makes progress.
            numLess = partition(keyed, count, [pivot](float value) { return value == pivot; });
            if (numLess > left) {
                return;
            }
        }
        numDropped = numLess;
        keyed += numLess;
        count -= numLess;
        left -= numLess;
    }
    std::nth_element(keyed, keyed + left, keyed + count,
                     [](const Keyed& a, const Keyed& b) { return a.value < b.value; });
}

class LeafOrder {
public:
    LeafOrder(const float* values, std::size_t size, std::size_t numRows, kt_WatchedSteps& steps)
        : values_(values), size_(size), steps_(steps), keyed_(numRows), lows_(size), highs_(size)
    {
    }

    void sort(std::uint32_t* rows, std::size_t count)
    {
        while (count > kt_blockRows) {
            const std::size_t unit = count > kt_groupRows ? kt_groupRows : kt_blockRows;
            const std::size_t units = (count + unit - 1) / unit;
            const std::size_t left = (units + 1) / 2 * unit;
            split(rows, count, left);
            sort(rows, left);
            rows += left;
            count -= left;
        }
    }

private:
    void split(std::uint32_t* rows, std::size_t count, std::size_t left)
    {
        const float* const values = values_ + widest(rows, count);
        for (std::size_t i = 0; i < count; ++i) {
            steps_.count();
            keyed_[i] = {values[rows[i] * size_], rows[i]};
        }
        select(keyed_.data(), count, left);
        for (std::size_t i = 0; i < count; ++i) {
            rows[i] = keyed_[i].row;
        }
    }

    /// The measurement with the largest spread in a sample of the rows.
    std::size_t widest(const std::uint32_t* rows, std::size_t count)
    {
        constexpr std::size_t mostSampled = 64;
        const std::size_t sampled = std::min(count, mostSampled);
        const float* const first = values_ + *rows * size_;
        lows_.assign(first, first + size_);
        highs_.assign(first, first + size_);
        for (std::size_t i = 1; i < sampled; ++i) {
            const float* const row = values_ + rows[i * count / sampled] * size_;
            for (std::size_t j = 0; j < size_; ++j) {
                lows_[j] = std::min(lows_[j], row[j]);
                highs_[j] = std::max(highs_[j], row[j]);
            }
        }
        std::size_t best = 0;
        for (std::size_t j = 1; j < size_; ++j) {
            best = highs_[j] - lows_[j] > highs_[best] - lows_[best] ? j : best;
        }
        return best;
    }

    const float* const values_;
    const std::size_t size_;
    kt_WatchedSteps& steps_;
    std::vector<Keyed> keyed_;
    std::vector<float> lows_;
    std::vector<float> highs_;
};

}  // namespace

void kt_sortByLeaves(const float* values, std::size_t size, std::uint32_t* rows, const std::uint32_t* end,
                     kt_WatchedSteps& steps)
{
    const auto count = static_cast<std::size_t>(end - rows);
    if (count > kt_blockRows) {
        LeafOrder(values, size, count, steps).sort(rows, count);
    }
}

void kt_moveRows(float* values, std::size_t size, const std::uint32_t* order, std::size_t count, kt_WatchedSteps& steps)
{
    // Along each cycle of the permutation, so that one row has to wait. The places that come next are known some moves before.
    constexpr std::size_t lead = 4;
    std::vector<float> waiting(size);
    std::vector<bool> isThere(count);
    for (std::size_t first = 0; first < count; ++first) {
        if (isThere[first]) {
            continue;
        }
        std::copy_n(values + first * size, size, waiting.data());
        std::size_t ahead = first;
        for (std::size_t i = 0; i < lead; ++i) {
            ahead = order[ahead];
        }
        std::size_t place = first;
        for (; order[place] != first; place = order[place]) {
            steps.count();
            ahead = order[ahead];
            KT_PREFETCH(values + ahead * size);
            std::copy_n(values + order[place] * size, size, values + place * size);
            isThere[place] = true;
        }
        std::copy_n(waiting.data(), size, values + place * size);
        isThere[place] = true;
    }
}
