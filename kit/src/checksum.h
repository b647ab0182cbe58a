#pragma once

#include <cstddef>
#include <cstdint>
#include <streambuf>

/// CRC-32 of ISO 3309: the remainder of all bits so far, divided by a polynomial of degree 32.
class kt_Checksum {
public:
    void add(const char* bytes, std::size_t size) noexcept
    {
        for (std::size_t i = 0; i < size; ++i) {
            remainder_ = table()[(remainder_ ^ static_cast<unsigned char>(bytes[i])) & 0xFF] ^ remainder_ >> 8;
        }
    }
    std::uint32_t value() const noexcept { return ~remainder_; }

private:
    struct Table {
        std::uint32_t entries[256];
        Table() noexcept
        {
            for (std::uint32_t i = 0; i < 256; ++i) {
                std::uint32_t entry = i;
                for (int bit = 0; bit < 8; ++bit) {
                    entry = (entry & 1) != 0 ? 0xEDB88320U ^ entry >> 1 : entry >> 1;
                }
                entries[i] = entry;
            }
        }
    };
    static const std::uint32_t* table() noexcept
    {
        static const Table table;
        return table.entries;
    }

    std::uint32_t remainder_ = 0xFFFFFFFF;
};

/// Passes all bytes to another buffer and computes their checksum. It takes blocks only, as an archive and std::ostream::write give
/// them.
class kt_SummedBuffer : public std::streambuf {
public:
    explicit kt_SummedBuffer(std::streambuf& next) : next_(next) {}

    std::uint32_t sum() const noexcept { return sum_.value(); }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize size) override
    {
        const std::streamsize taken = next_.sputn(bytes, size);
        sum_.add(bytes, static_cast<std::size_t>(taken));
        return taken;
    }

private:
    std::streambuf& next_;
    kt_Checksum sum_;
};
