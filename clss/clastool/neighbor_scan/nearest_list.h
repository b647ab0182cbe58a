#pragma once

#include <kt/scratch.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

/// The k nearest rows so far, sorted by distance. NaN counts as infinitely far.
///
/// Kept on purpose: at the last place, a row does not displace a row at the same distance that was stored earlier. Inside the list, a
/// new row goes before rows at the same distance.
class kt_NearestList {
public:
    explicit kt_NearestList(std::size_t k) : rows_(k), distances_(k)
    {
        std::fill(distances_.begin(), distances_.end(), std::numeric_limits<double>::infinity());
    }

    /// Rows come in stored order.
    void insert(std::size_t row, double distance)
    {
        if (std::isnan(distance)) {
            distance = std::numeric_limits<double>::infinity();
        }
        const std::size_t k = rows_.size();
        if (k == 0 || (count_ == k && !(distance < distances_[k - 1]))) {
            return;
        }
        double* place = std::lower_bound(distances_.begin(), distances_.end(), distance);
        const std::ptrdiff_t offset = place - distances_.begin();
        std::move_backward(place, distances_.end() - 1, distances_.end());
        std::move_backward(rows_.begin() + offset, rows_.end() - 1, rows_.end());
        *place = distance;
        rows_.begin()[offset] = row;
        count_ = std::min(count_ + 1, k);
    }

    std::size_t row(std::size_t place) { return rows_[place]; }

private:
    kt_Scratch<std::size_t, 256> rows_;
    kt_Scratch<double, 256> distances_;
    std::size_t count_ = 0;
};
