#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

/// A bound on the k-th smallest distance by the norm of one order p, and the largest sums of |x - q|^p that a row among the k nearest can
/// have. Sums come from floats or, for the simple orders, from plain arithmetic in double. Rounding affects both, and the exact
/// routine; docs/neighbor-scan.md, "The bounds", derives each error. Lengths are multiplied by a scale, a power of two.
class kt_DistanceLimits {
public:
    /// Room for the rounding of a few operations and powers in double.
    static constexpr double slightly = 1.0 + 0x1p-36;
    /// Beyond this a float query is of no use. Rows that were brought nearer to zero lie far beyond.
    static constexpr double largestFloatQuery = 0x1p+40;

    /// `powerError`: how far the float term of an order that is not simple may be off, relative to itself.
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
        // The usual order takes no call.
        const double reach = order_ == 2.0 ? 0x1p+400 : std::exp2(safeExponent / std::max(1.0, order_));
        least_ = scale / reach;
        largest_ = scale * reach;
        if (order_ < 1.0) {
            least_ = std::pow(least_, order_);
            largest_ = std::pow(largest_, order_);
        }
    }

    /// Whether the bounds hold for this order and so many measurements. The other operations require it.
    bool areCertified() const { return order_ >= leastOrder && exactError_ < 0.25 && floatSumError_ < 0.25; }

    /// 0.5, 1, 2 and 3, whose sums take no general power.
    bool isSimpleOrder() const { return order_ == 1.0 || order_ == 2.0 || order_ == 3.0 || order_ == 0.5; }

    /// The relative error of a float sum.
    double floatSumError() const { return floatSumError_; }

    /// The largest sum of a row among the k nearest: as a real number, from floats, from plain arithmetic.
    double trueLimit() const { return trueLimit_; }
    float floatLimit() const { return floatLimit_; }
    double simpleLimit() const { return trueLimit_ * slightly + simpleLost(); }

    /// Notes how far the query lies from the offsets of the floats, in the measurement in which it lies farthest. Rounding moves a value
    /// and the query by 2^-24 of their sizes, and a value is at most as large as the query and their difference together.
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

    /// Widens a bound on the k-th smallest distance, a sum for orders below 1, by the exact routine's rounding; infinite where that
    /// routine may not tell distances apart.
    double guarded(double bound) const
    {
        const double widened = bound * widening_;
        return widened < largest_ ? std::max(widened, least_) : std::numeric_limits<double>::infinity();
    }

    /// The sum of powers that belongs to a norm.
    double raised(double norm) const
    {
        if (order_ == 2.0) {
            return norm * norm;
        }
        return order_ == 1.0 ? norm : std::pow(norm, order_) * slightly;
    }

private:
    /// Below, a value that was brought nearer to zero could pass for one that is not.
    static constexpr double leastOrder = 0x1p-5;
    /// Beyond 2^+-800 the exact routine's powers may leave the range in which they tell distances apart.
    static constexpr double safeExponent = 800.0;
    static constexpr double largestFloat = std::numeric_limits<float>::max();

    /// For the terms that are subnormal, or the root of a subnormal difference.
    double simpleLost() const { return size_ * 0x1p-500; }

    double root(double sum) const
    {
        if (order_ == 2.0) {
            return std::sqrt(sum);
        }
        return order_ == 1.0 ? sum : std::pow(sum, 1.0 / order_) * slightly;
    }

    /// The k-th smallest sum is at most `sum`; rounding moved norms, or sums for orders below 1, by up to `error`.
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
    // Relative errors of the exact routine and of a float sum, and the factors that make up for them.
    const double exactError_;
    const double floatSumError_;
    const double widening_;
    const double floatWidening_;
    // How much a float sum may lack because small terms count as 0, and the value from which it may be too small because large terms
    // do not grow any more.
    double floatLost_ = 0.0;
    double largestSum_ = 0.0;
    // The range in which the exact routine tells distances apart; as sums for orders below 1.
    double least_ = 0.0;
    double largest_ = 0.0;
    // How far rounding to floats moves a norm, or a sum for orders below 1.
    double floatError_ = 0.0;
    // What bounds the k-th smallest distance, as a norm or, for orders below 1, a sum.
    double bound_ = std::numeric_limits<double>::infinity();
    double trueLimit_ = std::numeric_limits<double>::infinity();
    float floatLimit_ = std::numeric_limits<float>::infinity();
};
