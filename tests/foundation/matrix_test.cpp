#include "support/test.h"

namespace {

using namespace kt_test;

/// The elements 1, 2, 3, ... row by row.
ktNMMatrix numbered(long rows, long columns);

TEST(Matrix, IsZerosOfTheGivenShape)
{
    const ktNMMatrix matrix(2, 3);
    EXPECT_EQ(matrix.numRows(), 2);
    EXPECT_EQ(matrix.numColumns(), 3);
    for (long i = 0; i < 6; ++i) {
        EXPECT_EQ(matrix(i / 3, i % 3), 0.0);
    }
    EXPECT_EQ(ktNMMatrix().numRows(), 0);
    EXPECT_EQ(ktNMMatrix().numColumns(), 0);
}

TEST(Matrix, ElementsLieRowByRow)
{
    const ktNMMatrix matrix = numbered(2, 3);
    for (long i = 0; i < 6; ++i) {
        EXPECT_EQ(matrix.data()[i], static_cast<double>(i + 1));
    }
    EXPECT_EQ(matrix(1, 0), 4.0);
}

TEST(Matrix, EmptyShapesAreShapes)
{
    EXPECT_EQ(ktNMMatrix(0, 5).numColumns(), 5);
    EXPECT_EQ(ktNMMatrix(5, 0).numRows(), 5);
    EXPECT_TRUE(ktNMMatrix(0, 5) != ktNMMatrix(5, 0));
}

TEST(Matrix, ElementOutsideIsRefused)
{
    ktNMMatrix matrix = numbered(2, 3);
    const ktNMMatrix before = matrix;
    for (const auto& [row, column] :
         std::vector<std::pair<long, long>>{{-1, 0}, {2, 0}, {0, -1}, {0, 3}, {LONG_MAX, LONG_MAX}, {LONG_MIN, 0}}) {
        EXPECT_THROW(matrix(row, column) = 9.0, std::out_of_range) << row << " " << column;
        EXPECT_THROW(static_cast<void>(before(row, column)), std::out_of_range) << row << " " << column;
    }
    EXPECT_TRUE(matrix == before);
    EXPECT_THROW(static_cast<void>(ktNMMatrix()(0, 0)), std::out_of_range);
}

TEST(Matrix, ShapeThatCannotBeIsRefused)
{
    EXPECT_THROW(ktNMMatrix(-1, 1), std::length_error);
    EXPECT_THROW(ktNMMatrix(1, -1), std::length_error);
    EXPECT_THROW(ktNMMatrix(LONG_MAX, LONG_MAX), std::length_error);
    EXPECT_THROW(ktNMMatrix(0x7FFFFFFF, LONG_MAX), std::length_error);
}

TEST(Matrix, EqualityIsOfShapeAndElementsWithoutTolerance)
{
    EXPECT_TRUE(numbered(2, 3) == numbered(2, 3));
    EXPECT_TRUE(numbered(2, 3) != numbered(3, 2));
    EXPECT_TRUE(numbered(2, 3) != numbered(2, 2));
    ktNMMatrix other = numbered(2, 3);
    other(1, 2) = 7.0;
    EXPECT_TRUE(numbered(2, 3) != other);
    ktNMMatrix NaN(1, 1);
    NaN(0, 0) = std::numeric_limits<double>::quiet_NaN();
    const ktNMMatrix copy = NaN;
    EXPECT_FALSE(NaN == copy);
}

TEST(Matrix, MovedFromHoldsNoMoreElementsThanItsShapeSays)
{
    ktNMMatrix source(2, 2);
    source(1, 1) = 5.0;
    ktNMMatrix target(std::move(source));
    EXPECT_EQ(target(1, 1), 5.0);
    EXPECT_TRUE(source == ktNMMatrix());
    EXPECT_THROW(source(1, 1), std::out_of_range);
    source = std::move(target);
    EXPECT_EQ(source(1, 1), 5.0);
    EXPECT_TRUE(target == ktNMMatrix());
}

TEST(Matrix, IsArchivedAsRowsColumnsAndElements)
{
    const std::string bytes = store(numbered(2, 1));
    EXPECT_EQ(toHex(kt_test::afterHeader(bytes)),
              "02 00 00 00 01 00 00 00 00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 00 40");
    EXPECT_TRUE(load<ktNMMatrix>(bytes) == numbered(2, 1));
    EXPECT_TRUE(kt_test::loadBlind<ktNMMatrix>(bytes) == numbered(2, 1));
    EXPECT_TRUE(kt_test::storedAndLoaded(ktNMMatrix(0, 5)) == ktNMMatrix(0, 5));
    EXPECT_TRUE(kt_test::storedAndLoaded(numbered(40, 30)) == numbered(40, 30));
    EXPECT_TRUE(kt_test::loadBlind<ktNMMatrix>(store(numbered(40, 30))) == numbered(40, 30));
}

TEST(Matrix, DamagedShapeIsRefusedAndTheMatrixStaysAsItWas)
{
    struct {
        const char* bytes;
        const char* message;
    } const rows[] = {
        {"FF FF FF FF 01 00 00 00", "Corrupt archive: a matrix of a negative size at byte 16."},
        {"01 00 00 00 00 00 00 80", "Corrupt archive: a matrix of a negative size at byte 16."},
        {"02 00 00 00 01 00 00 00 00 00 00 00 00 00 F0 3F 00 00 00 00 00 00 00",
         "Corrupt archive: impossible count 2 at byte 16."},
        {"FF FF FF 7F FF FF FF 7F 00", "Corrupt archive: impossible count 4611686014132420609 at byte 16."},
        {"00 00 01 00 00 00 01 00 00", "Corrupt archive: impossible count 4294967296 at byte 16."},
        {"01 00 00 00 01 00 00", "Corrupt archive: unexpected end at byte 15."},
    };
    for (const auto& row : rows) {
        ktNMMatrix matrix = numbered(2, 3);
        kt_test::expectThrows<ktArchive::Corrupt>(row.message,
                                                  [&] { loadInto(matrix, archiveHeader() + fromHex(row.bytes)); });
        EXPECT_TRUE(matrix == numbered(2, 3)) << row.bytes;
    }
}

TEST(Matrix, HugeShapeTakesNoMemory)
{
    for (const char* shape :
         {"FF FF FF 7F FF FF FF 7F 00", "FF FF FF 7F 01 00 00 00 00", "00 00 01 00 00 00 01 00 00"}) {
        const std::string bytes = archiveHeader() + fromHex(shape);
        const kt_test::MemoryWatch watch;
        EXPECT_THROW(load<ktNMMatrix>(bytes), ktArchive::Corrupt);
        EXPECT_THROW(kt_test::loadBlind<ktNMMatrix>(bytes), ktArchive::Corrupt);
        EXPECT_LT(watch.peakBytes(), 16 * 1024u);
    }
}

ktNMMatrix numbered(long rows, long columns)
{
    ktNMMatrix matrix(rows, columns);
    for (long i = 0; i < rows * columns; ++i) {
        matrix(i / columns, i % columns) = static_cast<double>(i + 1);
    }
    return matrix;
}

}  // namespace
