// A program that links the foundation alone loads and unloads the library a hundred times. The foundation stays in memory, so
// what the library registers there it must take away again.

#include "guest.h"

#include <kt/failure.h>
#include <kt/persistent.h>

namespace {

constexpr long noValidData = static_cast<long>(0x80000B61L);

std::string messageOf(long code)
{
    try {
        kfThrowExceptionOnFailure(code);
    } catch (const ktException& error) {
        return error.message();
    }
    return "";
}

bool is(const char* what, const std::string& found, const std::string& expected)
{
    if (found != expected) {
        std::cerr << what << ": \"" << found << "\" instead of \"" << expected << "\"\n";
    }
    return found == expected;
}

int countClasses()
{
    int count = 0;
    for (const kt_Instantiator* entry = kt_Instantiator::first(); entry != nullptr; entry = entry->next()) {
        ++count;
    }
    return count;
}

bool isThere(const std::string& library)
{
    const Opened opened(library);
    return opened && is("classes", std::to_string(countClasses()), "24") &&
           is("failure", messageOf(noValidData), "No valid data has been used to train the distribution");
}

bool isGone(const std::string& library)
{
    return is("library", isLoaded(library) ? "stays in memory" : "gone", "gone") &&
           is("classes left", std::to_string(countClasses()), "0") &&
           is("failure left", messageOf(noValidData), "The operation failed with status 0x80000B61.");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: foundation_stays LIBRARY\n";
        return 1;
    }
    for (int round = 0; round < 100; ++round) {
        if (!isThere(argv[1]) || !isGone(argv[1])) {
            std::cerr << "round " << round << "\n";
            return 1;
        }
    }
    return 0;
}
