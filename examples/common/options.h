#pragma once

#include <clastool/kit.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace examples {

/// The categories in a table, ascending. A missing label is no category.
inline std::set<long> categoriesOf(const ktKit::Table& table)
{
    const std::vector<long> labels = ktKit::labels(table.data);
    std::set<long> found(labels.begin(), labels.end());
    found.erase(-1);
    return found;
}

/// What a label is called in its file: a text, or its number.
inline std::string nameOf(const ktKit::Table& table, long label)
{
    return table.labelNames.empty() ? std::to_string(label) : table.labelNames.at(static_cast<std::size_t>(label));
}

/// The label that is called so.
inline long labelOf(const ktKit::Table& table, const std::string& name)
{
    for (const long label : categoriesOf(table)) {
        if (nameOf(table, label) == name) {
            return label;
        }
    }
    throw std::runtime_error("\"" + name + "\" is not the name of a category");
}

/// The number of the measurement that is called so.
inline long columnOf(const ktKit::Table& table, const std::string& name)
{
    const auto place = std::find(table.columns.begin(), table.columns.end(), name);
    if (place == table.columns.end()) {
        throw std::runtime_error("\"" + name + "\" is not the name of a measurement");
    }
    return static_cast<long>(place - table.columns.begin());
}

/// Missing a pattern of this category costs so much, every other mistake 1.
inline ktClassifierCosts costsOf(const ktKit::Table& table, long label, double cost)
{
    ktClassifierCosts costs(1.0);
    for (const long other : categoriesOf(table)) {
        if (other != label) {
            costs.misclassificationCostOverride(label, other, cost);
        }
    }
    return costs;
}

/// The same from "NAME=COST".
inline ktClassifierCosts costsOf(const ktKit::Table& table, const std::string& option)
{
    const std::size_t sign = std::min(option.rfind('='), option.size());
    const std::string number = option.substr(std::min(sign + 1, option.size()));
    char* end = nullptr;
    const double cost = std::strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0') {
        throw std::runtime_error("\"" + option + "\" is not the name of a category, \"=\" and a cost");
    }
    return costsOf(table, labelOf(table, option.substr(0, sign)), cost);
}

/// A leaf that answers with the shares of the categories among the samples that reached it, given how many these are.
inline ktDecisionTreeLeaf leafOf(const std::map<long, double>& counts, const ktClassifierCosts& costs)
{
    double all = 0.0;
    for (const auto& [label, count] : counts) {
        all += count;
    }
    if (!(all > 0.0)) {
        throw std::runtime_error("a leaf that no sample reached knows no answer");
    }
    std::vector<ktClassifierCategoryResult> shares;
    for (const auto& [label, count] : counts) {
        shares.emplace_back(label, count / all, 0.0, 0.0);
    }
    return ktClassifierResult(shares, ktClassifierFrequencies(), costs, 0.0);
}

/// A third of each category is for the test.
inline ktKit::Split thirds(const ktClassifierDataProvider& data)
{
    return ktKit::split(data, ktKit::stratifiedFolds(ktKit::labels(data), 3, 1), 0);
}

/// Counts decisions on the patterns of the test. Of a pattern without a label nobody knows whether the decision is right.
inline ktKit::ConfusionMatrix counted(const ktClassifierDataProvider& test, const ktKit::Decide& decide,
                                      const std::vector<std::string>& names)
{
    ktKit::ConfusionMatrix matrix(names);
    const ktKit::Patterns patterns = ktKit::patterns(test);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        const long label = test.categoryLabel(static_cast<long>(i));
        if (label >= 0) {
            matrix.add(label, decide(*patterns[i]));
        }
    }
    return matrix;
}

/// Counts the decisions of these results, one for each pattern of the test.
inline ktKit::ConfusionMatrix counted(const ktClassifierDataProvider& test,
                                      const std::vector<ktClassifierResult>& results,
                                      const std::vector<std::string>& names)
{
    ktKit::ConfusionMatrix matrix(names);
    for (std::size_t i = 0; i < results.size(); ++i) {
        const long label = test.categoryLabel(static_cast<long>(i));
        if (label >= 0) {
            matrix.add(label, ktKit::decision(results[i]).categoryLabel());
        }
    }
    return matrix;
}

}  // namespace examples
