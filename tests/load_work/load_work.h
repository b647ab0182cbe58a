#pragma once

#include <clastool/clastool.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

// Kinds of work whose instructions .ci/load-work counts.

namespace load_work {

using Load = std::function<void(ktArchive&)>;

/// Loads a value and returns the call that uses it.
using Prepare = std::function<std::function<void()>(ktArchive&)>;

/// An archive, and what is counted: loading it, or a use of what was loaded.
struct Case {
    std::string bytes;
    Load load;
    Prepare prepare;
};

inline constexpr const char* linear = "4.5";
inline constexpr const char* almostLinear = "5.5";
inline constexpr const char* pairs = "17";

struct Kind {
    std::string name;
    std::function<Case(long n)> make;
    /// How many times the work an archive of four times the parts may take; or how many times the work of which other kind of the
    /// same size. Empty for a kind that others are compared with.
    std::string most = linear;
};

/// Values of the library, archives that nobody would store, and temporaries in a pass opened by hand.
std::vector<Kind> archiveKinds();
/// Small archives whose next call could take long. The call is counted, the loading is not.
std::vector<Kind> useKinds();
/// Searches among stored patterns of which some are out of proportion, compared with searches among tame ones.
std::vector<Kind> searchKinds();

std::vector<double> someValues(long n);
/// A balanced tree of about n leaves.
ktPtrHandle<ktDecisionTree> balancedTree(long n);

template <class T>
std::string stored(const T& value)
{
    std::ostringstream out;
    ktArchive archive(out);
    T copy(value);
    archive || copy;
    return out.str();
}

/// A call that uses a loaded value.
template <class T, class Use>
Case useOf(const T& value, Use use)
{
    return {stored(value), {}, [use](ktArchive& archive) {
                const auto loaded = std::make_shared<T>();
                archive || *loaded;
                return [loaded, use] { use(*loaded); };
            }};
}

}  // namespace load_work
