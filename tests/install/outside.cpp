// A program outside this project: trains, decides, stores, loads and catches an error of the library by its class.

#include <clastool/clastool.h>

#include <iostream>
#include <sstream>

namespace {

ktClassifierTool trained()
{
    ktClassifierDataProviderMemory data;
    for (long label : {1L, 2L, 3L}) {
        const std::vector<double> measurements{static_cast<double>(10 * label)};
        data.addData(new ktFeaturePattern(measurements, {}), label);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsKNN(1));
    return tool;
}

long decision(const ktClassifierTool& tool, double measurement)
{
    ktClassifierResult result;
    tool.run(ktFeaturePattern({measurement}, {}), result);
    return result.categoryResults().at(0).categoryLabel();
}

bool refusesToRunUntrained()
{
    try {
        decision(ktClassifierTool(), 0.0);
    } catch (const ktClassifierDefs::NotTrained&) {
        return true;
    }
    return false;
}

}  // namespace

int main()
{
    ktClassifierTool tool = trained();
    std::stringstream stream;
    ktArchive store(static_cast<std::ostream&>(stream));
    store || tool;
    ktArchive load(static_cast<std::istream&>(stream));
    ktClassifierTool loaded;
    load || loaded;

    const bool right = decision(tool, 19.0) == 2 && decision(loaded, 29.0) == 3 && refusesToRunUntrained();
    std::cout << (right ? "right\n" : "wrong\n");
    return right ? 0 : 1;
}
