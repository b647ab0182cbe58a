// A process that lives long: cycles of train, run, store, load and destroy, with each technique in turn. The memory that the
// process holds must not grow.
//
//     long_life [CYCLES [BYTES]]        100,000 unless given
//
// With BYTES every cycle loses that much memory on purpose, which shows that the check can fail.
//
// The first tenth of the cycles warms up allocator, stream and library. From there on the resident size may grow by 256 KiB
// in all, however many cycles follow. That is room for what the system itself moves in and out; three bytes lost in each of
// 100,000 cycles exceed it.

#include <clastool/clastool.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#if defined(__unix__)
#include <unistd.h>
#endif

// A sanitizer keeps freed memory back to find uses of it, so there the size says nothing; it finds leaks by itself.
#if defined(__SANITIZE_ADDRESS__)
#define KT_SIZE_SAYS_NOTHING 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KT_SIZE_SAYS_NOTHING 1
#endif
#endif
#if !defined(KT_SIZE_SAYS_NOTHING)
#define KT_SIZE_SAYS_NOTHING 0
#endif

namespace {

constexpr long mostGrowth = 256 * 1024;

/// In bytes; 0 where the system does not tell.
long residentSize()
{
#if defined(__linux__)
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
#else
    return 0;
#endif
}

ktClassifierDataProviderMemory trainingSet(long cycle)
{
    ktClassifierDataProviderMemory data;
    data.setName("training set of cycle " + std::to_string(cycle));
    for (long i = 0; i < 8; ++i) {
        const auto x = static_cast<double>((i * 5 + cycle) % 8);
        data.addData(new ktFeaturePattern({x, x * x - static_cast<double>(i), 4.0}, {}), i % 2);
    }
    return data;
}

void train(ktClassifierTool& tool, long cycle)
{
    if (cycle % 3 == 0) {
        ktClassifierDistributionTypes types;
        types.setDependent(0, {0, 1});
        types.distributionTypeOverride(1, 0, ktClassifierDistributionTypes::eBinomial);
        tool.train(trainingSet(cycle),
                   ktClassifierTrainParamsBayesian(types, ktClassifierFrequencies(), ktClassifierCosts(),
                                                   ktFeaturePattern({10.0, 1.0, 1.0}, {})));
    } else if (cycle % 3 == 1) {
        tool.train(trainingSet(cycle), ktClassifierTrainParamsKNN(3));
    } else {
        const auto leaf = [](long label) {
            return ktDecisionTreeLeaf(ktClassifierResult({{label, 1.0, 1.0, 0.0}}, 0.0));
        };
        const ktDecisionTreeNode lower(ktValidityPredicate({cycle % 3}), leaf(1), leaf(2));
        tool.train(ktDecisionTreeNode(ktComparisonPredicate(0, 1), lower, lower));
    }
}

/// Whether the tool, the same after its archive, gives the same answer.
bool live(long cycle)
{
    const ktFeaturePattern query({static_cast<double>(cycle % 7), 1.0, 4.0}, {});
    ktClassifierTool tool;
    train(tool, cycle);
    std::stringstream stream;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        archive || tool;
    }
    ktClassifierTool loaded;
    {
        ktArchive archive(static_cast<std::istream&>(stream));
        archive || loaded;
    }
    if (cycle % 3 == 1) {
        loaded.retrain(*loaded.trainParams());
    }
    ktClassifierResult result;
    ktClassifierResult resultOfLoaded;
    tool.run(query, result);
    loaded.run(query, resultOfLoaded);
    return loaded == tool && result == resultOfLoaded;
}

/// Runs the cycles from `begin` to `end`, and loses `bytes` in each.
bool liveThrough(long begin, long end, std::size_t bytes)
{
    for (long cycle = begin; cycle < end; ++cycle) {
        // Written to, so that the pages become resident.
        if (bytes > 0) {
            std::memset(::operator new(bytes), 1, bytes);
        }
        if (!live(cycle)) {
            std::cerr << "cycle " << cycle << ": a tool is not the same after its archive\n";
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    const long cycles = argc > 1 ? std::atol(argv[1]) : 100000;
    const long lost = argc > 2 ? std::atol(argv[2]) : 0;
    if (cycles < 100 || lost < 0) {
        std::cerr << "usage: long_life [CYCLES [BYTES]], at least 100 cycles\n";
        return 2;
    }
    const auto bytes = static_cast<std::size_t>(lost);
    if (!liveThrough(0, cycles / 10, bytes)) {
        return 1;
    }
    const long warm = residentSize();
    if (!liveThrough(cycles / 10, cycles, bytes)) {
        return 1;
    }
    const long last = residentSize();
    std::cout << cycles << " cycles; resident size " << warm / 1024 << " KiB after a tenth of them, " << last / 1024
              << " KiB at the end\n";
    if (!KT_SIZE_SAYS_NOTHING && last - warm > mostGrowth) {
        std::cerr << "the resident size grew by " << last - warm << " bytes\n";
        return 1;
    }
    return 0;
}
