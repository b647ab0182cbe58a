#include <kt/attention.h>

std::atomic<kfAttentionHandler> kt_attentionHandler{nullptr};
std::atomic<void*> kt_attentionContext{nullptr};

void kfSetAttentionHandler(kfAttentionHandler handler, void* context) noexcept
{
    kt_attentionContext.store(context, std::memory_order_relaxed);
    kt_attentionHandler.store(handler, std::memory_order_release);
}
