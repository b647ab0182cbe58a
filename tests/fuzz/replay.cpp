// Runs a fuzz target over the files and folders given, where there is no fuzzer.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& place)
{
    if (!std::filesystem::is_directory(place)) {
        return {place};
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(place)) {
        files.push_back(entry.path());
    }
    return files;
}

bool replay(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    try {
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        return file.good() || file.eof();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", path.string().c_str(), error.what());
        return false;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    long files = 0;
    long failed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::filesystem::path& path : filesIn(argv[i])) {
            ++files;
            failed += replay(path) ? 0 : 1;
        }
    }
    std::printf("%ld inputs, %ld failed\n", files, failed);
    return files > 0 && failed == 0 ? 0 : 1;
}
