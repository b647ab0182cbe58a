// A program that links the library and loads and unloads a shared object that uses it too, a hundred times: both have all
// classes, and an error of one is caught by class in the other.

#include "check_registry.h"
#include "errors.h"

namespace {

bool pass(const ErrorCase* from, const ErrorCase* to)
{
    for (int i = 0; i < numErrorCases; ++i) {
        if (!to[i].catches(from[i].raise)) {
            std::cerr << from[i].name << " is not caught by its class in another shared object\n";
            return false;
        }
    }
    return true;
}

bool visit(char** arguments)
{
    const Opened opened(arguments[3]);
    if (!opened) {
        return false;
    }
    const Guest& guest = *opened.guest();
    return registryHolds(arguments[1], arguments[2]) && guest.registryHolds(arguments[1], arguments[2], 1) &&
           pass(guest.errors, errorCases) && pass(errorCases, guest.errors);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "usage: host LIST_OF_CLASSES FOLDER_OF_GOLDEN_ARCHIVES GUEST\n";
        return 1;
    }
    for (int round = 0; round < 100; ++round) {
        if (!visit(argv) || isLoaded(argv[3])) {
            std::cerr << "round " << round << "\n";
            return 1;
        }
    }
    return registryHolds(argv[1], argv[2]) ? 0 : 1;
}
