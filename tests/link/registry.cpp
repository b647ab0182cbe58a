// A program that links the library and names none of its classes can load them all.

#include "check_registry.h"

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: registry LIST_OF_CLASSES FOLDER_OF_GOLDEN_ARCHIVES\n";
        return 1;
    }
    const bool right = registryHolds(argv[1], argv[2]);
    std::cout << registered().size() << " classes registered\n";
    return right ? 0 : 1;
}
