// A shared object that brings classes of its own into the registry, for registry_threads_test.cpp.

#include <kt/foundation.h>

#include <array>
#include <memory>
#include <sstream>
#include <string>

namespace {

class Visitor : public ktPersistent, public ktRepBase {
public:
    long number = 0;

    static ktPersistent* make() { return new Visitor; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version);
            archive || number;
        });
    }
};

/// Many entries, so that a walk that meets them takes its time, and each of them is made and destroyed beside others.
class Entries {
public:
    Entries()
    {
        for (std::size_t i = 0; i < names_.size(); ++i) {
            names_[i] = "Visitor" + std::to_string(i);
            entries_[i] = std::make_unique<kt_Instantiator>(typeid(Visitor), &Visitor::make, names_[i].c_str());
        }
    }

private:
    std::array<std::string, 64> names_;
    std::array<std::unique_ptr<kt_Instantiator>, 64> entries_;
};

const Entries entries;

}  // namespace

/// Whether an object of a class of its own comes back from an archive.
extern "C" KT_EXPORT bool ktPluginWorks();

extern "C" KT_EXPORT bool ktPluginWorks()
{
    ktPtrHandle<Visitor> stored(new Visitor);
    stored->number = 7;
    std::ostringstream out;
    ktArchive storing(static_cast<std::ostream&>(out));
    storing || stored;
    std::istringstream in(out.str());
    ktArchive loading(static_cast<std::istream&>(in));
    ktPtrHandle<Visitor> loaded;
    loading || loaded;
    return !loaded.isNull() && loaded->number == 7 && kt_Instantiator::find("Visitor63") != nullptr;
}
