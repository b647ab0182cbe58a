#include <kt/failure.h>

#include "registry_list.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace {

struct Converter {
    std::uint32_t group;
    kfExceptionConverter convert;
    /// Ascends in the order of registration.
    std::uint64_t number;
    std::atomic<Converter*> next_{nullptr};
};

kt_RegistryList<Converter> converters;
std::atomic<std::uint64_t> numRegistered{0};

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

/// The newest converter of the group with a number below `number`, null if there is none. `number` becomes its number.
kfExceptionConverter nextConverter(std::uint32_t group, std::uint64_t& number)
{
    const kt_RegistryList<Converter>::Walk walk(converters);
    const Converter* found = nullptr;
    for (const Converter* entry = converters.first(); entry != nullptr; entry = entry->next_.load()) {
        const bool isOlder = entry->group == group && entry->convert != nullptr && entry->number < number;
        if (isOlder &&
            (found == nullptr || found->number < entry->number)) {  // not covered: two threads registered at once
            found = entry;
        }
    }
    number = found != nullptr ? found->number : 0;
    return found != nullptr ? found->convert : nullptr;
}

}  // namespace

ktFailure::ktFailure(long code) : ktExceptionWithString(messageFor(code)), code_(code) {}

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
    converters.add(new Converter{bitsOf(group), converter, numRegistered.fetch_add(1)});
}

void kfUnregisterExceptionConverter(long group, kfExceptionConverter converter) noexcept
{
    delete converters.remove([group, converter](const Converter& entry) {
        return entry.group == bitsOf(group) && entry.convert == converter;
    });
}

void kfThrowExceptionOnFailure(long code)
{
    const std::uint32_t bits = bitsOf(code);
    if ((bits & 0x80000000u) == 0) {
        return;
    }
    const std::uint32_t group = (bits & 0x7FFFFFFFu) >> 5;
    // No entry is held while a converter runs, because it may remove any converter, also itself.
    std::uint64_t number = std::numeric_limits<std::uint64_t>::max();
    while (const kfExceptionConverter convert = nextConverter(group, number)) {
        convert(code);
    }
    throw ktFailure(code);
}
