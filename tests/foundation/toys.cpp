#include "toys.h"

namespace toys {

namespace {

const kt_Instantiator nodeEntry(typeid(Node), &Node::make);
const kt_Instantiator heavyNodeEntry(typeid(HeavyNode), &HeavyNode::make);
const kt_Instantiator noteEntry(typeid(Note), &Note::make);
const kt_Instantiator looseEntry(typeid(Loose), &Loose::make);
const kt_Instantiator speckEntry(typeid(Speck), &Speck::make);
const kt_Instantiator marklessEntry(typeid(Markless), &Markless::make);
const kt_Instantiator pointEntry(typeid(Point), &Point::make, "Point");

}  // namespace

void Node::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "toys::Node");
        ktPersistent::dispatchSerialize(archive);
        archive || number || children;
    });
}

void HeavyNode::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "toys::HeavyNode");
        Node::dispatchSerialize(archive);
        archive || weight;
    });
}

void Note::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "toys::Note");
        archive || text;
    });
}

void Loose::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "toys::Loose");
        archive || number || node;
    });
}

void Speck::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [](unsigned char version) { ktArchive::checkVersion(version); });
}

void Point::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "Point");
        archive || number || next;
    });
}

void Base::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "Base");
        ktPersistent::dispatchSerialize(archive);
    });
}

void Derived::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
        ktArchive::checkVersion(version, "Derived");
        Base::dispatchSerialize(archive);
    });
}

}  // namespace toys
