#include <clastool/data_generators.h>

#include <iostream>
#include <numeric>
#include <utility>
#include <vector>

int main()
{
    // [one]
    kt_ClassDataGenerator rings({{20.0, 0.02}, {5.0, 0.05}}, 100);  // mean and standard deviation of each measurement
    ktClassifierDataProviderMemory data = rings.generateData();     // 100 patterns of 2 measurements, label 0
    // [one]

    // [seed]
    ktRandomGaussian random(2);  // another seed for each category
    for (long i = 0; i < 100; ++i) {
        const double diameter = random.next(20.3, 0.02);
        const double width = random.next(5.0, 0.05);
        data.addData(new ktFeaturePattern({diameter, width}, {}), 1);
    }
    // [seed]
    std::cout << data.numPatterns() << " patterns of 2 categories\n";

    const std::vector<kt_ClassDataGenerator> classes = {rings, kt_ClassDataGenerator({{20.3, 0.02}, {5.0, 0.05}}, 50)};
    // [all]
    ktClassifierDataProviderMemory all;
    for (std::size_t c = 0; c < classes.size(); ++c) {
        ktClassifierDataProviderMemory made = kt_ClassDataGenerator(classes[c]).generateData();
        for (long i = 0; i < made.numPatterns(); ++i) {
            all.addData(made.featurePattern(i), static_cast<long>(c));
        }
    }
    // [all]

    // [shuffle]
    std::vector<long> order(static_cast<std::size_t>(all.numPatterns()));
    std::iota(order.begin(), order.end(), 0L);
    ktRandomUniform shuffler(1);
    for (std::size_t n = order.size(); n > 1; --n) {
        const auto drawn = static_cast<std::size_t>(shuffler.next(0.0, static_cast<double>(n)));  // below n
        std::swap(order[n - 1], order[drawn]);
    }
    ktClassifierDataProviderMemory shuffled;
    for (const long i : order) {
        shuffled.addData(all.featurePattern(i), all.categoryLabel(i));
    }
    // [shuffle]
    std::cout << "the labels of the first ten:";
    for (long i = 0; i < 10; ++i) {
        std::cout << " " << shuffled.categoryLabel(i);
    }
    std::cout << "\n";
}
