#pragma once

#include <clastool/training_data.h>

#include "../clastool/pattern_holders.h"
#include "kernels.h"

#include <kt/scratch.h>

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

/// A compact copy of the kept patterns' measurements, in front of the exact scan of a nearest-neighbour run with a norm of
/// any order. docs/neighbor-scan.md says why it never changes an answer; in short: from the copy every distance is known
/// within certified bounds, a row whose lower bound exceeds the k-th smallest upper bound cannot be among the k
/// nearest, and the rows that are left go through the exact routine in stored order.
///
/// It belongs to one store of patterns and is shared by all classifiers that share the store. It knows whether the store
/// and its patterns are still what it copied.
/// Threads: const operations run on several threads at once.
class kt_CompactCopy : public ktRepBase {
public:
    ~kt_CompactCopy() override;

    /// Copies the store. What cannot serve is left to the plain scan: no patterns, patterns of different sizes, invalid
    /// measurements, values that are not finite or too large, few patterns that are there many times, or no memory.
    void make(const ktClassifierDataProviderMemory& store) noexcept;

    /// Takes over the pattern that was just added to the store, or copies the store anew. A store that could not serve is
    /// tried again after a quarter was added.
    void append(const ktClassifierDataProviderMemory& store) noexcept;

    /// Whether there is a copy, and the store and its patterns are what was copied.
    bool isCurrent(const ktClassifierDataProviderMemory& store) const noexcept
    {
        return isUsable_ && !isOutOfDate(store);
    }

    /// Whether the store or one of its patterns was changed since they were copied, or could not be.
    bool isOutOfDate(const ktClassifierDataProviderMemory& store) const noexcept;

    /// The nearest rows in no particular order, as many as `rows` has room for and exactly those of the plain scan. Returns
    /// false, without having polled, if that cannot be certified; the plain scan is to decide.
    /// Polls: once per row. Throws: what the attention check raises.
    bool nearest(const ktClassifierDataProviderMemory& store, const std::vector<double>& query, double order,
                 kt_RowList& rows) const;

    /// The instruction set that scans use, for tests: 0 for every processor, 1 with AVX2. A request for one that the machine
    /// lacks is ignored. Returns what is in force.
    static int instructionSet() noexcept;
    static int instructionSet(int wanted) noexcept;

    /// From how many rows on a copy made from now on has cells; for tests, which set it lower.
    static std::size_t cellsFrom() noexcept;
    static void cellsFrom(std::size_t rows) noexcept;

private:
    friend class kt_CellFilter;
    friend class kt_NeighborScan;

    bool fill(const ktClassifierDataProviderMemory& store);
    std::size_t hold(const ktPtrHandle_const<ktFeaturePattern>* pattern,
                     const ktPtrHandle_const<ktFeaturePattern>* end);
    bool appendLast(const ktClassifierDataProviderMemory& store);
    bool measure(const ktClassifierDataProviderMemory& store);
    void place(std::size_t row, const std::vector<double>& measurements);
    void placeCells(std::size_t row, const std::vector<double>& measurements);
    void divide(const ktClassifierDataProviderMemory& store);
    void reserveRows(std::size_t rows);

    /// The value of measurement j as the float copy has it.
    float rounded(double value, std::size_t j) const { return static_cast<float>((value - offsets_[j]) * scale_); }

    bool isUsable_ = false;
    std::size_t numRows_ = 0;
    std::size_t size_ = 0;
    std::size_t builtRows_ = 0;
    unsigned long storeRevision_ = 0;
    // Ended by the patterns when one of them changes; null before the first try to copy.
    ktPtrHandle<const kt_Currency> currency_;
    // The holders of a pattern that nobody else copied.
    ktPtrHandle<const kt_PatternHolders> soleHolder_;

    // Per measurement: what is taken off before a value is rounded, so that its distance from zero costs no precision.
    std::vector<double> offsets_;
    // A power of two that brings all values near 1.
    double scale_ = 1.0;
    // The largest magnitude in the float copy.
    double reach_ = 1.0;
    // How far a value of the float copy is from the scaled original, at the most.
    double floatError_ = 0.0;
    kt_Aligned<float> floats_;

    // The level of cells, for stores of many rows. Every measurement has its values divided into 16 cells of about as many
    // rows each; a row's cell is the number of `cellEdges_` that are not greater than its value. What a cell really holds
    // lies between `cellLows_` and `cellHighs_`.
    bool hasCells_ = false;
    std::vector<double> cellEdges_;
    std::vector<double> cellLows_;
    std::vector<double> cellHighs_;
    kt_Aligned<std::uint8_t> cells_;
};
