#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>

/// Working storage of one call: on the stack for up to `Small` elements, one allocation beyond. Numbers start with any value.
template <class T, std::size_t Small = 32>
class kt_Scratch {
    static_assert(std::is_trivially_destructible_v<T>, "elements upon the stack are not destroyed");

public:
    explicit kt_Scratch(std::size_t size) : size_(size), large_(size > Small ? new T[size] : nullptr)
    {
        // Initialise only what is used: clearing all elements can cost more than the call.
        if (!large_) {
            std::uninitialized_default_construct_n(reinterpret_cast<T*>(small_), size);
        }
    }

    T* data() noexcept { return large_ ? large_.get() : std::launder(reinterpret_cast<T*>(small_)); }
    T* begin() noexcept { return data(); }
    T* end() noexcept { return data() + size_; }
    T& operator[](std::size_t index) noexcept { return data()[index]; }
    std::size_t size() const noexcept { return size_; }

private:
    std::size_t size_;
    std::unique_ptr<T[]> large_;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the elements may be pointers.
    alignas(T) unsigned char small_[Small * sizeof(T)];
};
