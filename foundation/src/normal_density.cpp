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
using kt_normal::baselineLearning;
using kt_normal::factorise;
using kt_normal::keptShare;
using kt_normal::lanes;
using kt_normal::LearningKernels;
using kt_normal::makeRegular;
using kt_normal::rowsAtOnce;
using kt_normal::Square;
using kt_normal::squaredLength;
using kt_normal::Steps;
using kt_normal::Triangle;
using kt_normal::whitening;

namespace {

constexpr long success = 0;
// As unsigned 32-bit values in a long: compared as 32 bits where they arrive.
constexpr long noValidData = static_cast<long>(0x80000B61u);
constexpr long sizesDisagree = static_cast<long>(0x80000B62u);

// From docs/numerics.md: a deviation that is no larger, in relation to the mean, may be rounding, and the deviation of a
// constant at zero, which shows no unit.
constexpr double deviationOfRounding = 0x1p-50;
constexpr double deviationOfZero = 1e-9;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

constexpr double logTwoPi = 1.8378770664093454835606594728112;

static_assert(lanes == 8, "a block of rows is four pairs");

/// One block of a whitening matrix times differences from the mean: adds to the sums of its rows what `columns` columns
/// give. Written in pairs because compilers vectorise the plain loops along the columns, which shuffles more than it adds.
class BlockOfRows {
public:
    const double* add(const double* weights, const double* differences, std::size_t columns)
    {
        kt_DoublePair sum0 = sums_[0];
        kt_DoublePair sum1 = sums_[1];
        kt_DoublePair sum2 = sums_[2];
        kt_DoublePair sum3 = sums_[3];
        for (std::size_t j = 0; j < columns; ++j, weights += lanes) {
            const kt_DoublePair difference = all<kt_DoublePair>(differences[j]);
            sum0 += at<kt_DoublePair>(weights) * difference;
            sum1 += at<kt_DoublePair>(weights + 2) * difference;
            sum2 += at<kt_DoublePair>(weights + 4) * difference;
            sum3 += at<kt_DoublePair>(weights + 6) * difference;
        }
        sums_[0] = sum0;
        sums_[1] = sum1;
        sums_[2] = sum2;
        sums_[3] = sum3;
        return weights;
    }

    /// Adds the squares of the rows, one after the other.
    double addSquares(double squares) const
    {
        for (const kt_DoublePair& sum : sums_) {
            squares += sum[0] * sum[0];
            squares += sum[1] * sum[1];
        }
        return squares;
    }

private:
    kt_DoublePair sums_[lanes / 2] = {};
};

constexpr long largestCount = 2147483647L;

/// How many densities of one measurement learn at once.
constexpr std::size_t sideBySide = 32;

const LearningKernels& kernels()
{
    static const LearningKernels& best =
        avx2Learning != nullptr &&  // not covered: null where no compiler knows these vectors
                KT_PROCESSOR_HAS_AVX2_AND_FMA
            ? *avx2Learning
            : baselineLearning;
    return best;
}

/// The steps of the first of so many rows. Counts them.
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

/// To the bit, so that the two halves go on to be learnt alike.
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

/// Up to so many valid measurements beside invalid ones are worked on upon the stack.
constexpr std::size_t fewMeasurements = 32;
constexpr std::size_t fewIndices = 256;

/// The deviation that a measurement is evaluated with.
double deviationOf(double mean, double variance)
{
    if (ktNormalDensity::hasSpread(mean, variance)) {
        return std::sqrt(variance);
    }
    const double ofRounding = deviationOfRounding * std::abs(mean);
    return ofRounding >= std::numeric_limits<double>::min() ? ofRounding : deviationOfZero;
}

/// How many states were evaluated in this process.
std::atomic<std::uint64_t> numFactors{0};

}  // namespace

/// What one state is evaluated with.
struct ktNormalDensity::Factors {
    std::vector<double> deviations;
    std::vector<double> logDeviations;
    Square correlations;
    Square whitening;
    /// The part of the log density that does not depend on the pattern, all measurements valid.
    double logScale = 0.0;
    /// No other factors of the process have it, so that whoever keeps constants of these can tell whether they are still those.
    std::uint64_t serial = ++numFactors;
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

/// The first row.
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
    // A single row is learnt sooner than a covariance is looked through and mirrored. A restored one may be of any kind.
    const bool isMirrored = numRows > 1 && isSymmetric(covariance, size);
    const Triangle triangle = isMirrored ? Triangle::lower : Triangle::whole;
    while (numRows > 0) {
        const Steps steps = nextSteps(count_, numRows);
        kernels().joint(steps, mean_.data(), covariance, triangle, rows, size, working_.data() + size);
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

/// The steps of learnRows for single measurements, side by side.
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
        kernels().single(steps, mean, variance, rows + row * stride, stride, numDensities, differences);
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
    Square& correlations = fresh->correlations;
    correlations.resize(size * size);
    bool isDegenerate = false;
    for (std::size_t i = 0; i < size; ++i) {
        // A variance that is negative or NaN, after loading a damaged archive, is no spread either.
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
    fresh->logScale = -0.5 * static_cast<double>(size) * logTwoPi;
    for (std::size_t i = 0; i < size; ++i) {
        fresh->logScale -= fresh->logDeviations[i] + std::log(factor[i * size + i]);
    }
    // Several threads may have come this far; the first to publish wins, and all use what it published.
    const Factors* first = nullptr;
    const bool isFirst =
        factors_.compare_exchange_strong(first, fresh.get(), std::memory_order_acq_rel, std::memory_order_acquire);
    if (!isFirst) {  // not covered: another thread published its factors just now
        return *first;
    }
    return *fresh.release();
}

/// 0 if a pattern of `size` measurements can be evaluated.
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
    return logDensityOf(row.size, value, [&](std::size_t i) { return row.valid[i] ? row.values[i] : notANumber; });
}

long ktNormalDensity::logDensity(const double* values, const long* indices, std::size_t size, double& value) const
{
    return logDensityOf(size, value, [&](std::size_t i) { return values[indices[i]]; });
}

long ktNormalDensity::logDensity(const Source& source, std::size_t size, double& value) const
{
    return logDensityOf(size, value, [&](std::size_t i) {
        double told = 0.0;
        return source.measurement(i, told) ? told : notANumber;
    });
}

/// `valueAt(i)` is measurement i, NaN or an infinity if it is missing.
template <class ValueAt>
long ktNormalDensity::logDensityOf(std::size_t size, double& value, ValueAt valueAt) const
{
    std::size_t numValid = 0;
    for (std::size_t i = 0; i < size; ++i) {
        numValid += std::isfinite(valueAt(i)) ? 1u : 0u;
    }
    const long refused = refuse(size);
    if (refused == success) {
        value = numValid == size ? logJoint(valueAt) : logMarginal(valueAt, numValid);
    }
    return refused;
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

std::uint64_t ktNormalDensity::evaluation() const noexcept
{
    const Factors* published = factors_.load(std::memory_order_acquire);
    return published != nullptr ? published->serial : 0;
}

template <class ValueAt>
double ktNormalDensity::logJoint(ValueAt valueAt) const
{
    const auto size = static_cast<std::size_t>(mean_.numRows());
    if (size == 0) {
        return 0.0;
    }
    const Factors& all = factors();
    const double* mean = mean_.data();
    const double* weights = all.whitening.data();
    // The differences from the mean lie upon the stack a stretch at a time; a few measurements are one stretch.
    constexpr std::size_t stretch = 64;
    double differences[stretch];
    std::size_t begin = size;
    double squares = 0.0;
    for (std::size_t first = 0; first < size; first += lanes) {
        const std::size_t columns = std::min(first + lanes, size);
        BlockOfRows rows;
        for (std::size_t needed = 0; needed < columns; needed += stretch) {
            if (begin != needed) {
                begin = needed;
                const std::size_t end = std::min(begin + stretch, size);
                for (std::size_t j = begin; j < end; ++j) {
                    differences[j - begin] = valueAt(j) - mean[j];
                }
            }
            weights = rows.add(weights, differences, std::min(columns - begin, stretch));
        }
        squares = rows.addSquares(squares);
    }
    return held(all.logScale - 0.5 * squares);
}

/// The joint density of the valid values: that of the rows and columns which belong to them, of what the whole is evaluated
/// with.
template <class ValueAt>
double ktNormalDensity::logMarginal(ValueAt valueAt, std::size_t numValid) const
{
    if (numValid == 0) {
        return 0.0;
    }
    const Factors& all = factors();
    const std::size_t size = all.deviations.size();
    const double* mean = mean_.data();
    kt_Scratch<std::size_t, fewIndices> kept(numValid);
    kt_Scratch<double, fewMeasurements*(fewMeasurements + 1)> numbers(numValid * (numValid + 1));
    double* z = numbers.data();
    double* factor = z + numValid;
    double logScale = -0.5 * static_cast<double>(numValid) * logTwoPi;
    for (std::size_t i = 0, next = 0; next < numValid; ++i) {
        const double value = valueAt(i);
        if (std::isfinite(value)) {
            z[next] = (value - mean[i]) / all.deviations[i];
            logScale -= all.logDeviations[i];
            kept[next++] = i;
        }
    }
    for (std::size_t i = 0; i < numValid; ++i) {
        const double* row = all.correlations.data() + kept[i] * size;
        for (std::size_t j = i; j < numValid; ++j) {
            factor[i * numValid + j] = row[kept[j]];
        }
    }
    factorise(factor, numValid);
    for (std::size_t i = 0; i < numValid; ++i) {
        logScale -= std::log(factor[i * numValid + i]);
    }
    return held(logScale - 0.5 * squaredLength(factor, z, numValid));
}
