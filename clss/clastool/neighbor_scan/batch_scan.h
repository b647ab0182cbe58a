#pragma once

#include "batch_kernels.h"
#include "compact_copy.h"
#include "distance_limits.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Finds the nearest rows of many queries at once, by the norm of order 2, in the floats of a compact copy. Blocks of rows are rounded
/// to 16-bit numbers. While a block is in the first-level cache, it is compared with all queries that it may concern. Nothing is kept
/// between two batches. docs/neighbor-scan.md proves that the answers are those of the plain scan.
/// Threads: each search has its own object; the copy is only read.
class kt_BatchScan {
public:
    /// The largest number of queries in one search.
    static constexpr std::size_t mostQueries = 1024;

    using Queries = std::vector<const std::vector<double>*>;

    /// Requires: `k` is less than the number of rows in the copy.
    kt_BatchScan(const kt_CompactCopy& copy, const ktClassifierDataProviderMemory& store, std::size_t k);

    /// Whether this number of queries may take less time together than one by one.
    bool isWorthwhile(std::size_t numQueries) const;

    /// Finds the `k` nearest rows of each query, in no particular order. Those of query i begin at `rows[i * k]`; `rows` grows where it
    /// is too short. Null queries are skipped. Returns for each query whether its rows were found; these are exactly those of the plain
    /// scan. The caller runs the other queries one by one. Where that takes less time, only the few queries that were tried are found,
    /// and no memory is used for the others' rows. Polls nothing.
    std::vector<char> run(const Queries& queries, std::vector<std::size_t>& rows);

    /// The same for the queries that are not found yet, without asking what takes less time. `useBoxes`: queries skip blocks by the
    /// blocks' own boxes; otherwise they skip whole parts only. Requires: `rows` has room for all queries.
    void findTogether(const Queries& queries, bool useBoxes, std::vector<char>& isFound,
                      std::vector<std::size_t>& rows);

private:
    enum class Way { oneByOne, allBlocks, byBoxes };

    struct Candidate {
        std::uint32_t row;
        float least;
    };

    /// The state of a query. Distances are in units of the copy.
    struct Query {
        std::size_t place;
        const std::vector<double>* values;
        kt_DistanceLimits limits;
        // The largest distance from an offset in any measurement.
        double farthest;
        std::size_t nearestBox = 0;
        std::size_t numCandidates = 0;
        std::size_t numSmallest = 0;
        bool isRenewed = false;
        bool isGivenUp = false;
        // The part for which the query was rounded. The values below hold for it, in steps.
        std::size_t part = 0;
        // The sum of the squares of its rounded numbers.
        double square = 0.0;
        // How far rounding to integers moved it.
        double lost = 0.0;
        // How far it lies outside the range of the numbers.
        double outside = 0.0;
        // How far the errors of floats may have moved the query and a row.
        double floatLost = 0.0;
    };

    /// A block of the copy. The first `count` of its 64 rows exist.
    struct Block {
        std::uint32_t number;
        std::uint32_t count;
    };

    /// Up to 64 boxes. The first one is that of `blocks_[first]` or `parts_[first]`.
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

    /// Consecutive blocks that share a centre and a scale. A rounded value is its distance from the centre in steps.
    struct Part {
        std::size_t number;
        std::size_t firstBlock;
        std::size_t endBlock;
        Box box;
        kt_Aligned<float> centre;
        // Steps per unit of the copy.
        double scale;
        double floatLost;
    };

    /// A few blocks of rounded rows. Lengths are in steps.
    struct Chunk {
        std::size_t firstBlock = 0;
        std::size_t numBlocks = 0;
        // The largest distance by which rounding moved a row.
        double lost = 0.0;
        // The largest norm of a row's rounded numbers.
        double reach = 0.0;
        kt_Aligned<std::int16_t> rows;
        std::vector<std::int32_t> squares;
    };

    /// A query that a chunk may concern. A row whose sum exceeds the limit is not among its nearest.
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
    // The largest rounded number of a row or a query.
    const double most_;
    // Bounds the relative error of a sum of squares of floats, and of its root.
    const double sumError_;
    std::vector<Block> blocks_;
    std::vector<Boxes> boxes_;
    // Boxes that the copy does not have.
    kt_Aligned<float> ownBoxes_;
    std::vector<Part> parts_;
    std::vector<Query> queries_;
    // The floats of each query, and its rounded numbers for `Query::part`.
    kt_Aligned<float> floats_;
    kt_Aligned<std::int16_t> numbers_;
    // For each box its squared distances from all queries.
    std::vector<float> bounds_;
    // For each query the squared distance beyond which it skips boxes.
    std::vector<float> boxLimits_;
    std::vector<Candidate> candidates_;
    // For each query a heap of the k smallest upper bounds on a row's distance.
    std::vector<double> smallest_;
    Chunk chunk_;
    std::vector<Asking> asking_;
};
