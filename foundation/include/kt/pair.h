#pragma once

/// Two values of one type.
template <class T>
struct ktPair {
    T first{};
    T second{};

    ktPair() = default;
    ktPair(const T& firstValue, const T& secondValue) : first(firstValue), second(secondValue) {}

    friend bool operator==(const ktPair& a, const ktPair& b) { return a.first == b.first && a.second == b.second; }
    friend bool operator!=(const ktPair& a, const ktPair& b) { return !(a == b); }
};
