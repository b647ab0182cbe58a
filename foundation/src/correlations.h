#pragma once

#include "evaluation_steps.h"

#include <kt/attention.h>
#include <kt/failure.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

// The linear algebra of a normal density: makes correlations positive definite, factorises them and inverts the factor.

namespace kt_normal {

/// Correlations count as singular unless all their eigenvalues exceed this. docs/numerics.md gives the reasons for the constants.
constexpr double leastEigenvalue = 1e-8;
/// Degenerate and singular groups keep this share of each correlation.
constexpr double keptShare = 1.0 - 1e-2;

/// A square matrix, row after row.
using Square = std::vector<double>;

/// Polls the attention check about once in `every` multiplications.
class Polls {
public:
    static constexpr std::size_t every = std::size_t{1} << 24;

    /// Throws: what the attention check raises.
    void count(std::size_t multiplications)
    {
        done_ += multiplications;
        if (done_ >= every) {
            done_ = 0;
            const long status = kfCheckAttention();
            if (status != 0) {
                kfThrowExceptionOnFailure(status);
            }
        }
    }

private:
    std::size_t done_ = 0;
};

/// Replaces the upper triangle of a symmetric matrix R by its triangular factor U, R = U'U. Returns false if R is not positive
/// definite. Each element subtracts its products in ascending order. The loops go row by row, so that compilers can vectorise them.
/// See: G. H. Golub, C. F. Van Loan, "Matrix Computations", 1996, on the Cholesky factorisation.
/// Throws: what the attention check raises, for matrices of some hundred rows.
inline bool factorise(double* matrix, std::size_t size)
{
    Polls polls;
    for (std::size_t k = 0; k < size; ++k) {
        double* pivotRow = matrix + k * size;
        if (!(pivotRow[k] > 0.0)) {
            return false;
        }
        const double pivot = std::sqrt(pivotRow[k]);
        pivotRow[k] = pivot;
        for (std::size_t j = k + 1; j < size; ++j) {
            pivotRow[j] = pivotRow[j] / pivot;
        }
        for (std::size_t i = k + 1; i < size; ++i) {
            double* row = matrix + i * size;
            const double multiplier = pivotRow[i];
            for (std::size_t j = i; j < size; ++j) {
                row[j] -= multiplier * pivotRow[j];
            }
        }
        polls.count((size - k) * (size - k) / 2);
    }
    return true;
}

/// Whether all eigenvalues exceed `leastEigenvalue`.
inline bool isRegular(const Square& matrix, std::size_t size)
{
    Square shifted = matrix;
    for (std::size_t i = 0; i < size; ++i) {
        shifted[i * size + i] -= leastEigenvalue;
    }
    return factorise(shifted.data(), size);
}

/// Multiplies all elements outside the diagonal by the share.
inline void shrink(double* matrix, std::size_t size, double share)
{
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < size; ++j) {
            matrix[i * size + j] *= i == j ? 1.0 : share;
        }
    }
}

/// Makes correlations regular: shrinks them if the group is degenerate or the correlations are singular. Correlations from a damaged
/// archive may have negative eigenvalues; they are shrunk again, more each time. The correlations of fewer measurements are then
/// regular too, because their eigenvalues lie between those of the whole matrix.
inline void makeRegular(Square& correlations, std::size_t size, bool isDegenerate)
{
    bool isDone = !isDegenerate && isRegular(correlations, size);
    for (double share = keptShare; !isDone; share *= share) {
        shrink(correlations.data(), size, share);
        isDone = isRegular(correlations, size);
    }
}

/// z' R^-1 z, for the factor of R. Overwrites z. Each element subtracts its products in ascending order.
inline double squaredLength(const double* factor, double* z, std::size_t size)
{
    double squares = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        const double* row = factor + i * size;
        z[i] = z[i] / row[i];
        squares += z[i] * z[i];
        for (std::size_t j = i + 1; j < size; ++j) {
            z[j] -= row[j] * z[i];
        }
    }
    return squares;
}

/// The inverse of the transposed factor: a lower triangle. Each element subtracts its products in ascending order.
inline Square inverseOfTranspose(const Square& factor, std::size_t size)
{
    Square inverse(size * size, 0.0);
    Polls polls;
    for (std::size_t i = 0; i < size; ++i) {
        double* row = inverse.data() + i * size;
        row[i] = 1.0;
        for (std::size_t k = 0; k < i; ++k) {
            const double multiplier = factor[k * size + i];
            const double* above = inverse.data() + k * size;
            for (std::size_t j = 0; j <= k; ++j) {
                row[j] -= multiplier * above[j];
            }
        }
        for (std::size_t j = 0; j <= i; ++j) {
            row[j] = row[j] / factor[i * size + i];
        }
        polls.count(i * i / 2);
    }
    return inverse;
}

/// The number of columns in all blocks of a whitening matrix before the block of row `first`. The first block has `rowsPerBlock`
/// columns, the second one twice as many, and so on.
constexpr std::size_t columnsBefore(std::size_t first)
{
    return first / rowsPerBlock * (first + rowsPerBlock) / 2;
}

/// The whitening matrix: `inverseOfTranspose` with column j divided by deviation j. It turns differences from the mean into independent
/// numbers of variance 1. It lies in blocks of `rowsPerBlock` rows. A block holds its columns in order, up to the diagonal. The last
/// block is padded with zero rows.
inline std::vector<Column> whitening(const Square& factor, const std::vector<double>& deviations)
{
    const std::size_t size = deviations.size();
    const Square inverse = inverseOfTranspose(factor, size);
    std::vector<Column> blocks;
    blocks.reserve(columnsBefore(inBlocks(size)));
    for (std::size_t first = 0; first < size; first += rowsPerBlock) {
        for (std::size_t j = 0; j < std::min(first + rowsPerBlock, size); ++j) {
            Column column = {};
            for (std::size_t i = first; i < std::min(first + rowsPerBlock, size); ++i) {
                column.rows[i - first] = inverse[i * size + j] / deviations[j];
            }
            blocks.push_back(column);
        }
    }
    return blocks;
}

}  // namespace kt_normal
