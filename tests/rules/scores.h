#pragma once

#include "support/test.h"

// What the tests of scoring functions, rules and tables share.

namespace kt_test {

constexpr double tiny = std::numeric_limits<double>::denorm_min();

using ScoreHandle = ktPtrHandle<ktClsFtSc>;
using ScoreHandles = std::vector<ScoreHandle>;

/// Expects that `operation` throws exactly a ktClassifierDefs::BadParams with this whole message.
template <class Operation>
void expectBadParams(const std::string& message, Operation operation)
{
    expectThrows<ktClassifierDefs::BadParams>(message, operation);
}

/// A scoring function of a user's own: one score for every value.
class Constant : public ktClsFtSc {
public:
    explicit Constant(double score) : score_(score) {}

    double score(double) const override
    {
        ++timesAsked_;
        return score_;
    }
    Constant* clone() const override { return new Constant(*this); }
    bool operator==(const ktClsFtSc& other) const override
    {
        const auto* same = dynamic_cast<const Constant*>(&other);
        return same != nullptr && same->score_ == score_;
    }

    long timesAsked() const { return timesAsked_; }

private:
    double score_;
    mutable long timesAsked_ = 0;
};

/// A class of its own, however much it looks like the one it derives from.
class DerivedOneSided : public ktClassifierFeatureScoreOneSided {};
class DerivedTwoSided : public ktClassifierFeatureScoreTwoSided {};
class DerivedIgnore : public ktClassifierFeatureScoreIgnore {};

inline ktClassifierFeatureScoreOneSided oneSided(double x0, double x1, double xc, double y0, double y1)
{
    ktClassifierFeatureScoreOneSided score;
    score.init(x0, x1, xc, y0, y1);
    return score;
}

/// Functions that give these scores for any value.
inline ScoreHandles constants(const std::vector<double>& scores)
{
    ScoreHandles methods;
    for (const double score : scores) {
        methods.push_back(new Constant(score));
    }
    return methods;
}

inline ktClassifierRule rule(const ScoreHandles& methods, long label)
{
    ktClassifierRule made;
    made.init(methods, label);
    return made;
}

inline ktClassifierRuleTable table(const std::vector<ktClassifierRule>& rules)
{
    ktClassifierRuleTable made;
    made.train(rules);
    return made;
}

/// Rules of one constant each, with the labels 10, 11, 12, ...
inline ktClassifierRuleTable tableOfScores(const std::vector<double>& scores)
{
    std::vector<ktClassifierRule> rules;
    for (const double score : scores) {
        rules.push_back(rule(constants({score}), 10 + static_cast<long>(rules.size())));
    }
    return table(rules);
}

/// The trapezoid in the golden archives.
inline ktClassifierFeatureScoreTwoSided storedTrapezoid()
{
    ktClassifierFeatureScoreTwoSided score;
    score.init(1.0, 2.0, 4.0, 8.0, 5.0, 4.0, 0.25, 1.0, 0.125, 0.5);
    return score;
}

/// A vector of `count` arbitrary values.
inline ktClassifierFeatureVector anyValues(std::size_t count)
{
    return ktClassifierFeatureVector(std::vector<double>(count, 0.5));
}

/// With the default constructor that loading takes.
struct StoredVector : ktClassifierFeatureVector {
    StoredVector() : StoredVector(std::vector<double>{}) {}
    StoredVector(const std::vector<double>& values) : ktClassifierFeatureVector(values) {}
};

}  // namespace kt_test
