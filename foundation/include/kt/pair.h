#pragma once

/// Two values of one type.
template <class T>
struct ktPair {
    /// The first value.
    T first{};
    /// The second value.
    T second{};

    ktPair() = default;
    /// Copies of the two values.
    ktPair(const T& firstValue, const T& secondValue) : first(firstValue), second(secondValue) {}

    /// Both values are equal.
    friend bool operator==(const ktPair& a, const ktPair& b) { return a.first == b.first && a.second == b.second; }
    friend bool operator!=(const ktPair& a, const ktPair& b) { return !(a == b); }
};
