#include <kt/normal_density.h>

#include <kt/scratch.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

constexpr long success = 0;
// As unsigned 32-bit values in a long: compared as 32 bits where they arrive.
constexpr long noValidData = static_cast<long>(0x80000B61u);
constexpr long sizesDisagree = static_cast<long>(0x80000B62u);

constexpr long largestCount = 2147483647L;

// The floors of docs/numerics.md.
constexpr double relativeDeviationFloor = 0x1p-23;
constexpr double lastResortDeviationFloor = 1e-9;
constexpr double eigenvalueFloor = 1e-8;

constexpr double logTwoPi = 1.8378770664093454835606594728112;

/// Rows of a square matrix in one block.
using Square = std::vector<double>;

/// The lower triangular factor of a symmetric positive definite matrix, in place of its lower triangle; false if it is not
/// positive definite. See: G. H. Golub, C. F. Van Loan, "Matrix Computations", 1996, on the Cholesky factorisation.
bool factorise(double* matrix, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = matrix[i * size + j];
            for (std::size_t k = 0; k < j; ++k) {
                sum -= matrix[i * size + k] * matrix[j * size + k];
            }
            if (i != j) {
                matrix[i * size + j] = sum / matrix[j * size + j];
            } else if (sum > 0.0) {
                matrix[i * size + i] = std::sqrt(sum);
            } else {
                return false;
            }
        }
    }
    return true;
}

bool isPositiveDefiniteAbove(const Square& matrix, std::size_t size, double shift)
{
    Square shifted = matrix;
    for (std::size_t i = 0; i < size; ++i) {
        shifted[i * size + i] -= shift;
    }
    return factorise(shifted.data(), size);
}

/// One rotation of Jacobi's method: makes the element (p, q) zero and notes the rotation in `vectors`.
void rotate(Square& matrix, Square& vectors, std::size_t size, std::size_t p, std::size_t q)
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
Square diagonalise(Square& matrix, std::size_t size)
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
void floorEigenvalues(Square& matrix, std::size_t size)
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
void factoriseFloored(double* factor, const double* matrix, std::size_t size)
{
    std::copy(matrix, matrix + size * size, factor);
    for (double raise = 0x1p-40; !factorise(factor, size); raise *= 4.0) {
        std::copy(matrix, matrix + size * size, factor);
        for (std::size_t i = 0; i < size; ++i) {
            factor[i * size + i] += raise;
        }
    }
}

/// z' R^-1 z, with R given by its factor. Overwrites z.
double squaredLength(const double* factor, double* z, std::size_t size)
{
    double squares = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        double sum = z[i];
        for (std::size_t j = 0; j < i; ++j) {
            sum -= factor[i * size + j] * z[j];
        }
        z[i] = sum / factor[i * size + i];
        squares += z[i] * z[i];
    }
    return squares;
}

/// How many rows of a whitening matrix are worked on at once: enough that no sum waits for its last addition.
constexpr std::size_t lanes = 8;

/// The inverse of a lower triangular factor, column j divided by deviation j: it turns differences from the mean into
/// independent numbers of variance 1. Laid out in blocks of `lanes` rows, column by column as far as the block reaches, and
/// padded with zero rows.
Square whitening(const Square& factor, const std::vector<double>& deviations)
{
    const std::size_t size = deviations.size();
    Square inverse(size * size, 0.0);
    for (std::size_t j = 0; j < size; ++j) {
        for (std::size_t i = j; i < size; ++i) {
            double sum = i == j ? 1.0 : 0.0;
            for (std::size_t k = j; k < i; ++k) {
                sum -= factor[i * size + k] * inverse[k * size + j];
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

}  // namespace

/// What the floored density of one state is evaluated with.
struct ktNormalDensity::Factors {
    std::vector<double> deviations;
    Square correlations;
    Square whitening;
    /// The part of the log density that does not depend on the pattern, all measurements valid.
    double logScale = 0.0;
};

std::atomic<unsigned long> ktNormalDensity::evaluatedRevision_{0};

ktNormalDensity::ktNormalDensity() noexcept = default;

ktNormalDensity::ktNormalDensity(const ktNormalDensity& other)
    : mean_(other.mean_), covariance_(other.covariance_), count_(other.count_)
{
}

ktNormalDensity& ktNormalDensity::operator=(const ktNormalDensity& other)
{
    if (this != &other) {
        restore(other.mean_, other.covariance_, other.count_);
    }
    return *this;
}

ktNormalDensity::~ktNormalDensity()
{
    // Nobody can hold what was taken from a density that is gone: the revision stays.
    delete factors_.load(std::memory_order_acquire);
}

void ktNormalDensity::dropFactors() noexcept
{
    if (const Factors* old = factors_.exchange(nullptr, std::memory_order_acquire)) {
        delete old;
        evaluatedRevision_.fetch_add(1, std::memory_order_relaxed);
    }
}

void ktNormalDensity::clear() noexcept
{
    dropFactors();
    mean_ = ktNMMatrix();
    covariance_ = ktNMMatrix();
    count_ = 0;
}

void ktNormalDensity::restore(const ktNMMatrix& mean, const ktNMMatrix& covariance, long count)
{
    ktNMMatrix newMean = mean;
    ktNMMatrix newCovariance = covariance;
    dropFactors();
    mean_ = std::move(newMean);
    covariance_ = std::move(newCovariance);
    count_ = count;
}

bool ktNormalDensity::isUnused() const noexcept
{
    return count_ < 1 && mean_.numRows() == 0;
}

bool ktNormalDensity::hasSize(std::size_t size) const noexcept
{
    const auto n = static_cast<unsigned long>(size);
    return static_cast<unsigned long>(mean_.numRows()) == n && (mean_.numColumns() == 1 || n == 0) &&
           static_cast<unsigned long>(covariance_.numRows()) == n &&
           static_cast<unsigned long>(covariance_.numColumns()) == n;
}

long ktNormalDensity::prepare(std::size_t size)
{
    if (!isUnused() && !hasSize(size)) {
        return sizesDisagree;
    }
    if (deviations_.size() < size) {
        deviations_.resize(size);
    }
    if (isUnused()) {
        const long n = static_cast<long>(size);
        ktNMMatrix newMean(n, 1);
        covariance_ = ktNMMatrix(n, n);
        mean_ = std::move(newMean);
    }
    return success;
}

long ktNormalDensity::accumulate(const Row* rows, std::size_t numRows, double normalizer)
{
    for (std::size_t i = 1; i < numRows; ++i) {
        if (rows[i].size != rows[0].size) {
            return sizesDisagree;
        }
    }
    if (numRows == 0) {
        return success;
    }
    const long prepared = prepare(rows[0].size);
    if (prepared != success) {
        return prepared;
    }
    for (std::size_t i = 0; i < numRows; ++i) {
        learn(rows[i], normalizer);
    }
    return success;
}

void ktNormalDensity::learn(const Row& row, double normalizer) noexcept
{
    double* mean = mean_.data();
    double* covariance = covariance_.data();
    double* d = deviations_.data();
    const std::size_t size = row.size;
    for (std::size_t i = 0; i < size; ++i) {
        d[i] = row.values[i] / normalizer;
        if (!row.valid[i] || !std::isfinite(d[i])) {
            return;
        }
    }
    dropFactors();
    if (count_ < 1) {
        std::copy(d, d + size, mean);
        std::fill(covariance, covariance + size * size, 0.0);
        count_ = 1;
        return;
    }
    count_ = std::min(count_, largestCount - 1) + 1;
    const auto n = static_cast<double>(count_);
    for (std::size_t i = 0; i < size; ++i) {
        d[i] -= mean[i];
    }
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < size; ++j) {
            double& element = covariance[i * size + j];
            element = (element * (n - 2.0)) / (n - 1.0) + d[i] * d[j] / n;
        }
        mean[i] = mean[i] + d[i] / n;
    }
}

const ktNormalDensity::Factors& ktNormalDensity::factors() const
{
    if (const Factors* published = factors_.load(std::memory_order_acquire)) {
        return *published;
    }
    const auto size = static_cast<std::size_t>(mean_.numRows());
    const double* mean = mean_.data();
    const double* covariance = covariance_.data();
    auto fresh = std::make_unique<Factors>();
    fresh->deviations.resize(size);
    fresh->correlations.resize(size * size);
    Square factor(size * size);
    double* s = fresh->deviations.data();
    for (std::size_t i = 0; i < size; ++i) {
        const double floor = std::max(relativeDeviationFloor * std::abs(mean[i]), lastResortDeviationFloor);
        // A variance that is negative or NaN, after loading a damaged archive, ends at the floor too.
        s[i] = std::max(floor, covariance[i * size + i] > 0.0 ? std::sqrt(covariance[i * size + i]) : 0.0);
    }
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            const double correlation = covariance[i * size + j] / s[i] / s[j];
            const double clipped = std::isfinite(correlation) ? std::clamp(correlation, -1.0, 1.0) : 0.0;
            fresh->correlations[i * size + j] = clipped;
            fresh->correlations[j * size + i] = clipped;
        }
        fresh->correlations[i * size + i] = 1.0;
    }
    floorEigenvalues(fresh->correlations, size);
    factoriseFloored(factor.data(), fresh->correlations.data(), size);
    fresh->whitening = whitening(factor, fresh->deviations);
    fresh->logScale = -0.5 * static_cast<double>(size) * logTwoPi;
    for (std::size_t i = 0; i < size; ++i) {
        fresh->logScale -= std::log(s[i]) + std::log(factor[i * size + i]);
    }
    // Several threads may have come this far; the first to publish wins, and all use what it published.
    const Factors* expected = nullptr;
    if (factors_.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
        return *fresh.release();
    }
    return *expected;
}

long ktNormalDensity::logDensity(const Row& row, double& value) const
{
    if (count_ < 1) {
        return noValidData;
    }
    if (!hasSize(row.size)) {
        return sizesDisagree;
    }
    const auto numValid = static_cast<std::size_t>(std::count(row.valid, row.valid + row.size, true));
    if (numValid == 0) {
        value = 0.0;
        return success;
    }
    const Factors& all = factors();
    value = held(numValid == row.size ? logJoint(all, row) : logMarginal(all, row, numValid));
    return success;
}

bool ktNormalDensity::single(Single& constants) const
{
    if (count_ < 1 || !hasSize(1)) {
        return false;
    }
    const Factors& all = factors();
    constants = {mean_.data()[0], all.whitening[0], all.logScale};
    return true;
}

double ktNormalDensity::logJoint(const Factors& all, const Row& row) const
{
    kt_Scratch<double> differences(row.size);
    for (std::size_t i = 0; i < row.size; ++i) {
        differences[i] = row.values[i] - mean_.data()[i];
    }
    const double* difference = differences.data();
    const double* weights = all.whitening.data();
    double squares = 0.0;
    for (std::size_t first = 0; first < row.size; first += lanes) {
        double white[lanes] = {};
        const std::size_t columns = std::min(first + lanes, row.size);
        for (std::size_t j = 0; j < columns; ++j, weights += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                white[lane] += weights[lane] * difference[j];
            }
        }
        for (const double value : white) {
            squares += value * value;
        }
    }
    return all.logScale - 0.5 * squares;
}

/// The joint density of the valid values: that of the floored density's rows and columns which belong to them.
double ktNormalDensity::logMarginal(const Factors& all, const Row& row, std::size_t numValid) const
{
    kt_Scratch<std::size_t> kept(numValid);
    for (std::size_t i = 0, next = 0; i < row.size; ++i) {
        if (row.valid[i]) {
            kept[next++] = i;
        }
    }
    kt_Scratch<double> z(numValid);
    kt_Scratch<double, 32 * 32> correlations(numValid * numValid);
    kt_Scratch<double, 32 * 32> factor(numValid * numValid);
    double logScale = -0.5 * static_cast<double>(numValid) * logTwoPi;
    for (std::size_t i = 0; i < numValid; ++i) {
        const double deviation = all.deviations[kept[i]];
        z[i] = (row.values[kept[i]] - mean_.data()[kept[i]]) / deviation;
        logScale -= std::log(deviation);
        for (std::size_t j = 0; j < numValid; ++j) {
            correlations[i * numValid + j] = all.correlations[kept[i] * row.size + kept[j]];
        }
    }
    factoriseFloored(factor.data(), correlations.data(), numValid);
    for (std::size_t i = 0; i < numValid; ++i) {
        logScale -= std::log(factor[i * numValid + i]);
    }
    return logScale - 0.5 * squaredLength(factor.data(), z.data(), numValid);
}
