#include <clastool/clastool.h>

#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

/// The same task in each section: sort [1.4, 2.2] by the five labelled parts, and say how sure that is.
const std::vector<std::vector<double>> rows = {{1.0, 2.0}, {1.2, 1.9}, {0.9, 2.2}, {1.5, 2.5}, {2.0, 2.2}};
const std::vector<long> labels = {0, 0, 0, 1, 1};

ktClassifierDataProviderMemory trainingData()
{
    // [data]
    ktClassifierDataProviderMemory data;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        data.addData(new ktFeaturePattern(rows[i], {}), labels[i]);
    }
    // [data]
    return data;
}

int main()
{
    const ktClassifierDataProviderMemory data = trainingData();
    const std::vector<double> query = {1.4, 2.2};
    std::cout << std::fixed << std::setprecision(4);

    {
        // [neighbors]
        ktClassifierCosts costs(1.0);
        costs.misclassificationCostOverride(1, 0, 10.0);  // a 1 called 0

        ktClassifierTool tool;
        tool.train(data, ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(2.0), costs));

        ktClassifierResult result;
        tool.run(ktFeaturePattern(query, {}), result);
        std::cout << "decision " << result.categoryResults().front().categoryLabel() << "\n";
        for (const ktClassifierCategoryResult& category : result.categoryResults()) {
            std::cout << "category " << category.categoryLabel() << ": probability " << category.classScore()
                      << ", cost " << category.expectedCost() << "\n";
        }
        // [neighbors]
    }
    {
        // [bayes]
        ktClassifierFrequencies priors;
        priors.categoryFrequencyOverride(0, 0.6);
        priors.categoryFrequencyOverride(1, 0.4);

        ktClassifierDistributionTypes independent;
        ktClassifierTool tool;
        tool.train(data, ktClassifierTrainParamsBayesian(independent, priors));

        ktClassifierResult result;
        tool.run(ktFeaturePattern(query, {}), result);
        std::cout << "decision " << result.categoryResults().front().categoryLabel() << ", probability "
                  << result.categoryResults().front().classScore() << "\n";
        // [bayes]
    }
    {
        // [joint]
        ktClassifierDistributionTypes together;
        together.setDependent(0, {0, 1});
        together.setDependent(1, {0, 1});

        ktClassifierTool tool;
        tool.train(data, ktClassifierTrainParamsBayesian(together));

        ktClassifierResult result;
        tool.run(ktFeaturePattern(query, {}), result);
        std::cout << "decision " << result.categoryResults().front().categoryLabel() << "\n";
        // [joint]
    }
}
