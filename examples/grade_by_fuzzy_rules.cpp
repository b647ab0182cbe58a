// Grades turned rings by their diameter, width and roughness with five rules written by hand, and draws what the rules
// look at and how they decide.

#include "common/errors.h"
#include "common/svg.h"

#include <clastool/clastool.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

using namespace examples;

namespace {

enum Grade : long { gradeA, gradeB, rework, scrap };

struct GradeLook {
    const char* name;
    const char* color;
};

GradeLook lookOf(long label)
{
    switch (label) {
    case gradeA:
        return {"grade A", "#0b5fa5"};
    case gradeB:
        return {"grade B", "#9ccbea"};
    case rework:
        return {"rework", "#fdc57e"};
    case scrap:
        return {"scrap", "#a63a00"};
    default:
        return {"no rule passes", "#ffffff"};
    }
}

const SvgAxis diameterAxis = {"diameter / mm", 19.7, 20.7, 0.1};
const SvgAxis widthAxis = {"width / mm", 4.6, 5.4, 0.1};
const SvgAxis roughnessAxis = {"roughness Ra / \xC2\xB5m", 0.0, 8.0, 1.0};

/// A scoring function with what a picture of it needs.
struct Criterion {
    std::string name;
    SvgAxis axis;
    ktPtrHandle<ktClsFtSc> function;
};

/// y0 on the outer side of x0, y1 from x1 to xc, 0 past xc.
Criterion ramp(const std::string& name, const SvgAxis& axis, double x0, double x1, double xc, double y0, double y1)
{
    ktPtrHandle<ktClassifierFeatureScoreOneSided> score(new ktClassifierFeatureScoreOneSided);
    score->init(x0, x1, xc, y0, y1);
    return {name, axis, score};
}

/// 1 from nominal - flat to nominal + flat, falling to 0 at nominal - limit and nominal + limit.
Criterion around(const std::string& name, const SvgAxis& axis, double nominal, double flat, double limit)
{
    ktPtrHandle<ktClassifierFeatureScoreTwoSided> score(new ktClassifierFeatureScoreTwoSided);
    score->init(nominal - limit, nominal - flat, nominal, nominal + limit, nominal + flat, nominal, 0.0, 1.0, 0.0, 1.0);
    return {name, axis, score};
}

struct NamedRule {
    std::string name;
    ktClassifierRule rule;
};

struct Rules {
    std::vector<Criterion> criteria;
    std::vector<NamedRule> rules;

    ktClassifierRuleTable table() const
    {
        std::vector<ktClassifierRule> plain;
        for (const NamedRule& named : rules) {
            plain.push_back(named.rule);
        }
        ktClassifierRuleTable table;
        table.train(plain);
        return table;
    }
};

NamedRule makeRule(const std::string& name, long label, const Criterion& diameter, const Criterion& width,
                   const Criterion& roughness)
{
    ktClassifierRule rule;
    rule.init({diameter.function, width.function, roughness.function}, label);
    return {name, rule};
}

/// The rules in the order in which they are tried: the first one that passes decides.
Rules gradingRules()
{
    const Criterion diameterRight = around("diameter_right", diameterAxis, 20.0, 0.03, 0.06);
    const Criterion diameterClose = around("diameter_close", diameterAxis, 20.0, 0.08, 0.16);
    const Criterion diameterLarge = ramp("diameter_large", diameterAxis, 20.08, 20.16, 20.60, 0.0, 1.0);
    const Criterion diameterSmall = ramp("diameter_small", diameterAxis, 19.92, 19.84, 0.0, 0.0, 1.0);
    const Criterion widthRight = around("width_right", widthAxis, 5.0, 0.05, 0.10);
    const Criterion widthClose = around("width_close", widthAxis, 5.0, 0.15, 0.30);
    const Criterion smooth = ramp("roughness_smooth", roughnessAxis, 0.8, 1.6, 1.6, 1.0, 0.0);
    const Criterion fair = ramp("roughness_fair", roughnessAxis, 1.6, 3.2, 3.2, 1.0, 0.0);
    const Criterion rough = ramp("roughness_rough", roughnessAxis, 1.6, 3.2, 6.3, 0.0, 1.0);
    const Criterion any = {"any", roughnessAxis, new ktClassifierFeatureScoreIgnore};
    return {
        {diameterRight, diameterClose, diameterLarge, diameterSmall, widthRight, widthClose, smooth, fair, rough, any},
        {makeRule("1 grade A", gradeA, diameterRight, widthRight, smooth),
         makeRule("2 grade B", gradeB, diameterClose, widthClose, fair),
         makeRule("3 polish", rework, diameterClose, widthClose, rough),
         makeRule("4 turn down", rework, diameterLarge, widthClose, any),
         makeRule("5 scrap", scrap, diameterSmall, any, any)}};
}

struct Ring {
    const char* name;
    double diameter;
    double width;
    double roughness;
};

const Ring rings[] = {
    {"a", 20.01, 5.02, 0.7}, {"b", 20.04, 5.07, 1.1}, {"c", 19.91, 5.11, 1.4}, {"d", 20.02, 4.98, 2.9},
    {"e", 20.25, 5.03, 5.0}, {"f", 19.80, 5.30, 0.9}, {"g", 20.00, 5.00, 7.0}, {"h", 20.68, 5.00, 0.8},
};

ktClassifierFeatureVector valuesOf(const Ring& ring)
{
    return ktClassifierFeatureVector({ring.diameter, ring.width, ring.roughness});
}

void printGrades(const Rules& rules, const ktClassifierRuleTable& table, double threshold)
{
    std::cout << std::fixed << "ring  diameter  width  roughness |";
    for (const NamedRule& named : rules.rules) {
        std::cout << std::setw(13) << named.name;
    }
    std::cout << " | graded\n";
    for (const Ring& ring : rings) {
        std::cout << ring.name << std::setprecision(2) << std::setw(13) << ring.diameter << std::setw(7) << ring.width
                  << std::setprecision(1) << std::setw(11) << ring.roughness << " |" << std::setprecision(3);
        for (const NamedRule& named : rules.rules) {
            std::cout << std::setw(13) << named.rule.score(valuesOf(ring));
        }
        const long label = table.classifyHardThreshold(valuesOf(ring), threshold);
        std::cout << " | " << lookOf(label).name << " (" << label << ")\n";
    }
}

/// Where the curve of a function bends or jumps.
std::vector<double> breakpointsOf(const ktClsFtSc& function)
{
    if (const auto* one = dynamic_cast<const ktClassifierFeatureScoreOneSided*>(&function)) {
        return {one->x0(), one->x1(), one->xc()};
    }
    if (const auto* two = dynamic_cast<const ktClassifierFeatureScoreTwoSided*>(&function)) {
        return {two->x0(), two->x1(), two->xc(), two->x0h(), two->x1h(), two->xch()};
    }
    return {};
}

void drawCriterion(const Criterion& criterion, const std::string& folder)
{
    const bool isIgnored = criterion.function->score(criterion.axis.low) < 0.0;
    // Room below 0 and above 1, so that the curve does not run along the frame.
    const SvgAxis scoreAxis = isIgnored ? SvgAxis{"score", -1.5, 1.5, 0.5} : SvgAxis{"score", -0.2, 1.2, 0.2};
    SvgPlot plot("Scoring function " + criterion.name, criterion.axis, scoreAxis);

    const double infinity = std::numeric_limits<double>::infinity();
    std::vector<double> xs = {criterion.axis.low, criterion.axis.high};
    std::vector<SvgPlot::Point> corners;
    for (const double x : breakpointsOf(*criterion.function)) {
        if (criterion.axis.low <= x && x <= criterion.axis.high) {
            xs.insert(xs.end(), {std::nextafter(x, -infinity), x, std::nextafter(x, infinity)});
            corners.push_back({x, criterion.function->score(x)});
        }
    }
    std::sort(xs.begin(), xs.end());
    std::vector<SvgPlot::Point> curve;
    for (const double x : xs) {
        curve.push_back({x, criterion.function->score(x)});
    }
    plot.line(curve, "#1f5fa8");
    plot.legendLine("#1f5fa8", isIgnored ? "marker: left out" : "score");
    for (const SvgPlot::Point& corner : corners) {
        plot.disc(corner, "#c2410c");
    }
    if (!corners.empty()) {
        plot.legendDisc("#c2410c", "breakpoint");
    }
    plot.save(folder + "/" + criterion.name + ".svg");
}

void drawGrades(const ktClassifierRuleTable& table, double threshold, double width, const std::string& folder)
{
    std::ostringstream title;
    title << "Grade of a ring of width " << std::fixed << std::setprecision(2) << width << " mm, threshold "
          << std::setprecision(1) << threshold;
    SvgPlot plot(title.str(), diameterAxis, roughnessAxis);
    plot.regions(240, 160, [&](double diameter, double roughness) -> std::string {
        const long label =
            table.classifyHardThreshold(ktClassifierFeatureVector({diameter, width, roughness}), threshold);
        return label < 0 ? "" : lookOf(label).color;
    });
    for (const long label : {gradeA, gradeB, rework, scrap}) {
        plot.legendArea(lookOf(label).color, lookOf(label).name);
    }
    plot.legendArea(lookOf(-1).color, lookOf(-1).name);
    plot.save(folder + "/grades.svg");
}

void gradeRings(const std::string& folder)
{
    const double threshold = 0.5;
    const Rules rules = gradingRules();
    const ktClassifierRuleTable table = rules.table();
    std::cout << "Scores of " << std::size(rings) << " rings by " << rules.rules.size()
              << " rules. The first score above " << std::fixed << std::setprecision(1) << threshold
              << " decides; diameter and width are in mm, roughness in um.\n\n";
    printGrades(rules, table, threshold);
    if (folder.empty()) {
        return;
    }
    std::filesystem::create_directories(folder);
    for (const Criterion& criterion : rules.criteria) {
        drawCriterion(criterion, folder);
    }
    drawGrades(table, threshold, 5.0, folder);
    std::cout << "\n" << rules.criteria.size() + 1 << " pictures are in " << folder << ".\n";
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2) {
        std::cerr << "usage: grade_by_fuzzy_rules [FOLDER_FOR_PICTURES]\n";
        return 1;
    }
    try {
        gradeRings(argc == 2 ? argv[1] : "");
    } catch (const std::exception& error) {
        return reportError(error);
    }
    return 0;
}
