// Draws how each technique divides the plane of two measurements, and how the borders move when one mistake costs ten times
// as much as the other.

#include "common/errors.h"
#include "common/options.h"
#include "common/svg.h"

#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>

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

constexpr long benign = 0;
constexpr long malignant = 1;

/// The patterns with these two measurements alone.
ktClassifierDataProviderMemory planeOf(const ktKit::Table& table)
{
    const long radius = indexOf(table.columns, "worst_radius");
    const long dents = indexOf(table.columns, "worst_concave_points");
    const long labelInFile = indexOf(table.labelNames, "malignant");
    ktClassifierDataProviderMemory plane;
    for (const auto& whole : ktKit::patterns(table.data)) {
        const bool isMalignant = table.data.categoryLabel(plane.numPatterns()) == labelInFile;
        plane.addData(ktKit::pattern({whole->featureMeasurement(radius, true), whole->featureMeasurement(dents, true)}),
                      isMalignant ? malignant : benign);
    }
    return plane;
}

Decision decisionOf(const ktClassifierTool& tool)
{
    return [tool](double radius, double dents) {
        ktClassifierResult result;
        tool.run(*ktKit::pattern({radius, dents}), result);
        return ktKit::decision(result).categoryLabel();
    };
}

Decision nearestNeighbors(const ktKit::Split& data, const ktClassifierCosts& costs)
{
    const ktKit::Scaler scaler(data.training);
    ktClassifierTool tool;
    tool.train(scaler.transform(data.training), ktClassifierTrainParamsKNN(numNeighbors, costs));
    return [tool, scaler](double radius, double dents) {
        ktClassifierResult result;
        tool.run(*scaler.transform(*ktKit::pattern({radius, dents})), result);
        return ktKit::decision(result).categoryLabel();
    };
}

Decision bayes(const ktKit::Split& data, const ktClassifierCosts& costs, bool isJoint)
{
    ktClassifierDistributionTypes types;
    if (isJoint) {
        types.setDependent(benign, {0, 1});
        types.setDependent(malignant, {0, 1});
    }
    ktClassifierTool tool;
    tool.train(data.training, ktClassifierTrainParamsBayesian(types, ktClassifierFrequencies(), costs));
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

void drawSamples(SvgPlot& plot, const ktClassifierDataProvider& data)
{
    std::vector<SvgPlot::Point> points[2];
    const std::vector<long> labels = ktKit::labels(data);
    const ktKit::Patterns patterns = ktKit::patterns(data);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        points[labels[i]].push_back(
            {patterns[i]->featureMeasurement(0, true), patterns[i]->featureMeasurement(1, true)});
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

void printMistakes(const std::string& what, const Decision& decide, const ktClassifierDataProvider& test)
{
    ktKit::ConfusionMatrix matrix;
    for (const auto& pattern : ktKit::patterns(test)) {
        matrix.add(test.categoryLabel(matrix.total()),
                   decide(pattern->featureMeasurement(0, true), pattern->featureMeasurement(1, true)));
    }
    std::cout << "  " << std::left << std::setw(44) << what << std::right << std::setw(11)
              << matrix.count(malignant, benign) << std::setw(18) << matrix.count(benign, malignant) << std::setw(10)
              << matrix.count(malignant, -1) + matrix.count(benign, -1) << "\n";
}

constexpr SvgFrame leftFrame = {80, 78, 320, 320};
constexpr SvgFrame rightFrame = {482, 78, 320, 320};
constexpr int numCells = 160;

/// One picture: the plane by equal costs, and beside it what other costs make of it.
void drawTwice(const std::string& title, const Decision& equal, const Decision& unequal, const ktKit::Split& data,
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

void drawOnce(const std::string& title, const Decision& decide, const ktKit::Split& data, bool mayBeUndecided,
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
    const ktKit::Table table = ktKit::readCsv(csvPath);
    const ktClassifierCosts equal = ktKit::costs({{0, 1}, {1, 0}});
    const ktClassifierCosts unequal = ktKit::costs({{0, 1}, {10, 0}});
    const ktKit::Split data = thirds(planeOf(table));
    std::filesystem::create_directories(folder);
    const std::string start = folder + "/regions-";

    std::cout << "Mistakes of two measurements on " << data.test.numPatterns()
              << " samples that are not in the pictures:\n"
              << std::setw(57) << "malignant" << std::setw(18) << "benign" << std::setw(10) << "no"
              << "\n  technique, costs" << std::setw(39) << "called benign" << std::setw(18) << "called malignant"
              << std::setw(10) << "decision"
              << "\n";
    drawTwice(std::to_string(numNeighbors) + " nearest neighbours", nearestNeighbors(data, equal),
              nearestNeighbors(data, unequal), data, start + "nearest-neighbors.svg");
    drawTwice("Bayes, independent measurements", bayes(data, equal, false), bayes(data, unequal, false), data,
              start + "bayes-independent.svg");
    drawTwice("Bayes, measurements modelled jointly", bayes(data, equal, true), bayes(data, unequal, true), data,
              start + "bayes-joint.svg");
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
