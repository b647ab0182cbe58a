#pragma once

// The Bayesian technique. Programs choose it by its parameters, ktClassifierTrainParamsBayesian in bayes_params.h, and use it
// through ktClassifierTool.

#include <clastool/bayes_params.h>

#include <kt/normal_density.h>

#include <atomic>
#include <cstddef>
#include <vector>

class kt_BorrowedSpreads;
class kt_EqualPairs;
class kt_GroupDensity;
class kt_MeasuredValues;
class kt_PatternBatch;
struct kt_Verdict;
template <class T, std::size_t Small>
class kt_Scratch;

// The implementation side: the classes below are what the classifier is made of.

/// The probability density of one group of measurements. Patterns hold exactly the group's measurements, in its order.
///
/// Threads: const operations run on several threads at once. Archive: nothing of its own, not even a version byte.
class KT_API kt_ProbabilityDensityFunction : public ktPersistent, public ktRepBase {
public:
    kt_ProbabilityDensityFunction();

    /// The natural logarithm of the density at the pattern.
    virtual double logValue(const ktFeaturePattern& pattern) const = 0;
    /// The same kind of density in an equal state.
    virtual bool isEquivalent(const kt_ProbabilityDensityFunction& other) const = 0;
    /// Learns patterns.
    virtual void updateWithData(const std::vector<ktFeaturePattern>& patterns) = 0;
    /// Forgets all that was learnt.
    virtual void clear() = 0;

protected:
    kt_ProbabilityDensityFunction(const kt_ProbabilityDensityFunction&) = default;
    kt_ProbabilityDensityFunction& operator=(const kt_ProbabilityDensityFunction&) = default;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);
};

/// A joint normal density of one or more measurements; ktNormalDensity (kt/normal_density.h) says how it learns, how it is
/// evaluated, and what counts as degenerate. Used on its own, it knows no other category to borrow a spread from.
///
/// Copy: copies the state. Archive: version byte, mean, covariance, count.
class KT_API kt_PDFMultivariateNormal : public kt_ProbabilityDensityFunction {
public:
    kt_PDFMultivariateNormal();

    /// One row a measurement.
    ktNMMatrix mean() const { return state_.mean(); }
    /// One row and one column a measurement, as learnt.
    ktNMMatrix covariance() const { return state_.covariance(); }
    /// Whether any pattern was learnt.
    bool isValid() const { return state_.count() > 0; }

    /// Learns patterns whose measurements are divided by `normalizer` first. Patterns with an invalid measurement, or one
    /// that is not finite after the division, are left out.
    /// Throws: ktClassifierDefs::BadParams "Must call clear before updating with feature vectors of different sizes".
    void updateWithDataNormalize(const std::vector<ktFeaturePattern>& patterns, double normalizer);

    /// With normalizer 1.0.
    void updateWithData(const std::vector<ktFeaturePattern>& patterns) override;
    /// Invalid measurements, and values that are not finite, are marginalised; 0.0 if none is left.
    /// Throws: ktClassifierDefs::InsufficientTrainData "No valid data has been used to train the distribution"; for a pattern
    /// of another size ktClassifierDefs::BadParams "Must call clear before updating with feature vectors of different
    /// sizes".
    double logValue(const ktFeaturePattern& pattern) const override;
    bool isEquivalent(const kt_ProbabilityDensityFunction& other) const override;
    void clear() override;

    /// Equal mean, covariance and count, compared exactly, no tolerance.
    bool operator==(const kt_PDFMultivariateNormal& other) const { return state_ == other.state_; }
    bool operator!=(const kt_PDFMultivariateNormal& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_PDFBinomial;
    friend class kt_BorrowedSpreads;
    friend class kt_GroupDensity;
    friend class kt_KitAccess;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    ktNormalDensity state_;
};

/// A binomial density of one measurement between 0 and a maximum. Learning takes the data as proportions of the maximum and
/// estimates n and theta by the method of moments: theta = mean, n = theta (1 - theta) / variance, rounded.
///
/// Traps (docs/numerics.md): a constant training set gives no n. Proportions at 0 and 1 and negative values are not guarded against.
/// Copy: member by member. Archive: version byte, n, theta, maximum; what was accumulated is not stored, so a loaded density
/// starts to learn from nothing. See: N. L. Johnson, S. Kotz, A. W. Kemp, "Univariate Discrete Distributions", 1992.
class KT_API kt_PDFBinomial : public kt_ProbabilityDensityFunction {
public:
    /// Maximum 1.0.
    kt_PDFBinomial();
    /// The maximum is measurement 0 of `maxValues`, 0.0 if it has none.
    kt_PDFBinomial(const ktFeaturePattern& maxValues);
    kt_PDFBinomial(const kt_PDFBinomial&) = default;
    kt_PDFBinomial& operator=(const kt_PDFBinomial&);

    /// n; 0 until learnt.
    long numTrials() const { return numTrials_; }
    /// The probability of a trial, the mean of the learnt proportions; 0 until learnt.
    double theta() const { return theta_; }

    /// Kept on purpose: a variance of (nearly) 0 sets theta and leaves n as it was; only the first pattern's size is
    /// checked here, later ones meet the accumulator's own rule.
    /// Throws: ktClassifierDefs::NotImplemented "Multivariate Binomial Distributions are not implemented";
    /// ktClassifierDefs::BadParams "Train data measurement cannot exceed its maximum value when using binomial
    /// distribution"; ktClassifierDefs::BadParams "Must call clear before updating with feature vectors of different sizes".
    void updateWithData(const std::vector<ktFeaturePattern>& patterns) override;

    /// ln n! - (ln k! + ln (n-k)!) + k ln theta + (n-k) ln (1-theta) with k = x n / maximum + 1/2 without its fraction, so x
    /// >= 0 is rounded half up, and x < 0 towards 0 after 1/2 was added; 0.0 for an invalid measurement. theta of 0 or 1
    /// follows the rules of floating-point arithmetic. A value that is not finite counts as invalid.
    /// Throws: ktClassifierDefs::InsufficientTrainData "Insufficient data has been used to train the distribution";
    /// ktClassifierDefs::NotImplemented "Multivariate Binomial Distributions are not implemented";
    /// ktClassifierDefs::BadParams "Feature measurement must be <= specified maximum value".
    /// Cost: constant; the first call in a process makes a table of logarithms.
    double logValue(const ktFeaturePattern& pattern) const override;
    /// A binomial density of equal n, theta and maximum; what was accumulated is not compared.
    bool isEquivalent(const kt_ProbabilityDensityFunction& other) const override;
    /// Theta and the maximum stay.
    void clear() override;

    /// Equal n, theta and maximum, compared exactly, no tolerance.
    bool operator==(const kt_PDFBinomial& other) const;
    bool operator!=(const kt_PDFBinomial& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_GroupDensity;
    friend class kt_KitAccess;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    KT_HIDDEN void requireWithinMaximum(const ktNormalDensity::Row& row) const;
    void estimate();

    // The steps of logValue and updateWithData for a category model, which hands over rows instead of patterns.
    KT_HIDDEN double logValueAt(const ktNormalDensity::Row& row) const;
    KT_HIDDEN void prepareFor(const ktNormalDensity::Row& row);
    KT_HIDDEN void learn(const ktNormalDensity::Row& row);

    long numTrials_ = 0;
    double theta_ = 0.0;
    double maximum_ = 1.0;
    kt_PDFMultivariateNormal accumulator_;
};

/// What a classifier knows of one category.
///
/// Copy: copies label and number of measurements. Archive: version byte, label, number of measurements.
class KT_API kt_CategoryModel : public ktPersistent, public ktRepBase {
public:
    /// Label 0, no measurements.
    kt_CategoryModel();

    /// How well the pattern fits the category: a log-likelihood.
    virtual double matchScore(const ktFeaturePattern& pattern, ktDiagObject* diag, unsigned long flags) const = 0;
    /// Learns one pattern.
    virtual void adapt(const ktFeaturePattern& pattern, ktDiagObject* diag, unsigned long flags) = 0;

    /// The category that the model describes.
    long categoryLabel() const { return label_; }
    /// Not checked.
    void categoryLabel(long label) { label_ = label; }
    /// In a Bayesian model the sum of the sizes of its groups: a measurement that no group names does not count, one that a
    /// group names beyond the patterns' end does.
    long numMeasurements() const { return numMeasurements_; }
    /// Not checked.
    void numMeasurements(long numMeasurements) { numMeasurements_ = numMeasurements; }

    /// Equal labels and numbers of measurements.
    bool operator==(const kt_CategoryModel& other) const;
    bool operator!=(const kt_CategoryModel& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    long label_ = 0;
    long numMeasurements_ = 0;
};

/// A category as a product of densities, one for each group of measurements: groups are independent of each other, the
/// measurements of a group are modelled jointly.
///
/// Copy: shares the densities. Archive: version byte, base, groups, densities as pointer records.
class KT_API kt_CategoryModelBayesian : public kt_CategoryModel {
public:
    /// Label 0, no groups.
    kt_CategoryModelBayesian();
    /// One density a group: `types[i]` is that of `groups[i]`, whose members index the pattern. A binomial density takes its
    /// maximum from the entry of `maxValues` for its first measurement, 1.0 if that is missing or invalid.
    /// Throws, for the first type at fault: ktClassifierDefs::NotImplemented "Poisson distribution is not implemented",
    /// ktClassifierDefs::NotImplemented "Uniform distribution is not implemented", ktClassifierDefs::BadParams "Unknown
    /// distribution type"; for a binomial group with a negative member ktClassifierDefs::BadIndex "Feature measurement indices
    /// must be >= 0".
    kt_CategoryModelBayesian(long categoryLabel, const std::vector<std::vector<long>>& groups,
                             const std::vector<ktClassifierDistributionTypes::DistributionType>& types,
                             const ktFeaturePattern& maxValues);
    kt_CategoryModelBayesian(const kt_CategoryModelBayesian&);
    kt_CategoryModelBayesian& operator=(const kt_CategoryModelBayesian& other);
    ~kt_CategoryModelBayesian() override;

    /// The sum of the groups' log densities; 0.0 without groups. An index past the pattern's end counts as an invalid
    /// measurement. `diag` and `flags` are not used.
    /// Throws: ktBadPointer for a missing density; a density's ktClassifierDefs::InsufficientTrainData with " for category "
    /// and the label appended to its message; what else a density throws.
    /// Cost: that of the densities. Allocates once after a change of a density, in the first evaluation; the working storage of a normal
    /// density of more than 512 measurements, or of more than 32 of which some are invalid; and what a density of the caller's own
    /// class or a failure needs.
    double matchScore(const ktFeaturePattern& pattern, ktDiagObject* diag, unsigned long flags) const override;

    /// Every density learns its part of the pattern, or none does; but if a density of the caller's own class throws, those before it
    /// have learnt. A normal density of a group that reaches beyond the pattern's end learns nothing, not even its number of
    /// measurements. `diag` and `flags` are not used.
    /// Throws: ktBadPointer for a missing density; what a density throws.
    void adapt(const ktFeaturePattern& pattern, ktDiagObject* diag, unsigned long flags) override;

    /// Equal labels and numbers of measurements, and equivalent densities. Kept on purpose: groups are not compared.
    /// Throws: ktBadPointer for a missing density.
    bool operator==(const kt_CategoryModelBayesian& other) const;
    bool operator!=(const kt_CategoryModelBayesian& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_BorrowedSpreads;
    friend class kt_ClassifierBayesian;
    friend class kt_PatternBatch;
    friend class kt_KitAccess;

    struct Plan;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    KT_HIDDEN bool isEqual(const kt_CategoryModelBayesian& other, kt_EqualPairs& known) const;
    KT_HIDDEN std::size_t numGroups() const;
    KT_HIDDEN std::size_t groupSizes() const;
    KT_HIDDEN kt_GroupDensity group(std::size_t index) const;
    KT_HIDDEN const Plan* plan() const;
    void dropPlan() noexcept;
    KT_HIDDEN double scoreOf(const ktFeaturePattern& pattern, const kt_MeasuredValues& values) const;
    KT_HIDDEN void noteReach(const ktFeaturePattern& pattern, std::vector<bool>& isJudged,
                             std::vector<bool>& isReached) const;

    std::vector<std::vector<long>> groups_;
    std::vector<ktPtrHandle<kt_ProbabilityDensityFunction>> densities_;
    // Made by the first evaluation and published atomically: the one member that a const operation changes.
    mutable std::atomic<const Plan*> plan_{nullptr};
};

/// The Bayesian classifier: one model for each category label in the training data. A run scores the pattern against every
/// model; a category's match score is its likelihood divided by the best one.
///
/// Measurements may be missing, in training and in a run; a value that is not finite is missing. `matchScoreFactorLog()` of the result
/// is c = -(the largest log-likelihood). So ln(match score) - c is a category's log-likelihood, which shows whether a pattern fits
/// any category. A category more than about 745 below the best one has match score 0, and its log-likelihood is lost.
///
/// A measurement that did not vary in a category is evaluated with a spread that the categories lend each other: the pooled
/// one, sqrt(sum n_c var_c / sum n_c); if that is 0, that of the categories' means; if that is 0 too, it is left out of all
/// categories. docs/bayes.md and docs/numerics.md say more. The classifier derives this from its models after training and
/// loading; it is not stored or compared, and what models learn elsewhere afterwards does not change it.
///
/// A finite value so far out that its square overflows in every category is left out; the factor tells that it was there.
///
/// Copy: shares the models, which nothing changes after training. Archive: version byte, base, labels, models as pointer
/// records. See: R. O. Duda, P. E. Hart, D. G. Stork, "Pattern Classification", 2001.
class KT_API kt_ClassifierBayesian : public kt_Classifier {
public:
    kt_ClassifierBayesian();
    kt_ClassifierBayesian(const kt_ClassifierBayesian&) = default;
    kt_ClassifierBayesian& operator=(const kt_ClassifierBayesian& other);

    ktPtrHandle<kt_Classifier> clone() const override;
    /// A classifier of this class for which `==` holds.
    bool isEquivalent(const kt_Classifier& other) const override;

    /// Equivalent bases and equal models in order; labels are not compared.
    /// Throws: ktBadPointer for a missing model.
    bool operator==(const kt_ClassifierBayesian& other) const;
    bool operator!=(const kt_ClassifierBayesian& other) const { return !(*this == other); }

protected:
    /// Every pattern whose label is not -1 teaches the model of its label, one at a time, in order.
    /// Throws: ktClassifierDefs::BadParams "The training parameters are for a different classification technique.";
    /// ktClassifierDefs::InsufficientTrainData "No valid data was provided for training." for more measurements than a vector
    /// can ever hold; ktBadPointer for a null pattern; what kt_CategoryModelBayesian refuses. The models built so far stay.
    void train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params) override;
    /// Other frequencies and costs take effect at the next run.
    /// Throws: ktBadPointer without stored parameters; ktClassifierDefs::BadParams "The training parameters are for a
    /// different classification technique."; ktClassifierDefs::BadParams "Cannot retrain a Bayesian classifier with
    /// different distribution types."; ktClassifierDefs::BadParams "Cannot retrain a Bayesian classifier with different
    /// maximum measurements values.".
    void retrain_(const ktClassifierTrainParams& params) override;
    /// No effect: the technique trains from a provider only.
    void trainStart_(const ktClassifierTrainParams& params) override;
    /// No effect: the technique trains from a provider only.
    void trainIncremental_(const ktFeaturePattern& pattern, long label) override;
    void untrain_() override;
    bool isTrained_() const override;
    /// Runs a pattern of zeros. Throws: ktClassifierDefs::InsufficientTrainData "No valid data was provided for training.";
    /// ktBadPointer for a missing model; what the run throws. Polls: as a run does.
    void checkRunnable_() const override;
    /// Throws: what the attention check raises; ktBadPointer for a missing model; what kt_CategoryModelBayesian::matchScore
    /// throws; ktBadPointer for stored parameters that are missing or of another class; what the decision rule throws.
    /// Polls: once per category, twice for a pattern with a value far beyond all of them, and once per category in the decision
    /// rule; while a group of more than some 400 measurements is evaluated for the first time, once in 2^24 multiplications. No
    /// allocation up to 32 categories, but for the growth of the result, the densities' first evaluation and the working storage
    /// of large groups.
    void run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const override;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    void recordTrainInputs_(ktDiagObject*, unsigned long) const override {}
    void recordTrainDetails_(ktDiagObject*, unsigned long) const override {}
    void recordTrainResults_(ktDiagObject*, unsigned long) const override {}
    void recordRunInputs_(ktDiagObject*, unsigned long, const ktFeaturePattern&) const override {}
    void recordRunDetails_(ktDiagObject*, unsigned long) const override {}
    void recordRunResults_(ktDiagObject*, unsigned long, const ktFeaturePattern&,
                           const ktClassifierResult&) const override
    {
    }

    friend class kt_KitAccess;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    static kt_CategoryModelBayesian* newModel(long label, long numMeasurements,
                                              const ktClassifierTrainParamsBayesian& params);

    KT_HIDDEN void learn(const ktClassifierDataProvider& provider, const ktClassifierTrainParamsBayesian& params);
    KT_HIDDEN double score(const ktFeaturePattern& pattern, kt_Scratch<kt_Verdict, 32>& verdicts) const;
    KT_HIDDEN ktFeaturePattern withoutUnreached(const ktFeaturePattern& pattern) const;

    std::vector<long> labels_;
    std::vector<ktPtrHandle<kt_CategoryModel>> models_;
    // Evaluated in place of the models: the models with the spreads that they borrow. Made by training and by loading.
    std::vector<ktPtrHandle<kt_CategoryModel>> evaluated_;
};
