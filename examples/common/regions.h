#pragma once

#include "options.h"
#include "svg.h"

#include <clastool/kit.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace examples {

/// The table with two of its measurements alone. What lacks one of them, or the label, cannot be drawn and is left out.
inline ktKit::Table planeOf(const ktKit::Table& table, const std::string& x, const std::string& y)
{
    ktKit::Table plane;
    plane.columns = {x, y};
    plane.labelNames = table.labelNames;
    const long indexX = columnOf(table, x);
    const long indexY = columnOf(table, y);
    const std::vector<long> labels = ktKit::labels(table.data);
    const ktKit::Patterns patterns = ktKit::patterns(table.data);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        if (patterns[i]->isValid(indexX) && patterns[i]->isValid(indexY) && labels[i] >= 0) {
            plane.data.addData(ktKit::pattern({patterns[i]->featureMeasurement(indexX, true),
                                               patterns[i]->featureMeasurement(indexY, true)}),
                               labels[i]);
        }
    }
    return plane;
}

/// The colours of a category: of its region, of the part that costs alone give it, and of its samples.
struct RegionColors {
    std::string area;
    std::string moved;
    std::string mark;
};

inline RegionColors colorsOf(long label)
{
    static const RegionColors colors[] = {{"#fde0bd", "#f4ab62", "#a63a00"}, {"#d3e7f6", "#8fc1e8", "#0b5fa5"},
                                          {"#dcefd8", "#97cf8a", "#2e7d32"}, {"#e8def1", "#bd9ddb", "#6a1b9a"},
                                          {"#e4e4e4", "#b0b0b0", "#4d4d4d"}, {"#f9dbe6", "#eb94b6", "#ad1457"}};
    return colors[label % 6];
}

/// One measurement of all patterns.
inline std::vector<double> valuesOf(const ktClassifierDataProvider& data, long index)
{
    std::vector<double> values;
    for (const auto& pattern : ktKit::patterns(data)) {
        values.push_back(pattern->featureMeasurement(index, true));
    }
    return values;
}

/// How the plane of a table of two measurements is decided on, with the samples. Where there is no decision it stays white; where
/// `usual` decides otherwise, the colour is strong. These categories are added to `moved`.
inline SvgPlot regionsPlot(const std::string& title, const SvgFrame& frame, const ktKit::Table& plane,
                           const ktClassifierDataProvider& samples, const ktKit::Decide& decide,
                           const ktKit::Decide& usual, std::set<long>& moved)
{
    SvgPlot plot(title, axisOver(plane.columns[0], valuesOf(plane.data, 0)),
                 axisOver(plane.columns[1], valuesOf(plane.data, 1)), frame);
    plot.regions(static_cast<int>(frame.width / 2), static_cast<int>(frame.height / 2), [&](double x, double y) {
        const auto pattern = ktKit::pattern({x, y});
        const long label = decide(*pattern);
        if (label < 0 || label == usual(*pattern)) {
            return label < 0 ? std::string() : colorsOf(label).area;
        }
        moved.insert(label);
        return colorsOf(label).moved;
    });
    const std::vector<double> x = valuesOf(samples, 0);
    const std::vector<double> y = valuesOf(samples, 1);
    std::map<long, std::vector<SvgPlot::Point>> points;
    for (std::size_t i = 0; i < x.size(); ++i) {
        points[samples.categoryLabel(static_cast<long>(i))].push_back({x[i], y[i]});
    }
    for (const auto& [label, places] : points) {
        plot.marks(places, label, colorsOf(label).mark);
    }
    return plot;
}

inline void addLegend(SvgPlot& plot, const ktKit::Table& plane, const std::set<long>& moved)
{
    for (const long label : categoriesOf(plane)) {
        plot.legendMark(label, colorsOf(label).mark, nameOf(plane, label) + " sample");
    }
    for (const long label : categoriesOf(plane)) {
        plot.legendArea(colorsOf(label).area, "called " + nameOf(plane, label));
    }
    for (const long label : moved) {
        plot.legendArea(colorsOf(label).moved, nameOf(plane, label) + " at these costs only");
    }
}

/// A picture of one plot.
inline void drawRegions(const std::string& path, const std::string& title, const ktKit::Table& plane,
                        const ktClassifierDataProvider& samples, const ktKit::Decide& decide, bool mayBeUndecided)
{
    std::set<long> moved;
    SvgPlot plot = regionsPlot(title, {}, plane, samples, decide, decide, moved);
    addLegend(plot, plane, moved);
    if (mayBeUndecided) {
        plot.legendArea("#ffffff", "no decision");
    }
    plot.save(path);
}

/// A picture of two plots: the usual decisions, and beside them what other costs make of them.
inline void drawRegions(const std::string& path, const std::string& title, const ktKit::Table& plane,
                        const ktClassifierDataProvider& samples, const ktKit::Decide& usual,
                        const std::string& costsTitle, const ktKit::Decide& atCosts)
{
    std::set<long> moved;
    const SvgPlot left = regionsPlot("Equal costs", {80, 78, 320, 320}, plane, samples, usual, usual, moved);
    SvgPlot right = regionsPlot(costsTitle, {482, 78, 320, 320}, plane, samples, atCosts, usual, moved);
    addLegend(right, plane, moved);
    SvgPlot::save(path, title, {&left, &right}, 1070, 466);
}

}  // namespace examples
