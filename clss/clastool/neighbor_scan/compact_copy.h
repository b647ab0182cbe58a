#pragma once

#include <clastool/training_data.h>

#include "../clastool/pattern_holders.h"
#include "../clastool/training_watch.h"
#include "kernels.h"

#include <kt/scratch.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

/// The row numbers of the neighbours; its size is k.
using kt_RowList = kt_Scratch<std::size_t, 256>;

/// Allocates memory that begins at a cache line, so that no SIMD vector crosses two lines.
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

/// A compact copy of the kept patterns' measurements. A nearest-neighbour run with a norm of any order searches it before the patterns.
/// docs/neighbor-scan.md proves that it never changes an answer. In short: the copy gives certified bounds for every distance. A row
/// whose lower bound exceeds the k-th smallest upper bound cannot be among the k nearest. The remaining rows go through the exact
/// routine in stored order.
///
/// It belongs to one store of patterns; all classifiers that share the store share the copy. It knows whether the store and its
/// patterns have changed since they were copied.
/// Threads: const operations run on several threads at once.
class kt_CompactCopy : public ktRepBase {
public:
    ~kt_CompactCopy() override;

    /// Copies the store. Some stores are left to the plain scan: those without patterns, with patterns of different sizes, invalid
    /// measurements, values that are not finite or too large, or many repetitions of few patterns; and any store if memory runs out,
    /// or if the watch, which may be null, gives the copy up.
    /// Cost: in addition to what it keeps, up to 16 bytes a row, and a byte a measurement if there are cells.
    void make(const ktClassifierDataProviderMemory& store, kt_TrainingWatch* watch = nullptr) noexcept;

    /// Copies the pattern that was just added to the store, or copies the whole store anew. A store that could not be copied is tried
    /// again after a quarter was added.
    void append(const ktClassifierDataProviderMemory& store) noexcept;

    /// Whether there is a copy, and store and patterns have not changed since.
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

    /// The numbers in the store of the 64 rows of a block. Rows lie in another order than in the store.
    const std::uint32_t* rowsOf(std::size_t block) const { return rows_.data() + block * kt_blockRows; }

    /// The instruction set that scans use, for tests: 0 for every processor, 1 with AVX2, 2 with AVX-512 VNNI for batches in addition. A
    /// request for a set that the machine lacks is ignored. Returns the set in use.
    static int instructionSet() noexcept;
    static int instructionSet(int wanted) noexcept;

    /// The fewest rows with which a new copy has cells. Tests set it lower.
    static std::size_t cellsFrom() noexcept;
    static void cellsFrom(std::size_t rows) noexcept;

private:
    friend class kt_BatchScan;
    friend class kt_CellFilter;
    friend class kt_NeighborScan;

    /// Rows stored relative to the same offsets.
    struct Zone {
        /// The index in `offsets_` of what is subtracted from its values.
        std::size_t offsets;
        /// Whether every value is within `zoneReach` of its offset.
        bool isBounded;
        std::size_t firstGroup;
        std::size_t endGroup;
        /// The boxes around its groups, in batches of 64; empty where there are few groups.
        kt_Aligned<float> boxes;
    };

    /// Up to 64 consecutive blocks, of which only the last one may be partly filled. Their boxes begin at `firstBox` in `boxes_`.
    struct Group {
        std::size_t firstBlock;
        std::size_t numRows;
        std::size_t firstBox;

        std::size_t usedBlocks() const;
        std::size_t numBlocks() const { return blocksOf(numRows); }
    };

    using RowNumbers = std::vector<std::uint32_t>;

    /// The cells of rows before they are sorted into blocks, a byte each: row after row, from the row of number `first`.
    struct CellRows {
        std::uint32_t first;
        std::vector<std::uint8_t> cells;
    };

    /// In scaled units; most values are within a few units.
    static constexpr double zoneReach = 1024.0;
    /// The fewest groups with which a zone has boxes around groups.
    static constexpr std::size_t groupsForBoxes = 2;

    static std::size_t blocksOf(std::size_t rows) { return (rows + kt_blockRows - 1) / kt_blockRows; }
    /// The number of boxes of a list, padded to whole SIMD vectors.
    static std::size_t paddedBoxes(std::size_t boxes) { return (boxes + 7) / 8 * 8; }

    void clear() noexcept;
    bool fill(const ktClassifierDataProviderMemory& store, kt_WatchedSteps& steps);
    std::size_t hold(const ktPtrHandle_const<ktFeaturePattern>* pattern,
                     const ktPtrHandle_const<ktFeaturePattern>* end);
    bool appendLast(const ktClassifierDataProviderMemory& store);
    bool canServe(const ktClassifierDataProviderMemory& store, kt_WatchedSteps& steps);
    bool lookAtSample(const ktClassifierDataProviderMemory& store);
    double largestDeviation(const ktClassifierDataProviderMemory& store) const;
    void arrange(const ktClassifierDataProviderMemory& store, kt_WatchedSteps& steps);
    float copyRow(const std::vector<double>& measurements, float* floats, CellRows& cells, std::size_t place);
    void findCells(const double* values, std::uint8_t* cells);
    void takeClusters(const ktClassifierDataProviderMemory& store, RowNumbers& distant, kt_WatchedSteps& steps);
    RowNumbers takeCluster(const ktClassifierDataProviderMemory& store, RowNumbers& distant,
                           const std::vector<double>& centre);
    void addZone(std::size_t offsets, bool isBounded, RowNumbers numbers, kt_WatchedSteps& steps);
    void orderFloats(kt_WatchedSteps& steps);
    void finishGroups(std::size_t firstGroup, const CellRows& cells, kt_WatchedSteps& steps);
    void transposeBlock(std::size_t block, std::vector<float>& scratch);
    void boundBlock(std::size_t block, std::size_t count, float* boxes, std::size_t stride) const;
    void boundGroups(Zone& zone) const;
    void placeCells(const Group& group, const CellRows& cells, kt_WatchedSteps& steps);
    void placeCells(const std::uint8_t* found, std::size_t position);
    void placeRow(const std::vector<double>& measurements, std::size_t position);
    void sortUnsorted(const ktClassifierDataProviderMemory& store);
    void reserveBlocks(std::size_t blocks);
    std::size_t usedBlocks() const;

    /// A value as the copy stores it. Values beyond the range of floats are brought nearer to zero.
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
    // Ended by a pattern that changes; null before the first attempt to copy.
    ktPtrHandle<const kt_Currency> currency_;
    // The list of holders of every pattern that no other copy holds.
    ktPtrHandle<const kt_PatternHolders> soleHolder_;

    // Subtracted from each measurement before it is rounded, so that its distance from zero costs no precision. First the medians of a
    // sample of all rows, then a row of each distant cluster.
    std::vector<std::vector<double>> offsets_;
    // A power of two that brings most deviations from the offsets near 1.
    double scale_ = 1.0;

    // The rows in the order of the leaves of a k-d tree, block after block: floats, with each measurement of all rows of a block
    // contiguous, and row numbers in the store.
    kt_Aligned<float> floats_;
    RowNumbers rows_;
    // The last zone has the rows that were added one by one and then sorted; it uses the first offsets.
    std::vector<Zone> zones_;
    std::vector<Group> groups_;
    kt_Aligned<float> boxes_;
    // The rows that were added last, in blocks without boxes behind all others; they use the first offsets too.
    std::size_t firstUnsortedBlock_ = 0;
    std::size_t numUnsorted_ = 0;

    // The level of cells, for stores of many rows. The values of each measurement are divided into 16 cells of about equally many rows.
    // A row's cell is the number of `cellEdges_` that are not greater than its value. The values of a cell lie between `cellLows_` and
    // `cellHighs_`.
    bool hasCells_ = false;
    std::vector<double> cellEdges_;
    std::vector<double> cellLows_;
    std::vector<double> cellHighs_;
    kt_Aligned<std::uint8_t> cells_;
};
