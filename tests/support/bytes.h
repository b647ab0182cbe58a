#pragma once

#include <cstddef>
#include <string>

namespace kt_test {

/// Bytes from hexadecimal digits, two each; blanks and line ends between bytes do not count. Throws std::invalid_argument for
/// anything else.
std::string fromHex(const std::string& digits);

/// "4B 54 41 52": what a failing comparison of bytes should print. Compare toHex(a) with toHex(b).
std::string toHex(const std::string& bytes);

/// A 32-bit word as an archive holds it.
std::string littleEndian32(unsigned long long word);

/// The bytes with `replacement` over those at `position`.
std::string withBytesAt(std::string bytes, std::size_t position, const std::string& replacement);

/// The eight bytes with which every archive begins.
std::string archiveHeader();

/// What follows the header. Throws std::invalid_argument for bytes that do not begin with it.
std::string afterHeader(const std::string& bytes);

}  // namespace kt_test
