#pragma once

#include <kt/archive.h>

#include "object_table.h"

#include <vector>

/// What one pass knows: the layers that it visited, and the objects and classes of its pointer records.
///
/// Ownership: holds a count on every object that it loaded by pointer, and owns those that have no count until a direct
/// caller takes them, so that nothing is freed under the pass and nothing leaks when loading fails half way.
class kt_ArchivePass {
public:
    explicit kt_ArchivePass(ktArchive& archive);
    ~kt_ArchivePass();
    kt_ArchivePass(const kt_ArchivePass&) = delete;
    kt_ArchivePass& operator=(const kt_ArchivePass&) = delete;

    /// The pass that `haveVisited` and `setVisited` use on this thread; null outside a pass.
    static kt_ArchivePass* current() noexcept;
    /// Returns the pass that was current before.
    static kt_ArchivePass* makeCurrent(kt_ArchivePass* pass) noexcept;
    /// Goes back to the pass that was current before, unless it has ended meanwhile.
    static void backTo(kt_ArchivePass* previous) noexcept;
    /// Lets every pass of this thread forget an object that is being destroyed.
    static void forgetEverywhere(const ktPersistent* object) noexcept;
    /// Makes every pass treat an assigned object as a new one.
    static void assigned(const ktPersistent* object) noexcept;

    /// A class's part of an object.
    struct Layer {
        const void* address;
        std::size_t extent;
    };
    bool haveVisited(const ktPersistent* object, Layer layer) const noexcept;
    void setVisited(const ktPersistent* object, Layer layer);

    void storePointer(ktPersistent* object);
    ktPersistent* loadPointer();
    /// Leaves an object without a count to the caller. References to it still find it until it is destroyed.
    void release(const ktPersistent* object) noexcept;
    void storingInPlace(const ktPersistent& object);

    /// Whether the stream tells how many bytes there are. Asked once a pass, because a file may lose its read buffer by it.
    bool endKnown() { return endAsked_ ? endKnown_ : askEnd(); }
    /// The bytes left. Requires: the end is known.
    std::uint64_t bytesLeft() const noexcept { return end_ > archive_.position_ ? end_ - archive_.position_ : 0; }

    /// Takes up to `bytes`, no less than `least`, of the room for elements that are not loaded yet.
    std::uint64_t claim(std::uint64_t bytes, std::uint64_t least);
    void giveBack(std::uint64_t bytes) noexcept { claimed_ -= bytes; }

private:
    enum class State : std::uint32_t { none, inPlace, open, complete };
    /// What a pass notes of an object: its number if it went by as a pointer record, and the extent of the layer at its own address,
    /// 0 until that was visited.
    struct ObjectEntry {
        ObjectEntry() noexcept : state(State::none), isReleased(0), extent(0), mark(0) {}

        const ktPersistent* object = nullptr;
        std::uint32_t number = 0;
        State state : 2;
        std::uint32_t isReleased : 1;
        std::uint32_t extent : 13;
        std::uint32_t mark : 16;
    };
    static constexpr std::size_t largestExtent = (1u << 13) - 1;
    /// A visited layer that has no room in `ObjectEntry`: a second one, or one at an address of its own.
    struct FurtherLayer {
        const ktPersistent* object = nullptr;
        Layer layer = {};
        std::uint32_t mark = 0;
    };
    /// A class that was named in this pass. All objects of a class have their count, if any, at the same offset. The offset is found once,
    /// because finding it takes longer than the rest of making an object.
    struct ClassEntry {
        const kt_Instantiator* entry;
        const std::type_info* type;
        std::ptrdiff_t offsetOfCount;
        bool isCounted;
    };
    struct Loaded {
        ktPersistent* object = nullptr;
        // Null for an object without a count.
        ktPtrHandle_const<ktRepBase> count;
    };
    class OpenRecord;

    ObjectEntry* find(const ktPersistent* object) const noexcept;
    ObjectEntry& insert(const ktPersistent* object);
    ObjectEntry& entryOf(const ktPersistent* object);
    std::uint16_t giveMark(const ktPersistent* object) noexcept;
    const ObjectEntry* recordOf(std::size_t number) const noexcept;
    bool askEnd();
    void storeReference(const ObjectEntry& entry);
    void storeClass(const kt_Instantiator& entry);
    ClassEntry& loadClass(unsigned char tag);
    static const ktRepBase* countOf(ClassEntry& entry, ktPersistent* object);
    void forget(const ktPersistent* object) noexcept;
    bool forgetContents(const ktPersistent* object) noexcept;

    ktArchive& archive_;
    kt_ArchivePass* older_;
    kt_ObjectTable<ObjectEntry> objects_;
    kt_ObjectTable<FurtherLayer> furtherLayers_;
    std::uint16_t latestMark_;
    std::uint32_t numStored_ = 0;
    kt_StableList<Loaded> loaded_;
    std::vector<ClassEntry> classes_;
    // The class stored last, so that a sequence of objects of one class takes one look-up in the registry.
    const std::type_info* lastType_ = nullptr;
    const kt_Instantiator* lastEntry_ = nullptr;
    long numOpen_ = 0;
    bool endAsked_ = false;
    bool endKnown_ = false;
    std::uint64_t end_ = 0;
    std::uint64_t claimed_ = 0;
};
