// The multivariate normal density. docs/numerics.md has the formulas and the reasons for each constant.
//
// Learning turns rows into mean, covariance and count, the state that archives hold. An evaluation needs more: deviations, positive
// definite correlations, and a whitening matrix, which turns differences from the mean into independent numbers of variance 1.
// The first evaluation of a state makes these Factors and publishes them atomically. The next change drops them.
//
//     prepare, learnRows     learning; the loops over the covariance are in learning_steps_*.cpp
//     factors                the Factors of the state; the linear algebra is in correlations.h
//     logDensity             -|W (x - mean)|^2 / 2 and a constant; the loop is in evaluation_steps_*.cpp
//     logOfValid             missing measurements: logWithout projects few of them out, logOfOthers factorises the rest
//
// An evaluation does not look for missing measurements. They are NaN or infinite, so the log density of all measurements is not finite
// either. Only then does logOfValid look for them.

#include <kt/normal_density.h>
#include <kt/scratch.h>

#include "correlations.h"
#include "learning_steps.h"
#include "pairs.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

using kt_normal::all;
using kt_normal::at;
using kt_normal::avx2Learning;
using kt_normal::avx2Whiten;
using kt_normal::baselineLearning;
using kt_normal::baselineWhiten;
using kt_normal::Column;
using kt_normal::columnsBefore;
using kt_normal::factorise;
using kt_normal::inBlocks;
using kt_normal::keptShare;
using kt_normal::LearningKernels;
using kt_normal::makeRegular;
using kt_normal::put;
using kt_normal::rowsAtOnce;
using kt_normal::rowsPerBlock;
using kt_normal::Square;
using kt_normal::squaredLength;
using kt_normal::Steps;
using kt_normal::Triangle;
using kt_normal::Whiten;
using kt_normal::whitening;

namespace {

constexpr long success = 0;
// Unsigned 32-bit values in a long. Callers compare 32 bits.
constexpr long noValidData = static_cast<long>(0x80000B61u);
constexpr long sizesDisagree = static_cast<long>(0x80000B62u);

// A deviation up to `deviationOfRounding`, relative to the mean, may come from rounding. `deviationOfZero` is the deviation of a constant
// at zero. See docs/numerics.md.
constexpr double deviationOfRounding = 0x1p-50;
constexpr double deviationOfZero = 1e-9;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

constexpr double logTwoPi = 1.8378770664093454835606594728112;

constexpr long largestCount = 2147483647L;

/// The number of densities of one measurement that learn together.
constexpr std::size_t sideBySide = 32;

/// The fastest loops for this processor.
struct Kernels {
    const LearningKernels* learning;
    Whiten whiten;
};

const Kernels& kernels()
{
    static const Kernels best = avx2Learning != nullptr &&  // not covered: null where no compiler knows these vectors
                                        KT_PROCESSOR_HAS_AVX2_AND_FMA
                                    ? Kernels{avx2Learning, avx2Whiten}
                                    : Kernels{&baselineLearning, baselineWhiten};
    return best;
}

/// The learning steps of the next rows, at most rowsAtOnce. Adds these rows to the count.
Steps nextSteps(long& count, std::size_t numRows)
{
    Steps steps = {std::min(numRows, rowsAtOnce), {}};
    std::fill(steps.counts, steps.counts + rowsAtOnce, 2.0);
    for (std::size_t k = 0; k < steps.numRows; ++k) {
        count = std::min(count, largestCount - 1) + 1;
        steps.counts[k] = static_cast<double>(count);
    }
    return steps;
}

std::uint64_t bitsOf(double value)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// Compares bits, so that both triangles learn the same.
bool isSymmetric(const double* matrix, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (bitsOf(matrix[i * size + j]) != bitsOf(matrix[j * size + i])) {
                return false;
            }
        }
    }
    return true;
}

void mirrorLowerTriangle(double* matrix, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            matrix[j * size + i] = matrix[i * size + j];
        }
    }
}

/// With at most this number of measurements, working storage is on the stack.
constexpr std::size_t fewMeasurements = 512;
using Numbers = kt_Scratch<double, fewMeasurements>;
using Indices = kt_Scratch<std::size_t, fewMeasurements>;

/// With missing measurements, a matrix of at most this number of elements is on the stack: the factor of 32 measurements.
constexpr std::size_t fewElements = 32 * 33;
using Elements = kt_Scratch<double, fewElements>;

bool isFinite(double value)
{
    return value - value == 0.0;
}

/// The inner product of two vectors of whole blocks. The order of the additions is the same on all processors.
double product(const double* a, const double* b, std::size_t size)
{
    kt_DoublePair sums[rowsPerBlock / 2] = {};
    for (std::size_t i = 0; i < size; i += rowsPerBlock) {
        for (std::size_t k = 0; k < rowsPerBlock / 2; ++k) {
            sums[k] += at<kt_DoublePair>(a + i + 2 * k) * at<kt_DoublePair>(b + i + 2 * k);
        }
    }
    const kt_DoublePair sum = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    return sum[0] + sum[1];
}

/// Subtracts from `numbers` their component along the direction.
void makeOrthogonal(double* numbers, const double* direction, double squaredLengthOfDirection, std::size_t size)
{
    const kt_DoublePair share = all<kt_DoublePair>(product(numbers, direction, size) / squaredLengthOfDirection);
    for (std::size_t i = 0; i < size; i += 2) {
        put(numbers + i, at<kt_DoublePair>(numbers + i) - share * at<kt_DoublePair>(direction + i));
    }
}

/// The deviation that an evaluation uses.
double deviationOf(double mean, double variance)
{
    if (ktNormalDensity::hasSpread(mean, variance)) {
        return std::sqrt(variance);
    }
    const double ofRounding = deviationOfRounding * std::abs(mean);
    return ofRounding >= std::numeric_limits<double>::min() ? ofRounding : deviationOfZero;
}

/// The number of Factors that this process has made.
std::atomic<std::uint64_t> numFactors{0};

}  // namespace

/// The constants of one state's evaluations.
struct ktNormalDensity::Factors {
    /// The number of measurements.
    std::size_t size;
    std::vector<double> deviations;
    std::vector<double> logDeviations;
    Square correlations;
    std::vector<Column> whitening;
    Whiten whiten = kernels().whiten;
    /// The part of the log density that does not depend on the pattern, if all measurements are valid.
    double logScale = 0.0;
    /// Unique in the process. A caller that keeps constants of these Factors compares the number.
    std::uint64_t serial = ++numFactors;

    double logMarginal(const double* mean, const double* values, const std::size_t* missing,
                       std::size_t numMissing) const;

private:
    double logWithout(const double* mean, const double* values, const std::size_t* missing,
                      std::size_t numMissing) const;
    double logOfOthers(const double* mean, const double* values, const std::size_t* missing,
                       std::size_t numMissing) const;
    void takeColumn(std::size_t index, double* column) const;
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
    // The revision does not change: no caller keeps constants of a destroyed density.
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

void ktNormalDensity::standIn(const ktNormalDensity& learnt, const std::vector<std::size_t>& kept,
                              const std::vector<double>& borrowed)
{
    const auto size = static_cast<long>(kept.size());
    const bool isDegenerate =
        std::any_of(borrowed.begin(), borrowed.end(), [](double variance) { return variance > 0.0; });
    ktNMMatrix mean(size, 1);
    ktNMMatrix covariance(size, size);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const auto row = static_cast<long>(i);
        mean(row, 0) = learnt.mean_(static_cast<long>(kept[i]), 0);
        for (std::size_t j = 0; j < kept.size(); ++j) {
            const double element = learnt.covariance_(static_cast<long>(kept[i]), static_cast<long>(kept[j]));
            double& made = covariance(row, static_cast<long>(j));
            if (i == j) {
                made = borrowed[i] > 0.0 ? borrowed[i] : element;
            } else if (borrowed[i] == 0.0 && borrowed[j] == 0.0) {
                made = isDegenerate ? keptShare * element : element;
            }
        }
    }
    restore(mean, covariance, learnt.count_);
}

bool ktNormalDensity::hasSpread(double mean, double variance) noexcept
{
    return variance > 0.0 && std::sqrt(variance) > deviationOfRounding * std::abs(mean);
}

bool ktNormalDensity::reaches(std::size_t index, double value) const noexcept
{
    const double mean = mean_.data()[index];
    const double deviation =
        deviationOf(mean, covariance_.data()[index * static_cast<std::size_t>(mean_.numRows()) + index]);
    return std::abs(value - mean) < 1e147 * deviation;
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
    const std::size_t needed = (rowsAtOnce + 1) * size;
    if (working_.size() < needed) {
        working_.resize(needed);
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
    double* values = working_.data();
    for (std::size_t i = 0; i < row.size; ++i) {
        values[i] = row.values[i] / normalizer;
        if (!row.valid[i] || !std::isfinite(values[i])) {
            return;
        }
    }
    learnRows(values, 1);
}

/// Learns the first row.
void ktNormalDensity::begin(const double* values) noexcept
{
    const auto size = static_cast<std::size_t>(mean_.numRows());
    std::copy(values, values + size, mean_.data());
    std::fill(covariance_.data(), covariance_.data() + size * size, 0.0);
    count_ = 1;
}

void ktNormalDensity::learnRows(const double* rows, std::size_t numRows) noexcept
{
    const auto size = static_cast<std::size_t>(mean_.numRows());
    if (numRows == 0) {
        return;
    }
    dropFactors();
    if (count_ < 1) {
        begin(rows);
        --numRows;
        rows += size;
    }
    double* covariance = covariance_.data();
    // A restored covariance need not be symmetric. The check and the mirroring save time from two rows on.
    const bool isMirrored = numRows > 1 && isSymmetric(covariance, size);
    const Triangle triangle = isMirrored ? Triangle::lower : Triangle::whole;
    while (numRows > 0) {
        const Steps steps = nextSteps(count_, numRows);
        kernels().learning->joint(steps, mean_.data(), covariance, triangle, rows, size, working_.data() + size);
        numRows -= steps.numRows;
        rows += steps.numRows * size;
    }
    if (isMirrored) {
        mirrorLowerTriangle(covariance, size);
    }
}

void ktNormalDensity::learnColumns(ktNormalDensity* const* densities, std::size_t numDensities, const double* rows,
                                   std::size_t numRows) noexcept
{
    if (numRows == 0) {
        return;
    }
    for (std::size_t first = 0; first < numDensities;) {
        const long count = densities[first]->count_;
        std::size_t end = first + 1;
        while (end < numDensities && end < first + sideBySide && densities[end]->count_ == count) {
            ++end;
        }
        learnEqualCounts(densities + first, end - first, rows + first, numRows, numDensities);
        first = end;
    }
}

/// learnRows for densities of one measurement with equal counts, side by side.
void ktNormalDensity::learnEqualCounts(ktNormalDensity* const* densities, std::size_t numDensities, const double* rows,
                                       std::size_t numRows, std::size_t stride) noexcept
{
    double mean[sideBySide];
    double variance[sideBySide];
    double differences[rowsAtOnce * sideBySide];
    const bool isFirst = densities[0]->count_ < 1;
    for (std::size_t i = 0; i < numDensities; ++i) {
        densities[i]->dropFactors();
        if (isFirst) {
            densities[i]->begin(rows + i);
        }
        mean[i] = densities[i]->mean_.data()[0];
        variance[i] = densities[i]->covariance_.data()[0];
    }
    long count = densities[0]->count_;
    for (std::size_t row = isFirst ? 1 : 0; row < numRows;) {
        const Steps steps = nextSteps(count, numRows - row);
        kernels().learning->single(steps, mean, variance, rows + row * stride, stride, numDensities, differences);
        row += steps.numRows;
    }
    for (std::size_t i = 0; i < numDensities; ++i) {
        densities[i]->mean_.data()[0] = mean[i];
        densities[i]->covariance_.data()[0] = variance[i];
        densities[i]->count_ = count;
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
    fresh->size = size;
    Square& correlations = fresh->correlations;
    correlations.resize(size * size);
    bool isDegenerate = false;
    for (std::size_t i = 0; i < size; ++i) {
        // A negative variance or NaN, from a damaged archive, is no spread either.
        isDegenerate = isDegenerate || !hasSpread(mean[i], covariance[i * size + i]);
        fresh->deviations.push_back(deviationOf(mean[i], covariance[i * size + i]));
        fresh->logDeviations.push_back(std::log(fresh->deviations[i]));
    }
    const double* s = fresh->deviations.data();
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            const double correlation = covariance[i * size + j] / s[i] / s[j];
            const double clipped = std::isfinite(correlation) ? std::clamp(correlation, -1.0, 1.0) : 0.0;
            correlations[i * size + j] = clipped;
            correlations[j * size + i] = clipped;
        }
        correlations[i * size + i] = 1.0;
    }
    makeRegular(correlations, size, isDegenerate);
    Square factor = correlations;
    factorise(factor.data(), size);
    fresh->whitening = whitening(factor, fresh->deviations);
    fresh->logScale = 0.0 - 0.5 * static_cast<double>(size) * logTwoPi;
    for (std::size_t i = 0; i < size; ++i) {
        fresh->logScale -= fresh->logDeviations[i] + std::log(factor[i * size + i]);
    }
    // Several threads may arrive here. All use the factors that the first thread publishes.
    const Factors* first = nullptr;
    const bool isFirst =
        factors_.compare_exchange_strong(first, fresh.get(), std::memory_order_acq_rel, std::memory_order_acquire);
    if (!isFirst) {  // not covered: another thread published its factors just now
        return *first;
    }
    return *fresh.release();
}

/// The failure code for a pattern of `size` measurements; `success` if the density can be evaluated.
long ktNormalDensity::refuse(std::size_t size) const noexcept
{
    if (count_ < 1) {
        return noValidData;
    }
    return hasSize(size) ? success : sizesDisagree;
}

bool ktNormalDensity::canEvaluate(std::size_t size) const noexcept
{
    return refuse(size) == success;
}

long ktNormalDensity::logDensity(const Row& row, double& value) const
{
    Numbers values(row.size);
    for (std::size_t i = 0; i < row.size; ++i) {
        values[i] = row.valid[i] ? row.values[i] : notANumber;
    }
    return logDensity(values.data(), row.size, value);
}

long ktNormalDensity::logDensity(const double* values, const long* indices, std::size_t size, double& value) const
{
    Numbers ofGroup(size);
    for (std::size_t i = 0; i < size; ++i) {
        ofGroup[i] = values[indices[i]];
    }
    return logDensity(ofGroup.data(), size, value);
}

long ktNormalDensity::logDensity(const Source& source, std::size_t size, double& value) const
{
    Numbers values(size);
    for (std::size_t i = 0; i < size; ++i) {
        double told = 0.0;
        values[i] = source.measurement(i, told) ? told : notANumber;
    }
    return logDensity(values.data(), size, value);
}

long ktNormalDensity::logDensity(const double* values, std::size_t size, double& value) const
{
    const Factors* factors = factors_.load(std::memory_order_acquire);
    // Factors exist only for a state that can be evaluated. They have its number of measurements.
    if (factors == nullptr || factors->size != size) {
        const long refused = refuse(size);
        if (refused != success) {
            return refused;
        }
        factors = &this->factors();
    }
    const double log =
        factors->logScale - 0.5 * factors->whiten(factors->whitening.data(), mean_.data(), values, size, nullptr);
    // A missing measurement makes the sum NaN or infinite.
    value = clampLog(isFinite(log) ? log : logOfValid(values, log));
    return success;
}

bool ktNormalDensity::single(Single& constants) const
{
    if (count_ < 1 || !hasSize(1)) {
        return false;
    }
    const Factors& all = factors();
    constants = {mean_.data()[0], all.whitening.front().rows[0], all.logScale};
    return true;
}

std::uint64_t ktNormalDensity::evaluation() const noexcept
{
    const Factors* published = factors_.load(std::memory_order_acquire);
    return published != nullptr ? published->serial : 0;
}

/// The log density of the measurements that are not missing. Returns `logOfAll` if none is missing.
double ktNormalDensity::logOfValid(const double* values, double logOfAll) const
{
    const auto size = static_cast<std::size_t>(mean_.numRows());
    const auto numMissing = size - static_cast<std::size_t>(std::count_if(values, values + size, isFinite));
    if (numMissing == 0) {
        return logOfAll;
    }
    if (numMissing == size) {
        return 0.0;
    }
    // The mean replaces a missing measurement, so its difference is 0.
    Numbers filled(size);
    Indices missing(numMissing);
    for (std::size_t i = 0, next = 0; i < size; ++i) {
        filled[i] = isFinite(values[i]) ? values[i] : mean_.data()[i];
        if (!isFinite(values[i])) {
            missing[next++] = i;
        }
    }
    return factors().logMarginal(mean_.data(), filled.data(), missing.data(), numMissing);
}

/// The log density of the measurements that are not missing, from their rows and columns of the correlations.
double ktNormalDensity::Factors::logMarginal(const double* mean, const double* values, const std::size_t* missing,
                                             std::size_t numMissing) const
{
    if (4 * numMissing <= size) {
        const double log = logWithout(mean, values, missing, numMissing);
        // Not finite if a missing measurement has an infinite deviation. The others do not depend on it.
        if (isFinite(log)) {
            return log;
        }
    }
    return logOfOthers(mean, values, missing, numMissing);
}

/// For few missing measurements: removes the components along their columns from the whitened differences.
double ktNormalDensity::Factors::logWithout(const double* mean, const double* values, const std::size_t* missing,
                                            std::size_t numMissing) const
{
    const std::size_t numRows = inBlocks(size);
    Numbers whitened(numRows);
    Elements storage(numMissing * numRows);
    Numbers squares(numMissing);
    whiten(whitening.data(), mean, values, size, whitened.data());
    double log = logScale;
    // A column is zero before the block of its own row. Taking the last column first leaves these zeros as they are.
    double* column = storage.data();
    for (std::size_t k = numMissing; k-- > 0; column += numRows) {
        const std::size_t index = missing[k];
        const std::size_t begin = index / rowsPerBlock * rowsPerBlock;
        takeColumn(index, column);
        for (std::size_t l = numMissing; l-- > k + 1;) {
            const std::size_t start = missing[l] / rowsPerBlock * rowsPerBlock;
            const double* other = storage.data() + (numMissing - 1 - l) * numRows;
            makeOrthogonal(column + start, other + start, squares[l], numRows - start);
        }
        squares[k] = product(column + begin, column + begin, numRows - begin);
        makeOrthogonal(whitened.data() + begin, column + begin, squares[k], numRows - begin);
        log += 0.5 * logTwoPi + logDeviations[index] - 0.5 * std::log(squares[k]);
    }
    return log - 0.5 * product(whitened.data(), whitened.data(), numRows);
}

/// Copies a column of the whitening matrix, from the block of its own row on, multiplied by its measurement's deviation.
void ktNormalDensity::Factors::takeColumn(std::size_t index, double* column) const
{
    for (std::size_t first = index / rowsPerBlock * rowsPerBlock; first < size; first += rowsPerBlock) {
        const Column& ofBlock = whitening[columnsBefore(first) + index];
        for (std::size_t i = 0; i < rowsPerBlock; ++i) {
            column[first + i] = ofBlock.rows[i] * deviations[index];
        }
    }
}

/// For many missing measurements: factorises the correlations of the others.
double ktNormalDensity::Factors::logOfOthers(const double* mean, const double* values, const std::size_t* missing,
                                             std::size_t numMissing) const
{
    const std::size_t numValid = size - numMissing;
    Indices kept(numValid);
    Elements numbers(numValid * (numValid + 1));
    double* z = numbers.data();
    double* factor = z + numValid;
    double log = -0.5 * static_cast<double>(numValid) * logTwoPi;
    for (std::size_t i = 0, next = 0; next < numValid; ++i) {
        if (i - next < numMissing && missing[i - next] == i) {
            continue;
        }
        z[next] = (values[i] - mean[i]) / deviations[i];
        log -= logDeviations[i];
        kept[next++] = i;
    }
    for (std::size_t i = 0; i < numValid; ++i) {
        const double* row = correlations.data() + kept[i] * size;
        for (std::size_t j = i; j < numValid; ++j) {
            factor[i * numValid + j] = row[kept[j]];
        }
    }
    factorise(factor, numValid);
    for (std::size_t i = 0; i < numValid; ++i) {
        log -= std::log(factor[i * numValid + i]);
    }
    return log - 0.5 * squaredLength(factor, z, numValid);
}
