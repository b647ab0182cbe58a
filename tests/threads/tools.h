#pragma once

// What several threads share: tools of each technique, the patterns that they are asked about, and an object with a count.

#include "threads/each_thread.h"

#include "support/result_bits.h"

namespace threads {

/// Four categories of a joint group, a single measurement and a binomial one.
inline ktClassifierTool bayesTool()
{
    ktClassifierDistributionTypes types;
    ktClassifierDataProviderMemory data;
    for (long label = 0; label < 4; ++label) {
        types.setDependent(label, {0, 1, 2, 3});
        types.distributionTypeOverride(label, 5, ktClassifierDistributionTypes::eBinomial);
        const auto shift = static_cast<double>(label);
        for (int row = 0; row < 9; ++row) {
            const double x = 0.5 * row;
            data.addData(
                kt_test::pattern({x + shift, x * x, 3.0 - shift * x, x - 2.0 * shift, shift, static_cast<double>(row)}),
                label);
        }
    }
    ktClassifierTool tool;
    tool.train(data,
               ktClassifierTrainParamsBayesian(types, {}, {}, ktFeaturePattern(std::vector<double>(6, 20.0), {})));
    return tool;
}

inline const std::vector<kt_test::PatternHandle>& bayesQueries()
{
    static const std::vector<kt_test::PatternHandle> made = {
        kt_test::pattern({1.0, 2.0, 3.0, 0.5, 1.0, 4.0}),
        kt_test::pattern({1.0, 2.0, 3.0, 0.5, 1.0, 4.0}, {1, 3}),
        kt_test::pattern({4.0, 2.5, -3.0, -0.5, 3.0, 9.0}, {5}),
        kt_test::pattern({1e200, 0.0, 0.0, 0.0, 0.0, 0.0}),
    };
    return made;
}

inline std::vector<ktClassifierResult> bayesAnswers(const ktClassifierTool& tool)
{
    return kt_test::answersOf(tool, bayesQueries());
}

/// Points on a grid, so that there are ties.
inline ktClassifierTool gridTool()
{
    std::vector<kt_test::Labelled> rows;
    for (int i = 0; i < 60; ++i) {
        rows.push_back({{static_cast<double>(i % 5), static_cast<double>(i % 7)}, i % 3});
    }
    ktClassifierTool tool;
    tool.train(kt_test::trainingData(rows),
               ktClassifierTrainParamsKNN(7, ktPatternDistanceMetricNorm(3.0), ktClassifierCosts(2.0)));
    return tool;
}

inline std::vector<kt_test::PatternHandle> gridQueries()
{
    std::vector<kt_test::PatternHandle> made;
    for (int i = 0; i < 20; ++i) {
        made.push_back(kt_test::pattern({0.25 * i, 5.0 - 0.25 * i}));
    }
    return made;
}

/// Nine comparisons and range tests over three measurements, with shared subtrees, and scores that are not round.
inline ktPtrHandle<ktDecisionTree> decisions()
{
    ktPtrHandle<ktDecisionTree> tree =
        ktDecisionTreeLeaf(ktClassifierResult({{1, 1.0 / 3.0, 0.1, 0.7}, {2, 2.0 / 3.0, 0.2, 0.3}}, -0.1)).clone();
    for (long i = 0; i < 9; ++i) {
        const ktDecisionTreeLeaf aside(
            ktClassifierResult({{i, 1.0 / (3.0 + static_cast<double>(i)), 0.3, 0.1}}, 1.0 / 7.0));
        if (i % 2 == 0) {
            tree = new ktDecisionTreeNode(ktComparisonPredicate(i % 3, (i + 1) % 3), *tree,
                                          ktDecisionTreeNode(ktValidityPredicate(), *tree, aside));
        } else {
            tree = new ktDecisionTreeNode(ktRangePredicate(ktRange(0.25, 0.75), {i % 3}), aside, *tree);
        }
    }
    return tree;
}

inline std::vector<ktFeaturePattern> randomPatterns(unsigned seed)
{
    std::mt19937 random(seed);
    const auto value = [&random] { return static_cast<double>(random() % 1000) / 1000.0; };
    std::vector<ktFeaturePattern> made;
    for (int i = 0; i < 300; ++i) {
        const std::vector<long> invalid = i % 5 == 0 ? std::vector<long>{i % 3} : std::vector<long>();
        made.emplace_back(std::vector<double>{value(), value(), value()}, invalid);
    }
    return made;
}

/// Every bit of the results of runs one by one.
inline std::vector<std::vector<std::uint64_t>> bitsOfAnswers(const ktClassifierTool& tool,
                                                             const std::vector<ktFeaturePattern>& asked)
{
    std::vector<std::vector<std::uint64_t>> found;
    ktClassifierResult result;
    for (const ktFeaturePattern& pattern : asked) {
        tool.run(pattern, result);
        found.push_back(kt_test::bitsOf(result));
    }
    return found;
}

inline std::vector<kt_test::PatternHandle> patternsWithTies(long count)
{
    std::vector<kt_test::PatternHandle> made;
    for (long i = 0; i < count; ++i) {
        made.push_back(kt_test::pattern(kt_test::measurementsWithTies(i)));
    }
    return made;
}

inline ktClassifierTool toolWithTies(const ktClassifierTrainParams& params)
{
    ktClassifierDataProviderMemory data;
    for (const auto& pattern : patternsWithTies(600)) {
        data.addData(pattern, data.numPatterns() % 3);
    }
    ktClassifierTool tool;
    tool.train(data, params);
    return tool;
}

// Enough for boxes around groups of blocks.
inline constexpr int numPatterns = 4200;

enum class Copy { fresh, grown, stale };

struct Case {
    const char* name;
    Copy copy;
    double order;
};

class NeighborThreads : public testing::TestWithParam<Case> {
protected:
    void SetUp() override
    {
        const ktPtrHandle<ktFeaturePattern> owned = new ktFeaturePattern({1.0, 2.0, 3.0}, {});
        ktClassifierDataProviderMemory data;
        data.addData(owned, 0);
        for (int i = 0; i < numPatterns; ++i) {
            data.addData(kt_test::pattern(kt_test::measurementsWithTies(i)), i % 5);
        }
        const ktPatternDistanceMetricNorm norm(GetParam().order);
        classifier_.train(data, ktClassifierTrainParamsKNN(5, norm, ktClassifierCosts(1.0)));
        if (GetParam().copy == Copy::grown) {
            for (int i = 0; i < 100; ++i) {
                classifier_.trainIncremental(*kt_test::pattern(kt_test::measurementsWithTies(i * 3)), 1);
            }
        }
        if (GetParam().copy == Copy::stale) {
            *owned = ktFeaturePattern({4.0, 5.0, 6.0}, {});
        }
    }

    std::vector<ktClassifierResult> answers() const
    {
        std::vector<kt_test::PatternHandle> queries;
        for (int i = 0; i < 8; ++i) {
            queries.push_back(kt_test::pattern({3.0 * i, 5.0 * i, 2.0}));
        }
        return kt_test::answersOf(classifier_, queries);
    }

    /// How many of the threads, which begin together, get the answers of runs one by one.
    int threadsThatAgree() const
    {
        const std::vector<ktClassifierResult> expected = answers();
        std::atomic<int> agreeing{0};
        onEachThread<fewThreads>([&](int) { agreeing += answers() == expected ? 1 : 0; });
        return agreeing;
    }

    kt_ClassifierKNN classifier_;
};

/// Knows how many of it live and on which thread the last one died.
class Shared : public ktPersistent, public ktRepBase {
public:
    Shared() { ++alive; }
    ~Shared() override
    {
        --alive;
        diedOn = std::this_thread::get_id();
    }

    long number = 0;

    static ktPersistent* make() { return new Shared; }

    static inline std::atomic<long> alive{0};
    static inline std::atomic<std::thread::id> diedOn;

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version);
            archive || number;
        });
    }
};

inline const kt_Instantiator sharedEntry(typeid(Shared), &Shared::make, "Shared");

}  // namespace threads
