#include "kit.h"

#include <cstdlib>

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    addBenchmarks();
    require(benchmark::RunSpecifiedBenchmarks() > 0, "No benchmark has such a name");
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
