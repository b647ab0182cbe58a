// Finds the k nearest rows in a compact copy: the same rows as the plain scan. docs/neighbor-scan.md proves that.
//
// Input: the query, the order of the norm, and k. Output: the k rows, in no particular order. Rows lie in blocks of 64, in the order
// of the leaves of a k-d tree, and each block has a box around it. The search visits blocks from the nearest box to the farthest. In
// a block, float sums give every row's distance except for rounding. The k-th smallest sum gives a limit: boxes and rows beyond it
// are out. Where boxes exclude few blocks, cells of four bits a measurement (cell_filter.h) exclude rows before their floats are
// read. Usually k candidates remain: the answer. If more remain, sums in double decide, and finally the exact routine.
//
//     scanZones        zones, from the nearest to the farthest; scanUnsorted: the rows that were added last
//     scanGroups       boxes around 64 blocks, and scanGroup boxes around a block, from the nearest to the farthest
//     scanBlock        64 rows, by cells or floats
//     refine           the remaining candidates
//
// The limits and their errors are in distance_limits.h, the lists in candidates.h, the inner loops in kernels_*.cpp.

#include "candidates.h"
#include "cell_filter.h"
#include "compact_copy.h"
#include "distance_limits.h"
#include "exact_distance.h"
#include "simple_sum.h"

#include "../clastool/decision_rule.h"

#include <kt/compiler.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace {

using Known = kt_Candidate::Known;

constexpr double largestFloat = std::numeric_limits<float>::max();

const kt_ScanKernels& chosenKernels()
{
    // instructionSet() returns 1 or 2 only where these kernels exist.
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.UndefReturn)
    return kt_CompactCopy::instructionSet() >= 1 ? *kt_avx2Kernels : kt_baselineKernels;
}

/// Calls `visit` with the place of each set bit, in ascending order.
template <class Visit>
void forEachBit(std::uint64_t bits, Visit visit)
{
    for (; bits != 0; bits &= bits - 1) {
        visit(static_cast<std::size_t>(KT_LOWEST_BIT(bits)));
    }
}

/// A mask of the lowest `count` bits, at most 64.
std::uint64_t lowest(std::size_t count)
{
    return count >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
}

bool hasMoreBits(std::uint64_t bits, std::size_t count)
{
    for (; count > 0 && bits != 0; --count) {
        bits &= bits - 1;
    }
    return bits != 0;
}

}  // namespace

/// One search. Norms and sums are in the copy's scaled units unless a comment says otherwise.
class kt_NeighborScan {
public:
    kt_NeighborScan(const kt_CompactCopy& copy, const ktClassifierDataProviderMemory& store,
                    const std::vector<double>& query, double order, std::size_t k)
        : copy_(copy),
          store_(store),
          query_(query),
          p_(order),
          k_(k),
          size_(copy.size_),
          numRows_(copy.numRows_),
          kernels_(chosenKernels()),
          ofOrder_(kernelsOf(kernels_, order)),
          limits_(order, copy.size_, copy.scale_, powerError(order)),
          floatQuery_(copy.size_),
          smallest_(k),
          exactRows_(k, copy.numRows_)
    {
    }

    /// Whether the bounds hold for this query and order. Polls nothing.
    bool isCertified() const
    {
        return k_ > 0 && limits_.areCertified() &&
               std::all_of(query_.begin(), query_.end(), [](double q) { return std::isfinite(q); });
    }

    void run(kt_RowList& rows)
    {
        if (k_ == numRows_) {
            pollRows(numRows_);
            std::iota(rows.begin(), rows.end(), std::size_t{0});
            return;
        }
        scanZones();
        scanUnsorted();
        settle();
        pollRows(numRows_ - numPolled_);
        refine(rows);
    }

    /// The same without a poll. Returns the number of blocks that were compared with the query.
    std::size_t runUnasked(kt_RowList& rows)
    {
        isAsked_ = false;
        run(rows);
        return numBlocks_;
    }

    /// Finds the nearest among the given rows, which contain all of the k nearest.
    void runAmong(const std::vector<std::uint32_t>& found, kt_RowList& rows)
    {
        for (const std::uint32_t row : found) {
            makeRoom();
            candidates_.add({row, Known::nothing, 0.0});
        }
        refine(rows);
    }

private:
    using Zone = kt_CompactCopy::Zone;
    using Group = kt_CompactCopy::Group;

    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    static double powerError(double order) { return kt_powerError * order + kt_powerErrorFixed; }

    static const kt_OrderKernels& kernelsOf(const kt_ScanKernels& all, double order)
    {
        if (order == 2.0) {
            return all.order2;
        }
        if (order == 1.0) {
            return all.order1;
        }
        if (order == 3.0) {
            return all.order3;
        }
        return order == 0.5 ? all.orderHalf : all.anyOrder;
    }

    void pollRows(std::size_t rows)
    {
        numPolled_ += rows;
        if (isAsked_ && kt_attentionHandler.load(std::memory_order_relaxed) != nullptr) {
            for (std::size_t i = 0; i < rows; ++i) {
                kt_pollAttention();
            }
        }
    }

    // Zones, from the nearest to the farthest.

    void scanZones()
    {
        const auto& zones = copy_.zones_;
        if (zones.size() <= 2) {
            // The second zone has the rows that were added.
            for (const Zone& zone : zones) {
                scanZone(zone);
            }
            return;
        }
        std::array<std::pair<double, const Zone*>, 32> byGap;
        std::transform(zones.begin(), zones.end(), byGap.begin(),
                       [this](const Zone& zone) { return std::pair(gapOf(zone), &zone); });
        std::sort(byGap.begin(), byGap.begin() + static_cast<std::ptrdiff_t>(zones.size()));
        for (std::size_t i = 0; i < zones.size(); ++i) {
            const double least = limits_.raised(byGap[i].first * (1.0 - 0x1p-40)) * (1.0 - 0x1p-36);
            if (!(least > limits_.trueLimit())) {
                scanZone(*byGap[i].second);
            }
        }
    }

    /// A lower bound of the query's distance in one measurement from every row of the zone.
    double gapOf(const Zone& zone) const
    {
        if (!zone.isBounded) {
            return 0.0;
        }
        const std::vector<double>& offsets = copy_.offsets_[zone.offsets];
        double farthest = 0.0;
        for (std::size_t j = 0; j < size_; ++j) {
            farthest = std::max(farthest, std::abs(query_[j] - offsets[j]) * copy_.scale_);
        }
        return std::max(0.0, farthest - kt_CompactCopy::zoneReach * (1.0 + 0x1p-20));
    }

    void scanZone(const Zone& zone)
    {
        if (zone.firstGroup == zone.endGroup) {
            return;
        }
        if (!enter(zone.offsets)) {
            for (std::size_t i = zone.firstGroup; i < zone.endGroup; ++i) {
                const Group& group = copy_.groups_[i];
                takeUnseen(group.firstBlock, group.numRows);
            }
            return;
        }
        if (zone.boxes.empty()) {
            for (std::size_t i = zone.firstGroup; i < zone.endGroup; ++i) {
                scanGroup(copy_.groups_[i]);
            }
            return;
        }
        scanGroups(zone);
    }

    /// The rows that were added and are not sorted yet.
    void scanUnsorted()
    {
        if (copy_.numUnsorted_ == 0) {
            return;
        }
        if (!enter(0)) {
            takeUnseen(copy_.firstUnsortedBlock_, copy_.numUnsorted_);
            return;
        }
        const std::size_t blocks = kt_CompactCopy::blocksOf(copy_.numUnsorted_);
        for (std::size_t i = 0; i < blocks; ++i) {
            scanBlock(copy_.firstUnsortedBlock_ + i, copy_.numUnsorted_ - i * kt_blockRows);
        }
    }

    /// Prepares the query for rows relative to these offsets. Returns false if the query is too far from them for floats.
    bool enter(std::size_t offsets)
    {
        if (offsets == offsetsOfQuery_) {
            return isFloatQueryUsable_;
        }
        settle();
        forgetFloatSums();
        offsetsOfQuery_ = offsets;
        const double* const taken = copy_.offsets_[offsets].data();
        constexpr double most = kt_DistanceLimits::largestFloatQuery;
        double farthest = 0.0;
        for (std::size_t j = 0; j < size_; ++j) {
            const double scaled = (query_[j] - taken[j]) * copy_.scale_;
            farthest = std::max(farthest, std::abs(scaled));
            floatQuery_[j] = static_cast<float>(std::clamp(scaled, -most, most));
        }
        isFloatQueryUsable_ = farthest <= most;
        limits_.measureFrom(farthest);
        return isFloatQueryUsable_;
    }

    /// Forgets float sums before the offsets change, because sums relative to other offsets have other limits.
    void forgetFloatSums()
    {
        smallest_.clear();
        if (candidates_.size() > 0) {
            keepWithinLimits();
            for (kt_Candidate& candidate : candidates_) {
                if (candidate.known == Known::floatSum) {
                    candidate = {candidate.row, Known::nothing, 0.0};
                }
            }
        }
    }

    // Boxes, from the nearest to the farthest.

    /// Scans the groups of a large zone. The nearest one comes first, so that the limit excludes most others.
    void scanGroups(const Zone& zone)
    {
        const std::size_t count = zone.endGroup - zone.firstGroup;
        kt_Scratch<float, 256> bounds((count + kt_blockRows - 1) / kt_blockRows * kt_blockRows);
        const auto inBatch = [&](std::size_t first) { return std::min(kt_blockRows, count - first); };
        std::size_t nearest = 0;
        for (std::size_t first = 0; first < count; first += kt_blockRows) {
            boundBoxes(zone.boxes.data() + first * 2 * size_, inBatch(first), bounds.data() + first);
            const std::size_t place = first + leastOf(bounds.data() + first, inBatch(first));
            nearest = bounds[place] < bounds[nearest] ? place : nearest;
        }
        const auto scan = [&](std::size_t i) { scanGroup(copy_.groups_[zone.firstGroup + i]); };
        scan(nearest);
        bounds[nearest] = std::numeric_limits<float>::infinity();
        for (std::size_t first = 0; first < count; first += kt_blockRows) {
            std::uint64_t left = lowest(inBatch(first));
            left &= ~(std::uint64_t{nearest / kt_blockRows == first / kt_blockRows} << nearest % kt_blockRows);
            forEachNearest(left, inBatch(first), bounds.data() + first, [&](std::size_t i) { scan(first + i); });
        }
    }

    void boundBoxes(const float* boxes, std::size_t count, float* bounds)
    {
        const std::size_t padded = kt_CompactCopy::paddedBoxes(count);
        ofOrder_.boxes(boxes, padded, floatQuery_.data(), size_, static_cast<float>(p_), bounds);
        std::fill(bounds + count, bounds + padded, std::numeric_limits<float>::infinity());
    }

    /// The place of the least of `count` sums.
    std::size_t leastOf(const float* sums, std::size_t count) const
    {
        return static_cast<std::size_t>(KT_LOWEST_BIT(kernels_.least(sums, kt_CompactCopy::paddedBoxes(count))));
    }

    void scanGroup(const Group& group)
    {
        const std::size_t blocks = group.numBlocks();
        const auto scan = [&](std::size_t i) { scanBlock(group.firstBlock + i, group.numRows - i * kt_blockRows); };
        if (!doBoxesSave()) {
            for (std::size_t i = 0; i < blocks; ++i) {
                scan(i);
            }
            return;
        }
        float bounds[kt_blockRows];
        boundBoxes(copy_.boxes_.data() + group.firstBox, blocks, bounds);
        numBounded_ += blocks;
        numScanned_ += forEachNearest(lowest(blocks), blocks, bounds, scan);
    }

    /// Computing boxes costs as much as scanning one block in 25, or one in five where cells exclude most rows.
    bool doBoxesSave() const { return numBounded_ < 128 || numScanned_ * 4 < numBounded_ * 3; }

    /// Calls `visit` for each box of the mask `left` that is within the limit when its turn comes. Returns the number of calls.
    /// `bounds` of all other boxes, and of padding, are infinite.
    template <class Visit>
    std::size_t forEachNearest(std::uint64_t left, std::size_t count, float* bounds, Visit visit)
    {
        // If many boxes are left after the first few, they are visited in stored order: reading memory in order is faster.
        constexpr std::size_t few = 2;
        constexpr std::size_t many = 4;
        std::size_t visited = 0;
        while (left != 0) {
            if (visited == few) {
                left &= kernels_.within(bounds, kt_CompactCopy::paddedBoxes(count), limits_.floatLimit());
                if (hasMoreBits(left, many)) {
                    forEachBit(left, [&](std::size_t i) {
                        if (bounds[i] <= limits_.floatLimit()) {
                            visit(i);
                            ++visited;
                        }
                    });
                    break;
                }
            }
            std::size_t nearest = leastOf(bounds, count);
            if (!(bounds[nearest] <= limits_.floatLimit())) {
                break;
            }
            if (bounds[nearest] == std::numeric_limits<float>::infinity()) {
                // All remaining boxes are infinitely far.
                nearest = static_cast<std::size_t>(KT_LOWEST_BIT(left));
            }
            bounds[nearest] = std::numeric_limits<float>::infinity();
            left &= ~(std::uint64_t{1} << nearest);
            visit(nearest);
            ++visited;
        }
        return visited;
    }

    // Rows.

    /// Scans a block, of which the first `count` rows exist.
    void scanBlock(std::size_t block, std::size_t count)
    {
        const std::uint64_t existing = lowest(count);
        pollRows(std::min(count, kt_blockRows));
        ++numBlocks_;
        prefetchNumbers(block);
        if (useCells()) {
            const std::uint64_t rows = filter_->pass(block, limits_.trueLimit()) & existing;
            // If more rows pass, reading the whole block of floats is faster.
            const std::size_t few = limits_.isSimpleOrder() ? 8 : 32;
            if (!hasMoreBits(rows, few)) {
                const std::uint32_t* const numbers = copy_.rowsOf(block);
                forEachBit(rows, [&](std::size_t i) { add(numbers[i]); });
                if (passed_.count > passed_.rows.size() - few) {
                    settle();
                }
                return;
            }
            settle();
        }
        float sums[kt_blockRows];
        std::uint64_t within = ofOrder_.rows(copy_.floats_.data() + block * kt_blockRows * size_, floatQuery_.data(),
                                             size_, static_cast<float>(p_), limits_.floatLimit(), sums) &
                               existing;
        if (within == ~std::uint64_t{0} && k_ <= kt_mostForKth) {
            // The limit excludes no row of this block, so the block may give a closer one.
            limits_.takeFloatSum(kernels_.kth(sums, k_));
            within = kernels_.within(sums, kt_blockRows, limits_.floatLimit());
        }
        if (within != 0) {
            take(within, sums, copy_.rowsOf(block));
        }
    }

    /// The row numbers of the block are needed as soon as its sums are known.
    void prefetchNumbers(std::size_t block) const
    {
        const std::uint32_t* const numbers = copy_.rowsOf(block);
        for (std::size_t i = 0; i < kt_blockRows; i += 64 / sizeof(std::uint32_t)) {
            KT_PREFETCH(numbers + i);
        }
    }

    /// Whether cells save more time than they cost.
    bool useCells()
    {
        if (filter_) {
            return true;
        }
        if (!copy_.hasCells_ || !(limits_.trueLimit() < 0x1p+100)) {
            return false;
        }
        // Making the table of bounds takes as long as a few blocks. Square roots and general powers make floats slow.
        const bool isDear = p_ == 0.5 || !limits_.isSimpleOrder();
        const std::size_t usual = kt_CompactCopy::cellsFrom();
        const bool isLarge = numRows_ * size_ >= 80 * usual;
        const std::size_t blocksBefore = std::min<std::size_t>(isDear ? 4 : 16, usual);
        if (numBlocks_ <= blocksBefore || (limits_.isSimpleOrder() && !kernels_.hasFastCells) || !(isDear || isLarge)) {
            return false;
        }
        filter_.emplace(copy_, query_, p_, ofOrder_.rows, limits_.floatSumError(), kernels_.cells);
        return true;
    }

    void take(std::uint64_t within, const float* sums, const std::uint32_t* rows)
    {
        makeRoom();
        const float before = smallest_.largest();
        forEachBit(within, [&](std::size_t i) {
            candidates_.add({rows[i], Known::floatSum, static_cast<double>(sums[i])});
            smallest_.take(sums[i]);
        });
        if (smallest_.largest() < before) {
            limits_.takeFloatSum(smallest_.largest());
        }
    }

    /// Makes rows candidates without a sum.
    void takeUnseen(std::size_t firstBlock, std::size_t count)
    {
        pollRows(count);
        const std::uint32_t* const rows = copy_.rowsOf(firstBlock);
        for (std::size_t i = 0; i < count; ++i) {
            makeRoom();
            candidates_.add({rows[i], Known::nothing, 0.0});
        }
    }

    /// Rows that pass the cells and have no sum yet.
    struct Passed {
        /// How many rows ahead memory is prefetched.
        static constexpr std::size_t lead = 4;
        std::array<std::uint32_t, kt_blockRows> rows;
        std::size_t count = 0;
    };

    /// Notes a row that passed the cells. Its handle, pattern and measurements are scattered in memory; each is prefetched a few rows
    /// after the one before it.
    void add(std::uint32_t row)
    {
        KT_PREFETCH(&store_.patterns_[row]);
        passed_.rows[passed_.count++] = row;
        if (passed_.count > Passed::lead) {
            prefetchPattern(passed_.rows[passed_.count - 1 - Passed::lead]);
        }
        if (passed_.count > 2 * Passed::lead) {
            prefetchMeasurements(passed_.rows[passed_.count - 1 - 2 * Passed::lead]);
        }
    }

    void prefetchPattern(std::size_t row) const { KT_PREFETCH(&store_.patterns_[row]->measurements_); }

    void prefetchMeasurements(std::size_t row) const
    {
        const char* values = reinterpret_cast<const char*>(measurements(row).data());
        for (std::size_t byte = 0; byte < size_ * sizeof(double); byte += 64) {
            KT_PREFETCH(values + byte);
        }
    }

    /// Computes the sums of the rows that passed the cells, from the patterns: a pattern's measurements are contiguous.
    void settle()
    {
        if (passed_.count == 0) {
            return;
        }
        const std::size_t count = passed_.count;
        for (std::size_t i = count - std::min(count, Passed::lead); i < count; ++i) {
            prefetchPattern(passed_.rows[i]);
        }
        for (std::size_t i = count - std::min(count, 2 * Passed::lead); i < count; ++i) {
            prefetchMeasurements(passed_.rows[i]);
        }
        float sums[kt_blockRows] = {};
        if (limits_.isSimpleOrder()) {
            std::transform(passed_.rows.data(), passed_.rows.data() + count, sums, [this](std::size_t row) {
                return static_cast<float>(std::min(simpleSum(row), largestFloat));
            });
        } else {
            sumTogether(sums);
        }
        passed_.count = 0;
        take(lowest(count), sums, passed_.rows.data());
    }

    /// The sums of the rows that passed, copied into a block of floats for the kernel.
    void sumTogether(float* sums)
    {
        constexpr std::size_t chunk = 64;
        const double* const offsets = copy_.offsets_[offsetsOfQuery_].data();
        for (std::size_t from = 0; from < size_; from += chunk) {
            const std::size_t length = std::min(chunk, size_ - from);
            float block[chunk * kt_blockRows] = {};
            for (std::size_t i = 0; i < passed_.count; ++i) {
                const double* x = measurements(passed_.rows[i]).data() + from;
                for (std::size_t j = 0; j < length; ++j) {
                    block[j * kt_blockRows + i] = copy_.rounded(x[j], offsets[from + j]);
                }
            }
            float part[kt_blockRows];
            ofOrder_.rows(block, floatQuery_.data() + from, length, static_cast<float>(p_),
                          std::numeric_limits<float>::infinity(), part);
            std::transform(sums, sums + kt_blockRows, part, sums, std::plus<>());
        }
    }

    const std::vector<double>& measurements(std::size_t row) const { return store_.patterns_[row]->measurements_; }

    double simpleSum(std::size_t row) const
    {
        return kt_simpleSum(measurements(row).data(), query_.data(), size_, p_, copy_.scale_);
    }

    // Candidates.

    void keepWithinLimits() { candidates_.keepUpTo(static_cast<double>(limits_.floatLimit()), limits_.simpleLimit()); }

    /// Shortens a long list of candidates: first by sums in double, then, if these are equal for too many, by the exact routine.
    void makeRoom()
    {
        if (candidates_.size() < kt_Candidates::many) {
            return;
        }
        constexpr std::size_t half = kt_Candidates::many / 2;
        keepWithinLimits();
        if (candidates_.size() > half) {
            sharpen();
        }
        if (candidates_.size() > half) {
            takeExactly();
        }
    }

    /// Keeps the candidates whose sums in double are within the limit.
    void sharpen()
    {
        if (!limits_.isSimpleOrder() || candidates_.size() < k_) {
            return;
        }
        for (const kt_Candidate& candidate : candidates_) {
            prefetchPattern(candidate.row);
        }
        for (const kt_Candidate& candidate : candidates_) {
            prefetchMeasurements(candidate.row);
        }
        kt_Smallest<double> smallest(k_);
        for (kt_Candidate& candidate : candidates_) {
            if (candidate.known != Known::simpleSum) {
                candidate = {candidate.row, Known::simpleSum, simpleSum(candidate.row)};
            }
            smallest.take(candidate.sum);
        }
        limits_.takeSimpleSum(smallest.largest());
        keepWithinLimits();
    }

    void takeExactly()
    {
        const std::vector<double>* last = nullptr;
        double distance = 0.0;
        for (const kt_Candidate& candidate : candidates_) {
            const std::vector<double>& values = measurements(candidate.row);
            // Many rows with equal sums are usually copies of one row.
            if (last == nullptr || *last != values) {
                distance = kt_exactDistance(query_.data(), values.data(), size_, p_);
            }
            last = &values;
            exactRows_.add(candidate.row, distance);
        }
        candidates_.clear();
    }

    /// Finds the answer among the candidates. If exactly k can be among the nearest, these are the answer; otherwise the exact routine
    /// decides.
    void refine(kt_RowList& rows)
    {
        keepWithinLimits();
        if (candidates_.size() > k_ || !exactRows_.isEmpty()) {
            sharpen();
        }
        if (candidates_.size() == k_ && exactRows_.isEmpty()) {
            std::transform(candidates_.begin(), candidates_.end(), rows.begin(),
                           [](const kt_Candidate& candidate) { return candidate.row; });
            return;
        }
        takeExactly();
        exactRows_.finish(rows);
    }

    const kt_CompactCopy& copy_;
    const ktClassifierDataProviderMemory& store_;
    const std::vector<double>& query_;
    const double p_;
    const std::size_t k_;
    const std::size_t size_;
    const std::size_t numRows_;
    const kt_ScanKernels& kernels_;
    const kt_OrderKernels& ofOrder_;
    kt_DistanceLimits limits_;

    // The query relative to the offsets of the present zone.
    kt_Scratch<float, 256> floatQuery_;
    std::size_t offsetsOfQuery_ = none;
    bool isFloatQueryUsable_ = false;

    // The k smallest float sums, the rows that can still be among the nearest, and the rows with exact distances.
    kt_Smallest<float> smallest_;
    kt_Candidates candidates_;
    kt_ExactRows exactRows_;
    std::optional<kt_CellFilter> filter_;
    Passed passed_;

    bool isAsked_ = true;
    std::size_t numPolled_ = 0;
    std::size_t numBlocks_ = 0;
    // The number of blocks whose boxes were computed, and the number of those that were then scanned.
    std::size_t numBounded_ = 0;
    std::size_t numScanned_ = 0;
};

bool kt_CompactCopy::nearest(const ktClassifierDataProviderMemory& store, const std::vector<double>& query,
                             double order, kt_RowList& rows) const
{
    kt_NeighborScan scan(*this, store, query, order, rows.size());
    if (!scan.isCertified()) {
        return false;
    }
    scan.run(rows);
    return true;
}

bool kt_CompactCopy::nearest(const ktClassifierDataProviderMemory& store, const std::vector<double>& query,
                             double order, kt_RowList& rows, std::size_t& numCompared) const
{
    kt_NeighborScan scan(*this, store, query, order, rows.size());
    if (!scan.isCertified()) {
        return false;
    }
    numCompared += scan.runUnasked(rows);
    return true;
}

void kt_CompactCopy::nearestAmong(const std::vector<std::uint32_t>& candidates,
                                  const ktClassifierDataProviderMemory& store, const std::vector<double>& query,
                                  double order, kt_RowList& rows) const
{
    kt_NeighborScan(*this, store, query, order, rows.size()).runAmong(candidates, rows);
}
