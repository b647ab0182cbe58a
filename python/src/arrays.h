#pragma once

#include <clastool/clastool.h>
#include <clastool/kit/patterns.h>

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace nb = nanobind;

/// A table of numbers that Python holds, one row for each pattern. Tables of float32 or float64 are read in place, with any strides.
/// Anything else that NumPy can make a table of is converted first. Construction and destruction need the interpreter lock; reading
/// does not.
class Rows {
public:
    /// Throws: TypeError, ValueError.
    explicit Rows(nb::handle given);

    std::size_t size() const { return size_; }
    std::size_t width() const { return width_; }
    /// Copies a row. A float becomes the double of equal value.
    void copy(std::size_t row, double* to) const;

private:
    bool take(nb::handle table);

    nb::ndarray<nb::ro, nb::device::cpu> array_;
    std::size_t size_ = 0;
    std::size_t width_ = 0;
    std::int64_t rowStride_ = 0;
    std::int64_t columnStride_ = 0;
    const double* doubles_ = nullptr;
    const float* floats_ = nullptr;
};

/// Labels that Python holds: integers of any type, one for each row.
class Labels {
public:
    /// Throws: TypeError for anything but integers; otherwise the errors of ktClassifierDataProviderMemory::data.
    Labels(nb::handle labels, std::size_t numRows);

    long operator[](std::size_t row) const { return static_cast<long>(labels_[row]); }

private:
    nb::object array_;
    const std::int64_t* labels_ = nullptr;
};

/// Makes patterns of rows. It reuses the given pattern if no one else holds it. Values that are not finite are missing.
class PatternMaker {
public:
    explicit PatternMaker(const Rows& rows) : rows_(rows), values_(rows.width()) {}

    void make(std::size_t row, ktPtrHandle<ktFeaturePattern>& pattern);

private:
    const Rows& rows_;
    std::vector<double> values_;
    std::vector<long> missing_;
};

/// A new pattern from a pattern, or from anything that NumPy can convert to a row of numbers. Values that are not finite are missing.
ktPtrHandle_const<ktFeaturePattern> patternOf(nb::handle values);

/// A new NumPy array. `data()` may be written without the interpreter lock while this object lives.
template <class T>
class Array {
public:
    explicit Array(std::initializer_list<std::size_t> shape);

    T* data() { return data_; }
    nb::object object() const { return object_; }

private:
    nb::object object_;
    T* data_ = nullptr;
};

extern template class Array<double>;
extern template class Array<std::int64_t>;
extern template class Array<bool>;

/// A new array with a copy of these values.
nb::object arrayOf(const std::vector<double>& values);

/// The numbers of anything that NumPy can convert to a row of numbers.
std::vector<double> numbersOf(nb::handle values);
