#include "toys.h"

namespace toys {

namespace {

const kt_Instantiator nodeEntry(typeid(Node), &Node::make);
const kt_Instantiator heavyNodeEntry(typeid(HeavyNode), &HeavyNode::make);
const kt_Instantiator noteEntry(typeid(Note), &Note::make);
const kt_Instantiator looseEntry(typeid(Loose), &Loose::make);
const kt_Instantiator speckEntry(typeid(Speck), &Speck::make);
const kt_Instantiator marklessEntry(typeid(Markless), &Markless::make);

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

}  // namespace toys
