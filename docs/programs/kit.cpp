#include <clastool/kit.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

void writeTable()
{
    std::ofstream file("parts.csv");
    file << "kind,width,height\n";
    for (int i = 0; i < 60; ++i) {
        const int swing = i * 7 % 11 - 5;
        file << (i % 2 == 0 ? "sound," : "broken,") << (i % 2 == 0 ? 10 : 14) + swing << ","
             << (i % 9 == 0 ? "NA" : std::to_string(30 - (i % 2) * 4 + i * 5 % 7)) << "\n";
    }
}

int main()
{
    writeTable();
    // [read]
    const ktKit::Table table = ktKit::readCsv("parts.csv");  // the first column holds the labels, as texts
    for (std::size_t label = 0; label < table.labelNames.size(); ++label) {
        std::cout << label << " is " << table.labelNames[label] << "\n";
    }
    // [read]

    // [train]
    const ktClassifierCosts costs = ktKit::costs({{0, 1}, {10, 0}});  // cost[true][assigned]
    const ktClassifierTrainParamsBayesian params({}, ktKit::frequencies({0.9, 0.1}), costs);
    ktClassifierTool tool;
    tool.train(table.data, params);
    // [train]

    // [validate]
    const std::vector<long> folds = ktKit::stratifiedFolds(ktKit::labels(table.data), 5, 42);
    const ktKit::CrossValidation validation = ktKit::crossValidate(table.data, params, folds, 2);
    ktKit::ConfusionMatrix matrix(table.labelNames);
    matrix += validation.total;
    std::cout << matrix << "cost: " << matrix.cost(costs) << "\n";
    // [validate]

    // [file]
    ktKit::save(tool, "parts.tool");
    const ktClassifierTool loaded = ktKit::load("parts.tool");
    // [file]

    // [run]
    const double rows[] = {9.0, 31.0, 15.0, std::nan("")};  // two patterns; what is not finite is missing
    for (const ktClassifierResult& result : ktKit::runAll(loaded, rows, 2, 2)) {
        const long label = ktKit::decision(result).categoryLabel();
        std::cout << table.labelNames[static_cast<std::size_t>(label)] << ", log-likelihood "
                  << ktKit::logLikelihood(result, label) << "\n";
    }
    // [run]

    // [reject]
    const ktKit::Rejection rejection(tool, table.data, 0.01);
    std::cout << "rejected: " << rejection.rejects(*ktKit::pattern({9.0, 31.0})) << " "
              << rejection.rejects(*ktKit::pattern({99.0, 31.0})) << "\n";
    // [reject]

    // [learn]
    ktKit::add(tool, {ktKit::pattern({11.0, 30.0}), ktKit::pattern({16.0, 27.0})}, {0, 1});
    ktKit::merge(tool, loaded);  // as if each of the first 60 had been there twice
    for (const ktKit::Density& density : ktKit::densities(tool)) {
        std::cout << "category " << density.label << ", measurement " << density.measurements[0] << ": mean "
                  << density.mean[0] << " of " << density.count << "\n";
    }
    // [learn]

    // [neighbors]
    ktClassifierDataProviderMemory complete;
    const ktKit::Patterns all = ktKit::patterns(table.data);
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i]->numInvalid() == 0) {  // nearest neighbours take no gaps
            complete.addData(all[i], table.data.categoryLabel(static_cast<long>(i)));
        }
    }
    const ktKit::Scaler scaler(complete);
    tool.train(scaler.transform(complete), ktClassifierTrainParamsKNN(3));
    for (const ktKit::Neighbor& near : ktKit::neighbors(tool, *scaler.transform(*ktKit::pattern({11.0, 30.0})))) {
        std::cout << "pattern " << near.index << ", " << table.labelNames[static_cast<std::size_t>(near.label)]
                  << ", distance " << near.distance << "\n";
    }
    ktKit::save(tool, scaler, "parts.tool");  // both go into one file
    // [neighbors]
}
