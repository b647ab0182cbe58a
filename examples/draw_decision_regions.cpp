// Draws how each technique divides the plane of two measurements, and how the borders move when missing one category costs more
// than other mistakes. Takes any file whose first column names the categories.

#include "common/errors.h"
#include "common/options.h"
#include "common/regions.h"

#include <iostream>

namespace {

/// Learns from scaled measurements, and returns how to decide.
ktKit::Decide learnt(const ktClassifierDataProvider& training, const ktClassifierTrainParams& params)
{
    const ktKit::Scaler scaler(training);
    ktClassifierTool tool;
    tool.train(scaler.transform(training), params);
    return [scaler, tool](const ktFeaturePattern& pattern) {
        ktClassifierResult result;
        tool.run(*scaler.transform(pattern), result);
        return ktKit::decision(result).categoryLabel();
    };
}

/// Both measurements of each category modelled jointly.
ktClassifierDistributionTypes joint(const ktKit::Table& plane)
{
    ktClassifierDistributionTypes types;
    for (const long label : examples::categoriesOf(plane)) {
        types.setDependent(label, {0, 1});
    }
    return types;
}

void drawDecisionRegions(const std::string& csvPath, const std::string& x, const std::string& y,
                         const std::string& option, const std::string& folder)
{
    const ktKit::Table plane = examples::planeOf(ktKit::readCsv(csvPath), x, y);
    const ktKit::Split rows = examples::thirds(plane.data);
    const ktClassifierCosts costs = examples::costsOf(plane, option);
    std::cout << "Mistakes on " << rows.test.numPatterns()
              << " samples that are not in the pictures, and what they cost by " << option << ":\n";
    const auto draw = [&](const std::string& name, const std::string& title, const ktClassifierTrainParams& equal,
                          const ktClassifierTrainParams& unequal) {
        const ktKit::Decide usual = learnt(rows.training, equal);
        const ktKit::Decide atCosts = learnt(rows.training, unequal);
        examples::drawRegions(folder + "/regions-" + name + ".svg", title, plane, rows.training, usual,
                              "Costs " + option, atCosts);
        const ktKit::ConfusionMatrix before = examples::counted(rows.test, usual, plane.labelNames);
        const ktKit::ConfusionMatrix after = examples::counted(rows.test, atCosts, plane.labelNames);
        std::cout << "  " << title << ": " << before.mistakes() << " mistakes, which cost " << before.cost(costs)
                  << "; by these costs " << after.mistakes() << ", which cost " << after.cost(costs) << "\n";
    };
    draw("nearest-neighbors", "15 nearest neighbours", ktClassifierTrainParamsKNN(15),
         ktClassifierTrainParamsKNN(15, costs));
    draw("bayes-independent", "Bayes, independent measurements", ktClassifierTrainParamsBayesian(),
         ktClassifierTrainParamsBayesian(costs));
    draw("bayes-joint", "Bayes, measurements modelled jointly", ktClassifierTrainParamsBayesian(joint(plane)),
         ktClassifierTrainParamsBayesian(joint(plane), {}, costs));
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        argc == 6 ? drawDecisionRegions(argv[1], argv[2], argv[3], argv[4], argv[5])
                  : throw std::runtime_error("usage: draw_decision_regions CSV X Y CATEGORY=COST FOLDER");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
