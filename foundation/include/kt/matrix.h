#pragma once

#include <kt/archive.h>
#include <kt/config.h>

#include <vector>

class ktNMMatrix;

/// Rows, columns, then the elements row by row.
KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktNMMatrix& matrix);

/// A matrix of doubles.
class KT_FOUNDATION_API ktNMMatrix {
public:
    /// No rows and no columns.
    ktNMMatrix() noexcept = default;
    /// Zeros. Throws: std::length_error for a negative number, or for more elements than memory can address.
    ktNMMatrix(long rows, long columns);

    long numRows() const noexcept { return rows_; }
    long numColumns() const noexcept { return columns_; }

    /// Throws: std::out_of_range outside the matrix.
    double operator()(long row, long column) const { return elements_[index(row, column)]; }
    /// Throws: std::out_of_range outside the matrix.
    double& operator()(long row, long column) { return elements_[index(row, column)]; }

    /// The elements row by row.
    const double* data() const noexcept { return elements_.data(); }
    double* data() noexcept { return elements_.data(); }

    /// Same shape and equal elements, compared exactly, no tolerance.
    friend bool operator==(const ktNMMatrix& a, const ktNMMatrix& b)
    {
        return a.rows_ == b.rows_ && a.columns_ == b.columns_ && a.elements_ == b.elements_;
    }
    friend bool operator!=(const ktNMMatrix& a, const ktNMMatrix& b) { return !(a == b); }

private:
    friend ktArchive& operator||(ktArchive& archive, ktNMMatrix& matrix);

    std::size_t index(long row, long column) const;

    long rows_ = 0;
    long columns_ = 0;
    std::vector<double> elements_;
};

template <>
struct ktLeastStoredSize<ktNMMatrix> {
    static constexpr std::size_t value = 8;
};
