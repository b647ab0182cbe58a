#pragma once

#include "batch_kernels.h"
#include "compact_copy.h"
#include "distance_limits.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// The nearest rows of many queries at once, by the norm of order 2, from the floats of a compact copy. A block of rows is
/// rounded once more, to 16-bit numbers, and compared with all queries while it is in the nearest cache; nothing is kept
/// between two batches. docs/neighbor-scan.md says why no answer depends on it.
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
    /// one by one, all of them but a few where boxes spare most rows. Polls nothing.
    std::vector<char> run(const Queries& queries, std::vector<std::size_t>& rows);

    /// The same for those that are not found yet, whatever boxes spare.
    void findTogether(const Queries& queries, std::vector<char>& isFound, std::vector<std::size_t>& rows);

private:
    struct Candidate {
        std::uint32_t row;
        float least;
    };

    /// What is known of a query. All lengths are in steps, that is, in units of 1 / scale of the copy's.
    struct Query {
        std::size_t place;
        const std::vector<double>* values;
        std::int32_t square;
        // How far rounding may have moved a distance, without the rounding of the rows to steps.
        double error;
        // A bound on the distance of the k-th nearest row, and on where that lets the exact routine see a row.
        double highest;
        double limit;
        std::size_t numCandidates;
        std::size_t numSmallest;
        bool isRenewed;
        bool isGivenUp;
    };

    /// 64 rows of the copy, of which the first `count` exist.
    struct Block {
        std::uint32_t number;
        std::uint32_t count;
    };

    /// Blocks of rounded rows, and how far rounding moved a row at the most. Where values were cut off, rows lie farther from
    /// every query than their numbers say.
    struct Chunk {
        std::vector<Block> blocks;
        double error = 0.0;
        bool isCut = false;
        kt_Aligned<std::int16_t> rows;
        std::vector<std::int32_t> squares;
    };

    void listBlocks();
    bool tryOneByOne(const Queries& queries, std::vector<char>& isFound, std::vector<std::size_t>& rows) const;
    bool chooseScale();
    void prepare(const std::vector<double>& values, std::size_t place);
    void round(Chunk& chunk, const Block* blocks, std::size_t count) const;
    void findFirstLimits();
    void setFirstLimit(Query& query, double error, std::vector<std::int32_t>& least) const;
    void compare(const Chunk& chunk, std::size_t first);
    void setLimit(std::size_t index, double error, std::int32_t& limit) const;
    void take(Query& query, std::size_t index, std::uint32_t row, double root, const Chunk& chunk);
    void keepNearest(Query& query, std::size_t index);
    void renew(Query& query, std::size_t index);
    bool finish(Query& query, std::size_t index, kt_RowList& rows);

    const std::int16_t* numbersOf(std::size_t first) const { return numbers_.data() + first * 2 * numPairs_; }
    std::size_t numbersOfBlock() const { return numPairs_ * 2 * kt_blockRows; }

    const kt_CompactCopy& copy_;
    const ktClassifierDataProviderMemory& store_;
    const std::size_t k_;
    const std::size_t size_;
    const std::size_t numPairs_;
    const std::size_t capacity_;
    const kt_BatchKernels* const kernels_;
    // Steps to one of the copy's units, exact as a float too, and the largest number of a row or a query.
    double scale_ = 0.0;
    double most_ = 0.0;
    // The exact routine's rounding, for distances in steps.
    std::optional<kt_DistanceLimits> norm_;
    std::vector<Block> blocks_;
    std::vector<Block> samples_;
    std::vector<Query> queries_;
    std::vector<std::int16_t> numbers_;
    std::vector<Candidate> candidates_;
    // For each query a heap of the smallest upper bounds on rows' distances.
    std::vector<double> smallest_;
};
