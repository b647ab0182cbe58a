#pragma once

#include <clastool/training_data.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace kt_test {

/// Every bit of a result.
inline std::vector<std::uint64_t> bitsOf(const ktClassifierResult& result)
{
    std::vector<double> numbers{result.matchScoreFactorLog()};
    for (const ktClassifierCategoryResult& entry : result.categoryResults()) {
        numbers.insert(numbers.end(), {static_cast<double>(entry.categoryLabel()), entry.matchScore(),
                                       entry.classScore(), entry.expectedCost()});
    }
    std::vector<std::uint64_t> words(numbers.size());
    std::memcpy(words.data(), numbers.data(), numbers.size() * sizeof(double));
    return words;
}

}  // namespace kt_test
