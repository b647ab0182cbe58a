#include "allocation_scenarios.h"

#include <cctype>

namespace {

using trust::allScenarios;
using trust::Scenario;

class WithoutMemory : public ::testing::TestWithParam<std::size_t> {};

TEST_P(WithoutMemory, CallEndsInBadAllocAndLeavesWhatItShould)
{
    const Scenario& scenario = allScenarios()[GetParam()];
    SCOPED_TRACE(scenario.label);
    const long failed = scenario.failEach();
    EXPECT_EQ(failed > 0, scenario.allocates) << failed << " allocations failed in turn";
}

std::string nameOf(const ::testing::TestParamInfo<std::size_t>& info)
{
    std::string name = allScenarios()[info.param].label;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return std::to_string(info.param) + "_" + name;
}

INSTANTIATE_TEST_SUITE_P(Each, WithoutMemory, ::testing::Range(std::size_t{0}, allScenarios().size()), nameOf);

TEST(ScenarioList, HasEightyDifferentCallsThatCanRunOutOfMemory)
{
    std::set<std::string> labels;
    for (const Scenario& scenario : allScenarios()) {
        if (scenario.allocates) {
            labels.insert(scenario.label);
        }
    }
    EXPECT_GE(labels.size(), 80u);
    const auto allocating = std::count_if(allScenarios().begin(), allScenarios().end(),
                                          [](const Scenario& scenario) { return scenario.allocates; });
    EXPECT_EQ(static_cast<long>(labels.size()), allocating) << "a label is there twice";
}

}  // namespace
