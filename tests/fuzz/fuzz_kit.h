#pragma once

#include <clastool/foundation.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

// What the fuzz targets share: values decoded from the bytes of an input, outcomes of calls, and the end of a check that
// failed. A target compares the library with a model of its own and aborts at the first difference.

namespace fuzz {

/// Prints what differed and aborts, which is how a fuzzer learns of a finding.
template <class... Parts>
[[noreturn]] void fail(const Parts&... parts)
{
    std::cerr.precision(17);
    std::cerr << "FINDING: ";
    (std::cerr << ... << parts) << std::endl;
    std::abort();
}

template <class... Parts>
void require(bool holds, const Parts&... parts)
{
    if (!holds) {
        fail(parts...);
    }
}

/// The same bits; all NaN count as one.
inline bool same(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

template <class... Parts>
void requireSame(double actual, double expected, const Parts&... parts)
{
    require(same(actual, expected), parts..., ": ", actual, " instead of ", expected);
}

/// The values that the bytes of an input stand for, one after the other. Where they end, zeros follow.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool isAtEnd() const { return next_ == end_; }

    unsigned byte() { return isAtEnd() ? 0u : *next_++; }

    /// 0 ... size - 1, for a size of up to 256.
    unsigned below(unsigned size) { return byte() % size; }

    bool flag() { return (byte() & 1u) != 0; }

    /// Mostly small and sometimes negative, at times one of the ends of its range.
    long label()
    {
        const unsigned value = byte();
        if (value < 240) {
            return static_cast<long>(value % 8);
        }
        constexpr long others[] = {-1, -2, 2147483647L, -2147483647L - 1, 40, 100, 1000000, -1};
        return others[value % 8];
    }

    /// Coarse values, so that ties are common; special values; and any bits at all.
    double number()
    {
        const unsigned kind = byte();
        if (kind < 128) {
            return (static_cast<double>(kind) - 48.0) / 8.0;
        }
        if (kind < 176) {
            return special(kind);
        }
        if (kind < 208) {
            return static_cast<double>(bits(2)) / 65536.0;
        }
        if (kind < 232) {
            const auto mantissa = static_cast<double>(bits(2)) - 32768.0;
            return std::ldexp(mantissa, static_cast<int>(byte()) * 9 - 1152);
        }
        const std::uint64_t pattern = bits(8);
        double value = 0.0;
        std::memcpy(&value, &pattern, sizeof value);
        return value;
    }

    /// Mostly in [0, 1].
    double share()
    {
        const unsigned kind = byte();
        return kind < 224 ? static_cast<double>(kind % 17) / 16.0 : number();
    }

    std::vector<double> numbers(std::size_t size)
    {
        std::vector<double> values(size);
        for (double& value : values) {
            value = number();
        }
        return values;
    }

private:
    static double special(unsigned index)
    {
        using Limits = std::numeric_limits<double>;
        const double values[] = {Limits::quiet_NaN(),
                                 Limits::infinity(),
                                 -Limits::infinity(),
                                 Limits::denorm_min(),
                                 -Limits::denorm_min(),
                                 Limits::min(),
                                 Limits::max(),
                                 Limits::lowest(),
                                 -0.0,
                                 1.0 + Limits::epsilon(),
                                 1e-9,
                                 1e9,
                                 1e155,
                                 1e-155,
                                 -1e300,
                                 16777217.0};
        return values[index % (sizeof values / sizeof *values)];
    }

    std::uint64_t bits(int bytes)
    {
        std::uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            value = value << 8 | byte();
        }
        return value;
    }

    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

/// How a call ended: it returned, or threw an exception of this class with this message.
struct Outcome {
    std::string thrown;
    std::string message;

    bool returned() const { return thrown.empty(); }
    bool operator==(const Outcome& other) const { return thrown == other.thrown && message == other.message; }
};

inline std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    return outcome.returned() ? out << "(returned)" : out << outcome.thrown << " \"" << outcome.message << '"';
}

/// Any other exception than the library's own ends the program, and so is a finding.
template <class Call>
Outcome outcomeOf(Call call)
{
    try {
        call();
        return {};
    } catch (const ktException& error) {
        return {typeid(error).name(), error.message()};
    }
}

/// The outcome of a call that throws this.
template <class Error>
Outcome refusal(const Error& error)
{
    return {typeid(Error).name(), error.message()};
}

inline Outcome badParams(const std::string& message)
{
    return refusal(ktClassifierDefs::BadParams(message));
}

inline void requireOutcome(const Outcome& actual, const Outcome& expected, const char* what)
{
    require(actual == expected, what, ": ", actual, " instead of ", expected);
}

/// The whole archive of a value.
template <class T>
std::string stored(const T& value)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    archive || const_cast<T&>(value);
    return out.str();
}

/// Loads over a value; all bytes must be taken.
template <class T>
void loadInto(T& value, const std::string& bytes)
{
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    archive || value;
    require(in.rdbuf()->in_avail() == 0, "loading left bytes behind");
}

/// Storing, loading and storing again gives the bytes of before. Returns the loaded value.
template <class T>
T storedAndLoaded(const T& value)
{
    const std::string bytes = stored(value);
    T loaded{};
    loadInto(loaded, bytes);
    require(stored(loaded) == bytes, "a loaded value is stored to other bytes");
    return loaded;
}

/// Bounds the relative error of `operations` roundings one after the other. See: N. J. Higham, "Accuracy and Stability of
/// Numerical Algorithms", 2002, on the constant gamma.
inline long double gammaOf(double operations)
{
    const long double u = 0x1p-53L * static_cast<long double>(operations);
    return u / (1.0L - u);
}

}  // namespace fuzz
