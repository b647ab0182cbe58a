#pragma once

#include <kt/archive.h>
#include <kt/config.h>

#include <limits>

class ktRange;

/// The low end, then the high end.
KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktRange& range);

/// A closed interval of doubles. A low end above the high end, or a NaN at either, is an interval that holds nothing.
class ktRange {
public:
    /// [0, 0].
    ktRange() noexcept = default;
    /// [low, high]. Nothing is checked.
    ktRange(double low, double high) noexcept : low_(low), high_(high) {}

    /// As given, also above the high end.
    double low() const noexcept { return low_; }
    /// As given, also below the low end.
    double high() const noexcept { return high_; }

    /// low <= value <= high; both ends belong to it, NaN never.
    bool isWithin(double value) const noexcept { return low_ <= value && value <= high_; }

    /// Everything but NaN, the infinities included.
    static ktRange FullRange() noexcept
    {
        return {-std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    }

    /// Both ends equal, compared exactly, no tolerance.
    friend bool operator==(const ktRange& a, const ktRange& b) noexcept
    {
        return a.low_ == b.low_ && a.high_ == b.high_;
    }
    friend bool operator!=(const ktRange& a, const ktRange& b) noexcept { return !(a == b); }

private:
    friend KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktRange& range);

    double low_ = 0.0;
    double high_ = 0.0;
};

template <>
struct ktLeastStoredSize<ktRange> {
    static constexpr std::size_t value = 16;
};
