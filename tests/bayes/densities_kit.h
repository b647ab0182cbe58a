#pragma once

// What the tests of the densities share.

#include "bayes_kit.h"

#include "support/messages.h"
#include "support/normal_reference.h"

namespace bayes {

using Binomial = kt_PDFBinomial;
using Normal = kt_PDFMultivariateNormal;
using Values = std::vector<double>;

inline ktFeaturePattern pattern(double value)
{
    return {{value}, {}};
}

inline std::vector<ktFeaturePattern> single(const Values& values)
{
    std::vector<ktFeaturePattern> list;
    for (const double value : values) {
        list.push_back(pattern(value));
    }
    return list;
}

inline Binomial learnt(double maximum, const Values& values)
{
    Binomial density(pattern(maximum));
    density.updateWithData(single(values));
    return density;
}

inline Normal learnt(const std::vector<ktFeaturePattern>& list)
{
    Normal density;
    density.updateWithData(list);
    return density;
}

inline Normal learnt(const kt_test::Rows& rows)
{
    return learnt(patterns(rows));
}

inline double maximumOf(const Binomial& density)
{
    return fieldsOf(density).maximum;
}

template <class Operation>
void expectNotImplemented(Operation operation)
{
    kt_test::expectThrows<ktClassifierDefs::NotImplemented>("Multivariate Binomial Distributions are not implemented",
                                                            operation);
}

template <class Operation>
void expectBadParams(const char* message, Operation operation)
{
    kt_test::expectThrows<ktClassifierDefs::BadParams>(message, operation);
}

template <class Operation>
void expectInsufficient(Operation operation)
{
    kt_test::expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "Insufficient data has been used to train the distribution", operation);
}

template <class Operation>
void expectDifferentSizes(Operation operation)
{
    kt_test::expectThrows<ktClassifierDefs::BadParams>(
        "Must call clear before updating with feature vectors of different sizes", operation);
}

template <class Operation>
void expectNoValidData(Operation operation)
{
    kt_test::expectThrows<ktClassifierDefs::InsufficientTrainData>(
        "No valid data has been used to train the distribution", operation);
}

/// ln of n over k, of exact integers.
inline double logChoose(long n, long k)
{
    long double product = 1.0L;
    for (long i = 1; i <= k; ++i) {
        product = product * static_cast<long double>(n - k + i) / static_cast<long double>(i);
    }
    return static_cast<double>(std::log(product));
}

}  // namespace bayes
