#pragma once

// What the libraries need of a compiler beyond the standard, except exports (config.h): hints and questions to the processor, and a
// vector of two doubles. Other compilers get an empty hint, the answer no, and a structure.

#if defined(__GNUC__)
#define KT_PREFETCH(address) __builtin_prefetch(address)
#define KT_LOWEST_BIT(bits) __builtin_ctzll(bits)
#else
#define KT_PREFETCH(address) static_cast<void>(address)
#define KT_LOWEST_BIT(bits) kt_lowestBit(bits)
/// The place of the lowest bit that is set; there is one.
inline int kt_lowestBit(unsigned long long bits)
{
    int place = 0;
    while ((bits >> place & 1) == 0) {
        ++place;
    }
    return place;
}
#endif

// g++ for 64-bit Windows aligns the stack to 16 bytes, but writes vectors of 32 there by instructions that take an aligned
// address (its bug 54412). Some builds of it are mended, but a program cannot tell which, so all do without.
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__)) && (!defined(_WIN64) || defined(__clang__))
#define KT_PROCESSOR_HAS_AVX2_AND_FMA \
    (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))  // not covered: tests run where both are
// A compiler that knows these vectors also knows the wider ones of the kernels.
#define KT_PROCESSOR_HAS_AVX512_VNNI (__builtin_cpu_supports("avx512vnni"))  // not covered: tests run where it is
#else
#define KT_PROCESSOR_HAS_AVX2_AND_FMA false
#define KT_PROCESSOR_HAS_AVX512_VNNI false
#endif

// The loop that follows is not unrolled.
#if defined(__GNUC__)
#define KT_NOT_UNROLLED _Pragma("GCC unroll 1")
#else
#define KT_NOT_UNROLLED
#endif

// A function that is never inlined: a throw apart from the path that most calls take.
#if defined(__GNUC__)
#define KT_NOINLINE __attribute__((noinline))
#elif defined(_MSC_VER)
#define KT_NOINLINE __declspec(noinline)
#else
#define KT_NOINLINE
#endif

#if defined(__GNUC__)
typedef double kt_DoublePair __attribute__((vector_size(16)));
#else
struct kt_DoublePair {
    double values[2];
    double operator[](int index) const { return values[index]; }
    kt_DoublePair operator*(const kt_DoublePair& other) const
    {
        return {{values[0] * other.values[0], values[1] * other.values[1]}};
    }
    kt_DoublePair operator-(const kt_DoublePair& other) const
    {
        return {{values[0] - other.values[0], values[1] - other.values[1]}};
    }
    kt_DoublePair operator/(const kt_DoublePair& other) const
    {
        return {{values[0] / other.values[0], values[1] / other.values[1]}};
    }
    kt_DoublePair operator+(const kt_DoublePair& other) const
    {
        return {{values[0] + other.values[0], values[1] + other.values[1]}};
    }
    kt_DoublePair& operator+=(const kt_DoublePair& other) { return *this = *this + other; }
};
#endif
