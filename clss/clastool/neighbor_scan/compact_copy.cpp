#include "compact_copy.h"

#include "../clastool/revisions.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <typeinfo>

namespace {

/// Values beyond this, in magnitude, are left to the plain scan: their differences must not overflow.
constexpr double largestValue = 0x1p+1000;

/// How far a scaled value may be from 0; those that the copy was made for are within 1.
constexpr double largestScaled = 0x1p+20;

/// From how many measurements on the 7-bit level pays; below it the float level alone is faster.
constexpr std::size_t codesFrom = 160000;

constexpr double largestCode = 127.0;

/// Room for the rounding of a few operations in double.
constexpr double slightly = 1.0 + 0x1p-40;

}  // namespace

void kt_CompactCopy::make(const ktClassifierDataProviderMemory& store) noexcept
{
    isUsable_ = false;
    try {
        floats_.clear();
        codes_.clear();
        if (!measure(store)) {
            return;
        }
        builtRows_ = numRows_;
        reserveRows(numRows_);
        for (std::size_t row = 0; row < numRows_; ++row) {
            place(row, store.patterns_[row]->measurements_);
            store.patterns_[row]->isCopied_.store(true, std::memory_order_relaxed);
        }
        storeRevision_ = store.revision_;
        patternRevision_ = kt_patternRevision.load(std::memory_order_relaxed);
        isUsable_ = true;
    } catch (...) {
        // Without memory for a copy, runs take longer and answer the same.
    }
}

/// Checks that the store can be copied, and finds offsets and scale. Returns false if it cannot.
bool kt_CompactCopy::measure(const ktClassifierDataProviderMemory& store)
{
    const auto& patterns = store.patterns_;
    // A store derived from the library's may count and give out its patterns in its own way.
    if (typeid(store) != typeid(ktClassifierDataProviderMemory) || patterns.empty() || patterns.front().isNull()) {
        return false;
    }
    numRows_ = patterns.size();
    size_ = patterns.front()->measurements_.size();
    if (size_ == 0) {
        return false;
    }
    std::vector<double> lows(size_, std::numeric_limits<double>::infinity());
    std::vector<double> highs(size_, -std::numeric_limits<double>::infinity());
    for (const auto& pattern : patterns) {
        if (pattern.isNull() || pattern->measurements_.size() != size_ || pattern->numInvalid() != 0) {
            return false;
        }
        for (std::size_t j = 0; j < size_; ++j) {
            const double value = pattern->measurements_[j];
            if (!(std::abs(value) <= largestValue)) {
                return false;
            }
            lows[j] = std::min(lows[j], value);
            highs[j] = std::max(highs[j], value);
        }
    }
    offsets_.resize(size_);
    reach_ = 1.0;
    floatError_ = 0.0;
    codeError1_ = 0.0;
    codeError2_ = 0.0;
    double reach = 0.0;
    for (std::size_t j = 0; j < size_; ++j) {
        offsets_[j] = lows[j] + (highs[j] - lows[j]) / 2;
        reach = std::max(reach, (highs[j] - lows[j]) / 2);
    }
    // Values whose spread is lost in their magnitude, or that need a scale out of range, are left to the plain scan.
    int exponent = 0;
    std::frexp(reach, &exponent);
    if (std::abs(exponent) > 900) {
        return false;
    }
    scale_ = reach > 0.0 ? std::ldexp(1.0, -exponent) : 1.0;
    hasCodes_ = size_ > 0 && numRows_ >= codesFrom / size_ && reach > 0.0;
    if (hasCodes_) {
        codeOffsets_ = lows;
        double range = 0.0;
        for (std::size_t j = 0; j < size_; ++j) {
            range = std::max(range, (highs[j] - lows[j]) * scale_);
        }
        step_ = range / largestCode;
        hasCodes_ = step_ > 0.0;
    }
    return true;
}

void kt_CompactCopy::reserveRows(std::size_t rows)
{
    const std::size_t blocks = (rows + kt_blockRows - 1) / kt_blockRows;
    floats_.resize(blocks * kt_blockRows * size_);
    if (hasCodes_) {
        codes_.resize(blocks * kt_blockRows * (size_ + size_ % 2));
    }
}

void kt_CompactCopy::place(std::size_t row, const std::vector<double>& measurements)
{
    float* values = floats_.data() + row / kt_blockRows * kt_blockRows * size_ + row % kt_blockRows;
    for (std::size_t j = 0; j < size_; ++j) {
        const double scaled = (measurements[j] - offsets_[j]) * scale_;
        const auto rounded = static_cast<float>(scaled);
        values[j * kt_blockRows] = rounded;
        reach_ = std::max(reach_, std::abs(static_cast<double>(rounded)));
        // The subtraction of the offset was rounded too.
        const double lost = 0x1p-52 * scale_ * (std::abs(measurements[j]) + std::abs(offsets_[j]));
        floatError_ = std::max(floatError_, (std::abs(static_cast<double>(rounded) - scaled) + lost) * slightly);
    }
    if (hasCodes_) {
        placeCodes(row, measurements);
    }
}

void kt_CompactCopy::placeCodes(std::size_t row, const std::vector<double>& measurements)
{
    const std::size_t evenSize = size_ + size_ % 2;
    std::uint8_t* codes = codes_.data() + row / kt_blockRows * kt_blockRows * evenSize + row % kt_blockRows * 2;
    double absolute = 0.0;
    double squares = 0.0;
    for (std::size_t j = 0; j < size_; ++j) {
        const double scaled = (measurements[j] - codeOffsets_[j]) * scale_;
        const double code = std::clamp(std::floor(scaled / step_ + 0.5), 0.0, largestCode);
        codes[j / 2 * 2 * kt_blockRows + j % 2] = static_cast<std::uint8_t>(code);
        const double lost = 0x1p-52 * scale_ * (std::abs(measurements[j]) + std::abs(codeOffsets_[j]));
        const double error = std::abs(code * step_ - scaled) * slightly + lost;
        absolute += error;
        squares += error * error;
    }
    const double rounding = 1.0 + 0x1p-50 * static_cast<double>(size_ + 8);
    codeError1_ = std::max(codeError1_, absolute * rounding);
    codeError2_ = std::max(codeError2_, std::sqrt(squares) * rounding);
}

bool kt_CompactCopy::isCurrent(const ktClassifierDataProviderMemory& store) const noexcept
{
    return isUsable_ && store.revision_ == storeRevision_ &&
           kt_patternRevision.load(std::memory_order_relaxed) == patternRevision_;
}

void kt_CompactCopy::append(const ktClassifierDataProviderMemory& store) noexcept
{
    try {
        if (appendLast(store)) {
            return;
        }
    } catch (...) {
        // Without memory to grow there may still be some for a copy of the right size.
    }
    make(store);
}

bool kt_CompactCopy::appendLast(const ktClassifierDataProviderMemory& store)
{
    // Made anew when a quarter was added, so that offsets, scale and codes keep fitting; each row is then copied a bounded
    // number of times.
    if (!isUsable_ || store.patterns_.size() != numRows_ + 1 || store.revision_ != storeRevision_ + 1 ||
        kt_patternRevision.load(std::memory_order_relaxed) != patternRevision_ ||
        numRows_ >= builtRows_ + builtRows_ / 4) {
        return false;
    }
    const ktFeaturePattern& pattern = *store.patterns_.back();
    if (pattern.measurements_.size() != size_ || pattern.numInvalid() != 0) {
        return false;
    }
    for (std::size_t j = 0; j < size_; ++j) {
        // Far outside what the scale was chosen for, a value could leave the range of a float.
        if (!(std::abs(pattern.measurements_[j] - offsets_[j]) * scale_ <= largestScaled)) {
            return false;
        }
    }
    reserveRows(numRows_ + 1);
    place(numRows_, pattern.measurements_);
    pattern.isCopied_.store(true, std::memory_order_relaxed);
    ++numRows_;
    storeRevision_ = store.revision_;
    return true;
}
