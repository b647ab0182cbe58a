// Chooses the inner loops of scans: the best that both the compiler and the processor know, unless a test asks for less.
// docs/neighbor-scan.md, "Processors".

#include "batch_kernels.h"
#include "compact_copy.h"
#include "kernels.h"

#include <kt/compiler.h>

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
    // Kernels are null if the compiler does not know these vectors.
    const int ofCompiler =
        static_cast<int>(kt_avx2Kernels != nullptr) * (1 + static_cast<int>(kt_vnniBatchKernels != nullptr));
    int ofProcessor = 0;
    if (KT_PROCESSOR_HAS_AVX2_AND_FMA) {
        ofProcessor = KT_PROCESSOR_HAS_AVX512_VNNI ? 2 : 1;
    }
    const int chosen = std::min({wanted, ofCompiler, ofProcessor});
    chosenSet.store(chosen, std::memory_order_relaxed);
    return chosen;
}
