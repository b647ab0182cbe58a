#pragma once

#include <kt/foundation.h>

#include <atomic>

namespace kt_test {

/// As long as it lives, the attention check counts its polls and answers the n-th of them (n counts from 1) with `status`.
/// One at a time, made and destroyed while nothing runs.
class Attention {
public:
    explicit Attention(long n = 0, long status = 0) : n_(n), status_(status) { kfSetAttentionHandler(&answer, this); }
    ~Attention() { kfSetAttentionHandler(nullptr, nullptr); }
    Attention(const Attention&) = delete;
    Attention& operator=(const Attention&) = delete;

    long polls() const { return polls_; }

private:
    static long answer(void* context)
    {
        auto* self = static_cast<Attention*>(context);
        return ++self->polls_ == self->n_ ? self->status_ : 0;
    }

    const long n_;
    const long status_;
    std::atomic<long> polls_{0};
};

/// A failing status that no converter knows, and the message of the ktFailure that it becomes.
inline const long abortStatus = static_cast<long>(0x80000C61UL);
inline constexpr const char* abortMessage = "The operation failed with status 0x80000C61.";

}  // namespace kt_test
