#include "bytes.h"

#include <cctype>
#include <stdexcept>

namespace kt_test {

namespace {

int digitValue(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(digit)));
    if (upper >= 'A' && upper <= 'F') {
        return upper - 'A' + 10;
    }
    throw std::invalid_argument(std::string("not a hexadecimal digit: ") + digit);
}

bool isBlank(char c)
{
    return c == ' ' || c == '\n';
}

}  // namespace

std::string fromHex(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (isBlank(digits[i])) {
            continue;
        }
        if (i + 1 == digits.size()) {
            throw std::invalid_argument("half a byte");
        }
        bytes.push_back(static_cast<char>(16 * digitValue(digits[i]) + digitValue(digits[i + 1])));
        ++i;
    }
    return bytes;
}

std::string toHex(const std::string& bytes)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (!text.empty()) {
            text += ' ';
        }
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string littleEndian32(unsigned long long word)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes.push_back(static_cast<char>(static_cast<unsigned char>(word >> (8 * i))));
    }
    return bytes;
}

std::string withBytesAt(std::string bytes, std::size_t position, const std::string& replacement)
{
    return bytes.replace(position, replacement.size(), replacement);
}

std::string archiveHeader()
{
    return fromHex("4B 54 41 52  01 00 00 00");
}

std::string afterHeader(const std::string& bytes)
{
    const std::string header = archiveHeader();
    if (bytes.compare(0, header.size(), header) != 0) {
        throw std::invalid_argument("the bytes do not begin with the header of an archive");
    }
    return bytes.substr(header.size());
}

}  // namespace kt_test
