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

/// What an element of a vector takes before it is loaded is paid by the archive's bytes, so many for each, and by these at the
/// beginning.
constexpr std::uint64_t claimPerByte = 16;
constexpr std::uint64_t firstClaim = 8192;

// Consecutive passes begin with marks that lie far apart (multiplicative hashing), so that they do not give the same ones.
std::atomic<std::uint32_t> numPasses{0};
constexpr std::uint32_t markStep = 40503;

thread_local kt_ArchivePass* newestPass = nullptr;
thread_local kt_ArchivePass* currentPass = nullptr;

// Objects nest as deep as an archive says. What is thrown, and all else that takes a string, stands in functions of its own, so
// that the frames of storePointer and loadPointer, which do not end before the objects below, have no room for it.

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

/// An object without a mark, or with another than is noted for its address, is not the one that the pass met there.
inline kt_ArchivePass::Known* kt_ArchivePass::find(const ktPersistent* object) const noexcept
{
    const std::uint32_t mark = object->mark_.load(std::memory_order_relaxed);
    Known* known = mark == 0 ? nullptr : known_.find(object);
    if (known != nullptr && known->mark != mark) {
        return known_.find(object, [mark](const Known& other) { return other.mark == mark; });
    }
    return known;
}

kt_ArchivePass::kt_ArchivePass(ktArchive& archive)
    : archive_(archive),
      older_(std::exchange(newestPass, this)),
      latestMark_(static_cast<std::uint16_t>(numPasses.fetch_add(1, std::memory_order_relaxed) * markStep))
{
}

kt_ArchivePass::~kt_ArchivePass()
{
    // Passes of one thread need not end in the order in which they began: an inner one can be held by a longer scope.
    kt_ArchivePass** link = &newestPass;
    while (*link != this) {
        link = &(*link)->older_;
    }
    *link = older_;
    // Unlinked first, so that the objects destroyed below need not be forgotten one by one.
    constexpr std::size_t ahead = 8;
    for (std::size_t i = 0; i < loaded_.size(); ++i) {
        // The counts go down when the list is destroyed: their lines come meanwhile.
        Loaded& loaded = loaded_[i];
        if (i + ahead < loaded_.size()) {
            KT_PREFETCH(loaded_[i + ahead].count.get());
        }
        if (loaded.count.isNull() && loaded.object != nullptr) {
            const Known* known = recordOf(i);
            if (known == nullptr || known->isReleased == 0) {
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
    known_.erase(object, [this](const Known& known) {
        if (archive_.isLoading() && known.state != State::none) {
            loaded_[known.number].object = nullptr;
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
        // Passes of other threads learn it by this.
        object->mark_.store(0, std::memory_order_relaxed);
    }
}

/// Returns whether the pass goes on knowing the object, because its record is open, or because it was loaded: references to it may
/// come, whatever its value has become.
bool kt_ArchivePass::forgetContents(const ktPersistent* object) noexcept
{
    Known* known = find(object);
    if (known == nullptr) {
        return false;
    }
    if (known->state == State::open) {
        return true;
    }
    if (archive_.isLoading() && known->state == State::complete) {
        known->extent = 0;
        furtherLayers_.erase(object, [](const FurtherLayer&) {});
        return true;
    }
    forget(object);
    return false;
}

/// The object is not known.
kt_ArchivePass::Known& kt_ArchivePass::insert(const ktPersistent* object)
{
    if (archive_.isStoring()) {
        // What is noted for the address is of objects that died on other threads. Loading does without the search: objects that it
        // made live on.
        forget(object);
    }
    Known& known = known_.insert(object);
    known.mark = giveMark(object);
    return known;
}

kt_ArchivePass::Known& kt_ArchivePass::known(const ktPersistent* object)
{
    Known* known = find(object);
    return known != nullptr ? *known : insert(object);
}

std::uint16_t kt_ArchivePass::giveMark(const ktPersistent* object) noexcept
{
    // 0 is no mark.
    latestMark_ = static_cast<std::uint16_t>(latestMark_ % 0xFFFFu + 1);
    if (archive_.isStoring()) {
        // Another thread may store the object too: the first to come gives the mark.
        std::uint16_t none = 0;
        object->mark_.compare_exchange_strong(none, latestMark_, std::memory_order_relaxed);
    } else if (object->mark_.load(std::memory_order_relaxed) == 0) {
        object->mark_.store(latestMark_, std::memory_order_relaxed);
    }
    return object->mark_.load(std::memory_order_relaxed);
}

/// What is known of an object that was loaded; null if nothing. Does not look at the object.
const kt_ArchivePass::Known* kt_ArchivePass::recordOf(std::size_t number) const noexcept
{
    return known_.find(loaded_[number].object,
                       [number](const Known& known) { return known.state != State::none && known.number == number; });
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
    const Known* known = find(object);
    if (known == nullptr) {
        return false;
    }
    if (known->extent != 0 && known->extent == layer.extent && layer.address == object) {
        return true;
    }
    return !furtherLayers_.isEmpty() && furtherLayers_.find(object, [known, layer](const FurtherLayer& further) {
        return further.mark == known->mark && further.layer.address == layer.address &&
               further.layer.extent == layer.extent;
    }) != nullptr;
}

void kt_ArchivePass::setVisited(const ktPersistent* object, Layer layer)
{
    Known& known = this->known(object);
    const bool fits = layer.address == object && layer.extent != 0 && layer.extent <= largestExtent;
    if (fits && known.extent == 0 && furtherLayers_.isEmpty()) {
        known.extent = static_cast<std::uint32_t>(layer.extent) & largestExtent;
    } else if (!haveVisited(object, layer)) {
        FurtherLayer& further = furtherLayers_.insert(object);
        further.layer = layer;
        further.mark = known.mark;
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
    // Devices answer, but with an end at or before the place where bytes still come.
    endKnown_ = end > here;
    end_ = endKnown_ ? archive_.position_ + static_cast<std::uint64_t>(end - here) : 0;
    return endKnown_;
}

void kt_ArchivePass::storingInPlace(const ktPersistent& object)
{
    Known& known = this->known(&object);
    if (known.state == State::open || known.state == State::complete) {
        throw ktArchive::Conflict("Archive conflict: an object stored by pointer is stored in place in the same pass.");
    }
    known.state = State::inPlace;
}

void kt_ArchivePass::storePointer(ktPersistent* object)
{
    if (object == nullptr) {
        unsigned char tag = nullRecord;
        archive_.byte(tag);
        return;
    }
    Known* met = find(object);
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
    Known& known = met != nullptr ? *met : insert(object);
    known.number = numStored_++;
    known.state = State::open;
    storeClass(*lastEntry_);
    object->dispatchSerialize(archive_);
    known.state = State::complete;
}

KT_NOINLINE void kt_ArchivePass::storeReference(const Known& known)
{
    if (known.state == State::inPlace) {
        throw ktArchive::Conflict("Archive conflict: an object stored in place is stored by pointer in the same pass.");
    }
    if (known.state == State::open) {
        throw ktArchive::Conflict("Archive conflict: an object leads back to itself.");
    }
    unsigned char tag = referenceRecord;
    archive_.byte(tag);
    archive_.store32(known.number);
}

KT_NOINLINE void kt_ArchivePass::storeClass(const kt_Instantiator& entry)
{
    const auto isEntry = [&entry](const Class& known) { return known.entry == &entry; };
    const auto place = std::find_if(classes_.begin(), classes_.end(), isEntry);
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

KT_NOINLINE kt_ArchivePass::Class& kt_ArchivePass::loadClass(unsigned char tag)
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

const ktRepBase* kt_ArchivePass::countOf(Class& known, ktPersistent* object)
{
    const auto* here = reinterpret_cast<const char*>(object);
    if (known.type != &typeid(*object)) {
        const ktRepBase* count = dynamic_cast<ktRepBase*>(object);
        known.type = &typeid(*object);
        known.isCounted = count != nullptr;
        known.offsetOfCount = count == nullptr ? 0 : reinterpret_cast<const char*>(count) - here;
        return count;
    }
    return known.isCounted ? reinterpret_cast<const ktRepBase*>(here + known.offsetOfCount) : nullptr;
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
        const Known* known = index < loaded_.size() ? recordOf(index) : nullptr;
        if (known == nullptr || known->state != State::complete) {
            throwBadReference(archive_);
        }
        return loaded_[index].object;
    }
    const OpenRecord record(*this);
    Class& known = loadClass(tag);
    const std::size_t number = loaded_.size();
    // Listed before the object exists, so that running out of memory here cannot lose it.
    Loaded& loaded = loaded_.append();
    ktPersistent* object = known.entry->make();
    if (object == nullptr) {
        throwNoObject();
    }
    loaded.object = object;
    loaded.count = countOf(known, object);
    Known& met = this->known(object);
    met.number = static_cast<std::uint32_t>(number);
    met.state = State::open;
    object->dispatchSerialize(archive_);
    met.state = State::complete;
    return object;
}

void kt_ArchivePass::release(const ktPersistent* object) noexcept
{
    if (Known* known = find(object)) {  // not covered: unknown if it left a pass of another archive open
        known->isReleased = 1;
    }
}
