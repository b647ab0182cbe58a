// Eight threads run one tool of each technique 20,000 times each. The environment variable KT_THREAD_RUNS gives another
// number of runs.

#include "threads/long_runs.h"

namespace {

using namespace long_runs;

TEST(LongRunsOnThreads, BayesianTool)
{
    // Loaded: none of its densities has been evaluated before the threads begin.
    runOnEachThread(kt_test::storedAndLoaded(bayes()));
}

TEST(LongRunsOnThreads, NeighborTool)
{
    runOnEachThread(neighbors());
}

TEST(LongRunsOnThreads, TreeTool)
{
    runOnEachThread(tree());
}

}  // namespace
