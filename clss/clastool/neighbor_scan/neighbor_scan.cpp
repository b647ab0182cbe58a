#include "compact_copy.h"
#include "exact_distance.h"
#include "nearest_list.h"

#include "../clastool/decision_rule.h"

#include <kt/config.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
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

    template <class Visit>
    void forEach(Visit visit)
    {
        std::for_each(values_.begin(), values_.begin() + count_, visit);
    }

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
        : copy_(copy), store_(store), query_(query), p_(order), k_(k), size_(copy.size_), numRows_(copy.numRows_)
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
        Candidates candidates;
        if (hasCodes() && gatherByCodes(candidates)) {
            refine(candidates, rows);
            return;
        }
        Candidates fromFloats;
        kt_Scratch<float> query(size_);
        for (std::size_t j = 0; j < size_; ++j) {
            query[j] = static_cast<float>((query_[j] - copy_.offsets_[j]) * copy_.scale_);
        }
        const double limit = gatherByFloats(query.data(), fromFloats);
        if (!fromFloats.hasOverflowed() && limit < infinity) {
            refine(fromFloats, rows);
            return;
        }
        scanExactly(query.data(), limit, rows);
    }

private:
    bool isSimpleOrder() const { return p_ == 1.0 || p_ == 2.0 || p_ == 3.0 || p_ == 0.5; }

    /// Once a row, all in the first pass over the rows.
    void pollRows(std::size_t rows)
    {
        if (!hasPolled_ && kt_attentionHandler.load(std::memory_order_relaxed) != nullptr) {
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

    /// The largest float sum that a row among the nearest can have, when `sum` is the k-th smallest.
    double limitForFloatSum(double sum) const
    {
        const double highest = (sum + floatLost_) / (1.0 - floatSumError_);
        double reachable = 0.0;
        if (p_ >= 1.0) {
            reachable = raised(guarded(root(highest) + floatError_) + floatError_);
        } else {
            reachable = guarded(highest + floatError_) + floatError_;
        }
        return (reachable * (1.0 + floatSumError_) + floatLost_) * slightly;
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

    double gatherByFloats(const float* query, Candidates& candidates)
    {
        const kt_FloatKernel kernel = floatKernel();
        Smallest<float> smallest(k_);
        double limit = infinity;
        float sums[kt_blockRows];
        for (std::size_t first = 0; first < numRows_; first += kt_blockRows) {
            const std::size_t rows = std::min(kt_blockRows, numRows_ - first);
            pollRows(rows);
            const float* block = copy_.floats_.data() + first * size_;
            if (kernel(block, query, size_, static_cast<float>(p_), upwards(limit), sums) == 0) {
                continue;
            }
            bool isNearer = false;
            for (std::size_t i = 0; i < rows; ++i) {
                if (!(static_cast<double>(sums[i]) > limit)) {
                    if (candidates.isFull()) {
                        candidates.keepUpTo(limit);
                    }
                    candidates.add(first + i, static_cast<double>(sums[i]));
                    isNearer = smallest.take(sums[i]) || isNearer;
                }
            }
            if (isNearer && smallest.isFull()) {
                limit = std::min(limit, limitForFloatSum(static_cast<double>(smallest.largest())));
            }
        }
        hasPolled_ = true;
        candidates.keepUpTo(limit);
        return limit;
    }

    static float upwards(double limit)
    {
        constexpr double most = std::numeric_limits<float>::max();
        return limit < most / 2 ? static_cast<float>(limit * (1.0 + 0x1p-22)) : std::numeric_limits<float>::infinity();
    }

    bool hasCodes() const { return copy_.hasCodes_ && (p_ == 1.0 || p_ == 2.0); }

    double copyCodeError() const { return p_ == 1.0 ? copy_.codeError1_ : copy_.codeError2_; }

    /// The largest sum of code differences that a row can have whose norm is bounded by `norm`.
    double limitForNorm(double norm) const
    {
        const double steps = (guarded(norm) + codeError_) / copy_.step_;
        return (p_ == 1.0 ? steps : steps * steps) * slightly + 1.0;
    }

    double limitForCodeSum(double sum) const
    {
        return limitForNorm((p_ == 1.0 ? sum : std::sqrt(sum)) * copy_.step_ * slightly + codeError_);
    }

    /// The codes of the query, and how far they and any row's codes are from what they stand for.
    void encode(kt_Scratch<std::uint8_t, 256>& codes)
    {
        double absolute = 0.0;
        double squares = 0.0;
        codes[codes.size() - 1] = 0;
        for (std::size_t j = 0; j < size_; ++j) {
            const double scaled = (query_[j] - copy_.codeOffsets_[j]) * copy_.scale_;
            const double code = std::clamp(std::floor(scaled / copy_.step_ + 0.5), 0.0, 127.0);
            codes[j] = static_cast<std::uint8_t>(code);
            const double lost = 0x1p-52 * copy_.scale_ * (std::abs(query_[j]) + std::abs(copy_.codeOffsets_[j]));
            const double error = std::abs(code * copy_.step_ - scaled) * slightly + lost;
            absolute += error;
            squares += error * error;
        }
        const double rounding = 1.0 + 0x1p-50 * static_cast<double>(size_ + 8);
        codeError_ = (p_ == 1.0 ? absolute : std::sqrt(squares)) * rounding + copyCodeError();
    }

    /// Returns false if the codes leave too many rows.
    bool gatherByCodes(Candidates& candidates)
    {
        constexpr double saturated = 65535.0;
        const std::size_t evenSize = size_ + size_ % 2;
        kt_Scratch<std::uint8_t, 256> codes(evenSize);
        encode(codes);
        const kt_CodeKernel kernel = p_ == 1.0 ? kernels().codes1 : kernels().codes2;
        Smallest<std::uint16_t> smallest(k_);
        double limit = saturated;
        std::uint16_t sums[kt_blockRows];
        std::size_t tightenAt = 16 * kt_blockRows;
        for (std::size_t first = 0; first < numRows_; first += kt_blockRows) {
            const std::size_t rows = std::min(kt_blockRows, numRows_ - first);
            pollRows(rows);
            if (first >= tightenAt && smallest.isFull() && !candidates.hasOverflowed()) {
                limit = tightened(candidates, limit);
                tightenAt *= 4;
            }
            const std::uint8_t* block = copy_.codes_.data() + first * evenSize;
            if (kernel(block, codes.data(), evenSize, static_cast<std::uint16_t>(limit), sums) == 0) {
                continue;
            }
            bool isNearer = false;
            for (std::size_t i = 0; i < rows; ++i) {
                if (!(sums[i] > limit)) {
                    if (candidates.isFull() && !candidates.hasOverflowed()) {
                        limit = tightened(candidates, limit);
                    }
                    candidates.add(first + i, sums[i]);
                    isNearer = smallest.take(sums[i]) || isNearer;
                }
            }
            if (isNearer && smallest.isFull()) {
                limit = std::min(limit, limitForCodeSum(smallest.largest()));
            }
        }
        hasPolled_ = true;
        if (candidates.hasOverflowed() || !(limit < saturated)) {
            return false;
        }
        tightened(candidates, limit);
        return true;
    }

    /// A limit from the true distances of the k candidates with the smallest codes; drops the candidates beyond it.
    double tightened(Candidates& candidates, double limit)
    {
        candidates.keepUpTo(limit);
        if (candidates.size() < k_) {
            return limit;
        }
        Smallest<std::pair<double, std::size_t>> best(k_);
        for (const Candidate& candidate : candidates) {
            best.take({candidate.key, candidate.row});
        }
        double farthest = 0.0;
        best.forEach([&](const auto& entry) { farthest = std::max(farthest, simpleSum(entry.second)); });
        const double norm = root(farthest) * copy_.scale_ * slightly;
        const double tighter = std::min(limit, limitForNorm(norm));
        candidates.keepUpTo(tighter);
        return tighter;
    }

    const std::vector<double>& measurements(std::size_t row) const { return store_.patterns_[row]->measurements_; }

    /// The sum of the powers by plain arithmetic, in the measurements' own units: exact but for rounding.
    double simpleSum(std::size_t row) const
    {
        const double* x = measurements(row).data();
        const double* q = query_.data();
        double sum = 0.0;
        for (std::size_t j = 0; j < size_; ++j) {
            const double difference = std::abs(x[j] - q[j]);
            if (p_ == 2.0) {
                sum += difference * difference;
            } else if (p_ == 1.0) {
                sum += difference;
            } else {
                sum += p_ == 3.0 ? difference * difference * difference : std::sqrt(difference);
            }
        }
        return sum;
    }

    /// Settles the candidates: if exactly k can be among the nearest they are; otherwise the exact routine decides.
    void refine(Candidates& candidates, kt_RowList& rows)
    {
        if (candidates.size() > k_ && isSimpleOrder()) {
            fetch(candidates);
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

    /// The rows lie scattered in memory: asking for all of them first lets the processor wait for many at once.
    void fetch(Candidates& candidates) const
    {
        for (const Candidate& candidate : candidates) {
            KT_PREFETCH(store_.patterns_[candidate.row].get());
        }
        for (const Candidate& candidate : candidates) {
            const char* values = reinterpret_cast<const char*>(measurements(candidate.row).data());
            for (std::size_t byte = 0; byte < size_ * sizeof(double); byte += 64) {
                KT_PREFETCH(values + byte);
            }
        }
    }

    /// The same bound as `guarded`, for sums in the measurements' own units.
    double limitForSimpleSum(double sum) const
    {
        const double least = std::exp2(-safeExponent * std::min(1.0, p_));
        const double largest = std::exp2(safeExponent * std::min(1.0, p_));
        const double widened = sum * (1.0 + exactError_) / (1.0 - exactError_) * slightly;
        return widened < largest ? std::max(widened, least) : infinity;
    }

    double exactDistance(std::size_t row) const
    {
        return kt_exactDistance(query_.data(), measurements(row).data(), size_, p_);
    }

    /// Too many rows are within the limit to list them: they go through the exact routine as they come.
    void scanExactly(const float* query, double limit, kt_RowList& rows)
    {
        const kt_FloatKernel kernel = floatKernel();
        kt_NearestList list(k_);
        float sums[kt_blockRows];
        for (std::size_t first = 0; first < numRows_; first += kt_blockRows) {
            const float* block = copy_.floats_.data() + first * size_;
            if (kernel(block, query, size_, static_cast<float>(p_), upwards(limit), sums) == 0) {
                continue;
            }
            const std::size_t count = std::min(kt_blockRows, numRows_ - first);
            for (std::size_t i = 0; i < count; ++i) {
                if (!(static_cast<double>(sums[i]) > limit)) {
                    list.insert(first + i, exactDistance(first + i));
                }
            }
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
    double codeError_ = 0.0;
    double leastNorm_ = 0.0;
    double largestNorm_ = 0.0;
    bool hasPolled_ = false;
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
    const int possible = kt_avx2Kernels != nullptr && KT_PROCESSOR_HAS_AVX2_AND_FMA ? 1 : 0;
    chosenSet.store(std::min(wanted, possible), std::memory_order_relaxed);
    return std::min(wanted, possible);
}
