#pragma once

#include <cstddef>

/// A data provider that derives from this class too may end a training also when it has given all its patterns: nearest neighbours
/// then make a compact copy of them, which takes about as long as taking them.
class kt_TrainingWatch {
public:
    /// Called on the thread that trains. False gives up the copy: the training ends soon, with a classifier that answers the same
    /// without one.
    virtual bool goesOn() noexcept = 0;

protected:
    ~kt_TrainingWatch() = default;
};

/// Counts the steps of a work, and asks the watch, which may be null, each time that so many were made.
class kt_WatchedSteps {
public:
    /// Thrown when the watch does not go on.
    struct GivenUp {};

    /// A step is what is done with one row: less than a microsecond for some measurements.
    static constexpr std::size_t between = 4096;

    explicit kt_WatchedSteps(kt_TrainingWatch* watch) : watch_(watch) {}

    /// To be called for each step. Throws: GivenUp.
    void count()
    {
        if (++numSteps_ == between) {
            numSteps_ = 0;
            if (watch_ != nullptr && !watch_->goesOn()) {
                throw GivenUp();
            }
        }
    }

private:
    kt_TrainingWatch* watch_;
    std::size_t numSteps_ = 0;
};
