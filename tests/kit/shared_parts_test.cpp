// Which parts of some work are given out, and what is thrown when several of them fail.

#include "kit_kit.h"

#include "shared_parts.h"

namespace {

using namespace kt_test;

TEST(SharedParts, GivesOutEachPartOnceInAscendingOrder)
{
    kt_SharedParts parts(5);
    std::vector<std::pair<std::size_t, std::size_t>> taken;
    std::size_t first = 0;
    while (const std::size_t count = parts.take(2, first)) {
        taken.emplace_back(first, count);
    }
    EXPECT_EQ(taken, (std::vector<std::pair<std::size_t, std::size_t>>{{0, 2}, {2, 2}, {4, 1}}));
}

TEST(SharedParts, GivesOutNoneOnceOneHasFailed)
{
    kt_SharedParts parts(5);
    std::size_t first = 0;
    EXPECT_EQ(parts.take(1, first), 1u);
    parts.attempt(first, [] { throw ktClassifierDefs::BadParams("failed"); });
    EXPECT_EQ(parts.take(1, first), 0u);
}

TEST(SharedParts, ThrowWhatTheFirstPartThatFailedHasThrown)
{
    kt_SharedParts parts(5);
    const auto nothing = [](std::size_t) {};
    const auto fail = [&parts](std::size_t part, const char* text) {
        parts.attempt(part, [text] { throw ktClassifierDefs::BadParams(text); });
    };
    fail(2, "the third");
    fail(3, "the fourth");
    expectThrows<ktClassifierDefs::BadParams>("the third", [&] { parts.doOnThreads(1, nothing); });
    fail(1, "the second");
    expectThrows<ktClassifierDefs::BadParams>("the second", [&] { parts.doOnThreads(1, nothing); });
}

TEST(SharedParts, ThatAllSucceedThrowNothing)
{
    kt_SharedParts parts(3);
    std::atomic<long> sum{0};
    parts.doOnThreads(3, [&](std::size_t) {
        for (std::size_t first = 0; parts.take(1, first) != 0;) {
            parts.attempt(first, [&] { sum += static_cast<long>(first) + 1; });
        }
    });
    EXPECT_EQ(sum, 6);
}

}  // namespace
