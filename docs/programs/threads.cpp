#include <clastool/clastool.h>

#include <iostream>
#include <thread>
#include <vector>

int main()
{
    ktClassifierDataProviderMemory parts;
    for (int i = 0; i < 1000; ++i) {
        const double length = 10.0 + i / 1000.0;
        parts.addData(new ktFeaturePattern({length}, {}), length < 10.5 ? 0 : 1);
    }
    ktClassifierTool tool;
    tool.train(parts, ktClassifierTrainParamsKNN(5));

    // [threads]
    const ktClassifierTool& shared = tool;  // const: nobody trains it meanwhile
    std::vector<long> labels(400);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            ktClassifierResult result;  // each thread has its own
            for (std::size_t i = t; i < labels.size(); i += 4) {
                shared.run(ktFeaturePattern({10.0 + static_cast<double>(i) / 400.0}, {}), result);
                labels[i] = result.categoryResults().front().categoryLabel();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // [threads]
    long ones = 0;
    for (const long label : labels) {
        ones += label;
    }
    std::cout << ones << " of " << labels.size() << " are of category 1\n";
}
