#pragma once

#include <clastool/training_data.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <map>
#include <vector>

// The search for the nearest neighbours as it is defined: the distance to every pattern, a sorted list, votes. What every test of
// faster searches is compared with. neighbors/knn_oracle.h has another one that does not go by the list.

namespace kt_test {

/// The general power. The order is volatile, because for one that is known at compile time compilers put other arithmetic,
/// whose last bits differ.
inline double plainDistance(const std::vector<double>& a, const std::vector<double>& b, double order)
{
    const volatile double p = order;
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += std::pow(std::abs(a[i] - b[i]), p);
    }
    return std::pow(sum, 1.0 / p);
}

/// The list of the neighbours: at most k entries in the order of their distances, a new one before its equals.
struct PlainNeighbors {
    std::size_t k = 0;
    std::vector<std::size_t> rows;
    std::vector<double> distances;

    /// NaN is as far as can be.
    void take(std::size_t row, double distance)
    {
        distance = std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
        if (rows.size() == k && (k == 0 || !(distance < distances.back()))) {
            return;
        }
        std::size_t place = 0;
        while (place < rows.size() && !(distance <= distances[place])) {
            ++place;
        }
        rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(place), row);
        distances.insert(distances.begin() + static_cast<std::ptrdiff_t>(place), distance);
        if (rows.size() > k) {
            rows.pop_back();
            distances.pop_back();
        }
    }

    bool isSameAs(const PlainNeighbors& other) const
    {
        return rows == other.rows && distances.size() == other.distances.size() &&
               (rows.empty() ||
                std::memcmp(distances.data(), other.distances.data(), distances.size() * sizeof(double)) == 0);
    }
};

/// The result that the votes of these rows make.
inline ktClassifierResult resultOfVotes(const std::vector<std::size_t>& rows, const std::vector<long>& labels,
                                        const ktClassifierCosts& costs)
{
    std::map<long, double> votes;
    for (const std::size_t row : rows) {
        votes[labels[row]] += 1.0;
    }
    std::vector<ktClassifierCategoryResult> matches;
    for (const auto& [label, count] : votes) {
        matches.emplace_back(label, count / static_cast<double>(rows.size()), 0.0, 0.0);
    }
    return ktClassifierResult(matches, ktClassifierFrequencies(1.0), costs, 0.0);
}

}  // namespace kt_test
