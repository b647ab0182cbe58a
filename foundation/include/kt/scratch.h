#pragma once

#include <array>
#include <cstddef>
#include <memory>

/// Working storage of one call: on the stack for up to `Small` elements, one allocation beyond. Numbers start with any
/// value. For the library's own use.
template <class T, std::size_t Small = 32>
class kt_Scratch {
public:
    explicit kt_Scratch(std::size_t size) : size_(size), large_(size > Small ? new T[size] : nullptr) {}

    T* data() noexcept { return large_ ? large_.get() : small_.data(); }
    T* begin() noexcept { return data(); }
    T* end() noexcept { return data() + size_; }
    T& operator[](std::size_t index) noexcept { return data()[index]; }
    std::size_t size() const noexcept { return size_; }

private:
    std::size_t size_;
    std::unique_ptr<T[]> large_;
    std::array<T, Small> small_;
};
