#pragma once

#include "cell_nuclei.h"

#include <cmath>
#include <vector>

namespace examples {

/// Moves and stretches each measurement so that over the training samples its mean is 0 and its standard deviation 1.
///
/// Nearest neighbours need it: a distance adds up the differences of all measurements, so without it an area in the
/// hundreds would drown a smoothness in the hundredths.
class Scaling {
public:
    /// Looks at the training samples alone. The test samples stand for those that nobody has seen yet.
    explicit Scaling(const std::vector<Sample>& training)
    {
        const double count = static_cast<double>(training.size());
        for (std::size_t i = 0; i < training.front().measurements.size(); ++i) {
            double sum = 0.0;
            for (const Sample& sample : training) {
                sum += sample.measurements[i];
            }
            const double mean = sum / count;
            double squares = 0.0;
            for (const Sample& sample : training) {
                const double difference = sample.measurements[i] - mean;
                squares += difference * difference;
            }
            const double spread = std::sqrt(squares / count);
            means_.push_back(mean);
            spreads_.push_back(spread > 0.0 ? spread : 1.0);  // a measurement that never varies says nothing
        }
    }

    std::vector<Sample> operator()(std::vector<Sample> samples) const
    {
        for (Sample& sample : samples) {
            for (std::size_t i = 0; i < means_.size(); ++i) {
                sample.measurements[i] = (sample.measurements[i] - means_[i]) / spreads_[i];
            }
        }
        return samples;
    }

private:
    std::vector<double> means_;
    std::vector<double> spreads_;
};

}  // namespace examples
