// The nearest rows of many queries, by the norm of order 2: in come the queries, out come k rows of each, in no particular order.
// docs/neighbor-scan.md, "Many queries at once", says why the answers are those of runs one by one.
//
// The rows' floats are rounded to 16-bit numbers as they pass, a few blocks at a time, and compared with six queries at once in exact
// 32-bit sums. Such a sum bounds a row's distance from below and above; the k-th smallest upper bound is the query's limit, and
// rows whose lower bound is beyond it are out. A sample of the rows gives the first limit.
//
//     tryOneByOne      a few queries alone: where boxes spare most rows, all are left to runs
//     chooseScale      the steps of the numbers, from a sample of blocks
//     prepare          the queries' numbers
//     findFirstLimits  from the sample
//     compare          all blocks with all queries
//     finish           the few rows that are left of each query, by way of a run's last steps

#include "batch_scan.h"

#include <kt/compiler.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

constexpr double slightly = kt_DistanceLimits::slightly;

/// With fewer queries, rounding the rows takes longer than comparing them by pairs saves; with fewer rows a run costs little.
constexpr std::size_t leastQueries = 32;
constexpr std::size_t leastRows = 512;

/// How many queries are run one by one first, to see how much the boxes spare.
constexpr std::size_t mostTried = 4;

/// How much of the rounded rows stays in the nearest caches while all queries pass.
constexpr std::size_t chunkBytes = 32768;
constexpr std::size_t mostChunkBlocks = 16;

/// The largest number for which the sum of the squared differences of `size` numbers and its parts stay below 2^31, and
/// twice the number below 2^15.
double largestNumber(std::size_t size)
{
    return std::min(std::floor(std::sqrt(0x1p+29 / static_cast<double>(size)) - 1.0), 16383.0);
}

const kt_BatchKernels* chosenKernels()
{
    const int set = kt_CompactCopy::instructionSet();
    return set == 2 ? kt_vnniBatchKernels : set == 1 ? kt_avx2BatchKernels : nullptr;
}

}  // namespace

kt_BatchScan::kt_BatchScan(const kt_CompactCopy& copy, const ktClassifierDataProviderMemory& store, std::size_t k)
    : copy_(copy),
      store_(store),
      k_(k),
      size_(copy.size_),
      numPairs_((copy.size_ + 1) / 2),
      capacity_(4 * k + 128),
      kernels_(chosenKernels())
{
}

bool kt_BatchScan::isWorthwhile(std::size_t numQueries) const
{
    // Rows that lie far away from the others have offsets of their own, so that a query would need other numbers for them.
    return kernels_ != nullptr && numQueries >= leastQueries && copy_.numRows_ >= leastRows &&
           copy_.offsets_.size() == 1 && k_ > 0 && k_ <= kt_blockRows && largestNumber(size_) >= 127.0;
}

std::vector<char> kt_BatchScan::run(const Queries& queries, std::vector<std::size_t>& rows)
{
    std::vector<char> isFound(queries.size(), 0);
    listBlocks();
    if (tryOneByOne(queries, isFound, rows)) {
        findTogether(queries, isFound, rows);
    }
    return isFound;
}

void kt_BatchScan::findTogether(const Queries& queries, std::vector<char>& isFound, std::vector<std::size_t>& rows)
{
    listBlocks();
    if (!chooseScale()) {
        return;
    }
    numbers_.assign((queries.size() + kt_batchQueries - 1) / kt_batchQueries * kt_batchQueries * 2 * numPairs_, 0);
    queries_.clear();
    queries_.reserve(queries.size());
    for (std::size_t i = 0; i < queries.size(); ++i) {
        if (queries[i] != nullptr && isFound[i] == 0) {
            prepare(*queries[i], i);
        }
    }
    candidates_.resize(queries_.size() * capacity_);
    smallest_.resize(queries_.size() * k_);
    findFirstLimits();
    Chunk chunk;
    const std::size_t blockBytes = numbersOfBlock() * sizeof(std::int16_t);
    const std::size_t chunkBlocks = std::clamp<std::size_t>(chunkBytes / blockBytes, 1, mostChunkBlocks);
    for (std::size_t block = 0; block < blocks_.size(); block += chunkBlocks) {
        round(chunk, blocks_.data() + block, std::min(chunkBlocks, blocks_.size() - block));
        for (std::size_t first = 0; first < queries_.size(); first += kt_batchQueries) {
            compare(chunk, first);
        }
    }
    kt_RowList found(k_);
    for (std::size_t i = 0; i < queries_.size(); ++i) {
        if (finish(queries_[i], i, found)) {
            std::copy(found.begin(), found.end(), rows.begin() + static_cast<std::ptrdiff_t>(queries_[i].place * k_));
            isFound[queries_[i].place] = 1;
        }
    }
}

/// The blocks that hold rows, in the order in which they lie.
void kt_BatchScan::listBlocks()
{
    blocks_.clear();
    const auto add = [this](std::size_t first, std::size_t numRows) {
        for (std::size_t row = 0; row < numRows; row += kt_blockRows) {
            blocks_.push_back({static_cast<std::uint32_t>(first + row / kt_blockRows),
                               static_cast<std::uint32_t>(std::min(kt_blockRows, numRows - row))});
        }
    };
    for (const auto& group : copy_.groups_) {
        add(group.firstBlock, group.numRows);
    }
    add(copy_.firstUnsortedBlock_, copy_.numUnsorted_);
}

/// Runs a few queries one by one, which shows how much the boxes spare. Returns whether the others take less time together.
bool kt_BatchScan::tryOneByOne(const Queries& queries, std::vector<char>& isFound, std::vector<std::size_t>& rows) const
{
    std::size_t numCompared = 0;
    std::size_t numTried = 0;
    kt_RowList found(k_);
    for (std::size_t i = 0; i < queries.size() && numTried < mostTried; ++i) {
        if (queries[i] != nullptr && copy_.nearest(store_, *queries[i], 2.0, found, numCompared)) {
            std::copy(found.begin(), found.end(), rows.begin() + static_cast<std::ptrdiff_t>(i * k_));
            isFound[i] = 1;
            ++numTried;
        }
    }
    // In nanoseconds, from measurements on several kinds of data: a block costs a query less together with others, because its
    // rows are read once and few of them are left, but all blocks have to be read and limits to be kept. Alone, a measurement
    // of a block takes longer where the floats are more than the nearest caches hold.
    const std::size_t fifths = blocks_.size() * size_ <= 2048 ? 13 : 25;
    const std::size_t alone = numTried * 300 + numCompared * (20 + fifths * size_ / 5);
    const std::size_t together = numTried * (1400 + blocks_.size() * (5 + 4 * size_ / 5));
    return alone > together;
}

/// Chooses the steps by rows all over the store. Values beyond the range of the numbers are cut off.
bool kt_BatchScan::chooseScale()
{
    std::vector<Block> full;
    std::copy_if(blocks_.begin(), blocks_.end(), std::back_inserter(full),
                 [](const Block& block) { return block.count == kt_blockRows; });
    const std::size_t numSamples = std::min(full.size(), std::clamp<std::size_t>(full.size() / 16, 8, 64));
    samples_.clear();
    float reach = 0.0f;
    for (std::size_t i = 0; i < numSamples; ++i) {
        samples_.push_back(full[i * full.size() / numSamples]);
        const float* const block = copy_.floats_.data() + samples_.back().number * kt_blockRows * size_;
        for (std::size_t j = 0; j < size_ * kt_blockRows; ++j) {
            reach = std::max(reach, std::abs(block[j]));
        }
    }
    most_ = largestNumber(size_);
    // A number of four binary digits, so that floats have it too.
    int exponent = 0;
    const double fraction = std::frexp(most_ / (1.25 * static_cast<double>(reach)), &exponent);
    scale_ = std::ldexp(std::floor(fraction * 16.0), exponent - 4);
    norm_.emplace(2.0, size_, copy_.scale_ * scale_, 0.0);
    // Steps so coarse that floats which were brought nearer to zero count as whole numbers would give bounds that do not hold.
    return scale_ >= 0x1p-40 && scale_ <= 0x1p+60;
}

/// Takes in a query unless it lies beyond the range of the numbers.
void kt_BatchScan::prepare(const std::vector<double>& values, std::size_t place)
{
    const std::size_t index = queries_.size();
    std::int16_t* const numbers =
        numbers_.data() + (index / kt_batchQueries * kt_batchQueries * numPairs_ + index % kt_batchQueries) * 2;
    const double* const offsets = copy_.offsets_.front().data();
    const double unit = copy_.scale_ * scale_;
    double lost = 0.0;
    std::int32_t square = 0;
    for (std::size_t j = 0; j < size_; ++j) {
        const double steps = (values[j] - offsets[j]) * unit;
        if (!(std::abs(steps) <= most_)) {
            return;
        }
        // Rounds to a whole number.
        constexpr double shift = 0x1.8p+52;
        const double number = steps + shift - shift;
        lost += (steps - number) * (steps - number);
        const auto whole = static_cast<std::int32_t>(number);
        square += whole * whole;
        numbers[j / 2 * 2 * kt_batchQueries + j % 2] = static_cast<std::int16_t>(-2 * whole);
    }
    // The floats of the rows were rounded too, and once more in steps.
    const double error = std::sqrt(lost) + most_ * 0x1p-22 * std::sqrt(static_cast<double>(size_));
    queries_.push_back({place, &values, square, error * slightly, infinity, infinity, 0, 0, false, false});
}

void kt_BatchScan::round(Chunk& chunk, const Block* blocks, std::size_t count) const
{
    chunk.blocks.assign(blocks, blocks + count);
    chunk.rows.resize(count * numbersOfBlock());
    chunk.squares.resize(count * kt_blockRows);
    chunk.isCut = false;
    float lost = 0.0f;
    for (std::size_t i = 0; i < count; ++i) {
        const float* const floats = copy_.floats_.data() + blocks[i].number * kt_blockRows * size_;
        bool isCut = false;
        lost = std::max(lost, kernels_->round(floats, size_, static_cast<float>(scale_), static_cast<float>(most_),
                                              chunk.rows.data() + i * numbersOfBlock(),
                                              chunk.squares.data() + i * kt_blockRows, &isCut));
        chunk.isCut = chunk.isCut || isCut;
    }
    chunk.error = std::sqrt(static_cast<double>(lost)) * (1.0 + static_cast<double>(size_ + 8) * 0x1p-22);
}

/// Finds for each query a bound on the k-th distance from the sampled blocks: of the rows at one place of their blocks the
/// nearest counts, and the k-th of those is at least as far as the k-th of all. The scale leaves no sampled value to be cut off.
void kt_BatchScan::findFirstLimits()
{
    Chunk samples;
    round(samples, samples_.data(), samples_.size());
    // Several lists of places where k is large, so that the k nearest have mostly places of their own.
    const std::size_t numLists = std::min(samples_.size(), k_ / 16 + 1);
    const std::size_t listSize = kt_batchQueries * kt_blockRows;
    std::vector<std::int32_t> least(numLists * listSize);
    std::vector<std::int32_t> ofOne(numLists * kt_blockRows);
    for (std::size_t first = 0; first < queries_.size(); first += kt_batchQueries) {
        std::fill(least.begin(), least.end(), std::numeric_limits<std::int32_t>::max());
        for (std::size_t i = 0; i < samples_.size(); ++i) {
            kernels_->lower(samples.rows.data() + i * numbersOfBlock(), samples.squares.data() + i * kt_blockRows,
                            numbersOf(first), numPairs_, least.data() + i % numLists * listSize);
        }
        for (std::size_t q = 0; q < std::min(kt_batchQueries, queries_.size() - first); ++q) {
            for (std::size_t list = 0; list < numLists; ++list) {
                std::copy_n(least.data() + list * listSize + q * kt_blockRows, kt_blockRows,
                            ofOne.data() + list * kt_blockRows);
            }
            setFirstLimit(queries_[first + q], samples.error, ofOne);
        }
    }
}

void kt_BatchScan::setFirstLimit(Query& query, double error, std::vector<std::int32_t>& least) const
{
    const auto kth = least.begin() + static_cast<std::ptrdiff_t>(k_ - 1);
    std::nth_element(least.begin(), kth, least.end());
    const double root = std::sqrt(static_cast<double>(*kth) + static_cast<double>(query.square));
    query.highest = (root + query.error + error) * slightly;
    query.limit = norm_->guarded(query.highest);
    query.isGivenUp = !(query.limit < infinity);
}

/// Compares the blocks with the queries from `first` on, whose limits follow what is found.
void kt_BatchScan::compare(const Chunk& chunk, std::size_t first)
{
    std::array<std::int32_t, kt_batchQueries> limits;
    limits.fill(std::numeric_limits<std::int32_t>::min());
    const std::size_t count = std::min(kt_batchQueries, queries_.size() - first);
    for (std::size_t q = 0; q < count; ++q) {
        setLimit(first + q, chunk.error, limits[q]);
    }
    std::array<std::uint64_t, kt_batchQueries> within;
    std::array<std::int32_t, kt_batchQueries * kt_blockRows> sums;
    for (std::size_t i = 0; i < chunk.blocks.size(); ++i) {
        const Block& block = chunk.blocks[i];
        kernels_->sums(chunk.rows.data() + i * numbersOfBlock(), chunk.squares.data() + i * kt_blockRows,
                       numbersOf(first), numPairs_, limits.data(), within.data(), sums.data());
        const std::uint64_t existing = ~std::uint64_t{0} >> (kt_blockRows - block.count);
        const std::uint32_t* const rows = copy_.rowsOf(block.number);
        for (std::size_t q = 0; q < count; ++q) {
            Query& query = queries_[first + q];
            for (std::uint64_t bits = within[q] & existing; bits != 0; bits &= bits - 1) {
                const auto row = static_cast<std::size_t>(KT_LOWEST_BIT(bits));
                const double square =
                    static_cast<double>(sums[q * kt_blockRows + row]) + static_cast<double>(query.square);
                take(query, first + q, rows[row], std::sqrt(square), chunk);
            }
            if (query.isRenewed) {
                renew(query, first + q);
                setLimit(first + q, chunk.error, limits[q]);
            }
        }
    }
}

/// The largest sum of a row that may be among the nearest.
void kt_BatchScan::setLimit(std::size_t index, double error, std::int32_t& limit) const
{
    const Query& query = queries_[index];
    if (query.isGivenUp) {
        limit = std::numeric_limits<std::int32_t>::min();
        return;
    }
    const double reach = query.limit + query.error + error;
    const double most = reach * reach * slightly + 1.0 - static_cast<double>(query.square);
    limit = static_cast<std::int32_t>(std::min(most, 0x1.fffffffcp+30));
}

/// Notes a row that may be among the nearest.
void kt_BatchScan::take(Query& query, std::size_t index, std::uint32_t row, double root, const Chunk& chunk)
{
    const double error = query.error + chunk.error;
    const double most = chunk.isCut ? infinity : (root + error) * slightly;
    double* const heap = smallest_.data() + index * k_;
    if (query.numSmallest < k_) {
        heap[query.numSmallest++] = most;
        std::push_heap(heap, heap + query.numSmallest);
        query.isRenewed = query.numSmallest == k_;
    } else if (most < heap[0]) {
        std::pop_heap(heap, heap + k_);
        heap[k_ - 1] = most;
        std::push_heap(heap, heap + k_);
        query.isRenewed = true;
    }
    if (query.numCandidates == capacity_) {
        keepNearest(query, index);
        if (query.numCandidates == capacity_) {
            query.isGivenUp = true;
            query.isRenewed = true;
            return;
        }
    }
    // Rounded down.
    const double least = std::max((root - error) * (1.0 - 0x1p-22), 0.0);
    candidates_[index * capacity_ + query.numCandidates++] = {row, static_cast<float>(least)};
}

/// Lowers the limits to what the rows noted so far allow, which are at least k.
void kt_BatchScan::renew(Query& query, std::size_t index)
{
    query.highest = std::min(query.highest, smallest_[index * k_]);
    query.limit = norm_->guarded(query.highest);
    query.isRenewed = false;
}

/// Drops the candidates that are beyond the limit by now.
void kt_BatchScan::keepNearest(Query& query, std::size_t index)
{
    renew(query, index);
    Candidate* const first = candidates_.data() + index * capacity_;
    const double limit = query.limit;
    const auto isBeyond = [limit](const Candidate& candidate) { return static_cast<double>(candidate.least) > limit; };
    query.numCandidates =
        static_cast<std::size_t>(std::remove_if(first, first + query.numCandidates, isBeyond) - first);
}

bool kt_BatchScan::finish(Query& query, std::size_t index, kt_RowList& rows)
{
    if (query.isGivenUp) {
        return false;
    }
    // The limit has let at least the k nearest pass.
    keepNearest(query, index);
    const Candidate* const first = candidates_.data() + index * capacity_;
    const auto rowOf = [](const Candidate& candidate) { return candidate.row; };
    if (query.numCandidates == k_) {
        std::transform(first, first + k_, rows.begin(), rowOf);
        return true;
    }
    std::vector<std::uint32_t> left(query.numCandidates);
    std::transform(first, first + query.numCandidates, left.begin(), rowOf);
    copy_.nearestAmong(left, store_, *query.values, 2.0, rows);
    return true;
}
