// A program that has nothing of the library loads and unloads two shared objects that use it, a hundred times, and does not
// find it in memory afterwards. Meanwhile each of them has all classes, and an error of one is caught by class in the other.

#include "guest.h"

namespace {

bool pass(const Guest& from, const Guest& to)
{
    for (int i = 0; i < numErrorCases; ++i) {
        if (!to.errors[i].catches(from.errors[i].raise)) {
            std::cerr << from.errors[i].name << " is not caught by its class in another shared object\n";
            return false;
        }
    }
    return true;
}

bool visit(char** arguments, int scope)
{
    const Opened first(arguments[3], scope);
    const Opened second(arguments[4], scope);
    if (!first || !second) {
        return false;
    }
    const Guest& one = *first.guest();
    const Guest& two = *second.guest();
    // Where each has a copy of the library, and the second may use the symbols of the first, both register in one place.
    const std::size_t copies = scope == RTLD_GLOBAL ? 2 : 1;
    return one.registryHolds(arguments[1], arguments[2], copies) &&
           two.registryHolds(arguments[1], arguments[2], copies) && pass(one, two) && pass(two, one);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        std::cerr << "usage: stranger LIST_OF_CLASSES FOLDER_OF_GOLDEN_ARCHIVES GUEST GUEST LIBRARY...\n";
        return 1;
    }
    for (int round = 0; round < 100; ++round) {
        if (!visit(argv, round % 2 == 0 ? RTLD_LOCAL : RTLD_GLOBAL)) {
            return 1;
        }
        for (int i = 3; i < argc; ++i) {
            if (isLoaded(argv[i])) {
                std::cerr << argv[i] << " stays in memory\n";
                return 1;
            }
        }
    }
    return 0;
}
