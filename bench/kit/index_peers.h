#pragma once

#include "kit.h"

#include <faiss/IndexFlat.h>
#include <nanoflann.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <vector>

// Other libraries' answers to the question for the nearest neighbours, each with its data in the form that it wants.

/// Measurements in one piece, pattern behind pattern.
template <class Value>
std::vector<Value> asOnePiece(const LabelledPatterns& data)
{
    std::vector<Value> values;
    values.reserve(data.size() * data.values(0).size());
    for (std::size_t i = 0; i < data.size(); ++i) {
        for (const double value : data.values(i)) {
            values.push_back(static_cast<Value>(value));
        }
    }
    return values;
}

/// nanoflann's k-d tree over doubles, and a vote.
class TreePeer {
public:
    virtual ~TreePeer() = default;
    /// Fills in as many rows as there is room for.
    virtual void search(const double* query, std::vector<std::uint32_t>& rows, std::vector<double>& squares) const = 0;

    /// A tree with the number of measurements as a constant for those that k-d trees are used with.
    static std::unique_ptr<TreePeer> make(const LabelledPatterns& data);
};

struct PointCloud {
    std::vector<double> values;
    std::size_t numMeasurements = 0;

    std::size_t kdtree_get_point_count() const { return values.size() / numMeasurements; }
    double kdtree_get_pt(std::size_t row, std::size_t j) const { return values[row * numMeasurements + j]; }
    template <class Box>
    bool kdtree_get_bbox(Box&) const
    {
        return false;
    }
};

/// `Metric`: nanoflann's plain one for few measurements, the one that gives up early for many, as its documents advise.
template <template <class, class, class, class> class Metric, int numMeasurements>
class TreeOf : public TreePeer {
public:
    explicit TreeOf(const LabelledPatterns& data)
        : cloud_{asOnePiece<double>(data), data.values(0).size()},
          tree_(static_cast<std::uint32_t>(cloud_.numMeasurements), cloud_)
    {
    }

    void search(const double* query, std::vector<std::uint32_t>& rows, std::vector<double>& squares) const override
    {
        nanoflann::KNNResultSet<double, std::uint32_t> found(rows.size());
        found.init(rows.data(), squares.data());
        tree_.findNeighbors(found, query, nanoflann::SearchParams());
    }

private:
    PointCloud cloud_;
    nanoflann::KDTreeSingleIndexAdaptor<Metric<double, PointCloud, double, std::uint32_t>, PointCloud, numMeasurements,
                                        std::uint32_t>
        tree_;
};

inline std::unique_ptr<TreePeer> TreePeer::make(const LabelledPatterns& data)
{
    switch (data.values(0).size()) {
    case 2:
        return std::make_unique<TreeOf<nanoflann::L2_Simple_Adaptor, 2>>(data);
    case 3:
        return std::make_unique<TreeOf<nanoflann::L2_Simple_Adaptor, 3>>(data);
    case 4:
        return std::make_unique<TreeOf<nanoflann::L2_Simple_Adaptor, 4>>(data);
    case 8:
        return std::make_unique<TreeOf<nanoflann::L2_Adaptor, 8>>(data);
    case 16:
        return std::make_unique<TreeOf<nanoflann::L2_Adaptor, 16>>(data);
    default:
        return std::make_unique<TreeOf<nanoflann::L2_Adaptor, -1>>(data);
    }
}

/// The label with the most votes, the smaller of two with equally many; for at most 8 labels from 0 on.
template <class Row>
long votedLabel(const Row* rows, std::size_t count, const std::vector<long>& labels)
{
    std::array<int, 8> votes{};
    for (std::size_t i = 0; i < count; ++i) {
        ++votes[static_cast<std::size_t>(labels[static_cast<std::size_t>(rows[i])])];
    }
    return std::max_element(votes.begin(), votes.end()) - votes.begin();
}

/// FAISS' exhaustive search over 32-bit floats.
class FlatPeer {
public:
    explicit FlatPeer(const LabelledPatterns& data) : index_(static_cast<faiss::Index::idx_t>(data.values(0).size()))
    {
        index_.add(static_cast<faiss::Index::idx_t>(data.size()), asOnePiece<float>(data).data());
    }

    void search(const float* queries, std::size_t count, std::vector<faiss::Index::idx_t>& rows,
                std::vector<float>& squares) const
    {
        const auto k = static_cast<faiss::Index::idx_t>(rows.size() / count);
        index_.search(static_cast<faiss::Index::idx_t>(count), queries, k, squares.data(), rows.data());
    }

private:
    faiss::IndexFlatL2 index_;
};
