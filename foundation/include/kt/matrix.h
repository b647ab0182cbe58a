#pragma once

#include <kt/archive.h>
#include <kt/config.h>

#include <utility>
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
    ktNMMatrix(const ktNMMatrix&) = default;
    /// Leaves the other without rows and columns.
    ktNMMatrix(ktNMMatrix&& other) noexcept
        : rows_(std::exchange(other.rows_, 0)),
          columns_(std::exchange(other.columns_, 0)),
          elements_(std::move(other.elements_))
    {
    }
    /// A copy. Changes nothing if memory runs out.
    ktNMMatrix& operator=(const ktNMMatrix& other)
    {
        // The elements first: they are the only part whose copy can fail.
        elements_ = other.elements_;
        rows_ = other.rows_;
        columns_ = other.columns_;
        return *this;
    }
    /// Leaves the other some matrix.
    ktNMMatrix& operator=(ktNMMatrix&& other) noexcept
    {
        elements_.swap(other.elements_);
        std::swap(rows_, other.rows_);
        std::swap(columns_, other.columns_);
        return *this;
    }
    ~ktNMMatrix() = default;

    /// At least 0.
    long numRows() const noexcept { return rows_; }
    /// At least 0.
    long numColumns() const noexcept { return columns_; }

    /// Throws: std::out_of_range outside the matrix.
    double operator()(long row, long column) const { return elements_[index(row, column)]; }
    /// Throws: std::out_of_range outside the matrix.
    double& operator()(long row, long column) { return elements_[index(row, column)]; }

    /// The elements row by row.
    const double* data() const noexcept { return elements_.data(); }
    /// The elements row by row.
    double* data() noexcept { return elements_.data(); }

    /// Same shape and equal elements, compared exactly, no tolerance.
    friend bool operator==(const ktNMMatrix& a, const ktNMMatrix& b)
    {
        return a.rows_ == b.rows_ && a.columns_ == b.columns_ && a.elements_ == b.elements_;
    }
    friend bool operator!=(const ktNMMatrix& a, const ktNMMatrix& b) { return !(a == b); }

private:
    friend KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktNMMatrix& matrix);

    std::size_t index(long row, long column) const;

    long rows_ = 0;
    long columns_ = 0;
    std::vector<double> elements_;
};

template <>
struct ktLeastStoredSize<ktNMMatrix> {
    static constexpr std::size_t value = 8;
};
