// Shows how far a cross-validation is, which may take a while, and ends it by Ctrl-C or after a time limit: by the attention
// check, which the library asks now and then whether to go on. Takes any file whose first column names the categories.

#include "common/errors.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>

namespace {

// A signal handler may touch little else; on Windows it also runs on a thread of its own.
std::atomic<bool> isInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void onInterrupt(int)
{
    isInterrupted = true;
    std::signal(SIGINT, SIG_DFL);  // a second Ctrl-C ends the program at once
}

/// Watches over long work from its construction to its destruction.
class Watch {
public:
    /// What the library throws when the check says stop: a ktFailure with this code. Bit 31 says failure; the group, above
    /// the low 5 bits, is one that nobody else uses.
    static constexpr long stopped = static_cast<long>(0x80000000u | (0x1001u << 5) | 1u);

    explicit Watch(double seconds) : end_(Clock::now() + std::chrono::duration<double>(seconds))
    {
        std::signal(SIGINT, onInterrupt);
        kfSetAttentionHandler(&Watch::check, this);
    }
    ~Watch()
    {
        kfSetAttentionHandler(nullptr, nullptr);
        std::signal(SIGINT, SIG_DFL);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    /// Polls come by the million a second, so most of them do not read the clock.
    static long check(void* context)
    {
        auto& watch = *static_cast<Watch*>(context);
        const bool isLate = ++watch.polls_ % 4096 == 0 && Clock::now() >= watch.end_;
        return isInterrupted || isLate ? stopped : 0;
    }

    const std::chrono::time_point<Clock, std::chrono::duration<double>> end_;
    std::atomic<unsigned> polls_{0};  // the library asks on each thread that works
};

int crossValidate(const std::string& path, long numFolds, double seconds)
{
    const ktKit::Table table = ktKit::readCsv(path);
    const std::vector<long> folds = ktKit::stratifiedFolds(ktKit::labels(table.data), numFolds, 1);
    ktKit::ConfusionMatrix matrix(table.labelNames);
    std::cout << numFolds << " folds: " << std::flush;
    try {
        const Watch watch(seconds);
        const auto progress = [](long, long) { std::cout << "#" << std::flush; };
        matrix += ktKit::crossValidate(table.data, ktClassifierTrainParamsKNN(5), folds, 2, progress).total;
    } catch (const ktFailure& failure) {
        if (failure.code() != Watch::stopped) {
            throw;
        }
        // Nothing is half done: the work can begin anew at once.
        std::cout << "\nStopped by " << (isInterrupted ? "Ctrl-C" : "the time limit") << ".\n";
        return isInterrupted ? 130 : 0;  // the status by which shells know that Ctrl-C ended a program
    }
    std::cout << "\n" << matrix;
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 4 ? crossValidate(argv[1], std::strtol(argv[2], nullptr, 10), std::strtod(argv[3], nullptr))
                         : throw std::runtime_error("usage: watch_and_abort CSV FOLDS SECONDS");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
