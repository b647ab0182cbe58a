// Sequences of up to four calls over four measurements that declare dependencies and override distribution types, against
// the rules of merging written down one by one.

#include "small_worlds_dependencies.h"

namespace {

using namespace trust;

TEST(SmallWorldOfDependencies, EverySequenceOfSubsets)
{
    std::vector<Indices> subsets;
    for (Indices& list : orderedLists()) {
        if (std::is_sorted(list.begin(), list.end())) {
            subsets.push_back(list);
        }
    }
    ASSERT_EQ(subsets.size(), 16u);
    EXPECT_EQ(checkSubsetsFrom(newWorld(), subsets, 4, ""), 16 + 256 + 4096 + 65536);
}

void expectAnswers(const DependencyWorld& world, const std::vector<Indices>& lists)
{
    for (long index = 0; index < 4; ++index) {
        ASSERT_EQ(world.types.distributionType(label, index), world.model.typeOf(index)) << index;
    }
    for (const Indices& list : lists) {
        ASSERT_EQ(world.types.isDependent(label, list), world.model.isDependent(list))
            << ::testing::PrintToString(list);
    }
}

// The calls are functions of what the object holds, all of which its archive has. So from values that two sequences both
// lead to, the rest of both is the same, and is made once.
TEST(SmallWorldOfDependencies, EverySequenceOfOrderedListsAndOverrides)
{
    const std::vector<Indices> lists = orderedLists();
    ASSERT_EQ(lists.size(), 65u);
    std::vector<DependencyCall> calls;
    for (const Indices& list : lists) {
        calls.push_back({list});
    }
    calls.push_back({{2, 0, 2, 0, 3}});
    for (long index = 0; index < 4; ++index) {
        calls.push_back({{index}, true, Types::eNormal});
        calls.push_back({{index}, true, Types::eBinomial});
    }
    std::map<std::string, DependencyWorld> worlds{{kt_test::store(newWorld().types), newWorld()}};
    for (int length = 1; length <= 4; ++length) {
        std::map<std::string, DependencyWorld> longer;
        for (const auto& entry : worlds) {
            for (const DependencyCall& call : calls) {
                DependencyWorld next = entry.second;
                const bool agreed = make(next, call);
                ASSERT_TRUE(agreed && isSame(next))
                    << nameOf(call) << " on " << ::testing::PrintToString(entry.second.model.sets);
                longer.emplace(kt_test::store(next.types), next);
            }
        }
        worlds = longer;
        for (const auto& entry : worlds) {
            expectAnswers(entry.second, lists);
            ASSERT_FALSE(HasFatalFailure()) << ::testing::PrintToString(entry.second.model.sets);
        }
    }
    EXPECT_GT(worlds.size(), 300u);
}

}  // namespace
