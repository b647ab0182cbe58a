#include "provocations.h"

namespace documents {

namespace {

using namespace kt_test;

using Pattern = ktPtrHandle<ktFeaturePattern>;

/// A class without an entry in the registry.
class Unregistered : public ktPersistent, public ktRepBase {};

/// Points to itself, as long as it lives.
class Loop : public ktPersistent, public ktRepBase {
public:
    ktPtrHandle<Loop> next;

protected:
    void dispatchSerialize(ktArchive& archive) override { archive || next; }
};

ktPersistent* makeLoop()
{
    return new Loop;
}

const kt_Instantiator loopEntry(typeid(Loop), &makeLoop);

/// Does something with an archive that stores.
template <class Operation>
void storing(Operation operation)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    operation(archive);
}

void loadFrom(std::streambuf&& buffer)
{
    std::istream in(&buffer);
    ktArchive archive(in);
    std::string text;
    archive || text;
}

void storeLoop()
{
    const ktPtrHandle<Loop> loop(new Loop);
    loop->next = loop;
    try {
        storing([&](ktArchive& archive) { archive || loop->next; });
    } catch (...) {
        loop->next = nullptr;
        throw;
    }
}

/// What a `long` and a size of 32 bits cannot be asked for.
std::vector<Provocation> beyond32Bits()
{
#if LONG_MAX > 2147483647L
    return {
        {"Archive value out of range: <value> does not fit 32 bits.", [] { kt_test::store(1L << 40); }},
        {"Archive value out of range: a count of <n> does not fit 32 bits.",
         [] { storing([](ktArchive& archive) { archive.count(std::size_t{1} << 40, 1); }); }},
    };
#else
    return {};
#endif
}

std::vector<Provocation> whileStoring()
{
    return {
        {"Archive too deep: more than <n> pointer records are open at once.",
         [] {
             storing([](ktArchive& archive) {
                 archive.maxDepth(0);
                 Pattern pattern(new ktFeaturePattern);
                 archive || pattern;
             });
         }},
        {"Archive conflict: an object stored by pointer is stored in place in the same pass.",
         [] {
             Pattern pattern(new ktFeaturePattern);
             storing([&](ktArchive& archive) { archive || pattern || *pattern; });
         }},
        {"Archive conflict: an object stored in place is stored by pointer in the same pass.",
         [] {
             Pattern pattern(new ktFeaturePattern);
             storing([&](ktArchive& archive) { archive || *pattern || pattern; });
         }},
        {"Archive conflict: an object leads back to itself.", &storeLoop},
        {"Corrupt archive: unknown class \"<name>\" at byte <n>.",
         [] {
             ktPtrHandle<Unregistered> object(new Unregistered);
             storing([&](ktArchive& archive) { archive || object; });
         }},
        {"The stream did not take all bytes.",
         [] {
             std::ofstream nowhere;
             ktArchive archive(static_cast<std::ostream&>(nowhere));
             std::string text;
             archive || text;
         }},
    };
}

std::vector<Provocation> whileLoading()
{
    return {
        {"Unknown version in an archive: ktArchive.", [] { load<long>("KTAR" + fromHex("02 00 00 00")); }},
        {"Unknown version in an archive: <class>.",
         [] { load<ktClassifierDefs::BadParams>(archiveHeader() + fromHex("01")); }},
        {"Unknown version in an archive: <file>, line <n>.",
         [] { load<ktClassifierCosts>(archiveHeader() + fromHex("01")); }},
        {"Unknown version in an archive.", [] { load<ktFeaturePattern>(archiveHeader() + fromHex("01")); }},
        {"Corrupt archive: not an archive at byte <n>.", [] { load<long>("some other file"); }},
        {"Corrupt archive: unexpected end at byte <n>.", [] { load<long>(archiveHeader()); }},
        {"Corrupt archive: impossible count <c> at byte <n>.",
         [] { load<std::vector<double>>(archiveHeader() + fromHex("00 FF FF FF FF 00")); }},
        {"Corrupt archive: a matrix of a negative size at byte <n>.",
         [] { load<ktNMMatrix>(archiveHeader() + fromHex("FF FF FF FF 01 00 00 00")); }},
        {"Corrupt archive: bad tag of a pointer record at byte <n>.",
         [] { load<Pattern>(archiveHeader() + fromHex("07")); }},
        {"Corrupt archive: a class that was not named before at byte <n>.",
         [] { load<Pattern>(archiveHeader() + fromHex("02 00 00 00 00")); }},
        {"Corrupt archive: a reference to an object that was not loaded before at byte <n>.",
         [] { load<Pattern>(archiveHeader() + fromHex("01 00 00 00 00")); }},
        {"The stream cannot be read.",
         [] {
             std::ifstream nowhere("no such file");
             ktArchive archive(static_cast<std::istream&>(nowhere));
             std::string text;
             archive || text;
         }},
        {"The stream failed: <reason>",
         [] { loadFrom(ThrowingBuffer<std::runtime_error>(std::runtime_error("why"))); }},
        {"The stream failed.", [] { loadFrom(ThrowingBuffer<int>(1)); }},
        {"The stream failed: The stream did not return to where it stood.",
         [] { loadFrom(LostBuffer(kt_test::store(std::string("text")))); }},
    };
}

std::vector<Provocation> everywhere()
{
    return {
        {"", [] { *Pattern(); }},
        {"The operation failed with status 0x<code>.", [] { kfThrowExceptionOnFailure(kt_test::abortStatus); }},
    };
}

}  // namespace

std::vector<Provocation> provocationsOfFoundation()
{
    std::vector<Provocation> all;
    for (const auto& some : {beyond32Bits(), whileStoring(), whileLoading(), everywhere()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace documents
