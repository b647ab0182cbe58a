#include <clastool/clastool.h>

#include <iostream>

// [handler]
/// A failure code: bit 31, a group, and a number from 0 to 31. Without bit 31 it would stop nothing.
constexpr long failureCode(unsigned long group, unsigned long number)
{
    return static_cast<long>(0x80000000ul | group << 5 | number);
}

const long stopped = failureCode(100, 1);

struct Budget {
    long polls;
};

/// Called by the library now and then, on the thread that computes: 0 goes on, a failure code stops.
long watch(void* context)
{
    return --static_cast<Budget*>(context)->polls < 0 ? stopped : 0;
}
// [handler]

int main()
{
    ktClassifierDataProviderMemory parts;
    for (int i = 0; i < 10000; ++i) {
        parts.addData(new ktFeaturePattern({i * 0.001}, {}), i % 2);
    }
    ktClassifierTool tool;
    tool.train(parts, ktClassifierTrainParamsKNN(3));

    // [abort]
    ktClassifierResult result;
    tool.run(ktFeaturePattern({5.0}, {}), result);
    const ktClassifierResult before = result;

    Budget budget{5000};
    kfSetAttentionHandler(&watch, &budget);
    try {
        tool.run(ktFeaturePattern({7.0}, {}), result);
    } catch (const ktFailure& failure) {
        std::cout << failure.message() << "\n";
    }
    kfSetAttentionHandler(nullptr, nullptr);
    std::cout << (result == before ? "The result is untouched" : "The result has changed") << ", the tool is "
              << (tool.isTrained() ? "still trained" : "untrained") << ".\n";
    // [abort]
}
