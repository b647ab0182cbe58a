// Draws how each technique divides the plane of two measurements, and how the borders move when one mistake costs ten times
// as much as the other.

#include "common/cell_nuclei.h"
#include "common/errors.h"
#include "common/report.h"
#include "common/scaling.h"
#include "common/svg.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

using namespace examples;

namespace {

const SvgAxis radiusAxis = {"worst radius (unit of length of the data)", 6.0, 38.0, 4.0};
const SvgAxis dentsAxis = {"worst concave points (no unit)", -0.01, 0.31, 0.05};

const char* const benignArea = "#d3e7f6";
const char* const malignantArea = "#fde0bd";
const char* const movedArea = "#f4ab62";
const char* const noRuleArea = "#ffffff";
const char* const benignMark = "#0b5fa5";
const char* const malignantMark = "#a63a00";

constexpr long numNeighbors = 15;

/// The label for a radius and a number of concave points; -1 for none.
using Decision = std::function<long(double radius, double dents)>;

struct Data {
    std::vector<Sample> training;
    std::vector<Sample> test;
};

/// The samples with these two measurements alone.
std::vector<Sample> planeOf(const CellNuclei& data, const std::vector<Sample>& samples)
{
    const auto indexOf = [&data](const std::string& name) {
        const auto place = std::find(data.names.begin(), data.names.end(), name);
        if (place == data.names.end()) {
            throw std::runtime_error("there is no measurement " + name);
        }
        return static_cast<std::size_t>(place - data.names.begin());
    };
    const std::size_t radius = indexOf("worst_radius");
    const std::size_t dents = indexOf("worst_concave_points");
    std::vector<Sample> plane;
    for (const Sample& sample : samples) {
        plane.push_back({{sample.measurements[radius], sample.measurements[dents]}, sample.label});
    }
    return plane;
}

ktClassifierCosts costsOf(double missedMalignant)
{
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(malignant, benign, missedMalignant);
    return costs;
}

Decision decisionOf(const ktClassifierTool& tool)
{
    return [tool](double radius, double dents) {
        ktClassifierResult result;
        tool.run(ktFeaturePattern({radius, dents}, {}), result);
        return decision(result);
    };
}

Decision nearestNeighbors(const Data& data, const ktClassifierCosts& costs)
{
    const Scaling scaling(data.training);
    ktClassifierTool tool;
    tool.train(trainingSet(scaling(data.training)),
               ktClassifierTrainParamsKNN(numNeighbors, ktPatternDistanceMetricNorm(2.0), costs));
    const Decision scaled = decisionOf(tool);
    return [scaled, scaling](double radius, double dents) {
        const std::vector<double> place = scaling({{{radius, dents}, 0}}).at(0).measurements;
        return scaled(place[0], place[1]);
    };
}

Decision bayes(const Data& data, const ktClassifierCosts& costs, bool isJoint)
{
    ktClassifierDistributionTypes types;
    if (isJoint) {
        types.setDependent(benign, {0, 1});
        types.setDependent(malignant, {0, 1});
    }
    ktClassifierTool tool;
    tool.train(trainingSet(data.training), ktClassifierTrainParamsBayesian(types, ktClassifierFrequencies(), costs));
    return decisionOf(tool);
}

/// Four questions, written by hand.
Decision tree()
{
    const ktDecisionTreeLeaf isBenign(ktClassifierResult({{benign, 1.0, 1.0, 0.0}}, 0.0));
    const ktDecisionTreeLeaf isMalignant(ktClassifierResult({{malignant, 1.0, 1.0, 0.0}}, 0.0));
    const auto atMost = [](double limit, long index) {
        return ktRangePredicate(ktRange(-std::numeric_limits<double>::infinity(), limit), {index});
    };
    const ktDecisionTreeNode small(atMost(0.17, 1), isBenign, isMalignant);
    const ktDecisionTreeNode large(atMost(0.10, 1), isBenign, isMalignant);
    const ktDecisionTreeNode notHuge(atMost(16.3, 0), small, large);
    ktClassifierTool tool;
    tool.train(ktDecisionTreeNode(atMost(21.0, 0), notHuge, isMalignant));
    return decisionOf(tool);
}

/// y0 on the outer side of x0, y1 from x1 on.
ktPtrHandle<ktClsFtSc> ramp(double x0, double x1, double y0, double y1)
{
    ktPtrHandle<ktClassifierFeatureScoreOneSided> score(new ktClassifierFeatureScoreOneSided);
    score->init(x0, x1, std::numeric_limits<double>::infinity(), y0, y1);
    return score;
}

/// Three rules, written by hand. The first one that scores more than a half decides.
Decision ruleTable()
{
    const auto rule = [](const ktPtrHandle<ktClsFtSc>& radius, const ktPtrHandle<ktClsFtSc>& dents, long label) {
        ktClassifierRule made;
        made.init({radius, dents}, label);
        return made;
    };
    ktClassifierRuleTable table;
    table.train({rule(ramp(16.0, 24.0, 0.0, 1.0), new ktClassifierFeatureScoreIgnore, malignant),
                 rule(ramp(12.0, 20.0, 0.0, 1.0), ramp(0.06, 0.20, 0.0, 1.0), malignant),
                 rule(ramp(14.0, 20.0, 1.0, 0.0), ramp(0.06, 0.20, 1.0, 0.0), benign)});
    return [table](double radius, double dents) {
        return table.classifyHardThreshold(ktClassifierFeatureVector({radius, dents}), 0.5);
    };
}

std::string areaOf(long label)
{
    return label == malignant ? malignantArea : label == benign ? benignArea : noRuleArea;
}

void drawSamples(SvgPlot& plot, const std::vector<Sample>& samples)
{
    std::vector<SvgPlot::Point> points[2];
    for (const Sample& sample : samples) {
        points[sample.label].push_back({sample.measurements[0], sample.measurements[1]});
    }
    plot.discs(points[benign], benignMark);
    plot.triangles(points[malignant], malignantMark);
}

void drawLegend(SvgPlot& plot)
{
    plot.legendSmallDisc(benignMark, "benign sample");
    plot.legendTriangle(malignantMark, "malignant sample");
    plot.legendArea(benignArea, "called benign");
    plot.legendArea(malignantArea, "called malignant");
}

void printMistakes(const std::string& what, const Decision& decide, const std::vector<Sample>& samples)
{
    long missed = 0;
    long falseAlarms = 0;
    long undecided = 0;
    for (const Sample& sample : samples) {
        const long label = decide(sample.measurements[0], sample.measurements[1]);
        missed += sample.label == malignant && label == benign ? 1 : 0;
        falseAlarms += sample.label == benign && label == malignant ? 1 : 0;
        undecided += label < 0 ? 1 : 0;
    }
    std::cout << "  " << std::left << std::setw(44) << what << std::right << std::setw(11) << missed << std::setw(18)
              << falseAlarms << std::setw(10) << undecided << "\n";
}

constexpr SvgFrame leftFrame = {80, 78, 320, 320};
constexpr SvgFrame rightFrame = {482, 78, 320, 320};
constexpr int numCells = 160;

/// One picture: the plane by equal costs, and beside it what other costs make of it.
void drawTwice(const std::string& title, const Decision& equal, const Decision& unequal, const Data& data,
               const std::string& path)
{
    SvgPlot left("Equal costs", radiusAxis, dentsAxis, leftFrame);
    left.regions(numCells, numCells, [&](double radius, double dents) { return areaOf(equal(radius, dents)); });
    drawSamples(left, data.training);
    SvgPlot right("A missed malignant sample costs 10", radiusAxis, dentsAxis, rightFrame);
    right.regions(numCells, numCells, [&](double radius, double dents) {
        const long label = unequal(radius, dents);
        return label != equal(radius, dents) ? std::string(movedArea) : areaOf(label);
    });
    drawSamples(right, data.training);
    drawLegend(right);
    right.legendArea(movedArea, "malignant at these costs only");
    SvgPlot::save(path, title, {&left, &right}, 1070, 466);
    printMistakes(title + ", 1:1", equal, data.test);
    printMistakes(title + ", 10:1", unequal, data.test);
}

void drawOnce(const std::string& title, const Decision& decide, const Data& data, bool mayBeUndecided,
              const std::string& path)
{
    SvgPlot plot(title, radiusAxis, dentsAxis, {80, 46, 480, 320});
    plot.regions(240, numCells, [&](double radius, double dents) { return areaOf(decide(radius, dents)); });
    drawSamples(plot, data.training);
    drawLegend(plot);
    if (mayBeUndecided) {
        plot.legendArea(noRuleArea, "no rule passes");
    }
    plot.save(path);
    printMistakes(title, decide, data.test);
}

int drawDecisionRegions(const std::string& csvPath, const std::string& folder)
{
    const CellNuclei nuclei = readCellNuclei(csvPath);
    const Split rows = splitSamples(nuclei.samples);
    const Data data = {planeOf(nuclei, rows.training), planeOf(nuclei, rows.test)};
    std::filesystem::create_directories(folder);
    const std::string start = folder + "/regions-";

    std::cout << "Mistakes of two measurements on " << data.test.size() << " samples that are not in the pictures:\n"
              << std::setw(57) << "malignant" << std::setw(18) << "benign" << std::setw(10) << "no"
              << "\n  technique, costs" << std::setw(39) << "called benign" << std::setw(18) << "called malignant"
              << std::setw(10) << "decision"
              << "\n";
    drawTwice(std::to_string(numNeighbors) + " nearest neighbours", nearestNeighbors(data, costsOf(1.0)),
              nearestNeighbors(data, costsOf(10.0)), data, start + "nearest-neighbors.svg");
    drawTwice("Bayes, independent measurements", bayes(data, costsOf(1.0), false), bayes(data, costsOf(10.0), false),
              data, start + "bayes-independent.svg");
    drawTwice("Bayes, measurements modelled jointly", bayes(data, costsOf(1.0), true), bayes(data, costsOf(10.0), true),
              data, start + "bayes-joint.svg");
    drawOnce("A decision tree of four questions", tree(), data, false, start + "decision-tree.svg");
    drawOnce("A table of three fuzzy rules", ruleTable(), data, true, start + "rule-table.svg");
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: draw_decision_regions CELL_NUCLEI_CSV FOLDER_FOR_PICTURES\n";
        return 1;
    }
    try {
        return drawDecisionRegions(argv[1], argv[2]);
    } catch (const std::exception& error) {
        return reportError(error);
    }
}
