// Finds the nearest rows of many queries, by the norm of order 2. In come the queries, out come k rows of each, in no particular order.
// docs/neighbor-scan.md, "Many queries at once", proves that the answers are those of single runs.
//
// The search takes a few blocks at a time. It rounds their floats to 16-bit numbers and compares them with six queries at once in exact
// 32-bit sums. A sum gives a lower and an upper bound on a row's distance. The k-th smallest upper bound is the query's limit. Rows
// whose lower bound exceeds the limit are dropped. The floats of one block give the first limit.
//
//     tryOneByOne      runs a few queries alone; if the boxes exclude most rows, all others run alone too
//     makeParts        joins neighbouring blocks, which share a centre and a scale
//     prepare          converts the queries to floats
//     findBounds       computes the distances of queries from the boxes of blocks, or of parts if those of blocks exclude little
//     findFirstLimits  gives each query a limit from one block
//     comparePart      compares a few blocks at a time with the queries that they may concern
//     finish           settles the few remaining rows of each query by the last steps of a run

#include "batch_scan.h"

#include <kt/compiler.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr std::int32_t noSum = std::numeric_limits<std::int32_t>::min();

constexpr double slightly = kt_DistanceLimits::slightly;

/// With fewer queries, rounding the rows costs more than it saves. With fewer rows, a single run costs little.
constexpr std::size_t leastQueries = 32;
constexpr std::size_t leastRows = 512;

/// How many queries run alone first, to measure how many blocks the boxes exclude.
constexpr std::size_t mostTried = 4;

/// The rounded rows of a chunk stay in the first-level cache while all queries are compared with them.
constexpr std::size_t chunkBytes = 32768;
constexpr std::size_t mostChunkBlocks = 16;

/// How much wider than its narrowest block a part may be. Narrow parts have finer steps, which leave fewer rows. But each query is
/// rounded again for each part.
constexpr float mostWidening = 2.0f;

/// The largest number of steps per unit of the copy. Finer steps leave no fewer rows, and distant queries would be given up.
constexpr double finestScale = 0x1p+30;

/// About the largest number of distances from boxes that are kept.
constexpr std::size_t mostBounds = std::size_t{1} << 22;

/// The largest size of a rounded number. The sum of squared differences over `size` measurements, and each part of it, stays below 2^31;
/// twice a number stays below 2^15.
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
      paddedSize_((copy.size_ + kt_batchPadding - 1) / kt_batchPadding * kt_batchPadding),
      capacity_(4 * k + 128 + std::min<std::size_t>(copy.numRows_ / kt_blockRows, 512)),
      kernels_(chosenKernels()),
      most_(largestNumber(copy.size_)),
      sumError_(static_cast<double>(copy.size_ + 16) * 0x1p-22)
{
}

bool kt_BatchScan::isWorthwhile(std::size_t numQueries) const
{
    // Distant clusters have their own offsets, for which a query would need other floats.
    return kernels_ != nullptr && numQueries >= leastQueries && copy_.numRows_ >= leastRows &&
           copy_.offsets_.size() == 1 && k_ > 0 && k_ <= kt_blockRows && most_ >= 127.0;
}

std::vector<char> kt_BatchScan::run(const Queries& queries, std::vector<std::size_t>& rows)
{
    std::vector<char> isFound(queries.size(), 0);
    const Way way = tryOneByOne(queries, isFound, rows);
    if (way != Way::oneByOne) {
        rows.resize(queries.size() * k_);
        findTogether(queries, way == Way::byBoxes, isFound, rows);
    }
    return isFound;
}

void kt_BatchScan::findTogether(const Queries& queries, bool useBoxes, std::vector<char>& isFound,
                                std::vector<std::size_t>& rows)
{
    listBlocks();
    listBoxes();
    makeParts();
    // Floats are cut off at 2^126, where the bounds would not hold. Only parts with very coarse steps can have such floats.
    if (std::any_of(parts_.begin(), parts_.end(), [](const Part& part) { return part.scale < 0x1p-40; })) {
        return;
    }
    if (!useBoxes) {
        boundParts();
    }
    const std::size_t together = mostBounds / (boxes_.back().first + boxes_.back().count) + 1;
    kt_RowList found(k_);
    for (std::size_t first = 0; first < queries.size(); first += together) {
        prepare(queries, first, std::min(together, queries.size() - first), isFound);
        findBounds();
        findFirstLimits(useBoxes);
        for (const Part& part : parts_) {
            comparePart(part, useBoxes);
        }
        for (std::size_t i = 0; i < queries_.size(); ++i) {
            if (finish(queries_[i], i, found)) {
                const std::size_t place = queries_[i].place;
                std::copy(found.begin(), found.end(), rows.begin() + static_cast<std::ptrdiff_t>(place * k_));
                isFound[place] = 1;
            }
        }
    }
}

/// Lists the blocks that hold rows, in the order of the copy.
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

/// Lists the boxes of all blocks. Blocks without a box in the copy get one here.
void kt_BatchScan::listBoxes()
{
    boxes_.clear();
    std::size_t first = 0;
    for (const auto& group : copy_.groups_) {
        boxes_.push_back({copy_.boxes_.data() + group.firstBox, first, group.numBlocks()});
        first += group.numBlocks();
    }
    const std::size_t count = blocks_.size() - first;
    const std::size_t stride = kt_CompactCopy::paddedBoxes(count);
    ownBoxes_.resize(2 * stride * size_);
    for (std::size_t i = 0; i < stride; ++i) {
        const Block block = i < count ? blocks_[first + i] : Block{0, 0};
        copy_.boundBlock(block.number, block.count, ownBoxes_.data() + i, stride);
    }
    if (count > 0) {
        boxes_.push_back({ownBoxes_.data(), first, count});
    }
}

/// Runs a few queries one by one and counts the blocks that the boxes exclude. Returns the fastest way for the other queries.
kt_BatchScan::Way kt_BatchScan::tryOneByOne(const Queries& queries, std::vector<char>& isFound,
                                            std::vector<std::size_t>& rows) const
{
    std::size_t numCompared = 0;
    std::size_t numTried = 0;
    kt_RowList found(k_);
    rows.reserve(mostTried * k_);
    for (std::size_t i = 0; i < queries.size() && numTried < mostTried; ++i) {
        if (queries[i] != nullptr && copy_.nearest(store_, *queries[i], 2.0, found, numCompared)) {
            rows.resize(std::max(rows.size(), (i + 1) * k_));
            std::copy(found.begin(), found.end(), rows.begin() + static_cast<std::ptrdiff_t>(i * k_));
            isFound[i] = 1;
            ++numTried;
        }
    }
    // Estimates in nanoseconds, measured on several kinds of data. Together, a block costs each query less: its rows are read once
    // and few of them are left. But all blocks must be rounded, and each query's limits kept. Alone, a measurement of a block takes
    // longer if the floats do not fit the first-level caches.
    const std::size_t numBlocks = copy_.firstUnsortedBlock_ + kt_CompactCopy::blocksOf(copy_.numUnsorted_);
    const std::size_t fifths = numBlocks * size_ <= 2048 ? 13 : 25;
    const std::size_t alone = numTried * 300 + numCompared * (20 + fifths * size_ / 5);
    const std::size_t rounding = numTried * numBlocks * size_ * 40;
    const std::size_t all = rounding / queries.size() + numTried * (1400 + numBlocks * (5 + 4 * size_ / 5));
    const std::size_t together = std::min(queries.size(), mostBounds / numBlocks + 1);
    const std::size_t byBoxes =
        rounding / together + numTried * (2000 + numBlocks * (5 + size_ / 10)) + numCompared * (20 + size_);
    if (alone <= std::min(all, byBoxes)) {
        return Way::oneByOne;
    }
    return byBoxes < all ? Way::byBoxes : Way::allBlocks;
}

float kt_BatchScan::Box::width() const
{
    float widest = 0.0f;
    for (std::size_t j = 0; j < lows.size(); ++j) {
        widest = std::max(widest, highs[j] - lows[j]);
    }
    return widest;
}

void kt_BatchScan::Box::include(const Box& other)
{
    for (std::size_t j = 0; j < lows.size(); ++j) {
        lows[j] = std::min(lows[j], other.lows[j]);
        highs[j] = std::max(highs[j], other.highs[j]);
    }
}

void kt_BatchScan::readBox(std::size_t block, Box& box) const
{
    const auto isBefore = [](std::size_t number, const Boxes& boxes) { return number < boxes.first; };
    const Boxes& boxes = *(std::upper_bound(boxes_.begin(), boxes_.end(), block, isBefore) - 1);
    const std::size_t stride = kt_CompactCopy::paddedBoxes(boxes.count);
    const float* ends = boxes.ends + (block - boxes.first);
    for (std::size_t j = 0; j < size_; ++j, ends += 2 * stride) {
        box.lows[j] = ends[0];
        box.highs[j] = ends[stride];
    }
}

/// Joins consecutive blocks while their common box is not much wider than their narrowest box.
void kt_BatchScan::makeParts()
{
    parts_.clear();
    Box next(size_);
    Box joined(size_);
    float narrowest = 0.0f;
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
        readBox(block, next);
        const float width = next.width();
        if (!parts_.empty()) {
            joined = next;
            joined.include(parts_.back().box);
        }
        if (parts_.empty() || joined.width() > mostWidening * std::min(width, narrowest)) {
            parts_.push_back({parts_.size() + 1, block, block + 1, next, {}, 0.0, 0.0});
            narrowest = width;
        } else {
            std::swap(parts_.back().box, joined);
            parts_.back().endBlock = block + 1;
            narrowest = std::min(width, narrowest);
        }
    }
    for (Part& part : parts_) {
        chooseSteps(part);
    }
}

/// Chooses the centre and the scale, so that all rounded values are at most `most_` in size.
void kt_BatchScan::chooseSteps(Part& part) const
{
    part.centre.assign(paddedSize_, 0.0f);
    double reach = 0x1p-100;
    double farthest = 0x1p-100;
    for (std::size_t j = 0; j < size_; ++j) {
        const auto low = static_cast<double>(part.box.lows[j]);
        const auto high = static_cast<double>(part.box.highs[j]);
        part.centre[j] = static_cast<float>((low + high) / 2.0);
        const auto centre = static_cast<double>(part.centre[j]);
        reach = std::max({reach, high - centre, centre - low});
        farthest = std::max({farthest, high, -low});
    }
    // Steps are no finer than the floats' own. The scale itself is a float.
    const double scale = std::min({most_ * (1.0 - 0x1p-20) / reach, 0x1p+22 / farthest, finestScale});
    part.scale = static_cast<double>(static_cast<float>(scale));
    part.floatLost = (farthest * part.scale * 0x1p-23 + most_ * 0x1p-21) * std::sqrt(static_cast<double>(size_));
}

/// Replaces the list of boxes by the boxes of the parts.
void kt_BatchScan::boundParts()
{
    boxes_.clear();
    ownBoxes_.assign((parts_.size() + kt_blockRows) * 2 * size_, 0.0f);
    float* ends = ownBoxes_.data();
    for (std::size_t first = 0; first < parts_.size(); first += kt_blockRows) {
        const std::size_t count = std::min(kt_blockRows, parts_.size() - first);
        const std::size_t stride = kt_CompactCopy::paddedBoxes(count);
        boxes_.push_back({ends, first, count});
        for (std::size_t j = 0; j < size_; ++j, ends += 2 * stride) {
            for (std::size_t i = 0; i < count; ++i) {
                ends[i] = parts_[first + i].box.lows[j];
                ends[stride + i] = parts_[first + i].box.highs[j];
            }
        }
    }
}

/// Converts the queries to floats. Leaves out those that are too far from the offsets for floats.
void kt_BatchScan::prepare(const Queries& queries, std::size_t first, std::size_t count,
                           const std::vector<char>& isFound)
{
    constexpr double most = kt_DistanceLimits::largestFloatQuery;
    queries_.clear();
    queries_.reserve(count);
    floats_.assign(count * paddedSize_, 0.0f);
    const double* const offsets = copy_.offsets_.front().data();
    for (std::size_t i = first; i < first + count; ++i) {
        if (queries[i] == nullptr || isFound[i] != 0) {
            continue;
        }
        const double* const values = queries[i]->data();
        float* const floats = floats_.data() + queries_.size() * paddedSize_;
        double farthest = 0.0;
        bool isWithin = true;
        for (std::size_t j = 0; j < size_; ++j) {
            const double scaled = (values[j] - offsets[j]) * copy_.scale_;
            // NaN fails the comparison.
            isWithin = isWithin && std::abs(scaled) <= most;
            farthest = std::max(farthest, std::abs(scaled));
            floats[j] = static_cast<float>(std::clamp(scaled, -most, most));
        }
        if (isWithin) {
            queries_.push_back({i, queries[i], kt_DistanceLimits(2.0, size_, copy_.scale_, 0.0), farthest});
            queries_.back().limits.measureFrom(farthest);
        }
    }
    numbers_.resize(queries_.size() * paddedSize_);
    candidates_.resize(queries_.size() * capacity_);
    smallest_.resize(queries_.size() * k_);
    boxLimits_.assign(queries_.size(), infinity);
}

/// Computes the squared distances of all queries from all boxes, and the nearest box of each query.
void kt_BatchScan::findBounds()
{
    bounds_.resize((boxes_.back().first + boxes_.back().count) * queries_.size());
    std::vector<float> least(queries_.size(), infinity);
    std::array<float, kt_batchQueries * kt_blockRows> sums;
    std::array<const float*, kt_batchQueries> floats;
    for (const Boxes& boxes : boxes_) {
        for (std::size_t first = 0; first < queries_.size(); first += kt_batchQueries) {
            const std::size_t count = std::min(kt_batchQueries, queries_.size() - first);
            for (std::size_t q = 0; q < kt_batchQueries; ++q) {
                floats[q] = floats_.data() + (first + std::min(q, count - 1)) * paddedSize_;
            }
            kernels_->boxes(boxes.ends, kt_CompactCopy::paddedBoxes(boxes.count), floats.data(), size_, sums.data());
            for (std::size_t q = 0; q < count; ++q) {
                const float* const found = sums.data() + q * kt_blockRows;
                for (std::size_t i = 0; i < boxes.count; ++i) {
                    bounds_[(boxes.first + i) * queries_.size() + first + q] = found[i];
                }
                const float* const nearest = std::min_element(found, found + boxes.count);
                if (*nearest < least[first + q]) {
                    least[first + q] = *nearest;
                    queries_[first + q].nearestBox = boxes.first + static_cast<std::size_t>(nearest - found);
                }
            }
        }
    }
}

/// Bounds the k-th distance of each query by the floats of one block: the nearest one, or the middle one of the nearest part.
void kt_BatchScan::findFirstLimits(bool useBoxes)
{
    std::vector<std::size_t> order(queries_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    // Queries with the same nearest block follow each other, so that its rows are read from memory once.
    std::sort(order.begin(), order.end(),
              [this](std::size_t a, std::size_t b) { return queries_[a].nearestBox < queries_[b].nearestBox; });
    for (const std::size_t index : order) {
        const std::size_t nearest = queries_[index].nearestBox;
        const std::size_t block = useBoxes ? nearest : (parts_[nearest].firstBlock + parts_[nearest].endBlock) / 2;
        setFirstLimit(index, blocks_[block]);
    }
}

void kt_BatchScan::setFirstLimit(std::size_t index, const Block& block)
{
    if (block.count < k_) {
        return;
    }
    kt_DistanceLimits& limits = queries_[index].limits;
    float sums[kt_blockRows];
    kt_avx2Kernels->order2.rows(copy_.floats_.data() + block.number * kt_blockRows * size_,
                                floats_.data() + index * paddedSize_, size_, 2.0f, infinity, sums);
    std::fill(sums + block.count, sums + kt_blockRows, infinity);
    if (k_ <= kt_mostForKth) {
        limits.takeFloatSum(kt_avx2Kernels->kth(sums, k_));
    } else {
        std::nth_element(sums, sums + k_ - 1, sums + kt_blockRows);
        limits.takeFloatSum(sums[k_ - 1]);
    }
    boxLimits_[index] = limits.floatLimit();
}

void kt_BatchScan::comparePart(const Part& part, bool useBoxes)
{
    const std::size_t blockBytes = numbersOfBlock() * sizeof(std::int16_t);
    // With its own box, each block has its own list of queries.
    const std::size_t together = useBoxes ? 1 : std::clamp<std::size_t>(chunkBytes / blockBytes, 1, mostChunkBlocks);
    for (std::size_t block = part.firstBlock; block < part.endBlock; block += together) {
        const std::size_t box = useBoxes ? block : part.number - 1;
        compareChunk(part, block, std::min(together, part.endBlock - block), bounds_.data() + box * queries_.size());
    }
}

/// Rounds a few blocks and compares them with the queries that they may concern.
void kt_BatchScan::compareChunk(const Part& part, std::size_t block, std::size_t count, const float* bounds)
{
    asking_.resize(queries_.size());
    std::size_t numAsking = 0;
    for (std::size_t i = 0; i < queries_.size(); ++i) {
        asking_[numAsking].query = i;
        numAsking += bounds[i] <= boxLimits_[i] ? 1 : 0;
    }
    if (numAsking == 0) {
        return;
    }
    round(part, block, count);
    std::size_t numLeft = 0;
    for (std::size_t i = 0; i < numAsking; ++i) {
        const std::size_t index = asking_[i].query;
        Query& query = queries_[index];
        if (query.part != part.number) {
            round(part, query, index);
        }
        asking_[numLeft] = {index, limitOf(part, query)};
        numLeft += asking_[numLeft].limit != noSum ? 1 : 0;
    }
    for (std::size_t first = 0; first < numLeft; first += kt_batchQueries) {
        compare(part, asking_.data() + first, std::min(kt_batchQueries, numLeft - first));
    }
}

void kt_BatchScan::round(const Part& part, std::size_t firstBlock, std::size_t count)
{
    chunk_.firstBlock = firstBlock;
    chunk_.numBlocks = count;
    chunk_.rows.resize(count * numbersOfBlock());
    chunk_.squares.resize(count * kt_blockRows);
    float lost = 0.0f;
    for (std::size_t i = 0; i < count; ++i) {
        const float* const floats = copy_.floats_.data() + blocks_[firstBlock + i].number * kt_blockRows * size_;
        lost = std::max(lost, kernels_->round(floats, part.centre.data(), size_, static_cast<float>(part.scale),
                                              static_cast<float>(most_), chunk_.rows.data() + i * numbersOfBlock(),
                                              chunk_.squares.data() + i * kt_blockRows));
    }
    chunk_.lost = std::sqrt(static_cast<double>(lost)) * (1.0 + sumError_);
    chunk_.reach = std::sqrt(static_cast<double>(*std::max_element(chunk_.squares.begin(), chunk_.squares.end())));
}

void kt_BatchScan::round(const Part& part, Query& query, std::size_t index)
{
    const kt_RoundedQuery rounded = kernels_->roundQuery(
        floats_.data() + index * paddedSize_, part.centre.data(), size_, static_cast<float>(part.scale),
        static_cast<float>(most_), numbers_.data() + index * paddedSize_);
    query.part = part.number;
    query.square = static_cast<double>(rounded.square);
    query.lost = std::sqrt(static_cast<double>(rounded.lost)) * (1.0 + sumError_);
    query.outside = std::sqrt(static_cast<double>(rounded.outside));
    const double floatLost = query.farthest * part.scale * 0x1p-23 * std::sqrt(static_cast<double>(size_));
    query.floatLost = part.floatLost + floatLost + query.outside * 0x1p-22;
    // A larger sum of floats may have overflowed.
    query.isGivenUp = query.isGivenUp || !(rounded.outside < 0x1p+100f);
}

/// Compares the rounded blocks with a few queries. Their limits fall as rows are found.
void kt_BatchScan::compare(const Part& part, const Asking* asking, std::size_t count)
{
    std::array<std::int32_t, kt_batchQueries> limits;
    std::array<const std::int16_t*, kt_batchQueries> numbers;
    for (std::size_t q = 0; q < kt_batchQueries; ++q) {
        limits[q] = q < count ? asking[q].limit : noSum;
        numbers[q] = numbers_.data() + asking[std::min(q, count - 1)].query * paddedSize_;
    }
    std::array<std::uint64_t, kt_batchQueries> within;
    std::array<std::int32_t, kt_batchQueries * kt_blockRows> sums;
    for (std::size_t i = 0; i < chunk_.numBlocks; ++i) {
        const Block& block = blocks_[chunk_.firstBlock + i];
        kernels_->sums(chunk_.rows.data() + i * numbersOfBlock(), chunk_.squares.data() + i * kt_blockRows,
                       numbers.data(), numPairs_, limits.data(), within.data(), sums.data());
        const std::uint64_t existing = ~std::uint64_t{0} >> (kt_blockRows - block.count);
        const std::uint32_t* const rows = copy_.rowsOf(block.number);
        for (std::size_t q = 0; q < count; ++q) {
            std::uint64_t bits = within[q] & existing;
            if (bits == 0) {
                continue;
            }
            const std::size_t index = asking[q].query;
            Query& query = queries_[index];
            for (; bits != 0; bits &= bits - 1) {
                const auto row = static_cast<std::size_t>(KT_LOWEST_BIT(bits));
                take(part, query, index, rows[row], sums[q * kt_blockRows + row]);
            }
            if (query.isRenewed) {
                renew(query, index);
                limits[q] = limitOf(part, query);
            }
        }
    }
}

/// The largest sum with which a row of the chunk may be among the nearest; `noSum` if no row can be.
std::int32_t kt_BatchScan::limitOf(const Part& part, const Query& query) const
{
    if (query.isGivenUp) {
        return noSum;
    }
    const double limit = std::sqrt(query.limits.trueLimit()) * part.scale;
    const double reach = (limit + query.floatLost) * slightly;
    const double outside = query.outside * (1.0 - sumError_);
    const double inside = std::max(reach * reach * slightly - outside * outside, 0.0);
    const double most = (std::sqrt(inside) + query.lost + chunk_.lost) * slightly;
    // All rows lie in a sphere around the centre. No row is nearer to a query outside than the sphere's surface.
    if (std::sqrt(query.square) > (most + chunk_.reach) * slightly) {
        return noSum;
    }
    return static_cast<std::int32_t>(std::min(most * most * slightly + 1.0 - query.square, 0x1.fffffffcp+30));
}

/// Adds a row to the candidates, and its upper bound to the heap.
void kt_BatchScan::take(const Part& part, Query& query, std::size_t index, std::uint32_t row, std::int32_t sum)
{
    const double root = std::sqrt(static_cast<double>(sum) + query.square);
    const double lost = query.lost + chunk_.lost;
    const double unit = 1.0 / part.scale;
    const double most = (root + lost + query.outside * (1.0 + sumError_) + query.floatLost) * unit * slightly;
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
    const double inside = std::max(root - lost, 0.0);
    const double outside = query.outside * (1.0 - sumError_);
    const double least = (std::sqrt(inside * inside + outside * outside) - query.floatLost) * unit;
    // Rounded down, so that it stays a lower bound.
    const auto noted = static_cast<float>(std::max(least, 0.0) * (1.0 - 0x1p-22));
    candidates_[index * capacity_ + query.numCandidates++] = {row, noted};
}

/// Lowers the limits to the k-th smallest upper bound. At least k rows are noted.
void kt_BatchScan::renew(Query& query, std::size_t index)
{
    const double highest = smallest_[index * k_];
    query.limits.takeSimpleSum(highest * highest * slightly);
    // No block is within a negative limit.
    boxLimits_[index] = query.isGivenUp ? -1.0f : query.limits.floatLimit();
    query.isRenewed = false;
}

/// Renews the limits, and drops the candidates beyond them.
void kt_BatchScan::keepNearest(Query& query, std::size_t index)
{
    renew(query, index);
    Candidate* const first = candidates_.data() + index * capacity_;
    const double limit = std::sqrt(query.limits.trueLimit()) * slightly;
    const auto isBeyond = [limit](const Candidate& candidate) { return static_cast<double>(candidate.least) > limit; };
    query.numCandidates =
        static_cast<std::size_t>(std::remove_if(first, first + query.numCandidates, isBeyond) - first);
}

bool kt_BatchScan::finish(Query& query, std::size_t index, kt_RowList& rows)
{
    if (query.isGivenUp) {
        return false;
    }
    // The k nearest are among the candidates, because none of them is beyond any limit.
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
