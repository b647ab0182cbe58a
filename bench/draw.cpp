// Writes the measurements that the benchmarks draw, for programs in other languages: draw KIND PATTERNS MEASUREMENTS SEED.
// Doubles of this machine, pattern behind pattern, on standard output; the labels are 0 to 4 in turn.

#include "kit/kit.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    require(argc == 5, "draw KIND PATTERNS MEASUREMENTS SEED");
    const LabelledPatterns data =
        drawKind(argv[1], std::atol(argv[2]), std::atol(argv[3]), static_cast<unsigned long>(std::atol(argv[4])));
    for (std::size_t i = 0; i < data.size(); ++i) {
        const std::vector<double>& values = data.values(i);
        require(std::fwrite(values.data(), sizeof(double), values.size(), stdout) == values.size(), "Cannot write");
    }
    return EXIT_SUCCESS;
}
