// A program of its own with one test, so that eight threads are the first to ask the registry for classes, by name and by
// type, and the failure converter for an exception. The archives come from files for the same reason.

#include "support/golden.h"
#include "threads/each_thread.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

/// Loads the two tools that are stored there, and stores them again.
std::string storedAgain(const std::string& bytes);

bool isConverted();

TEST(FirstUse, OfRegistryAndConverterByEightThreadsAtOnce)
{
    const std::string neighbors = kt_test::goldenBytes("ktClassifierTool");
    const std::string tree = kt_test::goldenBytes("ktClassifierToolWithTree");
    std::atomic<int> right{0};
    threads::onEachThread([&](int thread) {
        const bool convertsFirst = thread % 2 == 0;
        const std::string& bytes = thread % 4 < 2 ? neighbors : tree;
        bool isRight = !convertsFirst || isConverted();
        isRight = storedAgain(bytes) == bytes && isRight;
        right += isRight && isConverted() ? 1 : 0;
    });
    EXPECT_EQ(right, threads::numThreads);
}

std::string storedAgain(const std::string& bytes)
{
    std::istringstream in(bytes);
    ktArchive from(static_cast<std::istream&>(in));
    std::ostringstream out;
    ktArchive to(static_cast<std::ostream&>(out));
    for (int i = 0; i < 2; ++i) {
        ktClassifierTool tool;
        from || tool;
        to || tool;
    }
    return out.str();
}

bool isConverted()
{
    try {
        kfThrowExceptionOnFailure(static_cast<long>(0x80000B61UL));
    } catch (const ktClassifierDefs::InsufficientTrainData& error) {
        return error.message() == "No valid data has been used to train the distribution";
    }
    return false;
}

}  // namespace
