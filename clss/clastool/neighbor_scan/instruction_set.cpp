// Which set of inner loops scans use: the best that both the compiler and the processor know, unless a test asks for less.
// docs/neighbor-scan.md, "Processors".

#include "batch_kernels.h"
#include "compact_copy.h"
#include "kernels.h"

#include <kt/config.h>

#include <algorithm>
#include <atomic>

namespace {

std::atomic<int> chosenSet{-1};

}  // namespace

int kt_CompactCopy::instructionSet() noexcept
{
    const int chosen = chosenSet.load(std::memory_order_relaxed);
    return chosen >= 0 ? chosen : instructionSet(2);
}

int kt_CompactCopy::instructionSet(int wanted) noexcept
{
    int possible = 0;
    if (kt_avx2Kernels != nullptr &&  // not covered: null where no compiler knows these vectors
        KT_PROCESSOR_HAS_AVX2_AND_FMA) {
        possible = kt_vnniBatchKernels != nullptr && KT_PROCESSOR_HAS_AVX512_VNNI ? 2 : 1;
    }
    chosenSet.store(std::min(wanted, possible), std::memory_order_relaxed);
    return std::min(wanted, possible);
}
