#pragma once

#include "support/test.h"

// Archivable classes of the tests' own.

namespace toys {

/// Counts the living objects of class T. A member, so that every constructor of T counts.
template <class T>
struct Alive {
    Alive() { ++count; }
    Alive(const Alive&) { ++count; }
    Alive& operator=(const Alive&) = default;
    ~Alive() { --count; }

    static inline std::atomic<long> count{0};
};

/// A number and any children. Layer: version byte, number, children.
class Node : public virtual ktPersistent, public virtual ktRepBase {
public:
    explicit Node(long value = 0) : number(value) {}

    long number;
    std::vector<ktPtrHandle<Node>> children;

    static ktPersistent* make() { return new Node; }

protected:
    void dispatchSerialize(ktArchive& archive) override;

private:
    Alive<Node> alive_;
};

/// Adds a layer: version byte, Node's layer, weight.
class HeavyNode : public Node {
public:
    explicit HeavyNode(double value = 0.0) : weight(value) {}

    double weight;

    static ktPersistent* make() { return new HeavyNode; }

protected:
    void dispatchSerialize(ktArchive& archive) override;
};

/// A counted class that is no Node, with bases that are not virtual. Layer: version byte, text.
class Note : public ktPersistent, public ktRepBase {
public:
    explicit Note(const std::string& value = "") : text(value) {}

    std::string text;

    static ktPersistent* make() { return new Note; }

protected:
    void dispatchSerialize(ktArchive& archive) override;

private:
    Alive<Note> alive_;
};

/// A class without a count, like an exception. Layer: version byte, number, a handle.
class Loose : public ktPersistent {
public:
    explicit Loose(long value = 0) : number(value) {}

    long number;
    ktPtrHandle<Node> node;

    static ktPersistent* make() { return new Loose; }

protected:
    void dispatchSerialize(ktArchive& archive) override;

private:
    Alive<Loose> alive_;
};

/// The smallest thing that a pointer record can hold: a version byte.
class Speck : public ktPersistent, public ktRepBase {
public:
    static ktPersistent* make() { return new Speck; }

protected:
    void dispatchSerialize(ktArchive& archive) override;
};

/// Archives its number and leaves no mark behind, so a pass knows it by its record alone.
class Markless : public ktPersistent {
public:
    explicit Markless(long value = 0) : number(value) {}

    long number;

    static ktPersistent* make() { return new Markless; }

protected:
    void dispatchSerialize(ktArchive& archive) override { archive || number; }
};

/// In no registry.
class Stranger : public ktPersistent, public ktRepBase {};

/// The class of the example in docs/archive-format.md.
class Point : public ktPersistent, public ktRepBase {
public:
    long number = 0;
    ktPtrHandle<Point> next;

    static ktPersistent* make() { return new Point; }

protected:
    void dispatchSerialize(ktArchive& archive) override;
};

/// An error of a user's own.
class Mishap : public ktExceptionWithString {
public:
    explicit Mishap(const std::string& message = "") : ktExceptionWithString(message) {}

    long errorNumber() const override { return 77; }
    void suicideAndRethrow() override { rethrowCopyOf(this); }

private:
    Alive<Mishap> alive_;
};

/// An error that makes its message when it is asked.
class Sum : public ktException {
public:
    long errorNumber() const override { return 78; }
    void suicideAndRethrow() override { rethrowCopyOf(this); }
    const char* what() const noexcept override { return "1 + 1 = 2"; }

protected:
    void message_(std::ostream& out) const override { out << "1 + 1 = " << 1 + 1; }
};

/// Shows what the base keeps for its derived classes.
class Probe : public ktPersistent {
public:
    using ktPersistent::dispatchSerialize;
    using ktPersistent::haveVisited;
    using ktPersistent::loadSimple;
    using ktPersistent::reInit;
    using ktPersistent::setVisited;
};

/// Two layers of the same extent: the derived class adds no field.
class Base : public ktPersistent {
protected:
    void dispatchSerialize(ktArchive& archive) override;
};

class Derived : public Base {
protected:
    void dispatchSerialize(ktArchive& archive) override;
};

/// A class whose name each compiler spells its own way.
template <class T>
class Box : public ktPersistent, public ktRepBase {
public:
    static ktPersistent* make() { return new Box; }
};

/// A value class with an operator of its own: mark, range.
struct Reading {
    unsigned char mark = 0;
    ktRange range;

    friend bool operator==(const Reading& a, const Reading& b) { return a.mark == b.mark && a.range == b.range; }
};
inline ktArchive& operator||(ktArchive& archive, Reading& reading)
{
    return archive || reading.mark || reading.range;
}

using Nodes = std::vector<ktPtrHandle<Node>>;

/// A chain of that many nodes, each the only child of the one before; the numbers count from 1. Built from its end, so no
/// depth is too much to build.
inline ktPtrHandle<Node> chain(long length)
{
    ktPtrHandle<Node> head;
    for (long i = length; i > 0; --i) {
        ktPtrHandle<Node> node(new Node(i));
        if (!head.isNull()) {
            node->children.push_back(head);
        }
        head = node;
    }
    return head;
}

inline std::multiset<std::string> registeredNames()
{
    std::multiset<std::string> names;
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        names.insert(entry->name());
    }
    return names;
}

// The first record of a Node, and a later one with the index of its class.
inline const std::string newNode = "03 0A 00 00 00 74 6F 79 73 3A 3A 4E 6F 64 65 ";
inline const std::string newLoose = "03 0B 00 00 00 74 6F 79 73 3A 3A 4C 6F 6F 73 65 ";
inline const std::string newNote = "03 0A 00 00 00 74 6F 79 73 3A 3A 4E 6F 74 65 ";
inline const std::string noChildren = "00 00 00 00 00";

inline std::string archiveOf(const std::string& hex)
{
    return kt_test::archiveHeader() + kt_test::fromHex(hex);
}

}  // namespace toys

namespace outer::inner {

/// In namespaces, and registered by each test that needs it.
class Guest : public ktPersistent, public ktRepBase {
public:
    long number = 0;

    static ktPersistent* make() { return new Guest; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version);
            archive || number;
        });
    }
};

}  // namespace outer::inner

/// Loaded as a value, takes 17 bytes at least.
template <>
struct ktLeastStoredSize<toys::Reading> {
    static constexpr std::size_t value = 17;
};
