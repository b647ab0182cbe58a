#pragma once

#include <clastool/nearest_neighbor.h>

#include <nanobind/nanobind.h>

#include <memory>

namespace nb = nanobind;

/// A metric that calls a Python function with two arrays. Archives cannot hold it.
class PythonMetric : public ktPatternDistanceMetric {
public:
    explicit PythonMetric(nb::object function);

    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override;
    ktPtrHandle<ktPatternDistanceMetric> clone() const override;
    /// True for the same function object, or an equal one.
    bool isEquivalent(const ktPatternDistanceMetric& other) const override;

    /// Takes the interpreter lock.
    nb::object function() const { return *function_; }

private:
    // Shared, so that copying needs no interpreter lock. The last owner takes the lock to release the function.
    std::shared_ptr<const nb::object> function_;
};

/// The metric of a Python object: None is the norm of order 2; otherwise a Norm or a function.
ktPtrHandle<ktPatternDistanceMetric> metricOf(nb::handle object);
/// The Python object of a metric: a Norm or the function.
nb::object objectOf(const ktPatternDistanceMetric* metric);
