#include "batch_kernels.h"
#include "cell_filter.h"
#include "compact_copy.h"
#include "exact_distance.h"
#include "nearest_list.h"

#include "../clastool/decision_rule.h"

#include <kt/config.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Room for the rounding of a few operations and powers in double, where a bound is passed on.
constexpr double slightly = 1.0 + 0x1p-36;

/// Beyond 2^+-800 the exact routine's powers may leave the range in which they tell distances apart.
constexpr double safeExponent = 800.0;

constexpr double largestFloat = std::numeric_limits<float>::max();

std::atomic<int> chosenSet{-1};

const kt_ScanKernels& kernels()
{
    // 1 and 2 are chosen only where there are such kernels.
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.UndefReturn)
    return kt_CompactCopy::instructionSet() >= 1 ? *kt_avx2Kernels : kt_baselineKernels;
}

/// The k smallest values seen so far.
template <class Value>
class Smallest {
public:
    explicit Smallest(std::size_t k) : values_(k) {}

    bool isFull() const { return count_ == values_.size(); }
    /// The largest of them; only when full.
    Value largest() { return values_[0]; }

    void clear() { count_ = 0; }

    /// Returns whether the value is one of them now.
    bool take(Value value)
    {
        if (!isFull()) {
            values_[count_++] = value;
            std::push_heap(values_.begin(), values_.begin() + count_);
            return true;
        }
        if (!(value < values_[0])) {
            return false;
        }
        replaceLargest(value);
        return true;
    }

private:
    /// Lets the value sink from the top of the heap.
    void replaceLargest(Value value)
    {
        Value* const values = values_.data();
        std::size_t place = 0;
        for (std::size_t child = 1; child < count_; child = 2 * place + 1) {
            child += child + 1 < count_ && values[child] < values[child + 1] ? 1 : 0;
            if (!(value < values[child])) {
                break;
            }
            values[place] = values[child];
            place = child;
        }
        values[place] = value;
    }

    kt_Scratch<Value, 256> values_;
    std::size_t count_ = 0;
};

/// Calls `visit` with the place of each bit that is set, in ascending order.
template <class Visit>
void forEachBit(std::uint64_t bits, Visit visit)
{
    for (; bits != 0; bits &= bits - 1) {
        visit(static_cast<std::size_t>(KT_LOWEST_BIT(bits)));
    }
}

/// The lowest bits, at most 64.
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

/// What is known of a row that may be among the nearest.
enum class Known : std::uint32_t { nothing, floatSum, simpleSum };
constexpr std::size_t numKnown = 3;

struct Candidate {
    std::uint32_t row;
    Known known;
    double sum;
};

/// Rows that may still be among the nearest.
class Candidates {
public:
    static constexpr std::size_t capacity = 1024;

    bool isFull() const { return count_ == capacity; }
    void add(const Candidate& candidate) { entries_[count_++] = candidate; }
    /// Keeps those whose sum is not beyond the limit for sums of its kind.
    void keepUpTo(const double (&limits)[numKnown])
    {
        const auto isOut = [&](const Candidate& candidate) {
            return candidate.sum > limits[static_cast<std::size_t>(candidate.known)];
        };
        count_ = static_cast<std::size_t>(std::remove_if(begin(), end(), isOut) - begin());
    }
    void clear() { count_ = 0; }
    Candidate* begin() { return entries_.data(); }
    Candidate* end() { return entries_.data() + count_; }
    std::size_t size() const { return count_; }

private:
    std::array<Candidate, capacity> entries_;
    std::size_t count_ = 0;
};

/// Rows with their exact distances, in any order: those that decide the plain answer. They are the rows nearer than the k-th
/// smallest distance and, of those at this distance, the first k in stored order, so never more than 2 k - 1.
class ExactRows {
public:
    ExactRows(std::size_t k, std::size_t numRows) : k_(k), entries_(std::min(2 * k, numRows)) {}

    bool isEmpty() const { return count_ == 0; }

    void add(std::uint32_t row, double distance)
    {
        const Entry entry{std::isnan(distance) ? infinity : distance, row};
        if (count_ == entries_.size()) {
            if (!(entry < entries_[0])) {
                return;
            }
            std::pop_heap(entries_.begin(), entries_.end());
            --count_;
        }
        entries_[count_++] = entry;
        std::push_heap(entries_.begin(), entries_.begin() + count_);
    }

    /// The rows of the plain answer.
    void finish(kt_RowList& rows)
    {
        std::sort(entries_.begin(), entries_.begin() + count_,
                  [](const Entry& a, const Entry& b) { return a.row < b.row; });
        kt_NearestList list(k_);
        for (std::size_t i = 0; i < count_; ++i) {
            list.insert(entries_[i].row, entries_[i].distance);
        }
        for (std::size_t i = 0; i < rows.size(); ++i) {
            rows[i] = list.row(i);
        }
    }

private:
    struct Entry {
        double distance;
        std::uint32_t row;

        bool operator<(const Entry& other) const
        {
            return distance != other.distance ? distance < other.distance : row < other.row;
        }
    };

    const std::size_t k_;
    kt_Scratch<Entry, 512> entries_;
    std::size_t count_ = 0;
};

}  // namespace

/// One search. Norms and sums are in the copy's scaled units unless said otherwise.
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
          kernels_(kernelsOf(order)),
          floatQuery_(copy.size_),
          exactRows_(k, copy.numRows_)
    {
    }

    /// Whether the bounds below hold for this query and order. Nothing was polled before.
    bool isCertified()
    {
        const auto d = static_cast<double>(size_);
        exactError_ = (8.0 * d + 16.0 * p_ + 2000.0) * 0x1p-53;
        floatSumError_ = (d + 2.0 * p_ + 8.0) * 0x1p-23;
        if (!isSimpleOrder()) {
            floatSumError_ += kt_powerError * p_ + kt_powerErrorFixed;
        }
        if (k_ == 0 || !(p_ >= leastOrder) || !(exactError_ < 0.25) || !(floatSumError_ < 0.25)) {
            return false;
        }
        const bool isFinite = std::all_of(query_.begin(), query_.end(), [](double q) { return std::isfinite(q); });
        if (!isFinite) {
            return false;
        }
        floatLost_ = d * (p_ >= 1.0 ? 0x1p-120 : std::exp2(-120.0 * p_));
        largestSum_ = p_ >= 1.0 ? 0x1p+100 : std::exp2(100.0 * p_);
        const double leastExponent = -safeExponent / std::max(1.0, p_);
        leastNorm_ = std::exp2(leastExponent) * copy_.scale_;
        largestNorm_ = std::exp2(-leastExponent) * copy_.scale_;
        rootOfSize_ = root(d);
        return true;
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

    /// The same without a poll. Returns how many blocks were compared with the query.
    std::size_t runUnasked(kt_RowList& rows)
    {
        isAsked_ = false;
        run(rows);
        return numBlocks_;
    }

    /// Finds the nearest among rows that somebody else found to be all that can be.
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

    /// Below, a value that was brought nearer to zero could pass for one that is not.
    static constexpr double leastOrder = 0x1p-5;
    /// Beyond this a float query is of no use; rows that were brought nearer to zero lie far beyond.
    static constexpr double largestFloatQuery = 0x1p+40;
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    bool isSimpleOrder() const { return p_ == 1.0 || p_ == 2.0 || p_ == 3.0 || p_ == 0.5; }

    static const kt_OrderKernels& kernelsOf(double order)
    {
        const kt_ScanKernels& all = kernels();
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

    // Bounds. What bounds the k-th smallest distance is a norm for orders of 1 and more, and a sum for orders below 1.

    /// Widens such a bound by the exact routine's rounding; infinite where that routine may not tell distances apart.
    double guarded(double bound) const
    {
        const double widened = bound * (1.0 + exactError_) / (1.0 - exactError_) * slightly;
        if (p_ >= 1.0) {
            return widened < largestNorm_ ? std::max(widened, leastNorm_) : infinity;
        }
        const bool isSafe = widened < std::pow(largestNorm_, p_);
        return isSafe ? std::max(widened, std::pow(leastNorm_, p_)) : infinity;
    }

    /// Takes over `bound` if it is the least so far, and renews the limits.
    void tighten(double bound)
    {
        if (bound < bound_) {
            bound_ = bound;
            trueLimit_ = (p_ >= 1.0 ? raised(bound) : bound) * slightly;
            renewFloatLimit();
        }
    }

    /// `sum` is the k-th smallest float sum, or larger.
    void tightenByFloatSum(double sum)
    {
        if (sum < largestSum_) {
            const double highest = (sum + floatLost_) / (1.0 - floatSumError_);
            tighten(guarded((p_ >= 1.0 ? root(highest) : highest) + floatError_));
        }
    }

    /// `sum` is the k-th smallest simple sum, or larger.
    void tightenBySimpleSum(double sum)
    {
        const double highest = (sum + simpleLost()) * slightly;
        tighten(guarded(p_ >= 1.0 ? root(highest) : highest));
    }

    /// The largest float sum, of a row or a box, that goes with a distance within the bound.
    void renewFloatLimit()
    {
        const double widened = bound_ + floatError_;
        const double limit = ((p_ >= 1.0 ? raised(widened) : widened) * (1.0 + floatSumError_) + floatLost_) * slightly;
        limit_ = limit < largestFloat / 2 ? static_cast<float>(limit * (1.0 + 0x1p-22))
                                          : std::numeric_limits<float>::infinity();
    }

    double simpleLost() const { return static_cast<double>(size_) * 0x1p-500; }

    double root(double sum) const
    {
        if (p_ == 2.0) {
            return std::sqrt(sum);
        }
        return p_ == 1.0 ? sum : std::pow(sum, 1.0 / p_) * slightly;
    }

    double raised(double norm) const
    {
        if (p_ == 2.0) {
            return norm * norm;
        }
        return p_ == 1.0 ? norm : std::pow(norm, p_) * slightly;
    }

    // Zones, from the nearest to the farthest.

    void scanZones()
    {
        const auto& zones = copy_.zones_;
        if (zones.size() <= 2) {
            // The second one has the rows that were added.
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
            const double least = raised(byGap[i].first * (1.0 - 0x1p-40)) * (1.0 - 0x1p-36);
            if (!(least > trueLimit_)) {
                scanZone(*byGap[i].second);
            }
        }
    }

    /// How far the query is, in one of its measurements, from everything in the zone.
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

    /// Rows that were added and not sorted yet.
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

    /// Prepares the query for rows relative to these offsets. Returns false if their floats are of no use.
    bool enter(std::size_t offsets)
    {
        if (offsets == offsetsOfQuery_) {
            return isFloatQueryUsable_;
        }
        settle();
        forgetFloatSums();
        offsetsOfQuery_ = offsets;
        const double* const taken = copy_.offsets_[offsets].data();
        double farthest = 0.0;
        for (std::size_t j = 0; j < size_; ++j) {
            const double scaled = (query_[j] - taken[j]) * copy_.scale_;
            farthest = std::max(farthest, std::abs(scaled));
            floatQuery_[j] = static_cast<float>(std::clamp(scaled, -largestFloatQuery, largestFloatQuery));
        }
        isFloatQueryUsable_ = farthest <= largestFloatQuery;
        // Rounding moves a value and the query by 2^-24 of their sizes; of that of the value, what is not part of their
        // difference is that of the query again.
        const double error = farthest * 0x1p-23 * (1.0 + 0x1p-20) + 0x1p-147;
        floatError_ = (p_ >= 1.0 ? error * rootOfSize_ : std::pow(error, p_) * static_cast<double>(size_)) * slightly;
        renewFloatLimit();
        return isFloatQueryUsable_;
    }

    /// Float sums relative to other offsets have other limits.
    void forgetFloatSums()
    {
        smallest_.clear();
        if (candidates_.size() > 0) {
            candidates_.keepUpTo(limits().values);
            for (Candidate& candidate : candidates_) {
                if (candidate.known == Known::floatSum) {
                    candidate = {candidate.row, Known::nothing, 0.0};
                }
            }
        }
    }

    // Boxes, from the nearest to the farthest.

    /// The groups of a large zone.
    void scanGroups(const Zone& zone)
    {
        const std::size_t count = zone.endGroup - zone.firstGroup;
        std::size_t nearest = 0;
        float least = std::numeric_limits<float>::infinity();
        float bounds[kt_blockRows];
        for (std::size_t first = 0; first < count; first += kt_blockRows) {
            boundGroups(zone, first, bounds);
            const std::size_t here = std::min(kt_blockRows, count - first);
            const float* const best = std::min_element(bounds, bounds + here);
            if (*best < least) {
                least = *best;
                nearest = first + static_cast<std::size_t>(best - bounds);
            }
        }
        scanGroup(copy_.groups_[zone.firstGroup + nearest]);
        for (std::size_t first = 0; first < count; first += kt_blockRows) {
            std::uint64_t within = boundGroups(zone, first, bounds);
            if (nearest - first < kt_blockRows) {
                within &= ~(std::uint64_t{1} << (nearest - first));
            }
            forEachNearest(within, bounds,
                           [&](std::size_t i) { scanGroup(copy_.groups_[zone.firstGroup + first + i]); });
        }
    }

    /// Float sums of the boxes around up to 64 groups of a zone; says which are within the limit.
    std::uint64_t boundGroups(const Zone& zone, std::size_t first, float* bounds)
    {
        const std::size_t here = std::min(kt_blockRows, zone.endGroup - zone.firstGroup - first);
        return boundBoxes(zone.boxes.data() + first * 2 * size_, here, bounds);
    }

    std::uint64_t boundBoxes(const float* boxes, std::size_t count, float* bounds)
    {
        const std::size_t padded = kt_CompactCopy::paddedBoxes(count);
        std::fill(bounds + padded, bounds + kt_blockRows, 0.0f);
        return lowest(count) &
               kernels_.boxes(boxes, padded, floatQuery_.begin(), size_, static_cast<float>(p_), limit_, bounds);
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
        const std::uint64_t within = boundBoxes(copy_.boxes_.data() + group.firstBox, blocks, bounds);
        numBounded_ += blocks;
        numScanned_ += forEachNearest(within, bounds, scan);
    }

    /// Boxes cost as much as one block in 25, or one in five where cells tell most rows apart.
    bool doBoxesSave() const { return numBounded_ < 128 || numScanned_ * 4 < numBounded_ * 3; }

    /// Calls `visit` with the boxes that are within the limit when their turn comes. Returns their number.
    template <class Visit>
    std::size_t forEachNearest(std::uint64_t boxes, const float* bounds, Visit visit)
    {
        // After a few, many are visited in the order in which they are stored: memory likes it better, and so does the clock.
        constexpr std::size_t few = 2;
        constexpr std::size_t many = 4;
        std::size_t visited = 0;
        float limit = limit_;
        while (boxes != 0) {
            auto nearest = static_cast<std::size_t>(KT_LOWEST_BIT(boxes));
            if (visited < few || !hasMoreBits(boxes, many)) {
                forEachBit(boxes, [&](std::size_t i) { nearest = bounds[i] < bounds[nearest] ? i : nearest; });
            }
            visit(nearest);
            ++visited;
            boxes &= ~(std::uint64_t{1} << nearest);
            if (limit_ < limit) {
                limit = limit_;
                boxes &= kernels().within(bounds, limit);
            }
        }
        return visited;
    }

    // Rows.

    /// The rows of a block, of which the first `count` exist.
    void scanBlock(std::size_t block, std::size_t count)
    {
        const std::uint64_t existing = lowest(count);
        pollRows(std::min(count, kt_blockRows));
        ++numBlocks_;
        if (useCells()) {
            const std::uint64_t rows = filter_->pass(block, trueLimit_) & existing;
            // When more rows of a block pass, its floats are read where they lie.
            const std::size_t few = isSimpleOrder() ? 8 : 32;
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
        std::uint64_t within = kernels_.rows(copy_.floats_.data() + block * kt_blockRows * size_, floatQuery_.begin(),
                                             size_, static_cast<float>(p_), limit_, sums) &
                               existing;
        if (within == ~std::uint64_t{0} && k_ <= mostForLanes) {
            within = limitFromLanes(sums);
        }
        if (within != 0) {
            take(within, sums, copy_.rowsOf(block));
        }
    }

    /// Whether cells save more time than they cost.
    bool useCells()
    {
        if (filter_) {
            return true;
        }
        if (!copy_.hasCells_ || !(trueLimit_ < 0x1p+100)) {
            return false;
        }
        // The table of the cells' worths takes as long as some blocks; square roots and general powers take longer than others.
        const bool isDear = p_ == 0.5 || !isSimpleOrder();
        const std::size_t usual = kt_CompactCopy::cellsFrom();
        const bool isLarge = numRows_ * size_ >= 80 * usual;
        const std::size_t blocksBefore = std::min<std::size_t>(isDear ? 4 : 16, usual);
        if (numBlocks_ <= blocksBefore || (isSimpleOrder() && !kernels().hasFastCells) || !(isDear || isLarge)) {
            return false;
        }
        filter_.emplace(copy_, query_, p_, kernels_.rows, floatSumError_, kernels().cells);
        return true;
    }

    static constexpr std::size_t mostForLanes = 16;

    /// A first limit: the k-th smallest of the minima of disjoint sets of rows is not less than the k-th smallest sum. Says which
    /// of 64 rows are within it.
    std::uint64_t limitFromLanes(const float* sums)
    {
        const float bound = k_ <= 5    ? boundOfMinima<8>(sums)
                            : k_ <= 10 ? boundOfMinima<16>(sums)
                                       : boundOfMinima<32>(sums);
        tightenByFloatSum(static_cast<double>(bound));
        return kernels().within(sums, limit_);
    }

    template <std::size_t numLanes>
    float boundOfMinima(const float* sums) const
    {
        float minima[numLanes];
        std::copy(sums, sums + numLanes, minima);
        for (std::size_t first = numLanes; first < kt_blockRows; first += numLanes) {
            for (std::size_t lane = 0; lane < numLanes; ++lane) {
                minima[lane] = std::min(minima[lane], sums[first + lane]);
            }
        }
        std::sort(minima, minima + numLanes);
        return minima[k_ - 1];
    }

    void take(std::uint64_t within, const float* sums, const std::uint32_t* rows)
    {
        bool isNearer = false;
        forEachBit(within, [&](std::size_t i) {
            if (!(sums[i] > limit_)) {
                makeRoom();
                candidates_.add({rows[i], Known::floatSum, static_cast<double>(sums[i])});
                isNearer = smallest_.take(sums[i]) || isNearer;
            }
        });
        if (isNearer && smallest_.isFull()) {
            tightenByFloatSum(static_cast<double>(smallest_.largest()));
        }
    }

    /// Takes rows of which nothing is known.
    void takeUnseen(std::size_t firstBlock, std::size_t count)
    {
        pollRows(count);
        const std::uint32_t* const rows = copy_.rowsOf(firstBlock);
        for (std::size_t i = 0; i < count; ++i) {
            makeRoom();
            candidates_.add({rows[i], Known::nothing, 0.0});
        }
    }

    /// Rows that the cells let pass, before their sums are known.
    struct Passed {
        /// After how many further rows the next part of a row is asked for.
        static constexpr std::size_t lead = 4;
        std::array<std::uint32_t, kt_blockRows> rows;
        std::size_t count = 0;
    };

    /// Notes a row. Its handle, pattern and measurements, which lie scattered in memory, are asked for one after the other
    /// as further rows are noted.
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

    /// Takes the sums of the rows, from the patterns, whose measurements lie side by side.
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
        if (isSimpleOrder()) {
            std::transform(passed_.rows.data(), passed_.rows.data() + count, sums, [this](std::size_t row) {
                return static_cast<float>(std::min(simpleSum(row), largestFloat));
            });
        } else {
            sumTogether(sums);
        }
        passed_.count = 0;
        take(lowest(count), sums, passed_.rows.data());
    }

    /// The sums of rows put together as a block of floats.
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
            kernels_.rows(block, floatQuery_.data() + from, length, static_cast<float>(p_),
                          std::numeric_limits<float>::infinity(), part);
            std::transform(sums, sums + kt_blockRows, part, sums, std::plus<>());
        }
    }

    const std::vector<double>& measurements(std::size_t row) const { return store_.patterns_[row]->measurements_; }

    /// The sum of the powers by plain arithmetic: exact but for rounding, and for what terms lose that are subnormal or the
    /// root of a subnormal difference, at most 2^-500 each.
    double simpleSum(std::size_t row) const
    {
        const double* x = measurements(row).data();
        if (p_ == 2.0) {
            return sumOf(x, [](double difference) { return difference * difference; });
        }
        if (p_ == 1.0) {
            return sumOf(x, [](double difference) { return std::abs(difference); });
        }
        if (p_ == 3.0) {
            return sumOf(x, [](double difference) { return difference * difference * std::abs(difference); });
        }
        return sumOf(x, [](double difference) { return std::sqrt(std::abs(difference)); });
    }

    template <class Term>
    double sumOf(const double* x, Term term) const
    {
        constexpr std::size_t lanes = 4;
        const double* q = query_.data();
        const double scale = copy_.scale_;
        double sums[lanes] = {};
        std::size_t j = 0;
        for (; j + lanes <= size_; j += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                sums[lane] += term((x[j + lane] - q[j + lane]) * scale);
            }
        }
        for (; j < size_; ++j) {
            sums[0] += term((x[j] - q[j]) * scale);
        }
        return (sums[0] + sums[1]) + (sums[2] + sums[3]);
    }

    // Candidates.

    struct Limits {
        double values[numKnown];
    };

    /// What the sum of a row among the nearest can be at the most.
    Limits limits() const { return {{infinity, static_cast<double>(limit_), trueLimit_ * slightly + simpleLost()}}; }

    /// Of a full list, sums in double leave few; what even they do not tell apart goes through the exact routine.
    void makeRoom()
    {
        constexpr std::size_t half = Candidates::capacity / 2;
        if (!candidates_.isFull()) {
            return;
        }
        candidates_.keepUpTo(limits().values);
        if (candidates_.size() <= half) {
            return;
        }
        sharpen();
        if (candidates_.size() <= half) {
            return;
        }
        takeExactly();
    }

    /// Keeps those candidates that can be among the nearest by their sums in double.
    void sharpen()
    {
        if (!isSimpleOrder() || candidates_.size() < k_) {
            return;
        }
        for (const Candidate& candidate : candidates_) {
            prefetchPattern(candidate.row);
        }
        for (const Candidate& candidate : candidates_) {
            prefetchMeasurements(candidate.row);
        }
        Smallest<double> smallest(k_);
        for (Candidate& candidate : candidates_) {
            if (candidate.known != Known::simpleSum) {
                candidate = {candidate.row, Known::simpleSum, simpleSum(candidate.row)};
            }
            smallest.take(candidate.sum);
        }
        tightenBySimpleSum(smallest.largest());
        candidates_.keepUpTo(limits().values);
    }

    void takeExactly()
    {
        const std::vector<double>* last = nullptr;
        double distance = 0.0;
        for (const Candidate& candidate : candidates_) {
            const std::vector<double>& values = measurements(candidate.row);
            // Many rows that no sum tells apart are mostly one row many times.
            if (last == nullptr || *last != values) {
                distance = kt_exactDistance(query_.data(), values.data(), size_, p_);
            }
            last = &values;
            exactRows_.add(candidate.row, distance);
        }
        candidates_.clear();
    }

    /// Settles the candidates: if exactly k can be among the nearest they are; otherwise the exact routine decides.
    void refine(kt_RowList& rows)
    {
        candidates_.keepUpTo(limits().values);
        if (candidates_.size() > k_ || !exactRows_.isEmpty()) {
            sharpen();
        }
        if (candidates_.size() == k_ && exactRows_.isEmpty()) {
            std::transform(candidates_.begin(), candidates_.end(), rows.begin(),
                           [](const Candidate& candidate) { return candidate.row; });
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
    const kt_OrderKernels& kernels_;

    double exactError_ = 0.0;
    double floatSumError_ = 0.0;
    double floatLost_ = 0.0;
    double largestSum_ = 0.0;
    double leastNorm_ = 0.0;
    double largestNorm_ = 0.0;
    double rootOfSize_ = 0.0;

    // The query relative to the offsets of the zone that is being scanned, and how far rounding moves norms or sums there.
    kt_Scratch<float, 256> floatQuery_;
    std::size_t offsetsOfQuery_ = none;
    bool isFloatQueryUsable_ = false;
    double floatError_ = 0.0;

    // What bounds the k-th smallest distance, as a norm or, for orders below 1, a sum; its sum; what a float sum can be at the
    // most.
    double bound_ = infinity;
    double trueLimit_ = infinity;
    float limit_ = std::numeric_limits<float>::infinity();

    Smallest<float> smallest_{k_};
    Candidates candidates_;
    ExactRows exactRows_;
    std::optional<kt_CellFilter> filter_;
    Passed passed_;

    bool isAsked_ = true;
    std::size_t numPolled_ = 0;
    std::size_t numBlocks_ = 0;
    // How many blocks had their boxes looked at, and how many of them were scanned all the same.
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

bool kt_CompactCopy::nearestAmong(const std::vector<std::uint32_t>& candidates,
                                  const ktClassifierDataProviderMemory& store, const std::vector<double>& query,
                                  double order, kt_RowList& rows) const
{
    kt_NeighborScan scan(*this, store, query, order, rows.size());
    if (!scan.isCertified()) {
        return false;
    }
    scan.runAmong(candidates, rows);
    return true;
}

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
