#pragma once

#include <clastool/nearest_neighbor.h>

#include <nanobind/nanobind.h>

#include <memory>

namespace nb = nanobind;

/// A metric that asks a function of Python's, with two arrays of numbers. Archives do not know it.
class PythonMetric : public ktPatternDistanceMetric {
public:
    explicit PythonMetric(nb::object function);

    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override;
    ktPtrHandle<ktPatternDistanceMetric> clone() const override;
    /// The very same function, or an equal one.
    bool isEquivalent(const ktPatternDistanceMetric& other) const override;

    /// Takes the interpreter lock.
    nb::object function() const { return *function_; }

private:
    // Shared, so that copies are made without the interpreter lock; the last one takes it.
    std::shared_ptr<const nb::object> function_;
};

/// The metric that a Python object stands for: None, the norm of order 2; a Norm; or a function.
ktPtrHandle<ktPatternDistanceMetric> metricOf(nb::handle object);
/// The object that stands for the metric.
nb::object objectOf(const ktPatternDistanceMetric* metric);
