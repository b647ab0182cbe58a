// Finds out how often nearest neighbours are wrong, which takes a while: the attention check shows how far the work is, and
// ends it on Ctrl-C, after a time limit or after a number of polls.

#include "common/errors.h"
#include "common/terminal.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

using namespace examples;

namespace {

// A signal handler may touch little else; on Windows it also runs on a thread of its own.
std::atomic<bool> isInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void onInterrupt(int)
{
    isInterrupted = true;
    std::signal(SIGINT, SIG_DFL);  // a second Ctrl-C ends the program at once
}

struct Limits {
    double seconds = 0.0;    // 0: no limit
    std::int64_t polls = 0;  // 0: no limit
};

/// Watches over long work on this thread from its construction to its destruction.
class Watch {
public:
    /// What the library throws when the check says stop: a ktFailure with this code. Bit 31 says failure; the group, above
    /// the low 5 bits, is one that nobody else uses.
    static constexpr long stopped = static_cast<long>(0x80000000u | (0x1001u << 5) | 1u);

    Watch(std::int64_t expectedPolls, const Limits& limits) : expected_(expectedPolls), limits_(limits)
    {
        std::signal(SIGINT, onInterrupt);
        kfSetAttentionHandler(&Watch::check, this);
    }
    ~Watch()
    {
        kfSetAttentionHandler(nullptr, nullptr);
        std::signal(SIGINT, SIG_DFL);
        if (isTerminal_) {
            show();
            std::cout << "\n";
        }
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// Why the work was ended, empty if it was not.
    const std::string& reason() const { return reason_; }

private:
    using Clock = std::chrono::steady_clock;

    static long check(void* watch) { return static_cast<Watch*>(watch)->poll(); }

    /// Polls come by the million a second, so most of them do next to nothing.
    long poll()
    {
        ++polls_;
        if (isInterrupted) {
            reason_ = "Ctrl-C";
        } else if (polls_ == limits_.polls) {
            reason_ = "the limit of " + std::to_string(limits_.polls) + " polls";
        } else if (polls_ % 4096 == 0 && limits_.seconds > 0.0 && seconds() >= limits_.seconds) {
            reason_ = "the time limit";
        }
        if (!isTerminal_) {
            printLine();
        } else if (polls_ % 4096 == 0 && seconds() >= nextShow_) {
            show();
            nextShow_ = seconds() + 0.1;
        }
        return reason_.empty() ? 0 : stopped;
    }

    double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    /// A line for every tenth of the work, without times: a log that is the same every time.
    void printLine()
    {
        if (polls_ >= nextLine_ * expected_ / 10) {
            std::cout << nextLine_++ * 10 << " % done" << std::endl;
        }
    }

    /// The bar, written over the one before.
    void show() const
    {
        const double share = std::min(1.0, static_cast<double>(polls_) / static_cast<double>(expected_));
        const double rate = static_cast<double>(polls_) / std::max(seconds(), 1e-3);
        const long left =
            static_cast<long>(static_cast<double>(expected_ - std::min(polls_, expected_)) / std::max(rate, 1.0));
        const auto numMarks = static_cast<std::size_t>(30.0 * share);
        std::ostringstream bar;
        bar << "\r[" << std::string(numMarks, '#') << std::string(30 - numMarks, ' ') << "] " << std::setw(3)
            << static_cast<int>(100.0 * share) << " %, " << std::fixed << std::setprecision(1) << rate / 1e6
            << " million polls/s, " << left / 60 << ":" << std::setw(2) << std::setfill('0') << left % 60 << " left  ";
        std::cout << bar.str() << std::flush;
    }

    const std::int64_t expected_;
    const Limits limits_;
    const bool isTerminal_ = printsToTerminal();
    const Clock::time_point start_ = Clock::now();
    std::int64_t polls_ = 0;
    long nextLine_ = 1;
    double nextShow_ = 0.1;
    std::string reason_;
};

/// Patterns of two categories that overlap, the same ones on every platform.
ktClassifierDataProviderMemory patterns(long count, unsigned long seed)
{
    ktClassifierDataProviderMemory data;
    ktRandomGaussian random(seed);
    for (long i = 0; i < count; ++i) {
        const long label = i % 2;
        std::vector<double> measurements(8);
        for (double& measurement : measurements) {
            measurement = random.next(static_cast<double>(label), 1.0);
        }
        data.addData(ktKit::pattern(measurements), label);
    }
    return data;
}

int watchAndAbort(long count, const Limits& limits)
{
    const long k = 5;
    ktClassifierTool tool;
    tool.train(patterns(count, 1), ktClassifierTrainParamsKNN(k));
    ktClassifierDataProviderMemory test = patterns(count, 2);
    std::cout << "Sorting " << count << " patterns by their " << k << " nearest neighbours among " << count
              << " others ..." << std::endl;

    long sorted = 0;
    long wrong = 0;
    std::string reason;
    {
        // A run polls once for each stored pattern, and for each category in its result, of which there are one or two.
        Watch watch(static_cast<std::int64_t>(count) * (count + 1), limits);
        try {
            for (; sorted < count; ++sorted) {
                ktClassifierResult result;
                tool.run(*test.featurePattern(sorted), result);
                wrong += ktKit::decision(result).categoryLabel() != test.categoryLabel(sorted) ? 1 : 0;
            }
        } catch (const ktFailure& failure) {
            if (failure.code() != Watch::stopped) {
                throw;
            }
        }
        reason = watch.reason();
    }
    if (!reason.empty()) {
        std::cout << "Stopped by " << reason << ".\n";
    }
    // What was done until then is good, and the tool is as it was: it may go on where it was stopped.
    std::cout << sorted << " patterns are sorted, " << wrong << " of them wrongly.\n";
    return isInterrupted ? 130 : 0;  // the status by which shells know that Ctrl-C ended a program
}

}  // namespace

int main(int argc, char** argv)
{
    long count = 20000;
    Limits limits;
    bool isUnderstood = argc % 2 == 1;
    for (int i = 1; isUnderstood && i < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--patterns") {
            count = std::strtol(argv[i + 1], nullptr, 10);
        } else if (option == "--seconds") {
            limits.seconds = std::strtod(argv[i + 1], nullptr);
        } else if (option == "--polls") {
            limits.polls = std::strtoll(argv[i + 1], nullptr, 10);
        } else {
            isUnderstood = false;
        }
    }
    if (!isUnderstood || count < 1) {
        std::cerr << "usage: watch_and_abort [--patterns NUMBER] [--seconds LIMIT] [--polls LIMIT]\n";
        return 1;
    }
    try {
        return watchAndAbort(count, limits);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
