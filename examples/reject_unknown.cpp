// Rejects patterns that belong to no category, by limits on their likelihood that are learnt from the training data. The
// class scores of a result cannot tell: they are shares, and add up to 1 for a pattern that fits nowhere too. Takes any file
// whose first column names the categories, and how many of the measurements are modelled jointly.

#include "common/errors.h"
#include "common/options.h"

#include <iomanip>
#include <iostream>
#include <numeric>

namespace {

/// Patterns each of whose measurements was really measured, but no two of them on one sample.
ktKit::Patterns strangers(const ktKit::Patterns& samples)
{
    ktKit::Patterns mixed;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        std::vector<double> values = samples[i]->featureMeasurements(false);
        for (std::size_t j = 0; j < values.size(); ++j) {
            values[j] = samples[(i + 5 * j) % samples.size()]->featureMeasurements(false)[j];
        }
        mixed.push_back(ktKit::pattern(values));
    }
    return mixed;
}

int rejectUnknown(const std::string& path, long numJoint)
{
    const ktKit::Table table = ktKit::readCsv(path);
    const ktKit::Split rows = ktKit::split(table.data, ktKit::stratifiedFolds(ktKit::labels(table.data), 3, 1), 0);
    const ktKit::Patterns known = ktKit::patterns(rows.test);
    const ktKit::Patterns unknown = strangers(known);
    // What no category has is a matter of how measurements go together.
    std::vector<long> group(static_cast<std::size_t>(numJoint));
    std::iota(group.begin(), group.end(), 0L);
    ktClassifierDistributionTypes types;
    for (const long label : examples::categoriesOf(table)) {
        types.setDependent(label, group);
    }
    ktClassifierTool tool;
    tool.train(rows.training, ktClassifierTrainParamsBayesian(types));
    std::cout << rows.training.numPatterns() << " samples to learn from. Rejected of " << known.size()
              << " others, and of as many strangers:\n\n  share of the training   others   strangers\n";
    for (const double share : {0.0, 0.01, 0.02, 0.05}) {
        const ktKit::Rejection rejection(tool, rows.training, share);
        const auto rejects = [&](const auto& pattern) { return rejection.rejects(*pattern); };
        std::cout << std::setw(22) << 100.0 * share << " %" << std::setw(8)
                  << std::count_if(known.begin(), known.end(), rejects) << std::setw(12)
                  << std::count_if(unknown.begin(), unknown.end(), rejects) << "\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return argc == 3 ? rejectUnknown(argv[1], std::strtol(argv[2], nullptr, 10))
                         : throw std::runtime_error("usage: reject_unknown CSV NUMBER_OF_JOINT_MEASUREMENTS");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
