#include "arrays.h"

#include "values.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

nb::module_ numpy()
{
    return nb::module_::import_("numpy");
}

std::string kindOf(nb::handle array)
{
    return nb::cast<std::string>(array.attr("dtype").attr("kind"));
}

/// The table without its mask: masked values become NaN. A table without a mask is returned as it is.
nb::object unmasked(nb::handle table)
{
    if (nb::cast<bool>(numpy().attr("ma").attr("isMaskedArray")(table))) {
        return table.attr("astype")("float64").attr("filled")(NAN);
    }
    return nb::borrow(table);
}

/// An array of doubles or floats. Gaps of pandas' own types become NaN.
nb::object floatsOf(nb::handle table)
{
    nb::object array = numpy().attr("asarray")(table);
    const std::string kind = kindOf(array);
    if (kind == "f" && nb::cast<int>(array.attr("dtype").attr("itemsize")) >= 4 &&
        nb::cast<int>(array.attr("dtype").attr("itemsize")) <= 8) {
        // Copies arrays of foreign byte order, and those whose strides are no multiple of the number's size.
        return numpy().attr("array")(array, array.attr("dtype").attr("newbyteorder")("="));
    }
    if (kind == "O" && nb::hasattr(table, "to_numpy")) {
        return table.attr("to_numpy")(nb::arg("dtype") = "float64", nb::arg("na_value") = nb::float_(NAN));
    }
    if (kind == "c") {
        throw nb::type_error("measurements must be real numbers, not complex ones");
    }
    return array.attr("astype")("float64");
}

/// An array of labels that are objects. By itself NumPy makes doubles of signed and unsigned integers together.
nb::object wholeNumbers(nb::handle labels)
{
    const nb::object index = nb::module_::import_("operator").attr("index");
    nb::list numbers;
    for (nb::handle label : labels) {
        if (!PyIndex_Check(label.ptr())) {
            throw nb::type_error("category labels must be whole numbers");
        }
        numbers.append(index(label));
    }
    return numpy().attr("asarray")(numbers);
}

}  // namespace

Rows::Rows(nb::handle given)
{
    const nb::object table = unmasked(given);
    if (!take(table) && !take(numpy().attr("asarray")(table)) && !take(floatsOf(table))) {
        throw nb::value_error("measurements must be a table of numbers: two dimensions, a row for each pattern");
    }
}

bool Rows::take(nb::handle table)
{
    nb::ndarray<nb::ro, nb::device::cpu> array;
    if (!nb::try_cast(table, array, false)) {
        return false;
    }
    if (array.ndim() != 2) {
        throw nb::value_error("measurements must be a table of numbers: two dimensions, a row for each pattern");
    }
    if (array.dtype() == nb::dtype<double>()) {
        doubles_ = static_cast<const double*>(array.data());
    } else if (array.dtype() == nb::dtype<float>()) {
        floats_ = static_cast<const float*>(array.data());
    } else {
        return false;
    }
    array_ = array;
    size_ = array.shape(0);
    width_ = array.shape(1);
    rowStride_ = array.stride(0);
    columnStride_ = array.stride(1);
    return true;
}

void Rows::copy(std::size_t row, double* to) const
{
    const auto begin = static_cast<std::int64_t>(row) * rowStride_;
    if (doubles_ != nullptr && columnStride_ == 1) {
        std::copy_n(doubles_ + begin, width_, to);
    } else if (doubles_ != nullptr) {
        for (std::size_t j = 0; j < width_; ++j) {
            to[j] = doubles_[begin + static_cast<std::int64_t>(j) * columnStride_];
        }
    } else {
        for (std::size_t j = 0; j < width_; ++j) {
            to[j] = static_cast<double>(floats_[begin + static_cast<std::int64_t>(j) * columnStride_]);
        }
    }
}

Labels::Labels(nb::handle labels, std::size_t numRows)
{
    nb::object array = numpy().attr("asarray")(labels);
    if (nb::cast<int>(array.attr("ndim")) != 1) {
        throw nb::value_error("category labels must have one dimension");
    }
    const auto size = nb::cast<std::size_t>(array.attr("size"));
    if (size != numRows) {
        throw ktClassifierDefs::BadFeatures(
            "The number of the feature patterns must be equal to the number of category labels");
    }
    if (size == 0) {
        return;
    }
    const bool areObjects = kindOf(array) == "O" || !nb::hasattr(labels, "dtype");
    if (kindOf(array) == "O") {
        array = numpy().attr("asarray")(array.attr("tolist")());
    }
    if (areObjects && kindOf(array) == "f") {
        array = wholeNumbers(labels);
    }
    const std::string kind = kindOf(array);
    if (kind != "i" && kind != "u" && kind != "b") {
        throw nb::type_error("category labels must be whole numbers");
    }
    if (kind == "u" && nb::cast<unsigned long long>(nb::int_(array.attr("max")())) > std::numeric_limits<long>::max()) {
        throw ktClassifierDefs::BadLabel("Category labels must be >= 0 or unknown");
    }
    array_ = numpy().attr("ascontiguousarray")(array, "int64");
    labels_ = static_cast<const std::int64_t*>(
        nb::cast<nb::ndarray<const std::int64_t, nb::ndim<1>, nb::c_contig>>(array_).data());
    for (std::size_t i = 0; i < size; ++i) {
        if (labels_[i] < -1 || labels_[i] > std::numeric_limits<long>::max()) {
            throw ktClassifierDefs::BadLabel("Category labels must be >= 0 or unknown");
        }
    }
}

void PatternMaker::make(std::size_t row, ktPtrHandle<ktFeaturePattern>& pattern)
{
    rows_.copy(row, values_.data());
    missing_.clear();
    for (std::size_t j = 0; j < values_.size(); ++j) {
        if (!std::isfinite(values_[j])) {
            missing_.push_back(static_cast<long>(j));
        }
    }
    if (pattern.isNull() || pattern->refCount() > 1) {
        pattern = new ktFeaturePattern(values_, missing_);
    } else if (missing_.empty() && pattern->numInvalid() == 0) {
        // The pattern was made here as a non-const object and has no other owner. So its storage may be overwritten, which saves an
        // allocation.
        std::copy(values_.begin(), values_.end(),
                  const_cast<std::vector<double>&>(pattern->featureMeasurements(true)).begin());
    } else {
        *pattern = ktFeaturePattern(values_, missing_);
    }
}

template <class T>
Array<T>::Array(std::initializer_list<std::size_t> shape)
{
    nb::list sizes;
    for (const std::size_t size : shape) {
        sizes.append(size);
    }
    const char* const type = std::is_same_v<T, double> ? "float64" : std::is_same_v<T, bool> ? "bool" : "int64";
    object_ = numpy().attr("empty")(nb::tuple(sizes), type);
    data_ = static_cast<T*>(nb::cast<nb::ndarray<nb::device::cpu>>(object_).data());
}

template class Array<double>;
template class Array<std::int64_t>;
template class Array<bool>;

nb::object arrayOf(const std::vector<double>& values)
{
    Array<double> array({values.size()});
    std::copy(values.begin(), values.end(), array.data());
    return array.object();
}

std::vector<double> numbersOf(nb::handle values)
{
    // Not by ascontiguousarray, which turns a single number into a row.
    const nb::object array = floatsOf(unmasked(values)).attr("astype")("float64", nb::arg("order") = "C");
    if (nb::cast<int>(array.attr("ndim")) != 1) {
        throw nb::value_error("a row of numbers has one dimension");
    }
    const auto numbers = nb::cast<nb::ndarray<const double, nb::ndim<1>, nb::c_contig>>(array);
    return {numbers.data(), numbers.data() + numbers.size()};
}
