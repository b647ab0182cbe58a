// Lower bounds from four bits a measurement. Each of the 16 cells of a measurement has a bound for this query: the power of the
// distance to the nearest value in the cell, rounded down to whole units. A row is out if the sum of its bounds exceeds the limit.
// docs/neighbor-scan.md, "The bounds", the cell level.

#include "cell_filter.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double largestSum = 65535.0;

/// The number of measurements whose cells fill one block, of which a kernel takes the powers.
constexpr std::size_t together = kt_blockRows / kt_numCells;

std::size_t roundedUp(std::size_t size)
{
    return (size + together - 1) / together * together;
}

}  // namespace

kt_CellFilter::kt_CellFilter(const kt_CompactCopy& copy, const std::vector<double>& query, double order,
                             kt_FloatKernel powers, double error, kt_CellKernel sums)
    : copy_(copy),
      sums_(sums),
      size_(query.size()),
      bounds_(roundedUp(query.size()) * kt_numCells),
      quantizedBounds_(bounds_.size())
{
    const auto size = static_cast<double>(size_);
    largestUnits_ = std::min(127.0, std::floor(largestSum / size));
    // Fine units lose little when terms are rounded down. Coarse units lose little when terms are cut off at the largest bound: for
    // higher orders a few large terms dominate a sum.
    limitUnits_ = std::min(largestSum, std::floor(largestUnits_ * std::max(1.0, size / (4.0 * std::max(order, 1.0)))));
    bound(query, static_cast<float>(order), powers, static_cast<float>(1.0 - error));
}

void kt_CellFilter::bound(const std::vector<double>& query, float order, kt_FloatKernel powers, float belowOne)
{
    const float zero = 0.0f;
    for (std::size_t first = 0; first < size_; first += together) {
        float gaps[kt_blockRows] = {};
        for (std::size_t i = 0; i < std::min(together, size_ - first) * kt_numCells; ++i) {
            const double low = copy_.cellLows_[first * kt_numCells + i];
            const double high = copy_.cellHighs_[first * kt_numCells + i];
            const double q = query[first + i / kt_numCells];
            // An empty cell has its ends the wrong way round.
            const double gap = low > high ? 0.0 : std::max({low - q, q - high, 0.0});
            gaps[i] = static_cast<float>(std::min(gap * copy_.scale_, 0x1p+126));
        }
        float* bounds = bounds_.data() + first * kt_numCells;
        powers(gaps, &zero, 1, order, std::numeric_limits<float>::infinity(), bounds);
        std::transform(bounds, bounds + kt_blockRows, bounds, [belowOne](float power) { return power * belowOne; });
    }
}

/// Rounds the bounds down to whole units; `limit` has `limitUnits_` units.
void kt_CellFilter::quantizeBounds(double limit)
{
    const float unitsPerOne = static_cast<float>(std::min(limitUnits_ / limit, 1e30));
    const auto most = static_cast<float>(largestUnits_);
    std::transform(bounds_.begin(), bounds_.end(), quantizedBounds_.begin(), [=](float bound) {
        return static_cast<std::uint8_t>(static_cast<int>(std::min(bound * unitsPerOne, most)));
    });
    unitsPerOne_ = static_cast<double>(unitsPerOne);
    renewBelow_ = 0.75 * limit;
}

std::uint64_t kt_CellFilter::pass(std::size_t block, double limit)
{
    if (limit < renewBelow_) {
        quantizeBounds(limit);
    }
    constexpr double roundingOfProducts = 1.0 + 0x1p-20;
    const double units = std::min(limit * unitsPerOne_ * roundingOfProducts, largestSum);
    const std::uint8_t* cells = copy_.cells_.data() + block * (kt_blockRows / 2) * size_;
    return sums_(cells, quantizedBounds_.data(), size_, static_cast<std::uint16_t>(units));
}
