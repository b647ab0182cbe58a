#pragma once

#include <kt/config.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

// How a normal density goes through the patterns that it learns; normal_density.h has the formulas.

namespace kt_normal {

constexpr long largestCount = 2147483647L;

// A double or a pair of them, from memory and back, or one value in all places.

template <class Number>
Number at(const double* values)
{
    Number number;
    std::memcpy(&number, values, sizeof number);
    return number;
}

template <class Number>
void put(double* values, const Number& number)
{
    std::memcpy(values, &number, sizeof number);
}

template <class Number>
Number all(double value)
{
    const Number number = {value, value};
    return number;
}

template <>
inline double all<double>(double value)
{
    return value;
}

/// How many densities of one measurement learn at once.
constexpr std::size_t sideBySide = 32;

/// What a learning step divides by and what of the covariance it keeps.
struct Step {
    double n;
    double r;
};

/// Counts one up.
inline Step nextStep(long& count)
{
    count = std::min(count, largestCount - 1) + 1;
    const auto n = static_cast<double>(count);
    return {n, (n - 2.0) / (n - 1.0)};
}

/// How many rows are learnt in one pass over the covariance.
constexpr std::size_t rowsAtOnce = 4;

/// Learning steps: row k of `d` and `e` holds the differences from the mean and their parts in step k.
template <std::size_t Rows>
struct Steps {
    Step of[Rows];
    double* d;
    double* e;
    std::size_t size;

    /// Takes element `index` of the mean through the steps; `rows` are the patterns. `Number` is a double or a pair.
    template <class Number>
    void addToMean(double* mean, const double* rows, std::size_t index) const
    {
        Number m = at<Number>(mean + index);
        for (std::size_t k = 0; k < Rows; ++k) {
            const Number difference = at<Number>(rows + k * size + index) - m;
            const Number part = difference / all<Number>(of[k].n);
            m = m + part;
            put(d + k * size + index, difference);
            put(e + k * size + index, part);
        }
        put(mean + index, m);
    }

    void addToMean(double* mean, const double* rows) const
    {
        std::size_t i = 0;
        for (; i + 1 < size; i += 2) {
            addToMean<kt_DoublePair>(mean, rows, i);
        }
        if (i < size) {
            addToMean<double>(mean, rows, i);
        }
    }

    /// Takes row `index` of the covariance, up to its diagonal, through the steps.
    void addToRow(double* row, std::size_t index) const
    {
        kt_DoublePair r[Rows];
        kt_DoublePair difference[Rows];
        for (std::size_t k = 0; k < Rows; ++k) {
            r[k] = all<kt_DoublePair>(of[k].r);
            difference[k] = all<kt_DoublePair>(d[k * size + index]);
        }
        std::size_t j = 0;
        for (; j < index; j += 2) {
            kt_DoublePair sum = at<kt_DoublePair>(row + j);
            for (std::size_t k = 0; k < Rows; ++k) {
                sum = sum * r[k] + difference[k] * at<kt_DoublePair>(e + k * size + j);
            }
            put(row + j, sum);
        }
        if (j == index) {
            for (std::size_t k = 0; k < Rows; ++k) {
                row[j] = row[j] * of[k].r + d[k * size + index] * e[k * size + j];
            }
        }
    }
};

}  // namespace kt_normal
