#include "digits.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

struct Point {
    double x = 0.0;
    double y = 0.0;
};

constexpr std::size_t numCorners = 5;
using Line = std::array<Point, numCorners>;

std::vector<Line> drawCategories(long numCategories)
{
    ktRandomUniform source(1);
    std::vector<Line> lines(static_cast<std::size_t>(numCategories));
    for (Line& line : lines) {
        for (Point& corner : line) {
            corner = {source.next(-0.7, 0.7), source.next(-0.8, 0.8)};
        }
    }
    return lines;
}

Line varied(const Line& line, ktRandomGaussian& source)
{
    const Point shift{source.next(0.0, 0.06), source.next(0.0, 0.06)};
    const Point stretch{source.next(1.0, 0.1), source.next(1.0, 0.1)};
    const double turn = source.next(0.0, 0.12);
    Line result;
    for (std::size_t i = 0; i < numCorners; ++i) {
        const Point bent{line[i].x + source.next(0.0, 0.05), line[i].y + source.next(0.0, 0.05)};
        result[i] = {(bent.x - turn * bent.y) * stretch.x + shift.x, (bent.y + turn * bent.x) * stretch.y + shift.y};
    }
    return result;
}

double squareTo(const Point& place, const Point& a, const Point& b)
{
    const Point along{b.x - a.x, b.y - a.y};
    const double length = along.x * along.x + along.y * along.y + 1e-12;
    const double share = std::clamp(((place.x - a.x) * along.x + (place.y - a.y) * along.y) / length, 0.0, 1.0);
    const double dx = place.x - a.x - share * along.x;
    const double dy = place.y - a.y - share * along.y;
    return dx * dx + dy * dy;
}

double ink(const Point& place, const Line& line, double pen)
{
    double nearest = squareTo(place, line[0], line[1]);
    for (std::size_t i = 2; i < numCorners; ++i) {
        nearest = std::min(nearest, squareTo(place, line[i - 1], line[i]));
    }
    // From 1 on the line to 0 at three times the pen's width.
    const double fall = std::max(0.0, 1.0 - nearest / (9.0 * pen * pen));
    return std::round(16.0 * fall * fall);
}

std::vector<double> drawPicture(const Line& category, std::size_t side, ktRandomGaussian& source)
{
    const Line line = varied(category, source);
    const double pen = std::abs(source.next(0.13, 0.02)) + 0.02;
    const auto onGrid = [side](std::size_t step) {
        return 2.0 * (static_cast<double>(step) + 0.5) / static_cast<double>(side) - 1.0;
    };
    std::vector<double> values(side * side);
    for (std::size_t j = 0; j < values.size(); ++j) {
        values[j] = ink({onGrid(j % side), onGrid(j / side)}, line, pen);
    }
    return values;
}

}  // namespace

LabelledPatterns drawDigits(long numPatterns, long numMeasurements, long numCategories, unsigned long seed)
{
    const auto side = static_cast<std::size_t>(std::lround(std::sqrt(static_cast<double>(numMeasurements))));
    require(static_cast<long>(side * side) == numMeasurements, "Pictures are squares");
    const std::vector<Line> categories = drawCategories(numCategories);
    constexpr std::size_t numPictures = 2000;
    ktRandomGaussian pictureSource(1);
    std::vector<std::vector<double>> pictures;
    for (std::size_t i = 0; i < numPictures; ++i) {
        pictures.push_back(drawPicture(categories[i % categories.size()], side, pictureSource));
    }
    ktRandomUniform choice(seed);
    ktRandomGaussian noise(seed);
    LabelledPatterns data;
    for (long i = 0; i < numPatterns; ++i) {
        const auto chosen =
            static_cast<std::size_t>(choice.next(0.0, static_cast<double>(numPictures / categories.size())));
        const auto label = static_cast<std::size_t>(i % numCategories);
        std::vector<double> values = pictures[chosen * categories.size() + label];
        for (double& value : values) {
            value += noise.next(0.0, 0.5);
        }
        data.patterns.push_back(new ktFeaturePattern(values, {}));
        data.labels.push_back(static_cast<long>(label));
    }
    return data;
}
