#pragma once

#include <kt/config.h>
#include <kt/exception.h>

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

/// Atomic increment of a 32-bit count.
inline void kfInterlockedIncrement(std::atomic<std::int32_t>& counter) noexcept
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

/// Atomic decrement of a 32-bit count. Returns the new value.
inline std::int32_t kfInterlockedDecrement(std::atomic<std::int32_t>& counter) noexcept
{
    // Release: what this thread did to the object is done before another thread can see the count fall. Acquire: the
    // thread that sees 0 and destroys the object sees what all others did to it.
    return counter.fetch_sub(1, std::memory_order_acq_rel) - 1;
}

/// Base of an object that counted handles share. The count lives in the object, so a handle can be made from a plain
/// pointer at any time. It starts at 0, also in a copy, which is a new object that no handle holds yet.
///
/// Threads: the count may change on several threads at once.
class KT_FOUNDATION_API ktRepBase {
public:
    ktRepBase() noexcept = default;
    ktRepBase(const ktRepBase&) noexcept {}
    ktRepBase& operator=(const ktRepBase&) noexcept { return *this; }
    virtual ~ktRepBase();

    /// The number of handles that hold this object. Another thread may change it before the caller reads it. A caller that holds the
    /// only handle may change the object: it sees all that other threads did to it.
    long refCount() const noexcept { return count_.load(std::memory_order_acquire); }

private:
    template <class T>
    friend class ktPtrHandle;
    friend class ktPersistent;

    mutable std::atomic<std::int32_t> count_{0};
};

/// A counted handle: holds one pointer to a `T` derived from ktRepBase, or null. The last handle that lets go destroys the
/// object through its virtual destructor, so an object given to a handle lives on the free store. A handle that gives only
/// const access, ktPtrHandle_const<T>, is a ktPtrHandle<const T>.
///
/// Copy: shares the object (count up), never clones it.
/// Threads: handles to one object may be copied and dropped on several threads at once; one handle is used by one thread
/// at a time.
template <class T>
class ktPtrHandle {
public:
    ktPtrHandle() noexcept = default;
    /// Holds the object, which lives on the free store and may be held by other handles already; null holds nothing.
    ktPtrHandle(T* object) noexcept : object_(object) { countUp(object_); }
    ktPtrHandle(const ktPtrHandle& other) noexcept : ktPtrHandle(other.object_) {}
    ktPtrHandle(ktPtrHandle&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

    /// From a handle to a derived class, and to const from non-const.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    ktPtrHandle(const ktPtrHandle<U>& other) noexcept : ktPtrHandle(other.get())
    {
    }

    ~ktPtrHandle() { countDown(object_); }

    /// Nothing happens if the new pointer equals the held one. The new object is counted up before the old one is counted
    /// down, so assigning from a part of the old object is safe.
    ktPtrHandle& operator=(const ktPtrHandle& other) noexcept
    {
        if (object_ != other.object_) {
            ktPtrHandle(other).swap(*this);
        }
        return *this;
    }
    ktPtrHandle& operator=(ktPtrHandle&& other) noexcept
    {
        ktPtrHandle(std::move(other)).swap(*this);
        return *this;
    }

    /// Exchanges what the two handles hold; no count changes.
    void swap(ktPtrHandle& other) noexcept { std::swap(object_, other.object_); }

    /// Throws: ktBadPointer for a null handle.
    T* operator->() const { return &**this; }
    /// Throws: ktBadPointer for a null handle.
    T& operator*() const
    {
        if (object_ == nullptr) {
            throw ktBadPointer();
        }
        return *object_;
    }

    /// The plain pointer, null for a null handle. The object lives as long as a handle holds it.
    T* get() const noexcept { return object_; }
    /// Whether nothing is held.
    bool isNull() const noexcept { return object_ == nullptr; }
    /// Whether something is held.
    explicit operator bool() const noexcept { return object_ != nullptr; }

    /// Handles are compared by pointer, never by the value of what they hold.
    friend bool operator==(const ktPtrHandle& a, const ktPtrHandle& b) noexcept { return a.object_ == b.object_; }
    friend bool operator!=(const ktPtrHandle& a, const ktPtrHandle& b) noexcept { return a.object_ != b.object_; }
    // Without these a plain pointer would become a handle for the comparison, and that handle would destroy an object that no
    // other one holds.
    /// Whether the handle holds the very object.
    friend bool operator==(const ktPtrHandle& a, const T* b) noexcept { return a.object_ == b; }
    friend bool operator!=(const ktPtrHandle& a, const T* b) noexcept { return a.object_ != b; }
    /// Whether the handle holds the very object.
    friend bool operator==(const T* a, const ktPtrHandle& b) noexcept { return a == b.object_; }
    friend bool operator!=(const T* a, const ktPtrHandle& b) noexcept { return a != b.object_; }

private:
    static void countUp(const ktRepBase* object) noexcept
    {
        if (object != nullptr) {
            kfInterlockedIncrement(object->count_);
        }
    }
    static void countDown(const ktRepBase* object) noexcept
    {
        if (object != nullptr && kfInterlockedDecrement(object->count_) == 0) {
            delete object;
        }
    }

    T* object_ = nullptr;
};

/// A handle that gives only const access. Several owners share one object through it, because none of them can change it.
template <class T>
using ktPtrHandle_const = ktPtrHandle<const T>;
