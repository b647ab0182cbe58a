#pragma once

#include <clastool/training_data.h>

#include "../clastool/pattern_holders.h"
#include "kernels.h"

#include <kt/scratch.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

/// Row numbers; as many of them as neighbours are asked for.
using kt_RowList = kt_Scratch<std::size_t, 256>;

/// Memory that begins where a line of the processor's cache does, so that no vector lies across two lines.
template <class T>
struct kt_LineAllocator {
    using value_type = T;
    static constexpr std::align_val_t line{64};

    kt_LineAllocator() = default;
    template <class Other>
    kt_LineAllocator(const kt_LineAllocator<Other>&) noexcept
    {
    }
    T* allocate(std::size_t count)
    {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(::operator new(count * sizeof(T), line));
    }
    void deallocate(T* memory, std::size_t) noexcept { ::operator delete(memory, line); }

    friend bool operator==(const kt_LineAllocator&, const kt_LineAllocator&) noexcept { return true; }
    friend bool operator!=(const kt_LineAllocator&, const kt_LineAllocator&) noexcept { return false; }
};

template <class T>
using kt_Aligned = std::vector<T, kt_LineAllocator<T>>;

/// A compact copy of the kept patterns' measurements, which a nearest-neighbour run with a norm of any order searches before the patterns.
/// docs/neighbor-scan.md says why it never changes an answer. In short: the copy gives certified bounds for every distance. A row whose
/// lower bound exceeds the k-th smallest upper bound cannot be among the k nearest. The rows that are left go through the exact routine
/// in stored order.
///
/// It belongs to one store of patterns and is shared by all classifiers that share the store. It knows whether the store
/// and its patterns are still what it copied.
/// Threads: const operations run on several threads at once.
class kt_CompactCopy : public ktRepBase {
public:
    ~kt_CompactCopy() override;

    /// Copies the store. Some stores are left to the plain scan: those without patterns, with patterns of different sizes, invalid
    /// measurements, values that are not finite or too large, or few patterns many times; and any store if memory runs out.
    void make(const ktClassifierDataProviderMemory& store) noexcept;

    /// Copies the pattern that was just added to the store, or the whole store anew. A store that could not be copied is tried again
    /// after a quarter was added.
    void append(const ktClassifierDataProviderMemory& store) noexcept;

    /// Whether there is a copy and it equals the store and its patterns.
    bool isCurrent(const ktClassifierDataProviderMemory& store) const noexcept
    {
        return isUsable_ && !isOutOfDate(store);
    }

    /// Whether the store or one of its patterns has changed since copying was tried, or it was never tried.
    bool isOutOfDate(const ktClassifierDataProviderMemory& store) const noexcept;

    /// The nearest rows in no particular order, as many as `rows` has room for and exactly those of the plain scan. Returns
    /// false, without having polled, if that cannot be certified; the plain scan is to decide.
    /// Polls: once per row. Throws: what the attention check raises.
    bool nearest(const ktClassifierDataProviderMemory& store, const std::vector<double>& query, double order,
                 kt_RowList& rows) const;

    /// The same without a poll, for a search for many queries. `numCompared` grows by the number of blocks of rows that the
    /// query was compared with.
    bool nearest(const ktClassifierDataProviderMemory& store, const std::vector<double>& query, double order,
                 kt_RowList& rows, std::size_t& numCompared) const;

    /// The nearest rows when all of them are among `candidates`, for a query and an order that can be certified. Polls nothing.
    void nearestAmong(const std::vector<std::uint32_t>& candidates, const ktClassifierDataProviderMemory& store,
                      const std::vector<double>& query, double order, kt_RowList& rows) const;

    /// The rows lie in blocks of 64, in another order than in the store. The numbers in the store of the rows of a block.
    const std::uint32_t* rowsOf(std::size_t block) const { return rows_.data() + block * kt_blockRows; }

    /// The instruction set that scans use, for tests: 0 for every processor, 1 with AVX2, 2 with AVX-512 VNNI for batches as
    /// well. A request for one that the machine lacks is ignored. Returns what is in force.
    static int instructionSet() noexcept;
    static int instructionSet(int wanted) noexcept;

    /// From how many rows on a copy made from now on has cells; for tests, which set it lower.
    static std::size_t cellsFrom() noexcept;
    static void cellsFrom(std::size_t rows) noexcept;

private:
    friend class kt_BatchScan;
    friend class kt_CellFilter;
    friend class kt_NeighborScan;

    /// Rows that are stored relative to the same offsets.
    struct Zone {
        /// Which of `offsets_` is taken off its values.
        std::size_t offsets;
        /// Whether no value lies farther from its offset than `zoneReach`.
        bool isBounded;
        std::size_t firstGroup;
        std::size_t endGroup;
        /// The boxes around its groups, in batches of 64; empty where there are few groups.
        kt_Aligned<float> boxes;
    };

    /// Up to 64 blocks in a row, of which only the last one may have room left, and where the boxes around them begin in
    /// `boxes_`.
    struct Group {
        std::size_t firstBlock;
        std::size_t numRows;
        std::size_t firstBox;

        std::size_t usedBlocks() const;
        std::size_t numBlocks() const { return blocksOf(numRows); }
    };

    using RowNumbers = std::vector<std::uint32_t>;

    /// Floats and cells of rows before they have their places: of each row in turn, beginning with that of number `first`.
    struct Rows {
        std::uint32_t first;
        std::vector<float> floats;
        std::vector<std::uint8_t> cells;
    };

    /// In scaled units; most values are within a few.
    static constexpr double zoneReach = 1024.0;
    /// From how many groups on a zone has boxes around them.
    static constexpr std::size_t groupsForBoxes = 2;

    static std::size_t blocksOf(std::size_t rows) { return (rows + kt_blockRows - 1) / kt_blockRows; }
    /// The boxes of a list, with those that fill it up to whole vectors.
    static std::size_t paddedBoxes(std::size_t boxes) { return (boxes + 7) / 8 * 8; }

    void clear() noexcept;
    bool fill(const ktClassifierDataProviderMemory& store);
    std::size_t hold(const ktPtrHandle_const<ktFeaturePattern>* pattern,
                     const ktPtrHandle_const<ktFeaturePattern>* end);
    bool appendLast(const ktClassifierDataProviderMemory& store);
    bool canServe(const ktClassifierDataProviderMemory& store);
    bool lookAtSample(const ktClassifierDataProviderMemory& store);
    double largestDeviation(const ktClassifierDataProviderMemory& store) const;
    void arrange(const ktClassifierDataProviderMemory& store);
    Rows emptyRows(std::uint32_t first, std::size_t count) const;
    float copyRow(const std::vector<double>& measurements, Rows& rows, std::size_t place);
    void findCells(const double* values, std::uint8_t* cells);
    void takeClusters(const ktClassifierDataProviderMemory& store, RowNumbers& distant, Rows& rows);
    RowNumbers takeCluster(const ktClassifierDataProviderMemory& store, RowNumbers& distant,
                           const std::vector<double>& centre);
    void addZone(std::size_t offsets, bool isBounded, const Rows& rows, RowNumbers& numbers);
    void addGroup(const Rows& rows, const std::uint32_t* numbers, std::size_t count);
    void prefetchRow(const Rows& rows, std::uint32_t number) const;
    void placeRow(const Rows& rows, std::uint32_t number, std::size_t position);
    void boundBlock(std::size_t block, std::size_t count, float* boxes, std::size_t stride) const;
    void boundGroups(Zone& zone) const;
    void sortUnsorted(const ktClassifierDataProviderMemory& store);
    void reserveBlocks(std::size_t blocks);
    std::size_t usedBlocks() const;
    std::size_t numBlocks() const { return rows_.size() / kt_blockRows; }

    /// A value as the float copy has it. Values that no float could hold are brought nearer to zero.
    float rounded(double value, double offset) const
    {
        constexpr double most = 0x1p+126;
        return static_cast<float>(std::clamp((value - offset) * scale_, -most, most));
    }

    bool isUsable_ = false;
    std::size_t numRows_ = 0;
    std::size_t size_ = 0;
    std::size_t builtRows_ = 0;
    unsigned long storeRevision_ = 0;
    // Ended by the patterns when one of them changes; null before the first try to copy.
    ktPtrHandle<const kt_Currency> currency_;
    // The holders of a pattern that nobody else copied.
    ktPtrHandle<const kt_PatternHolders> soleHolder_;

    // What is taken off before a value is rounded, for each measurement, so that its distance from zero costs no precision: a
    // median of all rows, then a row out of each cluster that lies far away.
    std::vector<std::vector<double>> offsets_;
    // A power of two that brings what most values are off by near 1.
    double scale_ = 1.0;

    // The rows by the leaves of a k-d tree, block after block: their floats, one measurement of all rows in the block behind the
    // other, and their numbers in the store.
    kt_Aligned<float> floats_;
    RowNumbers rows_;
    // The last zone has the rows that were added one by one and sorted since; its offsets are those of the first.
    std::vector<Zone> zones_;
    std::vector<Group> groups_;
    kt_Aligned<float> boxes_;
    // The rows that were added last, in blocks without boxes behind all others; likewise with the first zone's offsets.
    std::size_t firstUnsortedBlock_ = 0;
    std::size_t numUnsorted_ = 0;

    // The level of cells, for stores of many rows. Every measurement has its values divided into 16 cells of about as many
    // rows each; a row's cell is the number of `cellEdges_` that are not greater than its value. What a cell really holds
    // lies between `cellLows_` and `cellHighs_`.
    bool hasCells_ = false;
    std::vector<double> cellEdges_;
    std::vector<double> cellLows_;
    std::vector<double> cellHighs_;
    kt_Aligned<std::uint8_t> cells_;
};
