#include "archive_pass.h"

#include <istream>
#include <limits>
#include <utility>

namespace {

// Stored in archives: never change.
enum RecordTag : unsigned char {
    nullRecord = 0,
    referenceRecord = 1,
    knownClassRecord = 2,
    newClassRecord = 3,
};

thread_local kt_ArchivePass* newestPass = nullptr;
thread_local kt_ArchivePass* currentPass = nullptr;

}  // namespace

/// Counts one pointer record as open for as long as its object is being archived.
class kt_ArchivePass::OpenRecord {
public:
    explicit OpenRecord(kt_ArchivePass& pass) : pass_(pass)
    {
        if (pass.numOpen_ >= pass.archive_.maxDepth()) {
            throw ktArchive::TooDeep("Archive too deep: more than " + std::to_string(pass.archive_.maxDepth()) +
                                     " pointer records are open at once.");
        }
        ++pass_.numOpen_;
    }
    ~OpenRecord() { --pass_.numOpen_; }
    OpenRecord(const OpenRecord&) = delete;
    OpenRecord& operator=(const OpenRecord&) = delete;

private:
    kt_ArchivePass& pass_;
};

kt_ArchivePass::kt_ArchivePass(ktArchive& archive) : archive_(archive), older_(std::exchange(newestPass, this)) {}

kt_ArchivePass::~kt_ArchivePass()
{
    // Passes of one thread need not end in the order in which they began: an inner one can be held by a longer scope.
    kt_ArchivePass** link = &newestPass;
    while (*link != this) {
        link = &(*link)->older_;
    }
    *link = older_;
    // Unlinked first, so that the objects destroyed below need not be forgotten one by one.
    for (const std::size_t index : loadedWithoutCount_) {
        if (loaded_[index].owned) {
            delete loaded_[index].object;
        }
    }
}

kt_ArchivePass*& kt_ArchivePass::current() noexcept
{
    return currentPass;
}

void kt_ArchivePass::backTo(kt_ArchivePass* previous) noexcept
{
    kt_ArchivePass* pass = newestPass;
    while (pass != nullptr && pass != previous) {
        pass = pass->older_;
    }
    currentPass = pass;
}

void kt_ArchivePass::forgetEverywhere(const ktPersistent* object) noexcept
{
    for (kt_ArchivePass* pass = newestPass; pass != nullptr; pass = pass->older_) {
        pass->forget(object);
    }
}

void kt_ArchivePass::forget(const ktPersistent* object) noexcept
{
    visited_.erase(object);
    stored_.erase(object);
    for (const std::size_t index : loadedWithoutCount_) {
        if (loaded_[index].object == object) {
            loaded_[index].object = nullptr;
        }
    }
}

bool kt_ArchivePass::haveVisited(const ktPersistent* object, Layer layer) const
{
    const auto layers = visited_.equal_range(object);
    return std::any_of(layers.first, layers.second, [layer](const auto& visited) {
        return visited.second.address == layer.address && visited.second.extent == layer.extent;
    });
}

void kt_ArchivePass::setVisited(const ktPersistent* object, Layer layer)
{
    object->mark_.store(1, std::memory_order_relaxed);
    if (!haveVisited(object, layer)) {
        visited_.emplace(object, layer);
    }
}

bool kt_ArchivePass::endKnown()
{
    if (!std::exchange(endAsked_, true)) {
        std::streambuf* buffer = archive_.input_->rdbuf();
        const std::streampos here = buffer->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
        if (here != std::streampos(-1)) {
            const std::streampos end = buffer->pubseekoff(0, std::ios_base::end, std::ios_base::in);
            if (buffer->pubseekpos(here, std::ios_base::in) != here) {
                throw ktArchive::StreamFailed("The stream did not return to where it stood.");
            }
            // Devices answer, but with an end at or before the place where bytes still come.
            endKnown_ = end > here;
            end_ = endKnown_ ? archive_.position_ + static_cast<std::uint64_t>(end - here) : 0;
        }
    }
    return endKnown_;
}

void kt_ArchivePass::storingInPlace(const ktPersistent& object)
{
    const auto [place, isNew] = stored_.try_emplace(&object, Stored{0, Written::inPlace});
    if (!isNew && place->second.state != Written::inPlace) {
        throw ktArchive::Conflict("Archive conflict: an object stored by pointer is stored in place in the same pass.");
    }
    object.mark_.store(1, std::memory_order_relaxed);
}

void kt_ArchivePass::storePointer(ktPersistent* object)
{
    if (object == nullptr) {
        unsigned char tag = nullRecord;
        archive_.byte(tag);
        return;
    }
    const auto known = stored_.find(object);
    if (known != stored_.end()) {
        if (known->second.state == Written::inPlace) {
            throw ktArchive::Conflict(
                "Archive conflict: an object stored in place is stored by pointer in the same pass.");
        }
        if (known->second.state == Written::open) {
            throw ktArchive::Conflict("Archive conflict: an object leads back to itself.");
        }
        unsigned char tag = referenceRecord;
        archive_.byte(tag);
        archive_.store32(known->second.index);
        return;
    }
    const kt_Instantiator* entry = kt_Instantiator::find(typeid(*object));
    if (entry == nullptr) {
        archive_.throwCorrupt("unknown class \"" + kt_plainClassName(typeid(*object)) + "\"");
    }
    if (numStored_ == std::numeric_limits<std::uint32_t>::max()) {
        throw ktArchive::OutOfRange("Archive value out of range: more objects than 32 bits can count.");
    }
    const OpenRecord record(*this);
    stored_.emplace(object, Stored{numStored_++, Written::open});
    object->mark_.store(1, std::memory_order_relaxed);
    storeClass(*entry);
    object->dispatchSerialize(archive_);
    stored_.find(object)->second.state = Written::complete;
}

void kt_ArchivePass::storeClass(const kt_Instantiator& entry)
{
    const auto place = std::find(classes_.begin(), classes_.end(), &entry);
    if (place == classes_.end()) {
        classes_.push_back(&entry);
        unsigned char tag = newClassRecord;
        archive_.byte(tag);
        std::string name = entry.name();
        archive_ || name;
    } else {
        unsigned char tag = knownClassRecord;
        archive_.byte(tag);
        archive_.store32(static_cast<std::uint32_t>(place - classes_.begin()));
    }
}

const kt_Instantiator& kt_ArchivePass::loadClass(unsigned char tag)
{
    if (tag == knownClassRecord) {
        const std::uint32_t index = archive_.load32();
        if (index >= classes_.size()) {
            archive_.throwCorrupt("a class that was not named before");
        }
        return *classes_[index];
    }
    if (tag != newClassRecord) {
        archive_.throwCorrupt("bad tag of a pointer record");
    }
    std::string name;
    archive_ || name;
    const kt_Instantiator* entry = kt_Instantiator::find(name);
    if (entry == nullptr) {
        archive_.throwCorrupt("unknown class \"" + name.substr(0, 100) + "\"");
    }
    classes_.push_back(entry);
    return *entry;
}

ktPersistent* kt_ArchivePass::loadPointer()
{
    unsigned char tag = nullRecord;
    archive_.byte(tag);
    if (tag == nullRecord) {
        return nullptr;
    }
    if (tag == referenceRecord) {
        const std::uint32_t index = archive_.load32();
        if (index >= loaded_.size() || !loaded_[index].complete || loaded_[index].object == nullptr) {
            archive_.throwCorrupt("a reference to an object that was not loaded before");
        }
        return loaded_[index].object;
    }
    const OpenRecord record(*this);
    const kt_Instantiator& entry = loadClass(tag);
    const std::size_t index = loaded_.size();
    loaded_.push_back({nullptr, nullptr, true, false});
    // Listed before the object exists, so that running out of memory here cannot lose it.
    loadedWithoutCount_.push_back(index);
    ktPersistent* object = entry.make();
    if (object == nullptr) {
        throw ktBadPointer();
    }
    loaded_[index].object = object;
    object->mark_.store(1, std::memory_order_relaxed);
    if (const ktRepBase* counted = dynamic_cast<ktRepBase*>(object)) {
        loaded_[index].count = counted;
        loadedWithoutCount_.pop_back();
    }
    object->dispatchSerialize(archive_);
    loaded_[index].complete = true;
    return object;
}

void kt_ArchivePass::release(ktPersistent* object) noexcept
{
    for (const std::size_t index : loadedWithoutCount_) {
        if (loaded_[index].object == object) {
            loaded_[index].owned = false;
        }
    }
}
