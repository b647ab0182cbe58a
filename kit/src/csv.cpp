#include <clastool/kit/csv.h>

#include <clastool/kit/patterns.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <istream>
#include <limits>
#include <locale>
#include <sstream>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace {

/// Splits a text into cells, one after the other.
class Cells {
public:
    Cells(std::string_view text, char separator, const std::string& path)
        : text_(text), separator_(separator), path_(path)
    {
        constexpr std::string_view mark = "\xEF\xBB\xBF";
        if (text_.substr(0, mark.size()) == mark) {
            place_ = mark.size();
        }
    }

    /// Goes to the next line that is not empty; false if there is none.
    bool nextRow()
    {
        for (passBlanks(); place_ < text_.size() && isLineEnd(text_[place_]); passBlanks()) {
            passLineEnd();
        }
        column_ = 0;
        rowLine_ = line_;
        isRowOpen_ = place_ < text_.size();
        return isRowOpen_;
    }

    /// Takes the next cell of the row; false at the end of the row.
    bool nextCell()
    {
        if (!isRowOpen_) {
            return false;
        }
        ++column_;
        cellLine_ = line_;
        isQuoted_ = place_ < text_.size() && text_[place_] == '"';
        if (isQuoted_) {
            takeQuoted();
        } else {
            std::size_t end = place_;
            while (end < text_.size() && text_[end] != separator_ && !isLineEnd(text_[end])) {
                ++end;
            }
            cell_ = text_.substr(place_, end - place_);
            place_ = end;
        }
        isRowOpen_ = place_ < text_.size() && text_[place_] == separator_;
        if (isRowOpen_) {
            ++place_;
        }
        return true;
    }

    std::string_view cell() const { return cell_; }
    bool isQuoted() const { return isQuoted_; }
    /// The number of cells taken from the row.
    std::size_t column() const { return column_; }

    [[noreturn]] void refuseLine(const std::string& what) const
    {
        throw ktKit::FileError(path_ + ": line " + std::to_string(rowLine_) + what);
    }
    [[noreturn]] void refuseCell(const std::string& name, const std::string& what) const
    {
        throw ktKit::FileError(path_ + ": line " + std::to_string(cellLine_) + ", column " + std::to_string(column_) +
                               name + ": " + what);
    }

private:
    static bool isLineEnd(char c) { return c == '\n' || c == '\r'; }
    static bool isBlank(char c) { return c == ' ' || c == '\t'; }

    /// Skips blanks if the rest of the line holds nothing else.
    void passBlanks()
    {
        std::size_t end = place_;
        while (end < text_.size() && text_[end] != separator_ && isBlank(text_[end])) {
            ++end;
        }
        if (end == text_.size() || isLineEnd(text_[end])) {
            place_ = end;
        }
    }

    void passLineEnd()
    {
        const bool isPair = text_.substr(place_, 2) == "\r\n";
        place_ += isPair ? 2 : 1;
        ++line_;
    }

    void takeQuoted()
    {
        unquoted_.clear();
        ++place_;
        for (;;) {
            if (place_ == text_.size()) {
                refuseCell("", "the quote that begins here does not end");
            }
            if (text_[place_] == '"' && text_.substr(place_, 2) != "\"\"") {
                break;
            }
            const std::size_t begin = place_;
            if (isLineEnd(text_[place_])) {
                passLineEnd();
            } else {
                place_ += text_[place_] == '"' ? 2 : 1;
            }
            // The second of two quotes.
            unquoted_.append(text_, text_[begin] == '"' ? begin + 1 : begin, text_[begin] == '"' ? 1 : place_ - begin);
        }
        ++place_;
        if (place_ < text_.size() && text_[place_] != separator_ && !isLineEnd(text_[place_])) {
            refuseCell("", "something stands behind the closing quote");
        }
        cell_ = unquoted_;
    }

    std::string_view text_;
    const char separator_;
    const std::string& path_;
    std::size_t place_ = 0;
    std::size_t line_ = 1;
    std::size_t rowLine_ = 1;
    std::size_t cellLine_ = 1;
    std::size_t column_ = 0;
    bool isRowOpen_ = false;
    bool isQuoted_ = false;
    std::string_view cell_;
    std::string unquoted_;
};

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isMissing(std::string_view text)
{
    const auto isEqual = [text](std::string_view word) {
        return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                          [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; });
    };
    return text.empty() || isEqual("na") || isEqual("nan");
}

std::string quoted(std::string_view cell)
{
    constexpr std::size_t most = 40;
    return "\"" + std::string(cell.substr(0, most)) + "\"";
}

/// Whether a number outside the range of doubles is too small, not too large.
bool isTiny(std::string_view number)
{
    std::istringstream words{std::string(number)};
    words.imbue(std::locale::classic());
    double value = 0.0;
    words >> value;
    return std::abs(value) < 1.0;
}

double numberOf(const Cells& cells, const std::string& column)
{
    std::string_view text = trimmed(cells.cell());
    if (isMissing(text)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    double value = 0.0;
    const char* const end = text.data() + text.size();
    const auto [stopped, failure] = std::from_chars(text.data(), end, value);
    if (failure == std::errc::result_out_of_range && stopped == end) {
        if (isTiny(text)) {
            return text[0] == '-' ? -0.0 : 0.0;
        }
        cells.refuseCell(" (" + column + ")", quoted(cells.cell()) + " is too large for a number");
    }
    if (failure != std::errc() || stopped != end) {
        cells.refuseCell(" (" + column + ")", quoted(cells.cell()) + " is not a number");
    }
    return value;
}

/// The labels of a table: numbers until the first label that is none, then texts.
class Labels {
public:
    void add(std::string_view cell, bool isQuoted)
    {
        const std::string_view text = isQuoted ? cell : trimmed(cell);
        if (isMissing(text)) {
            places_.push_back(-1);
            return;
        }
        const auto [known, isNew] = numbers_.try_emplace(std::string(text), static_cast<long>(names_.size()));
        if (isNew) {
            names_.push_back(known->first);
        }
        places_.push_back(known->second);
    }

    /// The labels, and their names, which are empty if the labels are numbers.
    std::pair<std::vector<long>, std::vector<std::string>> finish() const
    {
        std::vector<long> values;
        for (const std::string& name : names_) {
            std::int32_t value = -1;
            const char* const end = name.data() + name.size();
            const auto [stopped, failure] = std::from_chars(name.data(), end, value);
            if (failure != std::errc() || stopped != end || value < 0) {
                return {places_, names_};
            }
            values.push_back(value);
        }
        std::vector<long> labels = places_;
        for (long& label : labels) {
            label = label < 0 ? -1 : values[static_cast<std::size_t>(label)];
        }
        return {labels, {}};
    }

private:
    std::vector<long> places_;
    std::vector<std::string> names_;
    std::unordered_map<std::string, long> numbers_;
};

/// The column of the labels; one past the last column if there is none.
std::size_t labelColumnOf(const std::vector<std::string>& names, const ktKit::CsvOptions& options, const Cells& cells)
{
    if (!options.isLabelled) {
        return names.size();
    }
    const std::string& wanted = options.labelColumn;
    if (wanted.empty()) {
        return 0;
    }
    const auto named = std::find(names.begin(), names.end(), wanted);
    if (named != names.end()) {
        return static_cast<std::size_t>(named - names.begin());
    }
    std::size_t number = 0;
    const char* const end = wanted.data() + wanted.size();
    const auto [stopped, failure] = std::from_chars(wanted.data(), end, number);
    if (failure != std::errc() || stopped != end || number >= names.size()) {
        cells.refuseLine(": no column is called \"" + wanted + "\"");
    }
    return number;
}

ktKit::Table tableOf(std::string_view text, const ktKit::CsvOptions& options, const std::string& path)
{
    Cells cells(text, options.separator, path);
    std::vector<std::string> names;
    cells.nextRow();
    while (cells.nextCell()) {
        names.emplace_back(cells.isQuoted() ? cells.cell() : trimmed(cells.cell()));
    }
    if (names.empty()) {
        cells.refuseLine(": the names of the columns are missing");
    }
    const std::size_t labelColumn = labelColumnOf(names, options, cells);
    if (names.size() == (labelColumn < names.size() ? 1U : 0U)) {
        cells.refuseLine(": there is no column of measurements");
    }
    ktKit::Patterns patterns;
    Labels labels;
    std::vector<double> values;
    while (cells.nextRow()) {
        values.clear();
        for (std::size_t column = 0; cells.nextCell(); ++column) {
            if (column == labelColumn) {
                labels.add(cells.cell(), cells.isQuoted());
            } else if (column < names.size()) {
                values.push_back(numberOf(cells, names[column]));
            }
        }
        if (cells.column() != names.size()) {
            cells.refuseLine(": " + std::to_string(cells.column()) + " cells, but " + std::to_string(names.size()) +
                             " columns");
        }
        patterns.push_back(ktKit::pattern(values));
    }
    ktKit::Table table;
    auto [numbers, texts] = labels.finish();
    numbers.resize(patterns.size(), -1);
    table.data.data(patterns, numbers);
    table.labelNames = std::move(texts);
    if (labelColumn < names.size()) {
        names.erase(names.begin() + static_cast<std::ptrdiff_t>(labelColumn));
    }
    table.columns = std::move(names);
    return table;
}

void requireSeparator(char separator)
{
    if (std::string_view("\"\r\n+-.0123456789").find(separator) != std::string_view::npos) {
        throw ktClassifierDefs::BadParams("The separator must not be a quote, a line end, or a character of numbers");
    }
}

ktKit::Table readFrom(std::istream& stream, const ktKit::CsvOptions& options, const std::string& path)
{
    std::string text;
    constexpr std::size_t step = 1U << 20;
    while (stream) {
        const std::size_t size = text.size();
        text.resize(size + step);
        stream.read(text.data() + size, step);
        text.resize(size + static_cast<std::size_t>(stream.gcount()));
    }
    if (stream.bad()) {
        throw ktKit::FileError(path + ": cannot be read");
    }
    return tableOf(text, options, path);
}

}  // namespace

ktKit::Table ktKit::readCsv(const std::string& path, const CsvOptions& options)
{
    requireSeparator(options.separator);
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    if (!file) {
        throw FileError(path + ": cannot be read");
    }
    return readFrom(file, options, path);
}

ktKit::Table ktKit::readCsv(std::istream& stream, const CsvOptions& options)
{
    requireSeparator(options.separator);
    return readFrom(stream, options, "stream");
}
