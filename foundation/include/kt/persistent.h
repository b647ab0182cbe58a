#pragma once

#include <kt/config.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <typeinfo>

class ktArchive;

/// Base of every class that an archive can store and load.
///
/// A class layer L derived from it follows one pattern (see ktPersistent::dispatchLayer): its `dispatchSerialize` does
/// nothing if this layer of the object was visited in the current pass; otherwise it archives a version byte, its base's
/// layer and its own fields, and then marks itself as visited. Behind the version byte stands what the class's `serialize_` archives.
///
/// Versions: every layer of these libraries stores version 0. Loading another one throws ktArchive::UnknownVersion(nullptr, 0), unless
/// the class names a place of its own.
///
/// Copy: a copy is a new object, which no pass has visited. An assigned object counts as a new one too, so a class's own assignment
/// operator calls that of its base. A pass notices no other change.
/// Threads: two threads may store objects that share parts; one pass runs on one thread. While a pass is open, objects that it has
/// stored may be destroyed on any thread; objects that it loaded, and that the caller took from `serializePointer` without a
/// count, only on the thread of the pass.
class KT_FOUNDATION_API ktPersistent {
public:
    ktPersistent() noexcept = default;
    ktPersistent(const ktPersistent&) noexcept {}
    ktPersistent& operator=(const ktPersistent&) noexcept
    {
        if (mark_.load(std::memory_order_relaxed) != 0) {
            assigned_();
        }
        return *this;
    }

    /// If the mark is set, the passes of this thread forget the object: its address may be used again before they end.
    virtual ~ktPersistent()
    {
        if (mark_.load(std::memory_order_relaxed) != 0) {
            mutating_();
        }
    }

    /// Archives a pointer, whatever the class of its object. Storing writes the object (its class and its contents, each
    /// object once a pass) and leaves `result` alone. Loading re-creates the object through the class registry and gives it back in
    /// `result`, null for a null pointer.
    ///
    /// Ownership: a loaded object belongs to the caller: one derived from ktRepBase until the first handle takes it, any
    /// other until it is deleted. A caller that opened a ktArchive::Pass around the call makes the handle before that ends.
    /// Throws: ktArchive::Errors; whatever the object's own layers throw.
    static void serializePointer(ktArchive& archive, ktPersistent* object, ktPersistent*& result);

protected:
    /// Archives the object's layers, most derived first. The base has nothing to archive.
    virtual void dispatchSerialize(ktArchive& archive);
    /// Puts the object into the state of a new one, for classes that need it; no class of these libraries does.
    virtual void reInit();
    /// Loads a simplified form, for classes that have one; no class of these libraries does. Returns whether it did.
    virtual bool loadSimple(ktArchive& archive);

    /// Whether the current pass of this thread has visited the layer of `extent` bytes of this object. False outside a pass.
    /// `layer` points to the layer, usually `this`. Address and extent identify a layer. A class that adds no member to its first base
    /// is one layer with it, so each class asks before it archives its base's layer, as dispatchLayer does.
    template <class Layer>
    static bool haveVisited(const Layer* layer, std::size_t extent)
    {
        return isLayerVisited(layer, layer, extent);
    }
    /// Marks the layer of `extent` bytes as visited in the current pass of this thread. Nothing happens outside a pass.
    template <class Layer>
    static void setVisited(const Layer* layer, std::size_t extent)
    {
        markLayer(layer, layer, extent);
    }

    /// The whole of a layer's `dispatchSerialize`: unless visited, the version byte, then `body(version)`, then the mark.
    /// `body` refuses the versions it does not know.
    template <class Layer, class Body>
    static void dispatchLayer(ktArchive& archive, const Layer* layer, std::size_t extent, Body body)
    {
        unsigned char version = 0;
        if (beginLayer(archive, layer, layer, extent, version)) {
            body(version);
            setVisited(layer, extent);
        }
    }

private:
    friend class ktArchive;
    friend class kt_ArchivePass;
    friend class kt_ElementRoom;
    friend KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktPersistent& object);

    static bool isLayerVisited(const ktPersistent* object, const void* layer, std::size_t extent);
    static void markLayer(const ktPersistent* object, const void* layer, std::size_t extent);
    static bool beginLayer(ktArchive& archive, const ktPersistent* object, const void* layer, std::size_t extent,
                           unsigned char& version);
    void mutating_() noexcept;
    void assigned_() noexcept;

    // 0 until a pass meets the object. That pass gives it a number, which tells the object from an earlier one at its address that
    // another thread destroyed. Atomic because two threads may store objects that share this one.
    mutable std::atomic<std::uint16_t> mark_{0};
};

/// Archives an object in place: nothing about its class is written, and loading fills the given object.
/// Throws: ktArchive::Errors, ktArchive::Conflict if the object was also archived by pointer in this pass.
KT_FOUNDATION_API ktArchive& operator||(ktArchive& archive, ktPersistent& object);

/// An entry of the class registry: lets an archive re-create objects of a class. Defined as a static object beside the
/// class, it registers itself when constructed and unregisters itself when destroyed. A class is known in archives by its
/// plain C++ name, with its namespaces.
///
/// Archives that run before `main` or after it, in constructors and destructors of static objects, know the classes whose
/// entries exist at that time. If the program is linked with libclastool as a shared library, the classes of libclastool are among
/// them. In a static program, and for classes of the program itself, the linker's order decides; a class without an entry is an
/// "unknown class" (ktArchive::Corrupt).
///
/// Threads: entries may be made and destroyed while other threads store and load, so a library may be loaded and unloaded at any
/// time at which no archive needs its classes. Making and destroying wait for each other. Destroying waits for a look-up that is
/// under way; a look-up waits for nothing. `first` and `next` need a registry that does not change meanwhile.
class KT_FOUNDATION_API kt_Instantiator {
public:
    /// Makes a new default-constructed object, which the caller owns.
    using Make = ktPersistent* (*)();

    /// `factory` returns a new default-constructed object of the class `type`. `name` is for a class whose name the compiler
    /// would spell in its own way (a template); it must outlive the entry.
    kt_Instantiator(const std::type_info& type, Make factory, const char* name = nullptr);
    ~kt_Instantiator();
    kt_Instantiator(const kt_Instantiator&) = delete;
    kt_Instantiator& operator=(const kt_Instantiator&) = delete;

    /// The name by which archives know the class.
    const std::string& name() const noexcept { return name_; }
    /// A new default-constructed object of the class, owned by the caller.
    ktPersistent* make() const { return make_(); }

    /// The entry of a class, or null. Cost: linear in the number of registered classes.
    static const kt_Instantiator* find(const std::type_info& type) noexcept;
    /// The entry of a name, or null. Cost: linear in the number of registered classes.
    static const kt_Instantiator* find(const std::string& name) noexcept;
    /// The first entry of the registry, newest first, or null; `next()` leads on.
    static const kt_Instantiator* first() noexcept;
    /// The next older entry, or null.
    const kt_Instantiator* next() const noexcept { return next_.load(); }

private:
    template <class Entry>
    friend class kt_RegistryList;

    const std::type_info& type_;
    Make make_;
    std::string name_;
    std::atomic<kt_Instantiator*> next_{nullptr};
};
