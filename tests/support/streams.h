#pragma once

#include <cstddef>
#include <istream>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

// Streams that behave badly on purpose.

namespace kt_test {

/// What a stream of these does when it comes to its limit.
enum class AtLimit { refuses, throws };

/// A source without a length: it cannot seek, gives a few bytes at a time, and after `limit` bytes ends or throws.
class BlindSource : public std::istream {
public:
    explicit BlindSource(std::string bytes);
    BlindSource(std::string bytes, std::size_t limit, AtLimit atLimit);

    /// The number of bytes taken from it.
    std::size_t taken() const { return buffer_.taken(); }

private:
    class Buffer : public std::streambuf {
    public:
        Buffer(std::string bytes, std::size_t limit, AtLimit atLimit);
        std::size_t taken() const { return given_ - static_cast<std::size_t>(egptr() - gptr()); }

    protected:
        int_type underflow() override;

    private:
        std::string bytes_;
        std::size_t limit_;
        AtLimit atLimit_;
        std::size_t given_ = 0;
    };

    Buffer buffer_;
};

/// A sink that takes `limit` bytes and then refuses or throws. It allocates nothing while it takes them.
class LimitedSink : public std::ostream {
public:
    LimitedSink(std::size_t limit, AtLimit atLimit);

    const std::string& bytes() const { return buffer_.bytes(); }

private:
    class Buffer : public std::streambuf {
    public:
        Buffer(std::size_t limit, AtLimit atLimit);
        const std::string& bytes() const { return bytes_; }

    protected:
        int_type overflow(int_type c) override;

    private:
        std::size_t limit_;
        AtLimit atLimit_;
        std::string bytes_;
    };

    Buffer buffer_;
};

/// Throws what it was given, at the first byte in either direction.
template <class Thrown>
class ThrowingBuffer : public std::streambuf {
public:
    explicit ThrowingBuffer(Thrown thrown) : thrown_(thrown) {}

protected:
    int_type underflow() override { throw thrown_; }
    int_type overflow(int_type) override { throw thrown_; }

private:
    Thrown thrown_;
};

/// Says that it can seek, but does not come back.
class LostBuffer : public std::stringbuf {
public:
    explicit LostBuffer(const std::string& bytes) : std::stringbuf(bytes) {}

protected:
    pos_type seekpos(pos_type, std::ios_base::openmode) override { return pos_type(off_type(-1)); }
};

/// Claims a length of 2^40 bytes.
class BoastingBuffer : public std::stringbuf {
public:
    explicit BoastingBuffer(const std::string& bytes) : std::stringbuf(bytes) {}

protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override
    {
        return from == std::ios_base::end ? pos_type(off_type{1} << 40) : std::stringbuf::seekoff(offset, from, which);
    }
};

/// In a good state, though its buffer was taken away.
class RobbedStream : public std::iostream {
public:
    explicit RobbedStream(std::streambuf* buffer) : std::iostream(buffer) { set_rdbuf(nullptr); }
};

}  // namespace kt_test
