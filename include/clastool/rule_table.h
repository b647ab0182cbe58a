#pragma once

#include <clastool/foundation.h>

#include <cstddef>
#include <type_traits>
#include <vector>

class ktClsFtSc;
class ktClassifierFeatureScoreOneSided;
class ktClassifierFeatureScoreTwoSided;

/// x0, x1, xc, y0, y1. Loading does not validate.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFeatureScoreOneSided& score);
/// The low half, then the high half. Loading does not validate.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFeatureScoreTwoSided& score);
/// A tag for the class, then the values. Throws, storing: ktBadPointer for a null handle.
/// Kept on purpose: an object of a class of the caller's own writes nothing at all, and an unknown tag leaves the handle as
/// it was.
KT_API ktArchive& operator||(ktArchive& archive, ktPtrHandle<ktClsFtSc>& handle);

/// Maps one measured value to a score between 0 and 1 (a fuzzy membership). Derive from it for a function of your own;
/// archives know the three classes below only.
///
/// Threads: const operations run on several threads at once.
class KT_API ktClsFtSc : public ktRepBase {
public:
    /// The score; -1.0 and NaN mean that the value is to be left out of a rule's score.
    virtual double score(double x) const = 0;
    /// A new copy, owned by the caller until a handle takes it.
    virtual ktClsFtSc* clone() const = 0;
    /// The same exact class and equal values; NaN equals NaN. The base version compares the classes alone: a class with values
    /// overrides it.
    virtual bool operator==(const ktClsFtSc& other) const;
};

/// Compares two scoring functions of known classes: without it, C++20 would find the comparison ambiguous with its own
/// reversal.
template <class A, class B,
          class = std::enable_if_t<std::is_base_of_v<ktClsFtSc, A> && std::is_base_of_v<ktClsFtSc, B>>>
bool operator==(const A& a, const B& b)
{
    return static_cast<const ktClsFtSc&>(a).operator==(static_cast<const ktClsFtSc&>(b));
}
/// Not `==`.
template <class A, class B,
          class = std::enable_if_t<std::is_base_of_v<ktClsFtSc, A> && std::is_base_of_v<ktClsFtSc, B>>>
bool operator!=(const A& a, const B& b)
{
    return !static_cast<const ktClsFtSc&>(a).operator==(static_cast<const ktClsFtSc&>(b));
}

/// Leaves its feature out of a rule's score.
class KT_API ktClassifierFeatureScoreIgnore : public ktClsFtSc {
public:
    /// -1.0, for any value.
    double score(double x) const override;
    ktClsFtSc* clone() const override;
    bool operator==(const ktClsFtSc& other) const override;
};

/// A ramp: the score is y0 on the outer side of x0, changes linearly to y1 between x0 and x1, stays y1 from x1 up to and
/// including xc, and is 0 past xc. It runs up the axis for x0 <= x1 <= xc and down the axis for xc <= x1 <= x0.
///
/// Copy: member by member.
class KT_API ktClassifierFeatureScoreOneSided : public ktClsFtSc {
public:
    /// x0 = 0, x1 = 1, xc = 1, y0 = 1, y1 = 0.
    ktClassifierFeatureScoreOneSided();

    /// Throws ktClassifierDefs::BadParams: "y0 must be between 0 and 1", then "y1 must be between 0 and 1", then "x1 must be
    /// lie between x0 and xc" (kept on purpose: "be lie" here, the plain wording in `score`).
    void init(double x0, double x1, double xc, double y0, double y1);

    /// Where the ramp begins, in the unit of the measurement.
    double x0() const { return x0_; }
    /// Where the ramp ends.
    double x1() const { return x1_; }
    /// The end of the function: past it the score is 0.
    double xc() const { return xc_; }
    /// The score on the outer side of x0.
    double y0() const { return y0_; }
    /// The score from x1 to xc.
    double y1() const { return y1_; }

    /// Not checked: `score` refuses an order that does not fit.
    void x0(double value) { x0_ = value; }
    /// Not checked: `score` refuses an order that does not fit.
    void x1(double value) { x1_ = value; }
    /// Not checked: `score` refuses an order that does not fit.
    void xc(double value) { xc_ = value; }
    /// Throws: ktClassifierDefs::BadParams "y0 must be between 0 and 1".
    void y0(double value);
    /// Throws: ktClassifierDefs::BadParams "y1 must be between 0 and 1".
    void y1(double value);

    /// Between x0 and x1: (x1 y0 - x0 y1 - (y0 - y1) x) / (x1 - x0). NaN takes this branch and stays NaN, also where x0 and
    /// x1 are equal.
    /// Throws: ktClassifierDefs::BadParams "x1 must lie between x0 and xc".
    double score(double x) const override;
    ktClsFtSc* clone() const override;
    bool operator==(const ktClsFtSc& other) const override;

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFeatureScoreOneSided& score);
    friend class ktClassifierFeatureScoreTwoSided;

    void requireOrdered() const;

    double x0_ = 0.0;
    double x1_ = 1.0;
    double xc_ = 1.0;
    double y0_ = 1.0;
    double y1_ = 0.0;
};

/// Two ramps side by side: `Low` below the split point, `High` at and above it. The split point is the smallest x of `High`.
///
/// Copy: copies both halves.
class KT_API ktClassifierFeatureScoreTwoSided : public ktClsFtSc {
public:
    /// A triangle: 1 at 0, falling to 0 at -1 and at +1.
    ktClassifierFeatureScoreTwoSided();

    /// The x values of both halves first, then the y values.
    /// Throws ktClassifierDefs::BadParams: "x0 > lowest || x1 > lowest || xc > lowest"; then what the one-sided `init` throws
    /// for the low half, then for the high half. A failure leaves both as they were.
    void init(double x0, double x1, double xc, double x0h, double x1h, double xch, double y0, double y1, double y0h,
              double y1h);

    /// The low half's x0.
    double x0() const { return low_.x0(); }
    /// The low half's x1.
    double x1() const { return low_.x1(); }
    /// The low half's end.
    double xc() const { return low_.xc(); }
    /// The low half's y0.
    double y0() const { return low_.y0(); }
    /// The low half's y1.
    double y1() const { return low_.y1(); }
    /// The high half's x0.
    double x0h() const { return high_.x0(); }
    /// The high half's x1.
    double x1h() const { return high_.x1(); }
    /// The high half's end.
    double xch() const { return high_.xc(); }
    /// The high half's y0.
    double y0h() const { return high_.y0(); }
    /// The high half's y1.
    double y1h() const { return high_.y1(); }

    /// Not checked: `score` refuses an order that does not fit.
    void x0(double value) { low_.x0(value); }
    /// Not checked: `score` refuses an order that does not fit.
    void x1(double value) { low_.x1(value); }
    /// Not checked: `score` refuses an order that does not fit.
    void xc(double value) { low_.xc(value); }
    /// Not checked: `score` refuses an order that does not fit.
    void x0h(double value) { high_.x0(value); }
    /// Not checked: `score` refuses an order that does not fit.
    void x1h(double value) { high_.x1(value); }
    /// Not checked: `score` refuses an order that does not fit.
    void xch(double value) { high_.xc(value); }
    /// Throws: ktClassifierDefs::BadParams "y0 must be between 0 and 1".
    void y0(double value);
    /// Throws: ktClassifierDefs::BadParams "y1 must be between 0 and 1".
    void y1(double value);
    /// Throws: ktClassifierDefs::BadParams "y0h must be between 0 and 1".
    void y0h(double value);
    /// Throws: ktClassifierDefs::BadParams "y1h must be between 0 and 1".
    void y1h(double value);

    /// The half below the split point.
    const ktClassifierFeatureScoreOneSided& Low() const { return low_; }
    /// The half at and above the split point.
    const ktClassifierFeatureScoreOneSided& High() const { return high_; }

    /// Throws ktClassifierDefs::BadParams: "x1 must lie between x0 and xc" for the low, then for the high half; "Bad x
    /// values" (kept on purpose: another text than that of `init`) if the low half reaches past the split point.
    double score(double x) const override;
    ktClsFtSc* clone() const override;
    bool operator==(const ktClsFtSc& other) const override;

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFeatureScoreTwoSided& score);

    ktClassifierFeatureScoreOneSided low_;
    ktClassifierFeatureScoreOneSided high_;
};

template <>
struct ktLeastStoredSize<ktPtrHandle<ktClsFtSc>> {
    static constexpr std::size_t value = 4;
};

class ktClassifierFeatureVector;
class ktClassifierRule;
class ktClassifierRuleTable;

/// The values as a vector.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFeatureVector& featureVector);
/// The scoring functions as a vector of tagged handles, then the label. Loading does not validate.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierRule& rule);
/// The rules as a vector. Loading does not validate.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierRuleTable& table);

/// The measured values of one object, in feature order.
///
/// Copy: copies the values.
class KT_API ktClassifierFeatureVector {
public:
    /// Takes any number of values; a rule checks it.
    ktClassifierFeatureVector(const std::vector<double>& featureValues);

    /// The values in feature order.
    const std::vector<double>& featureValues() const { return values_; }

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFeatureVector& featureVector);

    std::vector<double> values_;
};

template <>
struct ktLeastStoredSize<ktClassifierFeatureVector> {
    static constexpr std::size_t value = 5;
};

/// A fuzzy rule: one scoring function a feature, and the label that it stands for.
///
/// Ownership: shares its scoring functions with whoever supplied them. Copy: shares them too.
/// Threads: const operations run on several threads at once.
class KT_API ktClassifierRule {
public:
    /// No scoring functions, label 0.
    ktClassifierRule();
    ktClassifierRule(const ktClassifierRule&) = default;
    ktClassifierRule(ktClassifierRule&&) noexcept = default;
    ktClassifierRule& operator=(const ktClassifierRule& other);
    ktClassifierRule& operator=(ktClassifierRule&&) noexcept = default;
    ~ktClassifierRule() = default;

    /// A null scoring function is accepted here and fails in `score`.
    /// Throws ktClassifierDefs::BadParams: "label < 0", then "scoringMethods.size() == 0".
    void init(const std::vector<ktPtrHandle<ktClsFtSc>>& scoringMethods, long label);

    /// The scoring functions in feature order, shared with whoever supplied them.
    const std::vector<ktPtrHandle<ktClsFtSc>>& scoringMethods() const { return methods_; }
    /// What the rule stands for.
    long label() const { return label_; }

    /// The geometric mean of the scores that count: (s_1 s_2 ... s_n)^(1/n), 0 if one of them is 0.
    /// Kept on purpose: NaN is left out like the ignore marker -1.0; if all are left out the score is pow(1, infinity) = 1.
    /// Throws: ktClassifierDefs::BadParams "MismatchedFeatureVectorSize", then, for an empty vector,
    /// ktClassifierDefs::BadParams "featureVector.featureValues().size() == 0"; ktBadPointer for a null scoring function; what
    /// the scoring functions throw.
    double score(const ktClassifierFeatureVector& featureVector) const;

    /// Equal scoring functions in order and equal labels. Throws: ktBadPointer for a null scoring function.
    bool operator==(const ktClassifierRule& other) const;
    bool operator!=(const ktClassifierRule& other) const { return !(*this == other); }

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierRule& rule);

    std::vector<ktPtrHandle<ktClsFtSc>> methods_;
    long label_ = 0;
};

template <>
struct ktLeastStoredSize<ktClassifierRule> {
    static constexpr std::size_t value = 9;
};

/// An ordered list of rules of equal width. The first rule, in table order, whose score exceeds a threshold gives the label,
/// even if a later one scores higher.
///
/// Copy: copies the rules, which share their scoring functions. Threads: const operations run on several threads at once.
class KT_API ktClassifierRuleTable {
public:
    /// No rules: untrained.
    ktClassifierRuleTable();
    ktClassifierRuleTable(const ktClassifierRuleTable&) = default;
    ktClassifierRuleTable(ktClassifierRuleTable&&) noexcept = default;
    ktClassifierRuleTable& operator=(const ktClassifierRuleTable& other);
    ktClassifierRuleTable& operator=(ktClassifierRuleTable&&) noexcept = default;
    ~ktClassifierRuleTable() = default;

    /// Replaces the rules. Labels are not checked; several rules may share one.
    /// Throws ktClassifierDefs::BadParams: "rules.size() == 0", then "rules[i].scoringMethods().size() != ruleSize" (kept on
    /// purpose: the i is not replaced).
    void train(const std::vector<ktClassifierRule>& rules);

    /// The rules in the order in which they are tried.
    const std::vector<ktClassifierRule>& rules() const { return rules_; }

    /// The label of the first rule whose score is greater than the threshold, or -1.
    /// Throws: ktClassifierDefs::BadParams "hardThreshold < 0 || hardThreshold > 1"; ktClassifierDefs::NotTrained "the rule
    /// table needs to be trained before it can classify"; ktClassifierDefs::BadParams "featureVector.featureValues().size()
    /// == 0"; ktClassifierDefs::BadParams "featureVector.featureValues().size() != rules_[0].scoringMethods().size())" (kept
    /// on purpose: the unbalanced parenthesis); what `ktClassifierRule::score` throws.
    /// Cost: features times rules up to the first that passes.
    long classifyHardThreshold(const ktClassifierFeatureVector& featureVector, double hardThreshold) const;

    /// Equal rules in order. Throws: ktBadPointer for a null scoring function.
    bool operator==(const ktClassifierRuleTable& other) const { return rules_ == other.rules_; }
    bool operator!=(const ktClassifierRuleTable& other) const { return !(*this == other); }

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierRuleTable& table);

    std::vector<ktClassifierRule> rules_;
};

template <>
struct ktLeastStoredSize<ktClassifierRuleTable> {
    static constexpr std::size_t value = 5;
};
