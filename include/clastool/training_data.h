#pragma once

#include <clastool/foundation.h>

#include <cstddef>
#include <string>
#include <vector>

class ktClassifierCosts;
class ktClassifierFrequencies;
class ktClassifierCategoryResult;
class ktClassifierResult;

/// Version byte, default cost, true labels, assigned labels, costs.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierCosts& costs);
/// Version byte, default frequency, labels, frequencies.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFrequencies& frequencies);
/// Version byte, label, match score, class score, expected cost.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierCategoryResult& result);
/// Version byte, category results, logarithm of the match-score factor. Loading keeps the stored order.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierResult& result);

/// What it costs to assign a pattern of one category to another: a default, and overrides for ordered pairs of labels.
/// Assigning a pattern to its own category costs nothing and has no entry.
///
/// Copy: member by member. Cost: a look-up is linear in the overrides, of which there are few.
class KT_API ktClassifierCosts {
public:
    /// Default cost 1.0.
    ktClassifierCosts();
    /// Throws: ktClassifierDefs::BadParams "Costs must be >= 0.0".
    ktClassifierCosts(double defaultCost);
    ktClassifierCosts(const ktClassifierCosts&) = default;
    ktClassifierCosts(ktClassifierCosts&&) noexcept = default;
    ktClassifierCosts& operator=(ktClassifierCosts&&) noexcept = default;
    ktClassifierCosts& operator=(const ktClassifierCosts& other);

    /// What a mistake costs that has no override.
    double defaultMisclassificationCost() const { return default_; }
    /// Leaves the overrides alone. Throws: ktClassifierDefs::BadParams "Costs must be >= 0.0".
    void defaultMisclassificationCost(double cost);

    /// Sets the cost of assigning a pattern of category `trueLabel` to `assignedLabel`; the other direction is another entry.
    /// Throws: ktClassifierDefs::BadParams "Costs must be >= 0.0", then ktClassifierDefs::BadLabel "Category labels must be
    /// different", then ktClassifierDefs::BadLabel "Category labels must be >= 0".
    void misclassificationCostOverride(long trueLabel, long assignedLabel, double cost);

    /// The override of the pair, else the default.
    /// Throws: ktClassifierDefs::BadLabel "Category labels must be different" (also for negative labels), then
    /// ktClassifierDefs::BadLabel "Category labels must be >= 0".
    double misclassificationCost(long trueLabel, long assignedLabel) const;

    /// Empties the overrides; the default stays.
    void clearMisclassificationOverrides();

    /// Kept on purpose: overrides are compared in the order in which they were entered, so equal tables entered in another
    /// order are unequal. Doubles are compared exactly, no tolerance.
    bool operator==(const ktClassifierCosts& other) const;
    bool operator!=(const ktClassifierCosts& other) const { return !(*this == other); }

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierCosts& costs);
    friend class kt_DecisionRule;

    long misclOverrideIndex_(long trueLabel, long assignedLabel) const;

    double default_;
    std::vector<long> fromLabels_;
    std::vector<long> toLabels_;
    std::vector<double> costs_;
};

/// The prior frequency of each category: a default, and overrides per label. Frequencies are relative weights; a result
/// normalises them over its categories.
///
/// Copy: member by member. Cost: a look-up is linear in the overrides, of which there are few.
class KT_API ktClassifierFrequencies {
public:
    /// Default frequency 1.0.
    ktClassifierFrequencies();
    /// Throws: ktClassifierDefs::BadParams "Category frequencies must be > 0.0".
    ktClassifierFrequencies(double defaultFrequency);
    ktClassifierFrequencies(const ktClassifierFrequencies&) = default;
    ktClassifierFrequencies(ktClassifierFrequencies&&) noexcept = default;
    ktClassifierFrequencies& operator=(ktClassifierFrequencies&&) noexcept = default;
    ktClassifierFrequencies& operator=(const ktClassifierFrequencies& other);

    /// The frequency of every category without an override.
    double defaultCategoryFrequency() const { return default_; }
    /// Leaves the overrides alone. Throws: ktClassifierDefs::BadParams "Category frequencies must be > 0.0".
    void defaultCategoryFrequency(double frequency);

    /// Throws: ktClassifierDefs::BadParams "Category frequencies must be > 0.0", then ktClassifierDefs::BadLabel "Category
    /// labels must be >= 0".
    void categoryFrequencyOverride(long label, double frequency);

    /// The override of the label, else the default.
    /// Throws: ktClassifierDefs::BadLabel "Category labels must be >= 0".
    double categoryFrequency(long label) const;

    /// Empties the overrides; the default stays.
    void clearFrequencyOverrides();

    /// Kept on purpose: overrides are compared in the order in which they were entered. Doubles are compared exactly.
    bool operator==(const ktClassifierFrequencies& other) const;
    bool operator!=(const ktClassifierFrequencies& other) const { return !(*this == other); }

private:
    friend class kt_DecisionRule;
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierFrequencies& frequencies);

    long freqOverrideIndex_(long label) const;

    double default_;
    std::vector<long> labels_;
    std::vector<double> frequencies_;
};

/// One category's verdict on a pattern.
///
/// Copy: member by member.
class KT_API ktClassifierCategoryResult {
public:
    /// Label 0, all scores 0.0.
    ktClassifierCategoryResult() = default;
    /// `matchScore`: how well the pattern fits the category, in [0, 1]. `classScore`: the category's share of the result, in
    /// [0, 1]. `expectedCost`: what deciding for the category is expected to cost, >= 0. NaN passes.
    /// Throws: ktClassifierDefs::BadLabel "Category labels must be >= 0", then for the match score and for the class score
    /// ktClassifierDefs::BadParams "Scores must be >= 0.0 and <= 1.0", then ktClassifierDefs::BadParams "Costs must be >= 0.0".
    ktClassifierCategoryResult(long categoryLabel, double matchScore, double classScore, double expectedCost)
        : label_(categoryLabel), matchScore_(matchScore), classScore_(classScore), expectedCost_(expectedCost)
    {
        check();
    }

    /// The category.
    long categoryLabel() const { return label_; }
    /// How well the pattern fits the category, in [0, 1]; what that means, the technique says.
    double matchScore() const { return matchScore_; }
    /// The category's share of the result, its posterior probability, in [0, 1].
    double classScore() const { return classScore_; }
    /// What deciding for this category costs on average, in the unit of the costs.
    double expectedCost() const { return expectedCost_; }

    /// All fields equal, compared exactly, no tolerance.
    bool operator==(const ktClassifierCategoryResult& other) const;
    bool operator!=(const ktClassifierCategoryResult& other) const { return !(*this == other); }

private:
    friend class kt_DecisionRule;

    void check() const
    {
        const bool isScore = !(matchScore_ < 0.0 || matchScore_ > 1.0 || classScore_ < 0.0 || classScore_ > 1.0);
        if (label_ < 0 || !isScore || expectedCost_ < 0.0) {
            refuse();
        }
    }
    // Throws for the first field at fault.
    [[noreturn]] void refuse() const;

    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierCategoryResult& result);

    long label_ = 0;
    double matchScore_ = 0.0;
    double classScore_ = 0.0;
    double expectedCost_ = 0.0;
};

template <>
struct ktLeastStoredSize<ktClassifierCategoryResult> {
    static constexpr std::size_t value = 29;
};

/// The answer of a run: the category results by ascending expected cost, so that the first is the decision of least
/// expected cost, and the logarithm of the factor by which the match scores were scaled.
///
/// Equal expected costs keep the order in which they were given; NaN comes after every number.
/// Copy: member by member.
class KT_API ktClassifierResult {
public:
    /// No category results, factor logarithm 0.0.
    ktClassifierResult();
    ktClassifierResult(const ktClassifierResult&) = default;
    ktClassifierResult& operator=(const ktClassifierResult& other);

    /// Takes the results as they are, sorts them by expected cost and divides the class scores by their sum.
    /// Throws: ktClassifierDefs::BadParams "The category labels of the match results must be unique.", then
    /// ktClassifierDefs::BadParams "At least one of the classification scores must be > 0." if the class scores sum to 0
    /// (also without results), then what ktClassifierCategoryResult refuses.
    /// Cost: sorting the categories.
    ktClassifierResult(const std::vector<ktClassifierCategoryResult>& categoryResults, double matchScoreFactorLog);

    /// The decision rule. For categories i with labels l(i) and match scores m(i), f(i) the frequency of l(i), F their sum:
    ///
    ///     p(i) = (m(i) f(i)) / F,  P = sum of p(i),  C(j) = sum over i != j of cost(l(i), l(j)) p(i)
    ///
    /// category j's class score (its posterior probability) is p(j) / P, its expected cost C(j) / P. The class scores and
    /// costs of the given results are ignored.
    /// Throws: ktClassifierDefs::BadParams "The category labels of the match results must be unique.";
    /// ktClassifierDefs::BadLabel "Category labels must be >= 0"; without results ktClassifierDefs::BadParams "At least one
    /// of the category frequencies must be > 0."; what the attention check raises; if every match score is 0
    /// ktClassifierDefs::BadParams "At least one of the resulting classification scores must be > 0."; what
    /// ktClassifierCategoryResult refuses.
    /// Polls: once per category, spread over the work. Cost: quadratic in the categories, and linear in the overrides but for
    /// the bisection of labels; for up to 32 categories, categories times overrides.
    /// See: R. O. Duda, P. E. Hart, D. G. Stork, "Pattern Classification", 2001, on minimum-risk decisions.
    ktClassifierResult(const std::vector<ktClassifierCategoryResult>& matchResults,
                       const ktClassifierFrequencies& frequencies, const ktClassifierCosts& costs,
                       double matchScoreFactorLog);

    /// The category results by ascending expected cost; the first is the decision. Empty in a result that no run has filled.
    const std::vector<ktClassifierCategoryResult>& categoryResults() const { return results_; }
    /// ln of the factor by which the technique scaled its match scores; 0.0 where it does not scale.
    double matchScoreFactorLog() const { return matchScoreFactorLog_; }

    /// Equal category results in order and equal factor logarithms, compared exactly, no tolerance.
    bool operator==(const ktClassifierResult& other) const;
    bool operator!=(const ktClassifierResult& other) const { return !(*this == other); }

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierResult& result);
    friend class kt_DecisionRule;

    std::vector<ktClassifierCategoryResult> results_;
    double matchScoreFactorLog_ = 0.0;
};

template <>
struct ktLeastStoredSize<ktClassifierResult> {
    static constexpr std::size_t value = 14;
};

/// A training set: a numbered list of patterns, each with the label of its category, -1 for an unknown category. Derive
/// from it to train from data that live elsewhere.
///
/// Archive: version byte.
class KT_API ktClassifierDataProvider : public ktPersistent, public ktRepBase {
public:
    ktClassifierDataProvider();

    // Kept on purpose: name, description and featurePattern are not const, as published.

    /// The library only stores and compares it.
    virtual std::string name() = 0;
    /// The library only stores and compares it.
    virtual std::string description() = 0;
    /// The number of measurements that all patterns have.
    virtual long numMeasurements() const = 0;
    /// The number of patterns; indices run from 0 to one less.
    virtual long numPatterns() const = 0;
    /// The pattern, shared with the caller.
    virtual ktPtrHandle_const<ktFeaturePattern> featurePattern(long index) = 0;
    /// The label of the pattern, -1 for an unknown category: `train` leaves such a pattern out, nearest neighbours after
    /// asking whether its measurements are valid. kt_ClassifierKNN::trainIncremental keeps it, and a run that it votes in
    /// throws ktClassifierDefs::BadLabel.
    virtual long categoryLabel(long index) const = 0;

protected:
    ktClassifierDataProvider(const ktClassifierDataProvider&) = default;
    ktClassifierDataProvider& operator=(const ktClassifierDataProvider&) = default;

    /// True here; a derived class first tests the class of the other.
    virtual bool isEqual_(const ktClassifierDataProvider& other) const;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);
};

/// A training set in memory. All patterns have the same number of measurements, unless a damaged archive was loaded.
///
/// Ownership: shares its patterns. Copy: shares the patterns.
/// Archive: version byte, base, name, description, patterns as pointer records, labels.
class KT_API ktClassifierDataProviderMemory : public ktClassifierDataProvider {
public:
    ktClassifierDataProviderMemory();
    ktClassifierDataProviderMemory(const ktClassifierDataProviderMemory&);
    ktClassifierDataProviderMemory& operator=(const ktClassifierDataProviderMemory&);

    std::string name() override;
    /// Any text; training does not look at it.
    void setName(const std::string& name);
    std::string description() override;
    /// Any text; training does not look at it.
    void setDescription(const std::string& description);

    /// That of the first pattern; 0 without patterns. Throws: ktBadPointer for a null first pattern.
    long numMeasurements() const override;
    long numPatterns() const override;

    /// A further handle on the stored pattern. Throws: ktClassifierDefs::BadIndex "Feature pattern index must be >=0 and <
    /// number of patterns.".
    ktPtrHandle_const<ktFeaturePattern> featurePattern(long index) override;

    /// Throws: ktClassifierDefs::BadIndex "Category label index must be >=0 and < number of patterns.".
    long categoryLabel(long index) const override;

    /// Appends a pattern and its label. The first pattern is not checked and sets the number of measurements. Give a handle, or
    /// `new ktFeaturePattern(...)`, which becomes one. The address of a pattern on the stack compiles too; but the last handle deletes
    /// what it holds, which is undefined behaviour there.
    /// Throws, with patterns held: ktBadPointer for a null handle, then ktClassifierDefs::BadFeatures "Feature pattern must
    /// have the same number of measurements as the rest of the data.". Then: ktClassifierDefs::BadLabel "Category labels
    /// must be >= 0 or unknown" for a label below -1.
    void addData(const ktPtrHandle_const<ktFeaturePattern>& pattern, long label);

    /// Replaces all patterns and labels; name and description stay.
    /// Throws: ktClassifierDefs::BadFeatures "The number of the feature patterns must be equal to the number of category
    /// labels"; with two or more patterns ktBadPointer for a null one and ktClassifierDefs::BadFeatures "Feature patterns
    /// must all have the same number of measurements"; ktClassifierDefs::BadLabel "Category labels must be >= 0 or unknown".
    void data(const std::vector<ktPtrHandle_const<ktFeaturePattern>>& patterns, const std::vector<long>& labels);

    /// Same patterns by value, names, descriptions and labels. A class derived from this one counts as it.
    /// Throws: ktBadPointer for a null pattern that is reached.
    bool operator==(const ktClassifierDataProviderMemory& other) const { return isEqual_(other); }
    bool operator!=(const ktClassifierDataProviderMemory& other) const { return !(*this == other); }

protected:
    bool isEqual_(const ktClassifierDataProvider& other) const override;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_CompactCopy;
    friend class kt_NeighborScan;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    std::string name_;
    std::string description_;
    std::vector<ktPtrHandle_const<ktFeaturePattern>> patterns_;
    std::vector<long> labels_;
    // Advances with every change of the patterns. A copy of their measurements is out of date when it differs.
    unsigned long revision_ = 0;
};
