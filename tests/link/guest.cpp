// A shared object that uses the library and is loaded and unloaded while its host runs.

#include "check_registry.h"
#include "errors.h"

namespace {

bool holds(const char* listFile, const char* goldenFolder, std::size_t copies)
{
    return registryHolds(listFile, goldenFolder, copies);
}

constexpr Guest self{&holds, errorCases};

}  // namespace

extern "C" KT_EXPORT const Guest* ktLinkTestGuest();

const Guest* ktLinkTestGuest()
{
    return &self;
}
