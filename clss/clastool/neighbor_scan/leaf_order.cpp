#include "leaf_order.h"

#include "kernels.h"

#include <algorithm>
#include <vector>

namespace {

/// A row and its value in the measurement that is being split.
struct Keyed {
    float value;
    std::uint32_t row;
};

class LeafOrder {
public:
    LeafOrder(const float* values, std::size_t size, std::size_t numRows)
        : values_(values), size_(size), keyed_(numRows), lows_(size), highs_(size)
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
            keyed_[i] = {values[rows[i] * size_], rows[i]};
        }
        const auto first = keyed_.begin();
        std::nth_element(first, first + static_cast<std::ptrdiff_t>(left), first + static_cast<std::ptrdiff_t>(count),
                         [](const Keyed& a, const Keyed& b) { return a.value < b.value; });
        for (std::size_t i = 0; i < count; ++i) {
            rows[i] = keyed_[i].row;
        }
    }

    /// The measurement that spreads most in a sample of the rows.
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
    std::vector<Keyed> keyed_;
    std::vector<float> lows_;
    std::vector<float> highs_;
};

}  // namespace

void kt_sortByLeaves(const float* values, std::size_t size, std::uint32_t* rows, const std::uint32_t* end)
{
    const auto count = static_cast<std::size_t>(end - rows);
    if (count > kt_blockRows) {
        LeafOrder(values, size, count).sort(rows, count);
    }
}
