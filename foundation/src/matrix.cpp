#include <kt/matrix.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

std::size_t elementCount(long rows, long columns)
{
    if (rows < 0 || columns < 0) {
        throw std::length_error("ktNMMatrix: the numbers of rows and columns must be >= 0");
    }
    const auto numRows = static_cast<std::size_t>(rows);
    const auto numColumns = static_cast<std::size_t>(columns);
    if (numColumns != 0 && numRows > std::numeric_limits<std::size_t>::max() / sizeof(double) / 2 / numColumns) {
        throw std::length_error("ktNMMatrix: too many elements");
    }
    return numRows * numColumns;
}

}  // namespace

ktNMMatrix::ktNMMatrix(long rows, long columns) : rows_(rows), columns_(columns), elements_(elementCount(rows, columns))
{
}

std::size_t ktNMMatrix::index(long row, long column) const
{
    if (row < 0 || row >= rows_ || column < 0 || column >= columns_) {
        throw std::out_of_range("ktNMMatrix: no such element");
    }
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column);
}

ktArchive& operator||(ktArchive& archive, ktNMMatrix& matrix)
{
    const ktArchive::Pass pass(archive);
    if (archive.isStoring()) {
        archive || matrix.rows_ || matrix.columns_;
        archive.doubles(matrix.elements_, matrix.elements_.size());
        return archive;
    }
    // Loaded aside: a matrix whose shape and elements disagree would break its own index check.
    ktNMMatrix loaded;
    archive || loaded.rows_ || loaded.columns_;
    if (loaded.rows_ < 0 || loaded.columns_ < 0) {
        archive.throwCorrupt("a matrix of a negative size");
    }
    const std::uint64_t count = static_cast<std::uint64_t>(loaded.rows_) * static_cast<std::uint64_t>(loaded.columns_);
    archive.requireBytesLeft(count, sizeof(double));
    archive.doubles(loaded.elements_, static_cast<std::size_t>(count));
    matrix = std::move(loaded);
    return archive;
}
