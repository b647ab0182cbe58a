#include "bayes/bayes_kit.h"
#include "threads/tools.h"

namespace {

using namespace bayes;
using namespace threads;

// First, so that the table is not there yet.
TEST(BayesThreads, ThreadsRaceToTheTableOfLogarithmsAndGiveTheSameBits)
{
    const kt_PDFBinomial density = bayes::binomialWith(1000, 0.25, 1.0);
    std::vector<double> values(numThreads);
    onEachThread([&](int i) { values[static_cast<std::size_t>(i)] = density.logValue(ktFeaturePattern({0.25}, {})); });
    for (const double value : values) {
        EXPECT_EQ(value, values[0]);
    }
    // At k = n theta the probability is close to 1/sqrt(2 pi n theta (1 - theta)).
    EXPECT_NEAR(values[0], -0.5 * std::log(2.0 * 3.14159265358979 * 1000 * 0.25 * 0.75), 1e-3);
}

TEST(BayesThreads, ThreadsRaceToTheFactorisationAndGiveTheSameBits)
{
    const ktClassifierTool tool = bayesTool();
    const std::vector<ktClassifierResult> expected = bayesAnswers(tool);
    const std::string bytes = kt_test::store(tool);
    for (int round = 0; round < 50; ++round) {
        // A loaded tool has evaluated none of its densities.
        const ktClassifierTool fresh = kt_test::load<ktClassifierTool>(bytes);
        std::atomic<int> wrong{0};
        onEachThread([&](int) { wrong += bayesAnswers(fresh) == expected ? 0 : 1; });
        EXPECT_EQ(wrong, 0) << round;
    }
}

TEST(BayesThreads, ThreadsRunOneTool)
{
    const ktClassifierTool tool = bayesTool();
    const std::vector<ktClassifierResult> expected = bayesAnswers(tool);
    std::atomic<int> wrong{0};
    onEachThread([&](int) {
        for (int i = 0; i < 200; ++i) {
            wrong += bayesAnswers(tool) == expected ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(BayesThreads, ThreadsEvaluateALargeGroupWithAMissingMeasurement)
{
    constexpr std::size_t size = 40;
    std::vector<std::vector<double>> rows;
    ktNormalDensity density;
    ASSERT_EQ(density.prepare(size), 0);
    for (std::size_t row = 0; row < 60; ++row) {
        rows.emplace_back();
        for (std::size_t i = 0; i < size; ++i) {
            rows.back().push_back(std::sin(static_cast<double>(row * row + 17 * row * i)));
        }
        density.learnRows(rows.back().data(), 1);
    }
    bool valid[size];
    std::fill(valid, valid + size, true);
    valid[3] = false;
    const auto logsOf = [&](const ktNormalDensity& evaluated) {
        std::vector<double> logs(rows.size());
        for (std::size_t row = 0; row < rows.size(); ++row) {
            evaluated.logDensity({rows[row].data(), valid, size}, logs[row]);
        }
        return logs;
    };
    const std::vector<double> expected = logsOf(density);
    EXPECT_NE(expected.front(), expected.back());
    const ktNormalDensity fresh(density);
    std::atomic<int> wrong{0};
    onEachThread([&](int) { wrong += logsOf(fresh) == expected ? 0 : 1; });
    EXPECT_EQ(wrong, 0);
}

TEST(BayesThreads, ThreadsRenewWhatAModelKeepsAfterItsDensitiesHaveLearnt)
{
    using Model = kt_CategoryModelBayesian;
    Model model(1, {{0}, {1}}, {Types::eNormal, Types::eNormal}, {});
    const auto teach = [&](double x) { model.adapt(ktFeaturePattern({x, x * x}, {}), nullptr, 0); };
    teach(1.0);
    teach(2.0);
    const Model copy(model);
    const ktFeaturePattern query({1.5, 3.0}, {});
    for (int round = 0; round < 100; ++round) {
        teach(3.0 + round);
        const double expected = kt_test::storedAndLoaded(copy).matchScore(query, nullptr, 0);
        std::atomic<int> wrong{0};
        onEachThread([&](int) {
            for (int i = 0; i < 10; ++i) {
                wrong += copy.matchScore(query, nullptr, 0) == expected ? 0 : 1;
            }
        });
        EXPECT_EQ(wrong, 0) << round;
    }
}

TEST(BayesThreads, CopiesThatShareModelsRunAndGoOnAllThreads)
{
    const ktClassifierTool tool = bayesTool();
    const std::vector<ktClassifierResult> expected = bayesAnswers(tool);
    const ktClassifierTool fresh = kt_test::storedAndLoaded(tool);
    std::atomic<int> wrong{0};
    onEachThread([&](int) {
        for (int i = 0; i < 50; ++i) {
            ktClassifierTool copy(fresh);
            wrong += bayesAnswers(copy) == expected ? 0 : 1;
            wrong += copy == tool ? 0 : 1;
            copy.untrain();
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(BayesThreads, ToolIsStoredWhileItRuns)
{
    ktClassifierTool tool = bayesTool();
    const std::vector<ktClassifierResult> expected = bayesAnswers(tool);
    const std::string bytes = kt_test::store(tool);
    const ktClassifierTool fresh = kt_test::load<ktClassifierTool>(bytes);
    std::atomic<int> wrong{0};
    onEachThread([&](int i) {
        for (int round = 0; round < 50; ++round) {
            wrong += (i % 2 == 0 ? bayesAnswers(fresh) == expected : kt_test::store(fresh) == bytes) ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}

}  // namespace
