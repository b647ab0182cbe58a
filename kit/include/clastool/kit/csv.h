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
    /// The name of the column that holds the labels, or, if no column has this name, its number, counted from 0. Empty: the first column.
    std::string labelColumn;
    /// The character between two cells.
    char separator = ',';
    /// False for a file without labels: all columns are measurements, and every label is -1, an unknown category.
    bool isLabelled = true;
};

/// The content of a file of comma-separated values.
struct Table {
    /// The names of the measurements: `columns[j]` is that of measurement j. The label column is left out.
    std::vector<std::string> columns;
    /// The text that each label stands for, `labelNames[label]`. Empty if the labels are numbers.
    std::vector<std::string> labelNames;
    /// The patterns in the order of the rows, with their labels.
    ktClassifierDataProviderMemory data;
};

/// Reads a table of numbers. The first row names the columns; every other row is a pattern.
///
/// - A cell is a number as C++ writes it in decimal, with an optional plus sign and with blanks and tabs around it. It is rounded to
///   the nearest double; a tiny number becomes 0.
/// - An empty cell, NA, NaN (in upper or lower case) and an infinite number are missing: the measurement is invalid.
/// - Labels are taken as they are if all of them are whole numbers from 0 to 2147483647. Otherwise all are texts, numbered from 0 in
///   the order of their first row. A missing label is -1, an unknown category.
/// - A cell may stand in double quotes. Separators and line ends then belong to it, and a quote in it is written twice.
///   Otherwise it is read like any other cell.
/// - Lines end with a line feed, a carriage return, or both. Empty lines are skipped, and lines of blanks and tabs that are not the
///   separator, and a byte order mark of UTF-8.
///
/// Throws: ktClassifierDefs::BadParams "The separator must not be a quote, a line end, or a character of numbers"; then FileError
/// "<path>: <what>". Lines and columns count from 1, and <name> is that of the column:
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
/// Cost: linear in the file, which is kept in memory once, in addition to the patterns.
/// See: Y. Shafranovich, "Common format and MIME type for comma-separated values files", RFC 4180, 2005.
KT_KIT_API Table readCsv(const std::string& path, const CsvOptions& options = {});
/// Reads the table from a stream. Error messages call it "stream".
KT_KIT_API Table readCsv(std::istream& stream, const CsvOptions& options = {});

}  // namespace ktKit
