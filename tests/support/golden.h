#pragma once

#include "bytes.h"

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

/// The folder of the project, which tests/ lies in.
std::string projectFolder();

/// The folder of the stored archives.
std::string goldenFolder();

/// Throws std::runtime_error if there is no such file.
std::string fileBytes(const std::string& path);

/// Throws std::runtime_error if there is no such archive.
std::string goldenBytes(const std::string& name);

/// Expects that `bytes` are those of tests/golden/<name>.ktar.
void expectGolden(const std::string& name, const std::string& bytes);

}  // namespace kt_test
