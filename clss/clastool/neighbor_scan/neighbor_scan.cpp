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
#include <utility>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Room for the rounding of a few operations and powers in double, where a bound is passed on.
constexpr double slightly = 1.0 + 0x1p-36;

/// Beyond 2^+-800 the exact routine's powers may leave the range in which they tell distances apart.
constexpr double safeExponent = 800.0;

std::atomic<int> chosenSet{-1};

const kt_ScanKernels& kernels()
{
    // 1 is chosen only where there are such kernels.
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.UndefReturn)
    return kt_CompactCopy::instructionSet() == 1 ? *kt_avx2Kernels : kt_baselineKernels;
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
        if (isFull()) {
            if (!(value < values_[0])) {
                return false;
            }
            std::pop_heap(values_.begin(), values_.end());
            values_[count_ - 1] = value;
        } else {
            values_[count_++] = value;
        }
        std::push_heap(values_.begin(), values_.begin() + count_);
        return true;
    }

private:
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

bool hasMoreBits(std::uint64_t bits, std::size_t count)
{
    for (; count > 0 && bits != 0; --count) {
        bits &= bits - 1;
    }
    return bits != 0;
}

struct Candidate {
    std::size_t row;
    double key;
};

/// Rows that may still be among the nearest, in stored order.
class Candidates {
public:
    static constexpr std::size_t capacity = 1024;

    bool isFull() const { return count_ == capacity; }
    bool hasOverflowed() const { return overflowed_; }
    void add(std::size_t row, double key)
    {
        if (isFull()) {
            overflowed_ = true;
        } else {
            entries_[count_++] = {row, key};
        }
    }
    void keepUpTo(double limit)
    {
        const auto isOut = [limit](const Candidate& candidate) { return candidate.key > limit; };
        count_ = static_cast<std::size_t>(std::remove_if(begin(), end(), isOut) - begin());
    }
    Candidate* begin() { return entries_.data(); }
    Candidate* end() { return entries_.data() + count_; }
    std::size_t size() const { return count_; }

private:
    std::array<Candidate, capacity> entries_;
    std::size_t count_ = 0;
    bool overflowed_ = false;
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
          floatQuery_(copy.size_)
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
        floatLost_ = d * std::exp2(-120.0 * std::min(1.0, p_));
        if (k_ == 0 || !(p_ > 0.0) || !(exactError_ < 0.25) || !(floatSumError_ < 0.25)) {
            return false;
        }
        double reach = 0.0;
        double error = 0.0;
        for (std::size_t j = 0; j < size_; ++j) {
            const double scaled = (query_[j] - copy_.offsets_[j]) * copy_.scale_;
            if (!(std::abs(scaled) <= 0x1p+40)) {
                return false;
            }
            const double rounded = static_cast<double>(static_cast<float>(scaled));
            const double lost = 0x1p-52 * copy_.scale_ * (std::abs(query_[j]) + std::abs(copy_.offsets_[j]));
            error = std::max(error, std::abs(rounded - scaled) + lost);
            reach = std::max(reach, std::abs(rounded));
        }
        if (!(p_ * std::log2(reach + copy_.reach_) + std::log2(d) < 100.0)) {
            return false;
        }
        // By the triangle inequality for orders of 1 and more, by subadditivity of the power below.
        floatError_ = p_ >= 1.0 ? (copy_.floatError_ + error) * std::pow(d, 1.0 / p_) * slightly
                                : (std::pow(copy_.floatError_, p_) + std::pow(error, p_)) * d * slightly;
        const double leastExponent = -safeExponent / std::max(1.0, p_);
        leastNorm_ = std::exp2(leastExponent) * copy_.scale_;
        largestNorm_ = std::exp2(-leastExponent) * copy_.scale_;
        return std::isfinite(floatError_);
    }

    void run(kt_RowList& rows)
    {
        if (k_ == numRows_) {
            pollRows(numRows_);
            std::iota(rows.begin(), rows.end(), std::size_t{0});
            return;
        }
        for (std::size_t j = 0; j < size_; ++j) {
            floatQuery_[j] = copy_.rounded(query_[j], j);
        }
        Candidates candidates;
        if (hasCells()) {
            kt_CellFilter filter(copy_, query_, p_, floatKernel(), floatSumError_, kernels().cells);
            gather(candidates, &filter);
        } else {
            gather(candidates, nullptr);
        }
        if (!candidates.hasOverflowed() && limit_ < infinity) {
            refine(candidates, rows);
        } else {
            scanExactly(rows);
        }
    }

private:
    bool isSimpleOrder() const { return p_ == 1.0 || p_ == 2.0 || p_ == 3.0 || p_ == 0.5; }

    /// Once a row, in the first pass over the rows.
    void pollRows(std::size_t rows)
    {
        if (kt_attentionHandler.load(std::memory_order_relaxed) != nullptr) {
            for (std::size_t i = 0; i < rows; ++i) {
                kt_pollAttention();
            }
        }
    }

    /// A norm that bounds the k-th smallest one, widened by the exact routine's rounding; infinite where that routine may
    /// not tell distances apart. Orders below 1 are given and taken as sums.
    double guarded(double norm) const
    {
        const double widened = norm * (1.0 + exactError_) / (1.0 - exactError_) * slightly;
        if (p_ >= 1.0) {
            return widened < largestNorm_ ? std::max(widened, leastNorm_) : infinity;
        }
        const bool isSafe = widened < std::pow(largestNorm_, p_);
        return isSafe ? std::max(widened, std::pow(leastNorm_, p_)) : infinity;
    }

    /// Renews the limits, with `sum` as the k-th smallest float sum.
    void tighten(double sum)
    {
        const double highest = (sum + floatLost_) / (1.0 - floatSumError_);
        double limit = 0.0;
        double trueLimit = 0.0;
        if (p_ >= 1.0) {
            const double norm = guarded(root(highest) + floatError_);
            trueLimit = raised(norm) * slightly;
            limit = raised(norm + floatError_);
        } else {
            trueLimit = guarded(highest + floatError_);
            limit = trueLimit + floatError_;
        }
        limit_ = std::min(limit_, (limit * (1.0 + floatSumError_) + floatLost_) * slightly);
        trueLimit_ = std::min(trueLimit_, trueLimit);
    }

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

    kt_FloatKernel floatKernel() const
    {
        const kt_ScanKernels& all = kernels();
        if (p_ == 2.0) {
            return all.order2;
        }
        if (p_ == 1.0) {
            return all.order1;
        }
        if (p_ == 3.0) {
            return all.order3;
        }
        return p_ == 0.5 ? all.orderHalf : all.anyOrder;
    }

    /// Whether cells save more time than they cost.
    bool hasCells() const
    {
        if (!isSimpleOrder()) {
            return copy_.hasCells_;
        }
        // Square roots take longer than the other three.
        const bool isLarge = p_ == 0.5 || numRows_ * size_ >= 80 * kt_CompactCopy::cellsFrom();
        return copy_.hasCells_ && kernels().hasFastCells && isLarge;
    }

    /// Lists the rows whose sums are within the limit, of those that the filter lets pass.
    void gather(Candidates& candidates, kt_CellFilter* filter)
    {
        sample();
        Passed passed;
        // When more rows of a block pass, its floats are read where they lie.
        const std::size_t few = isSimpleOrder() ? 8 : 32;
        for (std::size_t first = 0; first < numRows_; first += kt_blockRows) {
            const std::size_t count = std::min(kt_blockRows, numRows_ - first);
            const std::uint64_t existing = ~std::uint64_t{0} >> (kt_blockRows - count);
            pollRows(count);
            if (filter != nullptr && trueLimit_ < infinity) {
                const std::uint64_t rows = filter->pass(first / kt_blockRows, trueLimit_) & existing;
                if (rows == 0) {
                    continue;
                }
                if (!hasMoreBits(rows, few)) {
                    forEachBit(rows, [&](std::size_t i) { add(passed, first + i); });
                    if (passed.count > passed.rows.size() - few) {
                        settle(passed, candidates);
                    }
                    continue;
                }
                settle(passed, candidates);
            }
            float sums[kt_blockRows];
            const std::uint64_t rows = floatSums(copy_.floats_.data() + first * size_, sums) & existing;
            const auto rowOf = [first](std::size_t i) { return first + i; };
            take(rows, sums, rowOf, candidates);
        }
        settle(passed, candidates);
        candidates.keepUpTo(limit_);
    }

    /// Finds a first limit from rows all over the store, so that its order matters little: were the farthest rows stored
    /// first, each of them would be nearer than all before it.
    void sample()
    {
        constexpr std::size_t numBlocks = 8;
        const std::size_t blocks = numRows_ / kt_blockRows;
        if (blocks < 8 * numBlocks) {
            return;
        }
        for (std::size_t i = 1; i <= numBlocks; ++i) {
            const std::size_t first = (blocks * i / numBlocks - 1) * kt_blockRows;
            float sums[kt_blockRows];
            forEachBit(floatSums(copy_.floats_.data() + first * size_, sums),
                       [&](std::size_t row) { smallest_.take(sums[row]); });
            if (smallest_.isFull()) {
                tighten(static_cast<double>(smallest_.largest()));
            }
        }
        smallest_.clear();
    }

    /// The rows of a block of floats whose sums are within the limit.
    std::uint64_t floatSums(const float* block, float* sums)
    {
        return floatKernel()(block, floatQuery_.data(), size_, static_cast<float>(p_), upwards(limit_), sums);
    }

    template <class RowOf>
    void take(std::uint64_t within, const float* sums, RowOf rowOf, Candidates& candidates)
    {
        bool isNearer = false;
        forEachBit(within, [&](std::size_t i) {
            const auto sum = static_cast<double>(sums[i]);
            if (!(sum > limit_)) {
                if (candidates.isFull()) {
                    candidates.keepUpTo(limit_);
                }
                candidates.add(rowOf(i), sum);
                isNearer = smallest_.take(sums[i]) || isNearer;
            }
        });
        if (isNearer && smallest_.isFull()) {
            tighten(static_cast<double>(smallest_.largest()));
        }
    }

    /// Rows that the filter let pass, before their float sums are known.
    struct Passed {
        /// After how many further rows the next part of a row is asked for.
        static constexpr std::size_t lead = 4;
        std::array<std::size_t, kt_blockRows> rows;
        std::size_t count = 0;
    };

    /// Notes a row. Its handle, pattern and measurements, which lie scattered in memory, are asked for one after the other
    /// as further rows are noted.
    void add(Passed& passed, std::size_t row) const
    {
        KT_PREFETCH(&store_.patterns_[row]);
        passed.rows[passed.count++] = row;
        if (passed.count > Passed::lead) {
            prefetchPattern(passed.rows[passed.count - 1 - Passed::lead]);
        }
        if (passed.count > 2 * Passed::lead) {
            prefetchMeasurements(passed.rows[passed.count - 1 - 2 * Passed::lead]);
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
    void settle(Passed& passed, Candidates& candidates)
    {
        if (passed.count == 0) {
            return;
        }
        const std::uint64_t listed = ~std::uint64_t{0} >> (kt_blockRows - passed.count);
        for (std::size_t i = passed.count - std::min(passed.count, Passed::lead); i < passed.count; ++i) {
            prefetchPattern(passed.rows[i]);
        }
        for (std::size_t i = passed.count - std::min(passed.count, 2 * Passed::lead); i < passed.count; ++i) {
            prefetchMeasurements(passed.rows[i]);
        }
        float sums[kt_blockRows] = {};
        if (isSimpleOrder()) {
            std::transform(passed.rows.data(), passed.rows.data() + passed.count, sums,
                           [this](std::size_t row) { return static_cast<float>(simpleSum(row)); });
        } else {
            sumTogether(passed, sums);
        }
        const auto rowOf = [&](std::size_t i) { return passed.rows[i]; };
        take(listed, sums, rowOf, candidates);
        passed.count = 0;
    }

    static float upwards(double limit)
    {
        constexpr double most = std::numeric_limits<float>::max();
        return limit < most / 2 ? static_cast<float>(limit * (1.0 + 0x1p-22)) : std::numeric_limits<float>::infinity();
    }

    /// The sums of rows put together as a block of floats.
    void sumTogether(const Passed& passed, float* sums)
    {
        constexpr std::size_t chunk = 64;
        for (std::size_t from = 0; from < size_; from += chunk) {
            const std::size_t length = std::min(chunk, size_ - from);
            float block[chunk * kt_blockRows] = {};
            for (std::size_t i = 0; i < passed.count; ++i) {
                const double* x = measurements(passed.rows[i]).data() + from;
                for (std::size_t j = 0; j < length; ++j) {
                    block[j * kt_blockRows + i] = copy_.rounded(x[j], from + j);
                }
            }
            float part[kt_blockRows];
            floatKernel()(block, floatQuery_.data() + from, length, static_cast<float>(p_),
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

    /// Settles the candidates: if exactly k can be among the nearest they are; otherwise the exact routine decides.
    void refine(Candidates& candidates, kt_RowList& rows)
    {
        if (candidates.size() > k_ && isSimpleOrder()) {
            for (const Candidate& candidate : candidates) {
                prefetchPattern(candidate.row);
            }
            for (const Candidate& candidate : candidates) {
                prefetchMeasurements(candidate.row);
            }
            Smallest<double> smallest(k_);
            for (Candidate& candidate : candidates) {
                candidate.key = simpleSum(candidate.row);
                smallest.take(candidate.key);
            }
            candidates.keepUpTo(limitForSimpleSum(smallest.largest()));
        }
        if (candidates.size() == k_) {
            std::transform(candidates.begin(), candidates.end(), rows.begin(),
                           [](const Candidate& candidate) { return candidate.row; });
            return;
        }
        kt_NearestList list(k_);
        for (const Candidate& candidate : candidates) {
            list.insert(candidate.row, exactDistance(candidate.row));
        }
        takeRows(list, rows);
    }

    static void takeRows(kt_NearestList& list, kt_RowList& rows)
    {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            rows[i] = list.row(i);
        }
    }

    /// The largest simple sum that a row among the nearest can have, when `sum` is the k-th smallest.
    double limitForSimpleSum(double sum) const
    {
        const double lost = static_cast<double>(size_) * 0x1p-500;
        const double highest = (sum + lost) * slightly;
        return (p_ >= 1.0 ? raised(guarded(root(highest))) : guarded(highest)) * slightly + lost;
    }

    double exactDistance(std::size_t row) const
    {
        return kt_exactDistance(query_.data(), measurements(row).data(), size_, p_);
    }

    /// Too many rows are within the limit to list them: they go through the exact routine as they come.
    void scanExactly(kt_RowList& rows)
    {
        kt_NearestList list(k_);
        for (std::size_t first = 0; first < numRows_; first += kt_blockRows) {
            const std::size_t count = std::min(kt_blockRows, numRows_ - first);
            float sums[kt_blockRows];
            const std::uint64_t within = floatSums(copy_.floats_.data() + first * size_, sums);
            forEachBit(within & (~std::uint64_t{0} >> (kt_blockRows - count)),
                       [&](std::size_t i) { list.insert(first + i, exactDistance(first + i)); });
        }
        takeRows(list, rows);
    }

    const kt_CompactCopy& copy_;
    const ktClassifierDataProviderMemory& store_;
    const std::vector<double>& query_;
    const double p_;
    const std::size_t k_;
    const std::size_t size_;
    const std::size_t numRows_;

    double exactError_ = 0.0;
    double floatSumError_ = 0.0;
    double floatLost_ = 0.0;
    double floatError_ = 0.0;
    double leastNorm_ = 0.0;
    double largestNorm_ = 0.0;

    kt_Scratch<float, 256> floatQuery_;
    Smallest<float> smallest_{k_};
    // What a row among the nearest can have at the most: as a float sum, and as the true one.
    double limit_ = infinity;
    double trueLimit_ = infinity;
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

int kt_CompactCopy::instructionSet() noexcept
{
    const int chosen = chosenSet.load(std::memory_order_relaxed);
    return chosen >= 0 ? chosen : instructionSet(1);
}

int kt_CompactCopy::instructionSet(int wanted) noexcept
{
    const int possible = kt_avx2Kernels != nullptr &&  // not covered: null where no compiler knows these vectors
                                 KT_PROCESSOR_HAS_AVX2_AND_FMA
                             ? 1
                             : 0;
    chosenSet.store(std::min(wanted, possible), std::memory_order_relaxed);
    return std::min(wanted, possible);
}
