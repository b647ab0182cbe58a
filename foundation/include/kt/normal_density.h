#pragma once

#include <kt/config.h>
#include <kt/matrix.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

/// A multivariate normal density that learns one pattern at a time: mean, covariance and count, in memory exactly as in an
/// archive, so that a reloaded state goes on bit for bit where the stored one stood.
///
/// Learning, with n the new count and d = x - old mean, covariance first, then mean:
///
///     n = 1:  mean = x, cov = 0
///     n > 1:  cov[i][j] = (cov[i][j] (n-2)) / (n-1) + d[i] d[j] / n,   mean[i] = mean[i] + d[i] / n
///
/// which is the unbiased covariance. The count saturates at 2^31 - 1. See: B. P. Welford, "Note on a method for calculating
/// corrected sums of squares and products", 1962; T. F. Chan, G. H. Golub, R. J. LeVeque, "Algorithms for computing the
/// sample variance", 1983.
///
/// Evaluation never refuses a degenerate covariance and never alters the stored one. What counts as degenerate:
///
/// - A measurement has no spread of its own if its deviation is at most 2^-50 |mean_i|, which the rounding of the steps above can
///   make. It is evaluated with that deviation, 1e-9 for a mean of zero. `standIn` takes a better one.
/// - Correlations cov[i][j] / (s_i s_j) are clipped to [-1, 1], and those that are not finite count as 0. If an eigenvalue of
///   the correlation matrix is not above 1e-8, or if a measurement has no spread of its own, all correlations are shrunk: times
///   0.99; and again, more each time, should a restored state need it.
///
/// Everything else is evaluated as it was learnt. docs/numerics.md gives the reasons.
///
/// Failures come back as codes (failure.h), 0 for success: 0x80000B61 no valid data was learnt, 0x80000B62 the numbers of
/// measurements disagree.
///
/// Copy: mean, covariance and count. Threads: const operations may run on several threads at once; the first of them
/// computes the factorisation and publishes it atomically, the one thing that a const operation leaves behind.
class KT_FOUNDATION_API ktNormalDensity {
public:
    /// A pattern as the density sees it: `size` values and as many flags.
    struct Row {
        /// `size` measured values, valid or not.
        const double* values;
        /// Which of them are valid.
        const bool* valid;
        /// The number of measurements.
        std::size_t size;
    };

    /// A pattern that is not laid out for the density, which asks for one measurement at a time.
    class Source {
    public:
        /// Whether measurement `index` of the density is valid; then `value` takes it.
        virtual bool measurement(std::size_t index, double& value) const = 0;

    protected:
        Source() = default;
        Source(const Source&) = default;
        Source& operator=(const Source&) = default;
        ~Source() = default;
    };

    ktNormalDensity() noexcept;
    ktNormalDensity(const ktNormalDensity& other);
    ktNormalDensity& operator=(const ktNormalDensity& other);
    ~ktNormalDensity();

    /// A column, one row a measurement.
    const ktNMMatrix& mean() const noexcept { return mean_; }
    /// Square, one row and one column a measurement; the unbiased covariance, as learnt.
    const ktNMMatrix& covariance() const noexcept { return covariance_; }
    /// The number of patterns learnt; saturates at 2^31 - 1.
    long count() const noexcept { return count_; }

    /// Forgets everything, the number of measurements included.
    void clear() noexcept;
    /// Takes a state as it is, whatever it holds.
    void restore(const ktNMMatrix& mean, const ktNMMatrix& covariance, long count);

    /// Learns rows, each value divided by `normalizer` first. The first non-empty list fixes the number of measurements. A
    /// row with an invalid value, or one that is not finite after the division, is left out and not counted. All rows
    /// are checked before the state changes.
    /// Returns 0x80000B62 for a row of another size. Cost: rows times measurements squared.
    long accumulate(const Row* rows, std::size_t numRows, double normalizer);

    /// Whether no list has fixed the number of measurements yet.
    bool isUnused() const noexcept;

    /// Makes sure that learning rows of `size` values cannot fail afterwards; fixes the number of measurements.
    /// Returns 0x80000B62 if it is another one.
    long prepare(std::size_t size);

    /// Learns `numRows` rows of finite values, one after the other in memory; the same bits as learning them one by one.
    /// Requires: `prepare` for the rows' size has succeeded.
    void learnRows(const double* rows, std::size_t numRows) noexcept;

    /// The same for several densities of one measurement each: density i takes column i of the rows.
    static void learnColumns(ktNormalDensity* const* densities, std::size_t numDensities, const double* rows,
                             std::size_t numRows) noexcept;

    /// Becomes what is evaluated in place of `learnt`: its measurements `kept`, in this order. If borrowed[i] is above 0, kept[i] gets
    /// that variance and no correlation with the others, and the other correlations are shrunk as those of a degenerate covariance.
    /// Requires: as many borrowed as kept, each kept below the number of measurements.
    void standIn(const ktNormalDensity& learnt, const std::vector<std::size_t>& kept,
                 const std::vector<double>& borrowed);

    /// Whether the variance is more than the rounding of learning can make.
    static bool hasSpread(double mean, double variance) noexcept;

    /// Whether something was learnt and all sizes agree, so that a pattern of `size` measurements can be evaluated.
    bool canEvaluate(std::size_t size) const noexcept;

    /// Whether the value of measurement `index` is within 1e147 deviations of the mean: farther out, densities cannot be compared.
    bool reaches(std::size_t index, double value) const noexcept;

    /// ln of the density at the row; invalid values, and values that are not finite, are marginalised: the joint density of
    /// the others. Held within +-1e300; -1e300 where the arithmetic ends in NaN; 0.0 if no value is left.
    /// Returns, checked in this order, 0x80000B61 for a count below 1; 0x80000B62 if the sizes of row, mean and covariance
    /// disagree.
    /// Cost: measurements squared, and times the square of the number of missing ones; where more than a quarter is missing,
    /// the valid ones cubed; once a state the factorisation. No allocation but once a state, for the factorisation, and for
    /// working storage where there are more than 512 measurements, or more than 32 of which some are missing.
    long logDensity(const Row& row, double& value) const;

    /// The same for `size` measurements one behind the other, of which those that are not finite are missing.
    long logDensity(const double* values, std::size_t size, double& value) const;

    /// The same for `size` measurements of a larger pattern: measurement i is `values[indices[i]]`.
    long logDensity(const double* values, const long* indices, std::size_t size, double& value) const;

    /// The same for `size` measurements of the source, which is asked before anything is checked.
    long logDensity(const Source& source, std::size_t size, double& value) const;

    /// What the density of a single measurement is evaluated with: its log density at x is
    /// `clampLog(logScale - 0.5 * (z * z))`, z = inverseDeviation * (x - mean).
    struct Single {
        /// In the unit of the measurement.
        double mean;
        /// 1 over the standard deviation that it is evaluated with.
        double inverseDeviation;
        /// The log density at the mean.
        double logScale;
    };
    /// A log density within +-1e300, and -1e300 for NaN, so that sums stay finite.
    static double clampLog(double logDensity) noexcept
    {
        const double notBelow = logDensity >= -1e300 ? logDensity : -1e300;
        return notBelow <= 1e300 ? notBelow : 1e300;
    }
    /// False for more or fewer measurements than one, and for a count below 1.
    bool single(Single& constants) const;
    /// Advances whenever a density that was evaluated changes. Until then all constants that `single` gave hold.
    static unsigned long evaluatedRevision() noexcept { return evaluatedRevision_.load(std::memory_order_relaxed); }
    /// Identifies what this density is evaluated with: no other state, of this or another density, has the same number in a process.
    /// 0 before the first evaluation of a state.
    std::uint64_t evaluation() const noexcept;

    /// Equal mean, covariance and count, compared exactly, no tolerance.
    friend bool operator==(const ktNormalDensity& a, const ktNormalDensity& b)
    {
        return a.mean_ == b.mean_ && a.covariance_ == b.covariance_ && a.count_ == b.count_;
    }
    friend bool operator!=(const ktNormalDensity& a, const ktNormalDensity& b) { return !(a == b); }

private:
    struct Factors;

    long refuse(std::size_t size) const noexcept;
    bool hasSize(std::size_t size) const noexcept;
    void learn(const Row& row, double normalizer) noexcept;
    void begin(const double* values) noexcept;
    static void learnEqualCounts(ktNormalDensity* const* densities, std::size_t numDensities, const double* rows,
                                 std::size_t numRows, std::size_t stride) noexcept;
    const Factors& factors() const;
    KT_HIDDEN double logOfValid(const double* values, double logOfAll) const;
    void dropFactors() noexcept;

    ktNMMatrix mean_;
    ktNMMatrix covariance_;
    long count_ = 0;
    // Working storage of a learning step, kept so that a step cannot run out of memory half way.
    std::vector<double> working_;
    mutable std::atomic<const Factors*> factors_{nullptr};
    static std::atomic<unsigned long> evaluatedRevision_;
};
