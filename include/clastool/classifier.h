#pragma once

#include <clastool/training_data.h>

#include <vector>

class kt_Classifier;
class ktClassifierTool;
class ktDecisionTree;

/// Base of a technique's training parameters. The class of the parameters chooses the technique: they are the factory of
/// its classifier.
///
/// Copy: kept on purpose: the base's copy does not carry `throwIfNotReady`; the derived classes of this library do.
/// Threads: one thread at a time. Archive: version byte; `throwIfNotReady` is not stored.
class KT_API ktClassifierTrainParams : public virtual ktPersistent, public virtual ktRepBase {
public:
    ktClassifierTrainParams();
    ~ktClassifierTrainParams() override;

    /// A new, independent copy.
    virtual ktPtrHandle<ktClassifierTrainParams> clone() const = 0;

    /// Whether a tool checks after training that the classifier can run, and refuses the training if it cannot. True
    /// unless changed.
    bool throwIfNotReady() const { return throwIfNotReady_; }
    /// False lets an incomplete training stand; a run then says what is missing.
    void throwIfNotReady(bool throwIfNotReady) { throwIfNotReady_ = throwIfNotReady; }

    /// The same technique and equal values, as `isEqual_` of this object says.
    bool operator==(const ktClassifierTrainParams& other) const { return isEqual_(other); }
    bool operator!=(const ktClassifierTrainParams& other) const { return !isEqual_(other); }

protected:
    ktClassifierTrainParams(const ktClassifierTrainParams&);
    ktClassifierTrainParams& operator=(const ktClassifierTrainParams&);

    /// True here; a derived class first tests the class of the other.
    virtual bool isEqual_(const ktClassifierTrainParams& other) const;
    /// Whether the other parameters choose the same technique, whatever their values.
    virtual bool isSameTechnique_(const ktClassifierTrainParams& other) const = 0;
    /// A new untrained classifier of the technique, owned by the caller.
    virtual kt_Classifier* newClassifier_() const = 0;

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_Classifier;
    friend class ktClassifierTool;

    bool throwIfNotReady_ = true;
};

/// Version byte, the classifier as a pointer record (null allowed).
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierTool& tool);

/// The library's front door: trains a classifier from labelled patterns and parameters, whose class chooses the technique,
/// or takes a decision tree built by hand; then runs it on patterns.
///
/// Ownership: owns its classifier. Copy: clones a trained classifier (nearest-neighbour classifiers share their kept
/// patterns); the copy of an untrained tool is empty. Move: takes the classifier, and leaves the source empty.
/// Tools that were loaded in one pass from references to one record hold one classifier until one of them changes: `retrain` then
/// works on a clone; `train`, `untrain` and the destructor let go. So a change to one tool never shows in another, on any thread.
/// Threads: `run`, `isTrained` and comparison may run on several threads at once; any other operation needs the tool alone.
class KT_API ktClassifierTool {
public:
    /// Untrained.
    ktClassifierTool();
    ktClassifierTool(const ktClassifierTool& other);
    /// Kept on purpose: what this tool holds is dropped first, so a tool assigned to itself ends up empty and untrained.
    ktClassifierTool& operator=(const ktClassifierTool& other);
    ktClassifierTool(ktClassifierTool&& other) noexcept;
    /// What this tool holds is dropped.
    ktClassifierTool& operator=(ktClassifierTool&& other) noexcept;
    ~ktClassifierTool();

    /// Trains from labelled patterns. If anything is thrown the tool is untrained afterwards.
    /// Throws, in this order: ktClassifierDefs::NotImplemented "The classification method specified by the training
    /// parameters is not implemented." for whatever the parameters throw when asked for a classifier (ktBadPointer if they
    /// give none); what the technique throws; with `params.throwIfNotReady()` what the technique throws for a classifier
    /// that cannot run.
    /// Kept on purpose: the last check untrains the tool only for the errors of namespace ktClassifierDefs; any other
    /// exception, such as an abort by the attention check, leaves it trained.
    void train(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params,
               ktDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Takes a decision tree built by hand (a clone of it). There is no readiness check, and no parameters are stored.
    void train(const ktDecisionTree& tree, ktDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Takes new parameters without training again, for example other costs or another k.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before retraining."; for parameters of another
    /// technique and for a decision tree ktClassifierDefs::BadMethod "Cannot retrain with a different classification
    /// technique."; what the technique refuses. Then the same check as after training.
    void retrain(const ktClassifierTrainParams& params, ktDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Classifies a pattern; `result` changes only if nothing is thrown.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running."; what the technique refuses.
    void run(const ktFeaturePattern& pattern, ktClassifierResult& result, ktDiagObject* diag = nullptr,
             unsigned long flags = 0) const;

    /// Classifies many patterns: `results` becomes one result for each, equal to the bit to those of runs one by one; it
    /// changes only if nothing is thrown. A handle may be given more than once. Not virtual, and no hook of a technique: the
    /// tool knows the library's nearest-neighbour classifier, which compares kept patterns with several of the given ones at
    /// once (the norm of order 2, up to 64 neighbours, from 32 given and 512 kept patterns on, where the processor has AVX2).
    /// Every other classifier, also one derived from it, runs pattern by pattern.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running.", without patterns too; then what
    /// runs one by one would throw first: ktBadPointer for a null handle, what `run` throws for a pattern, what the attention
    /// check raises.
    /// Polls: as often as runs one by one, in the same order; but up to 64 patterns are searched for before the polls of the
    /// first of them (1024 while there is no attention handler).
    void run(const std::vector<ktPtrHandle_const<ktFeaturePattern>>& patterns, std::vector<ktClassifierResult>& results,
             ktDiagObject* diag = nullptr, unsigned long flags = 0) const;

    /// Forgets the training, the tree and the parameters; nothing happens to an untrained tool.
    void untrain();
    /// Whether there is a classifier and it is trained. Ask it after loading: an untrained tool can be stored and loaded too.
    bool isTrained() const;

    /// The parameters of the training. They are read-only; `retrain` changes them.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before requesting the training parameters.",
    /// then for a decision tree ktClassifierDefs::BadMethod "Classifier tool was not automatically trained.".
    ktPtrHandle_const<ktClassifierTrainParams> trainParams();

    /// The decision tree.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before requesting the decision tree.", then for
    /// other techniques ktClassifierDefs::BadMethod "Classifier tool was not trained using a decision tree.".
    ktPtrHandle_const<ktDecisionTree> decisionTree();

    /// Two untrained tools are equal; two trained ones if their classifiers are equivalent.
    bool operator==(const ktClassifierTool& other) const;
    bool operator!=(const ktClassifierTool& other) const { return !(*this == other); }

private:
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierTool& tool);
    friend class kt_KitAccess;

    void untrainIfNotRunnable(const ktClassifierTrainParams& params);
    // Whether the classifier was loaded and another handle holds it too. Requires: there is a classifier.
    bool isShared() const;

    ktPtrHandle<kt_Classifier> classifier_;
};

template <>
struct ktLeastStoredSize<ktClassifierTool> {
    static constexpr std::size_t value = 2;
};

// The implementation side: what a technique derives its classifier from.

/// Base of a trained classifier. Its public operations fix the order of checks, state changes and recording for all
/// techniques; a technique fills in the hooks. Callers use it through ktClassifierTool.
///
/// Ownership: tools that were loaded from references to one record hold one classifier until one of them changes.
/// Copy: shares the stored parameters.
/// Threads: const operations may run on several threads at once; any other needs the classifier alone.
/// Archive: version byte, the stored parameters as a pointer record (null allowed).
class KT_API kt_Classifier : public ktPersistent, public ktRepBase {
public:
    kt_Classifier();

    /// A new classifier in the same state; what it shares with this one, the technique says.
    virtual ktPtrHandle<kt_Classifier> clone() const = 0;

    /// Whether both are trained or both are not, and their stored parameters are equal (or neither holds any). A technique
    /// adds the comparison of its model.
    virtual bool isEquivalent(const kt_Classifier& other) const;

    bool operator==(const kt_Classifier& other) const { return isEquivalent(other); }
    bool operator!=(const kt_Classifier& other) const { return !isEquivalent(other); }

    /// Untrains, trains with the technique and then stores a clone of the parameters. If training throws, none are stored. If the
    /// clone throws, the classifier is untrained. `params` may be the stored ones.
    void train(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params,
               ktDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Starts incremental training: untrains, lets the technique make ready, and then stores a clone of the parameters. If the
    /// clone throws, the classifier is untrained.
    void trainStart(const ktClassifierTrainParams& params);

    /// Adds one pattern. `diag` and `flags` are not used.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before incremental training.".
    void trainIncremental(const ktFeaturePattern& pattern, long label, ktDiagObject* diag = nullptr,
                          unsigned long flags = 0);

    /// Takes new parameters without training again. `diag` and `flags` are not used.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before retraining."; without stored
    /// parameters, or with parameters of another technique, ktClassifierDefs::BadMethod "Cannot retrain with a different
    /// classification technique."; what the technique refuses.
    void retrain(const ktClassifierTrainParams& params, ktDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Classifies a pattern; `result` changes only if nothing is thrown.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before running."; what the technique refuses.
    void run(const ktFeaturePattern& pattern, ktClassifierResult& result, ktDiagObject* diag = nullptr,
             unsigned long flags = 0) const;

    /// Forgets the training and the parameters; nothing happens to an untrained classifier.
    void untrain();
    /// Whether the technique has something to run with. A run may still refuse: for lack of training data, or for parameters that a
    /// damaged archive left.
    bool isTrained() const { return isTrained_(); }

    /// A further handle on the stored parameters.
    /// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before requesting the training parameters.",
    /// then ktClassifierDefs::BadMethod "Classifier tool was not automatically trained.".
    ktPtrHandle_const<ktClassifierTrainParams> trainParams();

protected:
    /// Learns the provider's patterns. The classifier is untrained before; `params` is stored after it, if nothing is thrown.
    virtual void train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params) = 0;
    /// Takes new parameters of the same technique, or throws and changes nothing. The base stores a clone of them afterwards.
    virtual void retrain_(const ktClassifierTrainParams& params) = 0;
    /// Makes ready for `trainIncremental_`.
    virtual void trainStart_(const ktClassifierTrainParams& params) = 0;
    /// Learns one pattern.
    virtual void trainIncremental_(const ktFeaturePattern& pattern, long label) = 0;
    /// Forgets the training. Called when trained only.
    virtual void untrain_() = 0;
    /// Whether there is something to run with.
    virtual bool isTrained_() const = 0;
    /// Throws what a run would throw for lack of training data.
    virtual void checkRunnable_() const = 0;
    /// Classifies the pattern into `result`. A technique changes `result` last, so that a run that throws leaves it alone.
    virtual void run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const = 0;

    /// The stored parameters; null while untrained and after manual training.
    const ktPtrHandle_const<ktClassifierTrainParams>& storedParams() const { return trainParams_; }

    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class ktClassifierTool;
    friend KT_API ktArchive& operator||(ktArchive& archive, ktClassifierTool& tool);
    friend class kt_KitAccess;

    // Where a technique writes diagnostics. Kept on purpose: the details of training go to the caller's own object, all
    // others to the recording destination.
    virtual void recordTrainInputs_(ktDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordTrainDetails_(ktDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordTrainResults_(ktDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordRunInputs_(ktDiagObject* diag, unsigned long flags, const ktFeaturePattern& pattern) const = 0;
    virtual void recordRunDetails_(ktDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordRunResults_(ktDiagObject* diag, unsigned long flags, const ktFeaturePattern& pattern,
                                   const ktClassifierResult& result) const = 0;

    KT_HIDDEN void storeCloneOf(const ktClassifierTrainParams& params);

    // A tool loaded it. Other tools may hold it too, because references lead to one object.
    bool isLoaded_ = false;
    ktPtrHandle_const<ktClassifierTrainParams> trainParams_;
};
