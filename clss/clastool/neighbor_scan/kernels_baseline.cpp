// The loops of kernels.h for every processor, written so that compilers vectorise them. docs/neighbor-scan.md, "The bounds", derives the
// error of each sum.

#include "kernels.h"
#include "kth_of_minima.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

/// 2^(p log2 v) by short polynomials; 0 for a v or a power below 2^-120.
float power(float v, float p)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    // v = 2^exponent m with m in [sqrt(1/2), sqrt(2)).
    const auto exponent = static_cast<std::int32_t>((bits - 0x3F3504F3u) & 0xFF800000u) >> 23;
    const std::uint32_t mantissaBits = bits - (static_cast<std::uint32_t>(exponent) << 23);
    float m = 0.0f;
    std::memcpy(&m, &mantissaBits, sizeof m);
    // log2 m by the series of the inverse hyperbolic tangent in s = (m - 1) / (m + 1), |s| < 0.1716.
    const float s = (m - 1.0f) / (m + 1.0f);
    const float s2 = s * s;
    const float log2m = s * (2.8853900818f + s2 * (0.9617966939f + s2 * (0.5770780164f + s2 * 0.4121985831f)));
    // Terms are cut off at 2^126, so that the exponent does not overflow.
    const float y = std::min(p * (static_cast<float>(exponent) + log2m), 126.0f);
    if (!(v >= 0x1p-120f) || !(y >= -120.0f)) {
        return 0.0f;
    }
    // 2^y = 2^whole 2^rest with rest in [-1/2, 1/2].
    const float whole = std::floor(y + 0.5f);
    const float x = (y - whole) * 0.6931471806f;
    const float rest = 1.0f + x * (1.0f + x * (0.5f + x * (0.1666666667f + x * (0.0416666667f + x * 0.0083333333f))));
    const std::uint32_t scaleBits = static_cast<std::uint32_t>(static_cast<std::int32_t>(whole) + 127) << 23;
    float scale = 0.0f;
    std::memcpy(&scale, &scaleBits, sizeof scale);
    return rest * scale;
}

template <class Sum>
std::uint64_t rowsWithin(const Sum* sums, std::size_t count, Sum limit)
{
    std::uint64_t within = 0;
    for (std::size_t row = 0; row < count; ++row) {
        within |= std::uint64_t{sums[row] <= limit} << row;
    }
    return within;
}

struct Order1 {
    static float of(float d, float) { return std::abs(d); }
};

struct Order2 {
    static float of(float d, float) { return d * d; }
};

struct Order3 {
    static float of(float d, float) { return d * d * std::abs(d); }
};

struct OrderHalf {
    static float of(float d, float) { return std::sqrt(std::abs(d)); }
};

struct AnyOrder {
    static float of(float d, float order) { return power(std::abs(d), order); }
};

template <class Term>
std::uint64_t floatSums(const float* block, const float* query, std::size_t size, float order, float limit, float* sums)
{
    std::fill(sums, sums + kt_blockRows, 0.0f);
    for (std::size_t j = 0; j < size; ++j) {
        for (std::size_t row = 0; row < kt_blockRows; ++row) {
            sums[row] += Term::of(block[j * kt_blockRows + row] - query[j], order);
        }
    }
    return rowsWithin(sums, kt_blockRows, limit);
}

template <class Term>
void boxSums(const float* boxes, std::size_t count, const float* query, std::size_t size, float order, float* sums)
{
    std::fill(sums, sums + count, 0.0f);
    for (std::size_t j = 0; j < size; ++j) {
        const float* lows = boxes + 2 * j * count;
        for (std::size_t box = 0; box < count; ++box) {
            const float outside = std::max(lows[box] - query[j], query[j] - lows[count + box]);
            sums[box] += Term::of(std::max(outside, 0.0f), order);
        }
    }
}

std::uint64_t cells(const std::uint8_t* block, const std::uint8_t* quantizedBounds, std::size_t size,
                    std::uint16_t limit)
{
    constexpr std::size_t half = kt_blockRows / 2;
    std::uint16_t sums[kt_blockRows] = {};
    for (std::size_t j = 0; j < size; ++j) {
        const std::uint8_t* measurement = block + j * half;
        const std::uint8_t* bounds = quantizedBounds + j * kt_numCells;
        for (std::size_t i = 0; i < half; ++i) {
            sums[i] = static_cast<std::uint16_t>(sums[i] + bounds[measurement[i] & 15]);
            sums[i + half] = static_cast<std::uint16_t>(sums[i + half] + bounds[measurement[i] >> 4]);
        }
    }
    return rowsWithin(sums, kt_blockRows, limit);
}

std::uint64_t within(const float* sums, std::size_t count, float limit)
{
    return rowsWithin(sums, count, limit);
}

std::uint64_t least(const float* sums, std::size_t count)
{
    return rowsWithin(sums, count, *std::min_element(sums, sums + count));
}

float kth(const float* sums, std::size_t k)
{
    return kthOfMinima(sums, k);
}

template <class Term>
constexpr kt_OrderKernels kernelsOf = {floatSums<Term>, boxSums<Term>};

}  // namespace

const kt_ScanKernels kt_baselineKernels = {kernelsOf<Order1>,
                                           kernelsOf<Order2>,
                                           kernelsOf<Order3>,
                                           kernelsOf<OrderHalf>,
                                           kernelsOf<AnyOrder>,
                                           cells,
                                           within,
                                           least,
                                           kth,
                                           false};
