#pragma once

#include "battery.h"

#include <clastool/clastool.h>

#include <limits>
#include <sstream>
#include <type_traits>
#include <typeinfo>
#include <utility>

// What the files of the battery share: operations that may fail, storing and loading again, comparing, and the patterns and training sets
// that loaded values are used with.

namespace kt_test::battery {

using Provider = ktClassifierDataProviderMemory;
using Labels = std::vector<long>;
using Entries = std::vector<ktClassifierCategoryResult>;

inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Runs one operation; a ktException is an answer too. Returns whether there was none.
template <class Operation>
bool attempt(Operation operation)
{
    try {
        operation();
        return true;
    } catch (const ktException&) {
        return false;
    }
}

inline void promise(bool kept, const char* what)
{
    if (!kept) {
        throw BrokenPromise(what);
    }
}

// Storing and loading.

template <class T>
std::string bytesOf(T& value)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    archive || value;
    return out.str();
}

template <class T>
void loadFrom(T& value, const std::string& bytes)
{
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    archive || value;
}

/// Runs a storing operation. A value may hold what cannot be stored (a null scoring function), and one more record around
/// a chain as deep as an archive may be is too deep. Nothing else is an excuse.
template <class Operation>
bool stores(Operation operation)
{
    try {
        operation();
        return true;
    } catch (const ktBadPointer&) {
        return false;
    } catch (const ktArchive::TooDeep&) {
        return false;
    }
}

/// An object of any class, and its owner.
class AnyObject {
public:
    AnyObject() = default;
    AnyObject(const AnyObject&) = delete;
    AnyObject& operator=(const AnyObject&) = delete;
    ~AnyObject() { take(nullptr); }

    ktPersistent* get() const { return object_; }

    void load(ktArchive& archive)
    {
        take(nullptr);
        const ktArchive::Pass pass(archive);
        ktPersistent* loaded = nullptr;
        ktPersistent::serializePointer(archive, nullptr, loaded);
        take(loaded);
    }

    void take(ktPersistent* object)
    {
        if (count_.isNull()) {
            delete object_;
        }
        object_ = object;
        count_ = dynamic_cast<ktRepBase*>(object);
    }

private:
    ktPersistent* object_ = nullptr;
    // Null for an object without a count.
    ktPtrHandle<ktRepBase> count_;
};

inline std::string recordOf(ktPersistent& object)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    ktPersistent* nothing = nullptr;
    ktPersistent::serializePointer(archive, &object, nothing);
    return out.str();
}

/// Stored by pointer, loaded and stored again: the same bytes, and the same class.
inline void storeObjectAgain(ktPersistent& object)
{
    std::string bytes;
    if (!stores([&] { bytes = recordOf(object); })) {
        return;
    }
    std::istringstream in(bytes);
    ktArchive archive(static_cast<std::istream&>(in));
    AnyObject again;
    again.load(archive);
    promise(again.get() != nullptr, "an object stored by pointer is loaded");
    const ktPersistent& loaded = *again.get();
    promise(typeid(loaded) == typeid(object), "an object is restored with its class");
    promise(recordOf(*again.get()) == bytes, "an object stored again gives the same bytes");
}

template <class T>
T fresh()
{
    if constexpr (std::is_same_v<T, ktPtrHandle<ktClsFtSc>>) {
        // A null one cannot be stored.
        return new ktClassifierFeatureScoreIgnore;
    } else if constexpr (std::is_same_v<T, ktClassifierFeatureVector>) {
        return ktClassifierFeatureVector(std::vector<double>());
    } else {
        return T();
    }
}

/// Stored in place, loaded and stored again: the same bytes.
template <class T>
void storeValueAgain(T& value)
{
    std::string bytes;
    if (!stores([&] { bytes = bytesOf(value); })) {
        return;
    }
    T again = fresh<T>();
    loadFrom(again, bytes);
    promise(bytesOf(again) == bytes, "a value stored again gives the same bytes");
}

// Comparing and copying.

template <class T, class = void>
struct IsComparable : std::false_type {
};
template <class T>
struct IsComparable<T, std::void_t<decltype(std::declval<const T&>() == std::declval<const T&>())>> : std::true_type {
};

template <class T>
void compare(const T& a, const T& b)
{
    if constexpr (IsComparable<T>::value) {
        bool there = false;
        bool back = false;
        const bool answered = attempt([&] { there = a == b; });
        promise(attempt([&] { back = b == a; }) == answered && there == back, "equality goes both ways");
    }
}

template <class T>
void copyAndCompare(T& value)
{
    T copy(value);
    compare(copy, value);
    copy = fresh<T>();
    copy = value;
    compare(copy, value);
    compare(copy, fresh<T>());
    const T& self = copy;
    copy = self;
    storeValueAgain(copy);
    copy = fresh<T>();
}

// What values are used with.

/// Patterns of many sizes, with missing measurements and values that are not finite.
const std::vector<ktFeaturePattern>& patterns();
/// Training sets of none, one, two and three measurements.
const std::vector<Provider>& providers();

inline constexpr long someLabels[] = {0, 1, 2, 7, -1, 2147483647};

void useResult(const ktClassifierResult& result);
/// Trains with parameters and runs; what was trained is stored and loaded.
void trainTools(const ktClassifierDataProvider& provider, const ktClassifierTrainParams& params);
/// Trains a tool with the tree and runs it.
void useTree(const ktDecisionTree& tree);

template <class Runs>
void runOn(const std::vector<ktFeaturePattern>& all, const Runs& runs)
{
    for (const ktFeaturePattern& pattern : all) {
        const ktClassifierResult untouched({ktClassifierCategoryResult(77, 0.25, 1.0, 3.5)}, -12.5);
        ktClassifierResult result(untouched);
        if (attempt([&] { runs.run(pattern, result); })) {
            useResult(result);
        } else {
            promise(result == untouched, "a run that throws leaves the result alone");
        }
    }
}

template <class Runs>
void runOnEveryPattern(const Runs& runs)
{
    runOn(patterns(), runs);
}

/// After a change that brings no new kind of value into play.
template <class Runs>
void runOnSomePatterns(const Runs& runs)
{
    static const std::vector<ktFeaturePattern> some = {{{0.5}, {}}, {{0.5, 0.25}, {}}, {{0.5, nan, 2.0}, {1}}};
    runOn(some, runs);
}

// What each class is used for. A derived class is used as its base.

void useAs(ktClassifierDefs::Errors& error);
void useAs(ktFeaturePattern& pattern);
void useAs(Provider& provider);
void useAs(ktClassifierTrainParams& params);
void useAs(ktPatternDistanceMetric& metric);
void useAs(ktPredicateFunction& predicate);
void useAs(ktDecisionTree& tree);
void useAs(kt_ProbabilityDensityFunction& density);
void useAs(kt_CategoryModel& model);
void useAs(kt_Classifier& classifier);
void useAs(ktClassifierTool& tool);
void useAs(ktClassifierCosts& costs);
void useAs(ktClassifierFrequencies& frequencies);
void useAs(ktClassifierCategoryResult& entry);
void useAs(ktClassifierResult& result);
void useAs(ktClassifierDistributionTypes& types);
void useAs(ktPtrHandle<ktClsFtSc>& score);
void useAs(ktClassifierFeatureScoreOneSided& score);
void useAs(ktClassifierFeatureScoreTwoSided& score);
void useAs(ktClassifierFeatureVector& values);
void useAs(ktClassifierRule& rule);
void useAs(ktClassifierRuleTable& table);
void useAs(ktNMMatrix& matrix);

/// Containers have no operations of their own.
template <class T>
std::enable_if_t<!std::is_base_of_v<ktPersistent, T>> useAs(std::vector<T>&)
{
}

}  // namespace kt_test::battery
