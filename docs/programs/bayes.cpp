#include <clastool/clastool.h>

#include <cmath>
#include <iomanip>
#include <iostream>

const long sound = 0;
const long broken = 1;

/// Length and width in mm grow together in sound parts; the hardness is a third measurement, which the machine misses in
/// every fifth part.
ktClassifierDataProviderMemory trainingData()
{
    ktRandomGaussian random(1);
    ktClassifierDataProviderMemory parts;
    for (int i = 0; i < 200; ++i) {
        const long label = i % 2 == 0 ? sound : broken;
        const double length = random.next(20.0, 0.5);
        const double width = 10.0 + 0.5 * (length - 20.0) + random.next(label == sound ? 0.0 : 0.4, 0.05);
        const double hardness = random.next(label == sound ? 60.0 : 57.0, 1.5);
        const std::vector<long> invalid = i % 5 == 0 ? std::vector<long>{2} : std::vector<long>{};
        parts.addData(new ktFeaturePattern({length, width, hardness}, invalid), label);
    }
    return parts;
}

void print(const char* title, const ktClassifierTool& tool, const ktFeaturePattern& part)
{
    // [likelihood]
    ktClassifierResult result;
    tool.run(part, result);
    std::cout << title << ":\n";
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        const double logLikelihood = std::log(category.matchScore()) - result.matchScoreFactorLog();
        std::cout << "  " << (category.categoryLabel() == broken ? "broken" : "sound ") << "  class score "
                  << category.classScore() << "  expected cost " << category.expectedCost() << "  log-likelihood "
                  << logLikelihood << "\n";
    }
    // [likelihood]
}

int main()
{
    std::cout << std::fixed << std::setprecision(2);

    // [train]
    ktClassifierDistributionTypes types;  // normal, every measurement on its own, unless something else is said
    types.setDependent(sound, {0, 1});    // of both categories length and width together
    types.setDependent(broken, {0, 1});

    ktClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(sound, 0.95);
    frequencies.categoryFrequencyOverride(broken, 0.05);

    ktClassifierCosts costs;
    costs.misclassificationCostOverride(broken, sound, 10.0);

    ktClassifierTool tool;
    tool.train(trainingData(), ktClassifierTrainParamsBayesian(types, frequencies, costs));
    // [train]

    // [missing]
    print("all measured", tool, ktFeaturePattern({19.5, 9.95, 56.0}, {}));
    print("hardness missing", tool, ktFeaturePattern({19.5, 9.95, 0.0}, {2}));
    print("nothing measured", tool, ktFeaturePattern({0.0, 0.0, 0.0}, {0, 1, 2}));
    print("like neither", tool, ktFeaturePattern({19.5, 12.0, 56.0}, {}));
    // [missing]
}
