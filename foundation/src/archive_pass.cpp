// Pointers, sharing and visited layers in one pass of an archive. docs/archive-format.md has the layout of the records.
//
// A pass notes each object that it meets by address and mark, in an ObjectEntry. A pointer becomes a null record, a reference to an
// earlier object, or the object: its class, by name or by the number of an earlier class, then its layers.
//
//     storePointer    a record: null, storeReference, or storeClass and the object's layers
//     loadPointer     the reverse; the object is listed before it is loaded, so that nothing leaks
//     setVisited      notes a layer, which haveVisited then skips
//     forget          an object is destroyed or assigned: another object may get its address
//     claim           room for elements that are not loaded yet
//
// The mark distinguishes objects at one address: 0 until a pass meets the object, then the number that this pass gave it.

#include "archive_pass.h"

#include "class_name.h"

#include <kt/compiler.h>

#include <atomic>
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

/// The bytes that elements that are not loaded yet may take: for each byte of the archive, and in addition.
constexpr std::uint64_t claimPerByte = 16;
constexpr std::uint64_t firstClaim = 8192;

// Consecutive passes begin with marks that are far apart (multiplicative hashing), so that they give different marks.
std::atomic<std::uint32_t> numPasses{0};
constexpr std::uint32_t markStep = 40503;

thread_local kt_ArchivePass* newestPass = nullptr;
thread_local kt_ArchivePass* currentPass = nullptr;

// Objects nest as deep as an archive says, and so do the frames of storePointer and loadPointer. To keep these frames small, all code
// with strings, such as messages, is in separate functions that are not inlined.

[[noreturn]] KT_NOINLINE void throwTooDeep(long maxDepth)
{
    throw ktArchive::TooDeep("Archive too deep: more than " + std::to_string(maxDepth) +
                             " pointer records are open at once.");
}

[[noreturn]] KT_NOINLINE void throwTooMany()
{  // not covered: takes more than four thousand million objects in memory
    throw ktArchive::OutOfRange("Archive value out of range: more objects than 32 bits can count.");
}

[[noreturn]] KT_NOINLINE void throwUnknownClass(const ktArchive& archive, const std::string& name)
{
    archive.throwCorrupt("unknown class \"" + name.substr(0, 100) + "\"");
}

[[noreturn]] KT_NOINLINE void throwUnknownClass(const ktArchive& archive, const std::type_info& type)
{
    archive.throwCorrupt("unknown class \"" + kt_plainClassName(type) + "\"");
}

[[noreturn]] KT_NOINLINE void throwBadReference(const ktArchive& archive)
{
    archive.throwCorrupt("a reference to an object that was not loaded before");
}

[[noreturn]] KT_NOINLINE void throwBadClass(const ktArchive& archive)
{
    archive.throwCorrupt("a class that was not named before");
}

[[noreturn]] KT_NOINLINE void throwBadTag(const ktArchive& archive)
{
    archive.throwCorrupt("bad tag of a pointer record");
}

[[noreturn]] KT_NOINLINE void throwNoObject()
{
    throw ktBadPointer();
}

}  // namespace

/// Counts one pointer record as open for as long as its object is being archived.
class kt_ArchivePass::OpenRecord {
public:
    explicit OpenRecord(kt_ArchivePass& pass) : pass_(pass)
    {
        if (pass.numOpen_ >= pass.archive_.maxDepth()) {
            throwTooDeep(pass.archive_.maxDepth());
        }
        ++pass_.numOpen_;
    }
    ~OpenRecord() { --pass_.numOpen_; }
    OpenRecord(const OpenRecord&) = delete;
    OpenRecord& operator=(const OpenRecord&) = delete;

private:
    kt_ArchivePass& pass_;
};

/// Null for an object that the pass has not met: without a mark, or with another mark than noted for its address.
inline kt_ArchivePass::ObjectEntry* kt_ArchivePass::find(const ktPersistent* object) const noexcept
{
    const std::uint32_t mark = object->mark_.load(std::memory_order_relaxed);
    ObjectEntry* entry = mark == 0 ? nullptr : objects_.find(object);
    if (entry != nullptr && entry->mark != mark) {
        return objects_.find(object, [mark](const ObjectEntry& other) { return other.mark == mark; });
    }
    return entry;
}

kt_ArchivePass::kt_ArchivePass(ktArchive& archive)
    : archive_(archive),
      older_(std::exchange(newestPass, this)),
      latestMark_(static_cast<std::uint16_t>(numPasses.fetch_add(1, std::memory_order_relaxed) * markStep))
{
}

kt_ArchivePass::~kt_ArchivePass()
{
    // Passes of one thread may end in any order: an inner one may live in a longer scope.
    kt_ArchivePass** link = &newestPass;
    while (*link != this) {
        link = &(*link)->older_;
    }
    *link = older_;
    // Unlinked first, so that the objects destroyed below need not be forgotten one by one.
    constexpr std::size_t ahead = 8;
    for (std::size_t i = 0; i < loaded_.size(); ++i) {
        // Destroying the list decrements the counts: their cache lines are prefetched.
        Loaded& loaded = loaded_[i];
        if (i + ahead < loaded_.size()) {
            KT_PREFETCH(loaded_[i + ahead].count.get());
        }
        if (loaded.count.isNull() && loaded.object != nullptr) {
            const ObjectEntry* entry = recordOf(i);
            if (entry == nullptr || entry->isReleased == 0) {
                delete loaded.object;
            }
        }
        loaded.count = nullptr;
    }
}

kt_ArchivePass* kt_ArchivePass::current() noexcept
{
    return currentPass;
}

kt_ArchivePass* kt_ArchivePass::makeCurrent(kt_ArchivePass* pass) noexcept
{
    if (currentPass != nullptr) {
        currentPass->archive_.passIsCurrent_ = false;
    }
    if (pass != nullptr) {
        pass->archive_.passIsCurrent_ = true;
    }
    return std::exchange(currentPass, pass);
}

void kt_ArchivePass::backTo(kt_ArchivePass* previous) noexcept
{
    kt_ArchivePass* pass = newestPass;
    while (pass != nullptr && pass != previous) {
        pass = pass->older_;
    }
    makeCurrent(pass);
}

void kt_ArchivePass::forgetEverywhere(const ktPersistent* object) noexcept
{
    for (kt_ArchivePass* pass = newestPass; pass != nullptr; pass = pass->older_) {
        pass->forget(object);
    }
}

void kt_ArchivePass::forget(const ktPersistent* object) noexcept
{
    objects_.erase(object, [this](const ObjectEntry& entry) {
        if (archive_.isLoading() && entry.state != State::none) {
            loaded_[entry.number].object = nullptr;
        }
    });
    furtherLayers_.erase(object, [](const FurtherLayer&) {});
}

void kt_ArchivePass::assigned(const ktPersistent* object) noexcept
{
    bool isKept = false;
    for (kt_ArchivePass* pass = newestPass; pass != nullptr; pass = pass->older_) {
        isKept = pass->forgetContents(object) || isKept;
    }
    if (!isKept) {
        // The passes of other threads then see a new object.
        object->mark_.store(0, std::memory_order_relaxed);
    }
}

/// Returns whether the pass keeps the object's entry: its record is open, or it was loaded and references to it may follow.
bool kt_ArchivePass::forgetContents(const ktPersistent* object) noexcept
{
    ObjectEntry* entry = find(object);
    if (entry == nullptr) {
        return false;
    }
    if (entry->state == State::open) {
        return true;
    }
    if (archive_.isLoading() && entry->state == State::complete) {
        entry->extent = 0;
        furtherLayers_.erase(object, [](const FurtherLayer&) {});
        return true;
    }
    forget(object);
    return false;
}

/// Requires: the object has no entry.
kt_ArchivePass::ObjectEntry& kt_ArchivePass::insert(const ktPersistent* object)
{
    if (archive_.isStoring()) {
        // Entries of this address belong to objects that other threads destroyed. Loading needs no search, because it keeps its objects.
        forget(object);
    }
    ObjectEntry& entry = objects_.insert(object);
    entry.mark = giveMark(object);
    return entry;
}

kt_ArchivePass::ObjectEntry& kt_ArchivePass::entryOf(const ktPersistent* object)
{
    ObjectEntry* entry = find(object);
    return entry != nullptr ? *entry : insert(object);
}

std::uint16_t kt_ArchivePass::giveMark(const ktPersistent* object) noexcept
{
    // 0 is no mark.
    latestMark_ = static_cast<std::uint16_t>(latestMark_ % 0xFFFFu + 1);
    if (archive_.isStoring()) {
        // Another thread may store the object too. The first thread gives the mark.
        std::uint16_t none = 0;
        object->mark_.compare_exchange_strong(none, latestMark_, std::memory_order_relaxed);
    } else if (object->mark_.load(std::memory_order_relaxed) == 0) {
        object->mark_.store(latestMark_, std::memory_order_relaxed);
    }
    return object->mark_.load(std::memory_order_relaxed);
}

/// The entry of a loaded object, or null. Does not read the object.
const kt_ArchivePass::ObjectEntry* kt_ArchivePass::recordOf(std::size_t number) const noexcept
{
    return objects_.find(loaded_[number].object, [number](const ObjectEntry& entry) {
        return entry.state != State::none && entry.number == number;
    });
}

std::uint64_t kt_ArchivePass::claim(std::uint64_t bytes, std::uint64_t least)
{
    const std::uint64_t most = claimPerByte * (endKnown() ? end_ : archive_.position_) + firstClaim;
    const std::uint64_t left = most > claimed_ ? most - claimed_ : 0;
    const std::uint64_t taken = std::min(bytes, std::max(least, left));
    claimed_ += taken;
    return taken;
}

bool kt_ArchivePass::haveVisited(const ktPersistent* object, Layer layer) const noexcept
{
    const ObjectEntry* entry = find(object);
    if (entry == nullptr) {
        return false;
    }
    if (entry->extent != 0 && entry->extent == layer.extent && layer.address == object) {
        return true;
    }
    return !furtherLayers_.isEmpty() && furtherLayers_.find(object, [entry, layer](const FurtherLayer& further) {
        return further.mark == entry->mark && further.layer.address == layer.address &&
               further.layer.extent == layer.extent;
    }) != nullptr;
}

void kt_ArchivePass::setVisited(const ktPersistent* object, Layer layer)
{
    ObjectEntry& entry = entryOf(object);
    const bool fits = layer.address == object && layer.extent != 0 && layer.extent <= largestExtent;
    if (fits && entry.extent == 0 && furtherLayers_.isEmpty()) {
        entry.extent = static_cast<std::uint32_t>(layer.extent) & largestExtent;
    } else if (!haveVisited(object, layer)) {
        FurtherLayer& further = furtherLayers_.insert(object);
        further.layer = layer;
        further.mark = entry.mark;
    }
}

bool kt_ArchivePass::askEnd()
{
    endAsked_ = true;
    std::streambuf* buffer = archive_.stream_.rdbuf();
    const std::streampos here = buffer->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    if (here == std::streampos(-1)) {
        return false;
    }
    const std::streampos end = buffer->pubseekoff(0, std::ios_base::end, std::ios_base::in);
    if (buffer->pubseekpos(here, std::ios_base::in) != here) {
        throw ktArchive::StreamFailed("The stream did not return to where it stood.");
    }
    // Devices report an end that is not behind the present position, although bytes follow.
    endKnown_ = end > here;
    end_ = endKnown_ ? archive_.position_ + static_cast<std::uint64_t>(end - here) : 0;
    return endKnown_;
}

void kt_ArchivePass::storingInPlace(const ktPersistent& object)
{
    ObjectEntry& entry = entryOf(&object);
    if (entry.state == State::open || entry.state == State::complete) {
        throw ktArchive::Conflict("Archive conflict: an object stored by pointer is stored in place in the same pass.");
    }
    entry.state = State::inPlace;
}

void kt_ArchivePass::storePointer(ktPersistent* object)
{
    if (object == nullptr) {
        unsigned char tag = nullRecord;
        archive_.byte(tag);
        return;
    }
    ObjectEntry* met = find(object);
    if (met != nullptr && met->state != State::none) {
        storeReference(*met);
        return;
    }
    const std::type_info& type = typeid(*object);
    if (&type != lastType_) {
        const kt_Instantiator* entry = kt_Instantiator::find(type);
        if (entry == nullptr) {
            throwUnknownClass(archive_, type);
        }
        lastType_ = &type;
        lastEntry_ = entry;
    }
    if (numStored_ == std::numeric_limits<std::uint32_t>::max()) {  // not covered: as throwTooMany
        throwTooMany();
    }
    const OpenRecord record(*this);
    ObjectEntry& entry = met != nullptr ? *met : insert(object);
    entry.number = numStored_++;
    entry.state = State::open;
    storeClass(*lastEntry_);
    object->dispatchSerialize(archive_);
    entry.state = State::complete;
}

KT_NOINLINE void kt_ArchivePass::storeReference(const ObjectEntry& entry)
{
    if (entry.state == State::inPlace) {
        throw ktArchive::Conflict("Archive conflict: an object stored in place is stored by pointer in the same pass.");
    }
    if (entry.state == State::open) {
        throw ktArchive::Conflict("Archive conflict: an object leads back to itself.");
    }
    unsigned char tag = referenceRecord;
    archive_.byte(tag);
    archive_.store32(entry.number);
}

KT_NOINLINE void kt_ArchivePass::storeClass(const kt_Instantiator& entry)
{
    const auto isOfEntry = [&entry](const ClassEntry& named) { return named.entry == &entry; };
    const auto place = std::find_if(classes_.begin(), classes_.end(), isOfEntry);
    if (place == classes_.end()) {
        classes_.push_back({&entry, nullptr, 0, false});
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

KT_NOINLINE kt_ArchivePass::ClassEntry& kt_ArchivePass::loadClass(unsigned char tag)
{
    if (tag == knownClassRecord) {
        const std::uint32_t index = archive_.load32();
        if (index >= classes_.size()) {
            throwBadClass(archive_);
        }
        return classes_[index];
    }
    if (tag != newClassRecord) {
        throwBadTag(archive_);
    }
    std::string name;
    archive_ || name;
    const kt_Instantiator* entry = kt_Instantiator::find(name);
    if (entry == nullptr) {
        throwUnknownClass(archive_, name);
    }
    classes_.push_back({entry, nullptr, 0, false});
    return classes_.back();
}

const ktRepBase* kt_ArchivePass::countOf(ClassEntry& entry, ktPersistent* object)
{
    const auto* here = reinterpret_cast<const char*>(object);
    if (entry.type != &typeid(*object)) {
        const ktRepBase* count = dynamic_cast<ktRepBase*>(object);
        entry.type = &typeid(*object);
        entry.isCounted = count != nullptr;
        entry.offsetOfCount = count == nullptr ? 0 : reinterpret_cast<const char*>(count) - here;
        return count;
    }
    return entry.isCounted ? reinterpret_cast<const ktRepBase*>(here + entry.offsetOfCount) : nullptr;
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
        const ObjectEntry* entry = index < loaded_.size() ? recordOf(index) : nullptr;
        if (entry == nullptr || entry->state != State::complete) {
            throwBadReference(archive_);
        }
        return loaded_[index].object;
    }
    const OpenRecord record(*this);
    ClassEntry& named = loadClass(tag);
    const std::size_t number = loaded_.size();
    // Listed before the object exists: if memory runs out here, nothing is lost.
    Loaded& loaded = loaded_.append();
    ktPersistent* object = named.entry->make();
    if (object == nullptr) {
        throwNoObject();
    }
    loaded.object = object;
    loaded.count = countOf(named, object);
    ObjectEntry& met = entryOf(object);
    met.number = static_cast<std::uint32_t>(number);
    met.state = State::open;
    object->dispatchSerialize(archive_);
    met.state = State::complete;
    return object;
}

void kt_ArchivePass::release(const ktPersistent* object) noexcept
{
    if (ObjectEntry* entry = find(object)) {  // not covered: unknown if it left a pass of another archive open
        entry->isReleased = 1;
    }
}
