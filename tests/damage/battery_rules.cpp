// Scoring functions, rules and rule tables.

#include "battery_kit.h"

namespace kt_test::battery {

namespace {

void useScore(ktClsFtSc& score)
{
    const ktPtrHandle<ktClsFtSc> clone = score.clone();
    promise((score == *clone) == (*clone == score), "equality goes both ways");
    for (const double x : {0.0, 3.0, -1e308, infinity, -infinity, nan}) {
        attempt([&] { static_cast<void>(score.score(x)); });
    }
    ktClassifierRule rule;
    attempt([&] {
        rule.init({clone}, 3);
        static_cast<void>(rule.score(ktClassifierFeatureVector({0.5})));
    });
}

std::vector<ktClassifierFeatureVector> featureVectors(std::size_t size)
{
    std::vector<ktClassifierFeatureVector> all;
    for (const std::size_t each : {std::size_t{0}, size, size + 1}) {
        for (const double value : {3.0, nan, -infinity}) {
            all.emplace_back(std::vector<double>(each, value));
        }
    }
    return all;
}

}  // namespace

void useAs(ktPtrHandle<ktClsFtSc>& score)
{
    if (score) {
        useScore(*score);
    }
}

void useAs(ktClassifierFeatureScoreOneSided& score)
{
    useScore(score);
    attempt([&] { score.init(score.x0(), score.x1(), score.xc(), score.y0(), score.y1()); });
    attempt([&] { score.y0(score.y0()); });
    attempt([&] { score.y1(score.y1()); });
    score.x0(nan);
    useScore(score);
}

void useAs(ktClassifierFeatureScoreTwoSided& score)
{
    useScore(score);
    ktClassifierFeatureScoreOneSided low(score.Low());
    ktClassifierFeatureScoreOneSided high(score.High());
    useAs(low);
    useAs(high);
    attempt([&] {
        score.init(score.x0(), score.x1(), score.xc(), score.x0h(), score.x1h(), score.xch(), score.y0(), score.y1(),
                   score.y0h(), score.y1h());
    });
    score.xch(nan);
    useScore(score);
}

void useAs(ktClassifierFeatureVector& values)
{
    for (const std::size_t size : {std::size_t{1}, values.featureValues().size()}) {
        ktClassifierRule rule;
        attempt([&] {
            rule.init(std::vector<ktPtrHandle<ktClsFtSc>>(size, new ktClassifierFeatureScoreOneSided), 3);
            static_cast<void>(rule.score(values));
        });
    }
}

void useAs(ktClassifierRule& rule)
{
    for (const ktClassifierFeatureVector& values : featureVectors(rule.scoringMethods().size())) {
        attempt([&] { static_cast<void>(rule.score(values)); });
    }
    for (const ktPtrHandle<ktClsFtSc>& method : rule.scoringMethods()) {
        if (method) {
            useScore(*method);
        }
    }
    ktClassifierRuleTable table;
    attempt([&] { table.train({rule, rule}); });
    attempt([&] { rule.init(std::vector<ktPtrHandle<ktClsFtSc>>(rule.scoringMethods()), 5); });
}

void useAs(ktClassifierRuleTable& table)
{
    const std::size_t size = table.rules().empty() ? 1 : table.rules().front().scoringMethods().size();
    for (const ktClassifierFeatureVector& values : featureVectors(size)) {
        for (const double threshold : {0.5, -1.0, nan}) {
            attempt([&] { static_cast<void>(table.classifyHardThreshold(values, threshold)); });
        }
    }
    for (ktClassifierRule rule : table.rules()) {
        useAs(rule);
    }
    attempt([&] { table.train(std::vector<ktClassifierRule>(table.rules())); });
}

}  // namespace kt_test::battery
