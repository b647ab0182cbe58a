#include "metric.h"

#include "arrays.h"

#include <utility>

PythonMetric::PythonMetric(nb::object function)
    : function_(new nb::object(std::move(function)), [](const nb::object* held) {
          const nb::gil_scoped_acquire lock;
          delete held;
      })
{
}

double PythonMetric::distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const
{
    const nb::gil_scoped_acquire lock;
    const nb::object answer =
        (*function_)(arrayOf(a.featureMeasurements(false)), arrayOf(b.featureMeasurements(false)));
    const double distance = PyFloat_AsDouble(answer.ptr());
    if (distance == -1.0 && PyErr_Occurred() != nullptr) {
        throw nb::python_error();
    }
    return distance;
}

ktPtrHandle<ktPatternDistanceMetric> PythonMetric::clone() const
{
    return new PythonMetric(*this);
}

bool PythonMetric::isEquivalent(const ktPatternDistanceMetric& other) const
{
    const auto* const python = dynamic_cast<const PythonMetric*>(&other);
    if (python == nullptr) {
        return false;
    }
    const nb::gil_scoped_acquire lock;
    return function_->is(*python->function_) || function_->equal(*python->function_);
}

ktPtrHandle<ktPatternDistanceMetric> metricOf(nb::handle object)
{
    if (object.is_none()) {
        return new ktPatternDistanceMetricNorm;
    }
    if (nb::isinstance<ktPatternDistanceMetricNorm>(object)) {
        return new ktPatternDistanceMetricNorm(nb::cast<const ktPatternDistanceMetricNorm&>(object));
    }
    if (PyCallable_Check(object.ptr()) == 0) {
        throw nb::type_error("a metric is a Norm or a function of two arrays");
    }
    return new PythonMetric(nb::borrow(object));
}

nb::object objectOf(const ktPatternDistanceMetric* metric)
{
    if (const auto* const norm = dynamic_cast<const ktPatternDistanceMetricNorm*>(metric)) {
        return nb::cast(*norm);
    }
    if (const auto* const python = dynamic_cast<const PythonMetric*>(metric)) {
        return python->function();
    }
    throw ktBadPointer();
}
