#include "golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

std::string goldenPath(const std::string& name)
{
    return kt_test::goldenFolder() + "/" + name + ".ktar";
}

}  // namespace

std::string kt_test::projectFolder()
{
    return KT_PROJECT_FOLDER;
}

std::string kt_test::goldenFolder()
{
    return projectFolder() + "/tests/golden";
}

std::string kt_test::fileBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("there is no file " + path);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string kt_test::goldenBytes(const std::string& name)
{
    return fileBytes(goldenPath(name));
}

void kt_test::expectGolden(const std::string& name, const std::string& bytes)
{
    if (std::getenv("KT_UPDATE_RECORDS") != nullptr) {
        std::ofstream file(goldenPath(name), std::ios::binary);
        file << bytes;
        EXPECT_TRUE(file.flush()) << "cannot write " << goldenPath(name);
        return;
    }
    EXPECT_EQ(toHex(bytes), toHex(goldenBytes(name))) << goldenPath(name);
}
