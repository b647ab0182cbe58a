#pragma once

#include <kt/compiler.h>

#include <cstring>

// A double or a pair of them, from memory and back, or one value in all places.

namespace kt_normal {

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

}  // namespace kt_normal
