#include "streams.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace kt_test {

BlindSource::BlindSource(std::string bytes)
    : BlindSource(std::move(bytes), std::numeric_limits<std::size_t>::max(), AtLimit::refuses)
{
}

BlindSource::BlindSource(std::string bytes, std::size_t limit, AtLimit atLimit)
    : std::istream(nullptr), buffer_(std::move(bytes), limit, atLimit)
{
    init(&buffer_);
}

BlindSource::Buffer::Buffer(std::string bytes, std::size_t limit, AtLimit atLimit)
    : bytes_(std::move(bytes)), limit_(limit), atLimit_(atLimit)
{
}

BlindSource::Buffer::int_type BlindSource::Buffer::underflow()
{
    if (given_ == limit_ && atLimit_ == AtLimit::throws) {
        throw std::runtime_error("the line is dead");
    }
    const std::size_t end = std::min(bytes_.size(), limit_);
    if (given_ >= end) {
        return traits_type::eof();
    }
    constexpr std::size_t step = 7;
    const std::size_t now = std::min(step, end - given_);
    char* start = &bytes_[given_];
    setg(start, start, start + now);
    given_ += now;
    return traits_type::to_int_type(*start);
}

LimitedSink::LimitedSink(std::size_t limit, AtLimit atLimit) : std::ostream(nullptr), buffer_(limit, atLimit)
{
    init(&buffer_);
}

LimitedSink::Buffer::Buffer(std::size_t limit, AtLimit atLimit) : limit_(limit), atLimit_(atLimit)
{
    bytes_.reserve(limit);
}

LimitedSink::Buffer::int_type LimitedSink::Buffer::overflow(int_type c)
{
    if (bytes_.size() == limit_) {
        if (atLimit_ == AtLimit::throws) {
            throw std::runtime_error("the disk is full");
        }
        return traits_type::eof();
    }
    bytes_.push_back(traits_type::to_char_type(c));
    return c;
}

}  // namespace kt_test
