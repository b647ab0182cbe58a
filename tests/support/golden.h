#pragma once

#include "bytes.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

// Stored archives in tests/golden/, which pin the encoding of every archivable type:
//
//     const std::string bytes = kt_test::store(value);
//     kt_test::expectGolden("feature_pattern", bytes);
//     EXPECT_TRUE(kt_test::load<ktFeaturePattern>(kt_test::goldenBytes("feature_pattern")) == value);
//
// With KT_UPDATE_RECORDS in the environment `expectGolden` writes the file anew instead. What once was stored must load
// for ever, so that is for files that are new.

namespace kt_test {

inline std::string goldenPath(const std::string& name)
{
    return std::string(KT_GOLDEN_DIR) + "/" + name + ".ktar";
}

/// Throws std::runtime_error if there is no such file.
inline std::string goldenBytes(const std::string& name)
{
    std::ifstream file(goldenPath(name), std::ios::binary);
    if (!file) {
        throw std::runtime_error("there is no golden archive " + goldenPath(name));
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Expects that `bytes` are those of tests/golden/<name>.ktar.
inline void expectGolden(const std::string& name, const std::string& bytes)
{
    if (std::getenv("KT_UPDATE_RECORDS") != nullptr) {
        std::ofstream file(goldenPath(name), std::ios::binary);
        file << bytes;
        EXPECT_TRUE(file.flush()) << "cannot write " << goldenPath(name);
        return;
    }
    EXPECT_EQ(toHex(bytes), toHex(goldenBytes(name))) << goldenPath(name);
}

}  // namespace kt_test
