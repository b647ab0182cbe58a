#pragma once

#include <kt/archive.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// What a program might do with a value that came from an archive of anybody's making. Needs no test framework, because fuzz
// targets run it too.

namespace kt_test {

/// A promise of the library that does not hold: nothing catches it before the test or the fuzzer does.
class BrokenPromise : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

/// A place for one value of an archive.
class Subject {
public:
    Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    virtual ~Subject() = default;

    /// Loads the value. Throws what loading throws.
    virtual void load(ktArchive& archive) = 0;
    /// The whole archive of the value; nothing if it holds what cannot be stored.
    virtual std::string bytes() = 0;
    /// The battery: compares, copies, clones, runs on patterns of right and wrong size, invalid and NaN, trains again with the
    /// value's own parameters, adds a pattern, stores, loads that, untrains. Every operation may end in a ktException.
    /// Throws: BrokenPromise; what no operation may throw.
    virtual void use() = 0;
    /// After a load that failed: the value is still used, assigned and loaded again, from an archive that begins with a good one.
    virtual void recover(const std::string& good) = 0;
};

/// A type whose values archives hold.
struct ArchivedType {
    std::string name;
    std::unique_ptr<Subject> (*make)();
};

/// Any object by pointer; every registered class in place; the value classes; handles; containers. Their order never changes,
/// because inputs in tests/fuzz/corpus/ name a type by its place: a new one stands at the end.
const std::vector<ArchivedType>& archivedTypes();

/// The type of the values in tests/golden/<name>.ktar: of that name, or any object by pointer for a registered class.
const ArchivedType& typeOfGolden(const std::string& name);

}  // namespace kt_test
