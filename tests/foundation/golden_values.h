#pragma once

#include "archive_bytes.h"

// What the golden archives of the foundation hold.

namespace toys {

/// One of each kind of value that the foundation archives.
struct Everything {
    unsigned char byte = 0;
    long number = 0;
    unsigned long bits = 0;
    double value = 0.0;
    std::string text;
    std::vector<bool> flags;
    std::vector<double> doubles;
    std::vector<std::vector<std::string>> texts;
    std::vector<ktRange> ranges;
    ktNMMatrix matrix;
};

inline ktArchive& operator||(ktArchive& archive, Everything& all)
{
    const ktArchive::Pass pass(archive);
    return archive || all.byte || all.number || all.bits || all.value || all.text || all.flags || all.doubles ||
           all.texts || all.ranges || all.matrix;
}

inline Everything everything()
{
    Everything all;
    all.byte = 200;
    all.number = -2;
    all.bits = 0xFFFFFFFEUL;
    all.value = 0.1;
    all.text = "grey level";
    all.flags = {true, false, true, true, false, false, false, false, true};
    all.doubles = {1.0, -0.5};
    all.texts = {{"a", ""}, {}};
    all.ranges = {ktRange(0.0, 1.0), ktRange::FullRange()};
    all.matrix = ktNMMatrix(1, 2);
    all.matrix(0, 1) = 3.0;
    return all;
}

/// A tree in which two nodes share a third, and nulls stand between.
inline Nodes graph()
{
    const ktPtrHandle<Node> shared(new HeavyNode(0.5));
    const ktPtrHandle<Node> left(new Node(1));
    const ktPtrHandle<Node> right(new Node(2));
    left->children = {shared, nullptr};
    right->children = {shared, chain(2)};
    return {left, nullptr, right, left};
}

/// Loads a T; stored, loaded and stored again, it gives the same bytes.
template <class T>
void loadAndStore(ktArchive& archive)
{
    T value;
    archive || value;
    const std::string bytes = kt_test::store(value);
    EXPECT_EQ(kt_test::toHex(kt_test::store(kt_test::load<T>(bytes))), kt_test::toHex(bytes));
}

}  // namespace toys
