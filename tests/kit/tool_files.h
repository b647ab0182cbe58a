#pragma once

#include "kit_kit.h"

// Files of tools, and what the tests put into them.

namespace kt_test {

/// A folder of its own, which goes with the test.
class KitFile : public ::testing::Test {
protected:
    KitFile() : folder_(std::filesystem::temp_directory_path() / name())
    {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
        path_ = (folder_ / "tool.kt").string();
    }
    ~KitFile() override { std::filesystem::remove_all(folder_); }

    std::size_t numFiles() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder_), std::filesystem::directory_iterator()));
    }
    ktClassifierTool reloaded(const ktClassifierTool& tool) const
    {
        ktKit::save(tool, path_);
        return ktKit::load(path_);
    }
    void expectRefused(const std::string& bytes, const std::string& what) const
    {
        writeBytes(path_, bytes);
        expectThrows<ktKit::FileError>(path_ + ": " + what, [this] { ktKit::load(path_); });
    }

    std::filesystem::path folder_;
    std::string path_;

private:
    static std::string name()
    {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        return std::string("kit_file_") + test->name();
    }
};

/// A second implementation: bit by bit, without a table.
inline std::uint32_t crc32(const std::string& bytes)
{
    std::uint32_t remainder = 0xFFFFFFFF;
    for (const char byte : bytes) {
        remainder ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            remainder = remainder >> 1 ^ ((remainder & 1) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~remainder;
}

/// A file around the archive, with the right checksum.
inline std::string fileAround(const std::string& archive)
{
    const std::string bytes = fromHex("6B 74 4B 69 74 0D 0A 1A 00") + archive;
    return bytes + littleEndian32(crc32(bytes));
}

/// A metric that no archive can hold.
class UnregisteredMetric : public ktPatternDistanceMetric {
public:
    double distance(const ktFeaturePattern&, const ktFeaturePattern&) const override { return 0.0; }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new UnregisteredMetric; }
};

inline Knn unusualKnn()
{
    return Knn(4, ktPatternDistanceMetricNorm(1.0), ktKit::costs({{0, 1, 9}, {2, 0, 1}, {1, 3, 0}}));
}

}  // namespace kt_test
