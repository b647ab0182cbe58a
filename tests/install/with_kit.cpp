// A program outside this project that uses the kit: trains, saves, loads, and runs on two threads.

#include <clastool/kit.h>

#include <iostream>
#include <limits>
#include <vector>

int main()
{
    ktClassifierDataProviderMemory data;
    for (const double x : {1.0, 2.0, 3.0, 11.0, 12.0, 13.0}) {
        data.addData(ktKit::pattern({x, 2.0 * x}), x < 10.0 ? 0 : 1);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian());
    ktKit::save(tool, "with_kit.tool");
    const ktClassifierTool loaded = ktKit::load("with_kit.tool");

    const ktKit::Patterns queries = {ktKit::pattern({2.0, std::numeric_limits<double>::quiet_NaN()}),
                                     ktKit::pattern({12.0, 24.0})};
    const std::vector<ktClassifierResult> results = ktKit::runAll(loaded, queries, 2);
    bool right = ktKit::decision(results[0]).categoryLabel() == 0 && ktKit::decision(results[1]).categoryLabel() == 1;
    try {
        ktKit::load("no such file");
        right = false;
    } catch (const ktKit::FileError&) {
        // As it should be.
    }
    std::cout << (right ? "right\n" : "wrong\n");
    return right ? 0 : 1;
}
