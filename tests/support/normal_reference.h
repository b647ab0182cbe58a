#pragma once

#include <Eigen/Core>

#include <cstddef>
#include <ostream>
#include <vector>

// Normal densities computed in another way, with more digits where `long double` has them: moments in two passes, densities
// by Eigen's decompositions. These are compiled in one place, because they take the compiler long.

namespace kt_test {

using Rows = std::vector<std::vector<double>>;
using LongVector = Eigen::Matrix<long double, Eigen::Dynamic, 1>;
using LongMatrix = Eigen::Matrix<long double, Eigen::Dynamic, Eigen::Dynamic>;

constexpr long double logTwoPiReference = 1.837877066409345483560659472811235279723L;

struct Moments {
    LongVector mean;
    LongMatrix covariance;
};

LongVector asVector(const std::vector<double>& row);

/// The mean and the unbiased covariance: first the one, then the other.
Moments twoPassMoments(const Rows& rows);

LongMatrix correlationsOf(const LongMatrix& covariance);

/// The largest eigenvalue of a symmetric matrix over its smallest.
double conditionOf(const LongMatrix& matrix);

/// ln of the normal density at x.
double logNormalReference(const Moments& moments, const LongVector& x);

/// The moments that a density is evaluated with: deviations of at most 2^-50 |mean| become that, or 1e-9; if one does, or if
/// the correlations within [-1, 1] have an eigenvalue of at most 1e-8, the correlations become 0.99 of what they were.
Moments evaluatedReference(const Moments& moments);

/// The moments of some of the measurements.
Moments marginalReference(const Moments& moments, const std::vector<long>& kept);

/// A training set whose spreads are about 1 in its widest direction and 1/sqrt(condition) in its narrowest, at this distance
/// from zero.
struct TrainingSet {
    std::size_t numRows;
    std::size_t size;
    double offset;
    double condition;
    unsigned long seed;

    Rows rows() const;

    /// What rounding may cost: the larger of 1e-12 and 2^-52 x offset in spreads x sqrt(n) x condition number, as the data
    /// came out. Data around zero count as one spread away from it: so far away are their values.
    double tolerance(const Moments& moments) const;
};

/// Training sets to measure precision with.
std::vector<TrainingSet> trainingSets();

std::ostream& operator<<(std::ostream& out, const TrainingSet& set);

}  // namespace kt_test
