#include <kt/persistent.h>

#include "class_name.h"
#include "registry_list.h"

namespace {

kt_RegistryList<kt_Instantiator> entries;

}  // namespace

kt_Instantiator::kt_Instantiator(const std::type_info& type, Make factory, const char* name)
    : type_(type), make_(factory), name_(name == nullptr ? kt_plainClassName(type) : name)
{
    entries.add(this);
}

kt_Instantiator::~kt_Instantiator()
{
    // The entry may be missing: if two static copies of the library see each other's functions, and link-time optimisation inlined one
    // constructor, it is in the other copy's list, which is destroyed with it.
    entries.remove([this](const kt_Instantiator& entry) { return &entry == this; });
}

const kt_Instantiator* kt_Instantiator::first() noexcept
{
    return entries.first();
}

const kt_Instantiator* kt_Instantiator::find(const std::type_info& type) noexcept
{
    const kt_RegistryList<kt_Instantiator>::Walk walk(entries);
    const kt_Instantiator* entry = first();
    while (entry != nullptr && entry->type_ != type) {
        entry = entry->next();
    }
    return entry;
}

const kt_Instantiator* kt_Instantiator::find(const std::string& name) noexcept
{
    const kt_RegistryList<kt_Instantiator>::Walk walk(entries);
    const kt_Instantiator* entry = first();
    while (entry != nullptr && entry->name_ != name) {
        entry = entry->next();
    }
    return entry;
}
