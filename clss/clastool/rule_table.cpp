#include <clastool/rule_table.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

namespace {

// Stored in archives: never change.
enum ScoreTag : unsigned long {
    ignoreTag = 5682,
    oneSidedTag = 33385,
    twoSidedTag = 59820,
};

void requireUnitInterval(double value, const char* name)
{
    if (!(0.0 <= value && value <= 1.0)) {
        throw ktClassifierDefs::BadParams(std::string(name) + " must be between 0 and 1");
    }
}

bool isBetween(double x0, double x1, double xc)
{
    return !((x1 > x0 && x1 > xc) || (x1 < x0 && x1 < xc));
}

/// Neither less nor greater, so NaN equals NaN.
bool isSame(double a, double b)
{
    return !(a < b) && !(a > b);
}

/// Whether one half of a two-sided function extends past the point where the other half begins.
bool reachesPast(double x0, double x1, double xc, double lowest)
{
    return x0 > lowest || x1 > lowest || xc > lowest;
}

/// The object as the given class; null for any other class, also a derived one.
template <class Score>
const Score* exactly(const ktClsFtSc& score)
{
    return typeid(score) == typeid(Score) ? static_cast<const Score*>(&score) : nullptr;
}

template <class Score>
void storeScore(ktArchive& archive, unsigned long tag, const Score& score)
{
    // A copy, because the one operation also loads.
    Score copy(score);
    archive || tag || copy;
}

template <class Score>
void loadScore(ktArchive& archive, ktPtrHandle<ktClsFtSc>& handle)
{
    auto score = std::make_unique<Score>();
    archive || *score;
    handle = score.release();
}

}  // namespace

bool ktClsFtSc::operator==(const ktClsFtSc& other) const
{
    return typeid(*this) == typeid(other);
}

double ktClassifierFeatureScoreIgnore::score(double) const
{
    return -1.0;
}

ktClsFtSc* ktClassifierFeatureScoreIgnore::clone() const
{
    return new ktClassifierFeatureScoreIgnore(*this);
}

bool ktClassifierFeatureScoreIgnore::operator==(const ktClsFtSc& other) const
{
    return typeid(*this) == typeid(other);
}

ktClassifierFeatureScoreOneSided::ktClassifierFeatureScoreOneSided() = default;

void ktClassifierFeatureScoreOneSided::init(double x0, double x1, double xc, double y0, double y1)
{
    requireUnitInterval(y0, "y0");
    requireUnitInterval(y1, "y1");
    if (!isBetween(x0, x1, xc)) {
        // Kept on purpose: "be lie".
        throw ktClassifierDefs::BadParams("x1 must be lie between x0 and xc");
    }
    x0_ = x0;
    x1_ = x1;
    xc_ = xc;
    y0_ = y0;
    y1_ = y1;
}

void ktClassifierFeatureScoreOneSided::y0(double value)
{
    requireUnitInterval(value, "y0");
    y0_ = value;
}

void ktClassifierFeatureScoreOneSided::y1(double value)
{
    requireUnitInterval(value, "y1");
    y1_ = value;
}

void ktClassifierFeatureScoreOneSided::requireOrdered() const
{
    if (!isBetween(x0_, x1_, xc_)) {
        throw ktClassifierDefs::BadParams("x1 must lie between x0 and xc");
    }
}

double ktClassifierFeatureScoreOneSided::score(double x) const
{
    requireOrdered();
    const bool rises = x0_ <= x1_ && x1_ <= xc_;
    // The order of the comparisons decides: x1 takes precedence over an equal x0, and xc itself still scores y1.
    if (rises ? x > xc_ : x < xc_) {
        return 0.0;
    }
    if (rises ? x >= x1_ : x <= x1_) {
        return y1_;
    }
    if (rises ? x <= x0_ : x >= x0_) {
        return y0_;
    }
    return (x1_ * y0_ - x0_ * y1_ - (y0_ - y1_) * x) / (x1_ - x0_);
}

ktClsFtSc* ktClassifierFeatureScoreOneSided::clone() const
{
    return new ktClassifierFeatureScoreOneSided(*this);
}

bool ktClassifierFeatureScoreOneSided::operator==(const ktClsFtSc& other) const
{
    if (typeid(*this) != typeid(other)) {
        return false;
    }
    const auto& same = static_cast<const ktClassifierFeatureScoreOneSided&>(other);
    return isSame(x0_, same.x0_) && isSame(x1_, same.x1_) && isSame(xc_, same.xc_) && isSame(y0_, same.y0_) &&
           isSame(y1_, same.y1_);
}

ktClassifierFeatureScoreTwoSided::ktClassifierFeatureScoreTwoSided()
{
    init(0.0, -1.0, -1.0, 0.0, 1.0, 1.0, 1.0, 0.0, 1.0, 0.0);
}

void ktClassifierFeatureScoreTwoSided::init(double x0, double x1, double xc, double x0h, double x1h, double xch,
                                            double y0, double y1, double y0h, double y1h)
{
    if (reachesPast(x0, x1, xc, std::min({x0h, x1h, xch}))) {
        throw ktClassifierDefs::BadParams("x0 > lowest || x1 > lowest || xc > lowest");
    }
    ktClassifierFeatureScoreOneSided newLow;
    newLow.init(x0, x1, xc, y0, y1);
    high_.init(x0h, x1h, xch, y0h, y1h);
    low_ = newLow;
}

void ktClassifierFeatureScoreTwoSided::y0(double value)
{
    low_.y0(value);
}

void ktClassifierFeatureScoreTwoSided::y1(double value)
{
    low_.y1(value);
}

void ktClassifierFeatureScoreTwoSided::y0h(double value)
{
    requireUnitInterval(value, "y0h");
    high_.y0(value);
}

void ktClassifierFeatureScoreTwoSided::y1h(double value)
{
    requireUnitInterval(value, "y1h");
    high_.y1(value);
}

double ktClassifierFeatureScoreTwoSided::score(double x) const
{
    low_.requireOrdered();
    high_.requireOrdered();
    const double lowest = std::min({x0h(), x1h(), xch()});
    if (reachesPast(x0(), x1(), xc(), lowest)) {
        // Kept on purpose: another text than that of `init`.
        throw ktClassifierDefs::BadParams("Bad x values");
    }
    return x < lowest ? low_.score(x) : high_.score(x);
}

ktClsFtSc* ktClassifierFeatureScoreTwoSided::clone() const
{
    return new ktClassifierFeatureScoreTwoSided(*this);
}

bool ktClassifierFeatureScoreTwoSided::operator==(const ktClsFtSc& other) const
{
    if (typeid(*this) != typeid(other)) {
        return false;
    }
    const auto& same = static_cast<const ktClassifierFeatureScoreTwoSided&>(other);
    return low_ == same.low_ && high_ == same.high_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierFeatureScoreOneSided& score)
{
    const ktArchive::Pass pass(archive);
    return archive || score.x0_ || score.x1_ || score.xc_ || score.y0_ || score.y1_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierFeatureScoreTwoSided& score)
{
    const ktArchive::Pass pass(archive);
    return archive || score.low_ || score.high_;
}

ktArchive& operator||(ktArchive& archive, ktPtrHandle<ktClsFtSc>& handle)
{
    const ktArchive::Pass pass(archive);
    if (archive.isStoring()) {
        const ktClsFtSc& held = *handle;
        if (exactly<ktClassifierFeatureScoreIgnore>(held) != nullptr) {
            unsigned long tag = ignoreTag;
            archive || tag;
        } else if (const auto* oneSided = exactly<ktClassifierFeatureScoreOneSided>(held)) {
            storeScore(archive, oneSidedTag, *oneSided);
        } else if (const auto* twoSided = exactly<ktClassifierFeatureScoreTwoSided>(held)) {
            storeScore(archive, twoSidedTag, *twoSided);
        }
        // Kept on purpose: an object of any other class writes no byte.
        return archive;
    }
    unsigned long tag = 0;
    archive || tag;
    switch (tag) {
    case ignoreTag:
        handle = new ktClassifierFeatureScoreIgnore;
        break;
    case oneSidedTag:
        loadScore<ktClassifierFeatureScoreOneSided>(archive, handle);
        break;
    case twoSidedTag:
        loadScore<ktClassifierFeatureScoreTwoSided>(archive, handle);
        break;
    default:
        // Kept on purpose: an unknown tag leaves the handle as it was.
        break;
    }
    return archive;
}

ktClassifierFeatureVector::ktClassifierFeatureVector(const std::vector<double>& featureValues) : values_(featureValues)
{
}

ktArchive& operator||(ktArchive& archive, ktClassifierFeatureVector& featureVector)
{
    return archive || featureVector.values_;
}

ktClassifierRule::ktClassifierRule() = default;

ktClassifierRule& ktClassifierRule::operator=(const ktClassifierRule& other)
{
    return *this = ktClassifierRule(other);
}

void ktClassifierRule::init(const std::vector<ktPtrHandle<ktClsFtSc>>& scoringMethods, long label)
{
    if (label < 0) {
        throw ktClassifierDefs::BadParams("label < 0");
    }
    if (scoringMethods.empty()) {
        throw ktClassifierDefs::BadParams("scoringMethods.size() == 0");
    }
    auto methods = scoringMethods;
    methods_.swap(methods);
    label_ = label;
}

double ktClassifierRule::score(const ktClassifierFeatureVector& featureVector) const
{
    const std::vector<double>& values = featureVector.featureValues();
    if (values.size() != methods_.size()) {
        throw ktClassifierDefs::BadParams("MismatchedFeatureVectorSize");
    }
    if (values.empty()) {
        throw ktClassifierDefs::BadParams("featureVector.featureValues().size() == 0");
    }
    double product = 1.0;
    double count = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double score = methods_[i]->score(values[i]);
        // Kept on purpose: NaN is neither less nor greater than the ignore marker, and is left out too.
        if (!isSame(score, -1.0)) {
            product = product * score;
            count = count + 1.0;
        }
    }
    if (!(product > 0.0)) {
        return product;
    }
    // Kept on purpose: if every feature is left out this is pow(1, infinity) = 1.
    return std::pow(product, 1.0 / count);
}

bool ktClassifierRule::operator==(const ktClassifierRule& other) const
{
    const auto isEqual = [](const ktPtrHandle<ktClsFtSc>& a, const ktPtrHandle<ktClsFtSc>& b) { return *a == *b; };
    return methods_.size() == other.methods_.size() &&
           std::equal(methods_.begin(), methods_.end(), other.methods_.begin(), isEqual) && label_ == other.label_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierRule& rule)
{
    const ktArchive::Pass pass(archive);
    return archive || rule.methods_ || rule.label_;
}

ktClassifierRuleTable::ktClassifierRuleTable() = default;

ktClassifierRuleTable& ktClassifierRuleTable::operator=(const ktClassifierRuleTable& other)
{
    return *this = ktClassifierRuleTable(other);
}

void ktClassifierRuleTable::train(const std::vector<ktClassifierRule>& rules)
{
    if (rules.empty()) {
        throw ktClassifierDefs::BadParams("rules.size() == 0");
    }
    const std::size_t ruleSize = rules.front().scoringMethods().size();
    for (const ktClassifierRule& rule : rules) {
        if (rule.scoringMethods().size() != ruleSize) {
            // Kept on purpose: the i is not replaced by the index.
            throw ktClassifierDefs::BadParams("rules[i].scoringMethods().size() != ruleSize");
        }
    }
    auto newRules = rules;
    rules_.swap(newRules);
}

long ktClassifierRuleTable::classifyHardThreshold(const ktClassifierFeatureVector& featureVector,
                                                  double hardThreshold) const
{
    if (!(0.0 <= hardThreshold && hardThreshold <= 1.0)) {
        throw ktClassifierDefs::BadParams("hardThreshold < 0 || hardThreshold > 1");
    }
    if (rules_.empty()) {
        throw ktClassifierDefs::NotTrained("the rule table needs to be trained before it can classify");
    }
    if (featureVector.featureValues().empty()) {
        throw ktClassifierDefs::BadParams("featureVector.featureValues().size() == 0");
    }
    if (featureVector.featureValues().size() != rules_.front().scoringMethods().size()) {
        // Kept on purpose: the unbalanced parenthesis.
        throw ktClassifierDefs::BadParams("featureVector.featureValues().size() != rules_[0].scoringMethods().size())");
    }
    for (const ktClassifierRule& rule : rules_) {
        if (rule.score(featureVector) > hardThreshold) {
            return rule.label();
        }
    }
    return -1;
}

ktArchive& operator||(ktArchive& archive, ktClassifierRuleTable& table)
{
    return archive || table.rules_;
}
