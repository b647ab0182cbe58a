#include "compact_copy.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <map>
#include <mutex>
#include <typeinfo>
#include <utility>

namespace {

/// Values beyond this, in magnitude, are left to the plain scan: their differences must not overflow.
constexpr double largestValue = 0x1p+1000;

/// How far a scaled value may be from 0; those that the copy was made for are within 1.
constexpr double largestScaled = 0x1p+20;

/// From how many rows on a copy has cells: with fewer, their bounds would take memory worth mentioning.
std::atomic<std::size_t> leastForCells{2048};

/// Up to how many measurements a row's sum of what its cells are worth has a sensible resolution in 16 bits.
constexpr std::size_t mostForCells = 8192;

/// How many times a pattern may be in a store on average; patterns that are there more often are left to the plain scan. An
/// archive says in a few bytes that a pattern is there once more, and a copy of what it says would know no bound.
constexpr std::size_t mostRepeats = 16;

/// Held while patterns are told of a copy: several threads may train from the same ones.
std::mutex holdersAreChanging;

/// How many rows the edges of cells are found from.
constexpr std::size_t sampleRows = 512;

/// Room for the rounding of a few operations in double.
constexpr double slightly = 1.0 + 0x1p-40;

/// Makes room for the rows, and for a sixteenth more where others came before: doubling would take more memory than the
/// copy is worth.
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

void kt_CompactCopy::make(const ktClassifierDataProviderMemory& store) noexcept
{
    isUsable_ = false;
    try {
        isUsable_ = fill(store);
    } catch (...) {
        // Without memory for a copy, runs take longer and answer the same.
    }
    builtRows_ = store.patterns_.size();
    numRows_ = builtRows_;
    storeRevision_ = store.revision_;
    if (!isUsable_) {
        floats_ = {};
        cells_ = {};
    }
}

bool kt_CompactCopy::fill(const ktClassifierDataProviderMemory& store)
{
    if (currency_) {
        currency_->end();
    }
    floats_.clear();
    cells_.clear();
    currency_ = new kt_Currency;
    soleHolder_ = new kt_PatternHolders(nullptr, currency_);
    const auto& patterns = store.patterns_;
    const std::size_t repeats = hold(patterns.data(), patterns.data() + patterns.size());
    if ((patterns.size() - repeats) * mostRepeats < patterns.size() || !measure(store)) {
        return false;
    }
    hasCells_ = numRows_ >= cellsFrom() && size_ <= mostForCells;
    if (hasCells_) {
        divide(store);
    }
    reserveRows(numRows_);
    for (std::size_t row = 0; row < numRows_; ++row) {
        place(row, store.patterns_[row]->measurements_);
    }
    return true;
}

/// Has the patterns tell this copy when they change. Returns how many of them were there before in the list.
std::size_t kt_CompactCopy::hold(const ktPtrHandle_const<ktFeaturePattern>* pattern,
                                 const ktPtrHandle_const<ktFeaturePattern>* end)
{
    using Holders = ktPtrHandle<const kt_PatternHolders>;
    // Kept by handles, so that no list is freed and another one made at its address.
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

/// Checks that the store can be copied, and finds offsets and scale. Returns false if it cannot.
bool kt_CompactCopy::measure(const ktClassifierDataProviderMemory& store)
{
    const auto& patterns = store.patterns_;
    // A store derived from the library's may count and give out its patterns in its own way.
    if (typeid(store) != typeid(ktClassifierDataProviderMemory) || patterns.empty() || patterns.front().isNull()) {
        return false;
    }
    numRows_ = patterns.size();
    size_ = patterns.front()->measurements_.size();
    if (size_ == 0) {
        return false;
    }
    std::vector<double> lows(size_, std::numeric_limits<double>::infinity());
    std::vector<double> highs(size_, -std::numeric_limits<double>::infinity());
    for (const auto& pattern : patterns) {
        if (pattern.isNull() || pattern->measurements_.size() != size_ || pattern->numInvalid() != 0) {
            return false;
        }
        for (std::size_t j = 0; j < size_; ++j) {
            const double value = pattern->measurements_[j];
            if (!(std::abs(value) <= largestValue)) {
                return false;
            }
            lows[j] = std::min(lows[j], value);
            highs[j] = std::max(highs[j], value);
        }
    }
    offsets_.resize(size_);
    reach_ = 1.0;
    floatError_ = 0.0;
    double reach = 0.0;
    for (std::size_t j = 0; j < size_; ++j) {
        offsets_[j] = lows[j] + (highs[j] - lows[j]) / 2;
        reach = std::max(reach, (highs[j] - lows[j]) / 2);
    }
    // Values whose spread is lost in their magnitude, or that need a scale out of range, are left to the plain scan.
    int exponent = 0;
    std::frexp(reach, &exponent);
    if (std::abs(exponent) > 900) {
        return false;
    }
    scale_ = std::ldexp(1.0, -exponent);
    return true;
}

void kt_CompactCopy::reserveRows(std::size_t rows)
{
    const std::size_t blocks = (rows + kt_blockRows - 1) / kt_blockRows;
    resizeTo(floats_, blocks * kt_blockRows * size_);
    if (hasCells_) {
        resizeTo(cells_, blocks * kt_blockRows / 2 * size_ + kt_readAhead);
    }
}

// The loops below run over every value of a store: what they read and change is held in local variables, because the
// compiler cannot know that storing a byte or a float leaves the members alone.

void kt_CompactCopy::place(std::size_t row, const std::vector<double>& measurements)
{
    float* values = floats_.data() + row / kt_blockRows * kt_blockRows * size_ + row % kt_blockRows;
    const double* offsets = offsets_.data();
    const double scale = scale_;
    double reach = reach_;
    double error = floatError_;
    for (std::size_t j = 0; j < size_; ++j) {
        const double value = measurements[j];
        const double scaled = (value - offsets[j]) * scale;
        const auto rounded = static_cast<float>(scaled);
        values[j * kt_blockRows] = rounded;
        reach = std::max(reach, std::abs(static_cast<double>(rounded)));
        // The subtraction of the offset was rounded too.
        const double lost = 0x1p-52 * scale * (std::abs(value) + std::abs(offsets[j]));
        error = std::max(error, (std::abs(static_cast<double>(rounded) - scaled) + lost) * slightly);
    }
    reach_ = reach;
    floatError_ = error;
    if (hasCells_) {
        placeCells(row, measurements);
    }
}

/// Divides the values of each measurement into cells of about as many rows each.
void kt_CompactCopy::divide(const ktClassifierDataProviderMemory& store)
{
    constexpr std::size_t numEdges = kt_numCells - 1;
    const std::size_t count = std::min(numRows_, sampleRows);
    std::vector<double> sample(count);
    cellEdges_.resize(size_ * numEdges);
    for (std::size_t j = 0; j < size_; ++j) {
        for (std::size_t i = 0; i < count; ++i) {
            sample[i] = store.patterns_[i * numRows_ / count]->measurements_[j];
        }
        std::sort(sample.begin(), sample.end());
        for (std::size_t edge = 0; edge < numEdges; ++edge) {
            cellEdges_[j * numEdges + edge] = sample[(edge + 1) * count / kt_numCells];
        }
    }
    cellLows_.assign(size_ * kt_numCells, std::numeric_limits<double>::infinity());
    cellHighs_.assign(size_ * kt_numCells, -std::numeric_limits<double>::infinity());
}

void kt_CompactCopy::placeCells(std::size_t row, const std::vector<double>& measurements)
{
    constexpr std::size_t half = kt_blockRows / 2;
    std::uint8_t* cells = cells_.data() + row / kt_blockRows * half * size_ + row % half;
    const int shift = row % kt_blockRows < half ? 0 : 4;
    const double* values = measurements.data();
    const double* edges = cellEdges_.data();
    double* lows = cellLows_.data();
    double* highs = cellHighs_.data();
    const std::size_t size = size_;
    for (std::size_t j = 0; j < size; ++j) {
        std::size_t cell = 0;
        for (std::size_t step = kt_numCells / 2; step > 0; step /= 2) {
            cell += values[j] >= edges[cell + step - 1] ? step : 0;
        }
        cells[j * half] = static_cast<std::uint8_t>(cells[j * half] | cell << shift);
        lows[cell] = std::min(lows[cell], values[j]);
        highs[cell] = std::max(highs[cell], values[j]);
        edges += kt_numCells - 1;
        lows += kt_numCells;
        highs += kt_numCells;
    }
}

bool kt_CompactCopy::isOutOfDate(const ktClassifierDataProviderMemory& store) const noexcept
{
    return store.revision_ != storeRevision_ || currency_.isNull() || !currency_.get()->isCurrent();
}

void kt_CompactCopy::append(const ktClassifierDataProviderMemory& store) noexcept
{
    try {
        if (appendLast(store)) {
            return;
        }
    } catch (...) {
        // Without memory to grow there may still be some for a copy of the right size.
    }
    make(store);
}

bool kt_CompactCopy::appendLast(const ktClassifierDataProviderMemory& store)
{
    // Made anew when a quarter was added, so that offsets, scale and cells keep fitting; each row is then copied a bounded
    // number of times.
    if (store.patterns_.size() != numRows_ + 1 || store.revision_ != storeRevision_ + 1 || currency_.isNull() ||
        !currency_->isCurrent() || numRows_ >= builtRows_ + builtRows_ / 4) {
        return false;
    }
    hold(&store.patterns_.back(), &store.patterns_.back() + 1);
    if (!isUsable_) {
        ++numRows_;
        storeRevision_ = store.revision_;
        return true;
    }
    const ktFeaturePattern& pattern = *store.patterns_.back();
    if (pattern.measurements_.size() != size_ ||  // not covered: the store takes no pattern of another size
        pattern.numInvalid() != 0) {
        return false;
    }
    for (std::size_t j = 0; j < size_; ++j) {
        // Far outside what the scale was chosen for, a value could leave the range of a float.
        if (!(std::abs(pattern.measurements_[j] - offsets_[j]) * scale_ <= largestScaled)) {
            return false;
        }
    }
    reserveRows(numRows_ + 1);
    place(numRows_, pattern.measurements_);
    ++numRows_;
    storeRevision_ = store.revision_;
    return true;
}

std::size_t kt_CompactCopy::cellsFrom() noexcept
{
    return leastForCells.load(std::memory_order_relaxed);
}

void kt_CompactCopy::cellsFrom(std::size_t rows) noexcept
{
    leastForCells.store(rows, std::memory_order_relaxed);
}
