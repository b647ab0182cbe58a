#pragma once

#include <clastool/kit/config.h>
#include <clastool/training_data.h>

#include <vector>

namespace ktKit {

/// Shifts and scales each measurement, so that measurements of different units and spreads count equally in a distance. With center
/// c_j and spread s_j of measurement j, learnt from training data: (x_j - c_j) / s_j.
///
/// Missing measurements are ignored in learning and stay missing. Learn from the training data alone, and transform every pattern that
/// the tool runs on. `save` and `load` keep the tool and its scaler in one file.
/// Copy: copies centers and spreads. Threads: const operations may run on several threads at once.
/// Archive: version byte, centers, spreads.
class KT_KIT_API Scaler : public ktPersistent, public ktRepBase {
public:
    /// What is learnt as center and as spread.
    enum Method {
        /// The mean, and the standard deviation of the data, sqrt(sum (x - mean)^2 / n).
        eMeanAndDeviation,
        /// The median, and the distance between the quartiles, which a few outliers hardly change. The quantile q of n sorted values
        /// is at place q (n - 1), counted from 0, interpolated linearly.
        eMedianAndQuartiles
    };

    /// For patterns without measurements, or to load into.
    Scaler();
    /// Learns from the patterns of the provider, including those of unknown category. A measurement without spread gets the spread 1;
    /// one without a valid value gets the center 0 and the spread 1.
    /// Throws: ktBadPointer for a null pattern; ktClassifierDefs::BadFeatures "All patterns must have the same number of
    /// measurements"; ktClassifierDefs::InsufficientTrainData "No valid data was provided for training." without patterns.
    /// Cost: linear in the values; for quartiles, sorting them.
    /// See: R. J. Hyndman, Y. Fan, "Sample quantiles in statistical packages", 1996, definition 7.
    explicit Scaler(const ktClassifierDataProvider& data, Method method = eMeanAndDeviation);
    Scaler(const Scaler&) = default;
    Scaler& operator=(const Scaler&);

    /// The number subtracted from each measurement, in its unit.
    const std::vector<double>& centers() const { return centers_; }
    /// The number by which the difference is divided, in the unit of the measurement.
    const std::vector<double>& spreads() const { return spreads_; }

    /// A new pattern of scaled measurements. A value that is not finite after scaling is missing.
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

    // A damaged archive may leave fewer spreads than centers.
    std::vector<double> centers_;
    std::vector<double> spreads_;
};

}  // namespace ktKit
