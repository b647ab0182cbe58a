#include <clastool/clastool.h>
#include <iostream>

int main()
{
    const long sound = 0, broken = 1;
    ktClassifierDataProviderMemory parts;  // of each part its length and its weight
    parts.addData(new ktFeaturePattern({1.0, 2.0}, {}), sound);
    parts.addData(new ktFeaturePattern({1.2, 1.9}, {}), sound);
    parts.addData(new ktFeaturePattern({1.6, 2.4}, {}), broken);
    ktClassifierCosts costs;  // every mistake costs 1, but a broken part called sound costs 10
    costs.misclassificationCostOverride(broken, sound, 10.0);
    ktClassifierTool tool;
    tool.train(parts, ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(2.0), costs));
    ktClassifierResult result;
    tool.run(ktFeaturePattern({1.1, 2.1}, {}), result);
    const ktClassifierCategoryResult best = result.categoryResults().front();
    std::cout << (best.categoryLabel() == broken ? "broken" : "sound") << ", cost " << best.expectedCost() << "\n";
}
