// The compact copy of a store, which the scan searches. docs/neighbor-scan.md, "What is kept beside the patterns".
//
// Input: a store. Output: its rows as floats in blocks of 64, boxes around blocks and around groups of 64 blocks, and cells.
//
//     hold           registers the copy with the patterns, which tell it when they change
//     lookAtSample   offsets, scale and the edges of the cells, from a sample of the rows
//     arrange        floats of all rows, row after row; the order of the leaves, for each zone; then, in the same memory, floats in this
//                    order, block after block, with boxes and cells
//     appendLast     one more row; sortUnsorted makes a group of 1024 of them, which had no boxes before

#include "compact_copy.h"

#include "../clastool/training_watch.h"
#include "leaf_order.h"

#include <kt/compiler.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <map>
#include <mutex>
#include <typeinfo>
#include <utility>

namespace {

/// A store with a value of larger magnitude is left to the plain scan: differences must not overflow.
constexpr double largestValue = 0x1p+1000;

/// The fewest rows with which a copy has cells: with fewer, the bounds of the cells would take too much memory in proportion.
std::atomic<std::size_t> leastForCells{2048};

/// The fewest measurements with which cells save time in addition to boxes.
constexpr std::size_t leastMeasurementsForCells = 9;

/// The most measurements with which the sum of a row's bounds has enough resolution in 16 bits.
constexpr std::size_t mostForCells = 8192;

/// A store that holds each pattern more often than this on average is left to the plain scan. An archive repeats a pattern in a few
/// bytes, so copying every repetition could take memory out of proportion to the archive.
constexpr std::size_t mostRepeats = 16;

/// Held while a copy is registered with patterns: several threads may train from the same patterns.
std::mutex holdersAreChanging;

/// The size of the sample for offsets and scale, and of the sample that also gives the edges of cells.
constexpr std::size_t sampleRows = 128;
constexpr std::size_t sampleRowsForCells = 512;

/// The fewest rows of a distant cluster with its own offsets, and the number of attempts to find one.
constexpr std::size_t leastCluster = kt_blockRows;
constexpr std::size_t mostClusters = 16;

/// Row numbers have 32 bits, also those of unused places in blocks.
constexpr std::size_t mostRows = std::numeric_limits<std::uint32_t>::max() - 2 * mostClusters * kt_blockRows;

/// The number of added rows at which they are sorted.
constexpr std::size_t mostUnsorted = 16 * kt_blockRows;

/// Resizes the vector. If it held rows before, it reserves a sixteenth more: doubling would take too much memory for a copy.
template <class Values>
void resizeTo(Values& values, std::size_t size)
{
    if (size > values.capacity() && !values.empty()) {
        values.reserve(size + size / 16);
    }
    values.resize(size);
}

}  // namespace

kt_CompactCopy::~kt_CompactCopy()
{
    if (currency_) {
        currency_->end();
    }
}

void kt_CompactCopy::make(const ktClassifierDataProviderMemory& store, kt_TrainingWatch* watch) noexcept
{
    isUsable_ = false;
    try {
        kt_WatchedSteps steps(watch);
        isUsable_ = fill(store, steps);
    } catch (...) {
        // Without memory for a copy, or if the watch gave it up, runs take longer and give the same answers.
    }
    builtRows_ = store.patterns_.size();
    numRows_ = builtRows_;
    storeRevision_ = store.revision_;
    if (!isUsable_) {
        clear();
    }
}

bool kt_CompactCopy::fill(const ktClassifierDataProviderMemory& store, kt_WatchedSteps& steps)
{
    if (currency_) {
        currency_->end();
    }
    clear();
    currency_ = new kt_Currency;
    soleHolder_ = new kt_PatternHolders(nullptr, currency_);
    const auto& patterns = store.patterns_;
    const std::size_t repeats = hold(patterns.data(), patterns.data() + patterns.size());
    if ((patterns.size() - repeats) * mostRepeats < patterns.size() || !canServe(store, steps)) {
        return false;
    }
    // A test that sets cellsFrom() to 0 needs cells for few measurements too.
    const std::size_t leastMeasurements = cellsFrom() == 0 ? 1 : leastMeasurementsForCells;
    hasCells_ = numRows_ >= cellsFrom() && size_ >= leastMeasurements && size_ <= mostForCells;
    if (!lookAtSample(store)) {
        return false;
    }
    arrange(store, steps);
    return true;
}

/// Registers this copy with the patterns, which then tell it when they change. Returns the number of repeated patterns.
std::size_t kt_CompactCopy::hold(const ktPtrHandle_const<ktFeaturePattern>* pattern,
                                 const ktPtrHandle_const<ktFeaturePattern>* end)
{
    using Holders = ktPtrHandle<const kt_PatternHolders>;
    // The handles keep each list alive, so that no new list gets its address.
    std::map<const kt_PatternHolders*, std::pair<Holders, Holders>> successors;
    std::size_t repeats = 0;
    const std::lock_guard<std::mutex> lock(holdersAreChanging);
    for (; pattern != end; ++pattern) {
        Holders& holders = (*pattern)->holders_;
        if (!holders) {
            holders = soleHolder_;
        } else if (holders->last() == currency_.get()) {
            ++repeats;
        } else {
            auto& [before, successor] = successors[holders.get()];
            if (!successor) {
                successor = new kt_PatternHolders(holders.get(), currency_);
                before = holders;
            }
            holders = successor;
        }
    }
    return repeats;
}

void kt_CompactCopy::clear() noexcept
{
    floats_ = {};
    rows_ = {};
    zones_ = {};
    groups_ = {};
    boxes_ = {};
    cells_ = {};
    numUnsorted_ = 0;
}

bool kt_CompactCopy::canServe(const ktClassifierDataProviderMemory& store, kt_WatchedSteps& steps)
{
    const auto& patterns = store.patterns_;
    // A derived class may count and return its patterns in its own way. For no patterns, size() - 1 is too large as well.
    if (typeid(store) != typeid(ktClassifierDataProviderMemory) || patterns.size() - 1 >= mostRows) {
        return false;
    }
    numRows_ = patterns.size();
    size_ = patterns.front()->measurements_.size();
    const auto isOutOfRange = [](double value) { return !(std::abs(value) <= largestValue); };
    for (std::size_t row = 0; row < numRows_; ++row) {
        steps.count();
        const auto& values = patterns[row]->measurements_;
        if (values.size() != size_ || patterns[row]->numInvalid() != 0 ||
            std::any_of(values.begin(), values.end(), isOutOfRange)) {
            return false;
        }
    }
    return size_ != 0;
}

/// Finds offsets, scale and the edges of the cells from a sample of the rows. They are quantiles, so a few outliers hardly change them.
/// Returns false if the scale would be out of range.
bool kt_CompactCopy::lookAtSample(const ktClassifierDataProviderMemory& store)
{
    constexpr std::size_t numEdges = kt_numCells - 1;
    const std::size_t count = std::min(numRows_, hasCells_ ? sampleRowsForCells : sampleRows);
    std::vector<double> sample(count);
    offsets_.assign(1, std::vector<double>(size_));
    cellEdges_.resize(hasCells_ ? size_ * numEdges : 0);
    double spread = 0.0;
    for (std::size_t j = 0; j < size_; ++j) {
        for (std::size_t i = 0; i < count; ++i) {
            sample[i] = store.patterns_[i * numRows_ / count]->measurements_[j];
        }
        const auto middle = sample.begin() + static_cast<std::ptrdiff_t>(count / 2);
        if (hasCells_) {
            std::sort(sample.begin(), sample.end());
            for (std::size_t edge = 0; edge < numEdges; ++edge) {
                cellEdges_[j * numEdges + edge] = sample[(edge + 1) * count / kt_numCells];
            }
        } else {
            std::nth_element(sample.begin(), middle, sample.end());
        }
        const double median = *middle;
        offsets_[0][j] = median;
        std::transform(sample.begin(), sample.end(), sample.begin(),
                       [median](double value) { return std::abs(value - median); });
        // Deviations of 0 are left out, because a measurement may be 0 in most rows.
        const auto firstOff = std::partition(sample.begin(), sample.end(), [](double off) { return off == 0.0; });
        const std::ptrdiff_t numOff = sample.end() - firstOff;
        if (static_cast<std::size_t>(numOff) * 16 > count) {
            const auto usual = firstOff + numOff * 3 / 4;
            std::nth_element(firstOff, usual, sample.end());
            spread = std::max(spread, *usual);
        }
    }
    if (spread == 0.0) {
        spread = largestDeviation(store);
    }
    int exponent = 0;
    std::frexp(spread, &exponent);
    scale_ = std::ldexp(1.0, -exponent);
    return std::abs(exponent) <= 900;
}

double kt_CompactCopy::largestDeviation(const ktClassifierDataProviderMemory& store) const
{
    double largest = 0.0;
    for (const auto& pattern : store.patterns_) {
        for (std::size_t j = 0; j < size_; ++j) {
            largest = std::max(largest, std::abs(pattern->measurements_[j] - offsets_[0][j]));
        }
    }
    return largest;
}

/// Fills zones, blocks, boxes and cells. The floats are sorted in place: a second copy of them would take as much memory
/// as the first.
void kt_CompactCopy::arrange(const ktClassifierDataProviderMemory& store, kt_WatchedSteps& steps)
{
    floats_.resize(blocksOf(numRows_) * kt_blockRows * size_);
    CellRows cells{0, std::vector<std::uint8_t>(hasCells_ ? numRows_ * size_ : 0)};
    if (hasCells_) {
        cellLows_.assign(size_ * kt_numCells, std::numeric_limits<double>::infinity());
        cellHighs_.assign(size_ * kt_numCells, -std::numeric_limits<double>::infinity());
    }
    RowNumbers usual;
    RowNumbers distant;
    usual.reserve(numRows_);
    for (std::size_t row = 0; row < numRows_; ++row) {
        steps.count();
        const float reach = copyRow(store.patterns_[row]->measurements_, floats_.data() + row * size_, cells, row);
        (reach <= static_cast<float>(zoneReach) ? usual : distant).push_back(static_cast<std::uint32_t>(row));
    }
    rows_.reserve(blocksOf(numRows_) * kt_blockRows);
    addZone(0, true, std::move(usual), steps);
    takeClusters(store, distant, steps);
    addZone(0, false, std::move(distant), steps);
    floats_.resize(rows_.size() * size_);
    orderFloats(steps);
    finishGroups(0, cells, steps);
    for (Zone& zone : zones_) {
        boundGroups(zone);
    }
    // The zone for rows that are added.
    zones_.push_back({0, false, groups_.size(), groups_.size(), {}});
    firstUnsortedBlock_ = usedBlocks();
}

/// Writes the floats of a row, relative to the first offsets, and its cells. Returns the largest magnitude of a float.
float kt_CompactCopy::copyRow(const std::vector<double>& measurements, float* floats, CellRows& cells,
                              std::size_t place)
{
    const double* const values = measurements.data();
    const double* const offsets = offsets_[0].data();
    float reach = 0.0f;
    for (std::size_t j = 0; j < size_; ++j) {
        floats[j] = rounded(values[j], offsets[j]);
        reach = std::max(reach, std::abs(floats[j]));
    }
    if (hasCells_) {
        findCells(values, cells.cells.data() + place * size_);
    }
    return reach;
}

/// This loop runs over every value of a store. It uses local variables, because the compiler must assume that storing a byte changes
/// members.
void kt_CompactCopy::findCells(const double* values, std::uint8_t* cells)
{
    const double* edges = cellEdges_.data();
    double* lows = cellLows_.data();
    double* highs = cellHighs_.data();
    const std::size_t size = size_;
    for (std::size_t j = 0; j < size; ++j) {
        std::size_t cell = 0;
        for (std::size_t step = kt_numCells / 2; step > 0; step /= 2) {
            cell += values[j] >= edges[cell + step - 1] ? step : 0;
        }
        cells[j] = static_cast<std::uint8_t>(cell);
        lows[cell] = std::min(lows[cell], values[j]);
        highs[cell] = std::max(highs[cell], values[j]);
        edges += kt_numCells - 1;
        lows += kt_numCells;
        highs += kt_numCells;
    }
}

/// Moves each distant cluster of rows from `distant` into its own zone. Floats relative to the first offsets would be too coarse to
/// distinguish its rows.
void kt_CompactCopy::takeClusters(const ktClassifierDataProviderMemory& store, RowNumbers& distant,
                                  kt_WatchedSteps& steps)
{
    RowNumbers alone;
    for (std::size_t i = 0; i < mostClusters && distant.size() >= leastCluster; ++i) {
        const std::vector<double> centre = store.patterns_[distant[distant.size() / 2]]->measurements_;
        RowNumbers cluster = takeCluster(store, distant, centre);
        if (cluster.size() < leastCluster) {
            alone.insert(alone.end(), cluster.begin(), cluster.end());
            continue;
        }
        for (const std::uint32_t row : cluster) {
            for (std::size_t j = 0; j < size_; ++j) {
                floats_[row * size_ + j] = rounded(store.patterns_[row]->measurements_[j], centre[j]);
            }
        }
        offsets_.push_back(centre);
        addZone(offsets_.size() - 1, true, std::move(cluster), steps);
    }
    distant.insert(distant.end(), alone.begin(), alone.end());
}

/// Moves the rows around the centre out of `distant`.
kt_CompactCopy::RowNumbers kt_CompactCopy::takeCluster(const ktClassifierDataProviderMemory& store, RowNumbers& distant,
                                                       const std::vector<double>& centre)
{
    const auto isElsewhere = [&](std::uint32_t row) {
        const std::vector<double>& measurements = store.patterns_[row]->measurements_;
        for (std::size_t j = 0; j < size_; ++j) {
            if (!(std::abs(measurements[j] - centre[j]) * scale_ <= zoneReach)) {
                return true;
            }
        }
        return false;
    };
    const auto first = std::stable_partition(distant.begin(), distant.end(), isElsewhere);
    RowNumbers cluster(first, distant.end());
    distant.erase(first, distant.end());
    return cluster;
}

/// Sorts these rows and appends their numbers as a zone, with zeros in the unused places of its last block.
void kt_CompactCopy::addZone(std::size_t offsets, bool isBounded, RowNumbers numbers, kt_WatchedSteps& steps)
{
    if (numbers.empty()) {
        return;
    }
    kt_sortByLeaves(floats_.data(), size_, numbers.data(), numbers.data() + numbers.size(), steps);
    Zone zone{offsets, isBounded, groups_.size(), groups_.size(), {}};
    for (std::size_t first = 0; first < numbers.size(); first += kt_groupRows) {
        groups_.push_back({usedBlocks(), std::min(kt_groupRows, numbers.size() - first), 0});
    }
    zone.endGroup = groups_.size();
    zones_.push_back(std::move(zone));
    rows_.insert(rows_.end(), numbers.begin(), numbers.end());
    rows_.resize(usedBlocks() * kt_blockRows);
}

std::size_t kt_CompactCopy::usedBlocks() const
{
    return groups_.empty() ? 0 : groups_.back().firstBlock + groups_.back().numBlocks();
}

/// Sorts the floats, which lie row after row as in the store, into the order of the row numbers.
void kt_CompactCopy::orderFloats(kt_WatchedSteps& steps)
{
    const auto forUnusedPlaces = [this](auto change) {
        for (const Group& group : groups_) {
            std::uint32_t* const rows = rows_.data() + group.firstBlock * kt_blockRows;
            std::for_each(rows + group.numRows, rows + group.numBlocks() * kt_blockRows, change);
        }
    };
    // The unused places of all groups get the zeros behind the last row.
    auto next = static_cast<std::uint32_t>(numRows_);
    forUnusedPlaces([&next](std::uint32_t& row) { row = next++; });
    kt_moveRows(floats_.data(), size_, rows_.data(), rows_.size(), steps);
    forUnusedPlaces([](std::uint32_t& row) { row = 0; });
}

/// From group `firstGroup` on, makes blocks of the floats, which lie row after row, and computes their boxes and cells.
void kt_CompactCopy::finishGroups(std::size_t firstGroup, const CellRows& cells, kt_WatchedSteps& steps)
{
    reserveBlocks(usedBlocks());
    std::vector<float> scratch(kt_blockRows * size_);
    for (; firstGroup < groups_.size(); ++firstGroup) {
        Group& group = groups_[firstGroup];
        group.firstBox = boxes_.size();
        const std::size_t stride = paddedBoxes(group.numBlocks());
        resizeTo(boxes_, group.firstBox + 2 * stride * size_);
        for (std::size_t block = 0; block < stride; ++block) {
            const std::size_t first = std::min(block * kt_blockRows, group.numRows);
            const std::size_t here = std::min(kt_blockRows, group.numRows - first);
            if (here > 0) {
                transposeBlock(group.firstBlock + block, scratch);
            }
            boundBlock(group.firstBlock + block, here, boxes_.data() + group.firstBox + block, stride);
        }
        if (hasCells_) {
            placeCells(group, cells, steps);
        }
    }
}

/// Turns the floats of a block from row after row into measurement after measurement.
void kt_CompactCopy::transposeBlock(std::size_t block, std::vector<float>& scratch)
{
    const std::size_t size = size_;
    float* const floats = floats_.data() + block * kt_blockRows * size;
    std::copy_n(floats, kt_blockRows * size, scratch.data());
    const float* const rows = scratch.data();
    for (std::size_t j = 0; j < size; ++j) {
        for (std::size_t i = 0; i < kt_blockRows; ++i) {
            floats[j * kt_blockRows + i] = rows[i * size + j];
        }
    }
}

void kt_CompactCopy::placeCells(const Group& group, const CellRows& cells, kt_WatchedSteps& steps)
{
    const std::size_t begin = group.firstBlock * kt_blockRows;
    const std::uint32_t* const rows = rows_.data() + begin;
    const auto cellsOf = [&](std::size_t i) { return cells.cells.data() + (rows[i] - cells.first) * size_; };
    for (std::size_t i = 0; i < group.numRows; ++i) {
        steps.count();
        // Rows that are neighbours in space are scattered in `cells`.
        constexpr std::size_t lead = 8;
        KT_PREFETCH(cellsOf(std::min(i + lead, group.numRows - 1)));
        placeCells(cellsOf(i), begin + i);
    }
}

void kt_CompactCopy::placeCells(const std::uint8_t* found, std::size_t position)
{
    constexpr std::size_t half = kt_blockRows / 2;
    const std::size_t place = position % kt_blockRows;
    std::uint8_t* const cells = cells_.data() + position / kt_blockRows * size_ * half + place % half;
    const int shift = place < half ? 0 : 4;
    const std::size_t size = size_;
    for (std::size_t j = 0; j < size; ++j) {
        const int other = cells[j * half] & 0xF0 >> shift;
        cells[j * half] = static_cast<std::uint8_t>(other | found[j] << shift);
    }
}

/// Writes the box around the first `count` rows of a block. The box of no rows has its low end above its high end.
void kt_CompactCopy::boundBlock(std::size_t block, std::size_t count, float* boxes, std::size_t stride) const
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (std::size_t j = 0; j < size_; ++j) {
        float low = infinity;
        float high = -infinity;
        for (std::size_t i = 0; i < count; ++i) {
            const float value = floats_[(block * size_ + j) * kt_blockRows + i];
            low = std::min(low, value);
            high = std::max(high, value);
        }
        boxes[2 * j * stride] = low;
        boxes[(2 * j + 1) * stride] = high;
    }
}

void kt_CompactCopy::boundGroups(Zone& zone) const
{
    const std::size_t count = zone.endGroup - zone.firstGroup;
    if (count < groupsForBoxes) {
        return;
    }
    constexpr float infinity = std::numeric_limits<float>::infinity();
    zone.boxes.reserve((count + kt_blockRows - 1) / kt_blockRows * kt_blockRows * 2 * size_);
    for (std::size_t first = 0; first < count; first += kt_blockRows) {
        const std::size_t here = std::min(kt_blockRows, count - first);
        const std::size_t stride = paddedBoxes(here);
        const std::size_t batch = zone.boxes.size();
        for (std::size_t j = 0; j < size_; ++j) {
            zone.boxes.insert(zone.boxes.end(), stride, infinity);
            zone.boxes.insert(zone.boxes.end(), stride, -infinity);
        }
        for (std::size_t i = 0; i < here; ++i) {
            const Group& group = groups_[zone.firstGroup + first + i];
            const std::size_t blocks = paddedBoxes(group.numBlocks());
            for (std::size_t j = 0; j < size_; ++j) {
                const float* const lows = boxes_.data() + group.firstBox + 2 * j * blocks;
                float* const ends = zone.boxes.data() + batch + 2 * j * stride + i;
                ends[0] = *std::min_element(lows, lows + blocks);
                ends[stride] = *std::max_element(lows + blocks, lows + 2 * blocks);
            }
        }
    }
    zone.boxes.shrink_to_fit();
}

void kt_CompactCopy::reserveBlocks(std::size_t blocks)
{
    resizeTo(floats_, blocks * kt_blockRows * size_);
    resizeTo(rows_, blocks * kt_blockRows);
    if (hasCells_) {
        resizeTo(cells_, blocks * kt_blockRows / 2 * size_ + kt_readAhead);
    }
}

bool kt_CompactCopy::isOutOfDate(const ktClassifierDataProviderMemory& store) const noexcept
{
    const kt_Currency* currency = currency_.get();
    return store.revision_ != storeRevision_ || currency == nullptr || !currency->isCurrent();
}

void kt_CompactCopy::append(const ktClassifierDataProviderMemory& store) noexcept
{
    try {
        if (appendLast(store)) {
            return;
        }
    } catch (...) {
        // Growing takes more memory than a new copy of the right size, which may still succeed.
    }
    make(store);
}

bool kt_CompactCopy::appendLast(const ktClassifierDataProviderMemory& store)
{
    // The copy is made anew after a quarter was added, so that offsets, scale and cells fit the rows. Each row is copied a bounded number
    // of times.
    if (store.patterns_.size() != numRows_ + 1 || store.revision_ != storeRevision_ + 1 || currency_.isNull() ||
        !currency_->isCurrent() || numRows_ >= std::min(builtRows_ + builtRows_ / 4, mostRows)) {
        return false;
    }
    hold(&store.patterns_.back(), &store.patterns_.back() + 1);
    if (!isUsable_) {
        ++numRows_;
        storeRevision_ = store.revision_;
        return true;
    }
    const ktFeaturePattern& pattern = *store.patterns_.back();
    const std::vector<double>& values = pattern.measurements_;
    // The pattern may have been assigned to after the store took it.
    if (values.size() != size_ || pattern.numInvalid() != 0 ||
        !std::all_of(values.begin(), values.end(), [](double value) { return std::abs(value) <= largestValue; })) {
        return false;
    }
    const std::size_t position = firstUnsortedBlock_ * kt_blockRows + numUnsorted_;
    reserveBlocks(blocksOf(position + 1));
    placeRow(values, position);
    ++numRows_;
    ++numUnsorted_;
    if (numUnsorted_ == mostUnsorted) {
        sortUnsorted(store);
    }
    storeRevision_ = store.revision_;
    return true;
}

/// Copies the next row of the store.
void kt_CompactCopy::placeRow(const std::vector<double>& measurements, std::size_t position)
{
    std::vector<float> row(size_);
    CellRows cells{0, std::vector<std::uint8_t>(hasCells_ ? size_ : 0)};
    copyRow(measurements, row.data(), cells, 0);
    float* const floats = floats_.data() + position / kt_blockRows * kt_blockRows * size_ + position % kt_blockRows;
    for (std::size_t j = 0; j < size_; ++j) {
        floats[j * kt_blockRows] = row[j];
    }
    if (hasCells_) {
        placeCells(cells.cells.data(), position);
    }
    rows_[position] = static_cast<std::uint32_t>(numRows_);
}

/// Makes a group of the rows that were added last.
void kt_CompactCopy::sortUnsorted(const ktClassifierDataProviderMemory& store)
{
    kt_WatchedSteps steps(nullptr);
    const std::size_t first = numRows_ - numUnsorted_;
    CellRows cells{static_cast<std::uint32_t>(first), std::vector<std::uint8_t>(hasCells_ ? numUnsorted_ * size_ : 0)};
    float* const floats = floats_.data() + firstUnsortedBlock_ * kt_blockRows * size_;
    std::uint32_t* const rows = rows_.data() + firstUnsortedBlock_ * kt_blockRows;
    for (std::size_t i = 0; i < numUnsorted_; ++i) {
        rows[i] = static_cast<std::uint32_t>(i);
        copyRow(store.patterns_[first + i]->measurements_, floats + i * size_, cells, i);
    }
    kt_sortByLeaves(floats, size_, rows, rows + numUnsorted_, steps);
    kt_moveRows(floats, size_, rows, numUnsorted_, steps);
    std::for_each(rows, rows + numUnsorted_, [&](std::uint32_t& row) { row += cells.first; });
    groups_.push_back({firstUnsortedBlock_, numUnsorted_, 0});
    finishGroups(groups_.size() - 1, cells, steps);
    zones_.back().endGroup = groups_.size();
    firstUnsortedBlock_ = usedBlocks();
    numUnsorted_ = 0;
}

std::size_t kt_CompactCopy::cellsFrom() noexcept
{
    return leastForCells.load(std::memory_order_relaxed);
}

void kt_CompactCopy::cellsFrom(std::size_t rows) noexcept
{
    leastForCells.store(rows, std::memory_order_relaxed);
}
