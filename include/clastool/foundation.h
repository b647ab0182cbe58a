#pragma once

#include <kt/foundation.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class kt_PatternHolders;

namespace ktClassifierDefs {

/// Base of every error that the library itself reports. Each has a message and a fixed number, can be archived and is
/// re-created by its class's name. A concrete class is made with the whole text of its message, empty unless given.
///
/// Archive: each class layer's version byte, the concrete class first, then the message. Another version than 0 is
/// ktArchive::UnknownVersion(name of the class with its namespace, 0).
class KT_API Errors : public ktExceptionWithString {
public:
    /// The number of the concrete class.
    long errorNumber() const override = 0;
    /// Throws a copy of this object and destroys this object, which must live on the free store.
    void suicideAndRethrow() override = 0;

protected:
    /// With the whole text of the message.
    Errors(const std::string& message = "");

    void dispatchSerialize(ktArchive& archive) override;
    /// Throws: ktArchive::UnknownVersion("ktClassifierDefs::Errors", 0) for another version than 0.
    void serialize_(ktArchive& archive, unsigned char version);
};

// What each of the eight concrete errors declares; they differ in their name and number alone.
// NOLINTBEGIN(bugprone-macro-parentheses): a class's name stands in no parentheses.
#define KT_CONCRETE_ERROR(Class)                                \
public:                                                         \
    Class(const std::string& message = "");                     \
    long errorNumber() const override;                          \
    void suicideAndRethrow() override;                          \
                                                                \
protected:                                                      \
    void dispatchSerialize(ktArchive& archive) override;        \
    void serialize_(ktArchive& archive, unsigned char version); \
                                                                \
private:                                                        \
    static ktPersistent* make();                                \
    KT_HIDDEN static const kt_Instantiator sExemplar
// NOLINTEND(bugprone-macro-parentheses)

// Kept on purpose: the numbers are not in the order of declaration; NotTrained comes before BadIndex.

/// An argument is out of range or inconsistent. Number 0x10004200.
class KT_API BadParams : public Errors {
    KT_CONCRETE_ERROR(BadParams);
};

/// An index is out of range. Number 0x10004202.
class KT_API BadIndex : public Errors {
    KT_CONCRETE_ERROR(BadIndex);
};

/// A category label is negative, duplicated or unknown. Number 0x10004203.
class KT_API BadLabel : public Errors {
    KT_CONCRETE_ERROR(BadLabel);
};

/// A technique or an option is not supported. Number 0x10004204.
class KT_API BadMethod : public Errors {
    KT_CONCRETE_ERROR(BadMethod);
};

/// A classifier or a rule table was used before it was trained. Number 0x10004201.
class KT_API NotTrained : public Errors {
    KT_CONCRETE_ERROR(NotTrained);
};

/// A technique does not offer the operation. Number 0x10004205.
class KT_API NotImplemented : public Errors {
    KT_CONCRETE_ERROR(NotImplemented);
};

/// A feature pattern or vector is of the wrong size or content. Number 0x10004206.
class KT_API BadFeatures : public Errors {
    KT_CONCRETE_ERROR(BadFeatures);
};

/// The training data cannot support training. Number 0x10004207.
class KT_API InsufficientTrainData : public Errors {
    KT_CONCRETE_ERROR(InsufficientTrainData);
};

#undef KT_CONCRETE_ERROR

/// A status word that can stand in an archive. No operation of the library reads or sets one.
enum Status : std::uint32_t { eStatusOk = 0 };

}  // namespace ktClassifierDefs

/// The status as an unsigned 32-bit value.
KT_API ktArchive& operator||(ktArchive& archive, ktClassifierDefs::Status& status);

/// One object to be classified: its measurements, each of them valid or not (missing). An invalid measurement keeps the
/// value that the caller gave.
///
/// A pattern is changed only by assignment and by loading; owners share it through `ktPtrHandle_const<ktFeaturePattern>`.
/// Copy: member by member. Threads: const operations may run on several threads at once.
/// Archive: version byte, measurements, validity flags.
class KT_API ktFeaturePattern : public ktPersistent, public ktRepBase {
public:
    /// No measurements.
    ktFeaturePattern();
    /// All measurements valid but those named in `invalidIndices`, in any order; one named twice is simply invalid.
    /// Throws, for the first index at fault: ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0", then
    /// ktClassifierDefs::BadIndex "Feature measurement indices must be < number of features".
    ktFeaturePattern(const std::vector<double>& measurements, const std::vector<long>& invalidIndices);
    ktFeaturePattern(const ktFeaturePattern&);
    ktFeaturePattern& operator=(const ktFeaturePattern&);
    ~ktFeaturePattern() override;

    /// The number of measurements, invalid ones included.
    long numMeasurements() const { return static_cast<long>(measurements_.size()); }

    /// False for an index past the end.
    /// Throws: ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0".
    bool isValid(long index) const
    {
        if (index < 0) {
            throwNegativeIndex();
        }
        const auto i = static_cast<std::size_t>(index);
        return i < measurements_.size() && (numInvalid_ == 0 || holdsValid(i));
    }

    /// The measurement. With `throwIfNotAvailable` false an index past the end gives 0.0 and an invalid measurement the
    /// value that it holds.
    /// Throws: ktClassifierDefs::BadIndex "Feature measurement indices must be >= 0"; with `throwIfNotAvailable`, past the
    /// end and for an invalid measurement, ktClassifierDefs::BadFeatures "The measurement for the specified measurement
    /// index is not valid.".
    double featureMeasurement(long index, bool throwIfNotAvailable) const
    {
        if (!isValid(index) && throwIfNotAvailable) {
            throwNotValid();
        }
        const auto i = static_cast<std::size_t>(index);
        return i < measurements_.size() ? measurements_[i] : 0.0;
    }

    /// All measurements, the values of invalid ones included.
    /// Throws: with `throwIfAnyInvalid`, if any is, ktClassifierDefs::BadFeatures "Access to full feature vector requires
    /// that all features are valid.".
    const std::vector<double>& featureMeasurements(bool throwIfAnyInvalid) const;

    /// The indices of the invalid measurements, ascending.
    /// Kept on purpose: not const, as published. Ask a copy, or `isValid`, where the pattern is const.
    std::vector<long> invalidFeatureIndices();

    /// The number of invalid measurements.
    long numInvalid() const { return numInvalid_; }

    /// Equal measurements, those of invalid ones included, and equal validity; compared exactly, no tolerance.
    bool operator==(const ktFeaturePattern& other) const;
    bool operator!=(const ktFeaturePattern& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    void serialize_(ktArchive& archive, unsigned char version);

private:
    friend class kt_CompactCopy;
    friend class kt_NeighborScan;

    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    [[noreturn]] static void throwNegativeIndex();
    [[noreturn]] static void throwNotValid();
    void changing() noexcept;
    static std::unique_ptr<std::vector<bool>> copyOf(const std::unique_ptr<std::vector<bool>>& validity);
    static long countInvalid(const std::vector<double>& measurements, const std::vector<bool>& validity);
    bool holdsValid(std::size_t index) const { return index < validity_->size() && (*validity_)[index]; }

    std::vector<double> measurements_;
    // Null if all are valid, as in most patterns. Else as long as the measurements, but for a pattern from a damaged archive: a
    // measurement without a flag is invalid.
    std::unique_ptr<std::vector<bool>> validity_;
    long numInvalid_ = 0;
    // The classifiers that hold a copy of the measurements; null if there are none.
    mutable ktPtrHandle<const kt_PatternHolders> holders_;
};
