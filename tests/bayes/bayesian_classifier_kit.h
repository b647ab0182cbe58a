#pragma once

#include "bayes_kit.h"

#include "support/messages.h"
#include "support/normal_reference.h"

// What the tests of the Bayesian classifier share.

namespace bayes {

/// Two categories of two measurements.
inline const std::vector<kt_test::Labelled> twoCategories = {{{1.0, 10.0}, 5}, {{2.0, 12.0}, 5}, {{8.0, 30.0}, 2},
                                                             {{9.0, 36.0}, 2}, {{3.0, 11.0}, 5}, {{7.0, 33.0}, 2}};

/// Expects the error from a run, and the caller's result untouched.
template <class Error>
void expectRunThrows(const kt_Classifier& classifier, const std::string& message,
                     const ktFeaturePattern& query = pattern({0.5, 0.5}))
{
    ktClassifierResult result = kt_test::untouchedResult();
    kt_test::expectThrows<Error>(message, [&] { classifier.run(query, result); });
    EXPECT_TRUE(result == kt_test::untouchedResult());
}

/// Categories with two normal groups and a binomial one.
inline OpenBayesian ofCategories(long categories)
{
    Types types;
    std::vector<kt_test::Labelled> rows;
    for (long i = 0; i < categories; ++i) {
        types.distributionTypeOverride(i, 2, Types::eBinomial);
        types.setDependent(i, {0, 3});
        const auto shift = static_cast<double>(i);
        for (const std::vector<double>& row : kt_test::TrainingSet{8, 4, 0.0, 3.0, 22}.rows()) {
            rows.push_back({{row[0] + shift, row[1], std::floor(std::abs(3.0 * row[2])), row[3] - shift}, i});
        }
    }
    return trained(rows, Params(types, {}, {}, pattern({1.0, 1.0, 20.0, 1.0})));
}

/// Normal densities over all measurements of each category together.
inline Params allTogether(std::size_t numMeasurements, long numCategories)
{
    Indices all(numMeasurements);
    std::iota(all.begin(), all.end(), 0);
    Types types;
    for (long label = 0; label < numCategories; ++label) {
        types.setDependent(label, all);
    }
    return {types};
}

/// `numbers[label]` samples of each category; `draw` makes the measurements of one.
inline std::vector<kt_test::Labelled> drawn(const std::vector<int>& numbers,
                                            const std::function<std::vector<double>(long label)>& draw)
{
    std::vector<kt_test::Labelled> rows;
    for (std::size_t label = 0; label < numbers.size(); ++label) {
        for (int i = 0; i < numbers[label]; ++i) {
            rows.push_back({draw(static_cast<long>(label)), static_cast<long>(label)});
        }
    }
    return rows;
}

/// The label of least expected cost.
inline long decided(const kt_Classifier& classifier, const std::vector<double>& values, const Indices& invalid = {})
{
    return kt_test::labelsOf(answer(classifier, pattern(values, invalid)))[0];
}

/// The log-likelihood of a category.
inline double logLikelihood(const ktClassifierResult& result, long label)
{
    return std::log(kt_test::entryFor(result, label).matchScore()) - result.matchScoreFactorLog();
}

/// Equal, or both not a number.
inline bool isSame(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

/// Claims as many measurements as a `long` can count.
class BoastingProvider : public ktClassifierDataProviderMemory {
public:
    long numMeasurements() const override { return std::numeric_limits<long>::max(); }
};

/// The share of the rows that get their own label.
inline double shareRight(const kt_Classifier& classifier, const std::vector<kt_test::Labelled>& rows)
{
    double right = 0.0;
    for (const kt_test::Labelled& row : rows) {
        right += decided(classifier, row.measurements) == row.label ? 1.0 : 0.0;
    }
    return right / static_cast<double>(rows.size());
}

/// ln of the normal density at x.
inline double logNormal(double x, double mean, double variance)
{
    return -0.5 * std::log(2.0 * 3.14159265358979323846 * variance) - 0.5 * (x - mean) * (x - mean) / variance;
}

}  // namespace bayes
