#pragma once

#include <clastool/kit/config.h>
#include <clastool/training_data.h>

#include <vector>

namespace ktKit {

/// Moves and stretches each measurement, so that those of different units and spreads count alike in a distance. With center c
/// and spread s of measurement j, learnt from training data: (x_j - c_j) / s_j.
///
/// What is missing takes no part in learning, and stays missing. Learn from the training data alone, and transform all that the
/// tool runs on: `save` and `load` take both into one file.
/// Copy: copies both sequences. Threads: const operations may run on several threads at once.
/// Archive: version byte, centers, spreads.
class KT_KIT_API Scaler : public ktPersistent, public ktRepBase {
public:
    /// What of a measurement becomes 0 and what 1.
    enum Method {
        /// The mean, and the standard deviation of the data, sqrt(sum (x - mean)^2 / n).
        eMeanAndDeviation,
        /// The median, and the distance of the quartiles, which a few wild values do not move. The quantile q of n sorted values
        /// lies at place q (n - 1), counted from 0, between two of them in proportion.
        eMedianAndQuartiles
    };

    /// Changes nothing: for patterns without measurements, or to load into.
    Scaler();
    /// Learns from the patterns of the provider, those of unknown category too. A measurement without spread, or without a valid
    /// value, gets the spread 1, and without a valid value the center 0.
    /// Throws: ktBadPointer for a null pattern; ktClassifierDefs::BadFeatures "All patterns must have the same number of
    /// measurements"; ktClassifierDefs::InsufficientTrainData "No valid data was provided for training." without patterns.
    /// Cost: linear in the values; for quartiles, sorting them.
    /// See: R. J. Hyndman, Y. Fan, "Sample quantiles in statistical packages", 1996, definition 7.
    explicit Scaler(const ktClassifierDataProvider& data, Method method = eMeanAndDeviation);
    Scaler(const Scaler&) = default;
    Scaler& operator=(const Scaler&);

    /// What each measurement is moved by, in its unit.
    const std::vector<double>& centers() const { return centers_; }
    /// What each measurement is then divided by, in its unit.
    const std::vector<double>& spreads() const { return spreads_; }

    /// A new pattern, in spreads from the center. A value that is not finite then is missing.
    /// Throws: ktClassifierDefs::BadFeatures "The pattern has <n> measurements, but the scaler was made for <m>".
    ktPtrHandle_const<ktFeaturePattern> transform(const ktFeaturePattern& pattern) const;
    /// All patterns of the provider, with their labels, name and description.
    /// Throws: ktBadPointer for a null pattern; ktClassifierDefs::BadFeatures as above; what the provider throws.
    ktClassifierDataProviderMemory transform(const ktClassifierDataProvider& data) const;

    /// Equal centers and spreads, compared exactly, no tolerance.
    bool operator==(const Scaler& other) const;
    bool operator!=(const Scaler& other) const { return !(*this == other); }

protected:
    void dispatchSerialize(ktArchive& archive) override;
    /// Throws: ktArchive::UnknownVersion for another version than 0.
    void serialize_(ktArchive& archive, unsigned char version);

private:
    static ktPersistent* make();
    KT_HIDDEN static const kt_Instantiator sExemplar;

    // A loaded one may be damaged, and have fewer of the second.
    std::vector<double> centers_;
    std::vector<double> spreads_;
};

}  // namespace ktKit
