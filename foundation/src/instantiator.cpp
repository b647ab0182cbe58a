#include <kt/persistent.h>

#include <atomic>

namespace {

// An intrusive list: entries of any library may be made before this file's other statics, so the head is initialised at
// compile time and nothing else is needed.
std::atomic<kt_Instantiator*> newest{nullptr};

}  // namespace

kt_Instantiator::kt_Instantiator(const std::type_info& type, Make factory, const char* name)
    : type_(type), make_(factory), name_(name == nullptr ? kt_plainClassName(type) : name), next_(newest.load())
{
    while (!newest.compare_exchange_weak(next_, this)) {  // not covered: another thread registers an entry just now
    }
}

kt_Instantiator::~kt_Instantiator()
{
    kt_Instantiator* expected = this;
    if (newest.compare_exchange_strong(expected, next_)) {
        return;
    }
    // Not in this list where two static copies of the library see each other's functions, and the linker has moved the
    // constructor of one of them into its callers: then it is in the other copy's list, which goes with it.
    kt_Instantiator* newer = expected;
    while (newer != nullptr && newer->next_ != this) {  // not covered: never null with shared libraries
        newer = newer->next_;
    }
    if (newer != nullptr) {  // not covered: as the loop
        newer->next_ = next_;
    }
}

const kt_Instantiator* kt_Instantiator::first() noexcept
{
    return newest.load(std::memory_order_acquire);
}

const kt_Instantiator* kt_Instantiator::find(const std::type_info& type) noexcept
{
    const kt_Instantiator* entry = first();
    while (entry != nullptr && entry->type_ != type) {
        entry = entry->next_;
    }
    return entry;
}

const kt_Instantiator* kt_Instantiator::find(const std::string& name) noexcept
{
    const kt_Instantiator* entry = first();
    while (entry != nullptr && entry->name_ != name) {
        entry = entry->next_;
    }
    return entry;
}
