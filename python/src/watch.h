#pragma once

#include <nanobind/nanobind.h>

#include <chrono>
#include <cstddef>

namespace nb = nanobind;

/// Looks up from long work every now and then: at signals, so that Ctrl-C ends it, and to tell how far it is. The library's own
/// attention check would cost a search among neighbours most of its speed, and is one for all threads.
class Watch {
public:
    /// Work of so many rows. `progress` is None or a function of two numbers, the rows done and all of them.
    Watch(nb::handle progress, std::size_t all);

    /// Looks up if the last time was some milliseconds ago. For the thread that made this, without the interpreter lock.
    /// Throws: nb::python_error, KeyboardInterrupt or what `progress` raises.
    void look(std::size_t done)
    {
        if (isUsed_ && std::chrono::steady_clock::now() >= next_) {
            lookUp(done);
        }
    }
    /// Says that all is done.
    void finish();

private:
    void lookUp(std::size_t done);

    nb::object progress_;
    std::size_t all_;
    bool isUsed_;
    std::chrono::steady_clock::time_point next_;
};
