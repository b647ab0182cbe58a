#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

// The linear algebra of a normal density: the floored correlations and their factor.

namespace kt_normal {

/// The floor of docs/numerics.md.
constexpr double eigenvalueFloor = 1e-8;

/// Rows of a square matrix in one block.
using Square = std::vector<double>;

/// The triangular factor of a symmetric positive definite matrix, R = U'U, in place of its upper triangle; false if it is not
/// positive definite. Each element subtracts its products in ascending order; row by row, so that a compiler's vectors hold
/// neighbours. See: G. H. Golub, C. F. Van Loan, "Matrix Computations", 1996, on the Cholesky factorisation.
inline bool factorise(double* matrix, std::size_t size)
{
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
    }
    return true;
}

inline bool isPositiveDefiniteAbove(const Square& matrix, std::size_t size, double shift)
{
    Square shifted = matrix;
    for (std::size_t i = 0; i < size; ++i) {
        shifted[i * size + i] -= shift;
    }
    return factorise(shifted.data(), size);
}

/// One rotation of Jacobi's method: makes the element (p, q) zero and notes the rotation in `vectors`.
inline void rotate(Square& matrix, Square& vectors, std::size_t size, std::size_t p, std::size_t q)
{
    const double off = matrix[p * size + q];
    if (off == 0.0) {
        return;
    }
    const double theta = (matrix[q * size + q] - matrix[p * size + p]) / (2.0 * off);
    const double t = (theta < 0.0 ? -1.0 : 1.0) / (std::abs(theta) + std::sqrt(theta * theta + 1.0));
    const double c = 1.0 / std::sqrt(t * t + 1.0);
    const double s = t * c;
    for (std::size_t k = 0; k < size; ++k) {
        const double kp = matrix[k * size + p];
        const double kq = matrix[k * size + q];
        matrix[k * size + p] = c * kp - s * kq;
        matrix[k * size + q] = s * kp + c * kq;
    }
    for (std::size_t k = 0; k < size; ++k) {
        const double pk = matrix[p * size + k];
        const double qk = matrix[q * size + k];
        matrix[p * size + k] = c * pk - s * qk;
        matrix[q * size + k] = s * pk + c * qk;
        const double vp = vectors[k * size + p];
        const double vq = vectors[k * size + q];
        vectors[k * size + p] = c * vp - s * vq;
        vectors[k * size + q] = s * vp + c * vq;
    }
}

/// Eigenvalues and eigenvectors (columns of the result) of a symmetric matrix, by cyclic rotations: the simplest method
/// that finds small eigenvalues well. See: C. G. J. Jacobi, 1846; G. H. Golub, C. F. Van Loan, "Matrix Computations", 1996.
inline Square diagonalise(Square& matrix, std::size_t size)
{
    Square vectors(size * size, 0.0);
    for (std::size_t i = 0; i < size; ++i) {
        vectors[i * size + i] = 1.0;
    }
    // It converges quadratically; the bound only makes sure that rounding cannot keep it going.
    for (int sweep = 0; sweep < 30; ++sweep) {
        double off = 0.0;
        for (std::size_t p = 0; p < size; ++p) {
            for (std::size_t q = p + 1; q < size; ++q) {
                off += matrix[p * size + q] * matrix[p * size + q];
            }
        }
        if (off < 1e-40) {
            break;
        }
        for (std::size_t p = 0; p < size; ++p) {
            for (std::size_t q = p + 1; q < size; ++q) {
                rotate(matrix, vectors, size, p, q);
            }
        }
    }
    return vectors;
}

/// Raises the eigenvalues of a correlation matrix to the floor; leaves a matrix alone that has none below it.
inline void floorEigenvalues(Square& matrix, std::size_t size)
{
    if (isPositiveDefiniteAbove(matrix, size, eigenvalueFloor)) {
        return;
    }
    Square diagonal = matrix;
    const Square vectors = diagonalise(diagonal, size);
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (std::size_t k = 0; k < size; ++k) {
                const double eigenvalue = std::max(diagonal[k * size + k], eigenvalueFloor);
                sum += vectors[i * size + k] * eigenvalue * vectors[j * size + k];
            }
            matrix[i * size + j] = sum;
            matrix[j * size + i] = sum;
        }
    }
}

/// Factorises a floored correlation matrix. Rounding can leave it short of positive definite by a few of its last bits, so
/// the diagonal is raised, a little more each time, until it is.
/// `element(i, j)` tells the upper triangle of the matrix.
template <class Element>
void factoriseFloored(double* factor, std::size_t size, Element element)
{
    double raise = 0.0;
    do {
        for (std::size_t i = 0; i < size; ++i) {
            factor[i * size + i] = element(i, i) + raise;
            for (std::size_t j = i + 1; j < size; ++j) {
                factor[i * size + j] = element(i, j);
            }
        }
        raise = raise == 0.0 ? 0x1p-40 : raise * 4.0;
    } while (!factorise(factor, size));
}

/// z' R^-1 z, with R given by its factor. Overwrites z.
inline double squaredLength(const double* factor, double* z, std::size_t size)
{
    double squares = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        double sum = z[i];
        for (std::size_t j = 0; j < i; ++j) {
            sum -= factor[j * size + i] * z[j];
        }
        z[i] = sum / factor[i * size + i];
        squares += z[i] * z[i];
    }
    return squares;
}

/// How many rows of a whitening matrix are worked on at once: enough that no sum waits for its last addition.
constexpr std::size_t lanes = 8;

/// The inverse of a factor's transpose, a lower triangle, column j divided by deviation j: it turns differences from the
/// mean into independent numbers of variance 1. Laid out in blocks of `lanes` rows, column by column as far as the block
/// reaches, and padded with zero rows.
inline Square whitening(const Square& factor, const std::vector<double>& deviations)
{
    const std::size_t size = deviations.size();
    Square inverse(size * size, 0.0);
    for (std::size_t j = 0; j < size; ++j) {
        for (std::size_t i = j; i < size; ++i) {
            double sum = i == j ? 1.0 : 0.0;
            for (std::size_t k = j; k < i; ++k) {
                sum -= factor[k * size + i] * inverse[k * size + j];
            }
            inverse[i * size + j] = sum / factor[i * size + i];
        }
    }
    Square blocks;
    for (std::size_t first = 0; first < size; first += lanes) {
        for (std::size_t j = 0; j < std::min(first + lanes, size); ++j) {
            for (std::size_t i = first; i < first + lanes; ++i) {
                blocks.push_back(i < size ? inverse[i * size + j] / deviations[j] : 0.0);
            }
        }
    }
    return blocks;
}

}  // namespace kt_normal
