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

}  // namespace examples
