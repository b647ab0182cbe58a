// Loads each stored archive of a folder, stores the value again, and compares the bytes.
//
//     golden_archives FOLDER NAME...

#include "damage/battery.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

std::string bytesOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What every archive begins with, once.
constexpr std::size_t headerSize = 8;

/// An archive holds several values one after the other.
std::string storedAgain(const std::string& name, const std::string& stored)
{
    std::istringstream stream(stored);
    ktArchive archive(static_cast<std::istream&>(stream));
    std::string again = stored.substr(0, headerSize);
    while (stream.peek() != std::istringstream::traits_type::eof()) {
        const auto subject = kt_test::typeOfGolden(name).make();
        subject->load(archive);
        again += subject->bytes().substr(headerSize);
    }
    return again;
}

}  // namespace

int main(int argc, char** argv)
{
    int numBad = 0;
    for (int i = 2; i < argc; ++i) {
        const std::string stored = bytesOf(argv[1] + std::string("/") + argv[i] + ".ktar");
        try {
            if (stored.empty() || storedAgain(argv[i], stored) != stored) {
                throw std::runtime_error(stored.empty() ? "cannot be read" : "stored again, it has other bytes");
            }
        } catch (const std::exception& error) {
            std::cout << argv[i] << ": " << error.what() << "\n";
            ++numBad;
        }
    }
    std::cout << argc - 2 - numBad << " of " << argc - 2 << " archives are stored as they were\n";
    return argc > 2 && numBad == 0 ? 0 : 1;
}
