#pragma once

// Training sets of three measurements that bring densities to their limits, and patterns to ask them about.

#include "bayes_kit.h"

#include "support/normal_reference.h"

namespace bayes {

using kt_test::Rows;

inline constexpr double denormal = 4.9406564584124654e-324;

struct DegenerateSet {
    const char* label;
    Rows rows;
    /// Whether no measurement is constant at zero, and nothing overflows or underflows.
    bool scales;
};

inline Rows shifted(Rows rows, double offset)
{
    for (std::vector<double>& row : rows) {
        for (double& value : row) {
            value += offset;
        }
    }
    return rows;
}

inline const std::vector<DegenerateSet>& degenerateSets()
{
    static const std::vector<DegenerateSet> sets = {
        {"one sample", {{1.0, 2.0, 3.0}}, true},
        {"two equal samples", {{1.0, 2.0, 3.0}, {1.0, 2.0, 3.0}}, true},
        {"two samples", {{1.0, 2.0, 3.0}, {1.5, 1.0, 7.0}}, true},
        {"a constant measurement",
         {{1.0, 5.0, 3.0}, {2.0, 5.0, 2.0}, {4.0, 5.0, 9.0}, {3.0, 5.0, 1.0}, {0.5, 5.0, 4.0}},
         true},
        {"a measurement constant at zero", {{1.0, 0.0, 3.0}, {2.0, 0.0, 2.0}, {4.0, 0.0, 9.0}, {3.0, 0.0, 1.0}}, false},
        {"a measurement that is twice another",
         {{1.0, 2.0, 3.0}, {2.0, 4.0, 2.0}, {4.0, 8.0, 9.0}, {3.0, 6.0, 1.0}, {9.0, 18.0, 4.0}},
         true},
        {"all on one line", {{1.0, 2.0, -3.0}, {2.0, 4.0, -6.0}, {4.0, 8.0, -12.0}, {3.0, 6.0, -9.0}}, true},
        {"fewer samples than measurements", {{1.0, 2.0, 3.0}, {2.0, 7.0, 2.0}, {4.0, 1.0, 9.0}}, true},
        {"far from zero", shifted(kt_test::TrainingSet{20, 3, 0.0, 4.0, 31}.rows(), 1e9), true},
        {"denormal values",
         {{denormal, 2 * denormal, 0.0}, {3 * denormal, denormal, denormal}, {0.0, 5 * denormal, denormal}},
         false},
        {"huge values", {{1e300, -1e300, 2e300}, {-1e300, 1.5e300, 1e299}, {5e300, 1e300, -1e300}}, false},
        {"huge equal values", {{1e300, 1e300, 1e300}, {1e300, 1e300, 1e300}}, false},
        {"values at the end of the range", {{1.7e308, -1.7e308, 0.0}, {-1.7e308, 1.7e308, 1.0}}, false},
    };
    return sets;
}

/// Patterns near the sets, far from them, and at the ends of the range.
inline const Rows& queries()
{
    static const Rows made = {{1.0, 2.0, 3.0},       {0.0, 0.0, 0.0}, {2.0, 4.0, 5.0},       {2.0, 4.5, 5.0},
                              {-7.0, 100.0, 1e6},    {1e9, 1e9, 1e9}, {1e300, 1e300, 1e300}, {-1e308, 1e308, 1e308},
                              {denormal, 0.0, 1e-9}, {1.0, 5.0, 3.0}, {1.0, 5.0000001, 3.0}};
    return made;
}

inline const std::vector<Indices>& missing()
{
    static const std::vector<Indices> lists = {{}, {0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
    return lists;
}

inline std::vector<kt_test::Labelled> labelled(const Rows& rows, long label)
{
    std::vector<kt_test::Labelled> list;
    for (const std::vector<double>& row : rows) {
        list.push_back({row, label});
    }
    return list;
}

/// All three measurements in one group, or each alone.
inline Params grouped(bool jointly)
{
    Types types;
    for (long label = 0; jointly && label < 3; ++label) {
        types.setDependent(label, {0, 1, 2});
    }
    return {types};
}

}  // namespace bayes
