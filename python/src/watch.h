#pragma once

#include <nanobind/nanobind.h>

#include <chrono>
#include <cstddef>

namespace nb = nanobind;

/// Looks up from long work every few milliseconds: handles signals, so that Ctrl-C ends the work, and reports progress. It does not use
/// the library's attention check. That one would cost searches among neighbours most of their speed, and is one for all threads.
class Watch {
public:
    /// `all` is the number of rows. `progress` is None or a function of two numbers: the rows done and all rows.
    Watch(nb::handle progress, std::size_t all);

    /// Looks up if the last time was some milliseconds ago.
    /// Requires: the thread that made this object calls it, without the interpreter lock.
    /// Throws: nb::python_error, KeyboardInterrupt or what `progress` raises.
    void look(std::size_t done)
    {
        if (isUsed_ && std::chrono::steady_clock::now() >= next_) {
            lookUp(done);
        }
    }
    /// Reports that all rows are done.
    void finish();

private:
    void lookUp(std::size_t done);

    nb::object progress_;
    std::size_t all_;
    bool isUsed_;
    std::chrono::steady_clock::time_point next_;
};
