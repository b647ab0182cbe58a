#include <clastool/clastool.h>

#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>

const long sound = 0;
const long broken = 1;

void print(const char* title, const ktClassifierTool& tool, const ktFeaturePattern& part)
{
    ktClassifierResult result;
    tool.run(part, result);
    std::cout << title << ":";
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  " << (category.categoryLabel() == broken ? "broken" : "sound") << " match score "
                  << category.matchScore() << " expected cost " << category.expectedCost() << ";";
    }
    std::cout << "\n";
}

/// A long part is broken; the weight says nothing. `weightUnit`: how many grams the unit of the weights has.
ktClassifierTool trainedOn(double weightUnit, const ktClassifierTrainParamsKNN& params)
{
    ktClassifierDataProviderMemory parts;  // length in mm, weight
    parts.addData(new ktFeaturePattern({10.0, 500.0 / weightUnit}, {}), sound);
    parts.addData(new ktFeaturePattern({10.2, 530.0 / weightUnit}, {}), sound);
    parts.addData(new ktFeaturePattern({12.0, 510.0 / weightUnit}, {}), broken);
    parts.addData(new ktFeaturePattern({12.1, 540.0 / weightUnit}, {}), broken);
    ktClassifierTool tool;
    tool.train(parts, params);
    return tool;
}

int main()
{
    std::cout << std::fixed << std::setprecision(2);

    // [units]
    // One part, 12.0 mm long and 528 g heavy.
    print("weights in g ", trainedOn(1.0, ktClassifierTrainParamsKNN(1)), ktFeaturePattern({12.0, 528.0}, {}));
    print("weights in kg", trainedOn(1000.0, ktClassifierTrainParamsKNN(1)), ktFeaturePattern({12.0, 0.528}, {}));
    // [units]

    ktClassifierDataProviderMemory measured;  // 100 sound parts of 10.0 mm on average, and 100 broken ones of 10.5 mm
    ktRandomGaussian random(1);
    for (long i = 0; i < 200; ++i) {
        const long label = i < 100 ? sound : broken;
        measured.addData(new ktFeaturePattern({random.next(label == broken ? 10.5 : 10.0, 0.3)}, {}), label);
    }

    // [choose]
    const ktPatternDistanceMetricNorm metric(2.0);
    ktClassifierCosts mistakes(1.0);
    mistakes.misclassificationCostOverride(broken, sound, 10.0);

    std::map<long, double> paid;      // of each k
    std::map<long, double> expected;  // for comparison only
    const long numFolds = 5;
    for (long fold = 0; fold < numFolds; ++fold) {
        ktClassifierDataProviderMemory training;
        for (long i = 0; i < measured.numPatterns(); ++i) {
            if (i % numFolds != fold) {
                training.addData(measured.featurePattern(i), measured.categoryLabel(i));
            }
        }
        ktClassifierTool foldTool;
        foldTool.train(training, ktClassifierTrainParamsKNN());  // once; the patterns are the same for each k
        for (const long k : {1, 3, 5, 9, 15}) {
            foldTool.retrain(ktClassifierTrainParamsKNN(k, metric, mistakes));
            for (long i = fold; i < measured.numPatterns(); i += numFolds) {
                ktClassifierResult result;
                foldTool.run(*measured.featurePattern(i), result);
                const ktClassifierCategoryResult& decision = result.categoryResults().front();
                const long label = measured.categoryLabel(i);
                if (label != decision.categoryLabel()) {  // a right decision has no cost to ask for
                    paid[k] += mistakes.misclassificationCost(label, decision.categoryLabel());
                }
                expected[k] += decision.expectedCost();
            }
        }
    }
    // [choose]
    for (const auto& [k, cost] : paid) {
        std::cout << "k = " << std::setw(2) << k << ": paid " << std::setw(6) << cost << ", expected " << std::setw(5)
                  << expected[k] << "\n";
    }

    // [ties]
    ktClassifierDataProviderMemory twoParts;
    twoParts.addData(new ktFeaturePattern({11.0}, {}), broken);
    twoParts.addData(new ktFeaturePattern({9.0}, {}), sound);
    ktClassifierTool tie;
    tie.train(twoParts, ktClassifierTrainParamsKNN(1));
    print("k = 1, both 1 mm away", tie, ktFeaturePattern({10.0}, {}));  // the one stored first
    tie.retrain(ktClassifierTrainParamsKNN(2));
    print("k = 2, one vote each ", tie, ktFeaturePattern({10.0}, {}));  // equal costs: the smaller label
    // [ties]

    // [loaded]
    ktClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(broken, sound, 10.0);
    ktClassifierTool tool = trainedOn(1000.0, ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(1.0), costs));
    const ktFeaturePattern part({10.9, 0.51}, {});
    print("trained ", tool, part);

    std::stringstream stream;
    ktArchive out(static_cast<std::ostream&>(stream));
    out || tool;

    ktClassifierTool loaded;
    ktArchive in(static_cast<std::istream&>(stream));
    in || loaded;
    print("loaded  ", loaded, part);  // k = 1, Euclidean distance, every mistake costs 1

    loaded.retrain(*loaded.trainParams());
    print("repaired", loaded, part);
    // [loaded]

    // [params]
    const ktPtrHandle_const<ktClassifierTrainParams> held = loaded.trainParams();
    if (const auto* params = dynamic_cast<const ktClassifierTrainParamsKNN*>(held.get())) {
        std::cout << "k = " << params->k();
        const ktPtrHandle_const<ktPatternDistanceMetric> metricHeld = params->distanceMetric();
        if (const auto* norm = dynamic_cast<const ktPatternDistanceMetricNorm*>(metricHeld.get())) {
            std::cout << ", norm of order " << norm->order();
        }
        std::cout << ", broken called sound costs "
                  << params->misclassificationCosts().misclassificationCost(broken, sound) << "\n";
    }
    // [params]
}
