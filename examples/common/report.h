#pragma once

#include "cell_nuclei.h"

#include <iomanip>
#include <iostream>

namespace examples {

/// The decision of a run: the category of least expected cost stands first.
inline long decision(const ktClassifierResult& result)
{
    return result.categoryResults().at(0).categoryLabel();
}

/// Counts decisions by true category and by decision.
class ConfusionMatrix {
public:
    void add(long trueLabel, long decidedLabel) { ++counts_[trueLabel][decidedLabel]; }

    long count(long trueLabel, long decidedLabel) const { return counts_[trueLabel][decidedLabel]; }
    long mistakes() const { return counts_[malignant][benign] + counts_[benign][malignant]; }
    long total() const { return mistakes() + counts_[benign][benign] + counts_[malignant][malignant]; }

    /// What the mistakes cost by a table of costs.
    double totalCost(const ktClassifierCosts& costs) const
    {
        const double missed = static_cast<double>(counts_[malignant][benign]);
        const double falseAlarms = static_cast<double>(counts_[benign][malignant]);
        return missed * costs.misclassificationCost(malignant, benign) +
               falseAlarms * costs.misclassificationCost(benign, malignant);
    }

private:
    long counts_[2][2] = {};
};

/// Prints the matrix and the error rate.
inline void print(const ConfusionMatrix& matrix)
{
    std::cout << "                    called malignant   called benign\n";
    for (long label : {malignant, benign}) {
        std::cout << (label == malignant ? "  truly malignant" : "  truly benign   ") << std::setw(21)
                  << matrix.count(label, malignant) << std::setw(16) << matrix.count(label, benign) << "\n";
    }
    const double percent = 100.0 * static_cast<double>(matrix.mistakes()) / static_cast<double>(matrix.total());
    std::cout << "  error rate: " << matrix.mistakes() << " of " << matrix.total() << ", " << std::fixed
              << std::setprecision(1) << percent << " %\n";
}

}  // namespace examples
