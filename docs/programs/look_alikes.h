#pragma once

#include <kt/random.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

// Made-up data that share with real ones what is hard about them. They are the same on every platform.

struct Sample {
    std::vector<double> values;
    long label;
};

/// Handwritten digits seen by 8 x 8 sensors that count from 0 to 16: ten categories, 64 measurements. Each digit is three
/// strokes of the pen, never twice at quite the same place. Border sensors see nothing in any category, and many others
/// nothing in some.
inline std::vector<Sample> digitLookAlikes(std::size_t number, unsigned long seed)
{
    constexpr int strokes = 4;
    ktRandomUniform shape(7);
    double columns[10][strokes];
    double rows[10][strokes];
    for (int digit = 0; digit < 10; ++digit) {
        for (int stroke = 0; stroke < strokes; ++stroke) {
            columns[digit][stroke] = shape.next(2.0, 5.0);
            rows[digit][stroke] = shape.next(1.0, 6.0);
        }
    }
    ktRandomGaussian hand(seed);
    std::vector<Sample> samples;
    for (std::size_t i = 0; i < number; ++i) {
        const auto digit = static_cast<long>(i % 10);
        std::vector<double> seen(64, 0.0);
        for (int stroke = 0; stroke < strokes; ++stroke) {
            const double column = hand.next(columns[digit][stroke], 0.5);
            const double row = hand.next(rows[digit][stroke], 0.5);
            const double pressure = hand.next(14.0, 3.0);
            for (int pixel = 0; pixel < 64; ++pixel) {
                const double x = pixel % 8 - column;
                const double y = pixel / 8 - row;
                seen[static_cast<std::size_t>(pixel)] += pressure * std::max(0.0, 1.0 - (x * x + y * y) / 5.0);
            }
        }
        for (double& value : seen) {
            value = std::floor(std::clamp(value, 0.0, 16.0));
        }
        samples.push_back({seen, digit});
    }
    return samples;
}

/// Chemical analyses of three kinds of wine: 13 measurements in different units, correlated within a kind. `apart` is the distance
/// of the kinds in spreads.
inline std::vector<Sample> wineLookAlikes(std::size_t number, unsigned long seed)
{
    constexpr std::size_t size = 13;
    ktRandomUniform shape(11);
    std::vector<double> units;
    std::vector<double> means[3];
    std::vector<double> mixing[3];
    for (std::size_t i = 0; i < size; ++i) {
        units.push_back(i % 4 == 0 ? 100.0 : i % 3 == 0 ? 0.1 : 1.0);
    }
    for (int kind = 0; kind < 3; ++kind) {
        for (std::size_t i = 0; i < size; ++i) {
            means[kind].push_back(shape.next(5.0, 7.5));
            for (std::size_t j = 0; j < size; ++j) {
                mixing[kind].push_back(i == j ? 1.0 : shape.next(-0.4, 0.4));
            }
        }
    }
    ktRandomGaussian cellar(seed);
    std::vector<Sample> samples;
    for (std::size_t n = 0; n < number; ++n) {
        const auto kind = static_cast<long>(n % 3);
        std::vector<double> z;
        for (std::size_t i = 0; i < size; ++i) {
            z.push_back(cellar.next(0.0, 1.0));
        }
        std::vector<double> values;
        for (std::size_t i = 0; i < size; ++i) {
            double value = means[kind][i];
            for (std::size_t j = 0; j < size; ++j) {
                value += mixing[kind][i * size + j] * z[j];
            }
            values.push_back(units[i] * value);
        }
        samples.push_back({values, kind});
    }
    return samples;
}
