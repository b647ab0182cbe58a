// The comparisons of scoring functions, rules and rule tables compile in either language standard without a warning. The
// functions' operator is a virtual member of their base, so every pair of classes is another call.

#include <clastool/rule_table.h>

namespace {

class OwnScore : public ktClsFtSc {
public:
    double score(double) const override { return 1.0; }
    OwnScore* clone() const override { return new OwnScore(*this); }
    bool operator==(const ktClsFtSc& other) const override { return dynamic_cast<const OwnScore*>(&other) != nullptr; }
};

class PlainScore : public ktClsFtSc {
public:
    double score(double) const override { return 1.0; }
    PlainScore* clone() const override { return new PlainScore(*this); }
};

template <class A, class B>
bool compares(const A& a, const B& b)
{
    return (a == b) != (a != b) && (b == a) != (b != a);
}

template <class Score>
bool comparesWithEveryScore(const Score& score)
{
    const ktClsFtSc& base = score;
    return compares(score, base) && compares(base, base) && compares(score, ktClassifierFeatureScoreIgnore()) &&
           compares(score, ktClassifierFeatureScoreOneSided()) && compares(score, ktClassifierFeatureScoreTwoSided()) &&
           compares(score, OwnScore()) && compares(score, PlainScore());
}

}  // namespace

bool everyRuleComparison()
{
    const ktPtrHandle<ktClsFtSc> handle;
    return comparesWithEveryScore(ktClassifierFeatureScoreIgnore()) &&
           comparesWithEveryScore(ktClassifierFeatureScoreOneSided()) &&
           comparesWithEveryScore(ktClassifierFeatureScoreTwoSided()) && comparesWithEveryScore(OwnScore()) &&
           comparesWithEveryScore(PlainScore()) && compares(handle, handle) &&
           compares(ktClassifierRule(), ktClassifierRule()) &&
           compares(ktClassifierRuleTable(), ktClassifierRuleTable());
}
