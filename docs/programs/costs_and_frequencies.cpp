#include <clastool/clastool.h>

#include <iomanip>
#include <iostream>

const long sound = 0;
const long cracked = 1;
const long bent = 2;

void print(const char* title, const ktClassifierTool& tool, const ktFeaturePattern& part)
{
    const char* const names[] = {"sound", "cracked", "bent"};
    ktClassifierResult result;
    tool.run(part, result);
    std::cout << title << ":";
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  " << names[category.categoryLabel()] << " " << category.expectedCost();
    }
    std::cout << "\n";
}

int main()
{
    ktRandomGaussian random(1);
    ktClassifierDataProviderMemory parts;  // 50 of each, by their length in mm
    for (int i = 0; i < 50; ++i) {
        parts.addData(new ktFeaturePattern({random.next(20.0, 0.2)}, {}), sound);
        parts.addData(new ktFeaturePattern({random.next(19.6, 0.2)}, {}), cracked);
        parts.addData(new ktFeaturePattern({random.next(20.4, 0.2)}, {}), bent);
    }
    const ktFeaturePattern part({19.8}, {});
    std::cout << std::fixed << std::setprecision(2);

    // [costs]
    ktClassifierCosts costs(1.0);                               // every mistake, unless something else is said
    costs.misclassificationCostOverride(cracked, sound, 20.0);  // true label first, then the label assigned
    costs.misclassificationCostOverride(bent, sound, 5.0);      // the customer sends it back
    costs.misclassificationCostOverride(sound, cracked, 2.0);   // a good part is scrapped
    // [costs]

    // [frequencies]
    ktClassifierFrequencies frequencies(1.0);  // relative weights: they need not add up to 1
    frequencies.categoryFrequencyOverride(sound, 98.0);
    // [frequencies]

    // [retrain]
    ktClassifierTool tool;
    tool.train(parts, ktClassifierTrainParamsBayesian());  // equal frequencies, every mistake costs 1
    print("nothing said", tool, part);

    const ktClassifierDistributionTypes normal;
    tool.retrain(ktClassifierTrainParamsBayesian(normal, frequencies));
    print("with frequencies", tool, part);

    tool.retrain(ktClassifierTrainParamsBayesian(normal, frequencies, costs));
    print("with costs too", tool, part);
    // [retrain]
}
