// Made-up data with measurements that do not vary in some categories: how many patterns the Bayesian classifier decides right,
// and how many it would with other shares taken off the correlations of degenerate groups.

#include "look_alikes.h"

#include <clastool/clastool.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <numeric>
#include <vector>

namespace {

using Samples = std::vector<Sample>;

double libraryShare(const Samples& training, const Samples& test, bool isJoint)
{
    std::vector<long> all(training.front().values.size());
    std::iota(all.begin(), all.end(), 0L);
    ktClassifierDistributionTypes types;
    ktClassifierDataProviderMemory data;
    for (const Sample& sample : training) {
        if (isJoint) {
            types.setDependent(sample.label, all);
        }
        data.addData(new ktFeaturePattern(sample.values, {}), sample.label);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian(types));
    double right = 0.0;
    for (const Sample& sample : test) {
        ktClassifierResult result;
        tool.run(ktFeaturePattern(sample.values, {}), result);
        right += result.categoryResults().front().categoryLabel() == sample.label ? 1.0 : 0.0;
    }
    return right / static_cast<double>(test.size());
}

/// A joint normal density with the share that is taken off its correlations.
struct PlainDensity {
    std::vector<double> mean;
    std::vector<std::vector<double>> factor;
    double logScale = 0.0;

    double at(const std::vector<double>& x) const
    {
        std::vector<double> z;
        double log = logScale;
        for (std::size_t i = 0; i < mean.size(); ++i) {
            double sum = x[i] - mean[i];
            for (std::size_t j = 0; j < i; ++j) {
                sum -= factor[i][j] * z[j];
            }
            z.push_back(sum / factor[i][i]);
            log -= 0.5 * z[i] * z[i];
        }
        return log;
    }

    void factorise(std::vector<std::vector<double>> matrix)
    {
        for (std::size_t i = 0; i < mean.size(); ++i) {
            for (std::size_t j = 0; j <= i; ++j) {
                for (std::size_t k = 0; k < j; ++k) {
                    matrix[i][j] -= matrix[i][k] * matrix[j][k];
                }
                matrix[i][j] = i == j ? std::sqrt(matrix[i][i]) : matrix[i][j] / matrix[j][j];
            }
            logScale -= std::log(matrix[i][i]);
        }
        factor = matrix;
    }
};

/// Mean and covariance in two passes.
struct Moments {
    double count = 0.0;
    std::vector<double> mean;
    std::vector<std::vector<double>> covariance;
};

Moments momentsOf(const Samples& samples, long label)
{
    const std::size_t size = samples.front().values.size();
    Moments moments{0.0, std::vector<double>(size), std::vector<std::vector<double>>(size, std::vector<double>(size))};
    for (const Sample& sample : samples) {
        moments.count += sample.label == label ? 1.0 : 0.0;
        for (std::size_t i = 0; sample.label == label && i < size; ++i) {
            moments.mean[i] += sample.values[i];
        }
    }
    for (double& value : moments.mean) {
        value /= moments.count;
    }
    for (const Sample& sample : samples) {
        for (std::size_t i = 0; sample.label == label && i < size; ++i) {
            for (std::size_t j = 0; j < size; ++j) {
                moments.covariance[i][j] +=
                    (sample.values[i] - moments.mean[i]) * (sample.values[j] - moments.mean[j]) / (moments.count - 1.0);
            }
        }
    }
    return moments;
}

/// All measurements jointly, where each category is degenerate, with this share.
double plainShare(const Samples& training, const Samples& test, double share)
{
    std::map<long, Moments> learnt;
    for (const Sample& sample : training) {
        if (learnt.count(sample.label) == 0) {
            learnt[sample.label] = momentsOf(training, sample.label);
        }
    }
    const std::size_t size = training.front().values.size();
    std::vector<std::size_t> kept;
    std::vector<double> pooled(size);
    for (std::size_t i = 0; i < size; ++i) {
        for (const auto& [label, moments] : learnt) {
            pooled[i] += moments.count * moments.covariance[i][i] / static_cast<double>(training.size());
        }
        if (pooled[i] > 0.0) {
            kept.push_back(i);
        }
    }
    std::map<long, PlainDensity> densities;
    for (const auto& [label, moments] : learnt) {
        PlainDensity& density = densities[label];
        std::vector<std::vector<double>> matrix;
        for (const std::size_t i : kept) {
            density.mean.push_back(moments.mean[i]);
            matrix.emplace_back();
            for (const std::size_t j : kept) {
                const double own = moments.covariance[i][j];
                matrix.back().push_back(i != j ? (1.0 - share) * own : own > 0.0 ? own : pooled[i]);
            }
        }
        density.factorise(matrix);
    }
    double right = 0.0;
    for (const Sample& sample : test) {
        std::vector<double> x;
        for (const std::size_t i : kept) {
            x.push_back(sample.values[i]);
        }
        long best = 0;
        for (const auto& [label, density] : densities) {
            best = density.at(x) > densities[best].at(x) ? label : best;
        }
        right += best == sample.label ? 1.0 : 0.0;
    }
    return right / static_cast<double>(test.size());
}

}  // namespace

int main()
{
    const double shares[] = {1e-6, 1e-4, 1e-3, 1e-2, 1e-1, 0.3};
    std::printf("64 measurements, ten categories        joint, with a share off the correlations of\n");
    std::printf("training  independent  joint");
    for (const double share : shares) {
        std::printf("  %5g", share);
    }
    std::printf("\n");
    const Samples test = digitLookAlikes(1000, 2);
    for (const std::size_t number : {200u, 490u, 1000u}) {
        const Samples training = digitLookAlikes(number, 1);
        std::printf("%8zu        %4.0f %%  %3.0f %%", number, 100.0 * libraryShare(training, test, false),
                    100.0 * libraryShare(training, test, true));
        for (const double share : shares) {
            std::printf("  %3.0f %%", 100.0 * plainShare(training, test, share));
        }
        std::printf("\n");
    }
    return 0;
}
