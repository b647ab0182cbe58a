#include <clastool/kit.h>
#include <iostream>
#include <sstream>

int main()
{
    std::istringstream csv("kind,length,weight\nsound,1.0,2.0\nsound,1.2,1.9\nbroken,1.6,2.4\n");
    const ktKit::Table parts = ktKit::readCsv(csv);
    const ktClassifierCosts costs = ktKit::costs({{0, 1}, {10, 0}});  // a broken part called sound costs 10
    ktClassifierTool tool;
    tool.train(parts.data, ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(2.0), costs));
    ktClassifierResult result;
    tool.run(*ktKit::pattern({1.1, 2.1}), result);
    const ktClassifierCategoryResult& best = ktKit::decision(result);
    std::cout << parts.labelNames[best.categoryLabel()] << ", cost " << best.expectedCost() << "\n";
}
