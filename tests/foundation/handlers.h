#pragma once

#include "support/test.h"

// Handlers that a program sets for the whole process: of attention, and converters of failures.

namespace handlers {

struct Polls {
    long answer = 0;
    int count = 0;
    std::thread::id thread;
};

inline long answerOf(void* context)
{
    auto* polls = static_cast<Polls*>(context);
    ++polls->count;
    polls->thread = std::this_thread::get_id();
    return polls->answer;
}

class Attention : public testing::Test {
protected:
    ~Attention() override { kfSetAttentionHandler(nullptr, nullptr); }
};

// A group of the converters' own: code c of it is 0x80000000 + 32 * 1000 + c.
inline constexpr long group = 1000;
inline constexpr long firstCode = static_cast<long>(0x80007D00UL);

/// The codes that converters were asked for.
inline std::vector<long> seen;

inline void recordsAndReturns(long code)
{
    seen.push_back(code);
}

inline void throwsForCodeOne(long code)
{
    seen.push_back(code);
    if (code == firstCode + 1) {
        throw std::domain_error("one");
    }
}

inline void throwsAlways(long)
{
    throw std::range_error("always");
}

/// A registration that ends with the test.
class Registration {
public:
    Registration(long forGroup, kfExceptionConverter converter) : group_(forGroup), converter_(converter)
    {
        seen.clear();
        kfRegisterExceptionConverter(group_, converter_);
    }
    ~Registration() { kfUnregisterExceptionConverter(group_, converter_); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    long group_;
    kfExceptionConverter converter_;
};

}  // namespace handlers
