// Loads one archive, for .ci/load-work, which counts the instructions inside `kt_measuredLoad` and `kt_measuredUse`:
//
//     load_work              lists the kinds of work; behind each name stands its limit (Kind::most)
//     load_work KIND N       stores an archive of about N parts, prints its size in bytes, and loads it
//
// In `kt_measuredLoad` a value is loaded and destroyed, or stored where the kind says so. In `kt_measuredUse` a loaded value is used.

#include "load_work.h"

#include <kt/compiler.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <iterator>

namespace {

using namespace load_work;

std::vector<Kind> allKinds()
{
    std::vector<Kind> all = archiveKinds();
    for (const std::vector<Kind>& more : {useKinds(), searchKinds()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

/// A source that cannot tell how much is left, which is the harder one: nothing can be refused in advance.
class BlindBuffer : public std::streambuf {
public:
    explicit BlindBuffer(std::string& bytes) { setg(bytes.data(), bytes.data(), bytes.data() + bytes.size()); }
};

}  // namespace

extern "C" void kt_measuredLoad(std::string& bytes, const Load& load);

extern "C" KT_NOINLINE void kt_measuredLoad(std::string& bytes, const Load& load)
{
    BlindBuffer buffer(bytes);
    std::istream in(&buffer);
    try {
        ktArchive archive(in);
        load(archive);
    } catch (const ktArchive::Errors& error) {
        std::cerr << error.what() << "\n";
    }
}

extern "C" void kt_measuredUse(const std::function<void()>& use);

extern "C" KT_NOINLINE void kt_measuredUse(const std::function<void()>& use)
{
    use();
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        for (const Kind& kind : allKinds()) {
            if (!kind.most.empty()) {
                std::cout << kind.name << " " << kind.most << "\n";
            }
        }
        return 0;
    }
    try {
        for (const Kind& kind : allKinds()) {
            if (kind.name == argv[1]) {
                Case made = kind.make(std::atol(argv[2]));
                std::cout << made.bytes.size() << "\n";
                if (made.load) {
                    kt_measuredLoad(made.bytes, made.load);
                    return 0;
                }
                std::istringstream in(made.bytes);
                ktArchive archive(static_cast<std::istream&>(in));
                kt_measuredUse(made.prepare(archive));
                return 0;
            }
        }
        std::cerr << "there is no kind " << argv[1] << "\n";
    } catch (const std::exception& error) {
        std::cerr << argv[1] << ": " << error.what() << "\n";
    }
    return 1;
}
