#include "normal_reference.h"

#include <Eigen/Dense>

#include <kt/random.h>

#include <algorithm>
#include <cmath>

namespace kt_test {

LongVector asVector(const std::vector<double>& row)
{
    LongVector vector(static_cast<Eigen::Index>(row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
        vector(static_cast<Eigen::Index>(i)) = row[i];
    }
    return vector;
}

Moments twoPassMoments(const Rows& rows)
{
    const auto size = static_cast<Eigen::Index>(rows.front().size());
    Moments moments{LongVector::Zero(size), LongMatrix::Zero(size, size)};
    for (const std::vector<double>& row : rows) {
        moments.mean += asVector(row);
    }
    moments.mean /= static_cast<long double>(rows.size());
    for (const std::vector<double>& row : rows) {
        const LongVector d = asVector(row) - moments.mean;
        moments.covariance += d * d.transpose();
    }
    moments.covariance /= std::max(1.0L, static_cast<long double>(rows.size()) - 1.0L);
    return moments;
}

LongMatrix correlationsOf(const LongMatrix& covariance)
{
    const LongVector spreads = covariance.diagonal().cwiseSqrt();
    return spreads.cwiseInverse().asDiagonal() * covariance * spreads.cwiseInverse().asDiagonal();
}

double conditionOf(const LongMatrix& matrix)
{
    const LongVector eigenvalues = Eigen::SelfAdjointEigenSolver<LongMatrix>(matrix).eigenvalues();
    return static_cast<double>(eigenvalues(eigenvalues.size() - 1) / eigenvalues(0));
}

double logNormalReference(const Moments& moments, const LongVector& x)
{
    const Eigen::LDLT<LongMatrix> factors(moments.covariance);
    const LongVector d = x - moments.mean;
    const long double logDeterminant = factors.vectorD().array().log().sum();
    const long double squares = d.dot(factors.solve(d));
    return static_cast<double>(-0.5L *
                               (static_cast<long double>(x.size()) * logTwoPiReference + logDeterminant + squares));
}

Moments evaluatedReference(const Moments& moments)
{
    const Eigen::Index size = moments.mean.size();
    LongVector spreads(size);
    bool isDegenerate = false;
    for (Eigen::Index i = 0; i < size; ++i) {
        const long double ofRounding = std::ldexp(std::abs(moments.mean(i)), -50);
        spreads(i) = std::sqrt(moments.covariance(i, i));
        if (!(spreads(i) > ofRounding)) {
            isDegenerate = true;
            spreads(i) = ofRounding > 0.0L ? ofRounding : 1e-9L;
        }
    }
    LongMatrix correlations = LongMatrix::Identity(size, size);
    for (Eigen::Index i = 0; i < size; ++i) {
        for (Eigen::Index j = 0; j < size; ++j) {
            if (i != j) {
                correlations(i, j) = std::clamp(moments.covariance(i, j) / spreads(i) / spreads(j), -1.0L, 1.0L);
            }
        }
    }
    const Eigen::SelfAdjointEigenSolver<LongMatrix> solver(correlations);
    if (isDegenerate || !(solver.eigenvalues()(0) > 1e-8L)) {
        correlations = 0.99L * correlations + 0.01L * LongMatrix::Identity(size, size);
    }
    return {moments.mean, spreads.asDiagonal() * correlations * spreads.asDiagonal()};
}

Moments marginalReference(const Moments& moments, const std::vector<long>& kept)
{
    const auto size = static_cast<Eigen::Index>(kept.size());
    Moments marginal{LongVector(size), LongMatrix(size, size)};
    for (Eigen::Index i = 0; i < size; ++i) {
        marginal.mean(i) = moments.mean(kept[static_cast<std::size_t>(i)]);
        for (Eigen::Index j = 0; j < size; ++j) {
            marginal.covariance(i, j) =
                moments.covariance(kept[static_cast<std::size_t>(i)], kept[static_cast<std::size_t>(j)]);
        }
    }
    return marginal;
}

Rows TrainingSet::rows() const
{
    ktRandomGaussian random(seed);
    const auto n = static_cast<Eigen::Index>(size);
    Eigen::MatrixXd mixing(n, n);
    for (Eigen::Index i = 0; i < n; ++i) {
        for (Eigen::Index j = 0; j < n; ++j) {
            mixing(i, j) = random.next(0.0, 1.0);
        }
    }
    mixing = Eigen::HouseholderQR<Eigen::MatrixXd>(mixing).householderQ();
    for (Eigen::Index j = 0; j < n; ++j) {
        const double share = n == 1 ? 0.0 : static_cast<double>(j) / static_cast<double>(n - 1);
        mixing.col(j) *= std::pow(condition, -0.5 * share);
    }
    Rows made;
    for (std::size_t row = 0; row < numRows; ++row) {
        Eigen::VectorXd z(n);
        for (Eigen::Index j = 0; j < n; ++j) {
            z(j) = random.next(0.0, 1.0);
        }
        const Eigen::VectorXd x = mixing * z;
        made.emplace_back();
        for (Eigen::Index i = 0; i < n; ++i) {
            made.back().push_back(offset + x(i));
        }
    }
    return made;
}

double TrainingSet::tolerance(const Moments& moments) const
{
    double offsetInSpreads = 1.0;
    for (Eigen::Index i = 0; i < moments.mean.size(); ++i) {
        const long double spread = std::sqrt(moments.covariance(i, i));
        offsetInSpreads = std::max(offsetInSpreads, static_cast<double>(std::abs(moments.mean(i)) / spread));
    }
    return std::max(1e-12, 0x1p-52 * offsetInSpreads * std::sqrt(static_cast<double>(numRows)) *
                               conditionOf(correlationsOf(moments.covariance)));
}

std::vector<TrainingSet> trainingSets()
{
    std::vector<TrainingSet> sets;
    unsigned long seed = 4711;
    for (const std::size_t numRows : {30u, 1000u}) {
        for (const std::size_t size : {1u, 2u, 5u, 10u}) {
            for (const double offset : {0.0, 1.0, 1e3, 1e6}) {
                for (const double condition : {1.0, 1e2, 1e4}) {
                    sets.push_back({numRows, size, offset, condition, ++seed});
                }
            }
        }
    }
    return sets;
}

std::ostream& operator<<(std::ostream& out, const TrainingSet& set)
{
    return out << set.numRows << " rows of " << set.size << ", offset " << set.offset << ", condition " << set.condition
               << ", seed " << set.seed;
}

}  // namespace kt_test
