#pragma once

#include "support/normal_reference.h"
#include "support/test.h"

// What the tests of the normal density share.

namespace kt_test {

using Indices = std::vector<long>;

/// Failure codes are 32 bits wide, whatever a long is.
inline constexpr std::uint32_t noValidData = 0x80000B61u;
inline constexpr std::uint32_t sizesDisagree = 0x80000B62u;

/// A row with flags of its own.
class FlaggedRow {
public:
    explicit FlaggedRow(std::vector<double> values, const Indices& invalid = {}) : values_(std::move(values))
    {
        valid_.fill(true);
        for (const long index : invalid) {
            valid_.at(static_cast<std::size_t>(index)) = false;
        }
    }

    ktNormalDensity::Row row() const { return {values_.data(), valid_.data(), values_.size()}; }

private:
    std::vector<double> values_;
    std::array<bool, 1024> valid_;
};

inline std::uint32_t learn(ktNormalDensity& density, const std::list<FlaggedRow>& list, double normalizer = 1.0)
{
    std::vector<ktNormalDensity::Row> rows;
    for (const FlaggedRow& flagged : list) {
        rows.push_back(flagged.row());
    }
    return static_cast<std::uint32_t>(density.accumulate(rows.data(), rows.size(), normalizer));
}

inline std::uint32_t learn(ktNormalDensity& density, const Rows& rows, double normalizer = 1.0)
{
    std::list<FlaggedRow> list;
    for (const std::vector<double>& row : rows) {
        list.emplace_back(row);
    }
    return learn(density, list, normalizer);
}

inline ktNormalDensity learnt(const Rows& rows)
{
    ktNormalDensity density;
    EXPECT_EQ(learn(density, rows), 0u);
    return density;
}

inline std::uint32_t codeOf(const ktNormalDensity& density, const FlaggedRow& flagged)
{
    double value = 77.0;
    const auto code = static_cast<std::uint32_t>(density.logDensity(flagged.row(), value));
    EXPECT_TRUE(code == 0 || value == 77.0) << "a failing call gives no value";
    return code;
}

inline double logOf(const ktNormalDensity& density, const std::vector<double>& values, const Indices& invalid = {})
{
    double value = 77.0;
    EXPECT_EQ(density.logDensity(FlaggedRow(values, invalid).row(), value), 0);
    return value;
}

inline ktNMMatrix matrix(const Rows& rows)
{
    ktNMMatrix made(static_cast<long>(rows.size()), static_cast<long>(rows.front().size()));
    for (long i = 0; i < made.numRows(); ++i) {
        for (long j = 0; j < made.numColumns(); ++j) {
            made(i, j) = rows[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)];
        }
    }
    return made;
}

inline ktNormalDensity restored(const Rows& mean, const Rows& covariance, long count = 10)
{
    ktNormalDensity density;
    density.restore(matrix(mean), matrix(covariance), count);
    return density;
}

/// Bit for bit, so that NaN equals itself and 0.0 does not equal -0.0.
inline bool sameBits(const ktNMMatrix& a, const ktNMMatrix& b)
{
    if (a.numRows() != b.numRows() || a.numColumns() != b.numColumns()) {
        return false;
    }
    const auto bytes = static_cast<std::size_t>(a.numRows() * a.numColumns()) * sizeof(double);
    return bytes == 0 || std::memcmp(a.data(), b.data(), bytes) == 0;
}

inline bool sameBits(const ktNormalDensity& a, const ktNormalDensity& b)
{
    return sameBits(a.mean(), b.mean()) && sameBits(a.covariance(), b.covariance()) && a.count() == b.count();
}

}  // namespace kt_test
