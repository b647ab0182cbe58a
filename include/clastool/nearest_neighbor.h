#pragma once

#include <clastool/classifier.h>

#include <cstddef>
#include <type_traits>

class kt_CompactCopy;
class kt_NearestList;
template <class T, std::size_t Small>
class kt_Scratch;

/// How far two patterns are apart. Derive from it for a metric of your own.
///
/// Threads: `distance` runs on several threads at once on one metric.
/// Archive: version byte.
class KT_API ktPatternDistanceMetric : public virtual ktPersistent, public virtual ktRepBase {
public:
    ktPatternDistanceMetric();
    ~ktPatternDistanceMetric() override;

    /// The distance; NaN counts as infinitely far. A nearest-neighbour run gives the pattern being classified first.
    virtual double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const = 0;
    /// A new, independent copy.
    virtual ktPtrHandle<ktPatternDistanceMetric> clone() const = 0;
    /// True here, so a metric that does not override it is equivalent to every other.
    virtual bool isEquivalent(const ktPatternDistanceMetric& other) const;

    bool operator==(const ktPatternDistanceMetric& other) const { return isEquivalent(other); }
    bool operator!=(const ktPatternDistanceMetric& other) const { return !isEquivalent(other); }

protected:
    ktPatternDistanceMetric(const ktPatternDistanceMetric&);
    ktPatternDistanceMetric& operator=(const ktPatternDistanceMetric&);

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);
};

/// The Minkowski distance of order p > 0: (sum over i of |a_i - b_i|^p)^(1/p). Order 1 is the sum of absolute differences,
/// 2 the Euclidean distance. Scale measurements of different units or spreads first.
///
/// Archive: version byte, base, order.
/// See: H. Minkowski, "Geometrie der Zahlen", 1896.
class KT_API ktPatternDistanceMetricNorm : public ktPatternDistanceMetric {
public:
    /// Throws: ktClassifierDefs::BadParams "Order of norm distance must be > 0" unless order > 0.
    ktPatternDistanceMetricNorm(double order = 2.0);
    ktPatternDistanceMetricNorm(const ktPatternDistanceMetricNorm&);
    ktPatternDistanceMetricNorm& operator=(const ktPatternDistanceMetricNorm&);
    ~ktPatternDistanceMetricNorm() override;

    /// The order p, 2.0 unless given.
    double order() const { return order_; }
    /// Throws: ktClassifierDefs::BadParams "Order of norm distance must be > 0" unless order > 0.
    void order(double order);

    /// Terms are added in ascending order of the index, with a general power for every order.
    /// Throws: ktClassifierDefs::BadFeatures "Pattern distance function requires the number of measurementsin the two
    /// patterns to be equal" (kept on purpose: the missing blank); for an invalid measurement, `a` checked first,
    /// ktClassifierDefs::BadFeatures "Access to full feature vector requires that all features are valid.".
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override;
    ktPtrHandle<ktPatternDistanceMetric> clone() const override;
    /// A norm of the same order, compared exactly, no tolerance.
    bool isEquivalent(const ktPatternDistanceMetric& other) const override;

    bool operator==(const ktPatternDistanceMetricNorm& other) const { return isEquivalent(other); }
    bool operator!=(const ktPatternDistanceMetricNorm& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    double order_;
};

/// Choose the nearest-neighbour technique: the number of neighbours k, the metric, and the misclassification costs.
///
/// Ownership: holds a clone of the metric it is given. Copy: shares the metric, which nobody can change; carries
/// `throwIfNotReady`. Archive: version byte, base, k, metric as a pointer record, costs.
class KT_API ktClassifierTrainParamsKNN : public ktClassifierTrainParams {
public:
    /// The Euclidean norm and costs of 1.0. Throws: ktClassifierDefs::BadParams "K must be >= 1".
    ktClassifierTrainParamsKNN(long k = 1);
    /// Throws: ktClassifierDefs::BadParams "K must be >= 1"; what the metric's `clone` throws.
    ktClassifierTrainParamsKNN(long k, const ktPatternDistanceMetric& metric, const ktClassifierCosts& costs);
    /// Costs of 1.0. Throws: as above.
    ktClassifierTrainParamsKNN(long k, const ktPatternDistanceMetric& metric)
        : ktClassifierTrainParamsKNN(k, metric, ktClassifierCosts())
    {
    }
    /// The Euclidean norm. A template, so that a number is not taken for costs. Throws: ktClassifierDefs::BadParams "K must be >= 1".
    template <class Costs, class = std::enable_if_t<std::is_same_v<Costs, ktClassifierCosts>>>
    ktClassifierTrainParamsKNN(long k, const Costs& costs)
        : ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(), costs)
    {
    }
    ktClassifierTrainParamsKNN(const ktClassifierTrainParamsKNN&);
    ktClassifierTrainParamsKNN& operator=(const ktClassifierTrainParamsKNN&);
    ~ktClassifierTrainParamsKNN() override;

    /// The number of neighbours that vote.
    long k() const { return k_; }
    /// Throws: ktClassifierDefs::BadParams "K must be >= 1".
    void k(long k);

    /// A further handle on the held metric.
    ktPtrHandle_const<ktPatternDistanceMetric> distanceMetric() const { return metric_; }
    /// Holds a clone of the metric.
    void distanceMetric(const ktPatternDistanceMetric& metric);

    /// What each mistake costs.
    const ktClassifierCosts& misclassificationCosts() const { return costs_; }
    /// `retrain` takes other costs without training again.
    void misclassificationCosts(const ktClassifierCosts& costs);

    ktPtrHandle<ktClassifierTrainParams> clone() const override;

    /// Equal k, equivalent metrics, equal costs. Throws: ktBadPointer for a null metric (after loading a damaged archive).
    bool operator==(const ktClassifierTrainParamsKNN& other) const { return isEqual_(other); }
    bool operator!=(const ktClassifierTrainParamsKNN& other) const { return !(*this == other); }

protected:
    bool isEqual_(const ktClassifierTrainParams& other) const override;
    bool isSameTechnique_(const ktClassifierTrainParams& other) const override;
    kt_Classifier* newClassifier_() const override;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_ClassifierKNN;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    long k_;
    ktPtrHandle_const<ktPatternDistanceMetric> metric_;
    ktClassifierCosts costs_;
};

// The implementation side: programs choose this class by its parameters and use it through ktClassifierTool.

/// The k-nearest-neighbour classifier. Training keeps the labelled patterns. A run finds the k nearest of them; the match score of a
/// category is its share of these. A category without a neighbour is not in the result.
///
/// Ties: at the k-th place the pattern stored earlier stays. If there are fewer than k patterns, all are neighbours.
/// Patterns with invalid measurements are refused, in training as in a run.
///
/// A loaded classifier runs with k = 1, the Euclidean norm and unit costs until it is retrained: the stored parameters come
/// back through `trainParams()` but are not applied. `tool.retrain(*tool.trainParams(), nullptr, 0);` applies them.
///
/// Copy: shares the parameters in use, which nobody can change, and the kept patterns; a pattern added to one is seen by all that share them.
/// Archive: version byte, base, the kept patterns as a pointer record.
/// See: T. M. Cover, P. E. Hart, "Nearest neighbor pattern classification", 1967.
class KT_API kt_ClassifierKNN : public kt_Classifier {
public:
    kt_ClassifierKNN();
    kt_ClassifierKNN(const kt_ClassifierKNN&);
    kt_ClassifierKNN& operator=(const kt_ClassifierKNN&);
    ~kt_ClassifierKNN() override;

    ktPtrHandle<kt_Classifier> clone() const override;
    /// A classifier of this class for which `==` holds.
    bool isEquivalent(const kt_Classifier& other) const override;

    /// Equivalent bases and, if trained, equal kept patterns. Throws: ktBadPointer if the other keeps none.
    bool operator==(const kt_ClassifierKNN& other) const;
    bool operator!=(const kt_ClassifierKNN& other) const { return !(*this == other); }

protected:
    /// Keeps every pattern whose label is not -1.
    /// Throws: ktClassifierDefs::BadParams "The training parameters are for a different classification technique.";
    /// ktClassifierDefs::InsufficientTrainData "No valid data was provided for training." for more patterns than a vector can
    /// ever hold; ktClassifierDefs::BadFeatures "K-nearest neighbor classification does not support invalid measurements", and then
    /// keeps no pattern.
    void train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params) override;
    /// Throws: ktBadPointer without stored parameters; ktClassifierDefs::BadParams "The training parameters are for a
    /// different classification technique.".
    void retrain_(const ktClassifierTrainParams& params) override;
    /// No effect: patterns are added to a classifier that was trained from a provider, which may hold few.
    void trainStart_(const ktClassifierTrainParams& params) override;
    /// Kept on purpose: invalid measurements are not checked here; a run that reaches the pattern refuses them.
    /// Throws: ktBadPointer without kept patterns; what ktClassifierDataProviderMemory::addData refuses.
    void trainIncremental_(const ktFeaturePattern& pattern, long label) override;
    void untrain_() override;
    bool isTrained_() const override;
    /// Throws: ktBadPointer untrained; ktClassifierDefs::InsufficientTrainData "No valid data was provided for training.".
    void checkRunnable_() const override;
    /// Throws: what `checkRunnable_` throws; for an invalid measurement or another number of measurements
    /// ktClassifierDefs::BadFeatures "K-nearest neighbor classification does not support invalid measurements" (kept on
    /// purpose: one text for both); what the attention check and the metric throw; what the decision rule throws.
    /// Polls: once per kept pattern, then once per category in the result. Cost: at most kept patterns times measurements, and times k
    /// in the worst case; far less if measurements are few or patterns lie in groups. No allocation for up to 32 categories, 256
    /// neighbours and 256 measurements, into a result that has had as many categories; a few blocks beyond.
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

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    friend class ktClassifierTool;
    friend class kt_KitAccess;

    void makeCopy() noexcept;
    double orderByCopy() const;
    void runEach(const std::vector<ktPtrHandle_const<ktFeaturePattern>>& patterns,
                 std::vector<ktClassifierResult>& results, ktDiagObject* diag, unsigned long flags) const;
    std::vector<char> findTogether(const ktPtrHandle_const<ktFeaturePattern>* patterns, std::size_t count,
                                   std::size_t k, std::vector<std::size_t>& rows) const;
    bool findByCopy(const ktFeaturePattern& pattern, kt_Scratch<std::size_t, 256>& neighbors) const;
    void findNearestNeighbors_(const ktFeaturePattern& pattern, kt_NearestList& neighbors) const;
    void fillMatchResults_(kt_Scratch<std::size_t, 256>& neighbors, ktClassifierResult& result) const;

    ktPtrHandle<ktClassifierDataProviderMemory> trainingData_;
    // In use, which are not always the stored ones. Null stands for `ktClassifierTrainParamsKNN()`: a vector of classifiers that is
    // being loaded would make one for each few bytes.
    ktPtrHandle_const<ktClassifierTrainParamsKNN> params_;
    // Searched before the patterns themselves; null if there is none. Shared like the patterns.
    ktPtrHandle<kt_CompactCopy> compactCopy_;
};
