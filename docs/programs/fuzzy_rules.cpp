#include <clastool/rule_table.h>

#include <iostream>

int main()
{
    // [rule]
    ktPtrHandle<ktClassifierFeatureScoreTwoSided> diameter(new ktClassifierFeatureScoreTwoSided);
    diameter->init(19.94, 19.97, 20.0, 20.06, 20.03, 20.0, 0.0, 1.0, 0.0, 1.0);  // six x, then four y
    ktPtrHandle<ktClassifierFeatureScoreOneSided> smooth(new ktClassifierFeatureScoreOneSided);
    smooth->init(0.8, 1.6, 1.6, 1.0, 0.0);

    ktClassifierRule good;
    good.init({diameter, smooth}, 0);

    ktClassifierRuleTable table;
    table.train({good});
    const long label = table.classifyHardThreshold(ktClassifierFeatureVector({20.04, 1.1}), 0.5);  // 0
    // [rule]
    std::cout << "label " << label << ", score " << good.score(ktClassifierFeatureVector({20.04, 1.1})) << "\n";
}
