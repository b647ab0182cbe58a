#pragma once

#include "training.h"

#include <clastool/classifier.h>

#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

// A classification technique, its parameters and a diagnostics object as a user of the library would write them. They record
// their calls, and fail where a test wants a failure.

namespace kt_test {

/// The calls in order, and the number of techniques alive. Outlives everything that writes into it.
struct Script {
    std::vector<std::string> calls;
    long techniques = 0;
    /// Called with each line after it was noted. What it throws, the hook throws.
    std::function<void(const std::string& call)> during;

    void note(const std::string& call)
    {
        calls.push_back(call);
        if (during) {
            during(call);
        }
    }

    /// The calls since the last time.
    std::vector<std::string> takeCalls()
    {
        std::vector<std::string> taken;
        taken.swap(calls);
        return taken;
    }

    /// From now on, throws `error` when a line begins with `call`.
    template <class Error>
    void failAt(const std::string& call, const Error& error)
    {
        during = [call, error](const std::string& line) {
            if (line.compare(0, call.size(), call) == 0) {
                throw error;
            }
        };
    }
};

/// A diagnostics object with a name. It sends recordings to `destination` and sets a flag.
class Recorder : public ktDiagObject {
public:
    explicit Recorder(std::string name, unsigned long flag = 0)
        : name_(std::move(name)), flag_(flag), destination_(this)
    {
    }

    void sendTo(ktDiagObject* destination) { destination_ = destination; }
    long timesAsked() const { return timesAsked_; }

    ktDiagObject* recordingDestination(unsigned long& flags) override
    {
        ++timesAsked_;
        flags |= flag_;
        return destination_;
    }

    static std::string nameOf(ktDiagObject* object)
    {
        return object == nullptr ? "null" : dynamic_cast<Recorder&>(*object).name_;
    }

private:
    std::string name_;
    unsigned long flag_;
    ktDiagObject* destination_;
    long timesAsked_ = 0;
};

/// A technique that learns nothing and answers with the pattern's first measurement as the only label.
class Technique : public kt_Classifier {
public:
    explicit Technique(Script& script) : script_(&script) { ++script_->techniques; }
    Technique(const Technique& other) : kt_Classifier(other), script_(other.script_), trained_(other.trained_)
    {
        ++script_->techniques;
    }
    Technique& operator=(const Technique&) = default;
    ~Technique() override { --script_->techniques; }

    ktPtrHandle<kt_Classifier> clone() const override
    {
        script_->note("clone of the technique");
        return new Technique(*this);
    }

    /// Trained without parameters, as by hand.
    void trainManual() { trained_ = true; }

    const ktPtrHandle_const<ktClassifierTrainParams>& heldParams() const { return storedParams(); }
    const ktClassifierDataProvider* provider() const { return provider_; }
    /// The parameters last handed to a hook, and what they said about the readiness check.
    const ktClassifierTrainParams* params() const { return params_; }
    bool wantsCheck() const { return wantsCheck_; }

protected:
    void train_(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params) override
    {
        script_->note("train_");
        provider_ = &provider;
        look(params);
        trained_ = true;
        script_->note("train_, half way");
    }
    void retrain_(const ktClassifierTrainParams& params) override
    {
        script_->note("retrain_");
        look(params);
    }
    void trainStart_(const ktClassifierTrainParams& params) override
    {
        script_->note("trainStart_");
        look(params);
        trained_ = true;
    }
    void trainIncremental_(const ktFeaturePattern& pattern, long label) override
    {
        script_->note("trainIncremental_(" + first(pattern) + ", " + std::to_string(label) + ")");
    }
    void untrain_() override
    {
        script_->note("untrain_");
        trained_ = false;
    }
    bool isTrained_() const override { return trained_; }
    void checkRunnable_() const override { script_->note("checkRunnable_"); }
    void run_(const ktFeaturePattern& pattern, ktClassifierResult& result) const override
    {
        script_->note("run_(" + first(pattern) + ")");
        result = ktClassifierResult({ktClassifierCategoryResult(std::stol(first(pattern)), 1.0, 1.0, 0.0)}, 0.0);
    }

private:
    /// Reads them, so that parameters that are gone already show under a sanitizer.
    void look(const ktClassifierTrainParams& params)
    {
        params_ = &params;
        wantsCheck_ = params.throwIfNotReady();
    }
    static std::string first(const ktFeaturePattern& pattern)
    {
        return std::to_string(static_cast<long>(pattern.featureMeasurement(0, false)));
    }
    void noteRecord(const std::string& hook, ktDiagObject* diag, unsigned long flags,
                    const std::string& rest = "") const
    {
        script_->note(hook + "(" + Recorder::nameOf(diag) + ", " + std::to_string(flags) + rest + ")");
    }

    void recordTrainInputs_(ktDiagObject* diag, unsigned long flags) const override
    {
        noteRecord("recordTrainInputs_", diag, flags);
    }
    void recordTrainDetails_(ktDiagObject* diag, unsigned long flags) const override
    {
        noteRecord("recordTrainDetails_", diag, flags);
    }
    void recordTrainResults_(ktDiagObject* diag, unsigned long flags) const override
    {
        noteRecord("recordTrainResults_", diag, flags);
    }
    void recordRunInputs_(ktDiagObject* diag, unsigned long flags, const ktFeaturePattern& pattern) const override
    {
        noteRecord("recordRunInputs_", diag, flags, ", " + first(pattern));
    }
    void recordRunDetails_(ktDiagObject* diag, unsigned long flags) const override
    {
        noteRecord("recordRunDetails_", diag, flags);
    }
    void recordRunResults_(ktDiagObject* diag, unsigned long flags, const ktFeaturePattern& pattern,
                           const ktClassifierResult& result) const override
    {
        const std::string label = std::to_string(result.categoryResults().front().categoryLabel());
        noteRecord("recordRunResults_", diag, flags, ", " + first(pattern) + ", label " + label);
    }

    Script* script_;
    bool trained_ = false;
    const ktClassifierDataProvider* provider_ = nullptr;
    const ktClassifierTrainParams* params_ = nullptr;
    bool wantsCheck_ = false;
};

/// Parameters of that technique; equal if their values are.
class TechniqueParams : public ktClassifierTrainParams {
public:
    TechniqueParams(Script& script, long value) : script_(&script), value_(value) {}
    TechniqueParams(const TechniqueParams& other)
        : ktPersistent(), ktRepBase(), ktClassifierTrainParams(other), script_(other.script_), value_(other.value_)
    {
        throwIfNotReady(other.throwIfNotReady());
    }

    long value() const { return value_; }
    void value(long value) { value_ = value; }

    ktPtrHandle<ktClassifierTrainParams> clone() const override
    {
        script_->note("clone of params " + std::to_string(value_));
        return new TechniqueParams(*this);
    }

protected:
    bool isEqual_(const ktClassifierTrainParams& other) const override
    {
        const long value = valueOf(other);
        script_->note("isEqual_: " + std::to_string(value_) + " with " + std::to_string(value));
        return value == value_;
    }
    bool isSameTechnique_(const ktClassifierTrainParams& other) const override
    {
        script_->note("isSameTechnique_: " + std::to_string(value_) + " about " + std::to_string(valueOf(other)));
        return typeid(other) == typeid(*this);
    }
    kt_Classifier* newClassifier_() const override
    {
        script_->note("newClassifier_");
        return new Technique(*script_);
    }

    /// -1 for parameters of another technique.
    static long valueOf(const ktClassifierTrainParams& params)
    {
        const auto* own = dynamic_cast<const TechniqueParams*>(&params);
        return own == nullptr ? -1 : own->value_;
    }

private:
    Script* script_;
    long value_;
};

/// The value of such parameters behind a handle of their base; -1 for null.
inline long valueOf(const ktPtrHandle_const<ktClassifierTrainParams>& params)
{
    return params.isNull() ? -1 : dynamic_cast<const TechniqueParams&>(*params).value();
}

/// Parameters that add nothing to the base but what it asks for.
struct PlainParams : ktClassifierTrainParams {
    ktPtrHandle<ktClassifierTrainParams> clone() const override { return new PlainParams(*this); }
    bool isSameTechnique_(const ktClassifierTrainParams&) const override { return false; }
    kt_Classifier* newClassifier_() const override { return nullptr; }

    using ktClassifierTrainParams::isEqual_;
    using ktClassifierTrainParams::serialize_;
};

/// The hooks of a classifier, open to a test.
template <class Classifier>
struct OpenClassifier : Classifier {
    OpenClassifier() = default;
    explicit OpenClassifier(const Classifier& other) : Classifier(other) {}
    using Classifier::checkRunnable_;
    using Classifier::isTrained_;
    using Classifier::retrain_;
    using Classifier::run_;
    using Classifier::serialize_;
    using Classifier::storedParams;
    using Classifier::train_;
    using Classifier::trainIncremental_;
    using Classifier::trainStart_;
    using Classifier::untrain_;
};

/// The hooks of a technique's parameters, open to a test.
template <class Params>
struct OpenParams : Params {
    using Params::Params;
    explicit OpenParams(const Params& params) : Params(params) {}
    using Params::isEqual_;
    using Params::isSameTechnique_;
    using Params::newClassifier_;
    using Params::serialize_;
};

/// The result of a run, which must not throw.
template <class Trained>
ktClassifierResult answer(const Trained& trained, const std::vector<double>& measurements)
{
    ktClassifierResult result = untouchedResult();
    trained.run(ktFeaturePattern(measurements, {}), result);
    return result;
}

}  // namespace kt_test
