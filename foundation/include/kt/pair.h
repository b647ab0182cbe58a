#pragma once

/// Two values of one type.
template <class T>
struct ktPair {
    /// Value-initialised unless given.
    T first{};
    /// Value-initialised unless given.
    T second{};

    ktPair() = default;
    /// Copies of the two values.
    ktPair(const T& firstValue, const T& secondValue) : first(firstValue), second(secondValue) {}

    /// Both values equal, by their own `==`.
    friend bool operator==(const ktPair& a, const ktPair& b) { return a.first == b.first && a.second == b.second; }
    friend bool operator!=(const ktPair& a, const ktPair& b) { return !(a == b); }
};
