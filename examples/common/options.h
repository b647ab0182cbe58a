#pragma once

#include <clastool/kit.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace examples {

/// Costs from "NAME=COST": calling a pattern of that category anything else costs so much, every other mistake 1.
inline ktClassifierCosts costsOf(const std::string& option, const std::vector<std::string>& names)
{
    const std::size_t sign = std::min(option.find('='), option.size());
    const auto named = std::find(names.begin(), names.end(), option.substr(0, sign));
    if (named == names.end() || sign == option.size()) {
        throw std::runtime_error("\"" + option + "\" is not the name of a category, \"=\" and a cost");
    }
    ktClassifierCosts costs(1.0);
    const long label = static_cast<long>(named - names.begin());
    for (long other = 0; other < static_cast<long>(names.size()); ++other) {
        if (other != label) {
            costs.misclassificationCostOverride(label, other, std::strtod(option.c_str() + sign + 1, nullptr));
        }
    }
    return costs;
}

/// Where the name stands among these.
inline long indexOf(const std::vector<std::string>& names, const std::string& name)
{
    const auto place = std::find(names.begin(), names.end(), name);
    if (place == names.end()) {
        throw std::runtime_error("\"" + name + "\" is not among the names in the file");
    }
    return static_cast<long>(place - names.begin());
}

/// Every third pattern is for the test.
inline ktKit::Split thirds(const ktClassifierDataProvider& data)
{
    std::vector<long> folds;
    for (long i = 0; i < data.numPatterns(); ++i) {
        folds.push_back(i % 3);
    }
    return ktKit::split(data, folds, 2);
}

/// Counts the decisions of these results, one for each pattern of the test.
inline ktKit::ConfusionMatrix counted(const ktClassifierDataProvider& test,
                                      const std::vector<ktClassifierResult>& results,
                                      const std::vector<std::string>& names)
{
    ktKit::ConfusionMatrix matrix(names);
    for (std::size_t i = 0; i < results.size(); ++i) {
        matrix.add(test.categoryLabel(static_cast<long>(i)), ktKit::decision(results[i]).categoryLabel());
    }
    return matrix;
}

}  // namespace examples
