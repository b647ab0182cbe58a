#pragma once

#include <clastool/classifier.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

class ktClassifierDistributionTypes;

/// Version byte, default type, override labels, indices and types, labels and members of the dependency sets.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierDistributionTypes& types);

/// Which probability distribution models each measurement of each category, and which measurements of a category are
/// modelled jointly: a default type, overrides per (label, measurement), and dependency sets per label.
///
/// An index is in at most one dependency set of a label, and all members of a set have one type.
/// Copy: member by member.
class KT_API ktClassifierDistributionTypes {
public:
    /// Stored in archives: never change.
    enum DistributionType : std::uint32_t {
        /// (Multivariate) normal.
        eNormal = 0,
        /// Binomial, for a single bounded measurement.
        eBinomial = 1,
        /// Not supported: training with it fails.
        ePoisson = 2,
        /// Not supported: training with it fails.
        eUniform = 3
    };

    /// No overrides, no dependency sets.
    ktClassifierDistributionTypes(DistributionType defaultType = eNormal);
    ktClassifierDistributionTypes(const ktClassifierDistributionTypes&) = default;
    ktClassifierDistributionTypes(ktClassifierDistributionTypes&&) noexcept = default;
    ktClassifierDistributionTypes& operator=(const ktClassifierDistributionTypes& other);
    ktClassifierDistributionTypes& operator=(ktClassifierDistributionTypes&&) noexcept = default;

    /// The type of every measurement without an override.
    DistributionType defaultDistributionType() const { return defaultType_; }
    /// Leaves overrides and sets alone.
    void defaultDistributionType(DistributionType type);

    /// The override of the pair, else the default.
    /// Throws: ktClassifierDefs::BadLabel "Cateogory labels must be >= 0" (kept on purpose: the misspelling, here and
    /// below), then ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0".
    DistributionType distributionType(long categoryLabel, long measurementIndex) const;

    /// Kept on purpose: a type equal to the default returns at once, before any check, and leaves an override as it is.
    /// Throws: ktClassifierDefs::BadParams "Cannot override distribution type of a feature measurement that is already part
    /// of a dependency set.", then what `distributionType` throws.
    void distributionTypeOverride(long categoryLabel, long measurementIndex, DistributionType type);

    /// Empties the overrides and the dependency sets; the default stays.
    void clearDistributionOverrides();

    /// Makes the measurements of one category a joint group and merges it with the groups that it touches: the first of
    /// them stays at its place and takes in the listed measurements, then the members of the others.
    /// Throws: ktClassifierDefs::BadLabel "Cateogory labels must be >= 0"; ktClassifierDefs::BadIndex "Feature measurement
    /// indices must be >= 0"; ktClassifierDefs::BadParams "The distribution types of dependent feature measurements must be
    /// the same.".
    void setDependent(long categoryLabel, const std::vector<long>& measurementIndices);

    /// Whether all listed measurements are in one dependency set of the category; false for an empty list.
    /// Throws: ktClassifierDefs::BadLabel "Cateogory labels must be >= 0"; unless the list is empty ktClassifierDefs::BadIndex
    /// "Feature measurement indices must be >= 0".
    bool isDependent(long categoryLabel, const std::vector<long>& measurementIndices) const;

    /// Kept on purpose: overrides and sets are compared in the order in which they stand.
    bool operator==(const ktClassifierDistributionTypes& other) const;
    bool operator!=(const ktClassifierDistributionTypes& other) const { return !(*this == other); }

private:
    friend class kt_ClassifierBayesian;
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierDistributionTypes& types);

    long distOverrideIndex_(long categoryLabel, long measurementIndex) const;
    std::size_t numSets() const;
    bool isSetWith(std::size_t set, long categoryLabel, long measurementIndex) const;
    const std::vector<long>* setWith(long categoryLabel, long measurementIndex) const;

    DistributionType defaultType_;
    std::vector<long> overrideLabels_;
    std::vector<long> overrideIndices_;
    std::vector<DistributionType> overrideTypes_;
    std::vector<long> dependentLabels_;
    std::vector<std::vector<long>> dependentSets_;
};

/// The type as an unsigned 32-bit value.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierDistributionTypes::DistributionType& type);

/// Choose the Bayesian technique: distribution types, prior frequencies, misclassification costs, and the largest values of
/// binomial measurements (an entry that is missing or invalid stands for 1.0).
///
/// Copy: member by member; carries `throwIfNotReady`. Archive: kept on purpose, costs before frequencies: version byte, base,
/// distribution types, costs, frequencies, maximum values.
class KT_API ktClassifierTrainParamsBayesian : public ktClassifierTrainParams {
public:
    /// Normal distributions of independent measurements, equal frequencies and costs of 1.0, unless given. The frequencies are not
    /// counted from the training data.
    ktClassifierTrainParamsBayesian(
        const ktClassifierDistributionTypes& distributionTypes = ktClassifierDistributionTypes(),
        const ktClassifierFrequencies& categoryFrequencies = ktClassifierFrequencies(),
        const ktClassifierCosts& misclassificationCosts = ktClassifierCosts(),
        const ktFeaturePattern& maxMeasurementValues = ktFeaturePattern());
    /// Normal distributions of independent measurements, and equal frequencies. A template, as the next, so that a type of
    /// distribution is not taken for costs, nor {} for frequencies.
    template <class Costs, class = std::enable_if_t<std::is_same_v<Costs, ktClassifierCosts>>>
    explicit ktClassifierTrainParamsBayesian(const Costs& misclassificationCosts)
        : ktClassifierTrainParamsBayesian({}, {}, misclassificationCosts)
    {
    }
    /// Normal distributions of independent measurements.
    template <class Frequencies, class = std::enable_if_t<std::is_same_v<Frequencies, ktClassifierFrequencies>>>
    ktClassifierTrainParamsBayesian(const Frequencies& categoryFrequencies,
                                    const ktClassifierCosts& misclassificationCosts)
        : ktClassifierTrainParamsBayesian({}, categoryFrequencies, misclassificationCosts)
    {
    }
    ktClassifierTrainParamsBayesian(const ktClassifierTrainParamsBayesian&);
    ktClassifierTrainParamsBayesian& operator=(const ktClassifierTrainParamsBayesian&);

    /// Which density models each measurement of each category.
    const ktClassifierDistributionTypes& distributionTypes() const { return types_; }
    /// Needs a new training: `retrain` refuses other types.
    void distributionTypes(const ktClassifierDistributionTypes& distributionTypes);
    /// The prior frequencies of the categories.
    const ktClassifierFrequencies& categoryFrequencies() const { return frequencies_; }
    /// `retrain` takes other frequencies without training again.
    void categoryFrequencies(const ktClassifierFrequencies& categoryFrequencies);
    /// What each mistake costs.
    const ktClassifierCosts& misclassificationCosts() const { return costs_; }
    /// `retrain` takes other costs without training again.
    void misclassificationCosts(const ktClassifierCosts& misclassificationCosts);
    /// The largest value of each measurement that is modelled by a binomial density, in its unit.
    const ktFeaturePattern& maxMeasurementValues() const { return maxValues_; }
    /// Needs a new training: `retrain` refuses other values.
    void maxMeasurementValues(const ktFeaturePattern& maxMeasurementValues);

    ktPtrHandle<ktClassifierTrainParams> clone() const override;

protected:
    /// Equal types, frequencies, costs and maximum values; `throwIfNotReady` is not compared.
    bool isEqual_(const ktClassifierTrainParams& other) const override;
    bool isSameTechnique_(const ktClassifierTrainParams& other) const override;
    kt_Classifier* newClassifier_() const override;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    ktClassifierDistributionTypes types_;
    ktClassifierFrequencies frequencies_;
    ktClassifierCosts costs_;
    ktFeaturePattern maxValues_;
};
