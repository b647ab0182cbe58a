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

/// A table of numbers that Python holds, a row each pattern, read where it is: float32 or float64, rows and columns in any order in
/// memory. Anything else that NumPy can make a table of is converted first. Made and destroyed with the interpreter lock, read without.
class Rows {
public:
    /// Throws: TypeError, ValueError.
    explicit Rows(nb::handle given);

    std::size_t size() const { return size_; }
    std::size_t width() const { return width_; }
    /// Copies a row, a float as the double that equals it.
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

/// Labels that Python holds: whole numbers of any type, one for each row.
class Labels {
public:
    /// Throws: TypeError for other than whole numbers; what ktClassifierDataProviderMemory::data refuses.
    Labels(nb::handle labels, std::size_t numRows);

    long operator[](std::size_t row) const { return static_cast<long>(labels_[row]); }

private:
    nb::object array_;
    const std::int64_t* labels_ = nullptr;
};

/// Makes patterns of rows, each in the place of one that nobody else holds, if there is one. Values that are not finite are missing.
class PatternMaker {
public:
    explicit PatternMaker(const Rows& rows) : rows_(rows), values_(rows.width()) {}

    void make(std::size_t row, ktPtrHandle<ktFeaturePattern>& pattern);

private:
    const Rows& rows_;
    std::vector<double> values_;
    std::vector<long> missing_;
};

/// A new pattern of anything that is one, or that NumPy can make a row of numbers of; what is not finite is missing.
ktPtrHandle_const<ktFeaturePattern> patternOf(nb::handle values);

/// New arrays of NumPy's. `data()` may be written to without the interpreter lock, as long as the array lives.
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

/// The numbers of anything that NumPy can make a row of them of.
std::vector<double> numbersOf(nb::handle values);
