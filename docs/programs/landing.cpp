#include <clastool/kit.h>
#include <iostream>
#include <sstream>

int main()
{
    std::istringstream csv("kind,length,weight\nsound,1,2\nsound,1.2,1.9\nbroken,1.6,2.4\n");
    const ktKit::Table parts = ktKit::readCsv(csv);
    // Every mistake costs 1, but a broken part called sound costs 10.
    const ktClassifierCosts costs = ktKit::costs({{0, 1}, {10, 0}});
    ktClassifierTool tool;
    const ktPatternDistanceMetricNorm euclidean(2.0);
    tool.train(parts.data, ktClassifierTrainParamsKNN(3, euclidean, costs));
    ktClassifierResult result;
    tool.run(*ktKit::pattern({1.1, 2.1}), result);
    const ktClassifierCategoryResult& best = ktKit::decision(result);
    const auto label = static_cast<std::size_t>(best.categoryLabel());
    std::cout << parts.labelNames[label];
    std::cout << ", cost " << best.expectedCost() << "\n";
}
