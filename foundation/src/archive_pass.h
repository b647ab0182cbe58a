#pragma once

#include <kt/archive.h>

#include <unordered_map>
#include <vector>

/// What one pass knows: which layers of which objects it visited, and the objects and classes that went by as pointer records.
///
/// Ownership: holds a count on every object that it loaded by pointer, and owns those that have no count until a direct
/// caller takes them, so that nothing is freed under the pass and nothing leaks when loading fails half way.
class kt_ArchivePass {
public:
    explicit kt_ArchivePass(ktArchive& archive);
    ~kt_ArchivePass();
    kt_ArchivePass(const kt_ArchivePass&) = delete;
    kt_ArchivePass& operator=(const kt_ArchivePass&) = delete;

    /// The pass whose marks `haveVisited` and `setVisited` mean on this thread; null outside.
    static kt_ArchivePass*& current() noexcept;
    /// Goes back to the pass that was current before, unless it has ended meanwhile.
    static void backTo(kt_ArchivePass* previous) noexcept;
    /// Lets every pass of this thread forget an object that is being destroyed.
    static void forgetEverywhere(const ktPersistent* object) noexcept;

    /// A class's part of an object.
    struct Layer {
        const void* address;
        std::size_t extent;
    };
    bool haveVisited(const ktPersistent* object, Layer layer) const;
    void setVisited(const ktPersistent* object, Layer layer);

    void storePointer(ktPersistent* object);
    ktPersistent* loadPointer();
    /// Leaves an object without a count to the caller. References to it still find it until it is destroyed.
    void release(ktPersistent* object) noexcept;
    void storingInPlace(const ktPersistent& object);

    /// Whether the stream told how many bytes there are, asked once a pass: asking can cost a file its read buffer.
    bool endKnown();
    /// The bytes left, if the end is known.
    std::uint64_t bytesLeft() const noexcept { return end_ > archive_.position_ ? end_ - archive_.position_ : 0; }

private:
    enum class Written { inPlace, open, complete };
    struct Stored {
        std::uint32_t index;
        Written state;
    };
    struct Loaded {
        ktPersistent* object;
        ktPtrHandle_const<ktRepBase> count;
        bool owned;
        bool complete;
    };
    class OpenRecord;

    void storeClass(const kt_Instantiator& entry);
    const kt_Instantiator& loadClass(unsigned char tag);
    void forget(const ktPersistent* object) noexcept;

    ktArchive& archive_;
    kt_ArchivePass* older_;
    std::unordered_multimap<const ktPersistent*, Layer> visited_;
    std::unordered_map<const ktPersistent*, Stored> stored_;
    std::uint32_t numStored_ = 0;
    std::vector<Loaded> loaded_;
    std::vector<std::size_t> loadedWithoutCount_;
    std::vector<const kt_Instantiator*> classes_;
    long numOpen_ = 0;
    bool endAsked_ = false;
    bool endKnown_ = false;
    std::uint64_t end_ = 0;
};
