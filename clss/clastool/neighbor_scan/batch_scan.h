#pragma once

#include "batch_kernels.h"
#include "compact_copy.h"
#include "distance_limits.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The nearest rows of many queries at once, by the norm of order 2, from the floats of a compact copy. A block of rows is
/// rounded once more, to 16-bit numbers, and compared with all queries that it may concern while it is in the nearest cache; nothing
/// is kept between two batches. docs/neighbor-scan.md says why no answer depends on it.
/// Threads: each search has its own object; the copy is only read.
class kt_BatchScan {
public:
    /// How many queries share a search at the most.
    static constexpr std::size_t mostQueries = 1024;

    using Queries = std::vector<const std::vector<double>*>;

    /// `k`: fewer than the copy has rows.
    kt_BatchScan(const kt_CompactCopy& copy, const ktClassifierDataProviderMemory& store, std::size_t k);

    /// Whether so many queries may take less time together than one by one.
    bool isWorthwhile(std::size_t numQueries) const;

    /// Finds the rows of each query, in no particular order; `rows` has room for `k` of each. A null query is passed over.
    /// Returns for each query whether its rows were found and are exactly those of the plain scan; the others are to be run
    /// one by one, all of them but a few where that takes less time. Polls nothing.
    std::vector<char> run(const Queries& queries, std::vector<std::size_t>& rows);

    /// The same for those that are not found yet, however long it takes. `useBoxes`: whether queries pass over blocks by the boxes of
    /// each, or only over parts.
    void findTogether(const Queries& queries, bool useBoxes, std::vector<char>& isFound,
                      std::vector<std::size_t>& rows);

private:
    enum class Way { oneByOne, allBlocks, byBoxes };

    struct Candidate {
        std::uint32_t row;
        float least;
    };

    /// What is known of a query. Distances are in units of the copy.
    struct Query {
        std::size_t place;
        const std::vector<double>* values;
        kt_DistanceLimits limits;
        // How far it lies from the offsets, in the measurement in which it lies farthest.
        double farthest;
        std::size_t nearestBox = 0;
        std::size_t numCandidates = 0;
        std::size_t numSmallest = 0;
        bool isRenewed = false;
        bool isGivenUp = false;
        // How it was rounded, in steps, and for which part: its numbers' sum of squares; how far rounding to whole numbers moved it;
        // how far it lies outside their range; how far floats moved it and a row.
        std::size_t part = 0;
        double square = 0.0;
        double lost = 0.0;
        double outside = 0.0;
        double floatLost = 0.0;
    };

    /// 64 rows of the copy, of which the first `count` exist.
    struct Block {
        std::uint32_t number;
        std::uint32_t count;
    };

    /// Up to 64 boxes, beginning with that of `blocks_[first]` or `parts_[first]`.
    struct Boxes {
        const float* ends;
        std::size_t first;
        std::size_t count;
    };

    struct Box {
        std::vector<float> lows;
        std::vector<float> highs;

        explicit Box(std::size_t size) : lows(size), highs(size) {}
        float width() const;
        void include(const Box& other);
    };

    /// Blocks in a row whose values are rounded alike: by how many steps they are off the part's centre.
    struct Part {
        std::size_t number;
        std::size_t firstBlock;
        std::size_t endBlock;
        Box box;
        kt_Aligned<float> centre;
        // Steps to one of the copy's units.
        double scale;
        double floatLost;
    };

    /// Blocks of rounded rows. How far rounding moved a row at the most, and how far the rows' numbers reach from the centre.
    struct Chunk {
        std::size_t firstBlock = 0;
        std::size_t numBlocks = 0;
        double lost = 0.0;
        double reach = 0.0;
        kt_Aligned<std::int16_t> rows;
        std::vector<std::int32_t> squares;
    };

    /// A query that a chunk may concern, and the largest sum of a row that may be among its nearest.
    struct Asking {
        std::size_t query;
        std::int32_t limit;
    };

    void listBlocks();
    void listBoxes();
    Way tryOneByOne(const Queries& queries, std::vector<char>& isFound, std::vector<std::size_t>& rows) const;
    void readBox(std::size_t block, Box& box) const;
    void makeParts();
    void chooseSteps(Part& part) const;
    void boundParts();
    void prepare(const Queries& queries, std::size_t first, std::size_t count, const std::vector<char>& isFound);
    void findBounds();
    void findFirstLimits(bool useBoxes);
    void setFirstLimit(std::size_t index, const Block& block);
    void comparePart(const Part& part, bool useBoxes);
    void compareChunk(const Part& part, std::size_t block, std::size_t count, const float* bounds);
    void round(const Part& part, std::size_t firstBlock, std::size_t count);
    void round(const Part& part, Query& query, std::size_t index);
    void compare(const Part& part, const Asking* asking, std::size_t count);
    std::int32_t limitOf(const Part& part, const Query& query) const;
    void take(const Part& part, Query& query, std::size_t index, std::uint32_t row, std::int32_t sum);
    void keepNearest(Query& query, std::size_t index);
    void renew(Query& query, std::size_t index);
    bool finish(Query& query, std::size_t index, kt_RowList& rows);

    std::size_t numbersOfBlock() const { return numPairs_ * 2 * kt_blockRows; }

    const kt_CompactCopy& copy_;
    const ktClassifierDataProviderMemory& store_;
    const std::size_t k_;
    const std::size_t size_;
    const std::size_t numPairs_;
    const std::size_t paddedSize_;
    const std::size_t capacity_;
    const kt_BatchKernels* const kernels_;
    // The largest number of a row or a query.
    const double most_;
    // Room for the rounding of a sum of squares of floats, and of its root.
    const double sumError_;
    std::vector<Block> blocks_;
    std::vector<Boxes> boxes_;
    // Those that the copy does not have.
    kt_Aligned<float> ownBoxes_;
    std::vector<Part> parts_;
    std::vector<Query> queries_;
    // Of each query its floats, and its numbers for the part that it was rounded for.
    kt_Aligned<float> floats_;
    kt_Aligned<std::int16_t> numbers_;
    // Of each box the squared distances from all queries, and up to which each query asks for what is in a box.
    std::vector<float> bounds_;
    std::vector<float> boxLimits_;
    std::vector<Candidate> candidates_;
    // For each query a heap of the smallest upper bounds on rows' distances.
    std::vector<double> smallest_;
    Chunk chunk_;
    std::vector<Asking> asking_;
};
