#pragma once

#include <kt/config.h>

#include <atomic>

/// Long computations ask the attention check now and then whether to go on. Returns 0 to go on, or a failure code, which
/// the computation raises with kfThrowExceptionOnFailure. A value without bit 31 is no failure code: 1 goes on like 0.
using kfAttentionHandler = long (*)(void* context);

/// Sets the handler for the whole process; null takes it away. It is called on the computing thread, so with several
/// computing threads on several at once. Set it while nothing runs.
KT_FOUNDATION_API void kfSetAttentionHandler(kfAttentionHandler handler, void* context) noexcept;

// For kfCheckAttention alone.
KT_FOUNDATION_API extern std::atomic<kfAttentionHandler> kt_attentionHandler;
KT_FOUNDATION_API extern std::atomic<void*> kt_attentionContext;

/// 0 without a handler, else what the handler says. Inline, so that a poll without a handler is one load.
inline long kfCheckAttention()
{
    const kfAttentionHandler handler = kt_attentionHandler.load(std::memory_order_acquire);
    return handler == nullptr ? 0 : handler(kt_attentionContext.load(std::memory_order_relaxed));
}
