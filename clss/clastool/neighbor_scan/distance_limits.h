#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

/// A bound on the k-th smallest distance by the norm of one order p, and the largest sums of |x - q|^p that a row among the k nearest can
/// have. Sums are computed in floats or, for the simple orders, by plain arithmetic in double. Rounding affects both, and the exact
/// routine; docs/neighbor-scan.md, "The bounds", derives each error. Lengths are multiplied by a scale, a power of two.
class kt_DistanceLimits {
public:
    /// Room for the rounding of a few operations and powers in double.
    static constexpr double slightly = 1.0 + 0x1p-36;
    /// A query beyond this cannot use floats. Values that were brought nearer to zero are much larger.
    static constexpr double largestFloatQuery = 0x1p+40;

    /// `powerError`: the relative error of a float term of an order that is not simple.
    kt_DistanceLimits(double order, std::size_t size, double scale, double powerError)
        : order_(order),
          size_(static_cast<double>(size)),
          exactError_((8.0 * size_ + 16.0 * order + 2000.0) * 0x1p-53),
          floatSumError_((size_ + 2.0 * order + 8.0) * 0x1p-23 + (isSimpleOrder() ? 0.0 : powerError)),
          widening_((1.0 + exactError_) / (1.0 - exactError_) * slightly),
          floatWidening_(1.0 / (1.0 - floatSumError_) * slightly)
    {
        if (!areCertified()) {
            return;
        }
        floatLost_ = size_ * (order_ >= 1.0 ? 0x1p-120 : std::exp2(-120.0 * order_));
        largestSum_ = order_ >= 1.0 ? 0x1p+100 : std::exp2(100.0 * order_);
        // The usual order needs no call of exp2.
        const double reach = order_ == 2.0 ? 0x1p+400 : std::exp2(safeExponent / std::max(1.0, order_));
        least_ = scale / reach;
        largest_ = scale * reach;
        if (order_ < 1.0) {
            least_ = std::pow(least_, order_);
            largest_ = std::pow(largest_, order_);
        }
    }

    /// Whether the bounds hold for this order and number of measurements. The other operations require it.
    bool areCertified() const { return order_ >= leastOrder && exactError_ < 0.25 && floatSumError_ < 0.25; }

    /// 0.5, 1, 2 and 3, whose sums take no general power.
    bool isSimpleOrder() const { return order_ == 1.0 || order_ == 2.0 || order_ == 3.0 || order_ == 0.5; }

    /// The relative error of a float sum.
    double floatSumError() const { return floatSumError_; }

    /// The largest sum of a row among the k nearest: as a real number, from floats, from plain arithmetic.
    double trueLimit() const { return trueLimit_; }
    float floatLimit() const { return floatLimit_; }
    double simpleLimit() const { return trueLimit_ * slightly + simpleLost(); }

    /// `farthest` is the largest distance of the query from the offsets in one measurement. Rounding moves a value and the query by 2^-24
    /// of their sizes, and a value is at most as large as the query plus their difference.
    void measureFrom(double farthest)
    {
        const double error = farthest * 0x1p-23 * (1.0 + 0x1p-20) + 0x1p-147;
        floatError_ = (order_ >= 1.0 ? error * root(size_) : std::pow(error, order_) * size_) * slightly;
        renewFloatLimit();
    }

    /// `sum` is the k-th smallest float sum, or larger.
    void takeFloatSum(float sum)
    {
        if (static_cast<double>(sum) < largestSum_) {
            take((static_cast<double>(sum) + floatLost_) * floatWidening_, floatError_);
        }
    }

    /// `sum` is the k-th smallest sum by plain arithmetic, or larger.
    void takeSimpleSum(double sum) { take((sum + simpleLost()) * slightly, 0.0); }

    /// Widens a bound on the k-th smallest distance, a sum for orders below 1, by the exact routine's rounding. Infinite where that routine
    /// may not distinguish distances.
    double guarded(double bound) const
    {
        const double widened = bound * widening_;
        return widened < largest_ ? std::max(widened, least_) : std::numeric_limits<double>::infinity();
    }

    /// The sum of powers whose norm this is.
    double raised(double norm) const
    {
        if (order_ == 2.0) {
            return norm * norm;
        }
        return order_ == 1.0 ? norm : std::pow(norm, order_) * slightly;
    }

private:
    /// Below this order, values that were brought nearer to zero cannot be recognised by their terms.
    static constexpr double leastOrder = 0x1p-5;
    /// Beyond 2^+-800 the exact routine's powers may leave the range in which they distinguish distances.
    static constexpr double safeExponent = 800.0;
    static constexpr double largestFloat = std::numeric_limits<float>::max();

    /// The error of terms that are subnormal, or roots of subnormal differences.
    double simpleLost() const { return size_ * 0x1p-500; }

    double root(double sum) const
    {
        if (order_ == 2.0) {
            return std::sqrt(sum);
        }
        return order_ == 1.0 ? sum : std::pow(sum, 1.0 / order_) * slightly;
    }

    /// The k-th smallest sum is at most `sum`. Rounding moved norms, or sums for orders below 1, by at most `error`.
    void take(double sum, double error)
    {
        const double bound = guarded((order_ >= 1.0 ? root(sum) : sum) + error);
        if (bound < bound_) {
            bound_ = bound;
            trueLimit_ = (order_ >= 1.0 ? raised(bound) : bound) * slightly;
            renewFloatLimit();
        }
    }

    void renewFloatLimit()
    {
        const double widened = bound_ + floatError_;
        const double sum = order_ >= 1.0 ? raised(widened) : widened;
        const double limit = (sum * (1.0 + floatSumError_) + floatLost_) * slightly;
        floatLimit_ = limit < largestFloat / 2 ? static_cast<float>(limit * (1.0 + 0x1p-22))
                                               : std::numeric_limits<float>::infinity();
    }

    const double order_;
    const double size_;
    // Relative errors of the exact routine and of a float sum, and the factors that compensate for them.
    const double exactError_;
    const double floatSumError_;
    const double widening_;
    const double floatWidening_;
    // The most that a float sum may lack because small terms count as 0, and the value from which it may be too small because large terms
    // are cut off.
    double floatLost_ = 0.0;
    double largestSum_ = 0.0;
    // The range in which the exact routine distinguishes distances; as sums for orders below 1.
    double least_ = 0.0;
    double largest_ = 0.0;
    // How far rounding to floats moves a norm, or a sum for orders below 1.
    double floatError_ = 0.0;
    // The bound on the k-th smallest distance, as a norm or, for orders below 1, as a sum.
    double bound_ = std::numeric_limits<double>::infinity();
    double trueLimit_ = std::numeric_limits<double>::infinity();
    float floatLimit_ = std::numeric_limits<float>::infinity();
};
