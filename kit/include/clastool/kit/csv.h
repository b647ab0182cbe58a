#pragma once

#include <clastool/kit/config.h>
#include <clastool/kit/files.h>
#include <clastool/training_data.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace ktKit {

/// How a file of comma-separated values is read.
struct CsvOptions {
    /// The column that holds the labels: its name, or, if none is called so, its number, counted from 0. Empty: the first column.
    std::string labelColumn;
    /// What stands between two cells.
    char separator = ',';
    /// False for a file without labels: all columns are measurements, and every label is -1, an unknown category.
    bool isLabelled = true;
};

/// What stood in a file of comma-separated values.
struct Table {
    /// The names of the measurements: `columns[j]` is that of measurement j. The label column is not among them.
    std::vector<std::string> columns;
    /// The text that each label stands for, `labelNames[label]`. Empty if the labels are numbers.
    std::vector<std::string> labelNames;
    /// The patterns in the order of the rows, with their labels.
    ktClassifierDataProviderMemory data;
};

/// Reads a table of numbers, each row a pattern, the first row the names of the columns.
///
/// - A cell is a number as C++ writes it in decimal, maybe with a plus sign, blanks and tabs around it. Rounded to the nearest
///   double, which for a tiny one is 0.
/// - Empty cells, NA and NaN (in upper or lower case) are missing, and so are infinite ones: their measurements are invalid.
/// - Labels that are all whole numbers from 0 to 2147483647 are taken as they are. If there is any other, all are texts, numbered
///   from 0 in the order of their first row. A label that is missing is -1, an unknown category.
/// - A cell may stand in double quotes; separators and line ends are then a part of it, and a quote in it stands twice.
///   Otherwise it is read like others.
/// - Lines end with a line feed, a carriage return, or both. Lines that are empty, or hold nothing but blanks and tabs that are not
///   the separator, are passed over, and so is a byte order mark of UTF-8.
///
/// Throws: ktClassifierDefs::BadParams "The separator must not be a quote, a line end, or a character of numbers"; then FileError
/// "<path>: <what>", where lines and columns count from 1 and <name> is that of the column:
/// - "cannot be read";
/// - "line 1: the names of the columns are missing";
/// - "line 1: no column is called "<labelColumn>"";
/// - "line 1: there is no column of measurements";
/// - "line <n>, column <m>: the quote that begins here does not end";
/// - "line <n>, column <m>: something stands behind the closing quote";
/// - "line <n>: <k> cells, but <m> columns";
/// - "line <n>, column <m> (<name>): "<cell>" is not a number", at most 40 bytes of the cell;
/// - "line <n>, column <m> (<name>): "<cell>" is too large for a number".
///
/// Cost: linear in the file, which is held in memory once, beside the patterns.
/// See: Y. Shafranovich, "Common format and MIME type for comma-separated values files", RFC 4180, 2005.
KT_KIT_API Table readCsv(const std::string& path, const CsvOptions& options = {});
/// The same from a stream, which messages call "stream".
KT_KIT_API Table readCsv(std::istream& stream, const CsvOptions& options = {});

}  // namespace ktKit
