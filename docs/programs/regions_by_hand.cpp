// Draws how a decision tree and a rule table that are written by hand divide the plane of two measurements.

#include "../../examples/common/regions.h"

#include <iostream>
#include <limits>

namespace {

/// Four questions.
ktKit::Decide tree(long malignant, long benign)
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
    return [tool](const ktFeaturePattern& pattern) {
        ktClassifierResult result;
        tool.run(pattern, result);
        return ktKit::decision(result).categoryLabel();
    };
}

/// y0 on the outer side of x0, y1 from x1 on.
ktPtrHandle<ktClsFtSc> ramp(double x0, double x1, double y0, double y1)
{
    ktPtrHandle<ktClassifierFeatureScoreOneSided> score(new ktClassifierFeatureScoreOneSided);
    score->init(x0, x1, std::numeric_limits<double>::infinity(), y0, y1);
    return score;
}

/// Three rules. The first one that scores more than a half decides.
ktKit::Decide ruleTable(long malignant, long benign)
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
    return [table](const ktFeaturePattern& pattern) {
        return table.classifyHardThreshold(pattern.featureMeasurements(true), 0.5);
    };
}

void drawRegionsByHand(const std::string& csvPath, const std::string& folder)
{
    const ktKit::Table plane = examples::planeOf(ktKit::readCsv(csvPath), "worst_radius", "worst_concave_points");
    const ktKit::Split rows = examples::thirds(plane.data);
    const auto draw = [&](const std::string& name, const std::string& title, const ktKit::Decide& decide,
                          bool mayBeUndecided) {
        examples::drawRegions(folder + "/regions-" + name + ".svg", title, plane, rows.training, decide,
                              mayBeUndecided);
        const ktKit::ConfusionMatrix matrix = examples::counted(rows.test, decide, plane.labelNames);
        std::cout << title << ": " << matrix.mistakes() << " mistakes on " << matrix.total() << " samples\n";
    };
    const long malignant = examples::labelOf(plane, "malignant");
    const long benign = examples::labelOf(plane, "benign");
    draw("decision-tree", "A decision tree of four questions", tree(malignant, benign), false);
    draw("rule-table", "A table of three fuzzy rules", ruleTable(malignant, benign), true);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: page_regions_by_hand CSV FOLDER\n";
        return 1;
    }
    drawRegionsByHand(argv[1], argv[2]);
}
