#include <kt/failure.h>

#include <atomic>
#include <cstdint>
#include <cstdio>

namespace {

struct Converter {
    std::uint32_t group;
    kfExceptionConverter convert;
    Converter* next;
};

// Initialised at compile time: libraries register while they are being loaded, in any order.
std::atomic<Converter*> newest{nullptr};

std::uint32_t bitsOf(long code)
{
    return static_cast<std::uint32_t>(static_cast<unsigned long>(code));
}

std::string messageFor(long code)
{
    char text[64];
    std::snprintf(text, sizeof text, "The operation failed with status 0x%08lX.",
                  static_cast<unsigned long>(bitsOf(code)));
    return text;
}

}  // namespace

ktFailure::ktFailure(long code) : ktExceptionWithString(messageFor(code)), code_(code) {}
ktFailure::ktFailure(const ktFailure&) = default;
ktFailure& ktFailure::operator=(const ktFailure&) = default;
ktFailure::~ktFailure() = default;

long ktFailure::errorNumber() const
{
    return 0x10004008L;
}

void ktFailure::suicideAndRethrow()
{
    rethrowCopyOf(this);
}

void kfRegisterExceptionConverter(long group, kfExceptionConverter converter)
{
    Converter* entry = new Converter{bitsOf(group), converter, newest.load()};
    while (!newest.compare_exchange_weak(entry->next, entry)) {  // not covered: another thread registers one just now
    }
}

void kfUnregisterExceptionConverter(long group, kfExceptionConverter converter) noexcept
{
    Converter* before = nullptr;
    for (Converter* entry = newest.load(); entry != nullptr; before = entry, entry = entry->next) {
        if (entry->group == bitsOf(group) && entry->convert == converter) {
            if (before == nullptr) {
                newest.store(entry->next);
            } else {
                before->next = entry->next;
            }
            delete entry;
            return;
        }
    }
}

void kfThrowExceptionOnFailure(long code)
{
    const std::uint32_t bits = bitsOf(code);
    if ((bits & 0x80000000u) == 0) {
        return;
    }
    const std::uint32_t group = (bits & 0x7FFFFFFFu) >> 5;
    for (const Converter* entry = newest.load(std::memory_order_acquire); entry != nullptr; entry = entry->next) {
        if (entry->group == group && entry->convert != nullptr) {
            entry->convert(code);
        }
    }
    throw ktFailure(code);
}
